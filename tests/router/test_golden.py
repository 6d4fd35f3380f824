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
    ["no-such-command"],
]

# Commands whose operations are still to come: they print "Not support" on every model. Only ever taken off this list,
# and then added to the one above.
PENDING = [
    ["connect", "serial", "/dev/ttyUSB3", "*99#", "internet"],
    ["connect-auto"],
    ["new-connect-auto"],
    ["disconnect"],
]
# The same of single models.
PENDING_OF = {
}

# What shell commands begin with, of those that run any: they look the carrier up, and ask the radio for its channel.
CARRIER = ('echo "', "cat /usr/share/modem/operator.dat|grep ")
SHELL_COMMANDS = {"test": CARRIER, "wifi_lte_interference": (*CARRIER, "iwinfo wlan0 info ")}
PROGRAMS = {"wifi_lte_interference": [["iwinfo", "wlan0", "info"]]}


def make_router(model: str) -> Router:
    return Router(model, files={"/tmp/message": MESSAGE.encode(f"utf-16-{sys.byteorder[0]}e")})


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
    # The detection of an unknown modem looks its carrier up.
    allowed = SHELL_COMMANDS.get(words[0], CARRIER if model == "unknown" else ())
    assert [command for command in r.commands if not command.startswith(allowed)] == [], words
    assert r.programs == PROGRAMS.get(words[0], []), words
    r.clear_events()


def outputs(r: Router, model: str) -> str:
    entries = []
    for words in LINES:
        if words not in PENDING_OF.get(model, []):
            entries.append(entry(r, words))
            check_effects(r, words, model)
    return "\n".join(entries)


@pytest.mark.parametrize("model", MODELS)
def test_every_command_on_every_model(model):
    with make_router(model) as r:
        assert outputs(r, model) == (GOLDEN / f"{model}.txt").read_text(encoding="utf-8")


@pytest.mark.parametrize("model", MODELS)
def test_commands_that_are_still_to_come_say_that_they_are_not_supported(model):
    with make_router(model) as r:
        for words in PENDING + PENDING_OF.get(model, []):
            result = r.run("vela_modem", *words)
            assert (result.returncode, result.stdout, result.stderr) == (0, "Not support", ""), words
        assert r.events == [] or model == "unknown"


def test_no_command_is_forgotten():
    assert {words[0] for words in LINES + PENDING} == {*COMMANDS, "no-such-command"}
    assert not [words for words in PENDING if words in LINES]
    assert all(words in LINES for lines in PENDING_OF.values() for words in lines)
    assert sorted(path.stem for path in GOLDEN.iterdir()) == MODELS


if __name__ == "__main__":
    GOLDEN.mkdir(exist_ok=True)
    for name in MODELS:
        with make_router(name) as one:
            (GOLDEN / f"{name}.txt").write_text(outputs(one, name), encoding="utf-8")
