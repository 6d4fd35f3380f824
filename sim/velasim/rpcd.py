"""A stand-in for the part of rpcd that serves programs: each one in /usr/libexec/rpcd is an object on the bus.

    python3 -c '...; from velasim.rpcd import main; main()'

A program says its methods and their arguments with "list". For a call it is run with "call METHOD"; the arguments are
one JSON object on its standard input, and the object that it prints is the reply. This prints "ready" once all are on
the bus.
"""

import json
import os
import socket
import subprocess
import threading
from typing import Any

from .machine import UBUS_SOCKET
from .ubus_wire import (
    Attr, Message, MessageReader, Msg, Status, Type, WireError,
    decode_int, decode_members, decode_text, encode_attr, encode_int, encode_members, encode_message, encode_text,
)  # fmt: skip

PROGRAMS = "/usr/libexec/rpcd"
LIMIT = 30.0  # seconds that a call may take
WIDTHS = {8: Type.INT8, 16: Type.INT16, 64: Type.INT64}


def type_of(example: Any) -> Type:
    """The type of an argument, by the value that the program gives for it."""
    if isinstance(example, bool):
        return Type.INT8
    if isinstance(example, int):
        return WIDTHS.get(example, Type.INT32)
    return Type.STRING if isinstance(example, str) else Type.TABLE if isinstance(example, dict) else Type.ARRAY


def reply_in(output: bytes) -> tuple[Status, dict[str, Any] | None]:
    """What rpcd takes from what a program has printed."""
    if not output:
        return Status.NO_DATA, None
    try:
        reply = json.loads(output)
    except ValueError:
        reply = None
    return (Status.OK, reply) if isinstance(reply, dict) else (Status.INVALID_ARGUMENT, None)


def run_program(program: str, words: list[str], text: str) -> tuple[Status, dict[str, Any] | None]:
    """Runs the program and takes what it prints."""
    try:
        done = subprocess.run([f"{PROGRAMS}/{program}", *words], input=text.encode("utf-8", "surrogateescape"),
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=LIMIT)
    except subprocess.TimeoutExpired:
        return Status.TIMEOUT, None
    except OSError:
        return Status.INVALID_ARGUMENT, None
    return reply_in(done.stdout)


class Rpcd:
    def __init__(self, path: str = UBUS_SOCKET) -> None:
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.connect(path)
        self._messages = self._read()
        self._objects: dict[int, tuple[str, dict]] = {}  # the program and its methods, by the object's id
        self._sending = threading.Lock()
        next(self._messages)  # the daemon's greeting

    def _read(self):
        reader = MessageReader()
        while data := self._socket.recv(65536):
            yield from reader.feed(data)

    def _send(self, data: bytes) -> None:
        with self._sending:
            self._socket.sendall(data)

    def add_programs(self) -> None:
        for program in sorted(os.listdir(PROGRAMS)):
            status, methods = run_program(program, ["list"], "")
            if status == Status.OK and methods:
                self._add(program, methods)

    def _add(self, program: str, methods: dict[str, dict[str, Any]]) -> None:
        signature = {method: {name: int(type_of(example)) for name, example in arguments.items()}
                     for method, arguments in methods.items()}
        self._send(encode_message(Msg.ADD_OBJECT, 1, 0, encode_text(Attr.OBJPATH, program)
                                  + encode_attr(Attr.SIGNATURE, encode_members(signature))))
        for message in self._messages:
            attrs = message.attrs()
            if message.type == Msg.DATA:
                self._objects[decode_int(attrs[Attr.OBJID])] = (program, methods)
            elif message.type == Msg.STATUS:
                return

    def serve(self) -> None:
        for message in self._messages:
            if message.type == Msg.INVOKE:
                threading.Thread(target=self._call, args=(message,), daemon=True).start()

    def _call(self, message: Message) -> None:
        attrs = message.attrs()
        object_id = encode_int(Attr.OBJID, decode_int(attrs[Attr.OBJID]))
        program, methods = self._objects[decode_int(attrs[Attr.OBJID])]
        method = decode_text(attrs[Attr.METHOD])
        answer = b""
        if method not in methods:
            status = Status.METHOD_NOT_FOUND
        else:
            arguments = json.dumps(decode_members(attrs.get(Attr.DATA, b"")), ensure_ascii=False)
            status, reply = run_program(program, ["call", method], arguments)
            try:
                data = encode_attr(Attr.DATA, encode_members(reply or {}))
            except WireError:
                status = Status.INVALID_ARGUMENT
            if status == Status.OK:
                answer = encode_message(Msg.DATA, message.seq, message.peer, object_id + data)
        result = encode_int(Attr.STATUS, status) + object_id
        self._send(answer + encode_message(Msg.STATUS, message.seq, message.peer, result))


def main() -> None:
    rpcd = Rpcd()
    rpcd.add_programs()
    print("ready", flush=True)
    rpcd.serve()
