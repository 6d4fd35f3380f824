"""USB discovery in sysfs: ports by interface number, several modems, odd trees, and trees at the limit of a search."""

import os
from pathlib import Path

import pytest
from support import ABORTED, AT_PORT, COMMAND_USAGE, DEVICE, HUB, MODELS, SYSFS, at, debug
from velasim import Router

NO_DEVICE = ("please insert device\n", {})
FOUND = "vid 2C7C,pid 125\n"


@pytest.mark.parametrize("name", MODELS)
def test_the_ports_of_every_model_are_found_by_interface_number(router, name):
    r, model = router(name, ubus=False), MODELS[name]
    _, report = debug(r)
    assert report["control_port"] == model.control_port == at_port(r)
    assert report["data_port"] == model.data_port
    assert report.get("qmi_port") == model.qmi_port
    assert sorted(report["ports"]) == sorted(model.ports)


def at_port(r: Router) -> str:
    """Where an AT command of the command line really goes."""
    r.clear_events()
    assert r.run("vela_modem", "AT", "ATI").stdout.endswith("\r\nOK\r\n")
    return "/dev/" + r.events[-1]["port"]


def test_acm_ports_are_listed_once(router):
    r = router("unknown", ubus=False)
    _, report = debug(r)
    assert sorted(report["ports"]) == ["/dev/ttyACM0", "/dev/ttyACM1"]
    assert at_port(r) == "/dev/ttyACM0"


def test_an_acm_tty_outside_a_tty_directory_is_not_listed(router):
    r = router("unknown", ubus=False)
    r.host_path(DEVICE).joinpath("ttyACM7").mkdir()
    r.host_path(DEVICE).joinpath("1-1.2:1.9", "tty", "ttyUSB7").mkdir(parents=True)  # and the other kind not inside one
    _, report = debug(r)
    assert sorted(report["ports"]) == ["/dev/ttyACM0", "/dev/ttyACM1"]


def test_control_devices_are_ports_too(router):
    r = router("ec25", ubus=False)
    for name in ("cdc-wdm5", "xcdc-wdm", "ttyUSB_left"):
        r.host_path(DEVICE).joinpath("power", name).mkdir()
    _, report = debug(r)
    assert sorted(report["ports"]) == sorted([*MODELS["ec25"].ports, "/dev/cdc-wdm5", "/dev/xcdc-wdm",
                                              "/dev/ttyUSB_left"])


def test_files_and_links_are_no_ports(router):
    r = router("ec25", ubus=False)
    r.write(f"{DEVICE}/ttyUSB8", "")
    r.host_path(DEVICE).joinpath("ttyUSB9").symlink_to("1-1.2:1.0")
    _, report = debug(r)
    assert sorted(report["ports"]) == sorted(MODELS["ec25"].ports)


def test_two_modems_on_two_buses(router):
    r = router(modems={"1-1.2": "ec25", "2-1.2": "mc7430"}, ubus=False)
    first, second = debug(r), debug(r, "2-1.2")
    assert first[0] == FOUND and first[1]["control_port"] == "/dev/ttyUSB2"
    assert second[0] == "vid 1199,pid 9071\n" and second[1]["control_port"] == "/dev/ttyUSB6"
    assert sorted(first[1]["ports"]) == sorted(MODELS["ec25"].ports)
    assert sorted(second[1]["ports"]) == ["/dev/cdc-wdm1", "/dev/ttyUSB4", "/dev/ttyUSB5", "/dev/ttyUSB6"]


def test_three_equal_modems_are_kept_apart(router):
    r = router(modems={"1-1.2": "ec25", "1-1.3": "ec25", "2-1.2": "ec25"}, ubus=False)
    for number, bus in enumerate(("1-1.2", "1-1.3", "2-1.2")):
        assert debug(r, bus)[1]["control_port"] == f"/dev/ttyUSB{4 * number + 2}"
        r.clear_events()
        assert r.run("vela_modem", bus, "AT", "AT").stdout == "\nAT\r\r\nOK\r\n"
        assert r.events[0]["bus"] == bus


def test_a_name_that_only_begins_like_the_bus_is_another_bus(router):
    r = router(modems={"1-1.21": "ec25"}, ubus=False)
    assert debug(r) == NO_DEVICE
    assert debug(r, "1-1.21")[0] == FOUND


def test_a_hub_on_the_bus_is_an_unknown_device_with_the_ports_behind_it(router):
    r = router("ec25", ubus=False)
    text, report = debug(r, "1-1")
    assert text == "vid 5E3,pid 608\n" and report["modem_id"] == 255
    assert sorted(report["ports"]) == sorted(MODELS["ec25"].ports)


def test_a_modem_that_comes_back_with_other_tty_numbers_is_found_at_once(router):
    r = router("ec25", ubus=False)
    assert at_port(r) == "/dev/ttyUSB2"
    r.modem().unplug()
    assert debug(r) == NO_DEVICE and r.run("vela_modem", "AT", "AT").stdout == ""
    r.modem().plug(first_tty=7)
    assert at_port(r) == "/dev/ttyUSB9"
    assert debug(r)[1]["data_port"] == "/dev/ttyUSB10"
    r.modem().unplug()
    r.modem().plug(first_tty=100)
    assert at_port(r) == "/dev/ttyUSB102"


def test_a_port_that_is_not_found_is_an_empty_text(router):
    r = router("ec25", ubus=False)
    r.remove(f"{DEVICE}/1-1.2:1.3")
    r.remove(f"{DEVICE}/1-1.2:1.4")
    _, report = debug(r)
    assert (report["data_port"], report["control_port"], report["qmi_port"]) == ("", AT_PORT, "")


def test_an_interface_without_a_tty_has_no_port(router):
    r = router("ec25", ubus=False)
    r.remove(f"{DEVICE}/1-1.2:1.3/ttyUSB3")
    assert debug(r)[1]["data_port"] == ""


def test_the_first_of_two_devices_with_the_buss_name_wins(router):
    r = router("ec25", ubus=False)
    for name, product in (("a", "0306"), ("b", "0125")):
        r.run("cp", "-a", f"{SYSFS}/soc", f"{SYSFS}/{name}")
        r.write(DEVICE.replace("/soc/", f"/{name}/") + "/idProduct", product + "\n")
    r.remove(f"{SYSFS}/soc")
    first = os.listdir(r.host_path(SYSFS))[0]  # in directory order
    assert debug(r)[0] == {"a": "vid 2C7C,pid 306\n", "b": FOUND}[first]


# Links


def test_loops_of_symbolic_links_are_not_followed(router):
    r = router("ec25", ubus=False)
    for place in (SYSFS, HUB, DEVICE, f"{DEVICE}/1-1.2:1.2", f"{DEVICE}/1-1.2:1.2/ttyUSB2/tty"):
        r.host_path(place).joinpath("up").symlink_to("..")
        r.host_path(place).joinpath("self").symlink_to(".")
        r.host_path(place).joinpath("round").symlink_to("round")
        r.host_path(place).joinpath("top").symlink_to(SYSFS)
    assert at_port(r) == AT_PORT
    assert sorted(debug(r)[1]["ports"]) == sorted(MODELS["ec25"].ports)


def test_a_link_with_the_buss_name_is_no_device(router):
    r = router("ec25", ubus=False)
    r.host_path(HUB).joinpath("1-1.3").symlink_to("1-1.2")
    assert debug(r, "1-1.3") == NO_DEVICE


def test_a_file_with_the_buss_name_is_no_device(router):
    r = router("ec25", ubus=False)
    r.write(f"{HUB}/1-1.3", "2c7c")
    assert debug(r, "1-1.3") == NO_DEVICE


# Large and broken trees


def bare_chain(r: Router) -> None:
    """Leaves of sysfs only the way to the AT port's interface: no directory that would be met by the way or not,
    depending on the order in which the file system lists them."""
    keep = Path(f"{DEVICE}/1-1.2:1.2")
    for path in sorted(r.run("find", SYSFS, "-mindepth", "1", "-type", "d").stdout.splitlines()):
        if r.exists(path) and not (keep.is_relative_to(path) or Path(path).is_relative_to(keep)):
            r.remove(path)
    for name in ("power", "ep_81", "ep_01", "ttyUSB2/tty/ttyUSB2/power"):
        r.remove(f"{keep}/{name}")


# What a search opens besides the added directories: for the device the five above it (platform, soc, the controller,
# usb1 and 1-1), for its interface the device's own, too.
TO_THE_DEVICE, TO_THE_INTERFACE = 5, 6


@pytest.mark.parametrize("opened", [999, 1000, 1001])
def test_a_search_opens_at_most_1000_directories_to_find_the_device(router, opened):
    r = router("ec25", ubus=False)
    bare_chain(r)
    r.add_directories(SYSFS, opened - TO_THE_DEVICE)
    assert debug(r)[0] == (FOUND if opened <= 1000 else NO_DEVICE[0])


@pytest.mark.parametrize("opened", [999, 1000, 1001])
def test_a_search_opens_at_most_1000_directories_to_find_the_port(router, opened):
    r = router("ec25", ubus=False)
    bare_chain(r)
    r.add_directories(SYSFS, opened - TO_THE_INTERFACE)
    result = r.run("vela_modem", "AT", "AT")
    if opened <= 1000:
        assert (result.stdout, result.stderr) == ("\nAT\r\r\nOK\r\n", "")
    else:
        assert (result.stdout, result.stderr) == ("", "Error opening serial port  - No such file or directory(2).\n")
    assert result.returncode == 0


def directories(r: Router, under: str) -> int:
    return len(r.run("find", under, "-type", "d").stdout.splitlines())


def test_the_device_below_a_large_subtree_has_1000_directories_of_its_own(router):
    r = router("ec25", ubus=False)
    bare_chain(r)
    r.add_directories(f"{DEVICE}/1-1.2:1.2/ttyUSB2/tty", 990)  # not opened on the way to the device
    assert directories(r, DEVICE) <= 1000
    assert debug(r)[0] == FOUND


@pytest.mark.parametrize("total, expected", [(1000, FOUND), (1300, NO_DEVICE[0])])
def test_a_tree_of_more_than_1000_directories_fails_every_search(router, total, expected):
    r = router("ec25", ubus=False)
    r.add_directories(f"{SYSFS}/soc", total - directories(r, SYSFS))
    assert directories(r, SYSFS) == total
    assert debug(r)[0] == expected
    result = r.run("vela_modem", "AT", "AT")
    assert result.returncode == 0 and (result.stdout != "") == (expected == FOUND)


def test_a_directory_that_cannot_be_opened_fails_the_search(router):
    r = router("ec25", ubus=False)
    closed = r.host_path(SYSFS) / "closed"
    closed.mkdir()
    unprivileged = ["/usr/bin/setpriv", "--reuid=65534", "--clear-groups", "vela_modem", "-D", "nothing"]
    assert r.run(*unprivileged).stdout.startswith(FOUND)
    closed.chmod(0)
    assert r.run(*unprivileged).stdout == NO_DEVICE[0]
    assert r.run("vela_modem", "nothing").stdout == COMMAND_USAGE  # nothing is closed to root


def test_without_sysfs_there_is_no_device(router):
    r = router("ec25", ubus=False)
    r.remove(SYSFS)
    assert debug(r) == NO_DEVICE
    r.write(SYSFS, "a file")
    assert debug(r) == NO_DEVICE


def chain(r: Router, length: int) -> None:
    """Nested directories, the innermost with a path of exactly that many characters."""
    path = SYSFS
    while length - len(path) > 250:
        path += "/" + "d" * 99
    path += "/" + "e" * ((length - len(path)) // 2 - 1)
    path += "/" + "f" * (length - len(path) - 1)
    assert len(path) == length
    r.host_path(SYSFS).joinpath(path[len(SYSFS) + 1:]).mkdir(parents=True)


def test_a_path_of_511_characters_is_walked(router):
    r = router("ec25", ubus=False)
    chain(r, 511)
    assert debug(r)[0] == FOUND


@pytest.mark.parametrize("length", [512, 513, 800, 2000])
def test_a_path_of_512_characters_or_more_aborts(router, length):
    r = router("ec25", ubus=False)
    chain(r, length)
    result = r.run("vela_modem", "AT", "AT")
    assert (result.returncode, result.stdout) == (ABORTED, "")


def test_names_of_any_bytes_are_walked(router):
    r = router("ec25", ubus=False)
    for name in (b"\xff\xfe", b" ", b"\n", b"%s%n", b"...", b"..x", b"-", b"*"):
        os.makedirs(os.path.join(os.fsencode(r.host_path(SYSFS)), name, name))
    assert debug(r)[0] == FOUND and at_port(r) == AT_PORT


def test_a_port_name_that_does_not_fit_its_buffer_aborts(router):
    r = router("ec25", ubus=False)
    directory = r.host_path(f"{DEVICE}/1-1.2:1.2")
    r.remove(f"{DEVICE}/1-1.2:1.2/ttyUSB2")
    fits = "ttyUSB" + "7" * 18  # with /dev/ 29 characters: detection has room for 30 bytes
    directory.joinpath(fits).mkdir()
    r.host_path("/dev").joinpath(fits).symlink_to("ttyUSB3")
    assert at(r, "AT") == "\nAT\r\r\nOK\r\n"
    directory.joinpath(fits).rename(directory / (fits + "7"))
    assert r.run("vela_modem", "AT", "AT").returncode == ABORTED
