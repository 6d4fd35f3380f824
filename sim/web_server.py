"""Stands in for the router's web server (uhttpd with its ubus plug-in) and for rpcd behind it: sessions, access control
and the exec plug-in. It is for tests and demonstrations on this machine and listens on its loopback only.

    with Router("ec25") as router, WebServer(router, [User("root", "secret")]) as server:
        print(server.address)

Real are the page, the access list and the calls: each method of the object `vela_modem` runs the plug-in that rpcd runs
on a router, in the simulated one.
"""

import json
import mimetypes
import secrets
import subprocess
import sys
import threading
import time
from dataclasses import dataclass, field
from fnmatch import fnmatchcase
from http import HTTPStatus
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path
from typing import Any

from velasim.router import Router
from velasim.rpcd import PROGRAMS, reply_in
from velasim.ubus_wire import Status

SOURCE = Path(__file__).resolve().parent.parent
PAGE = SOURCE / "www"
PREFIX = "/vela_modem/"
ACCESS_LISTS = SOURCE / "openwrt/vela-modem/files"

OBJECT = "vela_modem"
PROGRAM = f"{PROGRAMS}/{OBJECT}"
SESSION_SECONDS = 300
CALL_SECONDS = 60.0  # what rpcd waits for a program where it is set up for restarts of modems
LONGEST_REQUEST = 65536

# The errors of uhttpd's JSON-RPC.
ERRORS = {
    -32700: "Parse error", -32600: "Invalid request", -32601: "Method not found", -32602: "Invalid parameters",
    -32000: "Object not found", -32002: "Access denied",
}


class RpcError(Exception):
    def __init__(self, code: int) -> None:
        super().__init__(ERRORS[code])
        self.code = code


@dataclass(frozen=True)
class User:
    """A row of rpcd's logins: which groups of the access lists the user reads and writes."""

    name: str
    password: str
    read: tuple[str, ...] = ("*",)
    write: tuple[str, ...] = ("*",)


@dataclass
class Session:
    user: str
    rights: dict[str, list[str]]  # the methods by object; "*" in either stands for anything
    used: float = field(default_factory=time.monotonic)


def load_access_lists(below: Path) -> dict[str, dict]:
    """The groups of all access lists below a directory, as rpcd reads them."""
    groups: dict[str, dict] = {}
    for path in sorted(below.rglob("*.json")):
        groups |= json.loads(path.read_text(encoding="utf-8"))
    return groups


def rights_of(user: User, groups: dict[str, dict]) -> dict[str, list[str]]:
    rights: dict[str, list[str]] = {}
    for name, group in groups.items():
        for kind, wanted in (("read", user.read), ("write", user.write)):
            if any(fnmatchcase(name, pattern) for pattern in wanted):
                for target, methods in group.get(kind, {}).get("ubus", {}).items():
                    rights[target] = sorted({*rights.get(target, []), *methods})
    return rights


class Sessions:
    def __init__(self, users: list[User], groups: dict[str, dict], seconds: float) -> None:
        self.users = {user.name: user for user in users}
        self.groups, self.seconds = groups, seconds
        self.open: dict[str, Session] = {}
        self.lock = threading.Lock()

    def login(self, arguments: dict[str, Any]) -> tuple[Status, dict | None]:
        user = self.users.get(str(arguments.get("username")))
        if user is None or not secrets.compare_digest(user.password.encode(), str(arguments.get("password")).encode()):
            return Status.PERMISSION_DENIED, None
        sid = secrets.token_hex(16)
        session = Session(user.name, rights_of(user, self.groups))
        with self.lock:
            self.open[sid] = session
        return Status.OK, {
            "ubus_rpc_session": sid, "timeout": int(self.seconds), "expires": int(self.seconds),
            "acls": {"ubus": session.rights}, "data": {"username": user.name}}

    def find(self, sid: str) -> Session | None:
        """The session, whose time begins anew; none where it has expired."""
        with self.lock:
            session = self.open.get(sid)
            if session is None or time.monotonic() - session.used > self.seconds:
                self.open.pop(sid, None)
                return None
            session.used = time.monotonic()
            return session

    def destroy(self, sid: str) -> None:
        with self.lock:
            self.open.pop(sid, None)

    def may(self, sid: str, target: str, method: str) -> bool:
        if (target, method) in (("session", "login"), ("session", "access")):
            return True
        session = self.find(sid)
        if session is None:
            return False
        return any(fnmatchcase(target, pattern) and any(fnmatchcase(method, one) for one in methods)
                   for pattern, methods in session.rights.items())


class WebServer:
    """Serves the page and /ubus until it is closed; any number of requests at once."""

    def __init__(self, router: Router, users: list[User], *, port: int = 0, page: Path = PAGE,
                 access_lists: Path = ACCESS_LISTS, session_seconds: float = SESSION_SECONDS) -> None:
        self.router, self.page = router, page.resolve()
        self.sessions = Sessions(users, load_access_lists(access_lists), session_seconds)
        self.calls: list[str] = []  # the methods of the plug-in that were called, in order
        self.out_of_order = False  # every call is refused, as while rpcd is restarting
        self._starting = threading.Lock()  # the router starts one program at a time
        handler = type("Handler", (RequestHandler,), {"owner": self})
        self._http = HttpServer(("127.0.0.1", port), handler)
        self._thread = threading.Thread(target=self._http.serve_forever, args=(0.05,), daemon=True)
        self._thread.start()

    @property
    def address(self) -> str:
        return f"http://127.0.0.1:{self._http.server_port}{PREFIX}"

    def close(self) -> None:
        self._http.shutdown()
        self._thread.join()
        self._http.server_close()

    def __enter__(self) -> "WebServer":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    # JSON-RPC

    def answer(self, text: bytes) -> dict[str, Any]:
        request: Any = None
        try:
            try:
                request = json.loads(text)
            except ValueError:
                raise RpcError(-32700) from None
            outcome = {"result": self._call(request)}
        except RpcError as problem:
            outcome = {"error": {"code": problem.code, "message": str(problem)}}
        return {"jsonrpc": "2.0", "id": request.get("id") if isinstance(request, dict) else None, **outcome}

    def _call(self, request: Any) -> list:
        if not isinstance(request, dict) or request.get("jsonrpc") != "2.0":
            raise RpcError(-32600)
        if request.get("method") != "call":
            raise RpcError(-32601)
        match request.get("params"):
            # The session is the server's to say: a call may not be in the name of another one.
            case [str(sid), str(target), str(method), dict(arguments)] if "ubus_rpc_session" not in arguments:
                pass
            case _:
                raise RpcError(-32602)
        if target not in ("session", OBJECT) or self.out_of_order:
            raise RpcError(-32000)
        if not self.sessions.may(sid, target, method):
            raise RpcError(-32002)
        if target == "session":
            status, reply = self._session_call(sid, method, arguments)
        else:
            status, reply = self._plugin_call(method, {**arguments, "ubus_rpc_session": sid})
        return [status] if reply is None else [status, reply]

    def _session_call(self, sid: str, method: str, arguments: dict[str, Any]) -> tuple[Status, dict | None]:
        if method == "login":
            return self.sessions.login(arguments)
        if method == "destroy":
            self.sessions.destroy(sid)
            return Status.OK, None
        if method == "access":
            return Status.OK, {"access": self.sessions.find(sid) is not None}
        return Status.METHOD_NOT_FOUND, None

    def _plugin_call(self, method: str, arguments: dict[str, Any]) -> tuple[Status, dict | None]:
        """What rpcd does with an exec plug-in."""
        self.calls.append(method)
        with self._starting:
            process = self.router.start(PROGRAM, "call", method, stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
        try:
            output, _ = process.communicate(json.dumps(arguments).encode(), timeout=CALL_SECONDS)
        except subprocess.TimeoutExpired:
            process.kill()
            process.communicate()
            return Status.TIMEOUT, None
        return reply_in(output)


class HttpServer(ThreadingHTTPServer):
    daemon_threads = True
    block_on_close = False

    def handle_error(self, *_: object) -> None:
        if not isinstance(sys.exc_info()[1], ConnectionError):  # a page that was closed wants no answer
            super().handle_error(*_)


class RequestHandler(BaseHTTPRequestHandler):
    owner: WebServer
    protocol_version = "HTTP/1.1"
    server_version, sys_version = "stand-in", ""

    def log_message(self, *_: object) -> None:
        pass

    def do_GET(self) -> None:
        path = self.path.partition("?")[0].partition("#")[0]
        if path in ("/", PREFIX[:-1]):
            self._send(HTTPStatus.FOUND, b"", "text/plain", Location=PREFIX)
            return
        name = path.removeprefix(PREFIX) or "index.html"
        file = (self.owner.page / name).resolve()
        if not path.startswith(PREFIX) or self.owner.page not in file.parents or not file.is_file():
            self._send(HTTPStatus.NOT_FOUND, b"not found\n", "text/plain")
            return
        kind = mimetypes.guess_type(file.name)[0] or "application/octet-stream"
        self._send(HTTPStatus.OK, file.read_bytes(), kind)

    def do_POST(self) -> None:
        length = self.headers.get("Content-Length", "")
        if self.path != "/ubus" or not length.isdecimal() or int(length) > LONGEST_REQUEST:
            self.close_connection = True
            self._send(HTTPStatus.BAD_REQUEST, b"", "text/plain")
            return
        reply = self.owner.answer(self.rfile.read(int(length)))
        self._send(HTTPStatus.OK, json.dumps(reply).encode(), "application/json")

    def _send(self, status: HTTPStatus, body: bytes, kind: str, **headers: str) -> None:
        self.send_response(status)
        for name, value in {"Content-Type": kind, "Content-Length": str(len(body)), "Cache-Control": "no-cache",
                            **headers}.items():
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body)
