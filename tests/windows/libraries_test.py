#!/usr/bin/env python3
"""The libraries and the command for Windows, unpacked from their zip, as their files say: what they export and import,
what they are. And the example of the README compiles against them. For every architecture named as an argument."""
import re
import subprocess
import sys
import tempfile
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SYSTEM = {"advapi32", "kernel32", "msvcrt", "ntdll", "shell32", "user32", "winmm", "ws2_32"}
OF_COMMAND = {*SYSTEM, "iphlpapi", "quorlhost", "shlwapi"}
FORMATS = {"x86_64": "pei-x86-64", "i686": "pei-i386"}


def declared(header):
    text = (ROOT / "include" / "quorl" / header).read_text()
    return sorted(re.findall(r"^QUORL_EXPORT [^;(]*?(\w+)\s*\(", text, re.MULTILINE))


def run(*command):
    return subprocess.run([str(part) for part in command], check=True, capture_output=True, text=True).stdout


def numbered(names):
    """The numbers that the functions have for good, as far as they are those of the headers."""
    text = (ROOT / "src" / "api" / "QuorlHost.def").read_text()
    numbers = {int(number): name for name, number in re.findall(r"^ +(\w+) @(\d+)$", text, re.MULTILINE)}
    return {number: name for number, name in numbers.items() if name in names}


def check_file(cpu, file, needs, expected=()):
    tables = run(f"{cpu}-w64-mingw32-objdump", "-p", file)
    assert f"file format {FORMATS[cpu]}" in tables, file
    imported = {each.lower().removesuffix(".dll") for each in re.findall(r"DLL Name: (\S+)", tables)}
    assert imported <= needs, (cpu, file, "needs what no Windows brings", imported - needs)
    version = re.search(r"project\(quorl VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text()).group(1)
    for text in (file.name, version):
        assert text.encode("utf-16-le") in file.read_bytes(), (cpu, file, "does not say about itself", text)
    if expected:
        # Ordinals and names, as the export table has them.
        base = int(re.search(r"Ordinal Base\s+(\d+)", tables).group(1))
        names = re.search(r"\[Ordinal/Name Pointer\] Table\n((?:\t\[.*\n)*)", tables).group(1)
        count = int(re.search(r"Export Address Table\s+([0-9a-f]{8})", tables).group(1), 16)
        listed = {base + int(number): name for number, name in re.findall(r"\[\s*(\d+)\] (\S+)", names)}
        assert (listed, count) == (numbered(expected), len(expected)), (cpu, file, listed, count)


def check_example(cpu, unpacked):
    """The first C example under the README's heading for Windows hosts."""
    readme = (ROOT / "README.md").read_text()
    code = re.search(r"^#+ .*Windows host.*?```c\n(.*?)```", readme, re.MULTILINE | re.DOTALL).group(1)
    strict = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Werror", "-I", unpacked / "include"]
    with tempfile.TemporaryDirectory() as directory:
        for compiler, suffix in (("gcc", "c"), ("g++", "cpp")):
            source = Path(directory) / f"example.{suffix}"
            source.write_text(code + "\nint main(void) { return SendImages(NULL) == 1 ? 0 : 1; }\n")
            run(f"{cpu}-w64-mingw32-{compiler}-posix", *strict, source, "-o", source.with_suffix(".exe"),
                "-L", unpacked, "-lQuorl", "-lws2_32")


def main(*cpus):
    own, additions = declared("quorl.h"), declared("host.h")
    assert len(own) == 13, own
    for cpu in cpus:
        packed, = (ROOT / "build" / f"windows-{cpu}" / "packages").glob("*.zip")
        with tempfile.TemporaryDirectory() as directory:
            zipfile.ZipFile(packed).extractall(directory)
            unpacked = Path(directory) / packed.stem
            check_file(cpu, unpacked / "Quorl.dll", SYSTEM, own)
            check_file(cpu, unpacked / "QuorlHost.dll", SYSTEM, own + additions)
            check_file(cpu, unpacked / "quorl.exe", OF_COMMAND)
            check_example(cpu, unpacked)
    print(f"libraries as they should be: {', '.join(cpus)}")


if __name__ == "__main__":
    main(*sys.argv[1:])
