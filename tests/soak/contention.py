"""Many programs on three modems at the same time: command-line runs and servers with the plug-in.

Each sends a command with a number that nobody else uses, and the modem says it back; so a reply that holds another
number, or a piece of another reply, is known at once. Some write the configuration instead, each a pair of options that
belong together. No reply may be mixed, no configuration lost, no lock or process left over. A reply may be lost: to the
lock, which is tried for 31 ms, or to the flush with which every program opens the port (docs/commands.md).
"""

import itertools
import json
import random
import re
import tempfile
import threading
import time
from collections import Counter
from dataclasses import dataclass, field
from pathlib import Path

from server import Server
from velasim import Router

PORTS = {"1-1.2": "/dev/ttyUSB2", "1-1.3": "/dev/ttyUSB6", "2-1.2": "/dev/ttyUSB10"}
# Answers slowly, its reply in three pieces. What it echoes is part of the number, too.
MODEM = """\
# model: EC25
# firmware: none
# source: made for a test
# scrubbed: nothing
usb 2c7c:0125
interface 0 tty ttyUSB diag
interface 1 tty ttyUSB nmea
interface 2 tty ttyUSB at
interface 3 tty ttyUSB data
value number 0
> AT
<
< OK
> AT+NUMBER={number}
~ %d
= "\\r\\n+NUMBER: {number}"
~ %d
= ",<{number}>\\r\\n"
<
< OK
"""
SILENCE_LIMIT = 15.0  # seconds that a reply is waited for
LONGEST_RUN = 60.0  # seconds: four times what the slowest exchange may take, for a machine that is busy


def pieces(number: str) -> list[str]:
    """What belongs to a command: its echo, and the pieces of the reply."""
    return [f"AT+NUMBER={number}\r", f"\r\n+NUMBER: {number}", f",<{number}>\r\n\r\nOK\r\n"]


def is_part(text: str, number: str) -> bool:
    """Whether the text is what is left of the reply when some of what was queued has been thrown away: of each piece a
    part of its beginning and a part of its end."""
    places = {0}
    for piece in pieces(number):
        places = {place + head + tail for place in places for head in range(len(piece) + 1)
                  if text.startswith(piece[:head], place) for tail in range(len(piece) - head + 1)
                  if text.startswith(piece[len(piece) - tail:], place + head)}
    return len(text) in places


@dataclass
class Result:
    outcomes: Counter = field(default_factory=Counter)  # (who, outcome)
    longest: dict[str, float] = field(default_factory=dict)  # by outcome
    writes: Counter = field(default_factory=Counter)
    commands: int = 0  # that the modems received
    seconds: float = 0.0
    faults: list[str] = field(default_factory=list)

    def note(self, who: str, outcome: str, seconds: float) -> None:
        self.outcomes[who, outcome] += 1
        self.longest[outcome] = max(self.longest.get(outcome, 0.0), seconds)

    def total(self, outcome: str) -> int:
        return sum(count for (_, what), count in self.outcomes.items() if what == outcome)


class Contention:
    def __init__(self, r: Router, silence: float, pause: float, seed: int, end: float) -> None:
        self.r, self.silence, self.pause, self.end = r, silence, pause, end
        self.random, self.numbers, self.result = random.Random(seed), itertools.count(10_000_001), Result()
        self.empty: list[tuple[str, str, float]] = []  # who, number and seconds where nothing came back
        self.lock = threading.Lock()

    def judge(self, who: str, number: str, text: str, seconds: float) -> None:
        """Which of its bytes came back to a command."""
        if text == "".join(pieces(number)):
            outcome = "served"
        else:
            outcome = "a part lost to the flush" if is_part(text, number) else "mixed"
        with self.lock:
            if text == "":
                self.empty.append((who, number, seconds))
            else:
                self.result.note(who, outcome, seconds)
            if outcome == "mixed" or seconds > LONGEST_RUN:
                self.result.faults.append(f"{who} {number}: {outcome}, {seconds:.1f} s: {text!r}")

    def judge_the_empty(self) -> None:
        """Who got nothing was refused by the lock and has sent nothing; or has lost the reply to the flush; or already
        the command, and then waited for nothing until the limit of silence."""
        received = {command.removeprefix("AT+NUMBER=") for bus in PORTS for command in self.r.modem(bus).commands}
        self.result.commands = len(received)
        for who, number, seconds in self.empty:
            lost = number in received or seconds >= self.silence
            self.result.note(who, "lost to the flush" if lost else "refused", seconds)

    def turn(self) -> tuple[str, str, bool] | None:
        """The next number and port, and whether to write the configuration instead; None when time is over."""
        with self.lock:
            pause = self.random.uniform(0.0, 2.0 * self.pause)
        time.sleep(pause)
        with self.lock:
            if time.monotonic() >= self.end:
                return None
            return str(next(self.numbers)), self.random.choice(list(PORTS)), self.random.randrange(8) == 0

    def writing(self, number: str) -> tuple[str, dict]:
        """A request that writes two options which belong together."""
        if int(number) % 2:
            return "/modem/sms/code", {"action": "set", "country": f"country{number}", "country_code": number}
        return "/modem/sms/forward", {"tel": f"+{number}", "email": f"{number}@example.org"}

    def guarded(self, work, *arguments: object) -> None:
        try:
            work(*arguments)
        except BaseException as problem:  # of a thread, which nobody else would see
            with self.lock:
                self.result.faults.append(f"{type(problem).__name__}: {problem}")

    def command_line(self) -> None:
        while (turn := self.turn()) is not None:
            number, bus, writes = turn
            start = time.monotonic()
            if writes:
                path, request = self.writing(number)
                process = self.start("vela_api", "post", path, json.dumps(request))
                _, errors = process.communicate()
                self.written("command line", errors == b"status 0\n", errors)
                continue
            process = self.start("vela_modem", "-B", bus, "AT", f"AT+NUMBER={number}")
            out, errors = process.communicate()
            self.judge("command line", number, out.decode("latin-1").removeprefix("\n"), time.monotonic() - start)
            if process.returncode != 0 or errors:
                with self.lock:
                    self.result.faults.append(f"{number}: {process.returncode} {errors!r}")

    def start(self, *argv: str):
        with self.lock:  # the router's own list of processes
            return self.r.start(*argv)

    def written(self, who: str, ok: bool, what: object) -> None:
        with self.lock:
            self.result.writes[who] += 1
            if not ok:
                self.result.faults.append(f"{who}: not written: {what!r}")

    def server(self, server: Server) -> None:
        while (turn := self.turn()) is not None:
            number, bus, writes = turn
            if writes:
                path, request = self.writing(number)
                answer = server.call("post", path, request)
                self.written("plug-in", answer["status"] == 0, answer)
                continue
            start = time.monotonic()
            request = {"at-port": PORTS[bus], "at-command": f"AT+NUMBER={number}"}
            text = server.call("post", "/modem/at", request)["reply"].get("message", "")
            self.judge("plug-in", number, text, time.monotonic() - start)


CONFIG = {
    "velaconfig": "\nconfig service 'modem'\n\tlist bus '1-1.2'\n\tlist bus '1-1.3'\n\nconfig service 'modem_sms'\n"
                  "\toption country 'none0'\n\toption country_code '0'\n\nconfig service 'passthrough'\n"
                  "\toption enable '0'\n",
    "velaforward": "\nconfig general 'general'\n\toption phone '+0'\n\toption email '0@example.org'\n"
                   "\toption subject 'kept'\n\nconfig other 'other'\n\tlist more 'a b'\n\tlist more \"c'd\"\n",
}
KEPT = [
    "velaconfig.modem=service", "velaconfig.modem.bus='1-1.2' '1-1.3'", "velaconfig.modem_sms=service",
    "velaconfig.passthrough=service", "velaconfig.passthrough.enable='0'", "velaforward.general=general",
    "velaforward.general.subject='kept'", "velaforward.other=other", "velaforward.other.more='a b' 'c'\\''d'",
]
PAIRS = (("velaconfig.modem_sms.country", "velaconfig.modem_sms.country_code"),
         ("velaforward.general.phone", "velaforward.general.email"))


def check_the_end(r: Router, contention: Contention) -> None:
    faults = contention.result.faults
    shown = {package: r.run("uci", "show", package) for package in CONFIG}
    faults += [f"{package} does not parse: {one.stderr}" for package, one in shown.items() if one.returncode != 0]
    lines = [line for one in shown.values() for line in one.stdout.splitlines()]
    faults += [f"lost: {line}" for line in KEPT if line not in lines]
    if len(lines) != len(KEPT) + 4:
        faults.append(f"more than was written: {lines}")
    values = dict(line.split("=", 1) for line in lines)
    for one, other in PAIRS:
        numbers = {re.sub(r"\D", "", values.get(name, "none")) for name in (one, other)}
        if len(numbers) != 1 or numbers == {""}:
            faults.append(f"of two writers: {one} {values.get(one)}, {other} {values.get(other)}")
    faults += [f"left behind: {name}" for name in r.listdir("/etc/config") if "." in name or "-" in name]
    for bus in PORTS:
        number = str(next(contention.numbers))
        answer = r.run("vela_modem", "-B", bus, "AT", f"AT+NUMBER={number}").stdout_bytes.decode("latin-1")
        if answer != "\n" + "".join(pieces(number)):
            faults.append(f"afterwards {bus} says {answer!r}")


def run(seconds: float, runs: int = 64, servers: int = 8, waits: int = 0, pause: float = 1.0, delay: float = 30.0,
        seed: int = 1) -> Result:
    """So many command-line runs at a time and servers, for so long, each with a pause between its turns; a modem takes
    that many milliseconds for each half of its reply. `waits`: all waiting of the programs takes that fraction (0: its
    own time)."""
    with tempfile.TemporaryDirectory() as directory:
        file = Path(directory, "slow.modem")
        file.write_text(MODEM % (delay, delay), encoding="ascii")
        r = Router(modems={bus: str(file) for bus in PORTS}, quick=waits, ubus=False, uci=CONFIG,
                   files={"/etc/forward": ""})
    with r:
        start = time.monotonic()
        contention = Contention(r, SILENCE_LIMIT / max(1, waits), pause, seed, start + seconds)
        hosts = [Server(r) for _ in range(servers)]
        threads = [threading.Thread(target=contention.guarded, args=(contention.command_line,)) for _ in range(runs)]
        threads += [threading.Thread(target=contention.guarded, args=(contention.server, host)) for host in hosts]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        result = contention.result
        result.seconds = time.monotonic() - start
        for host in hosts:
            status, errors = host.end()
            if status != 0 or errors:
                result.faults.append(f"a server's end: {status} {errors}")
        result.faults += [f"left running: {argv}" for argv in r.processes()]
        contention.judge_the_empty()
        check_the_end(r, contention)
    return result


OUTCOMES = ("served", "refused", "lost to the flush", "a part lost to the flush", "mixed")


def report(result: Result) -> str:
    lines = ["| | " + " | ".join(OUTCOMES) + " | wrote configuration |", "|---|" + "---|" * (len(OUTCOMES) + 1)]
    for who in ("command line", "plug-in"):
        counts = " | ".join(str(result.outcomes[who, outcome]) for outcome in OUTCOMES)
        lines.append(f"| {who} | {counts} | {result.writes[who]} |")
    longest = " | ".join(f"{result.longest[one]:.2f}" if one in result.longest else "" for one in OUTCOMES)
    lines += [f"| longest s | {longest} | |", "",
              f"{result.seconds:.0f} s, {result.commands} commands reached the modems"]
    return "\n".join(lines + [f"FAULT: {fault}" for fault in result.faults[:20]])
