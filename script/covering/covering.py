#!/usr/bin/python3
"""What script/coverage says of what gcovr has counted; its help is there."""

import argparse
import collections
import json
import os
import re
import sys

NEEDED_LINES = 97.0
NEEDED_BRANCHES = 90.0

Place = collections.namedtuple("Place", "file before lines")
Place.__doc__ = """Lines one after the other that nothing came to: their texts, and the text of the one before."""


class Failure(Exception):
    """What went wrong and what to do, for the user."""


class Source:
    """The lines of a file; numbers count from 1, as gcovr does."""

    def __init__(self, root, file):
        try:
            with open(os.path.join(root, file), encoding="utf-8") as source:
                self.texts = [" ".join(line.split()) for line in source]
        except OSError as error:
            raise Failure(f"{file}: {error.strerror}; it was counted and is gone: run script/coverage again") from None

    def text(self, number):
        return self.texts[number - 1] if number <= len(self.texts) else ""

    def before(self, number):
        """The nearest line before that is not empty; where the file begins, nothing."""
        return next((text for text in reversed(self.texts[: number - 1]) if text), "")


def runs(lines):
    """The numbers of uncovered lines, together where no line that was reached stands between."""
    together = []
    for line in sorted(lines, key=lambda one: one["line_number"]):
        if line["count"]:
            together.append([])
        elif together:
            together[-1].append(line["line_number"])
        else:
            together = [[line["line_number"]]]
    return [numbers for numbers in together if numbers]


def counted_lines(file):
    return [line for line in file["lines"] if not line.get("gcovr/noncode")]


def left_over(counted, root):
    """Each place that nothing came to, with the numbers of its first lines."""
    places = {}
    for file in counted["files"]:
        source = None
        for numbers in runs(counted_lines(file)):
            source = source or Source(root, file["file"])
            texts = tuple(source.text(number) for number in numbers)
            place = Place(file["file"], source.before(numbers[0]), texts)
            places.setdefault(place, []).append(numbers[0])
    return places


def room_of(file):
    """src/ROOM of the library, tools/tessel/ROOM of the tool, whose main file is one of its own."""
    parts = os.path.dirname(file).split("/")
    return "/".join(parts[: 2 if parts[0] == "src" else 3])


class Count:
    """Lines and branches, and how many of them were reached."""

    def __init__(self):
        self.lines = self.reached_lines = self.branches = self.reached_branches = 0

    def add(self, file):
        for line in counted_lines(file):
            self.lines += 1
            self.reached_lines += line["count"] > 0
            for branch in line["branches"]:
                self.branches += 1
                self.reached_branches += branch["count"] > 0

    def shares(self):
        return share(self.reached_lines, self.lines), share(self.reached_branches, self.branches)


def share(reached, all_of_them):
    return 100 * reached / all_of_them if all_of_them else 100.0


def counts(counted):
    rooms = collections.defaultdict(Count)
    for file in counted["files"]:
        for room in (room_of(file["file"]), "all"):
            rooms[room].add(file)
    return rooms


def table(rooms):
    lines = [["room", "lines", "reached", "share", "branches", "reached", "share"]]
    for room in [*sorted(name for name in rooms if name != "all"), "all"]:
        count = rooms[room]
        of_lines, of_branches = count.shares()
        lines.append([room, str(count.lines), str(count.reached_lines), f"{of_lines:.1f} %",
                      str(count.branches), str(count.reached_branches), f"{of_branches:.1f} %"])  # fmt: skip
    widths = [max(len(line[column]) for line in lines) for column in range(len(lines[0]))]
    laid = ([line[0].ljust(widths[0])] + [text.rjust(width) for text, width in zip(line[1:], widths[1:])] for line in lines)
    return "\n".join("  ".join(parts) for parts in laid)


class Named:
    """The places in the list, each with its reason and how often it stands there."""

    def __init__(self, path):
        self.path = path
        self.times = collections.Counter()
        self.reason = ""
        self.place = None
        try:
            with open(path, encoding="utf-8") as file:
                lines = file.read().splitlines()
        except OSError as error:
            raise Failure(f"{path}: {error.strerror}") from None
        for number, line in enumerate([*lines, ""], 1):
            self._take(number, line.rstrip())

    def _take(self, number, line):
        if line.startswith("#"):
            return
        if line.startswith("    "):
            if not self.place:
                self._refuse(number, "a line of code that belongs to no file")
            self.place.append(" ".join(line.split()))
            return
        self._end_place(number)
        if line.startswith("reason: "):
            self.reason = line[len("reason: ") :]
        elif line.startswith("  ") and self.reason:
            pass  # The reason goes on.
        elif not line:
            self.reason = ""
        elif re.match(r"(src|tools)/\S+: ", line + " "):
            if not self.reason:
                self._refuse(number, "a place without a reason")
            self.place = [*line.split(": ", 1)] if ": " in line else [line[:-1], ""]
        else:
            self._refuse(number, "neither a reason nor a place")

    def _end_place(self, number):
        if self.place:
            if len(self.place) < 3:
                self._refuse(number - 1, "a place without a line of code")
            file, before, *lines = self.place
            self.times[Place(file, " ".join(before.split()), tuple(lines))] += 1
            self.place = None

    def _refuse(self, number, fault):
        raise Failure(f"{self.path}:{number}: {fault}; the head of the file tells its form")


def as_entry(place):
    return "\n".join([f"{place.file}: {place.before}".rstrip(), *(f"    {line}" for line in place.lines)])


def unnamed(places, named):
    """The places of which the list names none or too few, with the numbers of the first lines of all of them."""
    return [(place, numbers) for place, numbers in sorted(places.items()) if len(numbers) > named.times[place]]


def outdated(places, named):
    return [place for place, times in sorted(named.times.items()) if times > len(places.get(place, []))]


def judge(counted, named, root):
    """What is wrong, told. True if nothing is."""
    places = left_over(counted, root)
    rooms = counts(counted)
    faults = []
    for place, numbers in unnamed(places, named):
        where = ", ".join(map(str, numbers))
        faults.append(f"{place.file}:{where}: no test comes to, and the list does not name:")
        faults.extend(f"    {line}" for line in place.lines)
    for place in outdated(places, named):
        faults.append(f"{named.path}: tested by now, or another line: take away or look again:")
        faults.extend(f"    {line}" for line in as_entry(place).splitlines())
    of_lines, of_branches = rooms["all"].shares()
    for text, reached, needed in (("lines", of_lines, NEEDED_LINES), ("branches", of_branches, NEEDED_BRANCHES)):
        if reached < needed:
            faults.append(f"{reached:.2f} % of the {text} were reached, {needed:.0f} % have to be")
    left = sum(len(place.lines) * len(numbers) for place, numbers in places.items())
    for line in faults:
        print(line)
    print(table(rooms))
    print(f"{left} lines in {sum(map(len, places.values()))} places were not reached, "
          f"{sum(named.times.values())} places are named with their reason")  # fmt: skip
    return not faults


def main():
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--project", required=True)
    parser.add_argument("--counted", required=True)
    parser.add_argument("--list", required=True)
    parser.add_argument("--entries", action="store_true")
    parser.add_argument("--again", action="store_true")
    arguments = parser.parse_args()
    try:
        named = Named(arguments.list)
        with open(arguments.counted, encoding="utf-8") as file:
            counted = json.load(file)
        if not arguments.entries:
            return 0 if judge(counted, named, arguments.project) else 1
        for place, numbers in unnamed(left_over(counted, arguments.project), named):
            for _ in range(len(numbers) - named.times[place]):
                print(as_entry(place))
        return 0
    except Failure as failure:
        sys.stderr.write(f"script/coverage: {failure}\n")
        return 2
    except BrokenPipeError:
        return 2


if __name__ == "__main__":
    sys.exit(main())
