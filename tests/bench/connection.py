"""/modem/set on an EC25 beside the floor of its own waits: a second for the link, and the settle time of each exchange.

Commits are counted by the configuration files that are put in place, syncs by the calls that wait for the disk; those
of the shell commands (the firewall's zone) count too. What a change must cost is a commit for each package.
"""

import re
from pathlib import Path

from meters import FORKS, TRACE, Router, install, measure, median
from status_block import SETTLE_MS, count_effects
from tables import Table, ratio

REQUEST = '{"modem_id":3,"device":"/dev/cdc-wdm0","service":"fdd_lte","apn":"internet","operator":"Visible"}'
COMMAND = ["vela_api", "post", "/modem/set", REQUEST]
LINK_WAIT_MS = 1000
UBUS = {"interfaces": {"modem_1_1_2": {"state": "up"}}}
FILES = {"/tmp/sim_status": "ready\n", "/tmp/sim_type": "other\n"}
COMMIT = re.compile(r'rename(?:at2?)?\(.*"/etc/config/(\w+)"')
SYNC = re.compile(r"^\d+ +(?:fsync|fdatasync|sync|syncfs)\(", re.MULTILINE)


def bench_connection(build: Path, runs: int) -> None:
    table = Table("set", f"/modem/set on an EC25, the first request and the median of {runs} more", "", "wall ms",
                  "floor ms", "ratio", "CPU ms", "exchanges", "ubus calls", "forks", "programs", "commits", "syncs")
    for request in ("first", "later"):
        with Router("ec25", build=build, ubus=UBUS, files=FILES) as router:
            install(router, build, "measure")
            if request == "later":
                router.run(*COMMAND)
            cost = median([measure(router, COMMAND) for _ in range(runs if request == "later" else 1)])
        # The counts are another router's, as tracing would disturb the times.
        with Router("ec25", build=build, ubus=UBUS, files=FILES) as router:
            if request == "later":
                router.run(*COMMAND)
            kinds, calls = count_effects(router, COMMAND)
            trace = router.read(TRACE)
        floor = LINK_WAIT_MS + kinds.count("at") * SETTLE_MS
        forks = sum(calls.count(call) for call in FORKS)
        # The first program is the traced one itself.
        table.row(request, f"{cost.wall / 1000:.2f}", floor, ratio(cost.wall / 1000, floor), f"{cost.cpu / 1000:.2f}",
                  kinds.count("at"), kinds.count("ubus"), forks, calls.count("execve") - 1,
                  f"{len(COMMIT.findall(trace))} ({', '.join(COMMIT.findall(trace))})", len(SYNC.findall(trace)))
