"""/modem/info: the whole view of all modems, with the passthrough settings and the advice on the Wi-Fi channel."""

import itertools
import json

import pytest
from router_config import (
    BUSES, EC25_CARRIER, EC25_STATUS, KNOWN_SIMS, NO_DEVICE, QUIET, SERVING,
    effects, exchange, interface_of, interfaces, serving_lte, velaconfig, wireless,
)  # fmt: skip
from support import ABORTED, DEVICE, MODELS, traced
from test_cost import assert_nothing_is_left, host
from velasim import Router

PATH = "/modem/info"
SERVED = ["up", "SIM_status", "online", "signal_info", "signal", "mode", "newsms"]
MODEM = ["ports", "modem_id", "data_port", "control_port", "qmi_port", "name", "IMEI", "bus", "hw_version", "sim_num",
         "mnc", "mcc", "carrier", *SERVED, "operators"]
UNKNOWN = ["ports", "modem_id", "name", "bus", "mnc", "mcc", "carrier", "up", "newsms"]
BRIEF = ["passthrough", "hint_modify_wifi_channel", "modems"]
WITH_PASSTHROUGH = ["passthrough", "gateway", "netmask", "subnet", "pass_dns", "hint_modify_wifi_channel", "modems"]
EC25_IDENTITY = [exchange("ATI"), exchange("AT+GSN")]
UP = {"interfaces": {"modem_1_1_2": "up"}}


def info(r: Router, request: dict | None = None) -> dict:
    status, reply = r.api("get", PATH, request)
    assert status == 0
    return reply


def buses_of(reply: dict) -> list[str]:
    return [modem["bus"] for modem in reply["modems"]]


# The whole reply, and what is done for it


def test_the_whole_reply_for_one_modem(router):
    r = router("ec25", ubus=UP, files={"/var/run/mwan3track/modem_1_1_2/STATUS": "online\n"})
    reply = info(r)
    assert list(reply) == BRIEF
    assert (reply["passthrough"], reply["hint_modify_wifi_channel"]) == (False, 0)
    [modem] = reply["modems"]
    assert list(modem) == MODEM
    assert sorted(modem.pop("ports")) == sorted(MODELS["ec25"].ports)
    assert modem == {
        "modem_id": 3, "data_port": "/dev/ttyUSB3", "control_port": "/dev/ttyUSB2", "qmi_port": "/dev/cdc-wdm0",
        "name": " EC25EFAR06A03M4G\r", "IMEI": "350000000000017", "bus": "1-1.2", "hw_version": "", "sim_num": "",
        "mnc": "020", "mcc": "262", "carrier": "Vodafone.de", "up": "on", "SIM_status": 0, "online": True,
        "signal_info": [{"type": "LTE", "rssi": "-80", "rsrp": "-109", "sinr": "18", "rsrq": "-9"}],
        "signal": 2, "mode": "4G", "newsms": 0, "operators": ["Visible"]}


def test_the_types_in_the_reply(router):
    r = router("ec25", ubus=False)
    text = r.run("vela_api", "get", PATH, "{}").stdout
    assert text.startswith('{\n  "passthrough":false,\n  "hint_modify_wifi_channel":0,\n  "modems":[\n')


def test_what_is_done_for_one_modem_in_its_order(router):
    r = router("ec25", ubus=UP)
    info(r)
    assert effects(r) == [*EC25_IDENTITY, *EC25_CARRIER, *EC25_STATUS, exchange(SERVING)]


def test_a_second_request_asks_only_what_is_not_kept(router):
    r = router("ec25", ubus=UP)
    first = info(r)
    r.clear_events()
    assert info(r) == first
    assert effects(r) == [*EC25_CARRIER[2:], *EC25_STATUS, exchange(SERVING)]


def test_the_passthrough_settings_come_before_the_modems(router):
    passthrough = {"enable": "1", "running": "modem_1_1_2", "gateway": "192.168.8.1"}
    r = router("ec25", ubus=UP, uci={"velaconfig": velaconfig("1-1.2", passthrough=passthrough, dev1="3")})
    r.stand_in("/sbin/ifconfig")
    r.answer("ifconfig", "inet addr:192.168.8.1\n")
    info(r)
    done = effects(r)
    assert done[:2] == [("shell", "ifconfig br-lan | grep 192.168.8.1"), ("program", "ifconfig", "br-lan")]
    assert done[2:4] == EC25_IDENTITY and exchange(SERVING) not in done


def test_requests_carry_nothing_and_whatever_they_carry_is_ignored(router):
    r = router("ec25", ubus=False)
    expected = info(r)
    for request in ({"modem_id": 2}, {"modem_id": 7, "bus": "2-1.2"}, {"bus": 1}, {"modem_id": None}, {"modems": []}):
        assert info(r, request) == expected


@pytest.mark.parametrize("name", sorted(MODELS))
def test_each_model_is_listed_and_its_band_is_asked_last_on_its_own_port(router, name):
    r = router(name, ubus=False)
    [modem] = info(r)["modems"]
    assert (modem["modem_id"], modem["bus"]) == (MODELS[name].modem_id, "1-1.2")
    assert (modem["control_port"], modem["data_port"]) == (MODELS[name].control_port, MODELS[name].data_port)
    assert modem.get("qmi_port") == MODELS[name].qmi_port
    port = MODELS[name].control_port.removeprefix("/dev/")
    assert effects(r)[-1] == exchange(SERVING, port=port)


def test_a_device_that_is_in_no_list(router):
    r = router("unknown", ubus=False)
    [modem] = info(r)["modems"]
    assert list(modem) == UNKNOWN
    assert (modem["modem_id"], modem["name"], modem["bus"], modem["carrier"]) == (255, "-", "1-1.2", "Proximus")
    assert [event for event in effects(r) if event[0] == "at"] == [
        exchange("AT+CIMI", port="ttyACM0"), exchange(SERVING, port="ttyACM0")]


@pytest.mark.parametrize("cpin, code", [("\n+CME ERROR: 10\n", -1), ("\n+CPIN: SIM PIN\n\nOK\n", -2),
                                        ("\n+CPIN: SIM PUK\n\nOK\n", -4)], ids=repr)
def test_a_modem_whose_sim_is_at_fault_is_listed_and_its_band_is_read(router, cpin, code):
    r = router("ec25", ubus=False, uci={"wireless": wireless("radio0", channel="1")})
    r.modem().reply("AT+CPIN?", cpin)
    r.modem().reply(SERVING, serving_lte(40))
    reply = info(r)
    [modem] = reply["modems"]
    assert list(modem) == [key for key in MODEM if key not in SERVED[2:]] and modem["SIM_status"] == code
    assert reply["hint_modify_wifi_channel"] == 11


def test_a_modem_that_does_not_tell_who_it_is_is_named_by_its_row(router):
    r = router("ec25", ubus=False)
    for command in ("ATI", "AT+GSN", "AT+CIMI"):
        r.modem().reply(command, "\nERROR\n")
    [modem] = info(r)["modems"]
    assert modem["name"] == "EC25" and modem["carrier"] == ""
    assert list(modem) == [key for key in MODEM if key not in ("IMEI", "mnc", "mcc")]


def test_a_sim_with_an_apn_of_its_own(router):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CIMI", "\n311480000000017\n\nOK\n")
    [modem] = info(r)["modems"]
    assert list(modem)[-2:] == ["apns", "operators"] and modem["apns"] == ["vzwinternet"]


# Boards


@pytest.mark.parametrize("board", ["quillo", "ostrel3", "soltane"])
def test_three_boards_answer_minus_17_and_do_nothing(router, board):
    r = router("ec25", board=board)
    assert r.api("get", PATH) == (-17, {})
    assert r.events == []


@pytest.mark.parametrize("board, reads", [("quillo", False), ("ostrel3", False), ("soltane", False), ("pellin", True)])
def test_three_boards_do_not_even_read_the_configuration(router, board, reads):
    r = router("ec25", board=board, ubus=False)
    result, lines = traced(r, ["vela_api", "get", PATH, "{}"], "trace=open,openat,openat2", device=None)
    assert f"status {0 if reads else -17}\n" in result.stderr
    assert [line for line in lines if "board_name" in line]
    for place in ("/etc/config/velaconfig", "/etc/config/network", "/etc/config/wireless", "/sys/devices"):
        assert bool([line for line in lines if place in line]) == reads


@pytest.mark.parametrize("board", ["dravik", "tamber", "pellin", "halvor", "ostrel", "ostrel2", "ostrel33", "quillo2",
                                   "xquillo", "soltane2", "no-such-board"])
def test_all_other_boards_answer(router, board):
    reply = info(router("unknown", board=board, ubus=False, files=KNOWN_SIMS))
    assert list(reply) == BRIEF and buses_of(reply) == ["1-1.2"]


# No modem


@pytest.mark.parametrize("config", [
    None, "", "config service 'modem'\n", velaconfig(""), velaconfig("", "", ""), velaconfig(NO_DEVICE),
    velaconfig("1-1.3", "2-1.2"), velaconfig("", "", "", "1-1.2"),
    velaconfig("..", "/", "*"), velaconfig("$(reboot)", ";reboot", "%s%s%s"),
    "config service 'other'\n\tlist bus '1-1.2'\n",
], ids=repr)
def test_without_a_modem_on_the_first_three_buses_of_the_list_it_is_minus_250(router, config):
    r = router("ec25", ubus=False, uci={"velaconfig": config})
    assert r.api("get", PATH) == (-250, {"passthrough": False})
    assert r.events == []


def test_without_a_modem_nothing_is_added_behind_the_passthrough_settings(router):
    passthrough = {"enable": "1", "running": "wwan0", "gateway": "192.168.8.1", "netmask": "255.255.255.0"}
    r = router(ubus=False, uci={"velaconfig": velaconfig("1-1.2", passthrough=passthrough)})
    status, reply = r.api("get", PATH)
    assert status == -250 and list(reply) == WITH_PASSTHROUGH[:5]


@pytest.mark.parametrize("name", ["ec25", "unknown"])
def test_a_modem_whose_ports_are_not_there_yet_is_none(router, name):
    r = router(name, ubus=False)
    for entry in r.listdir(DEVICE):
        if entry.startswith("1-1.2:"):
            r.remove(f"{DEVICE}/{entry}")
    assert r.api("get", PATH)[0] == -250
    assert r.events == []


# Passthrough


def passthrough(router, options: dict[str, str | None], ifconfig: str | None = None) -> tuple[dict, Router]:
    uci = {"velaconfig": velaconfig("1-1.2", passthrough=options, dev1="3")}
    r = router("unknown", ubus=False, uci=uci, files=KNOWN_SIMS)
    r.stand_in("/sbin/ifconfig")
    if ifconfig is not None:
        r.answer("ifconfig", ifconfig)
    return info(r), r


SETTINGS = {"gateway": "192.168.8.1", "netmask": "255.255.255.0", "subnet": "192.168.8.0", "dns": "10.0.0.1,1.1.1.1"}
IFCONFIG = "br-lan    Link encap:Ethernet\n          inet addr:192.168.8.1  Bcast:192.168.8.255\n"


@pytest.mark.parametrize("running", ["modem_1_1_2", "wwan0", "eth0", "eth11", "xeth1", "pppoe-wan2", "pppoe", "1"])
def test_passthrough_is_active_while_it_is_enabled_and_runs_over_anything_but_the_wired_uplinks(router, running):
    reply, r = passthrough(router, {**SETTINGS, "enable": "1", "running": running}, IFCONFIG)
    assert list(reply) == WITH_PASSTHROUGH
    assert {key: reply[key] for key in WITH_PASSTHROUGH[:5]} == {
        "passthrough": True, "gateway": "192.168.8.1", "netmask": "255.255.255.0", "subnet": "192.168.8.0",
        "pass_dns": ["1.1.1.1"]}
    assert effects(r)[:2] == [("shell", "ifconfig br-lan | grep 192.168.8.1"), ("program", "ifconfig", "br-lan")]


@pytest.mark.parametrize("enable", ["1", "0", None])
@pytest.mark.parametrize("running", ["eth1", "pppoe-wan", "", None])
def test_passthrough_is_inactive_while_it_runs_over_a_wired_uplink_or_over_nothing(router, enable, running):
    reply, r = passthrough(router, {**SETTINGS, "enable": enable, "running": running}, IFCONFIG)
    assert list(reply) == BRIEF and reply["passthrough"] is False
    assert not [command for command in r.commands if "ifconfig" in command] and r.programs == []


@pytest.mark.parametrize("enable", [None, "", "0", "2", "11", "01", "on", "true", "yes"])
def test_passthrough_is_enabled_only_by_exactly_1(router, enable):
    reply, r = passthrough(router, {**SETTINGS, "enable": enable, "running": "modem_1_1_2"}, IFCONFIG)
    assert list(reply) == BRIEF and reply["passthrough"] is False
    assert r.programs == []


@pytest.mark.parametrize("config", [None, "", velaconfig("1-1.2")], ids=repr)
def test_without_passthrough_settings_it_is_inactive(router, config):
    r = router("unknown", ubus=False, uci={"velaconfig": config}, files=KNOWN_SIMS)
    assert r.api("get", PATH)[1]["passthrough"] is False


@pytest.mark.parametrize("ifconfig, subnet", [
    (IFCONFIG, "192.168.8.0"), ("192.168.8.1\n", "192.168.8.0"), ("inet 192.168.8.100\n", "192.168.8.0"),
    ("one\ntwo 192.168.8.1 of\nthree\n" * 50, "192.168.8.0"), ("192.168.8.1", "192.168.8.0"),
    (None, ""), ("", ""), ("\n", ""), ("br-lan inet addr:10.1.2.3\n", ""), ("192.168.8\n", ""),
    ("ifconfig: br-lan: error fetching interface information: Device not found\n", ""),
], ids=lambda text: repr(text)[:40])
def test_the_subnet_is_told_where_the_lan_has_the_gateway(router, ifconfig, subnet):
    reply, r = passthrough(router, {**SETTINGS, "enable": "1", "running": "wwan0"}, ifconfig)
    assert list(reply) == WITH_PASSTHROUGH and reply["subnet"] == subnet
    assert r.commands[0] == "ifconfig br-lan | grep 192.168.8.1" and r.programs == [["ifconfig", "br-lan"]]


@pytest.mark.parametrize("missing", ["gateway", "netmask", "subnet", "dns"])
@pytest.mark.parametrize("how", [None, ""], ids=repr)
def test_a_setting_that_is_missing_is_empty_in_the_reply(router, missing, how):
    reply, _ = passthrough(router, {**SETTINGS, "enable": "1", "running": "wwan0", missing: how}, IFCONFIG)
    assert list(reply) == WITH_PASSTHROUGH
    expected = {"gateway": "192.168.8.1", "netmask": "255.255.255.0", "subnet": "192.168.8.0", "pass_dns": ["1.1.1.1"]}
    expected |= {"gateway": {"gateway": "", "subnet": ""}, "netmask": {"netmask": ""}, "subnet": {"subnet": ""},
                 "dns": {"pass_dns": []}}[missing]
    assert {key: reply[key] for key in expected} == expected


@pytest.mark.parametrize("dns, listed", [
    (None, []), ("", []), ("10.0.0.1", []), ("10.0.0.1,1.1.1.1", ["1.1.1.1"]),
    ("10.0.0.1,1.1.1.1,9.9.9.9", ["1.1.1.1", "9.9.9.9"]),
    ("10.0.0.1,1.1.1.1,9.9.9.9,8.8.8.8", ["1.1.1.1", "9.9.9.9", "8.8.8.8"]),
    ("210.210.210.210,211.211.211.211,212.212.212.212,213.213.213.213",
     ["211.211.211.211", "212.212.212.212", "213.213.213.213"]),
    ("10.0.0.1,two,three", ["two", "three"]), ("10.0.0.1, 1.1.1.1", [" 1.1.1.1"]), ("1.1.1.1,1.1.1.1", ["1.1.1.1"]),
], ids=repr)
def test_the_first_of_the_dns_servers_is_skipped(router, dns, listed):
    reply, _ = passthrough(router, {**SETTINGS, "enable": "1", "running": "wwan0", "dns": dns}, IFCONFIG)
    assert list(reply) == WITH_PASSTHROUGH and reply["pass_dns"] == listed


def test_with_passthrough_the_address_of_a_modem_is_that_of_its_interface(router):
    state = {"interfaces": {"modem_1_1_2": {"state": "up", "ipv4-address": [{"address": "10.1.2.3", "mask": 30}]}}}
    settings = {**SETTINGS, "enable": "1", "running": "modem_1_1_2"}
    r = router("unknown", ubus=state, uci={"velaconfig": velaconfig("1-1.2", passthrough=settings)})
    [modem] = info(r)["modems"]
    assert (modem["up"], modem["ip_addr"]) == ("on", "10.1.2.3")


# Several modems


def test_three_modems_come_in_the_order_of_the_list(router):
    modems = {"1-1.2": "ec25", "1-1.3": "ep06", "2-1.2": "eg91"}
    for order in (("1-1.2", "1-1.3", "2-1.2"), ("2-1.2", "1-1.2", "1-1.3")):
        r = router(modems=modems, ubus=False, uci={"velaconfig": velaconfig(*order)})
        reply = info(r)
        ids = {"1-1.2": 3, "1-1.3": 1, "2-1.2": 8}
        assert [(modem["bus"], modem["modem_id"]) for modem in reply["modems"]] == [(bus, ids[bus]) for bus in order]
        asked = [event[1] for event in effects(r) if event[0] == "at"]
        assert [bus for bus, _ in itertools.groupby(asked)] == list(order)
        assert [event[1:] for event in effects(r) if event[-1] == SERVING and event[1] != "1-1.3"] == [
            (bus, {"1-1.2": "ttyUSB2", "2-1.2": "ttyUSB10"}[bus], SERVING) for bus in order if bus != "1-1.3"]


def test_a_fourth_bus_is_not_looked_at(router):
    r = router("unknown", ubus=False, files=KNOWN_SIMS, modems={"1-1.3": "unknown"},
               uci={"velaconfig": velaconfig("1-1.2", NO_DEVICE, "2-1.2", "1-1.3")})
    assert buses_of(info(r)) == ["1-1.2"]


@pytest.mark.parametrize("order", [
    ("", "1-1.2"), ("", "", "1-1.2"), ("1-1.2", "", "1-1.3"), ("", "1-1.3", "1-1.2"), (NO_DEVICE, "1-1.3"),
    ("1-1.3", NO_DEVICE, "1-1.2"), ("1-1.2", "1-1.3"),
], ids=str)
def test_empty_entries_and_buses_without_a_modem_are_left_out(router, order):
    r = router(**QUIET, files=KNOWN_SIMS, uci={"velaconfig": velaconfig(*order)})
    assert buses_of(info(r)) == [bus for bus in order if bus not in ("", NO_DEVICE)]


def test_the_same_bus_twice_is_listed_twice(router):
    r = router("unknown", ubus=False, files=KNOWN_SIMS, uci={"velaconfig": velaconfig("1-1.2", "1-1.2")})
    assert buses_of(info(r)) == ["1-1.2", "1-1.2"]


def test_a_modem_that_is_pulled_is_gone_from_the_list(router):
    r = router(**QUIET, files=KNOWN_SIMS, uci={"velaconfig": velaconfig(*BUSES)})
    assert buses_of(info(r)) == list(BUSES)
    r.modem("1-1.3").unplug()
    assert buses_of(info(r)) == ["1-1.2", "2-1.2"]


def test_a_bus_of_nine_characters_is_the_longest(router):
    r = router(modems={"1-1.2.3.4": "unknown"}, ubus=False, uci={"velaconfig": velaconfig("1-1.2.3.4")})
    assert buses_of(info(r)) == ["1-1.2.3.4"]
    r.write("/etc/config/velaconfig", velaconfig("1-1.2.3.4", "1-1.2.3.45"))
    r.clear_events()
    assert r.run("vela_api", "get", PATH, "{}").returncode == ABORTED
    assert r.events == []


# The advice: when it is given


def advised(router, *bands: str, channel: str | None = "1", board: str = "pellin", **wifi: str | None) -> int:
    """The hint with up to three modems that are on these bands by configuration."""
    radio = "radio0" if board in ("pellin", "tamber") else "radio1"
    devices = {f"dev{number}": band for number, band in enumerate(bands, 1)}
    r = router(**{**QUIET, "board": board}, files=KNOWN_SIMS, uci={
        "velaconfig": velaconfig(*BUSES[:len(bands)], **devices), "wireless": wireless(radio, channel, **wifi)})
    reply = info(r)
    assert len(reply["modems"]) == len(bands) and not [command for command in r.commands if "iwinfo" in command]
    return reply["hint_modify_wifi_channel"]


def silenced(found: tuple[bool, ...], disabled: tuple[bool, ...]) -> bool:
    """Whether no advice is given; the rule looks at positions, not at which modems were found."""
    flags = [there and off for there, off in zip(found, disabled)]
    return {1: flags[0], 2: flags[0] and flags[1], 3: all(flags)}[sum(found)]


@pytest.mark.parametrize("absent", ["", NO_DEVICE], ids=["empty entry", "no device"])
def test_no_advice_while_the_first_so_many_positions_are_disabled(router, absent):
    r = router(**QUIET, files=KNOWN_SIMS, uci={"wireless": wireless("radio0", channel="1")})
    for found in itertools.product((True, False), repeat=3):
        if not any(found):
            continue
        order = [bus if there else absent for bus, there in zip(BUSES, found)]
        r.write("/etc/config/velaconfig", velaconfig(*order, dev1="40", dev2="40", dev3="40"))
        for disabled in itertools.product((True, False), repeat=3):
            flags = {interface_of(bus): str(int(off)) for bus, off in zip(BUSES, disabled)}
            r.write("/etc/config/network", interfaces(**flags, modem_9_1_1="1"))
            hint = info(r)["hint_modify_wifi_channel"]
            assert hint == (0 if silenced(found, disabled) else 11), (found, disabled)


def test_one_disabled_modem_at_the_second_position_still_gets_advice(router):
    r = router("unknown", ubus=False, files=KNOWN_SIMS, uci={
        "velaconfig": velaconfig("", "1-1.2", dev2="40"), "wireless": wireless("radio0", channel="1"),
        "network": interfaces(modem_1_1_2="1")})
    assert info(r)["hint_modify_wifi_channel"] == 11
    r.write("/etc/config/velaconfig", velaconfig("1-1.2", dev1="40"))
    assert info(r)["hint_modify_wifi_channel"] == 0


@pytest.mark.parametrize("disabled, hint", [("1", 0), ("0", 11), ("", 11), ("11", 11), ("true", 11), ("on", 11)])
def test_disabled_is_exactly_1(router, disabled, hint):
    r = router("unknown", ubus=False, files=KNOWN_SIMS, uci={
        "velaconfig": velaconfig("1-1.2", dev1="40"), "wireless": wireless("radio0", channel="1"),
        "network": interfaces(modem_1_1_2=disabled)})
    assert info(r)["hint_modify_wifi_channel"] == hint


def test_a_disabled_modems_band_is_asked_all_the_same(router):
    r = router("ec25", ubus=False, uci={"network": interfaces(modem_1_1_2="1")})
    assert info(r)["hint_modify_wifi_channel"] == 0
    assert r.modem().commands[-1] == SERVING


# The advice: from bands and channel

RULE = {  # which of the bands 7 and 40 are present: the channel in use and the better one
    (False, False): {}, (True, False): {11: 1}, (False, True): {1: 11}, (True, True): {1: 6, 11: 6},
}
ASSIGNMENTS = {
    (False, False): [("3", "20", "1"), ("0", "0", "0"), ("70", "400", "4")],
    (True, False): [("7", "3", "3"), ("3", "7", "3"), ("3", "3", "7"), ("7", "7", "7")],
    (False, True): [("40", "3", "3"), ("3", "40", "3"), ("3", "3", "40"), ("40", "40", "40")],
    (True, True): [("7", "40", "3"), ("40", "7", "3"), ("3", "7", "40"), ("40", "3", "7"), ("7", "7", "40")],
}


@pytest.mark.parametrize("present", RULE, ids=lambda present: f"7={present[0]}-40={present[1]}")
def test_the_whole_rule(router, present):
    r = router(**QUIET, files=KNOWN_SIMS)
    for number, bands in enumerate(ASSIGNMENTS[present]):
        r.write("/etc/config/velaconfig", velaconfig(*BUSES, dev1=bands[0], dev2=bands[1], dev3=bands[2]))
        for channel in range(1, 14) if number == 0 else (1, 6, 11):
            r.write("/etc/config/wireless", wireless("radio0", channel=str(channel)))
            assert info(r)["hint_modify_wifi_channel"] == RULE[present].get(channel, 0), (bands, channel)


def test_band_40_and_channel_1_or_6(router):
    assert advised(router, "40", channel="1") == 11
    assert advised(router, "40", channel="6") == 0


def test_bands_7_and_40_and_channel_11(router):
    assert advised(router, "7", "40", channel="11") == 6
    assert advised(router, "40", "7", channel="11") == 6


@pytest.mark.parametrize("channel", ["auto", "", None, "0", "-1", "nix", "automatic", "4294967297", "12", "36", "100"])
def test_no_advice_for_an_automatic_channel_nor_for_one_that_is_not_in_the_rule(router, channel):
    assert advised(router, "40", "7", channel=channel) == 0


@pytest.mark.parametrize("disabled, guest, hint", [
    (None, None, 11), ("0", None, 11), ("0", "1", 11), ("", "1", 11), (None, "1", 11), ("1", "0", 11), ("1", None, 11),
    ("1", "", 11), ("1", "1", 0),
])
@pytest.mark.parametrize("board", ["pellin", "halvor"])
def test_no_advice_while_both_access_points_are_disabled(router, board, disabled, guest, hint):
    assert advised(router, "40", board=board, disabled=disabled, guest=guest) == hint


@pytest.mark.parametrize("board, radio", [
    ("pellin", "radio0"), ("tamber", "radio0"), ("halvor", "radio1"), ("dravik", "radio1"), ("ostrel", "radio1"),
    ("other", "radio1"), ("pellin2", "radio1"), ("xtamber", "radio1"),
])
def test_the_radio_that_carries_2_4_ghz_depends_on_the_board(router, board, radio):
    r = router("unknown", board=board, ubus=False, files=KNOWN_SIMS, uci={
        "velaconfig": velaconfig("1-1.2", dev1="40"), "wireless": wireless(radio, channel="1")})
    assert info(r)["hint_modify_wifi_channel"] == 11
    r.write("/etc/config/wireless", wireless("radio1" if radio == "radio0" else "radio0", channel="1"))
    assert info(r)["hint_modify_wifi_channel"] == 0  # channel 36


@pytest.mark.parametrize("board", ["pellin", "halvor"])
def test_no_advice_without_a_wireless_configuration(router, board):
    r = router("unknown", board=board, ubus=False, files=KNOWN_SIMS,
               uci={"velaconfig": velaconfig("1-1.2", dev1="40"), "wireless": None})
    assert info(r)["hint_modify_wifi_channel"] == 0


# The advice: where the bands come from


@pytest.mark.parametrize("name, channel, hint", [("ep06", "11", 1), ("ep06", "1", 0), ("ec20", "1", 11),
                                                 ("ec20", "11", 0), ("ec25", "1", 0)])
def test_the_band_is_that_of_the_modems_serving_cell(router, name, channel, hint):
    r = router(name, ubus=False, uci={"wireless": wireless("radio0", channel=channel)})
    assert info(r)["hint_modify_wifi_channel"] == hint
    assert r.modem().commands[-1] == SERVING


@pytest.mark.parametrize("reply, hint", [
    (serving_lte(40), 11), (serving_lte(41), 0), (serving_lte(140), 0), ("\nERROR\n", 0), ("\nOK\n", 0),
    (serving_lte(40).replace("OK", "ERROR"), 0),
    ('\n+QENG: "servingcell","NOCONN","WCDMA",262,02,75,6A10090,10736,58,40,-78,-3,-,-,-,-,-\n\nOK\n', 0),
    ('\n+QENG: "servingcell","SEARCH"\n\nOK\n', 0),
    ('\n+QENG: "servingcell","NOCONN","GSM",262,02,40\n' + serving_lte(40).lstrip("\n"), 11),
], ids=lambda value: repr(value)[:60])
def test_only_an_lte_cell_has_a_band(router, reply, hint):
    r = router("ec25", ubus=False, uci={"wireless": wireless("radio0", channel="1")})
    r.modem().reply(SERVING, reply)
    assert info(r)["hint_modify_wifi_channel"] == hint


@pytest.mark.parametrize("position", [1, 2, 3])
def test_the_option_of_the_position_stands_for_the_modems_answer(router, position):
    order = [""] * (position - 1) + ["1-1.2"]
    r = router("ep06", ubus=False, uci={  # its serving cell is in band 7
        "velaconfig": velaconfig(*order, **{f"dev{position}": "40"}), "wireless": wireless("radio0", channel="1")})
    assert info(r)["hint_modify_wifi_channel"] == 11
    assert r.modem().commands and SERVING not in r.modem().commands  # unregistered, it is not asked for its signal


@pytest.mark.parametrize("position, others", [(1, (2, 3)), (2, (1, 3)), (3, (1, 2))])
def test_the_options_of_other_positions_do_not_count(router, position, others):
    order = [""] * (position - 1) + ["1-1.2"]
    r = router("ec25", ubus=False, uci={
        "velaconfig": velaconfig(*order, **{f"dev{other}": "40" for other in others}),
        "wireless": wireless("radio0", channel="1")})
    assert info(r)["hint_modify_wifi_channel"] == 0
    assert r.modem().commands[-1] == SERVING


def test_the_option_of_a_position_without_a_modem_does_not_count(router):
    r = router(modems={"1-1.3": "unknown"}, ubus=False, files=KNOWN_SIMS, uci={
        "velaconfig": velaconfig("1-1.2", "1-1.3", "2-1.2", dev1="40", dev2="3", dev3="40"),
        "wireless": wireless("radio0", channel="1")})
    assert info(r)["hint_modify_wifi_channel"] == 0


@pytest.mark.parametrize("value, hint, asked", [
    ("40", 11, False), ("0", 0, False), ("nix", 0, False), ("0000040", 11, False), ("", 11, True), (None, 11, True),
])
def test_an_option_with_any_value_keeps_the_modem_from_being_asked(router, value, hint, asked):
    r = router("ec25", ubus=False, uci={
        "velaconfig": velaconfig("1-1.2", dev1=value), "wireless": wireless("radio0", channel="1")})
    r.modem().reply(SERVING, serving_lte(40))
    assert info(r)["hint_modify_wifi_channel"] == hint
    assert (SERVING in r.modem().commands) == asked


def test_the_bands_of_two_modems_count_together(router):
    r = router(modems={"1-1.2": "ec20", "1-1.3": "ep06"}, ubus=False, uci={
        "velaconfig": velaconfig("1-1.2", "1-1.3"), "wireless": wireless("radio0", channel="11")})
    assert info(r)["hint_modify_wifi_channel"] == 6


def test_nothing_is_changed_by_asking(router):
    r = router("ep06", ubus=False, uci={"wireless": wireless("radio0", channel="11")})
    before = {name: r.read(f"/etc/config/{name}") for name in r.listdir("/etc/config")}
    assert info(r)["hint_modify_wifi_channel"] == 1
    assert {name: r.read(f"/etc/config/{name}") for name in r.listdir("/etc/config")} == before
    assert r.programs == []


# With a modem that misbehaves, and inside the web server


@pytest.mark.parametrize("reply", [
    b"\xff" * 3000 + b"\r\nOK\r\n", b'\r\n+QENG: "servingcell"' + b',"' * 400 + b"\r\nOK\r\n",
    b'\r\n+QENG: "servingcell","NOCONN","LTE","FDD",262,02,2A1B21,193,1250,' + b"9" * 200 + b",5\r\n\r\nOK\r\n", b"OK",
], ids=lambda reply: repr(reply[:24]))
def test_garbage_gives_a_whole_reply(router, reply):
    r = router("ec25", ubus=False, uci={"wireless": wireless("radio0", channel="1")})
    for command in ("ATI", "AT+GSN", "AT+CIMI", "AT+CPIN?", "AT+CREG?", "AT+CEREG?", "AT+QCSQ", SERVING):
        r.modem().reply(command, reply)
    document = info(r)
    assert list(document) == BRIEF and document["hint_modify_wifi_channel"] == 0
    assert json.dumps(document)


@pytest.mark.shipped
def test_requests_leave_nothing_in_the_host(router):
    options = {"enable": "1", "running": "wwan0", "gateway": "192.168.8.1", "dns": "10.0.0.1,1.1.1.1,9.9.9.9"}
    r = router(**QUIET, files=KNOWN_SIMS, uci={
        "velaconfig": velaconfig(*BUSES, dev1="7", dev2="40", dev3="3", passthrough=options),
        "wireless": wireless("radio0", channel="1")})
    [[first, second, status]] = host(r, ["get", PATH, {}, 5, 50])
    assert status == 0
    assert_nothing_is_left(first, second, 50)


@pytest.mark.shipped
def test_requests_that_find_no_modem_leave_nothing_in_the_host(router):
    r = router(ubus=False, uci={"velaconfig": velaconfig(*BUSES)})
    [[first, second, status]] = host(r, ["get", PATH, {}, 20, 1000])
    assert status == -250
    assert_nothing_is_left(first, second, 1000)
