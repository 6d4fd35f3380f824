"""The USB side of sysfs, as the kernel lays it out, and the /dev entries that belong to it.

A device appears with `plug` and goes with `unplug`; its interfaces carry ttys, network devices and cdc-wdm nodes.
Everything is plain directories, files and links below the router's own /sys and /dev.
"""

import os
import re
import shutil
from dataclasses import dataclass, field

from .modem_file import Interface, ModemFile

PLATFORM = "/sys/devices/platform/soc"
TTY_MAJOR = {"ttyUSB": 188, "ttyACM": 166}
DRIVERS = {"ttyUSB": "option", "ttyACM": "cdc_acm", "net": "qmi_wwan", "cdc-wdm": "qmi_wwan"}
# What the kernel's interface directory always holds: walks of the tree meet these, too.
INTERFACE_DIRECTORIES = ("power", "ep_81", "ep_81/power", "ep_01", "ep_01/power")
DEVICE_DIRECTORIES = ("power", "ep_00", "ep_00/power")


@dataclass
class Device:
    """A plugged modem: which node belongs to which interface, and every link made for it."""

    bus: str
    path: str
    ttys: dict[int, str] = field(default_factory=dict)  # interface number -> "ttyUSB2"
    links: list[str] = field(default_factory=list)


def write(path: str, text: str) -> None:
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def controller(bus: str) -> str:
    """The root hub's directory: bus 1-1.2 hangs on usb1 of the first controller."""
    number = int(bus.split("-")[0])
    return f"{PLATFORM}/xhci-hcd.{number - 1}.auto/usb{number}"


def device_path(bus: str) -> str:
    """1-1.2.3 lies in 1-1.2, which lies in 1-1, which lies in usb1."""
    port, *tiers = bus.split(".")
    names = [port]
    for tier in tiers:
        names.append(f"{names[-1]}.{tier}")
    return "/".join([controller(bus), *names])


def prepare() -> None:
    """The part of sysfs that is there before any device."""
    for path in (
        "/sys/bus/usb/devices", "/sys/bus/usb/drivers", "/sys/class/tty", "/sys/class/net", "/sys/class/usbmisc",
        "/sys/class/gpio", "/sys/class/leds", PLATFORM,
    ):
        os.makedirs(path, exist_ok=True)
    for driver in {*DRIVERS.values(), "usb", "hub"}:
        os.makedirs(f"/sys/bus/usb/drivers/{driver}", exist_ok=True)
    for number in (1, 2):
        _make_hub(controller(f"{number}-1"), "1d6b", f"000{number + 1}", f"{number}-0:1.0", f"usb{number}")


def _make_hub(path: str, vendor: str, product: str, interface: str, name: str) -> None:
    if os.path.exists(f"{path}/idVendor"):
        return
    for directory in (*DEVICE_DIRECTORIES, interface, f"{interface}/power"):
        os.makedirs(f"{path}/{directory}", exist_ok=True)
    write(f"{path}/idVendor", f"{vendor}\n")
    write(f"{path}/idProduct", f"{product}\n")
    write(f"{path}/product", "USB hub\n")
    _link("/sys/bus/usb", f"{path}/subsystem")
    _link("/sys/bus/usb/drivers/usb", f"{path}/driver")
    _link(path, f"/sys/bus/usb/devices/{name}")


def _link(target: str, path: str) -> str:
    """A relative link, as sysfs has them."""
    if target.startswith("/sys") and path.startswith("/sys"):
        target = os.path.relpath(target, os.path.dirname(path))
    os.symlink(target, path)
    return path


def free_number(kind: str) -> int:
    """The lowest number that no device of this kind has, which is how the kernel gives them out."""
    directory = {"net": "/sys/class/net", "cdc-wdm": "/sys/class/usbmisc"}.get(kind, "/sys/class/tty")
    prefix = {"net": "wwan"}.get(kind, kind)
    taken = {name for name in os.listdir(directory)}
    return next(number for number in range(10000) if f"{prefix}{number}" not in taken)


def plug(bus: str, modem: ModemFile, tty_paths: list[str], first_tty: int | None = None) -> Device:
    """Makes the device appear. `tty_paths` are the pseudo-terminals for its tty interfaces, in order."""
    device = Device(bus, device_path(bus))
    parts = bus.split(".")
    for depth in range(1, len(parts)):
        hub = ".".join(parts[:depth])
        _make_hub(device_path(hub), "05e3", "0608", f"{hub}:1.0", hub)
    for directory in DEVICE_DIRECTORIES:
        os.makedirs(f"{device.path}/{directory}", exist_ok=True)
    for name, text in (
        ("idVendor", modem.vendor), ("idProduct", modem.product), ("bConfigurationValue", "1"), ("speed", "480"),
        ("product", modem.header.get("model", modem.name)), ("busnum", bus.split("-")[0]), ("devnum", "3"),
        ("bNumInterfaces", f"{len({i.number for i in modem.interfaces}):2d}"),
    ):
        write(f"{device.path}/{name}", f"{text}\n")
    device.links += [
        _link("/sys/bus/usb", f"{device.path}/subsystem"),
        _link("/sys/bus/usb/drivers/usb", f"{device.path}/driver"),
        _link(device.path, f"/sys/bus/usb/devices/{bus}"),
    ]
    ttys = iter(tty_paths)
    for interface in modem.interfaces:
        directory = _make_interface(device, interface)
        if interface.kind == "tty":
            _make_tty(device, directory, interface, next(ttys), first_tty)
        elif interface.kind == "net":
            _make_net(device, directory, interface.name)
        else:
            _make_wdm(device, directory)
    return device


def _make_interface(device: Device, interface: Interface) -> str:
    name = f"{device.bus}:1.{interface.number}"
    directory = f"{device.path}/{name}"
    if not os.path.exists(directory):
        for part in INTERFACE_DIRECTORIES:
            os.makedirs(f"{directory}/{part}")
        write(f"{directory}/bInterfaceNumber", f"{interface.number:02x}\n")
        write(f"{directory}/bInterfaceClass", "02\n" if interface.name == "ttyACM" else "ff\n")
        driver = DRIVERS[interface.name if interface.kind == "tty" else interface.kind]
        device.links += [
            _link("/sys/bus/usb", f"{directory}/subsystem"),
            _link(f"/sys/bus/usb/drivers/{driver}", f"{directory}/driver"),
            _link(directory, f"/sys/bus/usb/drivers/{driver}/{name}"),
            _link(directory, f"/sys/bus/usb/devices/{name}"),
        ]
    return directory


def _make_tty(device: Device, directory: str, interface: Interface, terminal: str, first: int | None) -> None:
    number = free_number(interface.name)
    if first is not None:
        number = first + sum(name.startswith(interface.name) for name in device.ttys.values())
    name = f"{interface.name}{number}"
    # A serial converter's port is a device of its own above the tty; an ACM function's tty hangs on the interface.
    holder = f"{directory}/{name}/tty" if interface.name == "ttyUSB" else f"{directory}/tty"
    os.makedirs(f"{holder}/{name}/power")
    write(f"{holder}/{name}/dev", f"{TTY_MAJOR[interface.name]}:{number}\n")
    device.ttys[interface.number] = name
    device.links += [
        _link("/sys/class/tty", f"{holder}/{name}/subsystem"),
        _link(f"{holder}/{name}", f"/sys/class/tty/{name}"),
        _link(terminal, f"/dev/{name}"),
    ]


def _make_net(device: Device, directory: str, wanted: str) -> None:
    stem = re.sub(r"\d+$", "", wanted)
    number = int(wanted[len(stem):] or 0)
    while os.path.lexists(f"/sys/class/net/{stem}{number}"):
        number += 1
    path = f"{directory}/net/{stem}{number}"
    for part in ("power", "statistics", "queues/rx-0", "queues/tx-0"):
        os.makedirs(f"{path}/{part}")
    os.makedirs(f"{path}/qmi", exist_ok=True)
    write(f"{path}/qmi/raw_ip", "N\n")
    device.links += [
        _link("/sys/class/net", f"{path}/subsystem"),
        _link(path, f"/sys/class/net/{stem}{number}"),
    ]


def _make_wdm(device: Device, directory: str) -> None:
    name = f"cdc-wdm{free_number('cdc-wdm')}"
    path = f"{directory}/usbmisc/{name}"
    os.makedirs(f"{path}/power")
    write(f"/dev/{name}", "")
    device.links += [
        _link("/sys/class/usbmisc", f"{path}/subsystem"),
        _link(path, f"/sys/class/usbmisc/{name}"),
        f"/dev/{name}",
    ]


def unplug(device: Device) -> None:
    """Takes the device away. Its ttys must be hung up by then."""
    for link in device.links:
        try:
            os.unlink(link)
        except FileNotFoundError:
            pass
    shutil.rmtree(device.path, ignore_errors=True)
