"""`script/soak`, without what it installs and builds: its figures, and that it finds what it looks for."""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent / "mqtt"))

from exits import KEEPS_FREED_MEMORY, LONGEST, TOOL, end_with_parent, wait_until  # noqa: E402

PROJECT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(TOOL).parents[2]
sys.path.insert(0, str(PROJECT / "script/exits"))
os.environ["TESSEL_BUILD"] = str(BUILD)

import soak  # noqa: E402
import sparkplug  # noqa: E402

# Stands for a tessel-metrics that keeps 4 MiB of each scrape.
LEAK = """#!/usr/bin/python3 -B
import http.server
kept = []
class Page(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        kept.append(b"x" * (4 << 20))
        self.send_response(200)
        self.end_headers()
        text = "\\n" + "tessel_value{} 1\\n" * 20 + "tessel_region_swaps_total{} 1\\n"
        self.wfile.write(text.encode())
server = http.server.HTTPServer(("127.0.0.1", 0), Page)
print(f"serving http://127.0.0.1:{server.server_port}/metrics", flush=True)
server.serve_forever()
"""


class Soak(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tessel-soak"))
        self.addCleanup(shutil.rmtree, self.folder)
        (self.folder / "temporary").mkdir()

    def start(self, minutes, build=BUILD):
        process = subprocess.Popen(
            ["/usr/bin/python3", "-B", str(PROJECT / "script/exits/soak.py"), "--minutes", str(minutes), "--leaves", "20"],
            stdout=subprocess.PIPE, stderr=self.log(), text=True, preexec_fn=end_with_parent,
            env={**os.environ, "TESSEL_BUILD": str(build), "TMPDIR": str(self.folder / "temporary")})
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.kill)
        return process

    def log(self):
        log = open(self.folder / "error", "wb")
        self.addCleanup(log.close)
        return log

    def error(self):
        return (self.folder / "error").read_text(encoding="utf-8")

    def left(self, process):
        rm = subprocess.run([TOOL, "rm", "--force", f"tesselSoak{process.pid}"], capture_output=True, text=True,
                            check=False, timeout=LONGEST)
        return [*(self.folder / "temporary").iterdir(), *rm.stdout.splitlines()]

    @unittest.skipIf(KEEPS_FREED_MEMORY, "memory that was given back is kept")
    def test_figures_of_every_exit_are_told_and_nothing_is_left(self):
        process = self.start(0.05)
        said = process.communicate(timeout=LONGEST)[0]
        self.assertEqual(process.returncode, 0, self.error())
        self.assertRegex(said, r"^published \d+ sets of 20 values in \d+ s: [0-9.]+ a second, \d+ late\n")
        figures = r"[0-9.]+ MiB at the begin, [0-9.]+ at the end, [0-9.]+ at most, growth [+-][0-9.]+; [0-9.]+ s of " \
                  r"processor time a second; "
        self.assertRegex(said, rf"\nmqtt: {figures}\d+ messages with \d+ metrics, 1 births, 0 lost\n")
        self.assertRegex(said, rf"\nmetrics: {figures}\d+ scrapes with all values, \d+ ms in the middle")
        self.assertEqual(self.left(process), [])

    @unittest.skipIf(KEEPS_FREED_MEMORY, "memory that was given back is kept")
    def test_memory_that_grows_is_found(self):
        build = self.folder / "build"
        (build / "exits/metrics").mkdir(parents=True)
        for path in ("tools", "exits/mqtt"):
            (build / path).symlink_to(BUILD / path)
        program = build / "exits/metrics/tessel-metrics"
        program.write_text(LEAK, encoding="utf-8")
        program.chmod(0o755)

        process = self.start(0.1, build)

        process.communicate(timeout=LONGEST)
        self.assertEqual(process.returncode, 1)
        self.assertIn("script/soak: the memory of metrics grows\n", self.error())

    def test_signal_ends_it_early_and_nothing_is_left(self):
        process = self.start(60)
        wait_until(lambda: " MiB" in self.error(), "a line of progress")
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=LONGEST)
        self.assertEqual(process.returncode, 128 + signal.SIGINT)
        self.assertEqual(self.left(process), [])

    def test_gaps_in_the_numbers_of_messages_are_counted(self):
        def line(kind, sequence):
            data = sparkplug.Payload(timestamp=1, seq=sequence).SerializeToString().hex()
            return f"spBv1.0/g/{kind}/n {data}\n".encode()

        listener = soak.Listener([line("NBIRTH", 0), line("DBIRTH", 1), line("DDATA", 2), line("DDATA", 5),
                                  line("NBIRTH", 0), line("DDATA", 255), line("DDATA", 0)])
        listener.read()
        self.assertEqual(listener.lost, 2 + 254)
        self.assertTrue(listener.has_begun())


if __name__ == "__main__":
    unittest.main()
