"""Who the modem and its SIM are, as the commands and the detection report tell it, and what is kept in the state
directory /tmp/modem.BUS."""

import json

import pytest
from probe_client import parse, run_probe

STATE = "/tmp/modem.1-1.2"
ICCID = "89354020000000000017"
OPERATORS = "/usr/share/modem/operator.dat"


def answer(line: str) -> str:
    return f"\n{line}\n\nOK\n"


def carrier_command(key: str) -> str:
    return f"cat {OPERATORS}|grep {key}|cut -d ',' -f 2"


def asked(r) -> list[str]:
    return [command for command in r.modem().commands if command in ("AT+GSN", "ATI", "AT+CIMI", "AT+COPS?")]


# --- iccid ---


def test_iccid_of_20_digits(router):
    r = router("bg95")
    result = r.run("vela_modem", "iccid")
    assert (result.returncode, result.stdout) == (0, ICCID)
    assert r.modem().commands == ["AT+QCCID"]


@pytest.mark.parametrize("reply, printed", [
    (answer("+QCCID: 8986000000000000025F"), "8986000000000000025"),
    (answer("+QCCID: 893540200000000000175"), ICCID),
    ("\n+CME ERROR: 10\n", ""),
    (answer(""), ""),
    ("\n+QCCID: 89354020000000000017\n\nERROR\n", ""),
])
def test_iccid_that_is_not_one(router, reply, printed):
    r = router("bg95")
    r.modem().reply("AT+QCCID", reply)
    result = r.run("vela_modem", "iccid")
    assert (result.returncode, result.stdout) == (0, printed)


def test_iccid_of_a_model_that_has_no_such_query(router):
    r = router("ec25")
    assert r.run("vela_modem", "iccid").stdout == "Not support"
    assert r.modem().commands == []


# --- carrier ---


def test_carrier_is_what_the_network_reports(router):
    r = router("ec25")
    result = r.run("vela_modem", "carrier")
    assert (result.returncode, result.stdout) == (0, "Vodafone.de")
    assert r.modem().commands == ["AT+COPS?"]
    assert r.commands == []


def test_carrier_from_the_operator_list(router):
    r = router("ec25")
    r.modem().reply("AT+COPS?", answer("+COPS: 0"))
    result = r.run("vela_modem", "carrier")
    assert (result.returncode, result.stdout) == (0, "Vodafone.de")
    assert r.modem().commands == ["AT+COPS?", "AT+CIMI"]
    assert r.commands == [
        f'echo "262020000000017" >{STATE}/cimi', carrier_command("262020"), carrier_command("26202"),
    ]
    assert r.read(f"{STATE}/cimi") == "262020000000017\n"

    r.clear_events()
    assert r.run("vela_modem", "carrier").stdout == "Vodafone.de"
    assert r.modem().commands[-1] == "AT+COPS?"
    assert r.commands == [carrier_command("262020"), carrier_command("26202")]


def test_carrier_with_a_network_code_of_three_digits(router):
    r = router("ec25")
    r.modem().reply("AT+COPS?", answer("+COPS: 0"))
    r.modem().reply("AT+CIMI", answer("310260000000017"))
    assert r.run("vela_modem", "carrier").stdout == "T-Mobile"
    assert r.commands[-1] == carrier_command("310260")


def test_carrier_of_several_lines_is_cut(router):
    r = router("ec25", files={OPERATORS: "26202,Vodafone.de\n26202,Vodafone.de Loop\n"})
    r.modem().reply("AT+COPS?", answer("+COPS: 0"))
    assert r.run("vela_modem", "carrier").stdout == "Vodafone.de\nVoda"


@pytest.mark.parametrize("operators", [None, "", "26201,Telekom.de\n"])
def test_carrier_that_is_not_listed(router, operators):
    r = router("ec25", files={OPERATORS: operators})
    r.modem().reply("AT+COPS?", answer("+COPS: 0"))
    result = r.run("vela_modem", "carrier")
    assert (result.returncode, result.stdout) == (0, "")


def test_carrier_without_a_sim(router):
    r = router("ec25")
    r.modem().reply("AT+COPS?", answer("+COPS: 0"))
    r.modem().reply("AT+CIMI", "\n+CME ERROR: 10\n")
    result = r.run("vela_modem", "carrier")
    assert (result.returncode, result.stdout) == (0, "")
    assert r.commands == []
    assert not r.exists(STATE)


@pytest.mark.parametrize("cimi", ["26202;", "26202`", "26202&", "26202|", "26202\n"])
def test_a_damaged_imsi_file_runs_no_commands(router, cimi):
    r = router("ec25", files={f"{STATE}/cimi": cimi})
    r.modem().reply("AT+COPS?", answer("+COPS: 0"))
    result = r.run("vela_modem", "carrier")
    assert (result.returncode, result.stdout) == (0, "Vodafone.de")
    assert r.commands == [carrier_command("26202")]


@pytest.mark.parametrize("cimi", ["", "2620", "2620\n", b"\xff\x00\xfe\xff\xff\xff\xff\xff"])
def test_a_useless_imsi_file_is_deleted_and_the_next_call_asks(router, cimi):
    r = router("ec25", files={f"{STATE}/cimi": cimi})
    r.modem().reply("AT+COPS?", answer("+COPS: 0"))
    assert r.run("vela_modem", "carrier").stdout == ""
    assert not r.exists(f"{STATE}/cimi")
    assert r.run("vela_modem", "carrier").stdout == "Vodafone.de"
    assert asked(r) == ["AT+COPS?", "AT+COPS?", "AT+CIMI"]


# --- The detailed report ---


def detailed(r) -> dict:
    result = run_probe(r, "detect", "1-1.2")
    assert result.returncode == 0
    return parse(result)[1]


def test_report_of_a_modem(router):
    r = router("ec25")
    report = detailed(r)
    assert report["name"] == " EC25EFAR06A03M4G\r"
    assert report["IMEI"] == "350000000000017"
    assert (report["mnc"], report["mcc"], report["carrier"]) == ("020", "262", "Vodafone.de")
    assert "apns" not in report
    order = [key for key in report if key in ("name", "IMEI", "bus", "mnc", "mcc", "carrier", "operators")]
    assert order == ["name", "IMEI", "bus", "mnc", "mcc", "carrier", "operators"]


def test_the_modem_is_asked_once(router):
    r = router("ec25")
    first = detailed(r)
    assert asked(r) == ["ATI", "AT+GSN", "AT+CIMI"]
    assert r.listdir(STATE) == ["cimi", "modem-imei", "modem-name"]
    assert r.read_bytes(f"{STATE}/modem-imei") == b"350000000000017"
    assert r.read_bytes(f"{STATE}/modem-name") == b" EC25EFAR06A03M4G\r\0"
    assert r.read_bytes(f"{STATE}/cimi") == b"262020000000017\n"
    assert r.host_path(STATE).stat().st_mode & 0o7777 == 0o751

    r.clear_events()
    assert detailed(r) == first
    assert asked(r) == []


def test_report_of_a_model_that_says_model(router):
    r = router("mc7430")
    assert detailed(r)["name"] == " MC7430\r"


def test_report_of_a_modem_that_does_not_tell_who_it_is(router):
    r = router("ec25")
    for command in ("ATI", "AT+GSN", "AT+CIMI"):
        r.modem().reply(command, "\nERROR\n")
    report = detailed(r)
    assert report["name"] == "EC25"
    assert "IMEI" not in report and "mcc" not in report and "mnc" not in report
    assert report["carrier"] == ""
    assert not r.exists(STATE)


@pytest.mark.parametrize("imei", ["350000000000017\n", "35000000000001", "", b"\xff" * 15, "1" * 100])
def test_a_damaged_imei_file_is_deleted(router, imei):
    r = router("ec25", files={f"{STATE}/modem-imei": imei})
    assert "IMEI" not in detailed(r)
    assert not r.exists(f"{STATE}/modem-imei")
    assert detailed(r)["IMEI"] == "350000000000017"


def test_an_imei_file_is_believed(router):
    r = router("ec25", files={f"{STATE}/modem-imei": "860000000000999"})
    assert detailed(r)["IMEI"] == "860000000000999"
    assert "AT+GSN" not in asked(r)


@pytest.mark.parametrize("name, reported", [
    ("", ""), (" EC25\r\0and more", " EC25\r"), ("n" * 1000, "n" * 199), (b"EC\xff25\x01", "EC\ufffd25\x01"),
])
def test_a_name_file_is_believed_whatever_it_holds(router, name, reported):
    r = router("ec25", files={f"{STATE}/modem-name": name})
    assert detailed(r)["name"] == reported
    assert "ATI" not in asked(r)


def test_directories_in_place_of_the_files(router):
    r = router("ec25", files={f"{STATE}/{name}/x": "" for name in ("modem-imei", "modem-name", "cimi")})
    report = detailed(r)
    assert report["name"] == "" and "IMEI" not in report and report["carrier"] == ""


def test_a_state_directory_that_is_a_file(router):
    r = router("ec25", files={STATE: "in the way"})
    report = detailed(r)
    assert report["name"] == "EC25" and "IMEI" not in report and report["carrier"] == ""


@pytest.mark.parametrize("imsi, apn", [
    ("311480000000017", "vzwinternet"), ("901460000000017", "globalnet"), ("222013068600017", "globalnet"),
    ("222013068700017", None),
])
def test_a_sim_that_is_known_by_its_imsi(router, imsi, apn):
    r = router("ec25")
    r.modem().reply("AT+CIMI", answer(imsi))
    assert detailed(r).get("apns") == ([apn] if apn else None)


def test_the_unknown_modem_is_reported_with_its_carrier(router):
    r = router("unknown")
    output = r.run("vela_modem", "-D", "AT", "AT").stdout
    report, _ = json.JSONDecoder().raw_decode(output[output.index("{"):])
    assert (report["name"], report["mnc"], report["mcc"], report["carrier"]) == ("-", "010", "206", "Proximus")
    assert "IMEI" not in report and "apns" not in report


# --- With a modem that misbehaves ---


@pytest.mark.parametrize("kind, options", [
    # No dribbling: an exchange ends with the letters OK, whose line end may then come too late to be a success.
    ("delay", {"seconds": 0.7}),
    ("unsolicited", {"where": "after", "text": "\n+QIND: SMS DONE\n"}),
])
def test_replies_that_come_oddly_are_understood(router, kind, options):
    r = router("ec25")
    r.modem().misbehave(kind, **options)
    report = detailed(r)
    assert (report["IMEI"], report["mcc"]) == ("350000000000017", "262")


@pytest.mark.parametrize("reply", [
    b"\r\n35000\x000000000017\r\n\r\nOK\r\n",
    b"9" * 3000 + b"\r\nOK\r\n",
    b"\r\n350000000000017\r\nOK",
    b"\xff" * 30 + b"OK\r\n",
])
def test_replies_that_are_none_leave_no_files(router, reply):
    r = router("ec25")
    for command in ("ATI", "AT+GSN", "AT+CIMI"):
        r.modem().reply(command, reply)
    report = detailed(r)
    assert report["name"] == "EC25" and "IMEI" not in report and report["carrier"] == ""
    assert not r.exists(STATE)
