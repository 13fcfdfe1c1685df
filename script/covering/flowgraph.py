"""Which decisions of a function only clear away what an exception leaves, from the notes that the compiler wrote.

An exception takes a way of its own out of a function, on which the compiler destroys what was made so far. Where that
is half a list it has to ask how far it had come, in the line that makes the list, and the decision is none of that
line: only an exception between two elements leads to it. What stands in a `catch` has lines of its own, or leads back
to where the function goes on, and is not meant.
"""

import collections
import re
import subprocess

EXIT = 1
FAKE = 2
FALL_THROUGH = 4
FUNCTION = re.compile(r" +[0-9a-f]{8}: +\d+:FUNCTION .*`([^']*)'")
BLOCK = re.compile(r" +block (\d+):(.*)")
ARC = re.compile(r"(\d+):([0-9a-f]{4})")
PLACE = re.compile(r"`([^']*)'|(\d+)")


# How many branches a decision has, how many of them are of exceptions, and whether it only clears away.
Decision = collections.namedtuple("Decision", "branches throws clears")


class Function:
    """The blocks of a function, and the arcs between them."""

    def __init__(self):
        # Of a block: where its arcs lead, and the flags of each.
        self.arcs = collections.defaultdict(list)
        # Of a block: its last file, and the last line there, as which gcov counts it.
        self.place = {}

    def add(self, block, text):
        """What gcov-dump says of a block: its lines, or some of its arcs."""
        if "`" not in text:
            self.arcs[block] += [(int(arc[1]), int(arc[2], 16)) for arc in ARC.finditer(text)]
            return
        for piece in PLACE.finditer(text):
            if piece[1]:
                self.place[block] = (piece[1], 0)
            else:
                file, line = self.place[block]
                self.place[block] = (file, max(line, int(piece[2])))

    def decisions(self):
        """By place, in the order in which gcov tells of them."""
        clearing = self._clearing()
        told = collections.defaultdict(list)
        for block, place in sorted(self.place.items()):
            branches = len(self._ways(block))
            if block > EXIT and branches > 1:
                throws = branches - len(self._ways_without_exceptions(block))
                told[place].append(Decision(branches, throws, block in clearing))
        return told

    def _ways(self, block):
        return [target for target, flags in self.arcs[block] if not flags & FAKE]

    def _ways_without_exceptions(self, block):
        # What may not come back is a call, which falls through, or throws.
        is_call = any(flags & FAKE for _, flags in self.arcs[block])
        return [target for target, flags in self.arcs[block]
                if not flags & FAKE and (flags & FALL_THROUGH or not is_call)]  # fmt: skip

    def _clearing(self):
        entry = 0
        usual = reached_from(entry, self._ways_without_exceptions)
        usual_places = {self.place.get(block) for block in usual}
        sources = collections.defaultdict(list)
        for block in list(self.arcs):
            for target in self._ways(block):
                sources[target].append(block)
        returning = reached_from(EXIT, sources.__getitem__)
        return {block for block in reached_from(entry, self._ways) - usual - returning
                if self.place.get(block) in usual_places}  # fmt: skip


def reached_from(begin, ways):
    """All blocks to which ways lead from one, itself included."""
    reached, left = {begin}, [begin]
    while left:
        for target in ways(left.pop()):
            if target not in reached:
                reached.add(target)
                left.append(target)
    return reached


def functions_of(notes):
    """By name, as the linker knows them, and in the order of the file."""
    dump = subprocess.run(["gcov-dump", "-l", notes], capture_output=True, check=True).stdout
    functions = {}
    for line in dump.decode(errors="surrogateescape").splitlines():
        text = line[len(notes) + 1 :]
        begin, block = FUNCTION.match(text), BLOCK.match(text)
        if begin:
            functions[begin[1]] = Function()
        elif block and functions:
            functions[next(reversed(functions))].add(int(block[1]), block[2])
    return functions


class Notes:
    """What the compiler noted of one of its files."""

    def __init__(self, notes):
        self.by_function = {name: function.decisions() for name, function in functions_of(notes).items()}
        self.by_place = collections.defaultdict(list)
        for decisions in self.by_function.values():
            for place, those in decisions.items():
                self.by_place[place] += those

    def clearing(self, function, place, throws):
        """Which branches of a line only clear away, as gcov tells of them: of all functions there, or of one.

        None does where that cannot be told from which branches are those of exceptions.
        """
        for decisions in (self.by_function.get(function, {}).get(place, []), self.by_place.get(place, [])):
            if fits(decisions, throws):
                return [decision.clears for decision in decisions for _ in range(decision.branches)]
        return [False] * len(throws)


def fits(decisions, throws):
    """Whether these are the decisions of a line whose branches are those of exceptions, or are not."""
    begin = 0
    for decision in decisions:
        if sum(throws[begin : begin + decision.branches]) != decision.throws:
            return False
        begin += decision.branches
    return begin == len(throws)
