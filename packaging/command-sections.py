#!/usr/bin/python3
"""usage: command-sections.py QDMHOST OUTPUT
Writes the man page's COMMANDS and EXIT STATUS sections (a help2man include)
from qdmhost's own help, so that every command, option and exit code the
command table defines is documented: per command what it does, its own
options with their meaning, the global options it reads and the exit codes
it can answer."""
import re
import subprocess
import sys


def help_blocks(qdmhost, words):
    """The first line of `qdmhost WORDS --help` and its "Title:" blocks: {title: [(term, text)]}."""
    text = subprocess.run([qdmhost, *words, "--help"], capture_output=True, text=True, check=True).stdout
    blocks, title = {}, None
    for line in text.splitlines():
        if re.match(r"^\S[^:]*:$", line):
            title = line[:-1].split(" (")[0]
            blocks[title] = []
        elif title and blocks[title] and line.startswith(" " * 10):  # a long option's meaning, on its own line
            name, meaning = blocks[title][-1]
            blocks[title][-1] = (name, (meaning + " " + line.strip()).strip())
        elif title and line.startswith(" ") and line.strip():
            name, _, meaning = line.strip().partition("  ")
            blocks[title].append((name, meaning.strip()))
        elif not line.strip():
            title = None
    return text.splitlines()[0], blocks


def roff(text):
    """TEXT safe as roff running text."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text[:1] in (".", "'") else text


def term(text):
    """An option or argument: its name bold, its value's placeholder italic."""
    name, _, value = text.partition(" ")
    if not name.startswith("-"):
        return "\\fI" + roff(text) + "\\fR"
    return "\\fB" + roff(name) + "\\fR" + (" \\fI" + roff(value) + "\\fR" if value else "")


def exit_codes(items):
    """(code, name, meaning) of the help's "Exit codes" lines ("5  refused   a condition ...")."""
    rows = []
    for code, rest in items:
        name, _, meaning = rest.partition(" ")
        rows.append((code, name, meaning.strip()))
    return rows


def command_section(qdmhost, words):
    summary, blocks = help_blocks(qdmhost, words)
    own = [(t, m) for t, m in blocks.get("Options", []) + blocks.get("Positionals", []) if not t.startswith("-h,")]
    lines = ['.SS "qdmhost %s"' % roff(" ".join(words)), roff(summary)]
    for name, meaning in own:
        lines += [".TP", term(name), roff(meaning)]
    globals_ = [term(t) for t, _ in blocks.get("Global options", [])]
    if globals_:
        lines += [".PP", "Global options: " + ", ".join(globals_) + "."]
    codes = exit_codes(blocks.get("Exit codes", []))
    if codes:
        lines += [".PP", "Exit codes: " + ", ".join("%s \\fB%s\\fR" % (code, roff(name)) for code, name, _ in codes) + "."]
    sections = ["\n".join(lines)]
    for sub, _ in blocks.get("Subcommands", []):
        sections += command_section(qdmhost, words + [sub])
    return sections


def main(qdmhost, output):
    _, blocks = help_blocks(qdmhost, [])
    sections = []
    for command, _ in blocks.get("Subcommands", []):
        sections += command_section(qdmhost, [command])
    status = [".TP\n%s \\fB%s\\fR\n%s" % (code, roff(name), roff(meaning))
              for code, name, meaning in exit_codes(blocks.get("Exit codes", []))]
    with open(output, "w", encoding="utf-8") as out:
        out.write("[COMMANDS]\n" + "\n".join(sections) + "\n\n")
        out.write("[EXIT STATUS]\nThe name of the code is the exitName of every JSON document.\n"
                  + "\n".join(status) + "\n")


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]) if len(sys.argv) == 3 else print(__doc__, file=sys.stderr) or 2)
