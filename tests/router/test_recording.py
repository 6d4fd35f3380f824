"""sim/record: a modem is recorded into a file that plays it, without what says whose it is and where."""

import json
import re
import runpy

import check_modems
import pytest
from at_client import talk
from product_sources import DIRECTORIES, ROOT
from velasim import Router
from velasim.modem_file import load, parse
from velasim.scrub import Scrubber

pytestmark = pytest.mark.shipped

RECORD = ("/usr/bin/python3", "/run/sim/lib/record", "--bus", "1-1.2", "--model", "M")
IMEI, IMSI, ICCID = "356938035643809", "262021234567890", "8949201234567890123"
NUMBER, CENTRE = "4915112345678", "491722270333"
# What a modem says of its owner, by command; LF stands for CR LF.
TELLING = {
    "ATI": f"\nQuectel\nEC25\nRevision: EC25EFAR06A03M4G\nIMEI: {IMEI}\nFSN: LF84207103\n\nOK\n",
    "AT+GSN": f"\n{IMEI}\n\nOK\n",
    "AT+CGSN": f"\n{IMEI}\n\nOK\n",
    "AT+CIMI": f"\n{IMSI}\n\nOK\n",
    "AT+QCCID": f"\n+QCCID: {ICCID}F\n\nOK\n",
    "AT+CNUM": f'\n+CNUM: "","+{NUMBER}",145\n\nOK\n',
    "AT+CSCA?": f'\n+CSCA: "+{CENTRE}",145\n\nOK\n',
    "AT+CEREG?": '\n+CEREG: 2,1,"7B21","1A2D003",7\n\nOK\n',
    "AT+CREG?": '\n+CREG: 2,1,"7B21","1A2D003",7\n\nOK\n',
    "AT+XCELL": "\ncell 27447299 at 1a2d003\n\nOK\n",
    'AT+QENG="servingcell"': '\n+QENG: "servingcell","NOCONN","LTE","FDD",262,02,1A2D003,193,1250,3,5,5,7B21,-109,-9,'
                             "-80,13,29\n\nOK\n",
    "AT+QGPSLOC=2": "\n+QGPSLOC: 061951.0,52.52001,13.40495,1.1,34.0,3,0.0,0.0,0.0,211126,08\n\nOK\n",
    "AT+QMAC": "\nwlan: 3C:84:6A:12:9f:e1\n\nOK\n",
    "AT+CMGL=4": f"\n+CMGL: 1,0,,30\n0791947122723033040B91{NUMBER}0000\n\nOK\n",
}
SECRETS = [IMEI, IMSI, ICCID, NUMBER, CENTRE, "84207103", "7B21", "1A2D003", "1a2d003", "27447299", "52.52001",
           "13.40495", "061951", "3C:84:6A", "0791947122723033"]


# What the program may ask: a literal of its sources without a value that it would set (nor a scan for networks, which
# takes minutes). And what restarts a modem.
QUESTION = re.compile(r'"(AT(?:I|[+!^]\w+(?:\?|=\\"\w+\\")?)?)"')
RESTARTING = {"AT!RESET", "AT+CRESET", "AT+QPOWD", "AT+ZRST"}


def recorded_by(r: Router, model: str, *more: str) -> str:
    port = r.modem().tty(next(i.number for i in load(model).interfaces if i.role == "at"))
    result = r.run(*RECORD, "--port", port, *more)
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


def without_delays(text: str) -> str:
    """How long a reply took depends on the machine's load, too."""
    return re.sub(r"(?m)^~ .*\n", "", text)


def replies(file: object) -> dict[str, bytes]:
    return {entry.command: b"".join(data for _, data in entry.pieces) for entry in file.entries}


@pytest.mark.parametrize("command, reply, expected", [
    ("AT+GSN", f"{IMEI}", "356938000000017"),
    ("AT+CGSN", "350000000000017", None),  # made up already
    ("AT+CCID", "89490200000012345678", "89490200000000000017"),
    ("AT+CRSM=176,12258", '+CRSM: 144,0,"AB98942010325476981032"', '+CRSM: 144,0,"AB98942000000000000017"'),
    ('AT+QCFG="band"', '+QCFG: "band",0x10000000000042,0x42000000000000001', None),
    ("AT+CIMI", IMSI, "262021000000017"),
    ("AT+QCCID", f"+QCCID: {ICCID}F", "+QCCID: 8949200000000000017F"),
    ("AT+CGSN", "A1000049BC31D8", "A0000000BC00D0"),
    ("ATI", "FSN: LF84207103", "FSN: LF00000000"),
    ("AT+CNUM", f'+CNUM: "Mine","+{NUMBER}",145', '+CNUM: "Mine","+4900000000017",145'),
    ("AT+CNUM", '+CNUM: "","015112345678",129', '+CNUM: "","000000000017",129'),
    ("AT+CREG?", '+CREG: 2,1,"00C3","0FA5",0', '+CREG: 2,1,"0064","03E8",0'),
    ("AT+CEREG?", '+CEREG: 2,1,"7b21","1a2d003",7', '+CEREG: 2,1,"2710","1000000",7'),
    ("AT+CEREG?", '+CEREG: 2,2,"FFFF","FFFFFFFF",0', '+CEREG: 2,2,"FFFF","FFFFFFFF",0'),
    ("AT+CREG?", "+CREG: 0,1", "+CREG: 0,1"),
    ("AT!GSTATUS?", "TAC:         7B21 (31521)", "TAC:         2710 (10000)"),
    ("AT!GSTATUS?", "Cell ID:     0A1B2C3D (169552957)", "Cell ID:     05F5E100 (100000000)"),
    ("AT+CPSI?", "+CPSI: LTE,Online,466-92,0x6A9D,134134710,430,EUTRAN-BAND7,3050,5,5,-103",
     "+CPSI: LTE,Online,466-92,0x2710,100000000,430,EUTRAN-BAND7,3050,5,5,-103"),
    ("AT+GTCCINFO?", "1,4,222,01,2A1C,2FC001,1350,301,103,100", "1,4,222,01,2710,100000,1350,301,103,100"),
    ('AT+QENG="servingcell"', '+QENG: "servingcell","NOCONN","WCDMA",440,10,75,6A10090,10736,58,0,-78',
     '+QENG: "servingcell","NOCONN","WCDMA",440,10,64,5F5E100,10736,58,0,-78'),
    ('AT+QENG="neighbourcell"', '+QENG: "neighbourcell intra","LTE",1250,193,-9,-88', None),
    ("AT+QMAC", "3C:84:6A:12:9F:E1 3c-84-6a-12-9f-e2", "00:00:5E:00:53:01 00-00-5e-00-53-02"),
    ("AT+CGPSINFO", "+CGPSINFO: 3113.343286,N,12121.234064,E,250311,072809.3,44.1,0.0,0",
     "+CGPSINFO: 0000.000000,N,00000.000000,E,000000,000000.0,00.0,0.0,0"),
    ("AT+CMGR=1", '+CMGR: 0,,30\n0791B2\nHello, 5 p.m.', '+CMGR: 0,,30\n0000x0\nxxxxx, 0 x.x.'),
    ("AT+CMGR=1", "+CMS ERROR: 321", None),
    ("AT+CMGL=4", "AT+CMGL=4\n+CMGL: 1,0,,30\nOK, at 5 p.m.\nAT home\nERROR 17\nOK",
     "AT+CMGL=4\n+CMGL: 1,0,,30\nxx, xx 0 x.x.\nxx xxxx\nxxxxx 00\nOK"),
    ("AT+CSQ", "+CSQ: 20,99", None),
    ("AT+COPS?", '+COPS: 0,0,"Vodafone.de",7', None),
    ('AT+QCFG="band"', '+QCFG: "band",0x93,0x80800c5,0x0', None),
], ids=lambda value: value if str(value).startswith("AT") else "")
def test_what_tells_of_the_owner_is_made_up_at_the_same_length(command, reply, expected):
    scrubber = Scrubber()
    scrubber.learn(reply)
    text = scrubber.scrub(command, reply)
    assert text == (reply if expected is None else expected)
    assert len(text) == len(reply)


def test_it_asks_all_that_the_program_asks_and_restarts_nothing():
    sources = [path for directory in DIRECTORIES for path in (ROOT / directory).rglob("*.cpp")]
    questions = {text.replace('\\"', '"') for path in sources
                 for text in QUESTION.findall(path.read_text(encoding="utf-8"))}
    recorded = set(runpy.run_path(str(ROOT / "sim/record"))["COMMANDS"])
    assert len(questions) > 20 and RESTARTING <= questions
    assert questions - RESTARTING <= recorded and not RESTARTING & recorded


def test_the_same_becomes_the_same_and_another_one_another():
    scrubber = Scrubber()
    cell = '+CEREG: 2,1,"7B21","1A2D003",7'
    scrubber.learn(cell)
    assert scrubber.scrub("AT+X", "cell 1a2d003, 01A2D003, 27447299") == "cell 1000000, 01000000, 16777216"
    assert scrubber.scrub("AT+CEREG?", cell) == '+CEREG: 2,1,"2710","1000000",7'
    assert scrubber.scrub("AT+CEREG?", cell.replace("D003", "D004")) == '+CEREG: 2,1,"2710","1000001",7'
    assert scrubber.scrub("AT+GSN", f"{IMEI} {IMSI} {IMEI}") == "356938000000017 262021000000025 356938000000017"


def test_a_recording_holds_nothing_of_the_owner_and_plays_the_rest(router, tmp_path):
    r = router("ec25", ubus=False)
    for command, reply in TELLING.items():
        r.modem().reply(command, reply)
    r.write("/tmp/list", "# what it says of its owner\n\n" + "\n".join(TELLING))
    asked = ("--commands", "/tmp/list", "AT", "AT+CPIN?", "AT+CGREG?", "AT+COPS?", "AT+CSQ")
    text = recorded_by(r, "ec25", *asked)
    assert [secret for secret in SECRETS if secret in text] == []
    file = parse(text, "recorded")
    assert [entry.command for entry in file.entries] == [*TELLING, *asked[2:]]
    for command, reply in TELLING.items():
        assert len(replies(file)[command]) == len(reply.replace("\n", "\r\n")), command

    # What is played is recorded as the same text again: nothing of it is taken for real.
    path = tmp_path / "recorded.modem"
    path.write_text(text)
    player = router(modems={"1-1.2": str(path)}, ubus=False)
    player.write("/tmp/list", "\n".join(TELLING))
    assert without_delays(recorded_by(player, str(path), *asked)) == without_delays(text)
    assert json.loads(player.run("vela_modem", "cells").stdout)[0]["cellid"] == "1000000"


@pytest.mark.parametrize("model", ["ec25", "mc7430", "nl678e"])
def test_a_recorded_modem_is_the_modem(router, model, tmp_path):
    r = router(model, ubus=False)
    original = load(model)
    port = r.modem().tty(next(i.number for i in original.interfaces if i.role == "at"))
    result = r.run(*RECORD, "--port", port)
    recorded = parse(result.stdout, "recorded")
    assert (recorded.vendor, recorded.product, recorded.echo) == (original.vendor, original.product, original.echo)
    shape = lambda file: sorted((i.number, i.kind, i.name) for i in file.interfaces)
    assert shape(recorded) == shape(original)
    assert check_modems.problems(result.stdout, recorded) == [] and "AT+CSQ" in replies(recorded)
    scrubber = Scrubber()
    for command, reply in replies(recorded).items():
        expected = replies(original).get(command, b"\r\nERROR\r\n").decode("latin-1")
        if not re.search(r"\{[a-z]+\}", expected):
            scrubber.learn(expected)
            assert reply.decode("latin-1") == scrubber.scrub(command, expected), command

    path = tmp_path / "recorded.modem"
    path.write_text(result.stdout)
    player = router(modems={"1-1.2": str(path)}, ubus=False)
    commands = [entry.command for entry in recorded.entries]
    for command, (reply, end) in zip(commands, talk(player, port, *[(command + "\r",) for command in commands])):
        assert end == "" and reply.endswith(replies(recorded)[command].decode("latin-1")), command
    for command in ("signal", "sim-status", "check_register", "get_mode", "carrier"):
        assert player.run("vela_modem", command).stdout == r.run("vela_modem", command).stdout, command


@pytest.mark.parametrize("missing", [("--port", "/dev/ttyUSB9"), ("--bus", "9-9"), ("--bus", "1-1")],
                         ids=lambda missing: missing[1])
def test_what_is_not_there_is_told_before_anything_is_asked(router, missing):
    r = router("ec25", ubus=False)
    result = r.run(*RECORD, "--port", r.modem().tty(2), *missing)
    assert result.returncode == 1 and result.stdout == "" and result.stderr.startswith("record: ")
    assert r.modem().commands == []
