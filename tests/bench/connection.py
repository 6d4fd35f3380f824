"""/modem/set on an EC25 beside the floor of its own waits: a second for the link, and the settle time of each exchange.

Commits are counted by the configuration files that are put in place, syncs by the calls that wait for the disk; those
of the shell commands (the firewall's zone) count too. What a change must cost is a commit for each package.
"""

import re
from pathlib import Path

from meters import TRACE, Router, install, measure, median
from status_block import FORKS, SETTLE_MS, count_effects

REQUEST = '{"modem_id":3,"device":"/dev/cdc-wdm0","service":"fdd_lte","apn":"internet","operator":"Visible"}'
COMMAND = ["vela_api", "post", "/modem/set", REQUEST]
LINK_WAIT_MS = 1000
UBUS = {"interfaces": {"modem_1_1_2": {"state": "up"}}}
FILES = {"/tmp/sim_status": "ready\n", "/tmp/sim_type": "other\n"}
COMMIT = re.compile(r'rename(?:at2?)?\(.*"/etc/config/(\w+)"')
SYNC = re.compile(r"^\d+ +(?:fsync|fdatasync|sync|syncfs)\(", re.MULTILINE)


def bench_connection(build: Path, runs: int) -> None:
    print(f"\n/modem/set on an EC25, the first request and the median of {runs} more")
    print(f"{'':12}{'wall ms':>10}{'floor ms':>10}{'ratio':>8}{'CPU ms':>10}{'exchanges':>11}{'ubus calls':>12}"
          f"{'forks':>8}{'programs':>10}{'commits':>9}{'syncs':>7}")
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
        print(f"{request:12}{cost.wall / 1000:10.2f}{floor:10d}{cost.wall / 1000 / floor:8.2f}{cost.cpu / 1000:10.2f}"
              f"{kinds.count('at'):11d}{kinds.count('ubus'):12d}{forks:8d}{calls.count('execve') - 1:10d}"
              f"{len(COMMIT.findall(trace)):9d}{len(SYNC.findall(trace)):7d}")
        print(f"{'':12}committed: {', '.join(COMMIT.findall(trace))}")
