"""The modem files: each is well formed and played as written, and a modem can be recorded into such a file."""

import re

import check_modems
import pytest
from at_client import talk
from velasim.modem_file import MODEMS, Entry, load, parse

MODELS = sorted(path.stem for path in MODEMS.glob("*.modem"))


def example(entry: Entry) -> str:
    return re.sub(r"\*$|\{[a-z]+\}", "1", entry.command)


@pytest.mark.parametrize("model", MODELS)
def test_every_model_answers_every_command_of_its_file(router, model):
    file = load(model)
    r = router(model, ubus=False)
    port = r.modem().tty(next(i.number for i in file.interfaces if i.role == "at"))
    quick = [entry for entry in file.entries if all(wait < 1000 for wait, _ in entry.pieces)]
    echo = file.echo
    for entry, (reply, end) in zip(quick, talk(r, port, *[(example(entry) + "\r",) for entry in quick])):
        assert end == "", entry.command
        assert reply.startswith(example(entry) + "\r\r\n" if echo else "\r\n"), entry.command
        if entry.command in ("ATE0", "ATE1"):
            echo = entry.command == "ATE1"
        if "{" not in entry.command and not any(b"{" in data for _, data in entry.pieces):
            assert reply.endswith(b"".join(data for _, data in entry.pieces).decode()), entry.command


def test_modem_files():
    assert check_modems.check(sorted(MODEMS.glob("*.modem"))) == []
    assert len(MODELS) >= 13


def test_modem_file_check_finds_mistakes(tmp_path):
    good = (MODEMS / "ec25.modem").read_text()
    bad = tmp_path / "bad.modem"
    for old, new, expected in (
        ("350000000000017", "356938035643809", "may be a real number"),
        ("# source: ", "# sorce: ", "no '# source:' line"),
        ("> AT+CSQ\n", "> AT+CSQX\n", "no reply to AT+CSQ"),
        ("usb 2c7c:0125", "usb 2c7c", "not understood"),
        ("< +CSQ: 20,99", "+CSQ: 20,99", "not understood"),
    ):
        assert old in good
        bad.write_text(good.replace(old, new))
        assert any(expected in problem for problem in check_modems.check([bad])), expected
    bad.write_text(good)
    assert any("is already" in problem for problem in check_modems.check([MODEMS / "ec25.modem", bad]))


@pytest.mark.parametrize("model", ["ec25", "mc7430", "nl678e"])
def test_recorded_modem_is_the_modem(router, model):
    r = router(model, ubus=False)
    original = load(model)
    port = r.modem().tty(next(i.number for i in original.interfaces if i.role == "at"))
    result = r.run("/usr/bin/python3", "/run/sim/lib/record_modem.py", "--port", port, "--bus", "1-1.2", "--model", "M")
    recorded = parse(result.stdout, "recorded")
    assert (recorded.vendor, recorded.product, recorded.echo) == (original.vendor, original.product, original.echo)
    shape = lambda file: sorted((i.number, i.kind, i.name) for i in file.interfaces)
    assert shape(recorded) == shape(original)
    replies = {entry.command: b"".join(data for _, data in entry.pieces) for entry in recorded.entries}
    for entry in original.entries:
        expected = b"".join(data for _, data in entry.pieces)
        if entry.command in replies and not re.search(rb"\{[a-z]+\}|\d{14}", expected):
            assert replies[entry.command] == expected, entry.command
    assert "AT+CSQ" in replies and check_modems.problems(result.stdout, recorded) == []
