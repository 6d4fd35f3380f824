"""The command new-connect-auto: the saved connection, and every effect in its order."""

import pytest
from connect_commands import (
    FAIL_COUNT, KILL_UQMI, LED, SAVED, SIM_TYPE, SUCCESS, WDM, context, drop_session, make, run, saved,
)
from connection_client import BOARDS, IFNAME, STATUS, bring_up, effects, section, sorted_out
from support import ABORTED

FIND_SECTION = "$ uci show network | grep modem | grep ifname |cut -d '.' -f2"


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
