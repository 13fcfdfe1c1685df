"""The reader in docs/recording-format.md reads what the tool records.

The environment says where the tool is: TESSEL_TOOL.
"""

import json
import os
import pathlib
import struct
import subprocess
import tempfile
import time
import unittest

import terminal
from documents import document

KEY = f"tesselFormat{os.getpid()}"
TYPES = {
    "int8": ("b", 1), "uint16": ("H", 2), "int32": ("i", 4), "uint64": ("Q", 8), "float": ("f", 4),
    "double": ("d", 8), "boolean": ("?", 1), "bit": ("?", 1),
}
STATES = {0: "valid", 3: "no-input", 9: "timeout"}


def documented_reader():
    """The functions of the listing."""
    (listing,) = document("docs/recording-format.md").blocks("python")
    names = {}
    exec(compile(listing, "docs/recording-format.md", "exec"), names)  # pylint: disable=exec-used
    return names


def decoded(value, image):
    """A value and its state, out of the bytes that begin with it."""
    size = value["size"]
    raw = image[:size]
    if value["type"] == "string":
        content = raw.decode("utf-16-le").partition("\0")[0]
    else:
        (content,) = struct.unpack("<" + TYPES[value["type"]][0], raw)
    (state,) = struct.unpack("<i", image[size:size + 4]) if value["stateSize"] else (0,)
    return (None if state else content), state


def values_in(values, image):
    place = 0
    found = {}
    for value in values:
        count = value["size"] + value["stateSize"]
        found[value["url"]] = decoded(value, image[place:place + count])
        place += count
    assert place == len(image)
    return found


def description():
    leaves = {}
    offset = 0
    for name in (*TYPES, "string"):
        size = 16 if name == "string" else TYPES[name][1]
        leaf = {"type": name, "displayPosition": offset, "offsetSharedMemory": offset,
                "sizeValue": size}
        if name == "bit":
            leaf["bitmask"] = 4
            offset += size
        else:
            leaf |= {"relativeOffsetMetadata": size, "sizeMetadata": 4}
            offset += size + 4
        leaves[name] = leaf
    # In one byte with the other bit.
    leaves["neighbour"] = {**leaves["bit"], "bitmask": 8}
    return {
        "type": "treenode", "keyProcessDataMemory": KEY, "sizeOfSharedMemory": offset,
        "doubleBuffer": True, "displayPosition": 1,
        "value": {"n": {"type": "treenode", "value": leaves}},
    }


class RecordingFormat(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.scratch.cleanup)
        cls.folder = pathlib.Path(cls.scratch.name)
        cls.path = cls.folder / "n.rec"
        (cls.folder / "n.process.json").write_text(json.dumps(description()), encoding="utf-8")
        cls.record()
        cls.data = cls.path.read_bytes()
        cls.reader = documented_reader()

    @classmethod
    def tool(cls, *arguments):
        return subprocess.run(
            [os.environ["TESSEL_TOOL"], *arguments], cwd=cls.folder, check=True, encoding="utf-8",
            env=terminal.environment(), stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60,
        ).stdout

    @classmethod
    def record(cls):
        """Sets of one recorder, each seen before the next one comes, then one of another run."""
        holder = subprocess.Popen(
            [os.environ["TESSEL_TOOL"], "hold", "n.process.json"], cwd=cls.folder,
            env=terminal.environment(), stdout=subprocess.PIPE, encoding="utf-8",
        )
        try:
            holder.stdout.readline()
            cls.record_run()
            cls.tool("set", "n.process.json", "n/double", "0.1")
            cls.tool("record", "n.process.json", "-o", "n.rec", "--append", "--sets", "1")
        finally:
            holder.terminate()
            holder.wait(timeout=60)
            holder.stdout.close()

    @classmethod
    def record_run(cls):
        steps = (
            ("n/int8", "-5", "n/uint64", "18446744073709551615"), ("n/neighbour", "true"),
            ("n/float", "0.25"), ("n/float", "--error", "timeout"),
            ("n/bit", "true", "n/string", "häß"),
            ("n/boolean", "true", "n/uint16", "65535", "n/int32", "-70000"),
        )
        recorder = subprocess.Popen(
            [os.environ["TESSEL_TOOL"], "record", "n.process.json", "-o", "n.rec", "--sets",
             str(len(steps) + 1)],
            cwd=cls.folder, env=terminal.environment(), stderr=subprocess.PIPE, encoding="utf-8",
        )
        try:
            for count, step in enumerate(steps):
                cls.await_sets(count + 1, recorder)
                cls.tool("set", "n.process.json", *step)
            recorder.communicate(timeout=60)
        finally:
            recorder.kill()
            recorder.communicate()

    @classmethod
    def await_sets(cls, count, recorder):
        """Until so many are in the file, which grows record by record."""
        end = time.monotonic() + 60
        while not cls.path.exists() or len(cls.sets_in(cls.path.read_bytes())) < count:
            if recorder.poll() is not None or time.monotonic() > end:
                raise AssertionError(f"no {count} sets were recorded")
            os.sched_yield()

    @staticmethod
    def sets_in(data):
        try:
            return list(documented_reader()["sets"](data))
        except ValueError:
            return []

    def test_documented_reader_reads_what_export_prints(self):
        lines = [json.loads(line) for line in self.tool("export", "--json", "n.rec").splitlines()]
        sets = list(self.reader["sets"](self.data))
        self.assertEqual(len(sets), 8)
        self.assertEqual(len(lines), len(sets))
        for line, (values, facts, image) in zip(lines, sets, strict=True):
            self.assertEqual([line["run"], line["generation"], line["dropped"]], list(facts[:3]))
            self.assertAlmostEqual(line["elapsed"], facts[4] / 1e6, 6)
            found = values_in(values, image)
            self.assertEqual(line["values"], {url: value for url, (value, _) in found.items()})
            states = {url: STATES[state] for url, (_, state) in found.items() if state}
            self.assertEqual(line["states"], states)

    def test_values_are_those_that_were_set(self):
        *_, (values, facts, image) = self.reader["sets"](self.data)
        self.assertEqual(facts[0], 2)
        found = values_in(values, image)
        self.assertEqual(found["n/uint64"], (18446744073709551615, 0))
        self.assertEqual(found["n/int32"], (-70000, 0))
        self.assertEqual(found["n/float"], (None, 9))
        self.assertEqual(found["n/string"], ("häß", 0))
        self.assertEqual(found["n/bit"], (True, 0))
        self.assertEqual(found["n/double"], (0.1, 0))

    def test_first_records_tell_what_is_recorded(self):
        kinds = [(kind, content) for kind, content in self.reader["records"](self.data)]
        self.assertEqual([kind for kind, _ in kinds], [1, 2, 3, 4, *[5] * 6, 7, 3, 4, 7])
        head = json.loads(kinds[0][1])
        self.assertEqual(set(head), {"key", "fingerprint", "started", "urls", "interval", "values"})
        self.assertEqual(head["key"], KEY)
        carried = json.loads(kinds[1][1])
        self.assertEqual(carried["value"], description()["value"])
        end = json.loads(kinds[10][1])
        self.assertEqual(set(end), {"time", "reason", "sets", "dropped"})

    def test_cut_at_every_byte_reads_up_to_its_last_whole_set(self):
        whole = list(self.reader["sets"](self.data))
        counts = []
        for size in range(16, len(self.data)):
            sets = list(self.reader["sets"](self.data[:size]))
            self.assertEqual(sets, whole[:len(sets)])
            counts.append(len(sets))
        self.assertEqual(counts, sorted(counts))
        self.assertEqual(set(counts), set(range(len(whole) + 1)))


if __name__ == "__main__":
    unittest.main()
