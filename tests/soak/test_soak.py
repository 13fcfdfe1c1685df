"""`script/soak-library`, without what it builds: that it finds each fault that is planted, and what it calls growth."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

import judging

SCRIPT = pathlib.Path(__file__).with_name("soak.py")
LONGEST = 600
IN_OWN_WORLD = ["unshare", "--ipc", "--mount", "bash", "-c",
                'mount -t tmpfs tmpfs /dev/shm && TESSEL_OWN_WORLD=1 exec "$@"', "bash"]


def can_have_own_world():
    return subprocess.run([*IN_OWN_WORLD, "true"], capture_output=True, check=False).returncode == 0


class Judgement(unittest.TestCase):
    @staticmethod
    def faults(**series):
        return judging.faults("it", {**judging.PROCESS, **judging.WORLD}, series)

    def test_what_stays_as_it_is_does_not_grow(self):
        self.assertEqual(self.faults(memory=[5000] * 60, descriptor=[7] * 60, mapping=[90] * 60), [])

    def test_growth_up_to_the_bound_is_none(self):
        self.assertEqual(self.faults(memory=[0] * 30 + [2048] * 30, descriptor=[0] * 30 + [4] * 30,
                                     mapping=[0] * 30 + [8] * 30, semaphore=[0] * 30 + [4] * 30,
                                     segment=[0] * 30 + [4] * 30), [])

    def test_growth_beyond_the_bound_is_told(self):
        self.assertEqual(
            self.faults(memory=[0] * 30 + [2049] * 30, descriptor=[0] * 30 + [5] * 30, mapping=[0] * 30 + [9] * 30,
                        semaphore=[0] * 30 + [5] * 30, segment=[0] * 30 + [5] * 30),
            ["it: growth of memory by 2049 KiB; at most 2048 KiB", "it: growth of descriptors by 5; at most 4",
             "it: growth of mappings by 9; at most 8", "it: growth of semaphore sets by 5; at most 4",
             "it: growth of objects of shared memory by 5; at most 4"])

    def test_the_first_tenth_may_fill_what_it_likes(self):
        self.assertEqual(self.faults(descriptor=[0] * 6 + [100] * 54), [])
        self.assertEqual(len(self.faults(descriptor=[0] * 12 + [100] * 48)), 1)

    def test_what_is_there_in_one_period_alone_is_no_growth(self):
        self.assertEqual(self.faults(descriptor=[3] * 59 + [100]), [])

    def test_less_than_before_is_no_growth(self):
        self.assertEqual(self.faults(descriptor=[100] * 30 + [0] * 30), [])

    def test_ten_periods_are_enough(self):
        self.assertEqual(judging.growth(list(range(judging.LEAST_PERIODS))), 8)


class Planted(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tessel-test-soak"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.has_world = can_have_own_world()

    def soak(self, *kinds):
        """Its exit code and the faults that it tells; everything that it has made is gone."""
        words = [word for kind in kinds for word in ("--plant", kind)]
        process = subprocess.Popen(
            [*(IN_OWN_WORLD if self.has_world else []), sys.executable, "-B", str(SCRIPT), "--minutes", "0.001",
             *words], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
            env={**os.environ, "TMPDIR": str(self.folder)})
        try:
            _, said = process.communicate(timeout=LONGEST)
        except subprocess.TimeoutExpired:
            process.send_signal(signal.SIGTERM)
            process.communicate()
            raise
        self.assertEqual(list(self.folder.iterdir()), [])
        self.assertEqual(list(pathlib.Path("/dev/shm").glob(f"tesselSoakLibrary{process.pid}r*")), [])
        return process.returncode, re.findall(r"^script/soak-library: (.*)$", said, re.M), said

    def test_leaks_are_found_where_they_are(self):
        kinds = ["memory", "descriptor", "mapping"] + ["semaphore", "segment"] * self.has_world

        code, faults, said = self.soak(*kinds)

        self.assertEqual(code, 1, said)
        names = [re.sub(r" by \d.*", "", fault) for fault in faults]
        for name in ("memory", "descriptors", "mappings"):
            self.assertIn(f"visitor steady double: growth of {name}", names, said)
        for name in ("semaphore sets", "objects of shared memory"):
            self.assertEqual(f"the system: growth of {name}" in names, self.has_world, said)
        # Of memory a sanitizer takes ever more for a while, since it keeps what is given back.
        others = [name for name in names if not name.endswith("memory") and "visitor steady double" not in name
                  and "the system" not in name]
        self.assertEqual(others, [], said)

    def test_a_torn_set_is_found(self):
        code, faults, said = self.soak("torn")

        self.assertEqual(code, 1, said)
        self.assertEqual(len(faults), 1, said)
        self.assertRegex(faults[0], r"changing double has ended by itself, with 3: a torn set: ")

    def test_an_older_set_is_found(self):
        code, faults, said = self.soak("older")

        self.assertEqual(code, 1, said)
        self.assertEqual(len(faults), 1, said)
        self.assertRegex(faults[0], r"changing double has ended by itself, with 3: an older set: \d+ after \d+$")


if __name__ == "__main__":
    unittest.main()
