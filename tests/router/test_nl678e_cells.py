"""The NL678E's cell list: which lines are cells, their fields, and the strength beside them."""

import json
import re
from typing import Iterator

import pytest
from nl678e_client import (
    BUS, CELLS, CSQ, MODEM_ID, NEIGHBOURS, NEIGHBOUR_KEYS, NEIGHBOUR_LINES, REFUSALS, REPLIES, SERVING,
    SERVING_KEYS, SERVING_LINE, ok, ordered, printed_cells, recorded, report, run, sent, signal, usable, with_field,
)
from velasim import Router

FIELD = 15  # characters that are kept of a field


@pytest.fixture(scope="module")
def nl678e() -> Iterator[Router]:
    with Router("nl678e", ubus=False) as r:
        yield r


def cells(r: Router, reply: str | bytes, csq: str = "+CSQ: 22,99") -> list[dict]:
    r.modem().reply(CELLS, reply)
    r.modem().reply(CSQ, ok(csq))
    return printed_cells(r)


def serving(r: Router, line: str, csq: str = "+CSQ: 22,99") -> dict:
    [cell] = cells(r, report(line), csq)
    return cell


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
