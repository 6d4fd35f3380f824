"""The documents list every configuration option and every path that the sources name, and no other; the index lists
every document, and what they point to is there."""

import re

import pytest
from product_sources import ROOT, options, paths

pytestmark = pytest.mark.shipped

ROW = re.compile(r"^\| (`[^|]+) \|(.*)$", re.MULTILINE)
NAME = re.compile(r"`([^`]+)`")


def rows(document: str, start: str = "", end: str = r"\Z") -> dict[str, str]:
    """What stands in backticks in the first column of the tables, and the rest of each one's row."""
    text = (ROOT / "docs" / document).read_text(encoding="utf-8")
    part = re.search(f"{start}.*?{end}", text, re.DOTALL)[0]
    return {name: rest for first, rest in ROW.findall(part) for name in NAME.findall(first)}


def documented_options() -> dict[str, str]:
    return rows("configuration.md", "<!-- every option -->", "<!-- end -->")


def test_every_option_of_the_sources_is_documented_and_no_other():
    assert set(options()) == set(documented_options())
    assert len(options()) > 50


def test_the_constants_that_are_written_stand_beside_their_options():
    documented = documented_options()
    written = {option: constants for option, constants in options().items() if constants}
    assert len(written) > 10
    for option, constants in written.items():
        access, text = documented[option].split("|")[0], documented[option]
        assert "w" in access and all(f'"{constant}"' in text for constant in constants), option


@pytest.mark.parametrize("option, default", re.findall(
    r'const Setting \w+\(configuration, "([\w.]+)", "(\w+)"\)', (ROOT / "vendor/quectel_thermal.cpp").read_text()))
def test_the_thermal_defaults_are_those_of_the_source(option, default):
    assert documented_options()[option].split("|")[2].strip() == default


def test_every_path_of_the_sources_is_documented_and_no_other():
    documented = rows("state-files.md")
    listed = set(documented) | {name for text in documented.values() for name in NAME.findall(text) if name[0] == "/"
                                and not name.startswith("/modem/")} | {"/tmp/modem.<bus>"}
    assert listed == paths()
    assert len(paths()) > 50


# Not what was built or brought by others.
DOCUMENTS = sorted(path for path in ROOT.rglob("*.md") if "node_modules" not in path.parts
                   and not path.relative_to(ROOT).parts[0].startswith(("build", ".")))


def anchors(text: str) -> set[str]:
    """The headings as a link names them."""
    headings = re.findall(r"^#+ (.*)$", text, re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: str(path.relative_to(ROOT)))
def test_what_a_document_points_to_is_there(document):
    # Only where a link stands in running text, not in an example.
    text = re.sub(r"^```.*?^```$", "", document.read_text(encoding="utf-8"), flags=re.MULTILINE | re.DOTALL)
    missing = []
    for link in re.findall(r"\]\(([^)\s]+)\)", text):
        name, _, anchor = link.partition("#")
        if name.startswith("https://"):
            continue
        target = (document.parent / name).resolve() if name else document
        if not target.exists() or (anchor and anchor not in anchors(target.read_text(encoding="utf-8"))):
            missing.append(link)
    assert missing == []


def test_the_index_lists_every_document():
    listed = re.findall(r"^\| \[([\w.-]+)\]\(\1\)", (ROOT / "docs/README.md").read_text(encoding="utf-8"), re.MULTILINE)
    there = [path.name for path in (ROOT / "docs").iterdir() if path.suffix in (".md", ".json")]
    assert sorted([*listed, "README.md"]) == sorted(there)
