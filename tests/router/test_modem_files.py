"""The modem files: each is well formed and played as written, and the check finds what is wrong with one."""

import re

import check_modems
import pytest
from at_client import talk
from velasim.modem_file import MODEMS, Entry, load

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
