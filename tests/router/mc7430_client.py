"""What the tests of the MC7430 share: its status report, and what is said of it."""

import json

from probe_client import probe
from velasim import Router

BUS = "1-1.2"
MODEM_ID = 5
REPORT = "AT!GSTATUS?"
SERVED = ["up", "SIM_status", "online", "signal", "mode", "newsms"]
UNSERVED = ["up", "SIM_status", "online", "newsms"]
REFUSALS = ["\nERROR\n", "\n+CME ERROR: 3\n"]


def ok(*lines: str) -> str:
    return "\n" + "".join(f"{line}\n" for line in lines) + "\n\nOK\n"


LTE_LINES = [
    "!GSTATUS: ",
    "Current Time:  22016\t\tTemperature: 40",
    "Reset Counter: 1\t\tMode:        ONLINE         ",
    "System mode:   LTE        \tPS state:    Attached     ",
    "LTE band:      B2     \t\tLTE bw:      20 MHz  ",
    "LTE Rx chan:   800\t\tLTE Tx chan: 18800",
    "LTE CA state:  NOT ASSIGNED",
    "EMM state:     Registered     \tNormal Service ",
    "RRC state:     RRC Connected  ",
    "IMS reg state: No Srv  \t\t",
    "",
    "PCC RxM RSSI:  -45\t\tRSRP (dBm):  -81",
    "PCC RxD RSSI:  -44\t\tRSRP (dBm):  -79",
    "Tx Power:      15\t\tTAC:         7B21 (31521)",
    "RSRQ (dB):     -14.0\t\tCell ID:     0A1B2C3D (169552957)",
    "SINR (dB):     23.8",
]
LTE = ok(*LTE_LINES)
PSS = {
    "type": "PSS", "state": "Attached", "cellid": "0A1B2C3D (169552957)", "band": "B2", "bandwidth": "20 MHz",
    "tx-chan": "18800", "rx-chan": "800", "M-rssi": "-45", "D-rssi": "-44", "M-rsrp": "-81", "D-rsrp": "-79",
    "rsrq": "-14.0", "sinr": "23.8", "tac": "7B21 (31521)", "rat": "LTE",
}
# What the simulated modem says by itself: the same on two carriers.
SSS = {
    "type": "SSS", "band": "B12", "bandwidth": "10 MHz", "chan": "5110", "M-rssi": "-52", "D-rssi": "-51",
    "M-rsrp": "-83", "D-rsrp": "-81", "rat": "LTE",
}
AGGREGATED = ok(*LTE_LINES[:6], "LTE CA state:  ACTIVE      \t\tLTE Scell band:B12    ",
                "LTE Scell bw:10 MHz  \t\tLTE Scell chan:5110", *LTE_LINES[7:13],
                "SCC RxM RSSI:  -52\t\tRSRP (dBm):  -83", "SCC RxD RSSI:  -51\t\tRSRP (dBm):  -81", *LTE_LINES[13:])
WCDMA_LINES = [
    "!GSTATUS: ",
    "Current Time:  1350\t\tTemperature: 32",
    "Reset Counter: 1\t\tMode:        ONLINE         ",
    "System mode:   WCDMA      \tPS state:    Attached     ",
    "WCDMA band:    WCDMA 2100 ",
    "WCDMA channel: 10662",
    "GMM (PS) state:REGISTERED\tNORMAL SERVICE ",
    "MM (CS) state: IDLE      \tNORMAL SERVICE ",
    "",
    "WCDMA L1 state:L1M_PCH_SLEEP\tLAC:         1A2B (6699)",
    "RRC state:     DISCONNECTED\tUTRAN Cell ID: 01A2B3C4 (27440068)",
    "RxM RSSI C0:   -68\t\tRxD RSSI C0:   -70",
    "RxM RSSI C1:   ---\t\tRxD RSSI C1:   ---",
]
WCDMA = ok(*WCDMA_LINES)
SERVINGCELL = {
    "type": "servingcell", "state": "Attached", "cellid": "01A2B3C4 (27440068)", "band": "WCDMA 2100", "chan": "10662",
    "M-rssi-c0": "-68", "M-rssi-c1": "---", "D-rssi-c0": "-70", "D-rssi-c1": "---", "lac": "1A2B (6699)",
    "rat": "WCDMA",
}
SEARCHING = ok("!GSTATUS: ", "Current Time:  602\t\tTemperature: 35",
               "System mode:   Unknown    \tPS state:    Not attached ",
               "GMM (PS) state:DEREGISTERED\tNO SERVICE     ", "MM (CS) state: IDLE      \tNO SERVICE     ")
BEST = {"rsrp": -90, "rsrq": -9, "sinr": 13, "rssi": -65}
WORST = {"rsrp": -121, "rsrq": -14, "sinr": 6, "rssi": -86}


def measured(rssi: object = -60, rsrp: object = -80, rsrq: object = -5, sinr: object = 20) -> str:
    return ok("System mode:   LTE", f"PCC RxM RSSI:  {rssi}\t\tRSRP (dBm):  {rsrp}",
              "PCC RxD RSSI:  -99\t\tRSRP (dBm):  -130", f"RSRQ (dB):     {rsrq}\t\tCell ID:     1",
              f"SINR (dB):     {sinr}")


def wcdma(rssi: object) -> str:
    return ok("System mode:   WCDMA", f"RxM RSSI C0:   {rssi}\t\tRxD RSSI C0:   -99", "RxM RSSI C1:   -99")


def printed_cells(r: Router) -> list[dict]:
    result = r.run("vela_modem", "cells")
    assert (result.returncode, result.stderr) == (0, "")
    return json.loads(result.stdout)


def cells(r: Router, reply: str | bytes) -> list[dict]:
    r.modem().reply(REPORT, reply)
    return printed_cells(r)


def status(r: Router, bus: str = BUS) -> dict:
    result, reply = probe(r, "status", bus)
    assert result == 0
    return reply


def served(r: Router, reply: str | bytes) -> tuple[int, str] | None:
    """Level and mode in the status block, None where they are left out."""
    r.modem().reply(REPORT, reply)
    block = status(r)
    assert list(block) in (SERVED, UNSERVED)
    return (block["signal"], block["mode"]) if "signal" in block else None


def ordered(objects: list[dict]) -> list[list[tuple[str, str]]]:
    return [list(each.items()) for each in objects]
