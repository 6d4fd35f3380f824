#!/usr/bin/python3
"""Records what a modem answers, in the format of modems/*.modem, so that a new model starts from its own words.

    sim/record_modem.py --port /dev/ttyUSB2 --bus 1-1.2 --model EC25 > sim/modems/ec25.modem

It asks the commands that modems are asked (or those given) and writes each reply as exact bytes or lines. Numbers that
look like an IMEI, IMSI or ICCID are replaced at the same length; cell identities and places are for you to replace.
"""

import argparse
import os
import re
import select
import sys
import termios
import time
import tty
from pathlib import Path

COMMANDS = (
    "AT", "ATI", "AT+GSN", "AT+CGSN", "AT+CGMI", "AT+CGMM", "AT+CGMR", "AT+CIMI", "AT+QCCID", "AT+QGMR", "AT+CPIN?",
    "AT+CREG?", "AT+CGREG?", "AT+CEREG?", "AT+COPS?", "AT+CSQ", "AT+CSQ?", "AT+CESQ", "AT+CFUN?", "AT+CGDCONT?",
    "AT+QNWINFO", "AT+QCSQ", 'AT+QENG="servingcell"', 'AT+QENG="neighbourcell"', "AT+QCAINFO", 'AT+QCFG="nwscanmode"',
    'AT+QCFG="band"', "AT!GSTATUS?", "AT+CNSMOD?", "AT+CPSI?", "AT+ZPAS?", "AT+GTCCINFO?", "AT+GTACT?", "AT+CPMS?",
)
FINAL = re.compile(rb"(^|\r\n|\n)(OK|ERROR|\+CM[ES] ERROR:[^\r\n]*)\r?\n$")
SILENCE = 3.0
TTY = re.compile(r"tty(USB|ACM)\d+")


def ask(port: int, command: str) -> bytes:
    """The reply with its echo, to the final result code or to some seconds of silence."""
    termios.tcflush(port, termios.TCIOFLUSH)
    os.write(port, command.encode() + b"\r")
    reply = b""
    while not FINAL.search(reply) and select.select([port], [], [], SILENCE)[0]:
        piece = os.read(port, 4096)
        if not piece:
            break
        reply += piece
    return reply


def scrub(text: str) -> str:
    """Keeps what says maker, country or network of a long number, and its length."""
    return re.sub(r"\d{14,}", lambda found: found[0][:6] + "0" * (len(found[0]) - 8) + "17", text)


def lines(reply: bytes) -> list[str]:
    """The reply in the format's line kinds: plain where it is printable lines ended by CR LF, exact bytes elsewhere."""
    result = []
    for piece in re.findall(rb"[^\n]*\n|[^\n]+$", reply):
        text = scrub(piece.decode("latin-1"))
        body = text.removesuffix("\r\n")
        if body != text and body.isascii() and (body == "" or body.isprintable()) and body == body.rstrip():
            result.append(f"< {body}".rstrip())
        else:
            escaped = "".join(c if " " <= c <= "~" and c not in '"\\' else f"\\x{ord(c):02x}" for c in text)
            result.append(f'= "{escaped}"')
    return result


def usb_lines(bus: str, sysfs: Path = Path("/sys/bus/usb/devices")) -> list[str]:
    """The usb and interface lines. The roles of the ttys are guessed; which one answers is known only by trying."""
    device = sysfs / bus
    found = [f"usb {(device / 'idVendor').read_text().strip()}:{(device / 'idProduct').read_text().strip()}"]
    for interface in sorted(sysfs.glob(f"{bus}:1.*"), key=lambda path: int(path.name.rpartition(".")[2])):
        number = interface.name.rpartition(".")[2]
        ttys = [*interface.glob("tty*"), *interface.glob("tty/tty*")]
        names = sorted({entry.name for entry in ttys if TTY.match(entry.name)})
        found += [f"interface {number} tty {name[:6]} at" for name in names]
        found += [f"interface {number} cdc-wdm" for _ in interface.glob("usbmisc/cdc-wdm*")]
        found += [f"interface {number} net {entry.name}" for entry in interface.glob("net/*")]
    return found


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--port", required=True, help="the tty that answers AT commands")
    parser.add_argument("--bus", required=True, help="the modem's USB bus path, such as 1-1.2")
    parser.add_argument("--model", required=True)
    parser.add_argument("--where", default="", help="where and in which situation it was recorded")
    parser.add_argument("commands", nargs="*", default=COMMANDS)
    options = parser.parse_args()

    port = os.open(options.port, os.O_RDWR | os.O_NOCTTY)
    tty.setraw(port)
    entries, echoing, firmware = [], False, ""
    for command in options.commands:
        begin = time.monotonic()
        reply = ask(port, command)
        pause = int((time.monotonic() - begin) * 1000)
        echo = re.match(re.escape(command.encode()) + rb"\r", reply)
        echoing = echoing or echo is not None
        reply = reply[echo.end():] if echo else reply
        if revision := re.search(rb"Revision: *([^\r\n]+)", reply):
            firmware = revision[1].decode("latin-1")
        if reply:
            delay = [f"~ {pause // 100 * 100}"] if pause >= 100 and FINAL.search(reply) else []
            entries.append("\n".join([f"> {command}", *delay, *lines(reply)]))
    header = [f"# model: {options.model}", f"# firmware: {firmware}",
              f"# source: recorded from {options.model}{', ' + options.where if options.where else ''}",
              "# scrubbed: long numbers by the recorder; look for cell identities, names and numbers yourself"]
    settings = usb_lines(options.bus) + ([] if echoing else ["echo off"])
    print("\n".join(header) + "\n\n" + "\n".join(settings) + "\n\n" + "\n\n".join(entries))
    return 0


if __name__ == "__main__":
    sys.exit(main())
