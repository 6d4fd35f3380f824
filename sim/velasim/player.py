"""Plays the modems of a router: one event loop over the master ends of all their pseudo-terminals.

A `Modem` answers command lines from its file; what it sends passes through the misbehaviour that a test has switched
on for the port (misbehaviour.py). All of it runs in one thread: a timer is a moment in a heap, never a sleep.
"""

import fcntl
import heapq
import itertools
import json
import os
import re
import selectors
import termios
import time
import tty
from typing import Callable

from . import usb
from .misbehaviour import Misbehaviour, Step
from .modem_file import Entry, ModemFile, compile_command
from .moods import Moods
from .sms import PROMPT, SmsStore

EVENTS = "/run/sim/events.jsonl"
LONGEST_LINE = 4096
ANSWERING = ("at", "data")
TURNS = 16  # writes in one go: a flood leaves the other ports and the test their turn


def record(**event: object) -> None:
    """One event, one write: see recorder.c for the other writers of the file."""
    line = (json.dumps(event, separators=(",", ":")) + "\n").encode("ascii")
    fd = os.open(EVENTS, os.O_WRONLY | os.O_APPEND | os.O_CREAT | os.O_CLOEXEC, 0o666)
    try:
        os.write(fd, line)
    finally:
        os.close(fd)


class Loop:
    """Descriptors and timers."""

    def __init__(self) -> None:
        self.selector = selectors.DefaultSelector()
        self._timers: list[tuple[float, int, Callable[[], None]]] = []
        self._order = itertools.count()

    def at(self, moment: float, action: Callable[[], None]) -> None:
        heapq.heappush(self._timers, (moment, next(self._order), action))

    def run_once(self) -> None:
        timeout = None
        if self._timers:
            timeout = max(0.0, self._timers[0][0] - time.monotonic())
        for key, events in self.selector.select(timeout):
            if self.selector.get_map().get(key.fd) is key:  # not closed by an earlier event of this round
                key.data(events)
        while self._timers and self._timers[0][0] <= time.monotonic():
            heapq.heappop(self._timers)[2]()


class Port:
    """One tty of a modem. The slave end is kept open, so that the modem lives on when a client closes the port."""

    def __init__(self, loop: Loop, modem: "Modem", interface: int, role: str) -> None:
        self.loop, self.modem, self.interface, self.role = loop, modem, interface, role
        self.name = ""
        self.trouble = Misbehaviour()
        self.echo = modem.file.echo
        self.received = bytearray()
        self.taking_text = False  # of a message, after the prompt
        self.steps: list[Step] = []  # what is still to be sent, in order
        self.waiting = False  # for a timer to go on with the steps
        self.master, self.slave = os.openpty()
        self.path = os.ttyname(self.slave)
        # Raw and without echo: a line that nobody has configured yet must not send the modem's own words back to it.
        tty.setraw(self.slave, termios.TCSANOW)
        for fd in (self.master, self.slave):
            os.set_inheritable(fd, False)
        fcntl.fcntl(self.master, fcntl.F_SETFL, os.O_NONBLOCK)
        loop.selector.register(self.master, selectors.EVENT_READ, self.ready)

    def close(self) -> None:
        if self.master < 0:
            return
        self.loop.selector.unregister(self.master)
        # The master's end hangs the slave up for whoever has it open, as pulling a USB device does.
        os.close(self.master)
        os.close(self.slave)
        self.master = self.slave = -1
        self.steps.clear()

    def ready(self, events: int) -> None:
        if events & selectors.EVENT_READ:
            self.read()
        if self.master >= 0 and events & selectors.EVENT_WRITE:
            self.flush()

    def read(self) -> None:
        try:
            data = os.read(self.master, 65536)
        except (BlockingIOError, OSError):
            return
        self.received += data
        while self.taking_text or b"\r" in self.received:
            if self.taking_text:
                # A message's text ends with Ctrl-Z, or is given up with ESC.
                end = re.search(rb"[\x1a\x1b]", self.received)
                if end is None:
                    return
                text, self.received = bytes(self.received[:end.start()]), self.received[end.end():]
                self.taking_text = False
                self.send([(0.0, self.modem.sms.take_text(text, end[0] == b"\x1a"))])
                continue
            line, _, self.received = self.received.partition(b"\r")
            self.line(bytes(line).lstrip(b"\n"))
        del self.received[:-LONGEST_LINE]

    def line(self, line: bytes) -> None:
        """A command line. What stands before "AT" is noise; a line without it is no command."""
        if self.role not in ANSWERING:
            return
        start = re.search(rb"[Aa][Tt]", line)
        echo = line + b"\r" if self.echo else b""
        if start is None:
            self.send([(0.0, echo)] if line and echo else [])
            return
        command = line[start.start():].decode("utf-8", "surrogateescape").rstrip(" ")
        record(kind="at", bus=self.modem.bus, port=self.name, command=command)
        if re.fullmatch(r"ATE[01]?", command, re.IGNORECASE):
            self.echo = command.endswith("1")
        answer = self.modem.answer(command)
        self.taking_text = answer == [(0.0, PROMPT)]
        trouble = (self.modem.moods.next() if self.modem.moods is not None else None) or self.trouble
        number = self.modem.received
        self.modem.received += 1
        self.send(trouble.shape(echo, answer, number))

    def send(self, pieces: list[tuple[float, bytes]] | list[Step]) -> None:
        for piece in pieces:
            self.steps.append(piece if isinstance(piece, Step) else Step(*piece))
        if not self.waiting:
            self.flush()

    def flush(self) -> None:
        """Sends what may be sent now; sets a timer or waits for room for the rest."""
        want_write = False
        for turn in itertools.count():
            if not self.steps or self.master < 0:
                break
            if turn == TURNS:
                want_write = True
                break
            step = self.steps[0]
            if step.wait > 0:
                self._pause(step)
                break
            if step.unplug:
                self.modem.leave(step)
                return
            try:
                count = os.write(self.master, step.data[:4096]) if step.data else 0
            except BlockingIOError:
                want_write = True
                break
            step.data = step.data[count:]
            if step.endless and len(step.data) < 4096:
                step.data += step.endless
            if not step.data:
                self.steps.pop(0)
        if self.master >= 0:
            mask = selectors.EVENT_READ | (selectors.EVENT_WRITE if want_write else 0)
            self.loop.selector.modify(self.master, mask, self.ready)

    def _pause(self, step: Step) -> None:
        def go_on() -> None:
            step.wait = 0.0
            self.waiting = False
            self.flush()

        self.waiting = True
        self.loop.at(time.monotonic() + step.wait / 1000.0, go_on)

    def stop_sending(self) -> None:
        self.steps.clear()
        if self.master >= 0:
            termios.tcflush(self.slave, termios.TCIFLUSH)


class Modem:
    def __init__(self, loop: Loop, bus: str, file: ModemFile) -> None:
        self.loop, self.bus, self.file = loop, bus, file
        self.values = dict(file.values)
        self.overrides: dict[str, list[tuple[float, bytes]]] = {}
        self.patterns: list[tuple[Entry, list[tuple[float, bytes]]]] = []
        self.sms = SmsStore()
        self.received = 0  # commands, on all ports
        self.moods: Moods | None = None
        self.ports: dict[int, Port] = {}
        self.device: usb.Device | None = None
        # What was switched on for an interface holds over a replug: it is the modem that is ill, not the wire.
        self.troubles: dict[int, Misbehaviour] = {}

    def plug(self, first_tty: int | None = None) -> None:
        if self.device is not None:
            return
        ttys = [interface for interface in self.file.interfaces if interface.kind == "tty"]
        self.ports = {i.number: Port(self.loop, self, i.number, i.role) for i in ttys}
        paths = [port.path for port in self.ports.values()]
        self.device = usb.plug(self.bus, self.file, paths, first_tty)
        for number, port in self.ports.items():
            port.name = self.device.ttys[number]
            port.trouble = self.troubles.setdefault(number, Misbehaviour())

    def unplug(self) -> None:
        if self.device is None:
            return
        for port in self.ports.values():
            port.close()
        usb.unplug(self.device)
        self.device = None
        self.ports = {}

    def leave(self, step: Step) -> None:
        """Off the bus in the middle of something; for good, or back later."""
        self.unplug()
        if step.back is not None:
            for trouble in self.troubles.values():
                trouble.active.pop("drop", None)
            self.loop.at(time.monotonic() + step.back / 1000.0, lambda: self.plug(step.first_tty))

    def override(self, command: str, pieces: list[tuple[float, bytes]]) -> None:
        pattern = compile_command(command)
        if pattern is None:
            self.overrides[command.upper()] = pieces
        else:
            self.patterns.insert(0, (Entry(command, [], pattern), pieces))

    def answer(self, command: str) -> list[tuple[float, bytes]]:
        """The pieces of the reply: a test's own first, then the stored messages, then the modem's file."""
        if command.upper() in self.overrides:
            return self.overrides[command.upper()]
        for entry, pieces in self.patterns:
            if entry.pattern is not None and entry.pattern.fullmatch(command):
                return pieces
        stored = self.sms.answer(command)
        if stored is not None:
            return [(0.0, stored)]
        for entry in self.file.entries:
            if entry.pattern is None:
                if entry.command.upper() == command.upper():
                    return self._fill(entry)
            elif (match := entry.pattern.fullmatch(command)) is not None:
                self.values.update(match.groupdict())
                return self._fill(entry)
        return [(0.0, b"\r\nERROR\r\n")]

    def _fill(self, entry: Entry) -> list[tuple[float, bytes]]:
        if not self.values:
            return entry.pieces
        pieces = []
        for wait, data in entry.pieces:
            for name, value in self.values.items():
                data = data.replace(b"{" + name.encode() + b"}", value.encode("utf-8", "surrogateescape"))
            pieces.append((wait, data))
        return pieces
