#!/usr/bin/env python3
"""Where the processor's time of a process goes, from what perf has recorded of it with `cells.py --profile`: one table
with the share of each kind of work. A sample belongs to the first kind that is anywhere in its stack.

usage: shares.py PERF.DATA...
"""
import collections
import re
import subprocess
import sys
from pathlib import Path

# What the system does for a packet that has just been sent, as far as the receivers' sockets, it does on the time of
# whoever runs.
KINDS = {
    "packets on their way: bridge, receivers' stacks, joining of fragments": r"handle_softirqs",
    "sending: copy, checksum, cutting into fragments": r"udp_sendmsg",
    "receiving: copy, checksum": r"udp_recvmsg|x64_sys_recv",
    "digests, and reading for them": r"libsodium|libxxhash|DigestOf",
    "reading of files": r"x64_sys_p?read",
    "writing of files": r"x64_sys_p?writev?",
    "memory: allocation, page faults": r"\b_int_(malloc|free)|\bc?(malloc|free)\b|unlink_chunk|page_fault",
    "waiting: sleep, poll, wake-ups": r"nanosleep|poll|futex|x64_sys_(read|write).*eventfd|schedule",
    "other calls of the system": r"do_syscall_64|kernel",
    "copies in the program": r"memmove|memcpy|memset",
    "the program itself": r"quorl",
}


def shares(path):
    """The share of each kind, by name."""
    script = subprocess.run(["perf", "script", "--input", path, "--fields", "ip,sym,dso"], stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, text=True, errors="replace", check=True).stdout
    stacks = [stack for stack in script.split("\n\n") if stack.strip()]
    count = collections.Counter(next((kind for kind, pattern in KINDS.items() if re.search(pattern, stack)), "rest")
                                for stack in stacks)
    return {kind: samples / len(stacks) for kind, samples in count.items()}


def main():
    if len(sys.argv) < 2:
        raise SystemExit(__doc__)
    columns = {Path(path).stem: shares(path) for path in sys.argv[1:]}
    print(f"| | {' | '.join(columns)} |", "|---|" + "---|" * len(columns), sep="\n")
    for kind in (*KINDS, "rest"):
        row = [f"{column.get(kind, 0) * 100:.1f} %" for column in columns.values()]
        print(f"| {kind} | {' | '.join(row)} |")


if __name__ == "__main__":
    main()
