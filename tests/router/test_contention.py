"""Many programs on one port at the same time: nobody ever sees a byte of another's exchange."""

import subprocess

import contention
import pytest
from support import AT_PORT, at, usable
from velasim import Router

COMMANDS = ["ATI", "AT+CSQ", "AT+GSN", "AT+CIMI", "AT+CPIN?", "AT+CREG?", "AT+COPS?", "AT+QNWINFO"]
ROUNDS = 8


def from_the_command_line(command: str) -> list[str]:
    return ["vela_modem", "AT", command]


def from_the_plug_in(command: str) -> list[str]:
    return ["vela_api", "post", "/modem/at", '{"at-command": "%s", "at-port": "%s"}' % (command, AT_PORT)]


def output(process: subprocess.Popen) -> bytes | None:
    """What a program printed; None when it had to be stopped.

    The first to come may have its bytes discarded by another that opens the port, and then waits for an answer until
    its silence limit. That is not what is looked at here, so nobody waits with it.
    """
    try:
        return process.communicate(timeout=3)[0]
    except subprocess.TimeoutExpired:
        process.kill()
        process.communicate()
        return None


@pytest.mark.parametrize("way", [
    lambda number, command: from_the_command_line(command),
    lambda number, command: from_the_plug_in(command),
    lambda number, command: (from_the_command_line, from_the_plug_in)[number % 2](command),
], ids=["command line", "plug-in", "both"])
def test_eight_at_once_each_get_their_own_reply_or_nothing(router, way):
    r = router("ec25", ubus=False)
    programs = [way(number, command) for number, command in enumerate(COMMANDS)]
    replies = [r.run(*argv).stdout_bytes for argv in programs]
    assert len(set(replies)) == len(COMMANDS)
    nothing = {b"", b"{\n}\n", None}
    for _ in range(ROUNDS):
        started = [r.start(*argv) for argv in programs]
        for argv, expected, process in zip(programs, replies, started):
            out = output(process)
            assert out == expected or out in nothing, argv
            assert process.returncode in (0, 1, -9)
    assert usable(r)


def test_while_one_is_in_its_exchange_all_others_end_without_a_word_and_it_gets_its_reply(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("silent")
    holder = r.start("vela_modem", "AT", "AT+HOLDER")
    r.wait_for(lambda: r.modem().commands, "the command")
    for number, command in enumerate(COMMANDS):
        way = (from_the_command_line, from_the_plug_in)[number % 2]
        assert r.run(*way(command)).stdout in ("", "{\n}\n")
    r.modem().say("\n+HOLDER: 1\n\nOK\n")
    assert holder.communicate() == (b"\n\r\n+HOLDER: 1\r\n\r\nOK\r\n", b"")
    assert r.modem().commands == ["AT+HOLDER"]


def test_exchanges_on_different_ports_all_succeed_at_once(router):
    r = router(modems={"1-1.2": "ec25", "1-1.3": "ep06", "2-1.2": "eg91"}, ubus=False)
    ports = [f"/dev/ttyUSB{number}" for number in (2, 3, 6, 7, 10, 11)]
    expected = {port: at(r, "ATI", port).encode() for port in ports}
    for _ in range(ROUNDS):
        started = {port: r.start("vela_modem", "AT", port, "ATI") for port in ports}
        assert {port: process.communicate()[0] for port, process in started.items()} == expected


def test_routers_of_their_own_do_not_share_a_lock():
    with Router("ec25", ubus=False) as one, Router("ec25", ubus=False) as other:
        one.modem().misbehave("silent")
        holder = one.start("vela_modem", "AT", "AT+HOLDER")
        one.wait_for(lambda: one.modem().commands, "the command")
        assert usable(other)
        holder.kill()


def test_64_command_lines_and_8_servers_on_three_modems_never_mix_replies_nor_lose_configuration():
    # Waiting takes a tenth of its time; the long form (tests/soak) also leaves it as it is.
    result = contention.run(seconds=4.0, waits=10, pause=0.5, delay=10.0)
    assert result.faults == []
    assert result.total("served") > 0 and result.total("refused") > 0 and result.total("mixed") == 0
    assert result.writes["command line"] > 0 and result.writes["plug-in"] > 0


@pytest.mark.parametrize("text, part", [
    ("AT+NUMBER=17\r\r\n+NUMBER: 17,<17>\r\n\r\nOK\r\n", True), (",<17>\r\n\r\nOK\r\n", True), ("", True),
    ("AT+NUMBER=17\r", True), ("AT+NUMBER=1", True), ("AT+NUMBER=17\r\r\n+NUMBER: 17", True), (": 17,<17>\r\n", True),
    ("AT+NUMBER=18\r", False), ("\r\n+NUMBER: 17,<18>\r\n\r\nOK\r\n", False), ("OK\r\nAT+NUMBER=17\r", False),
    ("AT+NUMBER=17\r\r\n+NUMBER: 17,<17>\r\n\r\nOK\r\nOK\r\n", False), ("+NUMBER: 16", False),
], ids=repr)
def test_a_piece_of_another_reply_is_recognised(text, part):
    assert contention.is_part(text, "17") is part
