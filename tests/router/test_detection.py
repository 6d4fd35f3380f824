"""Modem detection: the report that -D shows, to the letter, and what is no modem (yet)."""

import pytest
from probe_client import probe
from support import ABORTED, COMMAND_USAGE, DEVICE, MODELS, debug, locked, pretty
from velasim import Router

NO_DEVICE = ("please insert device\n", {})
FOREIGN = ("data_port", "control_port", "qmi_port", "IMEI", "apns")


def remove_ports(r: Router) -> None:
    for name in r.listdir(DEVICE):
        if name.startswith("1-1.2:"):
            r.remove(f"{DEVICE}/{name}")


@pytest.mark.parametrize("name", MODELS)
def test_the_report_of_every_model_to_the_letter(router, name):
    r, model = router(name, ubus=False), MODELS[name]
    text, report = debug(r)
    assert text == model.ids + "\n"
    expected = {
        "ports": report["ports"],  # in whatever order the directories are read
        "modem_id": model.modem_id,
        "data_port": model.data_port,
        "control_port": model.control_port,
        **({} if model.qmi_port is None else {"qmi_port": model.qmi_port}),
    }
    assert list(report.items()) == list(expected.items())
    assert sorted(report["ports"]) == sorted(model.ports)
    printed = r.run("vela_modem", "-D", "no-such-command").stdout
    assert printed == f"{model.ids}\n{pretty(expected)}\n{COMMAND_USAGE}"


def test_the_ids_of_all_models_are_different():
    assert len({model.modem_id for model in MODELS.values()}) == len(MODELS) == 12
    assert len({model.ids for model in MODELS.values()}) == 12


def test_a_modem_in_no_list_is_the_unknown_device(router):
    r = router("unknown", ubus=False)
    text, report = debug(r)
    assert text == "vid 1D0D,pid A1\n"
    assert list(report) == ["ports", "modem_id", "name", "bus", "mnc", "mcc", "carrier", "up", "newsms"]
    assert sorted(report["ports"]) == ["/dev/ttyACM0", "/dev/ttyACM1"]
    assert (report["mnc"], report["mcc"], report["carrier"]) == ("010", "206", "Proximus")
    assert (report["up"], report["newsms"]) == ("off", 0)
    assert (report["modem_id"], report["name"], report["bus"]) == (255, "-", "1-1.2")
    assert not set(FOREIGN) & set(report)


def test_an_unknown_device_without_a_sim_has_an_empty_carrier(router):
    r = router("unknown", ubus=False)
    r.modem().reply("AT+CIMI", "\n+CME ERROR: 10\n")
    _, report = debug(r)
    assert list(report) == ["ports", "modem_id", "name", "bus", "carrier", "up", "newsms"] and report["carrier"] == ""


def test_an_unknown_device_on_another_bus(router):
    r = router(modems={"2-1.2": "unknown"}, ubus=False)
    assert debug(r) == NO_DEVICE
    assert debug(r, "2-1.2")[1]["bus"] == "2-1.2"


def test_an_unknown_device_without_ports_is_no_modem(router):
    r = router("unknown", ubus=False)
    remove_ports(r)
    assert debug(r) == ("vid 1D0D,pid A1\nfailed get ports\n", {})
    assert r.run("vela_modem", "AT", "AT").stdout == ""
    assert probe(r, "detect", "1-1.2") == (-1, {"ports": []})


def test_no_device_at_the_bus(router):
    r = router(ubus=False)
    assert debug(r) == NO_DEVICE and debug(r, "1-1.3") == NO_DEVICE
    assert probe(r, "detect", "1-1.2") == (-1, {})


@pytest.mark.parametrize("name", ["ec25", "bg95", "mc7430"])
def test_a_known_model_whose_ports_are_not_there_yet_is_no_modem(router, name):
    r = router(name, ubus=False)
    remove_ports(r)
    assert debug(r) == (MODELS[name].ids + "\nfailed get ports\n", {})
    result = r.run("vela_modem", "AT", "AT")
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    assert probe(r, "detect", "1-1.2") == (-1, {"ports": []})


def test_a_modem_is_there_as_soon_as_its_ports_are(router):
    r = router("ec25", ubus=False)
    remove_ports(r)
    assert debug(r)[1] == {}
    r.modem().unplug()
    r.modem().plug()
    assert debug(r)[1]["modem_id"] == 3


def test_one_port_makes_a_modem(router):
    r = router("ec25", ubus=False)
    remove_ports(r)
    r.host_path(DEVICE).joinpath("1-1.2:1.4", "usbmisc", "cdc-wdm0").mkdir(parents=True)
    text, report = debug(r)
    assert text == MODELS["ec25"].ids + "\n"
    assert report == {"ports": ["/dev/cdc-wdm0"], "modem_id": 3, "data_port": "", "control_port": "",
                      "qmi_port": "/dev/cdc-wdm0"}


@pytest.mark.parametrize("missing", ["idVendor", "idProduct"])
def test_a_device_without_one_of_its_ids_is_none(router, missing):
    r = router("ec25", ubus=False)
    r.remove(f"{DEVICE}/{missing}")
    assert debug(r) == NO_DEVICE


# An EC25 that passes for an unknown device is asked on its interface 0, which says nothing; locked, it need not be
# waited for.
SILENT_PORT = "/dev/ttyUSB0"


@pytest.mark.parametrize("file", ["idVendor", "idProduct"])
@pytest.mark.parametrize("content", [
    b"", b"\n", b"\0", b"zzzz\n", b"-", b"\xff\xfe", b" ", b"2c7", b"%s%n", b"x" * 100000,
], ids=lambda content: repr(content[:8]))
def test_ids_that_are_empty_or_garbage_make_it_an_unknown_device(router, file, content):
    r = router("ec25", ubus=False)
    r.write(f"{DEVICE}/{file}", content)
    with locked(r, SILENT_PORT):
        text, report = debug(r)
    assert text.startswith("vid ") and text.count("\n") == 1
    assert report["modem_id"] == 255 and sorted(report["ports"]) == sorted(MODELS["ec25"].ports)


@pytest.mark.parametrize("content", ["ffffffffffffff", "ffffffffffffffffffff", "7fffffff", "100000125"])
def test_ids_of_more_than_four_digits_do_no_harm(router, content):
    r = router("ec25", ubus=False)
    r.write(f"{DEVICE}/idProduct", content)
    with locked(r, SILENT_PORT):
        assert r.run("vela_modem", "-D", "x").stdout.startswith("vid 2C7C,pid ")


@pytest.mark.parametrize("content", ["0125", "0125\n", "125", "00000125", "0125\nmore", "0125 more than 14 bytes"])
def test_ids_end_with_the_first_character_that_is_no_digit(router, content):
    r = router("ec25", ubus=False)
    r.write(f"{DEVICE}/idProduct", content)
    assert debug(r)[1]["modem_id"] == 3


def test_ids_in_capital_letters(router):
    r = router("ec25", ubus=False)
    r.write(f"{DEVICE}/idVendor", "2C7C\n")
    assert debug(r)[1]["modem_id"] == 3


def test_both_ids_zero_are_those_of_the_unknown_row(router):
    r = router("ec25", ubus=False)
    for file in ("idVendor", "idProduct"):
        r.write(f"{DEVICE}/{file}", "0000\n")
    text, report = debug(r)
    assert text == "vid 0,pid 0\n" and report["modem_id"] == 255


def test_vendor_and_product_swapped_are_another_device(router):
    r = router("ec25", ubus=False)
    r.write(f"{DEVICE}/idVendor", "0125\n")
    r.write(f"{DEVICE}/idProduct", "2c7c\n")
    with locked(r, SILENT_PORT):
        text, report = debug(r)
    assert text == "vid 125,pid 2C7C\n" and report["modem_id"] == 255


def test_detection_writes_no_file_and_runs_no_program(router):
    for name in MODELS:
        with Router(name, ubus=False) as r:
            before = r.listdir("/tmp")
            debug(r)
            assert r.events == [] and r.listdir("/tmp") == before


def test_without_debug_the_report_is_not_seen(router):
    r = router("ec25", ubus=False)
    assert r.run("vela_modem", "no-such-command").stdout == COMMAND_USAGE


def test_a_report_that_is_longer_than_a_debug_line_is_cut_without_harm(router):
    # Debug lines hold 1023 bytes.
    r = router("ec25", ubus=False)
    for number in range(100):
        r.host_path(DEVICE).joinpath(f"ttyUSB{number + 100}").mkdir()
    result = r.run("vela_modem", "-D", "no-such-command")
    assert result.returncode == 0 and result.stdout.endswith(COMMAND_USAGE)
    report = result.stdout[len(MODELS["ec25"].ids) + 1:-len(COMMAND_USAGE)]
    assert report.startswith('{\n  "ports":[\n    "\\/dev\\/') and len(report) == 1023


LONG_BUS = "1-1.2.3.4.5.6"  # more than a model's fields hold


def test_a_bus_name_too_long_for_a_modem_is_a_bus_without_one(router):
    assert debug(router("ec25", ubus=False), LONG_BUS) == NO_DEVICE


@pytest.mark.parametrize("name", ["ec25", "unknown"])
def test_a_modem_on_a_bus_whose_name_is_too_long_aborts(router, name):
    result = router(modems={LONG_BUS: name}, ubus=False).run("vela_modem", "-D", LONG_BUS, "no-such-command")
    assert (result.returncode, result.stdout) == (ABORTED, "")
