"""The modem's message store: the commands with which an SMS daemon reads, deletes and sends messages in PDU mode."""

import re

from .sms_pdu import PduError, read_submit

OK = b"\r\nOK\r\n"
INVALID_PARAMETER = b"\r\n+CMS ERROR: 304\r\n"  # "Invalid PDU mode parameter" (3GPP TS 27.005)
PROMPT = b"\r\n> "
CAPACITY = 25


class SmsStore:
    """Slots numbered from 1. It answers only once a message was put in or one is being sent; before that the modem's
    file has the word, so a recorded answer to these commands is played as it is."""

    def __init__(self) -> None:
        self.messages: dict[int, str] = {}
        self.used = False
        self.announced = 0  # octets of the message that is being sent, without its service centre
        self.sent: list[str] = []

    def put(self, pdu: str) -> int:
        """Stores a received message (the whole PDU with its service centre, in hexadecimal); gives its slot."""
        self.used = True
        slot = next(number for number in range(1, CAPACITY + 1) if number not in self.messages)
        self.messages[slot] = pdu.upper()
        return slot

    def take_text(self, text: bytes, wanted: bool) -> bytes:
        """The reply to the text that a client wrote after the prompt; not wanted: it changed its mind. Only what a
        network would take is sent."""
        if not wanted:
            return OK
        pdu = text.decode("latin-1").strip()
        try:
            read_submit(pdu, self.announced)
        except PduError:
            return INVALID_PARAMETER
        self.sent.append(pdu.upper())
        return b"\r\n+CMGS: %d\r\n" % len(self.sent) + OK

    def answer(self, command: str) -> bytes | None:
        text = command.upper()
        if match := re.fullmatch(r"AT\+CMGS=(.*)", text):
            if not re.fullmatch(r"[0-9]{1,3}", match[1]):
                return INVALID_PARAMETER
            self.announced = int(match[1])
            return PROMPT
        if not self.used:
            return None
        if text == "AT+CPMS?":
            state = b'"ME",%d,%d' % (len(self.messages), CAPACITY)
            return b"\r\n+CPMS: " + b",".join([state] * 3) + b"\r\n" + OK
        if text.startswith("AT+CPMS="):
            state = b"%d,%d" % (len(self.messages), CAPACITY)
            return b"\r\n+CPMS: " + b",".join([state] * 3) + b"\r\n" + OK
        if re.fullmatch(r"AT\+CMGL(=\d)?", text):
            rows = [b"\r\n+CMGL: %d,1,,%d\r\n%s" % (slot, _length(pdu), pdu.encode())
                    for slot, pdu in sorted(self.messages.items())]
            return b"".join(rows) + (b"\r\n" if rows else b"") + OK
        if match := re.fullmatch(r"AT\+CMGR=(\d+)", text):
            pdu = self.messages.get(int(match[1]))
            return OK if pdu is None else b"\r\n+CMGR: 0,,%d\r\n%s\r\n" % (_length(pdu), pdu.encode()) + OK
        if match := re.fullmatch(r"AT\+CMGD=(\d+)(,\d)?", text):
            self.messages.pop(int(match[1]), None)
            return OK
        if re.fullmatch(r"AT\+CMGF=[01]", text):
            return OK
        return None


def _length(pdu: str) -> int:
    """The length that the modem reports leaves out the service centre in front."""
    return len(pdu) // 2 - int(pdu[:2], 16) - 1
