"""What is written into a Quectel modem: thermal limits, APN and credentials, as the modem receives it."""

import pytest
from probe_client import parse, probe, run_probe
from support import ABORTED, locked
from velasim import Router

BUS = "1-1.2"
LIMIT = 'AT+QCFG="thermal/limit_rates",'
RANGE = 'AT+QCFG="thermal/modem",1,'
SUCCESS, FAILURE = "thermal setting  success", "thermal setting failed"


# Thermal limits


def thermal(r: Router) -> str:
    result = r.run("vela_modem", "thermal")
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


def velaconfig(**options: str) -> dict:
    return {"velaconfig": "config service 'modem'\n" + "".join(
        f"\toption {name} '{value}'\n" for name, value in options.items())}


@pytest.mark.parametrize("uci", [
    {}, {"velaconfig": None}, velaconfig(), velaconfig(en_limt="", tigger="", clear=""),
    velaconfig(en_limit="1", trigger="80"), {"velaconfig": "config service 'modem'\n\tlist tigger '80'\n"},
], ids=["as shipped", "no file", "no options", "empty options", "well spelt options", "a list"])
def test_unset_thermal_options_are_0_and_95_and_90(router, uci):
    r = router("ec25", uci=uci)
    assert thermal(r) == SUCCESS
    assert r.modem().commands == [LIMIT + "0", RANGE + "95,90"]


@pytest.mark.parametrize("options, commands", [
    ({"en_limt": "1"}, [LIMIT + "1", RANGE + "95,90"]),
    ({"tigger": "80"}, [LIMIT + "0", RANGE + "80,90"]),
    ({"clear": "-5"}, [LIMIT + "0", RANGE + "95,-5"]),
    ({"en_limt": "2", "tigger": "105", "clear": "100"}, [LIMIT + "2", RANGE + "105,100"]),
    ({"en_limt": "a b,%s"}, [LIMIT + "a b,%s", RANGE + "95,90"]),
    ({"tigger": "x" * 31, "clear": "y" * 31}, [LIMIT + "0", f"{RANGE}{'x' * 31},{'y' * 31}"]),
])
def test_thermal_options_are_sent_as_they_are(router, options, commands):
    r = router("ec25", uci=velaconfig(**options))
    assert thermal(r) == SUCCESS
    assert r.modem().commands == commands


@pytest.mark.parametrize("option", ["en_limt", "tigger", "clear"])
def test_a_thermal_option_of_32_characters_aborts_and_nothing_is_sent(router, option):
    r = router("ec25", uci=velaconfig(**{option: "9" * 32}))
    assert r.run("vela_modem", "thermal").returncode == ABORTED
    assert r.events == []


@pytest.mark.parametrize("answer", ["\nERROR\n", "\n+CME ERROR: 3\n", b"\r\nOK"], ids=repr)
def test_a_modem_that_refuses_a_thermal_setting(router, answer):
    r = router("ep06")
    r.modem().reply(RANGE + "95,90", answer)
    assert thermal(r) == FAILURE
    assert r.modem().commands == [LIMIT + "0", RANGE + "95,90"]
    r.modem().reply(LIMIT + "0", answer)
    r.clear_events()
    assert thermal(r) == FAILURE
    assert r.modem().commands == [LIMIT + "0"]


def test_thermal_limits_that_do_not_reach_the_modem_are_no_failure(router):
    r = router("ec25")
    with locked(r):
        assert thermal(r) == SUCCESS
    assert r.events == []


def test_a_first_thermal_setting_without_an_answer_is_followed_by_the_second(router):
    r = router("ec25")
    r.modem().reply(RANGE + "95,90", "\nERROR\n")
    r.modem().misbehave("silent")
    process = r.start("vela_modem", "thermal")
    r.wait_for(lambda: r.modem().commands, "the first command")
    r.modem().behave()
    assert process.communicate()[0].decode() == FAILURE
    assert r.modem().commands == [LIMIT + "0", RANGE + "95,90"]


@pytest.mark.parametrize("model, has_it", [
    ("ec20", True), ("ec25", True), ("ep06", True), ("ec200t", True), ("bg95", True), ("eg91", True), ("ec100y", True),
    ("uc20", False), ("mc7430", False), ("simcom7600", False), ("me3630", False), ("nl678e", False), ("unknown", False),
])
def test_the_models_with_thermal_limits(router, model, has_it):
    r = router(model)
    assert thermal(r) == (SUCCESS if has_it else "Not support")
    assert any("thermal" in command for command in r.modem().commands) == has_it


# Data context


def with_sim(router, status: str | None = "ready\n", sim: str | None = "att\n", model: str = "ec25") -> Router:
    return router(model, files={"/tmp/sim_status": status, "/tmp/sim_type": sim})


ATH = ("net.example", "me", "secret")
FILES = ["cat /tmp/sim_status", "cat /tmp/sim_type"]


@pytest.mark.parametrize("sim", ["att\n", "", "not verizon\n", "Verizon\n", "verizo\n", "\nverizon\n"], ids=repr)
def test_an_ordinary_sim_has_context_1_of_ipv4(router, sim):
    r = with_sim(router, sim=sim)
    assert probe(r, "set-apn", BUS, "net.example") == (0, {})
    assert probe(r, "set-ath", BUS, *ATH, "CHAP") == (0, {})
    assert r.modem().commands == [
        'AT+CGDCONT=1,"IP","net.example"', 'AT+QICSGP=1,1,"net.example","me","secret",2']
    assert r.commands == FILES * 2


@pytest.mark.parametrize("sim", ["verizon\n", "verizon", "verizon_private and a very long text\n"], ids=repr)
def test_a_verizon_sim_has_context_3_of_both_types(router, sim):
    r = with_sim(router, sim=sim)
    assert probe(r, "set-apn", BUS, "net.example") == (0, {})
    assert probe(r, "set-ath", BUS, *ATH, "PAP or CHAP") == (0, {})
    assert r.modem().commands == [
        'AT+CGDCONT=3,"IPV4V6","net.example"', 'AT+QICSGP=3,3,"net.example","me","secret",3']


def test_a_sim_of_no_type_is_an_ordinary_one(router):
    r = with_sim(router, sim=None)
    result = run_probe(r, "set-apn", BUS, "net.example")
    assert parse(result) == (0, {}) and "/tmp/sim_type" in result.stderr
    assert r.modem().commands == ['AT+CGDCONT=1,"IP","net.example"']


@pytest.mark.parametrize("status", ["absent\n", "", "not ready\n", "READY\n", "read\n", " ready\n"], ids=repr)
def test_with_a_sim_that_is_not_ready_the_modem_is_not_touched(router, status):
    r = with_sim(router, status)
    assert probe(r, "set-apn", BUS, "net.example") == (-1, {})
    assert probe(r, "set-ath", BUS, *ATH, "PAP") == (-1, {})
    assert r.modem().commands == [] and r.commands == FILES[:1] * 2


@pytest.mark.parametrize("text, code", [("NONE", 0), ("PAP", 1), ("CHAP", 2), ("PAP or CHAP", 3), ("pap", 0), ("", 0)])
def test_the_authentication_is_sent_as_its_number(router, text, code):
    r = with_sim(router)
    assert probe(r, "set-ath", BUS, "", "", "", text) == (0, {})
    assert r.modem().commands == [f'AT+QICSGP=1,1,"","","",{code}']


@pytest.mark.parametrize("answer", ["\nERROR\n", "\n+CME ERROR: 50\n", b"\r\nOK"], ids=repr)
def test_a_modem_that_refuses_its_context(router, answer):
    r = with_sim(router)
    r.modem().reply('AT+CGDCONT=1,"IP","net.example"', answer)
    r.modem().reply('AT+QICSGP=1,1,"net.example","me","secret",1', answer)
    assert probe(r, "set-apn", BUS, "net.example") == (-1, {})
    assert probe(r, "set-ath", BUS, *ATH, "PAP") == (-1, {})


def test_a_context_that_does_not_reach_the_modem_is_no_failure(router):
    r = with_sim(router)
    with locked(r):
        assert probe(r, "set-apn", BUS, "net.example") == (0, {})
        assert probe(r, "set-ath", BUS, *ATH, "PAP") == (0, {})
    assert r.modem().commands == []
