#!/usr/bin/env python3
"""The command on this machine: what it does, says and ends with, over real multicast on loopback."""
import fcntl
import os
import shutil
import signal
import struct
import subprocess
import termios
import time
import unittest

from room import Room, differences, write


class CommandTest(unittest.TestCase):
    def setUp(self):
        self.room = Room()
        self.addCleanup(self.room.close)

    def small_tree(self):
        tree = self.room.path / "source" / "tree"
        sizes = {"empty": 0, "block": 4254, "block and one": 4255, "a/b/c/deep": 9999, "big": 2_000_000}
        for name, size in sizes.items():
            write(tree / name, size)
        (tree / "nothing").mkdir(exist_ok=True)
        return tree

    def expect(self, command, code, *texts, limit=60):
        got = command.wait(limit)
        self.assertEqual(got, code, command.output())
        for text in texts:
            self.assertIn(text, command.output())

    def test_receivers_before_the_sender(self):
        tree = self.small_tree()
        receivers = [self.room.receiver(n) for n in (1, 2)]
        self.expect(self.room.sender(tree, "--wait-for", "2"), 0, "127.0.0.2", "127.0.0.3", "2 of 2 receivers complete")
        for number, receiver in enumerate(receivers, 1):
            self.expect(receiver, 0, "From 127.0.0.1: 5 files", "Complete: 5 files", "nothing missing")
            self.assertEqual(differences(tree.parent, self.room.target(number)), [])

    def test_a_receiver_after_the_sender(self):
        tree = self.small_tree()
        sender = self.room.sender(tree, "--wait-for", "1")
        sender.wait_for("Waiting    0 of 1 receiver")
        receiver = self.room.receiver(1)
        self.expect(sender, 0, "1 of 1 receiver complete")
        self.expect(receiver, 0, "Complete: 5 files")
        late = self.room.receiver(2, "--timeout", "1")
        self.expect(late, 3, "error: no sender came within 1.0 s")

    def test_nobody_there(self):
        started = time.monotonic()
        self.expect(self.room.sender(self.small_tree()), 3, "error: no receiver answered", "127.0.0.1")
        self.assertLess(time.monotonic() - started, 5)
        receiver = self.room.receiver(1)
        self.expect(self.room.sender(self.small_tree(), "--wait-for", "2", "--wait", "2"), 3,
                    "error: only 1 of 2 receivers answered", "--wait-for 1")
        self.assertIsNone(receiver.poll(), "a receiver that was asked goes on waiting")

    def test_two_senders_on_one_group(self):
        tree = self.small_tree()
        self.room.receiver(1)
        first = self.room.sender(tree, "--rate", "2M")
        first.wait_for("Receivers")
        time.sleep(0.5)
        self.expect(self.room.sender(tree), 6, "error: another sender is active")
        self.expect(first, 0)

    def test_interrupted_sender(self):
        for number, code in ((signal.SIGINT, 130), (signal.SIGTERM, 143)):
            receiver = self.room.receiver(1)
            sender = self.room.sender(self.small_tree(), "--rate", "2M")
            receiver.wait_for("From 127.0.0.1")
            time.sleep(0.5)
            sender.signal(number)
            self.expect(sender, code, "Stopping", "127.0.0.2", "not complete", "0 of 1 receiver complete", limit=4)
            self.expect(receiver, 9, "error: the transfer is not complete", "the sender stopped it", limit=8)

    def test_interrupted_receivers(self):
        stays = self.room.receiver(1)
        leaves = self.room.receiver(2)
        tree = self.small_tree()
        sender = self.room.sender(tree, "--rate", "8M", "--wait-for", "2")
        leaves.wait_for("From 127.0.0.1")
        leaves.signal(signal.SIGINT)
        self.expect(leaves, 130, "Stopped: ", limit=7)
        self.expect(sender, 4, "1 of 2 receivers complete", "127.0.0.3        failed", limit=60)
        self.expect(stays, 0, "nothing missing")
        self.assertEqual(differences(tree.parent, self.room.target(1)), [])
        idle = self.room.receiver(3)
        idle.signal(signal.SIGTERM)
        self.expect(idle, 143, "no transfer had started", limit=7)

    def test_a_sender_that_vanishes(self):
        receiver = self.room.receiver(1)
        sender = self.room.sender(self.small_tree(), "--rate", "2M")
        receiver.wait_for("From 127.0.0.1")
        sender.signal(signal.SIGKILL)
        self.expect(receiver, 9, "the sender was lost (status 1004)", limit=40)

    def test_selections_over_several_directories(self):
        source = self.room.path / "source"
        write(source / "one" / "a.bin", 10_000)
        write(source / "two" / "deeper" / "tree" / "sub" / "b.bin", 20_000)
        write(source / "two" / "c.bin", 30_000)
        receiver = self.room.receiver(1)
        sender = self.room.start("send", "one/a.bin", "two/deeper/tree/", source / "two" / "c.bin",
                                 "--interface", "127.0.0.1", "--port", self.room.port,
                                 "--target", "/nowhere/at/all", "--open-name", "a.bin", cwd=source)
        self.expect(sender, 0)
        self.expect(receiver, 0, "suggests to open", "not opened")
        expected = self.room.path / "expected"
        shutil.copytree(source / "two" / "deeper" / "tree", expected / "tree")
        shutil.copy(source / "one" / "a.bin", expected)
        shutil.copy(source / "two" / "c.bin", expected)
        self.assertEqual(differences(expected, self.room.target(1)), [])

    def test_on_a_terminal_one_line_is_redrawn_and_gone_at_the_end(self):
        controller, terminal = os.openpty()
        self.addCleanup(os.close, controller)
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("4H", 24, 60, 0, 0))
        self.room.receiver(1)
        sender = self.room.sender(self.small_tree(), "--rate", "10M", error=terminal)
        os.close(terminal)
        self.expect(sender, 0)
        self.assertNotIn("Sending", sender.output(), "progress belongs to standard error")
        drawn = os.read(controller, 1 << 16).decode()
        lines = drawn.split("\r")
        self.assertGreater(sum(line.startswith("Sending ") for line in lines), 3, drawn)
        self.assertTrue(drawn.endswith("\r\x1b[K"), drawn)
        self.assertLess(max(len(line.removesuffix("\x1b[K")) for line in lines), 60)
        self.assertNotIn("\n", drawn)

    def test_first_level_only(self):
        receiver = self.room.receiver(1)
        self.expect(self.room.sender(self.small_tree(), "--no-subdirs"), 0, "4 files")
        self.expect(receiver, 0)
        self.assertFalse((self.room.target(1) / "tree" / "a").exists())
        self.assertTrue((self.room.target(1) / "tree" / "big").exists())

    def test_hostile_names_never_reach_the_terminal_raw(self):
        tree = self.room.path / "source" / "tree"
        write(tree / "red\x1b[31m\u202egnp.exe", 5000)
        write(tree / "sub" / "line\nbreak", 5000)
        receiver = self.room.receiver(1)
        sender = self.room.sender(tree, "--open-name", "x\x1b]0;title\x07")
        self.expect(sender, 0)
        self.expect(receiver, 0, "\\x1b]0;title\\x07")
        self.assertEqual(differences(tree.parent, self.room.target(1)), [])
        write(tree / "what?\x1b", 10)
        nobody = self.room.sender(tree)
        self.expect(nobody, 3, "what?\\x1b")
        for command in (sender, receiver, nobody):
            self.assertNotRegex(command.output(), "[\x00-\x09\x0b-\x1f\x7f\u202e]")

    def test_a_name_that_cannot_travel_makes_the_result_partial(self):
        tree = self.small_tree()
        write(tree / "what?", 10)
        receiver = self.room.receiver(1)
        self.expect(self.room.sender(tree, "--open-name", "big"), 4, "what?", "its name cannot travel",
                    "--open-name has no effect", "1 of 1 receiver complete")
        self.expect(receiver, 0, "nothing missing")
        (tree / "what?").unlink()
        self.assertEqual(differences(tree.parent, self.room.target(1)), [])

    def test_local_faults_are_told_before_anything_happens(self):
        for arguments, code, text in (
                (("receive", self.room.path / "missing"), 7, "No such file or directory"),
                (("receive", __file__), 7, "Not a directory"),
                (("send", self.room.path / "missing"), 7, "No such file or directory"),
                (("send", __file__, "--interface", "nosuch0"), 2, "no interface of this machine"),
                (("send", __file__, "--rate", "fast"), 2, "200M"),
                (("send",), 2, "PATH"),
                (("sned", "x"), 2, "error: ")):
            self.expect(self.room.start(*arguments), code, text, limit=5)

    @unittest.skipIf(os.geteuid() != 0, "mounting needs root")
    def test_a_full_disk_is_a_failed_receiver(self):
        small = self.room.path / "small"
        small.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=1m", "tmpfs", small], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", small], check=True)
        full = self.room.receiver(1, directory=small)
        roomy = self.room.receiver(2)
        tree = self.small_tree()
        self.expect(self.room.sender(tree, "--wait-for", "2"), 4, "127.0.0.3        complete",
                    "127.0.0.2        failed: no room on the disk (status 112)")
        self.expect(full, 8, "no room on the disk (status 112)")
        self.expect(roomy, 0)
        self.assertEqual(differences(tree.parent, self.room.target(2)), [])

    def test_a_file_that_cannot_be_written_ends_its_receiver_with_the_cause(self):
        blocked = self.room.receiver(1)
        whole = self.room.receiver(2)
        tree = self.small_tree()
        (self.room.target(1) / tree.name / "block").mkdir(parents=True)
        self.expect(self.room.sender(tree, "--wait-for", "2"), 4,
                    "127.0.0.2        failed: a file could not be created")
        self.expect(blocked, 7, "the other files go on", "error: the transfer is not complete",
                    "a file could not be created or written (status 1001)", limit=20)
        self.expect(whole, 0)


if __name__ == "__main__":
    unittest.main()
