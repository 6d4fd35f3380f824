#!/usr/bin/python3
"""What each source file adds to a stripped product file, from the symbols and debug information of the unstripped one.

Code and named data count for the source that defines them; an inline function or template that the compiler kept apart
for the header that it is written in. Of data that was moved when the whole was optimised, the debug information has lost
the source: its name and size tell, as they stand in the objects before. What has no name of its own are the texts, which
the linker merges over all files, and the tables for the dynamic linker.
"""

import argparse
import re
import subprocess
import sys
import tempfile
from collections import Counter
from pathlib import Path

from budgets import DIRECTORIES, WHOLE_FILE

SOURCE = Path(__file__).resolve().parents[2]
ELSEWHERE = "elsewhere"
LINKING = "(tables for the dynamic linker, headers)"
TEXTS = "(texts and unnamed constants)"
# What optimisation of the whole adds to a name.
CLONE = re.compile(r"\.(lto_priv|constprop|isra|part|cold)\.?\d*")
# Of what readelf says of objects and archives: where an object begins, and a datum with size and name.
OBJECT = re.compile(r"^File: .*?([^/(]+)\.o\)?$")
DATUM = re.compile(r"^ *\d+: [0-9a-f]+ +(\d+) OBJECT .* (\S+)$")
SYMBOL = re.compile(r"^([0-9a-f]+) ([0-9a-f]+) (\w) (\S+)(?:\t(.+):\d+)?$")
SOURCE_NAME = re.compile(r"^0+ a (\S+)$")
# Kinds of symbols that have bytes in the file: code, constants, data. Not those that only name memory to be zeroed.
IN_FILE = set("tTrRdDwWvVu")
# The sections that hold code and data with names, as readelf lists them with their sizes.
NAMED = re.compile(r"^ *\[ *\d+\] \.(?:text|rodata|data)(?:\.\S*)? +PROGBITS +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) ",
                   re.MULTILINE)


def output(*argv: object) -> str:
    return subprocess.run([str(word) for word in argv], check=True, capture_output=True, text=True).stdout


def stripped_size(file: Path) -> int:
    with tempfile.TemporaryDirectory() as scratch:
        copy = Path(scratch) / file.name
        output("strip", "--strip-all", "-o", copy, file)
        return copy.stat().st_size


def own_sources() -> dict[str, str]:
    """Paths in the project by file name, where that tells which it is."""
    paths = [str(path.relative_to(SOURCE)) for path in SOURCE.glob("*/**/*.c*") if path.parts[-2] != "build"]
    names = Counter(Path(path).name for path in paths)
    return {Path(path).name: path for path in paths if names[Path(path).name] == 1}


def by_source(file: Path) -> Counter:
    """Bytes by source path, relative to the project where they are in it."""
    sources, data, sizes, group, seen = own_sources(), sources_of_data(file), Counter(), ELSEWHERE, set()
    # In the order of the symbol table, where the local symbols of a source stand behind its name.
    for line in output("nm", "--no-sort", "--debug-syms", "--print-size", "--line-numbers", file).splitlines():
        if name := SOURCE_NAME.match(line):
            group = sources.get(name[1], ELSEWHERE)
        elif (symbol := SYMBOL.match(line)) and symbol[3] in IN_FILE and symbol[1] not in seen:
            seen.add(symbol[1])  # one piece of code may have several names
            known = data.get((CLONE.sub("", symbol[4]), int(symbol[2], 16)), group)
            sizes[path_of(symbol[5]) if symbol[5] else known] += int(symbol[2], 16)
    return sizes


def sources_of_data(file: Path) -> dict[tuple[str, int], str]:
    """Sources by name and size of the data in the objects; without what several of them call the same."""
    build, sources = build_of(file), own_sources()
    found, ambiguous, source = {}, set(), ELSEWHERE
    objects = [build / "libvela_core.a", *build.glob("CMakeFiles/vela_endpoints.dir/**/*.o")]
    # (nm would ask the compiler's plug-in, which knows no sizes.)
    for line in output("readelf", "--syms", "--wide", *objects).splitlines():
        if name := OBJECT.match(line):
            source = sources.get(name[1], ELSEWHERE)
        elif datum := DATUM.match(line):
            key = datum[2], int(datum[1])
            if found.setdefault(key, source) != source:
                ambiguous.add(key)
    return {key: source for key, source in found.items() if key not in ambiguous}


def build_of(file: Path) -> Path:
    return next(folder for folder in file.parents if (folder / "libvela_core.a").exists())


def path_of(source: str) -> str:
    path = Path(source)
    return str(path.relative_to(SOURCE)) if path.is_relative_to(SOURCE) else ELSEWHERE


def named_bytes(file: Path) -> int:
    return sum(int(size, 16) for size in NAMED.findall(output("readelf", "-S", "-W", file)))


def report(file: Path) -> Counter:
    """All bytes of the stripped file: by source, and what belongs to none."""
    sizes = by_source(file)
    texts = named_bytes(file) - sizes.total()
    return sizes + Counter({TEXTS: texts, LINKING: stripped_size(file) - sizes.total() - texts})


def by_directory(sizes: Counter) -> Counter:
    directories = Counter()
    for source, size in sizes.items():
        if source not in (LINKING, TEXTS):
            top = source.partition("/")[0]
            directories[top if top in DIRECTORIES else ELSEWHERE] += size
    return directories


def table(file: Path) -> list[str]:
    sizes = report(file)
    lines = [f"{file.name}: {sizes.total()} bytes stripped, {WHOLE_FILE} allowed"]
    for directory, size in sorted(by_directory(sizes).items()):
        lines.append(f"{size:8d} of {DIRECTORIES[directory]:6d}  {directory}")
    lines += [f"{size:8d}            {source}" for source, size in sorted(sizes.items(), key=lambda row: -row[1])]
    return lines


def excesses(file: Path) -> list[str]:
    """Which budgets the file exceeds."""
    sizes = report(file)
    found = []
    if sizes.total() > WHOLE_FILE:
        found.append(f"{file.name} has {sizes.total()} bytes stripped, {sizes.total() - WHOLE_FILE} too many")
    for directory, size in by_directory(sizes).items():
        if size > DIRECTORIES[directory]:
            found.append(f"{directory} adds {size} bytes to {file.name}, {size - DIRECTORIES[directory]} too many")
    return found


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    products = [SOURCE / "build/tests/footprint" / name for name in ("vela_modem", "vela_modem.so")]
    parser.add_argument("file", type=Path, nargs="*", default=products)
    exceeded = []
    for file in parser.parse_args().file:
        print("\n".join(table(file.resolve())))
        exceeded += excesses(file.resolve())
    for excess in exceeded:
        print(excess, file=sys.stderr)
    return 1 if exceeded else 0


if __name__ == "__main__":
    sys.exit(main())
