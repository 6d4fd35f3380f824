"""The information endpoints in trouble: values that do not fit, modems that leave the bus, ports that are taken."""

import json

import pytest
from probe_client import run_probe
from support import ABORTED, DEVICE, locked
from test_cost import assert_nothing_is_left, host
from velasim import Router

INFO, BRIEF, APP = "/modem/info", "/modem/brief_info", "/modem/app/brief_info"
LISTS = (INFO, BRIEF, APP)
DETAIL, CELLS = "/modem/modem_info/get", "/modem/cells/get"
BUSES = ("1-1.2", "2-1.2", "1-1.3")  # of three configured modems, by position
STATE = "/tmp/modem.1-1.2"
IMEI_FILE, NAME_FILE = f"{STATE}/modem-imei", f"{STATE}/modem-name"


def velaconfig(*buses: str, passthrough: dict[str, str] | None = None, **modem: str) -> str:
    """The package velaconfig: the list of buses and other options of its section "modem", and "passthrough"."""
    lines = ["config service 'modem'", *(f"\tlist bus '{bus}'" for bus in buses)]
    lines += [f"\toption {name} '{value}'" for name, value in modem.items()]
    if passthrough is not None:
        lines += ["config service 'passthrough'", *(f"\toption {name} '{text}'" for name, text in passthrough.items())]
    return "\n".join(lines) + "\n"


def get(r: Router, path: str) -> tuple[int, dict]:
    return r.api("get", path)


def shown(reply: dict) -> list[str]:
    return [modem["bus"] for modem in reply["modems"]]


def remove_ports(r: Router) -> None:
    for name in r.listdir(DEVICE):
        if name.startswith("1-1.2:"):
            r.remove(f"{DEVICE}/{name}")


# --- Which modems are listed ---


@pytest.mark.parametrize("path", LISTS)
def test_a_configured_bus_of_10_characters_aborts_and_one_of_9_does_not(router, path):
    r = router("ec25", ubus=False, uci={"velaconfig": velaconfig("1-1.2.3.4")})
    assert get(r, path)[0] == -250
    r.write("/etc/config/velaconfig", velaconfig("1-1.2", "1-1.2.3.45"))
    assert r.run("vela_api", "get", path).returncode == ABORTED
    assert r.events == []


@pytest.mark.parametrize("path", LISTS)
def test_a_modem_that_leaves_the_bus_between_detection_and_query_is_still_listed(router, path):
    r = router(modems={"1-1.2": "ec25", "2-1.2": "ec20"}, ubus=False, uci={"velaconfig": velaconfig(*BUSES)})
    r.modem().misbehave("drop", after=0)
    status, reply = get(r, path)
    assert (status, shown(reply)) == (0, ["1-1.2", "2-1.2"])
    gone = reply["modems"][0]
    assert "IMEI" not in gone and gone.get("name", "EC25") == "EC25" and gone.get("carrier", "") == ""
    assert shown(get(r, path)[1]) == ["2-1.2"]


@pytest.mark.parametrize("path", LISTS)
def test_a_modem_whose_port_another_program_holds_is_listed_unasked(router, path):
    r = router("ec25", ubus=False)
    with locked(r):
        status, reply = get(r, path)
    assert (status, shown(reply)) == (0, ["1-1.2"])
    assert r.modem().commands == []


# --- /modem/info ---


# Passthrough

ON = {"enable": "1", "running": "wwan0", "gateway": "192.168.8.1", "netmask": "255.255.255.0", "subnet": "192.168.8.0",
      "dns": "192.0.2.1,192.0.2.2,192.0.2.3"}
ADDRESS_LINE = "          inet addr:192.168.8.1  Bcast:192.168.8.255  Mask:255.255.255.0\n"


def passing(router, ifconfig: str = ADDRESS_LINE, modem: str | None = None, **options: str | None) -> Router:
    """A router with passthrough on, these options changed (None: not there), and what ifconfig prints."""
    chosen = {name: value for name, value in {**ON, **options}.items() if value is not None}
    r = router(modem, ubus=False, uci={"velaconfig": velaconfig("1-1.2", passthrough=chosen)})
    r.stand_in("/sbin/ifconfig")
    r.answer("ifconfig", ifconfig)
    return r


@pytest.mark.parametrize("option, most", [
    ("enable", 63), ("subnet", 63), ("netmask", 63), ("gateway", 63), ("running", 63), ("dns", 255),
])
def test_the_longest_passthrough_options(router, option, most):
    text = "1" * most
    reply = get(passing(router, **{option: text}), INFO)[1]
    assert reply["passthrough"] is (option != "enable")
    if option in ("gateway", "netmask", "subnet"):
        assert reply[option] == text
    r = passing(router, **{option: text + "1"})
    result = r.run("vela_api", "get", INFO)
    assert (result.returncode, result.stdout) == (ABORTED, "") and r.events == []


@pytest.mark.parametrize("gateway", [
    "1;touch /tmp/x", "1|touch /tmp/x", "1&touch /tmp/x", "$(touch /tmp/x)", "`touch /tmp/x`", "1>/tmp/x", "a b", "*",
    "\\1", '"', "ä",
])
def test_a_gateway_that_is_no_plain_word_reaches_no_shell(router, gateway):
    r = passing(router, gateway=gateway)
    reply = get(r, INFO)[1]
    assert (reply["gateway"], reply["subnet"]) == (gateway, "")
    assert r.events == [] and not r.exists("/tmp/x")


# The hint


def test_a_configured_band_of_8_characters_aborts(router):
    r = router("ec25", ubus=False, uci={"velaconfig": velaconfig("1-1.2", dev1="12345678")})
    assert r.run("vela_api", "get", INFO).returncode == ABORTED


# --- /modem/brief_info ---


def brief(r: Router) -> dict:
    status, reply = get(r, BRIEF)
    assert status == 0 and list(reply) == ["modems"]
    [modem] = reply["modems"]
    return modem


def test_an_empty_imei_file_is_deleted_and_the_next_call_asks(router):
    r = router("ec25", ubus=False, files={IMEI_FILE: ""})
    assert list(brief(r)) == ["version", "name", "bus"] and not r.exists(IMEI_FILE)
    assert brief(r)["IMEI"] == "350000000000017"


# The debug lines


@pytest.mark.parametrize("operation", ["brief", "app-brief"])
def test_debug_lines_of_the_short_detections(router, operation):
    r = router(modems={"1-1.2": "ec25", "2-1.2": "unknown"}, ubus=False)
    assert run_probe(r, operation, "1-1.2").stdout.startswith("vid 2C7C,pid 125\n{")
    assert run_probe(r, operation, "1-1.3").stdout == "please insert device\n{\n}\nresult -1\n"
    r.remove(f"{DEVICE}/idVendor")
    assert run_probe(r, operation, "1-1.2").stdout == "please insert device\n{\n}\nresult -1\n"


def test_debug_lines_where_there_are_no_ports(router):
    r = router("ec25", ubus=False)
    remove_ports(r)
    assert run_probe(r, "brief", "1-1.2").stdout == "vid 2C7C,pid 125\nfailed get ports\n{\n}\nresult -1\n"
    result = run_probe(r, "app-brief", "1-1.2").stdout
    assert result.startswith("vid 2C7C,pid 125\n{") and result.endswith("result 3\n")


def test_debug_lines_of_a_modem_in_no_row(router):
    r = router("unknown", ubus=False)
    assert run_probe(r, "brief", "1-1.2").stdout == "vid 1D0D,pid A1\n{\n}\nresult -1\n"
    result = run_probe(r, "app-brief", "1-1.2").stdout
    assert result.startswith("vid 1D0D,pid A1\n{") and result.endswith("result 255\n")
    remove_ports(r)
    result = run_probe(r, "app-brief", "1-1.2").stdout
    assert result.startswith("vid 1D0D,pid A1\nfailed get ports\n{") and result.endswith("result -1\n")


@pytest.mark.parametrize("operation", ["brief", "app-brief"])
def test_a_bus_that_does_not_fit_a_model_aborts(router, operation):
    r = router(modems={"1-1.2.3.4.5": "ec25"}, ubus=False)
    assert run_probe(r, operation, "1-1.2.3.4.5").returncode == ABORTED


# --- /modem/modem_info/get and /modem/cells/get: the request ---


@pytest.fixture(scope="module")
def ec25():
    with Router("ec25", ubus=False) as r:
        yield r


BOTH = pytest.mark.parametrize("path", [DETAIL, CELLS])


@BOTH
@pytest.mark.parametrize("bus", ["1-1.2.3.45", "1" * 10, "x" * 100000, "äääää"])
def test_a_bus_of_10_bytes_or_more_aborts(ec25, path, bus):
    body = json.dumps({"bus": bus, "modem_id": 3}, ensure_ascii=False)
    result = ec25.run("vela_api", "post", path, "-", input=body)
    assert (result.returncode, result.stdout) == (ABORTED, "")


# --- /modem/modem_info/get ---


def detail(r: Router, modem_id: int, bus: str = "1-1.2") -> dict:
    status, reply = r.api("post", DETAIL, {"bus": bus, "modem_id": modem_id})
    assert status == 0 and list(reply) == ["modem_info"]
    return reply["modem_info"]


def test_a_modem_that_leaves_the_bus_in_the_middle_leaves_the_rest_empty(router):
    r = router("bg95", ubus=False)
    r.modem().misbehave("drop", after=0)
    info = detail(r, 7)
    assert info == {"iccid": "", "imsi": "", "sim_status": "", "current_mode": "", "band": {}, "signal": ""}
    assert r.modem().commands == ["AT+QCCID"]


# --- /modem/cells/get ---


def test_cells_of_a_modem_that_leaves_the_bus(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("drop", after=0)
    assert r.api("post", CELLS, {"bus": "1-1.2", "modem_id": 3}) == (0, {"cells": []})
    assert r.modem().commands == ["AT+QCAINFO"]


# --- Inside the web server ---

ONE = {"bus": "1-1.2", "modem_id": 3}


@pytest.mark.shipped
def test_modems_that_leave_the_bus_leave_nothing_in_the_host(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("drop", after=0)
    # The first call loses the modem, the others find none.
    [[first, second, status]] = host(r, ["post", DETAIL, ONE, 2, 100])
    assert status == 0 and r.modem().commands == ["AT+CIMI"]
    assert_nothing_is_left(first, second, 100)
