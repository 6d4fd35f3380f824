"""What the tests of the NL678E share: its reports, and what is said of them."""

import json
from pathlib import Path

from velasim import Router

BUS = "1-1.2"
MODEM_ID = 40
CELLS, CESQ, CSQ = "AT+GTCCINFO?", "AT+CESQ", "AT+CSQ?"
REPLIES = Path(__file__).resolve().parents[1] / "replies"
REFUSALS = ["\nERROR\n", "\n+CME ERROR: 3\n"]
SERVING_KEYS = ("IsServiceCell", "rat", "mcc", "mnc", "tac", "cellid", "earfcn", "physicalcellId", "band", "bandwidth",
                "rssnr_value", "rxlev", "rsrp", "rsrq")
NEIGHBOUR_KEYS = ("IsServiceCell", "rat", "mcc", "mnc", "tac", "cellid", "earfcn", "physicalcellId", "bandwidth",
                  "rxlev", "rsrp", "rsrq")
SIGNAL_KEYS = ("rxlev", "ber", "rscp", "ecno", "rsrq", "rsrp")

SERVING_LINE = "1,4,222,01,2A1C,2FC001,1350,301,103,100,12,51,61,23"
NEIGHBOUR_LINES = ("2,4,222,01,2A1C,2FC999,1350,101,100,44,53,15", "2,4,222,01,2A1C,2FC555,2900,102,100,40,47,12")
SERVING = {
    "IsServiceCell": "1", "rat": "4", "mcc": "222", "mnc": "01", "tac": "2A1C", "cellid": "2FC001", "earfcn": "1350",
    "physicalcellId": "301", "band": "3", "bandwidth": "100", "rssnr_value": "12", "rxlev": "51", "rsrp": "61",
    "rsrq": "23", "rssi": "-69",
}
NEIGHBOURS = [dict(zip(NEIGHBOUR_KEYS, line.split(","))) for line in NEIGHBOUR_LINES]

SIGNAL = {
    "signals": [{"rxlev": "99", "ber": "99", "rscp": "255", "ecno": "255", "rsrq": "23", "rsrp": "61", "rssi": "-69"}],
    "strength": 3, "mode": "0G"}


def ok(*lines: str) -> str:
    return "\n" + "".join(f"{line}\n" for line in lines) + "\nOK\n"


def report(serving: str | None = SERVING_LINE, *neighbours: str) -> str:
    """A cell list as the modem sends it."""
    lines = ["+GTCCINFO:"]
    if serving is not None:
        lines += ["LTE service cell:", serving]
    if neighbours:
        lines += ["", "LTE neighbor cell:", *neighbours]
    return ok(*lines)


def with_field(line: str, number: int, text: str) -> str:
    fields = line.split(",")
    return ",".join([*fields[:number], text, *fields[number + 1:]])


def recorded(name: str) -> str:
    return (REPLIES / name).read_text(encoding="utf-8").split("\n---\n", 1)[1]


def usable(r: Router) -> bool:
    """Lets the modem finish what it still had to send."""
    r.modem().behave()
    return r.run("vela_modem", "AT", "AT").stdout == "\n\r\nOK\r\n"


def sent(r: Router) -> list[tuple[str, str]]:
    return [(event["port"], event["command"]) for event in r.events if event["kind"] == "at"]


def run(r: Router, command: str) -> str:
    result = r.run("vela_modem", command)
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


def printed_cells(r: Router) -> list[dict]:
    return json.loads(run(r, "cells"))


def signal(r: Router) -> dict:
    document = json.loads(run(r, "signal"))
    assert list(document) == ["signals", "strength", "mode"] and len(document["signals"]) == 1
    assert document["mode"] == "0G"  # the report does not tell the generation
    return document


def ordered(objects: list[dict]) -> list[list[tuple[str, str]]]:
    return [list(each.items()) for each in objects]
