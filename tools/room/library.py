"""The library itself, with the structures of <quorl/host.h>."""
import ctypes
import os
import socket
import sys
from pathlib import Path

library = ctypes.CDLL(str(Path(os.environ["QUORL_BUILD"]) / "libquorl.so"))
library.CreateHostWindow.restype = ctypes.c_void_p
PROCEDURE = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_uint32, ctypes.c_size_t, ctypes.c_ssize_t)


class Sized(ctypes.Structure):
    """A structure that begins with its size."""
    def __init__(self):
        super().__init__(size=ctypes.sizeof(self))


class ReceiveState(Sized):
    _fields_ = [("size", ctypes.c_uint32), ("phase", ctypes.c_uint32), ("complete", ctypes.c_uint32),
                ("files", ctypes.c_uint32), ("failed_files", ctypes.c_uint32), ("status", ctypes.c_uint32),
                ("expected", ctypes.c_uint64), ("stored", ctypes.c_uint64), ("missing", ctypes.c_uint64),
                ("sender", ctypes.c_uint32), ("current_file", ctypes.c_char * 520),
                ("asked_target", ctypes.c_char * 520)]


class SendState(Sized):
    _fields_ = [("size", ctypes.c_uint32), ("phase", ctypes.c_uint32), ("files", ctypes.c_uint32),
                ("shrunk", ctypes.c_uint32), ("blocks", ctypes.c_uint64), ("sent", ctypes.c_uint64),
                ("resent", ctypes.c_uint64)]


def address(text):
    return int.from_bytes(socket.inet_aton(text), sys.byteorder)
