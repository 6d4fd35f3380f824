"""The command connect: what it prints, and every effect in its order."""

import pytest
from connect_commands import FAIL_COUNT, KILL_UQMI, SUCCESS, WDM, context, drop_session, make, run, saved, written
from connection_client import (
    BOARDS, BY_REQUEST, IFNAME, STATUS, ZONE_KEPT, bring_up, effects, link, section, sorted_out,
)
from probe_client import parse, run_probe
from support import ABORTED, CONNECT_USAGE
from velasim import Router

# Whole sequences


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


# Arguments


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


# A link that does not come up


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


# The failure count, and the configuration around


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


# What all four have in common


@pytest.mark.parametrize("command", [["connect", "serial", "/dev/ttyUSB3", "umts"], ["connect-auto"],
                                     ["new-connect-auto"], ["disconnect"]], ids=lambda words: words[0])
def test_without_a_modem_nothing_is_done(router, command):
    r = make(router, None, uci=saved())
    assert run(r, *command) == ""
    assert r.events == [] and r.exists(FAIL_COUNT)
