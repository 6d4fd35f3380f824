#!/usr/bin/env python3
"""Runs every fuzzer of a build for a while, several at a time, and says what each did.

What a fuzzer finds of interest stays in the build directory (corpus/NAME) and is where its next run begins; the seeds
beside this file are only read. A finding prints the fuzzer's own report and keeps the input in the build directory
(findings/NAME), and the exit status is 1.

With --repeatable a run begins with the seeds alone and a fixed random number, and keeps nothing: that is how tests fuzz,
for what they meet must not change from one run to the next.

--coverage runs the fuzzers of a build of the "fuzz-coverage" preset over all of those inputs and prints which lines of
the product they reach. --merge rewrites the seeds: the fewest small inputs that reach what all of them do.
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
RECORDED_REPLIES = HERE.parent / "replies"
# Fuzzers whose input is much like a modem's reply get the recorded ones as seeds.
READS_REPLIES = {"at_reply", "fibocom", "generic_replies", "identity", "json_text", "quectel", "sierra"}
# Scripts of a whole router are long.
LONGEST_SEED = {"handlers": 1200, "commands": 1200, "operations": 1200}
LONGEST_OTHER_SEED = 1000
# Linked with the fuzzers, but no readers: what is not counted, and why.
NOT_COUNTED = {
    "hostlibs/ubus/cli/": "a program of its own",
    "hostlibs/ubus/include/": "getters and writers for other programs",
    "hostlibs/ubus/ubox/blob_buf.c": "writes messages",
    "hostlibs/ubus/ubox/blobmsg_add": "writes messages",
    "modem/model_table.cpp": "computed by the compiler",
    "platform/shell.cpp": "half of it is the child's, between fork and exec",
}
# libFuzzer does not wait for what a signal or a run-away input breaks.
COMMON = ["-timeout=10", "-rss_limit_mb=1024", "-print_final_stats=1"]


@dataclass
class Run:
    name: str
    passed: bool
    executions: int
    edges: int
    inputs: int
    output: str


def name_of(binary: pathlib.Path) -> str:
    return binary.name.removesuffix("_fuzz")


def seeds_of(name: str) -> list[str]:
    folders = [HERE / "corpus" / name]
    if name in READS_REPLIES:
        folders += [folder for folder in sorted(RECORDED_REPLIES.iterdir()) if folder.is_dir()]
    return [str(folder) for folder in folders if folder.is_dir()]


def start(command: list[str], environment: dict[str, str] | None = None) -> subprocess.CompletedProcess:
    # What fuzzers write is best in memory.
    memory = pathlib.Path("/dev/shm")
    with tempfile.TemporaryDirectory(dir=memory if os.access(memory, os.W_OK) else None) as scratch:
        return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                              env={**os.environ, **(environment or {}), "TMPDIR": scratch})


def last_number(pattern: str, text: str) -> int:
    found = re.findall(pattern, text)
    return int(found[-1]) if found else 0


def run_fuzzer(binary: pathlib.Path, options: argparse.Namespace) -> Run:
    name = name_of(binary)
    dictionary = HERE / "dictionaries" / f"{name}.dict"
    findings = options.build / "findings" / name
    findings.mkdir(parents=True, exist_ok=True)
    command = [str(binary), f"-max_total_time={options.seconds}", f"-artifact_prefix={findings}/", *COMMON]
    if dictionary.exists():
        command.append(f"-dict={dictionary}")
    # The first directory is where the fuzzer keeps what is of interest.
    with tempfile.TemporaryDirectory() as kept_nowhere:
        if options.repeatable:
            command += ["-seed=1", kept_nowhere]
        else:
            corpus = options.build / "corpus" / name
            corpus.mkdir(parents=True, exist_ok=True)
            command.append(str(corpus))
        done = start(command + seeds_of(name))
    return Run(name, done.returncode == 0, last_number(r"number_of_executed_units: *(\d+)", done.stdout),
               last_number(r"cov: (\d+)", done.stdout), last_number(r"corp: (\d+)", done.stdout), done.stdout)


def fuzz(options: argparse.Namespace, binaries: list[pathlib.Path]) -> int:
    failed = 0
    with ThreadPoolExecutor(options.jobs) as pool:
        for run in pool.map(lambda binary: run_fuzzer(binary, options), binaries):
            print(f"{run.name:16} {run.executions:>10} executions {run.edges:>6} edges {run.inputs:>6} inputs  "
                  f"{'no findings' if run.passed else 'FAILED'}", flush=True)
            if not run.passed:
                failed += 1
                print(run.output[-6000:], file=sys.stderr)
    print(f"fuzzers: {len(binaries) - failed} passed, {failed} failed")
    return 1 if failed else 0


def merge(options: argparse.Namespace, binaries: list[pathlib.Path]) -> int:
    """The recorded replies stay seeds by themselves: only what they do not reach is kept beside them."""

    def merge_one(binary: pathlib.Path) -> str:
        name = name_of(binary)
        kept = HERE / "corpus" / name
        with tempfile.TemporaryDirectory() as scratch:
            longest = LONGEST_SEED.get(name, LONGEST_OTHER_SEED)
            first, *replies = seeds_of(name) or [str(kept)]
            findings = options.build / "findings" / name
            findings.mkdir(parents=True, exist_ok=True)
            done = start([str(binary), "-set_cover_merge=1", "-use_counters=0", f"-max_len={longest}", *COMMON,
                          f"-artifact_prefix={findings}/", scratch, *replies, first,
                          str(options.build / "corpus" / name)])
            # A finding on the way ends a process of the merge, but not the merge.
            if done.returncode != 0 or "SUMMARY:" in done.stdout:
                return f"{name}: FAILED, the seeds are as before\n{done.stdout[-2000:]}"
            recorded = {path.read_bytes() for folder in replies for path in pathlib.Path(folder).iterdir()}
            texts = {text for path in pathlib.Path(scratch).iterdir() if (text := path.read_bytes()) not in recorded}
            for path in kept.iterdir():
                if path.read_bytes() in texts:
                    texts.discard(path.read_bytes())
                elif re.fullmatch(r"[0-9a-f]{40}", path.name):
                    path.unlink()
            for path in pathlib.Path(scratch).iterdir():
                if path.read_bytes() in texts:
                    (kept / path.name).write_bytes(path.read_bytes())
        sizes = [path.stat().st_size for path in kept.iterdir()]
        return f"{name:16} {len(sizes):>6} seeds {sum(sizes):>8} bytes"

    with ThreadPoolExecutor(options.jobs) as pool:
        failed = False
        for line in pool.map(merge_one, binaries):
            print(line, flush=True)
            failed = failed or "FAILED" in line
    return 1 if failed else 0


def lines_reached(binaries: list[pathlib.Path], options: argparse.Namespace) -> dict[str, dict[int, bool]]:
    """Of each source file of the project: whether each of its lines that has code was reached."""
    with tempfile.TemporaryDirectory() as scratch:
        def profile(binary: pathlib.Path) -> str:
            name = name_of(binary)
            raw = f"{scratch}/{name}.profraw"
            corpus = options.build / "corpus" / name
            folders = seeds_of(name) + ([str(corpus)] if corpus.is_dir() and not options.seeds_only else [])
            done = start([str(binary), "-runs=0", *COMMON, *folders], {"LLVM_PROFILE_FILE": raw})
            if done.returncode != 0:
                sys.exit(f"{name}: {done.stdout[-3000:]}")
            return raw

        with ThreadPoolExecutor(options.jobs) as pool:
            profiles = list(pool.map(profile, binaries))
        merged = f"{scratch}/all.profdata"
        subprocess.run(["llvm-profdata", "merge", "-sparse", "-o", merged, *profiles], check=True)
        objects = [argument for binary in binaries for argument in ("-object", str(binary))]
        report = subprocess.run(["llvm-cov", "export", "-format=lcov", f"-instr-profile={merged}", *objects[1:]],
                                check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
    files: dict[str, dict[int, bool]] = {}
    lines: dict[int, bool] = {}
    for line in report.splitlines():
        if line.startswith("SF:"):
            path = pathlib.Path(line[3:])
            lines = files.setdefault(str(path.relative_to(ROOT)), {}) if path.is_relative_to(ROOT) else {}
        elif line.startswith("DA:"):
            number, count = line[3:].split(",")[:2]
            lines[int(number)] = lines.get(int(number), False) or count != "0"
    return {path: lines for path, lines in files.items() if lines and not path.startswith("tests/")}


def ranges(numbers: list[int]) -> str:
    """ "3-5 9" for 3, 4, 5, 9."""
    parts: list[list[int]] = []
    for number in sorted(numbers):
        if parts and number == parts[-1][1] + 1:
            parts[-1][1] = number
        else:
            parts.append([number, number])
    return " ".join(str(first) if first == last else f"{first}-{last}" for first, last in parts)


def coverage(options: argparse.Namespace, binaries: list[pathlib.Path]) -> int:
    reached = all_lines = 0
    for path, lines in sorted(lines_reached(binaries, options).items()):
        count = sum(lines.values())
        reason = next((reason for prefix, reason in NOT_COUNTED.items() if path.startswith(prefix)), None)
        if reason is None:
            reached += count
            all_lines += len(lines)
        missed = ranges([number for number, is_reached in lines.items() if not is_reached])
        print(f"{path:44} {count:>4} of {len(lines):>4} lines {100 * count // len(lines):>4} %  "
              f"{missed if reason is None else f'(not counted: {reason})'}".rstrip())
    print(f"fuzzed files: {reached} of {all_lines} lines, {100 * reached / max(all_lines, 1):.1f} %")
    return 0


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="build directory of the fuzz preset")
    parser.add_argument("--seconds", type=int, default=60, help="how long each fuzzer runs")
    parser.add_argument("--jobs", type=int, default=1, help="how many run at a time")
    parser.add_argument("--repeatable", action="store_true", help="from the seeds alone, with a fixed random number")
    parser.add_argument("--only", action="append", help="this fuzzer alone; may be given again")
    parser.add_argument("--coverage", type=pathlib.Path, metavar="BUILD",
                        help="which lines are reached, by a build of the fuzz-coverage preset")
    parser.add_argument("--seeds-only", action="store_true", help="for --coverage: by the seeds alone")
    parser.add_argument("--merge", action="store_true", help="rewrite the seeds")
    options = parser.parse_args()
    build = options.coverage or options.build
    binaries = sorted((build / "tests" / "fuzz").glob("*_fuzz"))
    binaries = [binary for binary in binaries if not options.only or name_of(binary) in options.only]
    if not binaries:
        print(f"no fuzzers in {build}", file=sys.stderr)
        return 1
    if options.coverage:
        return coverage(options, binaries)
    return (merge if options.merge else fuzz)(options, binaries)


if __name__ == "__main__":
    sys.exit(main())
