"""libtessel for test benches: the calls and notifications of tessel_daemon.

Every call of libtessel has a function here, of its name without "tessel_" and with its parameters. libtessel.h
describes both; what the C function writes is what this one returns, and errors are raised. Constants have their names
without "TESSEL_".

    import tessel

    tessel.addr_add("eth0", "192.168.1.20/24")
    print(tessel.addr_get("eth0", tessel.FAMILY_INET), tessel.mtu_get("eth0"))

Interfaces, addresses ("192.168.1.1", with "/24" where they have a prefix length; None for the zero address) and
hardware addresses ("02:00:00:00:00:01") are str. Other records have the names that they have in C, and fields, which
help() lists: TNetIpRouteParam(destination="10.1.0.0/16", gateway="192.168.1.254", metric=5). Calls take a dict of the
fields as well.
"""

import collections
import ctypes
import errno
import math
import threading
import time

from . import _generated
from ._base import Error, Record, call, library, text
from ._generated import *
from ._generated import EVENTS, MESSAGES, PAYLOAD_MAX

__version__ = "@PROJECT_VERSION@"
__all__ = ["Error", "Event", "Listener", "Record", "request"] + [
    name for name in _generated.__all__ if not isinstance(getattr(_generated, name), type)]


def request(code, payload=b"", reply_size=None):
    """Sends any request and returns the reply, whatever result it has in it: a record.

    `code` is one of CMD_..., and `payload` bytes, a record, or a dict of the request's fields. With a `reply_size`,
    which an unknown code needs, the reply is bytes; 0 waits for none.
    """
    name, request_type, reply_type = MESSAGES.get(code, (hex(code), None, None))
    if reply_size is None and reply_type is None:
        raise ValueError(f"how long is the reply to {name}?")
    sent = bytes(request_type.of(payload) if isinstance(payload, dict) else payload)
    reply = reply_type() if reply_size is None else Record(bytes(reply_size))
    call("raw", ctypes.c_uint32(code), sent or None, ctypes.c_size_t(len(sent)),
         reply if reply.data else None, ctypes.c_size_t(len(reply.data)), request=name)
    return reply if reply_size is None else bytes(reply)


Event = collections.namedtuple("Event", "name kind type record payload")
Event.__doc__ = """A notification: its name ("ping_reply"), EVENT_..., the type that it was sent with, and its payload,
as a record and as bytes. `record` is None when there is none for it."""


class _Event(ctypes.Structure):
    """tessel_event"""
    _fields_ = [("kind", ctypes.c_int), ("name", ctypes.c_char_p), ("type", ctypes.c_uint32),
                ("size", ctypes.c_uint32), ("payload", ctypes.c_ubyte * PAYLOAD_MAX)]


class Listener:
    """Takes notifications under a name, SOCKET_... with what libtessel.h says of it: f"{SOCKET_PING}_7".

    To be closed, or used as a context. Iterating waits `timeout` seconds for each event, or without end. Any thread may
    use it; one that waits keeps the others waiting.
    """

    def __init__(self, name, flags=0, timeout=None):
        self.timeout = timeout
        self._lock = threading.RLock()
        self._handle = ctypes.c_void_p()
        call("listener_open", text(name), ctypes.c_uint(flags), ctypes.byref(self._handle))

    @property
    def _open(self):
        if not self._handle:
            raise ValueError("the listener is closed")
        return self._handle

    def _ask(self, what):
        with self._lock:
            return getattr(library, "tessel_listener_" + what)(self._open)

    def next(self, timeout=None):
        """The next event. None within `timeout` seconds is an Error with E_TIMEOUT; without one it waits for ever."""
        event = _Event()
        end = None if timeout is None else time.monotonic() + timeout
        with self._lock:
            while True:
                left = -1 if end is None else max(0, math.ceil((end - time.monotonic()) * 1000))
                try:
                    call("listener_next", self._open, ctypes.byref(event), ctypes.c_int(left))
                    break
                except Error as error:
                    if error.errno != errno.EINTR:
                        raise
        payload = bytes(event.payload[:event.size])
        record = EVENTS.get(event.kind)
        decoded = record(payload) if record and len(payload) == record.SIZE else None
        return Event(event.name.decode(), event.kind, event.type, decoded, payload)

    def fileno(self):
        """For select(): readable when next() has something to do."""
        return self._ask("fd")

    def has_name(self):
        """False once somebody took the name: no more events come."""
        return self._ask("has_name") == 1

    def malformed(self):
        """How many connections brought no whole message."""
        return self._ask("malformed")

    def close(self):
        """Gives the name back."""
        with self._lock:
            library.tessel_listener_close(self._handle)
            self._handle = ctypes.c_void_p()

    def __iter__(self):
        return self

    def __next__(self):
        return self.next(self.timeout)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
