"""What a coverage build has counted: lines and branches by folder, and lines that nothing has run.

    report.py --build build-coverage            the figures; fails where a line was not run that not_run.txt does not name
    report.py --build build-coverage --files    the figures of each file
    report.py --build build-coverage --lines    besides, each line that was not run
    report.py --build build-coverage --branches besides, each condition that was never true, or never false

The counters come from whatever ran since they were last removed (cmake/Coverage.cmake says where they are).
"""

import argparse
import re
import subprocess
import sys
import tempfile
from collections import defaultdict
from dataclasses import dataclass, field
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
ACCEPTED = Path(__file__).with_name("not_run.txt")
PRODUCT = ("platform", "modem", "vendor", "connection", "sms", "router", "api", "cli", "tools")
# Where programs are in a build, by the names of their counters.
PLACES = ("{}", "tests/router/{}", "tests/unit/{}")
PLUGIN = ("vela_modem_plugin", "vela_modem.so")
CLOSING = re.compile(r"[\s})\];,]*")


@dataclass
class File:
    """The counts of one source file."""

    name: str  # below the source directory
    lines: dict[int, int] = field(default_factory=dict)  # how often each was run
    outcomes: list[tuple[int, bool, int]] = field(default_factory=list)  # of a condition: its line, which, how often
    branches: int = 0
    taken: int = 0

    @property
    def text(self) -> list[str]:
        return (SOURCE / self.name).read_text(encoding="utf-8").split("\n")

    @property
    def not_run(self) -> list[int]:
        return [line for line, count in sorted(self.lines.items()) if count == 0]


def tool(*argv: object) -> str:
    result = subprocess.run([str(word) for word in argv], capture_output=True, text=True)
    if result.returncode != 0:
        sys.exit(f"{argv[0]}: {result.stderr}")
    return result.stdout


def read(build: Path) -> list[File]:
    """All files of the product, by name."""
    counters = sorted((build / "counters").glob("*.profraw"))
    if not counters:
        sys.exit(f"nothing has been counted in {build}/counters")
    with tempfile.NamedTemporaryFile(suffix=".profdata") as merged:
        tool("llvm-profdata", "merge", "-sparse", "-o", merged.name, *counters)
        # A function that the linker has left out of a program is still known there, as one that nobody called.
        names = {file.name.partition("-")[0].replace(*PLUGIN) for file in counters}
        programs = [path for name in sorted(names) for path in (build / place.format(name) for place in PLACES)
                    if path.is_file()]
        objects = [word for path in programs for word in ("-object", path)][1:]
        lcov = tool("llvm-cov", "export", "-format=lcov", f"-instr-profile={merged.name}", *objects)
    files, file = [], File("")
    for line in lcov.splitlines():
        key, _, value = line.partition(":")
        numbers = [0 if number == "-" else int(number) for number in value.split(",")] if key in (
            "DA", "BRDA", "BRF", "BRH") else []
        if key == "SF":
            file = File(str(Path(value).relative_to(SOURCE)) if Path(value).is_relative_to(SOURCE) else "")
        elif key == "DA":
            file.lines[numbers[0]] = numbers[1]
        elif key == "BRDA":
            file.outcomes.append((numbers[0], numbers[2] % 2 == 0, numbers[3]))
        elif key == "BRF":
            file.branches = numbers[0]
        elif key == "BRH":
            file.taken = numbers[0]
        elif key == "end_of_record" and file.name.partition("/")[0] in PRODUCT:
            files.append(file)
    return sorted(files, key=lambda each: each.name)


@dataclass
class Excerpt:
    """One entry of not_run.txt: some lines of a file as they follow each other, and which of them nothing runs."""

    file: str
    reason: str
    text: list[str] = field(default_factory=list)
    marked: list[bool] = field(default_factory=list)

    def find(self, text: list[str]) -> list[int]:
        """The numbers of the lines, in all places that read so, that nothing needs to run."""
        stripped = [line.strip() for line in text]
        places = [start for start in range(len(stripped)) if stripped[start:start + len(self.text)] == self.text]
        return [start + index + 1 for start in places for index, marked in enumerate(self.marked) if marked]


def accepted() -> list[Excerpt]:
    found: list[Excerpt] = []
    for number, line in enumerate(ACCEPTED.read_text(encoding="utf-8").split("\n"), 1):
        head = re.fullmatch(r"([\w./]+): (.+)", line)
        if line[:2] in ("| ", "! ") and found:
            found[-1].text.append(line[2:].strip())
            found[-1].marked.append(line[0] == "!")
        elif head:
            found.append(Excerpt(head[1], head[2]))
        elif line and not line.startswith("#"):
            sys.exit(f"{ACCEPTED.name}:{number}: neither \"FILE: REASON\" nor a line after \"| \" or \"! \"")
    return found


def judge(files: list[File]) -> list[str]:
    """What is wrong: sources that no program has, lines that nothing ran and no excerpt names, and excerpts of lines that
    are not there."""
    by_name, allowed = {file.name: file for file in files}, defaultdict(set)
    sources = [str(path.relative_to(SOURCE)) for folder in PRODUCT for path in sorted((SOURCE / folder).rglob("*.cpp"))]
    wrong = [f"{name}: not run: no program has it" for name in sources if name not in by_name]
    for excerpt in accepted():
        what = f"{excerpt.file}: {' '.join(excerpt.text)}"
        lines = excerpt.find(by_name[excerpt.file].text) if excerpt.file in by_name else []
        allowed[excerpt.file].update(lines)
        if not lines:
            wrong.append(f"{ACCEPTED.name}: there are no such lines: {what}")
        elif all(by_name[excerpt.file].lines.get(line, 0) > 0 for line in lines):
            # No mistake: what runs them may be something that does not happen each time.
            print(f"{ACCEPTED.name}: were run all the same: {what}")
    for file in files:
        text = file.text
        # An end of a block is run or not as its last line is.
        wrong += [f"{file.name}:{line}: not run: {text[line - 1].strip()}" for line in file.not_run
                  if line not in allowed[file.name] and not CLOSING.fullmatch(text[line - 1])]
    return wrong


def share(part: int, whole: int) -> str:
    return f"{part:6} of {whole:6} {100 * part / whole if whole else 100:6.1f} %"


def row(name: str, files: list[File]) -> str:
    lines = [count for file in files for count in file.lines.values()]
    run = sum(count > 0 for count in lines)
    taken, branches = sum(file.taken for file in files), sum(file.branches for file in files)
    return f"{name:44} {share(run, len(lines))}    {share(taken, branches)}"


def table(files: list[File], each: bool) -> str:
    rows = [f"{'':44} {'lines':>25}    {'branches':>25}"]
    for folder in PRODUCT:
        inside = [file for file in files if file.name.startswith(f"{folder}/")]
        rows += [row(f"  {file.name}", [file]) for file in inside if each]
        rows.append(row(folder, inside))
    return "\n".join([*rows, row("all", files)])


def main() -> int:
    arguments = argparse.ArgumentParser(description=(__doc__ or "").partition("\n")[0])
    arguments.add_argument("--build", type=Path, required=True)
    for name in ("files", "lines", "branches"):
        arguments.add_argument(f"--{name}", action="store_true")
    asked = arguments.parse_args()
    files = read(asked.build)
    for file in files:
        text = file.text
        if asked.lines:
            for line in file.not_run:
                print(f"{file.name}:{line}: {text[line - 1]}")
        if asked.branches:
            for line, outcome, count in file.outcomes:
                if count == 0 and file.lines.get(line, 0) > 0:
                    print(f"{file.name}:{line}: never {str(outcome).lower()}: {text[line - 1].strip()}")
    print(table(files, asked.files))
    wrong = judge(files)
    print(*wrong, sep="\n", file=sys.stderr)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
