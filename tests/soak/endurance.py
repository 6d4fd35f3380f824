"""The plug-in in one server for a long time: every endpoint, on three modems of which one command in ten fails.

All waiting of the programs takes a hundredth of its time (sim/quick_sleep.c), which counts what would have been waited.
"""

import random
import re
import time
from collections import Counter
from dataclasses import dataclass, field
from typing import Callable

from server import Server
from velasim import Router

WAITS = 100
MODEMS = {"1-1.2": ("ec25", 3), "1-1.3": ("mc7430", 5), "2-1.2": ("nl678e", 40)}
AT_INTERFACE = {"1-1.2": 2, "1-1.3": 3, "2-1.2": 2}
ONE_IN = 10
# Of a hundred commands that misbehave. Silence is rare, as it takes the whole 15 seconds.
MOODS = [
    (30, "error", {}),
    (19, "garbage", {"end": "\r\nOK\r\n"}),
    (1, "garbage", {}),
    (9, "unsolicited", {"where": "before"}),
    (9, "unsolicited", {"where": "inside"}),
    (8, "unsolicited", {"where": "after"}),
    (8, "dribble", {"bytes": 3, "ms": 1.0}),
    (6, "nul", {"every": 8}),
    (4, "flood", {"total": 3000}),
    (4, "drop", {"ms": 1.0}),
    (1, "no_final", {}),
    (1, "silent", {}),
]
SILENT_READS = 30  # that end an exchange of any command used here
MEMORY_NOISE = 64  # KiB by which the memory of a process that keeps nothing may differ

MESSAGE = ("From: 491700000001\nFrom_TOA: 91 international, ISDN/telephone\nReceived: 26-11-21 09:30:00\nLength: 5\n\n"
           "hello\n")
INCOMING = "/etc/spool/sms/incoming"
UPGRADE = {"modem_url": "url", "target_version": "EC25EFAR06A03M4G_01.006.01.006", "firmware_upload": "0",
           "current_version": "EC25EFAR06A03M4G_01.005.01.005", "hash_type": "md5", "hash_value": "0"}
COMMANDS = ["AT", "ATI", "AT+CSQ", "AT+GSN", "AT+CIMI", "AT+CPIN?", "AT+CREG?", "AT+COPS?", "AT+NOSUCH"]


class Client:
    """Makes requests; keeps what they are about in the router."""

    def __init__(self, r: Router, seed: int) -> None:
        self.r, self.random, self.number = r, random.Random(seed), 0

    def modem(self) -> dict:
        self.number += 1
        bus = self.random.choice(list(MODEMS))
        return {"bus": bus, "modem_id": MODEMS[bus][1]}

    def at(self) -> dict:
        modem = self.modem()
        port = self.r.modem(modem["bus"]).tty(AT_INTERFACE[modem["bus"]]) or "/dev/ttyUSB2"
        if modem["modem_id"] == 3 and self.random.randrange(50) == 0:
            return {"at-port": port, "at-command": "default_band"}
        return {"at-port": port, "at-command": self.random.choice(COMMANDS)}

    def message(self) -> dict:
        """A message that is there, now and then one that is not."""
        self.number += 1
        name = f"VMS99.{self.number:06}"
        if self.random.randrange(10):
            self.r.write(f"{INCOMING}/{name}", MESSAGE)
        return {**self.modem(), "msg_id": name}

    def sending(self) -> dict:
        return {**self.modem(), "number": "491700000001", "message": f"message {self.number}"}

    def code(self) -> dict:
        self.number += 1
        if self.random.randrange(2):
            return {"action": "get"}
        return {"action": "set", "country": f"country{self.number}", "country_code": str(self.number % 1000)}

    def forward(self) -> dict:
        self.number += 1
        return {self.random.choice(("tel", "email")): f"text{self.number}"}

    def account(self) -> dict:
        self.number += 1
        return {"account": f"user{self.number}@example.org", "password": "secret", "smtp": "mail.example.org:587",
                "local_tel": str(self.number)}

    def setting(self) -> dict:
        modem = self.modem()
        device = self.random.choice(("/dev/cdc-wdm0", "/dev/cdc-wdm1", "/dev/ttyUSB3", "/dev/ttyUSB7", "/dev/nothing"))
        return {**modem, "device": device, "apn": "internet", "service": "umts", "operator": "Visible"}

    def disabled(self) -> dict:
        return {**self.modem(), "disable": self.random.randrange(2) == 1}

    def sim(self) -> dict:
        return {**self.modem(), "sim_num": self.random.choice(("1", "2"))}

    def upgrade(self) -> dict:
        self.number += 1
        return dict(UPGRADE)

    def nothing(self) -> dict:
        return {}


@dataclass(frozen=True)
class Endpoint:
    method: str
    path: str
    share: int  # of a thousand calls
    request: Callable[[Client], dict]
    exchanges: int  # that one call in the server's process may come to, on three modems


# Few of a thousand calls are those that wait for a restart or for a link, or start other programs.
ENDPOINTS = [
    Endpoint("post", "/modem/at", 313, Client.at, 2),
    Endpoint("post", "/modem/sms/code", 110, Client.code, 0),
    Endpoint("post", "/modem/sms/forward", 80, Client.forward, 0),
    Endpoint("get", "/modem/sms/flist", 80, Client.nothing, 0),
    Endpoint("get", "/modem/get", 80, Client.modem, 0),
    Endpoint("get", "/modem/sms/list", 70, Client.modem, 0),
    Endpoint("post", "/modem/sms/delete", 50, Client.message, 0),
    Endpoint("post", "/modem/sms/status", 50, Client.message, 0),
    Endpoint("post", "/modem/sms/delete_all", 30, Client.modem, 0),
    Endpoint("post", "/modem/sms/send", 20, Client.sending, 0),
    Endpoint("post", "/modem/cells/get", 36, Client.modem, 6),
    Endpoint("post", "/modem/modem_info/get", 30, Client.modem, 6),
    Endpoint("get", "/modem/info", 8, Client.nothing, 36),
    Endpoint("get", "/modem/brief_info", 8, Client.nothing, 12),
    Endpoint("get", "/modem/app/brief_info", 8, Client.nothing, 24),
    Endpoint("post", "/modem/sms/account", 5, Client.account, 0),
    Endpoint("post", "/modem/enable", 4, Client.disabled, 0),
    Endpoint("post", "/modem/auto", 3, Client.modem, 0),
    Endpoint("post", "/modem/set", 3, Client.setting, 2),
    Endpoint("post", "/modem/reset", 3, Client.disabled, 1),
    Endpoint("post", "/modem/sim/switch", 3, Client.sim, 1),
    Endpoint("post", "/modem/upgrade", 3, Client.upgrade, 0),
    Endpoint("post", "/modem/upgrade_status", 3, Client.nothing, 0),
]
assert len(ENDPOINTS) == 23 and sum(endpoint.share for endpoint in ENDPOINTS) == 1000


@dataclass
class Record:
    """What one endpoint's calls came to."""

    statuses: Counter = field(default_factory=Counter)
    exchanges: int = 0
    refused: int = 0
    most_exchanges: int = 0
    silent: int = 0
    longest_wait_ms: int = 0
    longest_us: int = 0
    total_us: int = 0


@dataclass
class Result:
    records: dict[str, Record] = field(default_factory=dict)
    samples: list[dict] = field(default_factory=list)
    troubles: Counter = field(default_factory=Counter)
    most_silent: int = 0
    seconds: float = 0.0
    faults: list[str] = field(default_factory=list)  # whatever broke a rule

    def calls(self) -> int:
        return sum(record.statuses.total() for record in self.records.values())


FILES = {
    "/etc/forward": "", "/tmp/sim_status": "ready\n", "/tmp/sim_type": "other\n", "/sys/class/gpio/gpio1/value": "0\n",
    "/sys/class/gpio/gpio1/direction": "out\n", "/sys/class/gpio/lte_power/value": "1\n",
    "/run/sim/answers/opkg": "ssmtp - 2.64\n",
}
LINK = {"state": "down", "on_up": "up", "on_reload": "down"}
STATE = {"interfaces": {f"modem_{bus}".replace("-", "_").replace(".", "_"): LINK for bus in MODEMS}}
UCI = {"velaconfig": "config service 'modem'\n" + "".join(f"\tlist bus '{bus}'\n" for bus in MODEMS)
       + "\nconfig service 'modem_sms'\n\nconfig service 'passthrough'\n\toption enable '0'\n"}
# Directories in which something could pile up, and what may be there at the end.
DIRECTORIES = ("/tmp", "/etc/config", "/etc/ssmtp", "/etc/spool", "/usr/share/modem", "/var/spool/sms", "/dev/shm")
EXPECTED = re.compile(
    r"/tmp/(sysinfo/\w+|sim_status|sim_type|modem\.[12]-1\.[23]/[\w-]+|\.uci/\w*)"
    r"|/etc/config/(firewall|mwan3|network|system|velaconfig|velaforward|velamodem|wireless)"
    r"|/etc/ssmtp/(ssmtp\.conf|revaliases)|/etc/spool/sms/(incoming|storage)/VMS99\.\d{6}"
    r"|/usr/share/modem/operator\.dat")

KEPT = ("network.lan=interface", "network.lan.ipaddr='192.168.8.1'", "mwan3.wan.track_ip='192.0.2.1'",
        "firewall.@zone[1].masq='1'", "velaforward.general=general", "velaconfig.modem.bus='1-1.2' '1-1.3' '2-1.2'",
        "velamodem.sim=sim", "wireless.radio0.channel='auto'", "system.@system[0].hostname='vela'")


def make_router() -> Router:
    modems = {bus: name for bus, (name, _) in MODEMS.items()}
    return Router(modems=modems, quick=WAITS, ubus=STATE, files=FILES, uci=UCI)


def files_of(r: Router) -> list[str]:
    found = r.run("find", *DIRECTORIES, "-xdev", "!", "-type", "d", "-print")
    return found.stdout.splitlines()


def schedule(calls: int, seed: int) -> list[Endpoint]:
    """Every endpoint once, for what is taken once and for all; then each in its share, in an order of the seed's."""
    plan = [endpoint for endpoint in ENDPOINTS for _ in range(calls * endpoint.share // 1000)]
    random.Random(seed).shuffle(plan)
    return ENDPOINTS + plan


def one_call(server: Server, client: Client, endpoint: Endpoint, result: Result) -> None:
    request = endpoint.request(client)
    answer = server.call(endpoint.method, endpoint.path, request)
    record, waits = result.records.setdefault(endpoint.path, Record()), answer["waits"]
    record.statuses[answer["status"]] += 1
    record.exchanges += waits["exchanges"]
    record.refused += waits["refused"] > 0
    record.most_exchanges = max(record.most_exchanges, waits["exchanges"])
    record.silent += waits["silent"]
    record.longest_wait_ms = max(record.longest_wait_ms, waits["waited_ms"])
    record.longest_us = max(record.longest_us, answer["elapsed_us"])
    record.total_us += answer["elapsed_us"]
    result.most_silent = max(result.most_silent, waits["most_silent"])
    if waits["most_silent"] > SILENT_READS or waits["exchanges"] > endpoint.exchanges:
        result.faults.append(f"{endpoint.path} {request}: {waits}")


def sample(r: Router, server: Server, result: Result) -> None:
    result.samples.append({"calls": result.calls(), **server.look(), "files": len(files_of(r)),
                           "others": len(r.processes()) - 1})
    r.clear_events()


def check_the_end(r: Router, server: Server, result: Result) -> None:
    """Nothing is left of all that, and the router is as it was."""
    for bus in MODEMS:
        result.troubles.update(r.modem(bus).mood_counts)
        r.modem(bus).moods(0, [], [])
    r.wait_for(lambda: all(r.modem(bus).tty(AT_INTERFACE[bus]) for bus in MODEMS), "the modems to be back")
    for bus in MODEMS:
        port = r.modem(bus).tty(AT_INTERFACE[bus])
        answer = server.call("post", "/modem/at", {"at-port": port, "at-command": "AT"})
        if "OK" not in answer["reply"].get("message", ""):
            result.faults.append(f"afterwards {bus} does not answer: {answer}")
    status, errors = server.end()
    if status != 0 or "Sanitizer" in errors:
        result.faults.append(f"the server's end: {status} {errors}")
    r.wait_idle()
    result.faults += [f"left behind: {path}" for path in files_of(r) if not EXPECTED.fullmatch(path)]
    shown = r.run("uci", "show")
    if shown.returncode != 0:
        result.faults.append(f"uci show: {shown.stderr}")
    result.faults += [f"lost from the configuration: {line}" for line in KEPT if line not in shown.stdout.splitlines()]


def grew(samples: list[dict], what: str, noise: int) -> bool:
    """Whether the second half was ever higher than the first."""
    half = len(samples) // 2
    return max(each[what] for each in samples[half:]) > max(each[what] for each in samples[:half]) + noise


def run(calls: int, looks: int = 50, seed: int = 1, memory_noise: int | None = MEMORY_NOISE) -> Result:
    """`memory_noise`: the KiB by which memory may differ; None where it says nothing, as below a sanitizer."""
    result, start = Result(), time.monotonic()
    with make_router() as r:
        for number, bus in enumerate(MODEMS):
            r.modem(bus).moods(ONE_IN, MOODS, [20 * number, 20 * number + 10], seed + number)
        server, client, plan = Server(r), Client(r, seed), schedule(calls, seed)
        every = max(1, len(plan) // looks)
        for number, endpoint in enumerate(plan):
            if number % every == 0:
                sample(r, server, result)
            one_call(server, client, endpoint, result)
        sample(r, server, result)
        check_the_end(r, server, result)
    for what, allowed in (("descriptors", result.samples[0]["descriptors"]), ("children", 0), ("threads", 1)):
        if any(each[what] != allowed for each in result.samples):
            result.faults.append(f"{what} left in the server")
    if memory_noise is not None:
        # What is taken once and for all is taken in the first tenth.
        settled = result.samples[len(result.samples) // 10:]
        memory = ("resident", "private")
        result.faults += [f"{what} memory grew" for what in memory if grew(settled, what, memory_noise)]
    result.seconds = time.monotonic() - start
    return result


def report(result: Result) -> str:
    lines = ["| endpoint | calls | statuses | exchanges | most in a call | refused | silent reads | longest wait s "
             "| longest call ms | mean ms |", "|" + "---|" * 10]
    for path, each in result.records.items():
        statuses = ", ".join(f"{status}: {count}" for status, count in each.statuses.most_common())
        calls = each.statuses.total()
        lines.append(f"| {path} | {calls} | {statuses} | {each.exchanges} | {each.most_exchanges} | {each.refused} "
                     f"| {each.silent} | {each.longest_wait_ms / 1000:.2f} | {each.longest_us / 1000:.1f} "
                     f"| {each.total_us / calls / 1000:.2f} |")
    lines += ["", "| in the server's process | first | last | peak |", "|---|---|---|---|"]
    for what in ("descriptors", "children", "threads", "resident", "private", "files", "others"):
        values = [each[what] for each in result.samples]
        lines.append(f"| {what} | {values[0]} | {values[-1]} | {max(values)} |")
    troubles = ", ".join(f"{kind} {count}" for kind, count in sorted(result.troubles.items()))
    exchanges = sum(each.exchanges for each in result.records.values())
    lines += ["", f"commands met: {troubles}",
              f"{result.calls()} calls, {exchanges} exchanges, most silent reads in an exchange {result.most_silent}, "
              f"{len(result.samples)} looks, {result.seconds:.0f} s"]
    lines += [f"FAULT: {fault}" for fault in result.faults[:20]]
    return "\n".join(lines)
