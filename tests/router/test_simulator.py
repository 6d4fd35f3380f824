"""The simulated modems: what they answer, how they misbehave, and what the bus looks like meanwhile."""

import json
import time

import pytest
from at_client import CLIENT, FINAL, PATIENCE, ask, talk
from velasim.sms_pdu import DATA, GSM7, INTERNATIONAL, NATIONAL, UCS2, Submit, read_submit

def test_echo_and_framing(router):
    r = router("ec25")
    assert ask(r, "AT+CSQ") == "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"
    assert ask(r, "ATE0") == "ATE0\r\r\nOK\r\n"
    assert ask(r, "AT") == "\r\nOK\r\n"
    assert ask(r, "ATE1") == "\r\nOK\r\n"
    assert ask(r, "AT") == "AT\r\r\nOK\r\n"


def test_command_lines(router):
    r = router("nl678e")
    replies = talk(
        r, "/dev/ttyUSB2",
        ("at+csq\r",), ("\x00\xff#at+csq\r\n",), ("AT+NOSUCH=1\r\n",), ("hello\r\n\r\n", FINAL, 0.2),
        ("AT\r\nAT\r\n", r"OK\r\n\r\nOK\r\n"), ("AT+CS", FINAL, 0.2), ("Q\r",),
    )
    assert replies == [
        ["\r\n+CSQ: 22,99\r\n\r\nOK\r\n", ""], ["\r\n+CSQ: 22,99\r\n\r\nOK\r\n", ""], ["\r\nERROR\r\n", ""],
        ["", "silence"], ["\r\nOK\r\n\r\nOK\r\n", ""], ["", "silence"], ["\r\n+CSQ: 22,99\r\n\r\nOK\r\n", ""],
    ]
    assert r.modem().commands == ["at+csq", "at+csq", "AT+NOSUCH=1", "AT", "AT", "AT+CSQ"]


def test_values_are_kept(router):
    r = router("ec25")
    ask(r, 'AT+QCFG="nwscanmode",3')
    assert '+QCFG: "nwscanmode",3\r\n' in ask(r, 'AT+QCFG="nwscanmode"')
    assert '+QCFG: "nwscanmode",3\r\n' in ask(r, 'AT+QCFG="nwscanmode"', "/dev/ttyUSB3")


def test_own_replies(router):
    r = router("ec25")
    r.modem().reply("AT+CSQ", "\n+CSQ: 31,0\n\nOK\n")
    r.modem().reply("AT+RAW", b"\x00\xff\nOK\r\n\r\nOK\r\n", delay=0.05)
    r.modem().reply("AT+SET=*", "\n+CME ERROR: 3\n")
    assert ask(r, "AT+CSQ") == "AT+CSQ\r\r\n+CSQ: 31,0\r\n\r\nOK\r\n"
    assert ask(r, "AT+RAW") == "AT+RAW\r\x00\xff\nOK\r\n\r\nOK\r\n"
    assert ask(r, 'at+set="x"').endswith("\r\n+CME ERROR: 3\r\n")


def test_silent_and_other_roles(router):
    r = router("ec25")
    r.modem().misbehave("silent", interface=2)
    assert talk(r, "/dev/ttyUSB2", ("AT\r\n", FINAL, 0.2)) == [["", "silence"]]
    assert "OK" in ask(r, "AT", "/dev/ttyUSB3")
    assert talk(r, "/dev/ttyUSB1", ("AT\r\n", FINAL, 0.2)) == [["", "silence"]]
    r.modem().behave()
    assert "OK" in ask(r, "AT")
    assert r.modem().commands == ["AT"] * 3


def test_dribble(router):
    r = router("ec25")
    r.modem().misbehave("dribble", bytes=5, ms=10)
    begin = time.monotonic()
    reply = ask(r, "AT+CSQ")
    assert reply == "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"
    assert time.monotonic() - begin >= 0.010 * (len(reply) // 5)


def test_delay_and_no_final(router):
    r = router("ec25")
    r.modem().misbehave("delay", seconds=0.3)
    r.modem().misbehave("no_final")
    begin = time.monotonic()
    assert ask(r, "AT+CSQ", "/dev/ttyUSB2", r"99\r\n\r\n") == "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\n"
    assert time.monotonic() - begin >= 0.3


@pytest.mark.parametrize("where, expected", [
    ("before", "AT+CSQ\r\r\nRING\r\n\r\n+CSQ: 20,99\r\n\r\nOK\r\n"),
    ("inside", "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nRING\r\n\r\nOK\r\n"),
    ("after", "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n\r\nRING\r\n"),
])
def test_unsolicited(router, where, expected):
    r = router("ec25")
    r.modem().misbehave("unsolicited", text="RING", where=where)
    assert ask(r, "AT+CSQ", "/dev/ttyUSB2", r"OK\r\n(\r\nRING\r\n)?$" if where != "after" else "RING") == expected


def test_nul_bytes(router):
    r = router("ec25")
    r.modem().misbehave("nul", every=4)
    reply = ask(r, "AT+CSQ", "/dev/ttyUSB2", r"\n\x00$")
    assert reply.replace("\0", "") == "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"
    assert reply.count("\0") == 7


def test_flood_of_a_size(router):
    r = router("ec25")
    r.modem().misbehave("flood", total=300000, text="noise\r\n")
    head = len("AT\r\r\nOK\r\n")
    assert len(ask(r, "AT", "/dev/ttyUSB2", "(?s).{%d}" % (300000 + head))) == 300000 + head


def test_endless_flood_stops_and_leaves_the_rest_alive(router):
    r = router("ec25")
    r.modem().misbehave("flood", interface=2)
    assert len(ask(r, "AT", "/dev/ttyUSB2", "(?s).{1000000}")) >= 1000000
    assert "OK" in ask(r, "AT", "/dev/ttyUSB3")
    r.modem().behave()
    assert ask(r, "AT") == "AT\r\r\nOK\r\n"


def test_drop_off_the_bus_in_a_reply(router):
    r = router("ec25")
    r.modem().misbehave("drop", after=12)
    [[reply, end]] = talk(r, "/dev/ttyUSB2", ("AT+CSQ\r\n",))
    assert reply == "AT+CSQ\r\r\n+CS" and end in ("EOF", "Input/output error")
    assert not any(name.startswith("ttyUSB") for name in r.listdir("/dev"))
    assert r.listdir("/sys/bus/usb/devices") == ["1-1", "usb1", "usb2"]
    assert r.modem().tty(2) == ""
    r.modem().behave()
    r.modem().plug(first_tty=5)
    assert r.modem().tty(2) == "/dev/ttyUSB7"
    assert ask(r, "AT", "/dev/ttyUSB7") == "AT\r\r\nOK\r\n"


def test_drop_once_behind_other_commands_and_back_at_other_numbers(router):
    r = router("ec25")
    r.modem().misbehave("drop", skip=1, after=-3, ms=500.0, back=10.0, first_tty=5)
    assert ask(r, "AT", "/dev/ttyUSB3") == "AT\r\r\nOK\r\n"
    [[reply, end]] = talk(r, "/dev/ttyUSB2", ("AT\r\n",))
    assert reply == "AT\r\r\nO" and end in ("EOF", "Input/output error")
    r.wait_for(lambda: r.modem().tty(2) == "/dev/ttyUSB7", "the modem")
    assert [ask(r, "AT", "/dev/ttyUSB7") for _ in range(2)] == ["AT\r\r\nOK\r\n"] * 2


def test_an_error_or_garbage_in_place_of_the_reply(router):
    r = router("ec25")
    r.modem().misbehave("error", interface=2, text="+CME ERROR: 100")
    assert ask(r, "AT") == "AT\r\r\n+CME ERROR: 100\r\n"
    r.modem().misbehave("garbage", interface=3, bytes=1000, end="\r\nOK\r\n")
    reply = ask(r, "AT", "/dev/ttyUSB3", r"(?s).{1000}\r\nOK\r\n$")
    assert len(reply) == len("AT\r") + 1000 + len("\r\nOK\r\n")


def test_moods_are_those_of_the_seed(router):
    kinds = [(3, "error", {"text": "ERROR"}), (1, "unsolicited", {"text": "RING", "where": "before"})]
    replies = []
    for seed in (1, 1, 2):
        r = router("ec25")
        r.modem().moods(3, kinds, [0], seed)
        pattern = r"\r\n(OK|ERROR)\r\n$"
        replies.append([reply for reply, _ in talk(r, "/dev/ttyUSB2", *[("AT\r", pattern)] * 40)])
        counts = {kind: sum(word in reply for reply in replies[-1])
                  for kind, word in (("error", "ERROR"), ("unsolicited", "RING"))}
        assert r.modem().mood_counts == {**counts, "none": 40 - sum(counts.values())}
        assert counts["error"] > counts["unsolicited"] > 0
    assert replies[0] == replies[1] != replies[2]
    r.modem().moods(0, [], [])
    assert (r.modem().mood_counts, ask(r, "AT")) == ({}, "AT\r\r\nOK\r\n")


def test_a_modem_in_a_mood_drops_off_the_bus_and_is_back_at_its_next_home(router):
    r = router("ec25")
    r.modem().moods(1, [(1, "drop", {"after": 0, "ms": 0.0})], [0, 10])
    for home in (10, 0, 10):
        [[reply, end]] = talk(r, r.modem().tty(2), ("AT\r\n",))
        assert reply == "" and end in ("EOF", "Input/output error")
        r.wait_for(lambda: r.modem().tty(0) == f"/dev/ttyUSB{home}", "the modem")


def test_say(router):
    r = router("ec25")
    exchanges = json.dumps([("AT\r", "RING", PATIENCE)])
    client = r.start("/usr/bin/python3", "-S", "-c", CLIENT, "/dev/ttyUSB2", exchanges)
    r.wait_for(lambda: r.modem().commands, "the client")
    r.modem().say("\nRING\n", interface=2)
    assert json.loads(client.communicate()[0]) == [["AT\r\r\nOK\r\n\r\nRING\r\n", ""]]


def test_stored_messages(router):
    r = router("ec25")
    pdu = "07919471060040343004" + "0B919471000000F000006211123141" + "00" + "0441E19008"
    assert r.modem().receive_sms(pdu) == 1
    length = len(pdu) // 2 - 8
    assert '+CPMS: "ME",1,25' in ask(r, "AT+CPMS?")
    assert f"+CMGR: 0,,{length}\r\n{pdu}\r\n" in ask(r, "AT+CMGR=1")
    assert f"+CMGL: 1,1,,{length}\r\n{pdu}\r\n" in ask(r, "AT+CMGL=4")
    ask(r, "AT+CMGD=1")
    assert ask(r, "AT+CMGR=1") == "AT+CMGR=1\r\r\nOK\r\n"


# A message to a number: no service centre, relative validity, "hellohello" in the default alphabet.
HEAD, NUMBER, TEXT = "001100", "0B919471000000F0", "0AE8329BFD4697D9EC37"
SUBMIT = f"{HEAD}{NUMBER}0000AA{TEXT}"
OCTETS = 23  # without the service centre's
PROMPT_OR_ERROR = "> $|ERROR"


def test_sending_a_message(router):
    r = router("ec25")
    replies = talk(r, "/dev/ttyUSB2", (f"AT+CMGS={OCTETS}\r", PROMPT_OR_ERROR), (f"{SUBMIT}\x1a",),
                   (f"AT+CMGS={OCTETS}\r", PROMPT_OR_ERROR), ("00\x1b",), ("AT\r",))
    assert [reply for reply, _ in replies[1:]] == [
        "\r\n+CMGS: 1\r\n\r\nOK\r\n", f"AT+CMGS={OCTETS}\r\r\n> ", "\r\nOK\r\n", "AT\r\r\nOK\r\n"]
    assert r.modem().sent_sms == [SUBMIT]


def test_messages_that_no_network_would_take(router):
    r = router("ec25")
    announced_wrongly = [(OCTETS - 1, SUBMIT), (OCTETS + 1, SUBMIT), (0, "00"), (OCTETS, "")]
    wrong = [
        f"{SUBMIT}00", SUBMIT[:-2], SUBMIT[:-1], SUBMIT.replace("E8", "E-"),
        # The service centre, the kind of message, the receiver, the data coding scheme, the text.
        *(f"{centre}{SUBMIT[2:]}" for centre in ("0191", "03112143", "039121A3", "039121")),
        *(SUBMIT.replace(HEAD, head) for head in ("001000", "001200", "001300")),
        *(SUBMIT.replace(NUMBER, number) for number in (
            "0091", "1591" + "11" * 10 + "F1", "0B119471000000F0", "0C919471000000F0", "0B919471000000A0",
            "0B91A471000000F0", "0B91947100000010")),
        *(SUBMIT.replace("0000AA", scheme) for scheme in ("000CAA", "0020AA", "0080AA", "0008AA")),
        *(SUBMIT.replace(f"0000AA{TEXT}", text) for text in (
            "0000AAA1" + "00" * 141, "0008AA8E" + "00" * 142, "0008AA02D83D", "0008AA03040404")),
        f"005100{NUMBER}0000AA0A0A329BFD4697D9EC37",
    ]
    refused = announced_wrongly + [(len(pdu) // 2 - 1 - int(pdu[:2], 16), pdu) for pdu in wrong]
    exchanges = [each for length, pdu in refused
                 for each in ((f"AT+CMGS={length}\r", PROMPT_OR_ERROR), (f"{pdu}\x1a", "OK|ERROR.*\n"))]
    replies = talk(r, "/dev/ttyUSB2", *exchanges)
    assert [reply for reply, _ in replies[1::2]] == ["\r\n+CMS ERROR: 304\r\n"] * len(refused)
    replies = talk(r, "/dev/ttyUSB2", *((f"AT+CMGS={length}\r", "ERROR.*\n") for length in ("", "+49", "1234")))
    assert all(reply.endswith("\r\r\n+CMS ERROR: 304\r\n") for reply, _ in replies)
    assert r.modem().sent_sms == []


@pytest.mark.parametrize("pdu, expected", [
    (SUBMIT, Submit("", "49170000000", INTERNATIONAL, GSM7, b"", "hellohello")),
    ("06910900000031" + "0100" + "04A12143" + "0008" + "0420AC0404",
     Submit("9000000013", "1234", NATIONAL, UCS2, b"", "\u20ac\u0404")),
    ("00" + "0100" + "038121F3" + "0000" + "029B32", Submit("", "123", 0x81, GSM7, b"", "\u20ac")),
    ("00" + "1900" + "038121F3" + "00F5" + "62112111304300" + "02CAFE", Submit("", "123", 0x81, DATA, b"", "cafe")),
    ("00" + "4100" + "038121F3" + "0000" + "09" + "0500030102029069",
     Submit("", "123", 0x81, GSM7, bytes.fromhex("0003010202"), "Hi")),
    ("00" + "4100" + "038121F3" + "0008" + "08" + "0500030102020404",
     Submit("", "123", 0x81, UCS2, bytes.fromhex("0003010202"), "\u0404")),
], ids=("seven_bits", "own_service_centre_and_ucs2", "escaped_character", "absolute_validity_and_data",
        "part_in_seven_bits", "part_in_ucs2"))
def test_what_a_message_says(pdu, expected):
    assert read_submit(pdu) == expected


# The bus


def test_sysfs_of_two_modems(router):
    r = router(modems={"1-1.2": "ec25", "2-1.2": "unknown", "1-1.3": "mc7430"})
    base = "/sys/devices/platform/soc/xhci-hcd.0.auto/usb1/1-1/1-1.2"
    assert r.read(f"{base}/idVendor") == "2c7c\n" and r.read(f"{base}/idProduct") == "0125\n"
    assert r.exists(f"{base}/1-1.2:1.2/ttyUSB2/tty/ttyUSB2")
    assert r.exists(f"{base}/1-1.2:1.4/usbmisc/cdc-wdm0") and r.exists(f"{base}/1-1.2:1.4/net/wwan0")
    second = "/sys/devices/platform/soc/xhci-hcd.1.auto/usb2/2-1/2-1.2"
    assert r.exists(f"{second}/2-1.2:1.0/tty/ttyACM0") and r.exists(f"{second}/2-1.2:1.2/tty/ttyACM1")
    assert [r.modem("1-1.3").tty(number) for number in (0, 2, 3)] == ["/dev/ttyUSB4", "/dev/ttyUSB5", "/dev/ttyUSB6"]
    assert r.read("/sys/bus/usb/devices/1-1.2/idProduct") == "0125\n"
    assert r.run("readlink", "-f", "/sys/bus/usb/devices/1-1.2").stdout == base + "\n"
    assert r.run("readlink", "-f", f"{base}/1-1.2:1.2/driver").stdout == "/sys/bus/usb/drivers/option\n"
    assert "OK" in ask(r, "AT", "/dev/ttyACM0")
    assert r.events[-1] == {"kind": "at", "bus": "2-1.2", "port": "ttyACM0", "command": "AT"}
    assert r.run("find", "/sys", "/dev", "-xtype", "l").stdout == ""


def test_unplug_and_plug_take_free_numbers(router):
    r = router(modems={"1-1.2": "ec25", "2-1.2": "ep06"})
    r.modem("1-1.2").unplug()
    r.modem("2-1.2").unplug()
    r.modem("2-1.2").plug()
    assert r.modem("2-1.2").tty(2) == "/dev/ttyUSB2"
    third = r.add_modem("1-1.3", "bg95")
    assert third.tty(2) == "/dev/ttyUSB6" and "BG95" in ask(r, "ATI", "/dev/ttyUSB6")


def test_a_larger_tree(router):
    r = router("ec25")
    count = lambda: len(r.run("find", "/sys/devices/platform", "-type", "d").stdout.splitlines())
    before = count()
    r.add_directories("/sys/devices/platform/soc", 250)
    assert count() == before + 250
