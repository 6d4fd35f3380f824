"""A Sierra Wireless modem while its interface is coming up: it is left alone, and the system log says so."""

import json
import syslog

import pytest
from probe_client import probe
from support import system_log, traced
from velasim import Router

BUS = "1-1.2"
OTHER_BUS = "2-1.2"
INTERFACE = "modem_1_1_2"
OBJECT = f"network.interface.{INTERFACE}"
STATUS = "AT!GSTATUS?"
SIGNAL_LINE = (syslog.LOG_DEBUG, "modem device busy,can't to get signal\n")
REGISTER_LINE = (syslog.LOG_DEBUG, "modem device busy,can't check register status\n")
SIM_LINE = (syslog.LOG_DEBUG, "modem device busy,can't check SIM status\n")


def bus_with(state: object, interface: str = INTERFACE) -> dict:
    return {"interfaces": {interface: state}}


def faulty(r: Router, bus: str = BUS) -> Router:
    """The SIM waits for its PIN and the modem is not registered, as it would say if it were asked."""
    r.modem(bus).reply("AT+CREG?", "\n+CREG: 0,2\n\nOK\n")
    r.modem(bus).reply("AT+CPIN?", "\n+CPIN: SIM PIN\n\nOK\n")
    return r


def signal(r: Router, bus: str = BUS) -> tuple[int, int]:
    result, reply = probe(r, "slot-rssi", bus)
    return result, reply["level"]


def registered(r: Router, bus: str = BUS) -> int:
    result = r.run("vela_modem", "-B", bus, "check_register")
    assert (result.returncode, result.stderr) == (0, "")
    return int(result.stdout.removeprefix("check_register="))


def sim(r: Router, bus: str = BUS) -> tuple[int, str]:
    result, reply = probe(r, "slot-simcard", bus)
    return result, reply["text"]


# What each says of a busy modem, its line in the log, its command, and what it says of a faulty modem.
CHECKS = [
    pytest.param(signal, (-1, -1), SIGNAL_LINE, STATUS, (4, 3), id="signal"),
    pytest.param(registered, 0, REGISTER_LINE, "AT+CREG?", -1, id="registration"),
    pytest.param(sim, (0, "untouched"), SIM_LINE, "AT+CPIN?", (-2, "untouched"), id="sim"),
]


def ubus_calls(r: Router) -> list[tuple[str, str]]:
    return [(event["object"], event["method"]) for event in r.events if event["kind"] == "ubus"]


@pytest.mark.parametrize("ask, busy, line, command, idle", CHECKS)
@pytest.mark.parametrize("state", [
    bus_with("pending"), bus_with({"state": "up", "pending": True}),
    {**bus_with("pending"), "faults": {OBJECT: {"status": {"delay": 1.5}}}},
], ids=["pending", "up too", "late answer"])
def test_a_pending_interface_means_no_exchange_but_a_line_in_the_log(router, state, ask, busy, line, command, idle):
    r = faulty(router("mc7430", ubus=state))
    with system_log(r) as messages:
        assert ask(r) == busy
        assert messages() == [line]
        assert ubus_calls(r) == [(OBJECT, "status")]
        assert r.modem().commands == []
        r.set_ubus_state(bus_with("up"))
        assert ask(r) == idle
        assert messages() == [line]
        assert r.modem().commands == [command]


@pytest.mark.parametrize("operation", ["slot-rssi", "slot-simcard"])
def test_the_port_is_not_even_opened(router, operation):
    r = router("mc7430", ubus=bus_with("pending"))
    program = [str(r.build / "tests/router/probe"), operation, BUS]
    device = r.modem().tty(3)
    opened = traced(r, program, "trace=open,openat", device=device)[1]
    assert opened == []
    r.set_ubus_state(bus_with("up"))
    opened = traced(r, program, "trace=open,openat", device=device)[1]
    assert len(opened) == 1


@pytest.mark.parametrize("ask, busy, line, command, idle", CHECKS)
@pytest.mark.parametrize("state", [
    bus_with("up"), bus_with("down"), bus_with("unknown"), bus_with("pending", "modem_2_1_2"),
    bus_with("pending", "modem"), bus_with("pending", "wan"), {"replies": {OBJECT: {"status": None}}},
    {**bus_with("pending"), "faults": {OBJECT: {"status": "die"}}}, False,
], ids=str)
def test_in_any_other_state_the_modem_is_asked(router, state, ask, busy, line, command, idle):
    r = faulty(router("mc7430", ubus=state))
    with system_log(r) as messages:
        assert ask(r) == idle
        assert messages() == []
    assert r.modem().commands == [command]


@pytest.mark.parametrize("ask, busy, line, command, idle", CHECKS)
def test_each_modem_has_an_interface_of_its_own(router, ask, busy, line, command, idle):
    r = router(modems={BUS: "mc7430", OTHER_BUS: "mc7430"}, ubus=bus_with("pending", "modem_2_1_2"))
    faulty(r, BUS)
    faulty(r, OTHER_BUS)
    with system_log(r) as messages:
        assert (ask(r, BUS), ask(r, OTHER_BUS)) == (idle, busy)
        assert messages() == [line]
    assert (r.modem(BUS).commands, r.modem(OTHER_BUS).commands) == ([command], [])


def test_cells_and_carrier_aggregation_are_asked_for_nonetheless(router):
    r = router("mc7430", ubus=bus_with("pending"))
    with system_log(r) as messages:
        assert probe(r, "cat6", BUS) == (1, {})
        cells = json.loads(r.run("vela_modem", "cells").stdout)
        assert [cell["type"] for cell in cells] == ["PSS", "SSS"]
        assert messages() == []
    assert r.modem().commands == [STATUS, STATUS]
    assert ubus_calls(r) == []


def test_the_status_block_of_a_busy_modem_has_no_fault_and_no_signal(router):
    r = faulty(router("mc7430", ubus=bus_with("pending")))
    with system_log(r) as messages:
        result, reply = probe(r, "status", BUS)
        assert messages() == [SIM_LINE, REGISTER_LINE, SIGNAL_LINE]
    assert result == 0
    assert list(reply.items()) == [("up", "connecting"), ("SIM_status", 0), ("online", False), ("newsms", 0)]
    assert r.modem().commands == []


def test_the_command_calls_a_busy_modem_ready(router):
    r = faulty(router("mc7430", ubus=bus_with("pending")))
    with system_log(r) as messages:
        assert r.run("vela_modem", "sim-status").stdout == "READY"
        assert messages() == [SIM_LINE, REGISTER_LINE]
    assert r.modem().commands == []
    r.set_ubus_state(bus_with("up"))
    assert r.run("vela_modem", "sim-status").stdout == "PIN_SIM"


def test_without_a_system_log_it_works_the_same(router):
    r = faulty(router("mc7430", ubus=bus_with("pending")))
    assert (signal(r), registered(r), sim(r)) == ((-1, -1), 0, (0, "untouched"))
    assert r.modem().commands == []
