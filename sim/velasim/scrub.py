"""Takes out of a modem's replies what says whose modem it is and where, at the same length and alike everywhere; the
values that it puts there are listed in sim/README.md. What is made up like that already stays as it is."""

import re

# What a made-up number of 14 digits and more has: six zeros in a row.
MADE_UP = "000000"

# Not the masks of bands.
LONG_NUMBER = re.compile(r"(?<!0[xX])(?<!\d)\d{14,}")
PHONE = re.compile(r"\+\d{8,}")
PHONE_LINE = re.compile(r"\+(?:CNUM|CSCA|CSVM|CLIP|COLP|CLCC|CCFC|CPBR|CPBF|CMGL|CMGR|CMT|CDS)\b.*")
QUOTED_NUMBER = re.compile(r'(?<=")\+?\d{5,}(?=")')
MAC = re.compile(r"\b[0-9A-F]{2}(?:([:-])[0-9A-F]{2})(?:\1[0-9A-F]{2}){4}\b", re.IGNORECASE)
PLACE = re.compile(r"(?:\+(?:QGPSLOC|QGPSGNMEA|CGPSINFO|GPSINFO|CGNSINF|CLBS|UULOC):|\$G[A-Z]{4},"
                   r"|!GPSLOC\b|\b(?:lat|lon|latitude|longitude)\b).*", re.IGNORECASE)
SERIAL = re.compile(r"\b(?:FSN|S/?N|MSN|Serial(?: Number)?):\s*\S+", re.IGNORECASE)
# What stands around the texts of messages.
AROUND_MESSAGES = re.compile(r"\+CMG[LR]:.*|OK|ERROR|\+CM[ES] ERROR:.*|")
MEID = re.compile(r"\b(?=[0-9A-F]*\d)(?=\d*[A-F])[0-9A-F]{8,}\b", re.IGNORECASE)

# Where the identities of cells and areas stand: the groups, and the base that each is written in.
CELLS = (
    (re.compile(r'\+C(?:E|G|5G)?REG: *(?:\d, *)?\d, *"?([0-9A-F]+)"?, *"?([0-9A-F]+)"?', re.IGNORECASE), (16, 16)),
    (re.compile(r'\+QENG: *(?:"servingcell", *(?:"\w*", *)?)?"(?:LTE|eMTC|CAT-M|NB-?IoT)","[FT]DD",\d+,\d+,'
                r"([0-9A-F]+)(?:,-?\d*){5},([0-9A-F]+)", re.IGNORECASE), (16, 16)),
    (re.compile(r'\+QENG: *"servingcell", *"\w*", *"NR5G-SA", *"[FT]DD", *\d+, *\d+, *([0-9A-F]+), *\d+, *([0-9A-F]+)',
                re.IGNORECASE), (16, 16)),
    (re.compile(r'\+QENG: *"\w+", *(?:"\w*", *)?"(?:WCDMA|GSM|TD-?SCDMA)", *\d+, *\d+, *([0-9A-F]+), *([0-9A-F]+)',
                re.IGNORECASE), (16, 16)),
    (re.compile(r"\+CPSI: *[^,\r\n]+,[^,\r\n]+,\d+-\d+,0x([0-9A-F]+),(\d+)", re.IGNORECASE), (16, 10)),
    (re.compile(r"\b(?:TAC|LAC|Cell ID):[ \t]*([0-9A-F]+)(?: \((\d+)\))?", re.IGNORECASE), (16, 10)),
    (re.compile(r"^\d,\d+,\d{3},\d{2,3},([0-9A-F]+),([0-9A-F]+),", re.IGNORECASE | re.MULTILINE), (16, 16)),
)
# An identity of so many digits is looked for everywhere else, too, in both bases; a shorter one may be any number.
TELLING = 6


def _veil(text: str, letters: bool = False) -> str:
    return re.sub(r"[^\W\d_]", "x", re.sub(r"\d", "0", text)) if letters else re.sub(r"\d", "0", text)


class Scrubber:
    """First learn() all replies, then scrub() each: what one reply says is taken out of the others, too."""

    def __init__(self) -> None:
        self._numbers: dict[str, str] = {}
        self._macs: dict[str, int] = {}
        self._cells: dict[int, int] = {}
        self._telling: dict[str, int] = {}  # how a cell's identity may be written elsewhere, each with its base

    def learn(self, text: str) -> None:
        for pattern, bases in CELLS:
            for found in pattern.finditer(text):
                for group, base in zip(found.groups(), bases):
                    number = int(group, base) if group is not None else 0
                    self._telling |= {written: base for written, base in ((f"{number:x}", 16), (str(number), 10))
                                      if len(written) >= TELLING}

    def scrub(self, command: str, text: str) -> str:
        """The reply to the command, or the command itself, as it may be shown."""
        if re.match(r"AT\+CMG[LR]\b", command, re.IGNORECASE):
            text = "\n".join(line if AROUND_MESSAGES.fullmatch(line.strip()) or line.strip() == command
                             else _veil(line, letters=True) for line in text.split("\n"))
        text = PLACE.sub(lambda found: _veil(found[0]) if re.search(r"\d", found[0]) else found[0], text)
        text = SERIAL.sub(lambda found: _veil(found[0]), text)
        text = MAC.sub(self._mac, text)
        for pattern, bases in CELLS:
            text = pattern.sub(lambda found, bases=bases: self._cells_of(found, bases), text)
        for real, base in self._telling.items():
            text = re.sub(rf"(?<![0-9A-Za-z])(?:0x)?0*({real})(?![0-9A-Za-z])",
                          lambda found, base=base: self._cells_of(found, (base,)), text, flags=re.IGNORECASE)
        text = LONG_NUMBER.sub(lambda found: self._number(found[0], 6), text)
        if re.match(r"AT(\+C?GSN|\+CGSN=\d|\^?MEID|\+MEID)", command, re.IGNORECASE):
            text = MEID.sub(lambda found: _veil(found[0]), text)
        text = PHONE_LINE.sub(lambda line: QUOTED_NUMBER.sub(lambda found: self._phone(found[0]), line[0]), text)
        return PHONE.sub(lambda found: self._phone(found[0]), text)

    def _number(self, digits: str, keep: int) -> str:
        # Zeros alone between what is kept and the last two: such a one is made up, as no assigned one is like that.
        if set(digits[keep:-2]) == {"0"}:
            return digits
        if digits not in self._numbers:
            end = (17 + 8 * len(self._numbers)) % 100
            self._numbers[digits] = digits[:keep] + f"{end:02}".rjust(len(digits) - keep, "0")
        return self._numbers[digits]

    def _phone(self, text: str) -> str:
        digits = text.removeprefix("+")
        return text[:len(text) - len(digits)] + self._number(digits, 2 if digits != text else 0)

    def _mac(self, found: re.Match) -> str:
        text, mark = found[0], found[1]
        octets = text.upper().replace("-", ":")
        if octets.startswith("00:00:5E:00:53:"):
            return text
        number = self._macs.setdefault(octets, len(self._macs) + 1)
        example = f"00:00:5E:00:53:{number % 256:02X}".replace(":", mark)
        return example.lower() if text == text.lower() else example

    def _cell(self, text: str, base: int) -> str:
        number = int(text, base)
        if number == 0 or set(text.upper()) == {"F"}:  # unknown
            return text
        lowest = max(16 ** (len(f"{number:x}") - 1), 10 ** (len(str(number)) - 1))
        end = min(16 ** len(f"{number:x}"), 10 ** len(str(number)))
        # Counted within its length, so that a number that has been made up so becomes itself again.
        before = [other for other, first in self._cells.items() if first == lowest]
        if number not in self._cells:
            self._cells[number] = lowest
            before.append(number)
        example = lowest + before.index(number) % (end - lowest)
        written = f"{example:x}" if base == 16 else str(example)
        return (written if text == text.lower() else written.upper()).rjust(len(text), "0")

    def _cells_of(self, found: re.Match, bases: tuple[int, ...]) -> str:
        text, start = found[0], found.start()
        for group in range(len(bases), 0, -1):
            if found[group] is not None:
                begin, end = found.start(group) - start, found.end(group) - start
                text = text[:begin] + self._cell(found[group], bases[group - 1]) + text[end:]
        return text
