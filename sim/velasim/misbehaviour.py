"""The ways in which a port can be ill, and what they make of a reply.

Each is switched on by name with its options and stays on until `behave`. They combine: a reply first gets its content
changed (lines added, zeros, no end), then its timing (late, in small pieces), then its end (cut off by an unplug).
"""

import random
from dataclasses import dataclass, field

FINAL = (b"OK", b"ERROR", b"+CME ERROR", b"+CMS ERROR", b"NO CARRIER", b"CONNECT")
# Allowed options of each kind, with their defaults.
KINDS: dict[str, dict[str, object]] = {
    "silent": {},  # hears everything, says nothing
    "dribble": {"bytes": 1, "ms": 20.0},  # so many bytes each so many milliseconds
    "flood": {"total": None, "text": "+QIND: noise\r\n"},  # after a command: endless, or so many bytes
    # Off the bus after so many bytes of a reply (-3: all but the last three); the pause lets a client read them first.
    # So many commands are answered before. Where it says after how many milliseconds the modem is back, at these tty
    # numbers, this happens once.
    "drop": {"after": 0, "ms": 50.0, "skip": 0, "back": None, "first_tty": None},
    "unsolicited": {"text": "+QIND: \"csq\",20,99", "where": "before"},  # before, inside or after the reply
    "nul": {"every": 8},  # a NUL byte after every so many bytes
    "delay": {"seconds": 1.0},  # the whole answer comes late
    "no_final": {},  # the reply lacks its final OK or ERROR
    "error": {"text": "ERROR"},  # in place of the reply
    "garbage": {"bytes": 200, "seed": 0, "end": ""},  # in place of the reply: any bytes, then this text
}


@dataclass
class Step:
    """Something to be sent after `wait` milliseconds. `endless` is repeated for ever; `unplug` ends everything."""

    wait: float = 0.0
    data: bytes = b""
    endless: bytes = b""
    unplug: bool = False
    back: float | None = None  # milliseconds until it is plugged in again, with
    first_tty: int | None = None


@dataclass
class Misbehaviour:
    active: dict[str, dict] = field(default_factory=dict)

    def switch_on(self, kind: str, options: dict, received: int = 0) -> None:
        """`received` is how many commands the modem has had by now."""
        if kind not in KINDS:
            raise ValueError(f"no misbehaviour {kind!r}; there are: {', '.join(KINDS)}")
        unknown = set(options) - set(KINDS[kind])
        if unknown:
            raise ValueError(f"{kind} has no option {', '.join(sorted(unknown))}")
        self.active[kind] = {**KINDS[kind], **options}
        if kind == "drop":
            self.active[kind]["skip"] += received

    def shape(self, echo: bytes, pieces: list[tuple[float, bytes]], number: int = 0) -> list[Step]:
        """What is sent in reply to the modem's command of that number (from 0)."""
        active = dict(self.active)
        if "drop" in active and number < active["drop"]["skip"]:
            del active["drop"]
        if "silent" in active:
            return []
        steps = [Step(wait, data) for wait, data in pieces]
        if "error" in active:
            steps = [Step(0.0, b"\r\n" + active["error"]["text"].encode("utf-8", "surrogateescape") + b"\r\n")]
        if "garbage" in active:
            noise = random.Random(active["garbage"]["seed"]).randbytes(active["garbage"]["bytes"])
            steps = [Step(0.0, noise + active["garbage"]["end"].encode("utf-8", "surrogateescape"))]
        if "no_final" in active:
            _cut_final(steps)
        if "unsolicited" in active:
            _add_line(steps, **active["unsolicited"])
        if echo:
            if steps and steps[0].wait == 0:
                steps[0].data = echo + steps[0].data
            else:
                steps.insert(0, Step(0.0, echo))
        if "nul" in active:
            for step in steps:
                step.data = _sprinkle(step.data, active["nul"]["every"])
        if "flood" in active:
            total, noise = active["flood"]["total"], active["flood"]["text"].encode("utf-8", "surrogateescape")
            if total is None:
                steps.append(Step(0.0, noise, endless=noise * (4096 // len(noise) + 1)))
            else:
                steps.append(Step(0.0, (noise * (total // len(noise) + 1))[:total]))
        if "delay" in active and steps:
            steps[0].wait += active["delay"]["seconds"] * 1000.0
        if "drop" in active:
            steps = _cut_after(steps, active["drop"]["after"])
        if "dribble" in active:
            steps = _dribble(steps, active["dribble"]["bytes"], active["dribble"]["ms"])
        if "drop" in active:
            drop = active["drop"]
            steps.append(Step(drop["ms"], unplug=True, back=drop["back"], first_tty=drop["first_tty"]))
        return steps


def _cut_final(steps: list[Step]) -> None:
    for step in steps:
        lines = step.data.split(b"\r\n")
        step.data = b"\r\n".join(line for line in lines if not line.startswith(FINAL))


def _add_line(steps: list[Step], text: str, where: str) -> None:
    line = b"\r\n" + text.encode("utf-8", "surrogateescape") + b"\r\n"
    if where == "before" or not steps:
        steps.insert(0, Step(0.0, line))
    elif where == "after":
        steps.append(Step(0.0, line))
    elif where == "inside":
        # Behind the first line that says something: between a value and its OK, or between two values.
        step = next((step for step in steps if step.data.strip(b"\r\n")), steps[0])
        start = len(step.data) - len(step.data.lstrip(b"\r\n"))
        end = step.data.find(b"\r\n", start)
        end = len(step.data) if end < 0 else end + 2
        step.data = step.data[:end] + line + step.data[end:]
    else:
        raise ValueError(f"where is before, inside or after, not {where!r}")


def _sprinkle(data: bytes, every: int) -> bytes:
    return b"".join(data[at:at + every] + b"\0" for at in range(0, len(data), every))


def _cut_after(steps: list[Step], count: int) -> list[Step]:
    if count < 0:
        count = max(0, sum(len(step.data) for step in steps) + count)
    kept = []
    for step in steps:
        step.data = step.data[:count]
        count -= len(step.data)
        if step.data:
            kept.append(step)
    return kept


def _dribble(steps: list[Step], count: int, milliseconds: float) -> list[Step]:
    result = []
    for step in steps:
        if step.endless:
            result.append(step)
            continue
        for at in range(0, len(step.data), count):
            result.append(Step(step.wait if at == 0 else milliseconds, step.data[at:at + count]))
            if at == 0 and len(result) > 1:
                result[-1].wait = max(step.wait, milliseconds)
    return result
