"""What the product needs and weighs: flash is what a router has least of. Only the release build can say."""

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest
import size_report

pytestmark = pytest.mark.shipped

SOURCE = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("VELA_BUILD") or SOURCE / "build").resolve()
PROGRAM, PLUGIN = BUILD / "vela_modem", BUILD / "vela_modem.so"
# The same as a router has them, beside its own shared libraries; with those at hand, the product itself is that.
ON_A_ROUTER = BUILD / "tests/footprint" if (BUILD / "tests/footprint/vela_modem").exists() else BUILD
# json-c and the C library; where the router's own libraries are there, those.
ALLOWED = re.compile(r"(libjson-c|libc|libuci|libubus|libubox|libblobmsg_json)\.so(\.\d+)*")
# What the linker and the C library's start files make of any program.
OF_THE_LINKER = {"_IO_stdin_used", "__bss_start", "__data_start", "_edata", "_end", "_start", "data_start", "_init",
                 "_fini", "main", "stdin", "stdout", "stderr"}


def output(*argv: object) -> str:
    return subprocess.run([str(word) for word in argv], check=True, capture_output=True, text=True).stdout


def exports(file: Path) -> set[str]:
    return {line.split()[-1].split("@")[0] for line in output("nm", "-D", "--defined-only", file).splitlines()}


both = pytest.mark.parametrize("file", [PROGRAM, PLUGIN], ids=lambda file: file.name)


@both
def test_it_needs_json_c_the_routers_libraries_and_the_c_library_only(file):
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", output("readelf", "-d", "-W", file))
    assert needed and [name for name in needed if not ALLOWED.fullmatch(name)] == []


@both
def test_on_a_router_it_needs_six_libraries_at_most_and_has_none_of_them_inside(file):
    file = ON_A_ROUTER / file.name
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", output("readelf", "-d", "-W", file))
    assert needed and [name for name in needed if not ALLOWED.fullmatch(name)] == [] and len(needed) <= 6
    defined = {line.split()[-1] for line in output("nm", "--defined-only", file).splitlines()}
    assert not [name for name in defined if re.match(r"(uci_|ubus_|blobmsg_|blob_)(load|commit|connect|parse|nest)", name)]


@both
def test_it_takes_nothing_of_the_cpp_run_time_library(file):
    undefined = output("nm", "-D", "--undefined-only", file)
    assert not re.search(r"CXXABI|GLIBCXX|GCC_|\b_ZSt|\b_ZNSt|__cxa_throw|__gxx_personality|_Unwind_", undefined)


def test_the_plug_in_exports_its_entry_and_nothing_else():
    assert exports(PLUGIN) == {"get_api_entity"}


def test_the_program_exports_the_entry_too_and_nothing_else_of_its_own():
    assert exports(PROGRAM) - OF_THE_LINKER == {"get_api_entity"}


@both
def test_stripped_it_keeps_to_its_budgets(file, record_property):
    file = ON_A_ROUTER / file.name
    record_property("table", (f"what the sources add to {file.name}", size_report.table(file)))
    assert size_report.excesses(file) == []


@both
def test_the_size_report_accounts_for_every_byte(file):
    file = ON_A_ROUTER / file.name
    sizes = size_report.report(file)
    assert sizes.total() == size_report.stripped_size(file)
    # What the sources define outweighs what no source can be named for.
    assert min(sizes.values()) > 0 and sizes["elsewhere"] < 2000
    assert sum(size for source, size in sizes.items() if source.endswith((".cpp", ".c"))) > sizes.total() / 2


@pytest.mark.parametrize("budget", ["WHOLE_FILE", "DIRECTORIES"])
def test_a_budget_that_is_exceeded_is_reported(monkeypatch, budget):
    small = 1000 if budget == "WHOLE_FILE" else {**size_report.DIRECTORIES, "vendor": 1000}
    monkeypatch.setattr(size_report, budget, small)
    [excess] = size_report.excesses(ON_A_ROUTER / PROGRAM.name)
    assert excess.endswith("too many") and ("vendor" in excess) == (budget == "DIRECTORIES")


@both
def test_its_stack_is_not_executable_and_it_has_no_text_relocations(file):
    headers = output("readelf", "-l", "-d", "-W", file)
    assert re.search(r"GNU_STACK.* RW +0x", headers) and "TEXTREL" not in headers


@both
def test_the_places_where_it_was_built_are_not_in_it(file, tmp_path):
    copy = tmp_path / file.name
    shutil.copy(file, copy)
    output("strip", "--strip-all", copy)
    content = copy.read_bytes()
    assert bytes(SOURCE) not in content and bytes(BUILD) not in content
