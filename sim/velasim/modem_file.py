"""Reads sim/modems/*.modem: what a modem looks like on USB and what it answers. The format is in sim/README.md."""

import ast
import re
from dataclasses import dataclass, field
from pathlib import Path

MODEMS = Path(__file__).resolve().parent.parent / "modems"

TTY_KINDS = ("ttyUSB", "ttyACM")
TTY_ROLES = ("at", "data", "nmea", "diag")
HEADER_KEYS = ("model", "firmware", "source", "scrubbed")


class ModemFileError(Exception):
    """A modem file that does not follow the format; the text says file and line."""


@dataclass
class Interface:
    number: int
    kind: str  # "tty", "net" or "cdc-wdm"
    name: str = ""  # "ttyUSB" or "ttyACM"; the network device
    role: str = ""  # of a tty: who answers there


@dataclass
class Entry:
    """One command and its reply: pieces of (milliseconds to wait before them, bytes)."""

    command: str
    pieces: list[tuple[float, bytes]] = field(default_factory=list)
    pattern: re.Pattern | None = None  # for a command with "*" or "{name}" in it


@dataclass
class ModemFile:
    name: str
    header: dict[str, str] = field(default_factory=dict)
    vendor: str = ""
    product: str = ""
    echo: bool = True
    interfaces: list[Interface] = field(default_factory=list)
    values: dict[str, str] = field(default_factory=dict)
    entries: list[Entry] = field(default_factory=list)


def compile_command(command: str) -> re.Pattern | None:
    """A pattern for a command that holds `*` (any text) or `{name}` (any text, kept under that name)."""
    parts = re.split(r"(\*$|\{[a-z_]+\})", command)
    if len(parts) == 1:
        return None
    text = "".join(
        ".*" if part == "*" else f"(?P<{part[1:-1]}>.*)" if part.startswith("{") else re.escape(part) for part in parts
    )
    return re.compile(text, re.IGNORECASE | re.DOTALL)


def exact_bytes(text: str) -> bytes:
    """The bytes of a quoted text with C escapes."""
    value = ast.literal_eval("b" + text.strip())
    if not isinstance(value, bytes):
        raise ValueError("not a quoted text")
    return value


def parse(text: str, name: str) -> ModemFile:
    modem = ModemFile(name)
    entry: Entry | None = None
    wait = 0.0

    def add(data: bytes) -> None:
        nonlocal wait
        if entry is None:
            raise ValueError("a reply before the first command")
        if wait == 0.0 and entry.pieces:
            before, earlier = entry.pieces[-1]
            entry.pieces[-1] = (before, earlier + data)
        else:
            entry.pieces.append((wait, data))
        wait = 0.0

    for number, line in enumerate(text.split("\n"), 1):
        try:
            if line == "":
                continue
            if line.startswith("#"):
                key, colon, value = line[1:].partition(":")
                if colon and key.strip() in HEADER_KEYS:
                    modem.header[key.strip()] = value.strip()
            elif line.startswith("> "):
                if wait:
                    raise ValueError("a delay with nothing after it")
                entry = Entry(line[2:], pattern=compile_command(line[2:]))
                modem.entries.append(entry)
            elif line == "<" or line.startswith("< "):
                add(line[2:].encode("utf-8") + b"\r\n")
            elif line.startswith("= "):
                add(exact_bytes(line[2:]))
            elif line.startswith("~ "):
                wait += float(line[2:])
            else:
                _parse_property(modem, line.split())
        except (ValueError, SyntaxError, IndexError) as problem:
            raise ModemFileError(f"{name}:{number}: {problem}: {line!r}") from None
    if not modem.vendor or not modem.interfaces:
        raise ModemFileError(f"{name}: no usb line or no interface")
    return modem


def _parse_property(modem: ModemFile, words: list[str]) -> None:
    if words[0] == "usb" and len(words) == 2 and re.fullmatch(r"[0-9a-f]{4}:[0-9a-f]{4}", words[1]):
        modem.vendor, modem.product = words[1].split(":")
    elif words[0] == "echo" and words[1:] in (["on"], ["off"]):
        modem.echo = words[1] == "on"
    elif words[0] == "value" and len(words) >= 2:
        modem.values[words[1]] = " ".join(words[2:])
    elif words[0] == "interface" and words[2] == "tty" and len(words) == 5:
        if words[3] not in TTY_KINDS or words[4] not in TTY_ROLES:
            raise ValueError(f"a tty is one of {TTY_KINDS} with a role of {TTY_ROLES}")
        modem.interfaces.append(Interface(int(words[1]), "tty", words[3], words[4]))
    elif words[0] == "interface" and words[2] == "net" and len(words) == 4:
        modem.interfaces.append(Interface(int(words[1]), "net", words[3]))
    elif words[0] == "interface" and words[2:] == ["cdc-wdm"]:
        modem.interfaces.append(Interface(int(words[1]), "cdc-wdm"))
    else:
        raise ValueError("not understood")


def load(name: str) -> ModemFile:
    """A modem by its name in sim/modems, or by the path of any file."""
    path = Path(name) if "/" in name else MODEMS / f"{name}.modem"
    try:
        return parse(path.read_text(encoding="utf-8"), path.stem)
    except FileNotFoundError:
        known = ", ".join(sorted(file.stem for file in MODEMS.glob("*.modem")))
        raise ModemFileError(f"no modem {name!r}; there are: {known}") from None
