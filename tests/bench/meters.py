"""Measuring one run of a program in the simulated router: time and memory, instructions, system calls."""

import re
import statistics
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "sim"))

from velasim.router import Router  # noqa: E402  (found through the line above)

TRACE = "/tmp/bench/trace"
LINE_START = re.compile(r"^\d+ +(\w+)\(", re.MULTILINE)


@dataclass
class Cost:
    """Of one run, or the medians of several."""

    wall: float  # microseconds
    cpu: float  # microseconds
    peak: float  # KiB


def stripped_size(program: Path) -> int:
    with tempfile.TemporaryDirectory() as scratch:
        copy = Path(scratch) / "stripped"
        subprocess.run(["strip", "-o", copy, program], check=True)
        return copy.stat().st_size


def install(router: Router, build: Path, *names: str) -> None:
    """Puts programs of tests/bench into the router, as /tmp/bench/NAME."""
    for name in names:
        router.write(f"/tmp/bench/{name}", (build / "tests/bench" / name).read_bytes())
        router.host_path(f"/tmp/bench/{name}").chmod(0o755)


def measure(router: Router, command: list[str]) -> Cost:
    """One run. Needs "measure" in the router."""
    result = router.run("/tmp/bench/measure", *command)
    if result.returncode != 0:
        raise SystemExit(f"{command} failed: {result.stderr}")
    return Cost(*map(int, result.stderr.split()[-3:]))


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
    return LINE_START.findall(router.read(TRACE))
