"""What each shell command costs that the product starts: collected from requests and runs, then run one by one."""

from pathlib import Path

from meters import Router, calls_of, install, measure, median
from tables import Table

BUS = "1-1.2"
MODEM = {"modem_id": 3, "bus": BUS}
# What makes the product start commands, in an order in which nothing keeps the next one from it.
REQUESTS = (
    ("get", "/modem/info", {}),
    ("get", "/modem/brief_info", {}),
    ("get", "/modem/get", MODEM),
    ("post", "/modem/set", {**MODEM, "device": "/dev/cdc-wdm0", "service": "fdd_lte", "apn": "internet",
                            "operator": "Visible", "ttl": 64}),
    ("post", "/modem/sms/send", {**MODEM, "phone": "900000000017", "content": "text"}),
    ("get", "/modem/sms/flist", {}),
    ("post", "/modem/upgrade_status", MODEM),
    ("post", "/modem/enable", {**MODEM, "disable": 1}),
)
RUNS = ("carrier", "test", "new-connect-auto", "connect-auto", "wifi_lte_interference", "disconnect")
UCI = {
    "velaconfig": f"config service 'modem'\n\tlist bus '{BUS}'\n",
    "network": "config interface 'modem_1_1_2'\n\toption proto 'qmi'\n\toption ifname 'wwan0'\n",
}
UBUS = {"interfaces": {"modem_1_1_2": {"state": "up", "l3_device": "lo"}}}
FILES = {
    "/tmp/sim_status": "ready\n", "/tmp/sim_type": "other\n",
    f"/tmp/modem.{BUS}/modem-imei": "350000000000017", f"/tmp/modem.{BUS}/modem-name": "EC25",
}
# What a command waits for is not what it costs; and one that ends all processes whose command line has a word of its
# own would end the program that measures it.
LEFT_OUT = ("sleep", "vela_modem -B", "kill $(")


def make_router(build: Path, **options: object) -> Router:
    router = Router("ec25", build=build, uci=UCI, ubus=UBUS, files=FILES, net=True, **options)
    install(router, build, "measure")
    return router


def started_commands(build: Path) -> dict[str, str]:
    """The commands, with what starts each first."""
    starters: dict[str, str] = {}
    with make_router(build, quick=True) as router:
        for method, path, request in REQUESTS:
            router.clear_events()
            router.api(method, path, request)
            starters |= dict.fromkeys((one for one in router.commands if one not in starters), f"`{path}`")
        for run in RUNS:
            router.clear_events()
            router.run("vela_modem", run)
            starters |= dict.fromkeys((one for one in router.commands if one not in starters), f"`vela_modem {run}`")
    return {command: starter for command, starter in starters.items() if not any(word in command for word in LEFT_OUT)}


def bench_shell_commands(build: Path, runs: int) -> None:
    commands = {":": "nothing, for comparison", **started_commands(build)}
    table = Table("commands", f"The shell commands of the product, medians of {runs} runs in turns", "command",
                  "started first by", "wall ms", "CPU ms", "processes", "programs")
    with make_router(build) as router:
        argv = {command: ["/bin/dash", "-c", command] for command in commands}
        rounds = [{command: measure(router, line, may_fail=True) for command, line in argv.items()}
                  for _ in range(runs)]
        for command, starter in commands.items():
            cost, calls = median([costs[command] for costs in rounds]), calls_of(router, argv[command])
            table.row(f"`{command}`".replace("|", "\\|"), starter, f"{cost.wall / 1000:.2f}",
                      f"{cost.cpu / 1000:.2f}", 1 + calls.processes, 1 + calls.programs)
