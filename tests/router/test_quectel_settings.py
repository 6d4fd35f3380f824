"""What is written into Quectel modems: the thermal limits, the default bands, the APN and its credentials."""

import json
import re
from pathlib import Path
from typing import Iterator

import pytest
from probe_client import parse, run_probe
from support import ABORTED, AT_PORT, MODELS, no_interface, unreachable, usable
from velasim import Router
from velasim.router import Process

BUS = "1-1.2"
EVERY = sorted({*MODELS, "unknown"})
NOT_SUPPORTED = -17
REFUSALS = ["\nERROR\n", "\n+CME ERROR: 3\n", "\n+CME ERROR: operation not allowed\n"]
# Lengths of a command that fit its buffer of 100, whatever of it the line end takes, and that do not.
FITS, TOO_LONG = 97, 101


def sent(r: Router) -> list[tuple[str, str]]:
    return [(event["port"], event["command"]) for event in r.events if event["kind"] == "at"]


def port_of(name: str) -> str:
    return MODELS[name].control_port.removeprefix("/dev/")


# The thermal limits

LIMIT_RATES = 'AT+QCFG="thermal/limit_rates",{}'
LIMITS = 'AT+QCFG="thermal/modem",1,{},{}'
SET, FAILED = "thermal setting  success", "thermal setting failed"
THERMAL = ("ec20", "ec25", "ep06", "ec200t", "bg95", "eg91", "ec100y")


def configured(**options: str) -> dict[str, str]:
    lines = [f"\toption {name} '{value}'\n".replace("'it's'", "\"it's\"") for name, value in options.items()]
    return {"velaconfig": "config service 'modem'\n\tlist bus '1-1.2'\n" + "".join(lines)}


def wanted(en_limt: str = "0", tigger: str = "95", clear: str = "90") -> list[str]:
    return [LIMIT_RATES.format(en_limt), LIMITS.format(tigger, clear)]


def thermal(r: Router) -> str:
    result = r.run("vela_modem", "thermal")
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


@pytest.mark.parametrize("name", THERMAL)
def test_without_options_the_limits_are_0_then_95_and_90(router, name):
    r = router(name, ubus=False)
    assert thermal(r) == SET
    assert sent(r) == [(port_of(name), command) for command in wanted()]
    assert r.commands == [] and r.programs == []


@pytest.mark.parametrize("name", sorted({*EVERY} - {*THERMAL}))
def test_models_without_thermal_limits_do_not_support_them(router, name):
    r = router(name, ubus=False, uci=configured(en_limt="1", tigger="80", clear="70"))
    asked = ["AT+CIMI"] if name == "unknown" else []  # by its detection
    assert thermal(r) == "Not support"
    assert r.modem().commands == asked


@pytest.mark.parametrize("options", [
    {"en_limt": "1", "tigger": "105", "clear": "100"}, {"en_limt": "1"}, {"tigger": "85"}, {"clear": "75"},
    {"en_limt": "1", "clear": "75"}, {"tigger": "-40", "clear": "-45"}, {"tigger": "1234567"},
    {"en_limt": "1", "trigger": "1", "clean": "2"},  # the options' names are misspelt, not these
    {"en_limit": "1"},
], ids=str)
def test_each_option_stands_in_place_of_its_own_default(router, options):
    r = router("ec25", ubus=False, uci=configured(**options))
    known = {name: value for name, value in options.items() if name in ("en_limt", "tigger", "clear")}
    assert thermal(r) == SET
    assert r.modem().commands == wanted(**known)


def test_empty_options_lists_and_no_configuration_leave_the_defaults(router):
    lists = "config service 'modem'\n" + "".join(f"\tlist {name} '1'\n" for name in ("en_limt", "tigger", "clear"))
    for uci in (configured(en_limt="", tigger="", clear=""), {"velaconfig": lists}, {"velaconfig": None},
                {"velaconfig": configured(en_limt="1")["velaconfig"].replace("'modem'", "'modem_sms'")}):
        r = router("ec25", ubus=False, uci=uci)
        assert thermal(r) == SET
        assert r.modem().commands == wanted()


def test_the_options_are_read_anew_at_each_run(router):
    r = router("ec25", ubus=False)
    assert thermal(r) == SET
    r.write("/etc/config/velaconfig", configured(tigger="70")["velaconfig"])
    assert thermal(r) == SET
    assert r.modem().commands == [*wanted(), *wanted(tigger="70")]


@pytest.mark.parametrize("value", ['"', "it's", "1,2", "a b", "%s%n", "\\", ";", "$(id)", "ä", "ERROR", "-1", "\x7f"])
def test_odd_options_are_sent_as_they_are(router, value):
    r = router("ec25", ubus=False, uci=configured(en_limt=value, tigger=value, clear=value))
    r.modem().reply('AT+QCFG="thermal/*', "\nOK\n")
    assert thermal(r) == SET
    assert r.modem().commands == wanted(value, value, value)
    assert r.commands == [] and r.programs == []


@pytest.mark.parametrize("length", [32, 64, 100, 128, 200, 256, 5000])
@pytest.mark.parametrize("option", ["en_limt", "tigger", "clear"])
def test_an_option_that_is_too_long_is_never_sent_cut(router, option, length):
    r = router("ec25", ubus=False, uci=configured(**{option: "7" * length}))
    r.modem().reply('AT+QCFG="thermal/*', "\nOK\n")
    result = r.run("vela_modem", "thermal")
    commands = r.modem().commands
    # The longest texts fit no command and with their echo no reply.
    assert result.returncode == ABORTED or (result.returncode == 0 and length < 256), result
    assert commands == wanted(**{option: "7" * length})[:len(commands)]
    assert result.returncode == ABORTED or result.stdout == FAILED or len(commands) == 2


@pytest.mark.parametrize("refusal", [*REFUSALS, '\n+QCFG: "thermal/limit_rates",0\n\nERROR\n'], ids=repr)
def test_a_first_command_that_is_refused_is_the_last(router, refusal):
    r = router("ec25", ubus=False)
    r.modem().reply(wanted()[0], refusal)
    assert thermal(r) == FAILED
    assert r.modem().commands == wanted()[:1]


@pytest.mark.parametrize("refusal", REFUSALS, ids=repr)
def test_a_second_command_that_is_refused_fails(router, refusal):
    r = router("ec25", ubus=False)
    r.modem().reply(wanted()[1], refusal)
    assert thermal(r) == FAILED
    assert r.modem().commands == wanted()


def test_an_ok_without_its_line_end_is_none(router):
    for number in (0, 1):
        r = router("ec25", ubus=False)
        r.modem().reply(wanted()[number], b"\r\nOK")
        assert thermal(r) == FAILED
        assert r.modem().commands == wanted()[:number + 1]


def test_a_reply_of_more_than_200_characters_is_not_seen_to_be_ok(router):
    for number in (0, 1):
        r = router("ec25", ubus=False)
        r.modem().reply(wanted()[number], "\n" + "x" * 200 + "\n\nOK\n")
        assert thermal(r) == FAILED
        r.modem().reply(wanted()[number], "\n" + "x" * 100 + "\n\nOK\n")
        assert thermal(r) == SET


@unreachable
def test_a_modem_that_cannot_be_reached_counts_as_set(router, state):
    r = router("ec25", ubus=False)
    with state(r):
        result = r.run("vela_modem", "thermal")
    assert (result.returncode, result.stdout) == (0, SET)
    assert sent(r) == []


def test_a_modem_that_goes_at_the_first_command_counts_as_set(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("drop", after=0)
    result = r.run("vela_modem", "thermal")
    assert (result.returncode, result.stdout) == (0, SET)
    assert r.modem().commands == wanted()[:1]


def test_a_modem_that_goes_within_its_first_answer_has_refused(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("drop", after=4)
    result = r.run("vela_modem", "thermal")
    assert (result.returncode, result.stdout) == (0, FAILED)
    assert r.modem().commands == wanted()[:1]


# The default bands

VARIANTS = [
    ("EC25AFFA", 'AT+QCFG="band",0,42000000000000381a,0'),
    ("EC25AFXD", 'AT+QCFG="band",0,42000000000000381a,0'),
    ("EC25AFA", 'AT+QCFG="band",0,80a,0'),
    ("EC20CE", 'AT+QCFG="band",0,1e200000095,0'),
    ("EC25EUX", 'AT+QCFG="band",0,1a0080800c5,0'),
    ("EC25E", 'AT+QCFG="band",0,1a0000800d5,0'),
    ("EP06E", 'AT+QCFG="band",0,7e00000000000000000000000000000000000000000000ff000001a0880800d5,0'),
    ("EP06A", 'AT+QCFG="band",0,2000000003300185a,0'),
    ("EC25AU", 'AT+QCFG="band",0,80080000df,0'),
    ("EG25G", 'AT+QCFG="band",0,1e00b0e18df,0'),
]
BANDS = dict(VARIANTS)
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


# The APN and its credentials

STATUS, TYPE = "/tmp/sim_status", "/tmp/sim_type"
READY = {STATUS: "ready\n"}
VERIZON = {STATUS: "ready\n", TYPE: "verizon\n"}
APN = 'AT+CGDCONT=1,"IP","{}"'
APN_VERIZON = 'AT+CGDCONT=3,"IPV4V6","{}"'
CREDENTIALS = 'AT+QICSGP=1,1,"{}","{}","{}",{}'
CREDENTIALS_VERIZON = 'AT+QICSGP=3,3,"{}","{}","{}",{}'
HAVE_APN = ("ec20", "ec25", "ep06", "uc20", "ec200t", "bg95", "eg91", "ec100y")
HAVE_CREDENTIALS = ("ec20", "ec25", "ep06", "uc20", "ec200t")
OWN_DIALECT = ("nl678e",)  # which has another test

SET_APN = ["set-apn", "internet"]
SET_ATH = ["set-ath", "internet", "user", "secret", "CHAP"]
COMMANDS = {"set-apn": APN.format("internet"), "set-ath": CREDENTIALS.format("internet", "user", "secret", 2)}
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


# Silence


def test_silence_counts_as_success_and_half_an_answer_as_refusal(router):
    """All in one test and at the same time, because each exchange takes its 15 seconds."""
    buses = {"1-1.2": "ec25", "1-1.3": "ec20", "1-1.4": "ep06", "2-1.2": "ec25", "2-1.3": "ec20"}
    r = router(modems=buses, ubus=False, files=READY)
    r.modem("1-1.2").misbehave("silent")
    r.modem("1-1.3").misbehave("silent")
    # The first command stays without an answer, the second is refused.
    assert r.run("vela_modem", "1-1.4", "AT", "ATE0").stdout.endswith("OK\r\n")
    r.modem("1-1.4").reply(wanted()[0], b"")
    r.modem("1-1.4").reply(wanted()[1], "\nERROR\n")
    # These two only echo.
    r.modem("2-1.2").misbehave("no_final")
    r.modem("2-1.3").misbehave("no_final")
    r.clear_events()
    probe = str(r.build / "tests/router/probe")

    def bands(port: str) -> Process:
        return r.start("vela_api", "post", "/modem/at", json.dumps({"at-command": "default_band", "at-port": port}))

    started = [
        r.start("vela_modem", "1-1.2", "thermal"), r.start("vela_modem", "1-1.4", "thermal"),
        r.start("vela_modem", "2-1.2", "thermal"), r.start(probe, SET_APN[0], "1-1.3", *SET_APN[1:]),
        r.start(probe, SET_ATH[0], "2-1.3", *SET_ATH[1:]), bands(r.modem("1-1.2").tty(3)),
        bands(r.modem("2-1.2").tty(3)),
    ]
    output = [process.communicate()[0].decode() for process in started]
    assert [process.returncode for process in started[:5]] == [0] * 5
    assert output[:5] == [SET, FAILED, FAILED, "{\n}\nresult 0\n", "{\n}\nresult -1\n"]
    assert [json.loads(text) for text in output[5:]] == [{"message": ""}] * 2
    assert [command for command in r.modem("1-1.2").commands if command != "ATI"] == wanted()
    assert r.modem("1-1.4").commands == wanted()
    assert [command for command in r.modem("2-1.2").commands if command != "ATI"] == wanted()[:1]
    assert r.modem("1-1.3").commands == [COMMANDS["set-apn"]]
    assert r.modem("2-1.3").commands == [COMMANDS["set-ath"]]
    for bus in buses:
        r.modem(bus).behave()
    assert usable(r)


def test_a_silent_band_command_is_not_supported(router):
    r = router("nl678e", ubus=False)
    r.modem().reply("ATI", identity("Revision: EC20CEFA"))
    r.modem().reply(BANDS["EC20CE"], b"")
    assert default_band(r) == (NOT_SUPPORTED, "")
    assert r.modem().commands == ["ATI", BANDS["EC20CE"]]


def test_every_command_line_of_the_settings_is_known_to_the_simulated_modems(router):
    """So that a test of theirs that changes nothing sees what the modem answers."""
    r = router("ec25", ubus=False)
    for command in (*wanted(), *BANDS.values(), *COMMANDS.values()):
        assert re.search(r"\r\nOK\r\n$", r.run("vela_modem", "AT", command).stdout), command
