#!/usr/bin/env python3
"""Manual pages and completion from the command's own table of options, so that neither can say what it does not do.

usage: generate.py OPTIONS.json TEMPLATES OUTPUT

A page is a template. In it a line "@options send@" stands for the options of that command, "@exit@" for the exit codes,
"@environment@" for the variables, "@include FILE@" for another template, and @version@ for the version.
"""
import json
import re
import sys
from pathlib import Path

import completion


def roff(text):
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("...", "\\&...")
    return "\\&" + text if text.startswith((".", "'")) else text


def option_names(option):
    names = ", ".join(f"\\fB{roff(name)}\\fR" for name in (option["short"], option["name"]) if name)
    return names + (f" \\fI{roff(option['argument'])}\\fR" if option["argument"] else "")


def options(table, command):
    row = next(row for row in table["commands"] if row["name"] == command)
    return "\n".join(f".TP\n{option_names(option)}\n{roff(option['help'])}." for option in row["options"])


def exit_codes(table):
    return "\n".join(f".TP\n{row['code']}\n{roff(row['meaning'])}." for row in table["exit_codes"])


def environment(table):
    names = {option["environment"]: option["name"] for row in table["commands"] for option in row["options"]}
    return ",\n".join(f"\\fB{name}\\fR" for name in sorted(names)) + "."


def page(table, folder, name):
    text = (folder / name).read_text()
    text = re.sub(r"(?m)^@include (\S+)@$", lambda match: page(table, folder, match[1]).rstrip("\n"), text)
    text = re.sub(r"(?m)^@options (\w+)@$", lambda match: options(table, match[1]), text)
    text = text.replace("@exit@", exit_codes(table)).replace("@environment@", environment(table))
    return text.replace("@version@", table["version"])


def main():
    table, folder, output = json.loads(Path(sys.argv[1]).read_text()), Path(sys.argv[2]), Path(sys.argv[3])
    output.mkdir(parents=True, exist_ok=True)
    for template in folder.glob("*.1.in"):
        (output / template.stem).write_text(page(table, folder, template.name))
    for name, text in completion.scripts(table).items():
        (output / name).write_text(text)


if __name__ == "__main__":
    main()
