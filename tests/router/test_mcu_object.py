"""The command `test`: the small object for the board's microcontroller."""

import json
import re
from syslog import LOG_DEBUG

import pytest
from probe_client import probe
from router_config import EC25_CARRIER, KNOWN_SIMS, carrier_lookup, effects, exchange, interfaces, status_call
from support import BUS_CALLS, DEVICE, MODELS, TRACED, bus_times, pretty, system_log, traced, tracer
from velasim import Router

INCOMING = "/etc/spool/sms/incoming"
NO_SIM = "\n+CME ERROR: 10\n"
PIN, PUK = "\n+CPIN: SIM PIN\n\nOK\n", "\n+CPIN: SIM PUK\n\nOK\n"
QCSQ = [{"type": "LTE", "rssi": "-80", "rsrp": "-109", "sinr": "18", "rsrq": "-9"}]
WITH_SIGNAL = ["carrier", "signal_info", "signal", "modem_mode"]
REPORTING = ("ec20", "ec25", "ep06", "uc20", "ec200t", "bg95", "eg91", "ec100y", "nl678e")  # with a report of their own
OTHERS = ("mc7430", "simcom7600", "me3630", "unknown")
SERVING, QCAINFO = 'AT+QENG="servingcell"', "AT+QCAINFO"


def bus_with(state: object, interface: str = "modem_1_1_2") -> dict:
    return {"interfaces": {interface: state}}


def printed(r: Router, *bus: str) -> dict:
    """The object, which is all that is printed."""
    result = r.run("vela_modem", *bus, "test")
    assert (result.returncode, result.stderr) == (0, "")
    return parsed(result.stdout)


def parsed(text: str) -> dict:
    document = json.loads(text)
    expected = re.sub(r"^( *)(.*)\[\]", r"\1\2[\n\1]", pretty(document), flags=re.MULTILINE)
    assert text == expected + "\n"
    return document


def refuse_registration(r: Router) -> None:
    for command in ("CREG", "CEREG"):
        r.modem().reply(f"AT+{command}?", f"\n+{command}: 0,2\n\nOK\n")


# The whole object


def test_the_whole_object(router):
    r = router("ec25", ubus=bus_with("up"))
    r.write(f"{INCOMING}/VMS99.a", "")
    result = r.run("vela_modem", "test")
    expected = {"carrier": "Vodafone.de", "sms": "1", "signal_info": QCSQ, "signal": "2", "modem_mode": "4G",
                "modem_up": "1"}
    assert (result.returncode, result.stdout, result.stderr) == (0, pretty(expected) + "\n", "")


def test_what_is_done_in_its_order(router):
    r = router("ec25", ubus=bus_with("up"))
    printed(r)
    assert effects(r) == [exchange("AT+CPIN?"), exchange("AT+CREG?"), *EC25_CARRIER, exchange("AT+QCSQ"), status_call()]
    assert r.listdir("/tmp/modem.1-1.2") == ["cimi"]
    r.clear_events()
    printed(r)
    assert effects(r) == [
        exchange("AT+CPIN?"), exchange("AT+CREG?"), *EC25_CARRIER[2:], exchange("AT+QCSQ"), status_call()]


def test_nothing_is_logged_while_all_is_well(router):
    r = router("ec25", ubus=bus_with("up"))
    with system_log(r) as messages:
        printed(r)
    assert messages() == []


def test_a_modem_on_another_bus(router):
    r = router(modems={"1-1.2": "ec25", "1-1.3": "ec20"}, ubus=bus_with("up", "modem_1_1_3"))
    r.write(f"{INCOMING}/VMS98.a", "")
    r.write(f"{INCOMING}/VMS99.b", "")
    r.write(f"{INCOMING}/VMS99.c", "")
    assert printed(r, "-B", "1-1.3") == {
        "carrier": "China Mobile", "sms": "1", "signal_info": [
            {"type": "LTE", "rssi": "-62", "rsrp": "-90", "sinr": "19", "rsrq": "-7"}],
        "signal": "3", "modem_mode": "4G", "modem_up": "1"}
    assert {event[1] for event in effects(r) if event[0] == "at"} == {"1-1.3"}
    assert status_call("1-1.3") in effects(r)
    assert list(printed(r)) == ["carrier", "sms", *WITH_SIGNAL[1:]]


# Faults


@pytest.mark.parametrize("cpin, fault", [
    (NO_SIM, "NO_SIM"), ("\nERROR\n", "NO_SIM"), (PIN, "PIN_SIM"), ("\n+CPIN: PH-SIM PIN\n\nOK\n", "PIN_SIM"),
    (PUK, "PUK_SIM"),
], ids=repr)
@pytest.mark.parametrize("name", ["ec25", "simcom7600", "nl678e", "bg95", "ec100y"])
def test_a_sim_at_fault_is_all_that_is_told(router, name, cpin, fault):
    r = router(name, ubus=bus_with("up"))
    r.modem().reply("AT+CPIN?", cpin)
    r.write(f"{INCOMING}/VMS99.a", "")
    result = r.run("vela_modem", "test")
    assert (result.returncode, result.stdout, result.stderr) == (0, f'{{\n  "SIM":"{fault}"\n}}\n', "")
    port = MODELS[name].control_port.removeprefix("/dev/")
    assert effects(r) == [exchange("AT+CPIN?", port=port)]


@pytest.mark.parametrize("name, asked", [
    ("ec25", ["AT+CPIN?", "AT+CREG?", "AT+CEREG?"]), ("simcom7600", ["AT+CPIN?", "AT+CREG?"]),
    ("bg95", ["AT+CPIN?", "AT+CREG?", "AT+CEREG?"]), ("nl678e", ["AT+CPIN?", "AT+CREG?"]),
])
def test_a_modem_that_is_not_registered(router, name, asked):
    r = router(name, ubus=bus_with("up"))
    refuse_registration(r)
    assert printed(r) == {"SIM": "NO_REG"}
    assert effects(r) == [exchange(command) for command in asked]


@pytest.mark.parametrize("disabled", ["0", "1"])
@pytest.mark.parametrize("name", ["bg95", "ec100y"])
def test_no_model_is_believed_unasked(router, name, disabled):
    r = router(name, ubus=False, uci={"network": interfaces(modem_1_1_2=disabled)})
    r.modem().reply("AT+CPIN?", NO_SIM)
    assert printed(r) == {"SIM": "NO_SIM"}


def test_the_sierra_model_is_asked_in_its_way(router):
    r = router("mc7430", ubus=bus_with("down"))
    for cpin, fault in ((NO_SIM, "NO_SIM"), (PIN, "PIN_SIM")):
        r.modem().reply("AT+CPIN?", cpin)
        r.clear_events()
        assert printed(r) == {"SIM": fault}
        assert effects(r) == [status_call(), exchange("AT+CPIN?")]
    r.modem().reply("AT+CPIN?", "\n+CPIN: READY\n\nOK\n")
    r.modem().reply("AT+CREG?", "\n+CREG: 0,2\n\nOK\n")
    assert printed(r) == {"SIM": "NO_REG"}
    # While its interface comes up it is not asked, and so has no fault.
    r.set_ubus_state(bus_with("pending"))
    r.clear_events()
    assert list(printed(r)) == ["carrier"]
    assert [event for event in effects(r) if event[0] == "at"] == [exchange("AT+CIMI")]


@pytest.mark.parametrize("prepare, fault", [
    (lambda r: r.modem().reply("AT+CPIN?", NO_SIM), "NO_SIM"), (lambda r: r.modem().reply("AT+CPIN?", PIN), "PIN_SIM"),
    (lambda r: r.modem().reply("AT+CPIN?", PUK), "PUK_SIM"), (refuse_registration, "NO_REG"),
], ids=["NO_SIM", "PIN_SIM", "PUK_SIM", "NO_REG"])
def test_a_fault_is_logged(router, prepare, fault):
    r = router("ec25", ubus=False)
    prepare(r)
    with system_log(r) as messages:
        assert printed(r) == {"SIM": fault}
    assert messages() == [(LOG_DEBUG, "MCU SIM ERROR\n")]


def test_an_unknown_device_has_no_fault(router):
    r = router("unknown", ubus=False)
    r.modem().reply("AT+CPIN?", NO_SIM)
    refuse_registration(r)
    assert printed(r) == {"carrier": "Proximus"}
    assert r.modem().commands == ["AT+CIMI"]


@pytest.mark.parametrize("cpin", ["\nOK\n", "\n+CPIN: SIM PIN2\n\nOK\n", "\n+CPIN: NOT READY\n\nOK\n"], ids=repr)
def test_other_sim_states_are_no_fault(router, cpin):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CPIN?", cpin)
    assert list(printed(r)) == WITH_SIGNAL


# No modem


def test_without_a_modem_on_the_bus_nothing_is_printed(router):
    for r, bus in ((router(), ()), (router("ec25"), ("-B", "1-1.3"))):
        result = r.run("vela_modem", *bus, "test")
        assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
        assert r.events == []


def test_a_modem_that_goes_away_before_it_is_looked_for_again_gives_an_empty_object(router):
    r = router("ec25", ubus=bus_with("up"))
    # The second time that its ids are looked for, they cannot be read.
    trace = tracer("trace=open,openat", "inject=open,openat:error=ENOENT:when=2", device=f"{DEVICE}/idProduct")
    with system_log(r) as messages:
        result = r.run(*trace, "vela_modem", "test", env=TRACED)
    assert (result.returncode, result.stdout) == (0, "{\n}\n")
    assert r.events == []
    assert messages() == [(LOG_DEBUG, "MCU DETECT MODEM FAILED\n")]


# The result of the operation


def test_the_result_is_negative_without_a_modem(router):
    r = router("ec25", ubus=bus_with("up"))
    with system_log(r) as messages:
        assert probe(r, "mcu", "1-1.3") == (-1, {})
    assert r.events == []
    assert messages() == [(LOG_DEBUG, "MCU DETECT MODEM FAILED\n")]


@pytest.mark.parametrize("name", ["ec25", "unknown"])
def test_the_result_is_negative_while_the_ports_are_missing(router, name):
    r = router(name, ubus=bus_with("up"))
    for entry in r.listdir(DEVICE):
        if entry.startswith("1-1.2:"):
            r.remove(f"{DEVICE}/{entry}")
    assert probe(r, "mcu", "1-1.2") == (-1, {}) and r.events == []


def test_the_result_is_0_for_a_fault(router):
    r = router("ec25", ubus=bus_with("up"))
    r.modem().reply("AT+CPIN?", PIN)
    with system_log(r) as messages:
        assert probe(r, "mcu", "1-1.2") == (0, {"SIM": "PIN_SIM"})
    assert messages() == [(LOG_DEBUG, "MCU SIM ERROR\n")]


@pytest.mark.parametrize("state", ["up", "down"])
@pytest.mark.parametrize("name", ["ec25", "simcom7600", "unknown"])
def test_the_result_is_positive_for_a_status(router, name, state):
    r = router(name, ubus=bus_with(state))
    result, reply = probe(r, "mcu", "1-1.2")
    assert result > 0 and reply == printed(r)


# "carrier"


def test_without_an_imsi_the_carrier_is_empty(router):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CIMI", NO_SIM)
    reply = printed(r)
    assert list(reply) == WITH_SIGNAL and reply["carrier"] == ""
    assert r.commands == []


@pytest.mark.parametrize("imsi, carrier", [
    ("310260000000017", "T-Mobile"), ("262010000000017", "Telekom.de"), ("999990000000017", ""),
    ("901460000000017", ""),
])
def test_the_carrier_is_that_of_the_sim_and_its_codes_are_not_told(router, imsi, carrier):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CIMI", f"\n{imsi}\n\nOK\n")
    reply = printed(r)
    assert list(reply) == WITH_SIGNAL and reply["carrier"] == carrier
    assert "AT+COPS?" not in r.modem().commands


# "sms"


@pytest.mark.parametrize("count, sms", [(0, None), (1, "1"), (9, "9"), (10, "10"), (123, "123")])
def test_new_messages_are_counted_in_a_text(router, count, sms):
    r = router("unknown", ubus=False, files=KNOWN_SIMS)
    for number in range(count):
        r.write(f"{INCOMING}/VMS99.{number}", "")
    reply = printed(r)
    assert list(reply) == (["carrier", "sms"] if count else ["carrier"]) and reply.get("sms") == sms


def test_only_unread_messages_of_the_bus_are_counted(router):
    r = router("unknown", ubus=False, files=KNOWN_SIMS)
    for path in (f"{INCOMING}/VMS98.a", f"{INCOMING}/VMS9", "/etc/spool/sms/storage/VMS99.b"):
        r.write(path, "")
    assert "sms" not in printed(r)
    r.remove(INCOMING)
    assert "sms" not in printed(r)


# "signal" and "modem_mode"


@pytest.mark.parametrize("name", REPORTING)
def test_models_with_a_report_of_their_own_tell_signal_and_mode(router, name):
    r = router(name, ubus=False)
    r.modem().reply("AT+CREG?", "\n+CREG: 0,1\n\nOK\n")
    reply = printed(r)
    assert list(reply) == WITH_SIGNAL
    assert isinstance(reply["signal_info"], list)
    assert re.fullmatch(r"[0-4]", reply["signal"]) and reply["modem_mode"] in ("", "2G", "3G", "4G", "4G+")


@pytest.mark.parametrize("name", OTHERS)
def test_models_without_one_tell_neither(router, name):
    r = router(name, ubus=bus_with("up"))
    reply = printed(r)
    assert list(reply) == ["carrier", "modem_up"]
    assert not {"AT+CSQ", "AT!GSTATUS?", "AT+CNSMOD?", "AT+ZPAS?"} & set(r.modem().commands)


def test_models_without_one_do_not_tell_of_the_signal_file_either(router):
    r = router("simcom7600", ubus=False, files={"/tmp/modem.1-1.2/signal": '{"type": "gsm", "signal": -75}'})
    assert list(printed(r)) == ["carrier"]
    assert not [command for command in r.commands if "/signal" in command]


def test_every_model_has_its_test_here():
    assert {*REPORTING, *OTHERS} == {*MODELS, "unknown"}


@pytest.mark.parametrize("line, level, mode", [
    ('"LTE",60,-80,250,-9', "4", "4G"), ('"LTE",70,-100,180,-11', "3", "4G"), ('"LTE",80,-109,177,-9', "2", "4G"),
    ('"LTE",99,-130,-20,-19', "1", "4G"), ('"WCDMA",78,-78,-3', "2", "3G"), ('"GSM",60', "4", "2G"),
    ('"GSM",99', "1", "2G"),
])
def test_the_level_is_a_digit_and_the_mode_a_text(router, line, level, mode):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+QCSQ", f"\n+QCSQ: {line}\n\nOK\n")
    reply = printed(r)
    assert list(reply) == WITH_SIGNAL and (reply["signal"], reply["modem_mode"]) == (level, mode)


@pytest.mark.parametrize("reply", [
    "\nERROR\n", "\nOK\n", '\n+QCSQ: "NOSERVICE"\n\nOK\n', '\n+QCSQ: "eMTC",-53,-80,165\n\nOK\n',
], ids=repr)
def test_a_level_that_cannot_be_read_is_told_as_full_strength(router, reply):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+QCSQ", reply)
    assert printed(r) == {"carrier": "Vodafone.de", "signal_info": [], "signal": "4", "modem_mode": ""}
    assert "AT+QNWINFO" not in r.modem().commands


def test_a_model_that_never_sees_its_technology_is_told_at_full_strength(router):
    r = router("bg95", ubus=False)
    reply = printed(r)
    assert (reply["signal_info"], reply["signal"], reply["modem_mode"]) == ([], "4", "")


def test_an_ep06_on_an_aggregated_carrier(router):
    r = router("ep06", ubus=False)
    r.modem().reply("AT+CREG?", "\n+CREG: 0,1\n\nOK\n")
    reply = printed(r)
    assert list(reply) == WITH_SIGNAL and (reply["signal"], reply["modem_mode"]) == ("3", "4G+")
    assert r.modem().commands[-2:] == [SERVING, QCAINFO]
    r.modem().reply(QCAINFO, "\nERROR\n")
    assert printed(r)["modem_mode"] == "4G"


def test_an_ep06_in_3g_may_have_no_bar_at_all(router):
    r = router("ep06", ubus=False)
    r.modem().reply("AT+CREG?", "\n+CREG: 0,1\n\nOK\n")
    line = '"servingcell","NOCONN","WCDMA",222,88,3A1B,24A100E,10736,58,0,-110,-30,-,-,-,-,-'
    r.modem().reply(SERVING, f"\n+QENG: {line}\n\nOK\n")
    reply = printed(r)
    assert reply["signal_info"] == [{"type": "WCDMA", "rscp": "-110", "ecio": "-30"}]
    assert (reply["signal"], reply["modem_mode"]) == ("0", "3G")


def test_the_fibocom_model_takes_its_mode_from_its_cell(router):
    r = router("nl678e", ubus=False)
    reply = printed(r)
    assert reply == {"carrier": "TIM", "signal_info": [{
        "rxlev": "99", "ber": "99", "rscp": "255", "ecno": "255", "rsrq": "23", "rsrp": "61", "rssi": "-69"}],
        "signal": "3", "modem_mode": "4G"}
    assert r.modem().commands[-3:] == ["AT+CESQ", "AT+CSQ?", "AT+GTCCINFO?"]


# "modem_up"


@pytest.mark.parametrize("state, up", [
    ("up", True), ("pending", False), ("down", False), ("unknown", False), (None, False),
    ({"state": "up", "pending": True}, False), ({"state": "down", "up": True}, True),
    ({"state": "pending", "up": True}, False),
], ids=str)
@pytest.mark.parametrize("name", ["ec25", "simcom7600", "unknown"])
def test_whether_the_interface_is_up(router, name, state, up):
    r = router(name, ubus=False if state is None else bus_with(state))
    reply = printed(r)
    before = WITH_SIGNAL if name == "ec25" else ["carrier"]
    assert list(reply) == [*before, *(["modem_up"] if up else [])]
    assert reply.get("modem_up") == ("1" if up else None)


def test_the_interface_has_100_seconds_to_answer(router):
    r = router("ec25", ubus=bus_with("up"))
    _, lines = traced(r, ["vela_modem", "test"], BUS_CALLS, device=None)
    assert bus_times(lines) == [100]


def test_another_interface_that_is_up_does_not_count(router):
    r = router("ec25", ubus={"interfaces": {"modem_1_1_3": "up", "wan": "up", "modem_1_1_2_4": "up"}})
    assert list(printed(r)) == WITH_SIGNAL


def test_a_disabled_interface_that_is_up_counts(router):
    r = router("ec25", ubus=bus_with("up"), uci={"network": interfaces(modem_1_1_2="1")})
    assert printed(r)["modem_up"] == "1"


def test_an_unknown_device_from_beginning_to_end(router):
    r = router("unknown", ubus=bus_with("up"))
    assert printed(r) == {"carrier": "Proximus", "modem_up": "1"}
    lookups = [carrier_lookup("206010"), carrier_lookup("20601")]
    # It is detected with all detail, for the command and for the object; then comes the object's own carrier.
    assert [event for event in effects(r) if event in lookups] == lookups * 3
    assert effects(r)[-3:] == [*lookups, status_call()] and effects(r).count(status_call()) == 3


# A modem that misbehaves


@pytest.mark.parametrize("reply", [
    b"\xff" * 3000 + b"\r\nOK\r\n", b"," * 2000 + b"\r\nOK\r\n", b"\0OK\r\n",
    b'\r\n+QCSQ: "LTE"' + b",9" * 500 + b"\r\nOK\r\n",
], ids=lambda reply: repr(reply[:12]))
def test_garbage_gives_a_whole_object(router, reply):
    r = router("ec25", ubus=False)
    for command in ("AT+CIMI", "AT+QCSQ"):
        r.modem().reply(command, reply)
    document = printed(r)
    assert list(document) == WITH_SIGNAL and document["carrier"] == "" and document["signal"] in "01234"


def test_a_modem_that_cannot_be_asked_has_no_fault(router):
    r = router("simcom7600", ubus=bus_with("up"))  # of its ports only the control device is left
    for entry in r.listdir(DEVICE):
        if entry.startswith("1-1.2:") and not entry.endswith(".5"):
            r.remove(f"{DEVICE}/{entry}")
    assert printed(r) == {"carrier": "", "modem_up": "1"}
