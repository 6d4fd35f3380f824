"""/modem/set: the section that it writes and everything it does to the router, in order, for each kind of device."""

import json

import pytest
from modem_config import (
    NAME, SET, WDM, comes_up, effects, ifname_of, list_of, nothing_staged, option, packages, restarts, section,
)
from modem_kinds import (
    EC25, KEYS, KILL, KINDS, MC7430, RELOAD_LED, RELOAD_LED_LATER, SETTINGS, SIM, STATUS, TYPE, WRITTEN, Kind,
    bring_up, drop_session, make, post,
)
from support import AT_PORT
from velasim import Router
from velasim.modem_file import MODEMS

MISSING, NO_MODEM, NO_DEVICE, UNKNOWN_DEVICE, IS_AT_PORT = -251, -250, -5, -256, -265


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
