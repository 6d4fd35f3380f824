"""The level that is read from the MC7430's status report."""

from typing import Iterator

import pytest
from mc7430_client import BEST, LTE_LINES, SEARCHING, WCDMA_LINES, WORST, measured, ok, served, wcdma
from velasim import Router


@pytest.fixture(scope="module")
def mc7430() -> Iterator[Router]:
    with Router("mc7430", ubus=False) as r:
        yield r


STEPS = {"rsrp": (-90, -105, -120), "rsrq": (-9, -12, -13), "sinr": (13, 10, 7), "rssi": (-65, -75, -85)}


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
