#!/usr/bin/env python3
"""The sending side on this machine: what it does, says and ends with, over real multicast on loopback."""
import os
import re
import resource
import signal
import socket
import subprocess
import time
import unittest
from pathlib import Path

from room import QUORL, RoomTest, differences, run_tests, works, write
from root import AS_ROOT, mount_small

JSON_DOCUMENT = Path(__file__).resolve().parents[2] / "docs" / "json.md"


def documented_fields():
    """What docs/json.md says a type may have."""
    fields = {}
    for types, names in re.findall(r"^\| (`.*?) \| (.*) \|$", JSON_DOCUMENT.read_text(), re.MULTILINE):
        for name in re.findall("`([a-z_]+)`", types):
            fields.setdefault(name, set()).update(re.findall("`([a-z_]+)`", names))
    return fields


class CommandTest(RoomTest):
    sizes = {"empty": 0, "block": 4254, "block and one": 4255, "a/b/c/deep": 9999, "big": 2_000_000}

    def setUp(self):
        super().setUp()
        (self.tree / "nothing").mkdir()

    def checked_facts(self, command):
        """The JSON of a command that has ended, checked against its description."""
        facts = self.facts(command)
        self.assertEqual([fact["seq"] for fact in facts], list(range(len(facts))))
        self.assertEqual([fact["t_ms"] for fact in facts], sorted(fact["t_ms"] for fact in facts))
        self.assertEqual([facts[0]["type"], facts[-1]["type"]], ["hello", "result"])
        self.assertEqual(facts[-1]["exit_code"], command.code)
        known = documented_fields()
        for fact in facts:
            names = {name.removesuffix("_hex") for name in fact if not name.startswith("sender.")}
            self.assertLessEqual(names - {"seq", "t_ms", "type"}, known[fact["type"]], fact)
        return facts

    def test_whoever_is_waited_for_gets_everything(self):
        early = self.room.receiver(1)
        sender = self.room.sender(self.tree, "--wait-for", "2", "--wait", "20s")
        sender.wait_for("Waiting    1 there, for 2 receivers")
        receivers = [early, self.room.receiver(2)]
        self.expect(sender, 0, "127.0.0.2", "127.0.0.3", "2.02 MB to 2 of 2 receivers", "complete        2")
        for receiver in receivers:
            self.expect(receiver, 0, "verified 5 of 5")
        self.same(1, 2)

    def test_nobody_too_few_or_not_those_meant(self):
        started = time.monotonic()
        self.expect(self.room.sender(self.tree), 3, "error: no receiver answered")
        self.assertLess(time.monotonic() - started, 5)
        receiver = self.room.receiver(1)
        self.expect(self.room.sender(self.tree, "--wait-for", "2", "--wait", "2"), 3,
                    "error: only 1 of 2 receivers answered", "--wait-for 1")
        self.expect(self.room.sender(self.tree, "--only", "127.0.0.2,127.0.0.9", "--wait", "0"), 3,
                    "error: 127.0.0.9 did not answer")
        self.assertIsNone(receiver.poll(), "a receiver that was asked goes on waiting")

    def test_only_those_named_count_and_keep_what_came(self):
        meant, other = self.room.receiver(1), self.room.receiver(2, "--timeout", "6")
        failed = self.room.path / "failed"
        failed.write_text("127.0.0.2\n")
        again = ("--only", f"@{failed}", "--failed-to", failed)
        self.expect(self.room.sender(self.tree, *again), 0, "127.0.0.3 listens too", "to 1 of 1 receiver")
        self.expect(meant, 0)
        self.expect(other, 3, "Not meant for this machine")
        self.assertEqual((failed.read_text(), self.inside(2)), ("", []))
        self.expect(self.room.sender(self.tree, *again), 0, "the list of --only is empty")
        failed.write_text("127.0.0.2\n127.0.0.9\n")
        self.expect(self.room.sender(self.tree, *again, "--wait", "0"), 3, "no receiver answered")
        self.assertEqual(failed.read_text(), "127.0.0.2\n127.0.0.9\n", "nobody of them has got it")
        late = self.room.receiver(1)
        self.expect(self.room.sender(self.tree, *again, "--wait", "1", "--yes"), 4, "Sending    0 files",
                    "to 1 receiver at", "to 1 of 2 receivers", "not there       1   127.0.0.9")
        self.expect(late, 0)
        self.assertEqual(failed.read_text(), "127.0.0.9\n")

    def test_two_senders_on_one_group_and_a_port_that_is_taken(self):
        self.room.receiver(1)
        first = self.room.sender(self.tree, "--rate", "2M")
        first.wait_for("Sending")
        time.sleep(0.5)
        self.expect(self.room.sender(self.tree), 6, "error: another sender is active")
        self.expect(self.room.start("list", "-i", "127.0.0.1", "-p", self.room.port), 6)
        self.expect(first, 0)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
            taken.bind(("127.0.0.1", self.room.port + 2))
            self.expect(self.room.sender(self.tree), 1, "error: nobody can be asked on")

    def test_a_sender_that_is_stopped(self):
        for number, code in ((signal.SIGINT, 130), (signal.SIGTERM, 143), (signal.SIGHUP, 129)):
            receiver = self.room.receiver(1)
            sender = self.room.sender(self.tree, "--rate", "2M")
            receiver.wait_for("From 127.0.0.1")
            time.sleep(0.3)
            late = self.room.receiver(2)
            sender.signal(number)
            self.expect(sender, code, "Stopping", "2.02 MB to 0 of 1 receiver.", "not complete    1   127.0.0.2",
                        limit=4)
            self.expect(receiver, 9, "the sender stopped it", limit=8)
            self.assertIsNone(late.poll(), "it was not its transfer")
            late.signal(signal.SIGINT)
            self.expect(late, 130)
        receiver = self.room.receiver(1)
        sender = self.room.sender(self.tree, "--rate", "16M", "--no-manifest")
        receiver.wait_for("From 127.0.0.1")
        (self.tree / "block and one").unlink()
        self.expect(sender, 7, "a file could not be read (status 32)")
        self.expect(receiver, 9)
        sender = self.room.sender(self.tree, "--wait-for", "1")
        sender.wait_for("Waiting")
        sender.signal(signal.SIGINT)
        self.expect(sender, 130, limit=3)

    @unittest.skipUnless(works("setpriv", "--bounding-set", "-dac_override,-dac_read_search", "true") or os.geteuid(),
                         "root reads everything here")
    def test_what_is_left_out_and_what_stands_in_the_way_is_told_at_once(self):
        like_others = () if os.geteuid() else ("setpriv", "--bounding-set", "-dac_override,-dac_read_search")
        for name in ("locked", "closed"):
            write(self.tree / name, 10)
            (self.tree / name).chmod(0)
        words = (self.tree, self.room.path / "missing", "--exclude", "c/", "--exclude", "block*")
        stopped = self.room.sender(*words, prefix=like_others)
        self.expect(stopped, 7, "error: 3 names cannot be sent", '/closed": Permission denied\n', '/locked": Perm',
                    '/missing": No such file or directory\n', "--exclude wants it: 3 names")
        receiver = self.room.receiver(1)
        sender = self.room.sender(self.tree, *words[2:], "--skip-unreadable", prefix=like_others)
        self.expect(sender, 11, "2 files", '/locked" (Permission denied)')
        self.expect(receiver, 0, "verified 2 of 2")
        self.assertEqual(self.inside(1), ["tree", "tree/a", "tree/a/b", "tree/big", "tree/empty", "tree/nothing"])

    def test_hostile_names_reach_neither_terminal_nor_json_raw(self):
        (self.tree / "invalid\udcff").write_bytes(b"x")
        write(self.tree / "red\x1b[31m\u202egnp.exe", 5000)
        write(self.tree / "sub" / "line\nbreak", 5000)
        write(self.tree / "what?\x1b", 10)
        receiver = self.room.receiver(1)
        sender = self.room.sender(self.tree, "--json", "-vv")
        self.expect(sender, 11)
        names = {fact["name"] for fact in self.checked_facts(sender) if fact["type"] == "file"}
        self.assertLessEqual({"tree/red\x1b[31m\u202egnp.exe", "tree/sub/line\nbreak", "tree/invalid\ufffd"}, names)
        self.expect(receiver, 0)
        people = self.room.sender(self.tree, "--dry-run", "--open-name", "tree/big")
        self.expect(people, 0, 'skipped: "', "what?\\x1b", "tree/red\\x1b[31m", "invalid\\xff")
        for command in (sender, receiver, people):
            self.assertNotRegex(command.output(), "[\x00-\x09\x0b-\x1f\x7f\u202e]")

    def test_wrong_use_and_local_faults_are_told_before_anything_happens(self):
        short = self.room.path / "short"
        short.write_text("key")
        for arguments, code, text in (
                ((), 2, "quorl receive"), (("send",), 2, "quorl send images/"),
                (("sned", "x"), 2, "Did you mean send?"),
                (("send", self.tree), 2, "this is no terminal"),
                (("send", self.tree, "--json"), 2, "--json is for programs"),
                (("send", self.tree, "--yes", "--interface", "nosuch0"), 2, "no interface of this machine"),
                (("send", self.tree, "--yes", "--key-file", short, "--no-manifest"), 2, "exclude each other"),
                (("send", self.tree, "--yes", "--key-file", short), 7, "too short"),
                (("send", self.tree, "--yes", "--open-name", "c/deep"), 2, 'Did you mean "tree/a/b/c/deep"?'),
                (("send", self.tree, "--yes", "--log", "/nowhere/log"), 7, "\"/nowhere/log\" cannot be written"),
                (("send", self.tree, "--yes", "--failed-to", "/nowhere/f"), 7, "\"/nowhere/f\" cannot be written"),
                (("send", self.room.path / "missing", "--yes"), 7, "No such file or directory")):
            self.expect(self.room.start(*arguments), code, text, limit=5)
        told = self.room.start("send", self.tree, "--rate", "fast", "--json")
        told.wait(5)
        self.assertEqual(self.checked_facts(told)[1]["why"],
                         '"fast" is no rate; say 200M, 1.5G, auto, max or compatible')
        (self.room.path / "--yes").touch()
        here = {"cwd": self.room.path}
        self.expect(self.room.start("send", "--yes", "key", **here), 2, '"--yes" may be an option or the file')
        self.expect(self.room.start("send", "--dry-run", "--", "--yes", **here), 0, "0 B  --yes")
        self.expect(self.room.sender(self.tree, "--no-subdirs", "--dry-run"), 0, "4 files in 1 folder", "476 blocks")
        # A disk that is full from the first line on, or from the middle.
        for path, most in (("/dev/full", resource.RLIM_INFINITY), (self.room.path / "facts", 500)):
            with open(path, "wb") as full:
                lost = subprocess.run([QUORL, "send", "--dry-run", "--json", self.tree], stdout=full,
                                      stderr=subprocess.PIPE, restore_signals=False,
                                      preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (most, most)))
            self.assertEqual((lost.returncode, lost.stderr[:38]), (1, b"error: the facts for --json cannot be "))

    def test_quiet_lines_and_a_log(self):
        log = self.room.path / "log"
        receiver = self.room.receiver(1)
        key = self.room.path / "key"
        key.write_bytes(bytes(32))
        key.chmod(0o644)
        sender = self.room.sender(self.tree, "-q", "--log", log, "--color", "always", "--key-file", key)
        self.expect(sender, 0)
        self.assertRegex(sender.output(), r"^Done in .*\n  \x1b\[32mcomplete    \x1b\[0m    1   nothing .*\n$")
        self.assertRegex(log.read_text(), r"\A(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4} \S?.*\n)+\Z")
        for text in ("warning: everybody on this machine can read", "Interface  lo", "Receivers  1"):
            self.assertIn(text, log.read_text())
        self.assertNotIn("\x1b", log.read_text())
        self.expect(receiver, 0)

    def test_who_failed_is_named_and_sent_to_again(self):
        small = self.room.path / "small"
        small.mkdir()
        mount_small(self, small, "size=1m")
        tight = self.room.receiver(1, directory=small)
        self.expect(self.room.sender(self.tree), 5,
                    "failed          1   127.0.0.2   no room on the disk (status 112), 2.02 MB are needed")
        self.expect(tight, 8, "no room on the disk: 2.0", " MB needed at most, 1.05 MB free (status 112)")
        full = self.room.receiver(1, "--keep", directory=small)
        roomy, failed = self.room.receiver(2), self.room.path / "failed"
        self.expect(self.room.sender(self.tree, "--wait-for", "2", "--failed-to", failed), 4, "complete        1",
                    "failed          1   127.0.0.2   no room on the disk (status 112)",
                    f"Again for those that failed:  quorl send {self.tree} --failed-to {failed} "
                    f"--interface 127.0.0.1 --port {self.room.port} --only @{failed}")
        self.assertEqual(failed.read_text(), "127.0.0.2\n")
        self.expect(roomy, 0)
        sender = self.room.sender(self.tree, "--only", f"@{failed}", "--retry", "2", "--json")
        sender.wait_for('"type":"retry"')
        subprocess.run([*AS_ROOT, "mount", "-o", "remount,size=50m", small], check=True)
        sender.wait(60)
        result = self.checked_facts(sender)[-1]
        self.assertEqual((result["exit_code"], result["complete"], result["failed"]), (0, 1, 0), sender.output())
        full.wait_for("complete,")  # the sender is through when the blocks are stored, and nothing has its name yet
        full.signal(signal.SIGTERM)
        self.expect(full, 143)
        self.assertEqual(differences(self.tree.parent, small), [])

    def test_a_disk_that_fills_up_in_the_middle_costs_what_does_not_fit(self):
        small = self.room.path / "small"
        small.mkdir()
        mount_small(self, small, "size=6m")
        receiver = self.room.receiver(1, directory=small)
        sender = self.room.sender(self.tree, "--rate", "8M")
        receiver.wait_for("From 127.0.0.1")
        with open(small / "of somebody else", "wb") as other, self.assertRaises(OSError):
            while True:
                other.write(bytes(100_000))
                other.flush()
        self.expect(sender, 5, "no room on the disk (status 112)")
        self.expect(receiver, 8, "no room on the disk")

    def test_names_that_run_out_are_told_as_that(self):
        target = self.room.path / "few"
        target.mkdir()
        mount_small(self, target, "size=50m,nr_inodes=5")
        early = self.room.receiver(1, directory=target)
        self.expect(self.room.sender(self.tree), 5, "no room on the disk (status 112)")
        self.expect(early, 8, "no room for the names of 6 files at most: the file system has . inodes? left")


if __name__ == "__main__":
    run_tests()
