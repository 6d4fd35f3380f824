"""What the microcontroller is told of a modem: the members in their order, the faults, what leaves a member out."""

import contextlib
import json
import os
import socket
from typing import Iterator

import pytest
from probe_client import probe
from support import DEVICE, MODELS, debug, pretty
from velasim import Router

BUS = "1-1.2"
OBJECT = "network.interface.modem_1_1_2"
INCOMING = "/etc/spool/sms/incoming"
SIGNAL_FILE = f"/tmp/modem.{BUS}/signal"
FULL, FAULT, NONE = 1, 0, -1

DETECT_FAILED = "MCU DETECT MODEM FAILED\n"
SIM_ERROR = "MCU SIM ERROR\n"

NO_SIM = "\n+CME ERROR: 10\n"
REGISTERED = "\n+CREG: 0,1\n\nOK\n"
SEARCHING = "\n{}: 0,2\n\nOK\n"
LTE = '"LTE",80,-109,180,-9'
EC25_SIGNAL = {"type": "LTE", "rssi": "-80", "rsrp": "-109", "sinr": "18", "rsrq": "-9"}

ALL = ["carrier", "sms", "signal_info", "signal", "modem_mode", "modem_up"]
PLAIN = ["carrier", "signal_info", "signal", "modem_mode"]
WITHOUT_SIGNAL = ["carrier"]


@contextlib.contextmanager
def system_log(r: Router) -> Iterator[list[str]]:
    """Takes what the router's programs write to its system log; all of it is in the list at the end of the block."""
    path = r.host_path("/dev/log")
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK) as log:
        log.bind(str(path))
        lines: list[str] = []
        yield lines
        with contextlib.suppress(BlockingIOError):
            while True:
                lines.append(log.recv(4096).decode())
    os.unlink(path)


def is_line(line: str, text: str, program: str = "vela_modem") -> bool:
    """Whether a datagram is this text at debug priority (RFC 3164: facility "user" is 1, "debug" is 7)."""
    head, _, message = line.partition(f" {program}: ")
    return head.startswith(f"<{1 * 8 + 7}>") and message == text


def told(r: Router, *bus: str) -> dict:
    """What the command prints: one object, and nothing else."""
    result = r.run("vela_modem", *bus, "test")
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.endswith("}\n")
    return json.loads(result.stdout)


def bus_with(state: object, name: str = "modem_1_1_2") -> dict:
    return {"interfaces": {name: state}}


def receive(r: Router, *names: str) -> None:
    for name in names:
        r.write(f"{INCOMING}/{name}", "")


def signal_report(*lines: str) -> str:
    return "\n" + "".join(f"+QCSQ: {line}\n" for line in lines) + "\nOK\n"


@pytest.fixture(scope="module")
def ec25() -> Iterator[Router]:
    with Router("ec25") as r:
        yield r


# The whole of it


def test_everything_in_its_order(router):
    r = router("ec25", ubus=bus_with("up"))
    receive(r, "VMS99.a", "VMS99.b")
    with system_log(r) as lines:
        result = r.run("vela_modem", "test")
    document = {"carrier": "Vodafone.de", "sms": "2", "signal_info": [EC25_SIGNAL], "signal": "2", "modem_mode": "4G",
                "modem_up": "1"}
    assert list(json.loads(result.stdout)) == ALL
    assert (result.returncode, result.stdout, result.stderr) == (0, pretty(document) + "\n", "")
    assert lines == []
    assert r.events == [
        {"kind": "at", "bus": BUS, "port": "ttyUSB2", "command": "AT+CPIN?"},
        {"kind": "at", "bus": BUS, "port": "ttyUSB2", "command": "AT+CREG?"},
        {"kind": "at", "bus": BUS, "port": "ttyUSB2", "command": "AT+CIMI"},
        {"kind": "shell", "command": f'echo "262020000000017" >/tmp/modem.{BUS}/cimi'},
        {"kind": "shell", "command": "cat /usr/share/modem/operator.dat|grep 262020|cut -d ',' -f 2"},
        {"kind": "shell", "command": "cat /usr/share/modem/operator.dat|grep 26202|cut -d ',' -f 2"},
        {"kind": "at", "bus": BUS, "port": "ttyUSB2", "command": "AT+QCSQ"},
        {"kind": "ubus", "object": OBJECT, "method": "status", "args": {}},
    ]


def test_the_result_is_positive(router):
    r = router("ec25", ubus=bus_with("up"))
    receive(r, "VMS99.a")
    result, reply = probe(r, "mcu", BUS)
    assert result == FULL and list(reply) == ALL
    assert all(isinstance(value, str) for key, value in reply.items() if key != "signal_info")


def test_the_command_s_bus_is_the_one_that_is_told_of(router):
    r = router(modems={"1-1.2": "ec25", "1-1.3": "ec20"}, ubus=bus_with("up", "modem_1_1_3"))
    receive(r, "VMS98.a")
    assert list(told(r, "-B", "1-1.3")) == ALL
    assert {event["bus"] for event in r.events if event["kind"] == "at"} == {"1-1.3"}
    assert [event["object"] for event in r.events if event["kind"] == "ubus"] == ["network.interface.modem_1_1_3"]
    assert list(told(r)) == PLAIN


# Faults


FAULTS = [
    ({"AT+CPIN?": NO_SIM}, "NO_SIM"), ({"AT+CPIN?": "\nERROR\n"}, "NO_SIM"),
    ({"AT+CPIN?": "\n+CPIN: SIM PIN\n\nOK\n"}, "PIN_SIM"), ({"AT+CPIN?": "\n+CPIN: PH-SIM PIN\n\nOK\n"}, "PIN_SIM"),
    ({"AT+CPIN?": "\n+CPIN: SIM PUK\n\nOK\n"}, "PUK_SIM"),
    ({"AT+CREG?": SEARCHING.format("+CREG"), "AT+CEREG?": SEARCHING.format("+CEREG")}, "NO_REG"),
]


@pytest.mark.parametrize("replies, fault", FAULTS)
def test_a_fault_is_all_that_is_told(router, replies, fault):
    r = router("ec25", ubus=bus_with("up"))
    receive(r, "VMS99.a")
    for command, reply in replies.items():
        r.modem().reply(command, reply)
    with system_log(r) as lines:
        result = r.run("vela_modem", "test")
    assert (result.returncode, result.stdout, result.stderr) == (0, pretty({"SIM": fault}) + "\n", "")
    assert len(lines) == 1 and is_line(lines[0], SIM_ERROR)
    # Nothing more is asked.
    assert {*r.modem().commands} <= {"AT+CPIN?", "AT+CREG?", "AT+CEREG?"}
    assert [event for event in r.events if event["kind"] != "at"] == []
    with system_log(r) as lines:
        assert probe(r, "mcu", BUS) == (FAULT, {"SIM": fault})
    assert len(lines) == 1 and is_line(lines[0], SIM_ERROR, "probe")


def test_a_modem_without_a_sim(router):
    r = router("ec25", ubus=bus_with("up"))
    r.modem().reply("AT+CPIN?", NO_SIM)
    assert probe(r, "mcu", BUS) == (FAULT, {"SIM": "NO_SIM"})


@pytest.mark.parametrize("name", ["bg95", "ec100y"])
def test_these_models_are_asked_also_while_they_are_enabled(router, name):
    # Other than in the status block.
    r = router(name, uci={"network": "config interface 'modem_1_1_2'\n\toption proto '3g'\n"})
    r.modem().reply("AT+CPIN?", NO_SIM)
    assert told(r) == {"SIM": "NO_SIM"}


def test_a_fault_without_a_system_log_daemon(router):
    r = router("ec25")
    r.modem().reply("AT+CPIN?", NO_SIM)
    assert not r.exists("/dev/log")
    assert told(r) == {"SIM": "NO_SIM"}


# No modem


def no_modem(r: Router, bus: str = BUS) -> None:
    with system_log(r) as lines:
        assert probe(r, "mcu", bus) == (NONE, {})
    assert len(lines) == 1 and is_line(lines[0], DETECT_FAILED, "probe")
    assert r.events == []


def test_no_modem_on_the_bus(router):
    r = router(modems={"1-1.3": "ec25"}, ubus=bus_with("up"))
    receive(r, "VMS99.a")
    no_modem(r)
    no_modem(r, "2-1.2")
    no_modem(r, "")


def test_a_modem_that_has_gone(router):
    r = router("ec25", ubus=bus_with("up"))
    r.modem().unplug()
    no_modem(r)
    r.modem().plug()
    assert list(told(r)) == [key for key in ALL if key != "sms"]


def test_a_modem_whose_ports_are_not_there_yet(router):
    r = router("ec25", ubus=bus_with("up"))
    for name in r.listdir(DEVICE):
        if name.startswith(f"{BUS}:"):
            r.remove(f"{DEVICE}/{name}")
    assert debug(r) == (MODELS["ec25"].ids + "\nfailed get ports\n", {})
    no_modem(r)


def test_the_command_without_a_modem_is_silent(router):
    r = router()
    with system_log(r) as lines:
        result = r.run("vela_modem", "test")
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    assert lines == [] and r.events == []


# The carrier


@pytest.mark.parametrize("imsi, carrier", [
    ("262030000000017", "o2 - de"), ("310260000000017", "T-Mobile"), ("466920000000017", "Chunghwa Telecom"),
    ("901280000000017", ""),
])
def test_the_carrier_comes_alone(router, imsi, carrier):
    r = router("ec25")
    r.modem().reply("AT+CIMI", f"\n{imsi}\n\nOK\n")
    reply = told(r)
    assert list(reply) == PLAIN and reply["carrier"] == carrier


def test_the_carrier_of_a_sim_that_does_not_say_who_it_is(router):
    r = router("ec25")
    r.modem().reply("AT+CIMI", "\nERROR\n")
    reply = told(r)
    assert list(reply) == PLAIN and reply["carrier"] == ""


def test_a_carrier_that_is_no_text_is_printed_as_one(router):
    r = router("ec25", files={"/usr/share/modem/operator.dat": b'26202,a"\x01\\,x\n'})
    assert told(r)["carrier"] == 'a"\x01\\'


# New messages


@pytest.mark.parametrize("count", [0, 1, 12])
def test_new_messages(router, count):
    r = router("ec25")
    receive(r, *(f"VMS99.{number}" for number in range(count)), "VMS98.other", "note")
    r.write("/etc/spool/sms/storage/VMS99.read", "")
    reply = told(r)
    if count == 0:
        assert list(reply) == PLAIN
    else:
        assert list(reply)[:3] == ["carrier", "sms", "signal_info"] and reply["sms"] == str(count)


@pytest.mark.parametrize("count", [0, 1, 12])
def test_new_messages_of_the_modem_on_bus_1_1_3(router, count):
    r = router(modems={"1-1.3": "ec25"})
    receive(r, *(f"VMS98.{number}" for number in range(count)), "VMS99.other")
    assert told(r, "1-1.3").get("sms") == (str(count) if count else None)


def test_no_new_messages_without_a_spool(router):
    r = router("ec25")
    r.remove("/etc/spool/sms")
    assert list(told(r)) == PLAIN


# The signal


@pytest.mark.parametrize("lines, level, mode", [
    (['"LTE",60,-85,250,-5'], "4", "4G"), ([LTE], "2", "4G"), (['"WCDMA",70,-61,-1'], "3", "3G"),
    (['"TDSCDMA",96,-86,-21'], "1", "3G"), (['"GSM",60'], "4", "2G"), (['"GSM",75'], "3", "2G"),
    (['"GSM",81'], "2", "2G"), (['"GSM",96'], "1", "2G"), (['"CDMA",70,-20'], "3", "2G"),
    (['"EVDO",80,0,-15'], "3", "3G"),
    (['"GSM",60', LTE], "2", "4G"),
])
def test_level_and_generation(ec25, lines, level, mode):
    ec25.modem().reply("AT+QCSQ", signal_report(*lines))
    reply = told(ec25)
    assert list(reply) == PLAIN
    assert (reply["signal"], reply["modem_mode"], len(reply["signal_info"])) == (level, mode, len(lines))


@pytest.mark.parametrize("answer", [
    "\nERROR\n", "\n+CME ERROR: 100\n", signal_report('"NOSERVICE"'), signal_report(),
    signal_report('"eMTC",-53,-80,165'), b"\xff" * 2000 + b"\r\nOK\r\n",
], ids=lambda answer: repr(answer[:16]))
def test_a_signal_that_cannot_be_read_is_full_strength(ec25, answer):
    ec25.modem().reply("AT+QCSQ", answer)
    reply = told(ec25)
    assert list(reply) == PLAIN
    assert (reply["signal"], reply["modem_mode"], reply["signal_info"]) == ("4", "", [])


def test_level_0(router):
    r = router("ep06")
    r.modem().reply("AT+CREG?", REGISTERED)
    cell = '"NOCONN","WCDMA",440,10,75,6A1,107,58,0,-99,-25,-,-,-,-,-'
    r.modem().reply('AT+QENG="servingcell"', f'\n+QENG: "servingcell",{cell}\n\nOK\n')
    reply = told(r)
    assert (reply["signal"], reply["modem_mode"]) == ("0", "3G")


def test_aggregated_carriers(router):
    r = router("ep06")
    r.modem().reply("AT+CREG?", REGISTERED)
    reply = told(r)
    assert (reply["signal"], reply["modem_mode"]) == ("3", "4G+")
    r.modem().reply("AT+QCAINFO", "\nERROR\n")
    assert told(r)["modem_mode"] == "4G"


@pytest.mark.parametrize("name", ["simcom7600", "me3630", "unknown"])
def test_models_without_measurements_have_neither_signal_nor_mode(router, name):
    r = router(name, ubus=bus_with("up"), files={SIGNAL_FILE: '{"type": "lte", "rssi": -60}'})
    receive(r, "VMS99.a")
    reply = told(r)
    assert list(reply) == ["carrier", "sms", "modem_up"]
    assert not {"AT+CSQ", "AT+CNSMOD?", "AT+ZPAS?"} & {*r.modem().commands}
    assert not [command for command in r.commands if "/signal" in command]
    assert probe(r, "mcu", BUS)[0] == FULL


@pytest.mark.parametrize("name", sorted({*MODELS, "unknown"}))
def test_of_every_model_the_signal_is_told_as_far_as_the_model_reports_it(router, name):
    r = router(name)
    r.modem().reply("AT+CREG?", REGISTERED)
    reports = r.run("vela_modem", "signal").stdout != "Not support"
    assert list(told(r)) == (PLAIN if reports else WITHOUT_SIGNAL)


def test_an_unknown_modem_is_not_asked_for_its_sim(router):
    r = router("unknown", ubus=bus_with("up"))
    r.modem().reply("AT+CPIN?", NO_SIM)
    assert told(r) == {"carrier": "Proximus", "modem_up": "1"}


# The link


@pytest.mark.parametrize("state", ["up", "pending", "down", "unknown", None])
def test_only_an_interface_that_is_up_is_told_so(router, state):
    r = router("ec25", ubus=False if state is None else bus_with(state))
    reply = told(r)
    assert reply.get("modem_up") == ("1" if state == "up" else None)
    assert list(reply) == PLAIN + (["modem_up"] if state == "up" else [])


def test_pending_wins_over_up(router):
    r = router("ec25", ubus={"replies": {OBJECT: {"status": {"up": True, "pending": True}}}})
    assert list(told(r)) == PLAIN


def test_another_modem_s_interface_does_not_count(router):
    r = router("ec25", ubus=bus_with("up", "modem_1_1_3"))
    assert list(told(r)) == PLAIN


# A modem that misbehaves


def test_unasked_lines_do_not_change_it(router):
    r = router("ec25")
    before = told(r)
    r.modem().misbehave("unsolicited", where="before", text="\n+QIND: SMS DONE\n")
    assert told(r) == before


@pytest.mark.parametrize("reply", [
    b"\xff" * 3000 + b"\r\nOK\r\n", b"," * 2000 + b"\r\nOK\r\n", b"\r\n+QCSQ: \r\nOK\r\n",
], ids=lambda reply: repr(reply[:12]))
def test_garbage_gives_an_object_that_is_whole(router, reply):
    r = router("ec25")
    r.modem().reply("AT+CIMI", reply)
    r.modem().reply("AT+QCSQ", reply)
    assert list(told(r)) == PLAIN
    r.modem().reply("AT+CPIN?", reply)
    r.modem().reply("AT+CREG?", reply)
    r.modem().reply("AT+CEREG?", reply)
    assert told(r) == {"SIM": "NO_REG"}
