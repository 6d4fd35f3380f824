"""`vela_modem convert <file> <count>`: the UCS-2 text of a file as UTF-8.

The text is in the byte order of the C library's "UCS2", which on the machines of these tests is the machine's own.
"""

import sys
from typing import Iterator

import pytest
from velasim import Router

FILE = "/tmp/message"


@pytest.fixture(scope="module")
def ec25() -> Iterator[Router]:
    with Router("ec25", ubus=False) as r:
        yield r


def convert(r: Router, content: str | bytes, *count: str) -> bytes:
    data = content if isinstance(content, bytes) else content.encode(f"utf-16-{sys.byteorder[0]}e")
    r.write(FILE, data)
    result = r.run("vela_modem", "convert", FILE, *count)
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout_bytes


@pytest.mark.parametrize("text", ["Hello", "Grüße", "Привет, мир", "你有新短信", "€", "\x01\x7f %s%n"], ids=ascii)
def test_a_text_is_printed_as_it_stands(ec25, text):
    assert convert(ec25, text, str(len(text))) == text.encode()


@pytest.mark.parametrize("count, expected", [
    ("0", ""), ("-1", ""), ("-2147483648", ""), ("x", ""), ("", ""),
    ("1", "A"),  # three bytes: one character and half of the next
    ("2", "ABC"), ("4", "ABCDEF"), ("6", "ABCDEFGHI"), ("1000", "ABCDEFGHI"),
], ids=repr)
def test_three_bytes_are_converted_for_each_of_the_count(ec25, count, expected):
    assert convert(ec25, "ABCDEFGHI", count) == expected.encode()


def test_the_result_has_three_bytes_of_room_for_each_of_the_count(ec25):
    assert convert(ec25, "你有新短信", "2") == "你有".encode()
    assert convert(ec25, "AB你", "2") == b"AB\xe4\xbd\xa0"


def test_at_most_2048_bytes_of_the_file_are_read(ec25):
    assert convert(ec25, "A" * 1024 + "B" * 1024, "682") == b"A" * 1023
    assert convert(ec25, "A" * 1024 + "B" * 1024, "683") == b"A" * 1024


@pytest.mark.parametrize("count", ["683", "1024", "65536", "715827882", "715827883", "2147483647", "99999999999999"])
def test_a_count_beyond_the_buffers_converts_what_they_hold(ec25, count):
    assert convert(ec25, "B" * 1024, count) == b"B" * 1024
    # A character of three bytes is printed whole or not at all, and the result keeps one byte for its end.
    assert convert(ec25, "短" * 1024, count) == "短".encode() * 682


def test_what_stands_before_an_invalid_character_is_printed(ec25):
    surrogate = (0xD800).to_bytes(2, sys.byteorder)
    good = "AB".encode(f"utf-16-{sys.byteorder[0]}e")
    assert convert(ec25, good + surrogate + good, "10") == b"AB"


@pytest.mark.parametrize("content", [b"", b"A", b"\0", b"\0\0"], ids=repr)
def test_a_file_without_a_whole_character_prints_nothing(ec25, content):
    # The buffer behind the file is zeros, so a single byte is a character where the low byte comes first.
    expected = b"A" if content == b"A" and sys.byteorder == "little" else b""
    assert convert(ec25, content, "10") == expected


@pytest.mark.parametrize("argv", [[], [FILE], ["/nonexistent", "5"], ["", "5"], ["/tmp", "5"]], ids=repr)
def test_without_a_readable_file_and_a_count_nothing_is_printed(ec25, argv):
    ec25.write(FILE, "AB")
    result = ec25.run("vela_modem", "convert", *argv)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")


def test_a_device_that_never_ends_is_read_no_further_than_the_buffer(ec25):
    assert ec25.run("vela_modem", "convert", "/dev/zero", "5").stdout == ""
