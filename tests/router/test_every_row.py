"""Each row of the two tables of the program, the endpoints and the commands, does on a router what it is there for.

One call for each row: what it answers, and what it leaves behind. The details are tested where the rows' subjects are.
"""

import contextlib
import json
import sys
from dataclasses import dataclass, field
from typing import Callable, Iterator

import pytest
from connection_client import IFNAME, OBJECT, READY, link, section
from probe_client import probe
from router_config import section as uci_section
from router_config import velaconfig, wireless
from support import COMMANDS as KNOWN_COMMANDS
from velasim import Router

Effect = Callable[[Router], None]


@dataclass(frozen=True)
class Row:
    """A call of an endpoint or a command that succeeds."""

    ask: object  # the request; or the arguments of a command, its name not among them
    answer: object  # the reply; or what is printed, as it stands or as a document
    effect: Effect | None = None  # fails unless the router shows what was done
    model: str = "ec25"
    up: bool = False  # the modem's interface is up at the beginning
    uci: dict = field(default_factory=dict)


# The router that the rows work on

WDM = "/dev/cdc-wdm0"
IMSI = "262020000000017"
INCOMING, STORAGE = "/etc/spool/sms/incoming", "/etc/spool/sms/storage"
NEW, OLD = "VMS99.new", "VMS99.old"
SUPPLY, SIM_SELECT = "/sys/class/gpio/lte_power/value", "/sys/class/gpio/gpio1/value"
SSMTP_CONF, REVALIASES, MAIL = "/etc/ssmtp/ssmtp.conf", "/etc/ssmtp/revaliases", "/run/sim/mail"
TEXT = "Grüße 你好"
IFCONFIG = "          inet addr:192.168.8.1  Bcast:192.168.8.255  Mask:255.255.255.0\n"
IWINFO = 'wlan0     ESSID: "vela"\n          Mode: Master  Channel: 1 (2.412 GHz)  HT Mode: HT20\n'

ADDRESS = "198.51.100.17"
PASSTHROUGH = {"enable": "1", "running": "wwan0", "gateway": "192.168.8.1", "netmask": "255.255.255.0",
               "subnet": "192.168.8.0", "dns": "192.0.2.1,192.0.2.2,192.0.2.3"}
VELACONFIG = velaconfig("1-1.2", passthrough=PASSTHROUGH, dev1="40", en_limt="1", tigger="97", clear="88")
FORWARDING = {"phone": "+490000000021", "email": "old@example.org", "subject": "+490000000022"}
OLD_ACCOUNT = "root=old@example.org\nmailhub=old.example.org:465\nAuthUser=old@example.org\nAuthPass=old-secret\n"


def message(text: str) -> str:
    return f"From: 490000000001\nFrom_TOA: 91 international\nSent: 26-11-21 09:30:00\n\n{text}\n"


FILES = {
    **READY, f"/var/run/mwan3track/{IFNAME}/STATUS": "online\n",
    f"{INCOMING}/{NEW}": message("unread one"), f"{STORAGE}/{OLD}": message("read one"),
    "/etc/forward": "", SSMTP_CONF: OLD_ACCOUNT,
    SUPPLY: "untouched\n", SIM_SELECT: "0\n",
    "/tmp/modem_upgrade_status": "5\n",
    "/tmp/text": TEXT.encode(f"utf-16-{sys.byteorder[0]}e"),
}


def prepared(router: Callable[..., Router], row: Row) -> Router:
    """A modem with all that a row can want: a saved connection, messages, an account for mails."""
    saved = {"ifname": "wwan0", "proto": "qmi", "device": WDM, "service": "lte", "apn": "saved",
             "disabled": str(int(not row.up))}
    uci = {"network": uci_section("interface", IFNAME, **saved), "velaconfig": VELACONFIG,
           "velaforward": uci_section("general", "general", **FORWARDING),
           "wireless": wireless("radio0", channel="1", disabled="0"), **row.uci}
    addresses = {"ipv4-address": [{"address": ADDRESS, "mask": 30}]}
    state = link("up" if row.up else "down", on_up="up", on_reload="down", **addresses)
    r = router(row.model, files=FILES, uci=uci, ubus=state, quick=True)
    r.stand_in("/sbin/ifconfig")
    r.answer("ifconfig", IFCONFIG)
    r.answer("iwinfo", IWINFO)
    r.answer("opkg", "ssmtp - 2.64-2\n")
    r.answer("ssmtp", f"#!/bin/dash\ncat >{MAIL}\n", executable=True)
    return r


# What shows that something was done


def get(r: Router, option: str) -> str:
    return r.run("uci", "-q", "get", option).stdout.removesuffix("\n")


def is_up(r: Router) -> bool:
    return json.loads(r.run("ubus", "call", OBJECT, "status").stdout)["up"]


def connected(**options: str) -> Effect:
    """The modem's section has these options, and its interface is up and in the firewall's zone."""

    def check(r: Router) -> None:
        assert {name: section(r).get(name) for name in options} == options
        assert section(r)["disabled"] == "0" and is_up(r)
        assert get(r, "firewall.@zone[1].network").split() == ["wan", IFNAME]

    return check


def taken_down(r: Router) -> None:
    assert section(r)["disabled"] == "1" and section(r)["apn"] == "saved"
    assert not is_up(r)


def asked(*commands: str) -> Effect:
    """The modem was asked these things, in this order."""

    def check(r: Router) -> None:
        assert [command for command in r.modem().commands if command in commands] == list(commands)

    return check


def ran(r: Router, *programs: list[str]) -> bool:
    """These programs were run, in this order."""
    return [argv for argv in r.programs if argv in programs] == list(programs)


def connected_by_a_run(r: Router) -> None:
    assert r.commands.count("vela_modem -B 1-1.2 connect-auto") == 1
    connected(apn="web.vodafone.de")(r)


def configured(r: Router) -> None:
    connected(apn="chosen", service="umts", device="/dev/ttyUSB3", proto="3g", mtu="1400", username="me")(r)
    assert get(r, f"velamodem.{IFNAME}.ttl") == "65"


def power_cycled(r: Router) -> None:
    assert f"echo 0 > {SUPPLY};sleep 1;echo 1 > {SUPPLY}" in r.commands and r.read(SUPPLY) == "1\n"
    assert r.modem().commands == []
    assert ran(r, ["ifdown", IFNAME], ["/etc/init.d/smstools3", "stop"], ["ifup", IFNAME])
    assert ran(r, ["/etc/init.d/smstools3", "stop"], ["/etc/init.d/smstools3", "start"])


def second_sim_in_use(r: Router) -> None:
    assert (get(r, "velamodem.sim.sim_num"), r.read(SIM_SELECT)) == ("2", "1\n")
    assert r.modem().commands == ["AT+QPOWD"] and r.read(SUPPLY) == "untouched\n"


def spool(r: Router) -> tuple[list[str], list[str]]:
    return r.listdir(INCOMING), r.listdir(STORAGE)


def one_deleted(r: Router) -> None:
    assert spool(r) == ([], [OLD])


def all_deleted(r: Router) -> None:
    assert spool(r) == ([], [])


def marked_read(r: Router) -> None:
    assert spool(r) == ([], [NEW, OLD]) and r.read(f"{STORAGE}/{NEW}") == message("unread one")


def sent(r: Router) -> None:
    assert r.programs == [["sendsms", "+490000000023", "two words", "national"]]


def country_kept(r: Router) -> None:
    assert (get(r, "velaconfig.modem_sms"), get(r, "velaconfig.modem_sms.country")) == ("service", "Germany")
    assert r.api("post", "/modem/sms/code", {"action": "get"}) == (0, {"country": "Germany", "country_code": "49"})


def forwarding_kept(r: Router) -> None:
    kept = {name: get(r, f"velaforward.general.{name}") for name in FORWARDING}
    assert kept == {**FORWARDING, "phone": "+490000000024", "email": "new@example.org"}


def account_set_up(r: Router) -> None:
    assert get(r, "velaforward.general.subject") == "+490000000025"
    assert r.read(SSMTP_CONF) == (
        "root=new@example.org\nmailhub=smtp.example.org:587\nrewriteDomain=example.org\nhostname=example.org\n"
        "AuthUser=new@example.org\nAuthPass=new-secret\nAuthMethod=LOGIN\nUseTLS=YES\nFromLineOverride=Yes\n"
        "UseSTARTTLS=Yes\n")
    assert r.read(REVALIASES) == "root:new@example.org:smtp.example.org:587"
    assert ran(r, ["ssmtp", "-vvv", "new@example.org"])
    assert r.read(MAIL).startswith("From: new@example.org\nSubject:Verification email\n")


def upgrade_started(r: Router) -> None:
    assert r.programs == [["/usr/bin/modem_upgrade_check", "1", "http://192.0.2.1/fw.zip", NEXT_VERSION, "md5", "00ff"]]


def agent_told(r: Router) -> None:
    assert [event["method"] for event in r.events if event.get("object") == "mqtt"] == ["notify"]


def wifi_moved(r: Router) -> None:
    assert get(r, "wireless.radio0.channel") == "11" and ran(r, ["wifi", "reload"])


# The rows

EC25 = {"modem_id": 3}
PLACE = {"modem_id": 3, "bus": "1-1.2"}
QCSQ = [{"type": "LTE", "rssi": "-80", "rsrp": "-109", "sinr": "18", "rsrq": "-9"}]
CARRIER = {"mnc": "020", "mcc": "262", "carrier": "Vodafone.de"}
STATUS = {"up": "on", "ip_addr": ADDRESS, "SIM_status": 0, "online": True, "signal_info": QCSQ, "signal": 2,
          "mode": "4G", "newsms": 1}
NAME, IMEI = " EC25EFAR06A03M4G\r", "350000000000017"
NEXT_VERSION = "EC25EFAR07A01M4G_01.001.01.001"
VERSION, EP06_VERSION = "EC25EFAR06A03M4G_01.005.01.005", "EP06ELAR03A08M4G_01.003.01.003"
NEIGHBOURS = (("1250", "193"), ("1250", "396"), ("1551", "193"), ("1551", "396"), ("1551", "378"), ("1551", "178"))
CELLS = [
    {"type": "servingcell", "state": "NOCONN", "mode": "FDD", "mcc": "262", "mnc": "02", "cellid": "2A1B21",
     "pcid": "193", "earfcn": "1250", "band": "3", "ul_bandwidth": "20M", "dl_bandwidth": "20M", "tac": "2A1C",
     "rsrp": "-109", "rsrq": "-9", "rssi": "-80", "sinr": "13", "srxlev": "29", "rat": "LTE"},
    *({"type": "neighbourcell", "earfcn": earfcn, "cellid|pcid": cell, "rat": "LTE"} for earfcn, cell in NEIGHBOURS),
]
FROM = {"from": "490000000001\n", "type": "international", "time": "26-11-21 09:30:00\n"}

ENDPOINTS = {
    ("get", "/modem/info"): Row({}, {
        "passthrough": True, "gateway": "192.168.8.1", "netmask": "255.255.255.0", "subnet": "192.168.8.0",
        "pass_dns": ["192.0.2.2", "192.0.2.3"], "hint_modify_wifi_channel": 11,
        "modems": [{
            "ports": [WDM, "/dev/ttyUSB3", "/dev/ttyUSB2", "/dev/ttyUSB1", "/dev/ttyUSB0"], "modem_id": 3,
            "data_port": "/dev/ttyUSB3", "control_port": "/dev/ttyUSB2", "qmi_port": WDM, "name": NAME, "IMEI": IMEI,
            "bus": "1-1.2", "hw_version": "", "sim_num": "", **CARRIER, **STATUS, "operators": ["Visible"]}],
    }, up=True),
    ("get", "/modem/brief_info"): Row({}, {
        "modems": [{"version": VERSION, "name": NAME, "IMEI": IMEI, "bus": "1-1.2"}]}),
    ("get", "/modem/app/brief_info"): Row({}, {"modems": [{"bus": "1-1.2", **CARRIER, **STATUS}]}, up=True),
    ("post", "/modem/auto"): Row(PLACE, {}, connected_by_a_run),
    ("get", "/modem/get"): Row({"bus": "1-1.2"}, {"config": {
        "service": "lte", "device": WDM, "apn": "saved", "mtu": "", "operator": "", "pincode": "", "dialnum": "",
        "username": "", "password": "", "authentication": ""}}),
    ("post", "/modem/set"): Row({**PLACE, "device": "/dev/ttyUSB3", "service": "umts", "apn": "chosen", "mtu": "1400",
                                 "username": "me", "ttl": 65}, {}, configured),
    ("post", "/modem/enable"): Row({"bus": "1-1.2", "disable": True}, {}, taken_down, up=True),
    ("post", "/modem/reset"): Row(PLACE, {}, power_cycled),
    ("post", "/modem/at"): Row({"at-command": "AT+CSQ", "at-port": "/dev/ttyUSB2"},
                               {"message": "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"}, asked("AT+CSQ")),
    ("get", "/modem/sms/list"): Row(EC25, {"messages": [
        {**FROM, "body": "unread one\n", "status": "unread", "name": NEW},
        {**FROM, "body": "read one\n", "status": "read", "name": OLD}]}),
    ("post", "/modem/sms/delete"): Row({**EC25, "msg_id": NEW}, {}, one_deleted),
    ("post", "/modem/sms/delete_all"): Row(EC25, {}, all_deleted),
    ("post", "/modem/sms/send"): Row({**EC25, "number": "+490000000023", "message": "two words", "type": "national"},
                                     {}, sent),
    ("post", "/modem/sms/status"): Row({**EC25, "msg_id": NEW}, {}, marked_read),
    ("post", "/modem/sms/code"): Row({"action": "set", "country": "Germany", "country_code": "49"}, {}, country_kept),
    ("post", "/modem/cells/get"): Row(PLACE, {"cells": CELLS}),
    ("post", "/modem/sim/switch"): Row({**PLACE, "sim_num": "2"}, {}, second_sim_in_use),
    ("post", "/modem/modem_info/get"): Row(PLACE, {"modem_info": {
        "imsi": IMSI, "sim_status": "READY", "signal": "\x03"}}),
    ("post", "/modem/sms/forward"): Row({"tel": "+490000000024", "email": "new@example.org"}, {}, forwarding_kept),
    ("get", "/modem/sms/flist"): Row({}, {
        "tel_list": "+490000000021", "email_list": "old@example.org", "account": "old@example.org",
        "password": "old-secret", "smtp": "old.example.org:465", "local_tel": "+490000000022"}),
    ("post", "/modem/sms/account"): Row({"account": "new@example.org", "password": "new-secret",
                                         "smtp": "smtp.example.org:587", "local_tel": "+490000000025"},
                                        {}, account_set_up),
    ("post", "/modem/upgrade"): Row({
        "modem_url": "http://192.0.2.1/fw.zip", "target_version": NEXT_VERSION, "current_version": VERSION,
        "firmware_upload": "1", "hash_type": "md5", "hash_value": "00ff"}, {}, upgrade_started),
    ("post", "/modem/upgrade_status"): Row({}, {"version": EP06_VERSION, "status": 5}, agent_told, model="ep06"),
}

LIMITS = ('AT+QCFG="thermal/limit_rates",1', 'AT+QCFG="thermal/modem",1,97,88')

COMMANDS = {
    "connect": Row(["serial", "/dev/ttyUSB3", "umts", "internet"], "\nconnect success",
                   connected(proto="3g", device="/dev/ttyUSB3", service="umts", apn="internet")),
    "connect-auto": Row([], "\nconnect success", connected(proto="qmi", device=WDM, apn="web.vodafone.de")),
    "new-connect-auto": Row([], "\nconnect success", connected(proto="qmi", device=WDM, service="lte", apn="saved")),
    "disconnect": Row([], "\nmodem disconnect", taken_down, up=True),
    "sim-status": Row([], "READY", asked("AT+CPIN?", "AT+CREG?")),
    "AT": Row(["AT+CIMI"], f"\nAT+CIMI\r\r\n{IMSI}\r\n\r\nOK\r\n", asked("AT+CIMI")),
    "signal": Row([], {"signals": QCSQ, "strength": 2, "mode": "4G"}),
    "cells": Row([], CELLS),
    "iccid": Row([], "89354020000000000017", model="bg95"),
    "thermal": Row([], "thermal setting  success", asked(*LIMITS)),
    "carrier": Row([], "Vodafone.de"),
    "test": Row([], {"carrier": "Vodafone.de", "sms": "1", "signal_info": QCSQ, "signal": "2", "modem_mode": "4G",
                     "modem_up": "1"}, up=True),
    "convert": Row(["/tmp/text", str(len(TEXT))], TEXT),
    "check_register": Row([], "check_register=0\n", asked("AT+CREG?")),
    "get_mode": Row([], "get_mode: 4G\n", asked("AT+QNWINFO")),
    "wifi_lte_interference": Row([], "", wifi_moved, uci={"wireless": wireless("radio0", "auto", disabled="0")}),
}


def test_each_endpoint_has_its_row(router):
    listed = router(ubus=False).run("vela_api", "list").stdout
    assert [tuple(line.split()) for line in listed.splitlines()] == list(ENDPOINTS)


def test_each_command_has_its_row(router):
    assert probe(router(ubus=False), "commands") == (0, {"commands": list(COMMANDS)})
    assert KNOWN_COMMANDS == tuple(COMMANDS)


@contextlib.contextmanager
def effect_of(row: Row, r: Router) -> Iterator[None]:
    """What is done within the block has the row's effect. It was not there before, so something has been done."""
    assert row.answer or row.effect, "nothing that would tell the row from one that does nothing"
    if row.effect is not None:
        with pytest.raises(AssertionError):
            row.effect(r)
    r.clear_events()
    yield
    r.wait_idle()
    if row.effect is not None:
        row.effect(r)


@pytest.mark.parametrize("method, path", ENDPOINTS)
def test_an_endpoint_does_what_it_is_for(router, method, path):
    row = ENDPOINTS[method, path]
    r = prepared(router, row)
    with effect_of(row, r):
        assert r.api(method, path, row.ask) == (0, row.answer)


@pytest.mark.parametrize("name", COMMANDS)
def test_a_command_does_what_it_is_for(router, name):
    row = COMMANDS[name]
    r = prepared(router, row)
    with effect_of(row, r):
        result = r.run("vela_modem", name, *row.ask)
        assert (result.returncode, result.stderr) == (0, "")
        assert (result.stdout if isinstance(row.answer, str) else json.loads(result.stdout)) == row.answer
