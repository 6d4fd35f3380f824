#!/usr/bin/python3
"""Shows the program at work, on a simulated router with an EC25: each command as it is typed, what it prints, and at
the end what the router and the modem saw of it."""

import shlex
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

from velasim.router import Router, RouterError  # noqa: E402

REQUEST = '{"at-command":"AT+CSQ","at-port":"/dev/ttyUSB2"}'

MESSAGE = """From: 491700000001
From_TOA: 91 international, ISDN/telephone
Sent: 26-11-21 09:30:00
Received: 26-11-21 09:30:04
Alphabet: ISO
Length: 26

Your data volume is 10 GB.
"""

STEPS = [
    ("Which modem is on bus 1-1.2, and on which ports? -D prints the detection report before the command's own output.",
     ["vela_modem", "-D", "-B", "1-1.2", "AT", "ATI"]),
    ("How well does it hear the network? Each measurement, the level from 1 to 4, and the generation.",
     ["vela_modem", "signal"]),
    ("Which cells does it see? (the serving cell first, then its neighbours)", ["vela_modem", "cells"]),
    ("Can the SIM be used, and who is the operator?", ["vela_modem", "sim-status"]),
    ("", ["vela_modem", "carrier"]),
    ("The same modem through the web interface: vela_api calls one endpoint of the plug-in, as the API server would.",
     ["vela_api", "post", "/modem/at", REQUEST]),
    ("The received messages, from smstools3's spool.",
     ["vela_api", "get", "/modem/sms/list", '{"modem_id":3}']),
    ("A second modem has been plugged in on bus 2-1.2. Its dialect for cells is not known to this version.",
     ["vela_modem", "2-1.2", "AT", "ATI"]),
    ("", ["vela_modem", "2-1.2", "cells"]),
    ("A bus without a modem: nothing is printed, and the exit status is 0.",
     ["vela_modem", "-B", "1-1.3", "AT", "ATI"]),
]


def show(router: Router, text: str, command: list[str]) -> bool:
    if text:
        print(f"\n\033[1m{text}\033[0m" if sys.stdout.isatty() else f"\n{text}")
    print(f"router# {shlex.join(command)}")
    result = router.run(*command)
    print((result.stdout + result.stderr).replace("\r\n", "\n").rstrip("\n"))
    return result.returncode == 0


def show_events(router: Router) -> None:
    print("\nWhat the router saw, in order (AT commands by modem and port):")
    for event in router.events:
        if event["kind"] == "at":
            print(f"  modem {event['bus']}  /dev/{event['port']}  {event['command']}")
        else:
            print(f"  {event['kind']}  {event.get('command') or event.get('argv') or event}")


def main() -> int:
    try:
        files = {"/etc/spool/sms/incoming/VMS99.k3Yt0w": MESSAGE}
        with Router(modems={"1-1.2": "ec25", "2-1.2": "mc7430"}, files=files) as router:
            passed = [show(router, text, command) for text, command in STEPS]
            show_events(router)
    except RouterError as problem:
        print(f"demo: {problem}", file=sys.stderr)
        return 1
    return 0 if all(passed) else 1


if __name__ == "__main__":
    sys.exit(main())
