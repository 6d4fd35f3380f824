"""The command line of vela_modem: options, bus and command in every shape that a shell can give them."""

import subprocess
from typing import Iterator

import pytest
from support import ABORTED, AT_USAGE, COMMAND_USAGE, COMMANDS, CONNECT_USAGE, USAGE, at
from velasim import Router

# Python's own execv refuses what the kernel allows.
EXECVE = """
import ctypes, os, sys
words = [word.encode() for word in sys.argv[1:]]
argv = (ctypes.c_char_p * (len(words) + 1))(*words, None)
ctypes.CDLL(None).execve(b"/usr/bin/vela_modem", argv, (ctypes.c_char_p * 1)(None))
os._exit(99)
"""


@pytest.fixture(scope="module")
def two() -> Iterator[Router]:
    """An EC25 on the bus that is meant without any, another model on one that must be named."""
    with Router(modems={"1-1.2": "ec25", "1-1.3": "ep06", "2-1.2": "ec20"}, ubus=False) as r:
        yield r


@pytest.fixture(scope="module")
def empty() -> Iterator[Router]:
    with Router(ubus=False) as r:
        yield r


def run(r: Router, *argv: str | bytes) -> tuple[int, str, str]:
    result = r.run("vela_modem", *argv)
    return result.returncode, result.stdout, result.stderr


@pytest.mark.parametrize("argv", [
    [], ["-D"], ["-D", "-B"], ["-B"], ["-B", "1-1.2"], ["1-1.2"], ["-D", "1-1"], ["-D", "-B", "2-1.2"],
    ["-B", "a-text-with-1-1-in-it"],
], ids=" ".join)
def test_without_a_command_both_usage_lines_are_printed(two, empty, argv):
    assert run(two, *argv) == (0, USAGE, "")
    assert run(empty, *argv) == (0, USAGE, "")


def test_without_even_a_program_name_both_usage_lines_are_printed(two):
    result = two.run("/usr/bin/python3", "-S", "-c", EXECVE)
    assert (result.returncode, result.stdout) == (0, USAGE)


def test_an_empty_program_name_is_a_program_name(two):
    assert two.run("/usr/bin/python3", "-S", "-c", EXECVE, "").stdout == USAGE
    assert two.run("/usr/bin/python3", "-S", "-c", EXECVE, "", "AT", "AT").stdout == "\nAT\r\r\nOK\r\n"


@pytest.mark.parametrize("options, model", [
    ([], "EC25"), (["-B"], "EC25"), (["1-1.2"], "EC25"), (["-B", "1-1.2"], "EC25"),
    (["1-1.3"], "EP06"), (["-B", "1-1.3"], "EP06"), (["2-1.2"], "EC20F"), (["-B", "2-1.2"], "EC20F"),
], ids=str)
def test_the_bus_is_the_first_argument_that_looks_like_one_with_or_without_dash_b(two, options, model):
    result = two.run("vela_modem", *options, "AT", "ATI")
    assert (result.returncode, result.stderr) == (0, "") and f"\r\n{model}\r\n" in result.stdout


def test_debug_comes_before_the_bus(two):
    assert two.run("vela_modem", "-D", "-B", "1-1.3", "AT", "AT").stdout.startswith("vid 2C7C,pid 306\n{")
    assert two.run("vela_modem", "-D", "2-1.2", "AT", "AT").stdout.startswith("vid 5C6,pid 9215\n{")
    assert two.run("vela_modem", "-D", "AT", "AT").stdout.startswith("vid 2C7C,pid 125\n{")


def test_a_command_without_dash_b_still_selects_the_bus_that_stands_before_it(router):
    r = router(modems={"1-1.3": "ec25"})
    assert r.run("vela_modem", "signal").stdout == ""
    assert r.run("vela_modem", "1-1.3", "signal").stdout != ""


@pytest.mark.parametrize("argv", [
    ["-B", "3-1", "signal"],  # no bus: the command
    ["3-1"], ["11"], ["1.1-2"],
    ["-B", "-D", "AT", "AT"], ["1-1.2", "-D", "AT", "AT"],  # too late for the debug switch
    ["-B", "-B", "AT", "AT"], ["1-1.2", "-B", "AT", "AT"], ["1-1.2", "2-1.2", "AT", "AT"],
    ["at", "AT"], ["AT "], ["signals"], ["-d"], ["--help"], ["-h"], [""], ["", "AT", "AT"], ["-B", "", "AT"],
    ["\x01\x7f\r\n\t"], [b"\xff\xfe"], ["%s%n%d"], ["$(reboot)", ";"], ["x" * 10240], ["x"] * 5000,
], ids=lambda argv: repr(argv)[:40])
def test_what_is_no_command_prints_the_command_usage(two, argv):
    assert run(two, *argv) == (0, COMMAND_USAGE, "")


@pytest.mark.parametrize("argv", [["-D", "-D", "AT", "AT"], ["-D", "-B", "-D"], ["-D", "-B", "-B"]], ids=" ".join)
def test_only_the_first_argument_is_the_debug_switch(two, argv):
    code, out, err = run(two, *argv)
    assert (code, err) == (0, "") and out.startswith("vid 2C7C,pid 125\n{") and out.endswith("}\n" + COMMAND_USAGE)


@pytest.mark.parametrize("bus", [
    "1-1.4", "x1-1y", "12-15", "-D1-1", "AT1-1.2", "../1-1.2", "1-1.2/", "1-1.2 ", " 1-1", "1-1*", "2-1%s%n", "1-1\n",
    "1-1.2.3.4.5", "1-1.2345678901", "1-1/../1-1.2", "1-1" * 3400, "\x012-1" + "\n" * 10240,
], ids=lambda bus: repr(bus[:16]))
def test_any_text_with_1_1_or_2_1_in_it_is_a_bus_and_an_unknown_one_ends_silently(two, bus):
    assert run(two, bus, "AT", "AT") == (0, "", "")
    assert run(two, "-B", bus, "AT", "AT") == (0, "", "")


def test_undecodable_bytes_in_a_bus_end_silently(two):
    assert run(two, b"\xff1-1\x80", "AT", "AT") == (0, "", "")


def test_the_longest_bus_that_an_interface_name_can_carry(router):
    r = router(modems={"1-1.2.3.4": "ec25"}, ubus=False)
    result = r.run("vela_modem", "1-1.2.3.4", "AT", "ATI")
    assert result.returncode == 0 and "\r\nEC25\r\n" in result.stdout


def test_a_modem_on_a_bus_too_long_for_its_interface_name_aborts(router):
    r = router(modems={"1-1.2.3.10": "ec25"}, ubus=False)
    assert run(r, "1-1.2.3.10", "AT", "ATI") == (ABORTED, "", "")


@pytest.mark.parametrize("command", [*COMMANDS, "no-such-command", ""])
def test_without_a_modem_every_command_ends_silently(empty, command):
    assert run(empty, command) == (0, "", "")
    assert run(empty, "-B", "2-1.2", command, "a", "b", "c", "d") == (0, "", "")


def test_without_a_modem_nothing_is_run_and_nothing_written(router):
    r = router(ubus=False)
    before = r.listdir("/tmp")
    for command in COMMANDS:
        r.run("vela_modem", command, "a", "b", "c", "d")
    assert r.events == [] and r.listdir("/tmp") == before


@pytest.mark.parametrize("argv", [
    ["connect"], ["connect", "serial"], ["connect", "qmi", "/dev/cdc-wdm0"], ["connect", "other", "/dev/ttyUSB3"],
    ["connect", "", ""], ["-B", "1-1.2", "connect", "qmi", "/dev/cdc-wdm0"],
], ids=" ".join)
def test_connect_with_too_few_arguments_prints_its_usage(two, argv):
    assert run(two, *argv) == (0, CONNECT_USAGE, "")


@pytest.mark.parametrize("mode", ["other", "", "SERIAL", "serial ", "qmi/", "callip"])
def test_connect_with_another_mode_word_ends_silently(two, mode):
    assert run(two, "connect", mode, "/dev/ttyUSB3", "*99#", "internet") == (0, "", "")


def test_the_usage_of_at_is_the_one_with_an_exit_status(two):
    assert run(two, "AT") == (255, AT_USAGE, "")
    assert run(two, "-B", "1-1.3", "AT") == (255, AT_USAGE, "")


def test_a_full_or_closed_standard_output_does_no_harm(two):
    with open("/dev/full", "wb") as full:
        assert two.start("vela_modem", stdout=full).wait() in (0, 255)
    assert two.start("vela_modem", stdout=subprocess.DEVNULL).wait() == 0
    two.clear_events()
    for debug in ("", "'-D', "):
        code = "import os; os.closerange(0, 3); os.execv('/usr/bin/vela_modem', ['vela_modem', %s'AT', 'AT'])" % debug
        assert two.run("/usr/bin/python3", "-S", "-c", code).returncode == 0
    # The port has the number of a stream then; nothing meant for the stream goes to the modem.
    assert [event["command"] for event in two.events] == ["AT", "AT"]
    assert at(two, "AT") == "\nAT\r\r\nOK\r\n"


def test_an_empty_environment_is_enough(two):
    assert two.run("/usr/bin/python3", "-S", "-c", EXECVE, "vela_modem", "AT", "AT").stdout == "\nAT\r\r\nOK\r\n"
