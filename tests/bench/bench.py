#!/usr/bin/python3
"""What the product costs: one AT exchange, a discovery, the status block, /modem/info, the message list, the readers of
replies.

Each subject is a module beside this one. Programs run in the simulated router. Times are medians; what counts are the
ratios. Instructions (callgrind, user space), system calls (strace) and effects (the router's record) are exact counts.
"""

import argparse
import sys
from pathlib import Path

from apn_lookup import bench_apn_lookup
from connection import bench_connection
from discovery import bench_discovery
from exchange import bench_exchange
from information import bench_information
from messages import bench_messages
from meters import ROOT
from reply_parsers import bench_reply_parsers
from status_block import bench_status


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", type=Path, default=ROOT / "build")
    parser.add_argument("--runs", type=int, default=15, help="runs of each program (at least 7)")
    options = parser.parse_args()
    build = options.build.resolve()
    runs = max(7, options.runs)
    # A table is shown as soon as it is there, also where the output is no terminal.
    sys.stdout.reconfigure(line_buffering=True)
    bench_exchange(build, runs)
    bench_discovery(build)
    bench_status(build, runs)
    bench_information(build, runs)
    bench_connection(build, runs)
    bench_messages(build)
    bench_apn_lookup(build)
    bench_reply_parsers(build)
    return 0


if __name__ == "__main__":
    sys.exit(main())
