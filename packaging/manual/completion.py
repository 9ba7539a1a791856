"""Completion for bash, zsh and fish. A value is completed by what it is: file, directory, interface, choice."""

INTERFACES = "command ls /sys/class/net 2>/dev/null"


def names(option):
    return [name for name in (option["short"], option["name"]) if name]


def choices(option):
    return option["argument"].replace("|", " ")


def takes(command):
    """What stands behind the options: a path to send, a directory, or nothing."""
    return {"send": "file", "receive": "directory"}.get(command["name"], "none")


# --- bash
BASH_VALUE = {"file": "compopt -o default", "directory": "compopt -o dirnames", "text": ":", "none": ":",
              "interface": f'words=$({INTERFACES})'}

BASH = """\
# Completion of quorl for bash.
_quorl() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}} words=
  COMPREPLY=()
  if [ "$COMP_CWORD" -eq 1 ]; then
    words="{commands} --help --version"
  else
    case $previous in
{values}
      *)
        case "${{COMP_WORDS[1]}} $current" in
{options}
{positionals}
        esac
        ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}}
complete -F _quorl quorl
"""


def bash_value(option):
    return f'words="{choices(option)}"' if option["kind"] == "choice" else BASH_VALUE[option["kind"]]


def bash(table):
    values, options, positionals = {}, [], []
    for command in table["commands"]:
        for option in command["options"]:
            if option["argument"]:
                values.setdefault(bash_value(option), {}).update(dict.fromkeys(names(option)))
        every = " ".join(option["name"] for option in command["options"])
        options.append(f'          "{command["name"]} -"*) words="{every} --help" ;;')
        positionals.append(f'          "{command["name"]} "*) {BASH_VALUE[takes(command)]} ;;')
    return BASH.format(commands=" ".join(command["name"] for command in table["commands"]),
                       values="\n".join(f"      {' | '.join(each)}) {action} ;;" for action, each in values.items()),
                       options="\n".join(options), positionals="\n".join(positionals))


# --- zsh
ZSH_VALUE = {"file": "_files", "directory": "_files -/", "text": " ", "interface": "_net_interfaces"}

ZSH = """\
#compdef quorl
# Completion of quorl for zsh.
_quorl() {{
  if (( CURRENT == 2 )); then
    local -a commands=(
{commands}
    )
    _describe command commands
    return
  fi
  local command=$words[2]
  shift words
  (( CURRENT-- ))
  case $command in
{cases}
  esac
}}
_quorl "$@"
"""


def zsh_text(text):
    for letter in "\\[]:":
        text = text.replace(letter, "\\" + letter)
    return text.replace("'", "'\\''")


def zsh_option(option):
    value = f"({choices(option)})" if option["kind"] == "choice" else ZSH_VALUE.get(option["kind"], "")
    what = "value" if option["kind"] == "choice" else option["argument"].replace("|", " or ")
    action = f":{what}:{value}" if option["argument"] else ""
    both = " ".join(names(option))
    return " ".join(f"'({both}){name}[{zsh_text(option['help'])}]{action}'" for name in names(option))


def zsh(table):
    commands = [f"      '{command['name']}:{zsh_text(command['summary'])}'" for command in table["commands"]]
    cases = []
    for command in table["commands"]:
        rows = [zsh_option(option) for option in command["options"]] + ["'--help[tell what there is]'"]
        if takes(command) != "none":
            rows.append(f"'*:{takes(command)}:{ZSH_VALUE[takes(command)]}'")
        cases.append(f"    {command['name']})\n      _arguments " + " \\\n        ".join(rows) + "\n      ;;")
    return ZSH.format(commands="\n".join(commands), cases="\n".join(cases))


# --- fish
FISH_FIRST = "complete -c quorl -n __fish_use_subcommand"
FISH_VALUE = {"file": "-r -F", "directory": "-x -a '(__fish_complete_directories)'", "text": "-x",
              "interface": f"-x -a '({INTERFACES})'", "none": ""}


def fish_text(text):
    return "'" + text.replace("\\", "\\\\").replace("'", "\\'") + "'"


def fish(table):
    lines = ["# Completion of quorl for fish.", "complete -c quorl -f",
             f"{FISH_FIRST} -l version -d 'tell the version'"]
    for command in table["commands"]:
        inside = f"complete -c quorl -n '__fish_seen_subcommand_from {command['name']}'"
        lines.append(f"{FISH_FIRST} -a {command['name']} -d {fish_text(command['summary'])}")
        if takes(command) != "none":
            lines.append(f"{inside} {'-F' if takes(command) == 'file' else FISH_VALUE['directory'][3:]}")
        for option in command["options"]:
            value = f"-x -a '{choices(option)}'" if option["kind"] == "choice" else FISH_VALUE[option["kind"]]
            short = f"-s {option['short'][1:]} " if option["short"] else ""
            lines.append(" ".join(f"{inside} {short}-l {option['name'][2:]} {value}".split(" ")).rstrip()
                         + f" -d {fish_text(option['help'])}")
    return "\n".join(lines) + "\n"


def scripts(table):
    return {"quorl.bash": bash(table), "_quorl": zsh(table), "quorl.fish": fish(table)}
