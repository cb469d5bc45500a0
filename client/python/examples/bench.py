"""A test bench: gives eth0 an address, has the neighbour pinged from there, and takes the address away again.

The neighbour is the other end of the cable in scripts/sandbox, where the daemon has to run.
"""

import os
import subprocess

import tessel

ADDRESS = "192.168.1.20/24"
NEIGHBOUR = "192.168.1.1"


def addresses():
    return [entry.address for entry in tessel.addr_get("eth0", tessel.FAMILY_INET)]


def ping(count):
    """Answers that came back, and the time that each took in microseconds."""
    times = []
    with tessel.Listener(f"{tessel.SOCKET_PING}_{os.getpid()}", timeout=30) as listener:
        tessel.ping_start(dict(address=NEIGHBOUR, size=56, timeout_s=5, ttl=64, count=count, id=os.getpid()))
        for event in listener:
            print("  ", event.name, event.record)
            if event.name == "ping_reply":
                times.append(event.record.rtt_us)
            if event.record.last:
                return times


def main():
    subprocess.run(["ip", "-n", "far", "addr", "add", NEIGHBOUR + "/24", "dev", "far0"], check=True)
    print(f"eth0 gets {ADDRESS}")
    tessel.addr_add("eth0", ADDRESS)
    try:
        assert ADDRESS in addresses()
        print(f"{NEIGHBOUR} is pinged:")
        assert len(ping(3)) == 3
    finally:
        tessel.addr_del("eth0", ADDRESS)
    assert ADDRESS not in addresses()
    print("all is well, and as it was before")


if __name__ == "__main__":
    main()
