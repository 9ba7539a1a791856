#!/usr/bin/env python3
"""Hostile disks under a real receiver: full, read-only, gone, or with something else in the place of a file.

The library's own functions, sender and receiver in this process over loopback. A transfer must end with a status that
says what was wrong, store what it can, and never touch a file outside its root.
"""
import contextlib
import ctypes
import os
import shutil
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

from library import PROCEDURE, ReceiveState, SendState, address, library
from room import free_port, write
from root import mount_small

TASK_INFO, STATUS, NAME = 1039, 1040, 1042
DONE, DISK_FULL, UNWRITABLE = 0, 112, 1001
ENDED_INCOMPLETE = 1460
RENAME_EXCHANGE, AT_FDCWD = 2, -100
RACE_SECONDS = 5


class DiskTest(unittest.TestCase):
    def setUp(self):
        self.path = Path(tempfile.mkdtemp(prefix="quorl-disk-"))
        self.source, self.root, self.outside = (self.path / name for name in ("source", "root", "outside"))
        for directory in (self.source, self.root, self.outside):
            directory.mkdir()
        self.told, self.came = [], threading.Condition()
        self.procedure = PROCEDURE(self.hear)
        self.window = ctypes.c_void_p(library.CreateHostWindow(self.procedure, None))
        self.addCleanup(self.clean)

    def clean(self):
        library.DeInitServer()
        library.DeInitClient()
        library.DestroyHostWindow(self.window)
        shutil.rmtree(self.path, ignore_errors=True)

    def hear(self, _, message, wparam, lparam):
        with self.came:
            self.told.append((message, wparam) if message != NAME else (NAME, ctypes.string_at(lparam)))
            self.came.notify_all()

    def wait_for(self, predicate, limit=60):
        with self.came:
            self.assertTrue(self.came.wait_for(predicate, limit), self.told[-20:])

    def start(self, rate=0):
        """Sends everything in the source directory to the root; the robust profile."""
        port = free_port()
        paths = sorted(f"S:\\{entry.name}".encode() for entry in self.source.iterdir())
        library.SetProfile(1)
        library.SetSendRate(rate)
        library.SetSubDirTrans(1)
        self.assertEqual(library.MapDrive(ctypes.c_char(b"S"), bytes(self.source)), 1)
        self.assertEqual(library.SetReceiveRoot(bytes(self.root)), 1)
        self.assertEqual(library.InitClient(self.window, 0, port, address("127.0.0.2")), 1)
        library.StartReceive()
        self.assertEqual(library.InitServer(None, 0, port, address("127.0.0.1")), 1)
        self.assertEqual(library.SetSelectFiles((ctypes.c_char_p * len(paths))(*paths), len(paths), None), 1)
        library.StartSend()

    def state(self):
        state = ReceiveState()
        library.GetReceiveState(ctypes.byref(state))
        return state

    def end(self):
        """The statuses that the receiver's host was told, and the receiver's state, when the stream has ended."""
        sent, before = SendState(), -1
        while sent.sent != before:
            before = sent.sent
            time.sleep(1)
            library.GetSendState(ctypes.byref(sent))
        return [wparam for message, wparam in self.told if message == STATUS], self.state()

    def test_full_at_the_start(self):
        mount_small(self, self.root, "size=1m")
        write(self.source / "big", 3_000_000)
        self.start()
        self.wait_for(lambda: (STATUS, DISK_FULL) in self.told)
        self.assertNotIn(TASK_INFO, [message for message, _ in self.told])
        self.assertEqual(os.listdir(self.root), [])

    def test_full_in_the_middle(self):
        mount_small(self, self.root, "size=6m")
        write(self.source / "a small", 5000)
        write(self.source / "big", 5_000_000)
        self.start(rate=16000)
        while self.state().stored < 30:
            time.sleep(0.02)
        with open(self.root / "of somebody else", "wb") as other, self.assertRaises(OSError):
            while True:
                other.write(bytes(100_000))
                other.flush()
        statuses, state = self.end()
        self.assertEqual(statuses, [DISK_FULL, ENDED_INCOMPLETE])
        self.assertEqual((state.complete, state.failed_files, state.status), (0, 1, DISK_FULL))
        self.assertEqual((self.root / "a small").read_bytes(), (self.source / "a small").read_bytes())

    def test_read_only(self):
        mount_small(self, self.root, "ro")
        for name in "ab":
            write(self.source / name, 9000)
        self.start()
        self.assertEqual(self.end()[0], [UNWRITABLE, UNWRITABLE, ENDED_INCOMPLETE], "once a file")

    def test_something_else_in_the_place_of_a_file(self):
        victim = self.outside / "victim"
        victim.write_text("untouched")
        os.mkfifo(self.root / "fifo")
        (self.root / "directory").mkdir()
        (self.root / "link").symlink_to("../outside/victim")
        (self.root / "dangling").symlink_to("../outside/new")
        (self.root / "hard").hardlink_to(victim)
        (self.root / "parent").symlink_to("../outside")
        (self.root / "file").touch()
        names = ["fifo", "directory", "link", "dangling", "hard", "parent/below", "file/below"]
        with contextlib.suppress(PermissionError):
            os.mknod(self.root / "device", 0o600 | 0o020000, os.makedev(1, 3))
            names.append("device")
        for name in [*names, "ordinary"]:
            write(self.source / name, 5000)
        self.start()
        statuses, state = self.end()
        self.assertEqual(statuses, [UNWRITABLE] * len(names) + [ENDED_INCOMPLETE], "once a file")
        self.assertEqual(state.failed_files, len(names))
        self.assertEqual((self.root / "ordinary").read_bytes(), (self.source / "ordinary").read_bytes())
        self.assertEqual(victim.read_text(), "untouched")
        self.assertEqual(os.listdir(self.outside), ["victim"])

    def test_a_root_that_is_removed_stays_away(self):
        for number in range(200):
            write(self.source / f"dir/file{number:03}", 9000)
        self.start(rate=8000)
        self.wait_for(lambda: (NAME, b"\\dir\\file050") in self.told)
        os.rename(self.root, self.outside / "removed")
        statuses, state = self.end()
        self.assertIn(UNWRITABLE, statuses)
        self.assertEqual(state.complete, 0)
        self.assertGreater(state.stored, 100)
        self.assertFalse(self.root.exists())

    def test_a_parent_swapped_for_a_link_while_blocks_arrive(self):
        for number in range(400):
            write(self.source / f"dir/file{number:03}", 9000)
        (self.root / "dir").mkdir()
        (self.root / "link").symlink_to("../outside")
        swaps = 0
        rename = ctypes.CDLL(None).renameat2
        one, other = bytes(self.root / "dir"), bytes(self.root / "link")
        self.start(rate=400 * 9800 * 8 // 1000 // RACE_SECONDS)
        deadline = time.monotonic() + RACE_SECONDS
        while time.monotonic() < deadline:
            self.assertEqual(rename(AT_FDCWD, one, AT_FDCWD, other, RENAME_EXCHANGE), 0)
            swaps += 1
            time.sleep(0.0002)
        statuses, state = self.end()
        print(f"{swaps} swaps in {RACE_SECONDS} s, {state.failed_files} of {state.files} files refused, "
              f"nothing outside", file=sys.stderr)
        self.assertEqual(os.listdir(self.outside), [])
        self.assertEqual(set(statuses) - {UNWRITABLE, DONE, ENDED_INCOMPLETE}, set())


if __name__ == "__main__":
    unittest.main(verbosity=2)
