"""The endpoints as methods of the ubus object vela_modem: rpcd's protocol for programs, through the bus and by hand."""

import json
import re
from pathlib import Path
from typing import Iterator

import pytest
from fault_runs import REPORT, sampled
from test_endpoints import ENDPOINTS, command
from velasim import Router
from velasim.router import Result

SOURCE = Path(__file__).resolve().parents[2]
PROGRAM = "/usr/libexec/rpcd/vela_modem"
MESSAGE = "VMS99.a"
EC25 = {"bus": "1-1.2", "modem_id": 3}
PASSWORD = "kept-from-readers"
# Each method with arguments that reach the handler's work, and its code: nothing of the router is missing but what the
# last ones say.
READING = {
    "info": ({}, 0),
    "brief_info": ({}, 0),
    "app_brief_info": ({}, 0),
    "sms_list": (EC25, 0),
    "cells_get": (EC25, 0),
    "modem_info_get": (EC25, 0),
    "upgrade_status": ({}, -1),
}
WRITING = {
    "auto": (EC25, 0),
    "set": ({**EC25, "device": "/dev/cdc-wdm0", "apn": "internet", "password": PASSWORD, "ttl": 64}, 0),
    "get": ({"bus": "1-1.2"}, 0),
    "enable": ({"bus": "1-1.2", "disable": True}, 0),
    "reset": (EC25, 0),
    "at": (command("AT+CSQ"), 0),
    "sms_status": ({"modem_id": 3, "msg_id": MESSAGE}, 0),
    "sms_delete": ({"modem_id": 3, "msg_id": MESSAGE}, 0),
    "sms_delete_all": ({"modem_id": 3}, 0),
    "sms_send": ({"modem_id": 3, "number": "4917000000", "message": "gr\u00fc\u00df Gott"}, 0),
    "sms_code": ({"action": "set", "country": "Austria", "country_code": "43"}, 0),
    "sms_forward": ({"tel": "4917000000"}, 0),
    "sms_flist": ({}, 0),
    "sim_switch": ({**EC25, "sim_num": "2"}, 0),
    "sms_account": ({"account": "a@mail.example"}, -17),
    "upgrade": ({"modem_url": "http://192.0.2.1/"}, -5),
}
ACL = json.loads((SOURCE / "openwrt/vela-modem/files/vela_modem.json").read_text(encoding="utf-8"))["vela_modem"]


def method_of(path: str) -> str:
    return path.removeprefix("/modem/").replace("/", "_")


METHODS = {method_of(path): (method, path) for method, path in ENDPOINTS}
FILES = {
    f"/etc/spool/sms/incoming/{MESSAGE}": "From: 491700000001\n\nhello\n",
    "/etc/forward": "",
    "/etc/ssmtp/ssmtp.conf": f"AuthPass={PASSWORD}\n",
}


@pytest.fixture(scope="module")
def ec25() -> Iterator[Router]:
    with Router("ec25", quick=True, files=FILES) as r:
        r.start_rpcd()
        yield r


def call(r: Router, method: str, arguments: dict) -> dict:
    """Calls a method of the object over the bus."""
    result = r.run("ubus", "-S", "call", "vela_modem", method, json.dumps(arguments))
    assert (result.returncode, result.stderr) == (0, ""), result.stdout
    return json.loads(result.stdout)


def answer(r: Router, method: str, text: str | bytes) -> dict:
    """What the program answers to rpcd: one object on one line, whatever it was given."""
    result = r.run(PROGRAM, "call", method, input=text)
    assert result.returncode == 0 and result.stdout.count("\n") == 1 and result.stdout.endswith("}\n")
    reply = json.loads(result.stdout)
    assert type(reply["code"]) is int
    return reply


def everything(r: Router) -> dict[str, bytes]:
    """What a router keeps: its configuration, the spool, the page and the mail program's files."""
    files = {}
    for top in ("/etc/config", "/etc/spool", "/etc/ssmtp", "/etc/forward", "/usr/share/modem", "/www"):
        root = r.host_path(top)
        for path in [root, *sorted(root.rglob("*"))]:
            files[str(path)] = path.read_bytes() if path.is_file() else b""
    return files


def test_the_program_lists_a_method_for_each_endpoint_with_the_types_of_its_arguments(ec25):
    result = ec25.run(PROGRAM, "list")
    assert (result.returncode, result.stderr) == (0, "")
    listed = json.loads(result.stdout)
    assert list(listed) == list(METHODS) and len(METHODS) == 23
    assert listed["info"] == {}
    assert listed["cells_get"] == {"bus": "", "modem_id": 32}
    assert listed["enable"] == {"bus": "", "disable": False}
    assert ec25.run("vela_api", "rpcd", "list").stdout == result.stdout


@pytest.mark.parametrize("method, arguments", [(name, case[0]) for name, case in {**READING, **WRITING}.items()])
def test_what_a_method_is_called_with_is_listed_with_its_type(ec25, method, arguments):
    listed = json.loads(ec25.run(PROGRAM, "list").stdout)[method]
    for name in listed.keys() & arguments.keys():
        assert isinstance(arguments[name], type(listed[name]))
    # All models share one spool: those who list it may name a bus, which nobody reads.
    assert arguments.keys() - listed.keys() <= ({"bus"} if method == "sms_list" else set())


def test_every_listed_argument_is_documented_with_its_endpoint(ec25):
    text = (SOURCE / "docs/endpoints.md").read_text(encoding="utf-8")
    sections = {path: section for section in re.split(r"^## ", text, flags=re.MULTILINE)
                for path in re.findall(r"/modem/[\w/]+", section.partition("\n")[0])}
    for method, arguments in json.loads(ec25.run(PROGRAM, "list").stdout).items():
        missing = [name for name in arguments if f'"{name}"' not in sections[METHODS[method][1]]]
        assert missing == [], method


def test_every_endpoint_is_called_by_its_method_over_the_bus(router):
    r = router("ec25", quick=True, files=FILES)
    r.start_rpcd()
    codes = {}
    for method, (arguments, _) in {**READING, **WRITING}.items():
        codes[method] = call(r, method, arguments)["code"]
        r.wait_idle()
    assert codes == {method: code for method, (_, code) in {**READING, **WRITING}.items()}
    assert codes.keys() == METHODS.keys()


@pytest.mark.parametrize("method", READING)
def test_a_reply_is_the_handlers_with_the_status_as_its_code(ec25, method):
    arguments, code = READING[method]
    ec25.api(*METHODS["info"])  # what is kept between two calls is there then
    status, reply = ec25.api(*METHODS[method], arguments)
    assert call(ec25, method, arguments) == {**reply, "code": status}
    assert status == code


# Who may call what


def test_each_method_is_in_exactly_one_of_the_two_roles():
    read, write = (ACL[role]["ubus"]["vela_modem"] for role in ("read", "write"))
    assert sorted(read + write) == sorted(METHODS)
    assert set(ACL) == {"description", "read", "write"}
    assert set(ACL["read"]) == set(ACL["write"]) == {"ubus"}
    assert set(ACL["write"]["ubus"]) == {"vela_modem"}


def test_who_may_look_may_also_sign_out():
    # A session is the web server's to name, so it ends no other one.
    assert set(ACL["read"]["ubus"]) == {"session", "vela_modem"}
    assert ACL["read"]["ubus"]["session"] == ["destroy"]


def test_what_a_status_page_may_read_is_what_these_tests_take_for_reading():
    assert set(ACL["read"]["ubus"]["vela_modem"]) == set(READING)


@pytest.mark.parametrize("method", ACL["read"]["ubus"]["vela_modem"])
def test_a_reading_method_changes_nothing_and_tells_no_password(ec25, method):
    call(ec25, "info", {})
    ec25.clear_events()
    before = everything(ec25)
    reply = call(ec25, method, READING[method][0])
    assert everything(ec25) == before
    assert PASSWORD not in json.dumps(reply)
    assert ec25.programs == []
    sent = [event["command"] for event in ec25.events if event["kind"] == "at"]
    assert all(re.fullmatch(r'AT(I|\+\w+(\?|="[a-z]+")?)?', text, re.IGNORECASE) for text in sent), sent


def test_the_methods_that_tell_a_password_are_for_those_who_may_write(router):
    r = router("ec25", ubus=False, quick=True, files=FILES, uci={
        "network": f"config interface 'modem_1_1_2'\n\toption password '{PASSWORD}'\n"})
    telling = {method for method in ("get", *READING, "sms_flist")
               if PASSWORD in r.run(PROGRAM, "call", method, input=json.dumps(EC25)).stdout}
    assert telling == {"get", "sms_flist"} <= set(ACL["write"]["ubus"]["vela_modem"])


# Input that is none


@pytest.mark.parametrize("text", [
    "", "nix", "[]", "3", "null", '"text"', '{"modem_id":3', '{"modem_id":3} more', "{" * 1000, "\0", "{}\0{}",
    b"\xff\xfe{}", '{"a":"' + "x" * 70000 + '"}', " " * 65536,
], ids=lambda text: repr(text[:12]))
def test_arguments_that_are_no_object_have_a_code_and_say_why(ec25, text):
    reply = answer(ec25, "sms_code", text)
    assert reply == {"msg": reply["msg"], "code": -251} and reply["msg"].startswith("the arguments are ")


@pytest.mark.parametrize("method", ["nix", "", "/modem/info", "sms/list", "INFO", "info ", "%s%n", "x" * 10000])
def test_a_method_that_there_is_not_has_a_code(ec25, method):
    assert answer(ec25, method, "{}") == {"msg": "no such method", "code": -17}


def test_a_text_that_ends_the_handlers_process_has_a_code(ec25):
    ec25.clear_events()
    assert answer(ec25, "at", json.dumps(command("A" * 257))) == {"msg": "a text is too long", "code": -17}
    assert ec25.events == []


def test_without_the_plug_in_there_is_a_code_and_no_list(ec25):
    result = ec25.run("vela_api", "--plugin", "/nonexistent.so", "rpcd", "call", "info", input="{}")
    assert (result.returncode, json.loads(result.stdout)) == (0, {"msg": "the plug-in cannot be loaded", "code": -17})
    result = ec25.run("vela_api", "--plugin", "/nonexistent.so", "rpcd", "list")
    assert (result.returncode, result.stdout) == (2, "")


@pytest.mark.shipped
def test_short_of_memory_a_call_has_a_code_and_a_list_has_methods_or_is_none(ec25):
    def run(number: int, *words: str) -> tuple[Result, int]:
        environment = {"LD_PRELOAD": str(ec25.build / "tests/router/faults/short_memory.so"),
                       "FAULTS_MEMORY": f"{number} on {REPORT}"}
        result = ec25.run("vela_api", "rpcd", *words, env=environment, input="{}")
        return result, int(ec25.read(REPORT).split()[0])

    _, allocations = run(0, "list")
    for number in sampled(allocations, every=False, most=20):
        listed, _ = run(number, "list")
        if (listed.returncode, listed.stdout) != (2, ""):
            assert listed.returncode == 0, number
            assert all(isinstance(arguments, dict) for arguments in json.loads(listed.stdout).values()), number
    _, allocations = run(0, "call", "sms_code")
    for number in sampled(allocations, every=False, most=20):
        called, _ = run(number, "call", "sms_code")
        assert called.returncode == 0 and type(json.loads(called.stdout)["code"]) is int, number


def test_keys_that_a_handler_does_not_know_are_ignored(ec25):
    session = {"ubus_rpc_session": "0" * 32, "more": [{}, None, 1.5], "code": 7}
    assert call(ec25, "sms_list", {**EC25, **session}) == call(ec25, "sms_list", EC25)


@pytest.mark.parametrize("words", [
    [], ["call"], ["list", "more"], ["call", "info", "more"], ["list", "a", "b"], ["nix"]])
@pytest.mark.parametrize("program", [[PROGRAM], ["vela_api", "rpcd"]], ids=["program", "vela_api"])
def test_other_words_print_the_usage_and_exit_with_2(ec25, program, words):
    result = ec25.run(*program, *words)
    assert (result.returncode, result.stdout) == (2, "") and result.stderr.startswith("Usage: vela_api ")


# What killall does: everything whose name is the last argument is killed.
KILLALL = """#!/bin/dash
for last; do :; done
for process in /proc/[0-9]*; do
    read -r name 2>/dev/null <"$process/comm" || continue
    [ "$name" = "$last" ] && kill -9 "${process#/proc/}"
done
exit 0
"""


def test_a_call_survives_that_all_processes_called_vela_modem_are_killed(router):
    r = router("ec25", quick=True)
    r.answer("killall", KILLALL, executable=True)
    r.start_rpcd()
    assert call(r, "enable", {"bus": "1-1.2", "disable": True}) == {"code": 0}
    assert ["killall", "-9", "vela_modem"] in r.programs
