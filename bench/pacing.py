#!/usr/bin/env python3
"""How well the stream keeps its fixed pace on this machine.

Sends a file through the library over loopback, takes the kernel's arrival time of every datagram of the stream, and
prints the median gap: 25 ms between datagrams (slow: a receiver of the older platform is in the room), 10 ms between
pairs (fast). Fails when a median is off by more than 0.3 ms.

usage: pacing.py PATH/TO/libquorl.so
"""
import ctypes
import random
import socket
import statistics
import struct
import sys
import tempfile
import threading
import time

BLOCK = 4254
GROUP, SENDER = "235.9.2.9", "127.0.0.1"
SO_TIMESTAMPNS = getattr(socket, "SO_TIMESTAMPNS", 35)
HEADER = b"\x91\x02"
COLLECT, CLIENT, DATA = 1, 2, 11
TOLERANCE = 0.3


def address(text):
    return struct.unpack("=I", socket.inet_aton(text))[0]


class Listener(threading.Thread):
    """Notes when each datagram of the stream arrives; as a receiver of the older platform it answers the collection."""

    def __init__(self, port, old_receiver):
        super().__init__(daemon=True)
        self.port, self.old_receiver, self.arrivals = port, old_receiver, []
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.socket.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
        self.socket.bind((GROUP, port))
        self.socket.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                               socket.inet_aton(GROUP) + socket.inet_aton(SENDER))
        self.answers = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.answers.bind(("127.0.0.2", 0))

    def run(self):
        while True:
            datagram, control, _, _ = self.socket.recvmsg(8192, 256)
            if datagram[:2] != HEADER:
                continue
            if datagram[2] == COLLECT and self.old_receiver:
                self.answers.sendto(HEADER + bytes([CLIENT, 0]), (SENDER, self.port + 2))
            if datagram[2] == DATA:
                seconds, nanoseconds = struct.unpack("=qq", control[0][2])
                self.arrivals.append(seconds * 1_000_000_000 + nanoseconds)


def measure(library, blocks, old_receiver):
    """The arrival times, in milliseconds, of a stream of so many datagrams."""
    port = random.randrange(30000, 60000, 4)
    listener = Listener(port, old_receiver)
    listener.start()
    with tempfile.NamedTemporaryFile() as file:
        file.write(bytes(blocks * BLOCK - 1))
        file.flush()
        if library.InitServer(None, address(GROUP), port, address(SENDER)) != 1:
            raise SystemExit("the sender could not be set up")
        path = ctypes.c_char_p(("C:" + file.name.replace("/", "\\")).encode())
        if library.SetSelectFiles(ctypes.byref(path), 1, b"") != 1:
            raise SystemExit("the file could not be selected")
        library.StartSend()
        deadline = time.monotonic() + blocks * 0.025 + 5
        while len(listener.arrivals) < blocks and time.monotonic() < deadline:
            time.sleep(0.05)
        library.StopSend()
        library.DeInitServer()
    if len(listener.arrivals) != blocks:
        raise SystemExit(f"{len(listener.arrivals)} of {blocks} datagrams arrived")
    return [arrival / 1e6 for arrival in listener.arrivals]


def report(name, gaps, wanted):
    """Prints one line; whether the median is where it belongs."""
    median = statistics.median(gaps)
    cuts = statistics.quantiles(gaps, n=20)
    print(f"{name}: median {median:.3f} ms, {median - wanted:+.3f} from {wanted} ms "
          f"(5 %: {cuts[0]:.3f}, 95 %: {cuts[-1]:.3f}, {len(gaps)} gaps)", flush=True)
    return abs(median - wanted) <= TOLERANCE


def main():
    if len(sys.argv) != 2:
        raise SystemExit(__doc__)
    library = ctypes.CDLL(sys.argv[1])
    library.InitServer.argtypes = [ctypes.c_void_p, ctypes.c_uint32, ctypes.c_uint32, ctypes.c_uint32]
    slow = measure(library, 120, old_receiver=True)
    fast = measure(library, 400, old_receiver=False)
    kept = [report("slow, datagram to datagram", [b - a for a, b in zip(slow, slow[1:])], 25),
            report("fast, pair to pair", [b - a for a, b in zip(fast[::2], fast[2::2])], 10)]
    return 0 if all(kept) else 1


if __name__ == "__main__":
    sys.exit(main())
