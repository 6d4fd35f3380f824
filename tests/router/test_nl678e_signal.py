"""The NL678E's signal report: its values, and the level that they make."""

import re
from typing import Iterator

import pytest
from nl678e_client import BUS, CESQ, CSQ, REFUSALS, SIGNAL, SIGNAL_KEYS, ok, recorded, sent, signal, usable, with_field
from velasim import Router


@pytest.fixture(scope="module")
def nl678e() -> Iterator[Router]:
    with Router("nl678e", ubus=False) as r:
        yield r


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
