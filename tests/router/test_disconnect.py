"""The command disconnect: what it prints, and every effect in its order."""

import pytest
from connect_commands import FAIL_COUNT, SUCCESS, make, run, saved
from connection_client import BOARDS, IFNAME, STATUS, effects, interface, link, section
from probe_client import parse, run_probe

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
