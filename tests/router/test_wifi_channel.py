"""The command `wifi_lte_interference`: moves an automatically chosen Wi-Fi channel away from the modems' LTE bands."""

import itertools

import pytest
from probe_client import probe
from router_config import (
    BUSES, EC25_CARRIER, EC25_STATUS, KNOWN_SIMS, NO_DEVICE, QUIET, SERVING,
    carrier_lookup, effects, exchange, interfaces, serving_lte, velaconfig, wireless,
)  # fmt: skip
from velasim import Router

COMMAND = "wifi_lte_interference"
RELOAD = [("shell", "wifi reload"), ("program", "wifi", "reload")]
RULE = {  # which of the bands 7 and 40 are present: the channel in use and the better one
    (False, False): {}, (True, False): {11: 1}, (False, True): {1: 11}, (True, True): {1: 6, 11: 6},
}


def ask(interface: str) -> list[tuple]:
    """The channel in use is asked of that interface."""
    return [("shell", f"iwinfo {interface} info 2>/dev/null | grep Channel | awk '{{print $4}}'"),
            ("program", "iwinfo", interface, "info")]


def iwinfo(channel: object) -> str:
    return (
        'wlan0     ESSID: "vela"\n          Access Point: 02:00:00:00:00:01\n'
        f"          Mode: Master  Channel: {channel} (2.412 GHz)  HT Mode: HT20\n"
        "          Center Channel 1: 7 2: unknown\n          Tx-Power: 20 dBm  Link Quality: unknown/70\n")


def run(r: Router, *bus: str) -> list[tuple]:
    """Runs the command, which never prints anything; what it did."""
    r.clear_events()
    result = r.run("vela_modem", *bus, COMMAND)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    return effects(r)


def channel_of(r: Router, radio: str = "radio0") -> str:
    result = r.run("/sbin/uci", "-q", "get", f"wireless.{radio}.channel")
    return result.stdout.removesuffix("\n")


def corrected(done: list[tuple]) -> bool:
    return done[-2:] == RELOAD


def quiet(router, *bands: str, channel: object = 1, config: str | None = None, **options: object) -> Router:
    """Up to three modems that are on these bands by configuration, and an automatic channel."""
    devices = {f"dev{number}": band for number, band in enumerate(bands, 1)}
    uci = {"velaconfig": config or velaconfig(*BUSES[:len(bands)], **devices),
           "wireless": wireless("radio0", channel="auto"), **options.pop("uci", {})}
    r = router(**{**QUIET, **options}, files=KNOWN_SIMS, uci=uci)
    r.answer("iwinfo", iwinfo(channel))
    return r


def only_wifi(done: list[tuple]) -> list[tuple]:
    return [event for event in done if event[1].startswith(("iwinfo", "wifi"))]


# What it does, from beginning to end


def test_band_7_and_automatic_channel_11(router):
    r = router("ep06", ubus=False, uci={"wireless": wireless("radio0", channel="auto")})  # its serving cell: band 7
    r.answer("iwinfo", iwinfo(11))
    done = run(r)
    assert done[-5:] == [exchange(SERVING), *ask("wlan0"), *RELOAD]
    assert channel_of(r) == "1"
    assert "option channel '1'" in r.read("/etc/config/wireless")


def test_band_40_and_automatic_channel_1(router):
    r = router("ec20", ubus=False, uci={"wireless": wireless("radio0", channel="auto")})  # its serving cell: band 40
    r.answer("iwinfo", iwinfo(1))
    assert corrected(run(r)) and channel_of(r) == "11"


def test_what_is_done_in_its_order(router):
    r = router("ec25", ubus={"interfaces": {"modem_1_1_2": "up"}}, uci={"wireless": wireless("radio0", channel="auto")})
    r.answer("iwinfo", iwinfo(1))
    r.modem().reply(SERVING, serving_lte(40))
    detection = [exchange("ATI"), exchange("AT+GSN"), *EC25_CARRIER, *EC25_STATUS]
    assert run(r) == [*detection, exchange(SERVING), *ask("wlan0"), *RELOAD]
    assert r.listdir("/tmp/modem.1-1.2") == ["cimi", "modem-imei", "modem-name"]
    # From now on the channel is a fixed one, which is the user's affair.
    assert channel_of(r) == "11" and run(r) == []


def test_with_the_band_by_configuration_the_modem_is_not_asked_for_it(router):
    r = router("ec25", ubus={"interfaces": {"modem_1_1_2": "up"}}, uci={
        "velaconfig": velaconfig("1-1.2", dev1="40"), "wireless": wireless("radio0", channel="auto")})
    r.answer("iwinfo", iwinfo(1))
    done = run(r)
    assert exchange(SERVING) not in done and done[-4:] == [*ask("wlan0"), *RELOAD]


def test_nothing_but_the_channel_is_changed(router):
    r = quiet(router, "40", channel=1)
    before = {name: r.read(f"/etc/config/{name}") for name in r.listdir("/etc/config")}
    assert corrected(run(r))
    after = {name: r.read(f"/etc/config/{name}") for name in r.listdir("/etc/config")}
    assert {name for name in before if before[name] != after[name]} == {"wireless"} and before.keys() == after.keys()
    assert r.run("/sbin/uci", "changes").stdout == ""
    assert [r.run("/sbin/uci", "-q", "get", f"wireless.{option}").stdout for option in (
        "radio0", "radio0.type", "radio1.channel", "default_radio0.device", "guest2g")] == [
        "wifi-device\n", "mac80211\n", "36\n", "radio0\n", "wifi-iface\n"]


def test_a_wifi_that_cannot_be_reloaded_keeps_the_new_channel(router):
    r = quiet(router, "40", channel=1)
    r.answer("wifi", "#!/bin/dash\necho no; exit 1\n", executable=True)
    assert corrected(run(r)) and channel_of(r) == "11"


# The rule


@pytest.mark.parametrize("present, bands", [
    ((False, False), ("3", "20", "0")), ((True, False), ("7", "3", "3")), ((True, False), ("3", "3", "7")),
    ((False, True), ("40", "3", "3")), ((False, True), ("3", "40", "40")), ((True, True), ("7", "40", "3")),
    ((True, True), ("40", "3", "7")),
], ids=str)
def test_the_whole_rule(router, present, bands):
    r = quiet(router, *bands)
    for channel in range(1, 14):
        r.write("/etc/config/wireless", wireless("radio0", channel="auto"))
        r.answer("iwinfo", iwinfo(channel))
        done = run(r)
        better = RULE[present].get(channel)
        assert only_wifi(done) == [*ask("wlan0"), *(RELOAD if better else [])], channel
        assert channel_of(r) == (str(better) if better else "auto"), channel


def test_band_40_and_automatic_channel_2(router):
    r = quiet(router, "40", channel=2)
    before = r.read_bytes("/etc/config/wireless")
    assert only_wifi(run(r)) == ask("wlan0")
    assert r.read_bytes("/etc/config/wireless") == before


@pytest.mark.parametrize("output", [
    None, "", "\n", "Channel\n", "Mode: Master  Channel: unknown (unknown)\n", "No such wireless device: wlan0\n",
    iwinfo("unknown"), iwinfo(-1), iwinfo(0), iwinfo(36), iwinfo("x1"), "Channel: 1\n", "a b c d Channel 1\n",
    "Channel: 5 GHz 6\n" + iwinfo(1),  # the first line counts
], ids=lambda text: repr(text)[:50])
def test_a_channel_that_cannot_be_read_or_is_not_in_the_rule_changes_nothing(router, output):
    r = quiet(router, "40", "7")
    r.remove("/run/sim/answers/iwinfo")
    if output is not None:
        r.answer("iwinfo", output)
    assert only_wifi(run(r)) == ask("wlan0") and channel_of(r) == "auto"


# When it does nothing at all


@pytest.mark.parametrize("channel", ["1", "6", "11", "2", "13", "36"])
def test_a_fixed_channel_is_left_alone_and_no_modem_is_asked(router, channel):
    r = router("ep06", ubus=False, uci={"wireless": wireless("radio0", channel=channel)})
    r.answer("iwinfo", iwinfo(channel))
    assert run(r) == [] and channel_of(r) == channel


@pytest.mark.parametrize("channel", ["auto", "", None])
def test_an_automatic_channel_is_auto_or_none(router, channel):
    r = quiet(router, "40", channel=1, uci={"wireless": wireless("radio0", channel=channel)})
    assert corrected(run(r)) and channel_of(r) == "11"


@pytest.mark.parametrize("disabled, guest, interface", [
    (None, None, "wlan0"), ("0", None, "wlan0"), ("0", "1", "wlan0"), ("", "1", "wlan0"), (None, "1", "wlan0"),
    ("1", "0", "wlan1"), ("1", None, "wlan1"), ("1", "", "wlan1"), ("1", "1", None),
])
@pytest.mark.parametrize("board", ["pellin", "tamber", "halvor", "other"])
def test_the_interface_depends_on_the_board_and_on_which_access_point_is_on(router, board, disabled, guest, interface):
    radio = "radio0" if board in ("pellin", "tamber") else "radio1"
    if radio == "radio1":
        interface = {"wlan0": "wlan1", "wlan1": "wlan3"}.get(interface)
    r = quiet(router, "40", channel=1, board=board, uci={
        "wireless": wireless(radio, channel="auto", disabled=disabled, guest=guest)})
    done = run(r)
    if interface is None:  # the Wi-Fi is off
        assert only_wifi(done) == [] and channel_of(r, radio) == "auto"
    else:
        assert only_wifi(done) == [*ask(interface), *RELOAD] and channel_of(r, radio) == "11"


def test_while_the_wifi_is_off_no_modem_is_asked(router):
    r = router("ep06", ubus=False, uci={"wireless": wireless("radio0", channel="auto", disabled="1", guest="1")})
    assert run(r) == []


@pytest.mark.parametrize("board, radio", [
    ("pellin", "radio0"), ("tamber", "radio0"), ("halvor", "radio1"), ("ostrel3", "radio1"), ("other", "radio1"),
    ("pellin2", "radio1"), ("xtamber", "radio1"),
])
def test_the_radio_depends_on_the_board(router, board, radio):
    other = "radio1" if radio == "radio0" else "radio0"
    r = quiet(router, "7", channel=11, board=board, uci={"wireless": wireless(radio, channel="auto")})
    assert corrected(run(r))
    assert (channel_of(r, radio), channel_of(r, other)) == ("1", "36")


@pytest.mark.parametrize("board", ["quillo", "dravik", "soltane"])
def test_three_boards_do_nothing(router, board):
    r = router("ep06", board=board, ubus=False, uci={"wireless": wireless("radio1", channel="auto")})
    r.answer("iwinfo", iwinfo(11))
    assert run(r) == [] and channel_of(r, "radio1") == "auto"


@pytest.mark.parametrize("board", ["quillo2", "xdravik", "soltane3", "ostrel3"])
def test_boards_of_similar_names_are_corrected(router, board):
    r = quiet(router, "40", channel=1, board=board, uci={"wireless": wireless("radio1", channel="auto")})
    assert corrected(run(r)) and channel_of(r, "radio1") == "11"


def test_a_dravik_gets_its_advice_all_the_same(router):
    r = quiet(router, "40", channel=1, board="dravik", uci={"wireless": wireless("radio1", channel="1")})
    assert r.api("get", "/modem/info")[1]["hint_modify_wifi_channel"] == 11
    r.write("/etc/config/wireless", wireless("radio1", channel="auto"))
    assert only_wifi(run(r)) == [] and channel_of(r, "radio1") == "auto"


# Which modems count


def test_the_command_needs_a_modem_on_its_own_bus(router):
    r = router(modems={"1-1.3": "ep06"}, ubus=False, uci={
        "velaconfig": velaconfig("1-1.3"), "wireless": wireless("radio0", channel="auto")})
    r.answer("iwinfo", iwinfo(11))
    assert run(r) == [] and channel_of(r) == "auto"
    done = run(r, "-B", "1-1.3")
    assert corrected(done) and channel_of(r) == "1"
    assert done[-5] == exchange(SERVING, "1-1.3")


def test_the_modems_are_those_of_the_list_not_that_of_the_command(router):
    r = router(modems={"1-1.2": "ep06", "1-1.3": "simcom7600"}, ubus=False, uci={
        "velaconfig": velaconfig("1-1.3", dev1="40"), "wireless": wireless("radio0", channel="auto")})
    r.answer("iwinfo", iwinfo(1))
    done = run(r)
    assert corrected(done) and channel_of(r) == "11"  # not 6, as with band 7
    assert {event[1] for event in done if event[0] == "at"} == {"1-1.3"}


@pytest.mark.parametrize("config", [
    None, "", velaconfig(), velaconfig("", "", ""), velaconfig(NO_DEVICE), velaconfig("2-1.2", "", NO_DEVICE, "1-1.2"),
    velaconfig("..", "*", "$(reboot)"),
], ids=repr)
def test_without_a_modem_on_the_first_three_buses_of_the_list_nothing_is_done(router, config):
    r = router("ep06", ubus=False, uci={"velaconfig": config, "wireless": wireless("radio0", channel="auto")})
    r.answer("iwinfo", iwinfo(11))
    assert run(r) == [] and channel_of(r) == "auto"


@pytest.mark.parametrize("order, bands, better", [
    (("", "1-1.2"), {"dev1": "7", "dev2": "40"}, "11"), (("", "", "1-1.2"), {"dev3": "40"}, "11"),
    ((NO_DEVICE, "1-1.2"), {"dev1": "7", "dev2": "40"}, "11"),
    (("1-1.2", "", "1-1.3"), {"dev1": "7", "dev3": "40"}, "6"),
    (("1-1.2", NO_DEVICE, "1-1.3"), {"dev1": "3", "dev2": "7", "dev3": "40"}, "11"),
    (("1-1.2", "1-1.3", "2-1.2", "1-1.2"), {"dev1": "3", "dev2": "3", "dev3": "40"}, "11"),
    (("1-1.2", "1-1.3", "2-1.2"), {"dev1": "3", "dev2": "40", "dev3": "3"}, "11"),
], ids=str)
def test_bands_belong_to_positions(router, order, bands, better):
    r = quiet(router, config=velaconfig(*order, **bands), channel=1)
    assert corrected(run(r)) and channel_of(r) == better


def test_three_modems_are_detected_in_the_order_of_the_list(router):
    r = router(modems={"1-1.2": "ec20", "1-1.3": "ep06", "2-1.2": "simcom7600"}, ubus=False, uci={
        "velaconfig": velaconfig("2-1.2", "1-1.3", "1-1.2"), "wireless": wireless("radio0", channel="auto")})
    r.answer("iwinfo", iwinfo(11))
    done = run(r)
    asked = [event[1] for event in done if event[0] == "at"]
    assert sorted(asked, key=["2-1.2", "1-1.3", "1-1.2"].index) == asked
    assert corrected(done) and channel_of(r) == "6"


def test_a_device_in_no_list_counts_as_a_modem(router):
    r = quiet(router, "40", channel=1)
    # Detected twice: once for the command, and once for the list.
    assert run(r) == [carrier_lookup("206010")] * 2 + [*ask("wlan0"), *RELOAD] and channel_of(r) == "11"


@pytest.mark.parametrize("disabled", ["0", "1"])
def test_a_disabled_modem_counts(router, disabled):
    r = quiet(router, "40", channel=1, uci={"network": interfaces(modem_1_1_2=disabled)})
    assert corrected(run(r)) and channel_of(r) == "11"


def test_a_modem_whose_sim_is_at_fault_counts(router):
    r = router("ec20", ubus=False, uci={"wireless": wireless("radio0", channel="auto")})
    r.modem().reply("AT+CPIN?", "\n+CME ERROR: 10\n")
    r.answer("iwinfo", iwinfo(1))
    assert corrected(run(r)) and channel_of(r) == "11"


@pytest.mark.parametrize("reply", [
    "\nERROR\n", "\nOK\n", serving_lte(41), serving_lte(1), serving_lte(40).replace("LTE", "WCDMA"),
    '\n+QENG: "servingcell","SEARCH"\n\nOK\n',
], ids=lambda text: repr(text)[:40])
def test_a_band_that_is_not_told_is_none(router, reply):
    r = router("ec20", ubus=False, uci={"wireless": wireless("radio0", channel="auto")})
    r.modem().reply(SERVING, reply)
    r.answer("iwinfo", iwinfo(1))
    assert only_wifi(run(r)) == ask("wlan0") and channel_of(r) == "auto"


# The operations behind it, each by itself


@pytest.mark.parametrize("channel, result", [
    ("auto", 0), ("", 0), (None, 0), ("1", 1), ("6", 6), ("11", 11), ("13", 13), ("nix", 0), ("11x", 11),
])
@pytest.mark.parametrize("board, radio", [("pellin", "radio0"), ("tamber", "radio0"), ("halvor", "radio1")])
def test_the_configured_channel(router, board, radio, channel, result):
    r = router(board=board, ubus=False, uci={"wireless": wireless(radio, channel=channel)})
    assert probe(r, "wifi-channel") == (result, {})
    r.write("/etc/config/wireless", wireless(radio, channel=channel, disabled="1", guest="1"))
    assert probe(r, "wifi-channel") == (-1, {})
    r.write("/etc/config/wireless", wireless(radio, channel=channel, disabled="1", guest="0"))
    assert probe(r, "wifi-channel") == (result, {})
    assert r.events == []


@pytest.mark.parametrize("channel", ["auto", "", None])
def test_the_automatic_channel(router, channel):
    r = router(ubus=False, uci={"wireless": wireless("radio0", channel=channel)})
    for output, result in ((iwinfo(1), 1), (iwinfo(13), 13), (iwinfo("unknown"), 0), ("Channel: 6\n", 0), ("", 0)):
        r.answer("iwinfo", output)
        r.clear_events()
        assert probe(r, "wifi-auto-channel") == (result, {})
        assert effects(r) == ask("wlan0")


@pytest.mark.parametrize("wifi", [
    {"channel": "6"}, {"channel": "nix"}, {"channel": "0"}, {"channel": "auto", "disabled": "1", "guest": "1"},
    {"channel": "6", "disabled": "1", "guest": "1"},
], ids=str)
def test_a_fixed_channel_and_none_at_all_are_no_automatic_one(router, wifi):
    r = router(ubus=False, uci={"wireless": wireless("radio0", **wifi)})
    r.answer("iwinfo", iwinfo(1))
    assert probe(r, "wifi-auto-channel") == (-1, {}) and r.events == []


@pytest.mark.parametrize("board, radio", [("pellin", "radio0"), ("tamber", "radio0"), ("dravik", "radio1")])
def test_setting_a_channel_writes_it_and_no_more(router, board, radio):
    r = router(board=board, ubus=False, uci={"wireless": wireless(radio, channel="auto")})
    for channel in ("6", "11", "1"):
        probe(r, "wifi-set", channel)
        assert channel_of(r, radio) == channel
        assert channel_of(r, "radio0" if radio == "radio1" else "radio1") == "36"
    assert r.run("/sbin/uci", "changes").stdout == "" and r.programs == [] and r.commands == []


def test_the_recommendation_for_bands_in_any_order(router):
    r = router(ubus=False)
    for channel in ("1", "6", "11"):
        r.write("/etc/config/wireless", wireless("radio0", channel=channel))
        for bands in itertools.product((0, 7, 40), repeat=3):
            expected = RULE[7 in bands, 40 in bands].get(int(channel), 0)
            assert probe(r, "wifi-hint", *map(str, bands)) == (expected, {}), (channel, bands)


@pytest.mark.parametrize("bands", [("-7", "-40", "0"), ("47", "74", "400"), ("2147483647", "-2147483648", "39")])
def test_no_recommendation_for_other_bands(router, bands):
    r = router(ubus=False)
    for channel in ("1", "11"):
        r.write("/etc/config/wireless", wireless("radio0", channel=channel))
        assert probe(r, "wifi-hint", *bands) == (0, {})


def test_the_correction_by_itself_leaves_a_fixed_channel_alone(router):
    r = quiet(router, "40", channel=1, uci={"wireless": wireless("radio0", channel="1")})
    probe(r, "wifi-move")
    # The modems are looked at first.
    assert effects(r) == [carrier_lookup("206010")] and channel_of(r) == "1"


# An incomplete configuration


def test_without_a_wireless_configuration_the_channel_is_automatic(router):
    r = quiet(router, "3", channel=1, uci={"wireless": None})
    assert only_wifi(run(r)) == ask("wlan0")
    assert not r.exists("/etc/config/wireless") or r.read("/etc/config/wireless") == ""


def test_without_any_configuration_nothing_is_done(router):
    r = router("ep06", ubus=False, uci={"velaconfig": None, "wireless": None, "network": None})
    assert run(r) == []


def test_arguments_behind_the_command_are_ignored(router):
    r = quiet(router, "40", channel=1)
    assert r.run("vela_modem", COMMAND, "x", "y").stdout == ""
    assert channel_of(r) == "11"
