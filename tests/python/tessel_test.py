"""The Python module, above libtessel: records, what calls send, and both with a daemon. To be run in a sandbox.

    tessel_test.py DAEMON EXAMPLE
"""

import contextlib
import os
import pathlib
import re
import signal
import socket
import socketserver
import struct
import subprocess
import sys
import threading
import time
import unittest

import tessel

PROJECT = pathlib.Path(__file__).parents[2]
DAEMON, EXAMPLE = sys.argv[1:3]


def recorded_messages():
    """The first request and answer of each code, "65746830 00*12" and so on."""
    def to_bytes(words):
        runs = re.findall(r"([0-9a-f]+)(?:\*(\d+))?", words)
        return b"".join(bytes.fromhex(digits) * int(times or 1) for digits, times in runs)

    text = (PROJECT / "tests/daemon/wire.txt").read_text()
    rows = re.findall(r"^([0-9a-f]+):\w+ (.*?)= (.*?)(?:,| at|$)", text, re.MULTILINE)
    return {int(code, 16): (to_bytes(request), to_bytes(reply)) for code, request, reply in rows}


class RecordTest(unittest.TestCase):
    def test_sizes_are_those_of_the_headers(self):
        headers = "".join(path.read_text() for path in (PROJECT / "include/tessel").glob("*.h"))
        sizes = dict(re.findall(r"static_assert\(sizeof\((\w+)\) == (\d+)", headers))
        records = [thing for thing in vars(tessel).values() if isinstance(thing, type) and thing.__name__ in sizes]
        self.assertGreater(len(records), 60)
        for record in records:
            self.assertEqual(record.SIZE, int(sizes[record.__name__]), record)

    def test_recorded_messages_are_made_of_their_fields(self):
        has_unnamed_bytes = {0x101, 0x10B, 0x10D, 0x301, 0x601, 0x901, 0x1001}
        for code, (request, reply) in recorded_messages().items():
            _, *kinds = tessel.MESSAGES[code]
            for kind, message in zip(kinds, (request, reply)):
                if kind is None or (message is request and code in has_unnamed_bytes):
                    continue
                fields = {name: getattr(kind(message), name) for name in kind.names()}
                record = kind(**{name: value for name, value in fields.items() if value is not None})
                self.assertEqual(bytes(record), bytes(kind(message))[:len(bytes(record))], f"{code:x}: {fields}")

    def test_addresses_have_their_family(self):
        gateway = tessel.TNetGateway(gateway="fe80::1")
        self.assertEqual(bytes(gateway)[:6] + bytes(gateway)[-1:], struct.pack("=HH", 10, 0) + b"\xfe\x80\x01")
        self.assertEqual(gateway.value, "fe80::1")
        entry = tessel.TNetIpFilter(range="2001:db8::1-2001:db8::9")
        entry.data[40:42] = bytes(2)  # does not count
        self.assertEqual((entry.family, entry.range), (10, "2001:db8::1-2001:db8::9"))
        entry.range = gateway.gateway = None
        self.assertEqual((entry.source, entry.range, gateway.value), ("2001:db8::1/0", None, None))

    def test_what_does_not_fit_is_refused(self):
        for kind, fields, error in [
            (tessel.TNetMtuSetReq, {"interface": "a" * 17}, ValueError),
            (tessel.TNetMtuSetReq, {"mtu": -1}, OverflowError),
            (tessel.TNetMtuSetReq, {"mtuu": 1}, AttributeError),
            (tessel.MacAddress, {"mac": "02:00:00:00:00"}, ValueError),
            (tessel.TNetGateway, {"gateway": "192.168.1"}, ValueError),
            (tessel.TNetIfaceIp, {"addresses": ["10.0.0.1/8"] * 17}, ValueError),
        ]:
            with self.assertRaises(error, msg=fields):
                kind(**fields)
        self.assertNotIn("secret", repr(tessel.TNetPppoeConf(password="secret")))


@contextlib.contextmanager
def requests_answered_with(status):
    """Serves in the daemon's place. Gives the list of the requests that came: code and payload."""
    requests = []

    class Answer(socketserver.BaseRequestHandler):
        def handle(self):
            code, size, _ = struct.unpack("=IiI", self.request.recv(12, socket.MSG_WAITALL))
            requests.append((code, self.request.recv(size, socket.MSG_WAITALL) if size else b""))
            self.request.sendall(struct.pack("=IiIi", code, 4, 0, status))

    with socketserver.UnixStreamServer("/tmp/api_daemon", Answer) as server:
        threading.Thread(target=server.serve_forever, args=[0.01]).start()
        try:
            yield requests
        finally:
            server.shutdown()
            os.unlink("/tmp/api_daemon")


class CallTest(unittest.TestCase):
    def test_requests_are_those_recorded(self):
        pppoe = dict(user="user", password="p w", service="isp", persist=1, holdoff_s=5, echo_interval_s=10,
                     echo_failure=3, interface="eth0")
        pool = dict(first="10.9.0.20", last="10.9.0.21", prefix_length=24, gateway="10.9.0.1", dns=["1.2.3.4"])
        recorded = recorded_messages()
        with requests_answered_with(0) as requests:
            for code, call, *arguments in [
                (0x101, tessel.addr_add, "eth0", tessel.TNetIpAddr(address="10.0.0.1/8", scope=2)),
                (0x103, tessel.addr_del, "eth0", "10.0.0.1/8"),
                (0x105, tessel.addr_set, "eth0", tessel.FAMILY_INET, ["10.0.0.1/8", "10.0.0.2/8"]),
                (0x106, tessel.mac_set, "eth0", "00:11:22:33:44:55"),
                (0x111, tessel.mtu_set, "eth0", 1400),
                (0x114, tessel.route_metric_set,
                 dict(interface="eth0", destination="10.1.0.0/16", gateway="192.168.1.254", metric=5)),
                (0x123, tessel.rule_add, tessel.TNetIpRule(from_="192.168.1.0/24", fwmark=7, table=100)),
                (0x601, tessel.pppoe_start, tessel.FAMILY_INET, pppoe),
                (0x801, tessel.dhcpd_start, "eth0", pool),
                (0x903, tessel.ntp_check, "127.0.0.1"),
                (0xA01, tessel.arp_announce_start, "10.0.0.1"),
                (0xF01, tessel.bond_start, 1, ["eth0", "eth1"], "eth1", "/x"),
                (0x100A, tessel.arp_add, None, "10.0.0.9", "02:00:00:00:00:09"),
                (0x100D, tessel.ip_mac_filter, tessel.LIST_WHITE_ADD, "02:00:00:00:00:09", "10.0.0.9"),
            ]:
                call(*arguments)
                self.assertEqual(requests[-1], (code, recorded[code][0]), call)

    def test_errors_say_what_happened(self):
        with self.assertRaisesRegex(tessel.Error, "^mtu_get: the daemon is not running$") as raised:
            tessel.mtu_get("eth0")
        self.assertEqual((raised.exception.code, raised.exception.request), (tessel.E_NOT_RUNNING, "mtu_get"))
        with requests_answered_with(-1):
            for code, call, *arguments in [
                (tessel.E_FAILED, tessel.mtu_set, "eth0", 1400),
                (tessel.E_ARGUMENT, tessel.mtu_set, "eth 0", 1400),
                (tessel.E_PROTOCOL, tessel.mtu_get, "eth0"),
                (tessel.E_ARGUMENT, tessel.set_timeout_ms, 0),
            ]:
                with self.assertRaises(tessel.Error, msg=arguments) as raised:
                    call(*arguments)
                self.assertEqual(raised.exception.code, code, arguments)
            self.assertEqual(tessel.request(tessel.CMD_MTU_SET, {"interface": "eth0"}).result, -1)
            self.assertEqual(tessel.request(0x7777, b"any", reply_size=4), b"\xff" * 4)
            with self.assertRaisesRegex(tessel.Error, "^mtu_get: the answer was cut"):
                tessel.request(tessel.CMD_MTU_GET)
        for call in (lambda: tessel.mtu_get("eth\0"), lambda: tessel.request(0x7777)):
            self.assertRaises(ValueError, call)


class DaemonTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        subprocess.run([DAEMON], check=True, stdout=subprocess.DEVNULL)
        while not tessel.daemon_is_listening():
            time.sleep(0.01)

    def test_what_is_set_is_read_back(self):
        tessel.addr_add("eth1", "10.0.0.7/8")
        tessel.mtu_set("eth1", 1400)
        tessel.gateway_set("eth1", "10.0.0.1", 0)
        self.assertEqual([entry.address for entry in tessel.addr_get("eth1", tessel.FAMILY_INET)], ["10.0.0.7/8"])
        self.assertEqual([entry.address for entry in tessel.addr_show("eth1").addresses][0], "10.0.0.7")
        self.assertEqual(tessel.mtu_get("eth1"), 1400)
        self.assertEqual(tessel.request(tessel.CMD_MTU_GET, tessel.TNetMtuGetReq(interface="eth1")).mtu, 1400)
        self.assertEqual(tessel.mac_get("eth1"), "02:00:00:00:00:01")
        self.assertEqual(tessel.gateway_get("eth1", tessel.FAMILY_INET, 0), ("10.0.0.1", 0))
        tessel.addr_del("eth1", "10.0.0.7/8")
        self.assertEqual(tessel.addr_get("eth1", tessel.FAMILY_INET), [])
        self.assertEqual(tessel.gateway_get("eth1", tessel.FAMILY_INET, 0), (None, 0))

    def test_events_come_decoded_and_in_time(self):
        with tessel.Listener(tessel.SOCKET_STAT, timeout=30) as listener:
            with self.assertRaises(tessel.Error) as raised:
                tessel.Listener(tessel.SOCKET_STAT)
            self.assertEqual(raised.exception.code, tessel.E_IN_USE)
            signal.signal(signal.SIGALRM, lambda *_: None)
            signal.setitimer(signal.ITIMER_REAL, 0.05)  # has to be waited beyond
            with self.assertRaises(tessel.Error) as raised:
                listener.next(timeout=0.2)
            self.assertEqual(raised.exception.code, tessel.E_TIMEOUT)
            tessel.traffic_start(1)
            event = next(listener)
            tessel.traffic_stop()
            self.assertEqual((event.name, event.kind), ("traffic", tessel.EVENT_TRAFFIC))
            self.assertEqual([rate.valid for rate in event.record.interfaces], [1, 1, 1])
            self.assertTrue(listener.has_name())
            tessel.Listener(tessel.SOCKET_STAT, tessel.LISTEN_TAKE).close()
            self.assertFalse(listener.has_name())
        self.assertRaises(ValueError, listener.next)

    def test_the_example_works(self):
        done = subprocess.run([sys.executable, EXAMPLE], capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(done.stdout.count("ping_reply TNetPingResult"), 3, done.stdout)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
