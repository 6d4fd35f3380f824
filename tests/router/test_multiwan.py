"""What hangs on a modem's interface: its place in mwan3, its forced TTL, its route metric."""

import pytest
from modem_config import (
    GET, NAME, SET, WDM, comes_up, effects, ifname_of, list_of, nothing_staged, option, packages, restarts, section,
)
from probe_client import probe, run_probe
from support import ABORTED, traced
from velasim import Router

ADDRESSES = "'8.8.4.4' '8.8.8.8' '208.67.222.222' '208.67.220.220'"
MEMBER = ["=member", f"interface='{NAME}'", "metric='4'", "weight='3'"]
POLICY = "mwan3.default_poli.use_member"


def tracked(enabled: str) -> list[str]:
    return ["=interface", f"enabled='{enabled}'", "family='ipv4'", "reliability='2'", "count='1'", "timeout='2'",
            "interval='5'", "down='3'", "up='5'", f"track_ip={ADDRESSES}"]


def mwan3(r: Router, *visibility: str, ifname: str = NAME) -> None:
    """Nothing but the restart happens outside the configuration."""
    assert probe(r, "mwan3", ifname, *visibility) == (0, {})
    r.wait_idle()
    assert set(r.commands) <= {"mwan3 restart"}
    assert nothing_staged(r)


def known(enabled: str | None, *more: str) -> dict:
    """A router whose mwan3 has the interface already, as somebody else would have written it."""
    lines = [f"\toption enabled '{enabled}'\n"] if enabled is not None else []
    return {"mwan3": f"config interface '{NAME}'\n" + "".join(lines) + "".join(f"\t{line}\n" for line in more)
            + "\nconfig policy 'default_poli'\n\tlist use_member 'wan_only'\n"}


@pytest.fixture
def plain(router):
    return router(ubus=False)


# mwan3: a new interface


@pytest.mark.parametrize("visibility, enabled", [
    ((), "1"), (("Visible",), "0"), (("Visible operator",), "0"), (("Visibles",), "0"), (("",), "1"),
    (("Visibl",), "1"), (("visible",), "1"), (("VISIBLE",), "1"), ((" Visible",), "1"), (("Not Visible",), "1"),
    (("Hidden",), "1"), (("'\"\n$(reboot)",), "1"),
], ids=repr)
def test_a_new_interface_gets_its_sections_and_its_place_in_the_policy(plain, visibility, enabled):
    before = {name: section(plain, "mwan3", name) for name in ("wan", "wan_only")}
    mwan3(plain, *visibility)
    assert section(plain, "mwan3", NAME) == tracked(enabled)
    assert section(plain, "mwan3", f"{NAME}_only") == MEMBER
    assert list_of(plain, POLICY) == ["wan_only", f"{NAME}_only"]
    assert {name: section(plain, "mwan3", name) for name in before} == before
    assert restarts(plain) == 1


def test_mwan3_is_restarted_when_the_sections_are_committed(plain):
    argv = [str(plain.build / "tests/router/probe"), "mwan3", NAME]
    _, lines = traced(plain, argv, "trace=rename,renameat,renameat2", device=None)
    # What starts the background command ends at once.
    steps = ["commit" if '"/etc/config/mwan3"' in line else "start" for line in lines
             if '"/etc/config/mwan3"' in line or "SIGCHLD {" in line]
    assert steps == ["commit", "start"]
    assert restarts(plain) == 1


def test_it_is_known_afterwards_and_nothing_is_added_again(plain):
    mwan3(plain)
    first = packages(plain)
    for _ in range(3):
        mwan3(plain)
        mwan3(plain, "Hidden")
    assert packages(plain) == first and restarts(plain) == 1
    for number, visibility in enumerate((["Visible"], [], ["Visible"], ["Hidden"])):
        mwan3(plain, *visibility)
        enabled = "0" if visibility == ["Visible"] else "1"
        assert section(plain, "mwan3", NAME) == tracked(enabled)
        assert section(plain, "mwan3", f"{NAME}_only") == MEMBER
        assert list_of(plain, POLICY) == ["wan_only", f"{NAME}_only"]
        assert restarts(plain) == number + 2


def test_each_of_three_modems_has_its_own(plain):
    names = [ifname_of(bus) for bus in ("1-1.2", "2-1.2", "1-1.4")]
    for name in names:
        mwan3(plain, ifname=name)
    for name in names:
        assert section(plain, "mwan3", name) == tracked("1")
        assert option(plain, f"mwan3.{name}_only.interface") == name
    assert list_of(plain, POLICY) == ["wan_only", *(f"{name}_only" for name in names)]


def test_a_policy_whose_member_is_one_option_becomes_a_list(router):
    r = router(ubus=False, uci={"mwan3": "config policy 'default_poli'\n\toption use_member 'wan_only'\n"})
    mwan3(r)
    assert list_of(r, POLICY) == ["wan_only", f"{NAME}_only"]


@pytest.mark.parametrize("text", ["", "config interface 'wan'\n\toption enabled '1'\n"], ids=["empty", "others"])
def test_without_a_default_policy_the_sections_are_made(router, text):
    r = router(ubus=False, uci={"mwan3": text})
    mwan3(r)
    assert section(r, "mwan3", NAME) == tracked("1")
    assert section(r, "mwan3", f"{NAME}_only") == MEMBER
    assert option(r, POLICY) is None and restarts(r) == 1
    mwan3(r)
    assert restarts(r) == 1


def test_a_member_that_is_there_keeps_what_else_it_has(router):
    r = router(ubus=False, uci={"mwan3": f"config member '{NAME}_only'\n\toption weight '9'\n\toption note 'mine'\n"})
    mwan3(r)
    assert sorted(section(r, "mwan3", f"{NAME}_only")) == sorted([*MEMBER, "note='mine'"])


@pytest.mark.parametrize("ifname", ["modem_1;x", "modem_1'", "a b", "mödem", "a\nb", "a/b"], ids=repr)
def test_a_name_that_no_section_can_have_changes_nothing(plain, ifname):
    before = packages(plain)
    for _ in range(2):
        mwan3(plain, ifname=ifname)
    assert packages(plain) == before and restarts(plain) == 0


def test_without_the_package_nothing_is_made(router):
    r = router(ubus=False, uci={"mwan3": None})
    mwan3(r, "Visible")
    assert not r.exists("/etc/config/mwan3") and restarts(r) == 0


# mwan3: an interface that is known


@pytest.mark.parametrize("enabled, visibility, becomes", [
    ("1", ("Visible",), "0"), ("1", ("Visible to all",), "0"), ("1", (), None), ("1", ("",), None), ("1", ("x",), None),
    ("1", ("visible",), None), ("10", ("Visible",), "0"), ("1x", (), None),
    ("0", ("Visible",), None), ("0", ("Visible to all",), None), ("0", (), "1"), ("0", ("",), "1"), ("0", ("x",), "1"),
    ("0", ("visible",), "1"), ("2", (), "1"), ("no", (), "1"), ("no", ("Visible",), None), (" 1", (), "1"),
    (None, (), None), (None, ("Visible",), None), (None, ("x",), None), ("", (), None), ("", ("Visible",), None),
], ids=repr)
def test_an_interface_that_is_known_is_switched_on_or_off_at_most(router, enabled, visibility, becomes):
    more = ["option family 'ipv6'", "option note 'mine'", "list track_ip '192.0.2.1'"]
    r = router(ubus=False, uci=known(enabled, *more))
    before = packages(r)
    mwan3(r, *visibility)
    if becomes is None:
        assert packages(r) == before
    else:
        text = before["mwan3"].decode().replace(f"enabled '{enabled}'", f"enabled '{becomes}'")
        shown = r.run("uci", "export", "mwan3").stdout
        r.write("/etc/config/mwan3", text)
        assert shown == r.run("uci", "export", "mwan3").stdout
    assert restarts(r) == (becomes is not None)


def test_a_section_of_another_type_is_known_too(router):
    r = router(ubus=False, uci={"mwan3": f"config other '{NAME}'\n\toption enabled '0'\n"})
    mwan3(r)
    assert section(r, "mwan3", NAME) == ["=other", "enabled='1'"]


def test_a_list_of_switches_is_none(router):
    r = router(ubus=False, uci=known(None, "list enabled '0'"))
    before = packages(r)
    mwan3(r)
    assert packages(r) == before and restarts(r) == 0


@pytest.mark.parametrize("uci", [
    {"mwan3": f"config {'t' * 30} '{NAME}'\n\toption enabled '0'\n"},
    {"mwan3": f"config interface '{NAME}'\n\toption enabled '{'0' * 30}'\n"},
], ids=["type", "switch"])
def test_a_text_that_does_not_fit_aborts_and_leaves_mwan3_alone(router, uci):
    r = router(ubus=False, uci=uci)
    before = packages(r)
    assert run_probe(r, "mwan3", NAME).returncode == ABORTED
    assert packages(r) == before and r.events == []


@pytest.mark.parametrize("length, fits", [(49, True), (84, True), (85, False), (500, False)])
def test_a_new_name_fits_up_to_the_path_of_its_addresses(plain, length, fits):
    before = packages(plain)
    name = "m" * length
    assert run_probe(plain, "mwan3", name).returncode == (0 if fits else ABORTED)
    assert (len(list_of(plain, f"mwan3.{name}.track_ip")) == 4) == fits
    assert (packages(plain) == before) == (not fits)


@pytest.mark.parametrize("length, fits", [(49, True), (50, False)])
def test_a_known_name_fits_up_to_the_path_of_its_switch(router, length, fits):
    name = "m" * length
    r = router(ubus=False, uci={"mwan3": f"config interface '{name}'\n\toption enabled '0'\n"})
    assert run_probe(r, "mwan3", name).returncode == (0 if fits else ABORTED)
    assert option(r, f"mwan3.{name}.enabled") == ("1" if fits else "0")


# TTL


def ttl(r: Router, number: int, device: str = "wwan0", ifname: str = NAME) -> None:
    assert probe(r, "ttl", ifname, str(number), device) == (0, {})
    assert r.commands == [] and nothing_staged(r)


@pytest.mark.parametrize("number", [1, 44, 64, 128, 255])
def test_a_ttl_is_written_for_its_device(plain, number):
    before = section(plain, "velamodem", "sim")
    ttl(plain, number)
    assert section(plain, "velamodem", NAME) == ["=forceTTL", "dev='wwan0'", f"ttl='{number}'"]
    ttl(plain, 65, f"3g-{NAME}")
    assert section(plain, "velamodem", NAME) == ["=forceTTL", f"dev='3g-{NAME}'", "ttl='65'"]
    assert section(plain, "velamodem", "sim") == before


def test_a_ttl_without_a_device_has_no_device(plain):
    ttl(plain, 65, "")
    assert section(plain, "velamodem", NAME) == ["=forceTTL", "ttl='65'"]
    ttl(plain, 65)
    ttl(plain, 65, "")
    assert section(plain, "velamodem", NAME) == ["=forceTTL", "ttl='65'"]


def test_a_section_of_another_type_gets_the_type_and_keeps_what_else_it_has(router):
    r = router(ubus=False, uci={"velamodem": f"config other '{NAME}'\n\toption ttl '1'\n\toption note 'mine'\n"})
    ttl(r, 65)
    assert section(r, "velamodem", NAME) == ["=forceTTL", "ttl='65'", "note='mine'", "dev='wwan0'"]


@pytest.mark.parametrize("number", [0, 256])
def test_a_ttl_of_0_takes_the_section_away_and_no_other(plain, number):
    other = ifname_of("2-1.2")
    for name in (NAME, other):
        ttl(plain, 65, ifname=name)
    for _ in range(2):
        ttl(plain, number)
        assert section(plain, "velamodem", NAME) == []
    assert section(plain, "velamodem", other)[0] == "=forceTTL"
    assert section(plain, "velamodem", "sim")[0] == "=sim"


@pytest.mark.parametrize("number", [0, 65])
def test_a_ttl_without_the_package(router, number):
    r = router(ubus=False, uci={"velamodem": None})
    ttl(r, number)
    assert not r.exists("/etc/config/velamodem")


# Metric


METRICS = {"1-1.2": "40", "2-1.2": "60", "1-1.4": "70", "1-1.3": "40", "1-1": "40", "": "40", "1-1.22": "40"}
SECTION = {"network": f"config interface '{NAME}'\n\toption metric '7'\n\toption proto 'qmi'\n"}


@pytest.mark.parametrize("bus, metric", METRICS.items())
def test_the_metric_goes_by_the_bus_on_the_halvor(router, bus, metric):
    r = router(ubus=False, board="halvor", uci=SECTION)
    for _ in range(2):
        assert probe(r, "metric", NAME, bus) == (0, {})
    assert section(r, "network", NAME) == ["=interface", f"metric='{metric}'", "proto='qmi'"]
    assert r.events == [] and nothing_staged(r)


@pytest.mark.parametrize("board", ["pellin", "tamber", "ketrin", "halvor2", "xhalvor", "halvo", ""])
def test_the_metric_stays_on_other_boards(router, board):
    r = router(ubus=False, board=board, uci=SECTION)
    before = packages(r)
    for bus in METRICS:
        assert probe(r, "metric", NAME, bus) == (0, {})
    assert packages(r) == before


@pytest.mark.parametrize("uci", [{"network": None}, {"network": ""}], ids=["no package", "no section"])
def test_a_metric_for_an_interface_that_is_not_there(router, uci):
    r = router(ubus=False, board="halvor", uci=uci)
    assert probe(r, "metric", NAME, "2-1.2") == (0, {})
    assert r.run("uci", "-q", "show", "network").stdout == ""


# Through the endpoint


def post(r: Router, **more: object) -> None:
    assert r.api("post", SET, {"modem_id": 3, "device": WDM, **more}) == (0, {})
    r.wait_idle()


def test_the_chosen_operator_is_the_visibility(router):
    r = router("ec25", quick=True, ubus=comes_up())
    post(r)
    assert section(r, "mwan3", NAME) == tracked("1") and option(r, "velaconfig.modem.operator") is None
    post(r, operator="Visible 26201")
    assert section(r, "mwan3", NAME) == tracked("0")
    assert option(r, "velaconfig.modem.operator") == "Visible 26201"
    post(r, operator="Visible")
    assert restarts(r) == 2
    post(r)
    assert section(r, "mwan3", NAME) == tracked("1")
    post(r, operator="26201")
    assert restarts(r) == 3
    assert list_of(r, POLICY) == ["wan_only", f"{NAME}_only"]
    assert section(r, "mwan3", f"{NAME}_only") == MEMBER


@pytest.mark.parametrize("board", ["halvor", "pellin"])
@pytest.mark.parametrize("bus, metric", [("1-1.2", "40"), ("2-1.2", "60"), ("1-1.4", "70"), ("1-1.3", "40")])
def test_a_configured_modem_has_the_metric_of_its_bus(router, board, bus, metric):
    r = router(modems={bus: "ec25"}, board=board, quick=True, ubus=comes_up(ifname_of(bus)))
    post(r, bus=bus)
    assert option(r, f"network.{ifname_of(bus)}.metric") == (metric if board == "halvor" else "40")
    assert section(r, "network", ifname_of(bus))[-2:] == [f"metric='{metric if board == 'halvor' else '40'}'",
                                                          "disabled='0'"]


@pytest.mark.parametrize("given, stored", [(1, 1), (64, 64), (255, 255), (256, 0), (300, 44), (-1, 255), (0, 0),
                                           ("65", 65), (None, 0), ("x", 0), (2**31 - 1, 255), (2**63, 255)], ids=repr)
def test_of_a_ttl_the_low_8_bits_are_kept(router, given, stored):
    r = router("ec25", quick=True, ubus=comes_up())
    post(r, ttl=7)
    post(r, ttl=given)
    expected = ["=forceTTL", "dev='wwan0'", f"ttl='{stored}'"] if stored else []
    assert section(r, "velamodem", NAME) == expected
    _, reply = r.api("get", GET)
    assert reply["config"].get("ttl", 0) == stored and ("ttl" in reply["config"]) == bool(stored)


def test_a_configuration_without_a_ttl_takes_the_one_before_away(router):
    r = router("ec25", quick=True, ubus=comes_up())
    post(r, ttl=64)
    post(r)
    assert section(r, "velamodem", NAME) == []


def test_the_restart_is_not_waited_for(router):
    r = router("ec25", quick=True, ubus=comes_up())
    r.answer("mwan3", "#!/bin/dash\nwhile [ ! -e /tmp/go ]; do :; done\n", executable=True)
    assert r.api("post", SET, {"modem_id": 3, "device": WDM}) == (0, {})
    assert effects(r)[-1] == f"network.interface.{NAME} status"
    assert ["mwan3", "restart"] in r.programs or r.processes()
    r.write("/tmp/go", "")
    assert restarts(r) == 1
