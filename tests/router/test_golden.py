"""What every command prints on every model, to the byte: golden/MODEL.txt.

Each entry is a command line, its exit status and its output. An output line stands behind "| "; one without a line end
of its own is followed by a "\\"; a backslash and control characters are written as escapes.

After a wanted change rebuild the files with `/usr/bin/python3 tests/router/test_golden.py` and say in the commit why
they changed.
"""

import re
import sys
from pathlib import Path

if __name__ == "__main__":
    sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "sim"))

import pytest
from support import COMMANDS
from velasim import Router
from velasim.modem_file import MODEMS

GOLDEN = Path(__file__).with_name("golden")
MODELS = sorted(path.stem for path in MODEMS.glob("*.modem"))
MESSAGE = "Grüße 你好"

LINES = [
    ["AT"],
    ["AT", "AT"],
    ["AT", "ATI"],
    ["AT", "AT+GSN"],
    ["AT", "AT+CIMI"],
    ["AT", "AT+CPIN?"],
    ["AT", "AT+CREG?"],
    ["AT", "AT+CEREG?"],
    ["AT", "AT+COPS?"],
    ["AT", "AT+CSQ"],
    ["AT", "AT+NOSUCH"],
    ["sim-status"],
    ["signal"],
    ["cells"],
    ["iccid"],
    ["thermal"],
    ["carrier"],
    ["check_register"],
    ["get_mode"],
    ["connect", "qmi", "/dev/cdc-wdm0"],
    ["convert", "/tmp/message", "8"],
    ["test"],
    ["wifi_lte_interference"],
    ["disconnect"],
    ["connect", "serial", "/dev/ttyUSB3", "*99#", "internet"],
    ["connect-auto"],
    ["new-connect-auto"],
    ["disconnect"],
    ["no-such-command"],
]

# The link of the modem comes up when netifd is told so, and goes down when it reads its configuration again.
NETWORK = "config interface 'modem_1_1_2'\n"
STATE = {"interfaces": {"modem_1_1_2": {"state": "down", "on_up": "up", "on_reload": "down"}}}

# What shell commands begin with, of those that run any: they look the carrier up, ask the radio for its channel, drive
# the configuration and the link. What the latter do in which order is tested in test_*connect*.py.
CARRIER = ('echo "', "cat /usr/share/modem/operator.dat|grep ")
CONNECTION = (*CARRIER, "cat /tmp/sim_", "uci set network.modem_1_1_2.disabled=", "uci commit ",
              "uci get firewall.@zone[1].network", "uci set firewall.@zone[1].network=", "/etc/init.d/firewall reload",
              "/etc/init.d/led reload", "killall uqmi", "timeout -t 2 uqmi -d /dev/cdc-wdm0 ", "mwan3 restart",
              "ubus call network.interface.modem_1_1_2 up", "vela-firewall", "uci show network | ")
CONNECTING = ("connect", "connect-auto", "new-connect-auto", "disconnect")
SHELL_COMMANDS = {"test": CARRIER, "wifi_lte_interference": (*CARRIER, "iwinfo wlan0 info "),
                  **{command: CONNECTION for command in CONNECTING}}
CONNECTION_PROGRAMS = [["/etc/init.d/led", "reload"], ["killall", "uqmi"], ["mwan3", "restart"], ["vela-firewall"],
                       ["/etc/init.d/firewall", "reload"]]
PROGRAMS = {"wifi_lte_interference": [["iwinfo", "wlan0", "info"]]}


def make_router(model: str) -> Router:
    files = {"/tmp/message": MESSAGE.encode(f"utf-16-{sys.byteorder[0]}e"), "/tmp/sim_status": "ready\n",
             "/tmp/sim_type": "other\n"}
    return Router(model, files=files, ubus=STATE, quick=True, uci={"network": NETWORK})


def escape(character: re.Match) -> str:
    return {"\\": "\\\\", "\r": "\\r", "\t": "\\t"}.get(character[0], f"\\x{ord(character[0]):02x}")


def entry(r: Router, words: list[str]) -> str:
    result = r.run("vela_modem", *words)
    assert result.stderr == "", words
    lines = ["$ vela_modem " + " ".join(words)]
    if result.returncode != 0:
        lines.append(f"status {result.returncode}")
    text = re.sub(r"[\x00-\x09\x0b-\x1f\\\x7f\udc80-\udcff]", escape, result.stdout)
    if text:
        lines += ["| " + line for line in text.removesuffix("\n").split("\n")]
        if not text.endswith("\n"):
            lines[-1] += "\\"
    return "\n".join(lines) + "\n"


def check_effects(r: Router, words: list[str], model: str) -> None:
    r.wait_idle()
    # The detection of an unknown modem looks its carrier up.
    allowed = SHELL_COMMANDS.get(words[0], CARRIER if model == "unknown" else ())
    assert [command for command in r.commands if not command.startswith(allowed)] == [], words
    if words[0] in CONNECTING:
        assert [argv for argv in r.programs if argv not in CONNECTION_PROGRAMS] == [], words
    else:
        assert r.programs == PROGRAMS.get(words[0], []), words
    r.clear_events()


def outputs(r: Router, model: str) -> str:
    entries = []
    for words in LINES:
        entries.append(entry(r, words))
        check_effects(r, words, model)
    return "\n".join(entries)


@pytest.mark.parametrize("model", MODELS)
def test_every_command_on_every_model(model):
    with make_router(model) as r:
        assert outputs(r, model) == (GOLDEN / f"{model}.txt").read_text(encoding="utf-8")


def test_no_command_is_forgotten():
    assert {words[0] for words in LINES} == {*COMMANDS, "no-such-command"}
    assert sorted(path.stem for path in GOLDEN.iterdir()) == MODELS


if __name__ == "__main__":
    GOLDEN.mkdir(exist_ok=True)
    for name in MODELS:
        with make_router(name) as one:
            (GOLDEN / f"{name}.txt").write_text(outputs(one, name), encoding="utf-8")
