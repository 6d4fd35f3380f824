#!/usr/bin/env python3
"""The whole program under faults for a long time; prints what came of it, and exits with 1 where a rule was broken.

    soak.py contention [--seconds 60] [--runs 64] [--servers 8] [--waits 0] [--pause 1] [--delay 30]
    soak.py endurance [--calls 100000]
    soak.py reenumeration [--every 1] [--opens 12] [--models ec25 mc7430 nl678e]

All take --seed and --build (a build with -DVELA_SIM=ON; of a sanitized one endurance is worth 5000 calls).
"""

import argparse
import os
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parents[1] / "sim"), str(HERE)]

import contention  # noqa: E402  (found through the line above)
import endurance  # noqa: E402
import reenumeration  # noqa: E402


def run_contention(options: argparse.Namespace) -> tuple[str, bool]:
    result = contention.run(options.seconds, options.runs, options.servers, options.waits, options.pause, options.delay,
                            options.seed)
    return contention.report(result), not result.faults


def run_endurance(options: argparse.Namespace) -> tuple[str, bool]:
    noise = None if is_sanitized(options.build) else endurance.MEMORY_NOISE
    result = endurance.run(options.calls, seed=options.seed, memory_noise=noise)
    return endurance.report(result), not result.faults


def run_reenumeration(options: argparse.Namespace) -> tuple[str, bool]:
    results = {model: reenumeration.run(model, options.every, options.opens) for model in options.models}
    faults = [fault for of_model in results.values() for result in of_model.values() for fault in result.faults]
    return reenumeration.report(results), not faults


def is_sanitized(build: Path) -> bool:
    return "-fsanitize=" in Path(build, "CMakeCache.txt").read_text(encoding="utf-8")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    common = argparse.ArgumentParser(add_help=False)
    common.add_argument("--build", type=Path, default=Path(os.environ.get("VELA_BUILD", HERE.parents[1] / "build")))
    common.add_argument("--seed", type=int, default=1)
    kinds = parser.add_subparsers(required=True, metavar="KIND")
    one = kinds.add_parser("contention", parents=[common], help="many programs on three ports")
    one.add_argument("--seconds", type=float, default=60.0)
    one.add_argument("--runs", type=int, default=64, help="command-line runs at a time")
    one.add_argument("--servers", type=int, default=8, help="plug-in servers")
    one.add_argument("--waits", type=int, default=0, help="all waiting takes that fraction; 0: its own time")
    one.add_argument("--pause", type=float, default=1.0, help="mean seconds between the turns of each")
    one.add_argument("--delay", type=float, default=30.0, help="milliseconds for each half of a modem's reply")
    one.set_defaults(run=run_contention)
    one = kinds.add_parser("endurance", parents=[common], help="every endpoint in one server")
    one.add_argument("--calls", type=int, default=100000)
    one.set_defaults(run=run_endurance)
    one = kinds.add_parser("reenumeration", parents=[common], help="a modem that moves at every point of a command")
    one.add_argument("--every", type=int, default=1, help="only each N-th point")
    one.add_argument("--opens", type=int, default=12, help="points among the files that a command opens")
    one.add_argument("--models", nargs="+", choices=reenumeration.MODELS, default=list(reenumeration.MODELS))
    one.set_defaults(run=run_reenumeration)
    options = parser.parse_args()
    os.environ["VELA_BUILD"] = str(options.build.resolve())
    text, ok = options.run(options)
    print(text)
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
