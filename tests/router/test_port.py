"""The serial port of an exchange: how it is opened, set, locked and given back."""

import fcntl
import re
import termios

import pytest
from support import AT_PORT, at, locked, opened, stopped_at_the_lock, traced, usable, waiting

AT = ["vela_modem", "AT", "AT"]
REPLY = "\nAT\r\r\nOK\r\n"


def refused(r, device: str) -> str:
    """The line on standard error when neither the command line nor the plug-in can use the port."""
    result = r.run("vela_modem", "AT", device, "AT")
    assert (result.returncode, result.stdout) == (0, "")
    assert r.api("post", "/modem/at", {"at-command": "AT", "at-port": device}) == (-255, {})
    return result.stderr


@pytest.mark.parametrize("device, reason", [
    ("/dev/ttyUSB9", "No such file or directory(2)"),
    ("", "No such file or directory(2)"),
    ("/dev/ttyUSB2/", "Not a directory(20)"),
    ("/tmp", "Is a directory(21)"),
    ("/tmp/loop", "Too many levels of symbolic links(40)"),
    ("/tmp/" + 58 * "n", "No such file or directory(2)"),
    ("/tmp/%s%n", "No such file or directory(2)"),
    ("/tmp/\x01\xe4\n", "No such file or directory(2)"),
], ids=repr)
def test_a_port_that_cannot_be_opened(router, device, reason):
    r = router("ec25", ubus=False)
    r.host_path("/tmp").joinpath("loop").symlink_to("loop")
    assert refused(r, device) == f"Error opening serial port {device} - {reason}.\n"


@pytest.mark.parametrize("device", ["/tmp/file", "/tmp/fifo", "/dev/null", "/dev/zero", "/dev/cdc-wdm0"])
def test_a_port_that_is_no_terminal(router, device):
    r = router("ec25", files={"/tmp/file": "what it held\n"}, ubus=False)
    r.run("mkfifo", "/tmp/fifo")
    assert refused(r, device) == f"Error setting TIOCEXCL on {device} - Inappropriate ioctl for device(25).\n"
    assert r.read("/tmp/file") == "what it held\n" and r.read("/dev/cdc-wdm0") == ""


def test_a_port_with_a_very_long_name(router):
    r = router("ec25", ubus=False)
    device = "/" + "d" * 10240
    result = r.run("vela_api", "post", "/modem/at", '{"at-command": "AT", "at-port": "%s"}' % device)
    assert result.stderr == f"Error opening serial port {device} - File name too long(36).\nstatus -255\n"


@pytest.mark.parametrize("failing, message", [
    ("ioctl:error=EPERM:when=1", "Error setting TIOCEXCL on {} - Operation not permitted(1).\n"),
    ("ioctl:error=EIO:when=2", "Error getting tty attributes {} - Input/output error(5).\n"),
    ("fcntl:error=EINVAL:when=1", "Error clearing O_NONBLOCK {} - Invalid argument(22).\n"),
    ("ioctl:error=EIO:when=3+", "Error setting tty attributes {} - Input/output error(5).\n"),
])
def test_each_step_of_opening_that_fails_is_told_in_one_line_and_closes_the_port(router, failing, message):
    r = router("ec25", ubus=False)
    result, calls = traced(r, AT, "trace=openat,ioctl,fcntl,close,write", f"inject={failing}")
    assert (result.returncode, result.stdout) == (0, "")
    assert result.stderr.endswith("\n" + message.format(AT_PORT))
    assert calls[-1].startswith("close(") and not any(call.startswith("write(") for call in calls)
    assert r.modem().commands == [] and usable(r)


def test_a_port_that_can_no_longer_be_set_gives_no_reply(router):
    r = router("ec25", ubus=False)
    result, calls = traced(r, AT, "trace=ioctl,write,read", "inject=ioctl:error=EIO:when=14+")
    assert (result.returncode, result.stdout) == (0, "")
    assert [call.split("(")[0] for call in calls if not call.startswith("ioctl(")] == ["write"]
    assert r.modem().commands == ["AT"] and usable(r)


def test_a_command_is_sent_whole_although_a_signal_interrupts_its_sending(router):
    r = router("ec25", ubus=False)
    result, calls = traced(r, AT, "trace=write", "inject=write:error=EINTR:when=1..3")
    assert (result.returncode, result.stdout) == (0, REPLY)
    assert len(calls) == 4 and r.modem().commands == ["AT"]


def test_a_close_that_fails_is_told_as_an_opening_and_spoils_nothing(router):
    r = router("ec25", ubus=False)
    result, _ = traced(r, AT, "trace=close", "inject=close:error=EIO:when=1")
    assert (result.returncode, result.stdout) == (0, REPLY)
    assert result.stderr.endswith("\nError opening serial port - Input/output error(5).\n")


def test_the_port_is_opened_without_waiting_for_carrier_and_without_becoming_the_controlling_terminal(router):
    r = router("ec25", ubus=False)
    _, calls = traced(r, AT, "trace=openat")
    assert len(calls) == 1
    assert {"O_RDWR", "O_NOCTTY", "O_NONBLOCK"} <= set(re.split(r"[|, ()]", calls[0]))


# Terminal attributes

# Settings that no exchange would choose, in the order of tcgetattr. Raw, as the modem's side expects no echo.
OWN_SETTINGS = [
    termios.IGNPAR | termios.INPCK, 0,
    termios.CS7 | termios.CSTOPB | termios.CREAD | termios.HUPCL | termios.CRTSCTS, 0, termios.B9600, termios.B9600,
]


def set_attributes(fd: int, output_flags: int = 0) -> list:
    attributes = termios.tcgetattr(fd)
    attributes[:6] = OWN_SETTINGS
    attributes[1] = output_flags
    attributes[6][termios.VMIN], attributes[6][termios.VTIME] = 7, 3
    termios.tcsetattr(fd, termios.TCSANOW, attributes)
    return termios.tcgetattr(fd)


def test_terminal_attributes_are_put_back_on_closing(router):
    r = router("ec25", ubus=False)
    with opened(r) as fd:
        before = set_attributes(fd)
        assert usable(r) and termios.tcgetattr(fd) == before
        assert r.api("post", "/modem/at", {"at-command": "AT", "at-port": AT_PORT})[0] == 0
        assert termios.tcgetattr(fd) == before


def test_during_an_exchange_the_port_is_raw_with_eight_bits_and_no_parity_at_115200(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("silent")
    with opened(r) as fd:
        before = set_attributes(fd)
        process = r.start("vela_modem", "AT", "AT+X")
        r.wait_for(lambda: r.modem().commands, "the command")
        iflag, oflag, cflag, lflag, ispeed, ospeed, characters = termios.tcgetattr(fd)
        r.modem().say("\nOK\n")
        assert process.communicate() == (b"\n\r\nOK\r\n", b"")
        assert termios.tcgetattr(fd) == before
    assert iflag & ~termios.IGNBRK == 0 and lflag == 0 and oflag & termios.OPOST == 0
    assert cflag & (termios.CSIZE | termios.CSTOPB | termios.PARENB | termios.CRTSCTS) == termios.CS8
    assert cflag & termios.CREAD and cflag & termios.CLOCAL
    assert (ispeed, ospeed) == (termios.B115200, termios.B115200)
    # Between the timed reads 100 ms, within one 500 ms.
    assert characters[termios.VMIN] == 0 and characters[termios.VTIME] in (1, 5)


def test_terminal_attributes_are_put_back_after_a_failed_setting(router):
    r = router("ec25", ubus=False)
    with opened(r) as fd:
        before = set_attributes(fd)
        traced(r, AT, "trace=ioctl", "inject=ioctl:error=EIO:when=2")
        assert termios.tcgetattr(fd) == before


# The lock


def test_a_port_locked_by_another_process_for_longer_than_the_retries_fails_silently(router):
    r = router("ec25", ubus=False)
    with locked(r):
        assert r.run("vela_modem", *AT[1:]).stdout_bytes == b""
        assert refused(r, AT_PORT) == ""
        assert r.modem().commands == []
    assert usable(r)


def test_the_lock_is_tried_31_times(router):
    r = router("ec25", ubus=False)
    with locked(r):
        result, calls = traced(r, AT, "trace=flock")
    assert (result.returncode, result.stdout) == (0, "")
    assert len(calls) == 31 and all("LOCK_EX|LOCK_NB" in call and "EAGAIN" in call for call in calls)


@pytest.mark.parametrize("failures, reply", [(1, REPLY), (5, REPLY), (30, REPLY), (31, "")])
def test_a_lock_released_within_the_retries_is_taken(router, failures, reply):
    r = router("ec25", ubus=False)
    result, calls = traced(r, AT, "trace=flock", f"inject=flock:error=EAGAIN:when=1..{failures}")
    assert (result.returncode, result.stdout) == (0, reply)
    assert len(calls) == min(failures + 1, 31)


def test_the_lock_is_held_during_the_exchange_and_free_after_it(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("silent")
    with opened(r) as fd:
        process = r.start("vela_modem", "AT", "AT+X")
        r.wait_for(lambda: r.modem().commands, "the command")
        with pytest.raises(BlockingIOError):
            fcntl.flock(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
        r.modem().say("\nOK\n")
        process.wait()
        fcntl.flock(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)


def test_a_process_that_cannot_get_the_lock_only_closes_the_port(router):
    r = router("ec25", ubus=False)
    with locked(r):
        _, calls = traced(r, AT, "trace=flock,ioctl,write,close")
    last = max(number for number, call in enumerate(calls) if call.startswith("flock("))
    assert [call.split("(")[0] for call in calls[last + 1:]] == ["close"]


def test_attributes_that_another_put_back_before_the_lock_was_free_are_set_again(router):
    r = router("ec25", ubus=False)
    with opened(r) as fd:
        with stopped_at_the_lock(r, AT) as process:
            # With carriage returns turned into line feeds no command would reach the modem.
            set_attributes(fd, termios.OPOST | termios.OCRNL)
        assert process.communicate()[0] == REPLY.encode()


def test_bytes_that_came_before_the_lock_was_free_are_discarded(router):
    r = router("ec25", ubus=False)
    stale = b"\r\n+OTHER: 1\r\n\r\nOK\r\n"
    with opened(r) as fd:
        with stopped_at_the_lock(r, AT) as process:
            r.modem().say(stale)
            r.wait_for(lambda: waiting(fd) == len(stale), "the bytes")
        assert process.communicate()[0] == REPLY.encode()


def test_a_process_that_cannot_get_the_lock_leaves_the_attributes_to_its_holder(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("silent")
    with opened(r) as fd:
        before = set_attributes(fd)
        holder = r.start("vela_modem", "AT", "AT+HOLDER")
        r.wait_for(lambda: r.modem().commands, "the command")
        for _ in range(3):
            assert r.run("vela_modem", *AT[1:]).stdout == ""
        attributes = termios.tcgetattr(fd)
        assert attributes[3] == 0 and attributes[4:6] == [termios.B115200] * 2
        r.modem().say("\nOK\n")
        assert holder.communicate()[0] == b"\n\r\nOK\r\n"
        assert termios.tcgetattr(fd) == before
    assert r.modem().commands == ["AT+HOLDER"]


def test_the_lock_of_a_killed_process_is_free_at_once(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("silent")
    holder = r.start("vela_modem", "AT", "AT+HOLDER")
    r.wait_for(lambda: r.modem().commands, "the command")
    holder.kill()
    holder.wait()
    r.modem().behave()
    assert usable(r)


def test_a_port_locked_under_one_name_is_locked_under_all(router):
    r = router("ec25", ubus=False)
    r.host_path("/tmp").joinpath("same").symlink_to(AT_PORT)
    with locked(r):
        assert r.run("vela_modem", "AT", "/tmp/same", "AT").stdout == ""
    assert at(r, "AT", "/tmp/same") == REPLY


def test_the_other_ports_of_a_modem_are_not_locked(router):
    r = router("ec25", ubus=False)
    with locked(r):
        assert usable(r, "/dev/ttyUSB3")


def test_a_process_without_privileges_cannot_open_a_port_in_use(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("silent")
    with opened(r):
        r.host_path(AT_PORT).chmod(0o666)
        holder = r.start("vela_modem", "AT", "AT+HOLDER")
        r.wait_for(lambda: r.modem().commands, "the command")
        second = r.run("/usr/bin/setpriv", "--reuid=65534", "--clear-groups", "vela_modem", "AT", "AT")
        r.modem().say("\nOK\n")
        assert holder.communicate()[0] == b"\n\r\nOK\r\n"
    assert (second.returncode, second.stdout) == (0, "")
    assert second.stderr == f"Error opening serial port {AT_PORT} - Device or resource busy(16).\n"
