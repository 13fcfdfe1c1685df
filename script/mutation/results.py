"""What became of each change: kept line by line while a run goes on, and told as a table."""

import json
import re

import rewriting
from scanning import room_of

NOTICED = ("killed", "timeout", "listed")


class Results:
    """A file of a JSON object a line, the last one of an id holds. The first tells of the run."""

    def __init__(self, path):
        self.path = path
        self.run = {}
        self.by_id = {}

    def load(self):
        try:
            with open(self.path, encoding="utf-8") as file:
                for line in file:
                    self._take(line)
        except OSError:
            pass
        return self

    def _take(self, line):
        try:
            entry = json.loads(line)
        except ValueError:
            return  # of a run that was killed over it
        if "id" in entry:
            self.by_id[entry["id"]] = entry
        else:
            self.run = entry

    def begin(self, run):
        self.run = run
        self.by_id = {}
        with open(self.path, "w", encoding="utf-8") as file:
            file.write(json.dumps(run) + "\n")

    def add(self, place, result, **more):
        entry = {
            "id": place.id, "file": place.file, "line": place.line, "function": place.function,
            "kind": place.kind, "change": place.change, "result": result, **more,
        }  # fmt: skip
        self.by_id[place.id] = entry
        with open(self.path, "a", encoding="utf-8") as file:
            file.write(json.dumps(entry) + "\n")


class Equivalents:
    """The changes that were looked at and change nothing: script/mutation/equivalent.txt.

    An entry is known by file, function and change. It counts as long as the function reads as it did when
    somebody looked at it; its text says which that was.
    """

    FIELDS = ("file", "function", "text", "change", "reason")

    def __init__(self, path):
        self.entries = {}
        self.used = set()
        self.stale = []
        try:
            with open(path, encoding="utf-8") as file:
                blocks = re.split(r"\n\s*\n", file.read())
        except OSError:
            return
        for block in blocks:
            fields, last = {}, ""
            for line in block.splitlines():
                found = re.match(r"(\w+): (.*)", line)
                if line.startswith("#"):
                    continue
                if found and found[1] in (*self.FIELDS, "occurrence"):
                    last = found[1]
                    fields[last] = found[2]
                elif last and line.startswith("  "):
                    fields[last] += " " + line.strip()
                else:
                    raise ValueError(f"{path}: cannot take the line '{line}'")
            if fields:
                missing = [name for name in self.FIELDS if not fields.get(name)]
                if missing:
                    raise ValueError(f"{path}: an entry has no {missing[0]}: {fields}")
                self.entries[self._key(fields)] = fields

    @staticmethod
    def _key(fields):
        return fields["file"], fields["function"], fields["change"], int(fields.get("occurrence", 1))

    def reason(self, place):
        """None if nobody has looked at it, or the function is another one by now."""
        key = (place.file, place.function, place.change, place.occurrence)
        entry = self.entries.get(key)
        if entry is None:
            return None
        if entry["text"] != place.shape:
            self.stale.append(entry)
            return None
        return entry["reason"]


def as_entry(place):
    """What somebody who looked at the change writes down, without the reason."""
    lines = [f"file: {place.file}", f"function: {place.function}", f"text: {place.shape}", f"change: {place.change}"]
    if place.occurrence > 1:
        lines.append(f"occurrence: {place.occurrence}")
    return "\n".join(lines + ["reason: "])


def count(chosen, results, equivalents):
    """A row a room and one of all: changed, killed, listed, survived, equivalent, unreached, open."""
    rows = {}
    survivors = []
    columns = ("changes", "killed", "listed", "survived", "equivalent", "unreached", "open")
    for place in chosen:
        entry = results.by_id.get(place.id)
        reason = equivalents.reason(place)
        if entry is not None and entry["result"] in NOTICED:
            state = "listed" if entry["result"] == "listed" else "killed"
        elif reason is not None:
            state = "equivalent"
        elif entry is None:
            state = "open"
        else:
            state = entry["result"]
            survivors.append((place, entry))
        for room in (room_of(place.file), "all"):
            row = rows.setdefault(room, dict.fromkeys(columns, 0))
            row["changes"] += 1
            row[state] += 1
    return rows, survivors


def share(row):
    """The killed and the listed ones among those that change anything, in per cent; None of nothing."""
    noticed = row["killed"] + row["listed"]
    judged = noticed + row["survived"] + row["unreached"]
    return 100 * noticed / judged if judged else None


def table(rows):
    titles = ["room", "changes", "killed", "listed", "survived", "equivalent", "unreached", "open", "share"]
    lines = [titles]
    for room in [*sorted(r for r in rows if r != "all"), "all"]:
        row = rows[room]
        part = share(row)
        lines.append([room, *(str(row[t]) for t in titles[1:-1]), "-" if part is None else f"{part:.1f} %"])
    widths = [max(len(line[i]) for line in lines) for i in range(len(titles))]
    laid = ([line[0].ljust(widths[0])] + [t.rjust(w) for t, w in zip(line[1:], widths[1:])] for line in lines)
    return "\n".join("  ".join(parts) for parts in laid)


def tell_survivors(survivors, root):
    texts = []
    for place, entry in sorted(survivors, key=lambda item: (item[0].file, item[0].start)):
        with open(f"{root}/{place.file}", "rb") as file:
            diff = rewriting.shown(file.read(), place)
        known = f"{entry['result']}, {entry.get('reaching', 0)} tests reach it"
        texts.append(f"{diff}\n    {known}\n    {place.id}")
    return "\n\n".join(texts)
