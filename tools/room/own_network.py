#!/usr/bin/env python3
"""Runs a program in a network of its own, with a loopback interface and nothing else: tests that run at the same time
do not hear each other, nor anybody else on this machine. Where no such network can be made they wait for each other.
own_network.py PROGRAM..."""
import fcntl
import os
import sys
from pathlib import Path

from room import works
from root import AS_ROOT, as_user, no_root

NETWORK = (*AS_ROOT, "unshare", "--net")
LOOPBACK = ("ip", "link", "set", "lo", "up")


def main(*program):
    if no_root() is None and works(*NETWORK, *LOOPBACK):
        script = f'{" ".join(LOOPBACK)} && exec "$@"'
        os.execvp(NETWORK[0], [*NETWORK, "sh", "-c", script, "sh", *as_user(), *program])
    # Inherited by the program, and free when the last process that has it is gone.
    lock = os.open(Path(os.environ["QUORL_BUILD"]) / "loopback.lock", os.O_RDWR | os.O_CREAT, 0o600)
    fcntl.flock(lock, fcntl.LOCK_EX)
    os.set_inheritable(lock, True)
    os.execvp(program[0], program)


if __name__ == "__main__":
    main(*sys.argv[1:])
