"""docs/models.md says of every model what the program reports of it; its table is made by running the program.

After a wanted change `/usr/bin/python3 tests/router/test_models_document.py` writes the table anew.
"""

import json
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
if __name__ == "__main__":
    sys.path.insert(0, str(ROOT / "sim"))

from velasim import Router
from velasim.modem_file import MODEMS

DOCUMENT = ROOT / "docs/models.md"
START, END = "<!-- made from runs -->\n", "<!-- end -->\n"
# The device that stands for all unknown ones comes last.
MODELS = sorted((path.stem for path in MODEMS.glob("*.modem")), key=lambda name: (name == "unknown", name))
REPORT = re.compile(r"^\{\n.*?^\}\n", re.MULTILINE | re.DOTALL)


def run(r: Router, command: str) -> str:
    result = r.run("vela_modem", command)
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


def detected(r: Router) -> tuple[str, dict]:
    """The USB ids, and the report of detection."""
    text = r.run("vela_modem", "-D", "AT").stdout
    vid, pid = re.search(r"vid (\w+),pid (\w+)\n", text).groups()
    return f"{int(vid, 16):04x}:{int(pid, 16):04x}", json.loads(REPORT.search(text)[0])


def signal(r: Router) -> str:
    text = run(r, "signal")
    if text == "Not support":
        return "–"
    report = json.loads(text)
    types = ", ".join(one.get("type", "indices") for one in report["signals"])
    return f"{types or 'nothing known'}; level {report['strength']}"


def cells(r: Router) -> str:
    text = run(r, "cells")
    if text == "Not support":
        return "–"
    kinds = [one.get("type") or ("servingcell" if one["IsServiceCell"] == "1" else "neighbourcell")
             for one in json.loads(text)]
    return ", ".join(f"{kinds.count(kind)} {kind}" for kind in dict.fromkeys(kinds)) or "none"


def plain(r: Router, command: str) -> str:
    text = run(r, command).strip().removeprefix("thermal setting").strip()
    return "–" if text == "Not support" else re.split(r"[=:] ?", text)[-1] or "unknown"


def ports_of(r: Router, report: dict) -> str:
    ports = [report.get(key) for key in ("control_port", "data_port", "qmi_port")]
    if ports[0] is None:
        return "–"
    return " / ".join("–" if port is None else f"{interface_of(r, port)}, {Path(port).name}" for port in ports)


def interface_of(r: Router, port: str) -> str:
    """The USB interface number of a port, from sysfs."""
    name = Path(port).name
    for path in r.host_path("/sys/devices/platform").rglob(name):
        found = re.search(r":\d+\.(\d+)/", str(path))
        if found:
            return found[1]
    raise AssertionError(f"{port} is no port of a USB device")


def row(model: str) -> str:
    with Router(model) as r:
        ids, report = detected(r)
        fields = [model, report["modem_id"], ids, ports_of(r, report), signal(r), cells(r), plain(r, "check_register"),
                  plain(r, "get_mode"), plain(r, "sim-status"), plain(r, "thermal"), plain(r, "iccid")]
    return "| " + " | ".join(str(field) for field in fields) + " |\n"


def table() -> str:
    heads = ["model", "modem_id", "USB ids", "AT / data / QMI port", "`signal`", "`cells`", "`check_register`",
             "`get_mode`", "`sim-status`", "`thermal`", "`iccid`"]
    return "| " + " | ".join(heads) + " |\n" + "|---" * len(heads) + "|\n" + "".join(map(row, MODELS))


def test_the_table_is_what_the_program_reports():
    document = DOCUMENT.read_text(encoding="utf-8")
    assert document.split(START)[1].split(END)[0] == table()


if __name__ == "__main__":
    before, rest = DOCUMENT.read_text(encoding="utf-8").split(START)
    DOCUMENT.write_text(before + START + table() + END + rest.split(END)[1], encoding="utf-8")
