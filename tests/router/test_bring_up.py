"""A data interface is brought up and taken down: every effect on the router, in order, and the firewall after it."""

import re

import pytest
from probe_client import parse, probe, run_probe
from support import ABORTED, BUS_CALLS, bus_times, traced
from velasim import Router

UP, PENDING, DOWN = 0, 1, 2
NAME = "modem_1_1_2"
OBJECT = f"network.interface.{NAME}"
BOARDS = ["halvor", "ketrin", "pellin"]

RELOAD = "network reload"
STATUS = f"{OBJECT} status"
ASK_UP = [f"$ ubus call {OBJECT} up", f"{OBJECT} up"]
LIST = "$ uci get firewall.@zone[1].network"
LIST_WITHOUT = f'$ uci get firewall.@zone[1].network | sed -e "s/{NAME}//g"'
STOP_SHORTCUT = ["$ /etc/init.d/shortcut-fe stop", "> /etc/init.d/shortcut-fe stop"]
DISABLE = f'$ uci set network.{NAME}.disabled="1"'
RELOAD_FIREWALL = ["$ /etc/init.d/firewall reload", "> /etc/init.d/firewall reload"]
VELA_FIREWALL = ["$ vela-firewall", "> vela-firewall"]

NETWORK = f"config interface '{NAME}'\n\toption proto 'qmi'\n\toption disabled '0'\n"


def firewall(zone: str) -> str:
    return ("config zone\n\toption name 'lan'\n\toption network 'lan'\n\n"
            f"config zone\n\toption name 'wan'\n{zone}\toption masq '1'\n\nconfig forwarding\n\toption src 'lan'\n")


def option(networks: str) -> str:
    return firewall(f"\toption network '{networks}'\n")


def lists(*networks: str) -> str:
    return firewall("".join(f"\tlist network '{network}'\n" for network in networks))


def interface(state: str, **controls: str) -> dict:
    return {"interfaces": {NAME: {"state": state, **controls}}}


AT_ONCE = interface("down", on_up="up")


def make(router, zone: str, ubus: bool | dict = AT_ONCE, board: str = "pellin") -> Router:
    return router(uci={"firewall": zone, "network": NETWORK}, ubus=ubus, board=board)


def effects(r: Router) -> list[str]:
    """Shell commands behind "$ ", the recorded programs that they run behind "> ", calls on the bus as they are."""
    texts = {"shell": lambda event: "$ " + event["command"], "program": lambda event: "> " + " ".join(event["argv"]),
             "ubus": lambda event: event["object"] + " " + event["method"]}
    return [texts[event["kind"]](event) for event in r.events]


def commit(package: str, board: str) -> str:
    return f"$ uci commit {package}" + (";sync" if board == "ketrin" else "")


def set_zone(networks: str, board: str = "pellin") -> list[str]:
    return [f'$ uci set firewall.@zone[1].network="{networks}"', commit("firewall", board), *RELOAD_FIREWALL]


def down_up_to_the_zone(board: str = "pellin") -> list[str]:
    return [*(STOP_SHORTCUT if board == "halvor" else []), DISABLE, commit("network", board), RELOAD]


def zone_of(r: Router) -> str | None:
    result = r.run("uci", "get", "firewall.@zone[1].network")
    return result.stdout.removesuffix("\n") if result.returncode == 0 else None


def assert_only_the_zone_changed(r: Router, zone: str) -> None:
    """Of the firewall, committed, with nothing left staged."""
    def shown() -> list[str]:
        lines = r.run("uci", "show", "firewall").stdout.splitlines()
        return [line for line in lines if not line.startswith("firewall.@zone[1].network=")]

    after = shown()
    assert r.run("uci", "changes").stdout == ""
    r.write("/etc/config/firewall", zone)
    assert after == shown()


# Up: what is done


@pytest.mark.parametrize("board", BOARDS)
def test_up_joins_the_zone_and_reloads_the_firewall(router, board):
    r = make(router, lists("wan", "wan6"), board=board)
    assert probe(r, "bring-up", "15", NAME) == (UP, {})
    assert effects(r) == [RELOAD, *ASK_UP, LIST, *set_zone(f"wan wan6 {NAME}", board), STATUS]
    assert zone_of(r) == f"wan wan6 {NAME}"
    assert_only_the_zone_changed(r, lists("wan", "wan6"))


@pytest.mark.parametrize("board", BOARDS)
@pytest.mark.parametrize("zone", [
    lists("wan", NAME), lists(NAME, "wan"), lists("lan", NAME, "wan"), lists(NAME), option(NAME),
    option(f"wan {NAME}"), option(f"  {NAME}  wan "), option(f"wan\t{NAME}\tlan"), option(f"x{NAME} {NAME}"),
], ids=range(9))
def test_up_of_an_interface_in_the_zone_changes_nothing_there(router, board, zone):
    r = make(router, zone, board=board)
    assert probe(r, "bring-up", "15", NAME) == (UP, {})
    assert effects(r) == [RELOAD, *ASK_UP, LIST, *VELA_FIREWALL, STATUS]
    assert r.read("/etc/config/firewall") == zone


@pytest.mark.parametrize("board", BOARDS)
@pytest.mark.parametrize("networks", [
    f"wan {NAME}_4", f"x{NAME}", f"{NAME}0 wan", f"-{NAME}- wan", "modem_1_1", NAME[:-1], f"{NAME},wan", NAME.upper(),
])
def test_up_of_an_interface_that_is_only_a_part_of_anothers_name_joins(router, board, networks):
    r = make(router, option(networks), board=board)
    assert probe(r, "bring-up", "15", NAME) == (UP, {})
    assert effects(r) == [RELOAD, *ASK_UP, LIST, *set_zone(f"{networks} {NAME}", board), STATUS]
    assert zone_of(r) == f"{networks} {NAME}"


@pytest.mark.parametrize("networks, kept", [
    ("wan ", "wan"), ("wan   ", "wan"), ("wan \t ", "wan"), (" wan", " wan"), ("wan  wan6", "wan  wan6"), ("   ", ""),
])
def test_up_cuts_blanks_at_the_end_of_the_list_only(router, networks, kept):
    r = make(router, option(networks))
    assert probe(r, "bring-up", "15", NAME) == (UP, {})
    assert effects(r) == [RELOAD, *ASK_UP, LIST, *set_zone(f"{kept} {NAME}"), STATUS]
    assert zone_of(r) == f"{kept} {NAME}"


def test_up_takes_the_first_line_of_the_list(router):
    r = make(router, option("wan\nwan6"))
    assert probe(r, "bring-up", "15", NAME) == (UP, {})
    assert effects(r) == [RELOAD, *ASK_UP, LIST, *set_zone(f"wan {NAME}"), STATUS]
    assert zone_of(r) == f"wan {NAME}"


@pytest.mark.parametrize("board", BOARDS)
def test_up_with_a_zone_that_has_no_networks_yet(router, board):
    r = make(router, firewall(""), board=board)
    result = run_probe(r, "bring-up", "15", NAME)
    assert parse(result) == (UP, {}) and result.stderr == "uci: Entry not found\n"
    assert effects(r) == [RELOAD, *ASK_UP, LIST, *set_zone(f" {NAME}", board), STATUS]
    assert zone_of(r).split() == [NAME]
    assert_only_the_zone_changed(r, firewall(""))


@pytest.mark.parametrize("text", [None, "", "config zone\n\toption name 'lan'\n"], ids=["no file", "empty", "one zone"])
def test_up_without_a_second_zone_goes_on(router, text):
    r = make(router, text)
    result = run_probe(r, "bring-up", "15", NAME)
    assert parse(result) == (UP, {})
    assert effects(r) == [RELOAD, *ASK_UP, LIST, *set_zone(f" {NAME}"), STATUS]


# A zone that is no list of names


@pytest.mark.parametrize("operation, state", [("bring-up", interface("up")), ("take-down", interface("down"))])
@pytest.mark.parametrize("networks", [
    "wan $(touch /tmp/run)", "`touch /tmp/run`", 'wan"; touch /tmp/run; "', "wan\\\\",
], ids=["command", "backticks", "quotes", "backslash"])
def test_a_list_that_a_shell_would_expand_stays_as_it_is(router, operation, state, networks):
    r = make(router, option(networks), state)
    before = r.read("/etc/config/firewall")
    assert probe(r, operation, "1", NAME) == (UP if operation == "bring-up" else DOWN, {})
    asked = LIST if operation == "bring-up" else LIST_WITHOUT
    assert [effect for effect in effects(r) if "firewall" in effect] == [asked]
    assert r.read("/etc/config/firewall") == before
    assert not r.exists("/tmp/run")


def test_a_list_that_could_not_be_read_stays_as_it_is(router):
    r = make(router, lists("wan", "wan6"))
    before = r.read("/etc/config/firewall")
    r.run("umount", "/sbin/uci")
    r.remove("/sbin/uci")
    result = run_probe(r, "bring-up", "1", NAME)
    assert parse(result) == (UP, {}) and "uci" in result.stderr
    assert [effect for effect in effects(r) if "firewall" in effect] == [LIST]
    assert r.read("/etc/config/firewall") == before


# Up: what is waited for


def test_up_that_comes_late_is_returned_at_once(router):
    r = make(router, lists(NAME), interface("pending"))
    process = r.start(str(r.build / "tests/router/probe"), "bring-up", "60", NAME)
    r.wait_for(lambda: effects(r).count(STATUS) == 2, "the second question")
    r.set_ubus_state(interface("up"))
    output, _ = process.communicate()
    assert output.decode().endswith("result 0\n")
    assert effects(r).count(STATUS) == 3


@pytest.mark.parametrize("board", BOARDS)
@pytest.mark.parametrize("state, result", [("pending", PENDING), ("down", DOWN)])
def test_an_interface_that_never_gets_up_is_asked_for_once_more(router, board, state, result):
    r = make(router, lists("wan"), interface(state), board=board)
    assert probe(r, "bring-up", "2", NAME) == (result, {})
    assert effects(r) == [RELOAD, *ASK_UP, LIST, *set_zone(f"wan {NAME}", board), STATUS, STATUS, STATUS]


@pytest.mark.parametrize("count", ["0", "-1"])
@pytest.mark.parametrize("state, result", [("up", UP), ("pending", PENDING), ("down", DOWN)])
def test_up_without_waiting_asks_once(router, count, state, result):
    r = make(router, lists(NAME), interface(state))
    assert probe(r, "bring-up", count, NAME) == (result, {})
    assert effects(r) == [RELOAD, *ASK_UP, LIST, *VELA_FIREWALL, STATUS]


def test_up_without_a_bus_does_the_rest(router):
    r = make(router, lists("wan"), ubus=False)
    result = run_probe(r, "bring-up", "1", NAME)
    assert parse(result) == (DOWN, {}) and result.stderr.count("\n") == 1  # of the ubus program
    assert effects(r) == [ASK_UP[0], LIST, *set_zone(f"wan {NAME}")]


@pytest.mark.parametrize("operation, pause", [("bring-up", "{tv_sec=1, tv_nsec=0}"),
                                              ("take-down", "{tv_sec=0, tv_nsec=100000000}")])
def test_the_pause_before_each_question(router, operation, pause):
    r = make(router, lists("wan"), interface("pending"))
    argv = [str(r.build / "tests/router/probe"), operation, "3", NAME]
    result, lines = traced(r, argv, "trace=clock_nanosleep,nanosleep,connect", device=None)
    assert parse(result) == (PENDING, {})
    steps = re.findall(r"\{tv_sec.*?\}|ubus\.sock", "\n".join(lines))
    assert steps == ["ubus.sock", *[pause, "ubus.sock"] * 3, "ubus.sock"]  # the reload comes first


@pytest.mark.parametrize("operation", ["bring-up", "take-down"])
def test_netifd_has_100_seconds_for_each_answer(router, operation):
    r = make(router, lists("wan"), interface("pending"))
    argv = [str(r.build / "tests/router/probe"), operation, "1", NAME]
    result, lines = traced(r, argv, BUS_CALLS, device=None)
    assert parse(result) == (PENDING, {})
    assert bus_times(lines) == [100, 100, 100]  # for the reload, the question and the last question


# Down: what is done


@pytest.mark.parametrize("board", BOARDS)
def test_down_leaves_the_zone_and_reloads_the_firewall(router, board):
    r = make(router, lists("wan", NAME, "wan6"), interface("down"), board)
    assert probe(r, "take-down", "5", NAME) == (DOWN, {})
    assert effects(r) == [*down_up_to_the_zone(board), STATUS, LIST_WITHOUT, *set_zone("wan  wan6", board)]
    assert r.read("/etc/config/network").count("option disabled '1'") == 1
    assert zone_of(r).split() == ["wan", "wan6"]
    assert_only_the_zone_changed(r, lists("wan", NAME, "wan6"))


@pytest.mark.parametrize("zone, networks", [
    (lists("wan", NAME), "wan"), (option(f"wan  {NAME} \t"), "wan"), (lists(NAME, "wan"), " wan"),
    (lists("wan"), "wan"), (option("wan\nwan6"), "wan"), (option(f"{NAME} {NAME}"), ""), (lists(NAME), ""),
], ids=range(7))
def test_down_cuts_blanks_at_the_end_of_the_list_only(router, zone, networks):
    r = make(router, zone, interface("down"))
    assert probe(r, "take-down", "5", NAME) == (DOWN, {})
    assert effects(r) == [*down_up_to_the_zone(), STATUS, LIST_WITHOUT, *set_zone(networks)]
    assert zone_of(r) == (networks or None)


@pytest.mark.parametrize("board", BOARDS)
@pytest.mark.parametrize("zone", [None, "", firewall("")], ids=["no file", "empty", "no networks"])
def test_down_with_a_zone_that_has_no_networks(router, board, zone):
    r = make(router, zone, interface("down"), board)
    result = run_probe(r, "take-down", "5", NAME)
    assert parse(result) == (DOWN, {})
    assert effects(r) == [*down_up_to_the_zone(board), STATUS, LIST_WITHOUT, *set_zone("", board)]
    assert zone_of(r) is None


def test_down_takes_the_name_out_of_longer_ones_too(router):
    """The zone is edited as a text. On one router buses that are a part of one another do not occur."""
    r = make(router, option(f"wan {NAME}_4"), interface("down"))
    assert probe(r, "take-down", "5", NAME) == (DOWN, {})
    assert zone_of(r) == "wan _4"


# Down: what is waited for


def test_down_that_comes_late_is_seen_at_once(router):
    r = make(router, lists("wan", NAME), interface("up"))
    process = r.start(str(r.build / "tests/router/probe"), "take-down", "600", NAME)
    r.wait_for(lambda: effects(r).count(STATUS) == 2, "the second question")
    r.set_ubus_state(interface("down"))
    output, _ = process.communicate()
    assert output.decode().endswith("result 2\n")
    assert effects(r).count(STATUS) < 600
    assert effects(r)[-6:] == [STATUS, LIST_WITHOUT, *set_zone("wan")]


@pytest.mark.parametrize("board", BOARDS)
@pytest.mark.parametrize("state, result", [("up", UP), ("pending", PENDING)])
def test_an_interface_that_never_gets_down_stays_in_the_zone(router, board, state, result):
    r = make(router, lists("wan", NAME), interface(state), board)
    assert probe(r, "take-down", "3", NAME) == (result, {})
    assert effects(r) == [*down_up_to_the_zone(board), *[STATUS] * 4]
    assert r.read("/etc/config/firewall") == lists("wan", NAME)
    assert r.read("/etc/config/network").count("option disabled '1'") == 1


@pytest.mark.parametrize("count", ["0", "-1"])
def test_down_without_waiting_leaves_the_zone_alone_even_where_the_interface_is_down(router, count):
    r = make(router, lists("wan", NAME), interface("down"))
    assert probe(r, "take-down", count, NAME) == (DOWN, {})
    assert effects(r) == [*down_up_to_the_zone(), STATUS]


def test_down_of_an_interface_that_netifd_does_not_know(router):
    r = make(router, lists("wan", NAME), interface("unknown"))
    assert probe(r, "take-down", "5", NAME) == (DOWN, {})
    assert effects(r) == [*down_up_to_the_zone(), LIST_WITHOUT, *set_zone("wan")]


def test_down_without_a_bus_does_the_rest(router):
    r = make(router, lists("wan", NAME), ubus=False)
    assert probe(r, "take-down", "5", NAME) == (DOWN, {})
    assert effects(r) == [*down_up_to_the_zone()[:-1], LIST_WITHOUT, *set_zone("wan")]


def test_up_and_down_again_leave_the_zone_as_it_was(router):
    r = make(router, option("wan"))
    for _ in range(2):
        assert probe(r, "bring-up", "15", NAME) == (UP, {})
        assert zone_of(r) == f"wan {NAME}"
        r.set_ubus_state(interface("down", on_up="up"))
        assert probe(r, "take-down", "5", NAME) == (DOWN, {})
        assert zone_of(r) == "wan"


# Long texts


@pytest.mark.parametrize("length", [200, 900, 970])
def test_a_long_list_keeps_all_its_names(router, length):
    networks = " ".join(f"net{number:03}" for number in range(length // 7))
    r = make(router, option(networks))
    assert probe(r, "bring-up", "15", NAME) == (UP, {})
    assert zone_of(r) == f"{networks} {NAME}"
    r.set_ubus_state(interface("down"))
    assert probe(r, "take-down", "5", NAME) == (DOWN, {})
    assert zone_of(r) == networks


@pytest.mark.parametrize("length", [1024, 5000, 100000])
def test_a_list_that_does_not_fit_ends_the_process_and_stays_as_it_is(router, length):
    zone = option(" ".join(["wan", "x" * length]))
    for operation, ubus in (("bring-up", AT_ONCE), ("take-down", interface("down"))):
        r = make(router, zone, ubus)
        assert run_probe(r, operation, "1", NAME).returncode == ABORTED
        assert not [effect for effect in effects(r) if effect.startswith("$ uci set firewall")]
        assert r.read("/etc/config/firewall") == zone


@pytest.mark.parametrize("operation", ["bring-up", "take-down"])
@pytest.mark.parametrize("length", [100, 5000])
def test_a_name_that_does_not_fit_ends_the_process_before_anything_is_done(router, operation, length):
    r = make(router, lists("wan"), board="halvor")
    assert run_probe(r, operation, "1", "m" * length).returncode == ABORTED
    assert r.events == []
