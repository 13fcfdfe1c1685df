"""`script/demo --exits`, without what it installs and builds: it shows, and leaves nothing however it ends."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent / "mqtt"))

from exits import LONGEST, TOOL, end_with_parent, wait_until  # noqa: E402

PROJECT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(TOOL).parents[2]
BROKEN = 1

# Stands for tessel-web where that is not built: a page that shows a value of this machine.
PAGE = """#!/usr/bin/python3 -B
import http.server, os, sys
class Page(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.send_response(200)
        self.end_headers()
        self.wfile.write(f"<h1>{os.uname().release}</h1>".encode())
server = http.server.HTTPServer(("127.0.0.1", 0), Page)
print(f"serving http://127.0.0.1:{server.server_port}/ of a page", flush=True)
server.serve_forever()
"""


class Demo:
    """The demo while it runs; temporary files are in a folder of its own."""

    def __init__(self, *arguments, build=BUILD):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tessel-demo"))
        self._log = open(self.folder / "log", "wb")
        temporary = self.folder / "temporary"
        temporary.mkdir()
        self.process = subprocess.Popen(
            ["/usr/bin/python3", "-B", str(PROJECT / "script/exits/demo.py"), "--picture", "page.png", *arguments],
            stdout=self._log, stderr=self._log, cwd=self.folder, preexec_fn=end_with_parent,
            env={**os.environ, "TESSEL_BUILD": str(build), "TMPDIR": str(temporary)})
        self.key = f"tesselDemo{self.process.pid}"

    def said(self):
        return (self.folder / "log").read_text(encoding="utf-8")

    def wait_said(self, text):
        wait_until(lambda: text in self.said() or self.process.poll() is not None, text)
        assert text in self.said(), self.said()

    def wait_end(self):
        return self.process.wait(timeout=LONGEST)

    def parts(self):
        """The processes that came from it, with their names."""
        found = {}
        for entry in pathlib.Path("/proc").iterdir():
            try:
                if f"TESSEL_PARTS={self.key}".encode() in (entry / "environ").read_bytes().split(b"\0"):
                    found[int(entry.name)] = (entry / "comm").read_text(encoding="utf-8").strip()
            except OSError:
                continue
        return found

    def left(self):
        files = [str(path) for path in (self.folder / "temporary").iterdir()]
        shared = subprocess.run([TOOL, "rm", "--dry-run", self.key], capture_output=True, text=True, check=False,
                                timeout=LONGEST).stdout.splitlines()
        return [*files, *shared, *self.parts().values()]

    def close(self):
        if self.process.poll() is None:
            self.process.terminate()
            self.process.wait(timeout=LONGEST)
        self._log.close()
        subprocess.run([TOOL, "rm", "--force", self.key], capture_output=True, check=False, timeout=LONGEST)
        shutil.rmtree(self.folder)


class Shows(unittest.TestCase):
    def start(self, *arguments, **options):
        demo = Demo(*arguments, **options)
        self.addCleanup(demo.close)
        return demo

    def test_scrape_and_messages_are_shown_and_nothing_is_left(self):
        demo = self.start("--rounds", "2")
        self.assertEqual(demo.wait_end(), 0, demo.said())
        said = demo.said()
        self.assertRegex(said, r'\ntessel_value\{url="cpu/usage",unit="%"\} [0-9.e+-]+\n')
        self.assertRegex(said, r'\ntessel_region_up\{region="tesselDemo\d+"\} 1\n')
        self.assertRegex(said, r"\nNBIRTH here +seq 0 +2 metrics: bdSeq 0, Node Control/Rebirth False\n")
        self.assertRegex(said, r"\nDBIRTH here/host +seq 1 +\d+ metrics: .*\bcpu/usage [0-9.]+ %")
        self.assertEqual(re.findall(r"^DDATA +here/host +seq (\d+) ", said, re.M), ["2", "3"])
        self.assertRegex(said, r"\nNDEATH here +1 metrics: bdSeq 0\n")
        self.assertIn("\nprocesses, shared memory, semaphores, files: gone\n", said)
        self.assertEqual(demo.left(), [])

    @unittest.skipIf((BUILD / "exits/web/tessel-web").exists(), "tessel-web is built")
    def test_page_that_is_not_built_is_told(self):
        demo = self.start("--rounds", "1")
        self.assertEqual(demo.wait_end(), 0, demo.said())
        self.assertIn("\ntessel-web is not built, so there is no picture\n", demo.said())

    @unittest.skipUnless(shutil.which("chromedriver") and shutil.which("chromium"), "chromium is not installed")
    def test_picture_of_the_page_is_made(self):
        build = pathlib.Path(tempfile.mkdtemp(prefix="tessel-build"))
        self.addCleanup(shutil.rmtree, build)
        (build / "exits/web").mkdir(parents=True)
        for path in ("tools", "examples", "exits/metrics", "exits/mqtt"):
            (build / path).symlink_to(BUILD / path)
        if (BUILD / "exits/web/tessel-web").exists():
            (build / "exits/web/tessel-web").symlink_to(BUILD / "exits/web/tessel-web")
        else:
            program = build / "exits/web/tessel-web"
            program.write_text(PAGE, encoding="utf-8")
            program.chmod(0o755)

        demo = self.start("--rounds", "1", build=build)

        self.assertEqual(demo.wait_end(), 0, demo.said())
        self.assertEqual((demo.folder / "page.png").read_bytes()[:8], b"\x89PNG\r\n\x1a\n")
        self.assertRegex(demo.said(), rf"\nthe picture of http://127.0.0.1:\d+/ in a browser: {demo.folder}/page.png\n")
        self.assertEqual(demo.left(), [])

    def test_picture_that_cannot_be_written_is_told_at_once(self):
        demo = self.start("--picture", "missing/page.png")
        self.assertEqual(demo.wait_end(), BROKEN)
        self.assertEqual(demo.said(), f"script/demo: no picture can be written into {demo.folder}/missing; "
                                      "--picture names another place\n")
        self.assertEqual(demo.left(), [])

    def test_signals_end_it_and_nothing_is_left(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number=number):
                demo = self.start("--rounds", "100000")
                demo.wait_said("DDATA")
                demo.process.send_signal(number)
                self.assertEqual(demo.wait_end(), 128 + number, demo.said())
                self.assertEqual(demo.left(), [])

    def test_part_that_is_killed_is_named_and_nothing_is_left(self):
        for comm, name in (("host-monitor", "host-monitor"), ("tessel-mqtt", "tessel-mqtt"),
                           ("mosquitto", "(the broker|mosquitto_sub)"), ("mosquitto_sub", "mosquitto_sub")):
            with self.subTest(part=name):
                demo = self.start("--rounds", "100000")
                demo.wait_said("DDATA")
                os.kill(next(number for number, found in demo.parts().items() if found == comm), signal.SIGKILL)
                self.assertEqual(demo.wait_end(), BROKEN, demo.said())
                self.assertRegex(demo.said(), rf"\nscript/demo: {name} has ended by itself")
                self.assertEqual(demo.left(), [])


if __name__ == "__main__":
    unittest.main()
