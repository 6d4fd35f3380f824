"""The status block of a modem: its members and their order, SIM faults, what changes it; and the detailed report."""

import json

import pytest
from probe_client import probe, run_probe
from support import ABORTED, MODELS
from velasim import Router

BUS = "1-1.2"
OBJECT = "network.interface.modem_1_1_2"
INCOMING = "/etc/spool/sms/incoming"
TRACK = "/var/run/mwan3track/modem_1_1_2/STATUS"
NO_SIM = "\n+CME ERROR: 10\n"
SEARCHING = "\n{}: 0,2\n\nOK\n"
PLAIN = ["up", "SIM_status", "online", "newsms"]
SERVED = ["up", "SIM_status", "online", "signal_info", "signal", "mode", "newsms"]
FAULTY = ["up", "SIM_status"]


def interface(**options: str) -> dict[str, str]:
    lines = "".join(f"\toption {name} '{value}'\n" for name, value in options.items())
    return {"network": f"config interface 'modem_1_1_2'\n{lines}"}


def bus_with(state: object) -> dict:
    return {"interfaces": {"modem_1_1_2": state}}


def status(r: Router, bus: str = BUS) -> dict:
    result, reply = probe(r, "status", bus)
    assert result == 0
    return reply


# The whole block


def test_the_whole_block(router):
    r = router("ec25", ubus=bus_with("up"), uci=interface(proto="qmi"), files={TRACK: "online\n"})
    r.write(f"{INCOMING}/VMS99.a", "")
    reply = status(r)
    assert reply == {
        "up": "on", "SIM_status": 0, "online": True,
        "signal_info": [{"type": "LTE", "rssi": "-80", "rsrp": "-109", "sinr": "18", "rsrq": "-9"}],
        "signal": 2, "mode": "4G", "newsms": 1}
    assert list(reply) == SERVED
    assert r.modem().commands == ["AT+CPIN?", "AT+CREG?", "AT+QCSQ"]
    assert [event for event in r.events if event["kind"] == "ubus"] == [
        {"kind": "ubus", "object": OBJECT, "method": "status", "args": {}}]
    assert r.commands == []


def test_the_block_with_a_network_device(router):
    r = router("ec25", ubus=bus_with({"state": "up", "l3_device": "lo"}), net=True)
    reply = status(r)
    assert list(reply)[0] == "up" and list(reply)[5:] == SERVED[1:]
    assert set(list(reply)[1:5]) == {"ip_addr", "gateway", "download", "upload"}
    assert reply["ip_addr"] == "127.0.0.1"


@pytest.mark.parametrize("name, level", [("simcom7600", 2), ("me3630", 3)])
def test_models_that_know_only_csq_take_the_mode_from_their_own_query(router, name, level):
    r = router(name, ubus=False)
    reply = status(r)
    assert list(reply) == ["up", "SIM_status", "online", "signal", "mode", "newsms"]
    assert (reply["signal"], reply["mode"]) == (level, "4G")
    assert r.modem().commands[-2] == "AT+CSQ"


def test_a_signal_file_comes_before_csq(router):
    r = router("simcom7600", ubus=False, files={f"/tmp/modem.{BUS}/signal": '{"type": "gsm", "signal": -75}'})
    reply = status(r)
    assert (reply["signal"], reply["mode"]) == (3, "2G")
    assert not {"AT+CSQ", "AT+CNSMOD?"} & set(r.modem().commands)
    r.write(f"/tmp/modem.{BUS}/signal", "nix")
    assert list(status(r)) == PLAIN
    assert not {"AT+CSQ", "AT+CNSMOD?"} & set(r.modem().commands)


@pytest.mark.parametrize("csq", ["99", "0", "1"])
def test_without_a_level_there_is_neither_signal_nor_mode(router, csq):
    r = router("simcom7600", ubus=False)
    r.modem().reply("AT+CSQ", f"\n+CSQ: {csq},99\n\nOK\n")
    assert list(status(r)) == PLAIN and "AT+CNSMOD?" not in r.modem().commands


def test_a_level_without_a_mode(router):
    r = router("simcom7600", ubus=False)
    r.modem().reply("AT+CSQ", "\n+CSQ: 31,99\n\nOK\n")
    r.modem().reply("AT+CNSMOD?", "\n+CNSMOD: 0,0\n\nOK\n")
    reply = status(r)
    assert (reply["signal"], reply["mode"]) == (4, "")


@pytest.mark.parametrize("line", ['"NOSERVICE"', '"eMTC",-53,-80,165,-12'])
def test_a_report_of_no_service_is_there_but_empty(router, line):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+QCSQ", f"\n+QCSQ: {line}\n\nOK\n")
    reply = status(r)
    assert list(reply) == ["up", "SIM_status", "online", "signal_info", "newsms"] and reply["signal_info"] == []


@pytest.mark.parametrize("line, mode", [('"LTE",60,-85,200,-9', "4G"), ('"WCDMA",70,-61,-1', "3G"), ('"GSM",81', "2G")])
def test_the_generation_of_a_report(router, line, mode):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+QCSQ", f"\n+QCSQ: {line}\n\nOK\n")
    assert status(r)["mode"] == mode


def test_an_aggregated_carrier_is_4g_plus(router):
    r = router("ep06", ubus=False)
    r.modem().reply("AT+CREG?", "\n+CREG: 0,1\n\nOK\n")
    reply = status(r)
    assert (reply["signal"], reply["mode"]) == (3, "4G+")
    assert r.modem().commands[-2:] == ['AT+QENG="servingcell"', "AT+QCAINFO"]
    for text, mode in (
        ('\n+QCAINFO: "pcc",3350\n+QCAINFO: "scc",1500\n\nOK\n', "4G+"), ('\n+QCAINFO: "pss",3350\n\nOK\n', "4G"),
        ('\n+QCAINFO: "sss",3350\n\nOK\n', "4G"), ("\nERROR\n", "4G"),
    ):
        r.modem().reply("AT+QCAINFO", text)
        assert status(r)["mode"] == mode


# "up"


@pytest.mark.parametrize("state, options, up", [
    ("up", {"proto": "qmi"}, "on"), ("up", {"proto": "qmi", "disabled": "1"}, "on"), ("up", {}, "on"),
    ("pending", {"proto": "qmi"}, "connecting"), ("pending", {"disabled": "1"}, "connecting"),
    ("down", {"proto": "qmi"}, "connecting"), ("down", {"proto": "qmi", "disabled": "1"}, "off"),
    ("down", {"proto": "qmi", "disabled": "0"}, "connecting"), ("down", {}, "off"), ("down", {"disabled": "1"}, "off"),
    ("down", {"proto": "3g", "disabled": "11"}, "connecting"), ("down", {"proto": "3g", "disabled": ""}, "connecting"),
    ("unknown", {"proto": "qmi"}, "connecting"), ("unknown", {}, "off"), ("unknown", {"disabled": "1"}, "off"),
    (None, {"proto": "qmi"}, "connecting"), (None, {}, "off"), (None, {"proto": "qmi", "disabled": "1"}, "off"),
], ids=str)
def test_up(router, state, options, up):
    r = router("ec25", ubus=False if state is None else bus_with(state), uci=interface(**options))
    reply = status(r)
    assert list(reply) == SERVED and reply["up"] == up


def test_up_without_any_configuration(router):
    r = router("ec25", ubus=False, uci={"network": None, "velaconfig": None, "velamodem": None})
    reply = status(r)
    assert list(reply) == SERVED and reply["up"] == "off"


def test_with_passthrough_the_address_is_that_of_the_interface(router):
    state = {"state": "up", "ipv4-address": [{"address": "10.1.2.3", "mask": 30}]}
    uci = {**interface(proto="qmi"), "velaconfig": "config passthrough 'passthrough'\n\toption enable '1'\n"}
    r = router("ec25", ubus=bus_with(state), uci=uci)
    reply = status(r)
    assert list(reply) == ["up", "ip_addr", *SERVED[1:]] and (reply["up"], reply["ip_addr"]) == ("on", "10.1.2.3")
    r.set_ubus_state(bus_with("up"))
    reply = status(r)
    assert list(reply) == SERVED and reply["up"] == "connecting"  # neither it nor its companion has an address


@pytest.mark.parametrize("enable", ["0", "", "on", "true", "11", "yes"])
def test_passthrough_is_on_only_when_it_is_1(router, enable):
    state = {"state": "up", "ipv4-address": [{"address": "10.1.2.3"}]}
    uci = {"velaconfig": f"config passthrough 'passthrough'\n\toption enable '{enable}'\n"}
    assert list(status(router("ec25", ubus=bus_with(state), uci=uci))) == SERVED


# SIM and registration


@pytest.mark.parametrize("cpin, code, text", [
    ("\n+CPIN: SIM PIN\n\nOK\n", -2, "PIN_SIM"), ("\n+CPIN: PH-SIM PIN\n\nOK\n", -2, "PIN_SIM"),
    ("\n+CPIN: SIM PUK\n\nOK\n", -4, "PUK_SIM"), ("\n+CPIN: PH-NET PUK\n\nOK\n", -4, "PUK_SIM"),
    (NO_SIM, -1, "NO_SIM"), ("\nERROR\n", -1, "NO_SIM"), ("\n+CME ERROR: SIM not inserted\n", -1, "NO_SIM"),
    ("\n+CPIN: SIM PIN\n\nERROR\n", -1, "NO_SIM"),
    ("\n+CPIN: SIM PIN2\n\nOK\n", 0, "READY"), ("\n+CPIN: NOT READY\n\nOK\n", 0, "READY"), ("\nOK\n", 0, "READY"),
], ids=repr)
@pytest.mark.parametrize("name", ["ec25", "simcom7600", "bg95"])
def test_sim_faults(router, name, cpin, code, text):
    r = router(name, ubus=False, uci=interface(disabled="1"))
    r.modem().reply("AT+CPIN?", cpin)
    reply = status(r)
    assert reply["SIM_status"] == code and (list(reply) == FAULTY) == (code != 0)
    assert r.modem().commands[:1] == ["AT+CPIN?"] and (code == 0 or len(r.modem().commands) == 1)
    assert r.run("vela_modem", "sim-status").stdout == text


@pytest.mark.parametrize("creg, cereg, code", [
    ("0,1", "0,2", 0), ("0,5", "0,2", 0), ("0,2", "0,1", 0), ("0,3", "0,5", 0),
    ("0,2", "0,2", -3), ("0,0", "0,0", -3), ("0,3", "0,4", -3), ('2,1,"A1","B2",7', '2,1,"A1","B2",7', -3),
])
def test_registration_by_either_network(router, creg, cereg, code):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CREG?", f"\n+CREG: {creg}\n\nOK\n")
    r.modem().reply("AT+CEREG?", f"\n+CEREG: {cereg}\n\nOK\n")
    reply = status(r)
    assert reply["SIM_status"] == code and list(reply) == (SERVED if code == 0 else FAULTY)
    assert r.run("vela_modem", "sim-status").stdout == ("READY" if code == 0 else "NO_REG")
    assert r.run("vela_modem", "check_register").stdout == f"check_register={0 if code == 0 else -1}\n"


def test_a_refused_registration_query_counts_as_not_registered_for_this_dialect(router):
    r = router("ec25", ubus=False)
    for command in ("AT+CREG?", "AT+CEREG?"):
        r.modem().reply(command, "\nERROR\n")
    assert status(r)["SIM_status"] == -3


@pytest.mark.parametrize("name", ["simcom7600", "me3630"])
@pytest.mark.parametrize("reply, code", [
    ("\n+CREG: 0,1\n\nOK\n", 0), ("\n+CREG: 0,5\n\nOK\n", 0), ("\n+CREG: 0,2\n\nOK\n", -1),
    ("\n+CREG: 0,0\n\nOK\n", -1),
    ('\n+CREG: 2,1,"A1","B2"\n\nOK\n', -1), ("\nERROR\n", 0), ("\n+CREG: 0,2\n\nERROR\n", 0),
])
def test_the_plain_registration_query_is_lenient(router, name, reply, code):
    r = router(name, ubus=False)
    r.modem().reply("AT+CREG?", reply)
    assert r.run("vela_modem", "check_register").stdout == f"check_register={code}\n"
    assert r.run("vela_modem", "sim-status").stdout == ("READY" if code == 0 else "NO_REG")
    assert "AT+CEREG?" not in r.modem().commands


@pytest.mark.parametrize("line, result", [
    ("+CREG: 0,1", 1), ('+CREG: 2,5,"A1B2","00C3D4E5",7', 5), ("+CREG: 0,0", 0), ("+CREG: 0,9", 9), ("+CREG: 1", -1),
    ("+CREG: ,x,3", 3), ('+CREG: ,"a",4', 4), ("+CREG:", -1), ("+CREG: 0,", -1), ("+CREG: 0,-1", -1), ("", -1),
    ("x\n,7", -1), ("+CREG: 0,12", 1),
])
def test_registration_by_the_number_of_the_tty(router, line, result):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CREG?", f"\n{line}\n\nOK\n")
    assert probe(r, "register", "2") == (result, {})
    assert r.events == [{"kind": "at", "bus": BUS, "port": "ttyUSB2", "command": "AT+CREG?"}]


@pytest.mark.parametrize("tty", ["9", "-1", "2147483647", "-2147483648"])
def test_registration_by_a_tty_that_is_not_there(router, tty):
    r = router("ec25", ubus=False)
    result = r.run(str(r.build / "tests/router/probe"), "register", tty)
    # The longest name that fits is /dev/ttyUSB9999.
    assert result.returncode == (0 if len(tty) <= 4 else -6)
    assert result.returncode or result.stdout.endswith("result -1\n")


@pytest.mark.parametrize("reply", ["\nERROR\n", "\n+CREG: 0,1\n\nERROR\n"])
def test_registration_that_is_refused(router, reply):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CREG?", reply)
    assert probe(r, "register", "2")[0] == -1


# Two models that are believed as long as they are enabled


@pytest.mark.parametrize("name", ["bg95", "ec100y"])
@pytest.mark.parametrize("options", [{"proto": "3g"}, {"proto": "3g", "disabled": "0"}, {}], ids=str)
def test_these_models_have_no_fault_while_they_are_enabled(router, name, options):
    r = router(name, ubus=False, uci=interface(**options))
    r.modem().reply("AT+CPIN?", NO_SIM)
    reply = status(r)
    assert reply["SIM_status"] == 0 and "online" in reply and "newsms" in reply
    assert not {"AT+CPIN?", "AT+CREG?"} & set(r.modem().commands)
    assert r.run("vela_modem", "sim-status").stdout == "NO_SIM"  # the command always asks


@pytest.mark.parametrize("name", ["bg95", "ec100y"])
def test_these_models_are_asked_while_they_are_disabled(router, name):
    r = router(name, ubus=False, uci=interface(proto="3g", disabled="1"))
    r.modem().reply("AT+CREG?", SEARCHING.format("+CREG"))
    r.modem().reply("AT+CEREG?", SEARCHING.format("+CEREG"))
    assert status(r) == {"up": "off", "SIM_status": -3}
    r.modem().reply("AT+CPIN?", NO_SIM)
    assert status(r) == {"up": "off", "SIM_status": -1}


@pytest.mark.parametrize("name", sorted({*MODELS} - {"bg95", "ec100y"}))
def test_all_others_are_asked_always(router, name):
    r = router(name, ubus=False, uci=interface(proto="qmi"))
    r.modem().reply("AT+CPIN?", NO_SIM)
    assert status(r) == {"up": "connecting", "SIM_status": -1}


# The unknown device


def test_an_unknown_device_has_only_the_interface_and_the_messages(router):
    r = router("unknown", ubus=bus_with("up"), files={TRACK: "online", f"{INCOMING}/VMS99.a": ""})
    r.modem().reply("AT+CPIN?", NO_SIM)
    reply = status(r)
    assert list(reply.items()) == [("up", "on"), ("newsms", 1)]
    assert r.modem().commands == ["AT+CIMI"]  # for the carrier, by detection
    r.set_ubus_state({})
    assert status(r) == {"up": "off", "newsms": 1}


def test_detection_of_an_unknown_device_reports_its_status(router):
    r = router("unknown", ubus=bus_with("pending"))
    result, reply = probe(r, "detect", BUS)
    assert result == 255
    assert list(reply) == ["ports", "modem_id", "name", "bus", "mnc", "mcc", "carrier", "up", "newsms"]
    assert (reply["up"], reply["carrier"]) == ("connecting", "Proximus")


# "online" and "newsms"


@pytest.mark.parametrize("content, online", [
    ("online", True), ("online\n", True), ("offline", False), ("offline\n", False), ("", False), ("ONLINE", False),
    ("notonline", True), ("onlin", False), ("0123456789online", True), ("01234567890online", False),
    ("x" * 1000 + "online", False), ("online" + "x" * 100000, True), (b"\xff\xfeonline", True),
], ids=lambda value: repr(value)[:24])
def test_online_is_what_the_tracker_wrote(router, content, online):
    r = router("ec25", ubus=False, files={TRACK: content})
    assert status(r)["online"] is online


def test_online_of_nothing_of_another_interface_and_of_a_directory(router):
    r = router("ec25", ubus=False, files={"/var/run/mwan3track/modem_1_1_3/STATUS": "online"})
    assert status(r)["online"] is False
    r.write(f"{TRACK}/online", "online")
    assert status(r)["online"] is False


def test_new_messages_are_counted_by_bus(router):
    r = router(modems={"1-1.2": "ec25", "1-1.3": "ec20", "2-1.2": "eg91"}, ubus=False)
    for name in ("VMS99.a", "VMS99.b", "xVMS99.c", "VMS98.d", "VMS97.e", "VMS99", "vms99.f"):
        r.write(f"{INCOMING}/{name}", "")
    r.write("/etc/spool/sms/storage/VMS99.g", "")
    assert [status(r, bus)["newsms"] for bus in ("1-1.2", "1-1.3", "2-1.2")] == [3, 1, 3]
    r.remove(INCOMING)
    assert [status(r, bus)["newsms"] for bus in ("1-1.2", "1-1.3")] == [0, 0]


# Whether it is disabled


@pytest.mark.parametrize("options, result", [
    ({"disabled": "1"}, 1), ({"disabled": "0"}, 0), ({"disabled": ""}, 0), ({"disabled": "11"}, 0),
    ({"disabled": "true"}, 0), ({"proto": "qmi"}, 0), ({}, 0),
], ids=str)
def test_disabled(router, options, result):
    r = router(ubus=False, uci=interface(**options))
    assert probe(r, "disabled", BUS) == (result, {})
    assert probe(r, "disabled", "1-1.3") == (0, {})
    assert r.events == []


def test_disabled_of_the_longest_bus(router):
    # The section's name has room for 19 characters.
    uci = {"network": "config interface 'modem_1_1_2_3_4_5_6'\n\toption disabled '1'\n"}
    r = router(ubus=False, uci=uci)
    assert probe(r, "disabled", "1-1.2.3.4.5.6") == (1, {})
    assert run_probe(r, "disabled", "1-1.2.3.4.5.67").returncode == ABORTED


def test_disabled_without_a_configuration(router):
    r = router(ubus=False, uci={"network": None})
    assert probe(r, "disabled", BUS)[0] == 0
    r.write("/etc/config/network", b"\xff\0config '")
    assert probe(r, "disabled", BUS)[0] == 0


# The detailed report, and the board that tells its hardware

DETAIL = ["ports", "modem_id", "data_port", "control_port", "qmi_port", "name", "IMEI", "bus", "hw_version", "sim_num",
          "mnc", "mcc", "carrier", *SERVED, "operators"]
READ_9C = """hexdump -v -n 1 -s $((0x9c)) -e '1/1 "%x"' /dev/mtd2"""
READ_9D = """hexdump -v -n 1 -s $((0x9d)) -e '1/1 "%x"' /dev/mtd2"""


def test_the_detailed_report(router):
    r = router("ec25", ubus=bus_with("up"), files={TRACK: "online"})
    result, reply = probe(r, "detect", BUS)
    assert result == 3 and list(reply) == DETAIL
    assert (reply["bus"], reply["hw_version"], reply["sim_num"], reply["operators"]) == (BUS, "", "", ["Visible"])


def test_the_detailed_report_of_a_faulty_sim_stops_the_status_only(router):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CPIN?", NO_SIM)
    keys = list(probe(r, "detect", BUS)[1])
    assert keys == [key for key in DETAIL if key not in SERVED[2:]]


def halvor(router, first: str | None, second: str | None, bus: str = "2-1.2", **options: object) -> tuple[dict, Router]:
    """A board whose flash holds these bytes as hexdump prints them; None: nothing."""
    r = router(modems={bus: "ec25"}, ubus=False, **{"board": "halvor", **options})
    r.answer("hexdump", f"#!/bin/dash\ncase \"$*\" in *'-s 156 -e'*) printf '{first or ''}';; "
                        f"*'-s 157 -e'*) printf '{second or ''}';; esac\n", executable=True)
    return probe(r, "detect", bus)[1], r


@pytest.mark.parametrize("first, second, version, asked", [
    ("53", "31", "VELA-HALVOR-S", [READ_9C]), ("44", "31", "VELA-HALVOR-D1", [READ_9C, READ_9D]),
    ("44", "32", "VELA-HALVOR-D2", [READ_9C, READ_9D]), ("ff", "ff", "VELA-HALVOR-D2", [READ_9C, READ_9D]),
    (None, None, "VELA-HALVOR-D2", [READ_9C, READ_9D]), ("5", "3", "VELA-HALVOR-D2", [READ_9C, READ_9D]),
    ("533", "311", "VELA-HALVOR-D2", [READ_9C, READ_9D]),
    ("x" * 5000, "x" * 5000, "VELA-HALVOR-D2", [READ_9C, READ_9D]),
], ids=lambda value: str(value)[:20])
def test_the_hardware_of_a_halvor(router, first, second, version, asked):
    reply, r = halvor(router, first, second)
    assert (reply["hw_version"], reply["sim_num"]) == (version, "1")
    assert [command for command in r.commands if "hexdump" in command] == asked
    assert r.programs == [
        ["hexdump", "-v", "-n", "1", "-s", offset, "-e", '1/1 "%x"', "/dev/mtd2"] for offset in ("156", "157")
    ][:len(asked)]


@pytest.mark.parametrize("options", [{"bus": "1-1.2"}, {"board": "pellin"}, {"board": "halvor2"}, {"board": "xhalvor"}],
                         ids=str)
def test_other_boards_and_buses_tell_nothing(router, options):
    reply, r = halvor(router, "53", "31", **options)
    assert (reply["hw_version"], reply["sim_num"]) == ("", "") and r.programs == []
    assert not [command for command in r.commands if "hexdump" in command]


@pytest.mark.parametrize("text, number", [
    ("config sim 'sim'\n\toption sim_num '2'\n", "2"), ("config sim 'sim'\n\toption sim_num '1'\n", "1"),
    ("config sim 'sim'\n\toption sim_num '3'\n", "1"), ("config sim 'sim'\n\toption sim_num '22'\n", "1"),
    ("config sim 'sim'\n\toption sim_num ''\n", "1"), ("config sim 'sim'\n", "1"), ("", "1"), (None, "1"),
], ids=repr)
def test_the_sim_slots_of_a_halvor(router, text, number):
    assert halvor(router, "53", "31", uci={"velamodem": text})[0]["sim_num"] == number


# A modem that misbehaves


def test_unasked_lines_do_not_change_it(router):
    r = router("ec25", ubus=False)
    before = status(r)
    r.modem().misbehave("unsolicited", where="before", text="\n+QIND: SMS DONE\n")
    assert status(r) == before


@pytest.mark.parametrize("reply", [
    b"\xff" * 3000 + b"\r\nOK\r\n", b"," * 2000 + b"\r\nOK\r\n", b"\r\n+QCSQ: \r\nOK\r\n",
    b'\r\n+QCSQ: "LTE"' + b",9" * 500 + b"\r\nOK\r\n", b"OK",
], ids=lambda reply: repr(reply[:12]))
def test_garbage_gives_a_block_that_is_whole(router, reply):
    r = router("ec25", ubus=False)
    for command in ("AT+CPIN?", "AT+CREG?", "AT+CEREG?", "AT+QCSQ"):
        r.modem().reply(command, reply)
    assert list(status(r))[:2] == FAULTY
    assert json.dumps(status(r))
