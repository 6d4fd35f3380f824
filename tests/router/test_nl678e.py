"""The NL678E: its signal report, cell list, network mode and registration, and the APN that is written into it."""

import json
import re
from pathlib import Path
from typing import Iterator

import pytest
from probe_client import parse, probe, run_probe
from support import ABORTED, unreachable
from velasim import Router

BUS = "1-1.2"
MODEM_ID = 40
CELLS, CESQ, CSQ = "AT+GTCCINFO?", "AT+CESQ", "AT+CSQ?"
REPLIES = Path(__file__).resolve().parents[1] / "replies"
SERVED = ["up", "SIM_status", "online", "signal_info", "signal", "mode", "newsms"]
REFUSALS = ["\nERROR\n", "\n+CME ERROR: 3\n"]
SERVING_KEYS = ("IsServiceCell", "rat", "mcc", "mnc", "tac", "cellid", "earfcn", "physicalcellId", "band", "bandwidth",
                "rssnr_value", "rxlev", "rsrp", "rsrq")
NEIGHBOUR_KEYS = ("IsServiceCell", "rat", "mcc", "mnc", "tac", "cellid", "earfcn", "physicalcellId", "bandwidth",
                  "rxlev", "rsrp", "rsrq")
SIGNAL_KEYS = ("rxlev", "ber", "rscp", "ecno", "rsrq", "rsrp")
FIELD = 15  # characters that are kept of a field


@pytest.fixture(scope="module")
def nl678e() -> Iterator[Router]:
    with Router("nl678e", ubus=False) as r:
        yield r


def ok(*lines: str) -> str:
    return "\n" + "".join(f"{line}\n" for line in lines) + "\nOK\n"


def usable(r: Router) -> bool:
    """Lets the modem finish what it still had to send."""
    r.modem().behave()
    return r.run("vela_modem", "AT", "AT").stdout == "\n\r\nOK\r\n"


def sent(r: Router) -> list[tuple[str, str]]:
    return [(event["port"], event["command"]) for event in r.events if event["kind"] == "at"]


def run(r: Router, command: str) -> str:
    result = r.run("vela_modem", command)
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


def status(r: Router) -> dict:
    result, reply = probe(r, "status", BUS)
    assert result == 0
    return reply


# The cells

SERVING_LINE = "1,4,222,01,2A1C,2FC001,1350,301,103,100,12,51,61,23"
NEIGHBOUR_LINES = ("2,4,222,01,2A1C,2FC999,1350,101,100,44,53,15", "2,4,222,01,2A1C,2FC555,2900,102,100,40,47,12")
SERVING = {
    "IsServiceCell": "1", "rat": "4", "mcc": "222", "mnc": "01", "tac": "2A1C", "cellid": "2FC001", "earfcn": "1350",
    "physicalcellId": "301", "band": "3", "bandwidth": "100", "rssnr_value": "12", "rxlev": "51", "rsrp": "61",
    "rsrq": "23", "rssi": "-69",
}
NEIGHBOURS = [dict(zip(NEIGHBOUR_KEYS, line.split(","))) for line in NEIGHBOUR_LINES]


def report(serving: str | None = SERVING_LINE, *neighbours: str) -> str:
    """A cell list as the modem sends it."""
    lines = ["+GTCCINFO:"]
    if serving is not None:
        lines += ["LTE service cell:", serving]
    if neighbours:
        lines += ["", "LTE neighbor cell:", *neighbours]
    return ok(*lines)


def printed_cells(r: Router) -> list[dict]:
    return json.loads(run(r, "cells"))


def cells(r: Router, reply: str | bytes, csq: str = "+CSQ: 22,99") -> list[dict]:
    r.modem().reply(CELLS, reply)
    r.modem().reply(CSQ, ok(csq))
    return printed_cells(r)


def serving(r: Router, line: str, csq: str = "+CSQ: 22,99") -> dict:
    [cell] = cells(r, report(line), csq)
    return cell


def ordered(objects: list[dict]) -> list[list[tuple[str, str]]]:
    return [list(each.items()) for each in objects]


def with_field(line: str, number: int, text: str) -> str:
    fields = line.split(",")
    return ",".join([*fields[:number], text, *fields[number + 1:]])


def test_the_cells_as_the_modem_reports_them(router):
    r = router("nl678e", ubus=False)
    assert ordered(printed_cells(r)) == ordered([SERVING, *NEIGHBOURS])
    assert sent(r) == [("ttyUSB2", CELLS), ("ttyUSB2", CSQ)]
    assert list(SERVING) == [*SERVING_KEYS, "rssi"]


def test_the_cells_by_the_endpoint(router):
    r = router("nl678e", ubus=False)
    code, document = r.api("post", "/modem/cells/get", {"bus": BUS, "modem_id": MODEM_ID})
    assert (code, list(document)) == (0, ["cells"])
    assert ordered(document["cells"]) == ordered([SERVING, *NEIGHBOURS])
    assert r.modem().commands == [CELLS, CSQ]


def test_every_value_is_a_text(nl678e):
    text = json.dumps(cells(nl678e, report(SERVING_LINE, *NEIGHBOUR_LINES)))
    assert re.search(r": [^\"]", text) is None


@pytest.mark.parametrize("code, band", [
    ("101", "1"), ("103", "3"), ("105", "5"), ("107", "7"), ("108", "8"), ("120", "20"), ("128", "28"), ("132", "32"),
    ("140", "40"), ("141", "41"),
    ("166", "166"), ("102", "102"), ("104", "104"), ("106", "106"), ("112", "112"), ("138", "138"), ("171", "171"),
    ("100", "100"), ("3", "3"), ("40", "40"), ("0", "0"), ("1", "1"), ("1030", "1030"), ("10", "10"), ("0103", "0103"),
    ("B3", "B3"), ("-", "-"), ("5041", "5041"), ("103 ", "103 "), (" 103", " 103"),
])
def test_band_codes(nl678e, code, band):
    assert serving(nl678e, with_field(SERVING_LINE, 8, code)) == {**SERVING, "band": band}


@pytest.mark.parametrize("number", range(13))
def test_an_empty_field_leaves_out_its_key_and_keeps_the_rest(nl678e, number):
    found = serving(nl678e, with_field(SERVING_LINE, number, ""))
    assert list(found.items()) == [item for item in SERVING.items() if item[0] != SERVING_KEYS[number]]


@pytest.mark.parametrize("number", range(11))
def test_an_empty_field_of_a_neighbour_leaves_out_its_key_and_keeps_the_rest(nl678e, number):
    found = cells(nl678e, report(SERVING_LINE, with_field(NEIGHBOUR_LINES[0], number, ""), NEIGHBOUR_LINES[1]))
    first = {key: value for key, value in NEIGHBOURS[0].items() if key != NEIGHBOUR_KEYS[number]}
    assert ordered(found) == ordered([SERVING, first, NEIGHBOURS[1]])


def test_an_empty_last_field_takes_nothing_from_the_next_line(nl678e):
    found = cells(nl678e, report(with_field(SERVING_LINE, 13, ""), with_field(NEIGHBOUR_LINES[0], 11, ""),
                                 NEIGHBOUR_LINES[1]))
    assert [each.get("rsrq", "") for each in found] == ["", "", "12"]
    assert found[0] | {"rsrq": "23"} == SERVING


def test_fields_that_are_all_empty_leave_an_object_with_the_strength_only(nl678e):
    assert serving(nl678e, "," * 14) == {"rssi": "-69"}


@pytest.mark.parametrize("count", range(1, 14))
def test_a_serving_line_that_ends_early_has_the_fields_that_it_has(nl678e, count):
    found = serving(nl678e, ",".join(SERVING_LINE.split(",")[:count]))
    assert list(found.items()) == [*list(SERVING.items())[:count], ("rssi", "-69")]


@pytest.mark.parametrize("count", range(1, 12))
def test_a_neighbour_line_that_ends_early_has_the_fields_that_it_has(nl678e, count):
    short = ",".join(NEIGHBOUR_LINES[0].split(",")[:count])
    found = cells(nl678e, report(SERVING_LINE, short, NEIGHBOUR_LINES[1]))
    assert ordered(found) == ordered([SERVING, dict(list(NEIGHBOURS[0].items())[:count]), NEIGHBOURS[1]])


def test_more_fields_than_are_known_are_passed_over(nl678e):
    found = cells(nl678e, report(SERVING_LINE + ",7,8", *(f"{line},9,10" for line in NEIGHBOUR_LINES)))
    assert ordered(found) == ordered([SERVING, *NEIGHBOURS])


@pytest.mark.parametrize("number, key", enumerate(SERVING_KEYS))
def test_a_field_keeps_15_characters(nl678e, number, key):
    for length in (14, 15, 16, 17, 200):
        text = "9876543210" * 20
        found = serving(nl678e, with_field(SERVING_LINE, number, text[:length]))
        assert found == {**SERVING, key: text[:min(length, FIELD)]}


def test_a_field_of_a_neighbour_keeps_15_characters(nl678e):
    for number, key in enumerate(NEIGHBOUR_KEYS):
        found = cells(nl678e, report(SERVING_LINE, with_field(NEIGHBOUR_LINES[0], number, "x" * 40)))
        assert found == [SERVING, {**NEIGHBOURS[0], key: "x" * FIELD}]


@pytest.mark.parametrize("text", [" 301 ", "-128", "%s%n", "ä", '"301"', "\\", "3 01", "0x1F", "LTE", "/"])
def test_a_field_is_taken_as_it_is(nl678e, text):
    assert serving(nl678e, with_field(SERVING_LINE, 7, text)) == {**SERVING, "physicalcellId": text}


# Which lines are cells


@pytest.mark.parametrize("count", [0, 1, 2, 3, 10])
def test_each_neighbour_line_is_one_object(nl678e, count):
    lines = [with_field(NEIGHBOUR_LINES[0], 7, str(number)) for number in range(count)]
    found = cells(nl678e, report(SERVING_LINE, *lines))
    assert ordered(found) == ordered([SERVING, *({**NEIGHBOURS[0], "physicalcellId": str(n)} for n in range(count))])


def test_an_ok_ends_the_neighbours(nl678e):
    head = "+GTCCINFO:\nLTE service cell:\n" + SERVING_LINE + "\n\nLTE neighbor cell:\n" + NEIGHBOUR_LINES[0]
    for text in (f"{head}\nOK\n{NEIGHBOUR_LINES[1]}\n", f"{head}\n\nOK\n\n{NEIGHBOUR_LINES[1]}\n",
                 f"{head}\nOKAY\n{NEIGHBOUR_LINES[1]}\n\nOK\n"):
        assert ordered(cells(nl678e, text)) == ordered([SERVING, NEIGHBOURS[0]])


def test_an_ok_within_a_line_does_not(nl678e):
    line = with_field(NEIGHBOUR_LINES[0], 4, "OK")
    assert cells(nl678e, report(SERVING_LINE, line, NEIGHBOUR_LINES[1])) == [
        SERVING, {**NEIGHBOURS[0], "tac": "OK"}, NEIGHBOURS[1]]


def test_further_headings_of_neighbours_are_passed_over(nl678e):
    found = cells(nl678e, report(SERVING_LINE, NEIGHBOUR_LINES[0], "LTE neighbor cell:", NEIGHBOUR_LINES[1],
                                 "LTE neighbor cell: more"))
    assert ordered(found) == ordered([SERVING, *NEIGHBOURS])


def test_any_other_line_counts_as_a_neighbour(nl678e):
    found = cells(nl678e, report(SERVING_LINE, NEIGHBOUR_LINES[0], "WCDMA neighbor cell:", "x"))
    assert found == [SERVING, NEIGHBOURS[0], {"IsServiceCell": "WCDMA neighbor cell:"[:FIELD]}, {"IsServiceCell": "x"}]


@pytest.mark.parametrize("end", [b"\r\n", b"\n", b"\r", b"\r\r\n", b"\r\n\r\n"], ids=repr)
def test_empty_lines_between_neighbours_are_none(nl678e, end):
    neighbours = b"".join(line.encode() + end for line in NEIGHBOUR_LINES)
    reply = f"\r\n+GTCCINFO:\r\nLTE service cell:\r\n{SERVING_LINE}\r\n\r\nLTE neighbor cell:\r\n".encode()
    assert ordered(cells(nl678e, reply + neighbours + b"\r\nOK\r\n")) == ordered([SERVING, *NEIGHBOURS])


def test_neighbours_without_a_serving_cell(nl678e):
    assert ordered(cells(nl678e, report(None, *NEIGHBOUR_LINES))) == ordered(NEIGHBOURS)


def test_a_section_without_a_cell_is_empty(nl678e):
    assert cells(nl678e, ok("+GTCCINFO:", "LTE service cell:", SERVING_LINE, "LTE neighbor cell:")) == [SERVING]
    assert cells(nl678e, ok("+GTCCINFO:", "LTE neighbor cell:")) == []


@pytest.mark.parametrize("lines", [
    (), ("+GTCCINFO:",), ("+GTCCINFO:", "GSM service cell:", "1,1,222,01,2A1C,2FC001"),
    ("+GTCCINFO:", "UMTS service cell:", SERVING_LINE, "UMTS neighbor cell:", *NEIGHBOUR_LINES),
    ("+GTCCINFO:", "lte service cell:", SERVING_LINE), ("+GTCCINFO:", "LTE service cell", SERVING_LINE),
], ids=str)
def test_without_the_lte_headings_there_are_no_cells(nl678e, lines):
    assert cells(nl678e, ok(*lines)) == []


def test_the_echo_does_not_matter(router):
    r = router("nl678e", ubus=False)
    assert r.run("vela_modem", "AT", "ATE1").returncode == 0
    assert r.run("vela_modem", "AT", "AT").stdout == "\nAT\r\r\nOK\r\n"
    assert ordered(printed_cells(r)) == ordered([SERVING, *NEIGHBOURS])
    assert run(r, "get_mode") == "get_mode: 4G\n"
    assert run(r, "check_register") == "check_register=0\n"
    assert signal(r) == SIGNAL
    assert set_apn(r, "internet") == 0


@pytest.mark.parametrize("csq, rssi", [
    ("+CSQ: 31,99", "-51"), ("+CSQ: 0,99", "-113"), ("+CSQ: 1,99", "-111"), ("+CSQ: 15,6", "-83"), ("+CSQ: 22", "-69"),
    ("+CSQ: 99,99", "85"), ("+CSQ: 199,99", "285"), ("x +CSQ: 7,99", "-99"), ("+CSQ: 20,99\n+CSQ: 1,99", "-73"),
])
def test_strength_by_csq(nl678e, csq, rssi):
    assert list(serving(nl678e, SERVING_LINE, csq).items())[-1] == ("rssi", rssi)
    assert signal(nl678e)["signals"][0]["rssi"] == rssi


@pytest.mark.parametrize("csq", ["+CSQ: ,99", "+CSQ:", "", "CSQ: 20,99", "+CSQ 20,99", "+csq: 20,99"])
def test_a_cell_without_strength_lacks_that_key_only(nl678e, csq):
    found = serving(nl678e, SERVING_LINE, csq)
    # Whether the place behind a lone prefix is an empty field is open.
    assert found == {key: SERVING[key] for key in SERVING_KEYS} or (csq == "+CSQ:" and list(found) == list(SERVING))


@pytest.mark.parametrize("refusal", [*REFUSALS, "\n+CSQ: 20,99\n\nERROR\n", b"\r\n+CSQ: 20,99\r\n\r\nOK"], ids=repr)
def test_a_refused_csq_leaves_out_the_strength(router, refusal):
    r = router("nl678e", ubus=False)
    r.modem().reply(CSQ, refusal)
    expected = [{key: SERVING[key] for key in SERVING_KEYS}, *NEIGHBOURS]
    assert ordered(printed_cells(r)) == ordered(expected)
    assert "rssi" not in signal(r)["signals"][0]


@pytest.mark.parametrize("refusal", [*REFUSALS, report().replace("OK", "ERROR"),
                                     report().replace("\n", "\r\n").removesuffix("\r\n").encode()],
                         ids=lambda refusal: repr(refusal)[-16:])
def test_a_refused_cell_list_is_none_and_tells_no_mode(router, refusal):
    r = router("nl678e", ubus=False)
    r.modem().reply(CELLS, refusal)
    assert printed_cells(r) == []
    assert r.modem().commands == [CELLS]
    assert run(r, "get_mode") == "get_mode: \n"


def test_a_cell_list_longer_than_1024_characters_is_not_seen_to_be_ok(router):
    r = router("nl678e", ubus=False)
    for length, count in ((1000, 2), (1100, 0), (8000, 0)):
        padding = length - len(report(SERVING_LINE, "").replace("\n", "\r\n"))
        found = cells(r, report(SERVING_LINE, "x" * padding))
        assert len(found) == count
        assert run(r, "get_mode") == ("get_mode: 4G\n" if count else "get_mode: \n")
        assert usable(r)


RECORDED = {
    "fibocom-fm350/gtccinfo--empty.txt": [],
    "fibocom-fm350/gtccinfo-gtcainfo--lte-ca-chained.txt": [],
    "fibocom-generic/gtccinfo--endc-two-rows-rat-12.txt": [],
    "fibocom-generic/gtccinfo--lte-service-two-neighbors.txt": [
        dict(zip(SERVING_KEYS, "1,4,551,01,1,2FC001,46410,1,1025,100,109,112,112,64".split(","))) | {"rssi": "-69"},
        dict(zip(NEIGHBOUR_KEYS, "2,4,551,02,1,2FC999,46411,1,101,110,113,65".split(","))),
        dict(zip(NEIGHBOUR_KEYS, "2,4,551,01,1,2FC555,46410,1,102,107,111,62".split(",")))],
    "fibocom-generic/gtccinfo--lte-tdd-b40-plain-band.txt": [
        dict(zip(SERVING_KEYS, "1,4,460,00,2A7E,5A23D8D,9826,43,40,5,28,58,58,23".split(","))) | {"rssi": "-69"}],
    "fibocom-generic/gtccinfo--nr-service-and-neighbor.txt": [],
    "fibocom-generic/gtccinfo--umts-no-blank-line-between-sections.txt": [],
}


def recorded(name: str) -> str:
    return (REPLIES / name).read_text(encoding="utf-8").split("\n---\n", 1)[1]


@pytest.mark.parametrize("name, expected", RECORDED.items())
def test_recorded_cell_lists(nl678e, name, expected):
    assert ordered(cells(nl678e, recorded(name))) == ordered(expected)
    assert run(nl678e, "get_mode") == f"get_mode: {'4G' if expected else ''}\n"


def test_every_recorded_cell_list_has_its_test_here():
    assert {*RECORDED} == {str(path.relative_to(REPLIES)) for path in REPLIES.glob("fibocom-*/gtccinfo*.txt")}


@pytest.mark.parametrize("tail, count", [
    (b"LTE service cell:", 1), (b"LTE service cell:\r", 1), (b"LTE service cell:\r\n", 1),
    (b"LTE service cell:\r\n1", 1), (b"LTE service cell:\r\n1,4", 1), (b"LTE service cell:\r\n,,,", 1),
    (b"LTE neighbor cell:", 0), (b"LTE neighbor cell:\r", 0), (b"LTE neighbor cell:\r\n", 0),
    (b"LTE neighbor cell:\r\n2", 1), (b"LTE neighbor cell:\r\n2,4,", 1), (b"LTE neighbor cell:\r\nO", 1),
], ids=repr)
def test_a_report_that_ends_anywhere(nl678e, tail, count):
    found = cells(nl678e, b"\r\nOK\r\n" + tail)
    assert len(found) == count
    first = "1" if b"service" in tail else "O" if tail.endswith(b"O") else "2"
    for each in found:
        assert each.items() <= {"IsServiceCell": first, "rat": "4", "rssi": "-69"}.items()
    assert run(nl678e, "get_mode") == f"get_mode: {'4G' if tail.endswith(b'1,4') else ''}\n"


@pytest.mark.parametrize("reply", [
    b"\xff" * 900 + b"\r\nOK\r\n", b"LTE service cell:" * 50 + b"\r\nOK\r\n",
    b"LTE service cell:LTE neighbor cell:" * 20 + b"\r\nOK\r\n", b"LTE service cell:\r\n" + b"," * 900 + b"\r\nOK\r\n",
    b"LTE neighbor cell:\r\n" + b",\r\n" * 250 + b"\r\nOK\r\n", b"LTE service cell:\r\n1,4\0,5\r\nOK\r\n",
    b"LTE neighbor cell:\r\n\0\r\nOK\r\n",
], ids=lambda reply: repr(reply[:24]))
def test_garbage_in_the_cell_list_does_no_harm(nl678e, reply):
    for each in cells(nl678e, reply):
        assert set(each) <= {*SERVING_KEYS, "rssi"}
        assert all(len(value) <= FIELD for value in each.values())
    assert re.fullmatch("get_mode: (4G)?\n", run(nl678e, "get_mode"))


# The signal report

SIGNAL = {
    "signals": [{"rxlev": "99", "ber": "99", "rscp": "255", "ecno": "255", "rsrq": "23", "rsrp": "61", "rssi": "-69"}],
    "strength": 3, "mode": "0G"}


def signal(r: Router) -> dict:
    document = json.loads(run(r, "signal"))
    assert list(document) == ["signals", "strength", "mode"] and len(document["signals"]) == 1
    assert document["mode"] == "0G"  # the report does not tell the generation
    return document


def measured(r: Router, cesq: str | bytes, csq: str | bytes) -> dict:
    r.modem().reply(CESQ, cesq)
    r.modem().reply(CSQ, csq)
    return signal(r)


def level(r: Router, rsrp: object, rsrq: object, csq: object) -> int:
    return measured(r, ok(f"+CESQ: 99,99,255,255,{rsrq},{rsrp}"), ok(f"+CSQ: {csq},99"))["strength"]


def test_the_signal_as_the_modem_reports_it(router):
    r = router("nl678e", ubus=False, files={f"/tmp/modem.{BUS}/signal": '{"type": "gsm", "signal": -75}'})
    document = signal(r)
    assert document == SIGNAL and list(document["signals"][0]) == [*SIGNAL_KEYS, "rssi"]
    assert sent(r) == [("ttyUSB2", CESQ), ("ttyUSB2", CSQ)]
    assert r.commands == []


def test_the_values_are_those_of_the_modem_in_its_order(nl678e):
    document = measured(nl678e, ok("+CESQ: 11,2,33,4,5,66"), ok("+CSQ: 7,88"))
    assert list(document["signals"][0].items()) == [
        ("rxlev", "11"), ("ber", "2"), ("rscp", "33"), ("ecno", "4"), ("rsrq", "5"), ("rsrp", "66"), ("rssi", "-99")]


STEPS = {"rsrp": (80, 60, 45), "rsrq": (28, 20, 10), "csq": (20, 15, 10)}
# For each grade, grades of the two others with which the sum is just a multiple of three: one less lowers the level.
OTHERS = {4: (1, 1), 3: (1, 2), 2: (2, 2)}


def with_grade(name: str, grade: int) -> int:
    return STEPS[name][4 - grade] if grade > 1 else STEPS[name][2] - 1


@pytest.mark.parametrize("name, grade", [(name, grade) for name in STEPS for grade in OTHERS])
def test_the_limits_of_each_grade(nl678e, name, grade):
    rest = [other for other in STEPS if other != name]
    for grades in (OTHERS[grade], OTHERS[grade][::-1]):
        values = {other: with_grade(other, each) for other, each in zip(rest, grades)}
        limit = STEPS[name][4 - grade]
        expected = (sum(grades) + grade) // 3
        assert level(nl678e, **{**values, name: limit}) == expected
        assert level(nl678e, **{**values, name: limit - 1}) == expected - 1


@pytest.mark.parametrize("rsrp, rsrq, csq, expected", [
    (80, 28, 20, 4), (79, 28, 20, 3), (80, 27, 20, 3), (80, 28, 19, 3), (60, 20, 15, 3), (45, 10, 10, 2), (44, 9, 9, 1),
    (0, 0, 0, 1), (97, 34, 31, 4), (255, 255, 99, 4),  # not known, by the numbers all the same
    (80, 9, 9, 2), (80, 9, 20, 3), ("", "", "", 1), ("", 28, 20, 3), (80, "", 20, 3), (80, 28, "", 3),
])
def test_levels_as_a_whole(nl678e, rsrp, rsrq, csq, expected):
    assert level(nl678e, rsrp, rsrq, csq) == expected


@pytest.mark.parametrize("name, text", [
    ("rsrp", "9" * 15), ("rsrq", "9" * 200), ("csq", "9" * 15), ("csq", "-99999999999"), ("rsrp", "-" + "9" * 14),
    ("csq", "2147483647"), ("csq", "-2147483648"),
])
def test_huge_values_do_no_harm(nl678e, name, text):
    values = {"rsrp": "61", "rsrq": "23", "csq": "22", name: text}
    assert level(nl678e, **values) in (1, 2, 3, 4)


@pytest.mark.parametrize("number, key", enumerate(SIGNAL_KEYS))
def test_a_value_that_is_empty_takes_nothing_from_its_neighbours(nl678e, number, key):
    found = measured(nl678e, ok("+CESQ: " + with_field("99,99,255,255,23,61", number, "")), ok("+CSQ: 22,99"))
    [values] = found["signals"]
    # An empty value may be told as such or left out.
    assert values.get(key, "") == ""
    assert values | {key: SIGNAL["signals"][0][key]} == SIGNAL["signals"][0]


@pytest.mark.parametrize("count", range(1, 7))
def test_values_that_are_not_there(nl678e, count):
    text = ",".join("99,99,255,255,23,61".split(",")[:count])
    [values] = measured(nl678e, ok(f"+CESQ: {text}"), ok("+CSQ: 22,99"))["signals"]
    filled = {key: value for key, value in values.items() if value != ""}
    assert filled == {**dict(zip(SIGNAL_KEYS, text.split(","))), "rssi": "-69"}


def test_a_csq_value_that_is_empty_is_an_empty_strength(nl678e):
    document = measured(nl678e, ok("+CESQ: 99,99,255,255,23,61"), ok("+CSQ: ,99"))
    assert document["signals"][0]["rssi"] == "" and document["strength"] == (3 + 3 + 1) // 3


@pytest.mark.parametrize("refusal", [
    *REFUSALS, "\n+CESQ: 1,1,1,1,34,97\n\nERROR\n", b"\r\n+CESQ: 1,1,1,1,34,97\r\n\r\nOK", "\nOK\n",
    "\nCESQ: 1,1,1,1,34,97\n\nOK\n",
], ids=repr)
def test_without_cesq_there_is_the_strength_only(nl678e, refusal):
    found = measured(nl678e, refusal, ok("+CSQ: 20,99"))
    assert found == {"signals": [{"rssi": "-73"}], "strength": (1 + 1 + 4) // 3, "mode": "0G"}


@pytest.mark.parametrize("refusal", [*REFUSALS, "\n+CSQ: 31,99\n\nERROR\n", b"\r\n+CSQ: 31,99\r\n\r\nOK", "\nOK\n"],
                         ids=repr)
def test_without_csq_there_is_no_strength(nl678e, refusal):
    found = measured(nl678e, ok("+CESQ: 99,99,255,255,28,80"), refusal)
    values = {**SIGNAL["signals"][0], "rsrq": "28", "rsrp": "80"}
    del values["rssi"]
    assert found == {"signals": [values], "strength": (4 + 4 + 1) // 3, "mode": "0G"}


def test_without_either_the_object_is_there_and_the_level_is_1(nl678e):
    assert measured(nl678e, "\nERROR\n", "\nERROR\n") == {"signals": [{}], "strength": 1, "mode": "0G"}


@pytest.mark.parametrize("name", ["fibocom-fm160/cesq--nine-fields.txt", "fibocom-fm350/cesq--lte-nine-fields.txt"])
def test_recorded_values(nl678e, name):
    reply = recorded(name)
    values = re.search(r"\+CESQ: (.*)", reply)[1].split(",")
    document = measured(nl678e, reply, recorded("fibocom-l860/csq--question-form-ber-6.txt"))
    assert list(document["signals"][0].items()) == [*zip(SIGNAL_KEYS, values), ("rssi", "-83")]
    assert document["strength"] == {"fm160": (3 + 3 + 3) // 3, "fm350": (1 + 1 + 3) // 3}[name[8:13]]


@pytest.mark.parametrize("reply", [
    b"\r\nOK\r\n+CESQ:", b"\r\nOK\r\n+CESQ: ", b"\r\nOK\r\n+CSQ:", b"\r\nOK\r\n+CSQ: ", b"\r\nOK\r\n+CSQ: ,",
    b"+CESQ: " + b"," * 900 + b"\r\nOK\r\n", b"+CESQ: " + b"9" * 900 + b"\r\nOK\r\n", b"+CSQ: %s%n\r\nOK\r\n",
    b"+CESQ:+CSQ:" * 80 + b"\r\nOK\r\n", b"\xff" * 900 + b"\r\nOK\r\n", b"+CESQ: \0,1\r\nOK\r\n",
    b"x" * 5000 + b"OK\r\n",
], ids=lambda reply: repr(reply[:20]))
def test_garbage_in_the_signal_report_does_no_harm(nl678e, reply):
    document = measured(nl678e, reply, reply)
    assert document["strength"] in (1, 2, 3, 4)
    assert set(document["signals"][0]) <= {*SIGNAL_KEYS, "rssi"}
    assert usable(nl678e)


@unreachable
def test_what_is_said_of_a_modem_that_does_not_answer(router, state):
    r = router("nl678e", ubus=False)
    with state(r):
        outputs = {command: r.run("vela_modem", command).stdout
                   for command in ("signal", "cells", "get_mode", "check_register")}
    assert json.loads(outputs["signal"]) == {"signals": [{}], "strength": 1, "mode": "0G"}
    assert json.loads(outputs["cells"]) == []
    assert (outputs["get_mode"], outputs["check_register"]) == ("get_mode: \n", "check_register=-1\n")
    assert r.modem().commands == []


# The network mode


def get_mode(r: Router, reply: str | bytes) -> str:
    r.modem().reply(CELLS, reply)
    return run(r, "get_mode").removeprefix("get_mode: ").removesuffix("\n")


@pytest.mark.parametrize("technology, mode", [
    ("1", "2G"), ("2", "3G"), ("3", "3G"), ("4", "4G"), ("0", ""), ("5", ""), ("9", ""), ("12", ""), ("", ""),
    ("44", ""), ("04", ""), (" 4", ""), ("4 ", ""), ("4G", ""), ("LTE", ""), ("-4", ""), ("1.5", ""), ("4" * 20, ""),
])
def test_modes(router, technology, mode):
    r = router("nl678e", ubus=False)
    assert get_mode(r, report(with_field(SERVING_LINE, 1, technology), *NEIGHBOUR_LINES)) == mode
    assert sent(r) == [("ttyUSB2", CELLS)]


@pytest.mark.parametrize("lines", [
    (), ("+GTCCINFO:",), ("LTE neighbor cell:", NEIGHBOUR_LINES[0]), ("UMTS service cell:", SERVING_LINE),
    ("LTE service cell:",), ("LTE service cell:", "1"),
], ids=str)
def test_without_a_serving_cell_there_is_no_mode(nl678e, lines):
    assert get_mode(nl678e, ok(*lines)) == ""


def test_the_mode_is_that_of_the_serving_cell_alone(nl678e):
    assert get_mode(nl678e, report(with_field(SERVING_LINE, 1, "2"), *NEIGHBOUR_LINES)) == "3G"


# Registration


def check_register(r: Router) -> int:
    return int(re.fullmatch(r"check_register=(-?\d+)\n", run(r, "check_register"))[1])


@pytest.mark.parametrize("creg, result", [
    ("0,1", 0), ("2,1", 0), ('2,1,"A1B2","00C3D4E5",7', 0), ("1,1,x", 0), (",1", 0),
    ("0,5", -1),  # roaming counts as not registered
    ('2,5,"A1B2","00C3D4E5",7', -1), ("0,0", -1), ("0,2", -1), ("0,3", -1), ("0,4", -1), ("0,6", -1), ("0,11", -1),
    ("0,10", -1), ("0,01", -1), ("0, 1", -1), ("0,1 ", -1), ("0,,1", -1), ("0,", -1), ("1", -1), ("", -1), ("5,1", 0),
], ids=repr)
def test_registration(router, creg, result):
    r = router("nl678e", ubus=False)
    r.modem().reply("AT+CREG?", f"\n+CREG: {creg}\n\nOK\n")
    assert check_register(r) == result
    assert sent(r) == [("ttyUSB2", "AT+CREG?")]
    assert run(r, "sim-status") == ("READY" if result == 0 else "NO_REG")
    block = status(r)
    assert block["SIM_status"] == (0 if result == 0 else -3)
    assert list(block) == (SERVED if result == 0 else ["up", "SIM_status"])


@pytest.mark.parametrize("reply", [
    *REFUSALS, "\n+CREG: 0,1\n\nERROR\n", b"\r\n+CREG: 0,1\r\n\r\nOK", "\nOK\n", b"OK\r\n", b"OK\n", b"\r\n+CREG:OK\r",
    b"x" * 300 + b",1\r\nOK\r\n",
], ids=lambda reply: repr(reply)[-28:])
def test_a_registration_that_cannot_be_checked_counts_as_none(nl678e, reply):
    nl678e.modem().reply("AT+CREG?", reply)
    assert check_register(nl678e) == -1
    assert usable(nl678e)


def test_the_fields_are_counted_from_the_tenth_character(nl678e):
    nl678e.modem().reply("AT+CREG?", b"1,1,1,1,1,3\r\nOK\r\n")  # which is the last field
    assert check_register(nl678e) == -1
    nl678e.modem().reply("AT+CREG?", b"123456789x,1\r\nOK\r\n")
    assert check_register(nl678e) == 0


@pytest.mark.parametrize("name, result", [
    ("fibocom-fm150/creg--three-digit-lac-act-13.txt", 0), ("fibocom-fm190/creg--lac-FFFF-act-13.txt", 0),
    ("fibocom-l850/creg--2-6-leading-empty-line.txt", -1), ("fibocom-l850/creg--2-6-sms-only.txt", -1),
])
def test_recorded_registrations(nl678e, name, result):
    nl678e.modem().reply("AT+CREG?", recorded(name))
    assert check_register(nl678e) == result


# The status block


def test_the_whole_block(router):
    r = router("nl678e", ubus={"interfaces": {"modem_1_1_2": "up"}})
    block = status(r)
    assert list(block.items()) == [
        ("up", "on"), ("SIM_status", 0), ("online", False), ("signal_info", SIGNAL["signals"]), ("signal", 3),
        ("mode", "4G"), ("newsms", 0)]
    assert r.modem().commands == ["AT+CPIN?", "AT+CREG?", CESQ, CSQ, CELLS]


def test_a_pending_interface_does_not_keep_it_from_being_asked(router):
    r = router("nl678e", ubus={"interfaces": {"modem_1_1_2": "pending"}})
    assert list(status(r)) == SERVED


@pytest.mark.parametrize("technology, mode", [("1", "2G"), ("2", "3G"), ("4", "4G"), ("9", "")])
def test_the_mode_of_the_block_is_that_of_the_cell_list(router, technology, mode):
    r = router("nl678e", ubus=False)
    r.modem().reply(CELLS, report(with_field(SERVING_LINE, 1, technology)))
    r.modem().reply(CESQ, ok("+CESQ: 99,99,255,255,28,80"))
    block = status(r)
    assert list(block) == SERVED and (block["signal"], block["mode"]) == (4, mode)


def test_the_block_without_any_measurement(router):
    r = router("nl678e", ubus=False)
    for command in (CESQ, CSQ, CELLS):
        r.modem().reply(command, "\nERROR\n")
    block = status(r)
    assert list(block) == SERVED and (block["signal_info"], block["signal"], block["mode"]) == ([{}], 1, "")


def test_the_endpoint_with_the_details_has_the_level_by_the_common_query(router):
    r = router("nl678e", ubus=False)
    code, document = r.api("post", "/modem/modem_info/get", {"bus": BUS, "modem_id": MODEM_ID})
    assert code == 0 and document["modem_info"]["signal"] == "\x03"
    assert r.modem().commands[-1] == "AT+CSQ"


# The APN

APN = 'AT+CGDCONT=1,"IP","{}"'
NOT_SUPPORTED = -17


def set_apn(r: Router, apn: str) -> int:
    result = run_probe(r, "set-apn", BUS, apn)
    assert result.returncode == 0, result
    number, reply = parse(result)
    assert reply == {}
    return number


@pytest.mark.parametrize("files", [
    {}, {"/tmp/sim_status": "absent\n"}, {"/tmp/sim_status": "ready\n", "/tmp/sim_type": "verizon\n"},
], ids=["no files", "absent", "verizon"])
def test_the_apn_goes_into_context_1_whatever_the_sim(router, files):
    r = router("nl678e", ubus=False, files=files)
    assert set_apn(r, "internet") == 0
    assert r.events == [{"kind": "at", "bus": BUS, "port": "ttyUSB2", "command": APN.format("internet")}]


@pytest.mark.parametrize("apn", ["", "a.b-c", "a,b", 'a"b', "%s%n", "ä", "LOOK", "$(id)", " x"])
def test_an_apn_is_written_as_it_is(router, apn):
    r = router("nl678e", ubus=False)
    assert set_apn(r, apn) == 0
    assert r.modem().commands == [APN.format(apn)] and r.commands == []


@pytest.mark.parametrize("refusal", [*REFUSALS, b"\r\nOK", "\n" + "x" * 300 + "\n\nOK\n"], ids=repr)
def test_an_apn_that_is_refused(router, refusal):
    r = router("nl678e", ubus=False)
    r.modem().reply(APN.format("internet"), refusal)
    assert set_apn(r, "internet") == -1
    assert r.modem().commands == [APN.format("internet")]


@unreachable
def test_an_apn_that_cannot_be_written_counts_as_written(router, state):
    r = router("nl678e", ubus=False)
    with state(r):
        assert set_apn(r, "internet") == 0
    assert r.modem().commands == []


@pytest.mark.parametrize("after, result", [(0, 0), (4, -1)])  # a beginning of the answer is one
def test_a_modem_that_goes_when_its_apn_is_written(router, after, result):
    r = router("nl678e", ubus=False)
    r.modem().misbehave("drop", after=after)
    assert set_apn(r, "internet") == result


@pytest.mark.parametrize("total, fits", [
    (96, True), (97, True), (98, None), (99, None), (100, None),  # its buffer of 100 holds the line end, too
    (101, False), (256, False), (5000, False),
])
def test_an_apn_that_does_not_fit_aborts_and_nothing_is_sent(router, total, fits):
    r = router("nl678e", ubus=False)
    apn = "x" * (total - len(APN.format("")))
    result = run_probe(r, "set-apn", BUS, apn)
    assert result.returncode in {True: (0,), False: (ABORTED,), None: (0, ABORTED)}[fits]
    assert r.modem().commands == ([] if result.returncode else [APN.format(apn)])


def test_there_is_no_setting_for_credentials(router):
    r = router("nl678e", ubus=False, files={"/tmp/sim_status": "ready\n"})
    assert probe(r, "set-ath", BUS, "internet", "user", "secret", "PAP") == (NOT_SUPPORTED, {})
    assert r.events == []


# Silence


def test_silence(router):
    """All in one test and at the same time, because each exchange takes its 15 seconds."""
    buses = ("1-1.2", "1-1.3", "1-1.4", "2-1.2", "2-1.3", "2-1.4")
    r = router(modems={bus: "nl678e" for bus in buses}, ubus=False)
    for bus in ("1-1.2", "1-1.3", "1-1.4", "2-1.2"):
        r.modem(bus).misbehave("silent")
    r.modem("2-1.3").reply(CSQ, b"")
    r.modem("2-1.4").reply(CESQ, b"")
    started = [
        r.start("vela_modem", "1-1.2", "cells"), r.start("vela_modem", "1-1.3", "get_mode"),
        r.start("vela_modem", "1-1.4", "check_register"),
        r.start(str(r.build / "tests/router/probe"), "set-apn", "2-1.2", "internet"),
        r.start("vela_modem", "2-1.3", "cells"), r.start("vela_modem", "2-1.4", "signal"),
    ]
    outputs = [process.communicate()[0].decode() for process in started]
    assert json.loads(outputs[0]) == []
    assert outputs[1:4] == ["get_mode: \n", "check_register=-1\n", "{\n}\nresult 0\n"]
    assert ordered(json.loads(outputs[4])) == ordered([{key: SERVING[key] for key in SERVING_KEYS}, *NEIGHBOURS])
    assert json.loads(outputs[5]) == {"signals": [{"rssi": "-69"}], "strength": (1 + 1 + 4) // 3, "mode": "0G"}
    for bus in buses:
        r.modem(bus).behave()
    assert usable(r)
