"""A web API server that stays: the program of tests/router/host.cpp in a simulated router, and what becomes of its
process."""

import json
import os
import select
import subprocess
from pathlib import Path

from velasim import Router

CALL_LIMIT = 120.0  # seconds of the clock: only what hangs takes so long
FOREVER = "a call has not come back"


class Server:
    """One process that has the plug-in loaded. `call` waits for the reply; `send` and `receive` are its halves."""

    def __init__(self, r: Router) -> None:
        program = str(r.build / "tests/router/host")
        self.process = r.start(program, "/usr/bin/vela_modem.so", stdin=subprocess.PIPE)
        self.errors = b""
        self.replies = b""
        assert self._line() == b"ready", self.errors

    def send(self, method: str, path: str, request: dict) -> None:
        self.process.stdin.write(f"{method} {path} {json.dumps(request)}\n".encode())
        self.process.stdin.flush()

    def receive(self) -> dict:
        return json.loads(self._line())

    def _line(self) -> bytes:
        streams = [self.process.stdout, self.process.stderr]
        while b"\n" not in self.replies:
            ready = select.select(streams, [], [], CALL_LIMIT)[0]
            assert ready, FOREVER
            for stream in ready:
                data = os.read(stream.fileno(), 65536)
                if stream is self.process.stderr:
                    self.errors = (self.errors + data)[-65536:]
                    streams = streams if data else streams[:1]
                else:
                    assert data, f"the server ended: {self.process.wait()} {self.errors.decode(errors='replace')}"
                    self.replies += data
        line, self.replies = self.replies.split(b"\n", 1)
        return line

    def call(self, method: str, path: str, request: dict) -> dict:
        self.send(method, path, request)
        return self.receive()

    def look(self) -> dict:
        """What the handlers could leave behind in their process; sizes in KiB."""
        launcher = self.process.pid  # enter.c, whose only child is the server
        [pid] = Path(f"/proc/{launcher}/task/{launcher}/children").read_text(encoding="ascii").split()
        memory = {}
        for line in Path(f"/proc/{pid}/smaps_rollup").read_text(encoding="ascii").splitlines()[1:]:
            name, value = line.split(":")
            memory[name] = int(value.split()[0])
        children = Path(f"/proc/{pid}/task/{pid}/children").read_text(encoding="ascii").split()
        return {
            "descriptors": len(os.listdir(f"/proc/{pid}/fd")),
            "children": len(children),
            "threads": len(os.listdir(f"/proc/{pid}/task")),
            "resident": memory["Rss"],
            # Not what is clean: that is the libraries' text, whenever no other process has them loaded.
            "private": memory["Private_Dirty"],
        }

    def end(self) -> tuple[int, str]:
        """Ends it as a server ends; its status, and the end of what it wrote to standard error."""
        self.process.stdin.close()
        while data := os.read(self.process.stderr.fileno(), 65536):
            self.errors = (self.errors + data)[-65536:]
        return self.process.wait(), self.errors.decode(errors="replace")
