"""The link of an interface as the network daemon reports it over the bus, and what its network device counts."""

import re
from syslog import LOG_DEBUG
from typing import Iterator

import pytest
from probe_client import parse, probe, run_probe
from support import ABORTED, TRACE, TRACED, system_log, tracer
from velasim import Router

UP, PENDING, DOWN = 0, 1, 2
NAME = "wan"
OBJECT = f"network.interface.{NAME}"
ADDRESS = {"ipv4-address": [{"address": "10.1.2.3", "mask": 24}, {"address": "10.4.5.6", "mask": 24}]}
READERS = ["link", "passthrough-link"]
PASSTHROUGH = {"velaconfig": "config passthrough 'passthrough'\n\toption enable '1'\n"}
PERMISSION_DENIED, TIMEOUT = 6, 7


@pytest.fixture(scope="module")
def bus() -> Iterator[Router]:
    with Router() as r:
        yield r


def interfaces(**states: object) -> dict:
    return {"interfaces": states}


def reports(**members: object) -> dict:
    """The interface's object answers with just these members."""
    return {"replies": {OBJECT: {"status": members}}}


def calls(r: Router) -> list[tuple[str, str]]:
    return [(event["object"], event["method"]) for event in r.events if event["kind"] == "ubus"]


def all_states(r: Router) -> list[int]:
    return [probe(r, "iface", NAME, "5")[0], *(probe(r, reader, NAME)[0] for reader in READERS)]


# What an interface may be


@pytest.mark.parametrize("state, result, up", [
    ("up", UP, "on"), ("pending", PENDING, "connecting"), ("down", DOWN, "off"),
])
def test_the_states(bus, state, result, up):
    bus.set_ubus_state(interfaces(wan={"state": state, **ADDRESS}))
    bus.clear_events()
    assert probe(bus, "iface", NAME, "100") == (result, {})
    assert probe(bus, "link", NAME) == (result, {"up": up})
    assert calls(bus) == [(OBJECT, "status")] * 2
    assert [event["args"] for event in bus.events] == [{}, {}]
    result_, reply = probe(bus, "passthrough-link", NAME)
    assert (result_, reply["up"]) == (result, up)


def test_an_interface_that_is_not_on_the_bus(bus):
    bus.set_ubus_state(interfaces(wan="unknown", wwan="up"))
    bus.clear_events()
    for name in (NAME, "w", "wwa", "wwan_4", "", "%s%n", "wan up", "\xff"):
        assert probe(bus, "iface", name, "5") == (DOWN, {})
        assert probe(bus, "link", name) == (DOWN, {})
        assert probe(bus, "passthrough-link", name) == (DOWN, {})
    assert calls(bus) == []


def test_pending_wins(bus):
    bus.set_ubus_state(reports(up=True, pending=True, l3_device="lo", **ADDRESS))
    assert probe(bus, "iface", NAME, "5")[0] == PENDING
    assert probe(bus, "link", NAME) == (PENDING, {"up": "connecting"})


def test_pending_is_reported_alone_with_passthrough_too(bus):
    bus.set_ubus_state(reports(up=True, pending=True, l3_device="lo"))
    result, reply = probe(bus, "passthrough-link", NAME)
    assert reply == {"up": "connecting"} and result == PENDING


@pytest.mark.parametrize("members, result", [
    ({"up": True}, UP), ({"up": False}, DOWN), ({}, DOWN), ({"pending": False}, DOWN), ({"pending": True}, PENDING),
    ({"UP": True}, DOWN), ({"up": True, "pending": False}, UP), ({"up": None}, DOWN),
    ({"up": True, "pending": None}, UP),
], ids=str)
def test_members_that_are_missing(bus, members, result):
    bus.set_ubus_state(reports(**members))
    assert probe(bus, "iface", NAME, "5")[0] == result
    assert probe(bus, "link", NAME)[0] == result


@pytest.mark.parametrize("value", [0, 1, -1, 2**40, "", "true", "false", "no", [], [True], {}, {"up": True}], ids=str)
@pytest.mark.parametrize("member", ["up", "pending"])
def test_members_of_another_type_do_no_harm(bus, member, value):
    bus.set_ubus_state(reports(**{"up": True, "pending": False, **ADDRESS, member: value}))
    states = all_states(bus)
    assert set(states) <= {UP, PENDING, DOWN} and len(set(states)) == 1


@pytest.mark.parametrize("value", [
    None, True, 0, 5, [], ["lo"], {}, {"name": "lo"}, "", "nix", "x" * 5000, "lo\0", "\xff",
], ids=lambda value: repr(value)[:20])
def test_a_device_that_is_none_does_no_harm(bus, value):
    bus.set_ubus_state(reports(up=True, l3_device=value, **ADDRESS))
    result, reply = probe(bus, "link", NAME)
    assert result == UP and (reply == {"up": "on"} or value == "lo\0")


def test_a_long_reply(bus):
    members = {f"member{number}": ["x" * 100] * 50 for number in range(50)}
    bus.set_ubus_state(reports(**members, up=True, **ADDRESS))
    assert all_states(bus) == [UP] * 3


# Names


def test_a_name_of_45_characters_is_queried_and_one_of_46_is_not(bus):
    bus.set_ubus_state({"interfaces": {"a" * length: {"state": "up", **ADDRESS} for length in (44, 45, 46, 47)}})
    bus.clear_events()
    for reader in (["iface"], ["link"], ["passthrough-link"]):
        seconds = ["5"] if reader == ["iface"] else []
        assert probe(bus, *reader, "a" * 45, *seconds)[0] == UP
        assert probe(bus, *reader, "a" * 46, *seconds) == (DOWN, {})
        assert probe(bus, *reader, "a" * 47, *seconds) == (DOWN, {})
        assert probe(bus, *reader, "a" * 100000, *seconds) == (DOWN, {})
    assert calls(bus) == [(f"network.interface.{'a' * 45}", "status")] * 3


def test_a_name_that_is_too_long_does_not_even_reach_for_the_bus(router):
    r = router()
    argv = [str(r.build / "tests/router/probe"), "iface", "b" * 46, "5"]
    result = r.run(*tracer("trace=connect", device=None), *argv, env=TRACED)
    assert parse(result) == (DOWN, {}) and r.read("/tmp/trace") == ""


# The bus itself


def test_without_a_daemon(router):
    r = router(ubus=False)
    assert all_states(r) == [DOWN] * 3
    assert probe(r, "link", NAME) == (DOWN, {})
    assert probe(r, "reload", "5") == (-1, {})
    r.write("/run/ubus/ubus.sock", "")  # a file, no socket
    assert all_states(r) == [DOWN] * 3 and probe(r, "reload", "5")[0] == -1


def test_reload(bus):
    bus.set_ubus_state({})
    bus.clear_events()
    assert probe(bus, "reload", "100") == (0, {})
    assert bus.events == [{"kind": "ubus", "object": "network", "method": "reload", "args": {}}]


def test_reload_that_fails_returns_the_code_of_the_bus(bus):
    bus.set_ubus_state({"faults": {"network": {"reload": {"status": PERMISSION_DENIED}}}})
    assert probe(bus, "reload", "5")[0] == PERMISSION_DENIED
    bus.set_ubus_state({"faults": {"network": {"<lookup>": {"status": 4}}}})
    assert probe(bus, "reload", "5")[0] == 4
    bus.set_ubus_state({"greeting": "die"})
    assert probe(bus, "reload", "5")[0] == -1


@pytest.mark.parametrize("faults, line", [
    ({}, None),
    ({"<lookup>": {"status": 4}}, "lookup network.interface failed\n"),
    ({"reload": {"status": PERMISSION_DENIED}}, "meth network.interface failed\n"),
], ids=["done", "lookup", "reload"])
def test_reload_that_fails_is_logged_and_leaves_its_connection_open(bus, faults, line):
    bus.set_ubus_state({"faults": {"network": faults}})
    argv = [str(bus.build / "tests/router/probe"), "reload", "5"]
    with system_log(bus) as messages:
        result = bus.run(*tracer("trace=connect,close", device=None), *argv, env=TRACED)
    assert parse(result)[0] == next((fault["status"] for fault in faults.values()), 0)
    assert messages() == ([(LOG_DEBUG, line)] if line else [])
    # What follows the connection's own line in the trace.
    socket, trace = re.search(r'connect\((\d+), [^\n]*ubus\.sock"(.*)', bus.read(TRACE), re.DOTALL).groups()
    assert (f"close({socket})" in trace) == (line is None)


@pytest.mark.parametrize("method", ["<lookup>", "status"])
@pytest.mark.parametrize("fault", ["die", {"status": PERMISSION_DENIED}, {"status": 0}], ids=str)
def test_a_daemon_that_refuses_or_dies_in_the_middle(bus, method, fault):
    bus.set_ubus_state({**interfaces(wan={"state": "up", **ADDRESS}), "faults": {OBJECT: {method: fault}}})
    assert all_states(bus) == [DOWN] * 3
    bus.set_ubus_state(interfaces(wan={"state": "up", **ADDRESS}))
    assert all_states(bus) == [UP] * 3


def test_a_daemon_that_dies_at_once(bus):
    bus.set_ubus_state({**interfaces(wan="up"), "greeting": "die"})
    assert all_states(bus) == [DOWN] * 3


def test_a_reply_without_a_body(bus):
    bus.set_ubus_state({"replies": {OBJECT: {"status": None}}})
    assert all_states(bus) == [DOWN] * 3
    bus.set_ubus_state({"replies": {OBJECT: {"other": {"up": True}}}})  # no such method
    assert all_states(bus) == [DOWN] * 3


@pytest.mark.parametrize("fault", [{"delay": 0.3}, {"dribble": 0.001}], ids=str)
def test_a_slow_daemon_is_waited_for(bus, fault):
    bus.set_ubus_state({**interfaces(wan={"state": "up", **ADDRESS}),
                        "faults": {OBJECT: {"status": fault}, "network": {"reload": fault}}})
    assert all_states(bus) == [UP] * 3
    assert probe(bus, "reload", "5")[0] == 0


@pytest.mark.parametrize("fault", ["silent", "flood", {"raw": "00ff"}, {"raw": "ff" * 64}, {"raw": "00" * 8192}],
                         ids=lambda fault: str(fault)[:20])
def test_a_daemon_that_never_answers_is_given_up(bus, fault):
    bus.set_ubus_state({**interfaces(wan="up"), "faults": {OBJECT: {"status": fault}, "network": {"reload": fault}}})
    assert probe(bus, "iface", NAME, "1") == (DOWN, {})
    assert probe(bus, "reload", "1")[0] > 0


def test_the_readers_wait_as_long_as_they_are_told(bus):
    bus.set_ubus_state({**interfaces(wan="up"), "faults": {OBJECT: {"status": "silent"}}})
    runs = [bus.start(str(bus.build / "tests/router/probe"), reader, NAME) for reader in READERS]
    for run in runs:
        assert run.communicate(timeout=60)[0] == b"{\n}\nresult 2\n"
    bus.set_ubus_state({"faults": {"network": {"reload": "silent"}}})
    assert probe(bus, "reload", "1")[0] == TIMEOUT


# The address with passthrough


def test_with_passthrough_the_first_address_of_the_interface(bus):
    bus.set_ubus_state(interfaces(wan={"state": "up", **ADDRESS}, wan_4={"state": "up", **ADDRESS}))
    bus.clear_events()
    assert probe(bus, "passthrough-link", NAME) == (UP, {"up": "on", "ip_addr": "10.1.2.3"})
    assert calls(bus) == [(OBJECT, "status")]
    bus.set_ubus_state(interfaces(wan={"state": "down", **ADDRESS}))
    assert probe(bus, "passthrough-link", NAME) == (DOWN, {"up": "off", "ip_addr": "10.1.2.3"})


@pytest.mark.parametrize("own", [{}, {"ipv4-address": []}], ids=str)
def test_with_passthrough_the_companion_is_asked_when_there_is_none(bus, own):
    companion = {"ipv4-address": [{"address": "10.9.9.9"}, {"address": "10.8.8.8"}]}
    for state in ("up", "down", "pending"):
        bus.set_ubus_state(interfaces(wan={"state": "up", **own}, wan_4={"state": state, **companion}))
        bus.clear_events()
        assert probe(bus, "passthrough-link", NAME) == (UP, {"up": "on", "ip_addr": "10.9.9.9"})
        assert calls(bus) == [(OBJECT, "status"), (f"{OBJECT}_4", "status")]


def test_a_bus_that_is_gone_when_the_companion_is_to_be_asked_changes_nothing(bus):
    bus.set_ubus_state(interfaces(wan="up", wan_4={"state": "up", **ADDRESS}))
    bus.clear_events()
    argv = [str(bus.build / "tests/router/probe"), "passthrough-link", NAME]
    options = tracer("trace=connect", "inject=connect:error=ECONNREFUSED:when=2", device=None)
    assert parse(bus.run(*options, *argv, env=TRACED)) == (UP, {"up": "on"})
    assert calls(bus) == [(OBJECT, "status")]


def test_a_companion_without_an_address_changes_nothing(bus):
    for companion in ("up", {"state": "up", "ipv4-address": []}):
        bus.set_ubus_state(interfaces(wan="up", wan_4=companion))
        assert probe(bus, "passthrough-link", NAME) == (UP, {"up": "on"})


def test_a_companion_that_does_not_answer_makes_it_down(bus):
    bus.set_ubus_state(interfaces(wan="up"))
    assert probe(bus, "passthrough-link", NAME) == (DOWN, {"up": "on"})
    for fault in ("die", {"status": PERMISSION_DENIED}):
        bus.set_ubus_state({**interfaces(wan="up", wan_4="up"), "faults": {f"{OBJECT}_4": {"status": fault}}})
        assert probe(bus, "passthrough-link", NAME) == (DOWN, {"up": "on"})


@pytest.mark.parametrize("value", [
    None, True, 1, "10.1.2.3", {}, {"0": {"address": "1.2.3.4"}}, [None], [1], ["10.1.2.3"], [[]], [{}],
    [{"address": None}], [{"address": 5}], [{"address": []}], [{"mask": 24}],
], ids=str)
@pytest.mark.parametrize("of", ["wan", "wan_4"])
def test_addresses_of_another_type_do_no_harm(bus, of, value):
    bus.set_ubus_state(interfaces(**{"wan": "up", "wan_4": "up", of: {"state": "up", "ipv4-address": value}}))
    bus.clear_events()
    result, reply = probe(bus, "passthrough-link", NAME)
    assert result == UP and list(reply)[0] == "up" and set(reply) <= {"up", "ip_addr"}
    # An entry without an address is one.
    has_entry = of == "wan" and isinstance(value, list)
    assert ((f"{OBJECT}_4", "status") in calls(bus)) == (not has_entry)


def test_a_companions_name_that_is_too_long(bus):
    # "network.interface." + 43 characters + "_4" is the longest that the name's buffer holds.
    bus.set_ubus_state({"interfaces": {"a" * length: "up" for length in (43, 44, 45)}
                        | {"a" * length + "_4": {"state": "up", **ADDRESS} for length in (43, 44, 45)}})
    assert probe(bus, "passthrough-link", "a" * 43) == (UP, {"up": "on", "ip_addr": "10.1.2.3"})
    for length in (44, 45):
        result = run_probe(bus, "passthrough-link", "a" * length)
        assert result.returncode == ABORTED or parse(result) == (DOWN, {"up": "on"})


# The network device

SEND = """
import socket, sys
device, size, count = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
sender = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
sender.bind((device, 0))
for _ in range(count):
    sender.send(b"\\xff" * 12 + b"\\x88\\xb5" + bytes(size - 14))
"""
# Holds the tun device open and lets it receive one packet; ends with its standard input.
TUN = """
import fcntl, os, struct, sys
tun = os.open("/dev/net/tun", os.O_RDWR)
fcntl.ioctl(tun, 0x400454CA, struct.pack("16sH", b"tun0", 0x1001))
os.write(tun, b"\\x45" + bytes(99))
print("ready", flush=True)
sys.stdin.read()
"""


def shell(r: Router, *lines: str) -> None:
    for line in lines:
        result = r.run("/bin/dash", "-c", line)
        assert result.returncode == 0, f"{line}: {result.stderr}"


def add_pair(r: Router) -> None:
    """veth0, with an address and nothing but what a test sends to its other end, veth1."""
    # Without addresses of their own kind the ends stay silent.
    shell(r, "ip link add veth0 mtu 65535 type veth peer name veth1 mtu 65535",
          *(f"ip link set {end} addrgenmode none up" for end in ("veth0", "veth1")),
          "ip addr add 10.8.0.2/24 dev veth0")


def send(r: Router, device: str, size: int, count: int) -> None:
    result = r.run("/usr/bin/python3", "-S", "-E", "-c", SEND, device, str(size), str(count))
    assert (result.returncode, result.stderr) == (0, "")


def counters(r: Router, device: str) -> tuple[int, int]:
    line = re.search(rf"^ *{device}:(.*)$", r.run("cat", "/proc/net/dev").stdout, re.MULTILINE)
    fields = line[1].split()
    return int(fields[0]), int(fields[8])


def test_a_device_with_real_counters(router):
    r = router(net=True, ubus=False)
    add_pair(r)
    assert probe(r, "device", "veth0") == (
        0, {"download": 0.0, "upload": 0.0, "ip_addr": "10.8.0.2", "gateway": ""})
    send(r, "veth1", 1000, 7)
    send(r, "veth0", 500, 3)
    shell(r, "ip route add default via 10.8.0.1 dev veth0")
    result = run_probe(r, "device", "veth0")
    assert parse(result) == (
        0, {"download": 7000.0, "upload": 1500.0, "ip_addr": "10.8.0.2", "gateway": "10.8.0.1"})
    assert '"download":7000.0' in result.stdout  # a floating number
    assert probe(r, "device", "veth1") == (0, {"download": 1500.0, "upload": 7000.0})
    assert r.events == []


def test_a_counter_beyond_31_bits(router):
    r = router(net=True, ubus=False)
    add_pair(r)
    send(r, "veth1", 65000, 33100)
    received, _ = counters(r, "veth0")
    if received < 2**31:  # frames may be dropped on a busy machine
        send(r, "veth1", 65000, 33100)
        received, _ = counters(r, "veth0")
    assert received > 2**31
    assert probe(r, "device", "veth0")[1]["download"] == float(received % 2**32)


def test_the_gateway_is_that_of_the_device(router):
    r = router(net=True, ubus=False)
    add_pair(r)
    shell(r, "ip addr add 10.7.0.2/24 dev veth1", "ip route add default via 10.7.0.1 dev veth1",
          "ip route add 10.66.0.0/16 via 10.8.0.9 dev veth0")
    assert probe(r, "device", "veth0")[1]["gateway"] == ""
    assert probe(r, "device", "veth1")[1]["gateway"] == "10.7.0.1"
    shell(r, "ip route add default via 10.8.0.1 dev veth0 metric 50")
    assert probe(r, "device", "veth0")[1]["gateway"] == "10.8.0.1"


def test_a_device_without_an_address_and_one_that_is_down(router):
    r = router(net=True, ubus=False)
    shell(r, "ip link add veth0 type veth peer name veth1")
    for device in ("veth0", "veth1"):
        assert probe(r, "device", device) == (0, {"download": 0.0, "upload": 0.0})


@pytest.mark.parametrize("device", [
    "nix", "", "vet", "veth00", "veth", "x" * 15, "x" * 16, "x" * 100000, "%s%n", "\xff",
], ids=lambda device: repr(device[:16]))
def test_a_device_that_is_not_there(router, device):
    r = router(net=True, ubus=False)
    add_pair(r)
    assert probe(r, "device", device) == (0, {})


def test_a_device_that_the_kernel_cannot_be_asked_about(router):
    r = router(net=True, ubus=False)
    add_pair(r)
    argv = [str(r.build / "tests/router/probe"), "device", "veth0"]
    assert parse(r.run(*tracer("inject=socket:error=EMFILE", device=None), *argv, env=TRACED)) == (-1, {})


def test_ipv6_is_passed_over(router):
    r = router(net=True, ubus=False)
    shell(r, "ip link add veth0 type veth peer name veth1", "ip addr add fd00::1/64 dev veth0",
          "ip route add default via 10.0.0.1 dev lo || true")
    assert list(probe(r, "device", "veth0")[1]) == ["download", "upload"]


def test_with_passthrough_the_device_tells_no_address(router):
    for uci, keys in ((PASSTHROUGH, ["download", "upload", "gateway"]),
                      ({"velaconfig": PASSTHROUGH["velaconfig"].replace("'1'", "'11'")},
                       ["download", "upload", "ip_addr", "gateway"])):
        r = router(net=True, ubus=False, uci=uci)
        add_pair(r)
        assert list(probe(r, "device", "veth0")[1]) == keys


def test_an_interface_with_its_device(router):
    r = router(net=True, ubus=interfaces(wan={"state": "up", "l3_device": "veth0", **ADDRESS}))
    add_pair(r)
    send(r, "veth1", 100, 3)
    device = {"download": 300.0, "upload": 0.0, "ip_addr": "10.8.0.2", "gateway": ""}
    assert probe(r, "link", NAME) == (UP, {"up": "on", **device})
    assert probe(r, "passthrough-link", NAME) == (UP, {"up": "on", **device, "ip_addr": "10.1.2.3"})
    r.set_ubus_state(interfaces(wan={"state": "down", "l3_device": "veth0"}))
    assert probe(r, "link", NAME) == (DOWN, {"up": "off", **device})  # also when it is down
    r.set_ubus_state(interfaces(wan={"state": "pending", "l3_device": "veth0"}))
    assert probe(r, "link", NAME) == (PENDING, {"up": "connecting"})
    r.set_ubus_state(interfaces(wan={"state": "up", "device": "veth0"}))
    assert probe(r, "link", NAME) == (UP, {"up": "on"})


@pytest.fixture
def tunnel(router) -> Router:
    """tun0 is point-to-point, but no PPP device, and has received 100 bytes."""
    r = router(net=True, ubus=False)
    shell(r, "mkdir -p /dev/net; mknod /dev/net/tun c 10 200", "ip tuntap add dev tun0 mode tun",
          "ip link set tun0 addrgenmode none up", "ip addr add 10.6.0.2 peer 10.6.0.1 dev tun0")
    holder = r.start("/usr/bin/python3", "-S", "-E", "-c", TUN, stdin=-1)
    line = holder.stdout.readline()
    assert line == b"ready\n", holder.stderr.read()
    r.wait_for(lambda: counters(r, "tun0") == (100, 0), "the packet")
    return r


def test_a_point_to_point_device_without_ppp_statistics_reports_texts(tunnel):
    assert probe(tunnel, "device", "tun0") == (
        0, {"ip_addr": "10.6.0.2", "gateway": "", "download": "100", "upload": "0"})
    shell(tunnel, "ip route add default via 10.6.0.1 dev tun0")
    assert probe(tunnel, "device", "tun0")[1]["gateway"] == "10.6.0.1"


def test_without_the_file_of_the_counters_they_are_left_out(tunnel):
    argv = [str(tunnel.build / "tests/router/probe"), "device", "tun0"]
    options = tracer("inject=openat,open:error=ENOENT", device="/proc/net/dev")
    result = tunnel.run(*options, *argv, env=TRACED)
    assert parse(result) == (0, {"ip_addr": "10.6.0.2", "gateway": ""})


def test_ppp_statistics_are_numbers(tunnel):
    argv = [str(tunnel.build / "tests/router/probe"), "device", "tun0"]
    result = tunnel.run(*tracer("trace=ioctl", "inject=ioctl:retval=0", device=None), *argv, env=TRACED)
    assert '"download":0.0' in result.stdout and '"upload":0.0' in result.stdout
    # SIOCGPPPSTATS is a private request, which is how strace names it.
    assert len(re.findall(r"^ioctl\(\d+, SIOCDEVPRIVATE, ", tunnel.read("/tmp/trace"), re.MULTILINE)) == 1
