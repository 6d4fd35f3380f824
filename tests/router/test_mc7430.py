"""The MC7430: its status block, registration and SIM, and that it is left alone while its interface is coming up."""

import json
import re
from syslog import LOG_DEBUG
from typing import Iterator

import pytest
from mc7430_client import (
    AGGREGATED, BEST, BUS, LTE, MODEM_ID, PSS, REFUSALS, REPORT, SEARCHING, SERVED, SERVINGCELL, SSS, UNSERVED,
    WCDMA, WORST, measured, ordered, printed_cells, served, status, wcdma,
)
from probe_client import probe
from support import system_log, unreachable, usable
from velasim import Router

OBJECT = "network.interface.modem_1_1_2"
FAULTY = ["up", "SIM_status"]
ALL_ASKED = ["AT+CPIN?", "AT+CREG?", REPORT]


@pytest.fixture(scope="module")
def mc7430() -> Iterator[Router]:
    with Router("mc7430", ubus=False) as r:
        yield r


def bus_with(state: object) -> dict:
    return {"interfaces": {"modem_1_1_2": state}}


# The status block


def test_the_whole_block(router):
    r = router("mc7430", ubus=bus_with("up"), files={"/var/run/mwan3track/modem_1_1_2/STATUS": "online\n"})
    r.modem().reply(REPORT, LTE)
    block = status(r)
    assert list(block.items()) == [
        ("up", "on"), ("SIM_status", 0), ("online", True), ("signal", 3), ("mode", "4G"), ("newsms", 0)]
    assert [event["command"] for event in r.events if event["kind"] == "at"] == ALL_ASKED
    assert {event["port"] for event in r.events if event["kind"] == "at"} == {"ttyUSB2"}
    # The link's own, and before each of the three.
    assert [event["object"] for event in r.events if event["kind"] == "ubus"] == [OBJECT] * 4


def test_an_aggregated_carrier_is_not_told_from_a_single_one(mc7430):
    """The row has no check of it: the block says 4G, and the report is asked for once."""
    mc7430.clear_events()
    assert served(mc7430, AGGREGATED) == (3, "4G")
    assert mc7430.modem().commands == ALL_ASKED


def test_a_signal_file_comes_before_the_report(router):
    r = router("mc7430", ubus=False, files={f"/tmp/modem.{BUS}/signal": '{"type": "wcdma", "rssi": -85, "ecio": -12}'})
    block = status(r)
    assert (block["signal"], block["mode"]) == (2, "3G")
    assert r.modem().commands == ALL_ASKED[:2]


def test_the_command_signal_knows_the_file_only(router):
    r = router("mc7430", ubus=False)
    assert r.run("vela_modem", "signal").stdout == "Not support"
    assert r.modem().commands == []


@pytest.mark.parametrize("reply, byte", [
    (measured(**BEST), "\x04"), (measured(**WORST), "\x01"), (wcdma(-70), "\x03"), (SEARCHING, ""),
], ids=["best", "worst", "wcdma", "searching"])
def test_the_detail_view_has_the_level_as_a_byte(router, reply, byte):
    r = router("mc7430", ubus=False)
    r.modem().reply(REPORT, reply)
    code, document = r.api("post", "/modem/modem_info/get", {"bus": BUS, "modem_id": MODEM_ID})
    assert code == 0 and list(document["modem_info"]) == ["imsi", "sim_status", "signal"]
    assert document["modem_info"]["signal"] == byte


def test_the_modem_is_the_one_on_the_bus(router):
    r = router(modems={"1-1.2": "mc7430", "2-1.2": "mc7430"}, ubus=bus_with("pending"))
    r.modem("2-1.2").reply(REPORT, WCDMA)
    assert json.loads(r.run("vela_modem", "-B", "2-1.2", "cells").stdout) == [SERVINGCELL]
    assert status(r, "2-1.2")["mode"] == "3G"  # the other one's interface is the one that is coming up
    assert r.modem("1-1.2").commands == []
    assert r.modem("2-1.2").commands == [REPORT, *ALL_ASKED]


# Registration


def check_register(r: Router) -> int:
    result = r.run("vela_modem", "check_register")
    assert (result.returncode, result.stderr) == (0, "")
    return int(re.fullmatch(r"check_register=(-?\d+)\n", result.stdout)[1])


@pytest.mark.parametrize("creg, result", [
    ("0,1", 0), ("0,5", 0), ("2,1", 0), ("2,5", 0), ("1,1", 0), ("5", -1), ("1", -1), (",1", 0),
    ("0,0", -1), ("0,2", -1), ("0,3", -1), ("0,4", -1), ("0,6", -1), ("0,11", -1), ("0,51", -1), ("0,15", -1),
    ('2,1,"A1B2","00C3D4E5",7', -1), ('2,5,"A1B2","00C3D4E5"', -1), ('2,2,"A1B2","00C3D4E5",1', 0), ("0, 1", -1),
    ("0,1 ", -1), ("", -1),
], ids=repr)
def test_registration(router, creg, result):
    r = router("mc7430", ubus=False)
    r.modem().reply("AT+CREG?", f"\n+CREG: {creg}\n\nOK\n")
    assert check_register(r) == result
    assert r.modem().commands == ["AT+CREG?"]
    assert r.run("vela_modem", "sim-status").stdout == ("READY" if result == 0 else "NO_REG")
    block = status(r)
    assert block["SIM_status"] == (0 if result == 0 else -3)
    assert list(block) == (SERVED if result == 0 else FAULTY)


@pytest.mark.parametrize("reply", [
    *REFUSALS, "\n+CREG: 0,2\n\nERROR\n", b"\r\n+CREG: 0,2\r\n\r\nOK",
    b"\r\n" + b"x" * 300 + b"+CREG: 0,2\r\n\r\nOK\r\n",
], ids=lambda reply: repr(reply)[-24:])
def test_a_registration_that_cannot_be_checked_counts_as_registered(router, reply):
    r = router("mc7430", ubus=False)
    r.modem().reply("AT+CREG?", reply)
    assert check_register(r) == 0
    assert r.run("vela_modem", "sim-status").stdout == "READY"


def test_a_status_that_a_line_feed_ends_is_none(router):
    r = router("mc7430", ubus=False)
    r.modem().reply("AT+CREG?", b"\n+CREG: 0,1\n\nOK\n")
    assert check_register(r) == -1


@pytest.mark.parametrize("reply, aggregates", [
    (None, 1), (LTE, 0), (LTE.replace("NOT ASSIGNED", "INACTIVE"), 1), (LTE.replace("LTE CA state", "CA"), 0),
    *((refusal, 0) for refusal in REFUSALS),
], ids=repr)
def test_whether_it_aggregates_carriers(router, reply, aggregates):
    r = router("mc7430", ubus=False)
    if reply is not None:
        r.modem().reply(REPORT, reply)
    assert probe(r, "cat6", BUS)[0] == aggregates
    assert r.modem().commands == [REPORT]


# The SIM


@pytest.mark.parametrize("cpin, code, text", [
    ("\n+CPIN: READY\n\nOK\n", 0, "READY"), ("\n+CPIN: SIM PIN\n\nOK\n", -2, "PIN_SIM"),
    ("\n+CPIN: PH-NET PIN\n\nOK\n", -2, "PIN_SIM"), ("\n+CPIN: SIM PIN2\n\nOK\n", 0, "READY"),
    ("\nERROR\n", -1, "NO_SIM"), ("\n+CME ERROR: 10\n", -1, "NO_SIM"),
    ("\n+CME ERROR: SIM not inserted\n", -1, "NO_SIM"),
    ("\n+CPIN: SIM PIN\n\nERROR\n", -1, "NO_SIM"), ("\nOK\n", 0, "READY"), ("\n+CPIN: NOT READY\n\nOK\n", 0, "READY"),
    (b"\r\n+CPIN: SIM PIN\r\nOK", -2, "PIN_SIM"),  # whether it ends in OK does not matter
    (b"\n+CPIN: SIM PIN\n\nOK\n", 0, "READY"),  # without a carriage return
    ("\n+CPIN: SIM PUK\n\nOK\n", 0, "READY"),  # which is no PIN
], ids=repr)
def test_sim_faults(router, cpin, code, text):
    r = router("mc7430", ubus=False)
    r.modem().reply("AT+CPIN?", cpin)
    assert r.run("vela_modem", "sim-status").stdout == text
    assert r.modem().commands == (["AT+CPIN?"] if code else ["AT+CPIN?", "AT+CREG?"])
    block = status(r)
    assert block["SIM_status"] == code and list(block) == (FAULTY if code else SERVED)


def test_no_sim_is_noticed_before_no_registration(router):
    r = router("mc7430", ubus=False)
    r.modem().reply("AT+CREG?", "\n+CREG: 0,0\n\nOK\n")
    r.modem().reply("AT+CPIN?", "\n+CME ERROR: 10\n")
    assert status(r) == {"up": "off", "SIM_status": -1}


def test_the_answer_to_the_sim_query_may_have_more_lines(router):
    r = router("mc7430", ubus=False)
    r.modem().misbehave("unsolicited", text="+CREG: 2", where="before")
    r.modem().reply("AT+CPIN?", "\n+CPIN: SIM PIN\n\nOK\n")
    assert r.run("vela_modem", "sim-status").stdout == "PIN_SIM"


# While the interface is coming up

BUSY_SIM = (LOG_DEBUG, "modem device busy,can't check SIM status\n")
BUSY_REGISTER = (LOG_DEBUG, "modem device busy,can't check register status\n")
BUSY_SIGNAL = (LOG_DEBUG, "modem device busy,can't to get signal\n")


def test_a_pending_modem_is_not_asked_and_passes_for_a_registered_one(router):
    r = router("mc7430", ubus=bus_with("pending"))
    r.modem().reply("AT+CPIN?", "\n+CME ERROR: 10\n")
    r.modem().reply("AT+CREG?", "\n+CREG: 0,0\n\nOK\n")
    with system_log(r) as messages:
        assert r.run("vela_modem", "sim-status").stdout == "READY"
    assert messages() == [BUSY_SIM, BUSY_REGISTER]
    with system_log(r) as messages:
        assert check_register(r) == 0
    assert messages() == [BUSY_REGISTER]
    with system_log(r) as messages:
        block = status(r)
    assert messages() == [BUSY_SIM, BUSY_REGISTER, BUSY_SIGNAL]
    assert list(block.items()) == [("up", "connecting"), ("SIM_status", 0), ("online", False), ("newsms", 0)]
    assert r.modem().commands == []


def test_the_interface_is_asked_by_its_name_before_each(router):
    r = router("mc7430", ubus=bus_with("pending"))
    assert check_register(r) == 0
    assert r.events == [{"kind": "ubus", "object": OBJECT, "method": "status", "args": {}}]


def test_the_cells_are_asked_for_even_then(router):
    r = router("mc7430", ubus=bus_with("pending"))
    with system_log(r) as messages:
        assert ordered(printed_cells(r)) == ordered([PSS, SSS])
    assert messages() == []
    assert [event["kind"] for event in r.events] == ["at"]


def test_pending_counts_even_of_an_interface_that_is_up(router):
    r = router("mc7430", ubus=bus_with({"state": "up", "pending": True}))
    status(r)
    assert r.modem().commands == []


@pytest.mark.parametrize("ubus", [
    bus_with("up"), bus_with("down"), bus_with("unknown"), {}, False,
    {"interfaces": {"modem_1_1_2": "down", "modem_1_1_3": "pending", "modem": "pending", "wan": "pending"}},
    {"replies": {OBJECT: {"status": {}}}}, {"replies": {OBJECT: {"status": {"pending": False, "up": True}}}},
    {**bus_with("pending"), "faults": {OBJECT: {"status": {"status": 6}}}},
    {**bus_with("pending"), "faults": {OBJECT: {"<lookup>": "die"}}},
], ids=str)
def test_in_every_other_state_it_is_asked(router, ubus):
    r = router("mc7430", ubus=ubus)
    with system_log(r) as messages:
        assert list(status(r))[-len(SERVED):] == SERVED
    assert r.modem().commands == ALL_ASKED
    assert not [text for _, text in messages() if "busy" in text]


def test_it_is_asked_again_as_soon_as_the_interface_is_up(router):
    r = router("mc7430", ubus=bus_with("pending"))
    assert list(status(r)) == UNSERVED
    r.set_ubus_state(bus_with("up"))
    assert list(status(r)) == SERVED


# A modem that does not answer


@unreachable
def test_a_modem_that_does_not_answer_passes_for_a_registered_one(router, state):
    r = router("mc7430", ubus=False)
    with state(r):
        outputs = [r.run("vela_modem", command).stdout for command in ("cells", "check_register", "sim-status")]
        block = r.run(str(r.build / "tests/router/probe"), "status", BUS).stdout
    assert json.loads(outputs[0]) == [] and outputs[1:] == ["check_register=0\n", "READY"]
    reply = json.loads(block.removesuffix("\nresult 0\n"))
    assert list(reply) == UNSERVED and reply["SIM_status"] == 0
    assert r.modem().commands == []


def test_silence_passes_for_a_registered_modem_without_a_signal(router):
    """At the same time, because each exchange takes its 15 seconds."""
    buses = ("1-1.2", "1-1.3", "1-1.4", "2-1.2")
    r = router(modems={bus: "mc7430" for bus in buses}, ubus=False)
    r.modem("1-1.2").misbehave("silent")
    r.modem("1-1.4").misbehave("silent")
    # These two only echo.
    r.modem("1-1.3").reply("AT+CPIN?", b"")
    r.modem("2-1.2").misbehave("no_final")
    started = [r.start("vela_modem", bus, command) for bus, command in (
        ("1-1.2", "sim-status"), ("1-1.3", "sim-status"), ("1-1.4", "check_register"), ("2-1.2", "cells"))]
    outputs = [process.communicate()[0].decode() for process in started]
    assert outputs[:3] == ["READY", "READY", "check_register=0\n"] and json.loads(outputs[3]) == []
    assert [r.modem(bus).commands for bus in buses] == [
        ["AT+CPIN?", "AT+CREG?"], ["AT+CPIN?", "AT+CREG?"], ["AT+CREG?"], [REPORT]]
    for bus in buses:
        r.modem(bus).behave()
    assert usable(r)
