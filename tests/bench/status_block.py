"""The status block of an EC25 beside its floor: the time that its AT exchanges have to take.

Each exchange waits for the port to settle, so the exchanges times that wait is the least that the block can take. Where
the rest goes is told by what else it starts: processes, and calls on the bus.
"""

from pathlib import Path

from meters import FORKS, Router, install, measure, median, system_calls
from tables import Table, ratio

BUS = "1-1.2"
INTERFACE = "modem_1_1_2"
SETTLE_MS = 50
# A connected modem, so that the block has all its parts; the loopback device stands for the modem's.
UCI = {"network": f"config interface '{INTERFACE}'\n\toption proto 'qmi'\n"}
UBUS = {"interfaces": {INTERFACE: {"state": "up", "l3_device": "lo"}}}


def bench_status(build: Path, runs: int) -> None:
    command = [str(build / "tests/router/probe"), "status", BUS]
    with Router("ec25", build=build, uci=UCI, ubus=UBUS, net=True) as router:
        install(router, build, "measure")
        title = f"Status block of an EC25 (with detection), the first run and the median of {runs} more"
        table = Table("status", title, "", "wall ms", "floor ms", "ratio", "CPU ms", "exchanges", "ubus calls", "forks",
                      "programs")
        # The counts of a first run are another first run's: tracing would disturb the times.
        for name, count in (("first run", 1), ("later run", runs)):
            cost = median([measure(router, command) for _ in range(count)])
            if name == "first run":
                with Router("ec25", build=build, uci=UCI, ubus=UBUS, net=True) as fresh:
                    kinds, calls = count_effects(fresh, command)
            else:
                kinds, calls = count_effects(router, command)
            exchanges = kinds.count("at")
            floor = exchanges * SETTLE_MS
            forks = sum(calls.count(call) for call in FORKS)
            # The first program is the traced one itself.
            table.row(name, f"{cost.wall / 1000:.2f}", floor, ratio(cost.wall / 1000, floor), f"{cost.cpu / 1000:.2f}",
                      exchanges, kinds.count("ubus"), forks, calls.count("execve") - 1)


def count_effects(router: Router, command: list[str]) -> tuple[list[str], list[str]]:
    """The kinds of the effects of one run, and its system calls."""
    router.clear_events()
    calls = system_calls(router, command)
    return [event["kind"] for event in router.events], calls
