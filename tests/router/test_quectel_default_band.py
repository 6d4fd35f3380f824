"""The default bands of the variants of Quectel modems, which the client of a port can have written."""

from pathlib import Path
from typing import Iterator

import pytest
from quectel_settings import BANDS, NOT_SUPPORTED, REFUSALS, VARIANTS, sent
from support import AT_PORT, no_interface, unreachable
from velasim import Router

REPLIES = Path(__file__).resolve().parents[1] / "replies"


@pytest.fixture(scope="module")
def ec25() -> Iterator[Router]:
    with Router("ec25", ubus=False) as r:
        yield r


@pytest.fixture(scope="module")
def no_echo() -> Iterator[Router]:
    """A port that sends nothing but the replies; nobody asks what model it belongs to."""
    with Router("nl678e", ubus=False) as r:
        r.modem().reply('AT+QCFG="band",*', "\nOK\n")
        yield r


def default_band(r: Router, port: str = AT_PORT) -> tuple[int, str]:
    r.clear_events()
    status, reply = r.api("post", "/modem/at", {"at-command": "default_band", "at-port": port})
    assert list(reply) == ["message"]
    assert r.commands == [] and r.programs == []
    return status, reply["message"]


def identity(revision: str) -> str:
    return f"\nQuectel\nEC25\n{revision}\n\nOK\n"


def chosen(r: Router, ati: str | bytes) -> str | None:
    """The band command that the answer to ATI leads to."""
    r.modem().reply("ATI", ati)
    status, message = default_band(r)
    commands = r.modem().commands
    assert commands[0] == "ATI" and len(commands) <= 2
    if len(commands) == 1:
        assert (status, message) == (NOT_SUPPORTED, "")
        return None
    assert status == 0 and message.endswith("\r\nOK\r\n")
    return commands[1]


@pytest.mark.parametrize("key, command", VARIANTS)
def test_every_variant_has_its_bands(ec25, key, command):
    for revision in (f"Revision: {key}", f"Revision: {key}R06A03M4G", f"Revision: X{key}", f"Revision:{key}",
                     f"Revision: firmware {key}_01.005"):
        assert chosen(ec25, identity(revision)) == command, revision


@pytest.mark.parametrize("key, command", VARIANTS)
def test_the_message_is_what_the_modem_said_to_the_band_command(ec25, key, command):
    ec25.modem().reply("ATI", identity(f"Revision: {key}"))
    assert default_band(ec25) == (0, f"{command}\r\r\nOK\r\n")
    assert sent(ec25) == [("ttyUSB2", "ATI"), ("ttyUSB2", command)]


@pytest.mark.parametrize("text", [
    "EC25AFF", "EC25AFX", "EC25AF", "EC25AFB", "EC25AFFB", "EC25AFXA", "EC25AFDX", "EC25A", "EC25AX", "EC25", "EC25G",
    "EC20C", "EC20", "EC20EQ", "EC21E", "EP06", "EP06B", "EP06-E", "EG25", "EG91E", "EC25-E", "EC25 E", "ec25e",
    "Ec25AFFA", "EC2 0CE", "EC25\tE", "", " ", "UC20",
])
def test_what_only_resembles_a_variant_has_none(ec25, text):
    assert chosen(ec25, identity(f"Revision: {text}")) is None


@pytest.mark.parametrize("text, key", [
    ("EC25AFFAR02A04M4G", "EC25AFFA"), ("EC25AFXDGAR05A03M4G", "EC25AFXD"), ("EC25AFAR05A04M4G", "EC25AFA"),
    ("EC25EUXGAR08A02M1G", "EC25EUX"), ("EC25EUX", "EC25EUX"), ("EC25EFAR06A03M4G", "EC25E"), ("EC25EUGAR06", "EC25E"),
    ("EC25EU", "EC25E"), ("EC25EC25EUX", "EC25EUX"), ("EC25E and EC25EUX", "EC25EUX"), ("EC25AUTFAR02", "EC25AU"),
    ("EC20CEFAGR06", "EC20CE"), ("EP06ELAR03A08M4G", "EP06E"), ("EP06ALAR03A08M4G", "EP06A"),
    ("EG25GGBR07A08M2G", "EG25G"), ("EC25AFA EC25AFFA", "EC25AFFA"), ("EC25AFA EC25AFXD", "EC25AFXD"),
])
def test_which_variant_a_revision_is_of(ec25, text, key):
    assert chosen(ec25, identity(f"Revision: {text}")) == BANDS[key]


def test_of_two_variants_in_one_revision_the_earlier_row_counts(no_echo):
    for first, (key, command) in enumerate(VARIANTS):
        for later, _ in VARIANTS[first + 1:]:
            for text in (f"{key} {later}", f"{later} {key}"):
                assert chosen(no_echo, identity(f"Revision: {text}")) == command, text


@pytest.mark.parametrize("ati", [
    "\nQuectel\nEC25AFFA\n\nOK\n", "\nEC25AFFA Revision EC25AFFA\n\nOK\n", "\nrevision: EC25AFFA\n\nOK\n",
    "\nREVISION: EC25AFFA\n\nOK\n", "\nRevision : EC25AFFA\n\nOK\n", "\nOK\n", "\nOK\nRevision",
], ids=repr)
def test_without_a_revision_nothing_else_is_sent(ec25, ati):
    assert chosen(ec25, ati) is None
    assert ec25.modem().commands == ["ATI"]


@pytest.mark.parametrize("ati", [
    "\nEC25AFFA\nRevision: EC25G\n\nOK\n", "\nRevision: EC25G\nEC25AFFA\n\nOK\n",
    "\nRevision: EC25G\nRevision: EC25AFFA\n\nOK\n", "\nRevision:\nEC25AFFA\n\nOK\n",
], ids=repr)
def test_only_the_line_of_the_first_revision_counts(ec25, ati):
    assert chosen(ec25, ati) is None
    assert chosen(ec25, "\nRevision: EC20CE\nRevision: EC25AFFA\n\nOK\n") == BANDS["EC20CE"]


@pytest.mark.parametrize("ati", [
    b"\r\nQuectel\r\nOK\r\nRevision: EC20CEFA", b"OK\r\nRevision:EC20CE", b"Revision: EC20CE OK\r",
    b"Revision: EC20CE\r\rOK\r", b"OK\nRevision: EC20CE\n",
], ids=repr)
def test_a_revision_may_end_the_reply(no_echo, ati):
    assert chosen(no_echo, ati) == BANDS["EC20CE"]


@pytest.mark.parametrize("ati", [b"\r\nOK\r\nRevision:", b"OK\r\nRevision: ", b"OK\r\nRevision: EC20C"], ids=repr)
def test_a_reply_that_ends_in_the_label_or_in_half_a_key_has_no_variant(no_echo, ati):
    assert chosen(no_echo, ati) is None


@pytest.mark.parametrize("key", BANDS)
def test_a_revision_counts_up_to_its_60th_character(no_echo, key):
    # The blank behind the label is the first of them.
    for before, expected in ((59 - len(key), BANDS[key]), (60 - len(key), None), (80, None)):
        text = f"Revision: {'x' * before}{key}"
        # EC25EUX without its last letter is still an EC25E.
        if key == "EC25EUX" and before == 60 - len(key):
            expected = BANDS["EC25E"]
        assert chosen(no_echo, f"\n{text}\n\nOK\n") == expected, text
        assert chosen(no_echo, f"\n{text}{'y' * 40}\n\nOK\n") == expected, text


def test_a_very_long_revision_is_cut_not_an_error(no_echo):
    assert chosen(no_echo, f"\nRevision: EC20CE{'x' * 300}\n\nOK\n") == BANDS["EC20CE"]


def test_an_identity_of_more_than_400_characters_is_not_seen_to_be_ok(no_echo):
    for length, expected in ((396, BANDS["EC20CE"]), (404, None), (3000, None)):
        text = "\r\nRevision: EC20CE\r\n\r\nOK\r\n"
        assert chosen(no_echo, "x" * (length - len(text)) + text) == expected
        assert usable_without_echo(no_echo)


def usable_without_echo(r: Router) -> bool:
    """Lets the modem finish what it still had to send."""
    r.modem().behave()
    return r.run("vela_modem", "AT", "AT").stdout == "\n\r\nOK\r\n"


@pytest.mark.parametrize("refusal", [*REFUSALS, "\nRevision: EC25AFFA\n\nERROR\n", b"\r\nRevision: EC25AFFA\r\n\r\nOK"],
                         ids=repr)
def test_a_refused_identity_has_no_variant(ec25, refusal):
    assert chosen(ec25, refusal) is None


@pytest.mark.parametrize("refusal", [*REFUSALS, "\nOK?\nERROR\n", b"\r\nOK"], ids=repr)
def test_a_refused_band_command_is_not_supported_and_its_words_are_the_message(router, refusal):
    r = router("ec25", ubus=False)
    r.modem().reply("ATI", identity("Revision: EC20CEFA"))
    r.modem().reply(BANDS["EC20CE"], refusal)
    status, message = default_band(r)
    text = refusal.decode() if isinstance(refusal, bytes) else refusal.replace("\n", "\r\n")
    assert (status, message) == (NOT_SUPPORTED, f"{BANDS['EC20CE']}\r{text}")
    assert r.modem().commands == ["ATI", BANDS["EC20CE"]]


def test_an_answer_to_the_band_command_that_fills_its_buffer_is_not_seen_to_be_ok(router):
    r = router("nl678e", ubus=False)
    r.modem().reply("ATI", identity("Revision: EC20CEFA"))
    for length, status in ((496, 0), (504, NOT_SUPPORTED), (4000, NOT_SUPPORTED)):
        text = ("0123456789" * length)[:length - 4] + "OK\r\n"
        r.modem().reply(BANDS["EC20CE"], text)
        result, message = default_band(r)
        assert result == status and text.startswith(message)
        assert message == text if status == 0 else 495 <= len(message) <= 500
        assert usable_without_echo(r)


@unreachable
def test_bands_of_a_port_that_does_not_answer(router, state):
    r = router("ec25", ubus=False)
    r.modem().reply("ATI", identity("Revision: EC20CEFA"))
    with state(r):
        result = default_band(r)
    # The port is named by the client: it is there although its interface is not.
    assert result == ((0, f"{BANDS['EC20CE']}\r\r\nOK\r\n") if state is no_interface else (NOT_SUPPORTED, ""))


@pytest.mark.parametrize("port", ["/dev/ttyUSB9", "", "/tmp", "/dev/null", "x" * 5000])
def test_bands_of_a_port_that_is_none(ec25, port):
    assert default_band(ec25, port) == (NOT_SUPPORTED, "")
    assert ec25.modem().commands == []


def test_a_modem_that_goes_at_the_identity_is_not_supported(router):
    for after in (0, 9):
        r = router("ec25", ubus=False)
        r.modem().misbehave("drop", after=after)
        assert default_band(r) == (NOT_SUPPORTED, "")
        assert r.modem().commands == ["ATI"]


def test_the_port_is_the_one_that_is_named(router):
    r = router(modems={"1-1.2": "ec25", "1-1.3": "ec20"}, ubus=False)
    assert default_band(r, "/dev/ttyUSB3")[0] == 0
    assert sent(r) == [("ttyUSB3", "ATI"), ("ttyUSB3", BANDS["EC25E"])]
    r.modem("1-1.3").reply("ATI", identity("Revision: EC20CEFA"))
    assert default_band(r, r.modem("1-1.3").tty(2))[0] == 0
    assert sent(r) == [("ttyUSB6", "ATI"), ("ttyUSB6", BANDS["EC20CE"])]


@pytest.mark.parametrize("request_", [{"at-command": "default_band"}, {"at-port": AT_PORT},
                                      {"at-command": "default_band", "at-port": 2}], ids=str)
def test_a_request_that_lacks_a_key_sends_nothing(ec25, request_):
    ec25.clear_events()
    assert ec25.api("post", "/modem/at", request_) == (-255, {})
    assert ec25.events == []


def test_default_band_is_no_command_of_the_command_line(ec25):
    ec25.clear_events()
    assert ec25.run("vela_modem", "default_band").stdout == "\nUsage:<vela_modem> <command> [option]"
    assert ec25.events == []


RECORDED = {
    "quectel-ec20/ati--ec20cefrsg.txt": "EC20CE", "quectel-ec20/ati--ec20cehdlg.txt": "EC20CE",
    "quectel-ec20/ati--manual-ec20cefdr01.txt": "EC20CE", "quectel-ec20/ati-compound--ec20f-no-sim-net.txt": "EC20CE",
    "quectel-ec20/ati-csub--echo-ec20eqar02.txt": None, "quectel-ec200u/ati.txt": None,
    "quectel-eg25/ati--eg25ggbr07a08m2g.txt": "EG25G", "quectel-m26/ati--echo-old-family-names.txt": None,
    "quectel-rm520n/ati--echo.txt": None, "quectel-uc20/ati--echo-lowercase.txt": None,
}


@pytest.mark.parametrize("name, key", RECORDED.items())
def test_recorded_identities(no_echo, name, key):
    reply = (REPLIES / name).read_text(encoding="utf-8").split("\n---\n", 1)[1]
    assert chosen(no_echo, reply) == (BANDS[key] if key else None)


def test_every_recorded_identity_has_its_test_here():
    assert {*RECORDED} == {str(path.relative_to(REPLIES)) for path in REPLIES.glob("quectel-*/ati*.txt")}


@pytest.mark.parametrize("ati", [
    b"\xff" * 300 + b"\r\nOK\r\n", b"Revision:" * 40 + b"\r\nOK\r\n", b"Revision: EC20C\0E\r\nOK\r\n",
    b"Revision: %s%n%n\r\nOK\r\n", b"\r\nOK\r\nRevision:\0EC20CE\r\n", b"OK\r\n" * 100,
], ids=lambda ati: repr(ati[:16]))
def test_garbage_for_an_identity_does_no_harm(no_echo, ati):
    no_echo.modem().reply("ATI", ati)
    assert default_band(no_echo) == (NOT_SUPPORTED, "")
    assert no_echo.modem().commands == ["ATI"]
    assert usable_without_echo(no_echo)


def test_a_silent_band_command_is_not_supported(router):
    r = router("nl678e", ubus=False)
    r.modem().reply("ATI", identity("Revision: EC20CEFA"))
    r.modem().reply(BANDS["EC20CE"], b"")
    assert default_band(r) == (NOT_SUPPORTED, "")
    assert r.modem().commands == ["ATI", BANDS["EC20CE"]]
