#!/usr/bin/env python3
"""A transfer in namespaces of its own, and a stranger there that floods sender and receivers at the full speed of the
machine. flood_test.py [SECONDS], 5 if not said. Prints what everybody's memory was meanwhile."""
import subprocess
import sys
import time

import testbed
from root import continue_as_root
from room import BUILD, Room, differences, write

SKIPPED = 77
RECEIVERS = 2
GROUP, PORT = "235.9.2.9", 27001
MOST_MEMORY = 64  # MB for each process


def memory(command):
    """What it holds at this moment, in MB; None when it has ended."""
    try:
        with open(f"/proc/{command.process.pid}/status", encoding="ascii") as status:
            return next(int(line.split()[1]) / 1024 for line in status if line.startswith("VmRSS"))
    except (OSError, StopIteration):
        return None


def flood(bed, everybody, seconds):
    """For each process its memory over time; the stranger's own report."""
    stranger = bed.plug("stranger", "10.66.0.200")
    addresses = ["10.66.0.200", GROUP, str(PORT), str(seconds), testbed.SENDER_ADDRESS,
                 *(bed.address(i) for i in range(RECEIVERS))]
    flooder = subprocess.Popen([*bed.inside(stranger), str(BUILD / "tests" / "flooder"), *addresses],
                               stdout=subprocess.PIPE, text=True)
    held = {name: [] for name in everybody}
    while flooder.poll() is None:
        for name, command in everybody.items():
            held[name].append(memory(command))
        time.sleep(seconds / 100)
    return held, flooder.stdout.read().strip()


def judge(room, bed, sender, receivers, held):
    said = sender.output()
    faults = []
    for i, receiver in enumerate(receivers):
        code = receiver.wait(60)
        wrong = differences(room.path / "source", room.path / "at" / str(i))
        if code == 0 and wrong:
            faults.append(f"receiver {i} says complete and is not: {wrong[:5]}")
        if code != 0 and "(status " not in said:
            faults.append(f"receiver {i} ended with {code} and the sender does not say why\n{receiver.output()}")
        print(f"receiver {i} at {bed.address(i)}: exit code {code}, {'identical' if not wrong else 'incomplete'}")
    for name, values in held.items():
        known = [value for value in values if value is not None]
        tenths = " ".join(f"{value:.1f}" for value in known[::max(1, len(known) // 10)])
        print(f"{name}: at most {max(known):.1f} MB; over time {tenths}")
        if max(known) > MOST_MEMORY:
            faults.append(f"{name} held {max(known):.1f} MB")
    return faults


def main():
    why = testbed.missing()
    if why:
        print(f"skipped: {why}")
        return SKIPPED
    continue_as_root()
    seconds = int(sys.argv[1]) if len(sys.argv) > 1 else 5
    room, bed = Room(), testbed.Testbed()
    try:
        bed.build(RECEIVERS)
        # The stream alone takes as long as the flood.
        for i in range(10):
            write(room.path / "source" / "tree" / f"{i}.bin", seconds * 250_000)
        receivers, sender = bed.start(room, room.path / "at", room.path / "source" / "tree", "--rate", "20M")
        sender.wait_for("Receivers ")
        time.sleep(0.3)
        everybody = {"sender": sender, **{f"receiver {i}": receiver for i, receiver in enumerate(receivers)}}
        held, report = flood(bed, everybody, seconds)
        print(f"the stranger sent {report}", flush=True)
        sender.wait(280)
        print(f"sender: exit code {sender.code} after {sender.seconds:.1f} s\n{sender.output()}")
        faults = judge(room, bed, sender, receivers, held)
        print("\n".join(faults) or "the transfer ended as it must")
        return 1 if faults else 0
    finally:
        room.close()
        bed.close()


if __name__ == "__main__":
    sys.exit(main())
