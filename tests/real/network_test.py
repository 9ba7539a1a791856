#!/usr/bin/env python3
"""A network that changes and that is shared: interfaces that come late, addresses that change, a second sender, names.
In namespaces."""
import subprocess
import time
import unittest

import testbed
from room import RoomTest, differences, write
from testbed import run


class NetworkTest(RoomTest):
    sizes = {"a": 300_000}

    def setUp(self):
        why = testbed.missing()
        if why:
            self.skipTest(why)
        super().setUp()
        self.bed = testbed.Testbed()
        self.addCleanup(self.bed.close)
        self.bed.build(2)

    def receiver(self, number, *arguments):
        into = self.room.path / f"{number}"
        into.mkdir(exist_ok=True)
        return self.room.start("receive", into, *arguments, prefix=self.bed.inside(self.bed.receivers[number]))

    def send(self, *arguments, machine=None):
        return self.room.start("send", self.tree, *arguments, prefix=self.bed.inside(machine or self.bed.sender))

    def test_a_receiver_follows_the_network_and_never_settles_on_loopback(self):
        name = self.bed.receivers[0]
        run("ip", "-n", name, "link", "set", "eth0", "down")
        run("ip", "-n", name, "addr", "flush", "dev", "eth0")
        self.expect(self.room.start("list", prefix=self.bed.inside(name)), 1, "error: this machine is in no network")
        self.expect(self.room.start("doctor", prefix=self.bed.inside(name)), 1, "none but the loopback one is up")
        receiver = self.receiver(0, "--keep")
        receiver.wait_for("via the interface to come")
        for address in ("10.66.0.11", "10.66.0.77"):
            run("ip", "-n", name, "addr", "flush", "dev", "eth0")
            run("ip", "-n", name, "addr", "add", f"{address}/24", "dev", "eth0")
            run("ip", "-n", name, "link", "set", "eth0", "up")
            receiver.wait_for(f"Interface  eth0 {address} now, ")
            self.expect(self.send("--only", address, "--wait", "10"), 0)
            receiver.wait_for(f"{testbed.SENDER_ADDRESS}: complete")
        run("ip", "-n", self.bed.switch, "link", "set", "port-rx0", "down")
        receiver.wait_for("Interface  eth0 10.66.0.77 has no link")
        run("ip", "-n", self.bed.switch, "link", "set", "port-rx0", "up")
        receiver.wait_for("Interface  eth0 10.66.0.77 has its link")
        self.assertEqual(receiver.output().count("Interface  eth0 10.66.0.77 now"), 1)
        self.receiver(0, "--interface", "lo").wait_for("Waiting")
        self.expect(self.room.start("doctor", prefix=self.bed.inside(name)), 0,
                    "one on this machine listens through lo, not through eth0")

    def test_doctor_finds_the_firewall(self):
        inside = self.bed.inside(self.bed.sender)
        healthy = self.room.start("doctor", "--json", prefix=inside)
        self.expect(healthy, 0)
        self.assertEqual(self.facts(healthy)[-1]["faults"], 0)
        rules = "add table inet f; add chain inet f input { type filter hook input priority 0; policy drop; }"
        subprocess.run([*inside, "nft", rules], check=True)
        self.expect(self.room.start("doctor", prefix=inside), 1, "FAULT  round trip", "hint   firewall",
                    "nft add rule inet f input udp dport { 27001, 27003, 28000 } accept", "1 fault must be mended")

    def test_another_sender_is_named_and_waited_for_and_receivers_go_by_their_names(self):
        other = self.bed.plug("tx2", "10.66.0.2")
        for machine in (self.bed.sender, other):
            names = {"10.66.0.1": "lab-tx", "10.66.0.11": "lab-01.example", "10.66.0.12": "lab-02"}
            self.bed.name(self, machine, names)
        receivers = [self.receiver(number, "--keep") for number in (0, 1)]
        for receiver in receivers:
            receiver.wait_for("Waiting for a sender")
        self.expect(self.send("--only", "lab-01,lab-09", "--wait", "0", "--yes"), 4, "10.66.0.12 lab-02 listens too",
                    "1 of 2 receivers", "not there       1   lab-09", "--only lab-09")
        receivers[1].wait_for("not meant for this machine")
        receivers[1].wait_for("Waiting for a sender")
        time.sleep(0.5)
        self.expect(self.room.start("list", prefix=self.bed.inside(other)), 0, "Receivers  2", "10.66.0.11 lab-01")
        first = self.send("--rate", "1M", "--wait-for", "2")
        first.wait_for("Sending")
        self.expect(self.send("--yes", machine=other), 6, "another sender is active", "9:27001: 10.66.0.1 lab-tx")
        second = self.send("--yes", "--wait", "20s", machine=other)
        second.wait_for("Waiting    another sender is active")
        self.expect(first, 0, "to 2 of 2 receivers")
        self.expect(second, 0, "to 2 of 2 receivers")
        self.assertEqual(differences(self.tree, self.room.path / "0" / "tree"), [])

    def test_lost_fragments_that_fill_the_kernels_memory_delay_a_receiver_and_the_cure_is_named(self):
        """The memory is a sixteenth of the usual one, and what is in it is kept for 12 s instead of 30."""
        write(self.tree / "a", 8_000_000)
        inside = self.bed.inside(self.bed.receivers[0])
        for setting in ("ipfrag_low_thresh=196608", "ipfrag_high_thresh=262144", "ipfrag_time=12"):
            subprocess.run([*inside, "sysctl", "-qw", f"net.ipv4.{setting}"], check=True)
        self.bed.lose_frames(0, 1)
        receivers = [self.receiver(number) for number in (0, 1)]
        for receiver in receivers:
            receiver.wait_for("Waiting for a sender")
        self.expect(self.send("--wait-for", "2", "--no-coded"), 0, "to 2 of 2 receivers", limit=60)
        self.expect(receivers[0], 0, "fragments of blocks found no memory",
                    "sysctl -w net.ipv4.ipfrag_high_thresh=67108864 net.ipv4.ipfrag_time=2")
        self.assertNotIn("fragments", receivers[1].output())
        self.expect(self.room.start("doctor", prefix=inside), 0, "hint   reassembly  262 kB for fragments, kept for 12")


if __name__ == "__main__":
    unittest.main(verbosity=2)
