#!/usr/bin/env python3
"""The shared library exports what its headers declare and nothing else."""
import re
import subprocess
import sys
from pathlib import Path

from room import BUILD

INCLUDE = Path(__file__).resolve().parents[2] / "include" / "quorl"


def declared(header):
    return set(re.findall(r"^QUORL_EXPORT [^;(]*?(\w+)\s*\(", (INCLUDE / header).read_text(), re.MULTILINE))


def main():
    listing = subprocess.run(["nm", "-D", "--defined-only", BUILD / "libquorl.so"], check=True, capture_output=True,
                             text=True)
    # Type A is the name of the version itself.
    rows = [line.split()[-2:] for line in listing.stdout.splitlines()]
    exported = {name.split("@")[0] for kind, name in rows if kind != "A"}
    own, additions = declared("quorl.h"), declared("host.h")
    faults = [f"declared and not exported: {name}" for name in sorted((own | additions) - exported)]
    faults += [f"exported and not declared: {name}" for name in sorted(exported - own - additions)]
    if len(own) != 13:
        faults.append(f"quorl.h declares {len(own)} functions, not thirteen")
    print("\n".join(faults) or f"{len(exported)} names, as declared")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
