"""`vela_modem AT [device] <command>`: its arguments, their limits, and what it prints."""

from typing import Iterator

import pytest
from support import ABORTED, AT_PORT, AT_USAGE, DEVICE, at
from velasim import Router


@pytest.fixture(scope="module")
def ec25() -> Iterator[Router]:
    with Router("ec25", ubus=False) as r:
        yield r


def run(r: Router, *argv: str | bytes) -> tuple[int, str, str]:
    result = r.run("vela_modem", "AT", *argv)
    return result.returncode, result.stdout, result.stderr


def command_of(length: int) -> str:
    return "AT+" + "X" * (length - 3)


def port_of(r: Router, length: int) -> str:
    """Another name of the AT port, of that many characters."""
    path = "/tmp/" + "p" * (length - 5)
    if not r.exists(path):
        r.host_path("/tmp").joinpath(path[5:]).symlink_to(AT_PORT)
    return path


def test_no_argument_prints_the_usage_and_fails(ec25):
    assert run(ec25) == (255, AT_USAGE, "")


def test_one_argument_goes_to_the_models_own_at_port(router):
    r = router("ec25", ubus=False)
    assert run(r, "AT+CSQ") == (0, "\nAT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n", "")
    assert [(event["port"], event["command"]) for event in r.events] == [("ttyUSB2", "AT+CSQ")]


def test_two_arguments_are_device_and_command(router):
    r = router(modems={"1-1.2": "ec25", "2-1.2": "ep06"}, ubus=False)
    assert "\r\nEC25\r\n" in at(r, "ATI", "/dev/ttyUSB3")
    assert "\r\nEP06\r\n" in at(r, "ATI", "/dev/ttyUSB6")  # also one of another modem
    assert [event["port"] for event in r.events] == ["ttyUSB3", "ttyUSB6"]


@pytest.mark.parametrize("more", [["x"], ["", ""], ["a"] * 50], ids=len)
def test_three_or_more_arguments_leave_device_and_command_empty_so_the_exchange_fails(ec25, more):
    ec25.clear_events()
    assert run(ec25, AT_PORT, "AT", *more) == (
        0, "", "Error opening serial port  - No such file or directory(2).\n")
    assert ec25.events == []


def test_the_reply_is_printed_after_a_line_end_and_as_it_stands(ec25):
    assert at(ec25, "ATI") == "\nATI\r\r\nQuectel\r\nEC25\r\nRevision: EC25EFAR06A03M4G\r\n\r\nOK\r\n"
    assert at(ec25, "AT+NOSUCH") == "\nAT+NOSUCH\r\r\nERROR\r\n"


def test_a_reply_with_percent_signs_and_bytes_that_are_no_text_is_printed_as_it_stands(router):
    r = router("ec25", ubus=False)
    odd = b"\r\n%s%n%d\\\x01\x7f\x80\xff\xe2\x82\r\nOK\r\n"
    r.modem().reply("AT+ODD", odd)
    assert r.run("vela_modem", "AT", "AT+ODD").stdout_bytes == b"\nAT+ODD\r" + odd


def test_a_command_of_255_characters_is_sent_whole(ec25):
    command = command_of(255)
    ec25.clear_events()
    assert at(ec25, command) == f"\n{command}\r\r\nERROR\r\n"
    assert at(ec25, command, "/dev/ttyUSB3") == f"\n{command}\r\r\nERROR\r\n"
    assert ec25.modem().commands == [command] * 2


@pytest.mark.parametrize("length", [256, 257, 258, 259, 10240])
def test_a_command_of_256_characters_or_more_aborts_and_is_not_sent(ec25, length):
    ec25.clear_events()
    assert run(ec25, command_of(length)) == (ABORTED, "", "")
    assert run(ec25, AT_PORT, command_of(length)) == (ABORTED, "", "")
    assert ec25.modem().commands == []


def test_a_device_of_63_characters_is_used(ec25):
    assert at(ec25, "AT", port_of(ec25, 63)) == "\nAT\r\r\nOK\r\n"


@pytest.mark.parametrize("length", [64, 65, 200])
def test_a_device_of_64_characters_or_more_aborts(ec25, length):
    ec25.clear_events()
    assert run(ec25, port_of(ec25, length), "AT") == (ABORTED, "", "")
    assert ec25.modem().commands == []


def test_a_device_of_10_kilobytes_aborts(ec25):
    assert run(ec25, "/" * 10240, "AT") == (ABORTED, "", "")


@pytest.mark.parametrize("device, reason", [
    ("/dev/ttyUSB9", "No such file or directory(2)"),
    ("", "No such file or directory(2)"),
    ("/dev/ttyUSB2/x", "Not a directory(20)"),
    ("/tmp", "Is a directory(21)"),
], ids=repr)
def test_a_failing_exchange_prints_nothing_on_standard_output_and_exits_with_0(ec25, device, reason):
    assert run(ec25, device, "AT") == (0, "", f"Error opening serial port {device} - {reason}.\n")


def test_a_modem_whose_at_port_is_missing_fails_silently(router):
    r = router("ec25", ubus=False)
    r.remove(f"{DEVICE}/1-1.2:1.2")
    assert run(r, "ATI") == (0, "", "Error opening serial port  - No such file or directory(2).\n")
    assert at(r, "AT", "/dev/ttyUSB3") == "\nAT\r\r\nOK\r\n"


def test_it_runs_no_other_program_and_writes_no_file(router):
    r = router("ec25", ubus=False)
    before = r.listdir("/tmp")
    at(r, "ATI")
    at(r, "ATI", "/dev/ttyUSB3")
    assert [event["kind"] for event in r.events] == ["at", "at"] and r.listdir("/tmp") == before


def test_with_debug_the_report_comes_before_the_reply(ec25):
    result = ec25.run("vela_modem", "-D", "AT", "AT")
    assert result.stdout.startswith("vid 2C7C,pid 125\n{\n") and result.stdout.endswith("}\n\nAT\r\r\nOK\r\n")
    assert ec25.run("vela_modem", "-D", "AT").stdout.endswith("}\n" + AT_USAGE)
