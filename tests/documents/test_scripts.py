"""The scripts tell their help wherever they are called from, and what they do not know, before they do anything."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from sources import PROJECT

# All that help and refusals need. Whatever else a script calls is not found.
PROGRAMS = ("bash", "dirname", "sed")

# They hand what they do not know to the program that they build.
HAND_ON = ("bench-mirror", "bench-record", "sizes", "soak-library", "test", "torture")


def scripts():
    return sorted(path for path in (PROJECT / "script").iterdir() if path.is_file())


class Scripts(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.path = pathlib.Path(scratch.name)
        for name in PROGRAMS:
            (self.path / name).symlink_to(shutil.which(name))

    def run_in(self, folder, *command):
        environment = {**os.environ, "PATH": str(self.path), "LC_ALL": "C"}
        return subprocess.run(
            [self.path / "bash", *command], cwd=folder, env=environment, encoding="utf-8",
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False,
        )

    def check_help(self, folder, called, name):
        answer = self.run_in(folder, called, "--help")
        self.assertEqual((answer.returncode, answer.stderr), (0, ""))
        self.assertTrue(answer.stdout.startswith(f"Usage: {name} ")
                        or answer.stdout.startswith(f"Usage: {name}\n"), answer.stdout)
        return answer.stdout

    def test_help_is_told_from_everywhere(self):
        for script in (*scripts(), PROJECT / ".ci/run"):
            with self.subTest(script.name):
                name = str(script.relative_to(PROJECT))
                text = self.check_help(PROJECT, name, name)
                self.assertEqual(self.check_help(script.parent, f"./{script.name}", name), text)
                self.assertEqual(self.check_help(PROJECT.parent, f"{PROJECT.name}/{name}", name), text)
                self.assertEqual(self.check_help(self.path, str(script), name), text)

    def test_unknown_option_is_refused(self):
        for script in (*scripts(), PROJECT / ".ci/run"):
            if script.name in HAND_ON:
                continue
            with self.subTest(script.name):
                answer = self.run_in(PROJECT, str(script.relative_to(PROJECT)), "--helpp")
                self.assertNotEqual(answer.returncode, 0)
                self.assertEqual(answer.stdout, "")
                self.assertEqual(len(answer.stderr.splitlines()), 1, answer.stderr)
                self.assertIn("--help", answer.stderr)


if __name__ == "__main__":
    unittest.main()
