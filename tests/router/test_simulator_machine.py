"""The simulated router around the modems: programs are recorded, files are its own, and nothing of it stays behind."""

import json
import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import pytest
from at_client import ask
from velasim import Router

SIM = Path(__file__).resolve().parents[2] / "sim"


def test_recorded_in_order(router):
    r = router("ec25")
    r.answer("iwinfo", "wlan0 ESSID\n")
    r.answer("ifup", '#!/bin/dash\necho "$0 $*"; exit 7\n', executable=True)
    result = r.run("sh", "-c", "iwinfo; mwan3 restart 'a b'; /etc/init.d/firewall reload; ifup wan")
    assert result.stdout.endswith("ifup wan\n") and result.stdout.startswith("wlan0 ESSID\n")
    assert result.returncode == 7
    assert r.programs == [["iwinfo"], ["mwan3", "restart", "a b"], ["/etc/init.d/firewall", "reload"], ["ifup", "wan"]]
    assert r.commands == ["iwinfo; mwan3 restart 'a b'; /etc/init.d/firewall reload; ifup wan"]
    assert [event["kind"] for event in r.events] == ["shell"] + ["program"] * 4
    r.clear_events()
    assert r.events == []
    r.stand_in("/usr/bin/sleep")
    r.run("sh", "-c", "sleep 1000")
    assert r.programs == [["sleep", "1000"]]


def test_any_bytes_are_recorded(router):
    r = router(ubus=False)
    r.run("sh", "-c", "--", b"true '\xff\xc3\xa4\x01\"\\\xed\xa0\x80\xf4\x90\x80\x80\n\x7f'")
    assert r.commands[0].encode("utf-8", "surrogateescape") == (
        b"true '\xff\xc3\xa4\x01\"\\\xed\xa0\x80\xf4\x90\x80\x80\n\x7f'")
    r.write("/tmp/script", "true\n")
    r.run("sh", "/tmp/script", "-c", "x")
    r.run("sh", "-ec", "exit 3")
    assert r.commands[1:] == ["exit 3"]
    r.run("mwan3", b"\xe2\x82")
    assert r.programs == [["mwan3", "\udce2\udc82"]]


def test_many_writers_one_sequence(router):
    r = router(ubus=False)
    text = "x" * 3000
    one = f"(for k in 1 2 3 4 5 6 7 8 9; do mwan3 $i $k {text}; done)"
    r.run("/bin/dash", "-c", f"for i in 1 2 3 4; do {one} & done; wait")
    assert sorted(argv[1:3] for argv in r.programs) == [[i, k] for i in "1234" for k in "123456789"]


def test_results_of_programs(router):
    r = router(ubus=False)
    result = r.run("/bin/dash", "-c", "cat; echo $V >&2; exit 3", input="in\udcff", env={"V": "v"})
    assert (result.returncode, result.stdout_bytes, result.stderr) == (3, b"in\xff", "v\n")
    assert result.stdout == "in\udcff"
    assert r.run("/bin/dash", "-c", "kill -ABRT $$").returncode == -signal.SIGABRT
    assert r.run("/nosuch").returncode == 127
    with pytest.raises(subprocess.TimeoutExpired):
        r.run("sleep", "100", timeout=0.1)
    process = r.start("sleep", "100")
    process.terminate()
    assert process.wait() == -signal.SIGTERM


def test_background_processes(router):
    r = router(ubus=False)
    assert r.run("/bin/dash", "-c", "sleep 0.2 & sleep 1000 & echo started").stdout == "started\n"
    r.wait_for(lambda: r.processes() == [["sleep", "1000"]], "the end of the short one")
    r.end_processes()
    r.wait_idle()


def test_files(router):
    r = router(board="halvor", uci={"network": "config x 'y'\n", "mwan3": None},
               files={"/tmp/sim_status": "ready\n", "/etc/forward": b"\xff"}, ubus=False)
    assert r.read("/tmp/sysinfo/board_name") == "vela,halvor\n"
    assert r.read("/etc/config/network") == "config x 'y'\n" and not r.exists("/etc/config/mwan3")
    assert r.exists("/etc/config/firewall")
    assert r.read("/tmp/sim_status") == "ready\n" and r.read("/etc/forward") == "\udcff"
    # /var/run is a link to /run: inside, not on the host.
    r.write("/var/run/one/two", "x")
    assert r.run("cat", "/run/one/two").stdout == "x" and not os.path.exists("/run/one/two")
    r.run("ln", "-s", "/var/run/one", "/tmp/link")
    assert r.read("/tmp/link/two") == "x"
    r.remove("/tmp/link")
    # A build directory below /tmp stays reachable under its own name; else /tmp starts with what was asked for only.
    assert r.exists("/run/one/two") and {*r.listdir("/tmp")} - {*r.build.parts} == {"sim_status", "sysinfo"}
    r.remove("/run/one")
    assert not r.exists("/run/one")
    r.run("/bin/dash", "-c", "echo changed > /etc/hostname; mkdir /etc/config.new")
    assert not os.path.exists("/etc/config.new")


def test_network_of_its_own(router):
    r = router(net=True, ubus=False)
    names = [line.split(":")[0].strip() for line in r.run("cat", "/proc/net/dev").stdout.splitlines()[2:]]
    assert "lo" in names and not any(name.startswith(("eth", "en")) for name in names)
    assert r.run("/usr/bin/python3", "-S", "-c", "import socket; s = socket.create_server(('127.0.0.1', 0)); "
                 "socket.create_connection(s.getsockname()); print('up')").stdout == "up\n"


def test_bus_daemon(router):
    r = router("ec25", ubus={"interfaces": {"wwan": "pending"}})
    assert json.loads(r.read("/run/sim/ubus.json")) == {"interfaces": {"wwan": "pending"}}
    r.set_ubus_state({})
    assert r.read("/run/sim/ubus.json") == "{}"
    hello = r.run("/usr/bin/python3", "-S", "-c", "import socket; s = socket.socket(socket.AF_UNIX); "
                  "s.connect('/var/run/ubus/ubus.sock'); print(s.recv(8)[:2].hex())")
    assert hello.stdout == "0000\n", hello.stderr


PLUGIN = """#!/bin/dash
case "$*" in
list) echo '{"echo":{"text":"","count":64,"flag":true,"list":[],"table":{}},"odd":{},"nothing":{},"wait":{},"go":{}}' ;;
"call echo") cat ;;
"call odd") echo 'no object' ;;
"call wait") while [ ! -e /tmp/go ]; do sleep 0.01; done; echo '{"waited":true}' ;;
"call go") : >/tmp/go; echo '{}' ;;
esac
"""


def test_programs_of_rpcd_on_the_bus(router):
    r = router()
    r.write("/usr/libexec/rpcd/thing", PLUGIN)
    r.write("/usr/libexec/rpcd/useless", "#!/bin/dash\nexit 1\n")
    for name in ("thing", "useless"):
        r.host_path(f"/usr/libexec/rpcd/{name}").chmod(0o755)
    r.start_rpcd()
    assert {"thing", "vela_modem"} == set(r.run("ubus", "list").stdout.split()) & {"thing", "useless", "vela_modem"}
    values = {"text": "gr\u00fc\u00df \U0001f4f6", "count": -(1 << 40), "flag": False, "list": [1, "a", None],
              "table": {"b": {}}}
    reply = r.run("ubus", "-S", "call", "thing", "echo", json.dumps(values))
    assert reply.returncode == 0 and json.loads(reply.stdout) == values
    # Invalid argument, no data, no such method: the statuses of a real one.
    assert [r.run("ubus", "call", "thing", method).returncode for method in ("odd", "nothing", "more")] == [2, 5, 3]
    waiting = r.start("ubus", "-S", "call", "thing", "wait")
    assert r.run("ubus", "-S", "call", "thing", "go").stdout == "{}\n"
    assert waiting.communicate()[0] == b'{"waited":true}\n'


# Life and death


def alive(pid: int) -> bool:
    try:
        stat = Path(f"/proc/{pid}/stat").read_text()
    except OSError:
        return False
    return stat.rpartition(") ")[2][0] != "Z"  # the first process of some containers buries nobody


def test_nothing_is_left(router):
    mounts = Path("/proc/self/mounts").read_text()
    r = router("ec25")
    keeper = r.pid
    background = r.start("/bin/dash", "-c", "sleep 1000 & sleep 1000")
    r.run("/bin/dash", "-c", "setsid sleep 1000 &")
    r.wait_for(lambda: r.processes().count(["sleep", "1000"]) == 3, "all to be there")
    r.close()
    assert not alive(keeper) and background.returncode == -signal.SIGKILL
    assert Path("/proc/self/mounts").read_text() == mounts


def test_nothing_is_left_when_the_test_dies():
    code = """
import sys, time
sys.path.insert(0, sys.argv[1])
from velasim import Router, nursery
r = Router("ec25")
r.start("sleep", "1000")
r.run("/bin/dash", "-c", "setsid sleep 1000 &")
print(r.pid, nursery.nursery().pid, flush=True)
time.sleep(1000)
"""
    victim = subprocess.Popen([sys.executable, "-c", code, str(SIM)], stdout=subprocess.PIPE, text=True)
    pids = [int(word) for word in victim.stdout.readline().split()]
    inside = os.stat(f"/proc/{pids[0]}/ns/mnt").st_ino
    victim.kill()
    victim.communicate()

    def same_namespace() -> list[str]:
        found = []
        for name in filter(str.isdigit, os.listdir("/proc")):
            try:
                if os.stat(f"/proc/{name}/ns/mnt").st_ino == inside:
                    found.append(name)
            except OSError:
                pass
        return found

    end = time.monotonic() + 20
    while (any(map(alive, pids)) or same_namespace()) and time.monotonic() < end:
        time.sleep(0.01)
    assert not any(map(alive, pids)) and same_namespace() == []


def test_routers_do_not_see_each_other(router):
    first, second = router("ec25"), router("ep06")
    assert "EC25" in ask(first, "ATI") and "EP06" in ask(second, "ATI")
    first.write("/tmp/mark", "x")
    assert not second.exists("/tmp/mark")
    sleeper = first.start("sleep", "1000")
    assert "sleep" not in second.run("ps", "-e").stdout
    sleeper.kill()
    assert first.modem().commands == ["ATI"] and second.modem().commands == ["ATI"]


def test_errors_are_told():
    with pytest.raises(Exception, match="no modem 'ec26'"):
        Router("ec26")
    with pytest.raises(Exception, match="build first"):
        Router("ec25", build="/nonexistent")


def test_command_line():
    program = [sys.executable, str(SIM / "router")]
    result = subprocess.run([*program, "--modem", "1-1.2=ec25", "--log", "--", "sh", "-c", "mwan3 status; exit 5"],
                            capture_output=True, text=True)
    assert result.returncode == 5
    assert [json.loads(line)["kind"] for line in result.stderr.splitlines()] == ["shell", "program"]
    shell = subprocess.run([*program, "--modem", "1-1.2=ec25"], input="ls /dev/ttyUSB2\nexit 4\n", capture_output=True,
                           text=True)
    assert shell.returncode == 4 and "/dev/ttyUSB2\n" in shell.stdout and "ec25 on bus 1-1.2" in shell.stdout
    call = subprocess.run([*program, "--", "ubus", "-S", "call", "vela_modem", "sms_list", '{"modem_id":3}'],
                          capture_output=True, text=True)
    assert call.stdout == '{"messages":[],"code":0}\n'
    assert subprocess.run([*program, "--modem", "1-1.2=x"], capture_output=True).returncode == 1
