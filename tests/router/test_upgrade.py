"""A modem's firmware is upgraded: who is refused with what, what is started, and how far it is."""

import json
import os
import syslog

import pytest
from support import ABORTED, locked, system_log
from velasim import Router

KEYS = ("modem_url", "target_version", "current_version", "firmware_upload", "hash_type", "hash_value")
EP06 = "EP06ELAR03A08M4G_01.003.01.003"
EC25 = "EC25EFAR06A03M4G_01.005.01.005"
TARGET = "EP06ELAR04A04M4G_01.001.01.001"
SCRIPT = "/usr/bin/modem_upgrade_check"
STATUS_FILE = "/tmp/modem_upgrade_status"

RUNNING = "$ ps -w | grep modem_upgrade_check | grep -v grep"
SIM = "$ vela_modem AT AT+CPIN? | grep READY"
ASK_EP06 = "$ vela_modem AT AT+QGMR | grep EP06"
ASK_EC25 = "$ vela_modem AT AT+QGMR | grep EC25"
READ_STATUS = f"$ cat {STATUS_FILE}"
CPIN, QGMR = "AT+CPIN?", "AT+QGMR"
NOTIFY_OF_REFUSAL = "$ sleep 3; ubus call mqtt notify;"
NOTIFY_OF_STATUS = "$ sleep 5; ubus call mqtt notify"
FIVE_OF_EACH = [ASK_EP06, QGMR, ASK_EC25, QGMR] * 5

ABNORMAL = (-1, {"msg": "The modem is abnormal and cannot be upgraded."})
SAME = (-2, {"msg": "The Modem version is the same as the target version. Do not upgrade the Modem."})
UPGRADING = (-3, {"msg": "The device is upgrading!"})
OTHER = (-4, {"msg": "The current version is inconsistent with the current module version.Do not upgrade the Modem."})
NO_SIM = (-5, {"msg": "SIM card exception."})
NO_VERSION = (-1, {"msg": "The modem is abnormal.Failed to obtain the version."})


def wanted(**changed: object) -> dict:
    """A request that is accepted on an EP06."""
    return {"modem_url": "http://192.0.2.1/fw.zip", "target_version": TARGET, "current_version": EP06,
            "firmware_upload": "0", "hash_type": "md5", "hash_value": "d41d8cd98f00b204e9800998ecf8427e", **changed}


def upgrade(r: Router, request: dict) -> tuple[int, dict]:
    return r.api("post", "/modem/upgrade", request)


def progress(r: Router) -> tuple[int, dict]:
    return r.api("post", "/modem/upgrade_status")


def effects(r: Router, since: int = 0) -> list[str]:
    """Shell commands behind "$ ", the recorded programs that they run behind "> ", AT commands as they are, calls on
    the bus by their object and method."""
    texts = {"shell": lambda event: "$ " + event["command"], "program": lambda event: "> " + " ".join(event["argv"]),
             "at": lambda event: event["command"], "ubus": lambda event: event["object"] + " " + event["method"]}
    return [texts[event["kind"]](event) for event in r.events[since:]]


def assert_sequence(r: Router, foreground: list[str], background: list[str], since: int = 0) -> None:
    """What the request did itself, and what it left to a background command, each in its order."""
    r.wait_idle()
    seen = effects(r, since)
    assert [text for text in seen if text not in background] == foreground
    assert [text for text in seen if text in background] == background


def hold_the_script(r: Router) -> None:
    """An upgrade then lasts until the file is there."""
    r.answer("modem_upgrade_check", "#!/bin/dash\nwhile [ ! -e /tmp/done ]; do sleep 0.01; done\n", executable=True)


# Refused


REFUSALS = [
    pytest.param("ep06", {CPIN: "\n+CPIN: SIM PIN\n\nOK\n"}, wanted(), NO_SIM, [SIM, CPIN], id="sim-locked"),
    pytest.param("ep06", {CPIN: "\n+CME ERROR: 10\n"}, {}, NO_SIM, [SIM, CPIN], id="no-sim"),
    pytest.param("ep06", {CPIN: "\n+CPIN: ready\n\nOK\n"}, {}, NO_SIM, [SIM, CPIN], id="sim-ready-in-small-letters"),
    pytest.param("ep06", {QGMR: "\nERROR\n"}, wanted(), ABNORMAL, [SIM, CPIN, *FIVE_OF_EACH], id="no-version"),
    pytest.param("ep06", {QGMR: "\nEG06ELAR03A08M4G\n\nOK\n"}, wanted(), ABNORMAL, [SIM, CPIN, *FIVE_OF_EACH],
                 id="another-model"),
    pytest.param("ep06", {QGMR: "\nep06elar03\n\nOK\n"}, wanted(), ABNORMAL, [SIM, CPIN, *FIVE_OF_EACH],
                 id="version-in-small-letters"),
    pytest.param("ep06", {}, wanted(current_version=EP06 + "1"), OTHER, [SIM, CPIN, ASK_EP06, QGMR],
                 id="other-version"),
    pytest.param("ep06", {}, wanted(current_version=EP06.lower()), OTHER, [SIM, CPIN, ASK_EP06, QGMR],
                 id="version-in-other-letters"),
    pytest.param("ep06", {}, wanted(current_version=""), OTHER, [SIM, CPIN, ASK_EP06, QGMR], id="empty-version"),
    pytest.param("ep06", {}, wanted(current_version=EP06 + "\r\n"), OTHER, [SIM, CPIN, ASK_EP06, QGMR],
                 id="version-with-line-end"),
    # Before it is compared with the target.
    pytest.param("ep06", {}, wanted(current_version="x", target_version=EP06), OTHER, [SIM, CPIN, ASK_EP06, QGMR],
                 id="other-version-same-target"),
    pytest.param("ep06", {}, wanted(target_version=EP06), SAME, [SIM, CPIN, ASK_EP06, QGMR], id="same-version"),
    pytest.param("ec25", {}, wanted(), OTHER, [SIM, CPIN, ASK_EP06, QGMR, ASK_EC25, QGMR], id="ec25-other-version"),
    pytest.param("ec25", {}, wanted(current_version=EC25, target_version=EC25), SAME,
                 [SIM, CPIN, ASK_EP06, QGMR, ASK_EC25, QGMR], id="ec25-same-version"),
]


@pytest.mark.parametrize("model, replies, request_, answer, steps", REFUSALS)
def test_an_upgrade_that_is_refused(router, model, replies, request_, answer, steps):
    r = router(model, quick=True)
    for command, reply in replies.items():
        r.modem().reply(command, reply)
    with system_log(r) as messages:
        assert upgrade(r, request_) == answer
        assert messages() == []
    assert_sequence(r, [RUNNING, *steps], [NOTIFY_OF_REFUSAL, "mqtt notify"])


def test_an_upgrade_without_a_modem(router):
    r = router(quick=True)
    assert upgrade(r, wanted()) == NO_SIM
    assert_sequence(r, [RUNNING, SIM], [NOTIFY_OF_REFUSAL, "mqtt notify"])


def test_an_upgrade_while_another_program_has_the_port(router):
    r = router("ep06", quick=True)
    with locked(r):
        assert upgrade(r, wanted()) == NO_SIM
    assert_sequence(r, [RUNNING, SIM], [NOTIFY_OF_REFUSAL, "mqtt notify"])


@pytest.mark.parametrize("number", range(len(KEYS)))
@pytest.mark.parametrize("value", [None, 5, ["x"], {}, "gone"])
def test_a_key_that_is_missing(router, number, value):
    """The first of those that are missing is named. Nothing has changed, so nobody is notified."""
    r = router("ep06", quick=True)
    for following in (1, len(KEYS)):
        request = wanted()
        for key in KEYS[number:number + following]:
            del request[key]
            if value != "gone":
                request[key] = value
        before = len(r.events)
        assert upgrade(r, request) == (-5, {"msg": f"{KEYS[number]} missing"})
        assert_sequence(r, [RUNNING, SIM, CPIN], [], before)


def test_a_second_upgrade_while_the_first_one_runs(router):
    r = router("ep06", quick=True)
    hold_the_script(r)
    assert upgrade(r, wanted()) == (0, {})
    r.wait_for(lambda: any(text.startswith("> ") for text in effects(r)), "the script")
    for request in (wanted(), {}, {"modem_url": 1}):
        before = len(r.events)
        assert upgrade(r, request) == UPGRADING
        r.wait_for(lambda: "mqtt notify" in effects(r, before), "the notification")
        assert effects(r, before) == [RUNNING, NOTIFY_OF_REFUSAL, "mqtt notify"]
    r.write("/tmp/done", "")
    r.wait_idle()
    assert upgrade(r, {}) == (-5, {"msg": "modem_url missing"})


def test_a_refusal_does_not_wait_for_its_notification(router):
    r = router("ep06", quick=True)
    r.stand_in("/usr/bin/sleep")
    r.answer("sleep", "#!/bin/dash\nwhile [ ! -e /tmp/go ]; do :; done\n", executable=True)
    assert upgrade(r, wanted(target_version=EP06)) == SAME
    r.wait_for(lambda: "> sleep 3" in effects(r), "the notification")
    assert "mqtt notify" not in effects(r)
    r.write("/tmp/go", "")
    r.wait_idle()
    assert effects(r)[-1] == "mqtt notify"


def test_no_daemon_to_notify(router):
    r = router("ep06", quick=True, ubus=False)
    assert upgrade(r, wanted(target_version=EP06)) == SAME
    assert_sequence(r, [RUNNING, SIM, CPIN, ASK_EP06, QGMR], [NOTIFY_OF_REFUSAL])


# Accepted


def command_of(request: dict) -> str:
    """The script's arguments in its own order, which is not the request's."""
    order = ("firmware_upload", "modem_url", "target_version", "hash_type", "hash_value")
    return " ".join([SCRIPT, *(request[key] for key in order)])


ACCEPTED = [
    pytest.param("ep06", EP06, {}, [ASK_EP06, QGMR], id="ep06"),
    pytest.param("ec25", EC25, {}, [ASK_EP06, QGMR, ASK_EC25, QGMR], id="ec25"),
    pytest.param("ep06", "QGMREP06ELA.1_2", {QGMR: '\n+QGMR: "EP06-ELA.1_2" \n\nOK\n'}, [ASK_EP06, QGMR], id="label"),
    # All lines that name the model are one version.
    pytest.param("ep06", "EP06A1EP06B2", {QGMR: "\nEP06 A1\nRevision C3\nEP06 B2\n\nOK\n"}, [ASK_EP06, QGMR],
                 id="lines"),
    pytest.param("ec25", "EP06inEC25", {QGMR: "\nEP06 in EC25\n\nOK\n"}, [ASK_EP06, QGMR], id="both"),
    pytest.param("ep06", "EP06" + "1" * 124, {QGMR: "\nEP06" + "1" * 200 + "\n\nOK\n"}, [ASK_EP06, QGMR], id="long"),
]


@pytest.mark.parametrize("model, version, replies, steps", ACCEPTED)
def test_an_upgrade_that_is_started(router, model, version, replies, steps):
    r = router(model, quick=True)
    for command, reply in replies.items():
        r.modem().reply(command, reply)
    request = wanted(current_version=version)
    with system_log(r) as messages:
        assert upgrade(r, request) == (0, {})
        assert messages() == [(syslog.LOG_DEBUG, f"Modem upgrde:{command_of(request)}\n")]
    assert_sequence(r, [RUNNING, SIM, CPIN, *steps], [f"$ {command_of(request)}", f"> {command_of(request)}"])


def test_a_version_that_is_told_only_at_the_fifth_attempt(router):
    # The modem's answers are those that a program in its place counts.
    r = router("ep06", quick=True)
    program = r.host_path("/tmp/vela_modem")
    program.write_text("#!/bin/dash\nif [ $2 = AT+CPIN? ]; then echo READY; exit; fi\necho >>/tmp/asked\n"
                       "if [ $(wc -l </tmp/asked) -ge 10 ]; then echo EC25.1; fi\n", encoding="ascii")
    program.chmod(0o755)
    request = wanted(current_version="EC25.1")
    path = {"PATH": "/tmp:/usr/sbin:/usr/bin:/sbin:/bin"}
    assert r.api("post", "/modem/upgrade", request, env=path) == (0, {})
    script = [f"$ {command_of(request)}", f"> {command_of(request)}"]
    assert_sequence(r, [RUNNING, SIM, *[ASK_EP06, ASK_EC25] * 5], script)


@pytest.mark.parametrize("value", ["", "two words", "a;b", "'quoted'", "$(reboot)", "line\nend", "\\", "ü", "%s%n"])
def test_arguments_go_to_the_shell_as_they_are(router, value):
    r = router("ep06", quick=True)
    request = wanted(hash_value=value)
    with system_log(r) as messages:
        assert upgrade(r, request) == (0, {})
        [(_, message)] = messages()
    r.wait_idle()
    assert message == f"Modem upgrde:{command_of(request)}\n"
    assert f"$ {command_of(request)}" in effects(r)


def test_an_upgrade_is_not_waited_for(router):
    r = router("ep06", quick=True)
    hold_the_script(r)
    assert upgrade(r, wanted()) == (0, {})
    r.wait_for(lambda: any("modem_upgrade_check" in " ".join(argv) for argv in r.processes()), "the script")
    r.write("/tmp/done", "")
    r.wait_idle()


@pytest.mark.parametrize("key", ["firmware_upload", "modem_url", "target_version", "hash_type", "hash_value"])
def test_arguments_that_do_not_fit_end_the_process_before_anything_is_started(router, key):
    r = router("ep06", quick=True)
    longest = 511 - len(command_of(wanted(**{key: ""})))
    assert upgrade(r, wanted(**{key: "x" * longest})) == (0, {})
    r.wait_idle()
    for length in (longest + 1, 100_000):
        r.clear_events()
        with system_log(r) as messages:
            result = r.run("vela_api", "post", "/modem/upgrade", json.dumps(wanted(**{key: "x" * length})))
            assert result.returncode == ABORTED and messages() == []
        assert_sequence(r, [RUNNING, SIM, CPIN, ASK_EP06, QGMR], [])


def test_a_long_current_version_is_only_compared(router):
    r = router("ep06", quick=True)
    assert upgrade(r, wanted(current_version=EP06 + "x" * 100_000)) == OTHER


# Progress


@pytest.mark.parametrize("text, status", [
    (None, 0), ("", 0), ("0\n", 0), ("5\n", 5), ("100", 100), ("-1\n", -1), ("12 of 20", 12), (" 7", 7), ("done", 0),
    ("1234567", 1234567), ("12345678", 1234567), ("\n\n\n3", 3), ("+4", 4), ("3.9", 3), ("9" * 5000, 9999999),
])
def test_how_far_the_upgrade_is(router, text, status):
    r = router("ep06", quick=True, files={STATUS_FILE: text})
    assert progress(r) == (0, {"version": EP06, "status": status})
    assert_sequence(r, [ASK_EP06, QGMR, READ_STATUS], [NOTIFY_OF_STATUS, "mqtt notify"])


def test_the_progress_while_the_script_runs(router):
    r = router("ep06", quick=True)
    hold_the_script(r)
    assert upgrade(r, wanted()) == (0, {})
    r.write(STATUS_FILE, "2\n")
    status, reply = progress(r)
    assert (status, list(reply.items())) == (0, [("version", EP06), ("status", 2)])
    r.write("/tmp/done", "")
    r.wait_idle()


def test_a_status_file_that_is_a_directory(router):
    r = router("ep06", quick=True)
    os.mkdir(r.host_path(STATUS_FILE))
    assert progress(r) == (0, {"version": EP06, "status": 0})


def test_the_progress_with_a_labelled_version(router):
    r = router("ep06", quick=True)
    r.modem().reply(QGMR, "\n+QGMR: EP06-ELA é\n\nOK\n".encode())
    assert progress(r) == (0, {"version": "QGMREP06ELA", "status": 0})


@pytest.mark.parametrize("model, reply", [("ec25", None), ("ep06", "\nERROR\n"), ("ep06", "\nEG06\n\nOK\n")])
def test_the_progress_without_an_ep06_version(router, model, reply):
    r = router(model, quick=True, files={STATUS_FILE: "5\n"})
    if reply is not None:
        r.modem().reply(QGMR, reply)
    assert progress(r) == NO_VERSION
    assert_sequence(r, [ASK_EP06, QGMR] * 5, [NOTIFY_OF_STATUS, "mqtt notify"])


def test_the_progress_without_a_modem(router):
    r = router(quick=True)
    assert progress(r) == NO_VERSION
    assert_sequence(r, [ASK_EP06] * 5, [NOTIFY_OF_STATUS, "mqtt notify"])


# The router that the tests run in


def test_processes_are_listed_as_on_a_router(router):
    r = router(quick=True)
    hold_the_script(r)
    process = r.start(SCRIPT, "a b", "c" * 200)
    r.wait_for(lambda: r.processes(), "the script")
    lines = r.run("ps", "-w").stdout.splitlines()
    assert lines[0].split() == ["PID", "USER", "VSZ", "STAT", "COMMAND"]
    [line] = [line for line in lines if "modem_upgrade_check a b c" in line]
    assert len(line) == 132
    r.write("/tmp/done", "")
    assert process.wait(60) == 0
