"""/modem/set with values that are hostile or too long, with faults of the configuration, and several at once."""

import json

import pytest
from modem_config import (
    NAME, SET, WDM, comes_up, effects, ifname_of, list_of, nothing_staged, option, packages, restarts, section,
)
from modem_kinds import EC25, KEYS, KINDS, RELOAD_LED, SETTINGS, SIM, TYPE, WRITTEN, bring_up, make, post
from support import ABORTED
from velasim import Router

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
