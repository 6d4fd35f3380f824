"""What a discovery costs for each directory of sysfs, over growing trees."""

from pathlib import Path

from meters import Router, calls_of, install, instructions, measure, median
from tables import Table, ratio

# The smallest is made from that of a modem with few interfaces: an EC25 alone has more directories.
TREES = {50: "ec100y", 200: "ec25", 500: "ec25", 1000: "ec25"}
DEVICES = "/sys/devices/platform"
COMMAND = ["vela_modem", "no-such-command"]


def sysfs_directories(router: Router) -> int:
    base = router.host_path(DEVICES)
    return 1 + sum(1 for path in base.rglob("*") if path.is_dir() and not path.is_symlink())


def resize(router: Router, size: int) -> None:
    """The modem's own tree with more directories, or without some that no search looks for."""
    missing = size - sysfs_directories(router)
    router.add_directories(DEVICES, max(0, missing))
    for path in sorted(router.host_path(DEVICES).rglob("power"))[:max(0, -missing)]:
        path.rmdir()


def bench_discovery(build: Path, runs: int) -> None:
    """Runs with no modem's answer in them: the modem on the bus is detected, and that is all."""
    table = Table("discovery", f"Detection in growing trees, medians of {runs} runs in turns", "directories",
                  "opened in all", "wall ms", "CPU ms", "instructions", "system calls", "on sysfs",
                  "for each directory opened", "instructions for each more")
    routers = {size: Router(modem, build=build) for size, modem in TREES.items()}
    try:
        for size, router in routers.items():
            install(router, build, "measure")
            resize(router, size)
        rounds = [{size: measure(router, COMMAND) for size, router in routers.items()} for _ in range(runs)]
        before = None
        for size, router in routers.items():
            cost, calls = median([costs[size] for costs in rounds]), calls_of(router, COMMAND)
            count = instructions(router, COMMAND)
            more = ""
            if before and before[0] == TREES[size]:
                more = f"{(count - before[1]) / (calls.directories - before[2]):.0f}"
            table.row(f"{sysfs_directories(router):,}", f"{calls.directories:,}", f"{cost.wall / 1000:.2f}",
                      f"{cost.cpu / 1000:.2f}", f"{count:,}", f"{len(calls.names):,}", f"{calls.walking:,}",
                      ratio(calls.walking, calls.directories), more)
            before = (TREES[size], count, calls.directories)
    finally:
        for router in routers.values():
            router.close()
