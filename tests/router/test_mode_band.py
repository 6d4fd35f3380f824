"""Network generation, scan mode and bands of the modem, as queries and as settings; and the reset commands."""

import pytest
from probe_client import probe, run_probe
from support import ABORTED, AT_PORT, MODELS, locked
from velasim import Router

BUS = "1-1.2"
MODE_QUERIES = {"simcom7600": "AT+CNSMOD?", "me3630": "AT+ZPAS?"}
OWN_REPORT = ("nl678e",)  # its generation is read from its cell list
SCAN_MODE = 'AT+QCFG="nwscanmode"'
BAND = 'AT+QCFG="band"'
SERVING = 'AT+QENG="servingcell"'


def ok(*lines: str) -> str:
    return "\n" + "".join(f"{line}\n" for line in lines) + "\nOK\n"


def sent(r: Router) -> list[tuple[str, str]]:
    return [(event["port"], event["command"]) for event in r.events if event["kind"] == "at"]


# The generation


@pytest.mark.parametrize("name", sorted({*MODELS, "unknown"} - {*OWN_REPORT}))
def test_every_model_is_asked_in_its_dialect_and_on_its_port(router, name):
    r = router(name, ubus=False)
    result = r.run("vela_modem", "get_mode")
    expected = {"mc7430": "", "unknown": ""}.get(name, "4G")
    assert (result.returncode, result.stdout, result.stderr) == (0, f"get_mode: {expected}\n", "")
    port = MODELS[name].control_port if name in MODELS else "/dev/ttyACM0"
    assert sent(r)[-1] == (port.removeprefix("/dev/"), MODE_QUERIES.get(name, "AT+QNWINFO"))
    assert len(sent(r)) == (2 if name == "unknown" else 1)


def get_mode(r: Router, query: str, reply: str) -> str:
    r.modem().reply(query, reply)
    result = r.run("vela_modem", "get_mode")
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout.removeprefix("get_mode: ").removesuffix("\n")


@pytest.mark.parametrize("text, mode", [
    ("FDD LTE", "4G"), ("TDD LTE", "4G"), ("HSPA+", "4G"), ("CDMA1X", "3G"), ("EVDO", "3G"), ("UMTS", "3G"),
    ("TD-SCDMA", "3G"), ("WCDMA", "3G"), ("HSPA", "3G"), ("HSUPA", "3G"), ("HSDPA", "3G"), ("HDR", "3G"), ("GSM", "2G"),
    ("GPRS", "2G"), ("EDGE", "2G"), ("No Service", ""), ("lte", ""), ("", ""), ("eMTC", ""), ("HSP", ""),
])
def test_quectel_generations(router, text, mode):
    r = router("ec25", ubus=False)
    assert get_mode(r, "AT+QNWINFO", ok(f'+QNWINFO: "{text}","26202","BAND 3",1250')) == mode


@pytest.mark.parametrize("text, mode", [
    ("LTE", "4G"), ("HSPA+", "4G"), ("EVDO", "3G"), ("UMTS", "3G"), ("TD-SCDMA", "3G"), ("HSPA", "3G"), ("HSUPA", "3G"),
    ("HSDPA", "3G"), ("EHRPD", "3G"), ("CDMA", "2G"), ("WCDMA", "2G"), ("GSM", "2G"), ("GPRS", "2G"), ("HDR", ""),
    ("EDGE", ""), ("No Service", ""), ("Limited Service", ""), ("", ""),
])
def test_zte_generations(router, text, mode):
    r = router("me3630", ubus=False)
    assert get_mode(r, "AT+ZPAS?", ok(f'+ZPAS: "{text}","CS_PS"')) == mode


@pytest.mark.parametrize("value, mode", [
    (0, ""), (1, "2G"), (2, "2G"), (3, "2G"), (4, "3G"), (5, "3G"), (6, "3G"), (7, "3G"), (8, "4G"), (9, "3G"),
    (10, "3G"), (11, "3G"), (12, ""), (13, ""), (18, ""), (88, ""),
])
def test_simcom_generations(router, value, mode):
    r = router("simcom7600", ubus=False)
    assert get_mode(r, "AT+CNSMOD?", ok(f"+CNSMOD: 0,{value}")) == mode


def test_the_strongest_class_wins(router):
    r = router("ec25", ubus=False)
    assert get_mode(r, "AT+QNWINFO", ok('+QNWINFO: "GSM"', '+QNWINFO: "UMTS"', '+QNWINFO: "LTE"')) == "4G"
    assert get_mode(r, "AT+QNWINFO", ok('+QNWINFO: "GSM"', '+QNWINFO: "UMTS"')) == "3G"


@pytest.mark.parametrize("name, query, line", [
    ("ec25", "AT+QNWINFO", '+QNWINFO: "FDD LTE"'), ("me3630", "AT+ZPAS?", '+ZPAS: "LTE"'),
    ("simcom7600", "AT+CNSMOD?", "+CNSMOD: 0,8"),
])
def test_a_refused_query_tells_nothing(router, name, query, line):
    r = router(name, ubus=False)
    assert get_mode(r, query, "\nERROR\n") == ""
    assert get_mode(r, query, f"\n{line}\n\nERROR\n") == ""
    assert get_mode(r, query, "\n+CME ERROR: 3\n") == ""


# The scan mode


@pytest.mark.parametrize("value, text", [("0", "AUTO"), ("1", "GSM only"), ("2", "WCDMA only"), ("3", "LTE only")])
@pytest.mark.parametrize("name", ["bg95", "eg91", "ec100y", "ec25"])
def test_the_current_mode(router, name, value, text):
    r = router(name, ubus=False)
    r.modem().reply(SCAN_MODE, ok(f'+QCFG: "nwscanmode",{value}'))
    assert probe(r, "current-mode", BUS) == (0, {"mode": text})
    assert sent(r) == [(MODELS[name].control_port.removeprefix("/dev/"), SCAN_MODE)]


@pytest.mark.parametrize("reply, expected", [
    (ok('+QCFG: "nwscanmode",4'), (0, "")), (ok(), (0, "")), (ok('+QCFG: "nwscanmode",30'), (0, "AUTO")),
    (ok('+QCFG: "nwscanmode",21'), (0, "GSM only")), ("\nERROR\n", (-1, "ERROR")),
    ('\n+QCFG: "nwscanmode",1\n\nERROR\n', (-1, "ERROR")), ("\n+CME ERROR: 3\n", (-1, "ERROR")),
])
def test_odd_answers_to_the_scan_mode_query(router, reply, expected):
    r = router("ec25", ubus=False)
    r.modem().reply(SCAN_MODE, reply)
    result, document = probe(r, "current-mode", BUS)
    assert (result, document["mode"]) == expected


@pytest.mark.parametrize("wanted, value", [
    (2, 1), (3, 2), (4, 3), (0, 0), (1, 0), (5, 0), (-1, 0), (255, 0), (2147483647, 0), (-2147483648, 0),
])
def test_the_mode_is_set_by_one_command(router, wanted, value):
    r = router("ec25", ubus=False)
    assert probe(r, "set-mode", "2", str(wanted)) == (0, {})
    assert sent(r) == [("ttyUSB2", f'AT+QCFG="nwscanmode",{value}')]
    assert r.commands == []
    texts = ("AUTO", "GSM only", "WCDMA only", "LTE only")
    assert probe(r, "current-mode", BUS)[1]["mode"] == texts[value]


def test_a_mode_that_the_modem_refuses(router):
    r = router("ec25", ubus=False)
    r.modem().reply('AT+QCFG="nwscanmode",3', "\nERROR\n")
    assert probe(r, "set-mode", "2", "4") == (-1, {})
    r.modem().reply('AT+QCFG="nwscanmode",3', "\n+CME ERROR: 3\n")
    assert probe(r, "set-mode", "2", "4") == (-1, {})


def test_a_mode_is_set_on_the_tty_of_that_number_or_on_none(router):
    r = router("ec25", ubus=False)
    assert probe(r, "set-mode", "3", "4") == (0, {})
    assert sent(r) == [("ttyUSB3", 'AT+QCFG="nwscanmode",3')]
    for number in ("7", "9999"):
        result = run_probe(r, "set-mode", number, "4")
        assert (result.returncode, result.stdout) == (0, "{\n}\nresult -1\n")
    for number in ("10000", "2147483647", "-2147483648"):  # longer than the buffer of the name
        assert run_probe(r, "set-mode", number, "4").returncode == ABORTED
    assert len(sent(r)) == 1


# The bands of LTE-M and NB-IoT models

EGPRS = "850MHz 900MHz 1800Mhz 1900MHz "


def bands(r: Router, *masks: str) -> tuple[int, dict]:
    r.modem().reply(BAND, ok(f'+QCFG: "band",{",".join(masks)}'))
    return probe(r, "bands", BUS)


def listed(mask: int) -> str:
    return "".join(f"B{bit + 1} " for bit in range(mask.bit_length()) if mask >> bit & 1)


@pytest.mark.parametrize("cat_m1, cat_nb2", [
    ("80084", "80084"), ("1", "1"), ("0", "0"), ("80800c5", "0"), ("f", "f0"), ("ABCDEF", "abcdef"), ("12", "123"),
    ("100002000000000f0e189f", "10004200000000090e189f"),
])
def test_bands(router, cat_m1, cat_nb2):
    r = router("bg95", ubus=False)
    # The separator behind the first mask takes part in it as a digit of value 12.
    assert bands(r, "0xf", f"0x{cat_m1}", f"0x{cat_nb2}") == (0, {
        "EGPRS": EGPRS, "Cat M1": listed(int(cat_m1, 16) * 16 + 12), "Cat NB2": listed(int(cat_nb2, 16))})
    assert sent(r) == [("ttyUSB2", BAND)]


def test_bands_in_words(router):
    r = router("bg95", ubus=False)
    result, reply = bands(r, "0xf", "0x80084", "0x80084")
    assert result == 0 and list(reply) == ["EGPRS", "Cat M1", "Cat NB2"]
    assert (reply["Cat M1"], reply["Cat NB2"]) == ("B3 B4 B7 B12 B24 ", "B3 B8 B20 ")


@pytest.mark.parametrize("name", ["bg95", "eg91", "ec100y"])
def test_bands_as_the_models_report_them(router, name):
    result, reply = probe(router(name, ubus=False), "bands", BUS)
    assert result == 0 and list(reply) == ["EGPRS", "Cat M1", "Cat NB2"]


@pytest.mark.parametrize("reply", [
    "\nERROR\n", '\n+QCFG: "band",0xf,0x1,0x1\n\nERROR\n', ok(), ok('+QCFG: "band"'), ok('+QCFG: "band",0xf,0x1'),
    ok('+QCFG: "band",15,132,132'), ok('+QCFG: "band",0xf'),
])
def test_bands_that_are_not_told(router, reply):
    r = router("bg95", ubus=False)
    r.modem().reply(BAND, reply)
    result = run_probe(r, "bands", BUS)
    assert result.returncode == 0 and result.stdout.endswith("result 0\n")
    if "ERROR" in reply:
        assert result.stdout == "{\n}\nresult 0\n"


@pytest.mark.parametrize("masks, aborts", [
    (("0x1234567", "0x1", "0x1"), False), (("0x12345678", "0x1", "0x1"), True),
    (("0xf", "0x" + "0" * 39, "0x1"), False), (("0xf", "0x" + "0" * 40, "0x1"), True),
    (("0xf", "0x1", "0x" + "0" * 41), True), (("0xf", "0x1", "0x" + "0" * 800), True),
], ids=lambda value: str(value)[:24])
def test_a_mask_that_is_too_long_aborts(router, masks, aborts):
    r = router("bg95", ubus=False)
    r.modem().reply(BAND, ok(f'+QCFG: "band",{",".join(masks)}'))
    result = run_probe(r, "bands", BUS)
    assert result.returncode == (ABORTED if aborts else 0), result.stderr


@pytest.mark.parametrize("masks", [
    ("0xf", "0x", "0x1"), ("0x", "0x", "0x"), ("0xf", "0x1", "0x"), ("0xf", "0xzz", "0x%s"), ("0xf", "0x\xff", "0x-1"),
], ids=str)
def test_odd_masks_do_no_harm(router, masks):
    r = router("bg95", ubus=False)
    r.modem().reply(BAND, ok(f'+QCFG: "band",{",".join(masks)}').encode("latin-1"))
    result = run_probe(r, "bands", BUS)
    assert result.returncode == 0 and result.stdout.endswith("result 0\n")


def test_masks_with_every_bit_set_are_more_than_the_list_holds(router):
    # The text of 160 bands does not fit its 99 characters.
    r = router("bg95", ubus=False)
    r.modem().reply(BAND, ok(f'+QCFG: "band",0xf,0x1,0x{"f" * 38}'))
    result = run_probe(r, "bands", BUS)
    assert result.returncode == ABORTED


# The band of the serving cell

OPTION = "velaconfig.modem.dev1"


def configured(**options: str) -> dict[str, str]:
    return {"velaconfig": "config service 'modem'\n"
                          + "".join(f"\toption {name} '{value}'\n" for name, value in options.items())}


@pytest.mark.parametrize("name, result", [
    ("ec25", 3), ("ec20", 40), ("eg91", 20), ("ep06", 7), ("uc20", 0), ("bg95", 0),
])
def test_the_band_of_the_serving_cell(router, name, result):
    r = router(name, ubus=False)
    assert probe(r, "band", BUS, OPTION) == (result, {})
    assert sent(r) == [(MODELS[name].control_port.removeprefix("/dev/"), SERVING)]
    assert r.commands == []


@pytest.mark.parametrize("value, result", [
    ("7", 7), ("40", 40), ("0", 0), ("-1", -1), ("x", 0), ("7x", 7), ("1234567", 1234567),
])
def test_a_configured_band_is_taken_without_asking(router, value, result):
    r = router("ec25", ubus=False, uci=configured(dev1=value))
    assert probe(r, "band", BUS, OPTION) == (result, {})
    assert r.events == []


def test_the_option_is_the_one_that_is_named(router):
    r = router("ec25", ubus=False, uci=configured(dev1="7", dev3="20"))
    assert [probe(r, "band", BUS, f"velaconfig.modem.dev{number}")[0] for number in (1, 2, 3)] == [7, 3, 20]
    assert len(sent(r)) == 1


def test_an_empty_option_is_none(router):
    for uci in (configured(dev1=""), configured(), {"velaconfig": None}):
        assert probe(router("ec25", ubus=False, uci=uci), "band", BUS, OPTION)[0] == 3


@pytest.mark.parametrize("value", ["12345678", "7" * 64, "7" * 5000])
def test_an_option_that_is_too_long_aborts_and_nothing_is_asked(router, value):
    r = router("ec25", ubus=False, uci=configured(dev1=value))
    assert run_probe(r, "band", BUS, OPTION).returncode == ABORTED
    assert r.events == []


CELL = '+QENG: "servingcell","NOCONN","LTE","FDD",262,02,2A1B21,193,1250,{},5,5,2A1C,-109,-9,-80,13,29'
WCDMA = '+QENG: "servingcell","NOCONN","WCDMA",440,10,75,6A10090,10736,58,0,-78,-3,-,-,-,-,-'


@pytest.mark.parametrize("lines, result", [
    ([CELL.format(28)], 28), ([WCDMA, CELL.format(8)], 8), ([CELL.format(8), CELL.format(9)], 8), ([WCDMA], 0), ([], 0),
    ([CELL.format("")], 0), ([CELL.format("-")], 0), ([CELL.format("x")], 0), (['+QENG: "servingcell","SEARCH"'], 0),
    (['+QENG: "servingcell","SEARCH"', CELL.format(1)], 1), (['+QENG: "servingcell"'], 0),
    (['+QENG: "servingcell","NOCONN","LTE"'], 0), (['+QENG:"servingcell"' + CELL[20:].format(3)], 0),
], ids=lambda value: str(value)[:30])
def test_serving_cells(router, lines, result):
    r = router("ec25", ubus=False)
    r.modem().reply(SERVING, ok(*lines))
    assert probe(r, "band", BUS, OPTION)[0] == result


def test_a_serving_cell_that_is_refused(router):
    r = router("ec25", ubus=False)
    r.modem().reply(SERVING, f"\n{CELL.format(3)}\n\nERROR\n")
    assert probe(r, "band", BUS, OPTION)[0] == 0


# Resets


@pytest.mark.parametrize("command", ["AT+CRESET", "AT+ZRST", "AT+CFUN=1,1", "AT"])
def test_a_reset_is_one_command_on_the_port(router, command):
    r = router("ec25", ubus=False)
    r.modem().reply(command, "\nOK\n")
    assert probe(r, "reset", AT_PORT, command) == (0, {})
    assert r.events == [{"kind": "at", "bus": BUS, "port": "ttyUSB2", "command": command}]


def test_a_reset_that_is_refused_or_has_no_port(router):
    r = router("ec25", ubus=False)
    assert probe(r, "reset", AT_PORT, "AT+NOSUCH") == (-1, {})
    for port in ("/dev/ttyUSB9", "", "/tmp"):
        result = run_probe(r, "reset", port, "AT")
        assert (result.returncode, result.stdout) == (0, "{\n}\nresult -1\n")
    assert len(sent(r)) == 1


def test_the_length_of_a_reset_command(router):
    # Without an echo the reply's 20 bytes have room for the answer.
    r = router("nl678e", ubus=False)
    command = "AT+" + "X" * 46
    r.modem().reply(command, "\nOK\n")
    assert probe(r, "reset", AT_PORT, command) == (0, {})
    assert sent(r) == [("ttyUSB2", command)]
    assert run_probe(r, "reset", AT_PORT, command + "X").returncode == ABORTED
    assert len(sent(r)) == 1


def test_another_port_of_the_modem_in_use_does_not_hold_it_up(router):
    r = router("ec25", ubus=False)
    with locked(r):
        run = r.start(str(r.build / "tests/router/probe"), "set-mode", "3", "4")
        assert run.wait(60) == 0
    assert sent(r) == [("ttyUSB3", 'AT+QCFG="nwscanmode",3')]
