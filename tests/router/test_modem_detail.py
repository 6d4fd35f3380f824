"""/modem/modem_info/get and /modem/cells/get: what one modem says of itself and of the cells around it."""

import json
import re

import pytest
from router_config import SERVING, effects, exchange, status_call
from support import ABORTED, MODELS
from test_cost import assert_nothing_is_left, host
from velasim import Router

DETAIL, CELLS = "/modem/modem_info/get", "/modem/cells/get"
BOTH = pytest.mark.parametrize("path", [DETAIL, CELLS])
BUS = "1-1.2"
SCAN_MODE, BAND, NEIGHBOURS = 'AT+QCFG="nwscanmode"', 'AT+QCFG="band"', 'AT+QENG="neighbourcell"'
IDS = {**{name: model.modem_id for name, model in MODELS.items()}, "unknown": 255}
THREE = ("bg95", "eg91", "ec100y")  # with ICCID, scan mode and bands
PLAIN = ["imsi", "sim_status", "signal"]
FULL = ["iccid", "imsi", "sim_status", "current_mode", "band", "signal"]
WITHOUT_CELLS = ("uc20", "simcom7600", "me3630", "unknown")


def named(name: str, bus: str = BUS) -> dict:
    return {"bus": bus, "modem_id": IDS[name]}


def detail(r: Router, name: str, bus: str = BUS) -> dict:
    status, reply = r.api("post", DETAIL, named(name, bus))
    assert status == 0 and list(reply) == ["modem_info"]
    return reply["modem_info"]


def cells(r: Router, name: str, bus: str = BUS) -> list[dict]:
    status, reply = r.api("post", CELLS, named(name, bus))
    assert status == 0 and list(reply) == ["cells"]
    return reply["cells"]


def ok(*lines: str) -> str:
    return "\n" + "".join(f"{line}\n" for line in lines) + "\nOK\n"


# Both: the request


@BOTH
@pytest.mark.parametrize("request_body", [
    {}, {"bus": BUS}, {"modem_id": 3}, {"modem_id": 2}, {"modem_id": -1}, {"Bus": BUS, "Modem_id": 3},
    {"bus": BUS, "id": 3}, {"bus": BUS, "modem_ID": 3},
], ids=str)
def test_a_request_that_lacks_one_of_its_two_keys_is_minus_251(router, path, request_body):
    r = router("ec25")
    assert r.api("post", path, request_body) == (-251, {})
    assert r.events == []


@BOTH
@pytest.mark.parametrize("bus", [None, 1, 1.2, True, [], ["1-1.2"], {}, {"bus": "1-1.2"}], ids=str)
@pytest.mark.parametrize("modem_id", [3, 2])
def test_a_bus_that_is_no_text_is_as_good_as_none(router, path, bus, modem_id):
    r = router("ec25")
    assert r.api("post", path, {"bus": bus, "modem_id": modem_id}) == (-251, {})
    assert r.events == []


@BOTH
@pytest.mark.parametrize("modem_id", [2, 10, 21, 39, 41, 254, 256, -2, -255, 2147483647, -2147483648, 4294967299])
def test_an_id_that_names_no_row_is_minus_250(router, path, modem_id):
    r = router("ec25")
    assert r.api("post", path, {"bus": BUS, "modem_id": modem_id}) == (-250, {})
    assert r.events == []


@BOTH
def test_an_id_of_minus_1_is_none(router, path):
    r = router("ec25")
    assert r.api("post", path, {"bus": BUS, "modem_id": -1}) == (-251, {})
    assert r.events == []


@BOTH
def test_an_id_given_as_text_counts_as_the_number(router, path):
    r = router("ec25", ubus=False)
    assert r.api("post", path, {"bus": BUS, "modem_id": "3"}) == r.api("post", path, named("ec25"))
    assert r.api("post", path, {"bus": BUS, "modem_id": "2"}) == (-250, {})


@BOTH
def test_other_keys_of_the_request_are_ignored(router, path):
    r = router("ec25", ubus=False)
    expected = r.api("post", path, named("ec25"))
    assert expected[0] == 0
    assert r.api("post", path, {"x": 1, **named("ec25"), "modem_info": 7, "cells": None}) == expected


@BOTH
@pytest.mark.parametrize("bus", ["1-1.2", "1-1.3", "2-1.2"])
def test_the_modem_on_that_bus_is_asked(router, path, bus):
    r = router(modems={"1-1.2": "ec25", "1-1.3": "ec25", "2-1.2": "ec25"}, ubus=False)
    assert r.api("post", path, named("ec25", bus))[0] == 0
    asked = {event[1:3] for event in effects(r)}
    assert asked == {(bus, {"1-1.2": "ttyUSB2", "1-1.3": "ttyUSB6", "2-1.2": "ttyUSB10"}[bus])}


@BOTH
@pytest.mark.parametrize("bus", ["1-1.3", "", "9-9", "..", "/", "1-1.2/", "*", "%s%n", "\x01\n", "\u00e4", "$(reboot)"],
                         ids=repr)
def test_a_bus_without_a_device_gives_empty_values(router, path, bus):
    r = router("bg95")
    status, reply = r.api("post", path, named("bg95", bus))
    assert status == 0
    assert reply == ({"cells": []} if path == CELLS else {"modem_info": {
        "iccid": "", "imsi": "", "sim_status": "", "current_mode": "", "band": {}, "signal": ""}})
    assert r.events == []


@BOTH
def test_a_bus_of_nine_characters_is_the_longest(router, path):
    r = router(modems={"1-1.2.3.4": "ec25"}, ubus=False)
    assert r.api("post", path, named("ec25", "1-1.2.3.4"))[0] == 0
    assert r.modem("1-1.2.3.4").commands
    r.clear_events()
    for bus in ("1-1.2.3.45", "1-1.2.3.4.5", "1-1.2.3.4.5.6", "x" * 1000):
        assert r.run("vela_api", "post", path, json.dumps(named("ec25", bus))).returncode == ABORTED
    assert r.events == []


@BOTH
def test_the_row_of_the_request_decides_not_the_device(router, path):
    r = router("ec25", ubus=False)  # its AT port is interface 2, the ME3630's interface 1
    if path == CELLS:
        assert r.api("post", path, named("me3630")) == (-17, {}) and r.events == []
        assert cells(r, "bg95") == cells(r, "ec25")
    else:
        assert list(detail(r, "bg95")) == FULL
        assert r.modem().commands == ["AT+QCCID", "AT+CIMI", "AT+CPIN?", SCAN_MODE, BAND, "AT+CSQ"]


# /modem/modem_info/get

EXPECTED = {  # IMSI, SIM status, signal level
    "ec20": ("460040000000017", "READY", "\3"), "ec25": ("262020000000017", "READY", "\3"),
    "ep06": ("222880000000017", "READY", "\4"), "uc20": ("440100000000017", "READY", "\2"),
    "mc7430": ("440100000000033", "", "\3"), "simcom7600": ("466920000000017", "READY", "\2"),
    "me3630": ("460010000000017", "READY", "\3"), "ec200t": ("232010000000017", "READY", "\4"),
    "bg95": ("274020000000017", "READY", "\3"), "eg91": ("234150000000017", "READY", "\4"),
    "ec100y": ("460000000000025", "READY", "\4"), "nl678e": ("222010000000017", "READY", "\3"),
    "unknown": ("206010000000017", None, "\2"),
}


@pytest.mark.parametrize("name", sorted(EXPECTED))
def test_detail_of_every_model(router, name):
    r = router(name, ubus=False)
    info = detail(r, name)
    imsi, sim_status, signal = EXPECTED[name]
    keys = FULL if name in THREE else PLAIN
    assert list(info) == [key for key in keys if key != "sim_status" or sim_status is not None]
    assert (info["imsi"], info.get("sim_status"), info["signal"]) == (imsi, sim_status, signal)


def test_every_model_has_its_expectation_here():
    assert set(EXPECTED) == set(IDS)


@pytest.mark.parametrize("name", sorted(set(EXPECTED) - {"mc7430"}))
def test_detail_what_is_asked_in_its_order(router, name):
    r = router(name)
    detail(r, name)
    commands = ["AT+CIMI", *(["AT+CPIN?"] if name != "unknown" else []), "AT+CSQ"]
    if name in THREE:
        commands = ["AT+QCCID", "AT+CIMI", "AT+CPIN?", SCAN_MODE, BAND, "AT+CSQ"]
    port = MODELS[name].control_port.removeprefix("/dev/") if name in MODELS else "ttyACM0"
    assert effects(r) == [exchange(command, port=port) for command in commands]
    assert not r.exists(f"/tmp/modem.{BUS}")


def test_detail_of_the_sierra_model_asks_for_its_interface_first(router):
    r = router("mc7430", ubus={"interfaces": {"modem_1_1_2": "up"}})
    assert detail(r, "mc7430") == {"imsi": "440100000000033", "sim_status": "", "signal": "\3"}
    assert effects(r) == [
        exchange("AT+CIMI"), status_call(), exchange("AT+CPIN?"), status_call(), exchange("AT!GSTATUS?")]
    r.set_ubus_state({"interfaces": {"modem_1_1_2": "pending"}})
    r.clear_events()
    assert detail(r, "mc7430") == {"imsi": "440100000000033", "sim_status": "", "signal": ""}
    assert effects(r) == [exchange("AT+CIMI"), status_call(), status_call()]


def bands(mask: int) -> str:
    return "".join(f"B{bit + 1} " for bit in range(mask.bit_length()) if mask >> bit & 1)


def test_detail_of_a_bg95_to_the_letter(router):
    r = router("bg95", ubus=False)
    r.modem().reply(BAND, ok('+QCFG: "band",0xf,0x80084,0x80084'))
    info = detail(r, "bg95")
    assert list(info.items()) == [
        ("iccid", "89354020000000000017"), ("imsi", "274020000000017"), ("sim_status", "READY"),
        ("current_mode", "AUTO"),
        ("band", {"EGPRS": "850MHz 900MHz 1800Mhz 1900MHz ", "Cat M1": "B3 B4 B7 B12 B24 ", "Cat NB2": "B3 B8 B20 "}),
        ("signal", "\3")]
    assert list(info["band"]) == ["EGPRS", "Cat M1", "Cat NB2"]
    text = r.run("vela_api", "post", DETAIL, json.dumps(named("bg95"))).stdout
    assert re.search(r'"signal":"\\u0003"\n  }\n}\n$', text)


@pytest.mark.parametrize("name, m1, nb2", [
    ("bg95", 0x100002000000000F0E189F, 0x10004200000000090E189F), ("eg91", 0x80800C5, 0), ("ec100y", 0x1E000000095, 0)])
def test_detail_the_bands_as_they_are_reported_out_of_the_works(router, name, m1, nb2):
    assert detail(router(name, ubus=False), name)["band"] == {
        "EGPRS": "850MHz 900MHz 1800Mhz 1900MHz ", "Cat M1": bands(m1 * 16 + 12), "Cat NB2": bands(nb2)}


@pytest.mark.parametrize("reply", ["\nERROR\n", '\n+QCFG: "band",0xf,0x1,0x1\n\nERROR\n'], ids=repr)
def test_detail_bands_that_are_refused_are_an_empty_object(router, reply):
    r = router("bg95", ubus=False)
    r.modem().reply(BAND, reply)
    info = detail(r, "bg95")
    assert list(info) == FULL and info["band"] == {}


def test_detail_a_band_mask_that_is_too_long_aborts(router):
    r = router("bg95", ubus=False)
    r.modem().reply(BAND, ok(f'+QCFG: "band",0xf,0x{"1" * 41},0x1'))
    assert r.run("vela_api", "post", DETAIL, json.dumps(named("bg95"))).returncode == ABORTED


@pytest.mark.parametrize("reply, iccid", [
    (ok("+QCCID: 89441000000000000017"), "89441000000000000017"),
    (ok("+QCCID: 894410000000000000175"), "89441000000000000017"),
    ("\nERROR\n", ""), ("\n+CME ERROR: 10\n", ""), (ok(), ""),
], ids=repr)
def test_detail_the_iccid(router, reply, iccid):
    r = router("eg91", ubus=False)
    r.modem().reply("AT+QCCID", reply)
    info = detail(r, "eg91")
    assert list(info) == FULL and info["iccid"] == iccid


def test_detail_an_iccid_of_19_digits_is_given_as_far_as_it_goes(router):
    # The query fails, but what it has written is what is given, as by the command.
    r = router("ec100y", ubus=False)
    assert detail(r, "ec100y")["iccid"] == r.run("vela_modem", "iccid").stdout == "8986000000000000025"


@pytest.mark.parametrize("reply, imsi", [
    (ok("262020000000018"), "262020000000018"), (ok("2620200000000189"), "262020000000018"), ("\nERROR\n", ""),
    ("\n+CME ERROR: 10\n", ""), (ok(), ""),
], ids=repr)
def test_detail_the_imsi(router, reply, imsi):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CIMI", reply)
    info = detail(r, "ec25")
    assert list(info) == PLAIN and info["imsi"] == imsi


def test_detail_a_kept_imsi_is_believed_and_the_modem_is_not_asked(router):
    r = router("ec25", ubus=False, files={f"/tmp/modem.{BUS}/cimi": "310260000000099\n"})
    assert detail(r, "ec25")["imsi"] == "310260000000099"
    assert r.modem().commands == ["AT+CPIN?", "AT+CSQ"]


@pytest.mark.parametrize("name", ["ec25", "bg95", "simcom7600"])
@pytest.mark.parametrize("reply, sim_status", [
    (ok("+CPIN: READY"), "READY"), (ok("+CPIN: SIM PIN"), "NEED PIN"), (ok("+CPIN: PH-SIM PIN"), "NEED PIN"),
    (ok("+CPIN: SIM PUK"), "NEED PUK"), ("\n+CME ERROR: 10\n", "ERROR"), ("\nERROR\n", "ERROR"), (ok(), ""),
    (ok("+CPIN: SIM PIN2"), ""), ("\n+CPIN: READY\n\nERROR\n", "ERROR"),
], ids=repr)
def test_detail_the_sim_status(router, name, reply, sim_status):
    r = router(name, ubus=False)
    r.modem().reply("AT+CPIN?", reply)
    info = detail(r, name)
    assert list(info) == (FULL if name == "bg95" else PLAIN) and info["sim_status"] == sim_status
    assert "AT+CSQ" in r.modem().commands  # a fault does not end it


@pytest.mark.parametrize("reply, mode", [
    (ok('+QCFG: "nwscanmode",0'), "AUTO"), (ok('+QCFG: "nwscanmode",1'), "GSM only"),
    (ok('+QCFG: "nwscanmode",2'), "WCDMA only"), (ok('+QCFG: "nwscanmode",3'), "LTE only"),
    (ok('+QCFG: "nwscanmode",4'), ""), ("\nERROR\n", "ERROR"),
], ids=repr)
@pytest.mark.parametrize("name", THREE)
def test_detail_the_current_mode(router, name, reply, mode):
    r = router(name, ubus=False)
    r.modem().reply(SCAN_MODE, reply)
    info = detail(r, name)
    assert list(info) == FULL and info["current_mode"] == mode


@pytest.mark.parametrize("csq, signal", [
    *((str(value), "\4") for value in (24, 27, 31)), *((str(value), "\3") for value in (19, 23)),
    *((str(value), "\2") for value in (14, 18)), *((str(value), "\1") for value in (2, 13)),
    *((str(value), "") for value in (0, 1, 32, 99, 199)),
])
def test_detail_the_signal_is_the_level_as_one_raw_byte(router, csq, signal):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CSQ", ok(f"+CSQ: {csq},99"))
    assert detail(r, "ec25")["signal"] == signal


@pytest.mark.parametrize("reply", ["\nERROR\n", "\n+CSQ: 20,99\n\nERROR\n", ok("+CSQ: 123456789,99")], ids=repr)
def test_detail_a_signal_that_is_not_read_is_an_empty_text(router, reply):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CSQ", reply)
    info = detail(r, "ec25")
    assert list(info) == PLAIN and info["signal"] == ""


@pytest.mark.parametrize("reply", ["\nERROR\n", ok("System mode:   LTE        "), ok("nothing")], ids=repr)
def test_detail_a_signal_that_the_sierra_model_does_not_tell(router, reply):
    r = router("mc7430", ubus=False)
    r.modem().reply("AT!GSTATUS?", reply)
    assert detail(r, "mc7430")["signal"] == ""


# /modem/cells/get


@pytest.mark.parametrize("name", WITHOUT_CELLS)
def test_cells_of_a_model_that_cannot_tell_them_is_minus_17_and_nothing_is_asked(router, name):
    r = router(name)
    assert r.api("post", CELLS, named(name)) == (-17, {})
    assert r.events == []


@pytest.mark.parametrize("name", sorted(set(IDS) - set(WITHOUT_CELLS)))
def test_cells_of_every_other_model_are_those_of_the_command(router, name):
    r = router(name, ubus=False)
    listed = cells(r, name)
    port = MODELS[name].control_port.removeprefix("/dev/")
    commands = {"mc7430": ["AT!GSTATUS?"], "nl678e": ["AT+GTCCINFO?", "AT+CSQ?"]}.get(
        name, ["AT+QCAINFO", SERVING, NEIGHBOURS])
    assert effects(r) == [exchange(command, port=port) for command in commands]
    printed = json.loads(r.run("vela_modem", "cells").stdout)
    assert [list(cell.items()) for cell in listed] == [list(cell.items()) for cell in printed]
    assert listed and all(isinstance(value, str) for cell in listed for value in cell.values())


def test_cells_of_an_ec20_to_the_letter(router):
    assert cells(router("ec20", ubus=False), "ec20") == [
        {"type": "servingcell", "state": "NOCONN", "mode": "TDD", "mcc": "460", "mnc": "00", "cellid": "C4A1B21",
         "pcid": "401", "earfcn": "38950", "band": "40", "ul_bandwidth": "20M", "dl_bandwidth": "20M", "tac": "2A1C",
         "rsrp": "-90", "rsrq": "-7", "rssi": "-62", "sinr": "24", "srxlev": "37", "rat": "LTE"},
        {"type": "neighbourcell", "earfcn": "38950", "cellid|pcid": "401", "rat": "LTE"},
        {"type": "neighbourcell", "earfcn": "38950", "cellid|pcid": "112", "rat": "LTE"},
        {"type": "neighbourcell", "earfcn": "1300", "cellid|pcid": "87", "rat": "LTE"}]


def test_cells_of_the_sierra_model(router):
    primary, secondary = cells(router("mc7430", ubus=False), "mc7430")
    assert list(primary) == ["type", "state", "cellid", "band", "bandwidth", "tx-chan", "rx-chan", "M-rssi", "D-rssi",
                             "M-rsrp", "D-rsrp", "rsrq", "sinr", "tac", "rat"]
    assert (primary["type"], primary["band"], primary["M-rsrp"], primary["D-rsrp"]) == ("PSS", "B2", "-81", "-79")
    assert secondary == {"type": "SSS", "band": "B12", "bandwidth": "10 MHz", "chan": "5110", "M-rssi": "-52",
                         "D-rssi": "-51", "M-rsrp": "-83", "D-rsrp": "-81", "rat": "LTE"}


def test_cells_of_the_fibocom_model(router):
    serving, *neighbours = cells(router("nl678e", ubus=False), "nl678e")
    assert serving == {
        "IsServiceCell": "1", "rat": "4", "mcc": "222", "mnc": "01", "tac": "2A1C", "cellid": "2FC001",
        "earfcn": "1350", "physicalcellId": "301", "band": "3", "bandwidth": "100", "rssnr_value": "12", "rxlev": "51",
        "rsrp": "61", "rsrq": "23", "rssi": "-69"}
    assert [(cell["IsServiceCell"], cell["cellid"], cell["rsrq"]) for cell in neighbours] == [
        ("2", "2FC999", "15"), ("2", "2FC555", "12")]


@pytest.mark.parametrize("name", ["ec20", "ec25", "ep06", "bg95"])
def test_cells_that_are_all_refused_are_an_empty_list(router, name):
    r = router(name, ubus=False)
    for command in ("AT+QCAINFO", SERVING, NEIGHBOURS):
        r.modem().reply(command, "\nERROR\n")
    assert cells(r, name) == []
    assert r.modem().commands == ["AT+QCAINFO", SERVING, NEIGHBOURS]


@pytest.mark.parametrize("name, command", [("mc7430", "AT!GSTATUS?"), ("nl678e", "AT+GTCCINFO?")])
def test_cells_that_another_dialect_refuses_are_an_empty_list(router, name, command):
    r = router(name, ubus=False)
    r.modem().reply(command, "\nERROR\n")
    assert cells(r, name) == [] and r.modem().commands == [command]


def test_cells_are_read_whatever_the_sim_the_interface_and_the_board_say(router):
    for board in ("quillo", "pellin"):
        r = router("ec20", board=board, ubus=False)
        r.modem().reply("AT+CPIN?", "\n+CME ERROR: 10\n")
        assert len(cells(r, "ec20")) == 4


# With a modem that misbehaves, and inside the web server


@BOTH
@pytest.mark.parametrize("name", ["bg95", "ec25", "mc7430", "nl678e"])
@pytest.mark.parametrize("reply", [
    b"\xff" * 3000 + b"\r\nOK\r\n", b"OK", b"\0OK\r\n", b"\r\n" + b",\"" * 400 + b"\r\nOK\r\n",
], ids=lambda reply: repr(reply[:12]))
def test_garbage_gives_a_whole_reply(router, path, name, reply):
    r = router(name, ubus=False)
    for command in ("AT+QCCID", "AT+CIMI", "AT+CPIN?", SCAN_MODE, BAND, "AT+CSQ", "AT+QCAINFO", SERVING, NEIGHBOURS,
                    "AT!GSTATUS?", "AT+GTCCINFO?", "AT+CSQ?"):
        r.modem().reply(command, reply)
    status, document = r.api("post", path, named(name))
    assert status == 0 and list(document) == [{DETAIL: "modem_info", CELLS: "cells"}[path]]
    if path == DETAIL:
        assert list(document["modem_info"]) == (FULL if name in THREE else PLAIN)


@pytest.mark.shipped
@BOTH
def test_requests_leave_nothing_in_the_host(router, path):
    r = router("bg95", ubus=False)
    plan = [["post", path, named("bg95"), 3, 25], ["post", path, {"bus": BUS}, 20, 1000],
            ["post", path, {"bus": BUS, "modem_id": 2}, 20, 1000], ["post", path, named("unknown", "9-9"), 20, 300]]
    for (first, second, status), (*_, times), expected in zip(host(r, *plan), plan, (0, -251, -250, None)):
        assert status == (expected if expected is not None else {DETAIL: 0, CELLS: -17}[path])
        assert_nothing_is_left(first, second, times)
