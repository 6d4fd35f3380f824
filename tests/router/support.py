"""What the tests of the product share: the models' rows, the usage texts, a locked port, the system log, system calls
traced."""

import contextlib
import fcntl
import json
import os
import re
import socket
import sys
import termios
from dataclasses import dataclass
from typing import Callable, Iterator

import pytest
from velasim import Router
from velasim.router import Process, Result

SYSFS = "/sys/devices/platform"
HUB = f"{SYSFS}/soc/xhci-hcd.0.auto/usb1/1-1"
DEVICE = f"{HUB}/1-1.2"
AT_PORT = "/dev/ttyUSB2"  # of an EC25 on its own

USAGE = (
    "\nUsage:<vela_modem> [-D] [-B <bus>] <command> [option]"
    "\nCommand possible:connect|connect-auto|new-connect-auto|disconnect|sim-status|AT|signal|cells|thermal"
    "|wifi_lte_interference\n"
)
COMMAND_USAGE = "\nUsage:<vela_modem> <command> [option]"
AT_USAGE = "\nUsage:<vela_modem> <AT> [device] <command>"
CONNECT_USAGE = "\nUsage:<vela_modem> <connect> <serial/qmi> <device> <server> <apn>"
COMMANDS = (
    "connect", "connect-auto", "new-connect-auto", "disconnect", "sim-status", "AT", "signal", "cells", "iccid",
    "thermal", "carrier", "test", "convert", "check_register", "get_mode", "wifi_lte_interference",
)
ABORTED = -6


@dataclass(frozen=True)
class Model:
    """What detection says of a model that is alone on bus 1-1.2."""

    ids: str  # as the debug output has them
    modem_id: int
    control_port: str
    data_port: str
    qmi_port: str | None  # None: the model has none, and the report no such key
    ports: tuple[str, ...]


def _ttys(count: int, *more: str) -> tuple[str, ...]:
    return (*(f"/dev/ttyUSB{number}" for number in range(count)), *more)


WDM = "/dev/cdc-wdm0"
MODELS = {
    "ec20": Model("vid 5C6,pid 9215", 0, "/dev/ttyUSB2", "/dev/ttyUSB3", WDM, _ttys(4, WDM)),
    "ec25": Model("vid 2C7C,pid 125", 3, "/dev/ttyUSB2", "/dev/ttyUSB3", WDM, _ttys(4, WDM)),
    "ep06": Model("vid 2C7C,pid 306", 1, "/dev/ttyUSB2", "/dev/ttyUSB3", WDM, _ttys(4, WDM)),
    "uc20": Model("vid 5C6,pid 9003", 4, "/dev/ttyUSB2", "/dev/ttyUSB3", WDM, _ttys(4, WDM)),
    "mc7430": Model("vid 1199,pid 9071", 5, "/dev/ttyUSB2", "/dev/ttyUSB2", None, _ttys(3, WDM)),
    "simcom7600": Model("vid 1E0E,pid 9001", 20, "/dev/ttyUSB2", "/dev/ttyUSB3", None, _ttys(5, WDM)),
    "me3630": Model("vid 19D2,pid 1476", 30, "/dev/ttyUSB1", "/dev/ttyUSB2", None, _ttys(3)),
    "ec200t": Model("vid 2C7C,pid 6026", 6, "/dev/ttyUSB1", "/dev/ttyUSB2", None, _ttys(3)),
    "bg95": Model("vid 2C7C,pid 700", 7, "/dev/ttyUSB2", "/dev/ttyUSB2", None, _ttys(3)),
    "eg91": Model("vid 2C7C,pid 191", 8, "/dev/ttyUSB2", "/dev/ttyUSB3", WDM, _ttys(4, WDM)),
    "ec100y": Model("vid 2C7C,pid 6001", 9, "/dev/ttyUSB1", "/dev/ttyUSB1", None, _ttys(3)),
    "nl678e": Model("vid 2CB7,pid 104", 40, "/dev/ttyUSB2", "/dev/ttyUSB3", WDM, _ttys(4, WDM)),
}


def pretty(document: dict) -> str:
    """A report of texts, numbers and lists of texts, in json-c's pretty format."""
    text = re.sub(r'^( *"\w+"): ', r"\1:", json.dumps(document, indent=2), flags=re.MULTILINE)
    return text.replace("/", "\\/")


def debug(r: Router, *bus: str) -> tuple[str, dict]:
    """The lines that -D prints before the report, and the report ({} if there is none)."""
    result = r.run("vela_modem", "-D", *bus, "no-such-command")
    assert result.returncode == 0 and result.stderr == ""
    start = result.stdout.find("{")
    if start < 0:
        return result.stdout, {}
    report, end = json.JSONDecoder().raw_decode(result.stdout[start:])
    assert result.stdout[start + end:] == "\n" + COMMAND_USAGE
    return result.stdout[:start], report


def at(r: Router, command: str, *device: str) -> str:
    """What `vela_modem AT` prints of a command's reply, and that it does nothing else."""
    result = r.run("vela_modem", "AT", *device, command)
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


def usable(r: Router, device: str = AT_PORT) -> bool:
    """Whether an ordinary exchange works on the port, as it should after whatever has happened to it."""
    return at(r, "AT", device) == "\nAT\r\r\nOK\r\n"


@contextlib.contextmanager
def opened(r: Router, device: str = AT_PORT) -> Iterator[int]:
    """The port, opened by another process of the machine: this one."""
    fd = os.open(r.host_path(device), os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK | os.O_CLOEXEC)
    try:
        yield fd
    finally:
        os.close(fd)


def waiting(fd: int) -> int:
    """The number of bytes in a tty's input queue."""
    return int.from_bytes(fcntl.ioctl(fd, termios.FIONREAD, bytes(4)), sys.byteorder)


@contextlib.contextmanager
def locked(r: Router, device: str = AT_PORT) -> Iterator[None]:
    """The port is locked by another process."""
    with opened(r, device) as fd:
        fcntl.flock(fd, fcntl.LOCK_EX)
        yield


@contextlib.contextmanager
def system_log(r: Router) -> Iterator[Callable[[], list[tuple[int, str]]]]:
    """The router's system log, within the block: a function that gives the messages of all programs so far, each its
    priority (syslog.LOG_DEBUG, without the facility) and its text, with the line end if it was written with one. After
    the block it gives those of the whole block.

    A router without the block has none, and messages are lost. The kernel keeps about ten messages: the program that
    writes one more waits until the function has been called.
    """
    lines: list[tuple[int, str]] = []

    def messages() -> list[tuple[int, str]]:
        with contextlib.suppress(BlockingIOError):
            while log.fileno() >= 0:
                line = log.recv(65536).decode("utf-8", "surrogateescape")
                # Priority and time as RFC 3164 has them, the program's name, perhaps its process id.
                match = re.fullmatch(r"<(\d+)>\w{3} [ \d]\d [\d:]{8} [^:\[]+(?:\[\d+\])?: (.*)", line, re.DOTALL)
                assert match is not None, line
                lines.append((int(match[1]) & 7, match[2]))
        return lines

    path = r.host_path("/dev/log")
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK) as log:
        log.bind(str(path))
        try:
            yield messages
            messages()
        finally:
            path.unlink()


TRACE = "/tmp/trace"
# The leak check of a sanitized build cannot run below a tracer, and what shortens sleeps is loaded before its run time.
TRACED = {"ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0:verify_asan_link_order=0"}


def tracer(*options: str, device: str | None = AT_PORT, trace: str = TRACE) -> list[str]:
    """The command line of strace for calls on that device only; `options` say which calls, and which of them fail."""
    only = [] if device is None else ["-P", device]
    return ["strace", "-qq", "-o", trace, *only, *(word for option in options for word in ("-e", option))]


def start_traced(r: Router, argv: list[str], *options: str, **which: str) -> Process:
    """Starts a program below strace; trace_lines gives the calls so far."""
    return r.start(*tracer(*options, **which), *argv, env=TRACED)


def traced(r: Router, argv: list[str], *options: str, **which: str | None) -> tuple[Result, list[str]]:
    """Runs a program to its end below strace; its result, and the system calls."""
    result = r.run(*tracer(*options, **which), *argv, env=TRACED)
    return result, trace_lines(r)


def trace_lines(r: Router, trace: str = TRACE) -> list[str]:
    return [line for line in r.read(trace).splitlines() if not line.startswith("strace:")]


BUS_CALLS = "trace=connect,poll"


def bus_times(lines: list[str]) -> list[int]:
    """Of each connection to the message bus, the most seconds that an answer is given: what the system calls of a trace
    of BUS_CALLS are told, not what they take."""
    connections = "\n".join(lines).split("ubus.sock")[1:]
    waits = [[int(wait) for wait in re.findall(r"^poll\(.*\], 1, (\d+)\)", text, re.MULTILINE)] for text in connections]
    return [round(max(wait) / 1000) for wait in waits]


@contextlib.contextmanager
def stopped_at_the_lock(r: Router, argv: list[str]) -> Iterator[Process]:
    """A program that has just taken the port's lock and stands still there; it goes on at the end of the block."""
    process = start_traced(r, argv, "trace=flock", "inject=flock:signal=SIGSTOP:when=1")
    r.wait_for(lambda: r.exists(TRACE) and "--- stopped by SIGSTOP ---" in r.read(TRACE), "the program to stop")
    yield process
    pids = [str(each["pid"]) for each in r.ask("processes") if each["argv"] == argv]
    r.run("/bin/dash", "-c", "kill -CONT " + " ".join(pids))


def silent_reads(lines: list[str]) -> int:
    return sum(bool(re.match(r"read\(.* = (0|-1 .*)$", line)) for line in lines)


@contextlib.contextmanager
def no_device(r: Router) -> Iterator[None]:
    """The AT port's device is gone from /dev."""
    r.remove(AT_PORT)
    yield


@contextlib.contextmanager
def no_interface(r: Router) -> Iterator[None]:
    """The USB interface of the AT port is gone from sysfs."""
    port = AT_PORT.removeprefix("/dev/")
    [interface] = [path for path in r.host_path(DEVICE).iterdir() if (path / port).exists()]
    r.remove(f"{DEVICE}/{interface.name}")
    yield


# For tests of a modem on bus 1-1.2 that cannot be asked: no exchange comes about, in three ways.
unreachable = pytest.mark.parametrize("state", [locked, no_device, no_interface], ids=lambda state: state.__name__)
