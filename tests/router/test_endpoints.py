"""The plug-in's endpoints through vela_api: the table, /modem/at, and what the web server may be sent."""

import codecs
import json
import random
from typing import Iterator

import pytest
from support import ABORTED, AT_PORT, SYSFS, usable
from velasim import Router

TABLE = """\
get  /modem/info
get  /modem/brief_info
get  /modem/app/brief_info
post /modem/auto
get  /modem/get
post /modem/set
post /modem/enable
post /modem/reset
post /modem/at
get  /modem/sms/list
post /modem/sms/delete
post /modem/sms/delete_all
post /modem/sms/send
post /modem/sms/status
post /modem/sms/code
post /modem/cells/get
post /modem/sim/switch
post /modem/modem_info/get
post /modem/sms/forward
get  /modem/sms/flist
post /modem/sms/account
post /modem/upgrade
post /modem/upgrade_status
"""
ENDPOINTS = [tuple(line.split()) for line in TABLE.splitlines()]


@pytest.fixture(scope="module")
def ec25() -> Iterator[Router]:
    with Router("ec25", ubus=False) as r:
        yield r


def command(text: str, port: str = AT_PORT) -> dict:
    return {"at-command": text, "at-port": port}


# The table


def test_the_table_has_23_rows_in_their_order(ec25):
    result = ec25.run("vela_api", "list")
    assert (result.returncode, result.stdout, result.stderr) == (0, TABLE, "")
    assert len(ENDPOINTS) == 23


@pytest.mark.parametrize("request_body, statuses", [
    ({}, (-251, -251, -251)), ({"modem_id": 2}, (-250, -258, -250)), ({"modem_id": 3}, (0, -258, 0)),
    ({"modem_id": 2, "msg_id": "VMS99.a"}, (-250, -250, -250)), ({"modem_id": 255, "msg_id": "VMS99.a"}, (0, -259, 0)),
], ids=str)
def test_the_messages_endpoints_are_live(router, request_body, statuses):
    r = router("ec25", ubus=False)
    assert r.api("get", "/modem/sms/list", request_body) == (statuses[0], {} if statuses[0] else {"messages": []})
    assert r.api("post", "/modem/sms/delete", request_body) == (statuses[1], {})
    assert r.api("post", "/modem/sms/delete_all", request_body) == (statuses[2], {})


@pytest.mark.parametrize("method, path", ENDPOINTS)
def test_the_method_is_part_of_the_match(ec25, method, path):
    other = "get" if method == "post" else "post"
    result = ec25.run("vela_api", other, path, "{}")
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr == f"vela_api: no such endpoint: {other} {path}\n"


@pytest.mark.parametrize("method, path", [
    ("POST", "/modem/at"), ("Post", "/modem/at"), ("put", "/modem/at"), ("", "/modem/at"), ("post ", "/modem/at"),
    ("post", "/modem/at/"), ("post", "modem/at"), ("post", "/modem/AT"), ("post", "/modem"), ("post", ""),
    ("post", "/modem/sms/send?x=1"), ("post", "/" + "x" * 10240), ("post", "%s%n"),
], ids=lambda text: repr(text)[:24])
def test_only_an_exact_path_and_method_match(ec25, method, path):
    result = ec25.run("vela_api", method, path, "{}")
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr == f"vela_api: no such endpoint: {method} {path}\n"


# How vela_api is called


@pytest.mark.parametrize("argv", [
    [], ["post"], ["get"], ["--help"], ["-h"], ["--plugin"], ["--plugin", "/usr/bin/vela_modem.so"],
    ["--plugin", "/usr/bin/vela_modem.so", "post"], ["post", "/modem/at", "{}", "{}"], ["list", "x", "y", "z"],
], ids=" ".join)
def test_bad_usage_prints_the_usage_and_exits_with_2(ec25, argv):
    result = ec25.run("vela_api", *argv)
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith("Usage: vela_api [--plugin FILE] METHOD PATH [JSON|-]\n")


@pytest.mark.parametrize("body", [
    "", " ", "nix", "{", "}", '{"a":}', "{'a' 1}", '{"a":1}{', '"text', "[" * 10000, '{"a":' * 5000, "\x01",
    b"\xff\xfe", b'{"at-port": "\xff',
], ids=lambda body: repr(body)[:16])
def test_a_request_that_is_no_json_exits_with_2_and_a_clear_line(ec25, body):
    result = ec25.run("vela_api", "post", "/modem/at", body)
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith("vela_api: the request is not JSON: ") and result.stderr.count("\n") == 1


@pytest.mark.parametrize("body", ["[]", "1", "-0.5", '"text"', "true", "null", '[{"at-command": "AT"}]'])
def test_a_request_that_is_no_object_exits_with_2_and_a_clear_line(ec25, body):
    result = ec25.run("vela_api", "post", "/modem/at", body)
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith("vela_api: the request is not a JSON object: ")


def test_text_behind_the_request_exits_with_2(ec25):
    result = ec25.run("vela_api", "post", "/modem/at", json.dumps(command("AT")) + " x")
    assert result.returncode == 2 and result.stderr.startswith("vela_api: ")


def test_a_dash_reads_the_request_from_standard_input(ec25):
    for body in (json.dumps(command("AT")), json.dumps(command("AT"), indent=8) + "\n" * 100000):
        result = ec25.run("vela_api", "post", "/modem/at", "-", input=body)
        assert (result.returncode, result.stderr) == (0, "status 0\n")
        assert result.stdout == '{\n  "message":"AT\\r\\r\\nOK\\r\\n"\n}\n'


@pytest.mark.parametrize("body", ["", "nix", "{" * 100000, "[]", "{}\0", "{}\0{}"], ids=lambda body: repr(body[:4]))
def test_bad_json_from_standard_input_exits_with_2(ec25, body):
    result = ec25.run("vela_api", "post", "/modem/at", "-", input=body)
    assert (result.returncode, result.stdout) == (2, "") and result.stderr.startswith("vela_api: the request is not ")


def test_a_request_longer_than_an_argument_can_be(ec25):
    body = json.dumps({"more": "x" * 1000000, **command("AT")})
    assert ec25.run("vela_api", "post", "/modem/at", "-", input=body).returncode == 0


def test_without_a_request_it_is_an_empty_object(ec25):
    result = ec25.run("vela_api", "post", "/modem/at")
    assert (result.returncode, result.stdout, result.stderr) == (1, "{\n}\n", "status -255\n")


def test_another_plug_in_by_name(ec25):
    ec25.run("cp", "/usr/bin/vela_modem.so", "/tmp/copy.so")
    assert ec25.run("vela_api", "--plugin", "/tmp/copy.so", "list").stdout == TABLE
    result = ec25.run("vela_api", "--plugin", "/tmp/copy.so", "post", "/modem/at", json.dumps(command("AT")))
    assert (result.returncode, result.stderr) == (0, "status 0\n")


def test_where_no_plug_in_lies_beside_the_program_the_loader_finds_it(ec25):
    ec25.run("cp", "/usr/bin/vela_api", "/tmp/vela_api")
    assert ec25.run("/tmp/vela_api", "list").stdout == TABLE


@pytest.mark.parametrize("plugin", ["/nonexistent.so", "/tmp", "/etc/config/network"])
def test_a_plug_in_that_cannot_be_loaded_exits_with_2_and_a_clear_line(ec25, plugin):
    result = ec25.run("vela_api", "--plugin", plugin, "list")
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith("vela_api: cannot load the plug-in: ") and result.stderr.count("\n") == 1


@pytest.mark.parametrize("plugin", ["libc.so.6", ""])  # an empty name is the program itself
def test_a_library_that_is_no_plug_in_exits_with_2_and_a_clear_line(ec25, plugin):
    result = ec25.run("vela_api", "--plugin", plugin, "list")
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr == f"vela_api: this is no plug-in of the web API server: {plugin}\n"


# /modem/at


def test_at_sends_the_command_to_the_port_and_reports_the_reply(router):
    r = router("ec25", ubus=False)
    assert r.api("post", "/modem/at", command("AT+CSQ", "/dev/ttyUSB3")) == (
        0, {"message": "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"})
    assert r.events == [{"kind": "at", "bus": "1-1.2", "port": "ttyUSB3", "command": "AT+CSQ"}]


def test_an_error_of_the_modem_is_a_reply_like_any_other(ec25):
    assert ec25.api("post", "/modem/at", command("AT+NOSUCH")) == (0, {"message": "AT+NOSUCH\r\r\nERROR\r\n"})


def test_at_looks_at_neither_the_model_table_nor_sysfs(router):
    r = router("unknown", ubus=False)
    r.remove(SYSFS)
    request = {"modem_id": 2, "bus": "no bus", **command("AT", "/dev/ttyACM0")}
    assert r.api("post", "/modem/at", request) == (0, {"message": "AT\r\r\nOK\r\n"})


@pytest.mark.parametrize("request_body", [
    {}, {"at-command": "AT"}, {"at-port": AT_PORT}, {"AT-COMMAND": "AT", "AT-PORT": AT_PORT},
    {"at_command": "AT", "at_port": AT_PORT}, {"command": "AT", "port": AT_PORT}, {"": ""},
], ids=str)
def test_a_missing_key_fails_and_nothing_is_sent(ec25, request_body):
    ec25.clear_events()
    assert ec25.api("post", "/modem/at", request_body) == (-255, {})
    assert ec25.events == []


@pytest.mark.parametrize("value", [None, True, 0, 1, -1.5, 1e300, [], ["AT"], {}, {"at-command": "AT"}], ids=str)
@pytest.mark.parametrize("key", ["at-command", "at-port"])
def test_a_value_that_is_no_text_fails_and_nothing_is_sent(ec25, key, value):
    ec25.clear_events()
    assert ec25.api("post", "/modem/at", {**command("AT"), key: value}) == (-255, {})
    assert ec25.events == []


@pytest.mark.parametrize("port", ["/dev/ttyUSB9", "", "/tmp", "/dev/null", "dev/ttyUSB2/x", "%s%n", "\x01\n"], ids=repr)
def test_a_port_that_does_not_exist_or_is_none_fails(ec25, port):
    assert ec25.api("post", "/modem/at", command("AT", port)) == (-255, {})


def test_a_command_of_256_characters_is_sent_whole(ec25):
    text = "AT+" + "X" * 253
    ec25.clear_events()
    assert ec25.api("post", "/modem/at", command(text)) == (0, {"message": f"{text}\r\r\nERROR\r\n"})
    assert ec25.modem().commands == [text]


@pytest.mark.parametrize("length", [257, 258, 259, 4096, 100000])
def test_a_command_of_257_characters_or_more_aborts_and_is_not_sent(ec25, length):
    ec25.clear_events()
    result = ec25.run("vela_api", "post", "/modem/at", json.dumps(command("A" * length)))
    assert (result.returncode, result.stdout) == (ABORTED, "")
    assert ec25.events == []


def test_the_length_of_a_command_counts_bytes(ec25):
    text = "AT+" + "ä" * 127
    body = json.dumps(command(text), ensure_ascii=False)
    assert ec25.run("vela_api", "post", "/modem/at", body).returncode == ABORTED


def test_a_missing_port_is_found_before_the_command_is_copied(ec25):
    assert ec25.api("post", "/modem/at", {"at-command": "A" * 300}) == (-255, {})


def test_default_band_is_never_sent_but_the_band_command_of_the_variant(ec25):
    ec25.clear_events()
    band = 'AT+QCFG="band",0,1a0000800d5,0'
    assert ec25.api("post", "/modem/at", command("default_band")) == (0, {"message": f"{band}\r\r\nOK\r\n"})
    assert ec25.modem().commands == ["ATI", band]


@pytest.mark.parametrize("port", ["/dev/ttyUSB9", "", "/tmp"])
def test_default_band_on_a_port_that_cannot_be_opened(ec25, port):
    ec25.clear_events()
    result = ec25.run("vela_api", "post", "/modem/at", json.dumps(command("default_band", port)))
    assert json.loads(result.stdout) == {"message": ""} and result.stderr.endswith("status -17\n")
    assert ec25.events == []


@pytest.mark.parametrize("text", ["default_band ", " default_band", "DEFAULT_BAND", "default_bands", "ATdefault_band"])
def test_only_exactly_default_band_is_special(router, text):
    r = router("ec25", ubus=False)
    r.modem().misbehave("unsolicited", text="OK")  # the modem answers anything with an AT in it
    if text.startswith("AT"):
        assert r.api("post", "/modem/at", command(text))[0] == 0
        assert r.modem().commands == [text]
    else:
        assert r.api("post", "/modem/at", command(text, "/dev/null")) == (-255, {})


def test_a_command_with_a_nul_ends_there(ec25):
    ec25.clear_events()
    assert ec25.api("post", "/modem/at", command("AT+CSQ\0;+CFUN=0"))[0] == 0
    assert ec25.modem().commands == ["AT+CSQ"]


def test_a_port_with_a_nul_ends_there(ec25):
    assert ec25.api("post", "/modem/at", command("AT", AT_PORT + "\0/more"))[0] == 0


def one_for_each_byte(error: UnicodeError) -> tuple[str, int]:
    return "\ufffd" * (error.end - error.start), error.end


codecs.register_error("one-for-each-byte", one_for_each_byte)


@pytest.mark.parametrize("data", [
    b"\x80", b"\xff\xfe", b"\xc3", b"\xc3\xa4\xc3", b"\xe2\x82", b"\xe2\x82\xac", b"\xf0\x9f\x93\xb6 \xf0\x9f\x93",
    b"\xc0\x80", b"\xe0\x80\x80", b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"\xf8\x88\x80\x80\x80", b"\xef\xbf\xbf",
    b"\x01\x02\x03\x1b[0m\x7f", bytes(range(1, 256)), b'\\u0000 "\\"" \\',
    random.Random(1).randbytes(512).replace(b"\0", b"\1"),
], ids=lambda data: repr(data[:8]))
def test_whatever_the_modem_sends_the_reply_is_json_that_a_strict_parser_accepts(router, data):
    r = router("nl678e", ubus=False)
    data = data.replace(b"OK", b"ok").replace(b"ERROR", b"error")
    r.modem().reply("AT+ANY", b"\r\n" + data + b"\r\nOK\r\n")
    result = r.run("vela_api", "post", "/modem/at", json.dumps(command("AT+ANY")))
    assert (result.returncode, result.stderr) == (0, "status 0\n")
    document = json.loads(result.stdout_bytes.decode("utf-8", "strict"), strict=True)
    assert document == {"message": "\r\n" + data.decode("utf-8", "one-for-each-byte") + "\r\nOK\r\n"}


def test_a_character_cut_at_the_end_of_the_buffer_is_replaced(router):
    r = router("nl678e", ubus=False)
    r.modem().reply("AT+LONG", b"x" * 4093 + "€€€".encode())
    status, reply = r.api("post", "/modem/at", command("AT+LONG"))
    assert status == 0 and reply["message"] == "x" * 4093 + "\ufffd\ufffd"


def test_after_every_failure_the_port_is_usable(ec25):
    for request in (command("AT", "/tmp"), command("A" * 300), command("default_band"), {}):
        ec25.run("vela_api", "post", "/modem/at", json.dumps(request))
    assert usable(ec25)
