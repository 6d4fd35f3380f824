"""How long the answer to each of the generic queries may be, its echo included: with one character more than there is
room for, its "OK" has lost its line end and counts as none."""

from typing import Callable

import pytest
from probe_client import probe
from velasim import Router

BUS = "1-1.2"
STATE = f"/tmp/modem.{BUS}"
MASKS = '+QCFG: "band",0xf,0x1,0x1'
CELL = '+QENG: "servingcell","NOCONN","LTE","FDD",262,02,2A1B21,193,1250,28,5,5,2A1C,-109,-9,-80,13,29'


def command(*argv: str) -> Callable[[Router], object]:
    return lambda r: r.run("vela_modem", *argv).stdout


def operation(*argv: str) -> Callable[[Router], object]:
    return lambda r: probe(r, *argv)


def reported(key: str) -> Callable[[Router], object]:
    return lambda r: probe(r, "detect", BUS)[1].get(key)


QUERIES = [
    ("ec25", "AT+GSN", 36, "350000000000017{}", reported("IMEI"), "350000000000017", None),
    ("ec25", "ATI", 400, "Model:{}", reported("name"), None, "EC25"),
    ("ec25", "AT+CIMI", 48, "262020000000017{}", reported("mcc"), "262", None),
    ("bg95", "AT+QCCID", 48, "89354020000000000017{}", command("iccid"), "89354020000000000017", ""),
    ("ec25", "AT+COPS?", 100, '+COPS: 0,0,"Own",7{}', command("carrier"), "Own", "Vodafone.de"),
    ("ec25", "AT+CREG?", 100, "+CREG: 0,1{}", operation("register", "2"), (1, {}), (-1, {})),
    ("simcom7600", "AT+CREG?", 256, "{}+CREG: 0,2", command("check_register"), "check_register=-1\n",
     "check_register=0\n"),
    ("ec25", "AT+CSQ", 100, "+CSQ: 20,99{}", operation("rssi", BUS), (1, {"level": 3}), (-1, {"level": -1})),
    ("ec25", "AT+QNWINFO", 100, '+QNWINFO: "FDD LTE"{}', command("get_mode"), "get_mode: 4G\n", "get_mode: \n"),
    ("me3630", "AT+ZPAS?", 1024, '+ZPAS: "LTE"{}', command("get_mode"), "get_mode: 4G\n", "get_mode: \n"),
    ("simcom7600", "AT+CNSMOD?", 1024, "{}+CNSMOD: 0,8", command("get_mode"), "get_mode: 4G\n", "get_mode: \n"),
    ("ec25", 'AT+QCFG="nwscanmode",3', 100, "{}", operation("set-mode", "2", "4"), (0, {}), (-1, {})),
    ("ec25", 'AT+QCFG="nwscanmode"', 80, '+QCFG: "nwscanmode",3{}', operation("current-mode", BUS),
     (0, {"mode": "LTE only"}), (-1, {"mode": "ERROR"})),
    ("bg95", 'AT+QCFG="band"', 1024, "{}" + MASKS, lambda r: len(probe(r, "bands", BUS)[1]), 3, 0),
    ("ec25", 'AT+QENG="servingcell"', 1024, "{}" + CELL, operation("band", BUS, "velaconfig.modem.dev1"), (28, {}),
     (0, {})),
    ("ec25", "AT+Z", 20, "{}", operation("reset", "/dev/ttyUSB2", "AT+Z"), (0, {}), (-1, {})),
]


@pytest.mark.parametrize("name, query, room, answer, ask, whole, cut", QUERIES,
                         ids=[f"{name} {query}" for name, query, *_ in QUERIES])
def test_an_answer_fills_its_room_and_no_more(router, name, query, room, answer, ask, whole, cut):
    r = router(name, ubus=False)
    before, after = (part.encode() for part in ("\r\n" + answer + "\r\n\r\nOK\r\n").split("{}"))
    fill = b"x" * (room - len(query + "\r") - len(before) - len(after))
    if query == "ATI":  # whose value is what fills it, up to the carriage return, and has 199 characters at most
        whole = fill.decode()[:199]
    r.modem().reply(query, before + fill + after)
    assert ask(r) == whole
    if r.exists(STATE):
        r.remove(STATE)
    r.modem().reply(query, before + fill + b"x" + after)
    assert ask(r) == cut


def test_of_the_answer_about_the_sim_1023_characters_count(router):
    # It need not end with "OK": what is in its room is looked at.
    r = router("ec25", ubus=False)
    pin, more = b"SIM PIN\r", b"\n" + b"x" * 100
    fill = b"x" * (1023 - len("AT+CPIN?\r") - len(pin))
    r.modem().reply("AT+CPIN?", fill + pin + more)
    assert probe(r, "slot-simcard", BUS) == (-2, {"text": "NEED PIN"})
    r.modem().reply("AT+CPIN?", fill + b"x" + pin + more)
    assert probe(r, "slot-simcard", BUS) == (0, {"text": "untouched"})
