"""The command connect-auto: which APNs it tries in which order, and where they come from."""

import json
import re

import pytest
from connect_commands import FAIL_COUNT, KILL_UQMI, SUCCESS, WDM, context, drop_session, make, run, written
from connection_client import (
    BOARDS, BY_REQUEST, IFNAME, STATUS, ZONE_KEPT, bring_up, effects, link, section, sorted_out,
)
from support import traced
from velasim import Router

# The APNs


def database(*entries: dict) -> dict:
    return {"/www/src/lib/apn-config.js": "x" * 24 + json.dumps({"apns": {"apn": list(entries)}})}


def apn(name: str | None, kind: object = ..., mcc: str = "262", mnc: str = "02", **more: object) -> dict:
    optional = ({} if name is None else {"apn": name}) | ({} if kind is ... else {"type": kind}) | more
    return {"-mcc": mcc, "-mnc": mnc, **{f"-{key}": value for key, value in optional.items()}}


IMSI = ["@ttyUSB2 AT+CIMI", "@ttyUSB2 AT+CIMI", '$ echo "262020000000017" >/tmp/modem.1-1.2/cimi']


def attempts(r: Router) -> list[tuple[str, str | None, str | None, str | None]]:
    """What each attempt had in its section, from what netifd was given to read."""
    text = r.read("/run/sim/attempts") if r.exists("/run/sim/attempts") else ""
    found = []
    for attempt in re.split(r"^--$", text, flags=re.MULTILINE)[1:]:
        options = dict(re.findall(rf"^network\.{IFNAME}\.(\w+)='(.*)'$", attempt, re.MULTILINE))
        found.append(tuple(options.get(name) for name in ("proto", "apn", "username", "password")))
    return found


def record_attempts(r: Router, more: str = "") -> None:
    """The LED's script is run once for each attempt, behind the section."""
    r.answer("led", f"#!/bin/dash\n(echo --; uci show network) >> /run/sim/attempts\n{more}", executable=True)


@pytest.mark.parametrize("board", BOARDS)
def test_connect_auto_in_order(router, board):
    r = make(router, board=board)
    r.stand_in("/usr/bin/timeout")
    assert run(r, "connect-auto") == SUCCESS
    assert sorted_out(effects(r)) == [*IMSI, *written(context("web.vodafone.de")), *KILL_UQMI, *drop_session(),
                                      *bring_up(board=board)]
    assert section(r) == {
        "ifname": "wwan0", "service": "fdd_lte", "apn": "web.vodafone.de", "proto": "qmi", "device": WDM,
        "node": "1-1.2:1.4", "metric": "40", "disabled": "0"}


def test_connect_auto_over_qmi_and_then_over_the_tty(router):
    r = make(router, state="down")
    r.stand_in("/usr/bin/timeout")
    assert run(r, "connect-auto") == ""
    waiting = [STATUS] * 15
    assert sorted_out(effects(r)) == [
        *IMSI,
        *written(context("web.vodafone.de")), *KILL_UQMI, *drop_session(), *bring_up(), *waiting,
        *written(context("web.vodafone.de")), *bring_up(zone=ZONE_KEPT), *waiting]
    assert section(r)["device"] == "/dev/ttyUSB3"
    assert not r.exists(FAIL_COUNT)


@pytest.mark.parametrize("modem, tried", [
    ("ec25", [("qmi", "web.vodafone.de", None, None), ("3g", "web.vodafone.de", None, None)]),
    ("bg95", [("3g", "internet.is", None, None)]), ("mc7430", [("directip", "spmode.ne.jp", None, None)]),
    ("simcom7600", [("ncm", "internet", None, None)]), ("unknown", [("3g", "internet.proximus.be", None, None)]),
    ("nl678e", [("qmi", "ibox.tim.it", None, None), ("3g", "ibox.tim.it", None, None)]),
])
def test_a_model_without_a_qmi_port_is_tried_over_the_tty_alone(router, modem, tried):
    imsi = {"ec25": "26202", "bg95": "27402", "mc7430": "44010", "simcom7600": "46692", "unknown": "20601",
            "nl678e": "22201"}[modem]
    entry = apn(tried[0][1], mcc=imsi[:3], mnc=imsi[3:])
    r = make(router, modem, state="down", files=database(entry))
    record_attempts(r)
    assert run(r, "connect-auto") == ""
    assert attempts(r) == tried


def test_a_qmi_device_that_is_not_there_is_passed_over(router):
    r = make(router, state="down")
    record_attempts(r)
    r.remove(WDM)  # the kernel has the interface, its device is not made
    assert run(r, "connect-auto") == ""
    assert attempts(r) == [("3g", "web.vodafone.de", None, None)]
    assert "$ killall uqmi 2>/dev/null" not in effects(r)


def test_without_any_port_nothing_is_touched(router):
    r = make(router)
    for name in ("ttyUSB3", "cdc-wdm0"):
        [directory] = [path for path in r.run("find", "/sys/devices/platform", "-name", name).stdout.split()
                       if f"tty/{name}" not in path]
        r.remove(directory)
    before = r.read("/etc/config/network")
    assert run(r, "connect-auto") == ""
    assert effects(r) == IMSI
    assert r.exists(FAIL_COUNT) and r.read("/etc/config/network") == before


@pytest.mark.parametrize("kind, tried", [
    (..., True), ("default", True), ("hipri", True), ("default,supl", True), ("mms,hipri", True), ("xdefaulty", True),
    ("mms", False), ("", False), (None, False), ("supl,dun", False), ("DEFAULT", False), ("defaul", False),
    (7, False), (["default"], False), ({"default": 1}, False), (True, False),
], ids=repr)
def test_what_an_apn_is_for_decides_whether_it_is_tried(router, kind, tried):
    entries = [apn("one", kind, "274", "02"), apn("two", mcc="274", mnc="02")]
    r = make(router, "bg95", state="down", files=database(*entries))
    record_attempts(r)
    assert run(r, "connect-auto") == ""
    assert [attempt[1] for attempt in attempts(r)] == (["one", "two"] if tried else ["two"])


def test_when_no_apn_is_for_the_internet_nothing_is_tried(router):
    r = make(router, files=database(apn("one", "mms"), apn("two", None)))
    assert run(r, "connect-auto") == ""
    assert effects(r) == IMSI and r.exists(FAIL_COUNT) and section(r) == {}


def test_each_apn_has_its_own_credentials(router):
    entries = [apn("one", user="u1", password="p1"), apn("two"), apn("three", user="u3"), apn("four", password="p4"),
               apn(None, user="u5", password="p5"), apn("six", user=None, password=6)]
    r = make(router, "bg95", state="down",
             files=database(*({**entry, "-mcc": "274"} for entry in entries)))
    record_attempts(r)
    assert run(r, "connect-auto") == ""
    assert attempts(r) == [
        ("3g", "one", "u1", "p1"), ("3g", "two", None, None), ("3g", "three", "u3", None), ("3g", "four", None, "p4"),
        ("3g", None, "u5", "p5"), ("3g", "six", None, None)]


@pytest.mark.parametrize("working, over", [("one", 1), ("one", 2), ("two", 1), ("two", 2)])
def test_it_ends_with_the_first_that_works(router, working, over):
    """The link comes up in the attempt that the modem's new section fits."""
    proto = {1: "qmi", 2: "3g"}[over]
    r = make(router, state="down", files=database(apn("one"), apn("mms", "mms"), apn("two"), apn("three")))
    record_attempts(r, f"if [ $(uci get network.{IFNAME}.apn)-$(uci get network.{IFNAME}.proto) = {working}-{proto} ]\n"
                    f"then echo '{json.dumps(link('up'))}' > /run/sim/new; mv /run/sim/new /run/sim/ubus.json; fi\n")
    assert run(r, "connect-auto") == SUCCESS
    every = [(proto, name, None, None) for name in ("one", "two", "three") for proto in ("qmi", "3g")]
    assert attempts(r) == every[:every.index((proto, working, None, None)) + 1]
    assert (section(r)["proto"], section(r)["apn"]) == (proto, working)
    assert effects(r)[-1] == STATUS


def test_a_link_that_comes_up_late_is_waited_for(router):
    r = make(router, state="pending")
    process = r.start("vela_modem", "connect-auto")
    r.wait_for(lambda: effects(r).count(STATUS) >= 3, "the third question")
    r.set_ubus_state(link("up"))
    output, _ = process.communicate()
    assert (process.returncode, output.decode()) == (0, SUCCESS)
    assert section(r)["proto"] == "qmi" and effects(r).count(STATUS) <= 16


def test_a_link_that_is_pending_for_ever_is_a_failure(router):
    r = make(router, state="pending")
    assert run(r, "connect-auto") == ""
    assert effects(r).count(STATUS) == 2 * 16


# Where the candidates come from


@pytest.mark.parametrize("imsi, name", [("311480000000017", "vzwinternet"), ("222013090000017", "globalnet")])
def test_a_sim_that_is_known_by_its_imsi_needs_no_database_entry(router, imsi, name):
    r = make(router, state="down", files=database(apn("other", mcc=imsi[:3], mnc=imsi[3:6])))
    record_attempts(r)
    r.modem().reply("AT+CIMI", f"\n{imsi}\n\nOK\n")
    assert run(r, "connect-auto") == ""
    assert attempts(r) == [("qmi", name, None, None), ("3g", name, None, None)]


@pytest.mark.parametrize("text", [
    "x" * 24, "x" * 24 + "{", "x" * 24 + "null", "x" * 24 + "[]", "x" * 24 + '{"apns": {}}', "x" * 24 + '{"apns": 1}',
    "x" * 24 + '{"apns": {"apn": {}}}', "x" * 24 + '{"apns": {"apn": [1, null, "x", {}]}}',
    "x" * 24 + json.dumps({"apns": {"apn": [apn("other", mnc="03")]}}),
], ids=lambda text: text[24:64])
def test_without_a_candidate_the_tty_is_tried_once_without_an_apn(router, text):
    r = make(router, state="down", files={"/www/src/lib/apn-config.js": text})
    record_attempts(r)
    assert run(r, "connect-auto") == ""
    assert attempts(r) == [("3g", None, None, None)]
    assert section(r) == {"ifname": "3g-modem", "service": "fdd_lte", "proto": "3g", "device": "/dev/ttyUSB3",
                          "node": "1-1.2:1.3", "metric": "40", "disabled": "0"}
    assert sorted_out(effects(r)) == [*IMSI, *written(), *bring_up(), *[STATUS] * 15]


@pytest.mark.parametrize("failing, status, wanted", [
    ("error=EIO:when=1", 255, []),
    ("retval=0:when=1", 0, [("3g", None, None, None)]),  # it ends before its size
    ("error=EINTR:when=1..2", 0, [("qmi", "found", None, None), ("3g", "found", None, None)]),
])
def test_a_database_that_cannot_be_read_or_only_in_part(router, failing, status, wanted):
    files = database(apn("found"))
    r = make(router, state="down", files=files)
    record_attempts(r)
    result, _ = traced(r, ["vela_modem", "connect-auto"], f"inject=read:{failing}", device=[*files][0])
    assert (result.returncode, result.stdout) == (status, "")
    assert attempts(r) == wanted


def test_the_try_without_a_candidate_succeeds(router):
    r = make(router, files=database())
    assert run(r, "connect-auto") == SUCCESS
    assert effects(r).count(STATUS) == 1


def test_a_sim_that_cannot_be_read_has_no_candidate(router):
    r = make(router)
    r.modem().reply("AT+CIMI", "\nERROR\n")
    record_attempts(r)
    assert run(r, "connect-auto") == SUCCESS
    assert attempts(r) == [("3g", None, None, None)]


@pytest.mark.parametrize("text", [None, "", "x" * 23], ids=["no file", "empty", "23 bytes"])
def test_without_a_database_it_ends_with_255(router, text):
    r = make(router, files={"/www/src/lib/apn-config.js": text})
    result = r.run("vela_modem", "connect-auto")
    assert (result.returncode, result.stdout, result.stderr) == (255, "", "")
    result = r.run("vela_modem", "-D", "connect-auto")
    assert result.returncode == 255 and result.stdout.endswith("\n}\nparse file failed\n")
    assert r.events == [] and r.exists(FAIL_COUNT) and section(r) == {}


def test_the_debug_switch_shows_the_candidates(router):
    r = make(router, files=database(apn("one"), apn("two")))
    output = r.run("vela_modem", "-D", "connect-auto").stdout
    [line] = [line for line in output.splitlines() if line.startswith("[")]
    assert [entry["-apn"] for entry in json.loads(line)] == ["one", "two"]
    assert output.endswith(SUCCESS)


@pytest.mark.parametrize("value", ["it's", 'a"b', "$(reboot)", "`reboot`", "two\nlines", "%n%s", "ü"], ids=repr)
def test_a_candidate_is_kept_as_it_is(router, value):
    r = make(router, "unknown", files=database(apn(value, mcc="206", mnc="01", user=value, password=value)))
    assert run(r, "connect-auto") == SUCCESS
    for option in ("apn", "username", "password"):
        assert r.run("uci", "get", f"network.{IFNAME}.{option}").stdout == value + "\n"
    assert ["reboot"] not in r.programs


def test_a_run_that_is_killed_between_two_candidates_can_be_followed_by_another(router):
    r = make(router, state="pending", files=database(apn("one"), apn("two")))
    process = r.start("vela_modem", "connect-auto")
    r.wait_for(lambda: "$ vela-firewall" in effects(r), "the second attempt")
    process.kill()
    process.wait()
    r.set_ubus_state(BY_REQUEST)
    assert run(r, "connect-auto") == SUCCESS
    assert (section(r)["proto"], section(r)["apn"]) == ("qmi", "one")
    assert r.run("uci", "get", "firewall.@zone[1].network").stdout.split() == ["wan", IFNAME]


def test_two_runs_at_once_leave_one_whole_section(router):
    r = make(router)
    processes = [r.start("vela_modem", "connect-auto") for _ in range(2)]
    assert [process.communicate()[0].decode() for process in processes] == [SUCCESS] * 2
    r.wait_idle()
    assert run(r, "connect-auto") == SUCCESS
    assert (section(r)["proto"], section(r)["apn"]) == ("qmi", "web.vodafone.de")
    assert r.read("/etc/config/network").count(f"config interface '{IFNAME}'") == 1
