#!/usr/bin/python3
"""The status page on a simulated router: two modems whose signal changes while one looks on, and an inbox.

    sim/web_demo.py [--port 8080]

Prints the address, the user and the password; ends with Ctrl-C. The page is reachable from this machine only.
"""

import argparse
import math
import secrets
import signal
import sys
import threading
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

from showcase import TWO_MODEMS  # noqa: E402
from velasim.router import Router, RouterError  # noqa: E402
from web_server import User, WebServer  # noqa: E402

MODEMS = {"1-1.2": "ec25", "2-1.2": "ep06"}
# netifd's side: the first modem is connected, the second one will be as soon as it is asked to.
BUS = {
    "interfaces": {
        "modem_1_1_2": {"state": "up", "l3_device": "wwan0", "on_up": "up", "on_down": "down"},
        "modem_2_1_2": {"state": "down", "l3_device": "wwan1", "on_up": "up", "on_down": "down"},
    },
}
TRACKED = {f"/run/mwan3track/{name}/STATUS": "online\n" for name in BUS["interfaces"]}
# The modems' network devices, and frames of 60 kB over them: so many came, so many went.
LINKS = """set -e
for number in 0 1; do
    ip link add wwan$number mtu 65535 type veth peer name net$number mtu 65535
    ip addr add 10.6$number.0.17/30 dev wwan$number
    ip link set wwan$number up
    ip link set net$number up
done
ip route add default via 10.60.0.18 dev wwan0
"""
TRAFFIC = """import socket
for name, count in (("net0", 900), ("wwan0", 70)):
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as device:
        device.bind((name, 0x88b5))
        for _ in range(count):
            device.send(bytes(12) + b"\\x88\\xb5" + bytes(60000))
"""

REGISTERED = '\n+CREG: 0,1\n\nOK\n'
EC25_SIGNAL = '\n+QCSQ: "LTE",{rssi},{rsrp},{sinr},{rsrq}\n\nOK\n'
CELL = '\n+QENG: "servingcell","NOCONN","LTE","FDD",{cell},{{rsrp}},{{rsrq}},-{{rssi}},{rest}\n\nOK\n'
EC25_CELL = CELL.format(cell="262,02,2A1B21,193,1250,3,5,5,2A1C", rest="13,29")
EP06_CELL = CELL.format(cell="222,88,24A100E,20,3350,7,5,5,3A1B", rest="15,-")

INCOMING = "/etc/spool/sms/incoming/VMS99."
STORED = "/etc/spool/sms/storage/VMS99."


def message(sender: str, sent: str, text: str) -> str:
    return (f"From: {sender}\nFrom_TOA: 91 international, ISDN/telephone\nSent: {sent}\nReceived: {sent}\n"
            f"Alphabet: UTF-8\nLength: {len(text)}\n\n{text}\n")


MESSAGES = {
    f"{INCOMING}k3Yt0w": message("491700000001", "26-11-21 09:30:00", "Your data volume is 10 GB."),
    f"{INCOMING}p81sQx": message("491700000017", "26-11-20 18:04:12",
                                 "Storage 2: the door was opened at 18:03 and closed at 18:04."),
    f"{STORED}aa17Lm": message("391700000002", "26-11-19 07:15:40",
                               "Gentile cliente, l’offerta si è rinnovata: 100 GB fino al 18 dicembre."),
}


def web_router(**options: object) -> Router:
    """The router of the demonstration, which the browser tests have too."""
    router = Router(modems=MODEMS, uci=TWO_MODEMS, ubus=BUS, files={**MESSAGES, **TRACKED}, net=True, **options)
    try:
        for command in (["/bin/dash", "-c", LINKS], ["/usr/bin/python3", "-c", TRAFFIC]):
            made = router.run(*command)
            if made.returncode != 0:
                raise RouterError(f"the links of the modems: {made.stderr}")
        router.modem("2-1.2").reply("AT+CREG?", REGISTERED)
        set_signal(router, 0)
    except BaseException:
        router.close()
        raise
    return router


def set_signal(router: Router, step: int) -> None:
    """What both modems measure, as somebody might who is carried about slowly."""
    sway = 12 * math.sin(step / 9) + 4 * math.sin(step / 2.3)
    first = {"rsrp": round(-98 + sway), "rsrq": -9 - (step // 7) % 3, "rssi": round(70 - sway),
             "sinr": round(150 + 4 * sway)}
    second = {"rsrp": round(-86 - sway / 2), "rssi": round(55 + sway / 2), "rsrq": -12 + (step // 11) % 2}
    router.modem("1-1.2").reply("AT+QCSQ", EC25_SIGNAL.format(**first))
    router.modem("1-1.2").reply('AT+QENG="servingcell"', EC25_CELL.format(**first))
    router.modem("2-1.2").reply('AT+QENG="servingcell"', EP06_CELL.format(**second))


def main() -> int:
    parser = argparse.ArgumentParser(prog="sim/web_demo.py", description=__doc__.split("\n")[0])
    parser.add_argument("--port", type=int, default=0, help="of the address (default: any that is free)")
    options = parser.parse_args()
    ended = threading.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: ended.set())
    user = User("root", secrets.token_urlsafe(6))
    try:
        with web_router() as router, WebServer(router, [user], port=options.port) as server:
            print(f"The status page is at {server.address}\nUser {user.name}, password {user.password}\n"
                  "Two simulated modems are behind it. Ctrl-C ends it.", flush=True)
            step = 0
            while not ended.wait(5.0):
                step += 1
                set_signal(router, step)
    except (RouterError, OSError) as problem:
        print(f"demo: {problem}", file=sys.stderr)
        return 1
    print("\nThe simulated router is gone; nothing of it is left.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
