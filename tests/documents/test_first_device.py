"""The first device of the guide comes to life as the guide says, with the installed library.

The environment says where that is (TESSEL_PREFIX) and what to build with (CXX, CXX_FLAGS).
"""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import sources
import terminal

GUIDE = "docs/guide/02-first-device.md"
PUBLISHER = "build/measure"
# In the guide, and here: nobody else on the machine may have the region.
SHOWN_KEY = "tesselBoiler"


class FirstDevice(unittest.TestCase):
    key = f"{SHOWN_KEY}{os.getpid()}"
    shared_memory = pathlib.Path("/dev/shm")

    def setUp(self):
        self.publisher = None
        self.addCleanup(self.stop_publisher)
        self.prepare()

    def prepare(self):
        """Makes the folder that the guide asks for, with its files, and says what to build with."""
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)
        prefix = os.environ["TESSEL_PREFIX"]
        self.variables = terminal.environment(
            PATH=f"{prefix}/bin:{os.environ['PATH']}", CMAKE_PREFIX_PATH=prefix,
            CXX=os.environ["CXX"], CXXFLAGS=os.environ.get("CXX_FLAGS", ""),
        )
        for path in sources.source_files("examples/first-device", ".cpp", ".json", "CMakeLists.txt"):
            shutil.copy(path, self.folder)
        description = self.folder / "boiler.process.json"
        description.write_text(
            description.read_text(encoding="utf-8").replace(SHOWN_KEY, self.key), encoding="utf-8"
        )

    def command_line(self, command):
        """What bash has to run for a command of the guide."""
        return command

    def as_shown(self, text):
        """What is printed, with the guide's key and without the number that is made of it."""
        text = text.replace(self.key, SHOWN_KEY)
        return re.sub(r"^(Semaphores +)0x[0-9a-f]+$", r"\1", text, flags=re.M)

    def run_command(self, command):
        return terminal.run(self.command_line(command), self.folder, self.variables)

    def stop_publisher(self):
        if self.publisher:
            self.publisher.stdin.close()
            self.publisher.wait(timeout=60)
            self.publisher.stdout.close()

    def start_publisher(self, shown):
        self.publisher = subprocess.Popen(
            ["bash", "-c", f"exec {self.command_line(PUBLISHER)}"], cwd=self.folder, env=self.variables, encoding="utf-8",
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        )
        lines = shown.splitlines(keepends=True)
        # Two lines of its own, then in turn what is typed and what is answered.
        for expected in lines[:2]:
            self.assertEqual(self.as_shown(self.publisher.stdout.readline()), expected)
        self.talk(lines[2:])

    def talk(self, lines):
        for typed, answer in zip(lines[::2], lines[1::2], strict=True):
            self.publisher.stdin.write(typed)
            self.publisher.stdin.flush()
            self.assertEqual(self.publisher.stdout.readline(), answer)

    def test_terminals_show_what_the_guide_shows(self):
        blocks = terminal.console_blocks(GUIDE)
        self.assertGreaterEqual(len(blocks), 5)
        for block in blocks:
            with self.subTest(block=block):
                self.run_block(block)
        self.stop_publisher()
        self.assertEqual(self.publisher.returncode, 0)
        self.publisher = None
        self.assertFalse((self.shared_memory / f"{self.key}SharedMemory").exists())

    def run_block(self, block):
        if not block.startswith("$ "):
            self.talk(block.splitlines(keepends=True))
            return
        for command, shown in terminal.steps_of(block):
            if command == PUBLISHER:
                self.start_publisher(shown)
            elif command.startswith("cmake"):
                output = self.run_command(f"{command} && echo built")
                self.assertTrue(output.endswith("built\n"), output)
            else:
                printed = self.run_command(command)
                self.assertEqual(self.as_shown(printed), self.as_shown(shown))


if __name__ == "__main__":
    unittest.main()
