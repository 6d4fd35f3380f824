"""What a discovery costs for each directory of sysfs, over growing trees."""

import re
from pathlib import Path

from meters import TRACE, Router, system_calls

TREE_SIZES = (50, 200, 900)
DEVICES = "/sys/devices/platform"


def opened_directories(router: Router) -> int:
    return len(re.findall(r"openat\([^)]*O_DIRECTORY", router.read(TRACE)))


def sysfs_directories(router: Router) -> int:
    base = router.host_path(DEVICES)
    return 1 + sum(1 for path in base.rglob("*") if path.is_dir() and not path.is_symlink())


def bench_discovery(build: Path) -> None:
    """Runs with no modem's answer in them: the bus has a device whose ports are looked up, and that is all."""
    print("\nDiscovery: system calls of one run (vela_modem AT with no such port) over growing trees")
    print(f"{'directories':>12}{'opened in all':>16}{'system calls':>14}{'calls a directory':>19}")
    previous = None
    for size in TREE_SIZES:
        with Router("ec25", build=build) as router:
            router.add_directories(DEVICES, size - sysfs_directories(router))
            calls = len(system_calls(router, ["vela_modem", "AT", "/dev/none", "AT+CSQ"]))
            opened = opened_directories(router)
            slope = "" if previous is None else f"{(calls - previous[1]) / (opened - previous[0]):.2f}"
            print(f"{sysfs_directories(router):12d}{opened:16d}{calls:14d}{slope:>19}")
            previous = (opened, calls)
