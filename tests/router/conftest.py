"""Fixtures of the router tests: the shipped programs run in a simulated router (sim/README.md).

Those of tests/soak, which run for long on demand, have their short forms here.
"""

import os
import sys
from pathlib import Path
from typing import Callable, Iterable, Iterator

import pytest

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS.parent / "sim"), *(str(TESTS / name) for name in ("soak", "footprint", "bench"))]

from velasim import Router  # noqa: E402  (found through the line above)


def pytest_sessionstart(session: pytest.Session) -> None:
    # Not a skip: a run that tested nothing must not look like one that passed.
    if os.geteuid() != 0:
        pytest.exit("the router tests need root (mount namespaces): run them as root or with sudo", returncode=3)


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--every", type=int, default=1, metavar="N",
                     help="of a test with many cases run the first one and every N-th after it")
    parser.addoption("--every-fault", action="store_true",
                     help="make things fail at each place in a run, and not only at a few")


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    every, seen, kept, left_out = config.getoption("--every"), {}, [], []
    for item in items:
        test = item.nodeid.partition("[")[0]
        seen[test] = seen.get(test, -1) + 1
        (kept if seen[test] % every == 0 else left_out).append(item)
    items[:] = kept
    config.hook.pytest_deselected(items=left_out)


@pytest.fixture
def places(request: pytest.FixtureRequest) -> Callable[[int], Callable[[int], list[int]]]:
    """places(most)(count): which of the places 1 to `count` of a run something is made to fail at."""
    from fault_runs import sampled

    every = request.config.getoption("--every-fault")
    return lambda most: lambda count: sampled(count, every, most)


@pytest.fixture
def tally(request: pytest.FixtureRequest) -> Callable[[str, object, Iterable[tuple[object, list[str]]]], int]:
    """tally(kind, case, runs): makes the runs in which something fails, counts them for the table at the end, and tells
    what was wrong with which. Returns how many there were."""
    counted: dict[str, list[int]] = {}
    request.node.user_properties.append(("faults", counted))

    def count(kind: str, case: object, runs: Iterable[tuple[object, list[str]]]) -> int:
        wrong = []
        total = counted.setdefault(f"{kind}|{case}", [0, 0])
        for what, found in runs:
            total[0] += 1
            total[1] += bool(found)
            wrong += [f"{what}: {problem}" for problem in found]
        if wrong:
            pytest.fail("\n".join(wrong), pytrace=False)
        return total[0]

    return count


def pytest_terminal_summary(terminalreporter: object) -> None:
    show_tables(terminalreporter)
    table: dict[str, list] = {}
    for outcome in ("passed", "failed"):
        for report in terminalreporter.stats.get(outcome, []):
            for counted in [value for name, value in report.user_properties if name == "faults"]:
                for key, [runs, wrong] in counted.items():
                    kind, _, case = key.partition("|")
                    row = table.setdefault(kind, [0, 0, set()])
                    row[0] += runs
                    row[1] += wrong
                    row[2].add(case)
    if table:
        terminalreporter.section("runs in which something failed")
    for kind, [runs, wrong, cases] in sorted(table.items()):
        terminalreporter.line(f"{kind}: {runs} runs of {len(cases)} commands and endpoints, {wrong} of them wrong")


def show_tables(terminalreporter: object) -> None:
    """What tests have recorded as "table": a title, and lines."""
    for outcome in ("passed", "failed"):
        for report in terminalreporter.stats.get(outcome, []):
            for title, lines in [value for name, value in report.user_properties if name == "table"]:
                terminalreporter.section(title)
                terminalreporter.write("\n".join(lines) + "\n")


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
