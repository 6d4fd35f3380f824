"""Received messages as a modem's store holds them: SMS-DELIVER PDUs in hexadecimal (3GPP TS 23.040)."""

SERVICE_CENTRE = "+900000000018"
GSM7, UCS2 = 0x00, 0x08  # data coding schemes


def _swapped(digits: str) -> str:
    """Two digits to an octet, the first one low; an odd number is filled up with F."""
    digits += "F" * (len(digits) % 2)
    return "".join(digits[at + 1] + digits[at] for at in range(0, len(digits), 2))


def _address(number: str) -> tuple[int, str]:
    """The digits of a number and their type of address with them: 91 international, A1 national."""
    digits = number.lstrip("+")
    return len(digits), ("91" if number.startswith("+") else "A1") + _swapped(digits)


def _septets(text: str) -> str:
    """Seven bits to a character, packed from the low end. Only for characters that GSM has at their ASCII place."""
    bits = sum(ord(character) << (7 * at) for at, character in enumerate(text))
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
