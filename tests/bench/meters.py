"""Measuring one run of a program in the simulated router: time and memory, instructions, system calls."""

import re
import statistics
import subprocess
import sys
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "sim"))

from velasim.router import Router  # noqa: E402  (found through the line above)

MEASURE = "/tmp/bench/measure"
TRACE = "/tmp/bench/trace"
CALL = re.compile(r"^(\d+) +(\w+)\((.*)", re.MULTILINE)
OPENED = re.compile(r'^AT_FDCWD, "([^"]*)"')
ON_DESCRIPTOR = re.compile(r"^(\d+)[,)]")
RESULT = re.compile(r"= (\d+)$")
LIBRARY = re.compile(r"\.so(\.\d+)*$")
FORKS = ("fork", "vfork", "clone", "clone3")


@dataclass
class Command:
    """What is measured: with `tty` as its standard input and output, or with the file `input` as its input."""

    argv: list[str]
    tty: str | None = None
    input: str | None = None

    def redirections(self) -> list[str]:
        return (["-t", self.tty] if self.tty else []) + (["-i", self.input] if self.input else [])


@dataclass
class Cost:
    """Of one run, or the medians of several."""

    wall: float  # microseconds
    cpu: float  # microseconds
    peak: float  # KiB


@dataclass
class Calls:
    """The system calls of a run and its children, the loading of the programs included."""

    names: list[str] = field(default_factory=list)
    walking: int = 0  # of them on sysfs
    directories: int = 0  # opened in sysfs
    libraries: int = 0  # opened by all programs together, the dynamic linker itself not counted
    processes: int = 0  # started
    programs: int = 0  # started, the first one not counted


def stripped_size(program: Path) -> int:
    with tempfile.TemporaryDirectory() as scratch:
        copy = Path(scratch) / "stripped"
        subprocess.run(["strip", "-o", copy, program], check=True)
        return copy.stat().st_size


def where(router: Router, program: str) -> Path:
    """A program of the router, as this process sees it."""
    places = [program] if program.startswith("/") else [f"/usr/{folder}/{program}" for folder in ("bin", "sbin")]
    return next(path for path in map(router.host_path, places) if path.exists())


def install(router: Router, build: Path, *names: str) -> None:
    """Puts programs of tests/bench into the router, as /tmp/bench/NAME."""
    for name in names:
        router.write(f"/tmp/bench/{name}", (build / "tests/bench" / name).read_bytes())
        router.host_path(f"/tmp/bench/{name}").chmod(0o755)


def _told_by_measure(
    router: Router, command: list[str] | Command, *options: str, may_fail: bool = False
) -> list[int]:
    command = command if isinstance(command, Command) else Command(command)
    result = router.run(MEASURE, *options, *command.redirections(), *command.argv)
    if result.returncode != 0 and not may_fail:
        raise SystemExit(f"{command.argv} failed: {result.stderr}")
    return [int(word) for word in result.stderr.splitlines()[-1].split()]


def measure(router: Router, command: list[str] | Command, may_fail: bool = False) -> Cost:
    """One run. Needs "measure" in the router."""
    return Cost(*_told_by_measure(router, command, may_fail=may_fail))


def own_copy_of_json_c(router: Router) -> None:
    """Gives the router a json-c that no other program of this machine has loaded: what is shared does not count as a
    program's own memory, and would make the figure depend on what else happens to run."""
    for library in {path.resolve() for path in Path("/usr/lib").glob("*/libjson-c.so.*")}:
        router.write(str(library), library.read_bytes())


def private_memory(router: Router, command: list[str] | Command) -> int:
    """KiB that the program had to itself when it ended, the most of three runs. Needs "measure" in the router."""
    return max(_told_by_measure(router, command, "-p")[0] for _ in range(3))


def median(costs: list[Cost]) -> Cost:
    return Cost(*(statistics.median(getattr(cost, name) for cost in costs) for name in ("wall", "cpu", "peak")))


def instructions(router: Router, command: list[str]) -> int:
    """Of the program itself, in user space; children are not counted."""
    result = router.run("valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", *command)
    return int(re.search(r"Collected : (\d+)", result.stderr)[1])


def system_calls(router: Router, command: list[str]) -> list[str]:
    """The names of all system calls of one run and its children, in order. The trace itself stays in TRACE."""
    router.write(TRACE, "")
    router.run("strace", "-f", "-o", TRACE, *command)
    return [call[2] for call in CALL.finditer(router.read(TRACE))]


def calls_of(router: Router, command: list[str] | Command) -> Calls:
    """The same, looked at. Needs "measure" in the router."""
    command = command if isinstance(command, Command) else Command(command)
    system_calls(router, [MEASURE, "-x", *command.redirections(), *command.argv])
    trace = router.read(TRACE)
    # What "measure" did before it became the command is not the command's. It is found on PATH by trying.
    begin = [call.start() for call in CALL.finditer(trace) if call[2] == "execve" and call[3].endswith("= 0")][1]
    calls, sysfs = Calls(), set()
    for call in CALL.finditer(trace, begin):
        process, name, rest = call.groups()
        calls.names.append(name)
        calls.processes += name in FORKS and "CLONE_THREAD" not in rest
        calls.programs += name == "execve"
        calls.libraries += name == "openat" and opened_library(rest)
        on = ON_DESCRIPTOR.match(rest)
        in_sysfs = rest.startswith(('AT_FDCWD, "/sys', '"/sys')) or (on and (process, on[1]) in sysfs)
        calls.walking += bool(in_sysfs)
        result = RESULT.search(rest)
        if name == "openat" and in_sysfs and result:
            sysfs.add((process, result[1]))
            calls.directories += "O_DIRECTORY" in rest
        elif name == "close" and on:
            sysfs.discard((process, on[1]))
    calls.programs -= 1
    return calls


def opened_library(arguments: str) -> bool:
    path = OPENED.match(arguments)
    return bool(path and LIBRARY.search(path[1]) and RESULT.search(arguments))
