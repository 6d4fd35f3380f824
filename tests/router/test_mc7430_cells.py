"""The cells in the MC7430's status report, and in those of its relatives."""

import re
from pathlib import Path
from typing import Iterator

import pytest
from mc7430_client import (
    AGGREGATED, BUS, LTE, LTE_LINES, MODEM_ID, PSS, REFUSALS, REPORT, SEARCHING, SERVINGCELL, SSS, WCDMA,
    WCDMA_LINES, cells, ok, ordered, printed_cells, served,
)
from velasim import Router

REPLIES = Path(__file__).resolve().parents[1] / "replies"


@pytest.fixture(scope="module")
def mc7430() -> Iterator[Router]:
    with Router("mc7430", ubus=False) as r:
        yield r


def test_the_cells_as_the_modem_reports_them(router):
    r = router("mc7430", ubus=False)
    assert ordered(printed_cells(r)) == ordered([PSS, SSS])
    assert [(event["port"], event["command"]) for event in r.events] == [("ttyUSB2", REPORT)]


def test_the_cells_are_printed_one_value_a_line(mc7430):
    mc7430.modem().reply(REPORT, WCDMA)
    text = mc7430.run("vela_modem", "cells").stdout
    lines = [f'    "{key}":"{value}"' for key, value in SERVINGCELL.items()]
    assert text == "[\n  {\n" + ",\n".join(lines) + "\n  }\n]\n"


@pytest.mark.parametrize("reply, expected", [
    (LTE, [PSS]), (AGGREGATED, [PSS, SSS]), (WCDMA, [SERVINGCELL]), (SEARCHING, []), (ok("!GSTATUS: "), []), (ok(), []),
], ids=["lte", "aggregated", "wcdma", "searching", "empty", "nothing"])
def test_objects_and_their_order_by_command_and_by_endpoint(router, reply, expected):
    r = router("mc7430", ubus=False)
    assert ordered(cells(r, reply)) == ordered(expected)
    code, document = r.api("post", "/modem/cells/get", {"bus": BUS, "modem_id": MODEM_ID})
    assert (code, list(document)) == (0, ["cells"]) and ordered(document["cells"]) == ordered(expected)
    assert r.modem().commands == [REPORT] * 2


def test_lte_and_wcdma_in_one_report_are_two_objects(mc7430):
    both = ok(*LTE_LINES, *WCDMA_LINES[4:])
    assert ordered(cells(mc7430, both)) == ordered([PSS, {**SERVINGCELL}])
    assert [each["type"] for each in cells(mc7430, ok(*WCDMA_LINES, *LTE_LINES[4:], "SCC"))] == [
        "PSS", "SSS", "servingcell"]


@pytest.mark.parametrize("words, expected", [
    ("LTE", [{"type": "PSS", "rat": "LTE"}]), ("xLTEx", [{"type": "PSS", "rat": "LTE"}]),
    ("SCC", [{"type": "SSS", "rat": "LTE"}]), ("WCDMA", [{"type": "servingcell", "rat": "WCDMA"}]),
    ("WCDMA SCC LTE", [{"type": "PSS", "rat": "LTE"}, {"type": "SSS", "rat": "LTE"},
                       {"type": "servingcell", "rat": "WCDMA"}]),
    ("lte scc wcdma", []), ("LT E S CC WCDM A", []), ("LTE band", [{"type": "PSS", "rat": "LTE"}]),
])
def test_a_word_anywhere_makes_an_object_even_without_a_value(mc7430, words, expected):
    assert ordered(cells(mc7430, ok(words))) == ordered(expected)


LABELS = {
    "PSS": {"state": "PS state:", "cellid": "Cell ID:", "band": "LTE band:", "bandwidth": "LTE bw:",
            "tx-chan": "LTE Tx chan:", "rx-chan": "LTE Rx chan:", "M-rssi": "PCC RxM RSSI:", "D-rssi": "PCC RxD RSSI:",
            "rsrq": "RSRQ (dB):", "sinr": "SINR (dB):", "tac": "TAC:"},
    "SSS": {"band": "LTE Scell band:", "bandwidth": "LTE Scell bw:", "chan": "LTE Scell chan:",
            "M-rssi": "SCC RxM RSSI:", "D-rssi": "SCC RxD RSSI:"},
    "servingcell": {"state": "PS state:", "cellid": "UTRAN Cell ID:", "band": "WCDMA band:", "chan": "WCDMA channel:",
                    "M-rssi-c0": "RxM RSSI C0:", "M-rssi-c1": "RxM RSSI C1:", "D-rssi-c0": "RxD RSSI C0:",
                    "D-rssi-c1": "RxD RSSI C1:", "lac": "LAC:"},
}
WHOLE = {"PSS": (AGGREGATED, PSS), "SSS": (AGGREGATED, SSS), "servingcell": (WCDMA, SERVINGCELL)}


@pytest.mark.parametrize("kind, key, label", [(kind, *row) for kind, rows in LABELS.items() for row in rows.items()])
def test_a_label_that_is_missing_leaves_out_its_key_only(mc7430, kind, key, label):
    reply, expected = WHOLE[kind]
    without = reply.replace(label, label[:-1].lower() + ";")
    found = next(each for each in cells(mc7430, without) if each["type"] == kind)
    assert list(found.items()) == [item for item in expected.items() if item[0] != key]


@pytest.mark.parametrize("kind, key, label", [(kind, *row) for kind, rows in LABELS.items() for row in rows.items()])
def test_a_label_at_the_end_of_its_line_or_column_has_no_value(mc7430, kind, key, label):
    reply, expected = WHOLE[kind]
    for end in ("\n", "\t"):
        found = next(each for each in cells(mc7430, reply.replace(label, label + end)) if each["type"] == kind)
        assert list(found.items()) == [item for item in expected.items() if item[0] != key]


def test_the_four_levels_of_two_carriers_are_told_apart_by_their_order(mc7430):
    lines = [f"RSRP (dBm):  -{number}" for number in range(101, 106)]
    expected = [("M-rsrp", "-101"), ("D-rsrp", "-102"), ("M-rsrp", "-103"), ("D-rsrp", "-104")]
    for count in range(6):
        pss, sss = cells(mc7430, ok("LTE", "SCC", *lines[:count]))
        assert list(pss.items()) == [("type", "PSS"), *expected[:min(count, 2)], ("rat", "LTE")]
        assert list(sss.items()) == [("type", "SSS"), *expected[2:count], ("rat", "LTE")]


def test_without_a_fourth_level_only_that_one_is_missing(mc7430):
    reply = AGGREGATED.replace("\t\tRSRP (dBm):  -81\nTx", "\nTx")
    assert ordered(cells(mc7430, reply)) == ordered([PSS, {key: SSS[key] for key in SSS if key != "D-rsrp"}])


def test_without_a_second_carrier_there_is_no_object_of_it(mc7430):
    assert ordered(cells(mc7430, AGGREGATED.replace("SCC", "SSC"))) == ordered([PSS])


@pytest.mark.parametrize("text, value", [
    ("B2", "B2"), ("   B2", "B2"), ("B2   ", "B2"), ("  B 2  ", "B 2"), ("B2\tx", "B2"), (" B2 \t x", "B2"),
    ("B2  bw: 20", "B2  bw: 20"), ("", None), ("\tB2", None), ("   ", ""), ("B2\\\"/", "B2\\\"/"), ("--", "--"),
    ("x" * 100, "x" * 100), ("x" * 101, "x" * 100), ("x" * 500, "x" * 100), (" " * 10 + "x" * 100, "x" * 90),
    ("x" * 95 + " " * 20, "x" * 95), (" " * 100 + "x", ""), ("%s%n", "%s%n"), ("ä", "ä"), (":", ":"),
], ids=lambda value: repr(value)[:16])
def test_where_a_value_ends_and_what_is_stripped(mc7430, text, value):
    [pss] = cells(mc7430, ok(f"LTE band:{text}"))
    assert pss == {"type": "PSS", **({} if value is None else {"band": value}), "rat": "LTE"}


def test_a_value_of_the_last_line_may_end_with_the_reply(mc7430):
    assert cells(mc7430, b"\r\nOK\r\nLTE band: B3") == [{"type": "PSS", "band": "B3", "rat": "LTE"}]
    assert cells(mc7430, b"\r\nOK\r\nLTE band:") == [{"type": "PSS", "rat": "LTE"}]
    assert cells(mc7430, b"\r\nOK\r\nLTE band:\n") == [{"type": "PSS", "rat": "LTE"}]


def test_a_label_within_a_value_is_still_a_label(mc7430):
    [pss] = cells(mc7430, ok("LTE band: LTE bw: 20 MHz"))
    assert pss == {"type": "PSS", "band": "LTE bw: 20 MHz", "bandwidth": "20 MHz", "rat": "LTE"}


def test_of_a_label_that_comes_twice_the_first_counts(mc7430):
    [pss] = cells(mc7430, ok("LTE band: B1", "LTE band: B2"))
    assert pss["band"] == "B1"


@pytest.mark.parametrize("reply", [*REFUSALS, LTE.replace("OK", "ERROR"), LTE.replace("OK\n", "OK").encode()],
                         ids=lambda reply: repr(reply)[-16:])
def test_a_refused_report_is_no_cells_and_no_signal(router, reply):
    r = router("mc7430", ubus=False)
    assert cells(r, reply) == []
    assert served(r, reply) is None


def test_how_long_a_report_may_be(router):
    """2048 characters for the cells, 1024 for the level."""
    r = router("mc7430", ubus=False)
    for length, has_cells, has_level in ((900, True, True), (1000, True, True), (1100, True, False),
                                         (2000, True, False), (2100, False, False), (6000, False, False)):
        padding = length - len((REPORT + "\n" + LTE).replace("\n", "\r\n"))
        reply = ok(*LTE_LINES, "x" * padding)
        assert cells(r, reply) == ([PSS] if has_cells else []), length
        assert (served(r, reply) is not None) == has_level, length


# Recorded reports of its relatives

COLUMN = "[^\r\n\t]{1,100}"


def value_after(text: str, label: str, occurrence: int) -> str | None:
    position = 0
    for number in range(occurrence + 1):
        found = text.find(label, position)
        if found < 0:
            return None
        position = found + len(label)
    value = re.match(COLUMN, text[position:])
    return value and value[0].strip(" ")


def objects_of(text: str) -> list[dict]:
    """The objects of any report, as it comes over the wire."""
    result = []
    for kind, word, rat in (("PSS", "LTE", "LTE"), ("SSS", "SCC", "LTE"), ("servingcell", "WCDMA", "WCDMA")):
        if word not in text:
            continue
        rows = {"M-rsrp": 2, "D-rsrp": 3} if kind == "SSS" else {"M-rsrp": 0, "D-rsrp": 1}
        order = [key for key in WHOLE[kind][1] if key not in ("type", "rat")]
        values = {key: value_after(text, LABELS[kind].get(key, "RSRP (dBm):"), rows.get(key, 0)) for key in order}
        result.append({"type": kind, **{key: value for key, value in values.items() if value is not None}, "rat": rat})
    return result


def recorded(name: str) -> str:
    """The reply without the echo, and with the end that some copies lack."""
    text = (REPLIES / name).read_text(encoding="utf-8").split("\n---\n", 1)[1]
    text = re.sub(r"^at!gstatus\?", "", text, flags=re.IGNORECASE)
    return text if text.endswith("\nOK\n") else text + "\n\nOK\n"


RECORDED = {
    "sierra-em7455/gstatus--dw5811e-negative-sinr-echo.txt": (["PSS"], 1),
    "sierra-em7455/gstatus--lte-b25-ends-after-rssi.txt": (["PSS"], None),
    "sierra-em7455/gstatus--lte-ca-active-blank-aligned.txt": (["PSS", "SSS"], 3),
    "sierra-em7455/gstatus--lte-ca-active-tabs.txt": (["PSS", "SSS"], 3),
    "sierra-em7455/gstatus--lte-idle-tx-power-dashes-echo.txt": (["PSS"], 2),
    "sierra-em7455/gstatus--lte-not-attached-deregistered-truncated.txt": (["PSS"], None),
    "sierra-em7455/gstatus--wcdma-deep-sleep-no-service.txt": (["servingcell"], None),
    "sierra-em7565/gstatus--b66-idle-lowercase-hex.txt": (["PSS"], None),
    "sierra-em9191/gstatus--endc-lte-scc-inactive-cut.txt": (["PSS", "SSS"], None),
    "sierra-mc7455/gstatus--low-power-mode-short.txt": ([], None),
    "sierra-mc7710/gstatus--low-power-broken-temperature.txt": ([], None),
    "sierra-mc7710/gstatus--wcdma-pch-sleep.txt": (["servingcell"], None),
    "sierra-mc8705/gstatus--wcdma-dch.txt": (["servingcell"], None),
    "sierra-wp76xx/gstatus--mitigate-levels-ims-first.txt": (["PSS"], 2),
}


@pytest.mark.parametrize("name, types, level", [(name, *expected) for name, expected in RECORDED.items()])
def test_recorded_reports(mc7430, name, types, level):
    reply = recorded(name)
    found = cells(mc7430, reply)
    assert [each["type"] for each in found] == types
    assert ordered(found) == ordered(objects_of(reply.replace("\n", "\r\n")))
    assert served(mc7430, reply) == (None if level is None else (level, "4G"))


def test_every_recorded_report_has_its_test_here():
    assert {*RECORDED} == {str(path.relative_to(REPLIES)) for path in REPLIES.glob("sierra-*/gstatus*.txt")}


def test_a_recorded_report_of_two_carriers(mc7430):
    assert ordered(cells(mc7430, recorded("sierra-em7455/gstatus--lte-ca-active-tabs.txt"))) == ordered([PSS, SSS])


def test_columns_that_blanks_align_are_one_value(mc7430):
    pss, _ = cells(mc7430, recorded("sierra-em7455/gstatus--lte-ca-active-blank-aligned.txt"))
    assert pss["band"] == "B2           LTE bw:      20 MHz" and pss["bandwidth"] == "20 MHz"


def test_recorded_3g_without_service(mc7430):
    [cell] = cells(mc7430, recorded("sierra-em7455/gstatus--wcdma-deep-sleep-no-service.txt"))
    assert list(cell.items()) == [
        ("type", "servingcell"), ("state", "Not attached"), ("cellid", "00000000 (0)"), ("band", "WCDMA 2100"),
        ("chan", "0"), ("M-rssi-c0", "--- RxD RSSI C0: ---"), ("M-rssi-c1", "--- RxD RSSI C1: ---"),
        ("D-rssi-c0", "---"), ("D-rssi-c1", "---"), ("lac", "0000 (0)"), ("rat", "WCDMA")]


@pytest.mark.parametrize("reply", [
    b"\xff" * 1000 + b"\r\nOK\r\n", b"LTE SCC WCDMA RSRP (dBm):" * 30 + b"\r\nOK\r\n", b"\0LTE\r\nOK\r\n",
    b"LTE band:\0B2\r\nOK\r\n", b"\r\nOK\r\nLTE SCC WCDMA\r\nRSRP (dBm):  ", b"OK\r\nPCC RxM RSSI:  LTE",
    b"LTE PS state:" + b" " * 900 + b"\r\nOK\r\n", b"LTE SINR (dB):" + b"9" * 900 + b"\r\nOK\r\n",
    b"\r\nOK\r\nRxM RSSI C0:WCDMA", b"\r\nOK\r\nWCDMA\r\nRxM RSSI C0:",
], ids=lambda reply: repr(reply[:20]))
def test_garbage_does_no_harm(mc7430, reply):
    assert {each["type"] for each in cells(mc7430, reply)} <= {"PSS", "SSS", "servingcell"}
    assert served(mc7430, reply) is None
