"""A sender that is not the command: it sends what it is told, with whatever manifest, over the library itself.

sender.py PORT [--open NAME] [--for SECONDS] [--target DIRECTORY] [--from ADDRESS] [--receivers N] PATH... sends each
path under its last component, once N receivers listen. With --for it stops the transfer after that time and leaves.
"""
import ctypes
import hashlib
import os
import socket
import sys
import time
from pathlib import Path


class SendState(ctypes.Structure):
    """QuorlSendState of host.h, as far as it is needed."""
    _fields_ = [("size", ctypes.c_uint32), ("phase", ctypes.c_uint32), ("files", ctypes.c_uint32),
                ("shrunk", ctypes.c_uint32), ("blocks", ctypes.c_uint64), ("sent", ctypes.c_uint64),
                ("resent", ctypes.c_uint64)]


def manifest(*paths, key=None, change=lambda lines: lines):
    """The text of a manifest of what is sent as `paths`; `change` may forge its lines before they are sealed."""
    lines = []
    for path in map(Path, paths):
        for file in sorted(path.rglob("*")) if path.is_dir() else [path]:
            if file.is_file():
                digest = hashlib.blake2b(file.read_bytes(), digest_size=32).hexdigest()
                seconds, nanoseconds = divmod(file.stat().st_mtime_ns, 10**9)
                run = "x" if file.stat().st_mode & 0o100 else "-"
                name = file.relative_to(path.parent)
                lines.append(f"file {file.stat().st_size} {seconds}.{nanoseconds:09} {run} {digest} {name}\n")
    lines.sort(key=lambda line: line.split(" ", 5)[5].encode())
    text = "quorl-manifest 1\n" + "".join(change(lines))
    secret = hashlib.blake2b(key, digest_size=32).digest() if key else b""
    seal = hashlib.blake2b(text.encode(), digest_size=32, key=secret).hexdigest()
    return text + f"seal {'keyed' if key else 'plain'} {seal}\n"


def main(port, *arguments):
    library, options = ctypes.CDLL(str(Path(os.environ["QUORL_BUILD"]) / "libquorl.so")), {}
    for name, value in zip(arguments[::2], arguments[1::2]):
        if not name.startswith("--"):
            break
        options[name] = value
    paths = [Path(path) for path in arguments[2 * len(options):]]
    library.SetProfile(1)
    library.SetSendRate(20000)
    library.SetSubDirTrans(1)
    names = []
    for letter, path in zip("DEFGHIJ", paths):
        library.MapDrive(ctypes.c_char(letter.encode()), str(path.parent).encode())
        names.append(f"{letter}:\\{path.name}".encode())
    if "--target" in options:
        library.SetTargetPath(0xFFFFFFFF, options["--target"].encode())
    wanted = int(options.get("--receivers", 1))
    interface = int.from_bytes(socket.inet_aton(options.get("--from", "127.0.0.1")), sys.byteorder)
    for _ in range(20):
        if library.InitServer(None, 0, int(port), interface) and library.GetReceivers(None, 0) >= wanted:
            break
    library.SetSelectFiles((ctypes.c_char_p * len(names))(*names), len(names), options.get("--open", "").encode())
    library.StartSend()
    limit = time.monotonic() + float(options.get("--for", 60))
    state = SendState(ctypes.sizeof(SendState))
    while state.phase != 4 and time.monotonic() < limit:
        time.sleep(0.05)
        library.GetSendState(ctypes.byref(state))
    if state.phase != 4:
        library.StopSend()
    library.DeInitServer()


if __name__ == "__main__":
    main(*sys.argv[1:])
