"""How the supply of a modem is switched off and on again, on each board."""

from dataclasses import dataclass, field
from typing import Callable

from power_client import BUS, GPIO, LEDS
from velasim import Router


@dataclass(frozen=True)
class Supply:
    """A board, a bus, the control files that the router has, and what a power cycle is then."""

    board: str
    commands: tuple[str, ...]
    value: str = ""  # what is left in the file that is switched
    file: str = ""
    bus: str = BUS
    files: tuple[str, ...] = field(default=())  # besides that one

    def __str__(self) -> str:
        return f"{self.board}-{self.bus}-{self.file.replace('/sys/class/', '') or 'nothing'}"


def fixed(board: str, name: str, first: int) -> Supply:
    file = f"{GPIO}/{name}/value"
    command = f"echo {first} > {file};sleep 1;echo {1 - first} > {file}"
    return Supply(board, (command,), str(1 - first), file)


def pulse(file: str, first: int) -> str:
    return f"echo {first} > {file}; sleep 1; echo {1 - first} > {file}"


def halvor(bus: str, number: int, first: int) -> Supply:
    file = f"{GPIO}/gpio{number}/value"
    return Supply("halvor", (pulse(file, first),), str(1 - first), file, bus)


LISTINGS = (f"ls {LEDS}/*:usbpow*/brightness", f"ls {GPIO}/usbpow/value", f"ls {LEDS}/*:3gcontrol/brightness")
GPIO0, GPIO2 = f"{GPIO}/gpio0/value", f"{GPIO}/gpio2/value"
USB_LED, USB_GPIO = f"{LEDS}/vela:usbpower/brightness", f"{GPIO}/usbpow/value"
MODEM_LED = f"{LEDS}/vela:3gcontrol/brightness"
LS_GPIO0, LS_GPIO2 = f"ls {GPIO0}", f"ls {GPIO2}"


def probed(board: str, file: str, listings: int, bus: str = BUS, also: tuple[str, ...] = (), first: int = 0) -> Supply:
    """A control file that so many listings find."""
    all_listings = (*LISTINGS, LS_GPIO0 if bus in ("1-1.2", "1-1") else LS_GPIO2, LS_GPIO2)
    if not file:
        return Supply(board, all_listings, bus=bus, files=also)
    return Supply(board, (*all_listings[:listings], pulse(file, first)), str(1 - first), file, bus, also)


SUPPLIES = [
    fixed("pellin", "lte_power", 0),
    fixed("brimset", "lte_power", 0),
    fixed("tamber", "gpio0", 1),
    fixed("fennox", "gpio0", 0),
    fixed("fennoxt", "gpio0", 0),
    fixed("sparrin", "pci_power", 0),
    fixed("colbet", "usb_power", 0),
    fixed("wrenfield", "usb_power", 0),
    fixed("dunmar", "gpio1", 1),
    halvor("1-1.2", 5, 1),
    halvor("2-1.2", 15, 1),
    halvor("1-1.4", 7, 0),
    halvor("1-1", 7, 1),
    halvor("1-1.3", 7, 1),
    probed("ketrin", USB_LED, 1, also=(USB_GPIO, MODEM_LED, GPIO0, GPIO2)),
    # The first of several.
    probed("ketrin", f"{LEDS}/a:usbpow/brightness", 1, also=(USB_LED,)),
    probed("ketrin", USB_GPIO, 2, also=(MODEM_LED, GPIO0, GPIO2)),
    probed("ketrin", MODEM_LED, 3, also=(GPIO0, GPIO2)),
    probed("ketrin", GPIO0, 4, also=(GPIO2,)),
    probed("ketrin", GPIO0, 4, also=(GPIO2,), bus="1-1"),
    probed("ketrin", GPIO2, 4, also=(GPIO0,), bus="2-1.2"),
    probed("ketrin", GPIO2, 4, also=(GPIO0,), bus="1-1.4"),
    probed("ketrin", GPIO2, 5),
    probed("ketrin", "", 5),
    # Names that only look alike: another colon, another end, the LED without a file.
    probed("ketrin", "", 5, also=(f"{LEDS}/usbpow/brightness", f"{LEDS}/vela:3gcontrol2/brightness",
                                  f"{LEDS}/vela:usbpow/trigger")),
    probed("ketrin", "", 5, bus="2-1.2", also=(GPIO0,)),
    probed("tovin", USB_LED, 1, first=1),
    probed("tovin", GPIO2, 4, first=1, bus="1-1.4"),
    probed("larkin", USB_GPIO, 2, first=1),
    probed("ostrel", MODEM_LED, 3, first=1),
    probed("ostrel2", GPIO0, 4, first=1),
    probed("newostrelx", GPIO0, 4, first=1, bus="1-1"),
    probed("ostrel", "", 5),
    # Only the whole name counts for the others.
    probed("tovin2", GPIO0, 4),
    probed("larki", GPIO0, 4),
    probed("halvor2", GPIO0, 4),
    probed("pellin2", GPIO0, 4),
]


def supplied(router: Callable[..., Router], supply: Supply) -> Router:
    files = (*supply.files, *((supply.file,) if supply.file else ()))
    return router(modems={supply.bus: "bg95"}, board=supply.board, files={file: "untouched\n" for file in files},
                  ubus=False, quick=True)


def assert_only_this_was_switched(r: Router, supply: Supply) -> None:
    for file in supply.files:
        assert r.read(file) == "untouched\n"
    if supply.file:
        assert r.read(supply.file) == supply.value + "\n"


def commands_of(supply: Supply) -> list[str]:
    return [f"$ {command}" for command in supply.commands]


# Of the board that a router is unless a test says otherwise.
POWER = f"$ {SUPPLIES[0].commands[0]}"
