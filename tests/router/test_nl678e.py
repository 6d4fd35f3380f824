"""The NL678E: its network mode, registration and status block, and the APN that is written into it."""

import json
import re
from typing import Iterator

import pytest
from nl678e_client import (
    BUS, CELLS, CESQ, CSQ, MODEM_ID, NEIGHBOURS, NEIGHBOUR_LINES, REFUSALS, SERVING, SERVING_KEYS, SERVING_LINE,
    SIGNAL, ok, ordered, printed_cells, recorded, report, run, sent, signal, usable, with_field,
)
from probe_client import parse, probe, run_probe
from support import ABORTED, unreachable
from velasim import Router

NOT_SUPPORTED = -17
SERVED = ["up", "SIM_status", "online", "signal_info", "signal", "mode", "newsms"]


@pytest.fixture(scope="module")
def nl678e() -> Iterator[Router]:
    with Router("nl678e", ubus=False) as r:
        yield r


def status(r: Router) -> dict:
    result, reply = probe(r, "status", BUS)
    assert result == 0
    return reply


# The echo, and a modem that cannot be asked


def test_the_echo_does_not_matter(router):
    r = router("nl678e", ubus=False)
    assert r.run("vela_modem", "AT", "ATE1").returncode == 0
    assert r.run("vela_modem", "AT", "AT").stdout == "\nAT\r\r\nOK\r\n"
    assert ordered(printed_cells(r)) == ordered([SERVING, *NEIGHBOURS])
    assert run(r, "get_mode") == "get_mode: 4G\n"
    assert run(r, "check_register") == "check_register=0\n"
    assert signal(r) == SIGNAL
    assert set_apn(r, "internet") == 0


@unreachable
def test_what_is_said_of_a_modem_that_does_not_answer(router, state):
    r = router("nl678e", ubus=False)
    with state(r):
        outputs = {command: r.run("vela_modem", command).stdout
                   for command in ("signal", "cells", "get_mode", "check_register")}
    assert json.loads(outputs["signal"]) == {"signals": [{}], "strength": 1, "mode": "0G"}
    assert json.loads(outputs["cells"]) == []
    assert (outputs["get_mode"], outputs["check_register"]) == ("get_mode: \n", "check_register=-1\n")
    assert r.modem().commands == []


# The network mode


def get_mode(r: Router, reply: str | bytes) -> str:
    r.modem().reply(CELLS, reply)
    return run(r, "get_mode").removeprefix("get_mode: ").removesuffix("\n")


@pytest.mark.parametrize("technology, mode", [
    ("1", "2G"), ("2", "3G"), ("3", "3G"), ("4", "4G"), ("0", ""), ("5", ""), ("9", ""), ("12", ""), ("", ""),
    ("44", ""), ("04", ""), (" 4", ""), ("4 ", ""), ("4G", ""), ("LTE", ""), ("-4", ""), ("1.5", ""), ("4" * 20, ""),
])
def test_modes(router, technology, mode):
    r = router("nl678e", ubus=False)
    assert get_mode(r, report(with_field(SERVING_LINE, 1, technology), *NEIGHBOUR_LINES)) == mode
    assert sent(r) == [("ttyUSB2", CELLS)]


@pytest.mark.parametrize("lines", [
    (), ("+GTCCINFO:",), ("LTE neighbor cell:", NEIGHBOUR_LINES[0]), ("UMTS service cell:", SERVING_LINE),
    ("LTE service cell:",), ("LTE service cell:", "1"),
], ids=str)
def test_without_a_serving_cell_there_is_no_mode(nl678e, lines):
    assert get_mode(nl678e, ok(*lines)) == ""


def test_the_mode_is_that_of_the_serving_cell_alone(nl678e):
    assert get_mode(nl678e, report(with_field(SERVING_LINE, 1, "2"), *NEIGHBOUR_LINES)) == "3G"


# Registration


def check_register(r: Router) -> int:
    return int(re.fullmatch(r"check_register=(-?\d+)\n", run(r, "check_register"))[1])


@pytest.mark.parametrize("creg, result", [
    ("0,1", 0), ("2,1", 0), ('2,1,"A1B2","00C3D4E5",7', 0), ("1,1,x", 0), (",1", 0),
    ("0,5", -1),  # roaming counts as not registered
    ('2,5,"A1B2","00C3D4E5",7', -1), ("0,0", -1), ("0,2", -1), ("0,3", -1), ("0,4", -1), ("0,6", -1), ("0,11", -1),
    ("0,10", -1), ("0,01", -1), ("0, 1", -1), ("0,1 ", -1), ("0,,1", -1), ("0,", -1), ("1", -1), ("", -1), ("5,1", 0),
], ids=repr)
def test_registration(router, creg, result):
    r = router("nl678e", ubus=False)
    r.modem().reply("AT+CREG?", f"\n+CREG: {creg}\n\nOK\n")
    assert check_register(r) == result
    assert sent(r) == [("ttyUSB2", "AT+CREG?")]
    assert run(r, "sim-status") == ("READY" if result == 0 else "NO_REG")
    block = status(r)
    assert block["SIM_status"] == (0 if result == 0 else -3)
    assert list(block) == (SERVED if result == 0 else ["up", "SIM_status"])


@pytest.mark.parametrize("reply", [
    *REFUSALS, "\n+CREG: 0,1\n\nERROR\n", b"\r\n+CREG: 0,1\r\n\r\nOK", "\nOK\n", b"OK\r\n", b"OK\n", b"\r\n+CREG:OK\r",
    b"x" * 300 + b",1\r\nOK\r\n",
], ids=lambda reply: repr(reply)[-28:])
def test_a_registration_that_cannot_be_checked_counts_as_none(nl678e, reply):
    nl678e.modem().reply("AT+CREG?", reply)
    assert check_register(nl678e) == -1
    assert usable(nl678e)


def test_the_fields_are_counted_from_the_tenth_character(nl678e):
    nl678e.modem().reply("AT+CREG?", b"1,1,1,1,1,3\r\nOK\r\n")  # which is the last field
    assert check_register(nl678e) == -1
    nl678e.modem().reply("AT+CREG?", b"123456789x,1\r\nOK\r\n")
    assert check_register(nl678e) == 0


@pytest.mark.parametrize("name, result", [
    ("fibocom-fm150/creg--three-digit-lac-act-13.txt", 0), ("fibocom-fm190/creg--lac-FFFF-act-13.txt", 0),
    ("fibocom-l850/creg--2-6-leading-empty-line.txt", -1), ("fibocom-l850/creg--2-6-sms-only.txt", -1),
])
def test_recorded_registrations(nl678e, name, result):
    nl678e.modem().reply("AT+CREG?", recorded(name))
    assert check_register(nl678e) == result


# The status block


def test_the_whole_block(router):
    r = router("nl678e", ubus={"interfaces": {"modem_1_1_2": "up"}})
    block = status(r)
    assert list(block.items()) == [
        ("up", "on"), ("SIM_status", 0), ("online", False), ("signal_info", SIGNAL["signals"]), ("signal", 3),
        ("mode", "4G"), ("newsms", 0)]
    assert r.modem().commands == ["AT+CPIN?", "AT+CREG?", CESQ, CSQ, CELLS]


def test_a_pending_interface_does_not_keep_it_from_being_asked(router):
    r = router("nl678e", ubus={"interfaces": {"modem_1_1_2": "pending"}})
    assert list(status(r)) == SERVED


@pytest.mark.parametrize("technology, mode", [("1", "2G"), ("2", "3G"), ("4", "4G"), ("9", "")])
def test_the_mode_of_the_block_is_that_of_the_cell_list(router, technology, mode):
    r = router("nl678e", ubus=False)
    r.modem().reply(CELLS, report(with_field(SERVING_LINE, 1, technology)))
    r.modem().reply(CESQ, ok("+CESQ: 99,99,255,255,28,80"))
    block = status(r)
    assert list(block) == SERVED and (block["signal"], block["mode"]) == (4, mode)


def test_the_block_without_any_measurement(router):
    r = router("nl678e", ubus=False)
    for command in (CESQ, CSQ, CELLS):
        r.modem().reply(command, "\nERROR\n")
    block = status(r)
    assert list(block) == SERVED and (block["signal_info"], block["signal"], block["mode"]) == ([{}], 1, "")


def test_the_endpoint_with_the_details_has_the_level_by_the_common_query(router):
    r = router("nl678e", ubus=False)
    code, document = r.api("post", "/modem/modem_info/get", {"bus": BUS, "modem_id": MODEM_ID})
    assert code == 0 and document["modem_info"]["signal"] == "\x03"
    assert r.modem().commands[-1] == "AT+CSQ"


# The APN

APN = 'AT+CGDCONT=1,"IP","{}"'


def set_apn(r: Router, apn: str) -> int:
    result = run_probe(r, "set-apn", BUS, apn)
    assert result.returncode == 0, result
    number, reply = parse(result)
    assert reply == {}
    return number


@pytest.mark.parametrize("files", [
    {}, {"/tmp/sim_status": "absent\n"}, {"/tmp/sim_status": "ready\n", "/tmp/sim_type": "verizon\n"},
], ids=["no files", "absent", "verizon"])
def test_the_apn_goes_into_context_1_whatever_the_sim(router, files):
    r = router("nl678e", ubus=False, files=files)
    assert set_apn(r, "internet") == 0
    assert r.events == [{"kind": "at", "bus": BUS, "port": "ttyUSB2", "command": APN.format("internet")}]


@pytest.mark.parametrize("apn", ["", "a.b-c", "a,b", 'a"b', "%s%n", "ä", "LOOK", "$(id)", " x"])
def test_an_apn_is_written_as_it_is(router, apn):
    r = router("nl678e", ubus=False)
    assert set_apn(r, apn) == 0
    assert r.modem().commands == [APN.format(apn)] and r.commands == []


@pytest.mark.parametrize("refusal", [*REFUSALS, b"\r\nOK", "\n" + "x" * 300 + "\n\nOK\n"], ids=repr)
def test_an_apn_that_is_refused(router, refusal):
    r = router("nl678e", ubus=False)
    r.modem().reply(APN.format("internet"), refusal)
    assert set_apn(r, "internet") == -1
    assert r.modem().commands == [APN.format("internet")]


@unreachable
def test_an_apn_that_cannot_be_written_counts_as_written(router, state):
    r = router("nl678e", ubus=False)
    with state(r):
        assert set_apn(r, "internet") == 0
    assert r.modem().commands == []


@pytest.mark.parametrize("after, result", [(0, 0), (4, -1)])  # a beginning of the answer is one
def test_a_modem_that_goes_when_its_apn_is_written(router, after, result):
    r = router("nl678e", ubus=False)
    r.modem().misbehave("drop", after=after)
    assert set_apn(r, "internet") == result


@pytest.mark.parametrize("total, fits", [
    (96, True), (97, True), (98, None), (99, None), (100, None),  # its buffer of 100 holds the line end, too
    (101, False), (256, False), (5000, False),
])
def test_an_apn_that_does_not_fit_aborts_and_nothing_is_sent(router, total, fits):
    r = router("nl678e", ubus=False)
    apn = "x" * (total - len(APN.format("")))
    result = run_probe(r, "set-apn", BUS, apn)
    assert result.returncode in {True: (0,), False: (ABORTED,), None: (0, ABORTED)}[fits]
    assert r.modem().commands == ([] if result.returncode else [APN.format(apn)])


def test_there_is_no_setting_for_credentials(router):
    r = router("nl678e", ubus=False, files={"/tmp/sim_status": "ready\n"})
    assert probe(r, "set-ath", BUS, "internet", "user", "secret", "PAP") == (NOT_SUPPORTED, {})
    assert r.events == []


# Silence


def test_silence(router):
    """All in one test and at the same time, because each exchange takes its 15 seconds."""
    buses = ("1-1.2", "1-1.3", "1-1.4", "2-1.2", "2-1.3", "2-1.4")
    r = router(modems={bus: "nl678e" for bus in buses}, ubus=False)
    for bus in ("1-1.2", "1-1.3", "1-1.4", "2-1.2"):
        r.modem(bus).misbehave("silent")
    r.modem("2-1.3").reply(CSQ, b"")
    r.modem("2-1.4").reply(CESQ, b"")
    started = [
        r.start("vela_modem", "1-1.2", "cells"), r.start("vela_modem", "1-1.3", "get_mode"),
        r.start("vela_modem", "1-1.4", "check_register"),
        r.start(str(r.build / "tests/router/probe"), "set-apn", "2-1.2", "internet"),
        r.start("vela_modem", "2-1.3", "cells"), r.start("vela_modem", "2-1.4", "signal"),
    ]
    outputs = [process.communicate()[0].decode() for process in started]
    assert json.loads(outputs[0]) == []
    assert outputs[1:4] == ["get_mode: \n", "check_register=-1\n", "{\n}\nresult 0\n"]
    assert ordered(json.loads(outputs[4])) == ordered([{key: SERVING[key] for key in SERVING_KEYS}, *NEIGHBOURS])
    assert json.loads(outputs[5]) == {"signals": [{"rssi": "-69"}], "strength": (1 + 1 + 4) // 3, "mode": "0G"}
    for bus in buses:
        r.modem(bus).behave()
    assert usable(r)
