#!/usr/bin/env python3
"""What a person sees: the screens of the sending side, line by line."""
import os
import re
import signal
import unittest

from room import RoomTest
from terminal import Terminal


class ScreensTest(RoomTest):
    sizes = {"render/scene.exr": 3_000_000, "a.txt": 10}

    def setUp(self):
        super().setUp()
        os.mkfifo(self.tree / "pipe")

    def send(self, *words, **options):
        return Terminal("send", self.tree, "-i", "127.0.0.1", "-p", self.room.port, *words, **options)

    def assert_screen(self, screen, expected):
        """`expected` with * for what differs from run to run, in lines that begin at the same column."""
        lines = [line[8:] for line in expected.strip("\n").split("\n")]
        pattern = "\n".join(".*".join(map(re.escape, line.split("*"))).rstrip() for line in lines)
        self.assertRegex(screen, "^" + pattern.rstrip() + "$")

    def test_a_room_is_shown_and_a_person_starts(self):
        receivers = [self.room.receiver(n) for n in (1, 2)]
        terminal = self.send("--rate", "8M")
        terminal.wait_for(r"^\[Enter\]")
        terminal.press("l")
        terminal.wait_for(r"^  127.0.0.[23]\n  127.0.0.[23]\n\[Enter\]")
        terminal.press("\n")
        self.assert_screen(terminal.wait_for("^Sending +█.*[1-9] %.*B/s.*left\n"), f"""
        Interface  lo 127.0.0.1, named by --interface*
        Group      235.9.2.9:{self.room.port}, replies on {self.room.port + 2}
        Selection  2 files in 2 folders, 3.00 MB
          skipped: "{self.tree}/pipe" (named pipe)

        Receivers  2
          127.0.0.*    127.0.0.*
        At 8 Mbit/s this takes about 3.6 s plus repairs.
          127.0.0.*
          127.0.0.*
        Sending    █*░   * %   * of 3.00 MB   * left
                   file * of 2  tree/*
        """)
        self.assertEqual(terminal.end(), 0)
        self.assert_screen(terminal.screen().split("At 8")[1], """
         Mbit/s this takes about 3.6 s plus repairs.
          127.0.0.*
          127.0.0.*
        Done in *s.  3.00 MB to 2 of 2 receivers, *B/s while sending.
          complete        2   nothing had to be repaired
        """)
        for receiver in receivers:
            self.assertEqual(receiver.wait(10), 0)

    def test_who_quits_has_sent_nothing(self):
        first = self.room.receiver(1)
        for keys, code in (("q", 130), ("\x04", 130), ("\x03", 130)):
            terminal = self.send()
            terminal.wait_for(r"^\[Enter\]")
            terminal.press(keys)
            self.assertEqual(terminal.end(5), code)
            self.assertNotIn("[Enter]", terminal.screen(), "the question is gone")
        terminal = self.send()
        terminal.wait_for(r"^\[Enter\]")
        first.signal(signal.SIGINT)
        first.wait(7)
        terminal.wait_for("^  127.0.0.2 has gone; 0 receivers\n\\[r\\]")
        terminal.press("\n")
        self.room.receiver(2)
        terminal.wait_for("^  127.0.0.3 has come; 1 receiver\n\\[Enter\\]")
        terminal.press("r")
        terminal.wait_for(r"^Receivers  1\n  127.0.0.3")
        os.kill(terminal.pid, signal.SIGTERM)
        self.assertEqual(terminal.end(5), 143)

    def test_a_narrow_terminal_and_one_without_capabilities(self):
        self.room.receiver(1)
        narrow = self.send("--yes", "--rate", "12M", "--title", columns=40, environment={"NO_COLOR": ""}.items())
        narrow.wait_for(r"^Sending    █+░+   .. %\n           file")
        narrow.press("not now\n")
        self.assertEqual(narrow.end(), 0)
        self.assertNotIn("not now", narrow.raw, "what is typed does not tear the block")
        self.assertRegex(narrow.raw, "\x1b]0;quorl: \\d+ %  ")
        self.assertTrue(narrow.raw.endswith("\x1b[23;0t"), "the title is given back")
        self.assertNotIn(" 0 B/s", narrow.raw)
        self.assertIn("\x1b[32mcomplete", narrow.raw, "colours on a terminal")
        stopped = self.room.receiver(2)
        ascii = self.send("--yes", "--rate", "12M", environment={"LC_ALL": "C"}.items())
        ascii.wait_for(r"^Sending    #+\.+   .. %")
        ascii.press("\x03")
        self.assertEqual(ascii.end(), 130)
        self.assertTrue(ascii.raw.isascii())
        self.assertEqual(stopped.wait(8), 9)
        self.room.receiver(1)
        dumb = self.send("--yes", environment={"TERM": "dumb"}.items())
        self.assertEqual(dumb.end(), 0)
        self.assertNotIn("\x1b", dumb.raw)


if __name__ == "__main__":
    unittest.main(verbosity=2)
