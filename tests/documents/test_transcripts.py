"""What the guide shows of the tool is what it prints, on a copy of the examples.

The environment says where the tool is: TESSEL_TOOL.
"""

import os
import pathlib
import re
import shutil
import tempfile
import unittest

import terminal
from sources import PROJECT
from test_commands import RUN


class Transcripts(unittest.TestCase):
    def test_tool_prints_what_the_guide_shows(self):
        checked = 0
        for name, test in RUN.items():
            if test.endswith("test_transcripts.py"):
                checked += self.run_document(name)
        self.assertGreater(checked, 5)

    def run_document(self, name):
        """Each document begins with fresh examples; its blocks follow one another."""
        tool = pathlib.Path(os.environ["TESSEL_TOOL"]).parent
        variables = terminal.environment(PATH=f"{tool}:{os.environ['PATH']}")
        checked = 0
        with tempfile.TemporaryDirectory() as folder:
            shutil.copytree(PROJECT / "examples", pathlib.Path(folder) / "examples")
            for block in terminal.console_blocks(name):
                for command, shown in terminal.steps_of(block):
                    with self.subTest(document=name, command=command):
                        printed = terminal.run(command, folder, variables)
                        self.assertRegex(printed, pattern_of(shown))
                        checked += 1
        return checked


def pattern_of(shown):
    """The text itself; a moment stands for any moment, and five digits of a key for any five."""
    pattern = re.escape(shown)
    pattern = re.sub(r"\d{4}\\-\d\d\\-\d\dT[\d:\\.]+(Z|\\\+\d\d:\d\d)", r"[-0-9T:.]+(Z|[-+][0-9:]+)", pattern)
    pattern = re.sub(r"(Folder[a-z]+)[0-9a-f]{5}\b", r"\1[0-9a-f]{5}", pattern)
    return rf"\A{pattern}\Z"


if __name__ == "__main__":
    unittest.main()
