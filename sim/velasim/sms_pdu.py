"""Short messages as a modem takes and gives them: PDUs in hexadecimal (3GPP TS 23.040), the service centre in front.

`deliver` makes those that a modem has received, `read_submit` takes apart those that it is to send, and takes none
that a network would not.
"""

import re
from dataclasses import dataclass

SERVICE_CENTRE = "+900000000018"
GSM7, DATA, UCS2 = 0x00, 0x04, 0x08  # data coding schemes
INTERNATIONAL, NATIONAL = 0x91, 0xA1  # types of address

# The default alphabet of 3GPP TS 23.038, and what follows its escape.
ESCAPE = "\x1b"
ALPHABET = ("@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞ\x1bÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?"
            "¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà")
EXTENSION = {"\n": "\f", "Λ": "^", "(": "{", ")": "}", "/": "\\", "<": "[", "=": "~", ">": "]", "¡": "|", "e": "€"}

LONGEST_ADDRESS = 20  # digits of a receiver
LONGEST_TEXT = {GSM7: 160, DATA: 140, UCS2: 140}  # septets, octets
VALIDITY_OCTETS = (0, 7, 1, 7)  # by the two bits of the format: none, enhanced, relative, absolute


class PduError(ValueError):
    """No network would take this message."""


@dataclass(frozen=True)
class Submit:
    """A message to be sent."""

    centre: str  # the service centre's digits, "" for the one that the SIM names
    number: str  # the receiver's digits
    type_of_address: int
    coding: int  # GSM7, DATA or UCS2
    header: bytes  # of the user data, for the parts of a longer text; b"" if there is none
    text: str  # of DATA in hexadecimal


def _swapped(digits: str) -> str:
    """Two digits to an octet, the first one low; an odd number is filled up with F."""
    digits += "F" * (len(digits) % 2)
    return "".join(digits[at + 1] + digits[at] for at in range(0, len(digits), 2))


def _address(number: str) -> tuple[int, str]:
    """The digits of a number and their type of address with them."""
    digits = number.lstrip("+")
    return len(digits), f"{INTERNATIONAL if number.startswith('+') else NATIONAL:02X}" + _swapped(digits)


def _septets(text: str) -> str:
    """Seven bits to a character, packed from the low end. Only for characters of the default alphabet itself."""
    bits = sum(ALPHABET.index(character) << (7 * at) for at, character in enumerate(text))
    return bits.to_bytes((7 * len(text) + 7) // 8, "little").hex().upper()


def deliver(sender: str, sent: str, text: str, coding: int = GSM7) -> str:
    """A message to this modem, sent at "YYMMDDhhmmss" in UTC."""
    centre = _address(SERVICE_CENTRE)[1]
    length, address = _address(sender)
    if coding == UCS2:
        data = text.encode("utf-16-be")
        count, body = len(data), data.hex().upper()
    else:
        count, body = len(text), _septets(text)
    return (f"{len(centre) // 2:02X}{centre}04{length:02X}{address}00{coding:02X}{_swapped(sent)}00"
            f"{count:02X}{body}")


class _Octets:
    """Octets taken from the front, one field after the other."""

    def __init__(self, data: bytes) -> None:
        self.rest = data

    def take(self, count: int) -> bytes:
        if len(self.rest) < count:
            raise PduError(f"{len(self.rest)} octets where {count} are expected")
        taken, self.rest = self.rest[:count], self.rest[count:]
        return taken

    def number(self) -> int:
        return self.take(1)[0]


def _digits(octets: bytes, count: int) -> str:
    """The inverse of _swapped."""
    digits = "".join(f"{octet & 15:X}{octet >> 4:X}" for octet in octets)
    number, filler = digits[:count], digits[count:]
    if not re.fullmatch(r"[0-9]+", number) or filler not in ("", "F"):
        raise PduError(f"{octets.hex()} are not {count} digits")
    return number


def _read_centre(octets: _Octets) -> str:
    address = octets.take(octets.number())
    if not address:
        return ""
    if len(address) < 2 or not address[0] & 0x80:
        raise PduError(f"{address.hex()} is no service centre")
    return _digits(address[1:], 2 * (len(address) - 1) - (address[-1] >> 4 == 0xF))


def _coding(scheme: int) -> int:
    """The alphabet that a data coding scheme names: uncompressed text with or without a class."""
    if scheme & 0xE0 == 0 and scheme & 0x0C != 0x0C:
        return scheme & 0x0C
    if scheme & 0xF8 == 0xF0:
        return scheme & 0x04
    raise PduError(f"data coding scheme {scheme:#04x}")


def _unpack(data: bytes, first: int, end: int) -> str:
    """The characters of the septets from `first` to before `end`."""
    bits = int.from_bytes(data, "little")
    characters = "".join(ALPHABET[bits >> (7 * at) & 0x7F] for at in range(first, end))
    return re.sub(f"{ESCAPE}(.)", lambda found: EXTENSION.get(found[1], " "), characters, flags=re.DOTALL)


def _read_user_data(octets: _Octets, coding: int, has_header: bool) -> tuple[bytes, str]:
    length = octets.number()
    if length > LONGEST_TEXT[coding]:
        raise PduError(f"a text of length {length}")
    data = octets.take((7 * length + 7) // 8 if coding == GSM7 else length)
    if octets.rest:
        raise PduError(f"{len(octets.rest)} octets behind the text")
    inside = _Octets(data)
    header = inside.take(inside.number()) if has_header else b""
    if coding == GSM7:
        # Behind a header the text goes on where the next septet starts.
        taken = 8 * (len(data) - len(inside.rest))
        return header, _unpack(data, (taken + 6) // 7, length)
    if coding == UCS2:
        try:
            return header, inside.rest.decode("utf-16-be")
        except UnicodeDecodeError:
            raise PduError(f"{inside.rest.hex()} is no text in UCS-2") from None
    return header, inside.rest.hex()


def read_submit(pdu: str, length: int | None = None) -> Submit:
    """Takes a message to be sent apart; `length` is what AT+CMGS announced: its octets without the service centre."""
    if not re.fullmatch(r"([0-9A-Fa-f]{2})+", pdu):
        raise PduError("no octets in hexadecimal")
    octets = _Octets(bytes.fromhex(pdu))
    centre = _read_centre(octets)
    if length is not None and len(octets.rest) != length:
        raise PduError(f"{len(octets.rest)} octets where {length} were announced")
    first = octets.number()
    if first & 0x03 != 0x01:
        raise PduError(f"{first:#04x} is no message to be sent")
    octets.number()  # the message's reference
    count, type_of_address = octets.number(), octets.number()
    if not 1 <= count <= LONGEST_ADDRESS or not type_of_address & 0x80:
        raise PduError(f"an address of {count} digits and type {type_of_address:#04x}")
    number = _digits(octets.take((count + 1) // 2), count)
    octets.number()  # the protocol
    coding = _coding(octets.number())
    octets.take(VALIDITY_OCTETS[first >> 3 & 3])
    header, text = _read_user_data(octets, coding, bool(first & 0x40))
    return Submit(centre, number, type_of_address, coding, header, text)
