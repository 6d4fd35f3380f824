"""The NL678E and its dialect: signal, cells, mode, registration and APN, through the whole program."""

import json

import pytest
from probe_client import probe, run_probe
from support import ABORTED, locked
from velasim import Router

BUS = "1-1.2"
CELLS, CESQ, CSQ, REGISTRATION = "AT+GTCCINFO?", "AT+CESQ", "AT+CSQ?", "AT+CREG?"
SERVING = "1,4,222,01,2A1C,2FC001,1350,301,103,100,12,51,61,23"
SERVING_KEYS = ("IsServiceCell", "rat", "mcc", "mnc", "tac", "cellid", "earfcn", "physicalcellId", "band", "bandwidth",
                "rssnr_value", "rxlev", "rsrp", "rsrq")
NEIGHBOUR_KEYS = ("IsServiceCell", "rat", "mcc", "mnc", "tac", "cellid", "earfcn", "physicalcellId", "bandwidth",
                  "rxlev", "rsrp", "rsrq")
REFUSALS = ("\nERROR\n", "\n+CME ERROR: 3\n", "\n+CME ERROR: SIM not inserted\n")


@pytest.fixture
def nl678e(router) -> Router:
    return router("nl678e", ubus=False)


def ok(*lines: str) -> str:
    return "\n" + "".join(f"{line}\n" for line in lines) + "\nOK\n"


def cells_reply(serving: str | None, *neighbours: str) -> str:
    lines = ["+GTCCINFO:"]
    if serving is not None:
        lines += ["LTE service cell:", serving, ""]
    if neighbours:
        lines += ["LTE neighbor cell:", *neighbours]
    return ok(*lines)


def printed(r: Router, command: str) -> str:
    result = r.run("vela_modem", command)
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


def cells(r: Router) -> list[dict]:
    return json.loads(printed(r, "cells"))


def signal(r: Router) -> dict:
    document = json.loads(printed(r, "signal"))
    assert list(document) == ["signals", "strength", "mode"] and document["mode"] == "0G"
    return document


def named(keys: tuple[str, ...], line: str, **changed: str) -> dict[str, str]:
    """The members that a line of values has: those that are not empty."""
    return {key: value for key, value in {**dict(zip(keys, line.split(","))), **changed}.items() if value}


# Cells


def test_cells_with_neighbours(nl678e):
    first, second = "2,4,222,01,2A1C,2FC999,1350,101,100,44,53,15", "2,4,222,10,2A1C,2FC555,2900,102,75,40,47,12"
    nl678e.modem().reply(CELLS, cells_reply(SERVING, first, second))
    found = cells(nl678e)
    assert found == [named(SERVING_KEYS, SERVING, band="3", rssi="-69"), named(NEIGHBOUR_KEYS, first),
                     named(NEIGHBOUR_KEYS, second)]
    assert [tuple(cell) for cell in found] == [(*SERVING_KEYS, "rssi"), NEIGHBOUR_KEYS, NEIGHBOUR_KEYS]
    assert nl678e.modem().commands == [CELLS, CSQ]
    assert nl678e.commands == []


@pytest.mark.parametrize("empty", range(len(SERVING_KEYS)), ids=SERVING_KEYS)
def test_an_empty_value_of_the_serving_cell_is_left_out(nl678e, empty):
    values = SERVING.split(",")
    values[empty] = ""
    line = ",".join(values)
    nl678e.modem().reply(CELLS, cells_reply(line))
    band = {} if SERVING_KEYS[empty] == "band" else {"band": "3"}
    assert cells(nl678e) == [named(SERVING_KEYS, line, **band, rssi="-69")]


@pytest.mark.parametrize("empty", range(len(NEIGHBOUR_KEYS)), ids=NEIGHBOUR_KEYS)
def test_an_empty_value_of_a_neighbour_is_left_out(nl678e, empty):
    values = "2,4,222,01,2A1C,2FC999,1350,101,100,44,53,15".split(",")
    values[empty] = ""
    line = ",".join(values)
    nl678e.modem().reply(CELLS, cells_reply(None, line))
    assert cells(nl678e) == [named(NEIGHBOUR_KEYS, line)]


@pytest.mark.parametrize("code, band", [("103", "3"), ("141", "41"), ("166", "166"), ("40", "40")])
def test_bands(nl678e, code, band):
    nl678e.modem().reply(CELLS, cells_reply(SERVING.replace(",103,", f",{code},")))
    assert cells(nl678e)[0]["band"] == band


@pytest.mark.parametrize("csq, rssi", [("31,99", "-51"), ("0,99", "-113"), ("99,99", "85"), (",99", None)])
def test_the_strength_of_the_serving_cell(nl678e, csq, rssi):
    nl678e.modem().reply(CSQ, ok(f"+CSQ: {csq}"))
    assert [cell.get("rssi") for cell in cells(nl678e)] == [rssi, None, None]


@pytest.mark.parametrize("refusal", REFUSALS)
def test_cells_where_a_question_is_refused(nl678e, refusal):
    nl678e.modem().reply(CSQ, refusal)
    assert ["rssi" in cell for cell in cells(nl678e)] == [False] * 3
    assert nl678e.modem().commands == [CELLS, CSQ]
    nl678e.modem().reply(CELLS, refusal)
    assert cells(nl678e) == []
    assert nl678e.modem().commands == [CELLS, CSQ, CELLS]


@pytest.mark.parametrize("lines", [
    (), ("+GTCCINFO:",), ("+GTCCINFO:", SERVING), ("+GTCCINFO:", "NR service cell:", SERVING),
    ("+GTCCINFO:", "LTE-NR EN-DC service cell:", SERVING),
])
def test_a_reply_without_an_lte_serving_cell(nl678e, lines):
    nl678e.modem().reply(CELLS, ok(*lines))
    assert cells(nl678e) == []
    assert printed(nl678e, "get_mode") == "get_mode: \n"
    assert nl678e.modem().commands == [CELLS, CSQ, CELLS]


def test_more_neighbours_than_the_reply_has_room_for(nl678e):
    neighbour = "2,4,222,01,2A1C,2FC999,1350,101,100,44,53,15"
    nl678e.modem().reply(CELLS, cells_reply(SERVING, *[neighbour] * 18))
    assert len(cells(nl678e)) == 19
    nl678e.modem().reply(CELLS, cells_reply(SERVING, *[neighbour] * 40))
    assert cells(nl678e) == []  # as the "OK" does not fit
    assert nl678e.modem().commands == [CELLS, CSQ, CELLS]


# Signal


def test_signal(nl678e):
    nl678e.modem().reply(CESQ, ok("+CESQ: 1,2,3,4,28,80"))
    nl678e.modem().reply(CSQ, ok("+CSQ: 20,99"))
    document = signal(nl678e)
    assert document["strength"] == 4
    assert list(document["signals"][0].items()) == [
        ("rxlev", "1"), ("ber", "2"), ("rscp", "3"), ("ecno", "4"), ("rsrq", "28"), ("rsrp", "80"), ("rssi", "-73")]
    assert nl678e.modem().commands == [CESQ, CSQ]
    assert nl678e.commands == []


def test_the_signal_file_is_not_read(router):
    r = router("nl678e", ubus=False, files={f"/tmp/modem.{BUS}/signal": '{"type": "gsm", "signal": -75}'})
    assert signal(r)["strength"] == 3
    assert r.commands == []


@pytest.mark.parametrize("cesq, csq, found, strength", [
    ("99,99,255,255,23,61", ",99", {"rxlev": "99", "ber": "99", "rscp": "255", "ecno": "255", "rsrq": "23",
                                    "rsrp": "61", "rssi": ""}, 2),
    (",,,,,", "22,99", {"rssi": "-69"}, 2),
    (",,,,,", ",", {"rssi": ""}, 1),
    ("99,,255,,23,", "22,99", {"rxlev": "99", "rscp": "255", "rsrq": "23", "rssi": "-69"}, 2),
    ("99", "0", {"rxlev": "99", "rssi": "-113"}, 1),
])
def test_signal_with_empty_values(nl678e, cesq, csq, found, strength):
    nl678e.modem().reply(CESQ, ok(f"+CESQ: {cesq}"))
    nl678e.modem().reply(CSQ, ok(f"+CSQ: {csq}"))
    assert signal(nl678e) == {"signals": [found], "strength": strength, "mode": "0G"}


@pytest.mark.parametrize("refusal", REFUSALS)
def test_signal_where_a_question_is_refused(nl678e, refusal):
    nl678e.modem().reply(CESQ, refusal)
    assert signal(nl678e) == {"signals": [{"rssi": "-69"}], "strength": 2, "mode": "0G"}
    nl678e.modem().reply(CSQ, refusal)
    assert signal(nl678e) == {"signals": [{}], "strength": 1, "mode": "0G"}
    assert nl678e.modem().commands == [CESQ, CSQ] * 2


# Registration and mode


@pytest.mark.parametrize("values, result", [
    ("0,1", 0), ("1,1", 0), ('2,1,"2A1C","2FC001",7', 0), ("0,5", -1), ('2,5,"2A1C","2FC001",7', -1), ("0,0", -1),
    ("0,2", -1), ("0,3", -1), ("0,4", -1), ("0,11", -1), ("0", -1), ("0,", -1),
])
def test_only_the_home_network_counts_as_registered(nl678e, values, result):
    nl678e.modem().reply(REGISTRATION, ok(f"+CREG: {values}"))
    assert printed(nl678e, "check_register") == f"check_register={result}\n"
    assert nl678e.modem().commands == [REGISTRATION]
    assert printed(nl678e, "sim-status") == ("READY" if result == 0 else "NO_REG")


@pytest.mark.parametrize("technology, mode", [("1", "2G"), ("2", "3G"), ("3", "3G"), ("4", "4G"), ("9", ""), ("", "")])
def test_the_mode(nl678e, technology, mode):
    nl678e.modem().reply(CELLS, cells_reply(f"1,{technology},222"))
    assert printed(nl678e, "get_mode") == f"get_mode: {mode}\n"
    assert nl678e.modem().commands == [CELLS]


@pytest.mark.parametrize("refusal", REFUSALS)
def test_registration_and_mode_that_are_refused(nl678e, refusal):
    nl678e.modem().reply(REGISTRATION, refusal)
    nl678e.modem().reply(CELLS, refusal)
    assert printed(nl678e, "check_register") == "check_register=-1\n"
    assert printed(nl678e, "get_mode") == "get_mode: \n"


def test_the_status_block_takes_the_mode_from_the_cells(nl678e):
    result, block = probe(nl678e, "status", BUS)
    assert result == 0 and (block["signal"], block["mode"]) == (3, "4G")
    assert block["signal_info"] == signal(nl678e)["signals"]
    assert nl678e.modem().commands[:5] == ["AT+CPIN?", REGISTRATION, CESQ, CSQ, CELLS]


def test_the_status_block_has_a_level_where_the_modem_tells_nothing(nl678e):
    for question in (CESQ, CSQ, CELLS):
        nl678e.modem().reply(question, "\nERROR\n")
    result, block = probe(nl678e, "status", BUS)
    assert result == 0 and block["signal_info"] == [{}] and (block["signal"], block["mode"]) == (1, "")


# APN


def test_the_apn_is_set_by_one_command(nl678e):
    assert probe(nl678e, "set-apn", BUS, "internet.example") == (0, {})
    assert nl678e.modem().commands == ['AT+CGDCONT=1,"IP","internet.example"']
    assert '+CGDCONT: 1,"IP","internet.example"' in nl678e.run("vela_modem", "AT", "AT+CGDCONT?").stdout
    assert nl678e.commands == []


@pytest.mark.parametrize("apn", ["", "x", "%s%n", "two words", "a" * 79])
def test_apns(nl678e, apn):
    assert probe(nl678e, "set-apn", BUS, apn) == (0, {})
    assert nl678e.modem().commands == [f'AT+CGDCONT=1,"IP","{apn}"']


def test_an_apn_that_does_not_fit_aborts(nl678e):
    assert run_probe(nl678e, "set-apn", BUS, "a" * 80).returncode == ABORTED
    assert nl678e.modem().commands == []


@pytest.mark.parametrize("refusal", REFUSALS)
def test_an_apn_that_is_refused(nl678e, refusal):
    nl678e.modem().reply('AT+CGDCONT=1,"IP","internet"', refusal)
    assert probe(nl678e, "set-apn", BUS, "internet") == (-1, {})


# The echo, and ports that do not answer


def test_with_the_echo_on_everything_is_the_same(nl678e):
    shown = {command: printed(nl678e, command) for command in ("signal", "cells", "check_register", "get_mode")}
    assert nl678e.run("vela_modem", "AT", "ATE1").returncode == 0
    assert nl678e.run("vela_modem", "AT", CSQ).stdout.startswith(f"\n{CSQ}\r")
    assert {command: printed(nl678e, command) for command in shown} == shown
    assert probe(nl678e, "set-apn", BUS, "internet") == (0, {})


def test_replies_that_come_in_pieces_are_the_same(nl678e):
    shown = {command: printed(nl678e, command) for command in ("signal", "cells", "check_register", "get_mode")}
    nl678e.modem().misbehave("dribble", bytes=7, ms=1)
    assert {command: printed(nl678e, command) for command in shown} == shown


SILENT = {
    "signal": '{\n  "signals":[\n    {\n    }\n  ],\n  "strength":1,\n  "mode":"0G"\n}\n',
    "cells": "[\n]\n",
    "check_register": "check_register=-1\n",
    "get_mode": "get_mode: \n",
}


def test_a_port_that_is_locked(nl678e):
    with locked(nl678e):
        assert {command: printed(nl678e, command) for command in SILENT} == SILENT
        assert run_probe(nl678e, "set-apn", BUS, "internet").stdout == "{\n}\nresult 0\n"
    assert nl678e.modem().commands == []


def test_a_modem_that_says_nothing(router):
    """All at the same time, because each question takes its 15 seconds."""
    routers = {command: router("nl678e", ubus=False) for command in (*SILENT, "set-apn")}
    started = {}
    for command, r in routers.items():
        r.modem().misbehave("silent")
        probing = [str(r.build / "tests/router/probe"), command, BUS, "x"]
        started[command] = r.start(*(["vela_modem", command] if command in SILENT else probing))
    output = {command: process.communicate()[0].decode() for command, process in started.items()}
    assert output == {**SILENT, "set-apn": "{\n}\nresult 0\n"}
    assert {command: r.modem().commands for command, r in routers.items()} == {
        "signal": [CESQ, CSQ], "cells": [CELLS], "check_register": [REGISTRATION], "get_mode": [CELLS],
        "set-apn": ['AT+CGDCONT=1,"IP","x"']}
