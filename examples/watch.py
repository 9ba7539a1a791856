#!/usr/bin/env python3
"""A host without a window: receives one transfer and asks for the state, as often as it likes.

usage: watch.py DIRECTORY INTERFACE PORT
"""
import ctypes
import socket
import struct
import sys
import time

IDLE, STREAMING, FINISHING, REPAIRING, OVER = range(5)


class ReceiveState(ctypes.Structure):
    """QuorlReceiveState of host.h, in its order."""
    _fields_ = [(name, ctypes.c_uint32) for name in ("size", "phase", "complete", "files", "failedFiles", "status")] \
        + [(name, ctypes.c_uint64) for name in ("blocksExpected", "blocksStored", "blocksMissing")] \
        + [("senderAddress", ctypes.c_uint32), ("currentFile", ctypes.c_char * 520),
           ("askedTarget", ctypes.c_char * 520)]


def network_order(address):
    return struct.unpack("=I", socket.inet_aton(address))[0]


def main():
    directory, interface, port = sys.argv[1:]
    quorl = ctypes.CDLL("libquorl.so.1")
    quorl.SetProfile(1)
    if not quorl.SetReceiveRoot(directory.encode()):
        sys.exit(f"{directory} is no directory")
    if not quorl.InitClient(None, 0, int(port), network_order(interface)):
        sys.exit("cannot listen")
    quorl.StartReceive()
    print("listening", flush=True)

    state, stored = ReceiveState(size=ctypes.sizeof(ReceiveState)), 0
    while state.phase != OVER:
        time.sleep(0.2)
        quorl.GetReceiveState(ctypes.byref(state))
        if state.blocksStored != stored:
            stored = state.blocksStored
            print(f"{stored} of {state.blocksExpected} blocks stored", flush=True)
    quorl.DeInitClient()
    return 0 if state.complete else 1


if __name__ == "__main__":
    sys.exit(main())
