"""`SimulatedModem`: a test's handle on one modem of the router. Each method is a request to the router's keeper."""

from __future__ import annotations

from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from .router import Router


def wire(text: str | bytes) -> str:
    """The bytes to send, as latin-1 text for the request. In text, LF stands for CR LF, as in a modem file; bytes are
    sent as they are."""
    if isinstance(text, str):
        text = text.replace("\r\n", "\n").replace("\n", "\r\n").encode("utf-8", "surrogateescape")
    return text.decode("latin-1")


class SimulatedModem:
    def __init__(self, router: "Router", bus: str) -> None:
        self._router, self.bus = router, bus

    @property
    def commands(self) -> list[str]:
        """The AT command lines that it received, on all ports, in order."""
        events = self._router.events
        return [event["command"] for event in events if event["kind"] == "at" and event["bus"] == self.bus]

    def tty(self, interface: int) -> str:
        """The device path of an interface's tty, or "" while the modem is unplugged."""
        name = self._router.ask("ttys", bus=self.bus).get(str(interface))
        return f"/dev/{name}" if name else ""

    def reply(self, command: str, text: str | bytes, delay: float = 0.0) -> None:
        """From now on, answer this command so (`*` at its end: whatever follows). The reply is the whole one, final
        OK included: "\\n+CSQ: 20,99\\n\\nOK\\n"."""
        self._router.ask("reply", bus=self.bus, command=command, data=wire(text), delay=delay)

    def misbehave(self, kind: str, interface: int | None = None, **options: object) -> None:
        """Switches a misbehaviour on, for one interface or all; the kinds and options are in misbehaviour.py."""
        self._router.ask("misbehave", bus=self.bus, kind=kind, interface=interface, options=options)

    def behave(self, interface: int | None = None) -> None:
        """Switches all misbehaviour off and forgets what was still to be sent."""
        self._router.ask("behave", bus=self.bus, interface=interface)

    def moods(self, one_in: int, kinds: list[tuple], homes: list[int], seed: int = 0) -> None:
        """One command in so many misbehaves, in one of these ways: (weight, kind, options). A modem that drops off the
        bus is back by itself, its first tty having the next number of `homes`. `one_in` 0 ends it."""
        self._router.ask("moods", bus=self.bus, one_in=one_in, seed=seed, kinds=kinds, homes=homes)

    @property
    def mood_counts(self) -> dict[str, int]:
        """How many commands met which misbehaviour; "none": answered as they should be."""
        return self._router.ask("mood_counts", bus=self.bus)

    def say(self, text: str | bytes, interface: int | None = None) -> None:
        """Sends something unasked, at once: "\\n+CMTI: \\"ME\\",1\\n"."""
        self._router.ask("say", bus=self.bus, data=wire(text), interface=interface)

    def unplug(self) -> None:
        self._router.ask("unplug", bus=self.bus)

    def plug(self, first_tty: int | None = None) -> None:
        """Plugs it in again; its ttys get the lowest free numbers, or those from `first_tty` on."""
        self._router.ask("plug", bus=self.bus, first_tty=first_tty, model=None)

    def receive_sms(self, pdu: str) -> int:
        """Puts a received message into the modem's store; gives its slot."""
        return self._router.ask("sms", bus=self.bus, pdu=pdu)

    @property
    def sent_sms(self) -> list[str]:
        """The PDUs that clients gave to AT+CMGS."""
        return self._router.ask("sms_sent", bus=self.bus)
