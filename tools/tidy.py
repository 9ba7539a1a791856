#!/usr/bin/env python3
"""The rules that a machine can hold: which floor may include which, where an operating system may be named, how long
lines, functions and files may be, which calls and words do not belong here, that links lead somewhere. Prints one line
for each offence."""
import re
import subprocess
import sys
from pathlib import Path

FLOORS = {"platform": 0, "protocol": 1, "files": 2, "coded": 3, "sender": 4, "receiver": 4, "api": 5}
SYSTEM_HEADER = re.compile(
    r"^((sys|netinet|net|arpa|linux|asm|bits)/.*|(unistd|pthread|fcntl|poll|signal|dirent|ifaddrs|sched|pwd|grp|"
    r"netdb|dlfcn|termios|ucontext|semaphore|syslog|mntent|windows|winsock2?|ws2tcpip|mmsystem|shlobj|io|direct|"
    r"process)\.h)$")
# The command does so in one folder an operating system; examples are programs of their own.
# The simulated world needs the machine for one thing, the stacks of its fibers.
COMMAND_SYSTEMS = ("cli/system/posix/", "cli/system/win32/")
OF_ONE_SYSTEM = ("platform/posix/", "platform/win32/")
MAY_NAME_THE_SYSTEM = ("src/platform/posix/", "src/platform/win32/", *COMMAND_SYSTEMS, "tests/", "tools/", "bench/",
                       "examples/", "sim/world/fibers/")
SYSTEM_ERRORS = re.compile(r"\b(errno|strerror|perror)\b")
OTHERS_LIBRARY = re.compile(r"^(CLI|fmt|gtest|gmock|nlohmann|rapidjson|boost)/|^(sodium|utf8proc|xxhash)\.h$")
BANNED_CALL = re.compile(
    r"(?<![\w.>])(?:std::|::)?(s?rand|time|u?sleep|str(?:cpy|cat)|v?sprintf|ato[ifl]|gets)\s*\(")
LONGEST_LINE, LONGEST_FUNCTION, LONGEST_FILE = 120, 70, 500

# Written in pieces, so that this file does not hold what it looks for.
FORBIDDEN = re.compile("|".join([
    r"\bspecifi" + r"cations?\b", r"\bspec" + r"\.md\b", r"\bthe sp" + r"ec\b", r"\bPart [1-5]" + r"\.[0-9]\b",
    r"\bthe se" + r"ed\b",
    r"\bleft to the imp" + r"lementer\b", r"\bdesi" + r"gn\.md\b", r"\btra" + r"ps\.md\b", r"\bissue [A-Z]" + r"\b",
    r"(?:^|[^\w.])/(?:wo" + r"rk|ro" + r"ot|fa" + r"rm)/"]), re.IGNORECASE)
FORBIDDEN_CASED = re.compile(r"\b(?:TO" + r"DO|FIX" + r"ME|X" + r"XX|HA" + r"CK)\b")
NOT_A_FUNCTION = re.compile(
    r"^\s*(namespace|class|struct|enum|union|extern|if|else|for|while|do|switch|case|default|try|catch|return|#)\b|"
    r"^\s*[})]")

offences = []
types = {}


def offend(path, number, text):
    offences.append(f"{path}:{number}: {text}")


def code_lines(text):
    """The lines with comments blanked out and literals emptied, line by line as they were."""
    def blank(match):
        piece = match.group(0)
        if piece[0] in "\"'":
            return piece[0] * 2
        return "\n" * piece.count("\n")
    pattern = r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<![0-9A-Fa-f])\'(?:\\.|[^\'\\\n])*\''
    return re.sub(pattern, blank, text, flags=re.DOTALL).split("\n")


def check_include(path, number, line):
    match = re.match(r'#include ([<"])([^>"]+)', line)
    if not match:
        return
    name = match.group(2)
    if SYSTEM_HEADER.match(name) and not str(path).startswith(MAY_NAME_THE_SYSTEM):
        offend(path, number, f"names the operating system: {name}")
    house, *rest = path.parts
    top = name.split("/")[0]
    if house == "src":
        floor = rest[0]
        if OTHERS_LIBRARY.match(name):
            offend(path, number, f"the library depends on nothing but the language: {name}")
        if match.group(1) == '"':
            if top not in FLOORS:
                offend(path, number, f"not a floor of the house: {name}")
            elif FLOORS[top] > FLOORS[floor] or (FLOORS[top] == FLOORS[floor] and top != floor):
                offend(path, number, f"{floor} does not see {top}: {name}")
    if house == "cli" and not str(path).startswith(COMMAND_SYSTEMS):
        beneath = top == "platform" and str(path).startswith("cli/system/") and not name.startswith(OF_ONE_SYSTEM)
        if match.group(1) == '"' and not beneath and (top != "cli" or name.startswith(COMMAND_SYSTEMS)):
            offend(path, number, f"the command sees the public headers and its own alone: {name}")
        if name in ("cerrno", "csignal"):
            offend(path, number, f"names the operating system: {name}")


def check_functions(path, lines):
    start = 0
    open_functions = []
    for number, line in enumerate(lines, 1):
        stripped = line.strip()
        indent = len(line) - len(line.lstrip())
        while open_functions and stripped.startswith("}") and indent <= open_functions[-1][1]:
            first, _ = open_functions.pop()
            if number - first + 1 > LONGEST_FUNCTION:
                offend(path, first, f"a function of {number - first + 1} lines, {LONGEST_FUNCTION} are allowed")
        if not stripped:
            start = number
            continue
        first_line = lines[start] if start < number else line
        if stripped.endswith("{") and "(" in "".join(lines[start:number]) and not NOT_A_FUNCTION.match(first_line):
            open_functions.append((start + 1, len(first_line) - len(first_line.lstrip())))
        if stripped[-1] in ";{}:" and not stripped.endswith("::"):
            start = number


def check_types(path, lines):
    """One name, one type: the floors share a namespace, and a linker silently takes either of two. The command has a
    namespace of its own, and other names all the same: nobody has to ask which of two is meant."""
    for number, line in enumerate(lines, 1):
        match = re.match(r"(?:class|struct|enum class|enum) (\w+)(?: final)?(?: :.*)? \{", line)
        if match and path.suffix == ".h" and path.parts[0] in ("src", "cli"):
            earlier = types.setdefault(match.group(1), path)
            if earlier != path:
                offend(path, number, f"{match.group(1)} is also a type of {earlier}")


def check_cpp(path, text):
    lines = code_lines(text)
    check_types(path, lines)
    for number, line in enumerate(text.split("\n"), 1):
        check_include(path, number, line)
    for number, line in enumerate(lines, 1):
        call = BANNED_CALL.search(line)
        if call:
            offend(path, number, f"banned call: {call.group(1)}")
        if path.parts[0] == "cli" and not str(path).startswith(COMMAND_SYSTEMS) and SYSTEM_ERRORS.search(line):
            offend(path, number, "the errors of the system have names of the command's own")
    check_functions(path, lines)


def check_links(path, lines):
    for number, line in enumerate(lines, 1):
        for target in re.findall(r"\]\(([^)#]+)[^)]*\)", line):
            if "://" not in target and not (path.parent / target).exists():
                offend(path, number, f"leads nowhere: {target}")


def check(path):
    try:
        text = path.read_text(encoding="utf-8")
    except UnicodeDecodeError:
        return
    is_code = path.suffix in (".cpp", ".h", ".py", ".sh", ".cmake") or path.name in ("dev", "run", "CMakeLists.txt")
    lines = text.split("\n")
    for number, line in enumerate(lines, 1):
        if is_code and len(line) > LONGEST_LINE:
            offend(path, number, f"{len(line)} characters, {LONGEST_LINE} are allowed")
        word = FORBIDDEN.search(line) or FORBIDDEN_CASED.search(line)
        if word and path.name != "LICENSE":
            offend(path, number, f"does not belong here: {word.group(0).strip()}")
    if is_code and len(lines) > LONGEST_FILE + 1:
        offend(path, len(lines), f"{len(lines) - 1} lines, {LONGEST_FILE} are allowed")
    if path.suffix in (".cpp", ".h"):
        check_cpp(path, text)
    if path.suffix == ".md":
        check_links(path, lines)


def check_named_tests(path):
    """Documents name tests as `file` or `file: name`; both must be there."""
    for number, line in enumerate(path.read_text(encoding="utf-8").split("\n"), 1):
        for file, name in re.findall(r"`((?:tests|fuzz)/[\w/]+\.(?:cpp|py))(?:: (\w+))?`", line):
            if not Path(file).is_file() or not re.search(rf"\b{name}\b", Path(file).read_text(encoding="utf-8")):
                offend(path, number, f"there is no test {file} {name}".rstrip())


def main():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], check=True, capture_output=True)
    for name in sorted(set(listed.stdout.decode().split("\0"))):
        if name and Path(name).is_file():
            check(Path(name))
            if name.startswith("docs/"):
                check_named_tests(Path(name))
    print("\n".join(offences) or "nothing to complain about")
    return 1 if offences else 0


if __name__ == "__main__":
    sys.exit(main())
