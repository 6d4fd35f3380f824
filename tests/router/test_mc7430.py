"""The MC7430: its status report with the cells and the level that are read from it, registration, SIM, and that it is
left alone while its interface is coming up."""

import json
import re
from pathlib import Path
from syslog import LOG_DEBUG
from typing import Iterator

import pytest
from probe_client import probe
from support import system_log, unreachable, usable
from velasim import Router

BUS = "1-1.2"
MODEM_ID = 5
OBJECT = "network.interface.modem_1_1_2"
REPORT = "AT!GSTATUS?"
REPLIES = Path(__file__).resolve().parents[1] / "replies"
SERVED = ["up", "SIM_status", "online", "signal", "mode", "newsms"]
UNSERVED = ["up", "SIM_status", "online", "newsms"]
FAULTY = ["up", "SIM_status"]
ALL_ASKED = ["AT+CPIN?", "AT+CREG?", REPORT]
REFUSALS = ["\nERROR\n", "\n+CME ERROR: 3\n"]


@pytest.fixture(scope="module")
def mc7430() -> Iterator[Router]:
    with Router("mc7430", ubus=False) as r:
        yield r


def bus_with(state: object) -> dict:
    return {"interfaces": {"modem_1_1_2": state}}


def ok(*lines: str) -> str:
    return "\n" + "".join(f"{line}\n" for line in lines) + "\n\nOK\n"


LTE_LINES = [
    "!GSTATUS: ",
    "Current Time:  22016\t\tTemperature: 40",
    "Reset Counter: 1\t\tMode:        ONLINE         ",
    "System mode:   LTE        \tPS state:    Attached     ",
    "LTE band:      B2     \t\tLTE bw:      20 MHz  ",
    "LTE Rx chan:   800\t\tLTE Tx chan: 18800",
    "LTE CA state:  NOT ASSIGNED",
    "EMM state:     Registered     \tNormal Service ",
    "RRC state:     RRC Connected  ",
    "IMS reg state: No Srv  \t\t",
    "",
    "PCC RxM RSSI:  -45\t\tRSRP (dBm):  -81",
    "PCC RxD RSSI:  -44\t\tRSRP (dBm):  -79",
    "Tx Power:      15\t\tTAC:         7B21 (31521)",
    "RSRQ (dB):     -14.0\t\tCell ID:     0A1B2C3D (169552957)",
    "SINR (dB):     23.8",
]
LTE = ok(*LTE_LINES)
PSS = {
    "type": "PSS", "state": "Attached", "cellid": "0A1B2C3D (169552957)", "band": "B2", "bandwidth": "20 MHz",
    "tx-chan": "18800", "rx-chan": "800", "M-rssi": "-45", "D-rssi": "-44", "M-rsrp": "-81", "D-rsrp": "-79",
    "rsrq": "-14.0", "sinr": "23.8", "tac": "7B21 (31521)", "rat": "LTE",
}
# What the simulated modem says by itself: the same on two carriers.
SSS = {
    "type": "SSS", "band": "B12", "bandwidth": "10 MHz", "chan": "5110", "M-rssi": "-52", "D-rssi": "-51",
    "M-rsrp": "-83", "D-rsrp": "-81", "rat": "LTE",
}
AGGREGATED = ok(*LTE_LINES[:6], "LTE CA state:  ACTIVE      \t\tLTE Scell band:B12    ",
                "LTE Scell bw:10 MHz  \t\tLTE Scell chan:5110", *LTE_LINES[7:13],
                "SCC RxM RSSI:  -52\t\tRSRP (dBm):  -83", "SCC RxD RSSI:  -51\t\tRSRP (dBm):  -81", *LTE_LINES[13:])
WCDMA_LINES = [
    "!GSTATUS: ",
    "Current Time:  1350\t\tTemperature: 32",
    "Reset Counter: 1\t\tMode:        ONLINE         ",
    "System mode:   WCDMA      \tPS state:    Attached     ",
    "WCDMA band:    WCDMA 2100 ",
    "WCDMA channel: 10662",
    "GMM (PS) state:REGISTERED\tNORMAL SERVICE ",
    "MM (CS) state: IDLE      \tNORMAL SERVICE ",
    "",
    "WCDMA L1 state:L1M_PCH_SLEEP\tLAC:         1A2B (6699)",
    "RRC state:     DISCONNECTED\tUTRAN Cell ID: 01A2B3C4 (27440068)",
    "RxM RSSI C0:   -68\t\tRxD RSSI C0:   -70",
    "RxM RSSI C1:   ---\t\tRxD RSSI C1:   ---",
]
WCDMA = ok(*WCDMA_LINES)
SERVINGCELL = {
    "type": "servingcell", "state": "Attached", "cellid": "01A2B3C4 (27440068)", "band": "WCDMA 2100", "chan": "10662",
    "M-rssi-c0": "-68", "M-rssi-c1": "---", "D-rssi-c0": "-70", "D-rssi-c1": "---", "lac": "1A2B (6699)",
    "rat": "WCDMA",
}
SEARCHING = ok("!GSTATUS: ", "Current Time:  602\t\tTemperature: 35",
               "System mode:   Unknown    \tPS state:    Not attached ",
               "GMM (PS) state:DEREGISTERED\tNO SERVICE     ", "MM (CS) state: IDLE      \tNO SERVICE     ")


def printed_cells(r: Router) -> list[dict]:
    result = r.run("vela_modem", "cells")
    assert (result.returncode, result.stderr) == (0, "")
    return json.loads(result.stdout)


def cells(r: Router, reply: str | bytes) -> list[dict]:
    r.modem().reply(REPORT, reply)
    return printed_cells(r)


def status(r: Router, bus: str = BUS) -> dict:
    result, reply = probe(r, "status", bus)
    assert result == 0
    return reply


def served(r: Router, reply: str | bytes) -> tuple[int, str] | None:
    """Level and mode in the status block, None where they are left out."""
    r.modem().reply(REPORT, reply)
    block = status(r)
    assert list(block) in (SERVED, UNSERVED)
    return (block["signal"], block["mode"]) if "signal" in block else None


def ordered(objects: list[dict]) -> list[list[tuple[str, str]]]:
    return [list(each.items()) for each in objects]


# The cells


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


@unreachable
def test_a_modem_that_does_not_answer_passes_for_a_registered_one(router, state):
    r = router("mc7430", ubus=False)
    with state(r):
        outputs = [r.run("vela_modem", command).stdout for command in ("cells", "check_register", "sim-status")]
        block = r.run(str(r.build / "tests/router/probe"), "status", BUS).stdout
    assert json.loads(outputs[0]) == [] and outputs[1:] == ["check_register=0\n", "READY"]
    reply = json.loads(block.removesuffix("\nresult 0\n"))
    assert list(reply) == UNSERVED and reply["SIM_status"] == 0
    assert r.modem().commands == []


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


# The level

STEPS = {"rsrp": (-90, -105, -120), "rsrq": (-9, -12, -13), "sinr": (13, 10, 7), "rssi": (-65, -75, -85)}
BEST = {"rsrp": -90, "rsrq": -9, "sinr": 13, "rssi": -65}
WORST = {"rsrp": -121, "rsrq": -14, "sinr": 6, "rssi": -86}


def measured(rssi: object = -60, rsrp: object = -80, rsrq: object = -5, sinr: object = 20) -> str:
    return ok("System mode:   LTE", f"PCC RxM RSSI:  {rssi}\t\tRSRP (dBm):  {rsrp}",
              "PCC RxD RSSI:  -99\t\tRSRP (dBm):  -130", f"RSRQ (dB):     {rsrq}\t\tCell ID:     1",
              f"SINR (dB):     {sinr}")


def wcdma(rssi: object) -> str:
    return ok("System mode:   WCDMA", f"RxM RSSI C0:   {rssi}\t\tRxD RSSI C0:   -99", "RxM RSSI C1:   -99")


def with_grade(name: str, grade: int) -> int:
    return [WORST[name], STEPS[name][2], STEPS[name][1], STEPS[name][0]][grade - 1]


# For each grade, grades of the three others with which the sum is just a multiple of four: one less lowers the level.
OTHERS = {4: (1, 1, 2), 3: (1, 2, 2), 2: (2, 2, 2)}


@pytest.mark.parametrize("name, grade", [(name, grade) for name in STEPS for grade in OTHERS])
def test_the_limits_of_each_grade(mc7430, name, grade):
    rest = [other for other in STEPS if other != name]
    for turn in range(3):
        grades = dict(zip(rest[turn:] + rest[:turn], OTHERS[grade]))
        values = {other: with_grade(other, each) for other, each in grades.items()}
        limit = STEPS[name][4 - grade]
        level = (sum(grades.values()) + grade) // 4
        assert served(mc7430, measured(**values, **{name: limit})) == (level, "4G")
        assert served(mc7430, measured(**values, **{name: limit - 1})) == (level - 1, "4G")


@pytest.mark.parametrize("values, level", [
    (BEST, 4), (WORST, 1), ({**BEST, "sinr": 12}, 3), ({**WORST, "rsrp": -90}, 1),
    ({**WORST, "rsrp": -90, "sinr": 7}, 2),
    ({"rsrp": -44, "rsrq": 0, "sinr": 30, "rssi": 0}, 4), ({"rsrp": -140, "rsrq": -20, "sinr": -20, "rssi": -113}, 1),
    ({"rsrp": -120, "rsrq": -13, "sinr": 7, "rssi": -85}, 2), ({"rsrp": -105, "rsrq": -12, "sinr": 10, "rssi": -75}, 3),
], ids=str)
def test_lte_as_a_whole(mc7430, values, level):
    assert served(mc7430, measured(**values)) == (level, "4G")


@pytest.mark.parametrize("key, text, value", [
    ("rsrq", "-12.7", -12), ("rsrq", "-9.9", -9), ("rsrq", "-13.9", -13), ("rsrq", "-14.0", -14), ("sinr", "12.9", 12),
    ("sinr", "6.99", 6), ("sinr", "-0.4", 0), ("sinr", " 13.0", 13), ("rsrp", "+5", 5), ("rssi", "   -66", -66),
    ("rssi", "-66x", -66), ("rsrp", "-105 dBm", -105), ("sinr", "010", 10), ("sinr", "0x20", 0),
])
def test_a_value_counts_up_to_its_last_digit(mc7430, key, text, value):
    grade = 4 - sum(value < step for step in STEPS[key])
    others = {name: BEST[name] for name in STEPS if name != key}
    for count in range(4):
        values = {name: BEST[name] if index >= count else WORST[name] for index, name in enumerate(others)}
        total = grade + sum(4 if values[name] == BEST[name] else 1 for name in others)
        assert served(mc7430, measured(**values, **{key: text})) == (total // 4, "4G")


@pytest.mark.parametrize("key", STEPS)
@pytest.mark.parametrize("text", ["---", "--", "-", "", "x", ".5", "B2"])
def test_without_one_of_the_four_values_there_is_no_level(mc7430, key, text):
    assert served(mc7430, measured(**{key: text})) is None


@pytest.mark.parametrize("label", ["PCC RxM RSSI:  ", "RSRP (dBm):  ", "RSRQ (dB):     ", "SINR (dB):     "])
def test_the_blanks_belong_to_the_labels_of_lte(mc7430, label):
    reply = measured(**BEST)
    assert served(mc7430, reply.replace(label, label[:-1])) is None
    assert served(mc7430, reply.replace(label, label[:-1] + "\t")) is None
    assert served(mc7430, reply.replace(label, label + "  ")) == (4, "4G")
    assert served(mc7430, reply.replace(label, "")) is None
    assert served(mc7430, reply.replace(label, label.replace(":", ";"))) is None


def test_a_report_without_sinr_leaves_the_level_out(mc7430):
    assert served(mc7430, ok(*LTE_LINES)) == (3, "4G")
    assert served(mc7430, ok(*LTE_LINES[:-1])) is None


def test_the_first_occurrence_of_a_label_counts(mc7430):
    second = ok(*measured(**BEST).strip("\n").split("\n")[:-2], "RSRP (dBm):  -140", "PCC RxM RSSI:  -113",
                "RSRQ (dB):     -20", "SINR (dB):     -20")
    assert served(mc7430, second) == (4, "4G")
    assert served(mc7430, measured(**BEST).replace("System", "RSRP (dBm):  --\nSystem")) is None


@pytest.mark.parametrize("rssi, level", [
    (-64, 4), (-65, 4), (-66, 3), (-75, 3), (-76, 2), (-85, 2), (-86, 1), (-113, 1), (0, 4), (51, 4), ("-65.9", 4),
    ("-75x", 3), ("  -86", 1),
])
def test_levels_of_wcdma(mc7430, rssi, level):
    assert served(mc7430, wcdma(rssi)) == (level, "3G")


@pytest.mark.parametrize("text", ["---", "--", "", "x"])
def test_wcdma_without_a_value_has_no_level(mc7430, text):
    assert served(mc7430, ok("WCDMA", f"RxM RSSI C0:{text}\t\tRxD RSSI C0:   -60")) is None
    assert served(mc7430, ok("WCDMA", "RxM RSSI C1:   -60")) is None


def test_the_label_of_wcdma_needs_no_blank(mc7430):
    assert served(mc7430, ok("WCDMA", "RxM RSSI C0:-60")) == (4, "3G")


def test_lte_comes_before_wcdma(mc7430):
    lte, wcdma_ = LTE_LINES[3:], [*WCDMA_LINES[4:6], *WCDMA_LINES[10:]]  # as much as is read of a report
    assert served(mc7430, ok(*lte, *wcdma_)) == (3, "4G")
    assert served(mc7430, ok(*wcdma_, *lte)) == (3, "4G")
    assert served(mc7430, ok(*wcdma_)) == (3, "3G")
    # Even where only WCDMA has a value.
    assert served(mc7430, ok(*WCDMA_LINES, "LTE band: ---")) is None


@pytest.mark.parametrize("reply", [SEARCHING, ok("!GSTATUS: "), ok(), ok("RxM RSSI C0:   -60", "PCC RxM RSSI:  -60")],
                         ids=lambda reply: repr(reply[-40:]))
def test_without_either_technology_there_is_no_level(mc7430, reply):
    assert served(mc7430, reply) is None


@pytest.mark.parametrize("digits", ["2147483647", "-2147483648", "99999999999999999999", "-99999999999999999999"])
def test_huge_values_do_no_harm(mc7430, digits):
    for reply in (*(measured(**{key: digits}) for key in STEPS), wcdma(digits)):
        found = served(mc7430, reply)
        assert found is None or found[0] in (1, 2, 3, 4)


def test_the_smallest_and_largest_numbers_have_grades(mc7430):
    assert served(mc7430, wcdma("2147483647")) == (4, "3G")
    assert served(mc7430, wcdma("-2147483648")) == (1, "3G")


# The status block


def test_the_whole_block(router):
    r = router("mc7430", ubus=bus_with("up"), files={"/var/run/mwan3track/modem_1_1_2/STATUS": "online\n"})
    r.modem().reply(REPORT, LTE)
    block = status(r)
    assert list(block.items()) == [
        ("up", "on"), ("SIM_status", 0), ("online", True), ("signal", 3), ("mode", "4G"), ("newsms", 0)]
    assert [event["command"] for event in r.events if event["kind"] == "at"] == ALL_ASKED
    assert {event["port"] for event in r.events if event["kind"] == "at"} == {"ttyUSB2"}
    # The link's own, and before each of the three.
    assert [event["object"] for event in r.events if event["kind"] == "ubus"] == [OBJECT] * 4


def test_an_aggregated_carrier_is_not_told_from_a_single_one(mc7430):
    """The row has no check of it: the block says 4G, and the report is asked for once."""
    mc7430.clear_events()
    assert served(mc7430, AGGREGATED) == (3, "4G")
    assert mc7430.modem().commands == ALL_ASKED


def test_a_signal_file_comes_before_the_report(router):
    r = router("mc7430", ubus=False, files={f"/tmp/modem.{BUS}/signal": '{"type": "wcdma", "rssi": -85, "ecio": -12}'})
    block = status(r)
    assert (block["signal"], block["mode"]) == (2, "3G")
    assert r.modem().commands == ALL_ASKED[:2]


def test_the_command_signal_knows_the_file_only(router):
    r = router("mc7430", ubus=False)
    assert r.run("vela_modem", "signal").stdout == "Not support"
    assert r.modem().commands == []


@pytest.mark.parametrize("reply, byte", [
    (measured(**BEST), "\x04"), (measured(**WORST), "\x01"), (wcdma(-70), "\x03"), (SEARCHING, ""),
], ids=["best", "worst", "wcdma", "searching"])
def test_the_detail_view_has_the_level_as_a_byte(router, reply, byte):
    r = router("mc7430", ubus=False)
    r.modem().reply(REPORT, reply)
    code, document = r.api("post", "/modem/modem_info/get", {"bus": BUS, "modem_id": MODEM_ID})
    assert code == 0 and list(document["modem_info"]) == ["imsi", "sim_status", "signal"]
    assert document["modem_info"]["signal"] == byte


def test_the_modem_is_the_one_on_the_bus(router):
    r = router(modems={"1-1.2": "mc7430", "2-1.2": "mc7430"}, ubus=bus_with("pending"))
    r.modem("2-1.2").reply(REPORT, WCDMA)
    assert json.loads(r.run("vela_modem", "-B", "2-1.2", "cells").stdout) == [SERVINGCELL]
    assert status(r, "2-1.2")["mode"] == "3G"  # the other one's interface is the one that is coming up
    assert r.modem("1-1.2").commands == []
    assert r.modem("2-1.2").commands == [REPORT, *ALL_ASKED]


# Registration


def check_register(r: Router) -> int:
    result = r.run("vela_modem", "check_register")
    assert (result.returncode, result.stderr) == (0, "")
    return int(re.fullmatch(r"check_register=(-?\d+)\n", result.stdout)[1])


@pytest.mark.parametrize("creg, result", [
    ("0,1", 0), ("0,5", 0), ("2,1", 0), ("2,5", 0), ("1,1", 0), ("5", -1), ("1", -1), (",1", 0),
    ("0,0", -1), ("0,2", -1), ("0,3", -1), ("0,4", -1), ("0,6", -1), ("0,11", -1), ("0,51", -1), ("0,15", -1),
    ('2,1,"A1B2","00C3D4E5",7', -1), ('2,5,"A1B2","00C3D4E5"', -1), ('2,2,"A1B2","00C3D4E5",1', 0), ("0, 1", -1),
    ("0,1 ", -1), ("", -1),
], ids=repr)
def test_registration(router, creg, result):
    r = router("mc7430", ubus=False)
    r.modem().reply("AT+CREG?", f"\n+CREG: {creg}\n\nOK\n")
    assert check_register(r) == result
    assert r.modem().commands == ["AT+CREG?"]
    assert r.run("vela_modem", "sim-status").stdout == ("READY" if result == 0 else "NO_REG")
    block = status(r)
    assert block["SIM_status"] == (0 if result == 0 else -3)
    assert list(block) == (SERVED if result == 0 else FAULTY)


@pytest.mark.parametrize("reply", [
    *REFUSALS, "\n+CREG: 0,2\n\nERROR\n", b"\r\n+CREG: 0,2\r\n\r\nOK",
    b"\r\n" + b"x" * 300 + b"+CREG: 0,2\r\n\r\nOK\r\n",
], ids=lambda reply: repr(reply)[-24:])
def test_a_registration_that_cannot_be_checked_counts_as_registered(router, reply):
    r = router("mc7430", ubus=False)
    r.modem().reply("AT+CREG?", reply)
    assert check_register(r) == 0
    assert r.run("vela_modem", "sim-status").stdout == "READY"


def test_a_status_that_a_line_feed_ends_is_none(router):
    r = router("mc7430", ubus=False)
    r.modem().reply("AT+CREG?", b"\n+CREG: 0,1\n\nOK\n")
    assert check_register(r) == -1


@pytest.mark.parametrize("reply, aggregates", [
    (None, 1), (LTE, 0), (LTE.replace("NOT ASSIGNED", "INACTIVE"), 1), (LTE.replace("LTE CA state", "CA"), 0),
    *((refusal, 0) for refusal in REFUSALS),
], ids=repr)
def test_whether_it_aggregates_carriers(router, reply, aggregates):
    r = router("mc7430", ubus=False)
    if reply is not None:
        r.modem().reply(REPORT, reply)
    assert probe(r, "cat6", BUS)[0] == aggregates
    assert r.modem().commands == [REPORT]


# The SIM


@pytest.mark.parametrize("cpin, code, text", [
    ("\n+CPIN: READY\n\nOK\n", 0, "READY"), ("\n+CPIN: SIM PIN\n\nOK\n", -2, "PIN_SIM"),
    ("\n+CPIN: PH-NET PIN\n\nOK\n", -2, "PIN_SIM"), ("\n+CPIN: SIM PIN2\n\nOK\n", 0, "READY"),
    ("\nERROR\n", -1, "NO_SIM"), ("\n+CME ERROR: 10\n", -1, "NO_SIM"),
    ("\n+CME ERROR: SIM not inserted\n", -1, "NO_SIM"),
    ("\n+CPIN: SIM PIN\n\nERROR\n", -1, "NO_SIM"), ("\nOK\n", 0, "READY"), ("\n+CPIN: NOT READY\n\nOK\n", 0, "READY"),
    (b"\r\n+CPIN: SIM PIN\r\nOK", -2, "PIN_SIM"),  # whether it ends in OK does not matter
    (b"\n+CPIN: SIM PIN\n\nOK\n", 0, "READY"),  # without a carriage return
    ("\n+CPIN: SIM PUK\n\nOK\n", 0, "READY"),  # which is no PIN
], ids=repr)
def test_sim_faults(router, cpin, code, text):
    r = router("mc7430", ubus=False)
    r.modem().reply("AT+CPIN?", cpin)
    assert r.run("vela_modem", "sim-status").stdout == text
    assert r.modem().commands == (["AT+CPIN?"] if code else ["AT+CPIN?", "AT+CREG?"])
    block = status(r)
    assert block["SIM_status"] == code and list(block) == (FAULTY if code else SERVED)


def test_no_sim_is_noticed_before_no_registration(router):
    r = router("mc7430", ubus=False)
    r.modem().reply("AT+CREG?", "\n+CREG: 0,0\n\nOK\n")
    r.modem().reply("AT+CPIN?", "\n+CME ERROR: 10\n")
    assert status(r) == {"up": "off", "SIM_status": -1}


def test_the_answer_to_the_sim_query_may_have_more_lines(router):
    r = router("mc7430", ubus=False)
    r.modem().misbehave("unsolicited", text="+CREG: 2", where="before")
    r.modem().reply("AT+CPIN?", "\n+CPIN: SIM PIN\n\nOK\n")
    assert r.run("vela_modem", "sim-status").stdout == "PIN_SIM"


# While the interface is coming up


BUSY_SIM = (LOG_DEBUG, "modem device busy,can't check SIM status\n")
BUSY_REGISTER = (LOG_DEBUG, "modem device busy,can't check register status\n")
BUSY_SIGNAL = (LOG_DEBUG, "modem device busy,can't to get signal\n")


def test_a_pending_modem_is_not_asked_and_passes_for_a_registered_one(router):
    r = router("mc7430", ubus=bus_with("pending"))
    r.modem().reply("AT+CPIN?", "\n+CME ERROR: 10\n")
    r.modem().reply("AT+CREG?", "\n+CREG: 0,0\n\nOK\n")
    with system_log(r) as messages:
        assert r.run("vela_modem", "sim-status").stdout == "READY"
    assert messages() == [BUSY_SIM, BUSY_REGISTER]
    with system_log(r) as messages:
        assert check_register(r) == 0
    assert messages() == [BUSY_REGISTER]
    with system_log(r) as messages:
        block = status(r)
    assert messages() == [BUSY_SIM, BUSY_REGISTER, BUSY_SIGNAL]
    assert list(block.items()) == [("up", "connecting"), ("SIM_status", 0), ("online", False), ("newsms", 0)]
    assert r.modem().commands == []


def test_the_interface_is_asked_by_its_name_before_each(router):
    r = router("mc7430", ubus=bus_with("pending"))
    assert check_register(r) == 0
    assert r.events == [{"kind": "ubus", "object": OBJECT, "method": "status", "args": {}}]


def test_the_cells_are_asked_for_even_then(router):
    r = router("mc7430", ubus=bus_with("pending"))
    with system_log(r) as messages:
        assert ordered(printed_cells(r)) == ordered([PSS, SSS])
    assert messages() == []
    assert [event["kind"] for event in r.events] == ["at"]


def test_pending_counts_even_of_an_interface_that_is_up(router):
    r = router("mc7430", ubus=bus_with({"state": "up", "pending": True}))
    status(r)
    assert r.modem().commands == []


@pytest.mark.parametrize("ubus", [
    bus_with("up"), bus_with("down"), bus_with("unknown"), {}, False,
    {"interfaces": {"modem_1_1_2": "down", "modem_1_1_3": "pending", "modem": "pending", "wan": "pending"}},
    {"replies": {OBJECT: {"status": {}}}}, {"replies": {OBJECT: {"status": {"pending": False, "up": True}}}},
    {**bus_with("pending"), "faults": {OBJECT: {"status": {"status": 6}}}},
    {**bus_with("pending"), "faults": {OBJECT: {"<lookup>": "die"}}},
], ids=str)
def test_in_every_other_state_it_is_asked(router, ubus):
    r = router("mc7430", ubus=ubus)
    with system_log(r) as messages:
        assert list(status(r))[-len(SERVED):] == SERVED
    assert r.modem().commands == ALL_ASKED
    assert not [text for _, text in messages() if "busy" in text]


def test_it_is_asked_again_as_soon_as_the_interface_is_up(router):
    r = router("mc7430", ubus=bus_with("pending"))
    assert list(status(r)) == UNSERVED
    r.set_ubus_state(bus_with("up"))
    assert list(status(r)) == SERVED


# Silence


def test_silence_passes_for_a_registered_modem_without_a_signal(router):
    """At the same time, because each exchange takes its 15 seconds."""
    buses = ("1-1.2", "1-1.3", "1-1.4", "2-1.2")
    r = router(modems={bus: "mc7430" for bus in buses}, ubus=False)
    r.modem("1-1.2").misbehave("silent")
    r.modem("1-1.4").misbehave("silent")
    # These two only echo.
    r.modem("1-1.3").reply("AT+CPIN?", b"")
    r.modem("2-1.2").misbehave("no_final")
    started = [r.start("vela_modem", bus, command) for bus, command in (
        ("1-1.2", "sim-status"), ("1-1.3", "sim-status"), ("1-1.4", "check_register"), ("2-1.2", "cells"))]
    outputs = [process.communicate()[0].decode() for process in started]
    assert outputs[:3] == ["READY", "READY", "check_register=0\n"] and json.loads(outputs[3]) == []
    assert [r.modem(bus).commands for bus in buses] == [
        ["AT+CPIN?", "AT+CREG?"], ["AT+CPIN?", "AT+CREG?"], ["AT+CREG?"], [REPORT]]
    for bus in buses:
        r.modem(bus).behave()
    assert usable(r)
