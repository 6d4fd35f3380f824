"""A modem that leaves the bus and returns with other tty numbers, at every point of a command.

The command ends at once with what it has, and the next one finds the modem at its new ports. A port that is gone is
hung up, so nobody waits for it: a run that takes as long as a silent modem is waited for has not noticed.
"""

import itertools
import json
import re
import time
from collections import Counter
from dataclasses import dataclass, field

from velasim import Router

BUS = "1-1.2"
MODELS = {"ec25": 3, "mc7430": 5, "nl678e": 40}
SILENCE_LIMIT = 15.0  # seconds that a silent modem is waited for
TRACE = "/tmp/trace"
# Bytes of a reply after which the modem leaves: before it, in the echo, in the values, in the end.
CUTS = (0, 4, 12, 18, 24, -8, -3)


def commands(model: str) -> dict[str, list[str]]:
    request = json.dumps({"bus": BUS, "modem_id": MODELS[model]})
    plain = {name: ["vela_modem", *name.split()] for name in ("AT ATI", "signal", "cells", "sim-status", "carrier")}
    return {
        **plain,
        "/modem/info": ["vela_api", "get", "/modem/info"],
        "/modem/cells/get": ["vela_api", "post", "/modem/cells/get", request],
        "/modem/modem_info/get": ["vela_api", "post", "/modem/modem_info/get", request],
    }


@dataclass
class Result:
    """What came of one command on one model."""

    points: int = 0
    endings: Counter = field(default_factory=Counter)  # of the command during which it happened
    longest: tuple[float, str] = (0.0, "")  # seconds, and the point
    faults: list[str] = field(default_factory=list)


class Bench:
    """One router with one modem, and its next home."""

    def __init__(self, r: Router, model: str) -> None:
        self.r, self.modem = r, r.modem(BUS)
        self.homes = itertools.cycle((10, 20, 30))
        self.commands = commands(model)
        self.expected = {name: self.run(argv) for name, argv in self.commands.items()}
        self.counts = {}
        for name, argv in self.commands.items():
            self.forget()
            self.run(argv)
            self.counts[name] = len(self.modem.commands)

    def forget(self) -> None:
        """What is kept about the modem, so that it is asked everything."""
        if self.r.exists(f"/tmp/modem.{BUS}"):
            self.r.remove(f"/tmp/modem.{BUS}")
        self.r.clear_events()

    def run(self, argv: list[str]) -> tuple[int, str]:
        result = self.r.run(*argv)
        return result.returncode, self.normal(result.stdout)

    def normal(self, text: str) -> str:
        """The output with the tty numbers that the modem's first home would have given it."""
        first = int(re.sub(r"\D", "", self.modem.tty(0)) or 0)
        return re.sub(r"ttyUSB(\d+)", lambda match: f"ttyUSB{int(match[1]) - first}", text)

    def move(self) -> None:
        self.modem.unplug()
        self.modem.plug(next(self.homes))

    def check(self, name: str, point: str, result: Result, disturbed: tuple[int, str, str, float]) -> None:
        """`disturbed`: exit status, output, standard error and duration of the command that the move happened to."""
        status, out, errors, seconds = disturbed
        result.points += 1
        result.longest = max(result.longest, (seconds, point))
        whole = self.normal(out) == self.expected[name][1]
        result.endings["whole" if whole else "nothing" if out.strip() in ("", "{\n}", "[\n]") else "part"] += 1
        words = self.commands[name]
        if status not in ((0, 1) if words[0] == "vela_api" else (0,)):
            result.faults.append(f"{name} {point}: ended with {status}: {errors}")
        elif "Sanitizer" in errors:
            result.faults.append(f"{name} {point}: {errors}")
        elif words[0] == "vela_api" or name == "cells" and out:
            try:
                json.loads(out)
            except ValueError as problem:
                result.faults.append(f"{name} {point}: {problem}: {out!r}")
        if seconds > SILENCE_LIMIT:
            result.faults.append(f"{name} {point}: {seconds:.1f} s")
        after = self.run(words)
        if after != self.expected[name]:
            result.faults.append(f"{name} {point}: the next one gives {after}")

    def in_a_reply(self, name: str, number: int, cut: int, stays_away: bool, result: Result) -> None:
        """The modem leaves after so many bytes of its reply to that command of the run."""
        self.forget()
        back = {} if stays_away else {"back": 0.0, "first_tty": next(self.homes)}
        self.modem.misbehave("drop", skip=number, after=cut, ms=0.0, **back)
        start = time.monotonic()
        ended = self.r.run(*self.commands[name])
        seconds = time.monotonic() - start
        self.modem.behave()
        if stays_away:
            self.modem.plug(next(self.homes))
        self.r.wait_for(lambda: self.modem.tty(2), "the modem")
        point = f"command {number} cut {cut} {'away' if stays_away else 'back'}"
        self.check(name, point, result, (ended.returncode, ended.stdout, ended.stderr, seconds))

    def opens(self, name: str) -> list[str]:
        """The files that the command opens, in order."""
        self.forget()
        self.r.run("strace", "-qq", "-o", TRACE, "-e", "trace=openat", *self.commands[name], env=self.traced())
        return re.findall(r'openat\(\w+, "([^"]*)"', self.r.read(TRACE))

    def at_an_open(self, name: str, number: int, result: Result) -> None:
        """The modem moves while the command stands still behind its openat of that number (from 1)."""
        self.forget()
        argv = self.commands[name]
        if self.r.exists(TRACE):
            self.r.remove(TRACE)
        start = time.monotonic()
        process = self.r.start("strace", "-qq", "-o", TRACE, "-e", "trace=openat",
                               "-e", f"inject=openat:signal=SIGSTOP:when={number}", *argv, env=self.traced())
        stopped = lambda: self.r.exists(TRACE) and "--- stopped by SIGSTOP ---" in self.r.read(TRACE)
        self.r.wait_for(lambda: stopped() or process.poll() is not None, "the command to stop")
        self.move()
        pids = [str(each["pid"]) for each in self.r.ask("processes") if each["argv"] == argv]
        if pids:
            self.r.run("/bin/dash", "-c", "kill -CONT " + " ".join(pids))
        out, errors = (text.decode("utf-8", "surrogateescape") for text in process.communicate())
        seconds = time.monotonic() - start
        self.check(name, f"openat {number}", result, (process.returncode, out, errors, seconds))

    @staticmethod
    def traced() -> dict[str, str]:
        return {"ASAN_OPTIONS": "detect_leaks=0"}  # the check cannot run below a tracer


def turning_points(files: list[str]) -> list[int]:
    """The numbers of the opens between which the modem's place changes hands: before the first search, between the
    last directory of a search and the port that it found, and behind the port's opening."""
    ports = [number for number, path in enumerate(files, 1) if path.startswith("/dev/tty")]
    searches = [number for number, path in enumerate(files, 1) if path == "/sys/devices/platform"]
    return sorted({number for port in ports for number in (port - 1, port)} | set(searches))


def run(model: str, every: int = 1, opens: int = 12) -> dict[str, Result]:
    """All commands on a model: each `every`-th point in the replies, and so many of the opens besides each `every`-th
    of the turning points."""
    results = {}
    with Router(model) as r:
        bench = Bench(r, model)
        chosen = itertools.count()
        for name in bench.commands:
            result = results[name] = Result()
            for number, cut, away in itertools.product(range(bench.counts[name]), CUTS, (False, True)):
                if next(chosen) % every == 0:
                    bench.in_a_reply(name, number, cut, away, result)
            files = bench.opens(name)
            points = {point for point in turning_points(files) if next(chosen) % every == 0}
            if opens:
                points |= set(range(1, len(files) + 1, max(1, len(files) // opens)))
            for point in sorted(points):
                bench.at_an_open(name, point, result)
    return results


def report(results: dict[str, dict[str, Result]]) -> str:
    lines = ["| model | command | points | whole reply | a part | nothing | longest s | at |", "|" + "---|" * 8]
    faults = []
    for model, commands_of_it in results.items():
        for name, each in commands_of_it.items():
            endings = " | ".join(str(each.endings[ending]) for ending in ("whole", "part", "nothing"))
            lines.append(f"| {model} | {name} | {each.points} | {endings} | {each.longest[0]:.2f} | {each.longest[1]} |")
            faults += [f"FAULT: {model} {fault}" for fault in each.faults]
    return "\n".join(lines + faults)
