"""What the tests of the settings of Quectel modems share: the commands that write them, and what is said of those."""

from support import MODELS
from velasim import Router

BUS = "1-1.2"
EVERY = sorted({*MODELS, "unknown"})
NOT_SUPPORTED = -17
REFUSALS = ["\nERROR\n", "\n+CME ERROR: 3\n", "\n+CME ERROR: operation not allowed\n"]

LIMIT_RATES = 'AT+QCFG="thermal/limit_rates",{}'
LIMITS = 'AT+QCFG="thermal/modem",1,{},{}'
SET, FAILED = "thermal setting  success", "thermal setting failed"

VARIANTS = [
    ("EC25AFFA", 'AT+QCFG="band",0,42000000000000381a,0'),
    ("EC25AFXD", 'AT+QCFG="band",0,42000000000000381a,0'),
    ("EC25AFA", 'AT+QCFG="band",0,80a,0'),
    ("EC20CE", 'AT+QCFG="band",0,1e200000095,0'),
    ("EC25EUX", 'AT+QCFG="band",0,1a0080800c5,0'),
    ("EC25E", 'AT+QCFG="band",0,1a0000800d5,0'),
    ("EP06E", 'AT+QCFG="band",0,7e00000000000000000000000000000000000000000000ff000001a0880800d5,0'),
    ("EP06A", 'AT+QCFG="band",0,2000000003300185a,0'),
    ("EC25AU", 'AT+QCFG="band",0,80080000df,0'),
    ("EG25G", 'AT+QCFG="band",0,1e00b0e18df,0'),
]
BANDS = dict(VARIANTS)

STATUS, TYPE = "/tmp/sim_status", "/tmp/sim_type"
READY = {STATUS: "ready\n"}
APN = 'AT+CGDCONT=1,"IP","{}"'
CREDENTIALS = 'AT+QICSGP=1,1,"{}","{}","{}",{}'

SET_APN = ["set-apn", "internet"]
SET_ATH = ["set-ath", "internet", "user", "secret", "CHAP"]
COMMANDS = {"set-apn": APN.format("internet"), "set-ath": CREDENTIALS.format("internet", "user", "secret", 2)}


def sent(r: Router) -> list[tuple[str, str]]:
    return [(event["port"], event["command"]) for event in r.events if event["kind"] == "at"]


def port_of(name: str) -> str:
    return MODELS[name].control_port.removeprefix("/dev/")


def wanted(en_limt: str = "0", tigger: str = "95", clear: str = "90") -> list[str]:
    return [LIMIT_RATES.format(en_limt), LIMITS.format(tigger, clear)]
