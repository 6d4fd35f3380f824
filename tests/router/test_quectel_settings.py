"""What all settings that are written into Quectel modems have in common."""

import json
import re

from quectel_settings import BANDS, COMMANDS, FAILED, READY, SET, SET_APN, SET_ATH, wanted
from support import usable
from velasim.router import Process


def test_silence_counts_as_success_and_half_an_answer_as_refusal(router):
    """All in one test and at the same time, because each exchange takes its 15 seconds."""
    buses = {"1-1.2": "ec25", "1-1.3": "ec20", "1-1.4": "ep06", "2-1.2": "ec25", "2-1.3": "ec20"}
    r = router(modems=buses, ubus=False, files=READY)
    r.modem("1-1.2").misbehave("silent")
    r.modem("1-1.3").misbehave("silent")
    # The first command stays without an answer, the second is refused.
    assert r.run("vela_modem", "1-1.4", "AT", "ATE0").stdout.endswith("OK\r\n")
    r.modem("1-1.4").reply(wanted()[0], b"")
    r.modem("1-1.4").reply(wanted()[1], "\nERROR\n")
    # These two only echo.
    r.modem("2-1.2").misbehave("no_final")
    r.modem("2-1.3").misbehave("no_final")
    r.clear_events()
    probe = str(r.build / "tests/router/probe")

    def bands(port: str) -> Process:
        return r.start("vela_api", "post", "/modem/at", json.dumps({"at-command": "default_band", "at-port": port}))

    started = [
        r.start("vela_modem", "1-1.2", "thermal"), r.start("vela_modem", "1-1.4", "thermal"),
        r.start("vela_modem", "2-1.2", "thermal"), r.start(probe, SET_APN[0], "1-1.3", *SET_APN[1:]),
        r.start(probe, SET_ATH[0], "2-1.3", *SET_ATH[1:]), bands(r.modem("1-1.2").tty(3)),
        bands(r.modem("2-1.2").tty(3)),
    ]
    output = [process.communicate()[0].decode() for process in started]
    assert [process.returncode for process in started[:5]] == [0] * 5
    assert output[:5] == [SET, FAILED, FAILED, "{\n}\nresult 0\n", "{\n}\nresult -1\n"]
    assert [json.loads(text) for text in output[5:]] == [{"message": ""}] * 2
    assert [command for command in r.modem("1-1.2").commands if command != "ATI"] == wanted()
    assert r.modem("1-1.4").commands == wanted()
    assert [command for command in r.modem("2-1.2").commands if command != "ATI"] == wanted()[:1]
    assert r.modem("1-1.3").commands == [COMMANDS["set-apn"]]
    assert r.modem("2-1.3").commands == [COMMANDS["set-ath"]]
    for bus in buses:
        r.modem(bus).behave()
    assert usable(r)


def test_every_command_line_of_the_settings_is_known_to_the_simulated_modems(router):
    """So that a test of theirs that changes nothing sees what the modem answers."""
    r = router("ec25", ubus=False)
    for command in (*wanted(), *BANDS.values(), *COMMANDS.values()):
        assert re.search(r"\r\nOK\r\n$", r.run("vela_modem", "AT", command).stdout), command
