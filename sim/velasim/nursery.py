"""Where the keepers of routers come from: a process that has loaded the simulator's code, and divides itself for each.

To start an interpreter and to load that code takes longer than all else that a router needs, and tests make thousands.
"""

import json
import os
import signal
import socket
import subprocess
import sys
import threading
import traceback
from pathlib import Path

SIM = Path(__file__).resolve().parent.parent
CODE = "import sys; sys.path.insert(0, sys.argv.pop()); from velasim.nursery import main; main()"


class Nursery:
    """The nursery of this process. It ends when this process does."""

    def __init__(self) -> None:
        self.owner = os.getpid()
        self._socket, inner = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        with inner:
            self._process = subprocess.Popen(
                [sys.executable, "-E", "-s", "-S", "-B", "-c", CODE, str(inner.fileno()), str(SIM)],
                pass_fds=(inner.fileno(),), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                start_new_session=True, cwd="/",
            )
        self.pid = self._process.pid

    def bear(self, setup: dict) -> tuple[socket.socket, int]:
        """A new keeper (keeper.py): the socket by which it is commanded, and a descriptor that comes to its end when
        the keeper and all that it started have ended."""
        control, inner = socket.socketpair()
        read_setup, write_setup = os.pipe()
        alive, life = os.pipe()
        socket.send_fds(self._socket, [b"k"], [inner.fileno(), read_setup, life, 2])
        inner.close()
        os.close(read_setup)
        os.close(life)
        # Longer than a message can be.
        with os.fdopen(write_setup, "wb") as pipe:
            pipe.write(json.dumps(setup).encode())
        return control, alive


_lock = threading.Lock()
_nursery: Nursery | None = None


def nursery() -> Nursery:
    global _nursery
    with _lock:
        if _nursery is None or _nursery.owner != os.getpid():
            _nursery = Nursery()
        return _nursery


def main() -> None:
    """The process. Each message has the descriptors of a keeper; their end is that of the process which wants them."""
    from . import keeper

    asked = socket.socket(fileno=int(sys.argv[1]))
    signal.signal(signal.SIGCHLD, signal.SIG_IGN)  # nobody waits for a keeper but by its descriptor
    while True:
        message, descriptors, _, _ = socket.recv_fds(asked, 1, 4, socket.MSG_CMSG_CLOEXEC)
        if not message:
            return
        if os.fork() == 0:
            asked.close()
            signal.signal(signal.SIGCHLD, signal.SIG_DFL)
            control, setup, _life, errors = descriptors  # _life stays open in all that lives in the router
            try:
                os.dup2(errors, 2)
                keeper.main(socket.socket(fileno=control), setup)
            except BaseException:
                traceback.print_exc()
            finally:
                os._exit(0)
        for descriptor in descriptors:
            os.close(descriptor)
