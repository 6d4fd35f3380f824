#!/usr/bin/python3
"""What one AT exchange costs beside a minimal C program that does the same open, lock, settle, write, read and close,
and what a discovery costs for each directory of sysfs.

Everything runs in one simulated router, the two programs in turns, so that both see the same machine. Times are medians;
what counts are the ratios. Instructions (callgrind, user space) and system calls (strace) are exact counts.
"""

import argparse
import re
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "sim"))

from velasim.router import Router  # noqa: E402

PORT = "/dev/ttyUSB2"
COMMAND = "AT+CSQ"
TREE_SIZES = (50, 200, 900)


def stripped_size(program: Path) -> int:
    with tempfile.TemporaryDirectory() as scratch:
        copy = Path(scratch) / "stripped"
        subprocess.run(["strip", "-o", copy, program], check=True)
        return copy.stat().st_size


def measure_once(router: Router, command: list[str]) -> tuple[int, int, int]:
    """Wall and CPU time in microseconds and peak memory in KiB of one run."""
    result = router.run("/tmp/bench/measure", *command)
    if result.returncode != 0:
        raise SystemExit(f"{command} failed: {result.stderr}")
    wall, cpu, peak = result.stderr.split()[-3:]
    return int(wall), int(cpu), int(peak)


def instructions(router: Router, command: list[str]) -> int:
    result = router.run("valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", *command)
    return int(re.search(r"Collected : (\d+)", result.stderr)[1])


def system_calls(router: Router, command: list[str]) -> list[str]:
    """The names of all system calls of one run, in order."""
    router.run("strace", "-f", "-o", "/tmp/bench/trace", *command)
    return re.findall(r"^\d+ +(\w+)\(", router.read("/tmp/bench/trace"), re.MULTILINE)


def opened_directories(router: Router) -> int:
    return len(re.findall(r"openat\([^)]*O_DIRECTORY", router.read("/tmp/bench/trace")))


def bench_exchange(router: Router, build: Path, runs: int) -> None:
    programs = {
        "minimal C program": (["/tmp/bench/minimal_at", PORT, COMMAND], build / "tests/bench/minimal_at"),
        f"vela_modem AT {COMMAND}": (["vela_modem", "AT", COMMAND], build / "vela_modem"),
    }
    samples: dict[str, list[tuple[int, int, int]]] = {name: [] for name in programs}
    for _ in range(runs):
        for name, (command, _) in programs.items():
            samples[name].append(measure_once(router, command))
    print(f"One AT exchange ({COMMAND}), medians of {runs} runs in turns")
    print(f"{'':24}{'wall ms':>10}{'CPU ms':>10}{'peak KiB':>10}{'instructions':>14}{'system calls':>14}"
          f"{'stripped bytes':>16}")
    rows = []
    for name, (command, binary) in programs.items():
        wall, cpu, peak = (statistics.median(column) for column in zip(*samples[name]))
        rows.append((wall, cpu, peak, instructions(router, command), len(system_calls(router, command)),
                     stripped_size(binary)))
        print(f"{name:24}{wall / 1000:10.2f}{cpu / 1000:10.2f}{peak:10.0f}{rows[-1][3]:14d}{rows[-1][4]:14d}"
              f"{rows[-1][5]:16d}")
    ratios = [ours / minimal for minimal, ours in zip(*rows)]
    print(f"{'ratio':24}{ratios[0]:10.2f}{ratios[1]:10.2f}{ratios[2]:10.2f}{ratios[3]:14.2f}{ratios[4]:14.2f}"
          f"{ratios[5]:16.2f}")
    print(f"stripped plug-in: {stripped_size(build / 'vela_modem.so')} bytes")


def sysfs_directories(router: Router) -> int:
    base = router.host_path("/sys/devices/platform")
    return 1 + sum(1 for path in base.rglob("*") if path.is_dir() and not path.is_symlink())


def bench_discovery() -> None:
    """Runs with no modem's answer in them: the bus has a device whose ports are looked up, and that is all."""
    print("\nDiscovery: system calls of one run (vela_modem AT with no such port) over growing trees")
    print(f"{'directories':>12}{'opened in all':>16}{'system calls':>14}{'calls a directory':>19}")
    previous = None
    for size in TREE_SIZES:
        with Router("ec25") as router:
            router.add_directories("/sys/devices/platform", size - sysfs_directories(router))
            router.write("/tmp/bench/made", "")
            calls = len(system_calls(router, ["vela_modem", "AT", "/dev/none", COMMAND]))
            opened = opened_directories(router)
            slope = "" if previous is None else f"{(calls - previous[1]) / (opened - previous[0]):.2f}"
            print(f"{sysfs_directories(router):12d}{opened:16d}{calls:14d}{slope:>19}")
            previous = (opened, calls)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", type=Path, default=ROOT / "build")
    parser.add_argument("--runs", type=int, default=15, help="runs of each program (at least 7)")
    options = parser.parse_args()
    build = options.build.resolve()
    with Router("ec25", build=build) as router:
        for name in ("minimal_at", "measure"):
            router.write(f"/tmp/bench/{name}", (build / "tests/bench" / name).read_bytes())
            router.host_path(f"/tmp/bench/{name}").chmod(0o755)
        bench_exchange(router, build, max(7, options.runs))
    bench_discovery()
    return 0


if __name__ == "__main__":
    sys.exit(main())
