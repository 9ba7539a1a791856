#!/usr/bin/env python3
"""100 MB to three receivers at 400 Mbit/s on loopback: identical files, and no process needs 64 MB."""
import sys

from room import Room, differences, write

SIZE = 100_000_000
MOST_MEMORY = 64_000_000


def main():
    room = Room()
    try:
        write(room.path / "source" / "large.bin", SIZE)
        receivers = [room.receiver(number) for number in (1, 2, 3)]
        sender = room.sender(room.path / "source" / "large.bin", "--rate", "400M", "--wait-for", "3")
        faults = []
        if sender.wait(120) != 0:
            faults.append(f"the sender ended with {sender.code}:\n{sender.output()}")
        for number, receiver in enumerate(receivers, 1):
            if receiver.wait(60) != 0:
                faults.append(f"receiver {number} ended with {receiver.code}:\n{receiver.output()}")
            faults += differences(room.path / "source", room.target(number))
        for command in (sender, *receivers):
            if command.peak_memory >= MOST_MEMORY:
                faults.append(f"{command.arguments[1]} used {command.peak_memory / 1e6:.1f} MB at its peak")
        print(sender.output())
        print("peak memory:", ", ".join(f"{c.arguments[1]} {c.peak_memory / 1e6:.1f} MB" for c in (sender, *receivers)))
        print("\n".join(faults) or "three identical files")
        return 1 if faults else 0
    finally:
        room.close()


if __name__ == "__main__":
    sys.exit(main())
