"""A small web API server without a web: loads the plug-in, calls its handlers and watches what becomes of itself.

Run inside the router by test_cost.py: `python3 - PLAN < this file`. The plan is a JSON list of [method, path, request,
times to call before the first look, times between the first and the second]. Prints, for each, the two looks and the
last status.
"""

import ctypes
import gc
import json
import os
import sys


class ApiEntity(ctypes.Structure):
    _fields_ = [("path", ctypes.c_char_p), ("method", ctypes.c_char_p),
                ("handler", ctypes.CFUNCTYPE(ctypes.c_int32, ctypes.c_void_p, ctypes.c_void_p))]


class Mallinfo2(ctypes.Structure):
    _fields_ = [(name, ctypes.c_size_t) for name in (
        "arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks", "fsmblks", "uordblks", "fordblks", "keepcost")]


libc = ctypes.CDLL(None)
libc.mallinfo2.restype = Mallinfo2
json_c = ctypes.CDLL("libjson-c.so.5")
json_c.json_tokener_parse.restype = json_c.json_object_new_object.restype = ctypes.c_void_p
json_c.json_tokener_parse.argtypes = [ctypes.c_char_p]
json_c.json_object_put.argtypes = [ctypes.c_void_p]

plugin = ctypes.CDLL("/usr/bin/vela_modem.so")
plugin.get_api_entity.restype = ctypes.POINTER(ApiEntity)
count = ctypes.c_uint32()
rows = plugin.get_api_entity(ctypes.byref(count))
HANDLERS = {(rows[i].method.decode(), rows[i].path.decode()): rows[i].handler for i in range(count.value)}


def look() -> dict:
    """What a handler could leave behind in its process."""
    gc.collect()
    heap = libc.mallinfo2()
    with open("/proc/self/status", encoding="ascii") as file:
        status = dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)
    with open(f"/proc/self/task/{os.getpid()}/children", encoding="ascii") as file:
        children = file.read().split()
    return {
        "descriptors": {fd: os.readlink(f"/proc/self/fd/{fd}") for fd in os.listdir("/proc/self/fd")
                        if os.path.lexists(f"/proc/self/fd/{fd}")},
        "children": children,
        "threads": status["Threads"],
        "signals": [status[name] for name in ("SigBlk", "SigIgn", "SigCgt", "ShdPnd")],
        "directory": os.getcwd(),
        "umask": status["Umask"],
        "heap": heap.uordblks + heap.hblkhd,
        "resident": int(status["VmRSS"].split()[0]),
        "written": os.fstat(1).st_size,
    }


def call(handler, request: bytes, times: int) -> int:
    status = 0
    for _ in range(times):
        request_object = json_c.json_tokener_parse(request)
        reply_object = json_c.json_object_new_object()
        status = handler(request_object, reply_object)
        json_c.json_object_put(request_object)
        json_c.json_object_put(reply_object)
    return status


result = []
gc.disable()
for method, path, request, before, times in json.loads(sys.argv[1]):
    body = json.dumps(request).encode()
    call(HANDLERS[method, path], body, before)
    look()
    first = look()
    last_status = call(HANDLERS[method, path], body, times)
    result.append([first, look(), last_status])
print(json.dumps(result))
