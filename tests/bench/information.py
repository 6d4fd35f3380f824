"""The whole of /modem/info with one, two and three modems, beside its floor: the settle time of its AT exchanges.

The modems are connected and their names and IMEIs are known, as they are once a page has been shown; the first request
after a start asks for those too. Where the time above the floor goes is told by what the request starts.
"""

from pathlib import Path

from meters import FORKS, Router, install, measure, median
from status_block import SETTLE_MS, count_effects
from tables import Table, ratio

MODEMS = {"1-1.2": "ec25", "2-1.2": "ep06", "1-1.3": "eg91"}
COMMAND = ["vela_api", "get", "/modem/info"]


def configuration(buses: list[str]) -> dict[str, str]:
    modem = "config service 'modem'\n" + "".join(f"\tlist bus '{bus}'\n" for bus in buses)
    network = "".join(f"config interface 'modem_{name(bus)}'\n\toption proto 'qmi'\n" for bus in buses)
    return {"velaconfig": modem, "network": network}


def name(bus: str) -> str:
    return bus.replace("-", "_").replace(".", "_")


def bench_information(build: Path, runs: int) -> None:
    table = Table("info", f"/modem/info, the first request and the median of {runs} more", "", "wall ms", "floor ms",
                  "ratio", "CPU ms", "exchanges", "ubus calls", "forks", "programs")
    for count in range(1, len(MODEMS) + 1):
        modems = dict(list(MODEMS.items())[:count])
        uci = configuration(list(modems))
        ubus = {"interfaces": {f"modem_{name(bus)}": {"state": "up", "l3_device": "lo"} for bus in modems}}
        for request in ("first", "later"):
            with Router(modems=modems, build=build, uci=uci, ubus=ubus, net=True) as router:
                install(router, build, "measure")
                if request == "later":
                    router.run(*COMMAND)
                cost = median([measure(router, COMMAND) for _ in range(runs if request == "later" else 1)])
            # The counts are another router's, as tracing would disturb the times.
            with Router(modems=modems, build=build, uci=uci, ubus=ubus, net=True) as router:
                if request == "later":
                    router.run(*COMMAND)
                kinds, calls = count_effects(router, COMMAND)
            exchanges = kinds.count("at")
            floor = exchanges * SETTLE_MS
            forks = sum(calls.count(call) for call in FORKS)
            # The first program is the traced one itself.
            table.row(f"{count} modem{'s'[:count > 1]}, {request}", f"{cost.wall / 1000:.2f}", floor,
                      ratio(cost.wall / 1000, floor), f"{cost.cpu / 1000:.2f}", exchanges, kinds.count("ubus"), forks,
                      calls.count("execve") - 1)
