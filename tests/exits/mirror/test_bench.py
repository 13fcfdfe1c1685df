"""The bench of the mirror, with small numbers: it tells its figures, finds what is wrong, and leaves nothing."""

import os
import pathlib
import re
import signal
import subprocess
import sys
import unittest

from mirrors import LONGEST, wait_until

BENCH = pathlib.Path(__file__).with_name("bench.py")
SMALL = ["--unjudged", "--leaves", "20,40", "--rate", "200"]
NONE = {"--seconds": "0", "--stop": "0", "--minutes": "0"}


def command(**options):
    chosen = {**NONE, **{f"--{name}": value for name, value in options.items()}}
    return [sys.executable, "-B", str(BENCH), *SMALL, *(word for pair in chosen.items() for word in pair)]


def run(environment=None, **options):
    return subprocess.run(command(**options), capture_output=True, text=True, timeout=2 * LONGEST, check=False,
                          env={**os.environ, **(environment or {})})


def left(pid):
    return [path.name for path in pathlib.Path("/dev/shm").iterdir() if f"tesselExit{pid}x" in path.name]


class Bench(unittest.TestCase):
    def test_delays_are_told_beside_their_floors(self):
        told = run(seconds="1.5")

        self.assertEqual(told.returncode, 0, told.stderr)
        self.assertRegex(told.stdout, r"^ +leaves +bytes +visible +99 % +woken +source +one way +ping +engine +mosquitto "
                                      r"+visible/ping +woken/ping +engine/ping +woken/mosquitto +\(microseconds, medians\)\n")
        rows = re.findall(r"^(loopback|cable) +(\d+) +(\d+)((?: +[\d.]+){12})$", told.stdout, re.M)
        self.assertEqual([row[:3] for row in rows[:2]],
                         [("loopback", "20", "240"), ("loopback", "40", "480")], told.stdout)
        if "cable: left out" not in told.stdout:
            self.assertEqual([row[:3] for row in rows[2:]], [("cable", "20", "240"), ("cable", "40", "480")])
        for row in rows:
            visible, late, woken, near, way, back, engine, broker, *ratios = map(float, row[3].split())
            self.assertGreaterEqual(late, visible)
            self.assertGreaterEqual(back, way)
            for figure in (visible, near, engine):
                self.assertGreater(figure, 0)
            for ratio, told_as in zip((visible / back, woken / back, engine / back, woken / broker), ratios):
                self.assertAlmostEqual(told_as, ratio, delta=0.02 * ratio + 0.05)

    def test_receiver_that_shows_nothing_is_found(self):
        told = run({"TESSEL_STAMPED_MIRROR": os.environ["TESSEL_EXIT"]}, seconds="0.5", over="loopback", leaves="20")

        self.assertEqual(told.returncode, 1)
        self.assertEqual(told.stderr, "script/bench-mirror: loopback, 20 leaves: no set was visible\n")
        self.assertNotIn("loopback ", told.stdout)

    def test_publisher_is_told_of_with_and_without_a_stopped_receiver(self):
        told = run(stop="1")

        self.assertEqual(told.returncode, 0, told.stderr)
        times = r"\d+ sets, a set took \d+ us, 99 % \d+ us, \d+ us at most; in 0 of them it waited for somebody$"
        self.assertRegex(told.stdout, rf"(?m)^publisher, 20 leaves at 200 Hz, without a mirror: {times}")
        self.assertRegex(told.stdout, rf"(?m)^publisher, 20 leaves at 200 Hz, receiver stopped for 1 s: {times}")

    def test_steady_flow_is_told_with_its_share_and_memory_over_each_place(self):
        told = run(minutes="0.05")

        self.assertEqual(told.returncode, 0, told.stderr)
        flows = re.findall(r"^steady: 40 leaves at 200 Hz for 3 s over (\w+): (\d+) sets published, (\d+) of (\d+) "
                           r"seen \(([\d.]+) %\), 0 torn, 0 older; delay \d+ us, 99 % \d+ us;", told.stdout, re.M)
        places = ["loopback"] if "cable: left out" in told.stdout else ["loopback", "cable"]
        self.assertEqual([flow[0] for flow in flows], places, told.stdout)
        for place, published, seen, between, share in flows:
            self.assertTrue(0 < int(seen) <= int(between) <= int(published), told.stdout)
            self.assertAlmostEqual(float(share), 100 * int(seen) / int(between), delta=0.06)
            for name in ("sender", "receiver"):
                self.assertRegex(told.stdout,
                                 rf"(?m)^steady over {place}: {name}: [\d.]+ MiB of memory, [+-]\d+ KiB from")

    def test_wrong_sets_are_found_over_each_place(self):
        for wrong, place in (("torn", "loopback"), ("older", "cable")):
            told = run(minutes="0.05", plant=wrong, over=place)

            if "cable: left out" in told.stdout:
                self.skipTest(told.stdout)
            self.assertEqual(told.returncode, 1)
            self.assertRegex(told.stderr, rf"script/bench-mirror: steady over {place}: [1-9]\d* sets {wrong}\n")
            self.assertEqual(re.findall(r"^steady: .* over (\w+):", told.stdout, re.M), [place])

    def test_place_that_is_none_is_refused(self):
        told = run(over="air")

        self.assertEqual(told.returncode, 2)
        self.assertIn("'air' is neither loopback nor cable", told.stderr)

    def test_signal_ends_it_and_nothing_is_left(self):
        with subprocess.Popen(command(minutes="60"), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as bench:
            wait_until(lambda: any(name.endswith("mSharedMemory") for name in left(bench.pid)), "a mirror")
            bench.send_signal(signal.SIGTERM)

            self.assertEqual(bench.wait(LONGEST), 128 + signal.SIGTERM)
        self.assertEqual(left(bench.pid), [])


if __name__ == "__main__":
    unittest.main()
