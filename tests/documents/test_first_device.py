"""The first device of the guide comes to life as the guide says, with the installed library.

The environment says where that is (TESSEL_PREFIX) and what to build with (CMAKE, CXX, CXX_FLAGS).
"""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import sources
import terminal

GUIDE = "docs/guide/02-first-device.md"
PUBLISHER = "build/measure"
KEY = "tesselBoiler"


class FirstDevice(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)
        prefix = os.environ["TESSEL_PREFIX"]
        self.variables = terminal.environment(
            PATH=f"{prefix}/bin:{os.environ['PATH']}", CMAKE_PREFIX_PATH=prefix,
            CXX=os.environ["CXX"], CXXFLAGS=os.environ.get("CXX_FLAGS", ""),
        )
        self.publisher = None
        self.addCleanup(self.stop_publisher)
        for path in sources.source_files("examples/first-device", ".cpp", ".json", "CMakeLists.txt"):
            shutil.copy(path, self.folder)

    def stop_publisher(self):
        if self.publisher:
            self.publisher.stdin.close()
            self.publisher.wait(timeout=60)
            self.publisher.stdout.close()

    def start_publisher(self, shown):
        self.publisher = subprocess.Popen(
            [self.folder / PUBLISHER], cwd=self.folder, env=self.variables, encoding="utf-8",
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        )
        lines = shown.splitlines(keepends=True)
        # Two lines of its own, then in turn what is typed and what is answered.
        for expected in lines[:2]:
            self.assertEqual(self.publisher.stdout.readline(), expected)
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
        self.assertFalse(pathlib.Path(f"/dev/shm/{KEY}SharedMemory").exists())

    def run_block(self, block):
        if not block.startswith("$ "):
            self.talk(block.splitlines(keepends=True))
            return
        for command, shown in terminal.steps_of(block):
            if command == PUBLISHER:
                self.start_publisher(shown)
            elif command.startswith("cmake"):
                output = terminal.run(f"{command} && echo built", self.folder, self.variables)
                self.assertTrue(output.endswith("built\n"), output)
            else:
                self.assertEqual(terminal.run(command, self.folder, self.variables), shown)


if __name__ == "__main__":
    unittest.main()
