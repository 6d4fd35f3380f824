"""The commands connect, connect-auto, new-connect-auto and disconnect: what they print, and every effect in its order.

The link is up as soon as netifd has been told to bring it up, unless a test says otherwise.
"""

import json
import re

import pytest
from connection_client import (
    BOARDS, BY_REQUEST, IFNAME, READY, STATUS, ZONE_KEPT, bring_up, effects, interface, link, section,
    sorted_out,
)
from probe_client import parse, run_probe
from support import ABORTED, CONNECT_USAGE, traced
from velasim import Router

SUCCESS = "\nconnect success"
SIM_TYPE = "$ cat /tmp/sim_type"
LED = ["$ /etc/init.d/led reload 2>&1 >/dev/null", "> /etc/init.d/led reload"]
KILL_UQMI = ["$ killall uqmi 2>/dev/null", "> killall uqmi"]
FAIL_COUNT = "/tmp/modem.1-1.2/fail_count"
WDM = "/dev/cdc-wdm0"


def drop_session(device: str = WDM) -> list[str]:
    command = f"timeout -t 2 uqmi -d {device} --stop-network 4294967295 --autoconnect"
    return [f"$ {command} 2>/dev/null", f"> {command}"]


def make(router, modem: str | None = "ec25", state: str | None = None, files: dict | None = None, **options) -> Router:
    """A router whose SIM is ready and whose modem's link comes up; with `state` it is in that state for ever."""
    ubus = options.pop("ubus", link(state) if state else BY_REQUEST)
    return router(modem, quick=True, ubus=ubus, files={**READY, FAIL_COUNT: "3\n", **(files or {})}, **options)


def run(r: Router, *words: str) -> str:
    """What the command prints; its exit status is 0, and it has no errors to show."""
    result = r.run("vela_modem", *words)
    r.wait_idle()
    assert (result.returncode, result.stderr) == (0, ""), result
    return result.stdout


def context(apn: str, port: str = "ttyUSB2", number: str = "1", pdp_type: str = "IP") -> list[str]:
    """A Quectel modem is given its APN."""
    return ["$ cat /tmp/sim_status", SIM_TYPE, f'@{port} AT+CGDCONT={number},"{pdp_type}","{apn}"']


def written(apn: list[str] = ()) -> list[str]:
    """The section is written, as far as that is seen: the SIM's type decides the MTU."""
    return [SIM_TYPE, *apn, *LED]


# connect: whole sequences


@pytest.mark.parametrize("board", BOARDS)
def test_connect_serial_in_order(router, board):
    r = make(router, board=board)
    assert run(r, "connect", "serial", "/dev/ttyUSB3", "umts", "internet") == SUCCESS
    assert sorted_out(effects(r)) == [*written(context("internet")), *bring_up(board=board)]
    assert section(r) == {
        "ifname": "3g-modem", "service": "umts", "apn": "internet", "proto": "3g", "device": "/dev/ttyUSB3",
        "node": "1-1.2:1.3", "metric": "40", "disabled": "0"}
    assert not r.exists(FAIL_COUNT)


@pytest.mark.parametrize("board", BOARDS)
def test_connect_qmi_in_order(router, board):
    r = make(router, board=board)
    r.stand_in("/usr/bin/timeout")
    assert run(r, "connect", "qmi", WDM, "lte", "internet") == SUCCESS
    assert sorted_out(effects(r)) == [*written(context("internet")), *KILL_UQMI, *drop_session(),
                                      *bring_up(board=board)]
    assert section(r) == {
        "ifname": "wwan0", "service": "lte", "apn": "internet", "proto": "qmi", "device": WDM, "node": "1-1.2:1.4",
        "metric": "40", "disabled": "0"}
    assert not r.exists(FAIL_COUNT)


@pytest.mark.parametrize("board", BOARDS)
def test_the_section_is_complete_before_netifd_hears_of_it(router, board):
    """Each program sees the configuration as it is then; the metric of the board comes behind the LED."""
    r = make(router, board=board, modem=None, modems={"2-1.2": "ec25"}, ubus=link(name="modem_2_1_2", on_up="up"))
    r.stand_in("/usr/bin/timeout")
    for program in ("led", "killall", "timeout", "firewall"):
        r.answer(program, '#!/bin/dash\ncp /etc/config/network "/run/sim/${0##*/}.seen"\n', executable=True)
    assert run(r, "-B", "2-1.2", "connect", "qmi", WDM, "lte", "internet") == SUCCESS
    seen = [section(r, name, "modem_2_1_2") for name in ("led", "killall", "timeout", "firewall")]
    before = {"ifname": "wwan0", "service": "lte", "apn": "internet", "proto": "qmi", "device": WDM,
              "node": "2-1.2:1.4", "metric": "40", "disabled": "0"}
    after = {**before, "metric": "60" if board == "halvor" else "40"}
    assert seen == [before, after, after, after]
    assert section(r, name="modem_2_1_2") == after


def test_mwan3_learns_the_interface_once_and_restarts_for_it(router):
    r = make(router)
    for restarts in ([["mwan3", "restart"]], []):
        r.clear_events()
        assert run(r, "connect", "serial", "/dev/ttyUSB3", "umts", "internet") == SUCCESS
        assert [argv for argv in r.programs if argv[0] == "mwan3"] == restarts
    assert r.run("uci", "get", "mwan3.default_poli.use_member").stdout.split() == ["wan_only", f"{IFNAME}_only"]


@pytest.mark.parametrize("modem, device, network_device, proto", [
    ("ec20", "/dev/ttyUSB3", "3g-modem", "3g"), ("ep06", "/dev/ttyUSB3", "3g-modem", "3g"),
    ("uc20", "/dev/ttyUSB3", "3g-modem", "3g"), ("mc7430", "/dev/ttyUSB2", "eth1", "directip"),
    ("simcom7600", "/dev/ttyUSB3", "xxx", "ncm"), ("me3630", "/dev/ttyUSB2", "usb0", "ncm"),
    ("ec200t", "/dev/ttyUSB2", "usb0", "ncm"), ("bg95", "/dev/ttyUSB2", "3g-modem", "3g"),
    ("eg91", "/dev/ttyUSB3", "3g-modem", "3g"), ("ec100y", "/dev/ttyUSB1", "3g-modem", "3g"),
    ("nl678e", "/dev/ttyUSB3", "3g-modem", "3g"), ("unknown", "/dev/ttyACM0", "3g-modem", "3g"),
])
def test_connect_serial_on_every_model(router, modem, device, network_device, proto):
    r = make(router, modem)
    assert run(r, "connect", "serial", device, "umts", "internet") == SUCCESS
    expected = section(r)
    assert (expected["proto"], expected["ifname"], expected["device"]) == (proto, network_device, device)
    led = {"3g": f"3g-{IFNAME}", "directip": network_device}.get(proto, "wwan0")
    assert r.run("uci", "get", "system.led_3gnet.dev").stdout == led + "\n"


def test_a_direct_ip_modem_without_its_network_device(router):
    r = make(router, "mc7430")
    [directory] = [path for path in r.run("find", "/sys/devices/platform", "-name", "eth1").stdout.split()]
    r.remove(directory)
    assert run(r, "connect", "serial", "/dev/ttyUSB2", "umts", "internet") == SUCCESS
    assert section(r)["proto"] == "directip" and "ifname" not in section(r)


@pytest.mark.parametrize("flags, proto, network_device", [
    (0x10, "callip", "wwan0"), (0x11, "callip", "wwan0"), (0x14, "directip", "eth7"), (0x34, "directip", "eth7"),
    (0x30, "callip", "wwan0"), (0x20, "ncm", "xxx"), (0x63, "ncm", "xxx"), (0x43, "3g", "3g-modem"),
    (0, "3g", "3g-modem"), (0xffffffcb, "3g", "3g-modem"),
])
def test_the_protocol_of_each_bit(router, flags, proto, network_device):
    r = make(router)
    [directory] = r.run("find", "/sys/devices/platform", "-name", "1-1.2:1.0").stdout.split()
    r.run("mkdir", "-p", f"{directory}/net/eth7")
    assert parse(run_probe(r, "connect-serial", "1-1.2", str(flags), "/dev/ttyUSB3")) == (0, {"current": 3})
    assert (section(r)["proto"], section(r)["ifname"]) == (proto, network_device)


def test_a_modem_with_a_call_without_its_network_device_takes_the_ppp_one(router):
    r = make(router)
    [directory] = r.run("find", "/sys/devices/platform", "-name", "wwan0").stdout.split()
    r.remove(directory)
    assert parse(run_probe(r, "connect-serial", "1-1.2", "16", "/dev/ttyUSB3")) == (0, {"current": 3})
    assert (section(r)["proto"], section(r)["ifname"]) == ("callip", "3g-modem")


def test_an_unknown_modem_has_no_session_to_drop(router):
    r = make(router, "unknown")
    r.clear_events()
    assert run(r, "connect", "qmi", WDM, "lte", "internet") == SUCCESS
    assert "$ killall uqmi 2>/dev/null" in effects(r)
    assert not [effect for effect in effects(r) if "uqmi -d" in effect]
    assert section(r)["proto"] == "qmi"


@pytest.mark.parametrize("board", BOARDS)
def test_the_qcm_procedure_drops_no_session(router, board):
    r = make(router, board=board)
    assert parse(run_probe(r, "connect-qcm", "1-1.2", WDM)) == (0, {"current": 3})
    assert sorted_out(effects(r)) == [*written(), *KILL_UQMI, *bring_up(board=board)]
    assert section(r) == {"ifname": "wwan0", "proto": "qcm", "device": WDM, "node": "1-1.2:1.4", "metric": "40",
                          "disabled": "0"}


@pytest.mark.parametrize("device, result, questions", [(WDM, 0, 2), ("-", -1, 16)])
def test_the_qcm_procedure_with_a_link_that_never_comes_up(router, device, result, questions):
    r = make(router, state="pending")
    assert parse(run_probe(r, "connect-qcm", "1-1.2", device)) == (result, {"current": -1})
    assert effects(r).count(STATUS) == questions
    assert section(r)["device"] == WDM


@pytest.mark.parametrize("modem", ["bg95", "simcom7600", "unknown"])
def test_the_qcm_procedure_of_a_model_without_the_port_finds_a_device_or_fails(router, modem):
    """An unknown modem's port is the one of its first interface, whatever that is."""
    r = make(router, modem)
    r.clear_events()
    result, reply = parse(run_probe(r, "connect-qcm", "1-1.2", "-"))
    if modem == "unknown":
        assert (result, reply) == (0, {"current": 255}) and section(r)["device"] == "/dev/ttyACM0"
    else:
        assert (result, reply) == (-1, {"current": -1}) and r.events == [] and r.exists(FAIL_COUNT)


@pytest.mark.parametrize("modem, device, result", [("ec25", WDM, -1), ("unknown", "/dev/ttyACM0", 0)])
def test_a_device_that_is_found_but_not_made_is_none_for_a_known_model_alone(router, modem, device, result):
    r = make(router, modem)
    r.remove(device)
    assert parse(run_probe(r, "connect-qcm", "1-1.2", "-")) == (result, {"current": 255 if result == 0 else -1})
    assert section(r).get("device") == (device if result == 0 else None)


# connect: arguments


@pytest.mark.parametrize("mode, proto", [("serial", "3g"), ("qmi", "qmi")])
def test_connect_without_an_apn(router, mode, proto):
    r = make(router)
    assert run(r, "connect", mode, "/dev/ttyUSB3", "umts") == SUCCESS
    assert section(r)["proto"] == proto and "apn" not in section(r)
    assert r.modem().commands == []


@pytest.mark.parametrize("words", [[], ["qmi"], ["serial", "/dev/ttyUSB3"], ["ppp", "/dev/ttyUSB3"]])
@pytest.mark.parametrize("options", [[], ["-B", "1-1.2"], ["1-1.2"]])
def test_connect_with_too_few_arguments_prints_its_usage(router, options, words):
    r = make(router)
    assert run(r, *options, "connect", *words) == CONNECT_USAGE
    assert r.events == [] and r.exists(FAIL_COUNT)


@pytest.mark.parametrize("mode", ["ppp", "QMI", "qcm", "serial ", ""])
def test_connect_with_another_mode_is_silent(router, mode):
    r = make(router)
    assert run(r, "connect", mode, "/dev/ttyUSB3", "umts", "internet") == ""
    assert r.events == [] and r.exists(FAIL_COUNT)


@pytest.mark.parametrize("value", [
    "it's", 'a "b"', "two\nlines", "$(reboot)", "`reboot`", "; reboot", "%s%n", "ü€", "\\", "#1", "x" * 60,
], ids=repr)
def test_the_arguments_are_kept_as_they_are(router, value):
    r = make(router, "unknown")  # which is not told its APN
    assert run(r, "connect", "serial", "/dev/ttyACM0", value, value) == SUCCESS
    for option in ("service", "apn"):
        assert r.run("uci", "get", f"network.{IFNAME}.{option}").stdout == value + "\n"
    assert ["reboot"] not in r.programs


@pytest.mark.parametrize("device", [
    f"{WDM}; reboot", f"{WDM}$(reboot)", f"{WDM}\nreboot", f"{WDM} -x", f"{WDM}'", "`reboot`", f"{WDM}&",
    f"{WDM}>x", "~",
], ids=repr)
def test_a_device_that_a_shell_would_take_apart_is_never_given_to_one(router, device):
    r = make(router)
    assert run(r, "connect", "qmi", device, "lte") == SUCCESS
    assert not [command for command in r.commands if "uqmi -d" in command]
    assert ["reboot"] not in r.programs
    assert r.run("uci", "get", f"network.{IFNAME}.device").stdout == device + "\n"


@pytest.mark.parametrize("length", [27, 28, 100, 10000])
def test_a_device_that_does_not_fit_the_command_ends_the_process_before_anything_is_done(router, length):
    r = make(router)
    device = "/dev/cdc-wdm".ljust(length, "0")
    result = r.run("vela_modem", "connect", "qmi", device, "lte", "internet")
    assert (result.returncode, result.stdout) == (ABORTED, "")
    assert r.events == [] and section(r) == {} and r.exists(FAIL_COUNT)


def test_the_longest_device_that_fits(router):
    r = make(router)
    device = "/dev/cdc-wdm".ljust(26, "0")
    assert run(r, "connect", "qmi", device, "lte") == SUCCESS
    assert drop_session(device)[0] in effects(r) and len(drop_session(device)[0]) == len("$ ") + 99


# connect: a link that does not come up


@pytest.mark.parametrize("state", ["down", "pending", "unknown"])
@pytest.mark.parametrize("mode, device", [("serial", "/dev/ttyUSB3"), ("qmi", WDM)])
def test_who_names_the_device_is_not_told_of_a_link_that_never_comes_up(router, mode, device, state):
    r = make(router, state=state)
    result = r.run("vela_modem", "connect", mode, device, "umts", "internet")
    assert (result.returncode, result.stdout) == (0, SUCCESS)
    assert effects(r).count(STATUS) == (0 if state == "unknown" else 2)


@pytest.mark.parametrize("fault", [{"status": 7}, {"status": 6}, "die"], ids=str)
@pytest.mark.parametrize("method", ["status", "<lookup>"])
def test_a_netifd_that_fails_is_a_link_that_is_down(router, fault, method):
    r = make(router, ubus={**BY_REQUEST, "faults": {f"network.interface.{IFNAME}": {method: fault}}})
    result = r.run("vela_modem", "connect", "serial", "/dev/ttyUSB3", "umts", "internet")
    assert (result.returncode, result.stdout) == (0, SUCCESS)
    result = r.run("vela_modem", "connect-auto")
    assert (result.returncode, result.stdout) == (0, "")
    assert section(r)["apn"] == "web.vodafone.de"


def test_without_a_bus_the_rest_is_done(router):
    r = make(router, ubus=False)
    result = r.run("vela_modem", "connect", "qmi", WDM, "lte", "internet")
    assert (result.returncode, result.stdout) == (0, SUCCESS)
    assert section(r)["proto"] == "qmi"


def test_a_run_that_is_killed_while_netifd_does_not_answer_leaves_the_section_whole(router):
    r = make(router, ubus={**BY_REQUEST, "faults": {f"network.interface.{IFNAME}": {"status": "silent"}}})
    process = r.start("vela_modem", "connect", "serial", "/dev/ttyUSB3", "umts", "internet")
    r.wait_for(lambda: STATUS in effects(r), "the first question")
    process.kill()
    process.wait()
    killed = section(r)
    r.set_ubus_state(BY_REQUEST)
    r.clear_events()
    assert run(r, "connect", "serial", "/dev/ttyUSB3", "umts", "internet") == SUCCESS
    assert sorted_out(effects(r)) == [*written(context("internet")), *bring_up(zone=ZONE_KEPT)]
    assert section(r) == killed


# connect: the failure count, and the configuration around


@pytest.mark.parametrize("make_it", [
    lambda r: None, lambda r: r.remove("/tmp/modem.1-1.2"), lambda r: r.write(FAIL_COUNT, b"\0" * 5000),
], ids=["a file", "no directory", "large"])
def test_the_failure_count_is_deleted(router, make_it):
    r = make(router)
    r.write("/tmp/modem.2-1.2/fail_count", "1")
    make_it(r)
    assert run(r, "connect", "serial", "/dev/ttyUSB3", "umts") == SUCCESS
    assert not r.exists(FAIL_COUNT) and r.exists("/tmp/modem.2-1.2/fail_count")


def test_the_old_section_goes_with_all_its_options_and_nothing_else_does(router):
    old = (f"config interface '{IFNAME}'\n\toption proto 'qcm'\n\toption apn 'old'\n\toption pincode '1234'\n"
           "\tlist dns '192.0.2.1'\n\toption disabled '1'\n\n")
    others = "config interface 'wan'\n\toption proto 'dhcp'\n"
    r = make(router, uci={"network": old + others})
    assert run(r, "connect", "serial", "/dev/ttyUSB3", "umts") == SUCCESS
    assert section(r) == {"ifname": "3g-modem", "service": "umts", "proto": "3g", "device": "/dev/ttyUSB3",
                          "node": "1-1.2:1.3", "metric": "40", "disabled": "0"}
    assert r.run("uci", "show", "network.wan").stdout == "network.wan=interface\nnetwork.wan.proto='dhcp'\n"
    assert r.run("uci", "changes").stdout == ""


def test_what_another_process_commits_at_every_step_stays(router):
    """The programs that run in between set an option each, in the packages that are being written."""
    r = make(router)
    r.stand_in("/usr/bin/timeout")
    programs = ("led", "killall", "timeout", "firewall")
    for number, program in enumerate(programs):
        sets = "".join(f"uci set {package}.other{number}=interface; uci set {package}.other{number}.by='{program}'; "
                       f"uci commit {package}; " for package in ("network", "system", "mwan3", "firewall"))
        r.answer(program, f"#!/bin/dash\n{sets}\n", executable=True)
    assert run(r, "connect", "qmi", WDM, "lte", "internet") == SUCCESS
    for number, program in enumerate(programs):
        for package in ("network", "system", "mwan3", "firewall"):
            assert r.run("uci", "get", f"{package}.other{number}.by").stdout == program + "\n"
    assert section(r)["proto"] == "qmi"
    assert IFNAME in r.run("uci", "get", "firewall.@zone[1].network").stdout.split()


@pytest.mark.parametrize("package", ["network", "system", "velaconfig", "mwan3", "velamodem", "firewall"])
def test_a_package_that_is_missing_stops_nothing(router, package):
    r = make(router, uci={package: None})
    result = r.run("vela_modem", "connect", "serial", "/dev/ttyUSB3", "umts", "internet")
    assert (result.returncode, result.stdout) == (0, SUCCESS)
    assert effects(r)[-1] == STATUS


def make_read_only(r: Router, directory: str) -> None:
    r.run("mount", "--bind", directory, directory)
    assert r.run("mount", "-o", "remount,bind,ro", directory).returncode == 0


def fill_tmp(r: Router) -> None:
    assert r.run("mount", "-t", "tmpfs", "-o", "size=8k", "tmpfs", "/tmp").returncode == 0
    assert r.run("/bin/dash", "-c", "cat /dev/zero > /tmp/filling").returncode != 0


@pytest.mark.parametrize("spoil, mend", [
    (lambda r: make_read_only(r, "/tmp"), lambda r: r.run("umount", "/tmp")),
    (lambda r: make_read_only(r, "/etc/config"), lambda r: r.run("umount", "/etc/config")),
    (fill_tmp, lambda r: r.remove("/tmp/filling")),
], ids=["/tmp is read-only", "/etc/config is read-only", "/tmp is full"])
def test_where_nothing_can_be_written_the_configuration_stays_and_the_next_run_succeeds(router, spoil, mend):
    """libuci keeps changes below /tmp until they are in the configuration."""
    r = make(router, uci=saved())
    before = {name: r.read(f"/etc/config/{name}") for name in r.listdir("/etc/config")}
    spoil(r)
    result = r.run("vela_modem", "connect", "serial", "/dev/ttyUSB3", "umts", "internet")
    assert (result.returncode, result.stdout) == (0, SUCCESS)
    assert effects(r)[-1] == STATUS
    assert {name: r.read(f"/etc/config/{name}") for name in before} == before
    mend(r)
    assert r.run("vela_modem", "connect", "serial", "/dev/ttyUSB3", "umts", "internet").stdout == SUCCESS
    assert (section(r)["apn"], section(r)["proto"]) == ("internet", "3g") and "pincode" not in section(r)


# connect-auto: the APNs


def database(*entries: dict) -> dict:
    return {"/www/src/lib/apn-config.js": "x" * 24 + json.dumps({"apns": {"apn": list(entries)}})}


def apn(name: str | None, kind: object = ..., mcc: str = "262", mnc: str = "02", **more: object) -> dict:
    optional = ({} if name is None else {"apn": name}) | ({} if kind is ... else {"type": kind}) | more
    return {"-mcc": mcc, "-mnc": mnc, **{f"-{key}": value for key, value in optional.items()}}


IMSI = ["@ttyUSB2 AT+CIMI", "@ttyUSB2 AT+CIMI", '$ echo "262020000000017" >/tmp/modem.1-1.2/cimi']


def attempts(r: Router) -> list[tuple[str, str | None, str | None, str | None]]:
    """What each attempt had in its section, from what netifd was given to read."""
    text = r.read("/run/sim/attempts") if r.exists("/run/sim/attempts") else ""
    found = []
    for attempt in re.split(r"^--$", text, flags=re.MULTILINE)[1:]:
        options = dict(re.findall(rf"^network\.{IFNAME}\.(\w+)='(.*)'$", attempt, re.MULTILINE))
        found.append(tuple(options.get(name) for name in ("proto", "apn", "username", "password")))
    return found


def record_attempts(r: Router, more: str = "") -> None:
    """The LED's script is run once for each attempt, behind the section."""
    r.answer("led", f"#!/bin/dash\n(echo --; uci show network) >> /run/sim/attempts\n{more}", executable=True)


@pytest.mark.parametrize("board", BOARDS)
def test_connect_auto_in_order(router, board):
    r = make(router, board=board)
    r.stand_in("/usr/bin/timeout")
    assert run(r, "connect-auto") == SUCCESS
    assert sorted_out(effects(r)) == [*IMSI, *written(context("web.vodafone.de")), *KILL_UQMI, *drop_session(),
                                      *bring_up(board=board)]
    assert section(r) == {
        "ifname": "wwan0", "service": "fdd_lte", "apn": "web.vodafone.de", "proto": "qmi", "device": WDM,
        "node": "1-1.2:1.4", "metric": "40", "disabled": "0"}


def test_connect_auto_over_qmi_and_then_over_the_tty(router):
    r = make(router, state="down")
    r.stand_in("/usr/bin/timeout")
    assert run(r, "connect-auto") == ""
    waiting = [STATUS] * 15
    assert sorted_out(effects(r)) == [
        *IMSI,
        *written(context("web.vodafone.de")), *KILL_UQMI, *drop_session(), *bring_up(), *waiting,
        *written(context("web.vodafone.de")), *bring_up(zone=ZONE_KEPT), *waiting]
    assert section(r)["device"] == "/dev/ttyUSB3"
    assert not r.exists(FAIL_COUNT)


@pytest.mark.parametrize("modem, tried", [
    ("ec25", [("qmi", "web.vodafone.de", None, None), ("3g", "web.vodafone.de", None, None)]),
    ("bg95", [("3g", "internet.is", None, None)]), ("mc7430", [("directip", "spmode.ne.jp", None, None)]),
    ("simcom7600", [("ncm", "internet", None, None)]), ("unknown", [("3g", "internet.proximus.be", None, None)]),
    ("nl678e", [("qmi", "ibox.tim.it", None, None), ("3g", "ibox.tim.it", None, None)]),
])
def test_a_model_without_a_qmi_port_is_tried_over_the_tty_alone(router, modem, tried):
    imsi = {"ec25": "26202", "bg95": "27402", "mc7430": "44010", "simcom7600": "46692", "unknown": "20601",
            "nl678e": "22201"}[modem]
    entry = apn(tried[0][1], mcc=imsi[:3], mnc=imsi[3:])
    r = make(router, modem, state="down", files=database(entry))
    record_attempts(r)
    assert run(r, "connect-auto") == ""
    assert attempts(r) == tried


def test_a_qmi_device_that_is_not_there_is_passed_over(router):
    r = make(router, state="down")
    record_attempts(r)
    r.remove(WDM)  # the kernel has the interface, its device is not made
    assert run(r, "connect-auto") == ""
    assert attempts(r) == [("3g", "web.vodafone.de", None, None)]
    assert "$ killall uqmi 2>/dev/null" not in effects(r)


def test_without_any_port_nothing_is_touched(router):
    r = make(router)
    for name in ("ttyUSB3", "cdc-wdm0"):
        [directory] = [path for path in r.run("find", "/sys/devices/platform", "-name", name).stdout.split()
                       if f"tty/{name}" not in path]
        r.remove(directory)
    before = r.read("/etc/config/network")
    assert run(r, "connect-auto") == ""
    assert effects(r) == IMSI
    assert r.exists(FAIL_COUNT) and r.read("/etc/config/network") == before


@pytest.mark.parametrize("kind, tried", [
    (..., True), ("default", True), ("hipri", True), ("default,supl", True), ("mms,hipri", True), ("xdefaulty", True),
    ("mms", False), ("", False), (None, False), ("supl,dun", False), ("DEFAULT", False), ("defaul", False),
    (7, False), (["default"], False), ({"default": 1}, False), (True, False),
], ids=repr)
def test_what_an_apn_is_for_decides_whether_it_is_tried(router, kind, tried):
    entries = [apn("one", kind, "274", "02"), apn("two", mcc="274", mnc="02")]
    r = make(router, "bg95", state="down", files=database(*entries))
    record_attempts(r)
    assert run(r, "connect-auto") == ""
    assert [attempt[1] for attempt in attempts(r)] == (["one", "two"] if tried else ["two"])


def test_when_no_apn_is_for_the_internet_nothing_is_tried(router):
    r = make(router, files=database(apn("one", "mms"), apn("two", None)))
    assert run(r, "connect-auto") == ""
    assert effects(r) == IMSI and r.exists(FAIL_COUNT) and section(r) == {}


def test_each_apn_has_its_own_credentials(router):
    entries = [apn("one", user="u1", password="p1"), apn("two"), apn("three", user="u3"), apn("four", password="p4"),
               apn(None, user="u5", password="p5"), apn("six", user=None, password=6)]
    r = make(router, "bg95", state="down",
             files=database(*({**entry, "-mcc": "274"} for entry in entries)))
    record_attempts(r)
    assert run(r, "connect-auto") == ""
    assert attempts(r) == [
        ("3g", "one", "u1", "p1"), ("3g", "two", None, None), ("3g", "three", "u3", None), ("3g", "four", None, "p4"),
        ("3g", None, "u5", "p5"), ("3g", "six", None, None)]


@pytest.mark.parametrize("working, over", [("one", 1), ("one", 2), ("two", 1), ("two", 2)])
def test_it_ends_with_the_first_that_works(router, working, over):
    """The link comes up in the attempt that the modem's new section fits."""
    proto = {1: "qmi", 2: "3g"}[over]
    r = make(router, state="down", files=database(apn("one"), apn("mms", "mms"), apn("two"), apn("three")))
    record_attempts(r, f"if [ $(uci get network.{IFNAME}.apn)-$(uci get network.{IFNAME}.proto) = {working}-{proto} ]\n"
                    f"then echo '{json.dumps(link('up'))}' > /run/sim/new; mv /run/sim/new /run/sim/ubus.json; fi\n")
    assert run(r, "connect-auto") == SUCCESS
    every = [(proto, name, None, None) for name in ("one", "two", "three") for proto in ("qmi", "3g")]
    assert attempts(r) == every[:every.index((proto, working, None, None)) + 1]
    assert (section(r)["proto"], section(r)["apn"]) == (proto, working)
    assert effects(r)[-1] == STATUS


def test_a_link_that_comes_up_late_is_waited_for(router):
    r = make(router, state="pending")
    process = r.start("vela_modem", "connect-auto")
    r.wait_for(lambda: effects(r).count(STATUS) >= 3, "the third question")
    r.set_ubus_state(link("up"))
    output, _ = process.communicate()
    assert (process.returncode, output.decode()) == (0, SUCCESS)
    assert section(r)["proto"] == "qmi" and effects(r).count(STATUS) <= 16


def test_a_link_that_is_pending_for_ever_is_a_failure(router):
    r = make(router, state="pending")
    assert run(r, "connect-auto") == ""
    assert effects(r).count(STATUS) == 2 * 16


# connect-auto: where the candidates come from


@pytest.mark.parametrize("imsi, name", [("311480000000017", "vzwinternet"), ("222013090000017", "globalnet")])
def test_a_sim_that_is_known_by_its_imsi_needs_no_database_entry(router, imsi, name):
    r = make(router, state="down", files=database(apn("other", mcc=imsi[:3], mnc=imsi[3:6])))
    record_attempts(r)
    r.modem().reply("AT+CIMI", f"\n{imsi}\n\nOK\n")
    assert run(r, "connect-auto") == ""
    assert attempts(r) == [("qmi", name, None, None), ("3g", name, None, None)]


@pytest.mark.parametrize("text", [
    "x" * 24, "x" * 24 + "{", "x" * 24 + "null", "x" * 24 + "[]", "x" * 24 + '{"apns": {}}', "x" * 24 + '{"apns": 1}',
    "x" * 24 + '{"apns": {"apn": {}}}', "x" * 24 + '{"apns": {"apn": [1, null, "x", {}]}}',
    "x" * 24 + json.dumps({"apns": {"apn": [apn("other", mnc="03")]}}),
], ids=lambda text: text[24:64])
def test_without_a_candidate_the_tty_is_tried_once_without_an_apn(router, text):
    r = make(router, state="down", files={"/www/src/lib/apn-config.js": text})
    record_attempts(r)
    assert run(r, "connect-auto") == ""
    assert attempts(r) == [("3g", None, None, None)]
    assert section(r) == {"ifname": "3g-modem", "service": "fdd_lte", "proto": "3g", "device": "/dev/ttyUSB3",
                          "node": "1-1.2:1.3", "metric": "40", "disabled": "0"}
    assert sorted_out(effects(r)) == [*IMSI, *written(), *bring_up(), *[STATUS] * 15]


@pytest.mark.parametrize("failing, status, wanted", [
    ("error=EIO:when=1", 255, []),
    ("retval=0:when=1", 0, [("3g", None, None, None)]),  # it ends before its size
    ("error=EINTR:when=1..2", 0, [("qmi", "found", None, None), ("3g", "found", None, None)]),
])
def test_a_database_that_cannot_be_read_or_only_in_part(router, failing, status, wanted):
    files = database(apn("found"))
    r = make(router, state="down", files=files)
    record_attempts(r)
    result, _ = traced(r, ["vela_modem", "connect-auto"], f"inject=read:{failing}", device=[*files][0])
    assert (result.returncode, result.stdout) == (status, "")
    assert attempts(r) == wanted


def test_the_try_without_a_candidate_succeeds(router):
    r = make(router, files=database())
    assert run(r, "connect-auto") == SUCCESS
    assert effects(r).count(STATUS) == 1


def test_a_sim_that_cannot_be_read_has_no_candidate(router):
    r = make(router)
    r.modem().reply("AT+CIMI", "\nERROR\n")
    record_attempts(r)
    assert run(r, "connect-auto") == SUCCESS
    assert attempts(r) == [("3g", None, None, None)]


@pytest.mark.parametrize("text", [None, "", "x" * 23], ids=["no file", "empty", "23 bytes"])
def test_without_a_database_it_ends_with_255(router, text):
    r = make(router, files={"/www/src/lib/apn-config.js": text})
    result = r.run("vela_modem", "connect-auto")
    assert (result.returncode, result.stdout, result.stderr) == (255, "", "")
    result = r.run("vela_modem", "-D", "connect-auto")
    assert result.returncode == 255 and result.stdout.endswith("\n}\nparse file failed\n")
    assert r.events == [] and r.exists(FAIL_COUNT) and section(r) == {}


def test_the_debug_switch_shows_the_candidates(router):
    r = make(router, files=database(apn("one"), apn("two")))
    output = r.run("vela_modem", "-D", "connect-auto").stdout
    [line] = [line for line in output.splitlines() if line.startswith("[")]
    assert [entry["-apn"] for entry in json.loads(line)] == ["one", "two"]
    assert output.endswith(SUCCESS)


@pytest.mark.parametrize("value", ["it's", 'a"b', "$(reboot)", "`reboot`", "two\nlines", "%n%s", "ü"], ids=repr)
def test_a_candidate_is_kept_as_it_is(router, value):
    r = make(router, "unknown", files=database(apn(value, mcc="206", mnc="01", user=value, password=value)))
    assert run(r, "connect-auto") == SUCCESS
    for option in ("apn", "username", "password"):
        assert r.run("uci", "get", f"network.{IFNAME}.{option}").stdout == value + "\n"
    assert ["reboot"] not in r.programs


def test_a_run_that_is_killed_between_two_candidates_can_be_followed_by_another(router):
    r = make(router, state="pending", files=database(apn("one"), apn("two")))
    process = r.start("vela_modem", "connect-auto")
    r.wait_for(lambda: "$ vela-firewall" in effects(r), "the second attempt")
    process.kill()
    process.wait()
    r.set_ubus_state(BY_REQUEST)
    assert run(r, "connect-auto") == SUCCESS
    assert (section(r)["proto"], section(r)["apn"]) == ("qmi", "one")
    assert r.run("uci", "get", "firewall.@zone[1].network").stdout.split() == ["wan", IFNAME]


def test_two_runs_at_once_leave_one_whole_section(router):
    r = make(router)
    processes = [r.start("vela_modem", "connect-auto") for _ in range(2)]
    assert [process.communicate()[0].decode() for process in processes] == [SUCCESS] * 2
    r.wait_idle()
    assert run(r, "connect-auto") == SUCCESS
    assert (section(r)["proto"], section(r)["apn"]) == ("qmi", "web.vodafone.de")
    assert r.read("/etc/config/network").count(f"config interface '{IFNAME}'") == 1


# new-connect-auto


FIND_SECTION = "$ uci show network | grep modem | grep ifname |cut -d '.' -f2"
SAVED = {"ifname": "wwan0", "device": WDM, "service": "lte", "apn": "saved", "mtu": "1400", "pincode": "1234",
         "dialnumber": "*99#", "username": "me", "password": "secret", "auth": "PAP", "proto": "qmi", "metric": "55",
         "disabled": "1", "old": "1"}


def saved(name: str = IFNAME, **changes: str | None) -> dict:
    options = {key: value for key, value in {**SAVED, **changes}.items() if value is not None}
    return {"network": "config interface 'lan'\n\toption ifname 'eth0'\n\n" + f"config interface '{name}'\n" + "".join(
        f"\toption {key} '{value}'\n" for key, value in options.items())}


@pytest.mark.parametrize("board", BOARDS)
def test_new_connect_auto_in_order(router, board):
    r = make(router, board=board, uci=saved())
    r.stand_in("/usr/bin/timeout")
    assert run(r, "new-connect-auto") == SUCCESS
    credentials = ["$ cat /tmp/sim_status", SIM_TYPE, '@ttyUSB2 AT+QICSGP=1,1,"saved","me","secret",1']
    assert sorted_out(effects(r)) == [FIND_SECTION, *context("saved"), *credentials, *LED, *KILL_UQMI, *drop_session(),
                                      *bring_up(board=board)]
    assert section(r) == {**{key: value for key, value in SAVED.items() if key != "old"}, "node": "1-1.2:1.4",
                          "metric": "40", "disabled": "0"}
    assert not r.exists(FAIL_COUNT)


@pytest.mark.parametrize("modem, device, proto", [
    ("ec25", "/dev/cdc-wdm0", "qmi"), ("ec25", "/dev/ttyUSB3", "3g"), ("unknown", "/dev/ttyACM0", "3g"),
    ("mc7430", "/dev/ttyUSB2", "directip"), ("ec25", "cdc-wdm-ttyUSB", "qmi"), ("ec25", "x/ttyACM/y", "3g"),
])
def test_the_saved_device_decides(router, modem, device, proto):
    r = make(router, modem, uci=saved(device=device))
    assert run(r, "new-connect-auto") == SUCCESS
    assert (section(r)["proto"], section(r)["device"]) == (proto, device)


@pytest.mark.parametrize("device", [None, "", "/dev/ttyS0", "eth1", "CDC-WDM0", "/dev/ttyusb2"])
def test_another_device_is_passed_over_in_silence(router, device):
    r = make(router, uci=saved(device=device))
    before = r.read("/etc/config/network")
    assert run(r, "new-connect-auto") == ""
    assert effects(r) == [FIND_SECTION]
    assert r.read("/etc/config/network") == before and r.exists(FAIL_COUNT)


@pytest.mark.parametrize("network", [None, "", "config interface 'wan'\n\toption ifname 'eth1'\n",
                                     f"config interface '{IFNAME}'\n\toption device '{WDM}'\n"],
                         ids=["no file", "empty", "no modem", "no ifname"])
def test_without_a_saved_section_nothing_is_done(router, network):
    r = make(router, uci={"network": network})
    result = r.run("vela_modem", "new-connect-auto")
    assert (result.returncode, result.stdout) == (0, "")
    assert effects(r) == [FIND_SECTION] and r.exists(FAIL_COUNT)


def test_a_saved_connection_that_never_comes_up_counts_as_one(router):
    r = make(router, state="down", uci=saved())
    assert run(r, "new-connect-auto") == SUCCESS
    assert effects(r).count(STATUS) == 2


def test_what_was_never_saved_stays_unset_but_is_passed_on_as_empty(router):
    """So the modem is given an empty APN and no credentials, as it would be by the page that saved nothing."""
    network = f"config interface '{IFNAME}'\n\toption ifname 'x'\n\toption device '/dev/ttyUSB3'\n"
    r = make(router, uci={"network": network})
    assert run(r, "new-connect-auto") == SUCCESS
    assert section(r) == {"ifname": "3g-modem", "proto": "3g", "device": "/dev/ttyUSB3", "node": "1-1.2:1.3",
                          "metric": "40", "disabled": "0"}
    assert r.modem().commands == ['AT+CGDCONT=1,"IP",""', 'AT+QICSGP=1,1,"","","",0']


def test_the_first_of_two_modems_sections_is_taken(router):
    second = saved("modem_2_1_2", device="/dev/ttyUSB3", apn="second")["network"].split("\n\n", 1)[1]
    r = make(router, uci={"network": saved()["network"] + "\n" + second})
    assert run(r, "new-connect-auto") == SUCCESS
    assert (section(r)["proto"], section(r)["apn"]) == ("qmi", "saved")
    assert r.run("uci", "get", "network.modem_2_1_2.apn").stdout == "second\n"


def test_the_section_of_another_modem_is_used_for_the_one_on_the_bus(router):
    r = make(router, uci=saved("modem_2_1_2"))
    assert run(r, "new-connect-auto") == SUCCESS
    assert section(r)["apn"] == "saved"
    assert r.run("uci", "get", "network.modem_2_1_2.old").stdout == "1\n"


@pytest.mark.parametrize("operator, kept", [("Visible", "Visible"), ("A'B", None), (None, None)])
def test_the_operator_comes_from_its_own_package(router, operator, kept):
    option = f"\toption operator '{operator}'\n" if kept else ""
    r = make(router, uci={**saved(), "velaconfig": f"config service 'modem'\n{option}\tlist bus '1-1.2'\n"})
    assert run(r, "new-connect-auto") == SUCCESS
    result = r.run("uci", "get", "velaconfig.modem.operator")
    assert result.stdout == (kept + "\n" if kept else "")
    assert r.run("uci", "get", f"mwan3.{IFNAME}.enabled").stdout == ("0\n" if kept else "1\n")
    assert r.run("uci", "get", "velaconfig.modem.bus").stdout == "1-1.2\n"


@pytest.mark.parametrize("option, longest", [
    ("device", 31), ("service", 31), ("apn", 31), ("mtu", 31), ("operator", 31), ("pincode", 31), ("dialnumber", 31),
    ("username", 63), ("password", 63), ("auth", 31),
])
def test_a_saved_value_that_does_not_fit_ends_the_process_before_anything_is_done(router, option, longest):
    for length in (longest, longest + 1, 5000):
        value = (WDM if option == "device" and length > longest else "/dev/ttyUSB" if option == "device" else "")
        value = value.ljust(length, "1")
        uci = saved(**({} if option == "operator" else {option: value}))
        if option == "operator":
            uci["velaconfig"] = f"config service 'modem'\n\toption operator '{value}'\n"
        r = make(router, "simcom7600", uci=uci)  # which is told neither APN nor credentials
        before = r.read("/etc/config/network")
        if length == longest:
            if option != "device":
                assert run(r, "new-connect-auto") == SUCCESS
                package = "velaconfig.modem" if option == "operator" else f"network.{IFNAME}"
                assert r.run("uci", "get", f"{package}.{option}").stdout == value + "\n"
            continue
        result = r.run("vela_modem", "new-connect-auto")
        assert (result.returncode, result.stdout) == (ABORTED, "")
        assert effects(r) == [FIND_SECTION]
        assert r.read("/etc/config/network") == before and r.exists(FAIL_COUNT)


@pytest.mark.parametrize("value", ['a"b', "$(reboot)", "`reboot`", "; reboot", "%s%n", "ü€", "a b"], ids=repr)
def test_saved_values_are_kept_as_they_are(router, value):
    changes = {option: value for option in ("service", "apn", "pincode", "dialnumber", "username", "password", "auth")}
    r = make(router, "simcom7600", uci=saved(device="/dev/ttyUSB3", **changes))
    assert run(r, "new-connect-auto") == SUCCESS
    assert {option: section(r)[option] for option in changes} == changes
    assert ["reboot"] not in r.programs


# disconnect


ZONE = "$ uci get firewall.@zone[1].network | sed -e \"s/{}//g\""


def taken_down(board: str = "pellin", name: str = IFNAME, networks: str = "wan") -> list[str]:
    sync = ";sync" if board == "ketrin" else ""
    stop = ["$ /etc/init.d/shortcut-fe stop", "> /etc/init.d/shortcut-fe stop"] if board == "halvor" else []
    return [*stop, f'$ uci set network.{name}.disabled="1"', f"$ uci commit network{sync}", "network reload",
            f"network.interface.{name} status", ZONE.format(name), f'$ uci set firewall.@zone[1].network="{networks}"',
            f"$ uci commit firewall{sync}", "$ /etc/init.d/firewall reload", "> /etc/init.d/firewall reload"]


@pytest.mark.parametrize("board", BOARDS)
def test_disconnect_in_order(router, board):
    r = make(router, board=board, ubus=link(on_up="up", on_reload="down"))
    assert run(r, "connect", "serial", "/dev/ttyUSB3", "umts") == SUCCESS
    r.write(FAIL_COUNT, "1")
    r.clear_events()
    assert run(r, "disconnect") == "\nmodem disconnect"
    assert effects(r) == taken_down(board)
    assert section(r)["disabled"] == "1" and r.exists(FAIL_COUNT)


def test_disconnect_takes_down_the_interface_of_the_modem_on_the_bus(router):
    uci = {"network": "config interface 'modem_1_1_2'\n\nconfig interface 'modem_2_1_2'\n"}
    r = make(router, modem=None, modems={"1-1.2": "ec25", "2-1.2": "ec25"}, uci=uci, ubus={"interfaces": {
        "modem_1_1_2": interface("up"), "modem_2_1_2": interface("up", on_reload="down")}})
    assert run(r, "-B", "2-1.2", "disconnect") == "\nmodem disconnect"
    assert effects(r) == taken_down(name="modem_2_1_2")
    assert run(r, "disconnect") == ""


@pytest.mark.parametrize("modem", ["mc7430", "unknown"])
def test_disconnect_of_other_models(router, modem):
    r = make(router, modem, state="down", uci=saved())
    r.clear_events()
    assert run(r, "disconnect") == "\nmodem disconnect"
    assert effects(r)[-9:] == taken_down()


@pytest.mark.parametrize("state", ["up", "pending"])
def test_a_link_that_never_goes_down_is_not_disconnected(router, state):
    r = make(router, state=state, uci=saved())
    assert run(r, "disconnect") == ""
    assert effects(r) == [*taken_down()[:3], *[STATUS] * 6]


@pytest.mark.parametrize("state, bus, result, current", [
    ("down", "1-1.2", 0, -1), ("up", "1-1.2", -1, 3), ("down", "1-1.3", -1, -1),
])
def test_a_modem_that_is_disconnected_is_no_longer_the_current_one(router, state, bus, result, current):
    r = make(router, state=state, uci=saved())
    assert parse(run_probe(r, "disconnect", bus)) == (result, {"current": current})


def test_disconnect_without_a_bus(router):
    r = make(router, ubus=False, uci=saved())
    assert run(r, "disconnect") == "\nmodem disconnect"
    assert effects(r) == [effect for effect in taken_down() if effect.startswith(("$", ">"))]


def test_disconnect_of_a_modem_that_was_never_configured(router):
    """Its section is not there, so there is nothing to disable; the uci program says so."""
    r = make(router, state="unknown")
    before = r.read("/etc/config/network")
    result = r.run("vela_modem", "disconnect")
    assert (result.returncode, result.stdout) == (0, "\nmodem disconnect")
    assert r.read("/etc/config/network") == before


@pytest.mark.parametrize("command", [["connect", "serial", "/dev/ttyUSB3", "umts"], ["connect-auto"],
                                     ["new-connect-auto"], ["disconnect"]], ids=lambda words: words[0])
def test_without_a_modem_nothing_is_done(router, command):
    r = make(router, None, uci=saved())
    assert run(r, *command) == ""
    assert r.events == [] and r.exists(FAIL_COUNT)
