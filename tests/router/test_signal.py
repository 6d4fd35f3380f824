"""The command `signal`: from the modem's own report, and from the file that the connection scripts write; and the
level by AT+CSQ."""

import json
import random
from typing import Iterator

import pytest
from probe_client import probe
from support import MODELS
from velasim import Router

FILE = "/tmp/modem.1-1.2/signal"
NOT_SUPPORTED = "Not support"
LTE = {"type": "lte", "rssi": -70, "rsrp": -95, "rsrq": -11, "snr": 130}
ASKING = ("ec20", "ec25", "uc20", "ec200t", "bg95", "eg91", "ec100y")  # with AT+QCSQ
FILE_ONLY = ("mc7430", "simcom7600", "me3630", "unknown")


@pytest.fixture(scope="module")
def simcom() -> Iterator[Router]:
    """A model that has no report of its own."""
    with Router("simcom7600", ubus=False) as r:
        yield r


@pytest.fixture(scope="module")
def ec25() -> Iterator[Router]:
    with Router("ec25", ubus=False) as r:
        yield r


def printed(r: Router) -> str:
    result = r.run("vela_modem", "signal")
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


def report(r: Router) -> dict:
    document = json.loads(printed(r))
    assert list(document) == ["signals", "strength", "mode"]
    return document


def from_file(r: Router, content: object) -> dict:
    r.write(FILE, json.dumps(content))
    return report(r)


def from_modem(r: Router, *lines: str) -> dict:
    r.modem().reply("AT+QCSQ", "\n" + "".join(f"+QCSQ: {line}\n" for line in lines) + "\nOK\n")
    return report(r)


# Where it comes from


@pytest.mark.parametrize("name", ASKING)
def test_a_model_that_reports_it_is_asked_once_and_the_file_is_not_read(router, name):
    r = router(name, ubus=False, files={FILE: json.dumps(LTE)})
    printed(r)
    assert r.modem().commands == ["AT+QCSQ"] and r.commands == []


def test_the_ep06_is_asked_for_its_serving_cell(router):
    r = router("ep06", ubus=False, files={FILE: json.dumps(LTE)})
    assert report(r) == {
        "signals": [{"type": "LTE", "rsrp": "-86", "rsrq": "-13", "rssi": "-52", "sinr": "15"}],
        "strength": 3, "mode": "4G"}
    assert r.modem().commands == ['AT+QENG="servingcell"'] and r.commands == []


@pytest.mark.parametrize("name", FILE_ONLY)
def test_a_model_that_does_not_report_it_is_not_asked(router, name):
    r = router(name, ubus=False)
    asked = [] if name != "unknown" else ["AT+CIMI"]  # by its detection
    assert printed(r) == NOT_SUPPORTED
    assert r.modem().commands == asked
    assert not [command for command in r.commands if "/signal" in command]


@pytest.mark.parametrize("name", FILE_ONLY)
def test_it_is_read_from_the_file_twice(router, name):
    r = router(name, ubus=False, files={FILE: json.dumps(LTE)})
    assert report(r) == {
        "signals": [{"type": "LTE", "rssi": "-70", "rsrp": "-95", "rsrq": "-11", "sinr": "130"}],
        "strength": 3, "mode": "4G"}
    assert r.commands[-2:] == [f"cat {FILE} 2>/dev/null"] * 2


def test_the_file_is_that_of_the_bus(router):
    r = router(modems={"1-1.3": "simcom7600"}, ubus=False, files={FILE: json.dumps(LTE)})
    assert r.run("vela_modem", "-B", "1-1.3", "signal").stdout == NOT_SUPPORTED
    r.write("/tmp/modem.1-1.3/signal", json.dumps(LTE))
    assert json.loads(r.run("vela_modem", "-B", "1-1.3", "signal").stdout)["strength"] == 3


def test_every_model_has_its_test_here():
    # The NL678E's report has another form.
    assert {*ASKING, *FILE_ONLY, "ep06", "nl678e"} == {*MODELS, "unknown"}


# The modem's report


def test_no_service_is_printed_as_it_is(ec25):
    for line in ('"NOSERVICE"', '""', '"eMTC",-53,-80,165,-12'):
        assert from_modem(ec25, line) == {"signals": [], "strength": -1, "mode": "/G"}
    ec25.modem().reply("AT+QCSQ", "\nERROR\n")
    assert report(ec25) == {"signals": [], "strength": -1, "mode": "/G"}


@pytest.mark.parametrize("line, expected, strength, mode", [
    ('"LTE",-65,-95,150,-10', {"type": "LTE", "rssi": "--65", "rsrp": "-95", "sinr": "15", "rsrq": "-10"}, 3, "4G"),
    ('"LTE",60,-85', {"type": "LTE", "rssi": "-60", "rsrp": "-85", "sinr": "0", "rsrq": "-"}, 3, "4G"),
    ('"WCDMA",70,-61,-1', {"type": "WCDMA", "rssi": "-70", "rscp": "-61", "ecio": "-1"}, 3, "3G"),
    ('"TDSCDMA",96,-86,-21', {"type": "TDSCDMA", "rssi": "-96", "rscp": "-86", "ecio": "-21"}, 1, "3G"),
    ('"GSM",81', {"type": "GSM", "rssi": "-81"}, 2, "2G"),
    ('"CDMA",70,-20', {"type": "CDMA", "rssi": "-70", "ecio": "-20"}, 3, "2G"),
    ('"EVDO",80,0,-15', {"type": "EVDO", "rssi": "-80", "ecio": "0", "sinr": "-1"}, 3, "3G"),
    ('"CDMA-EVDO",96,-21,1,2,94',
     {"type": "CDMA-EVDO", "rssi0": "-96", "ecio0": "-21", "rssi1": "-1", "ecio1": "2", "sinr": "9"}, 1, "3G"),
])
def test_every_kind_of_network(ec25, line, expected, strength, mode):
    document = from_modem(ec25, line)
    assert document == {"signals": [expected], "strength": strength, "mode": mode}
    assert list(document["signals"][0]) == list(expected)


def test_the_best_technology_counts_wherever_it_stands(ec25):
    lines = ['"GSM",60', '"LTE",90,-125,-10,-14', '"WCDMA",60,-50,0']
    for order in (lines, lines[::-1]):
        document = from_modem(ec25, *order)
        assert (document["strength"], document["mode"]) == (1, "4G") and len(document["signals"]) == 3


# The file: levels


def grade(value: int, *steps: int) -> int:
    return 4 - sum(value < step for step in steps)


STEPS = {"rsrp": (-90, -105, -120), "rsrq": (-9, -12, -13), "snr": (200, 120, 0), "rssi": (-65, -75, -85)}
AROUND = {
    "rsrp": (-2147483648, -121, -120, -106, -105, -91, -90, 0, 2147483647), "rsrq": (-14, -13, -12, -10, -9, 5),
    "snr": (-1, 0, 119, 120, 199, 200, 300), "rssi": (-86, -85, -76, -75, -66, -65, 1),
}
BEST = {"rsrp": -90, "rsrq": -9, "snr": 200, "rssi": -65}
WORST = {"rsrp": -121, "rsrq": -14, "snr": -1, "rssi": -86}


@pytest.mark.parametrize("key, value", [(key, value) for key, values in AROUND.items() for value in values])
def test_levels_of_lte(simcom, key, value):
    others = [name for name in STEPS if name != key]
    # The level is a quarter of the sum: four sums of the others show all of the grade.
    for count, second in ((0, 0), (0, 1), (1, 0), (1, 1)):
        values = {**WORST, key: value}
        if count:
            values[others[0]] = BEST[others[0]]
        if second:
            values[others[1]] = STEPS[others[1]][1]
        total = sum(grade(values[name], *STEPS[name]) for name in STEPS)
        document = from_file(simcom, {"type": "lte", **values})
        assert (document["strength"], document["mode"]) == (total // 4, "4G"), values


@pytest.mark.parametrize("kind, mode", [("wcdma", "3G"), ("hdr", "3G"), ("cdma", "2G")])
def test_levels_of_3g_and_cdma(simcom, kind, mode):
    for rssi in (-96, -95, -81, -80, -71, -70):
        for ecio in (-21, -20, -11, -10, -1, 0):
            level = (grade(rssi, -70, -80, -95) + grade(ecio, 0, -10, -20)) // 2
            assert from_file(simcom, {"type": kind, "rssi": rssi, "ecio": ecio}) == {
                "signals": [{"type": kind.upper(), "rssi": str(rssi), "ecio": str(ecio)}],
                "strength": level, "mode": mode}


@pytest.mark.parametrize("kind, shown", [("gsm", "signal"), ("tdma", "rssi")])
def test_levels_of_2g(simcom, kind, shown):
    # Both are graded by "signal"; what is shown as "rssi" differs.
    for signal in (-96, -95, -81, -80, -71, -70):
        values = {"type": kind, "rssi": -33, "signal": signal}
        assert from_file(simcom, values) == {
            "signals": [{"type": kind.upper(), "rssi": str(values[shown])}],
            "strength": grade(signal, -70, -80, -95), "mode": "2G"}


@pytest.mark.parametrize("values, level", [
    ({"rsrp": -95, "rsrq": -11, "snr": 130, "rssi": -70}, 3),
    ({"rsrp": -80, "rsrq": -13, "snr": 250, "rssi": -60}, 3),
    ({"rsrp": -90, "rsrq": -9, "snr": 200, "rssi": -65}, 4),
    ({"rsrp": -90, "rsrq": -9, "snr": 200, "rssi": -66}, 3),
    ({"rsrp": -200, "rsrq": -200, "snr": -200, "rssi": -200}, 1),
], ids=str)
def test_lte_as_a_whole(simcom, values, level):
    assert from_file(simcom, {"type": "lte", **values})["strength"] == level


# The file: whatever else it may hold


@pytest.mark.parametrize("text, kind", [
    ("", "LTE"), ("l", "LTE"), ("lt", "LTE"), ("w", "WCDMA"), ("wcd", "WCDMA"), ("h", "HDR"), ("c", "CDMA"),
    ("cdm", "CDMA"), ("g", "GSM"), ("gs", "GSM"), ("t", "TDMA"), ("td", "TDMA"), ("lte\0x", "LTE"),
])
def test_a_type_may_be_cut_short(simcom, text, kind):
    assert from_file(simcom, {"type": text})["signals"][0]["type"] == kind


@pytest.mark.parametrize("text", ["LTE", "lte ", "ltex", " lte", "5gnr", "d", "dma", "cdma2000", "te", "%s%n",
                                  "x" * 70000], ids=lambda text: repr(text)[:12])
def test_a_type_that_is_none_is_not_supported(simcom, text):
    simcom.write(FILE, json.dumps({**LTE, "type": text}))
    assert printed(simcom) == NOT_SUPPORTED


def test_values_that_are_missing_count_as_zero(simcom):
    assert from_file(simcom, {"type": "lte"}) == {
        "signals": [{"type": "LTE", "rssi": "0", "rsrp": "0", "rsrq": "0", "sinr": "0"}], "strength": 3, "mode": "4G"}
    assert from_file(simcom, {"type": "wcdma"})["strength"] == 4
    assert from_file(simcom, {"type": "gsm"})["strength"] == 4


@pytest.mark.parametrize("value", [None, True, 1, 0, -1.5, [], ["lte"], {}, {"type": "lte"}], ids=str)
def test_a_type_that_is_no_text_is_not_supported(simcom, value):
    simcom.write(FILE, json.dumps({**LTE, "type": value}))
    assert printed(simcom) == NOT_SUPPORTED


@pytest.mark.parametrize("value", [None, True, False, "", "x", "-95", -95.9, 1e300, 10**30, [], [-95], {}, {"a": 1}],
                         ids=str)
def test_numbers_of_another_type_do_no_harm(simcom, value):
    for kind in ("lte", "wcdma", "gsm", "tdma"):
        values = {"type": kind, **{key: value for key in ("rssi", "rsrp", "rsrq", "snr", "ecio", "signal")}}
        assert from_file(simcom, values)["strength"] in (1, 2, 3, 4)


@pytest.mark.parametrize("content", [
    "", "\n", "{", "}", "nix", "null", "true", "1", '"lte"', "[]", '["type", "lte"]', '{"type"', '{"type":}', "{}",
    '{"Type": "lte"}', b"\0", b'\0{"type":"lte"}', b"\xff\xfe", "[" * 100000, '{"a":' * 5000,
    random.Random(3).randbytes(4096),
], ids=lambda content: repr(content)[:16])
def test_a_file_that_is_no_report_is_not_supported_and_stays(simcom, content):
    simcom.write(FILE, content)
    assert printed(simcom) == NOT_SUPPORTED
    assert simcom.exists(FILE)


def test_a_large_report(simcom):
    simcom.write(FILE, json.dumps({"more": "x" * 10_000_000, **LTE}))
    assert report(simcom)["strength"] == 3
    simcom.write(FILE, "x" * 10_000_000)
    assert printed(simcom) == NOT_SUPPORTED


def test_a_directory_in_place_of_the_file(router):
    r = router("simcom7600", ubus=False, files={f"{FILE}/x": json.dumps(LTE)})
    assert printed(r) == NOT_SUPPORTED
    assert r.listdir(FILE) == ["x"]


# AT+CSQ


def csq(r: Router, reply: str | bytes) -> tuple[int, int]:
    r.modem().reply("AT+CSQ", reply)
    result, reply = probe(r, "rssi", "1-1.2")
    return result, reply["level"]


def test_levels_by_csq(ec25):
    levels = [4 if csq_ >= 24 else 3 if csq_ >= 19 else 2 if csq_ >= 14 else int(csq_ >= 2) for csq_ in range(32)]
    for value in (0, 1, 2, 13, 14, 18, 19, 23, 24, 31):
        assert csq(ec25, f"\n+CSQ: {value},99\n\nOK\n") == (1, levels[value])
    for value in (32, 99, 199, 99999999):
        assert csq(ec25, f"\n+CSQ: {value},99\n\nOK\n") == (1, 0)
    assert csq(ec25, "\n+CSQ: 00000020,99\n\nOK\n") == (1, 3)


@pytest.mark.parametrize("reply", [
    "\nERROR\n", "\n+CME ERROR: 10\n", "\n+CSQ: 20,99\n\nERROR\n", "\n+CSQ: 123456789,99\n\nOK\n",
    "\n+CSQ: 000000020,99\n\nOK\n", "\n+CSQ: " + "9" * 60 + "\n\nOK\n",
])
def test_csq_that_is_none(ec25, reply):
    assert csq(ec25, reply)[0] == -1


def test_csq_without_a_line_break(router):
    r = router("nl678e", ubus=False)  # which sends no echo
    assert csq(r, b"+CSQ: 20,99 OK")[0] == -1
    assert csq(r, b"\n\n+CSQ: 20,99\r\nOK\r\n") == (1, 3)
    assert r.modem().commands == ["AT+CSQ"] * 2


def test_csq_is_asked_on_the_models_own_port(router):
    for name in ("me3630", "mc7430"):
        with Router(name, ubus=False) as r:
            assert probe(r, "rssi", "1-1.2")[0] == 1
            assert r.events[-1]["command"] == "AT+CSQ"
            assert f"/dev/{r.events[-1]['port']}" == MODELS[name].control_port
