"""The tables that are measured: shown in Markdown as they come, and put in their places in a document."""

import re
from pathlib import Path

SHOWN: dict[str, list[str]] = {}


class Table:
    """`name` is its place in the document: what stands between "<!-- table NAME -->" and "<!-- end -->"."""

    def __init__(self, name: str, title: str, *header: str) -> None:
        self.lines = SHOWN[name] = []
        print(f"\n{title}\n")
        self.row(*header)
        self._show("|" + "---|" * len(header))

    def row(self, *cells: object) -> None:
        self._show("| " + " | ".join(map(str, cells)) + " |")

    def _show(self, line: str) -> None:
        self.lines.append(line)
        print(line)


def note(name: str, text: str) -> None:
    """A line of text instead of a table."""
    SHOWN[name] = [text]
    print(text)


def write(document: Path) -> None:
    text = document.read_text(encoding="utf-8")
    for name, lines in SHOWN.items():
        place = re.compile(rf"(<!-- table {re.escape(name)} -->\n).*?(<!-- end -->)", re.DOTALL)
        text, found = place.subn(lambda match: match[1] + "\n".join(lines) + "\n" + match[2], text)
        if found != 1:
            raise SystemExit(f"{document} has {found} places for the table {name!r}")
    document.write_text(text, encoding="utf-8")


def ratio(value: float, base: float | None) -> str:
    return f"{value / base:.2f}" if base else ""
