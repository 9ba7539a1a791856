#!/usr/bin/env python3
"""What tshark says of a capture by tools/wireshark/quorl.lua is what was sent: every field of every datagram."""
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from room import BUILD

SCRIPT = Path(__file__).resolve().parents[2] / "tools" / "wireshark" / "quorl.lua"
SKIPPED = 77
CODES = 24


def parse(line):
    """A line of the log: the name of the datagram, and the texts of each field that it has."""
    name, _, rest = line.partition(" ")
    fields = {}
    for field, value in re.findall(r'([a-z][a-z ]*)=("[^"]*"|[0-9a-f]+)', rest):
        fields.setdefault("quorl." + field.replace(" ", "_"), []).append(value.strip('"').replace("\\x5C", "\\"))
    return name, fields


def dissect(capture, keys):
    columns = [argument for key in ("quorl.code", *keys) for argument in ("-e", key)]
    shown = subprocess.run(["tshark", "-X", f"lua_script:{SCRIPT}", "-r", capture, "-T", "fields", "-E", "separator=|",
                            "-E", "occurrence=a", "-E", "aggregator=;", "-o", "data.show_as_text:FALSE", *columns],
                           check=True, capture_output=True, text=True)
    return [row.split("|") for row in shown.stdout.splitlines()]


def main():
    if not shutil.which("tshark"):
        print("skipped: tshark is not installed")
        return SKIPPED
    with tempfile.TemporaryDirectory() as folder:
        capture = Path(folder) / "capture.pcap"
        subprocess.run([BUILD / "sim" / "sim", "capture", capture], check=True)
        sent = [parse(line) for line in Path(f"{capture}.log").read_text().splitlines()]
        keys = sorted({key for _, fields in sent for key in fields})
        rows = dissect(capture, keys)
    faults = [] if len(rows) == len(sent) else [f"{len(sent)} datagrams were sent, {len(rows)} are shown"]
    names = {}
    for number, ((name, fields), row) in enumerate(zip(sent, rows), 1):
        names.setdefault(name, row[0])
        wanted = [names[name], *(";".join(fields.get(key, [])) for key in keys)]
        if row != wanted:
            wrong = [f"{key} {got[:60]!r} for {want[:60]!r}"
                     for key, got, want in zip(("quorl.code", *keys), row, wanted) if got != want]
            faults.append(f"datagram {number}, {name}: " + ", ".join(wrong))
    if len(set(names.values())) != CODES:
        faults.append(f"of {CODES} datagrams these occur: {', '.join(names)}")
    print("\n".join(faults[:20]) or f"{len(rows)} datagrams of {len(names)} kinds, as sent")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
