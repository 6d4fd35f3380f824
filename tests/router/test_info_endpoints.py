"""The information endpoints: /modem/info, /modem/brief_info, /modem/app/brief_info, /modem/modem_info/get and
/modem/cells/get, with what they do to the router on the way."""

import json

import pytest
from probe_client import probe, run_probe
from support import ABORTED, DEVICE, MODELS, locked, traced
from test_cost import assert_nothing_is_left, host
from velasim import Router

INFO, BRIEF, APP = "/modem/info", "/modem/brief_info", "/modem/app/brief_info"
LISTS = (INFO, BRIEF, APP)
DETAIL, CELLS = "/modem/modem_info/get", "/modem/cells/get"
BUSES = ("1-1.2", "2-1.2", "1-1.3")  # of three configured modems, by position
STATE = "/tmp/modem.1-1.2"
IMEI_FILE, NAME_FILE = f"{STATE}/modem-imei", f"{STATE}/modem-name"
IFCONFIG = "ifconfig br-lan | grep "
NO_SIM = "\n+CME ERROR: 10\n"
UP = {"interfaces": {"modem_1_1_2": "up", "modem_1_1_2_4": "up"}}
LINK = ["ubus network.interface.modem_1_1_2 status"]
LINK_4 = ["ubus network.interface.modem_1_1_2_4 status"]  # asked only while the link is passed through
QGMR = [f"vela_modem AT AT+QGMR | grep {model}" for model in ("EP06", "EC25")]


def velaconfig(*buses: str, passthrough: dict[str, str] | None = None, **modem: str) -> str:
    """The package velaconfig: the list of buses and other options of its section "modem", and "passthrough"."""
    lines = ["config service 'modem'", *(f"\tlist bus '{bus}'" for bus in buses)]
    lines += [f"\toption {name} '{value}'" for name, value in modem.items()]
    if passthrough is not None:
        lines += ["config service 'passthrough'", *(f"\toption {name} '{text}'" for name, text in passthrough.items())]
    return "\n".join(lines) + "\n"


def wireless(channel: str, radio: str = "radio0") -> str:
    return f"config wifi-device '{radio}'\n\toption channel '{channel}'\nconfig wifi-iface 'default_{radio}'\n"


def disabled(*buses: str) -> str:
    """The package network with the interfaces of these modems switched off."""
    names = ["modem_" + bus.replace("-", "_").replace(".", "_") for bus in buses]
    return "".join(f"config interface '{name}'\n\toption disabled '1'\n" for name in names)


def get(r: Router, path: str) -> tuple[int, dict]:
    return r.api("get", path)


def shown(reply: dict) -> list[str]:
    return [modem["bus"] for modem in reply["modems"]]


def effects(r: Router) -> list[str]:
    """Everything that was done, in order: AT commands, shell commands and calls on the bus."""
    say = {"at": lambda e: e["command"], "shell": lambda e: "$ " + e["command"],
           "ubus": lambda e: f"ubus {e['object']} {e['method']}"}
    return [say[event["kind"]](event) for event in r.events]


def remove_ports(r: Router) -> None:
    for name in r.listdir(DEVICE):
        if name.startswith("1-1.2:"):
            r.remove(f"{DEVICE}/{name}")


# --- Which modems are listed ---


@pytest.mark.parametrize("path", LISTS)
@pytest.mark.parametrize("there", [(), (0,), (1,), (2,), (0, 2), (1, 2), (0, 1, 2)], ids=str)
def test_of_three_configured_modems_those_that_are_there_are_listed_in_order(router, path, there):
    names = ("ec25", "ec20", "eg91")
    r = router(modems={BUSES[i]: names[i] for i in there}, ubus=False, uci={"velaconfig": velaconfig(*BUSES)})
    status, reply = get(r, path)
    if there:
        assert (status, shown(reply)) == (0, [BUSES[i] for i in there])
    else:
        assert (status, reply) == (-250, {"passthrough": False} if path == INFO else {})


@pytest.mark.parametrize("path", LISTS)
@pytest.mark.parametrize("config", [
    None, "", "config service 'modem'\n", "config service 'modem'\n\toption bus '1-1.2'\n", velaconfig(""),
    velaconfig("", "", ""), velaconfig("1-1.3", "2-1.2"), velaconfig("", "", "", "1-1.2"), "garbage {\n",
], ids=repr)
def test_a_modem_that_is_not_configured_among_the_first_three_is_not_looked_for(router, path, config):
    r = router("ec25", ubus=False, uci={"velaconfig": config})
    assert get(r, path) == (-250, {"passthrough": False} if path == INFO else {})
    assert r.events == []


@pytest.mark.parametrize("path", LISTS)
def test_an_empty_entry_of_the_list_is_skipped_without_detection(router, path):
    opened = {}
    for buses in (("1-1.2",), ("", "1-1.2"), ("", "", "1-1.2"), ("1-1.3", "1-1.2")):
        r = router("ec25", ubus=False, uci={"velaconfig": velaconfig(*buses)})
        r.modem().reply("AT+CPIN?", NO_SIM)
        result, lines = traced(r, ["vela_api", "get", path], "trace=openat", device=None)
        assert shown(json.loads(result.stdout)) == ["1-1.2"]
        opened[buses] = sum("/sys/" in line for line in lines)
    assert opened["", "1-1.2"] == opened["", "", "1-1.2"] == opened["1-1.2",] > 0
    assert opened["1-1.3", "1-1.2"] > opened["1-1.2",], "a bus that is not empty is looked for"


@pytest.mark.parametrize("path", LISTS)
def test_a_configured_bus_of_10_characters_aborts_and_one_of_9_does_not(router, path):
    r = router("ec25", ubus=False, uci={"velaconfig": velaconfig("1-1.2.3.4")})
    assert get(r, path)[0] == -250
    r.write("/etc/config/velaconfig", velaconfig("1-1.2", "1-1.2.3.45"))
    assert r.run("vela_api", "get", path).returncode == ABORTED
    assert r.events == []


def test_a_modem_on_the_longest_bus(router):
    r = router(modems={"1-1.2.3.4": "ec25"}, ubus=False, uci={"velaconfig": velaconfig("1-1.2.3.4")})
    for path in LISTS:
        status, reply = get(r, path)
        assert (status, shown(reply)) == (0, ["1-1.2.3.4"])


@pytest.mark.parametrize("path", LISTS)
@pytest.mark.parametrize("request_body", [
    {"bus": "2-1.2"}, {"modem_id": 2}, {"bus": "1-1.2.3.4.5.6", "modem_id": -1}, {"bus": None, "modem_id": []},
], ids=str)
def test_the_lists_do_not_look_at_the_request(router, path, request_body):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CPIN?", NO_SIM)
    assert shown(r.api("get", path, request_body)[1]) == ["1-1.2"]


@pytest.mark.parametrize("path", [INFO, BRIEF])
def test_a_known_modem_whose_ports_are_not_there_yet_is_left_out(router, path):
    r = router(modems={"1-1.2": "ec25", "2-1.2": "ec20"}, ubus=False, uci={"velaconfig": velaconfig(*BUSES)})
    remove_ports(r)
    assert shown(get(r, path)[1]) == ["2-1.2"]
    r.modem("2-1.2").unplug()
    assert get(r, path)[0] == -250


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


@pytest.mark.parametrize("name", [*MODELS, "unknown"])
def test_info_has_the_detailed_report_of_every_model(router, name):
    r = router(name, ubus=False)
    _, report = probe(r, "detect", "1-1.2")
    status, reply = get(r, INFO)
    assert status == 0 and list(reply) == ["passthrough", "hint_modify_wifi_channel", "modems"]
    assert (reply["passthrough"], reply["hint_modify_wifi_channel"]) == (False, 0)
    [modem] = reply["modems"]
    assert list(modem.items()) == list(report.items())
    assert modem["modem_id"] == (MODELS[name].modem_id if name in MODELS else 255)


def test_everything_that_info_does_in_its_order(router):
    r = router("ec25", ubus=UP, uci={"velaconfig": velaconfig(
        "1-1.2", passthrough={"enable": "1", "running": "eth0", "gateway": "192.168.8.1"})})
    assert get(r, INFO)[0] == 0
    assert effects(r) == [
        f"$ {IFCONFIG}192.168.8.1",
        "ATI", "AT+GSN", "AT+CIMI", f'$ echo "262020000000017" >{STATE}/cimi',
        "$ cat /usr/share/modem/operator.dat|grep 262020|cut -d ',' -f 2",
        "$ cat /usr/share/modem/operator.dat|grep 26202|cut -d ',' -f 2",
        *LINK, *LINK_4, "AT+CPIN?", "AT+CREG?", "AT+QCSQ", 'AT+QENG="servingcell"',
    ]


def test_each_modem_is_dealt_with_before_the_next(router):
    r = router(modems={"1-1.2": "ec25", "2-1.2": "eg91"}, ubus=False, uci={"velaconfig": velaconfig(*BUSES)})
    get(r, INFO)
    asked = [(event["bus"], event["command"]) for event in r.events if event["kind"] == "at"]
    assert [bus for bus, _ in asked] == sorted(bus for bus, _ in asked)
    for bus in ("1-1.2", "2-1.2"):
        commands = [command for at_bus, command in asked if at_bus == bus]
        assert commands[0] == "ATI" and commands[-1] == 'AT+QENG="servingcell"'


# A configuration that no reader survives: a bus, a gateway and a DNS list that do not fit.
DEADLY = velaconfig("1-1.2.3.4.5", passthrough={"enable": "1", "running": "w", "gateway": "1" * 64, "dns": "1" * 256})


@pytest.mark.parametrize("board", ["quillo", "ostrel3", "soltane"])
def test_boards_without_info_answer_minus_17_before_any_configuration_is_read(router, board):
    r = router("ec25", board=board, ubus=False, uci={"velaconfig": DEADLY})
    assert get(r, INFO) == (-17, {})
    assert r.events == []


@pytest.mark.parametrize("board", ["quillo2", "ostrel", "ostrel31", "soltan", "dravik", "halvor", ""])
def test_other_boards_have_info(router, board):
    r = router("ec25", board=board, ubus=False)
    assert get(r, INFO)[0] == 0
    r.write("/etc/config/velaconfig", DEADLY)
    assert r.run("vela_api", "get", INFO).returncode == ABORTED


@pytest.mark.parametrize("board", ["quillo", "ostrel3", "soltane"])
@pytest.mark.parametrize("path", [BRIEF, APP])
def test_the_short_lists_are_there_on_every_board(router, board, path):
    r = router("ec25", board=board, ubus=False)
    assert shown(get(r, path)[1]) == ["1-1.2"]


# Passthrough

ON = {"enable": "1", "running": "wwan0", "gateway": "192.168.8.1", "netmask": "255.255.255.0", "subnet": "192.168.8.0",
      "dns": "192.0.2.1,192.0.2.2,192.0.2.3"}
PASSTHROUGH_KEYS = ["passthrough", "gateway", "netmask", "subnet", "pass_dns"]
ADDRESS_LINE = "          inet addr:192.168.8.1  Bcast:192.168.8.255  Mask:255.255.255.0\n"


def passing(router, ifconfig: str = ADDRESS_LINE, modem: str | None = None, **options: str | None) -> Router:
    """A router with passthrough on, these options changed (None: not there), and what ifconfig prints."""
    chosen = {name: value for name, value in {**ON, **options}.items() if value is not None}
    r = router(modem, ubus=False, uci={"velaconfig": velaconfig("1-1.2", passthrough=chosen)})
    r.stand_in("/sbin/ifconfig")
    r.answer("ifconfig", ifconfig)
    return r


def test_passthrough_keys_and_their_order(router):
    r = passing(router, modem="ec25")
    status, reply = get(r, INFO)
    assert status == 0 and list(reply) == [*PASSTHROUGH_KEYS, "hint_modify_wifi_channel", "modems"]
    assert {key: reply[key] for key in PASSTHROUGH_KEYS} == {
        "passthrough": True, "gateway": "192.168.8.1", "netmask": "255.255.255.0", "subnet": "192.168.8.0",
        "pass_dns": ["192.0.2.2", "192.0.2.3"]}
    assert r.commands[0] == IFCONFIG + "192.168.8.1" and r.programs[0] == ["ifconfig", "br-lan"]


def test_without_a_modem_the_passthrough_keys_are_there_and_nothing_else(router):
    r = passing(router)
    status, reply = get(r, INFO)
    assert status == -250 and list(reply) == PASSTHROUGH_KEYS and reply["passthrough"] is True


@pytest.mark.parametrize("options, active", [
    ({}, True), ({"running": "eth0"}, True), ({"running": "eth10"}, True), ({"running": "pppoe-wan2"}, True),
    ({"running": "3g-modem"}, True), ({"running": "ETH1"}, True),
    ({"running": None}, False), ({"running": ""}, False), ({"running": "eth1"}, False),
    ({"running": "pppoe-wan"}, False), ({"enable": None}, False), ({"enable": ""}, False), ({"enable": "0"}, False),
    ({"enable": "11"}, False), ({"enable": "true"}, False), ({"enable": " 1"}, False),
    ({"enable": "0", "running": "eth1"}, False),
], ids=str)
def test_when_passthrough_is_active(router, options, active):
    r = passing(router, **options)
    reply = get(r, INFO)[1]
    assert list(reply) == (PASSTHROUGH_KEYS if active else ["passthrough"]) and reply["passthrough"] is active
    assert r.commands == ([IFCONFIG + "192.168.8.1"] if active else [])


def test_passthrough_options_that_are_not_there_are_empty(router):
    r = passing(router, gateway=None, netmask=None, subnet=None, dns=None)
    assert get(r, INFO)[1] == {"passthrough": True, "gateway": "", "netmask": "", "subnet": "", "pass_dns": []}
    assert r.commands == [IFCONFIG]


@pytest.mark.parametrize("printed, subnet", [
    (ADDRESS_LINE, "192.168.8.0"), (ADDRESS_LINE * 100, "192.168.8.0"), ("inet addr:192.168.8.100\n", "192.168.8.0"),
    ("inet addr:192.168.9.1\n", ""), ("", ""), ("br-lan: error fetching interface information\n", ""),
])
def test_the_subnet_is_reported_where_the_bridge_shows_the_gateway(router, printed, subnet):
    reply = get(passing(router, ifconfig=printed), INFO)[1]
    assert reply["subnet"] == subnet and list(reply) == PASSTHROUGH_KEYS


@pytest.mark.parametrize("dns, listed", [
    ("192.0.2.1,192.0.2.2,192.0.2.3", ["192.0.2.2", "192.0.2.3"]), ("192.0.2.1,192.0.2.2", ["192.0.2.2"]),
    ("192.0.2.1", []), ("", []), (None, []), (",", [""]), ("192.0.2.1,", [""]), (",192.0.2.2", ["192.0.2.2"]),
    ("192.0.2.1,,192.0.2.3", ["", "192.0.2.3"]), ("192.0.2.1 192.0.2.2", []), ("a, b,c ", [" b", "c "]),
    ("192.0.2.1,fd00::1,a.example", ["fd00::1", "a.example"]),
], ids=str)
def test_the_first_dns_server_is_skipped(router, dns, listed):
    assert get(passing(router, dns=dns), INFO)[1]["pass_dns"] == listed


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


def hint(router, there: set[int], off: set[int] = frozenset(), channel: str = "1", **bands: str) -> int:
    """The hint with modems at these positions of three, of which some are disabled; the bands are as configured."""
    bands = bands or {"dev1": "40", "dev2": "40", "dev3": "40"}
    r = router(modems={BUSES[i]: "ec25" for i in there}, ubus=False, uci={
        "velaconfig": velaconfig(*BUSES, **bands), "wireless": wireless(channel),
        "network": disabled(*(BUSES[i] for i in off))})
    for i in there:
        r.modem(BUSES[i]).reply("AT+CPIN?", NO_SIM)  # the rest of the status is not asked
    status, reply = get(r, INFO)
    assert status == 0 and len(reply["modems"]) == len(there)
    assert not any("servingcell" in event.get("command", "") for event in r.events)
    return reply["hint_modify_wifi_channel"]


@pytest.mark.parametrize("there, off, forced", [
    ({0}, {0}, True), ({0}, set(), False), ({0}, {1, 2}, False),
    ({0, 1}, {0, 1}, True), ({0, 1}, {0}, False), ({0, 1}, {1}, False),
    ({0, 1, 2}, {0, 1, 2}, True), ({0, 1, 2}, {0, 1}, False), ({0, 1, 2}, {1, 2}, False),
], ids=str)
def test_there_is_no_hint_when_all_modems_are_disabled(router, there, off, forced):
    assert hint(router, there, off) == (0 if forced else 11)


@pytest.mark.parametrize("there, off", [
    ({1}, {1}), ({2}, {2}), ({1}, {0, 1}), ({1}, {0, 1, 2}), ({0, 2}, {0, 2}), ({1, 2}, {1, 2}), ({1, 2}, {0, 1, 2}),
], ids=str)
def test_the_rule_looks_at_positions_so_disabled_modems_behind_an_empty_one_still_have_a_hint(router, there, off):
    # One modem, at the second position, and it is disabled: the flag of the first position is looked at, and nobody is
    # there to have it set.
    assert hint(router, there, off) == 11


@pytest.mark.parametrize("there, bands, channel, expected", [
    ({0}, {"dev1": "40"}, "1", 11), ({0}, {"dev1": "40"}, "6", 0), ({0}, {"dev1": "7"}, "11", 1),
    ({1}, {"dev1": "7", "dev2": "40"}, "1", 11), ({2}, {"dev3": "7"}, "11", 1),
    ({0, 1}, {"dev1": "7", "dev2": "40"}, "11", 6), ({0, 2}, {"dev1": "40", "dev3": "7"}, "1", 6),
    ({0, 1}, {"dev1": "3", "dev2": "20"}, "1", 0), ({0}, {"dev1": "40"}, "auto", 0), ({0}, {"dev1": "abc"}, "1", 0),
], ids=str)
def test_the_bands_are_those_of_the_positions(router, there, bands, channel, expected):
    assert hint(router, there, channel=channel, **bands) == expected


def test_the_band_of_a_position_without_a_modem_does_not_count(router):
    assert hint(router, {1}, dev1="40", dev2="3") == 0


def test_a_band_that_is_not_configured_is_asked_of_the_modem_that_is_there(router):
    r = router(modems={"2-1.2": "ec25"}, ubus=False, uci={
        "velaconfig": velaconfig(*BUSES, dev1="7", dev3="7"), "wireless": wireless("1")})
    r.modem("2-1.2").reply('AT+QENG="servingcell"', (
        '\n+QENG: "servingcell","NOCONN","LTE","FDD",262,02,2A1B21,193,38950,40,5,5,2A1C,-109,-9,-80,13,29\n\nOK\n'))
    assert get(r, INFO)[1]["hint_modify_wifi_channel"] == 11
    assert r.modem("2-1.2").commands[-1] == 'AT+QENG="servingcell"'


def test_the_hint_on_a_board_whose_channel_is_never_moved(router):
    r = router("ec25", board="dravik", ubus=False, uci={
        "velaconfig": velaconfig("1-1.2", dev1="40"), "wireless": wireless("1", "radio1")})
    assert get(r, INFO)[1]["hint_modify_wifi_channel"] == 11


def test_a_configured_band_of_8_characters_aborts(router):
    r = router("ec25", ubus=False, uci={"velaconfig": velaconfig("1-1.2", dev1="12345678")})
    assert r.run("vela_api", "get", INFO).returncode == ABORTED


# --- /modem/brief_info ---


def brief(r: Router) -> dict:
    status, reply = get(r, BRIEF)
    assert status == 0 and list(reply) == ["modems"]
    [modem] = reply["modems"]
    return modem


def kept(bus: str = "1-1.2") -> list[str]:
    return [f"$ cat /tmp/modem.{bus}/modem-imei", f"$ cat /tmp/modem.{bus}/modem-name | xargs echo -n"]


def test_everything_that_brief_info_does_in_its_order(router):
    r = router("ec25")
    first = brief(r)
    assert list(first.items()) == [
        ("version", "EC25EFAR06A03M4G_01.005.01.005"), ("name", " EC25EFAR06A03M4G\r"), ("IMEI", "350000000000017"),
        ("bus", "1-1.2")]
    version = ["$ " + QGMR[0], "AT+QGMR", "$ " + QGMR[1], "AT+QGMR"]
    assert effects(r) == [*version, *kept(), "ATI", "AT+GSN"]
    # What is kept is not asked again; the shell takes the blank before the name away.
    r.clear_events()
    assert brief(r) == {**first, "name": "EC25EFAR06A03M4G\r"}
    assert effects(r) == [*version, *kept()]


@pytest.mark.parametrize("name", [*MODELS, "unknown"])
def test_brief_info_of_every_model(router, name):
    r = router(name, ubus=False)
    if name == "unknown":
        assert get(r, BRIEF) == (-250, {}), "a modem in no row is left out"
        assert r.events == []
        return
    _, report = probe(r, "detect", "1-1.2")
    for file in (IMEI_FILE, NAME_FILE):
        r.remove(file)
    modem = brief(r)
    assert list(modem) == ["version", "name", "IMEI", "bus"]
    assert {key: modem[key] for key in list(modem)[1:]} == {key: report[key] for key in ("name", "IMEI", "bus")}
    assert (modem["version"] != "") == (name in ("ec25", "ep06"))


@pytest.mark.parametrize("reply, version", [
    ("EC25EFAR06A03M4G", "EC25EFAR06A03M4G"), ("EP06ELAR04A04M4G", "EP06ELAR04A04M4G"),
    ("+QGMR: EC25-E (1.2_b)", "QGMREC25E1.2_b"), ("EC25A\nEP06B\nEP06C", "EP06BEP06C"), ("EG25GGBR07", ""), ("", ""),
    ("ec25efa", ""), ("EC25ä", "EC25"), ("EC25" + "x" * 200, "EC25" + "x" * 123),
])
def test_the_version_is_what_is_plain_in_the_lines_that_name_the_model(router, reply, version):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+QGMR", f"\n{reply}\n\nOK\n")
    assert brief(r)["version"] == version
    assert r.commands[:2] == QGMR, "both are asked for, whatever the first says"


def test_a_version_that_cannot_be_read_is_empty(router):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+QGMR", "\nERROR\n")
    assert brief(r)["version"] == ""


def test_the_version_is_always_that_of_the_modem_on_the_usual_bus(router):
    r = router(modems={"1-1.2": "ep06", "2-1.2": "ec25"}, ubus=False, uci={"velaconfig": velaconfig(*BUSES)})
    versions = [modem["version"] for modem in get(r, BRIEF)[1]["modems"]]
    assert versions[0].startswith("EP06") and versions[1] == versions[0]
    assert "AT+QGMR" not in r.modem("2-1.2").commands
    r.modem("1-1.2").unplug()
    assert brief(r)["version"] == ""


def test_a_modem_without_a_kept_name_whose_identity_cannot_be_read_has_its_rows_name(router):
    r = router("ec25", ubus=False)
    r.modem().reply("ATI", "\nERROR\n")
    assert brief(r)["name"] == "EC25" and not r.exists(NAME_FILE)


@pytest.mark.parametrize("content, name", [
    ("EC25", "EC25"), ("  EC25  EFA  \n", "EC25 EFA"), ("EC25\0", "EC25"), ("a\nb\nc\n", "a b c"),
    ("x" * 300, "x" * 199), ("ä", "ä"), (b"\xff\xfeEC", "\ufffd\ufffdEC"),
    # Nothing, blanks, or a quote that the shell's word list does not survive: the file itself is read, and not asked of
    # the modem as long as it is there.
    ("", ""), ("  \n", "  \n"), ("it's", "it's"),
], ids=repr)
def test_a_kept_name_is_reported_whatever_it_is(router, content, name):
    r = router("ec25", ubus=False, files={NAME_FILE: content})
    assert brief(r)["name"] == name
    assert "ATI" not in r.modem().commands


@pytest.mark.parametrize("content, imei", [
    ("350000000000099", "350000000000099"), ("350000000000099\n", "350000000000099\n"), ("garbage", "garbage"),
    ("7", "7"), ("1" * 50, "1" * 35), ("35\0more", "35"), (b"\xff", "\ufffd"),
], ids=repr)
def test_a_kept_imei_is_reported_whatever_it_is(router, content, imei):
    r = router("ec25", ubus=False, files={IMEI_FILE: content})
    assert brief(r)["IMEI"] == imei
    assert "AT+GSN" not in r.modem().commands and r.exists(IMEI_FILE)


def test_an_empty_imei_file_is_deleted_and_the_next_call_asks(router):
    r = router("ec25", ubus=False, files={IMEI_FILE: ""})
    assert list(brief(r)) == ["version", "name", "bus"] and not r.exists(IMEI_FILE)
    assert brief(r)["IMEI"] == "350000000000017"


@pytest.mark.parametrize("reply", ["\nERROR\n", "\n35000000000001\n\nOK\n", "\n\nOK\n"])
def test_without_an_imei_the_key_is_left_out(router, reply):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+GSN", reply)
    assert list(brief(r)) == ["version", "name", "bus"]


def test_brief_info_of_two_modems_keeps_their_files_apart(router):
    r = router(modems={"1-1.2": "ec25", "2-1.2": "eg91"}, ubus=False, uci={"velaconfig": velaconfig(*BUSES)})
    first = get(r, BRIEF)[1]["modems"]
    assert [modem["bus"] for modem in first] == ["1-1.2", "2-1.2"] and first[0]["IMEI"] != first[1]["IMEI"]
    r.clear_events()
    second = get(r, BRIEF)[1]["modems"]
    assert [modem["IMEI"] for modem in second] == [modem["IMEI"] for modem in first]
    done = effects(r)
    assert [done.index(line) for bus in ("1-1.2", "2-1.2") for line in kept(bus)] == [4, 5, 10, 11]


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


# --- /modem/app/brief_info ---


def test_everything_that_app_brief_info_does_in_its_order(router):
    r = router("ec25", ubus=UP)
    status, reply = get(r, APP)
    assert status == 0 and list(reply) == ["modems"]
    [modem] = reply["modems"]
    assert list(modem) == ["bus", "mnc", "mcc", "carrier", "up", "SIM_status", "online", "signal_info", "signal",
                           "mode", "newsms"]
    assert (modem["bus"], modem["carrier"], modem["SIM_status"], modem["signal"]) == ("1-1.2", "Vodafone.de", 0, 2)
    assert effects(r) == [
        "AT+CIMI", f'$ echo "262020000000017" >{STATE}/cimi',
        "$ cat /usr/share/modem/operator.dat|grep 262020|cut -d ',' -f 2",
        "$ cat /usr/share/modem/operator.dat|grep 26202|cut -d ',' -f 2",
        *LINK, "AT+CPIN?", "AT+CREG?", "AT+QCSQ",
    ]


@pytest.mark.parametrize("name", MODELS)
def test_app_brief_info_of_every_model_is_carrier_and_status_of_the_detailed_report(router, name):
    r = router(name, ubus=False)
    _, report = probe(r, "detect", "1-1.2")
    [modem] = get(r, APP)[1]["modems"]
    keys = ["bus", *list(report)[list(report).index("mnc"):]]
    assert list(modem) == [key for key in keys if key not in ("apns", "operators")]
    assert modem == {key: report[key] for key in modem}


def test_app_brief_info_of_a_modem_in_no_row(router):
    r = router("unknown", ubus=False)
    [modem] = get(r, APP)[1]["modems"]
    assert list(modem) == ["ports", "modem_id", "name", "bus", "mnc", "mcc", "carrier", "up", "newsms"]
    assert (modem["modem_id"], modem["name"], modem["bus"]) == (255, "-", "1-1.2")
    remove_ports(r)
    assert get(r, APP) == (-250, {})


def test_app_brief_info_does_not_look_at_the_ports(router):
    r = router("ec25", ubus=False)
    remove_ports(r)
    [modem] = get(r, APP)[1]["modems"]
    # An EC25 that cannot be asked counts as not registered.
    assert modem == {"bus": "1-1.2", "carrier": "", "up": "off", "SIM_status": -3}


def test_app_brief_info_ends_with_a_sim_fault(router):
    r = router("ec25", ubus=False)
    for command in ("AT+CPIN?", "AT+CIMI"):
        r.modem().reply(command, NO_SIM)
    assert get(r, APP)[1]["modems"] == [{"bus": "1-1.2", "carrier": "", "up": "off", "SIM_status": -1}]


# --- /modem/modem_info/get and /modem/cells/get: the request ---


@pytest.fixture(scope="module")
def ec25():
    with Router("ec25", ubus=False) as r:
        yield r


BOTH = pytest.mark.parametrize("path", [DETAIL, CELLS])


@BOTH
@pytest.mark.parametrize("request_body, status", [
    ({}, -251), ({"bus": "1-1.2"}, -251), ({"modem_id": 3}, -251), ({"modem_id": 2}, -251), ({"modem_id": -1}, -251),
    ({"bus": None, "modem_id": 3}, -251), ({"bus": 1.2, "modem_id": 3}, -251), ({"bus": True, "modem_id": 3}, -251),
    ({"bus": ["1-1.2"], "modem_id": 3}, -251), ({"bus": {"bus": "1-1.2"}, "modem_id": 3}, -251),
    ({"Bus": "1-1.2", "modem_id": 3}, -251), ({"bus": "1-1.2", "Modem_id": 3}, -251),
    ({"bus": "1-1.2", "modem_id": -1}, -251), ({"bus": "1-1.2", "modem_id": 2}, -250),
    ({"bus": "1-1.2", "modem_id": 256}, -250), ({"bus": "1-1.2", "modem_id": -2}, -250),
    ({"bus": "1-1.2", "modem_id": "2"}, -250), ({"bus": "1-1.2", "modem_id": 2**31 - 1}, -250),
    ({"bus": "1-1.2", "modem_id": 10**30}, -250), ({"bus": "", "modem_id": 2}, -250),
    ({"bus": "x" * 1000, "modem_id": 2}, -250), ({"bus": "x" * 1000}, -251),
], ids=str)
def test_a_request_that_lacks_something_or_names_no_model(ec25, path, request_body, status):
    ec25.clear_events()
    assert ec25.api("post", path, request_body) == (status, {})
    assert ec25.events == []


@BOTH
@pytest.mark.parametrize("bus", ["1-1.2.3.45", "1" * 10, "x" * 100000, "äääää"])
def test_a_bus_of_10_bytes_or_more_aborts(ec25, path, bus):
    body = json.dumps({"bus": bus, "modem_id": 3}, ensure_ascii=False)
    result = ec25.run("vela_api", "post", path, "-", input=body)
    assert (result.returncode, result.stdout) == (ABORTED, "")


NOBODY = ["", "1-1.3", "2-1.2", "1-1.2.3.4", "../../tmp", "$(ls);`w`", "a b", "%s%n%d", "ääää", "\n", "1-1.2\n"]


@pytest.mark.parametrize("bus", NOBODY, ids=repr)
def test_on_a_bus_where_no_modem_is_there_are_the_keys_and_nothing_in_them(ec25, bus):
    ec25.clear_events()
    assert ec25.api("post", DETAIL, {"bus": bus, "modem_id": 3}) == (
        0, {"modem_info": {"imsi": "", "sim_status": "", "signal": ""}})
    assert ec25.api("post", DETAIL, {"bus": bus, "modem_id": 8}) == (
        0, {"modem_info": {"iccid": "", "imsi": "", "sim_status": "", "current_mode": "", "band": {}, "signal": ""}})
    assert ec25.api("post", CELLS, {"bus": bus, "modem_id": 3}) == (0, {"cells": []})
    assert ec25.events == []


@pytest.mark.parametrize("modem_id", [3, "3", 3.9])
def test_an_id_is_what_json_makes_a_number_of(ec25, modem_id):
    status, reply = ec25.api("post", DETAIL, {"bus": "1-1.2", "modem_id": modem_id})
    assert status == 0 and reply["modem_info"]["sim_status"] == "READY"


# --- /modem/modem_info/get ---


def detail(r: Router, modem_id: int, bus: str = "1-1.2") -> dict:
    status, reply = r.api("post", DETAIL, {"bus": bus, "modem_id": modem_id})
    assert status == 0 and list(reply) == ["modem_info"]
    return reply["modem_info"]


def test_everything_that_modem_info_does_in_its_order(router):
    r = router("bg95")
    info = detail(r, 7)
    assert list(info) == ["iccid", "imsi", "sim_status", "current_mode", "band", "signal"]
    assert list(info["band"]) == ["EGPRS", "Cat M1", "Cat NB2"] and info["band"]["Cat M1"].startswith("B3 B4 ")
    assert {**info, "band": None} == {
        "iccid": "89354020000000000017", "imsi": "274020000000017", "sim_status": "READY", "current_mode": "AUTO",
        "band": None, "signal": "\3"}
    assert effects(r) == [
        "AT+QCCID", "AT+CIMI", "AT+CPIN?", 'AT+QCFG="nwscanmode"', 'AT+QCFG="band"', "AT+CSQ"]
    assert not r.exists(STATE), "nothing is kept"


@pytest.mark.parametrize("name", sorted(set(MODELS) - {"mc7430"}) + ["unknown"])
def test_the_keys_of_every_model_are_those_it_has_an_operation_for(router, name):
    r = router(name, ubus=False)
    info = detail(r, MODELS[name].modem_id if name in MODELS else 255)
    if name in ("bg95", "eg91", "ec100y"):
        assert list(info) == ["iccid", "imsi", "sim_status", "current_mode", "band", "signal"]
    else:
        assert list(info) == (["imsi", "signal"] if name == "unknown" else ["imsi", "sim_status", "signal"])
    assert len(info["imsi"]) == 15 and info["imsi"].isdigit()


@pytest.mark.parametrize("csq, signal", [
    (31, "\4"), (24, "\4"), (23, "\3"), (19, "\3"), (18, "\2"), (14, "\2"), (13, "\1"), (2, "\1"), (1, ""), (0, ""),
    (99, ""),
])
def test_the_signal_is_the_level_as_a_text_of_one_control_character(router, csq, signal):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CSQ", f"\n+CSQ: {csq},99\n\nOK\n")
    result = r.run("vela_api", "post", DETAIL, '{"bus":"1-1.2","modem_id":3}')
    written = f"\\u000{ord(signal)}" if signal else ""
    assert f'"signal":"{written}"' in result.stdout
    assert json.loads(result.stdout)["modem_info"]["signal"] == signal


@pytest.mark.parametrize("reply", ["\nERROR\n", "\n+CSQ: 123456789,99\n\nOK\n",
                                   "\n+CSQ: 31,99\n\n+CME ERROR: 100\n"])
def test_a_signal_that_cannot_be_read_is_an_empty_text(router, reply):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CSQ", reply)
    assert detail(r, 3)["signal"] == ""


@pytest.mark.parametrize("reply, word", [
    ("\n+CPIN: READY\n\nOK\n", "READY"), ("\n+CPIN: SIM PIN\n\nOK\n", "NEED PIN"),
    ("\n+CPIN: PH-SIM PIN\n\nOK\n", "NEED PIN"), ("\n+CPIN: SIM PUK\n\nOK\n", "NEED PUK"), (NO_SIM, "ERROR"),
    ("\n+CPIN: NOT INSERTED\n\nOK\n", ""),
])
def test_the_sim_status(router, reply, word):
    r = router("ec25", ubus=False)
    r.modem().reply("AT+CPIN?", reply)
    assert detail(r, 3)["sim_status"] == word


@pytest.mark.parametrize("reply, iccid", [
    ("\n+QCCID: 89354020000000000017\n\nOK\n", "89354020000000000017"),
    ("\n+QCCID: 893540200000000000175\n\nOK\n", "89354020000000000017"),
    ("\n+QCCID: 8986000000000000025F\n\nOK\n", "8986000000000000025"), (NO_SIM, ""), ("\n\nOK\n", ""),
])
def test_the_iccid_is_what_was_read_though_the_operation_may_have_failed(router, reply, iccid):
    r = router("eg91", ubus=False)
    r.modem().reply("AT+QCCID", reply)
    assert detail(r, 8)["iccid"] == iccid


@pytest.mark.parametrize("content, asked", [("262010000000099\n", False), ("26201", True), (None, True)])
def test_the_imsi_is_the_kept_one_where_there_is_one(router, content, asked):
    r = router("ec25", ubus=False, files={f"{STATE}/cimi": content})
    assert detail(r, 3)["imsi"] == ("262020000000017" if asked else content.strip())
    assert ("AT+CIMI" in r.modem().commands) is asked


@pytest.mark.parametrize("reply, mode", [
    ('\n+QCFG: "nwscanmode",0\n\nOK\n', "AUTO"), ('\n+QCFG: "nwscanmode",1\n\nOK\n', "GSM only"),
    ('\n+QCFG: "nwscanmode",3\n\nOK\n', "LTE only"), ("\nERROR\n", "ERROR"), ('\n+QCFG: "nwscanmode",7\n\nOK\n', ""),
])
def test_the_current_mode(router, reply, mode):
    r = router("ec100y", ubus=False)
    r.modem().reply('AT+QCFG="nwscanmode"', reply)
    assert detail(r, 9)["current_mode"] == mode


@pytest.mark.parametrize("reply", ["\nERROR\n", "\n\nOK\n", '\n+QCFG: "band",0xf,0x1\n\nOK\n'])
def test_bands_that_cannot_be_read_are_an_empty_object(router, reply):
    r = router("bg95", ubus=False)
    r.modem().reply('AT+QCFG="band"', reply)
    info = detail(r, 7)
    assert info["band"] == {} and list(info)[4:] == ["band", "signal"]


def test_the_row_is_the_requests_and_not_that_of_the_modem_on_the_bus(router):
    r = router("ec25", ubus=False)
    info = detail(r, 7)
    assert list(info) == ["iccid", "imsi", "sim_status", "current_mode", "band", "signal"]
    assert "AT+QCCID" in r.modem().commands
    assert list(detail(r, 255)) == ["imsi", "signal"]


def test_of_two_modems_the_one_on_the_bus_is_asked(router):
    r = router(modems={"1-1.2": "ec25", "2-1.2": "ec25"}, ubus=False)
    r.modem("2-1.2").reply("AT+CPIN?", NO_SIM)
    assert detail(r, 3, "2-1.2")["sim_status"] == "ERROR" and r.modem("1-1.2").commands == []
    assert detail(r, 3)["sim_status"] == "READY"


def test_a_modem_that_leaves_the_bus_in_the_middle_leaves_the_rest_empty(router):
    r = router("bg95", ubus=False)
    r.modem().misbehave("drop", after=0)
    info = detail(r, 7)
    assert info == {"iccid": "", "imsi": "", "sim_status": "", "current_mode": "", "band": {}, "signal": ""}
    assert r.modem().commands == ["AT+QCCID"]


# --- /modem/cells/get ---


@pytest.mark.parametrize("name", ["ec20", "ec25", "ep06", "ec200t", "bg95", "eg91", "ec100y"])
def test_the_cells_of_a_quectel_modem_are_those_of_its_reader(router, name):
    r = router(name)
    status, reply = r.api("post", CELLS, {"bus": "1-1.2", "modem_id": MODELS[name].modem_id})
    assert status == 0 and list(reply) == ["cells"] and reply["cells"]
    assert effects(r) == ["AT+QCAINFO", 'AT+QENG="servingcell"', 'AT+QENG="neighbourcell"']
    printed = r.run("vela_modem", "cells").stdout
    assert [list(cell.items()) for cell in reply["cells"]] == [list(cell.items()) for cell in json.loads(printed)]


@pytest.mark.parametrize("name, modem_id", [("uc20", 4), ("simcom7600", 20), ("me3630", 30), ("unknown", 255)])
def test_cells_of_a_model_that_cannot_say(router, name, modem_id):
    r = router(name)
    assert r.api("post", CELLS, {"bus": "1-1.2", "modem_id": modem_id}) == (-17, {})
    assert r.events == []


def test_cells_that_cannot_be_read_are_an_empty_list(router):
    r = router("ec25", ubus=False)
    for command in ("AT+QCAINFO", 'AT+QENG="servingcell"', 'AT+QENG="neighbourcell"'):
        r.modem().reply(command, "\nERROR\n")
    assert r.api("post", CELLS, {"bus": "1-1.2", "modem_id": 3}) == (0, {"cells": []})


def test_cells_of_a_modem_that_leaves_the_bus(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("drop", after=0)
    assert r.api("post", CELLS, {"bus": "1-1.2", "modem_id": 3}) == (0, {"cells": []})
    assert r.modem().commands == ["AT+QCAINFO"]


# --- Inside the web server ---

ONE = {"bus": "1-1.2", "modem_id": 3}


@pytest.mark.shipped
@pytest.mark.parametrize("method, path, request_body", [
    ("get", INFO, {}), ("get", BRIEF, {}), ("get", APP, {}), ("post", DETAIL, ONE), ("post", CELLS, ONE),
], ids=str)
def test_two_hundred_calls_leave_descriptors_children_and_memory_flat(router, method, path, request_body):
    r = router("ec25", uci={"velaconfig": velaconfig("1-1.2", dev1="40", passthrough=ON)})
    r.stand_in("/sbin/ifconfig")
    [[first, second, status]] = host(r, [method, path, request_body, 5, 200])
    assert status == 0
    assert_nothing_is_left(first, second, 200)


@pytest.mark.shipped
def test_calls_that_find_no_modem_leave_nothing_either(router):
    r = router(ubus=False, uci={"velaconfig": velaconfig(*BUSES, passthrough={"enable": "0"})})
    plan = [[*row, 20, 500] for row in (
        ["get", INFO, {}], ["get", BRIEF, {}], ["get", APP, {}], ["post", DETAIL, {**ONE, "modem_id": 8}],
        ["post", CELLS, ONE], ["post", DETAIL, {}], ["post", CELLS, {**ONE, "modem_id": 2}],
        ["post", CELLS, {**ONE, "modem_id": 255}])]
    for (first, second, status), (*_, times), expected in zip(
            host(r, *plan), plan, (-250, -250, -250, 0, 0, -251, -250, -17)):
        assert status == expected
        assert_nothing_is_left(first, second, times)


@pytest.mark.shipped
def test_modems_that_leave_the_bus_leave_nothing_in_the_host(router):
    r = router("ec25", ubus=False)
    r.modem().misbehave("drop", after=0)
    # The first call loses the modem, the others find none.
    [[first, second, status]] = host(r, ["post", DETAIL, ONE, 2, 100])
    assert status == 0 and r.modem().commands == ["AT+CIMI"]
    assert_nothing_is_left(first, second, 100)
