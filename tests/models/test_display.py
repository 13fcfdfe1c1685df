"""The displays of examples/display, on the example device that `tessel sim` publishes.

Each runs under a screen of its own, in the memory, and photographs itself. TESSEL_TOOL, DISPLAY_PAGE and
DISPLAY_TREE are the programs, FIRST_PAGE and FIRST_TREE those of the guide, which stay until they are told to
end. QML_IMPORT_PATH leads to the module. Pictures are left in TESSEL_PICTURES, if that
names a folder, for the guide.
"""

import os
import pathlib
import re
import shutil
import struct
import subprocess
import tempfile
import unittest
import zlib

PROJECT = pathlib.Path(__file__).resolve().parents[2]
FORMER_KEY = "tesselFolderdevice3f9c1"
LONGEST = 600


def rows_of(picture):
    """Width, height and the packed rows of a PNG: enough to tell an empty picture from a drawn one."""
    data = picture.read_bytes()
    width, height = struct.unpack(">II", data[16:24])
    position, packed = 8, b""
    while position < len(data):
        size, kind = struct.unpack(">I4s", data[position : position + 8])
        if kind == b"IDAT":
            packed += data[position + 8 : position + 8 + size]
        position += size + 12
    plain = zlib.decompress(packed)
    stride = len(plain) // height
    return width, height, [plain[i * stride : (i + 1) * stride] for i in range(height)]


class Displays(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tessel-display-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.device = self.folder / "device"
        shutil.copytree(PROJECT / "examples/device", self.device)
        key = f"tesselDisplayTest{os.getpid()}x{id(self)}"
        for file in self.device.rglob("*.process.json"):
            file.write_text(file.read_text(encoding="utf-8").replace(FORMER_KEY, key), encoding="utf-8")
        self.sim = subprocess.Popen(
            [os.environ["TESSEL_TOOL"], "sim", self.device, "--seed", "7", "--rate", "20", "--profile", "faulty"],
            stdout=subprocess.DEVNULL,
        )
        self.addCleanup(self.end)

    def end(self):
        self.sim.terminate()
        self.sim.wait(LONGEST)

    def photograph(self, program, arguments, name):
        picture = self.folder / name
        environment = dict(
            os.environ,
            QT_QPA_PLATFORM="xcb",
            QT_QUICK_BACKEND="software",
            QML2_IMPORT_PATH=os.environ["QML_IMPORT_PATH"],
            XDG_RUNTIME_DIR=str(self.folder),
            HOME=str(self.folder),
        )
        done = subprocess.run(
            ["xvfb-run", "--auto-servernum", "--server-args=-screen 0 1024x768x24", os.environ[program]]
            + [str(argument) for argument in arguments]
            + [str(picture)],
            env=environment,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            encoding="utf-8",
            timeout=LONGEST,
        )
        self.assertEqual(done.returncode, 0, done.stderr)
        for line in done.stderr.splitlines():
            self.assertNotIn("qrc:", line, "the page has complaints")
        kept = os.environ.get("TESSEL_PICTURES")
        if kept:
            shutil.copy(picture, kept)
        return rows_of(picture)

    def see_values_change(self, least, program, *arguments):
        """As the guide says it: in the folder in which its files were made."""
        environment = dict(os.environ, QML2_IMPORT_PATH=os.environ["QML_IMPORT_PATH"])
        done = subprocess.run(
            [PROJECT / "packaging/check/screen", str(least), os.environ[program]]
            + [str(argument) for argument in arguments],
            env=environment,
            cwd=self.folder,
            stderr=subprocess.PIPE,
            encoding="utf-8",
            timeout=LONGEST,
        )
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_first_page_of_the_guide_shows_values_that_change(self):
        shutil.copy(PROJECT / "examples/first-display/Page.qml", self.folder)
        self.see_values_change(25, "FIRST_PAGE", self.device)

    def test_first_tree_of_the_guide_shows_values_that_change(self):
        self.see_values_change(25, "FIRST_TREE", self.device)

    def test_page_shows_the_device(self):
        settings = self.device / "inputs/channel1.config.json"
        width, height, rows = self.photograph("DISPLAY_PAGE", [self.device, settings], "display-page.png")
        self.assertEqual((width, height), (940, 520))
        self.assertGreater(len(set(rows)), 100)

    def test_tree_shows_the_device(self):
        width, height, rows = self.photograph("DISPLAY_TREE", [self.device], "display-tree.png")
        self.assertEqual((width, height), (800, 500))
        self.assertGreater(len(set(rows)), 100)


class PlainTexts(unittest.TestCase):
    """What a description or another process says is shown as it stands, and never taken for markup."""

    def test_every_text_of_the_examples_is_plain(self):
        for page in sorted((PROJECT / "examples").rglob("*.qml")):
            with self.subTest(page=page.name):
                blocks = re.findall(r"\b(?:Text|Label) \{[^{}]*\}", page.read_text(encoding="utf-8"))
                for block in blocks:
                    self.assertIn("textFormat: Text.PlainText", block)

    def test_the_pages_with_texts_were_found(self):
        texts = [page for page in (PROJECT / "examples").rglob("*.qml") if "PlainText" in page.read_text(encoding="utf-8")]
        self.assertEqual(sorted(page.parent.name for page in texts), ["display", "first-display"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
