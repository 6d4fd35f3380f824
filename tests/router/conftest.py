"""Fixtures of the router tests: the shipped programs run in a simulated router (sim/README.md).

Those of tests/soak, which run for long on demand, have their short forms here.
"""

import os
import sys
from pathlib import Path
from typing import Callable, Iterator

import pytest

sys.path[:0] = [str(Path(__file__).resolve().parents[2] / "sim"), str(Path(__file__).resolve().parents[1] / "soak")]

from velasim import Router  # noqa: E402  (found through the line above)


def pytest_sessionstart(session: pytest.Session) -> None:
    # Not a skip: a run that tested nothing must not look like one that passed.
    if os.geteuid() != 0:
        pytest.exit("the router tests need root (mount namespaces): run them as root or with sudo", returncode=3)


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--every", type=int, default=1, metavar="N",
                     help="of a test with many cases run the first one and every N-th after it")


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    every, seen, kept, left_out = config.getoption("--every"), {}, [], []
    for item in items:
        test = item.nodeid.partition("[")[0]
        seen[test] = seen.get(test, -1) + 1
        (kept if seen[test] % every == 0 else left_out).append(item)
    items[:] = kept
    config.hook.pytest_deselected(items=left_out)


@pytest.fixture
def router() -> Iterator[Callable[..., Router]]:
    """Makes routers: `r = router("ec25")`, with the arguments of velasim.Router. All end with the test."""
    made: list[Router] = []

    def make(*arguments: object, **options: object) -> Router:
        made.append(Router(*arguments, **options))
        return made[-1]

    yield make
    for one in reversed(made):
        one.close()
