"""What the product costs: system calls of a search, and what a hundred or ten thousand calls leave in their host.

Costs are differences of counts, never times. Only the release build can say.
"""

import json
import os
from pathlib import Path

import pytest
from meters import calls_of, install, own_copy_of_json_c, private_memory
from support import AT_PORT, DEVICE, SYSFS, locked, traced
from velasim import Router

pytestmark = pytest.mark.shipped

HOST = Path(__file__).with_name("plugin_host.py").read_text(encoding="utf-8")


# Discovery

CALLS_PER_DIRECTORY = 5


def calls(r: Router, *argv: str) -> int:
    return len(traced(r, ["vela_modem", *argv], "trace=all", device=None)[1])


def fill(r: Router) -> None:
    """Files and links in each of the added directories, as real ones have."""
    for directory, _, files in os.walk(r.host_path(f"{SYSFS}/soc/extra")):
        for number in range(0 if files else 8):
            Path(directory, f"file{number}").touch()
            Path(directory, f"link{number}").symlink_to("..")


@pytest.mark.parametrize("content", [None, fill], ids=["empty", "with files and links"])
def test_a_search_costs_at_most_five_system_calls_for_each_directory(router, content):
    r = router(ubus=False)
    counts = {}
    for total in (100, 300, 900):
        r.add_directories(f"{SYSFS}/soc", total)
        if content:
            content(r)
        # Without a device on the bus exactly one search is made, through the whole tree.
        counts[total] = calls(r, "AT", "AT")
    for small, large in ((100, 300), (300, 900), (100, 900)):
        assert counts[large] - counts[small] <= CALLS_PER_DIRECTORY * (large - small)
    # Linear: the same for each, however many there are.
    assert (counts[900] - counts[300]) / 600 <= (counts[300] - counts[100]) / 200 * 1.02


@pytest.mark.parametrize("argv", [
    ["vela_modem", "no-such-command"], ["vela_modem", "AT", "AT"], ["vela_modem", "cells"],
    ["vela_modem", "sim-status"],
    ["vela_api", "post", "/modem/cells/get", '{"modem_id":3,"bus":"1-1.2"}'],
], ids=lambda argv: " ".join(argv[:3]))
def test_a_whole_run_searches_the_tree_once_however_much_it_asks(router, argv):
    r = router("ec25", ubus=False)
    counts = []
    for total in (100, 500):
        r.add_directories(f"{SYSFS}/soc", total)
        counts.append(len(traced(r, argv, "trace=all", device=None)[1]))
    assert 400 < counts[1] - counts[0] <= CALLS_PER_DIRECTORY * 400


def test_the_devices_own_directories_cost_no_more(router):
    r = router("ec25", ubus=False)
    counts = []
    for total in (100, 500):
        r.add_directories(f"{DEVICE}/power", total)
        counts.append(calls(r, "no-such-command"))
    # Walked for the list of ports and on the way to each of the three ports.
    assert counts[1] - counts[0] <= 4 * CALLS_PER_DIRECTORY * 400


# A run of the command line

MOST_CALLS, MOST_LIBRARIES = 90, 6
MOST_MEMORY = 320  # KiB, json-c's with it; less where another program has json-c loaded


@pytest.mark.parametrize("argv", [["AT", "AT+CSQ"], ["signal"]], ids=" ".join)
def test_a_question_takes_few_calls_and_libraries_little_memory_and_no_process(router, argv):
    r = router("ec25", ubus=False)
    install(r, r.build, "measure")
    own_copy_of_json_c(r)
    calls = calls_of(r, ["vela_modem", *argv])
    # What walks the bus is apart: it depends on the tree. Both parts are there, or they were not told apart.
    assert calls.walking > 100 and 50 < len(calls.names) - calls.walking <= MOST_CALLS
    assert (calls.processes, calls.programs) == (0, 0)
    assert 2 <= calls.libraries <= MOST_LIBRARIES
    assert 100 < private_memory(r, ["vela_modem", *argv]) <= MOST_MEMORY


# Inside the web server


def host(r: Router, *plan: list) -> list[list]:
    result = r.run("/usr/bin/python3", "-S", "-E", "-", json.dumps(plan), input=HOST)
    assert result.returncode == 0, result.stderr[-2000:]
    return json.loads(result.stdout)


def assert_nothing_is_left(first: dict, second: dict, times: int) -> None:
    heap = second.pop("heap") - first.pop("heap")
    resident = second.pop("resident") - first.pop("resident")
    assert second == first
    assert first["children"] == []
    # The host's own interpreter may take a little; a leak of one small object a call is far more. What is resident is
    # only known to within the kernel's batches.
    assert heap < 4 * times + 512 and resident < 1024


def request(port: str = AT_PORT, command: str = "AT+CSQ") -> dict:
    return {"at-port": port, "at-command": command}


def test_a_hundred_exchanges_leave_descriptors_children_and_memory_flat(router):
    r = router("ec25", ubus=False)
    [[first, second, status]] = host(r, ["post", "/modem/at", request(), 10, 100])
    assert status == 0 and r.modem().commands == ["AT+CSQ"] * 110
    assert_nothing_is_left(first, second, 100)


def test_exchanges_that_fail_leave_nothing_either(router):
    r = router("ec25", files={"/tmp/file": "x"}, ubus=False)
    plan = [["post", "/modem/at", body, 20, 1000] for body in (
        {}, {"at-port": 1, "at-command": []}, request("/dev/ttyUSB9"), request(""), request("/tmp"),
        request("/tmp/file"), request("/dev/null"), request("/dev/ttyUSB9", "default_band"))]
    for (first, second, status), (*_, times) in zip(host(r, *plan), plan):
        assert status in (-255, -17)
        assert_nothing_is_left(first, second, times)
    assert r.modem().commands == []


def test_setting_the_default_bands_leaves_nothing(router):
    r = router("ec25", ubus=False)
    [[first, second, status]] = host(r, ["post", "/modem/at", request(command="default_band"), 3, 20])
    assert status == 0 and len(r.modem().commands) == 46
    assert_nothing_is_left(first, second, 20)


def test_exchanges_on_a_locked_port_leave_nothing_either(router):
    r = router("ec25", ubus=False)
    with locked(r):
        [[first, second, status]] = host(r, ["post", "/modem/at", request(), 3, 20])
    assert status == -255
    assert_nothing_is_left(first, second, 20)


def test_a_modem_that_vanishes_leaves_nothing_in_the_host(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("drop", after=0, interface=2)
    # The other port first, so that what an exchange takes once and for all is taken.
    plan = [["post", "/modem/at", request("/dev/ttyUSB3"), 5, 5], ["post", "/modem/at", request(), 0, 20]]
    _, [first, second, status] = host(r, *plan)
    assert status == -255
    assert_nothing_is_left(first, second, 20)


def test_replies_that_fill_the_buffer_leave_nothing_in_the_host(router):
    r = router("nl678e", ubus=False)
    r.modem().reply("AT+CSQ", b"\xff" * 4096)
    [[first, second, status]] = host(r, ["post", "/modem/at", request(), 5, 30])
    assert status == 0
    assert_nothing_is_left(first, second, 30)


SMS = {"modem_id": 3, "msg_id": "VMS99.a", "number": "17", "message": "Hello"}
SETTINGS = {"action": "set", "country": "Suomi", "country_code": "358", "tel": "17", "email": "a@b.example",
            "account": "me@mail.example", "password": "s3cret", "smtp": "mail.example:587", "local_tel": "17"}


@pytest.mark.parametrize("method, endpoint, request_body, times", [
    ("get", "list", SMS, 500), ("post", "delete", SMS, 500), ("post", "delete_all", SMS, 20), ("post", "send", SMS, 20),
    ("post", "status", SMS, 500), ("post", "code", {}, 500), ("post", "code", SETTINGS, 100),
    ("post", "forward", SETTINGS, 100), ("get", "flist", {}, 500), ("post", "account", SETTINGS, 20),
], ids=lambda value: value if isinstance(value, str) else "")
def test_requests_for_messages_leave_nothing_in_the_host(router, method, endpoint, request_body, times):
    r = router(ubus=False, files={"/etc/forward": "", "/etc/spool/sms/storage/VMS99.b": "From: 17\n\nbody"})
    r.answer("opkg", "ssmtp - 2.64-4\n")
    [[first, second, status]] = host(r, [method, f"/modem/sms/{endpoint}", request_body, 5, times])
    assert status == (-259 if endpoint == "delete" else 0)
    assert_nothing_is_left(first, second, times)


def test_ten_thousand_requests_that_are_refused_leave_nothing_in_the_host(router):
    r = router(ubus=False)
    refused = {"list": -251, "delete": -251, "delete_all": -251, "send": -251, "status": -251, "forward": -7}
    plan = [["get" if name == "list" else "post", f"/modem/sms/{name}", {}, 50, 10000] for name in refused]
    for (first, second, status), expected, (*_, times) in zip(host(r, *plan), refused.values(), plan):
        assert status == expected
        assert_nothing_is_left(first, second, times)


def test_get_api_entity_gives_the_same_table_every_time(router):
    r = router(ubus=False)
    code = HOST.split("def look()")[0] + """
for _ in range(1000):
    count.value = 0
    again = plugin.get_api_entity(ctypes.byref(count))
    assert count.value == 23 and ctypes.addressof(again.contents) == ctypes.addressof(rows.contents)
print(rows[0].path.decode(), rows[0].method.decode(), ctypes.sizeof(ApiEntity) // ctypes.sizeof(ctypes.c_void_p))
"""
    assert r.run("/usr/bin/python3", "-S", "-E", "-c", code).stdout == "/modem/info get 3\n"
