"""Runs what the documents show of a terminal."""

import os
import re
import subprocess

from documents import document

_BLOCK = re.compile(r"(<!-- not run: [^>]+ -->\n)?^```console\n(.*?)^```$", re.S | re.M)


def console_blocks(name):
    """The blocks of a document that are meant to be run."""
    return [block for mark, block in _BLOCK.findall(document(name).text) if not mark]


def steps_of(block):
    """[(command, what it prints)] of a block."""
    steps = []
    for line in block.splitlines(keepends=True):
        if line.startswith("$ "):
            steps.append((line[2:].strip(), ""))
        else:
            command, output = steps.pop()
            steps.append((command, output + line))
    return steps


def environment(**more):
    """The surroundings of the tests without what changes messages."""
    kept = {key: value for key, value in os.environ.items() if not key.startswith("QT_")}
    return {**kept, "LC_ALL": "C.UTF-8", **more}


def run(command, folder, variables):
    """What a command prints, both streams as they come; fails the test that waits too long."""
    result = subprocess.run(
        ["bash", "-c", command],
        cwd=folder,
        env=variables,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        encoding="utf-8",
        timeout=120,
        check=False,
    )
    return result.stdout
