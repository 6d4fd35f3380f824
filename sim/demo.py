#!/usr/bin/python3
"""Shows the program at work, on a simulated router with an EC25, an EP06 and an MC7430: each command as it is typed,
what it prints, and at the end what the router and the modem saw of it."""

import json
import shlex
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

from showcase import new_router, showcase  # noqa: E402
from sms_daemon import start_sms_daemon  # noqa: E402
from velasim.router import Router, RouterError  # noqa: E402
from velasim.sms_pdu import deliver, read_submit  # noqa: E402

REQUEST = '{"at-command":"AT+CSQ","at-port":"/dev/ttyUSB2"}'

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
    ("All configured modems at once, as the status page asks for them; and the shorter lists.",
     ["vela_api", "get", "/modem/info"]),
    ("", ["vela_api", "get", "/modem/brief_info"]),
    ("", ["vela_api", "get", "/modem/app/brief_info"]),
    ("One modem: what is known of its SIM, and its cells. A level is a raw byte here, as clients know it.",
     ["vela_api", "post", "/modem/modem_info/get", '{"bus":"1-1.2","modem_id":3}']),
    ("", ["vela_api", "post", "/modem/cells/get", '{"bus":"2-1.2","modem_id":1}']),
    ("Another maker's modem on bus 1-1.3: the same questions in its own dialect.",
     ["vela_modem", "1-1.3", "AT", "AT!GSTATUS?"]),
    ("", ["vela_modem", "1-1.3", "cells"]),
    ("Thermal limits, the microcontroller's status object, and the Wi-Fi channel against LTE interference.",
     ["vela_modem", "thermal"]),
    ("", ["vela_modem", "test"]),
    ("", ["vela_modem", "wifi_lte_interference"]),
    ("A bus without a modem: nothing is printed, and the exit status is 0.",
     ["vela_modem", "-B", "1-1.4", "AT", "ATI"]),
]


# What follows is in a second router, whose modem has not been set up.
INTERFACE = "modem_1_1_2"
SETTINGS = '{"modem_id":3,"device":"/dev/cdc-wdm0","service":"fdd_lte","apn":"web.vodafone.de","ttl":64}'
UCI = "uci show network.{0}; uci show mwan3.{0}; uci show velamodem.{0}; uci get firewall.@zone[1].network"
CONNECTION_STEPS = [
    ("Now the link: /modem/set writes the interface, mwan3, TTL and firewall, and asks netifd to bring it up.",
     ["vela_api", "post", "/modem/set", SETTINGS]),
    ("", ["dash", "-c", UCI.format(INTERFACE)]),
    ("", ["ubus", "call", f"network.interface.{INTERFACE}", "status"]),
    ("/modem/get reads it back, and /modem/enable takes it down.", ["vela_api", "get", "/modem/get"]),
    ("", ["vela_api", "post", "/modem/enable", '{"disable":true}']),
    ("", ["ubus", "call", f"network.interface.{INTERFACE}", "status"]),
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


def show_automatic_connection(router: Router) -> bool:
    """connect-auto, with a network that takes the second APN only."""
    print("\nThe same by itself: connect-auto takes the SIM's IMSI to the APN database and tries what it finds there.\n"
          "This network takes the second APN only.")
    router.set_ubus_state({"interfaces": {INTERFACE: "down"}})
    process = router.start("vela_modem", "connect-auto")
    print("router# vela_modem connect-auto")
    tried: list[str] = []
    while process.poll() is None:
        apn = router.run("uci", "-q", "get", f"network.{INTERFACE}.apn").stdout.strip()
        if apn and apn not in tried:
            tried.append(apn)
            print(f"  trying {apn}")
        if len(tried) == 2:
            router.set_ubus_state({"interfaces": {INTERFACE: {"state": "up", "l3_device": "wwan0"}}})
    print(process.communicate()[0].decode().strip())
    return show(router, "", ["uci", "get", f"network.{INTERFACE}.apn"]) and len(tried) == 2


def show_messages(router: Router) -> bool:
    """A message in and one out, with smstools3's daemon between the spool and the modem."""
    def api(text: str, method: str, action: str, **request: str) -> bool:
        body = json.dumps({"modem_id": 3, **request}, separators=(",", ":"), ensure_ascii=False)
        return show(router, text, ["vela_api", method, f"/modem/sms/{action}", body])

    incoming, modem = "/etc/spool/sms/incoming", router.modem()
    start_sms_daemon(router, VMS99=modem)
    modem.receive_sms(deliver("+900000000017", "261121093000", "Your data volume is 10 GB."))
    router.wait_for(lambda: "AT+CMGD=1" in modem.commands, "the daemon to take the message", 60.0)
    [name] = [file for file in router.listdir(incoming) if file.startswith("VMS99.")]
    passed = [
        api("A message has reached the modem, and smstools3's daemon has put it into the spool.", "get", "list"),
        api("It is marked read, and deleted.", "post", "status", msg_id=name),
        api("", "get", "list"),
        api("", "post", "delete", msg_id=name),
        api("And one goes out, through the daemon's script.", "post", "send",
            number="+900000000018", message="10 \u20ac?"),
    ]
    router.wait_for(lambda: modem.sent_sms, "the daemon to send the message", 60.0)
    [pdu] = modem.sent_sms
    sent = read_submit(pdu)
    print(f"The modem was given the PDU {pdu}\nwhich says {sent.text!r} to {sent.number}.")
    return all(passed)


def main() -> int:
    try:
        with showcase() as router:
            passed = [show(router, text, command) for text, command in STEPS]
            show_events(router)
        with new_router() as router:
            passed += [show(router, text, command) for text, command in CONNECTION_STEPS]
        with new_router() as router:
            passed.append(show_automatic_connection(router))
        with Router("ec25") as router:
            passed.append(show_messages(router))
    except RouterError as problem:
        print(f"demo: {problem}", file=sys.stderr)
        return 1
    return 0 if all(passed) else 1


if __name__ == "__main__":
    sys.exit(main())
