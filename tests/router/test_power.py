"""A modem is restarted, or its SIM switched: every effect on the router in its order, per board, model and bus."""

import json
import os
import re
import stat
import syslog
from dataclasses import dataclass, field
from typing import Callable

import pytest
from support import ABORTED, DEVICE, MODELS, SYSFS, locked, system_log, traced
from velasim import Router
from velasim.router import Result

BUS = "1-1.2"
EC25, BG95, EC200T = 3, 7, 6  # BG95 and EC200T switch SIMs by their supply
GPIO = "/sys/class/gpio"
LEDS = "/sys/class/leds"
SIM_GPIO = f"{GPIO}/gpio1/value"
SUCCESS = (syslog.LOG_DEBUG, "reset success\n")
FAILED = (syslog.LOG_DEBUG, "reset failed\n")


def effects(r: Router) -> list[str]:
    """Shell commands behind "$ ", the recorded programs that they run behind "> ", AT commands behind their port."""
    texts = {"shell": lambda event: "$ " + event["command"], "program": lambda event: "> " + " ".join(event["argv"]),
             "at": lambda event: f'{event["bus"]} {event["port"]} {event["command"]}'}
    return [texts[event["kind"]](event) for event in r.events]


def reset(r: Router, **request: object) -> tuple[int, dict]:
    return r.api("post", "/modem/reset", request)


def switch(r: Router, **request: object) -> tuple[int, dict]:
    return r.api("post", "/modem/sim/switch", request)


def raw(r: Router, path: str, **request: object) -> Result:
    """For what ends the process."""
    return r.run("vela_api", "post", path, json.dumps(request))


def name_of(bus: str) -> str:
    return "modem_" + bus.replace("-", "_").replace(".", "_")


def taken_down(bus: str = BUS) -> list[str]:
    return ["$ /usr/bin/reactivate_mbn", "> /usr/bin/reactivate_mbn", f"$ ifdown {name_of(bus)}",
            f"> ifdown {name_of(bus)}", f"$ rm -rf /tmp/modem.{bus};/etc/init.d/smstools3 stop",
            "> /etc/init.d/smstools3 stop"]


CHECK = "$ sleep 20 && /usr/bin/check_verizon &"


def brought_up(bus: str = BUS) -> list[str]:
    return [CHECK, f"$ ifup {name_of(bus)}", f"> ifup {name_of(bus)}"]


START_SMS = "$ sleep 3 && /etc/init.d/smstools3 start"
AFTER_RESET = [START_SMS, "> /etc/init.d/smstools3 start", "> /usr/bin/check_verizon"]

EXPORT = [f"$ echo 1 >{GPIO}/export", f"$ echo out >{GPIO}/gpio1/direction"]
FORGET_SIM = ["$ rm -rf /tmp/modem.2-1.2/signal*", "$ rm -rf /tmp/modem.2-1.2/cimi"]


def select(number: str) -> str:
    return f"$ echo {1 if number == '2' else 0} > {SIM_GPIO}"


def show_signal(bus: str) -> list[str]:
    return [f"$ sleep 15 && modem_signal_led.sh {bus}", f"> modem_signal_led.sh {bus}"]


def assert_sequence(r: Router, foreground: list[str], background: list[str]) -> None:
    """What the request did itself, and what it left to background commands, each in its order: how the two mix is up to
    the scheduler."""
    r.wait_idle()
    seen = effects(r)
    assert [text for text in seen if text not in background] == foreground
    assert sorted(text for text in seen if text in background) == sorted(background)


def stored_sim(r: Router) -> str:
    return r.run("uci", "get", "velamodem.sim.sim_num").stdout


# The supply


@dataclass(frozen=True)
class Supply:
    """A board, a bus, the control files that the router has, and what a power cycle is then."""

    board: str
    commands: tuple[str, ...]
    value: str = ""  # what is left in the file that is switched
    file: str = ""
    bus: str = BUS
    files: tuple[str, ...] = field(default=())  # besides that one

    def __str__(self) -> str:
        return f"{self.board}-{self.bus}-{self.file.replace('/sys/class/', '') or 'nothing'}"


def fixed(board: str, name: str, first: int) -> Supply:
    file = f"{GPIO}/{name}/value"
    command = f"echo {first} > {file};sleep 1;echo {1 - first} > {file}"
    return Supply(board, (command,), str(1 - first), file)


def pulse(file: str, first: int) -> str:
    return f"echo {first} > {file}; sleep 1; echo {1 - first} > {file}"


def halvor(bus: str, number: int, first: int) -> Supply:
    file = f"{GPIO}/gpio{number}/value"
    return Supply("halvor", (pulse(file, first),), str(1 - first), file, bus)


LISTINGS = (f"ls {LEDS}/*:usbpow*/brightness", f"ls {GPIO}/usbpow/value", f"ls {LEDS}/*:3gcontrol/brightness")
GPIO0, GPIO2 = f"{GPIO}/gpio0/value", f"{GPIO}/gpio2/value"
USB_LED, USB_GPIO = f"{LEDS}/vela:usbpower/brightness", f"{GPIO}/usbpow/value"
MODEM_LED = f"{LEDS}/vela:3gcontrol/brightness"
LS_GPIO0, LS_GPIO2 = f"ls {GPIO0}", f"ls {GPIO2}"


def probed(board: str, file: str, listings: int, bus: str = BUS, also: tuple[str, ...] = (), first: int = 0) -> Supply:
    """A control file that so many listings find."""
    all_listings = (*LISTINGS, LS_GPIO0 if bus in ("1-1.2", "1-1") else LS_GPIO2, LS_GPIO2)
    if not file:
        return Supply(board, all_listings, bus=bus, files=also)
    return Supply(board, (*all_listings[:listings], pulse(file, first)), str(1 - first), file, bus, also)


SUPPLIES = [
    fixed("pellin", "lte_power", 0),
    fixed("brimset", "lte_power", 0),
    fixed("tamber", "gpio0", 1),
    fixed("fennox", "gpio0", 0),
    fixed("fennoxt", "gpio0", 0),
    fixed("sparrin", "pci_power", 0),
    fixed("colbet", "usb_power", 0),
    fixed("wrenfield", "usb_power", 0),
    fixed("dunmar", "gpio1", 1),
    halvor("1-1.2", 5, 1),
    halvor("2-1.2", 15, 1),
    halvor("1-1.4", 7, 0),
    halvor("1-1", 7, 1),
    halvor("1-1.3", 7, 1),
    probed("ketrin", USB_LED, 1, also=(USB_GPIO, MODEM_LED, GPIO0, GPIO2)),
    # The first of several.
    probed("ketrin", f"{LEDS}/a:usbpow/brightness", 1, also=(USB_LED,)),
    probed("ketrin", USB_GPIO, 2, also=(MODEM_LED, GPIO0, GPIO2)),
    probed("ketrin", MODEM_LED, 3, also=(GPIO0, GPIO2)),
    probed("ketrin", GPIO0, 4, also=(GPIO2,)),
    probed("ketrin", GPIO0, 4, also=(GPIO2,), bus="1-1"),
    probed("ketrin", GPIO2, 4, also=(GPIO0,), bus="2-1.2"),
    probed("ketrin", GPIO2, 4, also=(GPIO0,), bus="1-1.4"),
    probed("ketrin", GPIO2, 5),
    probed("ketrin", "", 5),
    # Names that only look alike: another colon, another end, the LED without a file.
    probed("ketrin", "", 5, also=(f"{LEDS}/usbpow/brightness", f"{LEDS}/vela:3gcontrol2/brightness",
                                  f"{LEDS}/vela:usbpow/trigger")),
    probed("ketrin", "", 5, bus="2-1.2", also=(GPIO0,)),
    probed("tovin", USB_LED, 1, first=1),
    probed("tovin", GPIO2, 4, first=1, bus="1-1.4"),
    probed("larkin", USB_GPIO, 2, first=1),
    probed("ostrel", MODEM_LED, 3, first=1),
    probed("ostrel2", GPIO0, 4, first=1),
    probed("newostrelx", GPIO0, 4, first=1, bus="1-1"),
    probed("ostrel", "", 5),
    # Only the whole name counts for the others.
    probed("tovin2", GPIO0, 4),
    probed("larki", GPIO0, 4),
    probed("halvor2", GPIO0, 4),
    probed("pellin2", GPIO0, 4),
]


def supplied(router: Callable[..., Router], supply: Supply) -> Router:
    files = (*supply.files, *((supply.file,) if supply.file else ()))
    return router(modems={supply.bus: "bg95"}, board=supply.board, files={file: "untouched\n" for file in files},
                  ubus=False, quick=True)


def assert_only_this_was_switched(r: Router, supply: Supply) -> None:
    for file in supply.files:
        assert r.read(file) == "untouched\n"
    if supply.file:
        assert r.read(supply.file) == supply.value + "\n"


def commands_of(supply: Supply) -> list[str]:
    return [f"$ {command}" for command in supply.commands]


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
POWER = f"$ {SUPPLIES[0].commands[0]}"
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


# SIM


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


@pytest.mark.parametrize("disable", [False, True])
def test_every_program_fails(router, disable):
    r = router("ec25", ubus=False, quick=True)
    for program in ("reactivate_mbn", "ifdown", "ifup", "smstools3", "check_verizon"):
        r.answer(program, "#!/bin/dash\nexit 1\n", executable=True)
    assert reset(r, modem_id=EC25, disable=disable) == (0, {})
    command = f"{BUS} ttyUSB2 AT+QPOWD" if disable else POWER
    assert_sequence(r, [*taken_down(), command, *brought_up()], AFTER_RESET)


@pytest.mark.parametrize("bus", ["1-1.2;reboot", " /", "1-1.2/../../etc", "$(reboot)", "1-1.2\n"], ids=repr)
def test_a_bus_that_a_shell_would_take_apart_reaches_none(router, bus):
    r = router("ec25", ubus=False, quick=True)
    assert r.api("post", "/modem/reset", {"modem_id": 3, "bus": bus}) == (-251, {})
    assert r.api("post", "/modem/sim/switch", {"modem_id": 3, "bus": bus, "sim_num": "2"}) == (-22, {})
    assert r.events == [] and r.exists("/etc/config/network")
