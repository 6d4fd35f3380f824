"""The manual pages and the shell's completion know what the programs know."""

import re
import shlex
from typing import Iterator

import pytest
from product_sources import ROOT
from support import COMMANDS
from velasim import Router

pytestmark = pytest.mark.shipped

COMPLETION = (ROOT / "completion/vela_modem.bash").read_text(encoding="utf-8")
# What readline does at the tabulator: it calls the registered function with the words and the cursor in the last one.
AT_THE_TABULATOR = """
COMP_WORDS=({words})
COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1))
[[ $(complete -p {program}) =~ -F\\ ([^ ]+) ]] && "${{BASH_REMATCH[1]}}" {program}
printf '%s\\n' "${{COMPREPLY[@]}}"
"""


@pytest.fixture(scope="module")
def r() -> Iterator[Router]:
    with Router(modems={"1-1.2": "ec25", "2-1.2": "mc7430"}, ubus=False) as one:
        yield one


def completed(r: Router, *words: str) -> list[str]:
    script = COMPLETION + AT_THE_TABULATOR.format(words=shlex.join(words), program=words[0])
    result = r.run("bash", "-c", script)
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout.split()


def endpoints(r: Router) -> list[tuple[str, str]]:
    return [tuple(line.split()) for line in r.run("vela_api", "list").stdout.splitlines()]


@pytest.mark.parametrize("words, offered", [
    (["vela_modem", ""], ["-D", "-B", *COMMANDS]),
    (["vela_modem", "-"], ["-D", "-B"]),
    (["vela_modem", "-D", ""], ["-B", *COMMANDS]),
    (["vela_modem", "-B", ""], ["1-1", "1-1.2", "2-1", "2-1.2"]),
    (["vela_modem", "-D", "-B", "2-1."], ["2-1.2"]),
    (["vela_modem", "-B", "1-1.2", ""], list(COMMANDS)),
    (["vela_modem", "1-1.2", "c"], ["connect", "connect-auto", "cells", "carrier", "convert", "check_register"]),
    (["vela_modem", "-B", "1-1.2", "si"], ["sim-status", "signal"]),
    (["vela_modem", "AT", "/dev/ttyUSB"], [f"/dev/ttyUSB{number}" for number in range(7)]),
    (["vela_modem", "AT", "AT+CS"], ["AT+CSQ"]),
    (["vela_modem", "connect", ""], ["serial", "qmi"]),
    (["vela_modem", "connect", "qmi", ""], ["/dev/cdc-wdm0", "/dev/cdc-wdm1"]),
    (["vela_modem", "-D", "connect", "serial", "/dev/ttyUSB6"], ["/dev/ttyUSB6"]),
    (["vela_modem", "convert", "/etc/config/mw"], ["/etc/config/mwan3"]),
    (["vela_modem", "signal", ""], []),
    (["vela_api", ""], ["get", "post", "list", "rpcd", "--plugin"]),
    (["vela_api", "--plugin", "/usr/bin/vela_modem.s"], ["/usr/bin/vela_modem.so"]),
    (["vela_api", "--plugin", "/usr/bin/vela_modem.so", ""], ["get", "post", "list", "rpcd"]),
    (["vela_api", "rpcd", ""], ["list", "call"]),
    (["vela_api", "post", "/modem/sms/de"], ["/modem/sms/delete", "/modem/sms/delete_all"]),
    (["vela_api", "rpcd", "call", "sim"], ["sim_switch"]),
], ids=lambda value: " ".join(value) if value[:1] and value[0].startswith("vela") else "")
def test_the_completion_offers_what_may_stand_there(r, words, offered):
    assert completed(r, *words) == offered


def test_all_endpoints_are_offered_by_their_method(r):
    for method in ("get", "post"):
        assert completed(r, "vela_api", method, "") == [path for own, path in endpoints(r) if own == method]
    names = [path.removeprefix("/modem/").replace("/", "_") for _, path in endpoints(r)]
    assert len(names) == 23 and completed(r, "vela_api", "rpcd", "call", "") == names


def test_the_manual_describes_every_command_and_no_other():
    page = (ROOT / "man/vela_modem.8").read_text(encoding="utf-8")
    described = re.findall(r"^\.It Cm ([\w-]+)", page, re.MULTILINE)
    assert sorted(described) == sorted(COMMANDS)


def test_the_manual_knows_the_number_of_endpoints(r):
    page = (ROOT / "man/vela_api.8").read_text(encoding="utf-8")
    assert f"one of its {len(endpoints(r))} endpoints" in page.replace("\n", " ")
