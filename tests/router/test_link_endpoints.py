"""/modem/auto and /modem/enable: what they answer, what they start, and every effect in its order."""

import json
import re

import pytest
from connection_client import (
    BOARDS, BY_REQUEST, IFNAME, READY, STATUS, bring_up, effects, interface, link, section, sorted_out,
)
from support import ABORTED, start_traced, trace_lines
from velasim import Router

AUTO, ENABLE = "/modem/auto", "/modem/enable"
STOP_SHORTCUT = ["$ /etc/init.d/shortcut-fe stop", "> /etc/init.d/shortcut-fe stop"]
FAIL_COUNT = "/tmp/modem.1-1.2/fail_count"
SECTION = f"config interface '{IFNAME}'\n\toption proto 'qmi'\n\toption apn 'old'\n"
OTHERS = "\nconfig interface 'wan'\n\toption proto 'dhcp'\n\nconfig interface 'modem_2_1_2'\n\toption proto '3g'\n"


def make(router, modem: str | None = "ec25", disabled: str | None = None, files: dict | None = None,
         **options) -> Router:
    option = "" if disabled is None else f"\toption disabled '{disabled}'\n"
    options = {"quick": True, "ubus": BY_REQUEST, "uci": {"network": SECTION + option + OTHERS}, **options}
    return router(modem, files={**READY, FAIL_COUNT: "3\n", **(files or {})}, **options)


def started(bus: str) -> str:
    return f"$ vela_modem -B {bus} connect-auto"


def aborts(r: Router, path: str, request: dict) -> bool:
    result = r.run("vela_api", "post", path, json.dumps(request))
    return (result.returncode, result.stdout) == (ABORTED, "")


def enable(r: Router, request: dict) -> tuple[int, dict]:
    """The endpoint's answer. It leaves nothing uncommitted."""
    answer = r.api("post", ENABLE, request)
    assert r.run("uci", "changes").stdout == ""
    return answer


# /modem/auto


@pytest.mark.parametrize("board", BOARDS)
def test_auto_starts_the_connection_in_the_background(router, board):
    r = make(router, board=board)
    assert r.api("post", AUTO, {"modem_id": 3}) == (0, {})
    r.wait_idle()
    texts = sorted_out(effects(r))
    stop = STOP_SHORTCUT if board == "halvor" else []
    assert texts[:len(stop) + 1] == [*stop, started("1-1.2")]
    assert texts[-len(bring_up(board=board)):] == bring_up(board=board)
    assert (section(r)["proto"], section(r)["apn"], section(r)["disabled"]) == ("qmi", "web.vodafone.de", "0")
    assert not r.exists(FAIL_COUNT)


def test_auto_does_not_wait_for_the_connection(router):
    r = make(router, ubus=link("pending"))
    assert r.api("post", AUTO, {"modem_id": 3, "bus": "1-1.2"}) == (0, {})
    r.wait_for(lambda: STATUS in effects(r), "the first question")
    assert ["vela_modem", "-B", "1-1.2", "connect-auto"] in r.processes()
    r.set_ubus_state(link("up"))
    r.wait_idle()
    assert section(r)["apn"] == "web.vodafone.de"


@pytest.mark.parametrize("request_body, bus", [
    ({"modem_id": 3, "bus": "2-1.2"}, "2-1.2"), ({"modem_id": 3}, "1-1.2"), ({"modem_id": 0, "bus": "1-1.4"}, "1-1.4"),
    ({"modem_id": 3, "bus": None}, "1-1.2"), ({"modem_id": 3, "bus": 7}, "1-1.2"),
    ({"modem_id": 3, "bus": []}, "1-1.2"), ({"modem_id": 2}, "1-1.2"), ({"modem_id": "text"}, "1-1.2"),
    ({"modem_id": None}, "1-1.2"),
    ({"modem_id": 255, "more": "x" * 5000}, "1-1.2"), ({"modem_id": 3, "bus": ""}, ""),
], ids=str)
def test_auto_names_the_bus(router, request_body, bus):
    """The number only has to be there: which modem it is the background run finds out by itself."""
    r = make(router, None)
    assert r.api("post", AUTO, request_body) == (0, {})
    r.wait_idle()
    assert effects(r) == [started(bus)]


@pytest.mark.parametrize("request_body", [
    {}, {"modem_id": -1}, {"bus": "1-1.2"}, {"modem_id": -1, "bus": "1-1.2"}, {"modem_id": -1, "bus": "1" * 5000},
    {"MODEM_ID": 3}, {"modem_id": "-1"},
], ids=lambda body: str(body)[:40])
def test_auto_needs_the_number_of_the_modem(router, request_body):
    r = make(router, board="halvor")
    assert r.api("post", AUTO, request_body) == (-251, {})
    assert r.events == [] and r.exists(FAIL_COUNT)


def test_auto_with_the_longest_bus(router):
    """The run that it starts ends by itself: no modem is on such a bus."""
    r = make(router, None)
    bus = "1-1" + "1" * (99 - len("vela_modem -B  connect-auto") - 3)
    assert r.api("post", AUTO, {"modem_id": 3, "bus": bus}) == (0, {})
    r.wait_idle()
    assert effects(r) == [started(bus)] and len(started(bus)) == len("$ ") + 99


@pytest.mark.parametrize("bus", ["1" * 73, "1" * 100000, "x" * 73, "; reboot" * 10], ids=lambda bus: bus[:8])
def test_auto_with_a_bus_that_does_not_fit_aborts_before_anything_is_started(router, bus):
    r = make(router, board="halvor")
    assert aborts(r, AUTO, {"modem_id": 3, "bus": bus})
    r.wait_idle()
    assert r.events == []


BAD_BUSES = ["1-1;reboot", "$(reboot)", "`reboot`", "1-1\nreb", "1-1 &", "|reboot", "'", '"', "../x", "1-1.2 "]


@pytest.mark.parametrize("bus", BAD_BUSES, ids=repr)
def test_auto_gives_a_shell_nothing_but_a_bus(router, bus):
    r = make(router, board="halvor")
    assert r.api("post", AUTO, {"modem_id": 3, "bus": bus}) == (-251, {})
    r.wait_idle()
    assert r.events == []


def test_two_at_once_leave_one_whole_section(router):
    r = make(router)
    for _ in range(2):
        assert r.api("post", AUTO, {"modem_id": 3}) == (0, {})
    r.wait_idle()
    assert r.read("/etc/config/network").count(f"config interface '{IFNAME}'") == 1
    assert r.api("post", AUTO, {"modem_id": 3}) == (0, {})
    r.wait_idle()
    assert (section(r)["proto"], section(r)["apn"]) == ("qmi", "web.vodafone.de")


# /modem/enable


KILL_UQMI = ["$ killall uqmi 2>/dev/null", "> killall uqmi"]
KILL_RUNS = ["$ killall -9 vela_modem 2>/dev/null", "> killall -9 vela_modem"]
RELOAD = "network reload"


def end_tracking(name: str = IFNAME) -> str:
    return f"$ kill $(ps|grep mwan3track|grep {name}|awk -F ' ' '{{print $1}}')"


def last_steps(board: str) -> list[str]:
    return [*KILL_UQMI, *KILL_RUNS, *(STOP_SHORTCUT if board == "halvor" else []), RELOAD]


def taken_down(board: str, name: str = IFNAME) -> list[str]:
    sync = ";sync" if board == "ketrin" else ""
    return [*(STOP_SHORTCUT if board == "halvor" else []), f'$ uci set network.{name}.disabled="1"',
            f"$ uci commit network{sync}", RELOAD]


def left_zone(board: str, name: str = IFNAME) -> list[str]:
    sync = ";sync" if board == "ketrin" else ""
    return [f'$ uci get firewall.@zone[1].network | sed -e "s/{name}//g"', '$ uci set firewall.@zone[1].network="wan"',
            f"$ uci commit firewall{sync}", "$ /etc/init.d/firewall reload", "> /etc/init.d/firewall reload"]


@pytest.mark.parametrize("board", BOARDS)
@pytest.mark.parametrize("request_body", [{}, {"disable": False}, {"disable": False, "bus": "1-1.2"}], ids=str)
@pytest.mark.parametrize("disabled", [None, "0", "1"])
def test_enable_in_order(router, disabled, request_body, board):
    r = make(router, board=board, disabled=disabled)
    assert enable(r, request_body) == (0, {})
    assert effects(r) == last_steps(board)
    assert section(r) == {"proto": "qmi", "apn": "old", "disabled": "0"}
    assert not r.exists(FAIL_COUNT)


@pytest.mark.parametrize("board", BOARDS)
@pytest.mark.parametrize("disabled", [None, "0", "1"])
def test_disable_in_order(router, disabled, board):
    r = make(router, board=board, disabled=disabled, ubus=link("up", on_reload="down"))
    assert enable(r, {"disable": True}) == (0, {})
    assert effects(r) == [*taken_down(board), STATUS, *left_zone(board), end_tracking(), *last_steps(board)]
    assert section(r) == {"proto": "qmi", "apn": "old", "disabled": "1"}
    assert not r.exists(FAIL_COUNT)


@pytest.mark.parametrize("state", ["up", "pending"])
def test_disable_of_a_link_that_does_not_go_down_goes_on(router, state):
    r = make(router, ubus=link(state))
    assert enable(r, {"disable": True}) == (0, {})
    assert effects(r) == [*taken_down("pellin"), *[STATUS] * 3, end_tracking(), *last_steps("pellin")]
    assert section(r)["disabled"] == "1"


@pytest.mark.parametrize("disable", [True, False])
def test_the_failure_count_goes_first_and_the_configuration_before_the_runs_end(router, disable):
    r = make(router, disabled="0" if disable else "1", ubus=link("down"))
    for program in ("firewall", "killall"):
        r.answer(program, "#!/bin/dash\ncp -n /etc/config/network /run/sim/$(basename $0).seen\n"
                 f"[ -e {FAIL_COUNT} ] && touch /run/sim/late\n:\n", executable=True)
    assert enable(r, {"disable": disable}) == (0, {})
    assert section(r, "killall")["disabled"] == ("1" if disable else "0")
    assert not disable or section(r, "firewall")["disabled"] == "1"
    assert not r.exists("/run/sim/late")


def test_disable_ends_the_tracking_of_this_interface_only(router):
    r = make(router, ubus=link("down"))
    r.stand_in("/usr/bin/ps")
    processes = [r.start("/usr/bin/sleep", "1000") for _ in range(3)]
    r.wait_for(lambda: r.processes().count(["/usr/bin/sleep", "1000"]) == 3, "the three")
    pids = sorted(each["pid"] for each in r.ask("processes") if each["argv"] == ["/usr/bin/sleep", "1000"])
    r.answer("ps", f"{pids[0]} root 1 S mwan3track modem_2_1_2 wwan1\n{pids[1]} root 1 S mwan3track {IFNAME} wwan0\n"
             f"{pids[2]} root 1 S other {IFNAME}\n")
    assert enable(r, {"disable": True}) == (0, {})
    r.wait_for(lambda: r.processes().count(["/usr/bin/sleep", "1000"]) == 2, "the end of one")
    left = sorted(each["pid"] for each in r.ask("processes") if each["argv"] == ["/usr/bin/sleep", "1000"])
    assert left == [pids[0], pids[2]]
    r.end_processes()
    for process in processes:
        process.wait()


def test_enable_leaves_the_tracking_alone(router):
    r = make(router)
    assert enable(r, {}) == (0, {})
    assert not [command for command in r.commands if "mwan3track" in command]


def test_enable_ends_a_connection_that_is_going_on(router):
    """The stand-in for killall ends it in earnest, while it waits for an answer that never comes."""
    r = make(router, ubus={**link(), "faults": {f"network.interface.{IFNAME}": {"status": "silent"}}})
    r.answer("killall", "#!/bin/dash\n[ \"$1\" = -9 ] || exit 0\nfor process in /proc/[0-9]*; do\n"
             "    [ \"$(readlink $process/exe)\" = /usr/bin/vela_modem ] && kill -9 ${process#/proc/}\ndone\n:\n",
             executable=True)
    assert r.api("post", AUTO, {"modem_id": 3}) == (0, {})
    r.wait_for(lambda: STATUS in effects(r), "the first question")
    r.clear_events()
    assert enable(r, {"disable": False}) == (0, {})
    r.wait_idle()
    assert effects(r) == last_steps("pellin")
    assert section(r)["disabled"] == "0" and section(r)["apn"] == "web.vodafone.de"


@pytest.mark.parametrize("request_body, disabled", [
    ({"disable": "true"}, None), ({"disable": 1}, None), ({"disable": None}, "0"), ({"disable": 0}, "0"),
    ({"Disable": True}, "0"), ({"disable": ""}, "0"), ({"modem_id": -1}, "0"), ({"modem_id": 2}, "0"),
], ids=str)
def test_requests_of_other_types(router, request_body, disabled):
    r = make(router, disabled="0", ubus=link("down"))
    assert enable(r, request_body) == (0, {})
    assert section(r)["disabled"] in ({disabled} if disabled else {"0", "1"})
    assert effects(r)[-len(last_steps("pellin")):] == last_steps("pellin")


@pytest.mark.parametrize("disable", [True, False])
def test_the_bus_names_the_interface(router, disable):
    r = make(router, ubus={"interfaces": {"modem_2_1_2": interface("down"), IFNAME: interface("up")}},
             files={"/tmp/modem.2-1.2/fail_count": "1"})
    assert enable(r, {"disable": disable, "bus": "2-1.2"}) == (0, {})
    assert section(r, name="modem_2_1_2") == {"proto": "3g", "disabled": "1" if disable else "0"}
    assert section(r) == {"proto": "qmi", "apn": "old"}
    assert r.exists(FAIL_COUNT) and not r.exists("/tmp/modem.2-1.2/fail_count")
    assert (end_tracking("modem_2_1_2") in effects(r)) == disable
    assert (STATUS not in effects(r)) and ("network.interface.modem_2_1_2 status" in effects(r)) == disable


@pytest.mark.parametrize("disable", [True, False])
@pytest.mark.parametrize("bus", ["1-1.2.3.4.", "1" * 12, "1" * 100000, "x" * 10], ids=lambda bus: bus[:10])
def test_a_bus_that_does_not_fit_aborts_before_anything_is_done(router, bus, disable):
    r = make(router, board="halvor")
    before = r.read("/etc/config/network")
    assert aborts(r, ENABLE, {"disable": disable, "bus": bus})
    assert r.events == [] and r.read("/etc/config/network") == before


@pytest.mark.parametrize("disable", [True, False])
@pytest.mark.parametrize("bus", ["", *(bus for bus in BAD_BUSES if len(bus) < 10)], ids=repr)
def test_enable_gives_a_shell_nothing_but_a_bus(router, bus, disable):
    r = make(router, board="halvor")
    before = r.read("/etc/config/network")
    assert enable(r, {"disable": disable, "bus": bus}) == (-251, {})
    assert r.events == [] and r.read("/etc/config/network") == before and r.exists(FAIL_COUNT)


@pytest.mark.parametrize("disable", [True, False])
@pytest.mark.parametrize("network", [None, "", "config interface 'wan'\n\toption proto 'dhcp'\n"],
                         ids=["no file", "empty", "not there"])
def test_an_interface_that_is_not_configured_is_not_made(router, network, disable):
    r = make(router, uci={"network": network}, ubus=link("unknown"))
    assert enable(r, {"disable": disable}) == (0, {})
    assert section(r) == {} and effects(r)[-len(last_steps("pellin")):] == last_steps("pellin")
    assert (r.read("/etc/config/network") if r.exists("/etc/config/network") else None) == network


@pytest.mark.parametrize("disable", [True, False])
def test_nothing_else_in_the_configuration_changes(router, disable):
    r = make(router, ubus=link("down"))
    r.write("/etc/config/network", "# mine\n" + r.read("/etc/config/network"))
    own = f"network.{IFNAME}.disabled='{int(disable)}'"
    before = r.run("uci", "show").stdout.splitlines()
    assert enable(r, {"disable": disable}) == (0, {})
    after = r.run("uci", "show").stdout.splitlines()
    assert own in after and [line for line in after if line != own] == before


@pytest.mark.parametrize("disable", [True, False])
def test_what_another_process_commits_meanwhile_stays(router, disable):
    r = make(router, ubus=link("down"))
    for program in ("firewall", "killall"):
        r.answer(program, f"#!/bin/dash\nuci set network.by_{program}=interface; uci set network.{IFNAME}.pin='1'; "
                 "uci commit network\n", executable=True)
    assert enable(r, {"disable": disable}) == (0, {})
    assert r.run("uci", "get", "network.by_killall").stdout == "interface\n"
    assert not disable or r.run("uci", "get", "network.by_firewall").stdout == "interface\n"
    assert section(r) == {"proto": "qmi", "apn": "old", "disabled": str(int(disable)), "pin": "1"}


@pytest.mark.parametrize("disable", [True, False])
@pytest.mark.parametrize("ubus", [
    False, {**link("down"), "faults": {"network": {"reload": {"status": 7}}}},
    {**link("down"), "faults": {"network": {"reload": "die", "<lookup>": {"status": 4}}}},
    {**link("down"), "faults": {"network": {"reload": "die"}, f"network.interface.{IFNAME}": {"status": "die"}}},
], ids=["no bus", "times out", "gone", "dies"])
def test_a_netifd_that_fails_changes_nothing_else(router, ubus, disable):
    r = make(router, ubus=ubus)
    assert enable(r, {"disable": disable}) == (0, {})
    assert section(r)["disabled"] == str(int(disable))
    assert [effect for effect in effects(r) if "killall" in effect] == KILL_UQMI + KILL_RUNS


def test_a_netifd_that_does_not_answer_is_waited_for_in_the_end(router):
    """Everything else is done by then. The time is what the system call is told, not what it takes."""
    r = make(router, quick=False, ubus={**link("down"), "faults": {"network": {"reload": "silent"}}})
    process = start_traced(r, ["vela_api", "post", ENABLE, "{}"], "trace=poll,ppoll", device=None)
    r.wait_for(lambda: RELOAD in effects(r), "the reload")
    assert section(r)["disabled"] == "0" and effects(r) == last_steps("pellin")
    _, errors = process.communicate()
    assert (process.returncode, errors.decode()) == (0, "status 0\n")
    waits = [int(wait) for line in trace_lines(r) for wait in re.findall(r"^poll\(.*\], 1, (\d+)\)", line)]
    assert 4000 < max(waits) <= 5000, trace_lines(r)


@pytest.mark.parametrize("directory", ["/tmp", "/etc/config"])
@pytest.mark.parametrize("disable", [True, False])
def test_where_nothing_can_be_written_the_configuration_stays(router, disable, directory):
    r = make(router, ubus=link("down"))
    before = {name: r.read(f"/etc/config/{name}") for name in r.listdir("/etc/config")}
    r.run("mount", "--bind", directory, directory)
    assert r.run("mount", "-o", "remount,bind,ro", directory).returncode == 0
    assert r.api("post", ENABLE, {"disable": disable}) == (0, {})
    assert {name: r.read(f"/etc/config/{name}") for name in before} == before
    assert effects(r)[-len(last_steps("pellin")):] == last_steps("pellin")


def test_disabled_and_enabled_again_and_connected_as_before(router):
    r = make(router, ubus=link(on_up="up"))
    assert r.api("post", AUTO, {"modem_id": 3}) == (0, {})
    r.wait_idle()
    connected, zone = section(r), r.run("uci", "get", "firewall.@zone[1].network").stdout
    r.set_ubus_state(link("up", on_reload="down"))
    assert enable(r, {"disable": True}) == (0, {})
    assert section(r) == {**connected, "disabled": "1"}
    assert enable(r, {"disable": False}) == (0, {})
    assert section(r) == connected
    r.set_ubus_state(link(on_up="up"))
    assert r.api("post", AUTO, {"modem_id": 3}) == (0, {})
    r.wait_idle()
    assert (section(r), r.run("uci", "get", "firewall.@zone[1].network").stdout) == (connected, zone)
