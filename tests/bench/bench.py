#!/usr/bin/python3
"""What the product costs, beside what people would use in its place and over growing sizes.

Each subject is a module beside this one. Programs run in the simulated router. Times are medians; what counts are the
ratios. Instructions (callgrind, user space), system calls (strace) and effects (the router's record) are exact counts.
The tables are shown in Markdown; with --write they are put into docs/performance.md, too.
"""

import argparse
import os
import platform
import re
import subprocess
import sys
import time
from pathlib import Path

from apn_lookup import bench_apn_lookup
from connection import bench_connection
from discovery import bench_discovery
from exchange import bench_exchange
from information import bench_information
from messages import bench_messages
from meters import ROOT
from reply_parsers import bench_reply_parsers
from shell_commands import bench_shell_commands
from status_block import bench_status
from tables import note, write

DOCUMENT = ROOT / "docs/performance.md"
BENCHES = {
    "exchange": bench_exchange,
    "discovery": bench_discovery,
    "status": bench_status,
    "info": bench_information,
    "set": bench_connection,
    "commands": bench_shell_commands,
    "messages": lambda build, _runs: bench_messages(build),
    "apn": lambda build, _runs: bench_apn_lookup(build),
    "readers": lambda build, _runs: bench_reply_parsers(build),
}


def output(*argv: str) -> str:
    return subprocess.run(argv, check=True, text=True, stdout=subprocess.PIPE, cwd=ROOT).stdout.strip()


def machine(load: float) -> str:
    processor = re.search(r"^model name\s*: (.*)", Path("/proc/cpuinfo").read_text(encoding="utf-8"), re.MULTILINE)
    # The tree belongs to whoever checked it out, and this runs as root.
    git = ("git", "-c", f"safe.directory={ROOT}")
    changed = " with changes" if output(*git, "status", "--porcelain", "--untracked-files=no") else ""
    return (f"{time.strftime('%Y-%m-%d')}, commit {output(*git, 'rev-parse', '--short', 'HEAD')}{changed}, "
            f"{os.cpu_count()} processors ({processor[1] if processor else platform.machine()}), "
            f"Linux {platform.release()}, {output('gcc', '--version').splitlines()[0]}; "
            f"load average {load:.1f} when it began and {os.getloadavg()[0]:.1f} when it ended.")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", type=Path, default=ROOT / "build")
    parser.add_argument("--runs", type=int, default=15, help="runs of each program (at least 7)")
    parser.add_argument("--write", action="store_true", help="put the tables into docs/performance.md")
    parser.add_argument("subject", nargs="*", help=f"of {', '.join(BENCHES)}; all if none is named")
    options = parser.parse_args()
    if unknown := set(options.subject) - set(BENCHES):
        parser.error(f"no such subject: {', '.join(sorted(unknown))}")
    load = os.getloadavg()[0]
    # A table is shown as soon as it is there, also where the output is no terminal.
    sys.stdout.reconfigure(line_buffering=True)
    for subject in options.subject or BENCHES:
        BENCHES[subject](options.build.resolve(), max(7, options.runs))
    print()
    note("machine", machine(load))
    if options.write:
        write(DOCUMENT)
    return 0


if __name__ == "__main__":
    sys.exit(main())
