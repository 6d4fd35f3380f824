"""/modem/brief_info and /modem/app/brief_info: the two short lists of the configured modems."""

import json

import pytest
from probe_client import run_probe
from router_config import (
    BUSES, EC25_CARRIER, EC25_STATUS, KNOWN_SIMS, NO_DEVICE, QUIET,
    carrier_lookup, effects, exchange, interfaces, keep_imsi, status_call, velaconfig,
)  # fmt: skip
from support import ABORTED, DEVICE, MODELS
from test_cost import assert_nothing_is_left, host
from velasim import Router

BRIEF, APP = "/modem/brief_info", "/modem/app/brief_info"
BOTH = pytest.mark.parametrize("path", [BRIEF, APP])
SERVED = ["up", "SIM_status", "online", "signal_info", "signal", "mode", "newsms"]
UNKNOWN = ["ports", "modem_id", "name", "bus", "mnc", "mcc", "carrier", "up", "newsms"]
CARRIER = ["mnc", "mcc", "carrier"]
UP = {"interfaces": {"modem_1_1_2": "up"}}
STATE = "/tmp/modem.1-1.2"
NO_SIM = "\n+CME ERROR: 10\n"
VERSION_QUERIES = [
    ("shell", "vela_modem AT AT+QGMR | grep EP06"), exchange("AT+QGMR"),
    ("shell", "vela_modem AT AT+QGMR | grep EC25"), exchange("AT+QGMR"),
]


def cached(bus: str = "1-1.2") -> list[tuple]:
    return [("shell", f"cat /tmp/modem.{bus}/modem-imei"),
            ("shell", f"cat /tmp/modem.{bus}/modem-name | xargs echo -n")]


def listed(r: Router, path: str, request: dict | None = None) -> list[dict]:
    status, reply = r.api("get", path, request)
    assert status == 0 and list(reply) == ["modems"]
    return reply["modems"]


def only(r: Router, path: str) -> dict:
    [modem] = listed(r, path)
    return modem


def without_ports(r: Router) -> None:
    for entry in r.listdir(DEVICE):
        if entry.startswith("1-1.2:"):
            r.remove(f"{DEVICE}/{entry}")


# Both: the frame


@BOTH
@pytest.mark.parametrize("config", [
    None, "", velaconfig(), velaconfig(""), velaconfig("", "", "", "1-1.2"), velaconfig(NO_DEVICE),
    velaconfig("1-1.3", "2-1.2", NO_DEVICE, "1-1.2"), velaconfig("..", "/", "*"),
    velaconfig("$(reboot)", ";reboot", "%s%s%s"),
], ids=repr)
def test_without_a_modem_on_the_first_three_buses_of_the_list_it_is_minus_250(router, path, config):
    r = router("ec25", uci={"velaconfig": config})
    assert r.api("get", path) == (-250, {})
    assert r.events == []


@BOTH
def test_without_any_device_it_is_minus_250(router, path):
    r = router(ubus=False, uci={"velaconfig": velaconfig(*BUSES)})
    assert r.api("get", path) == (-250, {}) and r.events == []


@BOTH
@pytest.mark.parametrize("order", [
    ("1-1.2",), ("1-1.2", "1-1.3", "2-1.2"), ("2-1.2", "1-1.3", "1-1.2"), ("", "1-1.2"), ("", "", "2-1.2"),
    ("1-1.3", "", "1-1.2"), (NO_DEVICE, "1-1.2"), ("1-1.2", NO_DEVICE, "1-1.3"), ("1-1.2", "1-1.2", "1-1.2"),
], ids=str)
def test_the_modems_come_in_the_order_of_the_list(router, path, order):
    r = router(modems={"1-1.2": "simcom7600", "1-1.3": "me3630", "2-1.2": "bg95"}, ubus=False,
               uci={"velaconfig": velaconfig(*order)})
    assert [modem["bus"] for modem in listed(r, path)] == [bus for bus in order if bus not in ("", NO_DEVICE)]


@BOTH
def test_a_fourth_bus_is_not_looked_at(router, path):
    r = router(modems={"1-1.2": "simcom7600", "1-1.3": "simcom7600"}, ubus=False,
               uci={"velaconfig": velaconfig("1-1.2", NO_DEVICE, "", "1-1.3")})
    assert [modem["bus"] for modem in listed(r, path)] == ["1-1.2"]
    assert "1-1.3" not in {event[1] for event in effects(r) if event[0] == "at"}


@BOTH
@pytest.mark.parametrize("board", ["quillo", "ostrel3", "soltane", "dravik", "pellin"])
def test_every_board_has_the_short_lists(router, path, board):
    assert only(router("simcom7600", board=board, ubus=False), path)["bus"] == "1-1.2"


@BOTH
def test_whatever_a_request_carries_is_ignored(router, path):
    r = router("simcom7600", ubus=False)
    listed(r, path)  # what is kept from now on, is asked only once
    expected = listed(r, path)
    for request in ({"modem_id": 2}, {"modem_id": 7, "bus": "2-1.2"}, {"bus": 1}, {"modem_id": None}):
        assert listed(r, path, request) == expected


@BOTH
def test_a_bus_of_nine_characters_is_the_longest(router, path):
    r = router(modems={"1-1.2.3.4": "simcom7600"}, ubus=False, uci={"velaconfig": velaconfig("1-1.2.3.4")})
    assert only(r, path)["bus"] == "1-1.2.3.4"
    r.write("/etc/config/velaconfig", velaconfig("1-1.2.3.4", "1-1.2.3.45"))
    r.clear_events()
    assert r.run("vela_api", "get", path, "{}").returncode == ABORTED


@BOTH
def test_passthrough_and_advice_are_not_in_the_short_lists(router, path):
    settings = {"enable": "1", "running": "wwan0", "gateway": "192.168.8.1"}
    r = router("simcom7600", ubus=False, uci={"velaconfig": velaconfig("1-1.2", dev1="40", passthrough=settings)})
    listed(r, path)
    assert 'AT+QENG="servingcell"' not in r.modem().commands and not [c for c in r.commands if "ifconfig" in c]


# Both: one bus, and what it says with debugging on


def told(r: Router, what: str, bus: str = "1-1.2") -> tuple[str, int]:
    """The debug lines before the object, and the modem's id."""
    result = run_probe(r, what, bus)
    assert result.returncode == 0
    return result.stdout[:result.stdout.index("{")], int(result.stdout.rpartition("\nresult ")[2])


@pytest.mark.parametrize("what", ["brief", "app-brief"])
def test_a_bus_without_a_device_is_said_to_have_none(router, what):
    r = router("ec25")
    assert told(r, what, "1-1.3") == ("please insert device\n", -1) and r.events == []
    r.remove(f"{DEVICE}/idVendor")
    assert told(r, what) == ("please insert device\n", -1)


@pytest.mark.parametrize("what, text, result", [("brief", "failed get ports\n", -1), ("app-brief", "", 3)])
def test_missing_ports_are_told_by_the_one_and_no_matter_to_the_other(router, what, text, result):
    r = router("ec25", ubus=False)
    without_ports(r)
    said, modem_id = told(r, what)
    assert said.startswith("vid 2C7C,pid 125\n" + text) and modem_id == result


@pytest.mark.parametrize("what, result", [("brief", -1), ("app-brief", 255)])
def test_a_device_in_no_list_is_found_by_one_only(router, what, result):
    r = router("unknown", ubus=False)
    said, modem_id = told(r, what)
    assert said.startswith("vid 1D0D,pid A1\n") and modem_id == result


@pytest.mark.parametrize("what", ["brief", "app-brief"])
@pytest.mark.parametrize("name", ["ec25", "bg95", "mc7430", "nl678e"])
def test_the_ids_are_told_first(router, what, name):
    said, modem_id = told(router(name, ubus=False), what)
    assert said.startswith(MODELS[name].ids + "\n") and modem_id == MODELS[name].modem_id


# /modem/brief_info


def test_brief_the_whole_reply_for_one_modem(router):
    r = router("ec25")
    assert list(only(r, BRIEF).items()) == [
        ("version", "EC25EFAR06A03M4G_01.005.01.005"), ("name", " EC25EFAR06A03M4G\r"), ("IMEI", "350000000000017"),
        ("bus", "1-1.2")]


def test_brief_what_is_done_for_one_modem_in_its_order(router):
    r = router("ec25")
    listed(r, BRIEF)
    assert effects(r) == [*VERSION_QUERIES, *cached(), exchange("ATI"), exchange("AT+GSN")]
    assert r.read_bytes(f"{STATE}/modem-imei") == b"350000000000017"
    assert r.read_bytes(f"{STATE}/modem-name") == b" EC25EFAR06A03M4G\r\0"


def test_brief_a_second_request_takes_name_and_imei_as_the_shell_prints_them(router):
    r = router("ec25")
    first = only(r, BRIEF)
    r.clear_events()
    # xargs drops the blank before the first word.
    assert only(r, BRIEF) == {**first, "name": "EC25EFAR06A03M4G\r"}
    assert effects(r) == [*VERSION_QUERIES, *cached()]


def test_brief_neither_sim_nor_signal_is_asked(router):
    r = router("ec25")
    listed(r, BRIEF)
    assert {*r.modem().commands} == {"AT+QGMR", "ATI", "AT+GSN"}
    assert not [event for event in effects(r) if event[0] == "ubus"]
    assert not r.exists(f"{STATE}/cimi")


NAMES = {  # by "Model:" or else by "Revision:"
    "ec20": "EC20CEFILGR06A02M1G", "ec25": "EC25EFAR06A03M4G", "ep06": "EP06ELAR03A08M4G", "uc20": "UC20GQCR03A16E1G",
    "ec200t": "EC200TEUHAR05A01M16", "bg95": "BG95M3LAR02A04", "eg91": "EG91EFBR06A04M4G",
    "ec100y": "EC100YCNAAR02A02M16", "mc7430": "MC7430", "simcom7600": "SIMCOM_SIM7600G-H", "me3630": "ME3630",
    "nl678e": "NL678-E",
}
VERSIONS = {"ec25": "EC25EFAR06A03M4G_01.005.01.005", "ep06": "EP06ELAR03A08M4G_01.003.01.003"}


@pytest.mark.parametrize("name", sorted(MODELS))
def test_brief_every_model_is_listed_and_two_have_a_version(router, name):
    r = router(name, ubus=False)
    modem = only(r, BRIEF)
    assert list(modem) == ["version", "name", "IMEI", "bus"]
    assert modem["version"] == VERSIONS.get(name, "")
    assert modem["name"] == f" {NAMES[name]}\r" and len(modem["IMEI"]) == 15
    port = MODELS[name].control_port.removeprefix("/dev/")
    assert [event for event in effects(r) if event[0] == "at"] == [
        exchange(command, port=port) for command in ("AT+QGMR", "AT+QGMR", "ATI", "AT+GSN")]
    assert r.commands == [event[1] for event in (*VERSION_QUERIES, *cached()) if event[0] == "shell"]


@pytest.mark.parametrize("reply, version", [
    ("\nEC25EFA_1.2\n\nOK\n", "EC25EFA_1.2"), ("\nEP06ELA_1.2\n\nOK\n", "EP06ELA_1.2"),
    ("\n  EC25 E-F/A:R(06)+A\t03\n\nOK\n", "EC25EFAR06A03"), ("\nEC25äöü€_.x\n\nOK\n", "EC25_.x"),
    ("\nEC25\x01\x7f_9\n\nOK\n", "EC25_9"), ("\nEC25;$(reboot)`x`\n\nOK\n", "EC25rebootx"),
    ("\nEC25\nEC25.b\n\nOK\n", "EC25EC25.b"), ("\nEC25_and_EP06\n\nOK\n", "EC25_and_EP06"),
    ("\nEC25_2\nEP06_1\n\nOK\n", "EP06_1"), ("\n+QGMR: EC25\n\nOK\n", "QGMREC25"), ("\nEC25\n\nERROR\n", "EC25"),
    ("\nec25\n\nOK\n", ""), ("\nEC 25\n\nOK\n", ""), ("\nEC21\n\nOK\n", ""), ("\nOK\n", ""), ("\nERROR\n", ""),
    ("\nEC25" + "x" * 300 + "\n\nOK\n", "EC25" + "x" * 123),
    ("\n" + "-" * 150 + "EC25\n\nOK\n", ""),
], ids=lambda value: repr(value)[:40])
def test_brief_the_version_is_what_grep_finds_without_odd_characters(router, reply, version):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+QGMR", reply)
    modem = only(r, BRIEF)
    assert list(modem)[0] == "version" and modem["version"] == version


def test_brief_the_version_is_always_that_of_the_modem_on_the_first_bus(router):
    r = router(modems={"1-1.2": "ec25", "1-1.3": "ep06"}, ubus=False, uci={"velaconfig": velaconfig("1-1.3", "1-1.2")})
    assert [modem["version"] for modem in listed(r, BRIEF)] == [VERSIONS["ec25"]] * 2
    queries = [event[1] for event in effects(r) if event[-1] == "AT+QGMR"]
    assert queries == ["1-1.2"] * 4


def test_brief_there_is_no_version_without_a_modem_on_the_first_bus(router):
    r = router(modems={"1-1.3": "ep06"}, ubus=False, uci={"velaconfig": velaconfig("1-1.3")})
    assert only(r, BRIEF) == {"version": "", "name": " EP06ELAR03A08M4G\r", "IMEI": "860000000000025", "bus": "1-1.3"}
    assert effects(r) == [*(event for event in VERSION_QUERIES if event[0] == "shell"), *cached("1-1.3"),
                          exchange("ATI", "1-1.3"), exchange("AT+GSN", "1-1.3")]


def test_brief_a_device_in_no_list_is_left_out(router):
    r = router("unknown")
    assert r.api("get", BRIEF) == (-250, {}) and r.events == []
    r = router(modems={"1-1.2": "unknown", "1-1.3": "ec20"}, ubus=False,
               uci={"velaconfig": velaconfig("1-1.2", "1-1.3")})
    assert only(r, BRIEF)["bus"] == "1-1.3"


@pytest.mark.parametrize("name", ["ec25", "bg95", "mc7430"])
def test_brief_a_modem_whose_ports_are_not_there_yet_is_left_out_and_nothing_is_run(router, name):
    r = router(name)
    without_ports(r)
    assert r.api("get", BRIEF) == (-250, {}) and r.events == []


@pytest.mark.parametrize("missing", ["idVendor", "idProduct"])
def test_brief_a_device_without_its_ids_is_left_out(router, missing):
    r = router("ec25")
    r.remove(f"{DEVICE}/{missing}")
    assert r.api("get", BRIEF) == (-250, {}) and r.events == []


def test_brief_one_port_of_any_kind_makes_a_modem_that_is_named_by_its_row(router):
    r = router("ec25", ubus=False)
    without_ports(r)
    r.host_path(DEVICE).joinpath("1-1.2:1.4", "usbmisc", "cdc-wdm0").mkdir(parents=True)
    assert list(only(r, BRIEF).items()) == [("version", ""), ("name", "EC25"), ("bus", "1-1.2")]
    assert effects(r) == [*(event for event in VERSION_QUERIES if event[0] == "shell"), *cached()]


def test_brief_a_modem_that_does_not_tell_its_identity_is_named_by_its_row(router):
    r = router("ec25", ubus=False)
    for reply in ("\nERROR\n", "\nQuectel\n\nOK\n", "\nRevision:\n\nERROR\n"):
        r.modem().reply("ATI", reply)
        assert only(r, BRIEF)["name"] == "EC25"
    assert not r.exists(f"{STATE}/modem-name")


@pytest.mark.parametrize("name, row", [("bg95", "BG95"), ("simcom7600", "SIMCOM7600"), ("mc7430", "MC7430")])
def test_brief_the_name_of_other_rows(router, name, row):
    r = router(name, ubus=False)
    r.modem().reply("ATI", "\nERROR\n")
    assert only(r, BRIEF)["name"] == row


@pytest.mark.parametrize("reply", ["\nERROR\n", "\n35000000000001\n\nOK\n", "\n350000000000017\n\nERROR\n"], ids=repr)
def test_brief_an_imei_that_is_not_told_is_left_out(router, reply):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+GSN", reply)
    assert list(only(r, BRIEF)) == ["version", "name", "bus"]
    assert not r.exists(f"{STATE}/modem-imei")


@pytest.mark.parametrize("content, name", [
    ("Kept", "Kept"), ("Kept\n", "Kept"), (" Kept\r\n", "Kept\r"), ("two  words", "two words"), ("a\nb\n", "a b"),
    ("Kept\0", "Kept"), (" EC25\r\0", "EC25\r"),
], ids=repr)
def test_brief_a_kept_name_is_taken_as_the_shell_prints_it(router, content, name):
    r = router("ec25", ubus=False, files={f"{STATE}/modem-name": content})
    assert only(r, BRIEF)["name"] == name
    assert "ATI" not in r.modem().commands


@pytest.mark.parametrize("imei", ["860000000000999", "not-an-imei", "1"])
def test_brief_a_kept_imei_is_believed(router, imei):
    r = router("ec25", ubus=False, files={f"{STATE}/modem-imei": imei})
    assert only(r, BRIEF)["IMEI"] == imei
    assert "AT+GSN" not in r.modem().commands and r.exists(f"{STATE}/modem-imei")


def test_brief_an_empty_name_file_is_as_good_as_none_for_the_shell_but_not_for_the_identity(router):
    r = router("ec25", ubus=False, files={f"{STATE}/modem-name": "", f"{STATE}/modem-imei": ""})
    modem = only(r, BRIEF)
    # The identity query succeeds with what its file holds; the number's file is too short and is deleted.
    assert list(modem.items()) == [("version", VERSIONS["ec25"]), ("name", ""), ("bus", "1-1.2")]
    assert not {"ATI", "AT+GSN"} & set(r.modem().commands)
    assert not r.exists(f"{STATE}/modem-imei")
    assert only(r, BRIEF)["IMEI"] == "350000000000017"


def test_brief_each_bus_has_its_own_kept_values(router):
    r = router(modems={"1-1.2": "ec25", "1-1.3": "ec25"}, ubus=False, uci={"velaconfig": velaconfig("1-1.2", "1-1.3")},
               files={"/tmp/modem.1-1.3/modem-name": "third", "/tmp/modem.1-1.3/modem-imei": "860000000000999"})
    one, other = listed(r, BRIEF)
    assert (one["name"], one["IMEI"]) == (" EC25EFAR06A03M4G\r", "350000000000017")
    assert (other["name"], other["IMEI"]) == ("third", "860000000000999")


# /modem/app/brief_info


def test_app_the_whole_reply_for_one_modem(router):
    r = router("ec25", ubus=UP, files={"/var/run/mwan3track/modem_1_1_2/STATUS": "online"})
    r.write("/etc/spool/sms/incoming/VMS99.a", "")
    assert list(only(r, APP).items()) == [
        ("bus", "1-1.2"), ("mnc", "020"), ("mcc", "262"), ("carrier", "Vodafone.de"), ("up", "on"), ("SIM_status", 0),
        ("online", True), ("signal_info", [{"type": "LTE", "rssi": "-80", "rsrp": "-109", "sinr": "18", "rsrq": "-9"}]),
        ("signal", 2), ("mode", "4G"), ("newsms", 1)]


def test_app_what_is_done_for_one_modem_in_its_order(router):
    r = router("ec25", ubus=UP)
    listed(r, APP)
    assert effects(r) == [*EC25_CARRIER, *EC25_STATUS]
    assert r.listdir(STATE) == ["cimi"]
    r.clear_events()
    listed(r, APP)
    assert effects(r) == [*EC25_CARRIER[2:], *EC25_STATUS]


@pytest.mark.parametrize("name", sorted(MODELS))
def test_app_every_model_is_listed_with_carrier_and_status(router, name):
    r = router(name, ubus=False)
    modem = only(r, APP)
    assert list(modem)[:6] == ["bus", *CARRIER, "up", "SIM_status"]
    assert not {"name", "IMEI", "ports", "modem_id", "version", "operators", "hw_version"} & set(modem)
    assert not {"ATI", "AT+GSN", "AT+QGMR"} & set(r.modem().commands)
    assert r.modem().commands[0] == "AT+CIMI"


@pytest.mark.parametrize("cpin, code", [(NO_SIM, -1), ("\n+CPIN: SIM PIN\n\nOK\n", -2),
                                        ("\n+CPIN: SIM PUK\n\nOK\n", -4)], ids=repr)
def test_app_a_sim_at_fault_ends_the_object(router, cpin, code):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CPIN?", cpin)
    modem = only(r, APP)
    assert list(modem) == ["bus", *CARRIER, "up", "SIM_status"] and modem["SIM_status"] == code


def test_app_a_modem_that_is_not_registered(router):
    r = router("ec25", ubus=False)
    for command in ("CREG", "CEREG"):
        r.modem().reply(f"AT+{command}?", f"\n+{command}: 0,2\n\nOK\n")
    modem = only(r, APP)
    assert list(modem) == ["bus", *CARRIER, "up", "SIM_status"] and modem["SIM_status"] == -3


def test_app_without_an_imsi_there_is_only_an_empty_carrier(router):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CIMI", NO_SIM)
    r.modem().reply("AT+CPIN?", NO_SIM)
    assert only(r, APP) == {"bus": "1-1.2", "carrier": "", "up": "off", "SIM_status": -1}
    assert r.commands == []


@pytest.mark.parametrize("name", ["bg95", "ec100y"])
def test_app_two_models_are_believed_while_they_are_enabled(router, name):
    r = router(name, ubus=False)
    r.modem().reply("AT+CPIN?", NO_SIM)
    assert only(r, APP)["SIM_status"] == 0
    r.write("/etc/config/network", interfaces(modem_1_1_2="1"))
    assert only(r, APP)["SIM_status"] == -1


@pytest.mark.parametrize("state, disabled, up", [
    ("up", "0", "on"), ("up", "1", "on"), ("pending", "1", "connecting"), ("down", "0", "connecting"),
    ("down", "1", "off"), ("unknown", "1", "off"),
])
def test_app_whether_it_is_up(router, state, disabled, up):
    r = router("ec25", ubus={"interfaces": {"modem_1_1_2": state}}, uci={"network": interfaces(modem_1_1_2=disabled)})
    assert only(r, APP)["up"] == up


def test_app_an_unknown_device_is_reported_by_its_detection(router):
    r = router("unknown", ubus=UP)
    modem = only(r, APP)
    assert list(modem) == UNKNOWN
    assert sorted(modem.pop("ports")) == ["/dev/ttyACM0", "/dev/ttyACM1"]
    assert modem == {"modem_id": 255, "name": "-", "bus": "1-1.2", "mnc": "010", "mcc": "206", "carrier": "Proximus",
                     "up": "on", "newsms": 0}
    assert effects(r) == [exchange("AT+CIMI", port="ttyACM0"), keep_imsi("206010000000017"), carrier_lookup("206010"),
                          carrier_lookup("20601"), status_call()]


def test_app_an_unknown_device_without_ports_is_left_out(router):
    r = router("unknown")
    without_ports(r)
    assert r.api("get", APP) == (-250, {}) and r.events == []


def test_app_a_known_modem_is_listed_even_before_its_ports_are_there(router):
    r = router("ec25", ubus=False)
    without_ports(r)
    # The registration cannot be asked, which for this dialect means that there is none.
    assert list(only(r, APP).items()) == [("bus", "1-1.2"), ("carrier", ""), ("up", "off"), ("SIM_status", -3)]
    assert r.events == []


@pytest.mark.parametrize("missing", ["idVendor", "idProduct"])
def test_app_a_device_without_its_ids_is_left_out(router, missing):
    r = router("ec25")
    r.remove(f"{DEVICE}/{missing}")
    assert r.api("get", APP) == (-250, {}) and r.events == []


def test_app_known_and_unknown_devices_in_one_list(router):
    r = router(modems={"1-1.2": "unknown", "1-1.3": "simcom7600", "2-1.2": "ec25"}, ubus=False,
               uci={"velaconfig": velaconfig("2-1.2", "1-1.2", "1-1.3")})
    known, unknown, third = listed(r, APP)
    assert list(known) == ["bus", *CARRIER, *SERVED] and known["bus"] == "2-1.2"
    assert list(unknown) == UNKNOWN and unknown["bus"] == "1-1.2"
    assert third["bus"] == "1-1.3" and "signal_info" not in third


def test_app_new_messages_are_counted_by_bus(router):
    r = router(**QUIET, files=KNOWN_SIMS, uci={"velaconfig": velaconfig(*BUSES)})
    for name in ("VMS99.a", "VMS99.b", "VMS98.c"):
        r.write(f"/etc/spool/sms/incoming/{name}", "")
    assert [modem["newsms"] for modem in listed(r, APP)] == [2, 1, 2]


def test_app_with_passthrough_the_address_is_that_of_the_interface(router):
    state = {"interfaces": {"modem_1_1_2": {"state": "up", "ipv4-address": [{"address": "10.1.2.3", "mask": 30}]}}}
    r = router("ec25", ubus=state, uci={"velaconfig": velaconfig("1-1.2", passthrough={"enable": "1"})})
    modem = only(r, APP)
    assert list(modem) == ["bus", *CARRIER, "up", "ip_addr", *SERVED[1:]] and modem["ip_addr"] == "10.1.2.3"


# With a modem that misbehaves, and inside the web server


@BOTH
@pytest.mark.parametrize("reply", [b"\xff" * 3000 + b"\r\nOK\r\n", b"," * 2000 + b"\r\nOK\r\n", b"OK", b"\0OK\r\n"],
                         ids=lambda reply: repr(reply[:12]))
def test_garbage_gives_a_whole_reply(router, path, reply):
    r = router("ec25", ubus=False)
    for command in ("ATI", "AT+GSN", "AT+CIMI", "AT+QGMR", "AT+CPIN?", "AT+CREG?", "AT+CEREG?", "AT+QCSQ"):
        r.modem().reply(command, reply)
    modem = only(r, path)
    assert modem["bus"] == "1-1.2" and json.dumps(modem)
    assert modem["name"] == "EC25" if path == BRIEF else modem["carrier"] == ""


@pytest.mark.shipped
@BOTH
def test_requests_leave_nothing_in_the_host(router, path):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CPIN?", NO_SIM)
    [[first, second, status]] = host(r, ["get", path, {}, 3, 12])
    assert status == 0
    assert_nothing_is_left(first, second, 12)


@pytest.mark.shipped
@BOTH
def test_requests_that_find_no_modem_leave_nothing_in_the_host(router, path):
    r = router(ubus=False, uci={"velaconfig": velaconfig(*BUSES)})
    [[first, second, status]] = host(r, ["get", path, {}, 20, 1000])
    assert status == -250
    assert_nothing_is_left(first, second, 1000)
