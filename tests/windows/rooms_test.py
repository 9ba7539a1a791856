#!/usr/bin/env python3
"""Windows and Linux in one room: the library and the command of each send to the other, on loopback and, where this
machine can make network namespaces, in a room that loses datagrams. Needs QUORL_BUILD, QUORL_WINDOWS_BUILD with a
packed zip, a Wine prefix, and in QUORL_WINE_MACHINE a copy of it that nothing runs in."""
import os
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import zipfile
from pathlib import Path

import testbed
from room import BUILD, Room, differences, write

ROOT = Path(__file__).resolve().parents[2]
WINDOWS = Path(os.environ["QUORL_WINDOWS_BUILD"])
os.environ["LD_LIBRARY_PATH"] = str(BUILD)
GROUP = "235.9.2.9"
BLOCK = 4254
SOME_FAILED, AFTERWARDS_FAILED = 5, 12  # Exit codes.


def drive_path(path):
    """Wine shows this machine's root as drive Z."""
    return "Z:" + str(path).replace("/", "\\")


class RoomTest(unittest.TestCase):
    def setUp(self):
        self.room = Room()
        self.addCleanup(self.room.close)
        self.tree = self.room.path / "source" / "tree"
        sizes = {"empty": 0, "one block": BLOCK, "sub/longer.bin": 3 * BLOCK + 1, "large.bin": 600_000}
        for name, size in sizes.items():
            write(self.tree / name, size)
        (self.tree / "sub" / "none").mkdir()

    def start(self, *command, environment=()):
        return self.room.start(program=command, environment={**os.environ, **dict(environment)})

    def windows(self, *arguments, host="host", inside=(), environment=()):
        return self.start(*inside, "wine", WINDOWS / f"{host}.exe", *arguments, environment=environment)

    def windows_receiver(self, address, **options):
        receiver = self.windows("receive", address, self.room.port, **options)
        receiver.wait_for("listens on port", 60)
        return receiver

    def linux_receiver(self, number, address, inside=()):
        self.room.target(number).mkdir()
        receiver = self.start(*inside, sys.executable, ROOT / "examples" / "watch.py", self.room.target(number),
                              address, self.room.port)
        receiver.wait_for("listening")
        return receiver

    def linux_sender(self, *options, inside=()):
        return self.start(*inside, sys.executable, ROOT / "tools" / "room" / "sender.py", self.room.port, *options,
                          self.tree)

    def expect(self, programs, *targets, limit=60):
        for program in programs:
            self.assertEqual(program.wait(limit), 0, program.output())
        for target in targets:
            self.assertEqual(differences(self.tree.parent, target), [])

    def target(self, number):
        target = self.room.target(number)
        target.mkdir(exist_ok=True)
        return target


class Loopback(RoomTest):
    """The real Quorl.dll, classic rules, a window and a message loop."""

    def test_linux_sends_to_windows_and_linux(self):
        target = self.target(0)
        receivers = [self.windows_receiver("127.0.0.2"), self.linux_receiver(1, "127.0.0.3")]
        sender = self.linux_sender("--receivers", 2, "--target", drive_path(target))
        self.expect([sender, *receivers], target, self.room.target(1))
        self.assertIn("status 0 complete", receivers[0].output())
        self.assertIn("\\tree\\", receivers[0].output())

    def test_windows_sends_to_windows_and_linux(self):
        target = self.target(0)
        receivers = [self.windows_receiver("127.0.0.2"), self.linux_receiver(1, "127.0.0.3")]
        sender = self.windows("send", "127.0.0.1", self.room.port, drive_path(target), drive_path(self.tree))
        self.expect([sender, *receivers], target, self.room.target(1))
        self.assertIn("receivers that failed: 0", sender.output())

    def test_hostile_names_reach_nothing_outside_the_target(self):
        target, outside = self.target(0), self.room.path / "outside"
        write(outside / "secret", 10)
        before = (outside / "secret").read_bytes()
        (target / "link").symlink_to(outside)
        (target / "file link").symlink_to(outside / "secret")
        (target / "new link").symlink_to(outside / "new")
        os.link(outside / "secret", target / "hard link")
        receiver = self.windows_receiver("127.0.0.2")
        names = ["\\..\\outside\\secret", "\\link\\secret", "\\link\\new", "\\file link", "\\new link", "\\hard link",
                 "\\nul", "\\com1.txt", "\\good:stream", "\\good.", "\\good ", "\\a\\..\\..\\outside\\secret",
                 "\\\\?\\C:\\windows\\win.ini", "secret", f"\\Z:{outside}\\secret", "\\con\\x",
                 "\\?.\\..\\outside\\new", "\\good"]
        send_files(self.room.port, drive_path(target), names, b"new")
        receiver.wait(60)
        self.assertEqual((outside / "secret").read_bytes(), before)
        self.assertEqual([each.name for each in outside.iterdir()], ["secret"])
        written = {each.name for each in target.iterdir()} - {"link", "file link", "new link", "hard link"}
        self.assertEqual(written, {"good"})
        self.assertEqual((target / "good").read_bytes(), b"new")


class CommandOfThePackage(RoomTest):
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
        demo = self.quorl("demo")
        self.assertEqual(demo.wait(120), 0, demo.output())
        self.assertIn("All trees are identical", demo.output())

    def test_linux_sends_to_windows_and_linux(self):
        write(self.tree / "Größe" / "写真.png", 5000)
        (self.room.target(0) / "tree").mkdir(parents=True)
        write(self.room.target(0) / "tree" / "one block", 1)
        receivers = [self.receive("--existing", "overwrite", "--sync", "--then", drive_path(self.command)),
                     self.room.receiver(2)]
        sender = self.room.sender(self.tree, "--wait-for", "2")
        self.assertEqual(receivers[0].wait(60), AFTERWARDS_FAILED, receivers[0].output())
        self.expect([sender, receivers[1]], self.room.target(0), self.room.target(2))
        self.assertIn("verified 5 of 5", receivers[0].output())
        self.assertIn("quorl.exe\" ended with exit code 2", receivers[0].output())
        self.assertEqual(int((self.room.target(0) / "tree" / "large.bin").stat().st_mtime),
                         int((self.tree / "large.bin").stat().st_mtime))

    def test_windows_sends_to_linux(self):
        write(self.tree / "Größe" / "写真.png", 5000)
        receiver = self.room.receiver(2)
        # No shell names the files there.
        pattern = drive_path(self.tree.parent) + "\\tre?"
        sender = self.quorl("send", pattern, "--wait-for", "1", "-i", "127.0.0.1", "-p", self.room.port)
        self.expect([sender, receiver], self.room.target(2))
        self.assertIn("verified 5 of 5", receiver.output())

    def test_nothing_is_delivered_through_a_link_and_ctrl_c_leaves_nothing(self):
        outside = self.room.path / "outside"
        outside.mkdir()
        (self.room.target(0) / "tree").mkdir(parents=True)
        (self.room.target(0) / "tree" / "sub").symlink_to(outside)
        receiver = self.receive("--keep")
        sender = self.room.sender(self.tree, "--wait-for", "1")
        self.assertEqual(sender.wait(60), SOME_FAILED, sender.output())
        self.assertIn("2 names could not be moved", sender.output())
        receiver.wait_for("2 names could not be moved")
        self.assertEqual(list(outside.iterdir()), [])
        receiver.signal(signal.SIGINT)
        self.assertEqual(receiver.wait(20), 128 + signal.SIGINT, receiver.output())
        self.assertEqual([each.name for each in self.room.target(0).iterdir()], ["tree"])


def send_files(port, target, names, content):
    """A sender that respects nothing: files of one block with any names."""
    def field(text):
        return text.encode().ljust(520, b"\0") + struct.pack("<I", len(text) + 1)

    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.bind(("127.0.0.1", 0))
        sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton("127.0.0.1"))

        def send(code, body):
            sender.sendto(struct.pack("<HB", 657, code) + body, (GROUP, port))
            time.sleep(0.02)

        send(6, struct.pack("<III", len(names), len(names), 0xFFFFFFFF) + field(target))
        for number, name in enumerate(names, 1):
            send(11, struct.pack("<IIIBH", number, 0, 0, 1, len(content)) + field(name) + content)
        time.sleep(0.5)
        send(9, b"")


@unittest.skipIf(testbed.missing(), testbed.missing())
class LossyRoom(RoomTest):
    """QuorlHost.dll, robust rules, each machine in a namespace of its own. A Wine server belongs to one namespace, so
    each Windows machine has a server of its own."""

    def setUp(self):
        super().setUp()
        # Those travel in datagrams that are repeated and not repaired: one in a thousand runs would miss it.
        (self.tree / "sub" / "none").rmdir()
        self.bed = testbed.Testbed()
        self.addCleanup(self.bed.close)
        self.bed.build(3)
        self.bed.lose(5)
        self.prefixes = []

    def machine(self):
        """What the environment of another Windows machine is."""
        prefix = self.room.path / f"wine-{len(self.prefixes)}"
        # Links to its files cost neither time nor room; Wine replaces what it changes.
        subprocess.run(["cp", "-al", os.environ["QUORL_WINE_MACHINE"], prefix], check=True)
        self.prefixes.append(prefix)
        environment = {"WINEPREFIX": str(prefix)}
        self.addCleanup(subprocess.run, ["wineserver", "-k"], env={**os.environ, **environment}, check=False)
        return environment

    def inside(self, number):
        return self.bed.inside(self.bed.receivers[number])

    def receivers(self):
        return [*(self.windows_receiver(self.bed.address(i), host="host_robust", inside=self.inside(i),
                                        environment=self.machine()) for i in range(2)),
                self.linux_receiver(3, self.bed.address(2), inside=self.inside(2))]

    def test_linux_sends_to_windows_and_linux(self):
        # Each machine's own drive C, by the same name.
        receivers = self.receivers()
        sender = self.linux_sender("--receivers", 3, "--target", "C:\\in", "--from", testbed.SENDER_ADDRESS,
                                   inside=self.bed.inside(self.bed.sender))
        self.expect([sender, *receivers], *(prefix / "drive_c" / "in" for prefix in self.prefixes), self.room.target(3),
                    limit=120)

    def test_windows_sends_to_windows_and_linux(self):
        receivers = self.receivers()
        sender = self.windows("send", testbed.SENDER_ADDRESS, self.room.port, "C:\\in", drive_path(self.tree),
                              host="host_robust", inside=self.bed.inside(self.bed.sender), environment=self.machine())
        self.expect([sender, *receivers], *(prefix / "drive_c" / "in" for prefix in self.prefixes[:2]),
                    self.room.target(3), limit=120)


if __name__ == "__main__":
    unittest.main(verbosity=2)
