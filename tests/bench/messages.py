"""The list of text messages over growing spools: what one message costs must not depend on how many there are.

What the call costs with an empty spool (loading the plug-in, above all) is subtracted. Calls with an empty spool and
with a full one take turns. Where the difference of CPU time is smaller than the calls with the empty one differ among
themselves, it says nothing and is shown as "noise"; instructions and system calls are exact counts.
"""

import statistics

from pathlib import Path

from meters import Router, install, instructions, measure, system_calls
from tables import Table, ratio

INCOMING = "/etc/spool/sms/incoming"
STORAGE = "/etc/spool/sms/storage"
LIST = ["vela_api", "get", "/modem/sms/list", '{"modem_id":3}']
RUNS = {10: 60, 100: 40, 1000: 20, 10000: 7}  # of each size; the fewer the messages, the smaller the difference
ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"

MESSAGE = """From: 900000000017
From_TOA: 91 international, ISDN/telephone
From_SMSC: 900000000018
Sent: 26-10-01 12:34:56
Received: 26-10-01 12:35:01
Subject: GSM1
Modem: GSM1
IMSI: 001010000000017
Report: no
Alphabet: ISO
Length: 50

This body is made up and has exactly fifty letters
"""


def file_name(number: int) -> str:
    """VMS99 and six letters, as mkstemp makes them: all different."""
    letters = ""
    for _ in range(6):
        number, digit = divmod(number, len(ALPHABET))
        letters += ALPHABET[digit]
    return f"VMS99.{letters}"


def fill_spool(router: Router, present: int, size: int) -> None:
    directory = router.host_path(INCOMING)
    for number in range(present, size):
        (directory / file_name(number)).write_text(MESSAGE, encoding="ascii")


def make_router(build: Path) -> Router:
    router = Router("ec25", build=build)
    install(router, build, "measure")
    for directory in (INCOMING, STORAGE):
        router.host_path(directory).mkdir(parents=True, exist_ok=True)
    return router


def spread(samples: list[float]) -> float:
    """Between the quarters."""
    quarters = statistics.quantiles(samples, n=4)
    return quarters[2] - quarters[0]


def cpu_of_messages(empty: Router, full: Router, runs: int) -> tuple[float | None, float]:
    """CPU time of all messages, None where it is lost in the noise; and the peak memory in KiB."""
    without, listed = [], []
    for _ in range(runs):
        without.append(measure(empty, LIST).cpu)
        listed.append(measure(full, LIST))
    difference = statistics.median(cost.cpu for cost in listed) - statistics.median(without)
    return difference if difference > spread(without) else None, statistics.median(cost.peak for cost in listed)


def column(now: float | None, before: float | None, form: str) -> tuple[str, str]:
    """A figure and its ratio to the one above it."""
    return "noise" if now is None else format(now, form), ratio(now, before) if now else ""


def bench_messages(build: Path) -> None:
    table = Table("messages", "List of text messages (/modem/sms/list): cost of a message, that of an empty list "
                  "subtracted", "messages", "CPU us", "ratio", "instructions", "ratio", "system calls", "ratio",
                  "peak KiB")
    with make_router(build) as empty, make_router(build) as full:
        base = (instructions(empty, LIST), len(system_calls(empty, LIST)))
        before: list[float | None] = [None, None, None]
        present = 0
        for size, runs in RUNS.items():
            fill_spool(full, present, size)
            present = size
            cpu, peak = cpu_of_messages(empty, full, runs)
            each = [cpu and cpu / size, (instructions(full, LIST) - base[0]) / size,
                    (len(system_calls(full, LIST)) - base[1]) / size]
            columns = [column(now, old, form) for now, old, form in zip(each, before, (".2f", ",.0f", ".2f"))]
            table.row(f"{size:,}", *sum(columns, ()), f"{peak:,.0f}")
            before = each
