"""Received messages, from recorded and from hostile spools, through the plug-in."""

import os
import signal
from pathlib import Path

import pytest
from probe_client import probe
from velasim import Router

REPLIES = Path(__file__).resolve().parents[1] / "replies" / "smstools3-spool"
INCOMING = "/etc/spool/sms/incoming"
STORAGE = "/etc/spool/sms/storage"
EC25 = {"modem_id": 3}
LONGEST_BODY = 2048


def listed(r: Router) -> list[dict]:
    status, reply = r.api("get", "/modem/sms/list", EC25)
    assert status == 0 and list(reply) == ["messages"]
    return sorted(reply["messages"], key=lambda message: message["name"])


def only_listed(r: Router) -> dict:
    [message] = listed(r)
    return message


def recorded(name: str) -> bytes:
    """A recorded file of the spool without the header of the collection."""
    return (REPLIES / f"{name}.txt").read_bytes().split(b"\n---\n", 1)[1]


# What is in the spool


def test_unread_and_read_messages_of_a_recorded_spool(router):
    r = router("ec25")
    r.write(f"{INCOMING}/VMS99.1vW2N4", recorded("incoming--iso-international-length50"))
    r.write(f"{STORAGE}/VMS99.H00yfm", recorded("incoming--utf8-international-length-mismatch"))
    r.write(f"{INCOMING}/VMS98.aaaaaa", recorded("incoming--imei-header-report-yes"))
    assert r.api("get", "/modem/sms/list", EC25) == (0, {"messages": [
        {"from": "90000000017\n", "type": "international", "time": "26-10-01 12:34:56\n",
         "body": "This body is made up and has exactly fifty letters\n", "status": "unread", "name": "VMS99.1vW2N4"},
        {"from": "900000000017\n", "type": "international", "time": "16-05-06 14:50:00\n",
         "body": "Wiadomosc dla Morfitronik\n", "status": "read", "name": "VMS99.H00yfm"}]})
    assert r.events == []


@pytest.mark.parametrize("missing", [[], [STORAGE], [INCOMING], [INCOMING, STORAGE]], ids=str)
def test_an_empty_incoming_directory_and_a_missing_storage_directory_give_an_empty_list(router, missing):
    r = router("ec25", ubus=False)
    for directory in missing:
        r.remove(directory)
    assert r.api("get", "/modem/sms/list", EC25) == (0, {"messages": []})


def test_directories_that_are_missing(router):
    r = router("ec25")
    r.remove(STORAGE)
    assert listed(r) == []
    r.write(f"{INCOMING}/VMS99.a", "\n")
    assert r.api("post", "/modem/sms/delete_all", EC25) == (-259, {})
    assert [message["name"] for message in listed(r)] == ["VMS99.a"]
    r.remove(INCOMING)
    assert listed(r) == []
    assert r.api("post", "/modem/sms/delete", {**EC25, "msg_id": "VMS99.a"}) == (-259, {})
    assert r.commands == []


@pytest.mark.parametrize("missing", [INCOMING, STORAGE])
def test_delete_all_with_only_one_of_the_two_directories_deletes_nothing_and_answers_minus_259(router, missing):
    r = router("ec25", ubus=False)
    for directory in (INCOMING, STORAGE):
        r.write(f"{directory}/VMS99.a", "\n")
    r.remove(missing)
    assert r.api("post", "/modem/sms/delete_all", EC25) == (-259, {})
    [present] = {INCOMING, STORAGE} - {missing}
    assert r.listdir(present) == ["VMS99.a"] and not r.exists(missing) and r.commands == []


@pytest.mark.parametrize("content, expected", [
    pytest.param("From: 17\nSent: 26-10-01\n", {"from": "17\n", "time": "26-10-01\n", "body": ""},
                 id="a file without an empty line has an empty body"),
    pytest.param("Alphabet: UCS2\n\n\x04\x04\x05\x05", {"body": ""},
                 id="a UCS-2 message whose Length line is missing converts nothing and shows an empty body"),
    pytest.param("From: 900000017\n\nbody", {"from": "900000017\n", "body": "body"},
                 id="a From line that holds a number gives the number followed by the line feed"),
])
def test_what_is_read_of_a_message(router, content, expected):
    r = router("ec25", ubus=False)
    r.write(f"{INCOMING}/VMS99.a", content)
    assert only_listed(r) == {**expected, "status": "unread", "name": "VMS99.a"}


def test_the_unread_count_is_that_of_vms98_files_for_bus_1_1_3_and_of_vms99_files_for_any_other(router):
    buses = ("1-1.2", "1-1.3", "2-1.2")
    r = router(modems=dict.fromkeys(buses, "unknown"), ubus=False)
    for name in ("VMS98.a", "VMS99.b", "VMS99.c", "VMS99.d", "VMS97.e", "LK_VMS98.f", "VMS98", "VMS99"):
        r.write(f"{INCOMING}/{name}", "\n")
    r.write(f"{STORAGE}/VMS99.read", "\n")
    r.write(f"{STORAGE}/VMS98.read", "\n")
    assert [probe(r, "mcu", bus)[1]["sms"] for bus in buses] == ["3", "2", "3"]
    r.remove(INCOMING)
    assert all("sms" not in probe(r, "mcu", bus)[1] for bus in buses)


def test_requests_that_name_no_modem_or_no_message(router):
    r = router("ec25")
    for method, path in (("get", "list"), ("post", "delete"), ("post", "delete_all")):
        assert r.api(method, f"/modem/sms/{path}", {}) == (-251, {})
        assert r.api(method, f"/modem/sms/{path}", {"modem_id": -1}) == (-251, {})
        assert r.api(method, f"/modem/sms/{path}", {"modem_id": 2, "msg_id": "VMS99.a"}) == (-250, {})
    assert r.api("post", "/modem/sms/delete", {"modem_id": 2}) == (-258, {})


def test_delete_one_and_all(router):
    r = router("ec25")
    for path in (f"{INCOMING}/VMS99.a", f"{INCOMING}/VMS99.b", f"{INCOMING}/VMS98.c", f"{STORAGE}/VMS99.d"):
        r.write(path, "\n")
    assert r.api("post", "/modem/sms/delete", {"modem_id": 40, "msg_id": "VMS99.a"}) == (0, {})
    assert r.api("post", "/modem/sms/delete", {"modem_id": 40, "msg_id": "VMS99.a"}) == (-259, {})
    assert r.listdir(INCOMING) == ["VMS98.c", "VMS99.b"] and r.commands == []
    assert r.api("post", "/modem/sms/delete_all", {"modem_id": 40}) == (0, {})
    assert r.listdir(INCOMING) == [] and r.listdir(STORAGE) == []
    assert r.commands == ["rm /etc/spool/sms/incoming/*", "rm /etc/spool/sms/storage/*"]


# Hostile spools


@pytest.mark.parametrize("content, expected", [
    (b"", {"body": ""}),
    (b"\n", {"body": ""}),
    (b"no header, no line end", {"body": ""}),
    (b"\nno header", {"body": "no header"}),
    (b"From: 17\nno body\n", {"from": "17\n", "body": ""}),
    (b"From: 17", {"from": "17", "body": ""}),
    (b"From: 17\r\n\r\nno empty line", {"from": "17\r\n", "body": ""}),
    (b"From: \x001\nSent: \xff\n\n\xe4\x00after", {"from": "", "time": "\ufffd\n", "body": "\ufffd"}),
    (b"Alphabet: UCS2\n\n\x00a\x00b", {"body": ""}),
    (b"Alphabet: UCS2\nLength: -2147483649\n\n\x00a\x00b", {"body": ""}),
    (b"Alphabet: UCS2\nLength: 99999999999999999999\n\n\x04\x04\x05\x05", {"body": "\u0404\u0505"}),
    (b"Alphabet: UCS2\nLength: 3000\n\n" + b"\x4e" * 4000, {"body": "\u4e4e" * (LONGEST_BODY // 3)}),
    (b"\n" + b"x" * 10_000_000, {"body": "x" * LONGEST_BODY}),
    (b"x" * 10_000_000, {"body": ""}),
    (b"From: 17\n" + b"Subject: x\n" * 900_000 + b"\nlate", {"from": "17\n", "body": "late"}),
    (b"\x00" * 10_000_000, {"body": ""}),
], ids=lambda value: repr(value[:24]) if isinstance(value, bytes) else "")
def test_contents(router, content, expected):
    r = router("ec25")
    r.write(f"{INCOMING}/VMS99.a", content)
    assert only_listed(r) == {**expected, "status": "unread", "name": "VMS99.a"}


NAMES = ["VMS99. two  blanks ", "VMS99.'quote", 'VMS99."quotes"', "VMS99.$(reboot)`reboot`", "VMS99.line\nfeed",
         "VMS99.*", "VMS99.\\", "VMS99.\u00e4", "-VMS99.", ".VMS99.hidden"]


def test_names(router):
    r = router("ec25")
    for name in NAMES:
        r.write(f"{INCOMING}/{name}", f"\n{name}")
    r.write(f"{INCOMING}/VMS99.stays", "\n")
    assert [(m["name"], m["body"]) for m in listed(r) if m["body"]] == [(name, name) for name in sorted(NAMES)]
    for name in NAMES:
        assert r.api("post", "/modem/sms/delete", {**EC25, "msg_id": name}) == (0, {})
    assert r.listdir(INCOMING) == ["VMS99.stays"] and r.events == []


def test_a_name_that_is_no_utf8_comes_as_valid_json(router):
    r = router("ec25")
    r.write(f"{INCOMING}/VMS99.\udcff", "\n")
    assert only_listed(r)["name"] == "VMS99.\ufffd"


def test_a_path_that_does_not_fit_ends_the_process(router):
    r = router("ec25")
    fits = "VMS99." + "x" * (99 - len(f"{INCOMING}/VMS99."))
    r.write(f"{INCOMING}/{fits}", "\n")
    assert only_listed(r)["name"] == fits
    r.write(f"{INCOMING}/{fits}x", "\n")
    assert r.run("vela_api", "get", "/modem/sms/list", '{"modem_id":3}').returncode == -signal.SIGABRT


def test_only_messages_are_deleted(router):
    r = router("ec25", files={"/etc/spool/sms/keep": "", "/etc/keep": ""})
    os.mkdir(r.host_path(f"{INCOMING}/VMS99.directory"))
    for name in ("", ".", "..", "../keep", "../../../keep", "/etc/keep", "VMS99.directory", "../incoming"):
        assert r.api("post", "/modem/sms/delete", {**EC25, "msg_id": name}) == (-259, {})
    assert r.exists("/etc/keep") and r.exists("/etc/spool/sms/keep") and r.exists(f"{INCOMING}/VMS99.directory")


def test_what_is_no_file_is_left_out_and_not_waited_for(router):
    r = router("ec25")
    r.write(f"{INCOMING}/VMS99.file", "\n")
    r.write("/etc/spool/elsewhere", "\n")
    inside = r.host_path(INCOMING)
    os.mkdir(inside / "VMS99.directory")
    os.mkfifo(inside / "VMS99.pipe")
    os.symlink("/nonexistent", inside / "VMS99.dangling")
    os.symlink("VMS99.loop", inside / "VMS99.loop")
    os.symlink("/etc/spool/elsewhere", inside / "VMS99.link")
    assert [message["name"] for message in listed(r)] == ["VMS99.file", "VMS99.link"]


def test_a_file_that_may_not_be_read_is_left_out(router):
    r = router("ec25")
    for name in ("VMS99.open", "VMS99.closed"):
        r.write(f"{INCOMING}/{name}", "\n")
    r.host_path(f"{INCOMING}/VMS99.closed").chmod(0)
    result = r.run("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                   "vela_api", "get", "/modem/sms/list", '{"modem_id":3}')
    assert "VMS99.open" in result.stdout and "VMS99.closed" not in result.stdout and "status 0" in result.stderr


CHURN = f"""
import os
round = 0
while True:
    name = "{INCOMING}/VMS99.%d" % (round % 50)
    if os.path.exists(name):
        os.unlink(name)
    else:
        open(name, "w").write("From: 17\\n\\nbody")
    round += 7
    if round == 7 * 50:
        print("all made", flush=True)
"""


def test_files_that_come_and_go_while_they_are_listed(router):
    r = router("ec25")
    r.write(f"{INCOMING}/VMS99.stays", "\nbody")
    churn = r.start("/usr/bin/python3", "-S", "-c", CHURN)
    assert churn.stdout.readline() == b"all made\n"
    for _ in range(20):
        messages = listed(r)
        assert "VMS99.stays" in [message["name"] for message in messages]
        assert all(message["body"] in ("body", "") for message in messages)
    churn.kill()
