#!/usr/bin/env python3
"""Makes manual pages and completion of the programs' own descriptions (PROGRAM --describe).

    make_pages.py OUTPUT VERSION PROGRAM...

OUTPUT gets man1/*.1.gz (a page for each program and each command), bash/PROGRAM, zsh/_PROGRAM and fish/PROGRAM.fish.
"""
import datetime
import gzip
import json
import os
import re
import subprocess
import sys

# Packages that are built twice are the same twice: their build says which day it is.
DATE = datetime.datetime.fromtimestamp(int(os.environ.get("SOURCE_DATE_EPOCH", datetime.datetime.now().timestamp())),
                                       datetime.timezone.utc).date().isoformat()
PORTS = ["uart0", "uart1"] + ["bulk%d" % number for number in range(8)]


def words_of(value):
    """What an option's value may be: a list of words, or "file", or nothing known."""
    if "|" in value:
        return value.split("|")
    return {"PORT": PORTS, "FILE": "file", "PATH": "file", "LINK": "file", "DEVICE": ["sim", "gev://"],
            "LEVEL": ["debug", "info", "warning", "error", "fatal", "off"]}.get(value)


def everything(command):
    """The command and those below it."""
    yield command
    for below in command["commands"]:
        yield from everything(below)


# Manual pages.

def roff(text):
    """A text that the formatter takes as it is."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.M)


def heading(command):
    return command["name"].replace(" ", "-")


def page(command, root, version):
    name = heading(command)
    lines = ['.TH "%s" "1" "%s" "KySerial %s" "User commands"' % (name.upper(), DATE, version), ".SH NAME",
             roff(name) + " \\- " + roff(command["description"]), ".SH SYNOPSIS",
             ".B " + roff(command["name"]), roff(command["syntax"])]
    notes, examples = command["notes"], ""
    match = re.search(r"\n*^Examples?:\n", notes, flags=re.M)
    if match:
        notes, examples = notes[:match.start()], notes[match.end():]
    if notes:
        lines += [".SH DESCRIPTION"]
        for paragraph in notes.split("\n\n"):
            lines += [".PP"] * (lines[-1] != ".SH DESCRIPTION") + [roff(paragraph)]
    if command["arguments"]:
        lines.append(".SH ARGUMENTS")
        for argument in command["arguments"]:
            lines += [".TP", ".B " + roff(argument["value"]), roff(argument["help"])]
    if command["commands"]:
        lines.append(".SH COMMANDS")
        for below in command["commands"]:
            lines += [".TP", ".B " + roff(below["name"]), roff(below["description"])]
    groups = sorted({option["group"] for option in command["options"]}, key=lambda group: (group != "Options", group))
    for group in groups:
        lines.append('.SH "%s"' % group.upper())
        for option in command["options"]:
            if option["group"] == group:
                title = ", ".join("\\fB%s\\fR" % roff(each) for each in option["names"])
                lines += [".TP", title + (" \\fI%s\\fR" % roff(option["value"]) if option["value"] else ""),
                          roff(option["help"])]
    if examples:
        lines += [".SH EXAMPLES", ".nf"] + [roff(line.strip()) for line in examples.splitlines()] + [".fi"]
    others = sorted(heading(other) for other in everything(root) if other is not command and
                    (other is root or other in command["commands"] or command in other["commands"]))
    if others:
        lines += [".SH SEE ALSO"] + [".BR %s (1)%s" % (roff(other), "," if other != others[-1] else "")
                                     for other in others]
    return "\n".join(lines) + "\n"


# Completion.

def options_of(command):
    return [name for option in command["options"] for name in option["names"]]


def identifier(command):
    return re.sub(r"[^a-z0-9]", "_", command["name"])


def bash(root):
    """A function that finds the command among the words, and offers what it takes."""
    name = root["name"]
    function = "_" + identifier(root)
    lines = ["# bash completion for %s" % name, function + "() {",
             "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command=%s index" % name,
             "  local -A below=("]
    for command in everything(root):
        lines.append("    [%s]=%s" % (quoted(command["name"]),
                                      quoted(" ".join(each["name"].split()[-1] for each in command["commands"]))))
    lines += ["  )", "  for ((index = 1; index < COMP_CWORD; index++)); do",
              '    [[ " ${below[$command]} " != *" ${COMP_WORDS[index]} "* ]] || command+=" ${COMP_WORDS[index]}"', "  done",
              '  COMPREPLY=()', '  case "$command $before" in']
    for command in everything(root):
        for option in command["options"]:
            words = words_of(option["value"])
            if not option["value"]:
                continue
            patterns = "|".join(quoted(command["name"] + " " + each) for each in option["names"])
            if words == "file":
                action = 'compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$word")'
            elif words:
                action = 'mapfile -t COMPREPLY < <(compgen -W %s -- "$word")' % quoted(" ".join(words))
            else:
                action = ":"
            lines.append("    %s) %s; return ;;" % (patterns, action))
    lines += ["  esac", '  case "$command" in']
    for command in everything(root):
        offered = [each["name"].split()[-1] for each in command["commands"]]
        files = any(argument["value"] == "FILE" for argument in command["arguments"])
        lines.append("    %s)" % quoted(command["name"]))
        lines.append('      if [[ $word == -* ]]; then mapfile -t COMPREPLY < <(compgen -W %s -- "$word")' %
                     quoted(" ".join(options_of(command))))
        if offered:
            lines.append('      else mapfile -t COMPREPLY < <(compgen -W %s -- "$word")' % quoted(" ".join(offered)))
        elif files:
            lines.append('      else compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$word")')
        lines.append("      fi ;;")
    lines += ["  esac", "}", "complete -F %s %s" % (function, name)]
    return "\n".join(lines) + "\n"


def quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


def zsh(root):
    def text(value):
        return re.sub(r"([\[\]:\\])", r"\\\1", value)

    def argument(option):
        words = words_of(option["value"])
        if not option["value"]:
            return ""
        action = "_files" if words == "file" else "(%s)" % " ".join(words).replace(":", "\\:") if words else " "
        return ":%s:%s" % (text(option["value"].split("|")[0].lower() if "|" in option["value"] else option["value"]), action)

    lines = ["#compdef " + root["name"]]
    for command in everything(root):
        lines += ["_%s() {" % identifier(command), "  local context state line", "  typeset -A opt_args"]
        specs = [quoted("%s[%s]%s" % (each, text(option["help"]), argument(option)))
                 for option in command["options"] for each in option["names"]]
        if command["commands"]:
            specs += ["'1: :->command'", "'*:: :->arguments'"]
        elif any(each["value"] == "FILE" for each in command["arguments"]):
            specs.append("'*:file:_files'")
        else:
            specs.append("'*: :'")
        lines.append("  _arguments -C \\\n    " + " \\\n    ".join(specs))
        if command["commands"]:
            lines += ["  case $state in", "    command)", "      local -a commands=("]
            lines += ["        " + quoted("%s:%s" % (each["name"].split()[-1], text(each["description"])))
                      for each in command["commands"]]
            lines += ["      )", "      _describe command commands ;;", "    arguments)", "      case $line[1] in"]
            lines += ["        %s) _%s ;;" % (each["name"].split()[-1], identifier(each)) for each in command["commands"]]
            lines += ["      esac ;;", "  esac"]
        lines.append("}")
    return "\n".join(lines + ["_%s \"$@\"" % identifier(root)]) + "\n"


def fish(root):
    name = root["name"]
    lines = ["# fish completion for %s" % name, "complete -c %s -f" % name]

    def condition(command):
        words = command["name"].split()[1:]
        if not words and not command["commands"]:
            return []
        parts = ["__fish_seen_subcommand_from " + word for word in words]
        if command["commands"]:
            parts.append("not __fish_seen_subcommand_from " +
                         " ".join(each["name"].split()[-1] for each in command["commands"]))
        return ["-n", quoted("; and ".join(parts))]

    for command in everything(root):
        start = ["complete", "-c", name] + condition(command)
        for each in command["commands"]:
            lines.append(" ".join(start + ["-a", each["name"].split()[-1], "-d", quoted(each["description"])]))
        for option in command["options"]:
            words = words_of(option["value"])
            line = start + [("-l " + each[2:]) if each.startswith("--") else ("-s " + each[1:]) for each in option["names"]]
            if option["value"]:
                line += ["-r"] + (["-F"] if words == "file" else ["-a", quoted(" ".join(words))] if words else [])
            lines.append(" ".join(line + ["-d", quoted(option["help"])]))
        if any(argument["value"] == "FILE" for argument in command["arguments"]):
            lines.append(" ".join(start + ["-F"]))
    return "\n".join(lines) + "\n"


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    data = text.encode("utf-8")
    if path.endswith(".gz"):
        data = gzip.compress(data, mtime=0)  # the same file each time
    with open(path, "wb") as file:
        file.write(data)


def main():
    output, version, programs = sys.argv[1], sys.argv[2], sys.argv[3:]
    for program in programs:
        root = json.loads(subprocess.run([program, "--describe"], check=True, capture_output=True, text=True).stdout)
        for command in everything(root):
            write(os.path.join(output, "man1", heading(command) + ".1.gz"), page(command, root, version))
        name = root["name"]
        write(os.path.join(output, "bash", name), bash(root))
        write(os.path.join(output, "zsh", "_" + name), zsh(root))
        write(os.path.join(output, "fish", name + ".fish"), fish(root))


if __name__ == "__main__":
    main()
