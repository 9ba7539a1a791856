#!/usr/bin/env python3
"""`quorl receive` on this machine: what it verifies, moves, leaves alone, cleans up, and ends with."""
import ctypes
import os
import re
import shutil
import signal
import subprocess
import sys
import time
import unittest
from pathlib import Path

from room import QUORL, RoomTest, differences, run_tests, works, write
import sender
from sender import manifest
from terminal import Terminal

KEY = b"sixteen bytes or more"


class ReceiveTest(RoomTest):
    sizes = {"empty": 0, "block": 4254, "a/b/deep": 9999, "big": 500_000}

    def setUp(self):
        super().setUp()
        self.key = self.room.path / "key"
        self.key.write_bytes(KEY)

    def send(self, *paths, text=None, wait=True, **options):
        """Sends the tree, or `paths`, with the manifest `text` or with none."""
        paths = list(paths or [self.tree])
        if text is not None:
            paths.insert(0, self.room.path / ".quorl-manifest")
            paths[0].write_text(text)
        words = [word for name, value in options.items() for word in (f"--{name}", str(value))]
        process = subprocess.Popen([sys.executable, sender.__file__, str(self.room.port), *words,
                                    *map(str, paths)])
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        if wait:
            self.assertEqual(process.wait(60), 0)
        return process

    def staging(self, number):
        """The one staging directory of a receiver in the middle of a transfer."""
        found = [path for path in self.room.target(number).iterdir()
                 if re.fullmatch(r"\.quorl-[0-9a-f]{16}", path.name)]
        self.assertEqual(len(found), 1)
        return found[0]

    def test_what_both_commands_do_together_is_verified_and_looks_as_it_did(self):
        os.utime(self.tree / "big", ns=(1, 1_234_567_890_123_456_789))
        (self.tree / "block").chmod(0o755)
        receiver = self.room.receiver(1, "--key-file", self.key, "--from", "127.0.0.1")
        self.assertEqual(self.inside(1), [], "who waits leaves no trace")
        self.expect(self.room.sender(self.tree, "-n", "1", "--key-file", self.key, "--target", "/srv/in"), 0)
        self.expect(receiver, 0, "From 127.0.0.1: 4 files, .*free", 'asked for its own folder "C:.srv.in"; ignored',
                    "Complete: 4 files, 514 kB in .*, nothing missing, verified 4 of 4 with the key\\.")
        self.same(1)
        received = self.room.target(1) / "tree"
        self.assertEqual((received / "big").stat().st_mtime_ns, 1_234_567_890_123_456_789)
        self.assertEqual([os.access(received / name, os.X_OK) for name in ("block", "big")], [True, False])

    def test_on_a_terminal(self):
        write(self.tree / "big", 4_000_000)
        self.room.target(1).mkdir()
        terminal = Terminal("receive", self.room.target(1), "-i", "127.0.0.2", "-p", self.room.port)
        self.addCleanup(os.close, terminal.controller)
        terminal.wait_for("^Directory  .*receiver-1\\nWaiting for a sender on 235.* via lo 127.0.0.2   \\(Ctrl-C")
        self.send(text=manifest(self.tree), wait=False)
        terminal.wait_for("^From 127.0.0.1: 4 files, 4.0. MB into .*receiver-1   \\(.* free\\)\n\n?"
                          "Receiving  █+░+   [ 0-9]+ %   [0-9.]+ of 4.0. MB   [0-9.]+ .?B/s.*\n           .*tree/big")
        self.assertEqual(terminal.end(), 0)
        self.assertRegex(terminal.screen(), "free\\)\nComplete: 4 files, 4.0. MB in .* s, nothing missing, "
                         "verified 4 of 4\\.$")

    def test_a_key_vouches_for_everything_or_nothing_is_moved(self):
        wrong = self.room.path / "wrong"
        wrong.write_bytes(b"another key, as long")
        for text, codes in ((manifest(self.tree, key=KEY), (0, 0, 10)), (manifest(self.tree), (0, 10, 10)),
                            (None, (0, 10, 10))):
            receivers = [self.room.receiver(1), self.room.receiver(2, "--key-file", self.key),
                         self.room.receiver(3, "--key-file", wrong)]
            self.send(text=text)
            for number, (receiver, code) in enumerate(zip(receivers, codes), 1):
                self.expect(receiver, code, "error: what arrived is not what was sent" if code else "Complete")
                self.assertEqual(bool(self.inside(number)), code == 0)
                shutil.rmtree(self.room.target(number))

    def test_what_differs_from_its_manifest_is_listed_and_not_moved(self):
        text = manifest(self.tree, change=lambda lines: [line for line in lines if "deep" not in line])
        write(self.tree / "big", 499_999)
        (self.tree / "block").write_bytes(b"y" * 4254)
        (self.tree / "empty").unlink()
        receiver = self.room.receiver(1, "--json")
        self.send(text=text)
        self.expect(receiver, 10)
        facts = self.facts(receiver)
        self.assertEqual({fact["name"]: fact["reason"] for fact in facts if fact["type"] == "difference"},
                         {"tree/a/b/deep": "is not in the manifest", "tree/big": "has another size",
                          "tree/block": "has another content", "tree/empty": "is missing"})
        self.assertEqual((facts[-1]["type"], facts[-1]["exit_code"], facts[-1]["files_moved"]), ("result", 10, 0))
        self.assertEqual(self.inside(1), [])

    def test_an_end_in_the_middle_moves_nothing_and_a_killed_receiver_is_cleaned_up_after(self):
        write(self.tree / "big", 20_000_000)
        stopped, killed = self.room.receiver(1), self.room.receiver(2)
        interrupted, closed = self.room.receiver(3), self.room.receiver(4, "--from", "127.0.0.1")
        others = self.room.receiver(5, "--from", "127.0.0.9")
        self.send(wait=False, **{"for": 3})
        for receiver in (stopped, killed, interrupted):
            receiver.wait_for("From 127.0.0.1")
        time.sleep(0.5)
        left = self.staging(2)
        killed.signal(signal.SIGKILL)
        killed.wait(5)
        interrupted.signal(signal.SIGTERM)
        self.expect(interrupted, 143, "Stopped: .* stored; nothing was moved", limit=7)
        self.expect(stopped, 9, "the sender stopped it", "Nothing was moved")
        self.expect(closed, 9)
        self.assertNotIn("From 127.0.0.1", others.output())
        self.assertEqual([self.inside(number) for number in (1, 3, 4)], [[], [], []])
        self.assertTrue(left.exists())
        again = self.room.receiver(2)
        self.assertEqual(self.inside(2), [])
        self.assertIn("Removed what a receiver that was killed had left behind", again.output())
        again.signal(signal.SIGINT)
        self.expect(again, 130, "no transfer had started")

    def test_a_stream_from_a_pipe_reaches_pipes_and_files_once_it_is_verified(self):
        image, small, spool = self.tree / "big", self.tree / "block", self.room.path / "spool"
        write(image, 20_000_000)
        spool.mkdir()
        here = ("-i", "127.0.0.1", "-p", self.room.port)

        def receiver(number, output):
            with open(self.room.path / f"said-{number}", "wb") as said:
                directory = self.room.target(number)
                directory.mkdir(exist_ok=True)
                command = self.room.start("receive", "--output", output, "-i", f"127.0.0.{number + 1}",
                                          "-p", self.room.port, cwd=directory, error=said)
            while "Waiting" not in (self.room.path / f"said-{number}").read_text() + command.output():
                time.sleep(0.02)
            return command

        poured, stored = receiver(1, "-"), receiver(2, self.room.path / "disk.img")
        sender = subprocess.run(f"cat {image} | {QUORL} send - --as img -n 2 -r 800M {' '.join(map(str, here))}",
                                shell=True, stdout=subprocess.DEVNULL, env={**os.environ, "TMPDIR": str(spool)})
        self.assertEqual((sender.returncode, poured.wait(30), stored.wait(30)), (0, 0, 0))
        poured.output_file.seek(0)
        self.assertTrue(poured.output_file.read() == image.read_bytes() == (self.room.path / "disk.img").read_bytes())
        self.assertEqual([self.inside(1), self.inside(2), os.listdir(spool)], [[], [], []])
        image.unlink()
        for paths, text, code in (((small,), manifest(small).replace(" 4254 ", " 4253 "), 10),
                                  ((self.tree,), manifest(self.tree), 1), ((small,), None, 10)):
            refused = receiver(1, "-")
            self.send(*paths, text=text)
            self.assertEqual((refused.wait(30), refused.output()), (code, ""))
        for arguments in (("send", "-", self.tree), ("send", self.tree, "--as", "x"), ("receive", "-o", "-", "--json"),
                          ("receive", "-o", "x", "--keep")):
            self.expect(self.room.start(*arguments), 2)
        full = self.room.start("receive", "-o", "/dev/full", *here)
        full.wait_for("Waiting")
        self.send(small, text=manifest(small))
        self.expect(full, 7, '"/dev/full" cannot be written: No space left')

    def test_a_parent_swapped_for_a_link_while_blocks_arrive(self):
        for number in range(400):
            write(self.tree / "dir" / f"{number}", 9000)
        outside = self.room.path / "outside"
        outside.mkdir()
        receiver = self.room.receiver(1)
        process = self.send(wait=False)
        receiver.wait_for("From 127.0.0.1")
        parent, link = self.staging(1) / "tree" / "dir", self.staging(1) / "link"
        parent.mkdir(parents=True, exist_ok=True)
        link.symlink_to(outside)
        rename, exchange, here = ctypes.CDLL(None).renameat2, 2, -100
        swaps = 0
        while process.poll() is None:
            swaps += rename(here, bytes(parent), here, bytes(link), exchange) == 0
            time.sleep(0.0002)
        self.assertGreater(swaps, 100)
        self.assertNotEqual(receiver.wait(30), 0, receiver.output())
        self.assertEqual((os.listdir(outside), self.inside(1)), ([], []))

    def test_two_receivers_of_one_machine_in_one_directory(self):
        shared = self.room.path / "shared"
        receivers = [self.room.receiver(number, directory=shared) for number in (1, 2)]
        self.send(text=manifest(self.tree))
        for receiver in receivers:
            self.expect(receiver, 0, "verified 4 of 4")
        # Each file is brought by one of the two, whoever comes first.
        said = "".join(receiver.output() for receiver in receivers)
        self.assertEqual(sum(map(int, re.findall(r"there +(\d+)   with the same", said))), 4, said)
        self.assertEqual(len([path for path in shared.rglob("*") if path.is_file()]), 4)

    def test_a_receiver_that_keeps_on_keeps_nothing_else(self):
        log = self.room.path / "log"
        program = self.room.path / "then"
        program.write_text(f"#!/bin/sh\necho \"$# $1\" >> {log}\nls /proc/self/fd | wc -l >> {log}\nexit 3\n")
        program.chmod(0o755)
        small = self.room.path / "small" / "file"
        write(small, 3000)
        receiver = self.room.receiver(1, "--keep", "--existing", "overwrite", "--then", program)
        process = Path("/proc") / str(receiver.process.pid)
        seen = []
        for round_number in range(1, 21):
            if round_number % 5 == 0:
                write(self.tree / "big", 5_000_000)
                self.send(**{"for": 1})
            else:
                self.send(small, text=manifest(small) if round_number % 2 else None)
            limit = time.monotonic() + 10
            while len(re.findall("^127.0.0.1: ", receiver.output(), re.M)) < round_number:
                self.assertLess(time.monotonic(), limit, receiver.output())
                time.sleep(0.02)
            if round_number in (3, 20):
                time.sleep(2)  # It may be a moment until it listens again.
                seen.append((len(os.listdir(process / "fd")), len(os.listdir(process / "task"))))
        receiver.signal(signal.SIGTERM)
        self.expect(receiver, 143, "Stopped after 20 transfers")
        lines = re.findall("^127.0.0.1: (.*)", receiver.output(), re.M)
        self.assertEqual([sum(word in line for line in lines) for word in
                          ("verified 1 of 1", "not verified", "the sender stopped it")], [8, 8, 4], receiver.output())
        self.assertEqual(*seen, "descriptors and threads")
        self.assertEqual(self.inside(1), ["file"])
        self.assertEqual(set(log.read_text().splitlines()), {f"1 {self.room.target(1)}", "4"})
        self.assertEqual(len(log.read_text().splitlines()), 16, "8 verified ones")
        self.assertEqual(receiver.output().count("ended with exit code 3"), 8)

    def test_only_a_plain_file_is_opened_and_only_when_asked(self):
        tools = self.room.path / "bin"
        tools.mkdir()
        (tools / "xdg-open").write_text(f"#!/bin/sh\nreadlink -f \"$1\" > {self.room.path}/opened\n")
        (tools / "xdg-open").chmod(0o755)
        self.addCleanup(os.environ.update, PATH=os.environ["PATH"])
        os.environ["PATH"] = f"{tools}:{os.environ['PATH']}"
        receiver, silent = self.room.receiver(1, "--open"), self.room.receiver(2)
        self.send(open="\\tree\\block")
        self.expect(receiver, 0, 'Opening "tree/block"')
        self.expect(silent, 0, 'suggests to open "tree/block"; not opened \\(--open would\\)')
        opened = self.room.path / "opened"
        while not opened.exists() or not opened.read_text():
            time.sleep(0.1)
        self.assertEqual(opened.read_text().strip(), str(self.room.target(1) / "tree/block"))
        write(self.tree / "block", 17)
        receivers = [self.room.receiver(1, "--open", "--existing", "skip"), self.room.receiver(2)]
        self.send(open="\\..\\..\\etc\\hostname")
        self.expect(receivers[0], 0, "not among those received; not opened", 'skipped +1 +"tree/block" existed')
        self.expect(receivers[1], 0, 'renamed +1 +"tree/block" existed, new one is "tree/block \\(1\\)"')

    @unittest.skipUnless(works("strace", "-o", os.devnull, "true"), "programs cannot be traced here")
    def test_sync_brings_each_file_to_the_disk_before_its_name_and_then_the_directory(self):
        trace = self.room.path / "trace"
        target = self.room.target(1)
        receiver = self.room.receiver(1, "--sync",
                                      prefix=("strace", "-ff", "-y", "-o", trace, "-e", "trace=fsync,renameat2"))
        self.send()
        self.expect(receiver, 0)
        # One thread makes all of them. In one file for all threads a line of another would cut a call in two.
        text = "".join(path.read_text() for path in self.room.path.glob("trace.*"))
        calls = re.findall(r"(fsync|renameat2)\(\d+<([^>]*)>(?:, \"([^\"]*)\")?.* = 0", text)
        for name in ("block", "big", "deep", "empty"):
            stored = next(i for i, (call, path, _) in enumerate(calls) if call == "fsync" and path.endswith("/" + name))
            moved = next(i for i, (call, _, leaf) in enumerate(calls) if call == "renameat2" and leaf == name)
            self.assertLess(stored, moved, calls)
        last_move = max(i for i, (call, _, _) in enumerate(calls) if call == "renameat2")
        self.assertEqual({path for _, path, _ in calls[last_move + 1:]},
                         {str(target), *(str(target / name) for name in ("tree", "tree/a", "tree/a/b"))})

    def test_a_closed_output_harms_nothing_and_what_cannot_work_is_told_at_once(self):
        for arguments, text in ((("/proc",), "nothing can be received into"), (("--then", self.tree / "block"), "run"),
                                (("--key-file", self.tree / "empty"), "too short")):
            self.expect(self.room.start("receive", *arguments), 7, text)
        self.room.target(1).mkdir()
        reader, writer = os.pipe()
        os.close(reader)
        receiver, sender = (subprocess.Popen([QUORL, *words, "-p", str(self.room.port)], stdout=writer, stderr=writer)
                            for words in (("receive", self.room.target(1), "-i", "127.0.0.2"),
                                          ("send", self.tree, "-n", "1", "-i", "127.0.0.1")))
        self.assertEqual((sender.wait(30), receiver.wait(30)), (0, 0))
        self.same(1)

    def test_a_directory_on_a_network_file_system_is_refused(self):
        local, remote = self.room.path / "local", self.room.path / "remote"
        local.mkdir()
        remote.mkdir()
        # A program answers for it, as for those over a network.
        if not works("bindfs", "--help"):
            self.skipTest("bindfs is not installed")
        server = subprocess.Popen(["bindfs", "-f", local, remote], stderr=subprocess.DEVNULL)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)
        while not os.path.ismount(remote):
            if server.poll() is not None:
                self.skipTest("programs cannot answer for file systems here")
            time.sleep(0.02)
        self.expect(self.room.start("receive", remote), 8, "it is on a network file system", "status 1002")


if __name__ == "__main__":
    run_tests()
