"""The plug-in in a server that stays, with modems that fail one time in ten: the short form of tests/soak/endurance.py.
"""

import endurance
import pytest
from server import Server
from soak import is_sanitized
from support import AT_PORT

AT = ("post", "/modem/at", {"at-port": AT_PORT, "at-command": "AT"})
DETOUR = {"at-port": AT_PORT, "at-command": "AT+CFUN=1,1"}


def test_hundreds_of_calls_of_all_endpoints_leave_nothing_in_the_server_and_the_router(router):
    # The allocator settles within a few hundred KiB; below a sanitizer what is freed is kept for a while.
    noise = 256
    result = endurance.run(700, looks=20, memory_noise=None if is_sanitized(router(ubus=False).build) else noise)
    assert result.faults == []
    assert {endpoint.path for endpoint in endurance.ENDPOINTS} == set(result.records)
    assert result.troubles["error"] > 0 and result.troubles["drop"] > 0


# What the figures of the long form rest on: waiting that is shortened is still counted as long as it is meant to be.


@pytest.mark.parametrize("waits", [50, 100])
def test_waiting_is_shortened_and_counted_as_it_would_have_been(router, waits):
    r = router("ec25", ubus=False, quick=waits)
    server = Server(r)
    answer = server.call(*AT)
    # On a busy machine the modem's answer may come behind a few of the shortened reads.
    expected = 50 + 500 * answer["waits"]["silent"]
    assert (answer["status"], answer["waits"]["exchanges"]) == (0, 1) and answer["waits"]["waited_ms"] >= expected
    r.modem().misbehave("silent")
    answer = server.call(*AT)
    assert answer["status"] == -255
    assert answer["waits"] == {"exchanges": 1, "refused": 0, "silent": 30, "most_silent": 30, "waited_ms": 15050}
    assert answer["elapsed_us"] * waits >= 15050 * 1000
    answer = server.call("post", "/modem/at", DETOUR)
    assert (answer["waits"]["most_silent"], answer["waits"]["waited_ms"]) == (300, 150050)
    assert server.end() == (0, "")


def test_a_modem_that_is_gone_is_not_waited_for(router):
    r = router("ec25", ubus=False, quick=100)
    server = Server(r)
    r.modem().misbehave("drop", ms=0.0, back=0.0, first_tty=10)
    answer = server.call(*AT)
    assert answer["status"] == -255 and answer["waits"]["waited_ms"] < 15000
    r.wait_for(lambda: r.modem().tty(2), "the modem")
    assert server.call(*AT)["status"] == -255
    moved = {"at-port": r.modem().tty(2), "at-command": "AT"}
    assert server.call("post", "/modem/at", moved)["reply"] == {"message": "AT\r\r\nOK\r\n"}
