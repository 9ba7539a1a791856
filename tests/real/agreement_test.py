#!/usr/bin/env python3
"""What sender and receivers tell each other beside the transfer: verdicts, who has gone, what is there already, and how
far a transfer came that broke."""
import os
import re
import shutil
import signal
import time

from room import RoomTest, run_tests, write


class AgreementTest(RoomTest):
    sizes = {"a/one": 9999, "a/two": 20_000, "big": 4_000_000, "empty": 0}

    def test_the_receivers_have_the_last_word(self):
        write(self.room.target(2) / "tree" / "a" / "one", 17)
        key = self.room.path / "key"
        key.write_bytes(b"sixteen bytes or more")
        receivers = [self.room.receiver(1), self.room.receiver(2, "--existing", "fail"),
                     self.room.receiver(3, "--key-file", key)]
        sender = self.room.sender(self.tree, "-n", "3", "--json")
        for receiver, code in zip(receivers, (0, 7, 10)):
            self.expect(receiver, code)
        self.expect(sender, 4)
        last = {fact["address"]: (fact["state"], fact.get("status"), fact.get("detail"))
                for fact in self.facts(sender) if fact["type"] == "receiver"}
        self.assertEqual(last, {
            "127.0.0.2": ("complete", None, None),
            "127.0.0.3": ("failed", 80, '1 of 4 files exist already: "tree/a/one"'),
            "127.0.0.4": ("failed", 13, "what arrived is not what was sent: \".quorl-manifest\" the manifest is not "
                                        "sealed with a key")})
        self.same(1)

    def test_a_file_that_changes_is_named_at_both_ends_and_spoils_no_other(self):
        receivers = [self.room.receiver(1), self.room.receiver(2, "--all-or-nothing")]
        sender = self.room.sender(self.tree, "-n", "2", "--rate", "16M")
        receivers[0].wait_for("From 127.0.0.1")
        time.sleep(0.5)
        with open(self.tree / "big", "r+b") as big:
            big.seek(3_900_000)
            big.write(b"x" * 50_000)
        self.expect(sender, 5, '"tree/big" changed while it was sent', "failed +2 +127.0.0.[23] +.*tree/big")
        self.expect(receivers[0], 4, '"tree/big" changed while it was sent', "1 of 4 files are not what was sent")
        self.expect(receivers[1], 10, '"tree/big" changed while it was sent')
        (self.tree / "big").unlink()
        self.same(1)
        self.assertFalse([name for name in self.inside(2) if not name.startswith(".quorl-")])

    def test_who_leaves_who_comes_late_and_who_is_started_again(self):
        write(self.tree / "big", 12_000_000)
        stays, leaves, killed = (self.room.receiver(number, *more) for number, more in
                                 ((1, ()), (2, ()), (3, ("--then", "true"))))
        # In blocks: who comes late to a stream of symbols takes part.
        sender = self.room.sender(self.tree, "-n", "3", "--rate", "20M", "--no-coded", "--json")
        killed.wait_for("From 127.0.0.1")
        time.sleep(1)
        killed.signal(signal.SIGKILL)
        killed.wait(5)
        leaves.signal(signal.SIGINT)
        self.expect(leaves, 130)
        again, late = self.room.receiver(3, "--keep"), self.room.receiver(4, "--keep")
        for receiver in (again, late):
            receiver.wait_for("A transfer from 127.0.0.1 is under way")
        self.assertIsNone(sender.poll(), "the news comes while the transfer goes on")
        failed = re.findall(r'"type":"receiver","address":"([0-9.]+)".*"status":1223', sender.output())
        self.assertEqual(set(failed), {"127.0.0.3", "127.0.0.4"})
        self.expect(stays, 0)
        self.expect(sender, 4)
        self.expect(self.room.sender(self.tree, "-n", "2"), 0)
        for receiver in (again, late):
            receiver.wait_for("complete, ")
        self.same(1, 3, 4)
        self.room.receiver(5, "--then", "false")
        self.expect(self.room.sender(self.tree), 0)
        self.expect(self.room.commands[-2], 12)

    def test_what_is_there_already_is_not_sent(self):
        shutil.copytree(self.tree, self.room.target(1) / "tree")
        shutil.copytree(self.tree, self.room.target(2) / "tree")
        (self.room.target(1) / "tree" / "a" / "one").unlink()
        (self.room.target(2) / "tree" / "a" / "two").write_bytes(b"y" * 20_000)
        os.utime(self.tree / "big", (1, 1))
        os.utime(self.room.target(2) / "tree" / "big", (1, 1))
        receivers = [self.room.receiver(1), self.room.receiver(2, "--existing", "overwrite")]
        sender = self.room.sender(self.tree, "-n", "2", "--json")
        for receiver in receivers:
            self.expect(receiver, 0, "there +3 +with the same contents", "verified 4 of 4")
        self.expect(sender, 0)
        result = self.facts(sender)[-1]
        self.assertEqual((result["bytes"], result["bytes_streamed"]), (4_029_999, 29_999))
        self.same(1, 2)
        quick = self.room.receiver(2, "--quick")
        self.expect(self.room.sender(self.tree), 0)
        self.expect(quick, 0, "verified 4 of 4")

    def test_what_has_arrived_stays_and_the_next_sending_goes_on_from_there(self):
        write(self.tree / "large", 40_000_000)
        receivers = [self.room.receiver(1), self.room.receiver(2, "--all-or-nothing"), self.room.receiver(3)]
        sender = self.room.sender(self.tree, "-n", "3", "--rate", "100M")
        limit = time.monotonic() + 30
        while not list(self.room.target(3).glob(".quorl-*/.quorl-record")):
            self.assertLess(time.monotonic(), limit)
            time.sleep(0.01)
        receivers[2].signal(signal.SIGKILL)
        sender.signal(signal.SIGINT)
        self.expect(sender, 130)
        self.expect(receivers[0], 9, "4 files are whole, verified and in place", "1 file is kept; the next sending")
        self.expect(receivers[1], 9, "what had been received is removed")
        self.assertEqual(self.inside(2), [])
        self.assertEqual([name for name in self.inside(1) if name.startswith("tree/") and name != "tree/a"],
                         ["tree/a/one", "tree/a/two", "tree/big", "tree/empty"])
        receivers = [self.room.receiver(1), self.room.receiver(3)]
        self.assertRegex(receivers[0].output(), "Kept +.* of 1 file from a transfer that broke")
        self.assertRegex(receivers[1].output(), "Kept +.* of 5 files from a transfer that broke")
        sender = self.room.sender(self.tree, "-n", "2", "--json")
        for receiver in receivers:
            self.expect(receiver, 0, "verified 5 of 5")
        self.expect(sender, 0)
        self.assertLess(self.facts(sender)[-1]["bytes_streamed"], 35_000_000)
        self.same(1, 3)

    def test_links_travel_as_links_and_permissions_as_they_are(self):
        for name, leads_to in {"latest": "a", "one": "latest-one", "latest-one": "a/one", "a/up": "../big",
                               "out": "/etc/passwd", "root": "..", "past": "latest/one", "nowhere": "gone"}.items():
            (self.tree / name).symlink_to(leads_to)
        for name, mode in {"big": 0o640, "a/one": 0o4711, "a/two": 0o200, "empty": 0o606}.items():
            (self.tree / name).chmod(mode)
        kept = self.room.receiver(1)
        sender = self.room.sender(self.tree, "--links", "keep", "--perms")
        self.expect(sender, 11, "4 links", *(f'skipped: ".*/{name}" \\(a link that leads {why}' for name, why in (
            ("out", "out of"), ("root", "out of"), ("past", "through another"), ("nowhere", "to nothing"))))
        self.expect(kept, 0, "verified 4 of 4")
        tree = self.room.target(1) / "tree"
        self.assertEqual({str(path.relative_to(tree)): os.readlink(path) for path in tree.rglob("*")
                          if path.is_symlink()},
                         {"latest": "a", "one": "latest-one", "latest-one": "a/one", "a/up": "../big"})
        self.assertEqual({name: (tree / name).stat().st_mode & 0o7777 for name in ("big", "a/one", "a/two", "empty")},
                         {"big": 0o640, "a/one": 0o711, "a/two": 0o600, "empty": 0o606})

    def test_a_retry_is_for_those_that_failed_alone(self):
        write(self.tree / "large", 40_000_000)
        steady, torn = self.room.receiver(1, "--keep"), self.room.receiver(2)
        sender = self.room.sender(self.tree, "-n", "2", "--rate", "160M", "--retry", "1", "--json")
        torn.wait_for("From 127.0.0.1")
        time.sleep(1.7)
        torn.signal(signal.SIGINT)
        self.expect(torn, 130, "the next sending of the same goes on from there")
        again = self.room.receiver(2, "--keep")
        self.expect(sender, 0)
        again.wait_for("complete, ")
        starts = [fact for fact in self.facts(sender) if fact["type"] == "start"]
        self.assertEqual([start["receivers"] for start in starts], [2, 1])
        self.assertLess(starts[1]["bytes"], 35_000_000)
        self.assertEqual(steady.output().count("complete, "), 1)
        limit = time.monotonic() + 15
        while any(name.startswith(".quorl-") for name in self.inside(1)) and time.monotonic() < limit:
            time.sleep(0.1)
        self.same(1, 2)


if __name__ == "__main__":
    run_tests()
