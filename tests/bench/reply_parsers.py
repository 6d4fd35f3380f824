"""Each reader of a modem's replies on the longest reply to its command that was recorded from a real modem."""

import subprocess
import tempfile
from pathlib import Path

from meters import ROOT
from tables import Table

REPLIES = ROOT / "tests/replies"
ANY = ()
SERVING_CELL = 'AT+QENG="servingcell"'
REGISTRATION = ("AT+CREG?", "AT+CEREG?", "AT+CGREG?")

# The commands that a reader's replies answer.
PARSERS = {
    "read_quectel_signals": ("AT+QCSQ",),
    "read_ep06_signals": (SERVING_CELL,),
    "read_quectel_serving_cells": (SERVING_CELL,),
    "read_quectel_neighbour_cells": ('AT+QENG="neighbourcell"',),
    "read_quectel_carriers": ("AT+QCAINFO",),
    "read_quectel_mode": ("AT+QNWINFO",),
    "read_band_configuration": ('AT+QCFG="band"',),
    "read_csq": ("AT+CSQ",),
    "read_register_status": REGISTRATION,
    "read_sim_state": ("AT+CPIN?",),
    "parse_imei": ("AT+GSN", "AT+CGSN"),
    "parse_identity": ("ATI",),
    "parse_first_digits": ("AT+CIMI", "AT+QCCID"),
    "parse_operator_name": ("AT+COPS?",),
    "is_ok": ANY,
}

# The carriers of the recorded replies are named by other words than the ones that the reader of carriers lists.
REWORDED = {"read_quectel_carriers": ((b'"PCC"', b'"pss"'), (b'"SCC"', b'"sss"'))}


def recorded_replies() -> list[tuple[str, bytes]]:
    """The command and the bytes of every modem reply on record."""
    replies = []
    for path in sorted(REPLIES.glob("*/*.txt")):
        header, _, body = path.read_bytes().partition(b"\n---\n")
        command = header.split(b"\n")[0].removeprefix(b"# command: ").decode().upper()
        if command.startswith("AT"):
            replies.append((command, body.replace(b"\n", b"\r\n").replace(b"<CR>", b"\r")))
    return replies


def time_reader(build: Path, name: str, reply: bytes) -> tuple[float, bool]:
    """Nanoseconds that a reader takes for a reply, and whether it found there what it looks for."""
    with tempfile.NamedTemporaryFile() as file:
        file.write(reply)
        file.flush()
        output = subprocess.run([build / "tests/bench/parsers", "reply", name, file.name], check=True, text=True,
                                stdout=subprocess.PIPE).stdout
    nanoseconds, found = output.split()
    return float(nanoseconds), found == "1"


def add_row(table: Table, label: str, reply: bytes, nanoseconds: float, found: bool) -> None:
    table.row(label, len(reply), f"{nanoseconds / 1000:.3f}", "yes" if found else "nothing")


def reworded(name: str, reply: bytes) -> bytes:
    for word, known in REWORDED[name]:
        reply = reply.replace(word, known)
    return reply


def bench_reply_parsers(build: Path) -> None:
    """A reply of which nothing is taken says little of what reading costs: then the longest that is read comes next."""
    replies = recorded_replies()
    table = Table("readers", "Readers of replies, each on the longest recorded reply to its command, CPU time",
                  "reader", "reply bytes", "us a reply", "read")
    for name, commands in PARSERS.items():
        known = {command.upper() for command in commands}
        fitting = sorted({reply for command, reply in replies if not known or command in known}, key=len, reverse=True)
        for index, reply in enumerate(fitting):
            nanoseconds, found = time_reader(build, name, reply)
            if index == 0 or found:
                add_row(table, f"`{name}`", reply, nanoseconds, found)
            if found:
                break
        else:
            if name in REWORDED:
                reply = reworded(name, fitting[0])
                nanoseconds, found = time_reader(build, name, reply)
                add_row(table, f"`{name}` (reworded)", reply, nanoseconds, found)
