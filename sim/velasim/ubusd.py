"""A bus daemon for tests: speaks the real protocol and plays the network daemon's objects by itself.

    python3 -m velasim.ubusd --socket PATH --state FILE.json --log FILE

The state file says what is on the bus, and is read again whenever it changes:

    {"interfaces": {"lan": "up", "wwan": {"state": "pending", "on_up": "up", "l3_device": "wwan0"}},
     "devices":    {"wwan0": {"rx_bytes": 5, "tx_bytes": 7}},
     "replies":    {"system": {"board": {"model": "x"}}},
     "faults":     {"network": {"reload": "silent"}},
     "greeting":   "die"}

An interface is up, pending, down or unknown (not on the bus). Given as an object, its other members go into the status
reply; "on_up", "on_down" and "on_reload" (netifd's) are the states that these calls bring about, which hold until the
file changes. "replies" puts any object and method on the bus, or replaces a reply (null: only a status). A fault, also
as the greeting and for the method "<lookup>", is one of

    "silent"            never answer              {"status": 6}      answer with this code only
    "die"               close after half of it    {"delay": 1.5}     answer after this many seconds
    "flood"             answers to others, no end {"dribble": 0.01}  a byte at a time, this many seconds between them
                                                  {"raw": "00ff"}    these bytes in place of the answer

Programs may add objects of their own; what is called of these goes to them. Each invocation is one line of JSON in the
log.
"""

import argparse
import heapq
import itertools
import json
import os
import selectors
import socket
import sys
import time
from typing import Any

from . import ubus_objects
from .ubus_wire import (
    Attr, Message, MessageReader, Msg, Status, WireError,
    decode_int, decode_members, decode_text, encode_attr, encode_int, encode_members, encode_message, encode_text,
)  # fmt: skip

FIRST_CLIENT = 0x1000
FIRST_OBJECT = 0x10000000


class Client:
    """One connection: what is read of its next message, and what it has yet to be sent."""

    def __init__(self, connection: socket.socket, id_: int) -> None:
        self.socket = connection
        self.id = id_
        self.reader = MessageReader()
        self.out = bytearray()
        self.closing = False  # once `out` is sent
        self.busy_until = 0.0  # when the last slow answer will be out; later ones come behind it
        self.flooded = False


class Added:
    """An object that a client has added: what is called of it goes there."""

    def __init__(self, owner: Client, id_: int, signature: bytes) -> None:
        self.owner = owner
        self.id = id_
        self.signature = signature


class StateFile:
    """The state file's content as of its last change; a file that does not parse leaves it as it was."""

    def __init__(self, path: str) -> None:
        self._path = path
        self._seen: tuple | None = None
        self.state = ubus_objects.State({})

    def refresh(self) -> ubus_objects.State:
        try:
            stat = os.stat(self._path)
            seen = (stat.st_ino, stat.st_size, stat.st_mtime_ns)
            if seen != self._seen:
                with open(self._path, encoding="utf-8") as file:
                    self.state = ubus_objects.State(json.load(file))
                self._seen = seen
        except FileNotFoundError:
            pass
        except (OSError, ValueError, AttributeError, TypeError) as error:
            print(f"ubusd: {self._path}: {error}", file=sys.stderr)
        return self.state


class Daemon:
    def __init__(self, socket_path: str, state_path: str, log_path: str) -> None:
        self._state = StateFile(state_path)
        self._log = os.open(log_path, os.O_WRONLY | os.O_CREAT | os.O_APPEND | os.O_CLOEXEC, 0o644)
        self._selector = selectors.DefaultSelector()
        self._client_ids = itertools.count(FIRST_CLIENT)
        self._object_ids: dict[str, int] = {}
        self._clients: dict[int, Client] = {}
        self._added: dict[str, Added] = {}
        self._later: list[tuple[float, int, Client, bytes]] = []  # a heap: when, tie-break, to whom, what
        self._ties = itertools.count()
        self._listener = self._listen(socket_path)
        self._selector.register(self._listener, selectors.EVENT_READ)

    @staticmethod
    def _listen(path: str) -> socket.socket:
        # The name appears once the socket accepts connections, so whoever sees it can connect.
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        temporary = f"{path}.{os.getpid()}"
        listener.bind(temporary)
        listener.listen(128)
        listener.setblocking(False)
        os.replace(temporary, path)
        return listener

    def serve(self) -> None:
        while True:
            timeout = max(0.0, self._later[0][0] - time.monotonic()) if self._later else None
            for key, events in self._selector.select(timeout):
                if key.data is None:
                    self._accept()
                    continue
                if events & selectors.EVENT_READ:
                    self._read(key.data)
                if events & selectors.EVENT_WRITE:
                    self._write(key.data)
            self._send_due()

    # Clients

    def _accept(self) -> None:
        try:
            connection, _ = self._listener.accept()
        except OSError:
            return
        connection.setblocking(False)
        client = Client(connection, next(self._client_ids))
        self._clients[client.id] = client
        self._selector.register(connection, selectors.EVENT_READ, client)
        greeting = encode_message(Msg.HELLO, 0, client.id)
        self._answer(client, greeting, self._state.refresh().greeting_fault, 0, 0)

    def _drop(self, client: Client) -> None:
        if client.socket.fileno() >= 0:
            self._selector.unregister(client.socket)
            client.socket.close()
            del self._clients[client.id]
            self._added = {path: added for path, added in self._added.items() if added.owner is not client}

    def _read(self, client: Client) -> None:
        try:
            data = client.socket.recv(65536)
            for message in client.reader.feed(data):
                self._handle(client, message)
        except BlockingIOError:
            return
        except (OSError, WireError):
            data = b""
        if not data:
            self._drop(client)

    def _write(self, client: Client) -> None:
        if client.socket.fileno() < 0:
            return
        if client.flooded and not client.out:
            noise = encode_attr(Attr.DATA, encode_members({"noise": True}))
            client.out += encode_message(Msg.DATA, 0xFFFF, 0, noise) * 50
        try:
            if client.out:
                del client.out[: client.socket.send(client.out)]
        except BlockingIOError:
            pass
        except OSError:
            self._drop(client)
            return
        if client.closing and not client.out:
            self._drop(client)
            return
        waiting = selectors.EVENT_WRITE if client.out or client.flooded else 0
        self._selector.modify(client.socket, selectors.EVENT_READ | waiting, client)

    def _send(self, client: Client, data: bytes) -> None:
        client.out += data
        self._write(client)

    def _send_later(self, client: Client, seconds: float, data: bytes) -> None:
        client.busy_until = max(client.busy_until, time.monotonic()) + seconds
        heapq.heappush(self._later, (client.busy_until, next(self._ties), client, data))

    def _send_due(self) -> None:
        while self._later and self._later[0][0] <= time.monotonic():
            _, _, client, data = heapq.heappop(self._later)
            if client.socket.fileno() >= 0:
                self._send(client, data)

    # Answers

    def _answer(self, client: Client, data: bytes, fault: Any, seq: int, peer: int) -> None:
        """Sends the answer, the way the fault has it."""
        if fault == "silent":
            return
        if fault == "die":
            client.closing = True
            self._send(client, data[: len(data) // 2])
        elif fault == "flood":
            client.flooded = True
            self._send(client, b"")
        elif isinstance(fault, dict) and "status" in fault:
            self._send(client, encode_message(Msg.STATUS, seq, peer, encode_int(Attr.STATUS, fault["status"])))
        elif isinstance(fault, dict) and "delay" in fault:
            self._send_later(client, fault["delay"], data)
        elif isinstance(fault, dict) and "dribble" in fault:
            for i in range(len(data)):
                self._send_later(client, fault["dribble"], data[i : i + 1])
        elif isinstance(fault, dict) and "raw" in fault:
            self._send(client, bytes.fromhex(fault["raw"]))
        elif client.busy_until > time.monotonic():
            self._send_later(client, 0.0, data)
        else:
            self._send(client, data)

    def _handle(self, client: Client, message: Message) -> None:
        state = self._state.refresh()
        fault = None
        parts: list[bytes] = []
        try:
            attrs = message.attrs()
            if message.type == Msg.LOOKUP:
                path = decode_text(attrs[Attr.OBJPATH]) if Attr.OBJPATH in attrs else "*"
                fault = state.fault(path, "<lookup>")
                status = self._look_up(state, path, parts)
            elif message.type == Msg.INVOKE:
                if self._pass_on(client, message, attrs):
                    return
                status, fault = self._invoke(state, attrs, parts)
            elif message.type == Msg.ADD_OBJECT:
                status = self._add(client, attrs, parts)
            elif message.type in (Msg.DATA, Msg.STATUS):
                self._pass_back(client, message, attrs)
                return
            else:
                status = Status.INVALID_COMMAND
        except WireError:
            status = Status.INVALID_ARGUMENT
        answer = [encode_message(Msg.DATA, message.seq, message.peer, part) for part in parts]
        answer.append(encode_message(Msg.STATUS, message.seq, message.peer, encode_int(Attr.STATUS, status)))
        # Half an answer is to be half a message: of the reply, where there is one.
        self._answer(client, answer[0] if fault == "die" else b"".join(answer), fault, message.seq, message.peer)

    def _object_id(self, path: str) -> int:
        return self._object_ids.setdefault(path, FIRST_OBJECT + len(self._object_ids))

    # Objects that clients have added

    def _add(self, client: Client, attrs: dict[int, bytes], parts: list[bytes]) -> Status:
        if Attr.OBJPATH not in attrs:
            return Status.INVALID_ARGUMENT
        path = decode_text(attrs[Attr.OBJPATH])
        if path in self._added or path in self._state.state.objects():
            return Status.INVALID_ARGUMENT
        id_ = self._object_id(path)
        self._added[path] = Added(client, id_, attrs.get(Attr.SIGNATURE, b""))
        parts.append(encode_int(Attr.OBJID, id_) + encode_int(Attr.OBJTYPE, id_ ^ 0x5A5A))
        return Status.OK

    def _pass_on(self, client: Client, message: Message, attrs: dict[int, bytes]) -> bool:
        """Sends a call on to the client whose object it is for; tells whether there is one."""
        id_ = decode_int(attrs[Attr.OBJID]) if Attr.OBJID in attrs else None
        added = next((added for added in self._added.values() if added.id == id_), None)
        if added is None or Attr.METHOD not in attrs:
            return False
        self._note(attrs)
        self._send(added.owner, encode_message(Msg.INVOKE, message.seq, client.id, message.body))
        return True

    def _pass_back(self, client: Client, message: Message, attrs: dict[int, bytes]) -> None:
        """Sends the answer of an object's owner to whom it is for."""
        id_ = decode_int(attrs[Attr.OBJID]) if Attr.OBJID in attrs else None
        caller = self._clients.get(message.peer)
        if caller is not None and any(added.id == id_ and added.owner is client for added in self._added.values()):
            self._send(caller, encode_message(message.type, message.seq, id_, message.body))

    # Calls

    def _note(self, attrs: dict[int, bytes]) -> tuple[str | None, str, dict[str, Any]]:
        """What is called of which object, with which arguments; it is also noted in the log."""
        id_ = decode_int(attrs[Attr.OBJID])
        method = decode_text(attrs[Attr.METHOD])
        args = decode_members(attrs.get(Attr.DATA, b""))
        path = next((path for path, known in self._object_ids.items() if known == id_), None)
        line = json.dumps({"kind": "ubus", "object": path, "method": method, "args": args}) + "\n"
        os.write(self._log, line.encode())
        return path, method, args

    def _look_up(self, state: ubus_objects.State, pattern: str, parts: list[bytes]) -> Status:
        wild = pattern.endswith("*")
        objects = {path: encode_members({method: {} for method in methods})
                   for path, methods in state.objects().items()}
        objects |= {path: added.signature for path, added in self._added.items()}
        for path, signature in objects.items():
            if path != pattern and not (wild and path.startswith(pattern[:-1])):
                continue
            id_ = self._object_id(path)
            parts.append(
                encode_text(Attr.OBJPATH, path) + encode_int(Attr.OBJID, id_) + encode_int(Attr.OBJTYPE, id_ ^ 0x5A5A)
                + encode_attr(Attr.SIGNATURE, signature)
            )  # fmt: skip
        return Status.OK if parts else Status.NOT_FOUND

    def _invoke(self, state: ubus_objects.State, attrs: dict[int, bytes], parts: list[bytes]) -> tuple[Status, Any]:
        if Attr.OBJID not in attrs or Attr.METHOD not in attrs:
            return Status.INVALID_ARGUMENT, None
        path, method, args = self._note(attrs)
        if path is None:
            return Status.NOT_FOUND, None
        status, reply = state.call(path, method, args)
        if status == Status.OK and reply is not None:
            parts.append(encode_int(Attr.OBJID, self._object_id(path)) + encode_attr(Attr.DATA, encode_members(reply)))
        return status, state.fault(path, method)


def main() -> None:
    parser = argparse.ArgumentParser(prog="velasim.ubusd", description="A bus daemon for tests.")
    parser.add_argument("--socket", required=True, help="where to listen")
    parser.add_argument("--state", required=True, help="what is on the bus, as JSON")
    parser.add_argument("--log", required=True, help="where to append the invocations")
    options = parser.parse_args()
    try:
        Daemon(options.socket, options.state, options.log).serve()
    except KeyboardInterrupt:
        pass


if __name__ == "__main__":
    main()
