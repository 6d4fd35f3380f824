"""Calls operations that no command and no endpoint reaches by itself, through the test program of probe.cpp."""

import json

from velasim import Router
from velasim.router import Result


def run_probe(r: Router, *argv: str, **run: object) -> Result:
    return r.run(str(r.build / "tests/router/probe"), *argv, **run)


def probe(r: Router, *argv: str, **run: object) -> tuple[int, dict]:
    """What the operation returns, and the object that it filled (members in their order)."""
    result = run_probe(r, *argv, **run)
    assert (result.returncode, result.stderr) == (0, ""), result
    return parse(result)


def parse(result: Result) -> tuple[int, dict]:
    """The same of a run that was started in some other way."""
    text, _, number = result.stdout.removesuffix("\n").rpartition("\nresult ")
    return int(number), json.loads(text)
