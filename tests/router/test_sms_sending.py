"""Messages that go out, messages that are marked read, and the country that numbers are written for."""

import json
from typing import Iterator

import pytest
from modem_config import nothing_staged, packages
from probe_client import probe
from support import ABORTED
from velasim import Router

SEND, STATUS, CODE = "/modem/sms/send", "/modem/sms/status", "/modem/sms/code"
INCOMING = "/etc/spool/sms/incoming"
STORAGE = "/etc/spool/sms/storage"
COMMAND_SIZE = 300
PATH_SIZE = 100
NO_TEXT = [5, None, True, [], {}, 1.5]

# In these tests a change of the configuration is one of these options.
VELACONFIG = """
config service 'modem'
\tlist bus '1-1.2'

config service 'modem_sms'
\toption country 'Norge'
\toption country_code '47'
"""
UNSET = VELACONFIG.split("\toption")[0]


@pytest.fixture(scope="module")
def shared() -> Iterator[Router]:
    with Router("ec25", ubus=False) as r:
        yield r


@pytest.fixture
def r(shared: Router) -> Router:
    """The router of all tests that leave nothing behind but effects, files of the spool and modem_sms."""
    for directory in (INCOMING, STORAGE):
        for name in shared.listdir(directory):
            shared.remove(f"{directory}/{name}")
    shared.write("/etc/config/velaconfig", VELACONFIG)
    shared.clear_events()
    return shared


def effects(r: Router) -> list[str | list[str]]:
    """The shell commands as texts and the programs as lists of words, in order."""
    r.wait_idle()
    return [event["command"] if event["kind"] == "shell" else event["argv"] for event in r.events]


def spool(r: Router) -> list[str]:
    """The paths of all that is in the spool."""
    top = r.host_path("/etc/spool/sms")
    return sorted(str(path.relative_to(top)) for path in top.rglob("*"))


def aborts(r: Router, path: str, request: dict) -> bool:
    """Whether the request ends the process without a reply, a change or an effect."""
    before = packages(r), spool(r)
    r.clear_events()
    result = r.run("vela_api", "post", path, json.dumps(request))
    return ((result.returncode, result.stdout) == (ABORTED, "") and (packages(r), spool(r)) == before
            and r.events == [] and nothing_staged(r))


# Sending


def sending(**changed: object) -> dict:
    return {"modem_id": 3, "number": "900000017", "message": "Hello", **changed}


def without(request: dict, *keys: str) -> dict:
    return {key: value for key, value in request.items() if key not in keys}


@pytest.mark.parametrize("request_body, status", [
    ({}, -251),
    (without(sending(), "modem_id"), -251),
    (sending(modem_id=-1), -251),
    ({"modem_id": 2}, -260),
    (without(sending(modem_id=2), "number"), -260),
    ({"modem_id": 2, "number": "17"}, -261),
    (without(sending(), "message"), -261),
    (sending(modem_id=2), -250),
    (sending(modem_id=254, type="national"), -250),
    *[({"modem_id": 3, "number": value}, -260) for value in NO_TEXT],
    *[({"modem_id": 3, "number": "17", "message": value}, -261) for value in NO_TEXT],
], ids=json.dumps)
def test_a_message_is_refused_for_the_first_thing_that_is_wrong_and_nothing_is_run(r, request_body, status):
    assert r.api("post", SEND, request_body) == (status, {})
    assert r.events == []


@pytest.mark.parametrize("modem_id", [0, 3, 40, 255])
def test_any_model_sends_through_the_same_script_and_no_modem_is_asked(r, modem_id):
    assert r.api("post", SEND, sending(modem_id=modem_id, type="national")) == (0, {})
    assert effects(r) == ["sendsms '900000017' 'Hello' 'national'", ["sendsms", "900000017", "Hello", "national"]]


def test_a_send_request_without_type_runs_the_script_with_international_as_its_third_argument(r):
    assert r.api("post", SEND, sending()) == (0, {})
    assert effects(r) == ["sendsms '900000017' 'Hello' 'international'",
                          ["sendsms", "900000017", "Hello", "international"]]


@pytest.mark.parametrize("value", NO_TEXT, ids=json.dumps)
def test_a_type_that_is_no_text_counts_as_missing(r, value):
    assert r.api("post", SEND, sending(type=value)) == (0, {})
    assert r.commands == ["sendsms '900000017' 'Hello' 'international'"]


@pytest.mark.parametrize("number, message, kind", [
    ("", "", ""),
    ("+900000017", "  two  blanks\tand a tab ", "0"),
    ("-h", "--help", "-- "),
    ('"', 'say "Hello"', '""'),
    ("*", "$HOME `reboot` $(reboot) ; reboot & reboot | reboot > /tmp/x", "\\"),
    ("1\n2", "line\n\nfeed\r\n", "\n"),
    ("\u0661\u0662", "Gr\u00fc\u00dfe \u4f60\u597d \U0001f4f6", "\u00e4"),
    ("%s%n", "100 %d \\n \\0 \\", "!1"),
    ("\x01\x1b\x7f", "#no comment", "international"),
], ids=repr)
def test_values_reach_the_script_as_they_are(r, number, message, kind):
    assert r.api("post", SEND, sending(number=number, message=message, type=kind)) == (0, {})
    assert effects(r) == [f"sendsms '{number}' '{message}' '{kind}'", ["sendsms", number, message, kind]]


def test_bytes_that_are_no_utf8_reach_the_script_as_they_are(r):
    body = b'{"modem_id":3,"number":"17","message":"Gr\xfc\xdfe"}'
    assert r.run("vela_api", "post", SEND, body).returncode == 0
    assert effects(r) == ["sendsms '17' 'Gr\udcfc\udcdfe' 'international'",
                          ["sendsms", "17", "Gr\udcfc\udcdfe", "international"]]


def test_a_text_with_a_nul_ends_there(r):
    assert r.api("post", SEND, sending(number="1\0002", message="a\0b", type="c\0d")) == (0, {})
    assert effects(r) == ["sendsms '1' 'a' 'c'", ["sendsms", "1", "a", "c"]]


@pytest.mark.parametrize("message, arguments", [
    ("it''s", ["its"]),
    ("a' 'b", ["a", "b"]),
    ("a'\"$((6 * 7))\"'b", ["a42b"]),
    ("a'\\''b", ["a'b"]),
    ("it's", None),
    ("'", None),
])
def test_a_quote_in_a_value_ends_the_quotes_of_the_command(r, message, arguments):
    assert r.api("post", SEND, sending(message=message)) == (0, {})
    # Quotes that do not pair off are an error of the shell's, which is not looked at.
    runs = [["sendsms", "900000017", *arguments, "international"]] if arguments else []
    assert effects(r) == [f"sendsms '900000017' '{message}' 'international'", *runs]


SENDER_FAILS = "#!/bin/dash\necho printed\necho 'not sent' > /etc/spool/sms/outgoing/message || exit 3\nexit 4\n"


def test_what_the_script_prints_and_how_it_ends_is_not_looked_at(router):
    r = router("ec25", ubus=False)
    r.answer("sendsms", SENDER_FAILS, executable=True)
    assert r.api("post", SEND, sending()) == (0, {})
    assert r.read("/etc/spool/sms/outgoing/message") == "not sent\n"
    r.remove("/etc/spool/sms")
    assert r.api("post", SEND, sending()) == (0, {})
    r.remove("/usr/bin/sendsms")
    assert r.api("post", SEND, sending()) == (0, {})
    assert r.commands == ["sendsms '900000017' 'Hello' 'international'"] * 3
    r.remove("/bin/sh")
    assert r.api("post", SEND, sending()) == (0, {})


ROOM = COMMAND_SIZE - 1 - len("sendsms '' '' ''")


@pytest.mark.parametrize("longest", [
    {"number": "1" * (ROOM - 2), "message": "m", "type": "t"},
    {"number": "1", "message": "m" * (ROOM - 2), "type": "t"},
    {"number": "1", "message": "\u00e4" * ((ROOM - 2) // 2) + "m" * (ROOM % 2), "type": "t"},
    {"number": "1", "message": "m", "type": "t" * (ROOM - 2)},
    {"number": "1" * 100, "message": "m" * (ROOM - 100 - len("international"))},
], ids=["number", "message", "message-of-two-bytes-a-character", "type", "default-type"])
def test_a_command_of_299_bytes_is_run_and_one_more_aborts_with_nothing_run(r, longest):
    assert r.api("post", SEND, {"modem_id": 3, **longest}) == (0, {})
    [command, arguments] = effects(r)
    assert len(command.encode()) == COMMAND_SIZE - 1
    assert arguments == ["sendsms", *longest.values(), *(["international"] if len(longest) == 2 else [])]
    for key in longest:
        assert aborts(r, SEND, {"modem_id": 3, **longest, key: longest[key] + "x"})


@pytest.mark.parametrize("key", ["number", "message", "type"])
def test_a_value_of_any_length_aborts_with_nothing_run(r, key):
    assert aborts(r, SEND, sending(**{key: "x" * 100_000}))


@pytest.mark.parametrize("modem_id, status, current", [(40, 0, 40), (255, 0, 255), (2, -250, -1)])
def test_sending_makes_the_modem_the_current_one(router, modem_id, status, current):
    r = router("ec25", ubus=False)
    assert probe(r, "send", json.dumps(sending(modem_id=modem_id))) == (status, {"current": current})


# Marking as read


@pytest.mark.parametrize("request_body, status", [
    ({}, -251),
    ({"msg_id": "VMS99.a"}, -251),
    ({"modem_id": -1, "msg_id": "VMS99.a"}, -251),
    ({"modem_id": 2}, -258),
    ({"modem_id": 3}, -258),
    *[({"modem_id": 3, "msg_id": value}, -258) for value in NO_TEXT],
    ({"modem_id": 2, "msg_id": "VMS99.a"}, -250),
], ids=json.dumps)
def test_marking_is_refused_for_the_first_thing_that_is_wrong_and_nothing_is_moved(r, request_body, status):
    r.write(f"{INCOMING}/VMS99.a", "\n")
    assert r.api("post", STATUS, request_body) == (status, {})
    assert r.listdir(INCOMING) == ["VMS99.a"] and r.listdir(STORAGE) == [] and r.events == []


def mark(r: Router, name: str, modem_id: int = 3) -> tuple[int, dict]:
    return r.api("post", STATUS, {"modem_id": modem_id, "msg_id": name})


@pytest.mark.parametrize("modem_id", [3, 40, 255])
@pytest.mark.parametrize("name", ["VMS99.a", "VMS98.a", "VMS99. 'two'  blanks ", "VMS99.$(reboot)", "-VMS99.\u00e4\n*"])
def test_marking_a_message_as_read_moves_its_file(r, name, modem_id):
    r.write(f"{INCOMING}/{name}", "From: 17\n\nbody")
    r.write(f"{INCOMING}/VMS99.b", "\n")
    assert mark(r, name, modem_id) == (0, {})
    assert r.listdir(INCOMING) == ["VMS99.b"] and r.listdir(STORAGE) == [name]
    assert r.read(f"{STORAGE}/{name}") == "From: 17\n\nbody" and r.events == []


def test_a_message_that_was_marked_is_listed_as_read(r):
    r.write(f"{INCOMING}/VMS99.a", "From: 17\n\nbody")
    assert mark(r, "VMS99.a") == (0, {})
    assert r.api("get", "/modem/sms/list", {"modem_id": 3}) == (0, {"messages": [
        {"from": "17\n", "body": "body", "status": "read", "name": "VMS99.a"}]})


def test_marking_a_message_that_is_already_in_storage_as_read_leaves_it_there_and_answers_0(r):
    r.write(f"{STORAGE}/VMS99.a", "old")
    assert mark(r, "VMS99.a") == (0, {})
    assert r.listdir(INCOMING) == [] and r.read(f"{STORAGE}/VMS99.a") == "old"


def test_a_message_in_both_directories_is_the_unread_one_once_it_is_marked(r):
    r.write(f"{INCOMING}/VMS99.a", "new")
    r.write(f"{STORAGE}/VMS99.a", "old and longer")
    assert mark(r, "VMS99.a") == (0, {})
    assert r.listdir(INCOMING) == [] and r.read(f"{STORAGE}/VMS99.a") == "new"


def test_only_messages_of_the_spool_are_moved(router):
    files = ("/etc/spool/sms/keep", "/etc/spool/sms/sent/VMS99.a", "/etc/keep")
    r = router("ec25", files=dict.fromkeys(files, ""), ubus=False)
    r.write(f"{INCOMING}/VMS99.a", "")
    r.write(f"{INCOMING}/VMS99.directory/VMS99.b", "")
    before = spool(r)
    for name in ("", ".", "..", "VMS99.missing", "../keep", "../../../keep", "/etc/keep", "../sent/VMS99.a",
                 "VMS99.a/", "VMS99.directory/..", "../incoming"):
        assert mark(r, name) == (0, {})
        assert spool(r) == before and r.exists("/etc/keep"), name
    assert r.events == []


def test_marking_in_a_spool_that_is_not_there(router):
    r = router("ec25", ubus=False)
    r.write(f"{INCOMING}/VMS99.a", "body")
    r.remove(STORAGE)
    assert mark(r, "VMS99.a") == (0, {})
    assert r.read(f"{INCOMING}/VMS99.a") == "body" and not r.exists(STORAGE)
    r.remove(INCOMING)
    assert mark(r, "VMS99.a") == (0, {})
    r.remove("/etc/spool")
    assert mark(r, "VMS99.a") == (0, {})
    assert not r.exists("/etc/spool")


def test_marking_where_the_file_cannot_be_moved_leaves_it_unread(router):
    r = router("ec25", ubus=False)
    r.write(f"{INCOMING}/VMS99.a", "body")
    # Full, and another file system besides, so that nothing can be renamed into it.
    assert r.run("mount", "-t", "tmpfs", "-o", "size=4k", "tmpfs", STORAGE).returncode == 0
    assert r.run("/bin/dash", "-c", f"cat /dev/zero > {STORAGE}/filling").returncode != 0
    assert mark(r, "VMS99.a") == (0, {})
    assert r.read(f"{INCOMING}/VMS99.a") == "body" and r.listdir(STORAGE) == ["filling"]
    assert r.run("umount", STORAGE).returncode == 0
    for options in ("bind", "remount,bind,ro"):
        assert r.run("mount", "-o", options, "/etc/spool", "/etc/spool").returncode == 0
    assert mark(r, "VMS99.a") == (0, {})
    assert r.read(f"{INCOMING}/VMS99.a") == "body" and r.listdir(STORAGE) == []


def test_a_path_of_99_bytes_is_moved_and_one_more_aborts(r):
    fits = "VMS99." + "x" * (PATH_SIZE - 1 - len(f"{INCOMING}/VMS99."))
    r.write(f"{INCOMING}/{fits}", "body")
    r.write(f"{INCOMING}/{fits}x", "body")
    assert mark(r, fits) == (0, {})
    assert r.listdir(INCOMING) == [f"{fits}x"] and r.listdir(STORAGE) == [fits]
    assert aborts(r, STATUS, {"modem_id": 3, "msg_id": f"{fits}x"})
    assert aborts(r, STATUS, {"modem_id": 3, "msg_id": "x" * 100_000})


# The country


def set_country(r: Router, **values: object) -> tuple[int, dict]:
    return r.api("post", CODE, {"action": "set", **values})


def stored(**options: str) -> str:
    """The configuration with these options of modem_sms, as libuci writes it."""
    quoted = {name: value.replace("'", "'\\''") for name, value in options.items()}
    return UNSET + "".join(f"\toption {name} '{value}'\n" for name, value in quoted.items())


def written(r: Router) -> str:
    """The configuration file; libuci may add an empty line at its end."""
    return r.read("/etc/config/velaconfig").rstrip("\n") + "\n"


@pytest.mark.parametrize("request_body", [
    {}, {"action": "get"}, {"country": "Suomi"}, *({"action": value} for value in NO_TEXT),
    {"action": "get", "country": "Suomi", "country_code": "358", "modem_id": 2},
], ids=json.dumps)
def test_the_country_is_got_unless_another_action_is_named(r, request_body):
    assert r.api("post", CODE, request_body) == (0, {"country": "Norge", "country_code": "47"})
    assert r.read("/etc/config/velaconfig") == VELACONFIG and r.events == []


@pytest.mark.parametrize("action", ["", "GET", "Set", "set ", " get", "gets", "delete", "get\n", "x" * 100_000],
                         ids=lambda action: repr(action)[:12])
def test_any_other_action_does_nothing(r, action):
    assert r.api("post", CODE, {"action": action, "country": "Suomi", "country_code": "358"}) == (0, {})
    assert r.read("/etc/config/velaconfig") == VELACONFIG and r.events == []


@pytest.mark.parametrize("config", [UNSET, "", "\nconfig service 'modem'\n", None,
                                    UNSET + "\tlist country 'Norge'\n\tlist country_code '47'\n"],
                         ids=["no options", "empty", "no section", "no package", "lists"])
def test_a_country_that_is_not_set_is_empty(router, config):
    r = router("ec25", ubus=False, uci={"velaconfig": config})
    before = packages(r)
    assert r.api("post", CODE) == (0, {"country": "", "country_code": ""})
    assert packages(r) == before


@pytest.mark.parametrize("country, code", [
    ("Suomi", "358"), ("  two  blanks ", "+1 684"), ("C\u00f4te d'Ivoire", "225"), ('"quoted"', "$(reboot)"),
    ("\u4e2d\u56fd", "\u0668\u0666"), ("line\nfeed", "'"),
], ids=repr)
def test_a_country_is_stored_and_read_back(r, country, code):
    assert set_country(r, country=country, country_code=code) == (0, {})
    assert written(r) == stored(country=country, country_code=code)
    assert r.api("post", CODE) == (0, {"country": country, "country_code": code})
    assert r.events == [] and nothing_staged(r)


@pytest.mark.parametrize("values, options", [
    ({"country": "Suomi"}, {"country": "Suomi"}),
    ({"country_code": "358"}, {"country_code": "358"}),
    ({"country": "Suomi", "country_code": ""}, {"country": "Suomi"}),
    ({"country": None, "country_code": "358"}, {"country_code": "358"}),
    ({"country": 358, "country_code": []}, {}),
    ({}, {}),
], ids=json.dumps)
def test_what_is_missing_is_cleared(r, values, options):
    assert set_country(r, **values) == (0, {})
    assert written(r) == stored(**options)
    assert r.api("post", CODE) == (0, {"country": "", "country_code": "", **options})


@pytest.mark.parametrize("config, made", [
    ("\nconfig service 'modem'\n", "\nconfig service 'modem'\n\nconfig service 'modem_sms'\n"),
    ("\nconfig other 'modem_sms'\n\toption kept '1'\n", "\nconfig service 'modem_sms'\n\toption kept '1'\n"),
    ("", "\nconfig service 'modem_sms'\n"),
], ids=["no section", "another type", "empty"])
def test_setting_a_country_makes_its_section(router, config, made):
    r = router("ec25", ubus=False, uci={"velaconfig": config})
    assert set_country(r, country="Suomi", country_code="358") == (0, {})
    assert written(r) == made + "\toption country 'Suomi'\n\toption country_code '358'\n"


def test_a_configuration_that_cannot_be_written_is_not_noticed(router):
    r = router("ec25", ubus=False, uci={"velaconfig": None})
    assert set_country(r, country="Suomi", country_code="358") == (0, {})
    assert not r.exists("/etc/config/velaconfig")
    r.write("/etc/config/velaconfig", VELACONFIG)
    for options in ("bind", "remount,bind,ro"):
        assert r.run("mount", "-o", options, "/etc/config", "/etc/config").returncode == 0
    assert set_country(r, country="Suomi", country_code="358") == (0, {})
    assert r.read("/etc/config/velaconfig") == VELACONFIG


@pytest.mark.parametrize("key, longest", [("country", 59), ("country_code", 19)])
@pytest.mark.parametrize("character", ["x", "\u00e4"])
def test_a_value_that_could_not_be_read_back_aborts_with_nothing_stored(r, key, longest, character):
    text = character * (longest // len(character.encode())) + "x" * (len(character.encode()) - 1)
    values = {"country": "Suomi", "country_code": "358", key: text}
    assert set_country(r, **values) == (0, {})
    assert r.api("post", CODE) == (0, values)
    for longer in (text + "x", "x" * 100_000):
        assert aborts(r, CODE, {"action": "set", **values, key: longer})


@pytest.mark.parametrize("key, longest", [("country", 59), ("country_code", 19)])
def test_a_stored_value_that_does_not_fit_the_buffer_aborts(r, key, longest):
    r.write("/etc/config/velaconfig", stored(**{key: "x" * longest}))
    assert r.api("post", CODE) == (0, {"country": "", "country_code": "", key: "x" * longest})
    r.write("/etc/config/velaconfig", stored(**{key: "x" * (longest + 1)}))
    assert aborts(r, CODE, {})
