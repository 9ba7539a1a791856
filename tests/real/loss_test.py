#!/usr/bin/env python3
"""A tree of 20 MB to four receivers in namespaces of their own that lose 1, 5 and 20 % of what reaches them."""
import re
import sys

import testbed
from root import continue_as_root
from room import Room, differences, write

SKIPPED = 77
RECEIVERS = 4


def make_tree(root):
    write(root / "tree" / "large.bin", 12_000_000)
    for i in range(20):
        write(root / "tree" / "middle" / f"{i}.bin", 300_000)
    for i in range(200):
        write(root / "tree" / "small" / f"{i % 10}" / f"{i}.bin", 10_000)
    (root / "tree" / "empty").mkdir()


def transfer(bed, room, percent):
    """One transfer under loss; what is wrong with it."""
    bed.lose(percent)
    into = room.path / f"at-{percent}"
    receivers, sender = bed.start(room, into, room.path / "source" / "tree")
    sender.wait(280)
    said = sender.output()
    print(f"--- {percent} % loss: exit code {sender.code} after {sender.seconds:.1f} s\n{said}", flush=True)
    faults = []
    for i, receiver in enumerate(receivers):
        code = receiver.wait(60)
        wrong = differences(room.path / "source", into / str(i))
        named = re.search(rf"^{re.escape(bed.address(i))} failed: .*\(status ", said, re.MULTILINE)
        if code == 0 and wrong:
            faults.append(f"{percent} %: receiver {i} says complete and is not: {wrong[:5]}")
        elif code != 0 and (percent < 20 or not named):
            faults.append(f"{percent} %: receiver {i} ended with {code}\n{receiver.output()}")
    if percent < 20 and sender.code != 0:
        faults.append(f"{percent} %: the sender ended with {sender.code}")
    return faults


def main():
    why = testbed.missing()
    if why:
        print(f"skipped: {why}")
        return SKIPPED
    continue_as_root()
    room, bed = Room(), testbed.Testbed()
    try:
        bed.build(RECEIVERS)
        make_tree(room.path / "source")
        faults = [fault for percent in (1, 5, 20) for fault in transfer(bed, room, percent)]
        print("\n".join(faults) or "all trees as they should be")
        return 1 if faults else 0
    finally:
        room.close()
        bed.close()


if __name__ == "__main__":
    sys.exit(main())
