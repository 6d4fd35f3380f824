#!/usr/bin/env python3
"""Runs every fuzzer of a build for a while, several at a time, and says what each did.

New inputs stay in a scratch directory; the seeds in corpus/ are only read. A finding prints the fuzzer's own report and
keeps the input in the build directory, and the exit status is 1.
"""
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

HERE = pathlib.Path(__file__).resolve().parent
RECORDED_REPLIES = HERE.parent / "replies"
# Fuzzers whose input is much like a modem's reply get the recorded ones as seeds.
READS_REPLIES = {"at_reply", "fibocom", "generic_replies", "identity", "json_text", "quectel", "sierra"}


def run_fuzzer(binary: pathlib.Path, seconds: int) -> tuple[str, bool, str, str]:
    """Returns the name, whether it went well, a line of figures, and its output."""
    name = binary.name.removesuffix("_fuzz")
    seeds = [HERE / "corpus" / name]
    if name in READS_REPLIES:
        seeds += [folder for folder in sorted(RECORDED_REPLIES.iterdir()) if folder.is_dir()]
    dictionary = HERE / "dictionaries" / f"{name}.dict"
    findings = binary.parent / "findings" / name
    findings.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as scratch:
        command = [str(binary), f"-max_total_time={seconds}", "-print_final_stats=1", "-timeout=10",
                   f"-artifact_prefix={findings}/"]
        if dictionary.exists():
            command.append(f"-dict={dictionary}")
        command += [scratch] + [str(seed) for seed in seeds if seed.is_dir()]
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace")
    executions = re.search(r"number_of_executed_units: *(\d+)", done.stdout)
    coverage = re.findall(r"cov: (\d+)", done.stdout)
    figures = f"{executions[1] if executions else '?':>10} executions  {coverage[-1] if coverage else '?':>6} edges"
    return name, done.returncode == 0, figures, done.stdout


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="build directory of the fuzz preset")
    parser.add_argument("--seconds", type=int, default=60, help="how long each fuzzer runs")
    parser.add_argument("--jobs", type=int, default=1, help="how many run at a time")
    options = parser.parse_args()
    binaries = sorted((options.build / "tests" / "fuzz").glob("*_fuzz"))
    if not binaries:
        print(f"no fuzzers in {options.build}", file=sys.stderr)
        return 1
    failed = 0
    with ThreadPoolExecutor(options.jobs) as pool:
        for name, passed, figures, output in pool.map(lambda binary: run_fuzzer(binary, options.seconds), binaries):
            print(f"{name:20} {figures}  {'no findings' if passed else 'FAILED'}", flush=True)
            if not passed:
                failed += 1
                print(output[-6000:], file=sys.stderr)
    print(f"fuzzers: {len(binaries) - failed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
