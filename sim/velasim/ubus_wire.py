"""The wire format of the bus: blob attributes, blobmsg values and messages, to bytes and back.

An attribute is a 32-bit big-endian word (bit 31 "extended", 7 bits id, 24 bits length with these four bytes), its
payload and zeros up to a multiple of four. A value is an extended attribute whose id is its type and whose payload
begins with its name. A message is an 8-byte header and one attribute that holds the message's attributes.
"""

import struct
from dataclasses import dataclass
from enum import IntEnum
from typing import Any, Iterator

MAX_BODY = 1048576
_EXTENDED = 0x80000000
_WORD = struct.Struct(">I")
_HEADER = struct.Struct(">BBHI")
_NAME_LEN = struct.Struct(">H")


class WireError(ValueError):
    """Bytes that are no message, or a value that no message can carry."""


class Msg(IntEnum):
    HELLO = 0
    STATUS = 1
    DATA = 2
    PING = 3
    LOOKUP = 4
    INVOKE = 5
    ADD_OBJECT = 6
    REMOVE_OBJECT = 7
    SUBSCRIBE = 8
    UNSUBSCRIBE = 9
    NOTIFY = 10
    MONITOR = 11


class Attr(IntEnum):
    STATUS = 1
    OBJPATH = 2
    OBJID = 3
    METHOD = 4
    OBJTYPE = 5
    SIGNATURE = 6
    DATA = 7
    TARGET = 8
    ACTIVE = 9
    NO_REPLY = 10
    SUBSCRIBERS = 11
    USER = 12
    GROUP = 13


class Status(IntEnum):
    OK = 0
    INVALID_COMMAND = 1
    INVALID_ARGUMENT = 2
    METHOD_NOT_FOUND = 3
    NOT_FOUND = 4
    NO_DATA = 5
    PERMISSION_DENIED = 6
    TIMEOUT = 7
    NOT_SUPPORTED = 8
    UNKNOWN_ERROR = 9
    CONNECTION_FAILED = 10


class Type(IntEnum):
    UNSPEC = 0
    ARRAY = 1
    TABLE = 2
    STRING = 3
    INT64 = 4
    INT32 = 5
    INT16 = 6
    INT8 = 7
    DOUBLE = 8


_NUMBERS = {
    Type.INT64: struct.Struct(">q"),
    Type.INT32: struct.Struct(">i"),
    Type.INT16: struct.Struct(">h"),
    Type.DOUBLE: struct.Struct(">d"),
}


def _padded(data: bytes) -> bytes:
    return data + bytes(-len(data) % 4)


def _to_bytes(text: str) -> bytes:
    return text.encode("utf-8", "surrogateescape")


def _to_text(data: bytes) -> str:
    return data.decode("utf-8", "surrogateescape")


# Attributes


def encode_attr(id: int, payload: bytes, extended: bool = False) -> bytes:
    length = 4 + len(payload)
    if length > 0xFFFFFF:
        raise WireError(f"{length} bytes are too much for an attribute")
    return _padded(_WORD.pack((_EXTENDED if extended else 0) | id << 24 | length) + payload)


def encode_int(id: int, value: int) -> bytes:
    return encode_attr(id, _WORD.pack(value & 0xFFFFFFFF))


def encode_text(id: int, text: str) -> bytes:
    return encode_attr(id, _to_bytes(text) + b"\0")


def split_attrs(data: bytes) -> Iterator[tuple[int, bool, bytes]]:
    """The attributes in `data`: id, extended, payload."""
    at = 0
    while at < len(data):
        if len(data) - at < 4:
            raise WireError("half an attribute's header")
        (word,) = _WORD.unpack_from(data, at)
        length = word & 0xFFFFFF
        if length < 4 or at + length > len(data):
            raise WireError(f"an attribute of {length} bytes where {len(data) - at} are left")
        yield word >> 24 & 0x7F, bool(word & _EXTENDED), data[at + 4 : at + length]
        at += length + -length % 4


def decode_int(payload: bytes) -> int:
    if len(payload) != 4:
        raise WireError(f"a 32-bit number of {len(payload)} bytes")
    return _WORD.unpack(payload)[0]


def decode_text(payload: bytes) -> str:
    if not payload.endswith(b"\0"):
        raise WireError("a text without its end")
    return _to_text(payload[: payload.index(b"\0")])


# Values


def _encode_data(value: Any) -> tuple[Type, bytes]:
    # bool comes before int, of which it is one.
    if value is None:
        return Type.UNSPEC, b""
    if isinstance(value, bool):
        return Type.INT8, bytes([value])
    if isinstance(value, int):
        if -(1 << 31) <= value < 1 << 31:
            return Type.INT32, _NUMBERS[Type.INT32].pack(value)
        if -(1 << 63) <= value < 1 << 64:
            return Type.INT64, (value & 0xFFFFFFFFFFFFFFFF).to_bytes(8, "big")
        raise WireError(f"{value} does not fit 64 bits")
    if isinstance(value, float):
        return Type.DOUBLE, _NUMBERS[Type.DOUBLE].pack(value)
    if isinstance(value, str):
        return Type.STRING, _to_bytes(value) + b"\0"
    if isinstance(value, dict):
        return Type.TABLE, encode_members(value)
    if isinstance(value, (list, tuple)):
        return Type.ARRAY, b"".join(encode_value("", item) for item in value)
    raise WireError(f"a {type(value).__name__} cannot be sent")


def encode_value(name: str, value: Any) -> bytes:
    type_, data = _encode_data(value)
    raw_name = _to_bytes(name)
    return encode_attr(type_, _padded(_NAME_LEN.pack(len(raw_name)) + raw_name + b"\0") + data, extended=True)


def encode_members(members: dict[str, Any]) -> bytes:
    return b"".join(encode_value(name, value) for name, value in members.items())


def _decode_data(type_: int, data: bytes) -> Any:
    if type_ == Type.UNSPEC:
        return None
    if type_ == Type.INT8:
        if len(data) != 1:
            raise WireError(f"a boolean of {len(data)} bytes")
        return data != b"\0"
    if type_ in _NUMBERS:
        number = _NUMBERS[Type(type_)]
        if len(data) != number.size:
            raise WireError(f"a number of {len(data)} bytes for {number.size}")
        return number.unpack(data)[0]
    if type_ == Type.STRING:
        return decode_text(data)
    if type_ == Type.TABLE:
        return decode_members(data)
    if type_ == Type.ARRAY:
        return [value for _, value in _split_values(data)]
    raise WireError(f"no type {type_}")


def _split_values(data: bytes) -> Iterator[tuple[str, Any]]:
    for type_, extended, payload in split_attrs(data):
        if not extended or len(payload) < 2:
            raise WireError("a value without a name's header")
        (name_len,) = _NAME_LEN.unpack_from(payload)
        header_len = 2 + name_len + 1
        header_len += -header_len % 4
        if header_len > len(payload) or payload[2 + name_len] != 0:
            raise WireError("a name without its end")
        yield _to_text(payload[2 : 2 + name_len]), _decode_data(type_, payload[header_len:])


def decode_members(data: bytes) -> dict[str, Any]:
    return dict(_split_values(data))


# Messages


@dataclass
class Message:
    type: int
    seq: int
    peer: int
    body: bytes  # the message's attributes, without the one around them

    def attrs(self) -> dict[int, bytes]:
        return {id: payload for id, _, payload in split_attrs(self.body)}


def encode_message(type_: int, seq: int, peer: int, *attrs: bytes) -> bytes:
    return _HEADER.pack(0, type_, seq, peer) + encode_attr(0, b"".join(attrs))


class MessageReader:
    """Puts messages together from the pieces that a stream socket delivers."""

    def __init__(self) -> None:
        self._data = bytearray()

    def feed(self, data: bytes) -> Iterator[Message]:
        self._data += data
        while len(self._data) >= _HEADER.size + 4:
            version, type_, seq, peer = _HEADER.unpack_from(self._data)
            length = _WORD.unpack_from(self._data, _HEADER.size)[0] & 0xFFFFFF
            if version != 0 or length < 4 or length > MAX_BODY:
                raise WireError(f"version {version}, body of {length} bytes")
            end = _HEADER.size + length
            if len(self._data) < end:
                return
            body = bytes(self._data[_HEADER.size + 4 : end])
            del self._data[:end]
            yield Message(type_, seq, peer, body)
