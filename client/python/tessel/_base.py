"""What the generated records and calls are made of."""

import ctypes
import os
import struct
import sys
from ipaddress import IPv4Address, ip_address, ip_interface

library = ctypes.CDLL("libtessel.so.@PROJECT_VERSION_MAJOR@", use_errno=True)
library.tessel_strerror.restype = ctypes.c_char_p
library.tessel_listener_malformed.restype = ctypes.c_ulong
E_SYSTEM = -7  # TESSEL_E_SYSTEM


class Error(Exception):
    """A call that did not succeed.

    `request` is its name, `code` one of E_..., and `errno` what the system said with E_SYSTEM, else 0.
    """

    def __init__(self, request, code):
        self.request = request
        self.code = code
        self.errno = ctypes.get_errno() if code == E_SYSTEM else 0
        reason = f" ({os.strerror(self.errno)})" if self.errno else ""
        super().__init__(f"{request}: {library.tessel_strerror(code).decode()}{reason}")


def call(name, *arguments, request=None):
    """Raises an Error, of `request` if there is one, unless libtessel's function returns 0."""
    code = getattr(library, "tessel_" + name)(*arguments)
    if code != 0:
        raise Error(request or name, code)


def text(value):
    """A str, or None for null, as an argument."""
    if value is not None and "\0" in value:
        raise ValueError(f"{value!r} has a NUL")
    return ctypes.c_char_p(value and os.fsencode(value))


class Field:
    """An attribute of a record: `size` bytes, or all that follow, and what they mean. Fields may share bytes."""

    def __init__(self, at, size, decode, encode):
        self.place = slice(at, size and at + size)
        self.size = size
        self.decode = decode
        self.encode = encode

    def __get__(self, record, owner=None):
        return self if record is None else self.decode(bytes(record.data[self.place]))

    def __set__(self, record, value):
        encoded = self.encode(value)
        if self.size and len(encoded) != self.size:
            raise ValueError(f"{value!r} does not fit into {self.size} bytes")
        record.data[self.place] = encoded


class Number(Field):
    """int."""

    def __init__(self, at, size=4, signed=False):
        super().__init__(at, size, lambda raw: int.from_bytes(raw, sys.byteorder, signed=signed),
                         lambda value: value.to_bytes(size, sys.byteorder, signed=signed))


class Signed(Number):
    """int."""

    def __init__(self, at, size):
        super().__init__(at, size, signed=True)


class Text(Field):
    """str, up to a NUL."""

    def __init__(self, at, size):
        super().__init__(at, size, lambda raw: os.fsdecode(raw.split(b"\0")[0]),
                         lambda value: os.fsencode(value).ljust(size or 0, b"\0"))


class Mac(Field):
    """str: "02:00:00:00:00:01"."""

    def __init__(self, at, size):
        super().__init__(at, size, lambda raw: raw.hex(":"), lambda value: bytes.fromhex(value.replace(":", "")))


class Ipv4(Field):
    """str: "192.168.1.1"."""

    def __init__(self, at, size):
        super().__init__(at, size, lambda raw: str(IPv4Address(raw)), lambda value: IPv4Address(value).packed)


def read_host(raw):
    """The address of a TNetGateway. The family of an IPv4 one may be missing."""
    family, _, address = struct.unpack("=HH16s", raw)
    return ip_address(address if family == 10 else address[:4])


def write_host(value):
    if value is None:
        return bytes(20)
    address = ip_address(value)
    return struct.pack("=HH16s", 2 if address.version == 4 else 10, 0, address.packed)


class Address(Field):
    """str: "192.168.1.1" or "fe80::1"; None for the zero address."""

    def __init__(self, at, size):
        super().__init__(at, size, lambda raw: str(read_host(raw)) if any(raw[4:]) else None, write_host)


class Network(Field):
    """str: "192.168.1.1/24". The length stands elsewhere."""

    def __init__(self, at, size, length):
        super().__init__(at, size, read_host, write_host)
        self.length = Number(length)

    def __get__(self, record, owner=None):
        return self if record is None else f"{super().__get__(record)}/{self.length.__get__(record)}"

    def __set__(self, record, value):
        interface = ip_interface(value)
        super().__set__(record, interface.ip)
        self.length.__set__(record, interface.network.prefixlen)


class Range(Field):
    """str: "192.168.1.1-192.168.1.9"; None without a last address, whose family does not count."""

    def __init__(self, at, size, last):
        super().__init__(at, size, bytes, write_host)
        self.last = Field(last, size, bytes, write_host)

    def __get__(self, record, owner=None):
        if record is None:
            return self
        first, last = super().__get__(record), self.last.__get__(record)
        return f"{read_host(first)}-{read_host(first[:4] + last[4:])}" if any(last[4:]) else None

    def __set__(self, record, value):
        first, last = value.split("-") if value else (None, None)
        if first:
            super().__set__(record, first)
        self.last.__set__(record, last)


class List(Field):
    """list of records, or of what they stand for. How many stands elsewhere; else there are always `most`."""

    def __init__(self, at, kind, most, count):
        def split(raw):
            return [kind(raw[i:i + kind.SIZE]).value for i in range(0, len(raw), kind.SIZE)]

        def join(values):
            return b"".join(bytes(kind.of(value)) for value in values).ljust(most * kind.SIZE, b"\0")

        super().__init__(at, most * kind.SIZE, split, join)
        self.count = None if count is None else Number(count)

    def __get__(self, record, owner=None):
        if record is None:
            return self
        return super().__get__(record)[:self.count and self.count.__get__(record)]

    def __set__(self, record, values):
        super().__set__(record, values)
        if self.count:
            self.count.__set__(record, len(values))


class Record:
    """Bytes of a message, with fields as attributes. Made of bytes or of fields; what is not given is zero."""

    __slots__ = ("data",)
    SIZE = 0

    def __init__(self, data=b"", **fields):
        self.data = bytearray(data).ljust(self.SIZE, b"\0")
        for name, value in fields.items():
            setattr(self, name, value)

    @classmethod
    def of(cls, value):
        """A record as it is. A dict has its fields; anything else is its first field."""
        if isinstance(value, cls):
            return value
        return cls(**(value if isinstance(value, dict) else {cls.names()[0]: value}))

    @classmethod
    def names(cls):
        """Of the fields."""
        return [name for name, field in vars(cls).items() if isinstance(field, Field)]

    @property
    def value(self):
        """What a record with one field stands for: that field. Else the record."""
        names = self.names()
        return getattr(self, names[0]) if len(names) == 1 else self

    @property
    def _as_parameter_(self):
        return (ctypes.c_ubyte * len(self.data)).from_buffer(self.data)

    def __bytes__(self):
        return bytes(self.data)

    def __eq__(self, other):
        return type(self) is type(other) and self.data == other.data

    def __repr__(self):
        shown = (f"{name}={getattr(self, name)!r}" for name in self.names() if name != "password")
        return f"{type(self).__name__}({', '.join(shown)})"
