"""A modem that leaves the bus and returns with other tty numbers while it is being asked: the short form of
tests/soak/reenumeration.py."""

import pytest
import reenumeration
from reenumeration import BUS, Bench, Result, turning_points


@pytest.mark.parametrize("model", reenumeration.MODELS)
def test_wherever_a_modem_moves_the_command_ends_and_the_next_one_finds_it(model):
    results = reenumeration.run(model, every=31, opens=0)
    assert [fault for result in results.values() for fault in result.faults] == []
    assert sum(result.points for result in results.values()) >= 5


@pytest.mark.parametrize("model", reenumeration.MODELS)
def test_a_modem_that_moves_between_its_lookup_and_the_opening_of_its_port_or_right_behind_it(router, model):
    bench, result = Bench(router(model), model), Result()
    # Before the search for the port, between that and its opening, and behind it.
    points = turning_points(bench.opens("AT ATI"))[-3:]
    for point in points:
        bench.at_an_open("AT ATI", point, result)
    assert (result.faults, result.points) == ([], 3)
    assert bench.modem.tty(0) != "/dev/ttyUSB0" and bench.modem.bus == BUS
