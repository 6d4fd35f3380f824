"""What the tests of a modem's configuration share: posting it, and reading what it has done to the router."""

from velasim import Router

SET = "/modem/set"
GET = "/modem/get"
WDM = "/dev/cdc-wdm0"


def ifname_of(bus: str) -> str:
    return "modem_" + bus.replace("-", "_").replace(".", "_")


NAME = ifname_of("1-1.2")


def comes_up(*names: str) -> dict:
    """The bus daemon's state with interfaces that come up when they are asked to."""
    return {"interfaces": {name: {"state": "down", "on_up": "up"} for name in names or (NAME,)}}


def effects(r: Router) -> list[str]:
    """Shell commands behind "$ ", calls on the bus, and AT commands, in order. What runs in the background may come at
    any place among them, so it is taken out: see restarts()."""
    texts = {"shell": lambda event: "$ " + event["command"], "at": lambda event: event["command"],
             "ubus": lambda event: event["object"] + " " + event["method"]}
    known = [texts[event["kind"]](event) for event in r.events if event["kind"] in texts]
    return [effect for effect in known if effect != "$ mwan3 restart"]


def restarts(r: Router) -> int:
    """How often mwan3 was restarted."""
    r.wait_idle()
    return r.programs.count(["mwan3", "restart"])


def section(r: Router, package: str, name: str) -> list[str]:
    """A section's lines as `uci show` has them, without package and section: its type first, behind "="."""
    lines = r.run("uci", "-q", "show", f"{package}.{name}").stdout.splitlines()
    prefix = f"{package}.{name}"
    assert all(line.startswith(prefix) for line in lines), lines
    return [line.removeprefix(prefix).removeprefix(".") for line in lines]


def option(r: Router, path: str) -> str | None:
    result = r.run("uci", "-q", "get", path)
    return result.stdout.removesuffix("\n") if result.returncode == 0 else None


def list_of(r: Router, path: str) -> list[str]:
    return (option(r, path) or "").split()


def nothing_staged(r: Router) -> bool:
    return r.run("uci", "changes").stdout == ""


def packages(r: Router) -> dict[str, bytes]:
    """All configuration files."""
    return {name: r.read_bytes(f"/etc/config/{name}") for name in r.listdir("/etc/config")}
