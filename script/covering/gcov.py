#!/usr/bin/python3
"""gcov as gcovr calls it, which tells of each branch whether it is that of an exception.

gcov 12 tells so only of branches that the run came to, and writes of others that they were never executed. gcovr
cannot leave those out: where nothing came to, each call would count as a decision of which nothing took either way.
What gcov writes as JSON has it of all branches.

Those too are of exceptions that decide what there is to clear away on the way out, which flowgraph.py finds.

Nor does gcovr read a count below zero, which gcov writes now and then: a compiler counts only some of the ways through
a function, gcov works out the others from these, and what a process writes while another of its threads is on its way
does not quite fit together. None was taken less than never, so each such count becomes 0.
"""

import collections
import json
import operator
import re
import subprocess
import sys

from flowgraph import Notes

SEPARATOR = "-" * 18
NUMBERED = re.compile(r" *[^:]+: *(\d+):")
BRANCH = re.compile(r"branch +\d+ ")
NEVER = " never executed"
WORDS = re.compile(r"(branch|call|unconditional|function) ")
BELOW_ZERO = re.compile(r" (taken|called|returned) -[\d.]+")
LINE_BELOW_ZERO = re.compile(r" *-\d+\*?(?=:)")


class Mismatch(Exception):
    """Text and JSON of one run tell of different branches."""


def told_as_json(arguments):
    """For each line of a file, and for each line of a function there: which of its branches are of exceptions."""
    answer = subprocess.run(["gcov", *arguments, "--json-format", "--stdout"], stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, check=True)  # fmt: skip
    counted = next(name for name in arguments if name.endswith((".gcda", ".gcno")))
    notes = Notes(counted[: -len("gcda")] + "gcno")
    told = collections.defaultdict(lambda: collections.defaultdict(set))
    for file in (file for text in answer.stdout.splitlines() for file in json.loads(text)["files"]):
        names = {function["name"]: function["demangled_name"] for function in file["functions"]}
        lines = told[file["file"]]
        for line in file["lines"]:
            throws = [branch["throw"] for branch in line["branches"]]
            clears = notes.clearing(line.get("function_name"), (file["file"], line["line_number"]), throws)
            told_of_line = tuple(map(operator.or_, throws, clears))
            for function in (None, names.get(line.get("function_name"))):
                lines[line["line_number"], function].add(told_of_line)
    return told


class Text:
    """What gcov has written of a file."""

    def __init__(self, path):
        self.path = path
        with open(path, encoding="utf-8", errors="surrogateescape", newline="\n") as text:
            self.lines = text.read().split("\n")
        self.source = self.lines[0].split(":", 3)[-1]

    def amend(self, told):
        """Writes "throw" behind the branches that nothing came to and that are of exceptions."""
        function = number = None
        branches = []
        for index, line in enumerate([*self.lines, SEPARATOR]):
            if BRANCH.match(line):
                branches.append(index)
                continue
            numbered = NUMBERED.match(line)
            if numbered or line == SEPARATOR:
                self._mark(branches, told[number, function])
                branches = []
            if numbered:
                number = int(numbered[1])
            elif line == SEPARATOR:
                # Functions made from one template stand one after the other, each with its name.
                following = self.lines[index + 1] if index + 1 < len(self.lines) else ""
                function = following[:-1] if following.endswith(":") and not NUMBERED.match(following) else None
        with open(self.path, "w", encoding="utf-8", errors="surrogateescape", newline="\n") as text:
            text.write("\n".join(map(without_negatives, self.lines)))

    def _mark(self, branches, told):
        fitting = [throws for throws in told if len(throws) == len(branches)]
        if len(fitting) == 1:
            for index, throws in zip(branches, fitting[0]):
                if throws:
                    self.lines[index] = as_of_exception(self.lines[index])
        elif any(self.lines[index].endswith(NEVER) for index in branches):
            raise Mismatch(f"{self.source}: the branches of line {branches[0] + 1} of {self.path} are {len(branches)}, "
                           f"those told as JSON {sorted(map(len, told))}")  # fmt: skip


def as_of_exception(branch):
    """What gcovr knows a branch of an exception by."""
    return branch.replace(NEVER, " taken 0%").replace(" (fallthrough)", "").replace(" (throw)", "") + " (throw)"


def without_negatives(line):
    """What gcovr takes of a line as gcov writes it."""
    if WORDS.match(line):
        return BELOW_ZERO.sub(r" \1 0", line)
    return LINE_BELOW_ZERO.sub("    #####", line, count=1) if LINE_BELOW_ZERO.match(line) else line


def main(arguments):
    answer = subprocess.run(["gcov", *arguments], stdout=subprocess.PIPE, check=False)
    written = re.findall(r"^Creating '(.*)'$", answer.stdout.decode(errors="surrogateescape"), re.MULTILINE)
    if answer.returncode == 0 and written:
        told = told_as_json(arguments)
        for text in map(Text, written):
            if text.source in told and re.search(r"(^|/)(src|tools)/", text.source):
                text.amend(told[text.source])
    sys.stdout.buffer.write(answer.stdout)
    return answer.returncode


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except Mismatch as mismatch:
        sys.exit(f"gcov.py: {mismatch}")
