"""The first device of the guide by copy and paste, with the installed packages.

A part of script/check-packages, which installs them in a root of their own (TESSEL_ROOT). There the
region may have the very name that the guide shows.
"""

import os
import pathlib
import re
import shlex
import unittest

import terminal
import test_first_device
from documents import document

# A file of the guide: its name between backticks in the paragraph before, then its content.
_FILE = re.compile(r"^`([\w.]+)`[^`]*\n\n```(?:json|cpp|cmake)\n(.*?)^```$", re.S | re.M)
FOLDER = "root/boiler"


class PackagedDevice(test_first_device.FirstDevice):
    key = test_first_device.SHOWN_KEY

    def prepare(self):
        self.root = pathlib.Path(os.environ["TESSEL_ROOT"])
        self.shared_memory = self.root / "dev/shm"
        self.folder = self.root / FOLDER
        self.variables = terminal.environment()
        self.folder.mkdir()
        files = dict(_FILE.findall(document(test_first_device.GUIDE).text))
        self.assertEqual(
            set(files), {"boiler.process.json", "measure.cpp", "display.cpp", "CMakeLists.txt"}
        )
        for name, content in files.items():
            (self.folder / name).write_text(content, encoding="utf-8")

    def command_line(self, command):
        inside = shlex.quote(f"cd /{FOLDER} && {command}")
        surroundings = "HOME=/root LC_ALL=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin"
        return f"chroot {shlex.quote(str(self.root))} env -i {surroundings} bash -c {inside}"

    def as_shown(self, text):
        return text


if __name__ == "__main__":
    unittest.main()
