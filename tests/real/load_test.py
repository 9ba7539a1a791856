#!/usr/bin/env python3
"""Transfers under load. load_test.py loss: four receivers that lose 1, 5 and 20 % of what reaches them; flood
[SECONDS]: a stranger there sends to everybody at the full speed of the machine; large: 100 MB at 400 Mbit/s."""
import re
import subprocess
import sys
import time

import testbed
from root import continue_as_root
from room import BUILD, Room, differences, write

SKIPPED = 77
MOST_MEMORY = 64_000_000


def judge(room, sender, receivers, into, may_fail):
    """What is wrong with a transfer: who says that it is complete is so, who is not is named by the sender, where that
    may be, and nobody needs much memory."""
    sender.wait(280)
    said, faults = sender.output(), []
    print(f"--- sender: exit code {sender.code} after {sender.seconds:.1f} s\n{said}", flush=True)
    for number, receiver in enumerate(receivers):
        code, wrong = receiver.wait(60), differences(room.path / "source", into(number))
        if code == 0 and wrong:
            faults.append(f"receiver {number} says complete and is not: {wrong[:5]}")
        if code != 0 and not (may_fail and re.search(
                rf"^{re.escape(testbed.Testbed.address(number))} failed: .*\(status ", said, re.MULTILINE)):
            faults.append(f"receiver {number} ended with {code}\n{receiver.output()}")
    if sender.code != 0 and not may_fail:
        faults.append(f"the sender ended with {sender.code}")
    peaks = [command.peak_memory for command in (sender, *receivers)]
    print("peak memory:", *(f"{peak / 1e6:.1f} MB" for peak in peaks))
    return faults + ["memory" for peak in peaks if peak >= MOST_MEMORY]


def loss(room, bed):
    tree, faults = room.path / "source" / "tree", []
    for name, size in {"large": 12_000_000, **{f"middle/{i}": 300_000 for i in range(20)},
                       **{f"small/{i % 10}/{i}": 10_000 for i in range(200)}}.items():
        write(tree / name, size)
    (tree / "empty").mkdir()
    for percent in (1, 5, 20):
        bed.lose(percent)
        into = room.path / f"at-{percent}"
        receivers, sender = bed.start(room, into, tree)
        faults += judge(room, sender, receivers, lambda number: into / str(number), percent == 20)
    return faults


def flood(room, bed, seconds="5"):
    into, addresses = room.path / "at", [testbed.SENDER_ADDRESS, *map(bed.address, range(len(bed.receivers)))]
    # The stream alone takes as long as the flood.
    write(room.path / "source" / "large", int(seconds) * 2_500_000)
    receivers, sender = bed.start(room, into, room.path / "source" / "large", "--rate", "20M")
    sender.wait_for("Receivers ")
    time.sleep(0.3)
    stranger = bed.inside(bed.plug("stranger", "10.66.0.200"))
    subprocess.run([*stranger, BUILD / "tests" / "flooder", "10.66.0.200", "235.9.2.9", "27001", seconds, *addresses],
                   check=True)
    return judge(room, sender, receivers, lambda number: into / str(number), True)


def large(room, _):
    write(room.path / "source" / "large", 100_000_000)
    receivers = [room.receiver(number) for number in (1, 2, 3)]
    sender = room.sender(room.path / "source" / "large", "--rate", "400M", "--wait-for", "3")
    return judge(room, sender, receivers, lambda number: room.target(number + 1), False)


def main(name, *arguments):
    run, machines = {"loss": (loss, 4), "flood": (flood, 2), "large": (large, 0)}[name]
    why = testbed.missing() if machines else None
    if why:
        print(f"skipped: {why}")
        return SKIPPED
    if machines:
        continue_as_root()
    room, bed = Room(), testbed.Testbed()
    try:
        if machines:
            bed.build(machines)
        faults = run(room, bed, *arguments)
        print("\n".join(faults) or "all trees are as they should be")
        return 1 if faults else 0
    finally:
        room.close()
        bed.close()


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
