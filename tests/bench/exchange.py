"""What asking a modem costs: the product, a minimal C program that does the same open, lock, settle, write, read and
close and nothing else, and the programs that people use for it.

All take turns in one router, so that all see the same machine in the same minutes.
"""

import shutil
from importlib.util import find_spec
from pathlib import Path

from meters import (Calls, Command, Cost, Router, calls_of, install, instructions, measure, median,
                    own_copy_of_json_c, private_memory, stripped_size, where)
from tables import Table, ratio

PORT = "/dev/ttyUSB2"
COMMAND = "AT+CSQ"
INPUT, SETTINGS, SCRIPT = "/tmp/bench/command", "/tmp/bench/gammurc", "/tmp/bench/serial_at.py"
FILES = {
    INPUT: f"{COMMAND}\r\n",
    SETTINGS: f"[gammu]\ndevice={PORT}\nconnection=at115200\n",
    SCRIPT: Path(__file__).with_name("serial_at.py").read_text(encoding="utf-8"),
}
MINIMAL = "minimal C program"
BASE = f"{MINIMAL}, settle time"
OURS = {
    BASE: Command(["/tmp/bench/minimal_at", PORT, COMMAND, "50"]),
    f"{MINIMAL}, no settle time": Command(["/tmp/bench/minimal_at", PORT, COMMAND, "0"]),
    f"`vela_modem AT {COMMAND}`": Command(["vela_modem", "AT", COMMAND]),
    "`vela_modem signal`": Command(["vela_modem", "signal"]),
    "`vela_modem cells`": Command(["vela_modem", "cells"]),
    "`vela_modem sim-status`": Command(["vela_modem", "sim-status"]),
}
# Those that wait for what comes get half a second for it, which is what scripts give them. What gammu is asked is who
# the modem is: of its commands the one that ends as soon as it knows.
OTHERS = {
    "`chat`": Command(["chat", "-t", "2", "", COMMAND, "OK"], tty=PORT),
    "`picocom`": Command(["picocom", "-q", "-b", "115200", "-l", "-x", "500", "-t", f"{COMMAND}\r", PORT]),
    "`socat`": Command(["socat", "-t", "0.5", "-", f"{PORT},raw,echo=0"], input=INPUT),
    "`comgt sig`": Command(["comgt", "-d", PORT, "sig"]),
    "`gammu identify`": Command(["gammu", "-c", SETTINGS, "identify"]),
}
SERIAL = {"python3-serial": Command(["/usr/bin/python3", SCRIPT, PORT, COMMAND])}


def programs() -> dict[str, Command]:
    found = {name: command for name, command in OTHERS.items() if shutil.which(command.argv[0])}
    missing = [command.argv[0] for command in OTHERS.values() if not shutil.which(command.argv[0])]
    if missing:
        print(f"not installed here: {', '.join(missing)}")
    return {**OURS, **found, **(SERIAL if find_spec("serial") else {})}


def exchanges(router: Router, command: Command) -> tuple[Calls, int]:
    """The system calls of a run, and how many commands the modem received in it."""
    router.clear_events()
    calls = calls_of(router, command)
    return calls, sum(event["kind"] == "at" for event in router.events)


def bench_exchange(build: Path, runs: int) -> None:
    commands = programs()
    with Router("ec25", build=build, files=FILES) as router:
        install(router, build, "minimal_at", "measure")
        own_copy_of_json_c(router)
        samples: dict[str, list[Cost]] = {name: [] for name in commands}
        for _ in range(runs):
            for name, command in commands.items():
                samples[name].append(measure(router, command))
        table = Table("exchange", f"Asking a modem, medians of {runs} runs in turns (in brackets: to the minimal C "
                      "program with the settle time)", "", "commands", "wall ms", "CPU ms", "system calls",
                      "without those on sysfs", "processes started", "private KiB", "stripped bytes", "libraries")
        base: list[float] = []
        for name, command in commands.items():
            cost, memory = median(samples[name]), private_memory(router, command)
            calls, sent = exchanges(router, command)
            rest = len(calls.names) - calls.walking
            size = stripped_size(where(router, command.argv[0]))
            row = [cost.wall / 1000, cost.cpu / 1000, len(calls.names), rest, memory, size]
            base = base or row
            cells = [f"{value:{form}} ({ratio(value, to)})"
                     for value, to, form in zip(row, base, (".2f", ".2f", ",", ",", ",", ","))]
            table.row(name, sent, *cells[:4], calls.processes, *cells[4:], calls.libraries)
        table = Table("instructions", "Instructions in user space, the dynamic linker's included", "", "instructions",
                      "ratio")
        counts: list[int] = []
        for name, command in OURS.items():
            counts.append(instructions(router, command.argv))
            table.row(name, f"{counts[-1]:,}", ratio(counts[-1], counts[0]))
