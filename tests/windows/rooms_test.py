#!/usr/bin/env python3
"""Windows and Linux in one room: the libraries and the command of each send to the other, on loopback. Needs
QUORL_BUILD, QUORL_WINDOWS_BUILD with a packed zip, and a Wine prefix."""
import os
import shutil
import signal
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

from room import BUILD, RoomTest, write

ROOT = Path(__file__).resolve().parents[2]
WINDOWS = Path(os.environ["QUORL_WINDOWS_BUILD"])
os.environ["LD_LIBRARY_PATH"] = str(BUILD)
BLOCK = 4254
SOME_FAILED, AFTERWARDS_FAILED = 5, 12  # Exit codes.


def drive_path(path):
    """Wine shows this machine's root as drive Z."""
    return "Z:" + str(path).replace("/", "\\")


class WindowsRoomTest(RoomTest):
    sizes = {"empty": 0, "one block": BLOCK, "sub/longer.bin": 3 * BLOCK + 1, "large.bin": 600_000}

    def setUp(self):
        super().setUp()
        (self.tree / "sub" / "none").mkdir()

    def start(self, *command):
        return self.room.start(program=command)

    def end(self, programs, *numbers):
        """Everybody ends well, and these have everything."""
        for program in programs:
            self.expect(program, 0)
        self.same(*numbers)

    def target(self, number):
        target = self.room.target(number)
        target.mkdir(exist_ok=True)
        return target


class Libraries(WindowsRoomTest):
    """Quorl.dll with classic rules, QuorlHost.dll with robust ones: a window and a message loop."""

    def receivers(self, host):
        for number in (0, 1):
            shutil.rmtree(self.target(number))
        self.target(0)
        receivers = [self.start("wine", WINDOWS / f"{host}.exe", "receive", "127.0.0.2", self.room.port),
                     self.start(sys.executable, ROOT / "examples" / "watch.py", self.target(1), "127.0.0.3",
                                self.room.port)]
        receivers[0].wait_for("listens on port", 60)
        receivers[1].wait_for("listening")
        return receivers

    def test_linux_sends_to_windows_and_linux(self):
        for host in ("host", "host_robust"):
            receivers = self.receivers(host)
            sender = self.start(sys.executable, ROOT / "tools" / "room" / "sender.py", self.room.port, "--receivers", 2,
                                "--target", drive_path(self.target(0)), self.tree)
            self.end([sender, *receivers], 0, 1)
            self.expect(receivers[0], 0, "status 0 complete", "\\tree\\")

    def test_windows_sends_to_windows_and_linux(self):
        for host in ("host", "host_robust"):
            receivers = self.receivers(host)
            sender = self.start("wine", WINDOWS / f"{host}.exe", "send", "127.0.0.1", self.room.port,
                                drive_path(self.target(0)), drive_path(self.tree))
            self.end([sender, *receivers], 0, 1)
            self.expect(sender, 0, "receivers that failed: 0")


class CommandOfThePackage(WindowsRoomTest):
    """quorl.exe as it is unpacked from the zip. Under Wine it receives at 127.0.0.2: at the first address Linux gives
    nothing that is sent to a group."""

    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory(prefix="quorl-package-")
        cls.addClassCleanup(cls.directory.cleanup)
        packed, = (WINDOWS / "packages").glob("*.zip")
        zipfile.ZipFile(packed).extractall(cls.directory.name)
        cls.command = Path(cls.directory.name) / packed.stem / "quorl.exe"

    def quorl(self, *arguments):
        return self.start("wine", self.command, *arguments)

    def receive(self, *arguments):
        target = drive_path(self.target(0))
        receiver = self.quorl("receive", target, "-i", "127.0.0.2", "-p", self.room.port, *arguments)
        receiver.wait_for("Waiting for a sender", 60)
        return receiver

    def test_the_demo_proves_itself(self):
        self.expect(self.quorl("demo"), 0, "All trees are identical", limit=120)

    def test_linux_sends_to_windows_and_linux(self):
        write(self.tree / "Größe" / "写真.png", 5000)
        (self.room.target(0) / "tree").mkdir(parents=True)
        write(self.room.target(0) / "tree" / "one block", 1)
        receivers = [self.receive("--existing", "overwrite", "--sync", "--then", drive_path(self.command)),
                     self.room.receiver(2)]
        sender = self.room.sender(self.tree, "--wait-for", "2")
        self.expect(receivers[0], AFTERWARDS_FAILED, "verified 5 of 5", 'quorl.exe" ended with exit code 2')
        self.end([sender, receivers[1]], 0, 2)
        self.assertEqual(int((self.room.target(0) / "tree" / "large.bin").stat().st_mtime),
                         int((self.tree / "large.bin").stat().st_mtime))

    def test_windows_sends_to_linux(self):
        write(self.tree / "Größe" / "写真.png", 5000)
        receiver = self.room.receiver(2)
        # No shell names the files there.
        pattern = drive_path(self.tree.parent) + "\\tre?"
        sender = self.quorl("send", pattern, "--wait-for", "1", "-i", "127.0.0.1", "-p", self.room.port)
        self.end([sender, receiver], 2)
        self.expect(receiver, 0, "verified 5 of 5")

    def test_nothing_is_delivered_through_a_link_and_ctrl_c_leaves_nothing(self):
        outside = self.room.path / "outside"
        outside.mkdir()
        (self.room.target(0) / "tree").mkdir(parents=True)
        (self.room.target(0) / "tree" / "sub").symlink_to(outside)
        receiver = self.receive("--keep")
        sender = self.room.sender(self.tree, "--wait-for", "1")
        self.expect(sender, SOME_FAILED, "2 names could not be moved")
        receiver.wait_for("2 names could not be moved")
        self.assertEqual(list(outside.iterdir()), [])
        receiver.signal(signal.SIGINT)
        self.expect(receiver, 128 + signal.SIGINT)
        self.assertEqual([each.name for each in self.room.target(0).iterdir()], ["tree"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
