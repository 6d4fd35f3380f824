#!/usr/bin/python3
"""The router and web server of the browser tests, obeying commands that come as lines of JSON on standard input.

Each line is {"do": NAME, ...}; the answer is a line {"result": ...} or {"error": ...}. The first line that it prints is
{"address": ..., "users": {name: password}}. It ends with its input.
"""

import json
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "sim"))

from showcase import TWO_MODEMS  # noqa: E402
from velasim.router import Router  # noqa: E402
from web_demo import BUS, MESSAGES, set_signal, web_router  # noqa: E402
from web_server import User, WebServer  # noqa: E402

USERS = {"root": "the password", "reader": "another one", "stranger": "a third one"}
SPOOL = "/etc/spool/sms"
INTERFACES = BUS["interfaces"]


class Stage:
    def __init__(self, router: Router, server: WebServer) -> None:
        self.router, self.server = router, server

    def do_reset(self) -> None:
        """Everything as it was at the beginning."""
        for bus in ("1-1.2", "2-1.2"):
            self.router.modem(bus).behave()
            self.router.modem(bus).plug()
        for directory in ("incoming", "storage"):
            for name in self.router.listdir(f"{SPOOL}/{directory}"):
                self.router.remove(f"{SPOOL}/{directory}/{name}")
        for path, text in MESSAGES.items():
            self.router.write(path, text)
        self.router.write("/etc/config/network", TWO_MODEMS["network"])
        self.router.set_ubus_state(BUS)
        self.router.modem("1-1.2").reply("AT+CPIN?", "\n+CPIN: READY\n\nOK\n")
        self.router.write("/tmp/modem.1-1.2/modem-name", " EC25EFAR06A03M4G\r")
        set_signal(self.router, 0)
        self.router.clear_events()
        self.server.calls.clear()
        self.server.out_of_order = False

    def do_signal(self, step: int) -> None:
        set_signal(self.router, step)

    def do_unplug(self, bus: str) -> None:
        self.router.modem(bus).unplug()

    def do_plug(self, bus: str) -> None:
        self.router.modem(bus).plug()

    def do_reply(self, bus: str, command: str, text: str) -> None:
        self.router.modem(bus).reply(command, text)

    def do_write(self, path: str, text: str) -> None:
        self.router.write(path, text)

    def do_remove(self, path: str) -> None:
        self.router.remove(path)

    def do_spool(self) -> dict[str, list[str]]:
        return {name: self.router.listdir(f"{SPOOL}/{name}") for name in ("incoming", "storage")}

    def do_link(self, interface: str, state: str) -> None:
        self.router.set_ubus_state(
            {"interfaces": {**INTERFACES, interface: {**INTERFACES[interface], "state": state}}})

    def do_expire(self) -> None:
        self.server.sessions.open.clear()

    def do_out_of_order(self, value: bool) -> None:
        self.server.out_of_order = value

    def do_calls(self) -> list[str]:
        """The methods that were called since the last time."""
        calls, self.server.calls[:] = list(self.server.calls), []
        return calls

    def do_programs(self) -> list[list[str]]:
        return self.router.programs

    def do_option(self, name: str) -> str:
        return self.router.run("uci", "-q", "get", name).stdout.strip()


def main() -> None:
    users = [User("root", USERS["root"]), User("reader", USERS["reader"], write=()),
             User("stranger", USERS["stranger"], read=(), write=())]
    with web_router(quick=20) as router, WebServer(router, users) as server:
        stage = Stage(router, server)
        print(json.dumps({"address": server.address, "users": USERS}), flush=True)
        for line in sys.stdin:
            request = json.loads(line)
            try:
                answer = {"result": getattr(stage, "do_" + request.pop("do"))(**request)}
            except Exception as problem:  # the test sees it as its own
                answer = {"error": f"{type(problem).__name__}: {problem}"}
            print(json.dumps(answer), flush=True)


if __name__ == "__main__":
    main()
