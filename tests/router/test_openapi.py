"""docs/openapi.json describes the endpoints that there are, and what they really answer."""

import json
import re
from typing import Iterator

import jsonschema
import pytest
from product_sources import ROOT
from velasim import Router

pytestmark = pytest.mark.shipped

DOCUMENT = json.loads((ROOT / "docs/openapi.json").read_text(encoding="utf-8"))
OPERATIONS = {(method, path): operation for path, operations in DOCUMENT["paths"].items()
              for method, operation in operations.items()}
STATE = {"interfaces": {"modem_1_1_2": {"state": "up", "on_up": "up", "l3_device": "lo", "device": "lo",
                                        "ipv4-address": [{"address": "192.0.2.17", "mask": 32}]},
                        "modem_2_1_2": "down", "modem_1_1_3": "up"}}
CONFIGURATION = {
    "velaconfig": """config service 'modem'
	list bus '1-1.2'
	list bus '2-1.2'
	list bus '1-1.3'

config service 'passthrough'
	option enable '1'
	option running 'wwan0'
	option gateway '192.0.2.1'
	option netmask '255.255.255.0'
	option subnet '192.0.2.0'
	option dns '192.0.2.53,192.0.2.54'
""",
    "velamodem": "config forceTTL 'modem_1_1_2'\n\toption ttl '65'\n\nconfig sim 'sim'\n",
    "network": """config interface 'modem_1_1_2'
	option proto 'qcm'
	option device '/dev/cdc-wdm0'
	option apn 'internet'

config interface 'modem_2_1_2'
	option proto 'qmi'
	option disabled '1'
""",
}
MESSAGE = "From: 491700000001\nFrom_TOA: 91 international, ISDN/telephone\nSent: 26-11-21 09:30:00\n\nHello\n"
INCOMING = "/etc/spool/sms/incoming"
EC25 = {"modem_id": 3, "bus": "1-1.2"}
BG95 = {"modem_id": 7, "bus": "2-1.2"}
MC7430 = {"modem_id": 5, "bus": "1-1.3"}
AT = {"at-command": "AT+CSQ", "at-port": "/dev/ttyUSB2"}
VERSION = "EC25EFAR06A03M4G_01.005.01.005"
UPGRADE = {"modem_url": "http://192.0.2.1/fw.zip", "target_version": "EC25EFAR06A04M4G", "current_version": VERSION,
           "firmware_upload": "0", "hash_type": "md5", "hash_value": "d41d8cd98f00b204e9800998ecf8427e"}
ACCOUNT = {"account": "router@mail.example", "password": "secret", "smtp": "mail.example:587",
           "local_tel": "+490000001"}

# What is asked, in this order, and the code that comes.
CALLS = [
    ("get", "/modem/info", {}, 0),
    ("get", "/modem/brief_info", {}, 0),
    ("get", "/modem/app/brief_info", {}, 0),
    ("post", "/modem/at", AT, 0),
    ("post", "/modem/at", {}, -255),
    ("post", "/modem/cells/get", EC25, 0),
    ("post", "/modem/cells/get", BG95, 0),
    ("post", "/modem/cells/get", MC7430, 0),
    ("post", "/modem/cells/get", {"modem_id": 20, "bus": "1-1.2"}, -17),
    ("post", "/modem/cells/get", {"modem_id": 2, "bus": "1-1.2"}, -250),
    ("post", "/modem/cells/get", {"modem_id": 3}, -251),
    ("post", "/modem/modem_info/get", EC25, 0),
    ("post", "/modem/modem_info/get", BG95, 0),
    ("post", "/modem/modem_info/get", {"bus": "1-1.2"}, -251),
    ("get", "/modem/get", {"bus": "1-1.2"}, 0),
    ("get", "/modem/get", {"bus": "9-9"}, 0),
    ("get", "/modem/sms/list", {"modem_id": 3}, 0),
    ("get", "/modem/sms/list", {}, -251),
    ("post", "/modem/sms/status", {"modem_id": 3, "msg_id": "VMS99.a"}, 0),
    ("post", "/modem/sms/status", {"modem_id": 3}, -258),
    ("get", "/modem/sms/list", {"modem_id": 3}, 0),
    ("post", "/modem/sms/delete", {"modem_id": 3, "msg_id": "VMS99.a"}, 0),
    ("post", "/modem/sms/delete", {"modem_id": 3, "msg_id": "VMS99.a"}, -259),
    ("post", "/modem/sms/delete_all", {"modem_id": 3}, 0),
    ("post", "/modem/sms/delete_all", {"modem_id": 2}, -250),
    ("post", "/modem/sms/send", {"modem_id": 3, "number": "+490000001", "message": "Hello"}, 0),
    ("post", "/modem/sms/send", {"modem_id": 3, "message": "Hello"}, -260),
    ("post", "/modem/sms/send", {"modem_id": 3, "number": "+490000001"}, -261),
    ("post", "/modem/sms/code", {"action": "set", "country": "Germany", "country_code": "49"}, 0),
    ("post", "/modem/sms/code", {}, 0),
    ("post", "/modem/sms/forward", {"tel": "+490000001"}, 0),
    ("post", "/modem/sms/account", ACCOUNT, 0),
    ("get", "/modem/sms/flist", {}, 0),
    ("post", "/modem/set", {**EC25, "device": "/dev/cdc-wdm0", "apn": "internet", "ttl": 65}, 0),
    ("post", "/modem/set", {**EC25, "device": "/dev/ttyUSB2"}, -265),
    ("post", "/modem/set", {**EC25, "device": "/dev/null"}, -256),
    ("post", "/modem/set", EC25, -5),
    ("post", "/modem/auto", EC25, 0),
    ("post", "/modem/auto", {}, -251),
    ("post", "/modem/enable", {"bus": "1-1.2"}, 0),
    ("post", "/modem/enable", {"bus": ""}, -251),
    ("post", "/modem/upgrade_status", {}, -1),
    ("post", "/modem/upgrade", UPGRADE, 0),
    ("post", "/modem/upgrade", {**UPGRADE, "target_version": VERSION}, -2),
    ("post", "/modem/upgrade", {**UPGRADE, "current_version": "EC25"}, -4),
    ("post", "/modem/upgrade", {}, -5),
    ("post", "/modem/reset", MC7430, 0),
    ("post", "/modem/reset", {"modem_id": 3, "bus": ";"}, -251),
    ("post", "/modem/sim/switch", {**EC25, "sim_num": "2"}, 0),
    ("post", "/modem/sim/switch", EC25, -22),
]
# And of a router with an EP06, which alone reports how far its upgrade is, without forwarding, mail and configuration.
CALLS_OF_AN_EP06 = [
    ("post", "/modem/upgrade_status", {}, 0),
    ("get", "/modem/info", {}, -250),
    ("post", "/modem/sms/forward", {"tel": "+490000001"}, -7),
    ("post", "/modem/sms/account", ACCOUNT, -17),
    ("post", "/modem/set", {"modem_id": 1, "bus": "1-1.2", "device": "/dev/cdc-wdm0"}, 0),
]


def schema(part: dict) -> dict:
    """A schema of the document on its own, with what it refers to beside it."""
    return {**part, "components": DOCUMENT["components"]}


def body_of(method: str, path: str) -> dict:
    content = OPERATIONS[method, path].get("requestBody", {"content": {"application/json": {"schema": {}}}})["content"]
    return schema(content["application/json"]["schema"])


def reply_of(method: str, path: str) -> dict:
    return schema(OPERATIONS[method, path]["responses"]["200"]["content"]["application/json"]["schema"])


def mistakes(value: object, against: dict) -> list[str]:
    errors = jsonschema.Draft202012Validator(against).iter_errors(value)
    return [f"{error.json_path}: {error.message}" for error in errors]


def called(r: Router, calls: list[tuple[str, str, dict, int]]) -> Iterator[tuple[tuple[str, str], dict]]:
    """Makes the calls, compares each with the document, and gives what was called and the reply."""
    wrong = []
    for method, path, request, code in calls:
        status, reply = r.api(method, path, request)
        described = mistakes({**reply, "code": status}, reply_of(method, path))
        described += [] if status == code else [f"code {status}, not {code}"]
        # What lacks a required key is refused by the program, and by the document as well.
        if status == 0:
            described += mistakes(request, body_of(method, path))
        wrong += [f"{method} {path} {request}: {mistake}" for mistake in described]
        yield (method, path), reply
    assert wrong == []


def keys_of(reply: object, inside: str = "") -> Iterator[str]:
    """Where each key of a reply stands: "modems.bus" for one of the objects of an array."""
    if isinstance(reply, list):
        for each in reply:
            yield from keys_of(each, inside)
    elif isinstance(reply, dict):
        for key, value in reply.items():
            yield inside + key
            yield from keys_of(value, f"{inside}{key}.")


def resolved(part: dict) -> dict:
    """A schema, or the one that it refers to."""
    for one in part.get("allOf", [part]):
        if "$ref" in one:
            return DOCUMENT["components"]["schemas"][one["$ref"].rpartition("/")[2]]
    return part


def described_keys(part: dict, inside: str = "") -> Iterator[str]:
    part = resolved(part)
    if "items" in part:
        yield from described_keys(part["items"], inside)
    for key, value in part.get("properties", {}).items():
        yield inside + key
        yield from described_keys(value, f"{inside}{key}.")


def keys_seen() -> set[tuple[tuple[str, str], str]]:
    """Makes all calls; the keys of the replies, each with its endpoint."""
    seen: set[tuple[tuple[str, str], str]] = set()
    files = {f"{INCOMING}/VMS99.a": MESSAGE, "/etc/spool/sms/storage/VMS99.b": MESSAGE, "/etc/forward": "",
             "/etc/ssmtp/ssmtp.conf": "", "/tmp/sim_status": "ready\n", "/tmp/sim_type": "other\n"}
    with Router(modems={"1-1.2": "ec25", "2-1.2": "bg95", "1-1.3": "mc7430"}, board="halvor", files=files,
                uci=CONFIGURATION, ubus=STATE, quick=True) as r:
        r.answer("opkg", "ssmtp - 2.64-4\n")
        r.answer("ssmtp", "")
        r.modem().reply("AT+CIMI", "\n311480000000017\n\nOK\n")
        for endpoint, reply in called(r, CALLS):
            seen |= {(endpoint, key) for key in ("code", *keys_of(reply))}
    with Router("ep06", board="halvor", files={"/etc/forward": None}, uci={"velaconfig": "\n"}, quick=True) as r:
        r.answer("opkg", "")
        for endpoint, reply in called(r, CALLS_OF_AN_EP06):
            seen |= {(endpoint, key) for key in ("code", *keys_of(reply))}
    return seen


def test_the_document_has_the_endpoints_of_the_table_in_their_order(router):
    table = router("ec25", ubus=False).run("vela_api", "list").stdout
    assert list(OPERATIONS) == [tuple(line.split()) for line in table.splitlines()]
    names = [operation["operationId"] for operation in OPERATIONS.values()]
    assert names == [path.removeprefix("/modem/").replace("/", "_") for _, path in OPERATIONS]


def test_the_arguments_on_the_message_bus_are_those_of_the_document(router):
    listed = json.loads(router("ec25", ubus=False).run("vela_api", "rpcd", "list").stdout)
    kinds = {"": "string", 32: "integer", False: "boolean"}
    arguments = {method: {name: kinds[kind] for name, kind in each.items()} for method, each in listed.items()}
    described = {operation["operationId"]: {name: resolved(part)["type"] for name, part
                                            in body_of(*endpoint).get("properties", {}).items()}
                 for endpoint, operation in OPERATIONS.items()}
    assert arguments == described


def test_the_document_is_well_formed():
    assert DOCUMENT["openapi"].startswith("3.1.") and {"title", "version"} <= set(DOCUMENT["info"])
    tags = {tag["name"] for tag in DOCUMENT["tags"]}
    for (method, path), operation in OPERATIONS.items():
        assert operation["summary"] and set(operation["tags"]) <= tags
        for part in (body_of(method, path), reply_of(method, path)):
            jsonschema.Draft202012Validator.check_schema(part)
    text = json.dumps(DOCUMENT)
    schemas = set(re.findall(r'"#/components/schemas/(\w+)"', text))
    assert schemas == set(DOCUMENT["components"]["schemas"])


def test_every_endpoint_answers_as_described_and_with_every_key_that_is():
    seen = keys_seen()
    # A modem of an unknown model has the keys of its report in the application's list, too.
    seen |= {(("get", "/modem/app/brief_info"), key) for endpoint, key in seen if endpoint == ("get", "/modem/info")}
    described = {(endpoint, key) for endpoint in OPERATIONS for key in described_keys(reply_of(*endpoint))}
    assert described - seen == set()


def test_the_codes_that_are_described_are_those_of_the_sources():
    sources = [path.read_text(encoding="utf-8") for directory in ("api", "connection", "sms")
               for path in (ROOT / directory).glob("*.[ch]*")]
    constants = re.findall(r"constexpr (?:int32_t|Refusal) \w+ =\s+\{?\s*(-\d+)", "\n".join(sources))
    described = {code for endpoint in OPERATIONS for code in reply_of(*endpoint)["properties"]["code"]["enum"]}
    # -264 is for a message that cannot be marked, and marking one does not fail.
    assert described == {int(code) for code in constants} - {-264} | {0}


def test_the_codes_that_are_described_are_those_of_the_document_for_readers():
    for section in re.split(r"(?m)^## ", (ROOT / "docs/endpoints.md").read_text(encoding="utf-8")):
        head, _, text = section.partition("\n")
        endpoints = [endpoint for endpoint in OPERATIONS if endpoint[1] in re.findall(r"/modem/[\w/]+", head)]
        text = re.sub(r"(?ms)^```.*?^```$", "", text)
        described = {code for endpoint in endpoints for code in reply_of(*endpoint)["properties"]["code"]["enum"]} - {0}
        if endpoints:
            assert {-int(code) for code in re.findall(r'(?<![\w"])-(\d+)\b', text)} == described, head
