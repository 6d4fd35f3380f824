"""/modem/set: the section that it writes and everything it does to the router, in order, for each kind of device."""

import json
from dataclasses import dataclass, field

import pytest
from modem_config import (
    NAME, SET, WDM, comes_up, effects, ifname_of, list_of, nothing_staged, option, packages, restarts, section,
)
from support import ABORTED, AT_PORT
from velasim import Router
from velasim.modem_file import MODEMS

MISSING, NO_MODEM, NO_DEVICE, UNKNOWN_DEVICE, IS_AT_PORT = -251, -250, -5, -256, -265

RELOAD_LED = "$ /etc/init.d/led reload 2>&1 >/dev/null"
RELOAD_LED_LATER = "$ sleep 10 ;/etc/init.d/led reload 2>&1 >/dev/null"
KILL = "$ killall uqmi 2>/dev/null"
STATUS, TYPE = "$ cat /tmp/sim_status", "$ cat /tmp/sim_type"


def drop_session(device: str) -> str:
    return f"$ timeout -t 2 uqmi -d {device} --stop-network 4294967295 --autoconnect 2>/dev/null"


def bring_up(name: str = NAME) -> list[str]:
    """What the connect operation does in a firewall that has not the interface yet."""
    return [
        "network reload", f"$ ubus call network.interface.{name} up", f"network.interface.{name} up",
        "$ uci get firewall.@zone[1].network", f'$ uci set firewall.@zone[1].network="wan {name}"',
        "$ uci commit firewall", "$ /etc/init.d/firewall reload", f"network.interface.{name} status",
    ]


@dataclass(frozen=True)
class Kind:
    """A model with one of its devices, and what is written for it."""

    model: str
    modem_id: int
    device: str
    proto: str
    ifname: str | None
    node: str | None
    led: str | None  # None: it stays as it was
    apn: str | None = None  # "quectel" asks for the SIM first, "fibocom" does not
    ath: bool = False
    raw_ip: bool = False
    request: dict = field(default_factory=dict)

    def lines(self, *settings: str, mtu: str | None = None, name: str = NAME) -> list[str]:
        """The section as `uci show` has it; `settings` are pairs of its options."""
        given = [pair for pair in settings if pair.startswith(("service=", "apn="))]
        rest = [pair for pair in settings if pair not in given]
        pairs = [
            f"ifname={self.ifname}" if self.ifname else None, *given, f"proto={self.proto}", f"device={self.device}",
            f"node={self.node}" if self.node else None, *rest, "raw_ip=1" if self.raw_ip else None,
            f"mtu={mtu}" if mtu else None, "metric=40", "disabled=0",
        ]
        return ["=interface", *("{}='{}'".format(*pair.split("=", 1)) for pair in pairs if pair)]

    def before_up(self) -> list[str]:
        """The commands between the LED's reload and the connect operation."""
        if self.proto not in ("qmi", "qcm"):
            return []
        return [KILL, *([drop_session(self.device)] if self.proto == "qmi" and self.modem_id != 255 else [])]

    def set_apn(self, apn: str) -> list[str]:
        command = f'AT+CGDCONT=1,"IP","{apn}"'
        return {"quectel": [STATUS, TYPE, command], "fibocom": [command], None: []}[self.apn]

    def set_ath(self, apn: str, user: str, password: str, code: int) -> list[str]:
        return [STATUS, TYPE, f'AT+QICSGP=1,1,"{apn}","{user}","{password}",{code}'] if self.ath else []


TTY3 = "/dev/ttyUSB3"
QCM = {"proto": "qcm"}
LED_3G = f"3g-{NAME}"
EC25 = Kind("ec25", 3, WDM, "qmi", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True)
MC7430 = Kind("mc7430", 5, AT_PORT, "directip", "eth1", "1-1.2:1.3", "eth1")
KINDS = {
    "ec25 qmi": EC25,
    "ec25 tty": Kind("ec25", 3, TTY3, "3g", "3g-modem", "1-1.2:1.3", LED_3G, "quectel", True),
    "ec25 qcm": Kind("ec25", 3, WDM, "qcm", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True, request=QCM),
    "ec25 qcm tty": Kind("ec25", 3, TTY3, "qcm", "wwan0", "1-1.2:1.3", "wwan0", "quectel", True, request=QCM),
    "ec25 qcm other": Kind("ec25", 3, "/dev/mhi0", "qcm", "wwan0", None, "wwan0", "quectel", True, request=QCM),
    "ec25 qcm second": Kind("ec25", 3, "/dev/cdc-wdm1", "qcm", "wwan0", None, "wwan1", "quectel", True, request=QCM),
    "ec25 second": Kind("ec25", 3, "/dev/cdc-wdm1", "qmi", "wwan0", None, "wwan1", "quectel", True),
    "ec25 eleventh": Kind("ec25", 3, "/dev/cdc-wdm10", "qmi", "wwan0", None, "wwan1", "quectel", True),
    "ec25 both": Kind("ec25", 3, "/dev/cdc-wdm1-wdm0", "qmi", "wwan0", None, "wwan0", "quectel", True),
    "ec25 acm": Kind("ec25", 3, "/dev/ttyACM7", "3g", "3g-modem", None, LED_3G, "quectel", True),
    "ec25 no path": Kind("ec25", 3, "cdc-wdm0", "qmi", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True),
    "ec25 other proto": Kind("ec25", 3, WDM, "qmi", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True,
                             request={"proto": "3g"}),
    "ec25 auto": Kind("ec25", 3, TTY3, "3g", "3g-modem", "1-1.2:1.3", LED_3G, "quectel", True,
                      request={"proto": "auto"}),
    "ec20 qmi": Kind("ec20", 0, WDM, "qmi", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True),
    "ep06 qmi": Kind("ep06", 1, WDM, "qmi", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True),
    "uc20 tty": Kind("uc20", 4, TTY3, "3g", "3g-modem", "1-1.2:1.3", LED_3G, "quectel", True),
    "mc7430 tty": MC7430,
    "mc7430 qmi": Kind("mc7430", 5, WDM, "qmi", "xxx", "1-1.2:1.8", "wwan0"),
    "simcom7600 tty": Kind("simcom7600", 20, TTY3, "ncm", "xxx", "1-1.2:1.3", "wwan0"),
    "me3630 tty": Kind("me3630", 30, "/dev/ttyUSB2", "ncm", "usb0", "1-1.2:1.2", "wwan0"),
    "ec200t tty": Kind("ec200t", 6, "/dev/ttyUSB2", "ncm", "usb0", "1-1.2:1.4", "wwan0", "quectel", True),
    "bg95 at port": Kind("bg95", 7, AT_PORT, "3g", "3g-modem", "1-1.2:1.2", LED_3G, "quectel"),
    "eg91 at port": Kind("eg91", 8, AT_PORT, "3g", "3g-modem", "1-1.2:1.2", LED_3G, "quectel"),
    "ec100y at port": Kind("ec100y", 9, "/dev/ttyUSB1", "3g", "3g-modem", "1-1.2:1.1", LED_3G, "quectel"),
    "nl678e qmi": Kind("nl678e", 40, WDM, "qmi", "wwan0", "1-1.2:1.4", "wwan0", "fibocom", raw_ip=True),
    "nl678e qcm": Kind("nl678e", 40, WDM, "qcm", "wwan0", "1-1.2:1.4", "wwan0", "fibocom", raw_ip=True, request=QCM),
    "nl678e second": Kind("nl678e", 40, "/dev/cdc-wdm1", "qmi", "wwan0", None, "wwan1", "fibocom"),
    "nl678e no path": Kind("nl678e", 40, "cdc-wdm0", "qmi", "wwan0", "1-1.2:1.4", "wwan0", "fibocom"),
    "nl678e tty": Kind("nl678e", 40, TTY3, "3g", "3g-modem", "1-1.2:1.3", LED_3G, "fibocom"),
    "unknown at port": Kind("unknown", 255, "/dev/ttyACM0", "3g", "3g-modem", "1-1.2:1.0", LED_3G),
    "unknown tty": Kind("unknown", 255, "/dev/ttyACM1", "3g", "3g-modem", "1-1.2:1.2", LED_3G),
    "unknown qmi": Kind("unknown", 255, WDM, "qmi", "wwan0", None, "wwan0"),
    "unknown qcm": Kind("unknown", 255, WDM, "qcm", "wwan0", None, "wwan0", request=QCM),
}
SIM = {"/tmp/sim_status": "ready\n", "/tmp/sim_type": "att\n"}
SETTINGS = {
    "service": "fdd_lte", "apn": "net.example", "mtu": "1400", "operator": "26201", "pincode": "1234",
    "dianum": "*99#", "username": "me", "password": "secret", "ath": "CHAP",
}
WRITTEN = ("service=fdd_lte", "apn=net.example", "pincode=1234", "dialnumber=*99#", "username=me", "password=secret",
           "auth=CHAP")


def make(router, kind: Kind = EC25, **more: object) -> Router:
    options = {"quick": True, "ubus": comes_up(), "files": SIM, **more}
    return router(kind.model, **options)


def post(r: Router, kind: Kind = EC25, **more: object) -> int:
    status, reply = r.api("post", SET, {"modem_id": kind.modem_id, "device": kind.device, **kind.request, **more})
    assert reply == {}
    r.wait_idle()
    return status


# Each kind of device


@pytest.mark.parametrize("kind", KINDS.values(), ids=KINDS.keys())
def test_all_that_is_done_with_all_settings(router, kind):
    r = make(router, kind)
    assert post(r, kind, ttl=64, **SETTINGS) == 0
    assert section(r, "network", NAME) == kind.lines(*WRITTEN, mtu="1400")
    assert effects(r) == [
        *kind.set_apn("net.example"), *kind.set_ath("net.example", "me", "secret", 2), RELOAD_LED, *kind.before_up(),
        *bring_up(),
    ]
    assert restarts(r) == 1 and nothing_staged(r)
    assert option(r, "system.led_3gnet.dev") == kind.led
    assert option(r, "velaconfig.modem.operator") == "26201"
    assert option(r, f"mwan3.{NAME}.enabled") == "1"
    device = "" if kind.proto == "directip" else kind.led
    assert section(r, "velamodem", NAME) == ["=forceTTL", *([f"dev='{device}'"] if device else []), "ttl='64'"]
    assert list_of(r, "firewall.@zone[1].network") == ["wan", NAME]


@pytest.mark.parametrize("kind", KINDS.values(), ids=KINDS.keys())
def test_all_that_is_done_with_no_settings(router, kind):
    r = make(router, kind)
    before = packages(r)
    assert post(r, kind) == 0
    assert section(r, "network", NAME) == kind.lines()
    assert effects(r) == [TYPE, RELOAD_LED, *kind.before_up(), *bring_up()]
    assert restarts(r) == 1 and nothing_staged(r)
    assert option(r, "system.led_3gnet.dev") == kind.led
    assert section(r, "velamodem", NAME) == []
    assert r.read_bytes("/etc/config/velaconfig") == before["velaconfig"]


def test_a_direct_ip_modem_without_its_network_device(router, tmp_path):
    file = tmp_path / "mc7430.modem"
    text = (MODEMS / "mc7430.modem").read_text()
    assert " net eth1" in text
    file.write_text("".join(line + "\n" for line in text.splitlines() if not line.endswith(" net eth1")))
    r = make(router, Kind(str(file), 5, AT_PORT, "directip", None, "1-1.2:1.3", None))
    led = section(r, "system", "led_3gnet")
    assert post(r, MC7430, ttl=1) == 0
    assert section(r, "network", NAME) == [line for line in MC7430.lines() if not line.startswith("ifname")]
    assert effects(r) == [TYPE, RELOAD_LED, *bring_up()]
    assert section(r, "system", "led_3gnet") == led
    assert section(r, "velamodem", NAME) == ["=forceTTL", "ttl='1'"]


def test_the_bus_names_the_section_and_is_where_ports_are_looked_for(router):
    r = router(modems={"1-1.2": "ec25", "2-1.2": "ec25"}, quick=True, files=SIM, ubus=comes_up(ifname_of("2-1.2")))
    name = ifname_of("2-1.2")
    port = r.modem("2-1.2").tty(2)
    assert port != AT_PORT
    assert post(r, bus="2-1.2", device=port) == IS_AT_PORT
    assert r.events == []
    assert post(r, bus="2-1.2", device="/dev/cdc-wdm1", apn="a") == 0
    assert section(r, "network", name) == [
        "=interface", "ifname='wwan0'", "apn='a'", "proto='qmi'", "device='/dev/cdc-wdm1'", "node='2-1.2:1.4'",
        "metric='40'", "disabled='0'"]
    assert effects(r) == [TYPE, STATUS, TYPE, 'AT+CGDCONT=1,"IP","a"', RELOAD_LED, KILL, drop_session("/dev/cdc-wdm1"),
                          *bring_up(name)]
    assert r.modem("1-1.2").commands == [] and section(r, "network", NAME) == []
    assert list_of(r, "mwan3.default_poli.use_member") == ["wan_only", f"{name}_only"]


@pytest.mark.parametrize("kind", [KINDS["ec25 tty"], MC7430, KINDS["me3630 tty"], EC25, KINDS["ec25 qcm"],
                                  KINDS["ec25 qcm tty"]], ids=lambda kind: f"{kind.model} {kind.proto} {kind.device}")
def test_the_tamber_reloads_its_leds_once_more_behind_a_tty(router, kind):
    r = make(router, kind, board="tamber")
    assert post(r, kind) == 0
    later = [] if kind.proto in ("qmi", "qcm") else [RELOAD_LED_LATER]
    assert effects(r) == [TYPE, RELOAD_LED, *kind.before_up(), *bring_up(), *later]
    assert r.programs.count(["/etc/init.d/led", "reload"]) == 1 + len(later)


@pytest.mark.parametrize("board", ["pellin", "halvor", "ketrin", "xtamber", "tamber2", ""])
def test_other_boards_reload_their_leds_once(router, board):
    kind = KINDS["ec25 tty"]
    r = make(router, kind, board=board)
    assert post(r, kind) == 0
    sync = {"$ uci commit firewall": "$ uci commit firewall;sync"} if board == "ketrin" else {}
    assert effects(r) == [TYPE, RELOAD_LED, *(sync.get(effect, effect) for effect in bring_up())]


@pytest.mark.parametrize("state", ["pending", "down", "unknown"])
@pytest.mark.parametrize("kind", [EC25, KINDS["ec25 tty"], KINDS["ec25 qcm"]], ids=["qmi", "tty", "qcm"])
def test_a_link_that_does_not_come_up_is_not_told(router, kind, state):
    r = make(router, kind, ubus={"interfaces": {NAME: state}})
    assert post(r, kind) == 0
    assert section(r, "network", NAME) == kind.lines()


def test_the_count_of_failures_starts_anew(router):
    r = make(router, files={**SIM, "/tmp/modem.1-1.2/fail_count": "3\n", "/tmp/modem.2-1.2/fail_count": "3\n"})
    assert post(r, device=AT_PORT) == IS_AT_PORT
    assert r.exists("/tmp/modem.1-1.2/fail_count")
    assert post(r) == 0
    assert not r.exists("/tmp/modem.1-1.2/fail_count") and r.exists("/tmp/modem.2-1.2/fail_count")


# What is committed when


SNAPSHOT = '''#!/bin/dash
n=0
while [ -e /tmp/at.$n ]; do n=$((n + 1)); done
cp -r /etc/config /tmp/at.$n
'''


def has(r: Router, number: int, package: str, text: str) -> bool:
    """Whether a file of the configuration had the text at a snapshot."""
    return text in r.read(f"/tmp/at.{number}/{package}")


def test_each_package_is_committed_before_what_follows_it(router):
    network = {"network": f"config interface '{NAME}'\n\toption old '1'\n"}
    r = make(router, uci=network)
    r.stand_in("/bin/cat")
    r.answer("cat", SNAPSHOT + 'case $1 in *status) echo ready;; *) echo att;; esac\n', executable=True)
    r.answer("led", SNAPSHOT, executable=True)
    r.answer("killall", SNAPSHOT, executable=True)
    r.write("/etc/config/system", r.read("/etc/config/system").replace("'wwan0'", "'old'"))
    assert post(r, apn="net.example", operator="26201", ttl=64) == 0
    type_read, status_read, led, killed = 0, 1, 3, 4
    marks = {"old": ("network", "option old"), "network": ("network", "net.example"), "system": ("system", "'wwan0'"),
             "velaconfig": ("velaconfig", "26201"), "mwan3": ("mwan3", NAME), "velamodem": ("velamodem", NAME)}
    present = {number: [name for name, mark in marks.items() if has(r, number, *mark)]
               for number in (type_read, status_read, led, killed)}
    assert present == {
        type_read: [], status_read: ["network"], led: ["network", "system", "velaconfig"],
        killed: ["network", "system", "velaconfig", "mwan3", "velamodem"],
    }


def test_a_section_is_written_anew_and_all_others_stay(router):
    r = make(router)
    assert post(r, ttl=64, **SETTINGS) == 0
    r.run("uci", "set", f"network.{NAME}.note=mine")
    r.run("uci", "commit")
    before = {name: r.run("uci", "show", name).stdout.splitlines() for name in packages(r)}
    r.clear_events()
    assert post(r, KINDS["ec25 tty"], apn="other") == 0
    assert section(r, "network", NAME) == KINDS["ec25 tty"].lines("apn=other")
    assert effects(r)[-2:] == ["$ vela-firewall", f"network.interface.{NAME} status"]
    after = {name: r.run("uci", "show", name).stdout.splitlines() for name in packages(r)}
    differing = {name for name in before if before[name] != after[name]}
    assert differing == {"network", "system", "velamodem"}
    assert [line for line in after["network"] if NAME not in line] == [
        line for line in before["network"] if NAME not in line]
    assert [line for line in after["velamodem"] if NAME not in line] == after["velamodem"]


# Single settings


KEYS = {"service": "service", "apn": "apn", "pincode": "pincode", "dianum": "dialnumber", "username": "username",
        "password": "password", "ath": "auth"}


@pytest.mark.parametrize("key, name", KEYS.items())
def test_each_setting_on_its_own(router, key, name):
    r = make(router)
    assert post(r, **{key: "PAP"}) == 0
    assert section(r, "network", NAME) == EC25.lines(f"{name}=PAP")
    modem = {"apn": ['AT+CGDCONT=1,"IP","PAP"'], "ath": ['AT+QICSGP=1,1,"","","",1']}.get(key, [])
    assert r.modem().commands == modem


@pytest.mark.parametrize("key", [*SETTINGS])
@pytest.mark.parametrize("value", [None, 5, True, [], {"a": "b"}], ids=repr)
def test_a_setting_that_is_no_text_is_none(router, key, value):
    r = make(router)
    assert post(r, **{key: value}) == 0
    assert section(r, "network", NAME) == EC25.lines()
    assert effects(r) == [TYPE, RELOAD_LED, *EC25.before_up(), *bring_up()]


def test_settings_that_are_empty_are_passed_on(router):
    r = make(router, uci={"velaconfig": "config service 'modem'\n\toption operator '26201'\n"})
    assert post(r, **{key: "" for key in SETTINGS}) == 0
    assert section(r, "network", NAME) == EC25.lines()
    assert effects(r) == [TYPE, *EC25.set_apn(""), *EC25.set_ath("", "", "", 0), RELOAD_LED, *EC25.before_up(),
                          *bring_up()]
    assert option(r, "velaconfig.modem.operator") is None


@pytest.mark.parametrize("request_mtu", [None, "", "1400"], ids=repr)
@pytest.mark.parametrize("sim, verizon", [
    ("verizon\n", True), ("verizon", True), ("verizon_private and a very long text\n", True), ("Verizon\n", False),
    ("verizo\n", False), (" verizon\n", False), ("att\n", False), ("", False), (None, False),
], ids=repr)
def test_a_verizon_sim_without_an_mtu_has_the_one_of_its_network(router, sim, verizon, request_mtu):
    r = make(router, files={"/tmp/sim_type": sim})
    assert post(r, **({} if request_mtu is None else {"mtu": request_mtu})) == 0
    expected = request_mtu or ("1428" if verizon else None)
    assert section(r, "network", NAME) == EC25.lines(mtu=expected)
    assert effects(r).count(TYPE) == (0 if request_mtu else 1)


def test_a_verizon_sim_has_its_own_data_context(router):
    r = make(router, files={**SIM, "/tmp/sim_type": "verizon\n"})
    assert post(r, apn="vzw", ath="PAP") == 0
    assert r.modem().commands == ['AT+CGDCONT=3,"IPV4V6","vzw"', 'AT+QICSGP=3,3,"vzw","","",1']


@pytest.mark.parametrize("status", ["absent\n", "", None], ids=repr)
def test_without_a_ready_sim_the_rest_is_done(router, status):
    r = make(router, files={**SIM, "/tmp/sim_status": status})
    assert post(r, apn="net.example", ath="PAP") == 0
    assert effects(r) == [TYPE, STATUS, STATUS, RELOAD_LED, *EC25.before_up(), *bring_up()]


@pytest.mark.parametrize("answer", ["\nERROR\n", "\n+CME ERROR: 50\n"])
def test_a_modem_that_refuses_its_settings_is_configured_all_the_same(router, answer):
    r = make(router)
    for command in (*EC25.set_apn("a"), *EC25.set_ath("a", "", "", 1)):
        r.modem().reply(command, answer)
    assert post(r, apn="a", ath="PAP") == 0
    assert effects(r) == [TYPE, *EC25.set_apn("a"), *EC25.set_ath("a", "", "", 1), RELOAD_LED, *EC25.before_up(),
                          *bring_up()]


def test_a_modem_that_is_gone_is_configured_without_a_node(router):
    r = make(router)
    r.modem().unplug()
    assert post(r, apn="a") == 0
    lines = EC25.lines("apn=a")
    lines.remove("node='1-1.2:1.4'")
    assert section(r, "network", NAME) == lines
    assert effects(r) == [TYPE, STATUS, TYPE, RELOAD_LED, *EC25.before_up(), *bring_up()]


# Refused requests


@pytest.mark.parametrize("request_, status", [
    ({}, MISSING),
    ({"device": WDM}, MISSING),
    ({"modem_id": -1, "device": WDM}, MISSING),
    ({"modem_id": -1}, MISSING),
    ({"modem_id": 2, "device": WDM}, NO_MODEM),
    ({"modem_id": -2, "device": WDM}, NO_MODEM),
    ({"modem_id": 2**40, "device": WDM}, NO_MODEM),
    ({"modem_id": 2}, NO_MODEM),
    ({"modem_id": 3}, NO_DEVICE),
    ({"modem_id": 3, "device": None}, NO_DEVICE),
    ({"modem_id": 3, "device": 3}, NO_DEVICE),
    ({"modem_id": 3, "device": [WDM]}, NO_DEVICE),
    ({"modem_id": 3, "proto": "qcm", "ttl": 300, **SETTINGS}, NO_DEVICE),
    ({"modem_id": 3, "device": AT_PORT}, IS_AT_PORT),
    ({"modem_id": 3, "device": AT_PORT, "proto": "qcm"}, IS_AT_PORT),
    ({"modem_id": 3, "device": ""}, UNKNOWN_DEVICE),
    ({"modem_id": 3, "device": "/dev/ttyS0"}, UNKNOWN_DEVICE),
    ({"modem_id": 3, "device": "/dev/TTYUSB3"}, UNKNOWN_DEVICE),
    ({"modem_id": 3, "device": "/dev/wwan0", "proto": "qmi"}, UNKNOWN_DEVICE),
    ({"modem_id": 3, "device": "/dev/wwan0", "proto": "QCM"}, UNKNOWN_DEVICE),
    ({"modem_id": 3, "device": "/dev/wwan0", "proto": 5}, UNKNOWN_DEVICE),
], ids=json.dumps)
def test_a_request_that_is_refused_changes_nothing(router, request_, status):
    r = make(router, board="tamber")
    before = packages(r)
    assert r.api("post", SET, request_) == (status, {})
    assert r.events == [] and packages(r) == before and nothing_staged(r)


@pytest.mark.parametrize("text", ["null", "[]", "3", '"x"', "[1]"])
def test_a_request_that_is_no_object_changes_nothing(router, text):
    r = make(router)
    before = packages(r)
    result = r.run("vela_api", "post", SET, text)
    assert result.returncode in (1, 2) and packages(r) == before and r.events == []


@pytest.mark.parametrize("model, modem_id, port", [
    ("ec25", 3, AT_PORT), ("simcom7600", 20, AT_PORT), ("me3630", 30, "/dev/ttyUSB1"), ("ec200t", 6, "/dev/ttyUSB1"),
    ("nl678e", 40, AT_PORT), ("ep06", 1, AT_PORT), ("ec20", 0, AT_PORT), ("uc20", 4, AT_PORT),
])
def test_the_at_port_is_refused_where_the_model_has_another(router, model, modem_id, port):
    r = router(model, quick=True, ubus=comes_up(), files=SIM)
    assert r.api("post", SET, {"modem_id": modem_id, "device": port}) == (IS_AT_PORT, {})
    assert r.events == []
    # It is found afresh: after the modem has come back with other numbers it is another one.
    r.modem().unplug()
    r.modem().plug(first_tty=5)
    assert r.api("post", SET, {"modem_id": modem_id, "device": port})[0] == 0
    moved = f"/dev/ttyUSB{int(port[-1]) + 5}"
    assert r.api("post", SET, {"modem_id": modem_id, "device": moved}) == (IS_AT_PORT, {})


@pytest.mark.parametrize("modem_id", ["3", 3.7, "3x"], ids=repr)
def test_a_number_in_another_form_is_a_number(router, modem_id):
    r = make(router)
    assert post(r, modem_id=modem_id) == 0
    assert section(r, "network", NAME) == EC25.lines()


# Hostile and long values


HOSTILE = ["it's \"quoted\"", "a b\tc", "line\nfeed", "$(touch /tmp/hit)`touch /tmp/hit`;touch /tmp/hit", "a\\nb\\",
           "#x", "ü€😀", "%s%n%d", "'; option x '1", "\nconfig interface 'evil'\n\toption x '1'", "\x01\x7f"]


@pytest.mark.parametrize("value", HOSTILE, ids=range(len(HOSTILE)))
def test_values_stand_in_the_configuration_as_they_were_sent(router, value):
    r = make(router, KINDS["mc7430 qmi"])
    before = r.run("uci", "show", "network").stdout
    assert post(r, KINDS["mc7430 qmi"], **{key: value for key in SETTINGS}) == 0
    for name in [*KEYS.values(), "mtu"]:
        assert option(r, f"network.{NAME}.{name}") == value, name
    assert option(r, "velaconfig.modem.operator") == value
    assert r.run("uci", "show", "network").stdout.startswith(before) and not r.exists("/tmp/hit")
    assert option(r, f"network.{NAME}.metric") == "40" and section(r, "network", "evil") == []
    assert effects(r) == [RELOAD_LED, *KINDS["mc7430 qmi"].before_up(), *bring_up()]


def test_a_hostile_device_over_a_tty_only_stands_in_the_configuration(router):
    device = "/dev/ttyUSB3';touch /tmp/hit;$(touch /tmp/hit)\n\"x"
    kind = KINDS["ec25 tty"]
    r = make(router, kind)
    assert post(r, kind, device=device) == 0
    assert option(r, f"network.{NAME}.device") == device and not r.exists("/tmp/hit")
    assert effects(r) == [TYPE, RELOAD_LED, *bring_up()]


@pytest.mark.parametrize("key", [*SETTINGS])
def test_long_values_are_whole(router, key):
    kind = KINDS["mc7430 qmi"]
    r = make(router, kind)
    assert post(r, kind, **{key: "x" * 1023}) == 0
    path = "velaconfig.modem.operator" if key == "operator" else f"network.{NAME}.{KEYS.get(key, key)}"
    assert option(r, path) == "x" * 1023


@pytest.mark.parametrize("key", [*SETTINGS, "device"])
def test_a_value_that_could_not_be_read_back_aborts_and_nothing_is_written(router, key):
    kind = KINDS["mc7430 qmi"]
    r = make(router, kind)
    before = packages(r)
    request = {"modem_id": kind.modem_id, "device": kind.device, key: "x" * 1024}
    assert r.run("vela_api", "post", SET, json.dumps(request)).returncode == ABORTED
    assert packages(r) == before and r.events == []


@pytest.mark.parametrize("kind", [EC25, KINDS["nl678e qmi"]], ids=["quectel", "fibocom"])
@pytest.mark.parametrize("length, fits", [(79, True), (80, False), (1000, False)])
def test_an_apn_that_does_not_fit_its_command_aborts_with_the_section_whole(router, kind, length, fits):
    r = make(router, kind)
    before = packages(r)
    apn = "a" * length
    request = {"modem_id": kind.modem_id, "device": kind.device, "apn": apn, "mtu": "1", "operator": "x", "ttl": 9}
    result = r.run("vela_api", "post", SET, json.dumps(request))
    assert result.returncode == (0 if fits else ABORTED)
    assert section(r, "network", NAME) == kind.lines(f"apn={apn}", mtu="1")
    assert nothing_staged(r)
    after = packages(r)
    changed = {name for name in before if before[name] != after[name]}
    rest = {"mwan3", "velaconfig", "velamodem", "firewall"}
    assert changed - {"system"} == ({"network"} | rest if fits else {"network"})
    assert r.modem().commands == ([f'AT+CGDCONT=1,"IP","{apn}"'] if fits else [])


def test_credentials_that_do_not_fit_their_command_abort_with_the_section_whole(router):
    r = make(router)
    password = "p" * 80
    request = {"modem_id": 3, "device": WDM, "apn": "a", "password": password, "ath": "PAP"}
    assert r.run("vela_api", "post", SET, json.dumps(request)).returncode == ABORTED
    assert section(r, "network", NAME) == EC25.lines("apn=a", f"password={password}", "auth=PAP")
    assert r.modem().commands == ['AT+CGDCONT=1,"IP","a"'] and nothing_staged(r)


@pytest.mark.parametrize("more", [
    {"bus": "1" * 10}, {"bus": "1-1.2.3.4.5.6.7"}, {"bus": "x" * 1000},
    {"device": "/dev/cdc-wdm0" + "x" * 40}, {"device": "/dev/cdc-wdm0" + "x" * 10000},
], ids=["bus 10", "bus 15", "bus 1000", "device 53", "device 10013"])
def test_a_value_that_fits_nowhere_aborts_before_anything_is_done(router, more):
    r = make(router, files={**SIM, "/tmp/modem.1-1.2/fail_count": "3\n"})
    r.write("/etc/config/network", f"config interface '{NAME}'\n\toption proto 'qmi'\n")
    before = packages(r)
    result = r.run("vela_api", "post", SET, json.dumps({"modem_id": 3, "device": WDM, **more}))
    assert result.returncode == ABORTED
    assert packages(r) == before and r.events == [] and nothing_staged(r)
    assert r.exists("/tmp/modem.1-1.2/fail_count")


@pytest.mark.parametrize("value", [5, None, [], True])
def test_a_bus_that_is_no_text_is_the_usual_one(router, value):
    r = make(router)
    assert post(r, bus=value) == 0
    assert section(r, "network", NAME) == EC25.lines()


# Faults of the configuration


def read_only(r: Router, package: str) -> None:
    path = f"/etc/config/{package}"
    for options in ("bind", "remount,bind,ro"):
        assert r.run("mount", "-o", options, path, path).returncode == 0


@pytest.mark.parametrize("package", ["network", "mwan3", "velamodem", "system", "velaconfig", "firewall"])
@pytest.mark.parametrize("fault", ["missing", "empty", "read-only"])
def test_the_rest_is_written_where_a_package_cannot_be(router, package, fault):
    r = make(router, uci={package: {"missing": None, "empty": ""}.get(fault)} if fault != "read-only" else {})
    if fault == "read-only":
        read_only(r, package)
    before = packages(r)
    assert post(r, operator="26201", ttl=64, apn="a") == 0
    after = packages(r)
    assert set(after) == set(before)
    if fault != "empty":
        assert after.get(package) == before.get(package)
    written = {"network": f"network.{NAME}.device", "mwan3": f"mwan3.{NAME}.enabled",
               "velamodem": f"velamodem.{NAME}.ttl", "velaconfig": "velaconfig.modem.operator"}
    for other, path in written.items():
        if other != package:
            assert option(r, path) is not None, path
    expected = [TYPE, *EC25.set_apn("a"), RELOAD_LED, *EC25.before_up(), *bring_up()]
    if package == "firewall" and fault != "read-only":
        expected = [effect.replace('"wan ', '" ') for effect in expected]
    assert effects(r) == expected


def test_a_configuration_that_cannot_be_written_at_all(router):
    r = make(router)
    for options in ("bind", "remount,bind,ro"):
        assert r.run("mount", "-o", options, "/etc/config", "/etc/config").returncode == 0
    before = packages(r)
    assert post(r, **SETTINGS) == 0
    assert packages(r) == before


def test_a_full_tmp_loses_nothing(router):
    r = make(router)
    r.run("mkdir", "-p", "/tmp/.uci")
    assert r.run("mount", "-t", "tmpfs", "-o", "size=4k", "tmpfs", "/tmp/.uci").returncode == 0
    r.run("/bin/dash", "-c", "while echo x >> /tmp/.uci/fill 2>/dev/null; do :; done")
    before = {(package, name): section(r, package, name) for package, name in (
        ("network", "loopback"), ("network", "lan"), ("network", "wan"), ("mwan3", "wan"), ("mwan3", "default_poli"),
        ("velamodem", "sim"), ("system", "led_3gnet"))}
    assert all(before.values())
    assert post(r, **SETTINGS) == 0
    assert {place: section(r, *place) for place in before} == before
    r.remove("/tmp/.uci/fill")
    assert post(r, **SETTINGS) == 0
    assert section(r, "network", NAME) == EC25.lines(*WRITTEN, mtu="1400")


def test_staged_changes_of_others_are_kept(router):
    r = make(router)
    for path in ("network.wan.note", "mwan3.wan.note", "velamodem.sim.note", "system.led_3gnet.note"):
        assert r.run("uci", "set", f"{path}=mine").returncode == 0
    assert post(r) == 0
    for path in ("network.wan.note", "mwan3.wan.note", "velamodem.sim.note", "system.led_3gnet.note"):
        assert option(r, path) == "mine"
    assert section(r, "network", NAME) == EC25.lines()


# Several at once


COMMITTING = '''
i=0
while [ ! -e /tmp/stop ]; do
    i=$((i + 1))
    uci set $1.o$i=$2
    uci set $1.o$i.value=$i
    uci commit $1
    echo $i > /tmp/count.$1
done
'''


def test_another_process_that_commits_all_the_time_loses_nothing_and_disturbs_nothing(router):
    r = make(router)
    watched = ("network", "mwan3", "velamodem", "system", "velaconfig")
    others = {package: r.start("/bin/dash", "-c", COMMITTING, "dash", package, "other") for package in watched}
    for package in others:
        r.wait_for(lambda: r.exists(f"/tmp/count.{package}"), "the first commit")
    for number in range(1, 5):
        status, _ = r.api("post", SET, {"modem_id": 3, "device": WDM, "ttl": number, "operator": f"n{number}",
                                        "apn": f"a{number}"})
        assert status == 0
        assert section(r, "network", NAME) == EC25.lines(f"apn=a{number}")
        assert section(r, "velamodem", NAME) == ["=forceTTL", "dev='wwan0'", f"ttl='{number}'"]
        assert option(r, "velaconfig.modem.operator") == f"n{number}"
    r.write("/tmp/stop", "")
    for process in others.values():
        process.communicate()
    r.wait_idle()
    for package in watched:
        count = int(r.read(f"/tmp/count.{package}"))
        shown = r.run("uci", "show", package).stdout
        lost = [i for i in range(1, count + 1) if f"{package}.o{i}.value='{i}'\n" not in shown]
        assert not lost and count > 1
    assert list_of(r, "mwan3.default_poli.use_member") == ["wan_only", f"{NAME}_only"]
    assert len(list_of(r, f"mwan3.{NAME}.track_ip")) == 4


@pytest.mark.parametrize("attempt", range(3))
def test_two_modems_that_are_configured_at_once(router, attempt):
    buses = ["1-1.2", "2-1.2"]
    names = [ifname_of(bus) for bus in buses]
    r = router(modems={bus: "ec25" for bus in buses}, quick=True, files=SIM, ubus=comes_up(*names))
    devices = [WDM, "/dev/cdc-wdm1"]
    processes = [
        r.start("vela_api", "post", SET, json.dumps({
            "modem_id": 3, "bus": bus, "device": device, "apn": bus, "ttl": 60, "ath": "PAP"}))
        for bus, device in zip(buses, devices)
    ]
    for process in processes:
        output, _ = process.communicate()
        assert process.returncode == 0 and json.loads(output) == {}
    r.wait_idle()
    for bus, name, device in zip(buses, names, devices):
        assert section(r, "network", name) == [
            "=interface", "ifname='wwan0'", f"apn='{bus}'", "proto='qmi'", f"device='{device}'", f"node='{bus}:1.4'",
            "auth='PAP'", "metric='40'", "disabled='0'"]
        assert len(list_of(r, f"mwan3.{name}.track_ip")) == 4
        assert section(r, "velamodem", name)[0] == "=forceTTL"
        assert r.modem(bus).commands == [f'AT+CGDCONT=1,"IP","{bus}"', f'AT+QICSGP=1,1,"{bus}","","",1']
    assert sorted(list_of(r, "mwan3.default_poli.use_member")) == ["modem_1_1_2_only", "modem_2_1_2_only", "wan_only"]
    assert nothing_staged(r) and restarts(r) == 2


def test_a_host_keeps_nothing_of_ten_requests(router):
    r = make(router)
    for number in range(10):
        assert post(r, apn=f"a{number}", ttl=number) == 0
    assert section(r, "network", NAME) == EC25.lines("apn=a9")
    assert r.read("/etc/config/network").count(f"'{NAME}'") == 1
    assert r.read("/etc/config/mwan3").count(f"'{NAME}'") == 2  # the section, and the member's interface
    assert list_of(r, "firewall.@zone[1].network") == ["wan", NAME]
