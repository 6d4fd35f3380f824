"""A modem is restarted, or its SIM switched: every effect on the router in its order, per board, model and bus."""

import json
import os
import re

import pytest
from power_client import (
    AFTER_RESET, BG95, BUS, CHECK, EC200T, EC25, EXPORT, FAILED, FORGET_SIM, GPIO, LEDS, SIM_GPIO, SUCCESS,
    assert_sequence, brought_up, effects, raw, reset, select, show_signal, stored_sim, switch, taken_down,
)
from power_supplies import LISTINGS, POWER, SUPPLIES, assert_only_this_was_switched, commands_of, fixed, pulse, supplied
from support import ABORTED, DEVICE, MODELS, SYSFS, locked, system_log, traced

# The supply


@pytest.mark.parametrize("supply", SUPPLIES, ids=str)
def test_a_reset_of_each_board(router, supply):
    r = supplied(router, supply)
    assert reset(r, modem_id=BG95, bus=supply.bus) == (0, {})
    assert_sequence(r, taken_down(supply.bus) + commands_of(supply) + brought_up(supply.bus), AFTER_RESET)
    assert_only_this_was_switched(r, supply)


@pytest.mark.parametrize("supply", SUPPLIES, ids=str)
def test_a_sim_switch_of_each_board(router, supply):
    r = supplied(router, supply)
    r.write(SIM_GPIO, "0\n")
    if supply.file == SIM_GPIO:
        supply = fixed("dunmar", "gpio1", 1)  # the board whose supply is the file that selects the SIM elsewhere
    assert switch(r, modem_id=BG95, bus=supply.bus, sim_num="2") == (0, {})
    assert_sequence(r, [select("2"), *FORGET_SIM, *commands_of(supply)], show_signal(supply.bus))
    assert_only_this_was_switched(r, supply)


@pytest.mark.parametrize("length, fits", [(235, True), (236, False), (282, False)])
def test_a_control_file_with_a_long_name(router, length, fits):
    name = "x" * (length - len(f"{LEDS}/:usbpow/brightness")) + ":usbpow"
    file = f"{LEDS}/{name}/brightness"
    r = router("bg95", board="ketrin", ubus=False, quick=True, files={file: "1\n"})
    assert raw(r, "/modem/reset", modem_id=BG95).returncode == (0 if fits else ABORTED)
    after = [f"$ {pulse(file, 0)}", *brought_up()] if fits else []
    assert_sequence(r, [*taken_down(), f"$ {LISTINGS[0]}", *after], AFTER_RESET if fits else [])


# Reset

COMMANDS = {0: "AT+QPOWD", 1: "AT+QPOWD", 3: "AT+QPOWD", 5: "AT!RESET", 20: "AT+CRESET", 30: "AT+ZRST"}
UNKNOWN = "unknown"
MODEL_IDS = {**{name: model.modem_id for name, model in MODELS.items()}, UNKNOWN: 255}


def at_command(name: str, commands: dict[int, str]) -> list[str]:
    command = commands.get(MODEL_IDS[name])
    if command is None:
        return []
    return [f"{BUS} {MODELS[name].control_port.removeprefix('/dev/')} {command}"]


@pytest.mark.parametrize("name", MODEL_IDS)
def test_a_reset_by_command_of_each_model(router, name):
    r = router(name, ubus=False, quick=True)
    command = at_command(name, {**COMMANDS, EC200T: "AT+QPOWD"})
    with system_log(r) as messages:
        status, reply = reset(r, modem_id=MODEL_IDS[name], disable=True)
        assert messages() == ([SUCCESS] if command else [])
    assert reply == {}
    if name == "ec200t":
        # Its interface 0 is a network device, so by the port that is looked for it never comes back.
        assert status == -250
        assert_sequence(r, [*taken_down(), *command, CHECK], ["> /usr/bin/check_verizon"])
    else:
        assert status == 0
        assert_sequence(r, taken_down() + command + brought_up(), AFTER_RESET)


@pytest.mark.parametrize("name", MODEL_IDS)
def test_a_sim_switch_of_each_model(router, name):
    r = router(name, ubus=False, quick=True, files={SIM_GPIO: "1\n"})
    command = at_command(name, COMMANDS)
    with system_log(r) as messages:
        assert switch(r, modem_id=MODEL_IDS[name], bus=BUS, sim_num="1") == (0, {})
        assert messages() == ([SUCCESS] if command else [])
    assert_sequence(r, [select("1"), *FORGET_SIM, *(command or [POWER])], show_signal(BUS))


BOTH = pytest.mark.parametrize("ask", [
    pytest.param(lambda r, **more: reset(r, disable=True, **more), id="reset"),
    pytest.param(lambda r, **more: switch(r, sim_num="1", **more), id="switch"),
])


@BOTH
@pytest.mark.parametrize("reply", ["\nERROR\n", "\n+CME ERROR: 3\n", "\nBUSY\n\nNO CARRIER ERROR\n"])
def test_a_modem_that_refuses_the_reset(router, ask, reply):
    r = router("ec25", ubus=False, quick=True)
    r.modem().reply("AT+QPOWD", reply)
    with system_log(r) as messages:
        assert ask(r, modem_id=EC25, bus=BUS) == (0, {})
        assert messages() == [FAILED, SUCCESS]
    assert r.modem().commands == ["AT+QPOWD"]


@BOTH
def test_a_reset_while_another_program_has_the_port(router, ask):
    r = router("ec25", ubus=False, quick=True)
    with locked(r), system_log(r) as messages:
        assert ask(r, modem_id=EC25, bus=BUS) == (0, {})
        assert messages() == [FAILED, SUCCESS]
    assert r.modem().commands == []


def test_a_reset_of_a_modem_without_its_command_port(router):
    # Only the port behind interface 0 says that the modem is there.
    r = router("ec25", ubus=False, quick=True)
    r.remove(f"{DEVICE}/{BUS}:1.2")
    with system_log(r) as messages:
        assert reset(r, modem_id=EC25, disable=True) == (0, {})
        assert messages() == [FAILED, SUCCESS]
    assert_sequence(r, taken_down() + brought_up(), AFTER_RESET)


@pytest.mark.parametrize("disable, by_command", [
    (None, False), (False, False), (True, True), (0, False), (1, True), ("", False), ("yes", True),
])
def test_which_reset_a_request_asks_for(router, disable, by_command):
    r = router("ec25", ubus=False, quick=True)
    assert reset(r, modem_id=EC25, bus=BUS, disable=disable) == (0, {})
    command = f"{BUS} ttyUSB2 AT+QPOWD" if by_command else POWER
    assert_sequence(r, [*taken_down(), command, *brought_up()], AFTER_RESET)


@pytest.mark.parametrize("request_bus", [{}, {"bus": None}, {"bus": 12}, {"bus": ["2-1.2"]}])
def test_the_bus_of_a_reset_that_names_none(router, request_bus):
    r = router("ec25", ubus=False, quick=True)
    assert reset(r, modem_id=EC25, **request_bus) == (0, {})
    assert_sequence(r, [*taken_down(BUS), POWER, *brought_up(BUS)], AFTER_RESET)


def test_a_reset_forgets_what_was_kept_about_the_modem(router):
    r = router("ec25", ubus=False, quick=True,
               files={f"/tmp/modem.{BUS}/cimi": "1", "/tmp/modem.2-1.2/cimi": "2", "/tmp/modem.1-1.22/cimi": "3"})
    assert reset(r, modem_id=EC25)[0] == 0
    assert not r.exists(f"/tmp/modem.{BUS}")
    assert r.read("/tmp/modem.2-1.2/cimi") == "2" and r.read("/tmp/modem.1-1.22/cimi") == "3"


@pytest.mark.parametrize("disable", [False, True])
def test_a_modem_that_does_not_come_back(router, disable):
    r = router("ec25", ubus=False, quick=True)
    r.modem().unplug()
    with system_log(r) as messages:
        assert reset(r, modem_id=EC25, disable=disable) == (-250, {})
        assert messages() == ([FAILED, SUCCESS] if disable else [])
    # The interface stays down, and the messages' daemon, too.
    assert_sequence(r, [*taken_down(), *([] if disable else [POWER]), CHECK], ["> /usr/bin/check_verizon"])


def steps_of(lines: list[str]) -> list[str]:
    """The pauses among traced system calls, and between them the ends of commands, the looks for the modem and the
    commit."""
    sleep = r"nanosleep\(.*?\{tv_sec=(\d+), tv_nsec=(\d+)\}"
    found = re.findall(rf'{sleep}|(SIGCHLD) \{{|"({SYSFS})"|rename.*"(/etc/config/velamodem)"', "\n".join(lines))
    # A quick router sleeps a hundredth of what it is told.
    return ["command" if command else "look" if look else "commit" if commit
            else f"{(int(seconds) * 10**9 + int(ns)) // 10**7} s" for seconds, ns, command, look, commit in found]


TAKE_DOWN_AND_SWITCH_OFF, SELECT, FORGET_AND_SWITCH_OFF = ["command"] * 4, ["command"], ["command"] * 3


@pytest.mark.parametrize("path, more, present, steps", [
    ("/modem/reset", {}, True, [*TAKE_DOWN_AND_SWITCH_OFF, "20 s", "command", "look", "command", "command", "1 s"]),
    ("/modem/reset", {}, False, [*TAKE_DOWN_AND_SWITCH_OFF, "20 s", "command", *["look"] * 30]),
    ("/modem/sim/switch", {"sim_num": "2"}, True,
     [*SELECT, "1 s", "commit", *FORGET_AND_SWITCH_OFF, "20 s", "command"]),
], ids=["reset", "reset-gone", "switch"])
def test_how_long_a_restart_is_waited_for_and_how_often_the_modem_is_looked_for(router, path, more, present, steps):
    r = router("bg95", ubus=False, quick=True, files={SIM_GPIO: "0\n", SUPPLIES[0].file: "1\n"})
    if not present:
        r.modem().unplug()
    request = json.dumps({"modem_id": BG95, "bus": BUS, **more})
    result, lines = traced(r, ["vela_api", "post", path, request],
                           "trace=clock_nanosleep,nanosleep,openat,rename,renameat,renameat2", device=None)
    assert result.stderr == f"status {0 if present else -250}\n"
    assert steps_of(lines) == steps
    r.wait_idle()


def test_a_modem_that_loses_its_supply_and_comes_back_under_other_names(router):
    r = router("ec25", ubus=False, quick=True)
    control = f"{GPIO}/lte_power/value"
    r.run("mkdir", "-p", os.path.dirname(control))
    r.run("mkfifo", control)  # each write waits for its reader
    process = r.start("vela_api", "post", "/modem/reset", json.dumps({"modem_id": EC25}))
    assert r.host_path(control).read_text(encoding="ascii") == "0\n"
    assert effects(r) == [*taken_down(), POWER]
    r.modem().unplug()
    assert r.host_path(control).read_text(encoding="ascii") == "1\n"
    r.modem().plug(first_tty=7)
    assert process.wait(60) == 0
    assert_sequence(r, [*taken_down(), POWER, *brought_up()], AFTER_RESET)


def test_a_reset_does_not_wait_for_what_it_starts_in_the_background(router):
    r = router("ec25", ubus=False, quick=True)
    wait = "while [ ! -e /tmp/go ]; do sleep 0.01; done\n"
    r.answer("check_verizon", "#!/bin/dash\n" + wait, executable=True)
    r.answer("smstools3", f'#!/bin/dash\n[ "$1" = stop ] || {wait}', executable=True)
    assert reset(r, modem_id=EC25) == (0, {})
    r.wait_for(lambda: set(AFTER_RESET) <= set(effects(r)), "the background commands")
    assert len(r.processes()) >= 2
    r.write("/tmp/go", "")
    r.wait_idle()


@pytest.mark.parametrize("disable", [False, True])
def test_every_program_fails(router, disable):
    r = router("ec25", ubus=False, quick=True)
    for program in ("reactivate_mbn", "ifdown", "ifup", "smstools3", "check_verizon"):
        r.answer(program, "#!/bin/dash\nexit 1\n", executable=True)
    assert reset(r, modem_id=EC25, disable=disable) == (0, {})
    command = f"{BUS} ttyUSB2 AT+QPOWD" if disable else POWER
    assert_sequence(r, [*taken_down(), command, *brought_up()], AFTER_RESET)


# A request for no modem


@pytest.mark.parametrize("request_, status", [
    ({}, -251),
    ({"bus": BUS, "disable": True}, -251),
    ({"modem_id": -1}, -251),
    ({"modem_id": 2}, -250),
    ({"modem_id": 254}, -250),
    ({"modem_id": -250}, -250),
    ({"modem_id": 1 << 40}, -250),
    ({"modem_id": 2, "bus": "1-1.2" * 20}, -250),
])
def test_a_reset_of_no_modem_does_nothing(router, request_, status):
    r = router("ec25", ubus=False, quick=True)
    assert reset(r, **request_) == (status, {})
    assert r.events == []


@pytest.mark.parametrize("request_, status", [
    ({}, -22),
    ({"modem_id": EC25}, -22),
    ({"modem_id": EC25, "bus": BUS}, -22),
    ({"modem_id": EC25, "sim_num": "2"}, -22),
    ({"modem_id": EC25, "bus": BUS, "sim_num": 2}, -22),
    ({"modem_id": EC25, "bus": None, "sim_num": "2"}, -22),
    ({"modem_id": EC25, "bus": 12, "sim_num": "2"}, -22),
    ({"modem_id": 2, "bus": BUS}, -22),
    ({"bus": BUS, "sim_num": "2"}, -251),
    ({"bus": BUS, "sim_num": "2", "modem_id": -1}, -251),
    ({"bus": BUS * 20, "sim_num": "2"}, -251),
])
def test_a_sim_switch_without_its_parameters_does_nothing(router, request_, status):
    r = router("ec25", ubus=False, quick=True)
    assert switch(r, **request_) == (status, {})
    assert r.events == [] and stored_sim(r) == "1\n"


def test_a_sim_switch_of_an_unknown_model_selects_the_sim_nevertheless(router):
    r = router("ec25", ubus=False, quick=True, files={SIM_GPIO: "0\n"})
    with system_log(r) as messages:
        assert switch(r, modem_id=2, bus=BUS, sim_num="2") == (-250, {})
        assert messages() == []
    assert_sequence(r, [select("2"), *FORGET_SIM], [])
    assert (r.read(SIM_GPIO), stored_sim(r)) == ("1\n", "2\n")


@pytest.mark.parametrize("path, more", [("/modem/reset", {}), ("/modem/reset", {"disable": True}),
                                        ("/modem/sim/switch", {"sim_num": "2"})])
@pytest.mark.parametrize("bus", ["1-1.2.3.4.5.6.77", "1" * 95, "1" * 5000])
def test_a_bus_that_is_too_long_ends_the_process_before_anything_is_done(router, path, more, bus):
    r = router("ec25", ubus=False, quick=True)
    for modem_id in (EC25, BG95):
        assert raw(r, path, modem_id=modem_id, bus=bus, **more).returncode == ABORTED
    assert r.events == [] and stored_sim(r) == "1\n"


def test_the_longest_bus(router):
    bus = "1-1.2.3.4.5.6.7"
    r = router(modems={bus: "ec25"}, ubus=False, quick=True)
    assert reset(r, modem_id=EC25, bus=bus, disable=True) == (0, {})
    at = f"{bus} ttyUSB2 AT+QPOWD"
    assert_sequence(r, [*taken_down(bus), at, *brought_up(bus)], AFTER_RESET)
    r.clear_events()
    assert switch(r, modem_id=EC25, bus=bus, sim_num="1") == (0, {})
    assert_sequence(r, [*EXPORT, select("1"), *FORGET_SIM, at], show_signal(bus))


@pytest.mark.parametrize("bus", ["1-1.2;reboot", " /", "1-1.2/../../etc", "$(reboot)", "1-1.2\n"], ids=repr)
def test_a_bus_that_a_shell_would_take_apart_reaches_none(router, bus):
    r = router("ec25", ubus=False, quick=True)
    assert r.api("post", "/modem/reset", {"modem_id": 3, "bus": bus}) == (-251, {})
    assert r.api("post", "/modem/sim/switch", {"modem_id": 3, "bus": bus, "sim_num": "2"}) == (-22, {})
    assert r.events == [] and r.exists("/etc/config/network")
