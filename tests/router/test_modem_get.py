"""/modem/get: what is configured for a modem, read back."""

import json

import pytest
from modem_config import GET, NAME, SET, WDM, comes_up, ifname_of, packages
from support import ABORTED
from velasim import Router

EMPTY = {key: "" for key in ("service", "device", "apn", "mtu", "operator", "pincode", "dialnum", "username",
                             "password", "authentication")}
NODE = "1-1.2:1.4"


def get(r: Router, request: dict | None = None) -> dict:
    """The configuration, its keys in their order; asking has no effect."""
    before = packages(r)
    status, reply = r.api("get", GET, request)
    assert status == 0 and list(reply) == ["config"]
    assert packages(r) == before and r.events == []
    return reply["config"]


def network(name: str = NAME, /, **options: str) -> dict:
    lines = "".join(f"\toption {option} '{value}'\n" for option, value in options.items())
    return {"network": f"config interface '{name}'\n{lines}"}


@pytest.mark.parametrize("uci", [
    {}, {"network": None, "velaconfig": None, "velamodem": None}, {"network": ""}, network(), network("modem_1_1_3"),
], ids=["as shipped", "no files", "empty", "no options", "another"])
def test_a_modem_that_was_never_configured(router, uci):
    r = router(ubus=False, uci=uci)
    config = get(r)
    assert list(config.items()) == list(EMPTY.items())


def test_each_option_has_its_key(router):
    options = {"service": "s", "apn": "a", "mtu": "m", "pincode": "pi", "dialnumber": "d", "username": "u",
               "password": "pa", "auth": "au", "device": "/dev/x", "proto": "qmi", "ifname": "i", "metric": "1",
               "disabled": "1", "raw_ip": "1"}
    r = router(ubus=False, uci={**network(**options), "velaconfig": "config service 'modem'\n\toption operator 'o'\n"})
    assert list(get(r).items()) == [
        ("service", "s"), ("device", "/dev/x"), ("apn", "a"), ("mtu", "m"), ("operator", "o"), ("pincode", "pi"),
        ("dialnum", "d"), ("username", "u"), ("password", "pa"), ("authentication", "au")]


@pytest.mark.parametrize("proto", ["qmi", "3g", "ncm", "directip", "callip", "qcm2", "QCM", "", "xqcm"])
def test_of_the_protocols_only_qcm_is_told(router, proto):
    assert "proto" not in get(router(ubus=False, uci=network(proto=proto)))


def test_qcm_and_a_ttl_come_last(router):
    velamodem = f"config forceTTL '{NAME}'\n\toption ttl '65'\n"
    r = router(ubus=False, uci={**network(proto="qcm"), "velamodem": velamodem})
    assert list(get(r).items()) == [*EMPTY.items(), ("proto", "qcm"), ("ttl", 65)]


@pytest.mark.parametrize("text, ttl", [("65", 65), ("0", 0), ("255", 255), ("65x", 65), ("x", 0), ("-1", -1),
                                       ("99999999999", 2**31 - 1)])
def test_a_ttl_is_a_number(router, text, ttl):
    r = router(ubus=False, uci={"velamodem": f"config forceTTL '{NAME}'\n\toption ttl '{text}'\n"})
    assert get(r)["ttl"] == ttl


@pytest.mark.parametrize("text", [
    None, "", f"config forceTTL '{NAME}'\n\toption dev 'wwan0'\n", "config forceTTL 'modem_2_1_2'\n\toption ttl '65'\n",
    f"config forceTTL '{NAME}'\n\tlist ttl '65'\n", f"config forceTTL '{NAME}'\n\toption ttl ''\n",
], ids=["no file", "empty", "no ttl", "another modem's", "a list", "no text"])
def test_without_a_ttl_there_is_no_key(router, text):
    assert get(router(ubus=False, uci={"velamodem": text})) == EMPTY


# The bus


def three_modems() -> dict:
    return {"network": "\n".join(network(ifname_of(bus), apn=bus)["network"]
                                 for bus in ("1-1.2", "2-1.2", "1-1.4", "1-1.2.3.4.11"))}


@pytest.mark.parametrize("request_, apn", [
    ({}, "1-1.2"), ({"bus": "1-1.2"}, "1-1.2"), ({"bus": "2-1.2"}, "2-1.2"), ({"bus": "1-1.4"}, "1-1.4"),
    ({"bus": "1-1.2.3.4.11"}, "1-1.2.3.4.11"), ({"bus": "1-1.9"}, ""), ({"bus": ""}, ""), ({"bus": 7}, "1-1.2"),
    ({"bus": None}, "1-1.2"), ({"bus": "1_1_2"}, "1-1.2"), ({"modem_id": 2}, "1-1.2"), ({"modem_id": -1}, "1-1.2"),
    ({"bus": "2-1.2';x"}, ""), ({"bus": "../\n$(x)"}, ""),
], ids=json.dumps)
def test_the_bus_names_the_interface(router, request_, apn):
    r = router(ubus=False, uci=three_modems())
    assert get(r, request_) == {**EMPTY, "apn": apn}


@pytest.mark.parametrize("length, fits", [(13, True), (14, False), (1000, False)])
def test_a_bus_whose_interface_name_does_not_fit_aborts(router, length, fits):
    r = router(ubus=False)
    result = r.run("vela_api", "get", GET, json.dumps({"bus": "1" * length}))
    assert result.returncode == (0 if fits else ABORTED)


# The device


def test_a_device_is_known_by_its_place(router):
    r = router("ec25", ubus=False, uci=network(device="/dev/cdc-wdm7", node=NODE))
    assert get(r)["device"] == WDM


def test_a_tty_is_found_again_after_it_has_moved(router):
    r = router("ec25", ubus=False, uci=network(device="/dev/ttyUSB3", node="1-1.2:1.3"))
    assert get(r)["device"] == "/dev/ttyUSB3"
    r.modem().unplug()
    assert get(r)["device"] == ""
    r.modem().plug(first_tty=8)
    assert get(r)["device"] == "/dev/ttyUSB11"


@pytest.mark.parametrize("node", ["1-1.2:1.9", "2-1.2:1.4", "x", "/", "../1-1.2", "1-1.2:1.4/usbmisc", "%s"])
def test_a_place_without_a_port_has_an_empty_device(router, node):
    r = router("ec25", ubus=False, uci=network(device=WDM, node=node))
    assert get(r)["device"] == ""


def test_a_device_without_a_place_is_as_it_is_stored(router):
    r = router("ec25", ubus=False, uci=network(device="/dev/ttyUSB99"))
    assert get(r)["device"] == "/dev/ttyUSB99"


# Texts


@pytest.mark.parametrize("value", ["it\\'s", 'a"b', "a\nb", "ü€😀", "$(x);`y`", "%s%n"])
def test_texts_are_read_as_they_are_stored(router, value):
    r = router("mc7430", quick=True, ubus=comes_up())
    settings = {"service": value, "apn": value, "mtu": value, "operator": value, "pincode": value, "dianum": value,
                "username": value, "password": value, "ath": value}
    assert r.api("post", SET, {"modem_id": 5, "device": WDM, **settings})[0] == 0
    r.wait_idle()
    r.clear_events()
    assert get(r) == {**{key: value for key in EMPTY}, "device": WDM}


def test_bytes_that_are_no_text_are_replaced(router):
    r = router(ubus=False, uci={})
    r.write("/etc/config/network", f"config interface '{NAME}'\n\toption apn 'a\udcffb'\n")
    assert get(r)["apn"] == "a\ufffdb"


@pytest.mark.parametrize("length, fits", [(255, True), (256, True), (1023, True), (1024, False), (20000, False)])
@pytest.mark.parametrize("name, key", [("apn", "apn"), ("password", "password"), ("device", "device"),
                                       ("auth", "authentication")])
def test_a_value_of_no_sensible_length_aborts(router, name, key, length, fits):
    r = router(ubus=False, uci=network(**{name: "x" * length}))
    if fits:
        assert get(r) == {**EMPTY, key: "x" * length}
    else:
        assert r.run("vela_api", "get", GET, "{}").returncode == ABORTED


def test_a_list_is_no_text(router):
    r = router(ubus=False, uci={"network": f"config interface '{NAME}'\n\tlist apn 'a'\n\tlist node '{NODE}'\n"})
    assert get(r) == EMPTY


# What was set is what is read


@pytest.mark.parametrize("model, modem_id, device", [("ec25", 3, WDM), ("ec25", 3, "/dev/ttyUSB3"),
                                                     ("me3630", 30, "/dev/ttyUSB2"), ("mc7430", 5, "/dev/ttyUSB2")])
@pytest.mark.parametrize("more", [{}, {"proto": "qcm", "ttl": 300}, {"proto": "auto", "ttl": 0}], ids=json.dumps)
def test_what_was_set_is_read_back(router, model, modem_id, device, more):
    r = router(model, quick=True, ubus=comes_up())
    given = {"service": "fdd_lte", "apn": "net", "mtu": "1400", "operator": "26201", "pincode": "1234",
             "dianum": "*99#", "username": "me", "password": "secret", "ath": "CHAP"}
    assert r.api("post", SET, {"modem_id": modem_id, "device": device, **given, **more})[0] == 0
    r.wait_idle()
    r.clear_events()
    told = {"dianum": "dialnum", "ath": "authentication"}
    expected = {told.get(key, key): value for key, value in given.items()} | {"device": device}
    if more.get("proto") == "qcm":
        expected |= {"proto": "qcm", "ttl": 44}
    assert get(r) == expected
