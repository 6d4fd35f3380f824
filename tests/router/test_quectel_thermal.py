"""The thermal limits that are written into Quectel modems."""

import pytest
from quectel_settings import EVERY, FAILED, REFUSALS, SET, port_of, sent, wanted
from support import ABORTED, unreachable
from velasim import Router

THERMAL = ("ec20", "ec25", "ep06", "ec200t", "bg95", "eg91", "ec100y")


def configured(**options: str) -> dict[str, str]:
    lines = [f"\toption {name} '{value}'\n".replace("'it's'", "\"it's\"") for name, value in options.items()]
    return {"velaconfig": "config service 'modem'\n\tlist bus '1-1.2'\n" + "".join(lines)}


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
