"""A room of network namespaces on one bridge, with loss at the receivers' input. Needs root, ip and nft."""
import os
import shutil
import subprocess

SENDER_ADDRESS = "10.66.0.1"


def missing():
    """Why there can be no testbed here; None when there can."""
    if os.geteuid() != 0:
        return "network namespaces need root"
    for tool in ("ip", "nft"):
        if not shutil.which(tool):
            return f"{tool} is not installed"
    probe = f"quorl{os.getpid()}-probe"
    if subprocess.run(["ip", "netns", "add", probe], capture_output=True).returncode != 0:
        return "the kernel refuses network namespaces"
    subprocess.run(["ip", "netns", "del", probe], check=True)
    return None


def run(*words):
    subprocess.run(words, check=True)


class Testbed:
    def __init__(self):
        self.prefix = f"quorl{os.getpid()}"
        self.names, self.receivers = [], []

    def build(self, receivers):
        self.switch = self.add("sw")
        run("ip", "-n", self.switch, "link", "add", "bridge", "type", "bridge", "mcast_snooping", "0")
        run("ip", "-n", self.switch, "link", "set", "bridge", "up")
        self.sender = self.plug("tx", SENDER_ADDRESS)
        self.receivers = [self.plug(f"rx{i}", self.address(i)) for i in range(receivers)]

    @staticmethod
    def address(receiver):
        return f"10.66.0.{11 + receiver}"

    def add(self, role):
        name = f"{self.prefix}-{role}"
        run("ip", "netns", "add", name)
        self.names.append(name)
        run("ip", "-n", name, "link", "set", "lo", "up")
        return name

    def plug(self, role, address):
        name = self.add(role)
        port = f"port-{role}"
        run("ip", "-n", self.switch, "link", "add", port, "type", "veth", "peer", "name", "eth0", "netns", name)
        run("ip", "-n", self.switch, "link", "set", port, "master", "bridge", "up")
        run("ip", "-n", name, "addr", "add", f"{address}/24", "dev", "eth0")
        run("ip", "-n", name, "link", "set", "eth0", "up")
        run("ip", "-n", name, "route", "add", "224.0.0.0/4", "dev", "eth0")
        return name

    def lose(self, percent):
        """Each receiver drops this share of the datagrams that reach it."""
        rules = "add table ip loss; delete table ip loss; add table ip loss; " \
                "add chain ip loss input { type filter hook input priority 0; }; " \
                f"add rule ip loss input meta l4proto udp numgen random mod 1000 < {percent * 10} drop"
        for name in self.receivers:
            run("ip", "netns", "exec", name, "nft", rules)

    @staticmethod
    def inside(name):
        """What to put before a command that is to run there."""
        return ("ip", "netns", "exec", name)

    def start(self, room, into, *arguments):
        """A receiver on each machine, in a directory of its own below `into`, and a sender that waits for them all;
        the receivers and the sender."""
        receivers = []
        for number, name in enumerate(self.receivers):
            target = into / str(number)
            target.mkdir(parents=True)
            receivers.append(room.start("receive", target, prefix=self.inside(name)))
            receivers[-1].wait_for("Waiting for a sender")
        return receivers, room.start("send", *arguments, "--wait-for", len(receivers), prefix=self.inside(self.sender))

    def close(self):
        for name in self.names:
            subprocess.run(["ip", "netns", "del", name], check=False)
