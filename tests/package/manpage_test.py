#!/usr/bin/python3
"""Every command, option and exit code (number, name and meaning) that
qdmhost's help shows, its own and each command's, appears in the man page,
each command in a section of its own; neither shows the parser's type words;
each command's help names the global options it reads with their defaults.
    manpage_test.py QDMHOST MANPAGE"""
import re
import subprocess
import sys

qdmhost, manpage = sys.argv[1:3]
page = re.sub(r"\\f[BIRP]|\\&", "", open(manpage, encoding="utf-8").read()).replace("\\-", "-")
JARGON = re.compile(r"\b(TEXT|INT|UINT|FLOAT)\b|in \[\d+ - \d+\]")


def help_items(command):
    """The options, subcommands and exit codes in `qdmhost COMMAND... --help`."""
    text = subprocess.run([qdmhost, *command, "--help"], capture_output=True, text=True, check=True).stdout
    block = lambda title: (re.search(rf"^{title}[^\n]*:\n(.*?)(?:\n\n|\Z)", text, re.S | re.M) or [None, ""])[1]
    subcommands = [line.split()[0] for line in block("Subcommands").splitlines()]
    codes = re.findall(r"^\s+(\d+)\s+([a-z-]+)\s+(.+)$", block("Exit codes"), re.M)
    wrong = [f"{' '.join(command) or 'qdmhost'} --help: {JARGON.search(text).group()}"] if JARGON.search(text) else []
    if command and "--json" not in block("Global options"):
        wrong.append(f"{' '.join(command)} --help: no global options")
    if "(default /opt/velmora/qdm/provider)" not in block("Global options") and command[:1] == ["inventory"]:
        wrong.append("inventory --help: no default of --root")
    return re.findall(r"--[a-z][a-z-]*", text), subcommands, codes, wrong


missing, commands = [], [[]]
while commands:
    command = commands.pop()
    options, subcommands, codes, wrong = help_items(command)
    missing += wrong + [option for option in options if option not in page]
    missing += [" ".join(command + [name]) for name in subcommands
                if not re.search(rf'^\.SS "qdmhost {re.escape(" ".join(command + [name]))}"$', page, re.M)]
    missing += [f"exit code {code} {name}" for code, name, meaning in codes
                if not re.search(rf"^{code} {name}\n{re.escape(meaning)}$", page, re.M)]
    commands += [command + [name] for name in subcommands]
missing += [f"man page: {word.group()}" for word in [JARGON.search(page)] if word]
missing += [f"man page: no {section} section" for section in ("COMMANDS", "JSON OUTPUT", "EXIT STATUS")
            if not re.search(rf'^\.SH "?{section}"?$', page, re.M)]
assert not missing, "not in the man page: " + ", ".join(sorted(set(missing)))
