"""What the tests of connections share: the modem's interface on the simulated bus and in the configuration, and the
effects of a run as texts."""

import re

from velasim import Router

IFNAME = "modem_1_1_2"
OBJECT = f"network.interface.{IFNAME}"
STATUS = f"{OBJECT} status"
BOARDS = ["halvor", "ketrin", "pellin"]

# The files of a SIM that has been read, of no carrier that wants something special.
READY = {"/tmp/sim_status": "ready\n", "/tmp/sim_type": "other\n"}

ZONE_JOINED, ZONE_KEPT = "joined", "kept"


def interface(state: str = "down", **controls: str) -> dict:
    return {"state": state, **controls}


def link(state: str = "down", name: str = IFNAME, **controls: str) -> dict:
    """What the bus daemon reports of the modem's interface alone."""
    return {"interfaces": {name: interface(state, **controls)}}


BY_REQUEST = link(on_up="up")


def effects(r: Router) -> list[str]:
    """All effects so far: shell commands behind "$ ", the recorded programs that they run behind "> ", AT commands
    behind "@" and their port, calls on the bus as they are."""
    texts = {
        "shell": lambda event: "$ " + event["command"],
        "program": lambda event: "> " + " ".join(event["argv"]),
        "ubus": lambda event: event["object"] + " " + event["method"],
        "at": lambda event: f"@{event['port']} {event['command']}",
    }
    return [texts[event["kind"]](event) for event in r.events]


BACKGROUND = ["$ mwan3 restart", "> mwan3 restart"]


def sorted_out(texts: list[str]) -> list[str]:
    """The effects without the restart of mwan3, which is made once, in the background: when it happens is not said."""
    assert [text for text in texts if text in BACKGROUND] in ([], BACKGROUND)
    return [text for text in texts if text not in BACKGROUND]


def bring_up(zone: str = ZONE_JOINED, board: str = "pellin", name: str = IFNAME) -> list[str]:
    """The link is brought up and asked for once; its interface joins the firewall's zone or is in it already."""
    sync = ";sync" if board == "ketrin" else ""
    enter = [f'$ uci set firewall.@zone[1].network="wan {name}"', f"$ uci commit firewall{sync}",
             "$ /etc/init.d/firewall reload", "> /etc/init.d/firewall reload"]
    if zone == ZONE_KEPT:
        enter = ["$ vela-firewall", "> vela-firewall"]
    return ["network reload", f"$ ubus call network.interface.{name} up", f"network.interface.{name} up",
            "$ uci get firewall.@zone[1].network", *enter, f"network.interface.{name} status"]


def section(r: Router, seen_by: str | None = None, name: str = IFNAME) -> dict[str, str]:
    """The options of the modem's interface, as they are committed; or as the recorded program saw them that copied the
    file to /run/sim/PROGRAM.seen. Plain options without quotes in them."""
    path = f"/run/sim/{seen_by}.seen" if seen_by else "/etc/config/network"
    text = r.read(path) if r.exists(path) else ""
    match = re.search(rf"^config interface '{name}'\n((?:\t.*\n)*)", text, re.MULTILINE)
    return dict(re.findall(r"^\toption (\w+) '(.*)'$", match[1], re.MULTILINE)) if match else {}
