"""The ways in which a port can be ill, and what they make of a reply.

Each is switched on by name with its options and stays on until `behave`. They combine: a reply first gets its content
changed (lines added, zeros, no end), then its timing (late, in small pieces), then its end (cut off by an unplug).
"""

from dataclasses import dataclass, field

FINAL = (b"OK", b"ERROR", b"+CME ERROR", b"+CMS ERROR", b"NO CARRIER", b"CONNECT")
# Allowed options of each kind, with their defaults.
KINDS: dict[str, dict[str, object]] = {
    "silent": {},  # hears everything, says nothing
    "dribble": {"bytes": 1, "ms": 20.0},  # so many bytes each so many milliseconds
    "flood": {"total": None, "text": "+QIND: noise\r\n"},  # after a command: endless, or so many bytes
    "drop": {"after": 0, "ms": 50.0},  # off the bus after so many bytes; the pause lets a client read them first
    "unsolicited": {"text": "+QIND: \"csq\",20,99", "where": "before"},  # before, inside or after the reply
    "nul": {"every": 8},  # a NUL byte after every so many bytes
    "delay": {"seconds": 1.0},  # the whole answer comes late
    "no_final": {},  # the reply lacks its final OK or ERROR
}


@dataclass
class Step:
    """Something to be sent after `wait` milliseconds. `endless` is repeated for ever; `unplug` ends everything."""

    wait: float = 0.0
    data: bytes = b""
    endless: bytes = b""
    unplug: bool = False


@dataclass
class Misbehaviour:
    active: dict[str, dict] = field(default_factory=dict)

    def switch_on(self, kind: str, options: dict) -> None:
        if kind not in KINDS:
            raise ValueError(f"no misbehaviour {kind!r}; there are: {', '.join(KINDS)}")
        unknown = set(options) - set(KINDS[kind])
        if unknown:
            raise ValueError(f"{kind} has no option {', '.join(sorted(unknown))}")
        self.active[kind] = {**KINDS[kind], **options}

    def shape(self, echo: bytes, pieces: list[tuple[float, bytes]]) -> list[Step]:
        active = self.active
        if "silent" in active:
            return []
        steps = [Step(wait, data) for wait, data in pieces]
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
            steps.append(Step(active["drop"]["ms"], unplug=True))
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
