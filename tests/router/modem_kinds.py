"""Models with their devices, and what /modem/set writes and does for each of them."""

from dataclasses import dataclass, field

from modem_config import NAME, SET, WDM, comes_up
from support import AT_PORT
from velasim import Router

RELOAD_LED = "$ /etc/init.d/led reload 2>&1 >/dev/null"
RELOAD_LED_LATER = "$ sleep 10 ;/etc/init.d/led reload 2>&1 >/dev/null"
KILL = "$ killall uqmi 2>/dev/null"
STATUS, TYPE = "$ cat /tmp/sim_status", "$ cat /tmp/sim_type"


def drop_session(device: str) -> str:
    return f"$ timeout -t 2 uqmi -d {device} --stop-network 4294967295 --autoconnect 2>/dev/null"


def bring_up(name: str = NAME) -> list[str]:
    """What the connect operation does in a firewall that has not the interface yet."""
    return [
        "network reload", f"$ ubus call network.interface.{name} up", f"network.interface.{name} up",
        "$ uci get firewall.@zone[1].network", f'$ uci set firewall.@zone[1].network="wan {name}"',
        "$ uci commit firewall", "$ /etc/init.d/firewall reload", f"network.interface.{name} status",
    ]


@dataclass(frozen=True)
class Kind:
    """A model with one of its devices, and what is written for it."""

    model: str
    modem_id: int
    device: str
    proto: str
    ifname: str | None
    node: str | None
    led: str | None  # None: it stays as it was
    apn: str | None = None  # "quectel" asks for the SIM first, "fibocom" does not
    ath: bool = False
    raw_ip: bool = False
    request: dict = field(default_factory=dict)

    def lines(self, *settings: str, mtu: str | None = None, name: str = NAME) -> list[str]:
        """The section as `uci show` has it; `settings` are pairs of its options."""
        given = [pair for pair in settings if pair.startswith(("service=", "apn="))]
        rest = [pair for pair in settings if pair not in given]
        pairs = [
            f"ifname={self.ifname}" if self.ifname else None, *given, f"proto={self.proto}", f"device={self.device}",
            f"node={self.node}" if self.node else None, *rest, "raw_ip=1" if self.raw_ip else None,
            f"mtu={mtu}" if mtu else None, "metric=40", "disabled=0",
        ]
        return ["=interface", *("{}='{}'".format(*pair.split("=", 1)) for pair in pairs if pair)]

    def before_up(self) -> list[str]:
        """The commands between the LED's reload and the connect operation."""
        if self.proto not in ("qmi", "qcm"):
            return []
        return [KILL, *([drop_session(self.device)] if self.proto == "qmi" and self.modem_id != 255 else [])]

    def set_apn(self, apn: str) -> list[str]:
        command = f'AT+CGDCONT=1,"IP","{apn}"'
        return {"quectel": [STATUS, TYPE, command], "fibocom": [command], None: []}[self.apn]

    def set_ath(self, apn: str, user: str, password: str, code: int) -> list[str]:
        return [STATUS, TYPE, f'AT+QICSGP=1,1,"{apn}","{user}","{password}",{code}'] if self.ath else []


TTY3 = "/dev/ttyUSB3"
QCM = {"proto": "qcm"}
LED_3G = f"3g-{NAME}"
EC25 = Kind("ec25", 3, WDM, "qmi", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True)
MC7430 = Kind("mc7430", 5, AT_PORT, "directip", "eth1", "1-1.2:1.3", "eth1")
KINDS = {
    "ec25 qmi": EC25,
    "ec25 tty": Kind("ec25", 3, TTY3, "3g", "3g-modem", "1-1.2:1.3", LED_3G, "quectel", True),
    "ec25 qcm": Kind("ec25", 3, WDM, "qcm", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True, request=QCM),
    "ec25 qcm tty": Kind("ec25", 3, TTY3, "qcm", "wwan0", "1-1.2:1.3", "wwan0", "quectel", True, request=QCM),
    "ec25 qcm other": Kind("ec25", 3, "/dev/mhi0", "qcm", "wwan0", None, "wwan0", "quectel", True, request=QCM),
    "ec25 qcm second": Kind("ec25", 3, "/dev/cdc-wdm1", "qcm", "wwan0", None, "wwan1", "quectel", True, request=QCM),
    "ec25 second": Kind("ec25", 3, "/dev/cdc-wdm1", "qmi", "wwan0", None, "wwan1", "quectel", True),
    "ec25 eleventh": Kind("ec25", 3, "/dev/cdc-wdm10", "qmi", "wwan0", None, "wwan1", "quectel", True),
    "ec25 both": Kind("ec25", 3, "/dev/cdc-wdm1-wdm0", "qmi", "wwan0", None, "wwan0", "quectel", True),
    "ec25 acm": Kind("ec25", 3, "/dev/ttyACM7", "3g", "3g-modem", None, LED_3G, "quectel", True),
    "ec25 no path": Kind("ec25", 3, "cdc-wdm0", "qmi", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True),
    "ec25 other proto": Kind("ec25", 3, WDM, "qmi", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True,
                             request={"proto": "3g"}),
    "ec25 auto": Kind("ec25", 3, TTY3, "3g", "3g-modem", "1-1.2:1.3", LED_3G, "quectel", True,
                      request={"proto": "auto"}),
    "ec20 qmi": Kind("ec20", 0, WDM, "qmi", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True),
    "ep06 qmi": Kind("ep06", 1, WDM, "qmi", "wwan0", "1-1.2:1.4", "wwan0", "quectel", True),
    "uc20 tty": Kind("uc20", 4, TTY3, "3g", "3g-modem", "1-1.2:1.3", LED_3G, "quectel", True),
    "mc7430 tty": MC7430,
    "mc7430 qmi": Kind("mc7430", 5, WDM, "qmi", "xxx", "1-1.2:1.8", "wwan0"),
    "simcom7600 tty": Kind("simcom7600", 20, TTY3, "ncm", "xxx", "1-1.2:1.3", "wwan0"),
    "me3630 tty": Kind("me3630", 30, "/dev/ttyUSB2", "ncm", "usb0", "1-1.2:1.2", "wwan0"),
    "ec200t tty": Kind("ec200t", 6, "/dev/ttyUSB2", "ncm", "usb0", "1-1.2:1.4", "wwan0", "quectel", True),
    "bg95 at port": Kind("bg95", 7, AT_PORT, "3g", "3g-modem", "1-1.2:1.2", LED_3G, "quectel"),
    "eg91 at port": Kind("eg91", 8, AT_PORT, "3g", "3g-modem", "1-1.2:1.2", LED_3G, "quectel"),
    "ec100y at port": Kind("ec100y", 9, "/dev/ttyUSB1", "3g", "3g-modem", "1-1.2:1.1", LED_3G, "quectel"),
    "nl678e qmi": Kind("nl678e", 40, WDM, "qmi", "wwan0", "1-1.2:1.4", "wwan0", "fibocom", raw_ip=True),
    "nl678e qcm": Kind("nl678e", 40, WDM, "qcm", "wwan0", "1-1.2:1.4", "wwan0", "fibocom", raw_ip=True, request=QCM),
    "nl678e second": Kind("nl678e", 40, "/dev/cdc-wdm1", "qmi", "wwan0", None, "wwan1", "fibocom"),
    "nl678e no path": Kind("nl678e", 40, "cdc-wdm0", "qmi", "wwan0", "1-1.2:1.4", "wwan0", "fibocom"),
    "nl678e tty": Kind("nl678e", 40, TTY3, "3g", "3g-modem", "1-1.2:1.3", LED_3G, "fibocom"),
    "unknown at port": Kind("unknown", 255, "/dev/ttyACM0", "3g", "3g-modem", "1-1.2:1.0", LED_3G),
    "unknown tty": Kind("unknown", 255, "/dev/ttyACM1", "3g", "3g-modem", "1-1.2:1.2", LED_3G),
    "unknown qmi": Kind("unknown", 255, WDM, "qmi", "wwan0", None, "wwan0"),
    "unknown qcm": Kind("unknown", 255, WDM, "qcm", "wwan0", None, "wwan0", request=QCM),
}
SIM = {"/tmp/sim_status": "ready\n", "/tmp/sim_type": "att\n"}
SETTINGS = {
    "service": "fdd_lte", "apn": "net.example", "mtu": "1400", "operator": "26201", "pincode": "1234",
    "dianum": "*99#", "username": "me", "password": "secret", "ath": "CHAP",
}
WRITTEN = ("service=fdd_lte", "apn=net.example", "pincode=1234", "dialnumber=*99#", "username=me", "password=secret",
           "auth=CHAP")

KEYS = {"service": "service", "apn": "apn", "pincode": "pincode", "dianum": "dialnumber", "username": "username",
        "password": "password", "ath": "auth"}


def make(router, kind: Kind = EC25, **more: object) -> Router:
    options = {"quick": True, "ubus": comes_up(), "files": SIM, **more}
    return router(kind.model, **options)


def post(r: Router, kind: Kind = EC25, **more: object) -> int:
    status, reply = r.api("post", SET, {"modem_id": kind.modem_id, "device": kind.device, **kind.request, **more})
    assert reply == {}
    r.wait_idle()
    return status
