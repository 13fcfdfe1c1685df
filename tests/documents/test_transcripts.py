"""What the documents show of the tool is what it prints, on a copy of the examples.

The environment says where the tool is: TESSEL_TOOL.
"""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import terminal
from sources import PROJECT
from test_commands import RUN

# In the documents, and here: nobody else on the machine may have the region.
TANK = "examples/publish/tank.process.json"
SHOWN_KEY = "tesselTank"
KEY = f"{SHOWN_KEY}{os.getpid()}"
# What the documents show of the tank: somebody has published it.
PUBLISHED = (f"{TANK} tank/level 1.25", f"{TANK} tank/temperature --error sensor-breakage")


def pattern_of(shown):
    """The text itself; a moment stands for any moment, and the random end of a key and the number
    made of a key for any."""
    pattern = re.escape(shown)
    pattern = re.sub(r"\d{4}\\-\d\d\\-\d\dT[\d:\\.]+Z", r"[-0-9T:.]+(Z|[-+][0-9:]+)", pattern)
    pattern = re.sub(r"(Folder[a-z]+)[0-9a-f]{5}\b", r"\1[0-9a-f]{5}", pattern)
    pattern = re.sub(r"0x[0-9a-f]{8}\b", "0x[0-9a-f]{8}", pattern)
    return rf"\A{pattern}\Z"


class Transcripts(unittest.TestCase):
    def test_tool_prints_what_the_documents_show(self):
        checked = 0
        for name, test in RUN.items():
            if test.endswith("test_transcripts.py"):
                checked += self.run_document(name)
        self.assertGreater(checked, 15)

    def run_document(self, name):
        """Each document begins with fresh examples; its blocks follow one another."""
        steps = [
            step for block in terminal.console_blocks(name) for step in terminal.steps_of(block)
        ]
        self.assertTrue(steps, name)
        with tempfile.TemporaryDirectory() as folder:
            self.copy_examples(pathlib.Path(folder))
            for command, shown in steps:
                with self.subTest(document=name, command=command):
                    # A manual page says itself what is published.
                    values = () if name.startswith("docs/man/") else PUBLISHED
                    self.run_step(command, shown, folder, values)
            self.doCleanups()
        return len(steps)

    def copy_examples(self, folder):
        shutil.copytree(PROJECT / "examples", folder / "examples")
        description = folder / TANK
        text = description.read_text(encoding="utf-8")
        description.write_text(text.replace(SHOWN_KEY, KEY), encoding="utf-8")

    def variables(self):
        tool = pathlib.Path(os.environ["TESSEL_TOOL"]).parent
        return terminal.environment(PATH=f"{tool}:{os.environ['PATH']}")

    def run_step(self, command, shown, folder, values):
        if command.startswith("tessel hold"):
            printed = self.hold(command, folder, values)
        else:
            command = command.replace(SHOWN_KEY, KEY)
            printed = terminal.run(command, folder, self.variables())
        self.assertRegex(printed.replace(KEY, SHOWN_KEY), pattern_of(shown))

    def hold(self, command, folder, values):
        """Leaves the holder running, with values as if somebody published."""
        holder = subprocess.Popen(
            command.split(), cwd=folder, env=self.variables(), encoding="utf-8",
            stdout=subprocess.PIPE, executable=os.environ["TESSEL_TOOL"],
        )
        self.addCleanup(holder.stdout.close)
        self.addCleanup(holder.wait, timeout=60)
        self.addCleanup(holder.terminate)
        line = holder.stdout.readline()
        for value in values:
            self.assertEqual(terminal.run(f"tessel set {value}", folder, self.variables()), "")
        return line


if __name__ == "__main__":
    unittest.main()
