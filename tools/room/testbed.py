"""A room of network namespaces on one bridge, with loss at the receivers. Needs root, ip and nft."""
import os
import shutil
import subprocess

from root import AS_ROOT, no_root

SENDER_ADDRESS = "10.66.0.1"


def missing():
    """Why there can be no testbed here; None when there can. Only a small one that was made tells."""
    why = no_root()
    if why:
        return why
    for tool in ("ip", "nft"):
        if not shutil.which(tool):
            return f"{tool} is not installed"
    probe = Testbed()
    try:
        probe.build(1)
        probe.lose(1)
        return None
    except Refused as refused:
        return f"network namespaces cannot be made here: {str(refused).replace(probe.prefix, 'quorl')}"
    finally:
        probe.close()


class Refused(Exception):
    """A step of making a testbed that failed, and what was said about it."""


def run(*words):
    done = subprocess.run([*AS_ROOT, *words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        raise Refused(f"{' '.join(words)}: {done.stdout.strip()}")


class Testbed:
    def __init__(self):
        self.prefix = f"quorl{os.getpid()}"
        self.names, self.receivers = [], []

    def build(self, receivers, mtu=1500):
        self.mtu = str(mtu)
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
        run("ip", "-n", self.switch, "link", "add", port, "mtu", self.mtu, "type", "veth",
            "peer", "name", "eth0", "mtu", self.mtu, "netns", name)
        run("ip", "-n", self.switch, "link", "set", port, "master", "bridge", "up")
        run("ip", "-n", name, "addr", "add", f"{address}/24", "brd", "+", "dev", "eth0")
        run("ip", "-n", name, "link", "set", "eth0", "up")
        run("ip", "-n", name, "route", "add", "224.0.0.0/4", "dev", "eth0")
        return name

    def lose(self, percent, of="datagrams"):
        """Each receiver drops this share of the datagrams that reach it, or of the fragments before they are joined."""
        family, hook = {"datagrams": ("ip", "input"), "fragments": ("netdev", 'ingress device "eth0"')}[of]
        rules = "".join(f"add table {old} loss; delete table {old} loss; " for old in ("ip", "netdev"))
        if percent:
            rules += f"add table {family} loss; " \
                     f"add chain {family} loss input {{ type filter hook {hook} priority 0; }}; " \
                     f"add rule {family} loss input ip protocol udp numgen random mod 1000 < {percent * 10:.0f} drop"
        for name in self.receivers:
            run("ip", "netns", "exec", name, "nft", rules)
        # Datagrams that were sent as one are lost one by one: they are cut before they leave.
        run("ip", "-n", self.sender, "link", "set", "eth0", "gso_max_segs", "1" if percent else "65535")

    def lose_frames(self, receiver, percent):
        """The switch loses every so many-th of the frames to one receiver, fragments of datagrams one by one."""
        rules = "add table bridge loss; add chain bridge loss forward { type filter hook forward priority 0; }; " \
                f"add rule bridge loss forward oifname port-rx{receiver} numgen inc mod {100 // percent} 0 drop"
        run("ip", "netns", "exec", self.switch, "nft", rules)

    @staticmethod
    def name(test, machine, names):
        """What one machine calls the others, by address, until the end of a test."""
        directory = f"/etc/netns/{machine}"
        hosts = "".join(f"{address} {name}\n" for address, name in names.items())
        run("mkdir", "-p", directory)
        subprocess.run([*AS_ROOT, "tee", f"{directory}/hosts"], input=hosts.encode(), stdout=subprocess.DEVNULL)
        test.addCleanup(run, "rm", "-r", directory)

    @staticmethod
    def inside(name):
        """What to put before a command that is to run there."""
        return (*AS_ROOT, "ip", "netns", "exec", name)

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

    def end_all(self):
        """Ends every process in the room, those too that were started by others there."""
        for name in self.names:
            inside = subprocess.run([*AS_ROOT, "ip", "netns", "pids", name], capture_output=True, text=True).stdout
            if inside:
                subprocess.run([*AS_ROOT, "kill", "-KILL", *inside.split()], check=False)

    def close(self):
        for name in self.names:
            subprocess.run([*AS_ROOT, "ip", "netns", "del", name], check=False)
