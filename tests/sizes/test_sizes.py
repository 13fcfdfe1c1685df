"""`script/sizes`, without what it builds: all cases in small, and that it finds what it looks for."""

import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

import cases
import measuring

SCRIPT = pathlib.Path(__file__).with_name("sizes.py")
LONGEST = 600
MEGA = 1_000_000


class Judgement(unittest.TestCase):
    def test_ten_times_as_long_for_ten_times_as_much_is_no_fault(self):
        self.assertEqual(measuring.faults_of_time("it", 1, 10), [])
        self.assertEqual(measuring.faults_of_time("it", 1, 50), [])

    def test_a_hundred_times_as_long_is_one(self):
        self.assertEqual(measuring.faults_of_time("it", 0.5, 50),
                         ["it: 50.00 s after 0.50 s for a tenth, 100 times as long; at most 50"])
        self.assertEqual(len(measuring.faults_of_time("it", 1, 50.1)), 1)

    def test_times_too_short_to_be_told_count_as_the_shortest(self):
        self.assertEqual(measuring.faults_of_time("it", 0.0001, 0.49), [])
        self.assertEqual(len(measuring.faults_of_time("it", 0.0001, 0.51)), 1)

    def test_memory_counts_above_that_of_a_program_that_does_nothing(self):
        base = 20 * MEGA
        self.assertEqual(measuring.faults_of_memory("it", base + 10 * MEGA, base + 200 * MEGA, base), [])
        self.assertEqual(
            measuring.faults_of_memory("it", base + 10 * MEGA, base + 210 * MEGA, base),
            ["it: 230 MB after 30 MB for a tenth, 21 times as much above the 20 MB of a program that does nothing; "
             "at most 20"])
        self.assertEqual(measuring.faults_of_memory("it", base, base + 160 * MEGA, base), [])
        self.assertEqual(len(measuring.faults_of_memory("it", base, base + 161 * MEGA, base)), 1)


class Script(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tessel-test-sizes"))
        self.addCleanup(shutil.rmtree, self.folder)

    def start(self, *words):
        process = subprocess.Popen(["/usr/bin/python3", "-B", str(SCRIPT), *words], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, preexec_fn=measuring.end_with_parent,
                                   env={**os.environ, "TMPDIR": str(self.folder)})
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.kill)
        return process

    def left(self, process):
        keys = [f"tesselSizes{process.pid}c{case}{size}" for case in range(len(cases.CASES)) for size in "sl"]
        keys += [f"{key}{number}r" for key in keys for number in range(200)]
        sets = measuring.semaphore_sets()
        return [*self.folder.iterdir(), *pathlib.Path("/dev/shm").glob(f"tesselSizes{process.pid}c*"),
                *(key for key in keys if measuring.semaphore_key(key) in sets)]

    def test_all_cases_work_in_small_and_nothing_is_left(self):
        process = self.start("--scale", "0.0002")
        said, error = process.communicate(timeout=LONGEST)
        self.assertEqual(process.returncode, 0, error)
        self.assertEqual(self.left(process), [])
        for what in ("| leaves of a process description, one file | 200 | `create` |",
                     "| regions in one process | 10 | `create` |", "| tessel validate |", "| `followers` |"):
            self.assertIn(what, said)

    def test_what_takes_four_times_as_long_for_twice_as_much_is_found(self):
        process = self.start("--planted")
        said, error = process.communicate(timeout=LONGEST)
        self.assertEqual(process.returncode, 1, error)
        self.assertIn("| a fault | 100,000 | `planted` |", said)
        self.assertRegex(error, r"script/sizes: planted, planted planted: .* times as long; at most 50\n")

    def test_unknown_case_is_refused_with_those_that_there_are(self):
        process = self.start("--case", "leaves")
        error = process.communicate(timeout=LONGEST)[1]
        self.assertEqual(process.returncode, 1)
        self.assertIn("script/sizes: no case 'leaves'; there are leaf, process, configuration, node,", error)

    def test_signal_ends_it_early_and_nothing_is_left(self):
        process = self.start("--case", "regions")
        deadline = time.monotonic() + LONGEST
        while not list(pathlib.Path("/dev/shm").glob(f"tesselSizes{process.pid}c*")):
            self.assertLess(time.monotonic(), deadline, "no region is made")
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=LONGEST)
        self.assertEqual(process.returncode, 128 + signal.SIGINT)
        self.assertEqual(self.left(process), [])


if __name__ == "__main__":
    unittest.main()
