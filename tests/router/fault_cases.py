"""The commands and endpoints that test_faults.py and test_crashes.py run, each where it has most to do."""

import re

from fault_runs import CONFIG, SPOOL, SSMTP, STATE, Case, Faults
from modem_config import NAME
from router_config import section
from support import AT_PORT
from velasim import Router

NETWORK = f"{CONFIG}/network"
SSMTP_CONF, REVALIASES = f"{SSMTP}/ssmtp.conf", f"{SSMTP}/revaliases"
LAN = section("interface", "lan", proto="static", ipaddr="192.168.8.1") + "\n"
MODEM = section("interface", NAME, proto="qmi", ifname="wwan0", apn="old", device="/dev/cdc-wdm0", service="*99#",
                mtu="1400", username="u", password="p")
LAST = "\n" + section("interface", "wan", proto="dhcp", metric="10")
CONFIGURED = {"network": LAN + MODEM + LAST}
SAVED = {"/tmp/sim_status": "ready\n", "/tmp/sim_type": "other\n", f"{STATE}/fail_count": "3\n"}
FORWARD = {"velaforward": section("general", "general", phone="1", email="old@example.org", subject="2") + section(
    "rule", "mine", keep="this")}
CODES = {"velaconfig": section("service", "modem", bus=("1-1.2",)) + section(
    "service", "modem_sms", country="old", country_code="1") + section("service", "passthrough", enable="0")}
MESSAGES = {f"{SPOOL}/incoming/VMS99.a": "From: 491700000001\nFrom_TOA: 91 international, ISDN/telephone\n"
            "Sent: 26-11-21 09:30:00\nAlphabet: UCS2\nLength: 4\n\n" + "G\0r\0u\0ß\0", f"{SPOOL}/storage/VMS99.b":
            "From: 491700000002\n\nread\n", f"{SPOOL}/incoming/VMS98.c": "From: 3\n\nother\n"}
OLD_MAIL = {SSMTP_CONF: "root=old@example.org\nmailhub=old\nAuthUser=old\nAuthPass=secret\n",
            REVALIASES: "root:old:old"}
EC25 = {"modem_id": 3}
SET = {**EC25, "bus": "1-1.2", "device": "/dev/ttyUSB3", "service": "*99#", "apn": "internet", "username": "user",
       "password": "word", "ath": "pap", "mtu": "1430", "operator": "Hidden", "ttl": 64, "pincode": "1234"}
MAIL = {"account": "new@example.org", "password": "word", "smtp": "smtp.example.org:587", "local_tel": "789"}
UPGRADE = {"modem_url": "http://192.0.2.1/fw.zip", "target_version": "EP06X_1", "current_version":
           "EP06ELAR03A08M4G_01.003.01.003", "firmware_upload": "0", "hash_type": "md5", "hash_value": "d4"}


def sections(text: str) -> dict[str, dict[str, str]]:
    """The sections of a configuration file by name (or by number), each option with its value. Fails on a cut one."""
    found: dict[str, dict[str, str]] = {}
    for line in text.splitlines():
        match = re.fullmatch(r"config (\S+)(?: '([^']*)')?|\t(option|list) (\S+) '([^']*)'|", line)
        assert match is not None, line
        if match[1]:
            current = found.setdefault(match[2] or str(len(found)), {"": match[1]})
        elif match[3] == "list":
            current[match[4]] = current.get(match[4], "") + match[5] + " "
        elif match[3]:
            current[match[4]] = match[5]
    assert text.endswith("\n")
    return found


def network_verdict(*told: str):
    """The interface is written anew in two commits, so it may be missing between them. What is found out about the
    modem or the SIM (`told`: options) is left out where it was not, or is that of a modem of no known model."""
    def verdict(faults: Faults, text: bytes | None) -> str | None:
        now, wanted = (sections(each.decode()) for each in (text or b"", faults.wanted[NETWORK]))
        interface = now.pop(NAME, None)
        wanted_interface = wanted.pop(NAME)
        if now != wanted:
            return f"other sections have changed: {text!r}"
        if interface is not None and {name: value for name, value in interface.items() if name not in told} != {
                name: value for name, value in wanted_interface.items() if name not in told}:
            return f"the interface is {interface}"
        return None
    return verdict


def rewritten_verdict(path: str):
    """A file that is rewritten in place may end anywhere."""
    def verdict(faults: Faults, text: bytes | None) -> str | None:
        return None if text is not None and faults.wanted[path].startswith(text) else f"holds {text!r}"
    return verdict


def fresh(path: str, *allowed: bytes):
    """A file that is kept about the modem is missing, too, where it was removed and could not be made again."""
    def verdict(_: Faults, text: bytes | None) -> str | None:
        return None if text is None or text in allowed else f"holds {text!r}"
    return {path: verdict}


IMSI = f"{STATE}/cimi"
# Written by the shell, which is another program: an IMSI file that it has opened may be empty for a moment.
KEPT_IMSI = fresh(IMSI, b"", b"262020000000017\n", b"274020000000017\n")
READY = {"files": SAVED, "uci": CONFIGURED}
CONNECTS = {NETWORK: network_verdict("node", "ifname"), **KEPT_IMSI}
CONNECTS_AUTO = {NETWORK: network_verdict("node", "device", "apn", "username", "password"), **KEPT_IMSI}
LINKS = {"background": True, "reloads": True}


def power_down_at_once(r: Router) -> None:
    r.modem().reply("AT+QPOWD", "\nOK\n\nPOWERED DOWN\n")


def command(*argv: str, name: str = "", **more: object) -> Case:
    return Case(name or argv[0], argv=list(argv), **more)


def handler(method: str, path: str, body: dict, statuses: tuple[int, ...], name: str = "", **more: object) -> Case:
    return Case(name or path, endpoint=(method, path), body=body, statuses=statuses, **more)


COMMANDS = [
    command("AT", "AT+CSQ"),
    command("connect", "qmi", "/dev/cdc-wdm0", "*99#", "internet", setup=READY, verdicts=CONNECTS, **LINKS),
    command("connect", "serial", "/dev/ttyUSB3", "*99#", "internet", name="connect serial", setup=READY,
            verdicts=CONNECTS, **LINKS),
    # Of a modem that has no other way than the one, so that there is one wanted result.
    command("connect-auto", setup={**READY, "model": "bg95"}, statuses=(0, 255), verdicts=CONNECTS_AUTO, **LINKS),
    command("new-connect-auto", setup=READY, verdicts=CONNECTS, **LINKS),
    command("disconnect", setup={**READY, "ubus": {"interfaces": {NAME: {"state": "up", "on_reload": "down"}}}},
            reloads=True),
    command("sim-status"),
    command("signal"),
    command("signal", name="signal from the file", setup={"model": "simcom7600", "files": {
        f"{STATE}/signal": '{"type":"lte","rssi":-60,"rsrq":-9,"rsrp":-90,"snr":130}'}}),
    command("cells"),
    command("cells", name="cells of an MC7430", setup={"model": "mc7430"}),
    command("iccid", setup={"model": "eg91"}),
    command("thermal"),
    command("carrier", verdicts=KEPT_IMSI),
    command("test", setup=READY, verdicts=KEPT_IMSI),
    command("convert", "/tmp/message", "8", setup={"files": {"/tmp/message": "你好吗".encode("utf-16-le")}}),
    command("check_register"),
    command("get_mode", setup={"model": "eg91"}),
    command("wifi_lte_interference", prepare=lambda r: r.answer("iwinfo", "\tMode: Master  Channel: 13 (2.472 GHz)\n")),
    command("-D", "no-such-command", name="detection"),
]

HANDLERS = [
    handler("get", "/modem/info", {}, (0, -250), setup={"files": SAVED}, verdicts=KEPT_IMSI),
    handler("get", "/modem/brief_info", {}, (0, -250)),
    handler("get", "/modem/app/brief_info", {}, (0, -250), setup={"files": SAVED}, verdicts=KEPT_IMSI),
    handler("post", "/modem/auto", EC25, (0, -251), setup=READY, verdicts=CONNECTS, background=True),
    handler("get", "/modem/get", {}, (0,), setup=READY),
    handler("post", "/modem/set", SET, (0, -251, -250, -5, -253, -256, -265), setup=READY, verdicts=CONNECTS, **LINKS),
    handler("post", "/modem/set", SET, (0, -251, -250, -5, -253, -256, -265), name="/modem/set of a new interface",
            setup={"files": SAVED, "uci": {"network": LAN + LAST.lstrip()}}, verdicts=CONNECTS, **LINKS),
    handler("post", "/modem/enable", {"disable": True}, (0, -251), setup=READY, reloads=True),
    handler("post", "/modem/reset", {**EC25, "disable": True}, (0, -251, -250), setup=READY, prepare=power_down_at_once,
            background=True),
    handler("post", "/modem/at", {"at-port": AT_PORT, "at-command": "AT+CSQ"}, (0, -255)),
    handler("post", "/modem/at", {"at-port": AT_PORT, "at-command": "default_band"}, (0, -255, -17),
            name="/modem/at default_band"),
    handler("get", "/modem/sms/list", EC25, (0, -251, -250), setup={"files": MESSAGES}),
    handler("post", "/modem/sms/delete", {**EC25, "msg_id": "VMS99.b"}, (0, -251, -258, -250, -259),
            setup={"files": MESSAGES}),
    handler("post", "/modem/sms/delete_all", EC25, (0, -251, -250, -259), setup={"files": MESSAGES}),
    handler("post", "/modem/sms/status", {**EC25, "msg_id": "VMS99.a"}, (0, -251, -258, -250),
            setup={"files": MESSAGES}),
    handler("post", "/modem/sms/send", {**EC25, "number": "123", "message": "text"}, (0, -251, -260, -261, -250)),
    handler("post", "/modem/sms/code", {"action": "set", "country": "Deutschland", "country_code": "49"}, (0,),
            setup={"uci": CODES}),
    handler("post", "/modem/cells/get", {**EC25, "bus": "1-1.2"}, (0, -251, -250, -17)),
    handler("post", "/modem/sim/switch", {**EC25, "bus": "1-1.2", "sim_num": "2"}, (0, -22, -251, -250),
            prepare=power_down_at_once, background=True),
    handler("post", "/modem/modem_info/get", {**EC25, "bus": "1-1.2"}, (0, -251, -250, -17)),
    handler("post", "/modem/sms/forward", {"tel": "456", "email": "new@example.org"}, (0, -7),
            setup={"uci": FORWARD, "files": {"/etc/forward": ""}}),
    handler("get", "/modem/sms/flist", {}, (0,), setup={"uci": FORWARD, "files": OLD_MAIL}),
    handler("post", "/modem/sms/account", MAIL, (0, -17), setup={"uci": FORWARD, "files": OLD_MAIL},
            prepare=lambda r: r.answer("opkg", "ssmtp - 2.64-4\n"),
            verdicts={path: rewritten_verdict(path) for path in (SSMTP_CONF, REVALIASES)}),
    handler("post", "/modem/upgrade", UPGRADE, (0, -1, -2, -3, -4, -5), setup={"model": "ep06"}, background=True),
    handler("post", "/modem/upgrade_status", {}, (0, -1), setup={"model": "ep06", "files": {
        "/tmp/modem_upgrade_status": "3\n"}}, background=True),
]
CASES = COMMANDS + HANDLERS
BY_NAME = {case.name: case for case in CASES}
