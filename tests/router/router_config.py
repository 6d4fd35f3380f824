"""Configuration of routers with up to three modems, and what a request or a command did there, in short form."""

from velasim import Router

BUSES = ("1-1.2", "1-1.3", "2-1.2")
NO_DEVICE = "9-1.1"  # a bus where nothing is ever plugged in
SERVING = 'AT+QENG="servingcell"'
# Modems in no list are detected with the fewest exchanges; with a known SIM they are asked nothing at all.
QUIET = {"modems": dict.fromkeys(BUSES, "unknown"), "ubus": False}
KNOWN_SIMS = {
    **{f"/tmp/modem.{bus}/cimi": "206010000000017\n" for bus in BUSES},
    "/usr/share/modem/operator.dat": "206010,Proximus,Belgium\n",
}


def section(kind: str, name: str, **options: str | tuple[str, ...] | None) -> str:
    """One section of a configuration file; a tuple is a list option, None is no option."""
    lines = [f"config {kind} '{name}'\n"]
    for option, value in options.items():
        if isinstance(value, tuple):
            lines += [f"\tlist {option} '{item}'\n" for item in value]
        elif value is not None:
            lines.append(f"\toption {option} '{value}'\n")
    return "".join(lines)


def velaconfig(*buses: str, passthrough: dict[str, str | None] | None = None, **modem: str | None) -> str:
    return section("service", "modem", bus=buses, **modem) + section("service", "passthrough", **(passthrough or {}))


def wireless(radio: str, channel: str | None = None, disabled: str | None = None, guest: str | None = None) -> str:
    """2.4 GHz Wi-Fi on that radio; `guest` is the "disabled" of the guest access point."""
    other = "radio1" if radio == "radio0" else "radio0"
    return (section("wifi-device", radio, type="mac80211", channel=channel)
            + section("wifi-iface", f"default_{radio}", device=radio, disabled=disabled)
            + section("wifi-device", other, type="mac80211", channel="36")
            + section("wifi-iface", f"default_{other}", device=other, disabled="0")
            + section("wifi-iface", "guest2g", device=radio, disabled=guest))


def interfaces(**disabled: str) -> str:
    """The modems' interfaces by name, with their "disabled"."""
    return "".join(section("interface", name, proto="qmi", disabled=value) for name, value in disabled.items())


def interface_of(bus: str) -> str:
    return "modem_" + bus.replace("-", "_").replace(".", "_")


def serving_lte(band: int) -> str:
    """A modem's report of a serving LTE cell in that band."""
    line = f'+QENG: "servingcell","NOCONN","LTE","FDD",262,02,2A1B21,193,1250,{band},5,5,2A1C,-109,-9,-80,13,29'
    return f"\n{line}\n\nOK\n"


def effects(r: Router) -> list[tuple]:
    """All effects in their order, without what is always the same."""
    members = {"shell": ("command",), "at": ("bus", "port", "command"), "ubus": ("object", "method")}
    result = []
    for event in r.events:
        if event["kind"] == "program":
            result.append(("program", *event["argv"]))
        else:
            result.append((event["kind"], *(event[member] for member in members[event["kind"]])))
    return result


def exchange(command: str, bus: str = "1-1.2", port: str = "ttyUSB2") -> tuple:
    return ("at", bus, port, command)


def carrier_lookup(key: str) -> tuple:
    return ("shell", f"cat /usr/share/modem/operator.dat|grep {key}|cut -d ',' -f 2")


def keep_imsi(imsi: str, bus: str = "1-1.2") -> tuple:
    return ("shell", f'echo "{imsi}" >/tmp/modem.{bus}/cimi')


def status_call(bus: str = "1-1.2") -> tuple:
    return ("ubus", f"network.interface.{interface_of(bus)}", "status")


# What reading the carrier of a fresh EC25 does.
EC25_CARRIER = [exchange("AT+CIMI"), keep_imsi("262020000000017"), carrier_lookup("262020"), carrier_lookup("26202")]
EC25_STATUS = [status_call(), exchange("AT+CPIN?"), exchange("AT+CREG?"), exchange("AT+QCSQ")]
