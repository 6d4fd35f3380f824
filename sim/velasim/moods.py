"""A modem with moods: most commands it answers as its file says, now and then one misbehaves (misbehaviour.py).

What it does to which command depends on the seed alone. Each kind has a weight, and options of its own or none; a modem
that drops off the bus comes back by itself, at the tty numbers of its next home.
"""

import random
from collections import Counter

from .misbehaviour import Misbehaviour


class Moods:
    def __init__(self, one_in: int, seed: int, kinds: list[list], homes: list[int]) -> None:
        """`kinds` are [weight, kind, options]; `homes` the first tty numbers that the modem takes in turn."""
        self.one_in, self.random = one_in, random.Random(seed)
        self.kinds, self.weights = [(kind, options) for _, kind, options in kinds], [each[0] for each in kinds]
        self.homes, self.moves = homes, 0
        self.counts: Counter[str] = Counter()

    def next(self) -> Misbehaviour | None:
        """How the next command fares; None: well."""
        if self.random.randrange(self.one_in) != 0:
            self.counts["none"] += 1
            return None
        [(kind, options)] = self.random.choices(self.kinds, self.weights)
        if kind == "garbage":
            options = {**options, "seed": self.random.randrange(1 << 30)}
        if kind == "drop":
            self.moves += 1
            after = self.random.choice((0, 5, 20, -3))
            options = {"back": 50.0, "after": after, **options, "first_tty": self.homes[self.moves % len(self.homes)]}
        self.counts[kind] += 1
        trouble = Misbehaviour()
        trouble.switch_on(kind, options)
        return trouble
