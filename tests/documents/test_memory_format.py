"""The program in docs/memory-format.md gives the fingerprint that a region has.

The environment says where the tool is: TESSEL_TOOL.
"""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

from documents import document

REFERENCE = document("docs/memory-format.md")
KEY = f"tesselFingerprint{os.getpid()}"


def leaf(kind, offset, size, **more):
    return {"type": kind, "displayPosition": 1, "offsetSharedMemory": offset, "sizeValue": size,
            "relativeOffsetMetadata": 0, "sizeMetadata": 0, **more}


class Fingerprint(unittest.TestCase):
    def setUp(self):
        (listing,) = REFERENCE.blocks("python")
        self.printed = subprocess.run([sys.executable, "-c", listing], capture_output=True, text=True,
                                      check=True, env={**os.environ, "PYTHONUTF8": "1"}).stdout.strip()

    def test_is_the_one_that_the_text_promises(self):
        self.assertEqual(re.search(r"which gives `(\w+)`:\n\n```python", REFERENCE.text)[1], self.printed)

    def test_is_the_one_in_the_memory(self):
        place = int(re.search(r"^\| (\d+) \| 8 \| `fingerprint` \|", REFERENCE.text, re.M)[1])
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "f.process.json")
            path.write_text(json.dumps({
                "type": "treenode", "keyProcessDataMemory": KEY, "sizeOfSharedMemory": 24, "doubleBuffer": True,
                "value": {
                    "B": leaf("bit", 16, 1, bitmask=5),
                    "a": leaf("int32", 0, 4, relativeOffsetMetadata=4, sizeMetadata=4),
                    "node": {"type": "treenode", "displayPosition": 1, "value": {"grün": leaf("double", 8, 8)}},
                }}), encoding="utf-8")
            holder = subprocess.Popen([os.environ["TESSEL_TOOL"], "hold", path], stdout=subprocess.PIPE)
            try:
                holder.stdout.readline()
                (segment,) = pathlib.Path("/dev/shm").glob(f"{KEY}*")
                memory = segment.read_bytes()
            finally:
                holder.terminate()
                holder.communicate(timeout=60)
        self.assertEqual(f"{int.from_bytes(memory[place:place + 8], sys.byteorder):x}", self.printed)


if __name__ == "__main__":
    unittest.main()
