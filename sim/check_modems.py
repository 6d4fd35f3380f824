#!/usr/bin/python3
"""Checks every modem file: it parses, says what it is and where from, is the only one with its USB ids, answers the
commands that every modem is asked, and holds nothing that could be somebody's real number.

Run it after adding a file; the router tests run it, too.
"""

import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

from velasim.modem_file import HEADER_KEYS, MODEMS, ModemFile, ModemFileError, parse  # noqa: E402
from velasim.scrub import MADE_UP  # noqa: E402

ASKED_OF_ALL = ("AT", "ATI", "AT+GSN", "AT+CGSN", "AT+CIMI", "AT+CPIN?", "AT+CREG?", "AT+CGREG?", "AT+CEREG?",
                "AT+COPS?", "AT+CSQ")


def problems(text: str, modem: ModemFile) -> list[str]:
    found = [f"no '# {key}:' line" for key in HEADER_KEYS if not modem.header.get(key)]
    commands = [entry.command.upper() for entry in modem.entries]
    found += [f"no reply to {command}" for command in ASKED_OF_ALL if command not in commands]
    found += [f"two replies to {command}" for command in sorted({c for c in commands if commands.count(c) > 1})]
    found += [f"{entry.command} has no reply" for entry in modem.entries if not entry.pieces]
    if not any(interface.role == "at" for interface in modem.interfaces):
        found.append("no interface answers AT commands")
    for digits in re.findall(r"\d{14,}", text):
        if MADE_UP not in digits:
            found.append(f"{digits} may be a real number: made-up ones hold {MADE_UP}")
    if any(line != line.rstrip() for line in text.split("\n")):
        found.append("blanks at a line's end: write such a line as exact bytes")
    return found


def check(paths: list[Path]) -> list[str]:
    """All problems of these files, each with the name of its file."""
    found, ids = [], {}
    for path in paths:
        text = path.read_text(encoding="utf-8")
        try:
            modem = parse(text, path.stem)
        except ModemFileError as problem:
            found.append(str(problem))
            continue
        found += [f"{path.name}: {problem}" for problem in problems(text, modem)]
        usb = f"{modem.vendor}:{modem.product}"
        if usb in ids:
            found.append(f"{path.name}: {usb} is already {ids[usb]}")
        ids[usb] = path.name
    return found


def main() -> int:
    paths = [Path(name) for name in sys.argv[1:]] or sorted(MODEMS.glob("*.modem"))
    found = check(paths)
    print("\n".join(found) if found else f"{len(paths)} modem files are good")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
