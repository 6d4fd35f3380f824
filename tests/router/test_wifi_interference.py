"""The 2.4 GHz Wi-Fi channel against the modems' LTE bands: reading it, the hint, and the automatic correction."""

import itertools
from typing import Iterator

import pytest
from probe_client import parse, probe, run_probe
from support import ABORTED
from velasim import Router

AUTO, OFF = 0, -1  # of the configured channel
BUS = "1-1.2"
BUSES = ("1-1.2", "1-1.3", "2-1.2")
SERVING = 'AT+QENG="servingcell"'
LEFT_ALONE = ("quillo", "dravik", "soltane")
OTHERS = ("halvor", "ostrel3", "quillo", "dravik", "soltane", "pellin2", "xtamber", "tambe", "")


def ask_iwinfo(device: str) -> str:
    return f"iwinfo {device} info 2>/dev/null | grep Channel | awk '{{print $4}}'"


def iwinfo(channel: object) -> str:
    return (
        'wlan0     ESSID: "vela"\n'
        "          Access Point: 02:00:00:00:00:00\n"
        f"          Mode: Master  Channel: {channel} (2.4 GHz)\n"
        "          Tx-Power: 20 dBm  Link Quality: unknown/70\n"
    )


def option(name: str, value: str | None) -> str:
    return "" if value is None else f"\toption {name} '{value}'\n"


def wireless(channel: str | None = "auto", disabled: str | None = None, guests_disabled: str | None = None,
             number: int = 0) -> str:
    """The configuration of one radio, with its default access point and the guests' one."""
    return (
        f"config wifi-device 'radio{number}'\n\toption hwmode '11g'\n{option('channel', channel)}\n"
        f"config wifi-iface 'default_radio{number}'\n\toption ssid 'vela'\n{option('disabled', disabled)}\n"
        f"config wifi-iface 'guest2g'\n\toption ssid 'guests'\n{option('disabled', guests_disabled)}\n"
    )


def modems(*buses: str, **bands: object) -> str:
    """The configured modems, and the bands that are set for them (dev1=7)."""
    items = "".join(f"\tlist bus '{bus}'\n" for bus in buses)
    return f"config service 'modem'\n{items}" + "".join(option(name, str(band)) for name, band in bands.items())


def configured_channel(r: Router) -> int:
    return probe(r, "wifi-channel")[0]


def automatic_channel(r: Router) -> int:
    return probe(r, "wifi-auto-channel")[0]


def hint(r: Router, *bands: int) -> int:
    return probe(r, "wifi-hint", *(str(band) for band in (*bands, 0, 0)[:3]))[0]


def correct(r: Router) -> None:
    """Runs the command, which says nothing."""
    result = r.run("vela_modem", "wifi_lte_interference")
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")


def channel_of(r: Router, number: int = 0) -> str:
    return r.run("uci", "-q", "get", f"wireless.radio{number}.channel").stdout.removesuffix("\n")


def effects(r: Router) -> list[str]:
    """The shell commands that concern the Wi-Fi."""
    return [command for command in r.commands if command.startswith(("iwinfo", "wifi"))]


@pytest.fixture(scope="module")
def pellin() -> Iterator[Router]:
    """A board with the first radio, and no modem."""
    with Router(ubus=False) as r:
        yield r


# Whether the Wi-Fi is on


STATES = (None, "", "0", "1", "2", "11", "true")


@pytest.mark.parametrize("disabled", STATES)
def test_the_wifi_is_off_only_where_both_access_points_are(pellin, disabled):
    pellin.answer("iwinfo", iwinfo(4))
    for guests_disabled in STATES:
        off = disabled == guests_disabled == "1"
        pellin.write("/etc/config/wireless", wireless("11", disabled, guests_disabled))
        assert configured_channel(pellin) == (OFF if off else 11), guests_disabled
        assert automatic_channel(pellin) == -1, guests_disabled
        pellin.write("/etc/config/wireless", wireless("auto", disabled, guests_disabled))
        assert configured_channel(pellin) == (OFF if off else AUTO), guests_disabled
        pellin.clear_events()
        assert automatic_channel(pellin) == (-1 if off else 4), guests_disabled
        device = "wlan1" if disabled == "1" else "wlan0"
        assert pellin.commands == ([] if off else [ask_iwinfo(device)]), guests_disabled


def test_the_guests_alone_keep_it_on(pellin):
    text = wireless("11", "1", "0").split("config wifi-iface 'guest2g'")[0]
    pellin.write("/etc/config/wireless", text)  # no such access point: it is not disabled either
    assert configured_channel(pellin) == 11


def test_only_the_radio_s_own_access_point_counts(pellin):
    pellin.write("/etc/config/wireless", wireless("1", "0", "1") + wireless("2", "1", "1", number=1))
    assert configured_channel(pellin) == 1


# The channel that is set


@pytest.mark.parametrize("value, channel", [
    ("auto", AUTO), ("", AUTO), (None, AUTO), ("1", 1), ("6", 6), ("11", 11), ("13", 13), ("0", 0), ("-4", -4),
    ("+5", 5), (" 7", 7), ("007", 7), ("6 ", 6), ("6abc", 6), ("11,1", 11), ("abc", 0), ("Auto", 0), ("auto ", 0),
    ("0x6", 0), ("2147483647", 2147483647), ("2147483648", 2147483647), ("4294967297", 2147483647),
    ("999999999999999", 2147483647), ("-99999999999999", -2147483648), ("\xff", 0),
])
def test_the_channel_that_is_set(pellin, value, channel):
    pellin.answer("iwinfo", iwinfo(9))
    pellin.write("/etc/config/wireless", wireless(value))
    pellin.clear_events()
    assert configured_channel(pellin) == channel
    assert pellin.events == []
    # To the radio anything but "auto" is a channel, whatever number it is read as.
    automatic = value in ("auto", "", None)
    assert automatic_channel(pellin) == (9 if automatic else -1)
    assert pellin.commands == ([ask_iwinfo("wlan0")] if automatic else [])


@pytest.mark.parametrize("text", [None, "", "config wifi-device 'radio1'\n\toption channel '3'\n",
                                  "config wifi-device 'radio0'\n\tlist channel '3'\n", "\xff\0config '"])
def test_a_configuration_without_the_channel_counts_as_automatic(router, text):
    r = router(ubus=False, uci={"wireless": text})
    r.answer("iwinfo", iwinfo(11))
    assert configured_channel(r) == AUTO
    assert automatic_channel(r) == 11


@pytest.mark.parametrize("name", ["channel", "disabled", "guests_disabled"])
def test_a_value_of_15_characters_is_read_and_a_longer_one_is_none(pellin, name):
    state = {"disabled": "1"} | {name: "1" * 15}
    pellin.write("/etc/config/wireless", wireless(**state))
    assert run_probe(pellin, "wifi-channel").returncode == 0
    pellin.write("/etc/config/wireless", wireless(**state | {name: "1" * 16}))
    assert run_probe(pellin, "wifi-channel").returncode == ABORTED
    assert run_probe(pellin, "wifi-auto-channel").returncode == ABORTED


# The board's radio


@pytest.mark.parametrize("board, number, device, guest_device", [
    ("tamber", 0, "wlan0", "wlan1"), ("pellin", 0, "wlan0", "wlan1"),
    *((board, 1, "wlan1", "wlan3") for board in OTHERS),
])
def test_the_radio_of_each_board(router, board, number, device, guest_device):
    other = 1 - number
    # The other radio is off, and has a channel of its own.
    text = wireless("3", number=number) + wireless("9", "1", number=other)
    r = router(board=board, ubus=False, uci={"wireless": text})
    r.answer("iwinfo", "#!/bin/dash\necho \"  Mode: Master  Channel: ${1#wlan} \"\n", executable=True)
    assert configured_channel(r) == 3
    assert automatic_channel(r) == -1
    r.clear_events()
    assert probe(r, "wifi-set", "8")[0] == 0
    assert (channel_of(r, number), channel_of(r, other)) == ("8", "9")
    assert r.commands == []
    for disabled, expected in ((None, device), ("1", guest_device)):
        r.write("/etc/config/wireless", wireless("auto", disabled, number=number) + wireless("9", number=other))
        r.clear_events()
        assert automatic_channel(r) == int(expected.removeprefix("wlan"))
        assert r.commands == [ask_iwinfo(expected)]
        assert r.programs == [["iwinfo", expected, "info"]]


# The channel that the radio chose


@pytest.mark.parametrize("text, channel", [
    (iwinfo(1), 1), (iwinfo(13), 13), (iwinfo("unknown"), 0), (iwinfo(-3), -3), (iwinfo("6abc"), 6), ("", 0),
    ("No such wireless device: wlan0\n", 0), (iwinfo(6) + iwinfo(7), 6), ("\n  Mode: Master  Channel: 5", 5),
    ("Channel\n", 0), ("Channel: 5\n" + iwinfo(7), 0), ('wlan0  ESSID: "a Channel 4"\n' + iwinfo(7), 0),
    (iwinfo("4294967307"), 2147483647), (iwinfo("9" * 100000), 2147483647), (iwinfo("0" * 15 + "6"), 0),
], ids=lambda value: repr(value)[-30:])
def test_the_channel_in_use(pellin, text, channel):
    pellin.write("/etc/config/wireless", wireless())
    pellin.answer("iwinfo", text)
    assert automatic_channel(pellin) == channel


@pytest.mark.parametrize("text", ["x\0" * 100 + iwinfo(6), b"  Mode: Master  Channel: \xff\xfe\n"],
                         ids=lambda text: repr(text)[:20])
def test_what_is_no_text_has_no_channel_for_grep(pellin, text):
    pellin.write("/etc/config/wireless", wireless())
    pellin.answer("iwinfo", text)
    result = run_probe(pellin, "wifi-auto-channel")
    assert (result.returncode, parse(result)) == (0, (0, {}))  # grep says so on standard error


def test_without_iwinfo_the_channel_in_use_is_unknown(router):
    r = router("ec25", ubus=False, uci={"velaconfig": modems(BUS, dev1=7)})
    r.remove("/usr/bin/iwinfo")
    assert automatic_channel(r) == 0
    correct(r)
    assert "wifi reload" not in r.commands and channel_of(r) == "auto"


# Setting it


@pytest.mark.parametrize("channel", ["1", "6", "11", "0", "-1", "2147483647", "-2147483648"])
def test_setting_a_channel_changes_nothing_else(router, channel):
    text = "# by hand\n" + wireless("auto", "0", "1") + "config wifi-iface\n\toption ssid 'Gr\u00fc\u00dfe'\n"
    r = router(ubus=False, uci={"wireless": text})
    before = r.run("uci", "show", "wireless").stdout
    others = {name: r.read_bytes(f"/etc/config/{name}") for name in r.listdir("/etc/config") if name != "wireless"}
    assert probe(r, "wifi-set", channel)[0] == 0
    after = r.run("uci", "show", "wireless").stdout
    assert after == before.replace("wireless.radio0.channel='auto'", f"wireless.radio0.channel='{channel}'")
    assert channel_of(r) == channel
    assert r.run("uci", "changes").stdout == ""
    assert {name: r.read_bytes(f"/etc/config/{name}") for name in others} == others
    assert r.listdir("/etc/config") == sorted([*others, "wireless"])
    assert r.events == []


@pytest.mark.parametrize("text", [None, "", "config wifi-device 'radio1'\n\toption channel '3'\n"])
def test_a_radio_that_is_not_configured_is_not_made_up(router, text):
    r = router(ubus=False, uci={"wireless": text})
    assert probe(r, "wifi-set", "1")[0] == 0
    assert channel_of(r) == ""
    assert r.exists("/etc/config/wireless") == (text is not None)
    assert "radio0" not in (r.read("/etc/config/wireless") if text is not None else "")


# The hint


@pytest.mark.parametrize("channel, expected", [("1", 11), ("6", 0), ("11", 0), ("2", 0)])
def test_the_hint_for_one_modem_on_band_40(pellin, channel, expected):
    pellin.write("/etc/config/wireless", wireless(channel))
    for bands in itertools.permutations((40, 0, 0)):
        assert hint(pellin, *bands) == expected


@pytest.mark.parametrize("channel, expected", [("1", 0), ("6", 0), ("11", 1), ("12", 0)])
def test_the_hint_for_one_modem_on_band_7(pellin, channel, expected):
    pellin.write("/etc/config/wireless", wireless(channel))
    for bands in itertools.permutations((7, 0, 3)):
        assert hint(pellin, *bands) == expected


@pytest.mark.parametrize("channel, expected", [("1", 6), ("6", 0), ("11", 6)])
def test_the_hint_for_modems_on_bands_7_and_40(pellin, channel, expected):
    pellin.write("/etc/config/wireless", wireless(channel))
    for bands in itertools.permutations((7, 40, 3)):
        assert hint(pellin, *bands) == expected
    assert hint(pellin, 3, 70, 407) == 0


@pytest.mark.parametrize("state", [
    {"channel": "auto"}, {"channel": ""}, {"channel": None}, {"channel": "-1"}, {"channel": "abc"},
    {"channel": "1", "disabled": "1", "guests_disabled": "1"},
], ids=str)
def test_no_hint_for_an_automatic_channel_and_for_wifi_that_is_off(pellin, state):
    pellin.answer("iwinfo", iwinfo(1))
    pellin.write("/etc/config/wireless", wireless(**state))
    pellin.clear_events()
    for bands in ((40,), (7,), (7, 40)):
        assert hint(pellin, *bands) == 0
    assert pellin.events == []


def test_the_hint_with_the_guests_alone(pellin):
    pellin.write("/etc/config/wireless", wireless("11", "1", "0"))
    assert hint(pellin, 0, 7, 0) == 1


@pytest.mark.parametrize("board", LEFT_ALONE)
def test_the_hint_is_there_on_boards_whose_wifi_is_left_alone(router, board):
    r = router(board=board, ubus=False, uci={"wireless": wireless("1", number=1)})
    assert hint(r, 40) == 11


# The automatic correction


def test_one_modem_on_band_7_and_the_radio_on_channel_11(router):
    r = router("ec25", ubus=False, uci={"wireless": wireless("auto", "0")})
    r.modem().reply(SERVING, '\n+QENG: "servingcell","NOCONN","LTE","FDD",262,02,2A1B21,193,3100,7,5,5,2A1C,-109,'
                    "-9,-80,13,29\n\nOK\n")
    r.answer("iwinfo", iwinfo(11))
    # The Wi-Fi restarts with the new channel in its configuration.
    r.answer("wifi", "#!/bin/dash\ngrep channel /etc/config/wireless >/tmp/seen_by_wifi\n", executable=True)
    correct(r)
    effects_in_order = [event for event in r.events if event.get("command") == SERVING
                        or "iwinfo" in str(event) or "wifi" in str(event)]
    assert effects_in_order == [
        {"kind": "at", "bus": BUS, "port": "ttyUSB2", "command": SERVING},
        {"kind": "shell", "command": ask_iwinfo("wlan0")},
        {"kind": "program", "argv": ["iwinfo", "wlan0", "info"]},
        {"kind": "shell", "command": "wifi reload"},
        {"kind": "program", "argv": ["wifi", "reload"]},
    ]
    assert r.read("/tmp/seen_by_wifi") == "\toption channel '1'\n"
    assert r.read("/etc/config/wireless").replace("'1'", "'auto'", 1).split() == wireless("auto", "0").split()
    assert r.run("uci", "changes").stdout == ""


def corrected(router, channel: object, band: object, **options: object) -> Router:
    """A router with one modem that is known to be on the band, after the command."""
    r = router("ec25", **{"ubus": False, "uci": {"velaconfig": modems(BUS, dev1=band), **options.pop("uci", {})},
                          **options})
    r.answer("iwinfo", iwinfo(channel))
    correct(r)
    assert SERVING not in r.modem().commands
    return r


@pytest.mark.parametrize("band, channel, expected", [
    (40, 1, "11"), (40, 2, None), (40, 6, None), (40, 11, None), (7, 1, None), (7, 6, None), (7, 11, "1"),
    (7, 12, None), (3, 1, None), (3, 11, None), (0, 1, None), (407, 1, None), ("40abc", 1, "11"), ("x", 1, None),
    (40, "unknown", None), (40, -1, None),
])
def test_the_rule_for_one_modem(router, band, channel, expected):
    r = corrected(router, channel, band)
    assert channel_of(r) == (expected or "auto")
    assert effects(r) == [ask_iwinfo("wlan0"), *(["wifi reload"] if expected else [])]


def test_band_40_and_the_radio_on_channel_2_change_nothing_at_all(router):
    text = wireless("auto")
    r = corrected(router, 2, 40, uci={"wireless": text})
    assert effects(r) == [ask_iwinfo("wlan0")]
    assert r.read("/etc/config/wireless") == text


def test_a_second_run_leaves_the_channel_where_it_is(router):
    r = corrected(router, 1, 40)
    assert channel_of(r) == "11"
    r.answer("iwinfo", iwinfo(1))  # the radio has not restarted yet
    r.clear_events()
    correct(r)
    assert r.events == [] and channel_of(r) == "11"


@pytest.mark.parametrize("board, number, device", [("pellin", 0, "wlan1"), ("tamber", 0, "wlan1"),
                                                   ("halvor", 1, "wlan3"), ("ostrel3", 1, "wlan3")])
def test_with_the_guests_alone_the_channel_in_use_is_read_from_their_device(router, board, number, device):
    r = corrected(router, 11, 7, board=board, uci={"wireless": wireless("auto", "1", "0", number)})
    assert effects(r) == [ask_iwinfo(device), "wifi reload"]
    assert channel_of(r, number) == "1"


@pytest.mark.parametrize("state", [
    {"channel": "1"}, {"channel": "11"}, {"channel": "-3"},
    {"channel": "auto", "disabled": "1", "guests_disabled": "1"},
], ids=str)
def test_a_channel_that_is_set_and_wifi_that_is_off_are_left_alone(router, state):
    r = corrected(router, 1, 40, uci={"wireless": wireless(**state)})
    assert r.events == []
    assert r.read("/etc/config/wireless") == wireless(**state)


@pytest.mark.parametrize("value", ["abc", "0", "Auto"])
def test_a_channel_that_is_no_number_is_left_alone(router, value):
    r = corrected(router, 1, 40, uci={"wireless": wireless(value)})
    assert effects(r) == [] and channel_of(r) == value


@pytest.mark.parametrize("value", ["", None])
def test_an_empty_channel_is_an_automatic_one(router, value):
    r = corrected(router, 1, 40, uci={"wireless": wireless(value)})
    assert effects(r)[-1] == "wifi reload" and channel_of(r) == "11"


@pytest.mark.parametrize("board", LEFT_ALONE)
def test_boards_whose_wifi_is_left_alone(router, board):
    text = wireless("auto", number=1)
    r = corrected(router, 1, 40, board=board, uci={"wireless": text})
    assert r.events == [] and r.read("/etc/config/wireless") == text


@pytest.mark.parametrize("board", ["xquillo", "dravik2", "soltan", "halvor"])
def test_boards_of_a_similar_name_are_not(router, board):
    r = corrected(router, 1, 40, board=board, uci={"wireless": wireless("auto", number=1)})
    assert channel_of(r, 1) == "11"


def test_a_restart_that_fails_is_not_told(router):
    r = router("ec25", ubus=False, uci={"velaconfig": modems(BUS, dev1=40)})
    r.answer("iwinfo", iwinfo(1))
    r.answer("wifi", "#!/bin/dash\necho no radio\necho no radio >&2\nexit 3\n", executable=True)
    result = r.run("vela_modem", "wifi_lte_interference")
    assert (result.returncode, result.stdout) == (0, "")
    assert channel_of(r) == "11"


def test_without_a_modem_on_the_bus_the_command_does_nothing(router):
    r = router(modems={"2-1.2": "ec25"}, ubus=False, uci={"velaconfig": modems("2-1.2", dev1=40)})
    r.answer("iwinfo", iwinfo(1))
    correct(r)
    assert r.events == [] and channel_of(r) == "auto"
    # Any modem that the command is told of will do; the configured ones count.
    assert r.run("vela_modem", "-B", "2-1.2", "wifi_lte_interference").returncode == 0
    assert channel_of(r) == "11"


# The configured modems

THREE = {"1-1.2": "ec25", "1-1.3": "ec20", "2-1.2": "eg91"}


@pytest.mark.parametrize("count", range(4))
@pytest.mark.parametrize("band, channel, expected", [(40, 1, "11"), (7, 11, "1"), (3, 1, None)])
def test_some_of_three_configured_modems_are_there(router, count, band, channel, expected):
    for there in itertools.combinations(BUSES, count):
        r = router(modems={bus: THREE[bus] for bus in there}, ubus=False,
                   uci={"velaconfig": modems(*BUSES, dev1=band, dev2=band, dev3=band)})
        r.answer("iwinfo", iwinfo(channel))
        assert probe(r, "wifi-move")[0] == 0
        moved = expected is not None and count > 0
        assert channel_of(r) == (expected if moved else "auto"), there
        assert effects(r) == ([] if count == 0 else [ask_iwinfo("wlan0")]) + (["wifi reload"] if moved else []), there
        asked = {event["bus"] for event in r.events if event["kind"] == "at"}
        assert asked == {*there}
        r.close()


@pytest.mark.parametrize("position", range(3))
def test_a_band_belongs_to_the_modem_at_its_position(router, position):
    bands = {f"dev{number}": "40" if number == position + 1 else "3" for number in (1, 2, 3)}
    r = router(modems=THREE, ubus=False, uci={"velaconfig": modems(*BUSES, **bands)})
    r.answer("iwinfo", iwinfo(1))
    correct(r)
    assert channel_of(r) == "11"
    r.modem(BUSES[position]).unplug()
    r.write("/etc/config/wireless", wireless())
    r.clear_events()
    probe(r, "wifi-move")
    assert effects(r) == [ask_iwinfo("wlan0")]  # its band is not counted
    assert channel_of(r) == "auto"


def test_modems_on_bands_7_and_40_together(router):
    r = router(modems=THREE, ubus=False, uci={"velaconfig": modems(*BUSES, dev1="7", dev2="3", dev3="40")})
    r.answer("iwinfo", iwinfo(11))
    correct(r)
    assert channel_of(r) == "6"


def test_the_buses_are_asked_in_their_order_and_a_fourth_is_not(router):
    buses = ("2-1.2", "1-1.3", "1-1.2")
    r = router(modems={**THREE, "1-1.4": "ec25"}, ubus=False, uci={"velaconfig": modems(*buses, "1-1.4")})
    r.answer("iwinfo", iwinfo(1))
    probe(r, "wifi-move")
    asked = [event["bus"] for event in r.events if event["kind"] == "at"]
    assert [bus for bus, _ in itertools.groupby(asked)] == [*buses]
    assert [event["bus"] for event in r.events if event.get("command") == SERVING] == [*buses]
    assert channel_of(r) == "11"  # the EC20's own band is 40


def test_an_empty_entry_is_passed_over_and_keeps_its_position(router):
    r = router(modems={"1-1.3": "ec20"}, ubus=False, uci={"velaconfig": modems("", "1-1.3", dev1="40", dev2="7")})
    r.answer("iwinfo", iwinfo(11))
    probe(r, "wifi-move")
    assert channel_of(r) == "1"


@pytest.mark.parametrize("text", [
    None, "", "config service 'modem'\n", "config service 'modem'\n\toption bus '1-1.2'\n",
])
def test_without_a_configured_modem_nothing_is_done(router, text):
    r = router("ec20", ubus=False, uci={"velaconfig": text})
    r.answer("iwinfo", iwinfo(1))
    correct(r)
    assert r.events == [] and channel_of(r) == "auto"


@pytest.mark.parametrize("reply", [
    "\nERROR\n", '\n+QENG: "servingcell","SEARCH"\n\nOK\n', b"\xff" * 3000 + b"\r\nOK\r\n", "\nOK\n",
], ids=lambda reply: repr(reply[:12]))
def test_a_modem_whose_band_is_unknown_changes_nothing(router, reply):
    r = router("ec25", ubus=False)
    r.answer("iwinfo", iwinfo(1))
    r.modem().reply(SERVING, reply)
    correct(r)
    assert effects(r) == [ask_iwinfo("wlan0")] and channel_of(r) == "auto"


def test_modems_without_a_quectel_dialect_have_no_band(router):
    for name in ("simcom7600", "me3630"):
        r = router(name, ubus=False)
        r.answer("iwinfo", iwinfo(1))
        correct(r)
        assert effects(r) == [ask_iwinfo("wlan0")] and channel_of(r) == "auto"
