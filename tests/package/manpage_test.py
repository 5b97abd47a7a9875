#!/usr/bin/python3
"""Every command, option and exit code that qdmhost's help shows, its own
and each command's, appears in the man page.
    manpage_test.py QDMHOST MANPAGE"""
import re
import subprocess
import sys

qdmhost, manpage = sys.argv[1:3]
page = re.sub(r"\\f[BIRP]", "", open(manpage, encoding="utf-8").read()).replace("\\-", "-")


def help_items(command):
    """The options, subcommands and exit codes in `qdmhost COMMAND... --help`."""
    text = subprocess.run([qdmhost, *command, "--help"], capture_output=True, text=True, check=True).stdout
    block = lambda title: (re.search(rf"^{title}:\n(.*?)(?:\n\n|\Z)", text, re.S | re.M) or [None, ""])[1]
    subcommands = [line.split()[0] for line in block("Subcommands").splitlines()]
    codes = re.findall(r"^\s+(\d+)\s+(.+)$", block("Exit codes"), re.M)
    return re.findall(r"--[a-z][a-z-]*", text), subcommands, codes


missing, commands = [], [[]]
while commands:
    command = commands.pop()
    options, subcommands, codes = help_items(command)
    missing += [option for option in options if option not in page]
    missing += [" ".join(command + [name]) for name in subcommands
                if not re.search(rf"\b{re.escape(' '.join(command + [name]))}\b", page)]
    missing += [f"exit code {code}" for code, meaning in codes
                if not re.search(rf"^{code}\n{re.escape(meaning)}$", page, re.M)]
    commands += [command + [name] for name in subcommands]
assert not missing, "not in the man page: " + ", ".join(sorted(set(missing)))
