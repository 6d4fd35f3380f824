"""Silence: how long an exchange waits for a modem that says nothing, or not the last word.

The waits are counted in silent reads of half a second each, which a system call trace shows. On a port whose modem is
gone each read ends at once, so the long limits can be counted there.
"""

import pytest
from support import silent_reads, start_traced, trace_lines, traced, usable

ORDINARY, REBOOT, SCAN = 30, 300, 30000


def test_after_30_silent_reads_an_exchange_ends_with_what_came(router):
    """All in one test and at the same time, because each of these takes its 15 seconds."""
    r = router(modems={"1-1.2": "ec25", "1-1.3": "nl678e", "2-1.2": "ep06"}, ubus=False)
    r.modem("1-1.2").misbehave("silent", interface=2)
    r.modem("1-1.3").reply("AT+CMGS=20", "\n> ")
    r.modem("1-1.3").reply("AT+NAN", b"\r\nO\0K\r\n")
    r.modem("2-1.2").misbehave("no_final", interface=2)
    cases = [
        ("/dev/ttyUSB2", "AT+CSQ", ""),
        ("/dev/ttyUSB3", "", ""),  # an empty command, which no modem answers
        ("/dev/ttyUSB6", "AT+CMGS=20", "\n\r\n> "),
        ("/dev/ttyUSB7", "AT+NAN", "\n\r\nO"),
        ("/dev/ttyUSB10", "AT+CSQ", "\nAT+CSQ\r\r\n+CSQ: 25,99\r\n\r\n"),
    ]
    started = []
    for number, (device, command, _) in enumerate(cases):
        argv = ["vela_modem", "AT", device, command]
        started.append(start_traced(r, argv, "trace=read", device=device, trace=f"/tmp/trace{number}"))
    assert r.api("post", "/modem/at", {"at-command": "AT", "at-port": "/dev/ttyUSB1"}) == (-255, {})
    for number, (process, case) in enumerate(zip(started, cases)):
        assert process.communicate()[0] == case[2].encode() and process.returncode == 0
        assert silent_reads(trace_lines(r, f"/tmp/trace{number}")) == ORDINARY, case
    for bus in ("1-1.2", "2-1.2"):
        r.modem(bus).behave()
    assert usable(r) and usable(r, "/dev/ttyUSB3") and usable(r, "/dev/ttyUSB10")


@pytest.mark.parametrize("command, limit", [
    ("AT", ORDINARY), ("AT+COPS?", ORDINARY), ("AT+COPS=0", ORDINARY), ("AT+CFUN=1", ORDINARY), ("AT+CFUN?", ORDINARY),
    ("AT+CFUN=1,1", REBOOT), ("AT+CFUN=1,1;+CSQ", REBOOT), ("AT+CFUN=1,15", REBOOT), ("AT+CFUN=1,0", ORDINARY),
    ("AT+COPS=?", SCAN), ("AT+COPS=?;+CSQ", SCAN),
    # The beginning of the command is compared as it was typed.
    ("at+cops=?", ORDINARY), ("AT +COPS=?", ORDINARY), ("ATE0+COPS=?", ORDINARY), ("AT+CFUN= 1,1", ORDINARY),
])
def test_a_modem_that_is_gone_uses_up_the_silence_limit_of_the_command(router, command, limit):
    r = router("ec25", ubus=False)
    r.modem().misbehave("drop", after=0)
    result, calls = traced(r, ["vela_modem", "AT", command], "trace=ioctl")
    assert (result.returncode, result.stdout) == (0, "")
    # Each timed read begins by waiting for what is still to be sent.
    assert sum("TCSBRK" in call for call in calls) == limit
    assert r.modem().commands == [command]


def test_reads_that_bring_data_do_not_count_as_silent(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("silent")
    process = start_traced(r, ["vela_modem", "AT", "AT+X"], "trace=read")
    r.wait_for(lambda: r.modem().commands, "the command")
    for number in range(ORDINARY + 5):
        r.modem().say(f"\n+X: {number}.\n")
        r.wait_for(lambda: f"+X: {number}." in r.read("/tmp/trace"), "the line to be read")
    assert silent_reads(trace_lines(r)) < ORDINARY
    r.modem().say("\nOK\n")
    assert process.communicate()[0].endswith(b"\r\n+X: 34.\r\n\r\nOK\r\n")
