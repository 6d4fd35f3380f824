"""What the tests of a modem's restart and of the switch of its SIM share: asking for them, and their effects."""

import json
import syslog

from velasim import Router
from velasim.router import Result

BUS = "1-1.2"
EC25, BG95, EC200T = 3, 7, 6  # BG95 and EC200T switch SIMs by their supply
GPIO = "/sys/class/gpio"
LEDS = "/sys/class/leds"
SIM_GPIO = f"{GPIO}/gpio1/value"
SUCCESS = (syslog.LOG_DEBUG, "reset success\n")
FAILED = (syslog.LOG_DEBUG, "reset failed\n")


def effects(r: Router) -> list[str]:
    """Shell commands behind "$ ", the recorded programs that they run behind "> ", AT commands behind their port."""
    texts = {"shell": lambda event: "$ " + event["command"], "program": lambda event: "> " + " ".join(event["argv"]),
             "at": lambda event: f'{event["bus"]} {event["port"]} {event["command"]}'}
    return [texts[event["kind"]](event) for event in r.events]


def reset(r: Router, **request: object) -> tuple[int, dict]:
    return r.api("post", "/modem/reset", request)


def switch(r: Router, **request: object) -> tuple[int, dict]:
    return r.api("post", "/modem/sim/switch", request)


def raw(r: Router, path: str, **request: object) -> Result:
    """For what ends the process."""
    return r.run("vela_api", "post", path, json.dumps(request))


def name_of(bus: str) -> str:
    return "modem_" + bus.replace("-", "_").replace(".", "_")


def taken_down(bus: str = BUS) -> list[str]:
    return ["$ /usr/bin/reactivate_mbn", "> /usr/bin/reactivate_mbn", f"$ ifdown {name_of(bus)}",
            f"> ifdown {name_of(bus)}", f"$ rm -rf /tmp/modem.{bus};/etc/init.d/smstools3 stop",
            "> /etc/init.d/smstools3 stop"]


CHECK = "$ sleep 20 && /usr/bin/check_verizon &"


def brought_up(bus: str = BUS) -> list[str]:
    return [CHECK, f"$ ifup {name_of(bus)}", f"> ifup {name_of(bus)}"]


START_SMS = "$ sleep 3 && /etc/init.d/smstools3 start"
AFTER_RESET = [START_SMS, "> /etc/init.d/smstools3 start", "> /usr/bin/check_verizon"]

EXPORT = [f"$ echo 1 >{GPIO}/export", f"$ echo out >{GPIO}/gpio1/direction"]
FORGET_SIM = ["$ rm -rf /tmp/modem.2-1.2/signal*", "$ rm -rf /tmp/modem.2-1.2/cimi"]


def select(number: str) -> str:
    return f"$ echo {1 if number == '2' else 0} > {SIM_GPIO}"


def show_signal(bus: str) -> list[str]:
    return [f"$ sleep 15 && modem_signal_led.sh {bus}", f"> modem_signal_led.sh {bus}"]


def assert_sequence(r: Router, foreground: list[str], background: list[str]) -> None:
    """What the request did itself, and what it left to background commands, each in its order: how the two mix is up to
    the scheduler."""
    r.wait_idle()
    seen = effects(r)
    assert [text for text in seen if text not in background] == foreground
    assert sorted(text for text in seen if text in background) == sorted(background)


def stored_sim(r: Router) -> str:
    return r.run("uci", "get", "velamodem.sim.sim_num").stdout
