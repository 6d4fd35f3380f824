"""One AT exchange as a whole, from the command line and from /modem/at: what ends a reply, and replies of every kind.

How the port is opened, set and locked is in test_port.py; what silence does is in test_silence.py.
"""

import json
import re

import pytest
from support import AT_PORT, at, opened, silent_reads, start_traced, trace_lines, traced, usable, waiting

BUFFER = 4096


def message(r, command: str, port: str = AT_PORT) -> str:
    """What /modem/at reports of the reply."""
    status, reply = r.api("post", "/modem/at", {"at-command": command, "at-port": port})
    assert (status, list(reply)) == (0, ["message"])
    return reply["message"]


def printed(r, command: str) -> str:
    """What the command line prints of the reply."""
    text = at(r, command)
    assert text[0] == "\n"
    return text[1:]


both_ways = pytest.mark.parametrize("ask", [printed, message])


@both_ways
def test_a_reply_is_returned_whole_with_its_echo(router, ask):
    r = router("ec25", ubus=False)
    assert ask(r, "AT+CSQ") == "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"


@both_ways
def test_a_modem_that_does_not_echo(router, ask):
    r = router("nl678e", ubus=False)
    assert ask(r, "AT+CSQ") == "\r\n+CSQ: 22,99\r\n\r\nOK\r\n"


def test_the_command_is_sent_with_one_line_end(router):
    r = router("ec25", ubus=False)
    _, calls = traced(r, ["vela_modem", "AT", "AT+CSQ"], "trace=write")
    assert [call.split(", ", 1)[1].split(")")[0] for call in calls] == ['"AT+CSQ\\r\\n", 8']


@pytest.mark.parametrize("reply", [
    "\nOK\n", "\nERROR\n", "\n+CME ERROR: 10\n", "\n+CMS ERROR: 500\n", "OK", "ERROR",
    "\n+COPS: 0,0,\"OKTEL\",7\n", "\n+NAME: TERRORISED\n", "BOOK\n\nmore, but no final result\n",
], ids=repr)
def test_ok_or_error_anywhere_in_the_reply_ends_it_at_once(router, reply):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+END", reply)
    result, calls = traced(r, ["vela_modem", "AT", "AT+END"], "trace=read")
    assert result.stdout == "\nAT+END\r" + reply.replace("\n", "\r\n")
    assert silent_reads(calls) == 0
    assert usable(r)


def test_ok_in_the_echoed_command_ends_it_too(router):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+LOOK", "\nno final result\n")
    result, calls = traced(r, ["vela_modem", "AT", "AT+LOOK"], "trace=read")
    assert result.stdout == "\nAT+LOOK\r\r\nno final result\r\n" and silent_reads(calls) == 0


@pytest.mark.parametrize("length, kept", [
    (4, 4), (64, 64), (BUFFER - 2, BUFFER - 2), (BUFFER - 1, BUFFER - 1),
    (BUFFER, BUFFER - 1),  # fills the buffer: its last byte becomes the end
    (BUFFER + 1, BUFFER - 1), (3 * BUFFER, BUFFER - 1),
])
@both_ways
def test_replies_around_the_size_of_the_buffer(router, ask, length, kept):
    r = router("nl678e", ubus=False)
    text = (b"0123456789abcde\n" * (length // 16 + 1))[:length - 4] + b"OK\r\n"
    r.modem().reply("AT+LONG", text)
    assert ask(r, "AT+LONG") == text[:kept].decode()
    r.modem().behave()  # the modem may still have some of it to send
    assert at(r, "AT") == "\n\r\nOK\r\n"


def test_a_reply_without_any_line_end(router):
    r = router("nl678e", ubus=False)
    r.modem().reply("AT+FLAT", b"+FLAT: 1,2,3 OK")
    assert at(r, "AT+FLAT") == "\n+FLAT: 1,2,3 OK" and message(r, "AT+FLAT") == "+FLAT: 1,2,3 OK"


@both_ways
def test_an_endless_flood_fills_the_buffer_and_ends(router, ask):
    r = router("ec25", ubus=False)
    r.modem().misbehave("no_final")
    r.modem().misbehave("flood", text="+QIND: noise\r\n")
    whole = "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\n" + "+QIND: noise\r\n" * 300
    assert ask(r, "AT+CSQ") == whole[:BUFFER - 1]
    r.modem().behave()
    assert usable(r)


def test_a_flood_after_the_final_result_does_not_reach_the_next_exchange(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("flood", total=20000, text="+QIND: noise\r\n")
    assert at(r, "AT+CSQ").startswith("\nAT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n")
    r.modem().behave()
    assert usable(r)


@pytest.mark.parametrize("size, pause", [(1, 1), (1, 15), (3, 5), (7, 30)])
@both_ways
def test_a_reply_that_dribbles_in_is_put_together(router, ask, size, pause):
    r = router("ec25", ubus=False)
    r.modem().misbehave("dribble", bytes=size, ms=pause)
    whole = "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"
    # It ends with the two letters of "OK"; their line end may come too late to be in it.
    assert ask(r, "AT+CSQ") in (whole[:-2], whole[:-1], whole)


@pytest.mark.parametrize("reply", ["+X: 1\r\n\r\nOK", "+X: 1\r\n\r\nERROR"])
def test_a_final_result_that_comes_letter_by_letter_ends_the_reply(router, reply):
    r = router("nl678e", ubus=False)
    r.modem().reply("AT+X", reply.encode())
    r.modem().misbehave("dribble", bytes=1, ms=20)
    result, calls = traced(r, ["vela_modem", "AT", "AT+X"], "trace=read")
    assert result.stdout == "\n" + reply
    assert len(calls) > len("ERROR") and silent_reads(calls) < 30


def test_a_reply_that_comes_after_some_silence_is_returned_whole(router):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+SLOW", "\n+SLOW: 1\n\nOK\n", delay=1.2)
    assert at(r, "AT+SLOW") == "\nAT+SLOW\r\r\n+SLOW: 1\r\n\r\nOK\r\n"


def test_silence_in_the_middle_of_a_reply(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("silent")
    process = start_traced(r, ["vela_modem", "AT", "AT+X"], "trace=read")
    r.wait_for(lambda: r.modem().commands, "the command")
    r.modem().say("\n+X: 1\n")
    r.wait_for(lambda: silent_reads(trace_lines(r)) >= 2, "two silent reads")
    r.modem().say("\n+X: 2\n")
    r.wait_for(lambda: "+X: 2" in r.read("/tmp/trace"), "the second line")
    r.modem().say("\nOK\n")
    assert process.communicate()[0] == b"\n\r\n+X: 1\r\n\r\n+X: 2\r\n\r\nOK\r\n"


def test_the_pauses_of_an_exchange(router):
    """50 ms for the port to settle, 1 ms after each failed attempt at the lock, 10 ms for more of a reply to gather."""
    r = router("ec25", ubus=False)
    r.modem().misbehave("silent")
    process = start_traced(r, ["vela_modem", "AT", AT_PORT, "AT+X"], "trace=flock,read,nanosleep,clock_nanosleep",
                           "inject=flock:error=EAGAIN:when=1..3", device=None)
    r.wait_for(lambda: r.modem().commands, "the command")
    r.modem().say("\n+X: 1\n")
    r.wait_for(lambda: "+X: 1" in r.read("/tmp/trace"), "the first line")
    r.modem().say("\nOK\n")
    assert process.communicate()[0] == b"\n\r\n+X: 1\r\n\r\nOK\r\n"
    pauses = re.findall(r"nanosleep\(.*?\{tv_sec=0, tv_nsec=(\d+)000000\}", r.read("/tmp/trace"))
    # The first line may come in pieces.
    assert pauses[:4] == ["50", "1", "1", "1"] and set(pauses[4:]) == {"10"}


def test_what_waits_on_the_port_before_the_exchange_is_discarded(router):
    r = router("ec25", ubus=False)
    for stale in (b"\r\nRING\r\n", b"\r\nOK\r\n", b"x" * 3000):
        with opened(r) as fd:
            r.modem().say(stale)
            r.wait_for(lambda: waiting(fd) >= len(stale), "the bytes")
        assert usable(r)


@pytest.mark.parametrize("where", ["before", "inside", "after"])
@both_ways
def test_unsolicited_lines_are_part_of_the_reply(router, ask, where):
    r = router("ec25", ubus=False)
    r.modem().misbehave("unsolicited", text="+CMTI: \"ME\",3", where=where)
    line, value, final = '\r\n+CMTI: "ME",3\r\n', "\r\n+CSQ: 20,99\r\n", "\r\nOK\r\n"
    expected = "AT+CSQ\r" + {
        "before": line + value + final, "inside": value + line + final, "after": value + final + line}[where]
    reply = ask(r, "AT+CSQ")
    # What comes behind the final result is only there if it comes with it.
    assert reply == expected or where == "after" and expected.startswith(reply) and "OK\r" in reply


@pytest.mark.parametrize("reply, shown", [
    (b"\r\n+N: ab\0cd\r\n\r\nOK\r\n", "\r\n+N: ab"),
    (b"\0\r\n+N: 1\r\nOK\r\n", ""),
    (b"\r\nOK\r\n\0", "\r\nOK\r\n"),
    (b"\0" * 500 + b"OK", ""),
], ids=repr)
def test_the_text_of_a_reply_ends_at_its_first_nul_but_not_the_search_for_its_end(router, reply, shown):
    r = router("nl678e", ubus=False)
    r.modem().reply("AT+NUL", reply)
    result, calls = traced(r, ["vela_modem", "AT", "AT+NUL"], "trace=read")
    assert (result.returncode, result.stdout) == (0, "\n" + shown) and silent_reads(calls) == 0
    assert message(r, "AT+NUL") == shown


def test_a_nul_in_the_echo_hides_the_rest(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("nul", every=4)
    r.modem().reply("AT+A", b"OK OK OK")
    assert at(r, "AT+A") == "\nAT+A" and message(r, "AT+A") == "AT+A"


def test_bytes_that_a_terminal_would_act_on_arrive_as_they_are(router):
    # Software flow control, signal, erase and end-of-file characters, carriage returns, bytes with the high bit.
    r = router("nl678e", ubus=False)
    data = bytes(range(1, 256)) + b"\r\n\r\r\n\nOK\r\n"
    r.modem().reply("AT+RAW", data)
    assert r.run("vela_modem", "AT", "AT+RAW").stdout_bytes == b"\n" + data


def test_the_port_vanishes_in_the_middle_of_a_reply_and_what_came_is_printed(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("silent")
    process = start_traced(r, ["vela_modem", "AT", "AT+CSQ"], "trace=read,ioctl")
    r.wait_for(lambda: r.modem().commands, "the command")
    r.modem().say(b"AT+CSQ\r\r\n+CS")
    # A read counts when the attributes are back; a port that vanishes before that takes its bytes along.
    r.wait_for(lambda: "TCSETS" in r.read("/tmp/trace").partition("+CS")[2], "the part of the reply")
    r.modem().unplug()
    assert process.communicate()[0] == b"\nAT+CSQ\r\r\n+CS" and process.returncode == 0


@pytest.mark.parametrize("after", [0, 5, 7, 19])
def test_after_a_modem_has_vanished_and_come_back_the_port_is_usable(router, after):
    r = router("ec25", ubus=False)
    r.modem().misbehave("drop", after=after)
    result = r.run("vela_modem", "AT", "AT+CSQ")
    assert result.returncode == 0
    assert result.stdout == "" or result.stdout == "\nAT+CSQ\r\r\n+CSQ: 20,99"[:after + 1]
    assert r.run("vela_modem", "AT", "AT+CSQ").stdout == ""
    r.modem().behave()
    r.modem().plug()
    assert usable(r)


def test_a_modem_that_vanishes_before_it_answers_fails_the_request(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("drop", after=0)
    assert r.api("post", "/modem/at", {"at-command": "AT", "at-port": AT_PORT}) == (-255, {})


def test_a_killed_exchange_leaves_the_port_usable(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("silent")
    process = r.start("vela_modem", "AT", "AT+X")
    r.wait_for(lambda: r.modem().commands, "the command")
    process.kill()
    assert process.wait() == -9
    r.modem().behave()
    assert usable(r)


def test_a_standard_output_that_nobody_reads_does_not_keep_the_port(router):
    r = router("ec25", ubus=False)
    process = r.start("vela_modem", "AT", "ATI")
    process.stdout.close()
    process.wait()
    assert usable(r)


def test_two_lines_in_one_command_bring_the_reply_to_the_first_at_least(router):
    r = router("ec25", ubus=False)
    assert at(r, "AT+CSQ\r\nATI").startswith("\nAT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n")
    assert r.modem().commands[0] == "AT+CSQ" and usable(r)


def test_many_exchanges_in_a_row_do_not_disturb_each_other(router):
    r = router("ec25", ubus=False)
    commands = ["AT+CSQ", "ATI", "AT+GSN", "AT+CIMI"]
    expected = {command: at(r, command) for command in commands}
    loop = "i=0; while [ $i -lt 12 ]; do for c in %s; do vela_modem AT $c; done; i=$((i+1)); done" % " ".join(commands)
    assert r.run("/bin/dash", "-c", loop).stdout == "".join(expected.values()) * 12


def test_json_of_a_reply_escapes_what_json_must_not_hold(router):
    r = router("nl678e", ubus=False)
    data = bytes(range(1, 32)) + b"\"\\/\x7f\r\nOK\r\n"
    r.modem().reply("AT+CTRL", data)
    body = json.dumps({"at-command": "AT+CTRL", "at-port": AT_PORT})
    result = r.run("vela_api", "post", "/modem/at", body)
    assert json.loads(result.stdout_bytes.decode("utf-8")) == {"message": data.decode()}
    assert re.search(rb"[\x00-\x09\x0b-\x1f]", result.stdout_bytes) is None


def test_another_holder_of_the_port_without_a_lock_does_not_prevent_an_exchange(router):
    r = router("ec25", ubus=False)
    with opened(r):
        assert usable(r)
