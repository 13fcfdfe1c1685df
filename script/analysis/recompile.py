#!/usr/bin/env python3
"""Compiles a source as build/check/analysis tells, with further options, and keeps no object.

Usage: script/analysis/recompile.py OPTION... SOURCE
"""
import json
import os
import shlex
import sys

COMMANDS = "build/check/analysis/compile_commands.json"


def main():
    *options, source = sys.argv[1:]
    with open(COMMANDS, encoding="utf-8") as commands:
        found = {os.path.relpath(entry["file"]): entry for entry in json.load(commands)}
    if source not in found:
        sys.exit(f"{source}: is built by no target of the preset dev; name it in a CMakeLists.txt")
    words = shlex.split(found[source]["command"])
    # The last -o is that of the object; ccache would not run the compiler for what it knows.
    words[words.index("-o") + 1] = os.devnull
    os.environ["CCACHE_DISABLE"] = "1"
    os.chdir(found[source]["directory"])
    os.execvp(words[0], words + options)


main()
