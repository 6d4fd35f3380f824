"""Which SIM a switch selects, stores and forgets, and what is done where something fails."""

import json
import os
import stat

import pytest
from power_client import (
    AFTER_RESET, BG95, BUS, EC25, EXPORT, FAILED, FORGET_SIM, GPIO, SIM_GPIO, SUCCESS, assert_sequence, brought_up,
    effects, reset, select, show_signal, stored_sim, switch, taken_down,
)
from power_supplies import POWER, SUPPLIES, commands_of, supplied
from support import system_log
from velasim import Router


@pytest.mark.parametrize("number, stored", [("1", "1"), ("2", "2"), ("", "1"), ("3", "1"), ("22", "1"), (" 2", "1"),
                                            ("2\n", "1"), ("2' '", "1"), ("$(reboot)", "1")])
@pytest.mark.parametrize("before", ["1", "2"])
def test_which_sim_is_selected(router, number, stored, before):
    r = router("bg95", ubus=False, quick=True, files={SIM_GPIO: "old\n"},
               uci={"velamodem": f"\nconfig sim 'sim'\n\toption sim_num '{before}'\n\toption other 'kept'\n"})
    assert switch(r, modem_id=BG95, bus=BUS, sim_num=number) == (0, {})
    assert_sequence(r, [select(stored), *FORGET_SIM, POWER], show_signal(BUS))
    assert r.read(SIM_GPIO) == ("1\n" if stored == "2" else "0\n")
    # Committed, and nothing left staged.
    assert r.read("/etc/config/velamodem") == (
        f"\nconfig sim 'sim'\n\toption sim_num '{stored}'\n\toption other 'kept'\n")
    assert r.run("uci", "changes").stdout == ""


def test_the_sim_line_is_exported_where_it_is_not(router):
    r = router("ec25", ubus=False, quick=True, files={f"{GPIO}/export": "", f"{GPIO}/gpio1/direction": "in\n"})
    assert switch(r, modem_id=EC25, bus=BUS, sim_num="2") == (0, {})
    assert_sequence(r, [*EXPORT, select("2"), *FORGET_SIM, f"{BUS} ttyUSB2 AT+QPOWD"], show_signal(BUS))
    assert (r.read(f"{GPIO}/export"), r.read(f"{GPIO}/gpio1/direction"), r.read(SIM_GPIO)) == ("1\n", "out\n", "1\n")


def test_a_sim_line_that_cannot_be_exported(router):
    r = router("ec25", ubus=False, quick=True)
    assert switch(r, modem_id=EC25, bus=BUS, sim_num="2") == (0, {})
    assert_sequence(r, [*EXPORT, select("2"), *FORGET_SIM, f"{BUS} ttyUSB2 AT+QPOWD"], show_signal(BUS))
    assert not r.exists(f"{GPIO}/gpio1") and stored_sim(r) == "2\n"


def read_only(r: Router, directory: str) -> None:
    for command in (["mount", "--bind", directory, directory], ["mount", "-o", "remount,bind,ro", directory]):
        assert r.run(*command).returncode == 0


@pytest.mark.parametrize("supply", [SUPPLIES[0], SUPPLIES[18]], ids=str)
def test_control_files_that_cannot_be_written(router, supply):
    r = supplied(router, supply)
    r.write(SIM_GPIO, "0\n")
    read_only(r, GPIO)
    assert switch(r, modem_id=BG95, bus=BUS, sim_num="2") == (0, {})
    assert_sequence(r, [select("2"), *FORGET_SIM, *commands_of(supply)], show_signal(BUS))
    assert (r.read(SIM_GPIO), stored_sim(r)) == ("0\n", "2\n")
    r.clear_events()
    assert reset(r, modem_id=BG95) == (0, {})
    assert_sequence(r, taken_down() + commands_of(supply) + brought_up(), AFTER_RESET)
    assert r.read(supply.file) == "untouched\n"


@pytest.mark.parametrize("package", [
    None, "", "config other 'sim2'\n\toption sim_num '1'\n", "config sim 'sim'\n\toption 'unfinished",
])
def test_a_configuration_without_the_sim(router, package):
    r = router("ec25", ubus=False, quick=True, files={SIM_GPIO: "0\n"}, uci={"velamodem": package})
    assert switch(r, modem_id=EC25, bus=BUS, sim_num="2") == (0, {})
    assert_sequence(r, [select("2"), *FORGET_SIM, f"{BUS} ttyUSB2 AT+QPOWD"], show_signal(BUS))
    assert r.read(SIM_GPIO) == "1\n"
    if package is not None:
        assert r.read("/etc/config/velamodem") == package
    else:
        assert not r.exists("/etc/config/velamodem")


def test_a_configuration_that_cannot_be_written(router):
    r = router("ec25", ubus=False, quick=True, files={SIM_GPIO: "0\n"})
    before = r.read("/etc/config/velamodem")
    read_only(r, "/etc/config")
    assert switch(r, modem_id=EC25, bus=BUS, sim_num="2") == (0, {})
    assert_sequence(r, [select("2"), *FORGET_SIM, f"{BUS} ttyUSB2 AT+QPOWD"], show_signal(BUS))
    assert r.read("/etc/config/velamodem") == before and r.read(SIM_GPIO) == "1\n"


def test_the_sim_is_stored_after_it_is_selected_and_keeps_what_others_store_meanwhile(router):
    r = router("ec25", ubus=False, quick=True)
    r.run("mkdir", "-p", os.path.dirname(SIM_GPIO))
    r.run("mkfifo", SIM_GPIO)  # the write waits for its reader
    process = r.start("vela_api", "post", "/modem/sim/switch",
                      json.dumps({"modem_id": EC25, "bus": BUS, "sim_num": "2"}))
    r.wait_for(lambda: effects(r) == [select("2")], "the SIM to be selected")
    assert stored_sim(r) == "1\n" and r.run("uci", "changes").stdout == ""
    for words in (["set", "velamodem.sim.lock=1234"], ["set", "velamodem.extra=modem"], ["commit", "velamodem"]):
        assert r.run("uci", *words).returncode == 0
    assert stat.S_ISFIFO(r.host_path(SIM_GPIO).stat().st_mode)
    assert r.host_path(SIM_GPIO).read_text(encoding="ascii") == "1\n"
    assert process.wait(60) == 0
    shown = r.run("uci", "show", "velamodem").stdout.splitlines()
    assert sorted(shown) == ["velamodem.extra=modem", "velamodem.sim.lock='1234'", "velamodem.sim.sim_num='2'",
                             "velamodem.sim=sim"]


def test_what_is_forgotten_of_the_sim_is_that_of_the_one_bus(router):
    names = ("signal", "signal2", "cimi", "modem-imei")
    kept = {f"/tmp/modem.{bus}/{name}": name for bus in (BUS, "2-1.2", "2-1.22") for name in names}
    r = router("ec25", ubus=False, quick=True, files=kept)
    assert switch(r, modem_id=EC25, bus=BUS, sim_num="2") == (0, {})
    gone = {f"/tmp/modem.2-1.2/{name}" for name in ("signal", "signal2", "cimi")}
    assert {path for path in kept if not r.exists(path)} == gone


def test_a_sim_switch_on_a_bus_without_a_name(router):
    # There is nothing to send the command to, and the light is that of the modem with two SIMs.
    r = router("ec25", ubus=False, quick=True, files={SIM_GPIO: "0\n"})
    with system_log(r) as messages:
        assert switch(r, modem_id=EC25, bus="", sim_num="2") == (0, {})
        assert messages() == [FAILED, SUCCESS]
    assert_sequence(r, [select("2"), *FORGET_SIM], show_signal("2-1.2"))


def test_a_sim_switch_of_a_modem_that_is_not_there(router):
    r = router("ec25", ubus=False, quick=True, files={SIM_GPIO: "0\n"})
    r.modem().unplug()
    with system_log(r) as messages:
        assert switch(r, modem_id=EC25, bus=BUS, sim_num="2") == (0, {})
        assert messages() == [FAILED, SUCCESS]
    assert_sequence(r, [select("2"), *FORGET_SIM], show_signal(BUS))


def test_a_sim_switch_does_not_wait_for_the_light(router):
    r = router("ec25", ubus=False, quick=True)
    r.answer("modem_signal_led.sh", "#!/bin/dash\nwhile [ ! -e /tmp/go ]; do sleep 0.01; done\n", executable=True)
    assert switch(r, modem_id=EC25, bus=BUS, sim_num="2") == (0, {})
    r.wait_for(lambda: set(show_signal(BUS)) <= set(effects(r)), "the light")
    assert r.processes() != []
    r.write("/tmp/go", "")
    r.wait_idle()


def test_two_switches_at_once(router):
    r = router("bg95", ubus=False, quick=True, files={SIM_GPIO: "old\n"})
    requests = [json.dumps({"modem_id": BG95, "bus": BUS, "sim_num": number}) for number in ("1", "2")]
    processes = [r.start("vela_api", "post", "/modem/sim/switch", request) for request in requests]
    assert [process.wait(60) for process in processes] == [0, 0]
    r.wait_idle()
    assert r.read("/etc/config/velamodem") in (f"\nconfig sim 'sim'\n\toption sim_num '{n}'\n" for n in "12")
    assert r.read(SIM_GPIO) in ("0\n", "1\n")
