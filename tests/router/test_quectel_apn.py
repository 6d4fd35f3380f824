"""The APN and its credentials, which are written into Quectel modems."""

import pytest
from probe_client import parse, run_probe
from quectel_settings import (
    APN, BUS, COMMANDS, CREDENTIALS, EVERY, NOT_SUPPORTED, READY, REFUSALS, SET_APN, SET_ATH, STATUS, TYPE, port_of,
    sent,
)
from support import ABORTED, unreachable
from velasim import Router

# Lengths of a command that fit its buffer of 100, whatever of it the line end takes, and that do not.
FITS, TOO_LONG = 97, 101
VERIZON = {STATUS: "ready\n", TYPE: "verizon\n"}
APN_VERIZON = 'AT+CGDCONT=3,"IPV4V6","{}"'
CREDENTIALS_VERIZON = 'AT+QICSGP=3,3,"{}","{}","{}",{}'
HAVE_APN = ("ec20", "ec25", "ep06", "uc20", "ec200t", "bg95", "eg91", "ec100y")
HAVE_CREDENTIALS = ("ec20", "ec25", "ep06", "uc20", "ec200t")
OWN_DIALECT = ("nl678e",)  # which has another test
both = pytest.mark.parametrize("setting", [SET_APN, SET_ATH], ids=lambda setting: setting[0])


def write(r: Router, setting: list[str], bus: str = BUS) -> int:
    result = run_probe(r, setting[0], bus, *setting[1:])
    assert result.returncode == 0, result
    number, reply = parse(result)
    assert reply == {}
    return number


@pytest.mark.parametrize("name", EVERY)
@both
def test_which_models_have_the_setting(router, name, setting):
    r = router(name, ubus=False, files=READY)
    for command in COMMANDS.values():
        r.modem().reply(command, "\nOK\n")
    r.clear_events()
    supported = {"set-apn": (*HAVE_APN, *OWN_DIALECT), "set-ath": HAVE_CREDENTIALS}[setting[0]]
    assert write(r, setting) == (0 if name in supported else NOT_SUPPORTED)
    if name in supported:
        assert sent(r) == [(port_of(name), COMMANDS[setting[0]])]
    elif name != "unknown":
        assert r.events == []


@both
def test_the_sim_files_are_read_before_the_modem_is_told(router, setting):
    r = router("ec25", ubus=False, files=VERIZON)
    assert write(r, setting) == 0
    kinds = [(event["kind"], event["command"]) for event in r.events]
    assert kinds[:2] == [("shell", f"cat {STATUS}"), ("shell", f"cat {TYPE}")]
    assert len(kinds) == 3 and kinds[2][0] == "at"


@pytest.mark.parametrize("files, apn, credentials", [
    (READY, APN, CREDENTIALS), (VERIZON, APN_VERIZON, CREDENTIALS_VERIZON),
], ids=["ordinary", "verizon"])
def test_context_and_protocol_are_the_same_in_both_settings(router, files, apn, credentials):
    r = router("ec25", ubus=False, files=files)
    assert write(r, SET_APN) == 0
    assert write(r, SET_ATH) == 0
    assert r.modem().commands == [apn.format("internet"), credentials.format("internet", "user", "secret", 2)]


@pytest.mark.parametrize("status", [
    "not ready\n", "READY\n", "Ready\n", " ready\n", "\nready\n", "already\n", "pin\n", "absent\n", "read\n",
    "re ady\n",
    "", "\n", "r", "\xff\n",
], ids=repr)
@both
def test_a_sim_that_is_not_ready_leaves_the_modem_alone(router, setting, status):
    r = router("ec25", ubus=False, files={**VERIZON, STATUS: status})
    assert write(r, setting) == -1
    assert r.modem().commands == [] and r.commands == [f"cat {STATUS}"]


@both
def test_a_sim_file_counts_with_and_without_its_line_feed(router, setting):
    for end in ("", "\n"):
        r = router("ec25", ubus=False, files={STATUS: "ready" + end, TYPE: "verizon" + end})
        assert write(r, setting) == 0
        assert len(r.modem().commands) == 1 and r.modem().commands[0].startswith(("AT+CGDCONT=3,", "AT+QICSGP=3,"))


@both
def test_no_sim_status_at_all_leaves_the_modem_alone(router, setting):
    r = router("ec25", ubus=False, files={TYPE: "verizon\n"})
    assert write(r, setting) == -1
    r.write(f"{STATUS}/ready", "ready\n")  # a directory
    assert write(r, setting) == -1
    assert r.modem().commands == [] and r.commands == [f"cat {STATUS}"] * 2


@pytest.mark.parametrize("status", [
    "ready\n", "ready \n", "ready\r\n", "readyx", "ready ", "ready_to_go\n", "ready\nabsent\n", "ready\n\n",
    "ready" + "x" * 100000, "ready" + "\n" * 30,
], ids=lambda status: repr(status)[:16])
@both
def test_only_the_first_word_of_the_sim_status_counts(router, setting, status):
    r = router("ec25", ubus=False, files={STATUS: status})
    assert write(r, setting) == 0
    assert r.modem().commands == [COMMANDS[setting[0]]]


@pytest.mark.parametrize("kind, is_verizon", [
    ("verizon\n", True), ("verizon lte\n", True), ("verizonx", True), ("verizon\r\n", True), ("verizon\natt\n", True),
    ("verizon" + "x" * 100000, True),
    ("Verizon\n", False), ("VERIZON\n", False), (" verizon\n", False), ("att\nverizon\n", False), ("verizo\n", False),
    ("att\n", False), ("", False), ("\n", False), ("v", False), (None, False),
], ids=lambda value: repr(value)[:16])
def test_the_kind_of_sim_chooses_the_context(router, kind, is_verizon):
    r = router("ec25", ubus=False, files=READY if kind is None else {**READY, TYPE: kind})
    assert write(r, SET_APN) == 0 and write(r, SET_ATH) == 0
    assert r.modem().commands == [
        (APN_VERIZON if is_verizon else APN).format("internet"),
        (CREDENTIALS_VERIZON if is_verizon else CREDENTIALS).format("internet", "user", "secret", 2)]


@pytest.mark.parametrize("text, code", [
    ("NONE", 0), ("PAP", 1), ("CHAP", 2), ("PAP or CHAP", 3),
    ("", 0), ("pap", 0), ("chap", 0), ("none", 0), ("pap or chap", 0), ("PAP OR CHAP", 0), ("PAP or CHAP ", 0),
    ("CHAP or PAP", 0), ("PAP/CHAP", 0), ("PAPx", 0), ("xPAP", 0), ("PA", 0), ("PAP ", 0), (" PAP", 0), ("CHA", 0),
    ("MSCHAP", 0), ("PAP or ", 0), ("1", 0), ("3", 0), ("auto", 0), ("x" * 5000, 0),
], ids=lambda value: repr(value)[:16])
def test_authentication_codes(router, text, code):
    r = router("ec25", ubus=False, files=READY)
    assert write(r, ["set-ath", "internet", "user", "secret", text]) == 0
    r.write(TYPE, "verizon\n")
    assert write(r, ["set-ath", "internet", "user", "secret", text]) == 0
    assert r.modem().commands == [
        form.format("internet", "user", "secret", code) for form in (CREDENTIALS, CREDENTIALS_VERIZON)]


@pytest.mark.parametrize("words", [
    ("", "", ""), ("internet", "", ""), ("", "user", ""), ("", "", "secret"), ("a", "b,c", "d"), ('a","b', 'c"', '"d'),
    ("%s%n", "%d", "%%"), ("ä", "€", "ß"), ("LOOK", "x", "y"), ("a b", " ", "c;d"), ("$(id)", "`id`", "|id"),
], ids=str)
def test_texts_are_written_as_they_are(router, words):
    apn, user, password = words
    r = router("ec25", ubus=False, files=READY)
    assert write(r, ["set-apn", apn]) == 0
    assert write(r, ["set-ath", apn, user, password, "PAP"]) == 0
    assert r.modem().commands == [APN.format(apn), CREDENTIALS.format(apn, user, password, 1)]
    assert r.commands == [f"cat {STATUS}", f"cat {TYPE}"] * 2 and r.programs == []


@pytest.mark.parametrize("reply", [*REFUSALS, '\n+CGDCONT: 1\n\nERROR\n', b"\r\nOK"], ids=repr)
@both
def test_a_refusal_fails(router, setting, reply):
    r = router("ec25", ubus=False, files=READY)
    r.modem().reply(COMMANDS[setting[0]], reply)
    assert write(r, setting) == -1
    assert r.modem().commands == [COMMANDS[setting[0]]]


@both
def test_a_reply_of_more_than_200_characters_has_no_ok(router, setting):
    r = router("ec25", ubus=False, files=READY)
    r.modem().reply(COMMANDS[setting[0]], "\n" + "x" * 300 + "\n\nOK\n")
    assert write(r, setting) == -1
    r.modem().reply(COMMANDS[setting[0]], "\n" + "x" * 100 + "\n\nOK\n")
    assert write(r, setting) == 0


@unreachable
@both
def test_a_modem_that_cannot_be_told_counts_as_told(router, setting, state):
    r = router("ec25", ubus=False, files=READY)
    with state(r):
        assert write(r, setting) == 0
    assert r.modem().commands == []


@unreachable
@both
def test_a_sim_that_is_not_ready_fails_even_so(router, setting, state):
    r = router("ec25", ubus=False, files={STATUS: "absent\n"})
    with state(r):
        assert write(r, setting) == -1
    assert r.modem().commands == []


@both
def test_a_modem_that_goes_when_it_is_told(router, setting):
    for after, result in ((0, 0), (4, -1)):  # a beginning of its echo is a reply
        r = router("ec25", ubus=False, files=READY)
        r.modem().misbehave("drop", after=after)
        assert write(r, setting) == result
        assert r.modem().commands == [COMMANDS[setting[0]]]


def lengths(form: str, *arguments: object) -> list[tuple[int, int]]:
    """Lengths of an APN that lead to a command of the length beside it."""
    room = len(form.format("", *arguments))
    return [(total - room, total) for total in (FITS - 1, FITS, FITS + 1, TOO_LONG - 1, TOO_LONG, 256, 5000)]


@pytest.mark.parametrize("files, form", [(READY, APN), (VERIZON, APN_VERIZON)], ids=["ordinary", "verizon"])
def test_an_apn_that_does_not_fit_aborts_and_nothing_is_sent(router, files, form):
    r = router("ec25", ubus=False, files=files)
    for length, total in lengths(form):
        apn = "x" * length
        check_length(r, ["set-apn", apn], form.format(apn), total)


@pytest.mark.parametrize("files, form", [(READY, CREDENTIALS), (VERIZON, CREDENTIALS_VERIZON)],
                         ids=["ordinary", "verizon"])
def test_credentials_that_do_not_fit_abort_and_nothing_is_sent(router, files, form):
    r = router("ec25", ubus=False, files=files)
    for length, total in lengths(form, "", "", 3):
        text = "x" * length
        for words in ((text, "", ""), ("", text, ""), ("", "", text), (text[:30], text[30:50], text[50:])):
            check_length(r, ["set-ath", *words, "PAP or CHAP"], form.format(*words, 3), total)


def check_length(r: Router, setting: list[str], command: str, total: int) -> None:
    assert len(command) == total
    r.clear_events()
    result = run_probe(r, setting[0], BUS, *setting[1:])
    assert result.returncode in ((0,) if total <= FITS else (ABORTED,) if total >= TOO_LONG else (0, ABORTED)), total
    if result.returncode == 0:
        assert parse(result) == (0, {})
    assert r.modem().commands == ([] if result.returncode else [command])


def test_the_length_of_an_apn_counts_bytes(router):
    r = router("ec25", ubus=False, files=READY)
    assert write(r, ["set-apn", "ä" * 38]) == 0
    assert run_probe(r, "set-apn", BUS, "ä" * 45).returncode == ABORTED
    assert r.modem().commands == [APN.format("ä" * 38)]


def test_a_long_apn_of_a_sim_that_is_not_ready_is_no_matter(router):
    r = router("ec25", ubus=False, files={STATUS: "absent\n"})
    result = run_probe(r, "set-apn", BUS, "x" * 200)
    assert result.returncode == ABORTED or parse(result) == (-1, {})
    assert r.modem().commands == []


def test_the_modem_is_the_one_on_the_bus(router):
    r = router(modems={"1-1.2": "ec25", "1-1.3": "ec20"}, ubus=False, files=READY)
    assert write(r, SET_APN, "1-1.3") == 0
    assert r.modem("1-1.2").commands == [] and r.modem("1-1.3").commands == [APN.format("internet")]
