"""What the tests of connect, connect-auto, new-connect-auto and disconnect share: a router to run them on, and the
effects that several of them have.

The link is up as soon as netifd has been told to bring it up, unless a test says otherwise.
"""

from connection_client import BY_REQUEST, IFNAME, READY, link
from velasim import Router

SUCCESS = "\nconnect success"
SIM_TYPE = "$ cat /tmp/sim_type"
LED = ["$ /etc/init.d/led reload 2>&1 >/dev/null", "> /etc/init.d/led reload"]
KILL_UQMI = ["$ killall uqmi 2>/dev/null", "> killall uqmi"]
FAIL_COUNT = "/tmp/modem.1-1.2/fail_count"
WDM = "/dev/cdc-wdm0"
SAVED = {"ifname": "wwan0", "device": WDM, "service": "lte", "apn": "saved", "mtu": "1400", "pincode": "1234",
         "dialnumber": "*99#", "username": "me", "password": "secret", "auth": "PAP", "proto": "qmi", "metric": "55",
         "disabled": "1", "old": "1"}


def drop_session(device: str = WDM) -> list[str]:
    command = f"timeout -t 2 uqmi -d {device} --stop-network 4294967295 --autoconnect"
    return [f"$ {command} 2>/dev/null", f"> {command}"]


def make(router, modem: str | None = "ec25", state: str | None = None, files: dict | None = None, **options) -> Router:
    """A router whose SIM is ready and whose modem's link comes up; with `state` it is in that state for ever."""
    ubus = options.pop("ubus", link(state) if state else BY_REQUEST)
    return router(modem, quick=True, ubus=ubus, files={**READY, FAIL_COUNT: "3\n", **(files or {})}, **options)


def saved(name: str = IFNAME, **changes: str | None) -> dict:
    options = {key: value for key, value in {**SAVED, **changes}.items() if value is not None}
    return {"network": "config interface 'lan'\n\toption ifname 'eth0'\n\n" + f"config interface '{name}'\n" + "".join(
        f"\toption {key} '{value}'\n" for key, value in options.items())}


def run(r: Router, *words: str) -> str:
    """What the command prints; its exit status is 0, and it has no errors to show."""
    result = r.run("vela_modem", *words)
    r.wait_idle()
    assert (result.returncode, result.stderr) == (0, ""), result
    return result.stdout


def context(apn: str, port: str = "ttyUSB2", number: str = "1", pdp_type: str = "IP") -> list[str]:
    """A Quectel modem is given its APN."""
    return ["$ cat /tmp/sim_status", SIM_TYPE, f'@{port} AT+CGDCONT={number},"{pdp_type}","{apn}"']


def written(apn: list[str] = ()) -> list[str]:
    """The section is written, as far as that is seen: the SIM's type decides the MTU."""
    return [SIM_TYPE, *apn, *LED]
