"""What a source does not carry out, and what it says: to the mirror, which shows the values of the source again."""

import os
import pathlib
import shutil
import signal
import subprocess
import time
import unittest

from commands import Commands, RawRequester
from mirrors import EXIT, LONGEST, wait_until

AUTHORITY = pathlib.Path(__file__).resolve().parents[3] / "script/authority"


class Refused(Commands):
    def refused(self, url, text, reason, *options):
        """The one value, which the mirror has to show as it was in the end."""
        sender = self.send("--commands", "a/*", "--commands", "b/*")
        receiver = self.receive("--commands", "**")
        before = self.at_source()[url]

        self.write(url, text, *options)

        self.wait_for_log(receiver, f"what was written into '{url}' of region '{self.plant.mirror_key}' was refused by "
                                    f"its source, .*: '{url}': {reason}")
        self.wait_for_log(sender, f"a request of the mirror at .* to write '{url}' .*into region "
                                  f"'{self.plant.key}' is refused: '{url}': {reason}")
        self.assertEqual(self.at_source()[url], before)
        self.wait_for_mirror(url, *before)

    def test_leaf_that_the_source_does_not_allow(self):
        self.plant.set("c/ratio", "1")
        self.refused("c/ratio", "2", r"the source does not allow it; '--commands c/ratio' there does \(4\)")

    def test_leaf_that_is_read_only_at_the_source(self):
        self.change_source("a", "whole", readOnly=True)
        self.refused("a/whole", "5", r"it is read-only; only the process that created the region writes it \(5\)")

    def test_value_below_and_above_the_limits_of_the_source(self):
        self.change_source("b", "number", minLimit=0.5, maxLimit=3000)
        self.plant.set("b/number", "1")
        self.refused("b/number", "0.25", r"0\.25 is below the lower limit, 0\.5 \(5\)")
        self.write("b/number", "3001")
        self.wait_for_mirror("b/number", 1)
        self.assertEqual(self.at_source()["b/number"], (1, "valid"))

    def test_limit_of_64_bits_is_held_exactly(self):
        self.change_source("a", "count", maxLimit="18446744073709551614")
        self.refused("a/count", "18446744073709551615",
                     r"18446744073709551615 is above the upper limit, 18446744073709551614 \(5\)")

    def test_one_refused_value_keeps_all_back(self):
        self.change_source("b", "number", maxLimit=10)
        self.send("--commands", "**")
        receiver = self.receive("--commands", "**")

        self.write("a/whole", "5", "b/number", "11", "b/text", "x")

        self.wait_for_log(receiver, "'b/number': 11 is above the upper limit, 10")
        self.assertEqual({state for _, state in self.at_source().values()}, {"no-input"})
        wait_until(lambda: self.plant.states() == ["no-input"], "as before")

    def test_source_without_a_region(self):
        sender = self.send("--commands", "**")
        receiver = self.receive("--commands", "**")
        self.creator.kill()
        self.write("b/number", "7")

        # Whichever was first: the request, or that the creator was missed.
        self.wait_for_log(receiver, r"was refused by its source, .* \(3\)|it has no source now|not answered")
        self.wait_for_mirror("b/number", None, "timeout")
        self.assertFalse(sender.logged("has written"))

    def test_mirror_without_a_source(self):
        sender = self.send("--commands", "**")
        receiver = self.receive("--commands", "**")
        sender.end()
        wait_until(lambda: self.plant.states() == ["timeout"], "timeout")

        self.write("b/number", "7")

        self.wait_for_log(receiver, f"what was written into 'b/number' of region '{self.plant.mirror_key}' was not sent "
                                    "on: it has no source now")
        self.wait_for_mirror("b/number", None, "timeout")

    def test_request_to_a_stopped_source_is_not_carried_out_later(self):
        self.plant.set("b/number", "1")
        sender = self.send("--commands", "**")
        receiver = self.receive("--commands", "**", "--watchdog", "0")
        self.wait_for_mirror("b/number", 1)
        sender.send_signal(signal.SIGSTOP)

        self.write("b/number", "7")
        written = time.monotonic()
        self.wait_for_log(receiver, "'b/number' of region '.*' was not answered by its source, .*; its next set shows "
                                    "whether it was written")
        self.wait_for_mirror("b/number", None, "timeout")
        # For as long as a request may be carried out.
        wait_until(lambda: time.monotonic() > written + 3, "too late")
        sender.send_signal(signal.SIGCONT)
        self.wait_for_mirror("b/number", 1)
        self.write("a/whole", "8")

        self.wait_for_source("a/whole", 8)
        self.assertEqual(self.at_source()["b/number"], (1, "valid"))
        self.assertNotIn("has written 'b/number'", sender.log())


class Raw(Commands):
    def setUp(self):
        super().setUp()
        self.sender = self.send("--commands", "a/*", "--commands", "b/*")
        self.requester = self.closed(RawRequester(self.domain, self.plant.key))

    def test_request_that_comes_again_is_carried_out_once(self):
        before = self.swaps_of_source()

        self.assertEqual(self.requester.ask(1, ("a/whole", 0, "5"), repeats=3), [(1, 0, "")] * 3)

        self.assertEqual(self.swaps_of_source(), before + 1)
        self.assertEqual(self.at_source()["a/whole"], (5, "valid"))
        self.assertEqual(self.sender.log().count("has written"), 1)

    def test_request_of_long_ago_is_refused(self):
        (number, result, text), = self.requester.ask(1, ("a/whole", 0, "5"), age=3600 * 1000)

        self.assertEqual((number, result), (1, 6))
        self.assertRegex(text, r"it came 36\d+ ms after it was asked for; 3000 ms are the most")
        self.assertEqual(self.at_source()["a/whole"], (None, "no-input"))

    def test_what_makes_no_sense_is_refused_with_its_reason(self):
        cases = (
            ([], 2, "a request holds 1 to 1000 values, not 0"),
            ([("a/none", 0, "5")], 3, "'a/none': there is no such leaf"),
            ([("a", 0, "5")], 4, "'a': the source does not allow it; '--commands a' there does"),
            ([("a/whole", 0, "5"), ("a/whole", 0, "6")], 2,
             "'a/whole': it is given twice"),
            ([("a/whole", 0, "9223372036854775808")], 5, None),
            ([("a/whole", 0, "five")], 5, None),
            ([("a/count", 0, "-1")], 5, None),
            ([("a/whole", 0, "")], 5, None),
            ([("b/number", 0, "nan")], 5, "'b/number': 'nan' is no finite number of type double; an error state is "
                                          "written as {\"state\": NAME}"),
            ([("b/text", 0, "x" * 16)], 5, "'b/text': a text of 16 characters does not fit; 15 do"),
            ([("a/whole", 10, "")], 5, "'a/whole': 10 is no error state"),
            ([("a/whole", 255, "")], 5, "'a/whole': 255 is no error state"),
            ([("a/whole", 0, "5"), ("c/low", 0, "true"), ("a/none", 0, "1")], 4,
             "'c/low': the source does not allow it; '--commands c/low' there does; 2 of 3 values are refused, and "
             "nothing is written"),
        )
        before = self.swaps_of_source()
        for number, (values, expected, reason) in enumerate(cases, 1):
            with self.subTest(values):
                (answered, result, text), = self.requester.ask(number, *values)
                self.assertEqual((answered, result), (number, expected), text)
                if reason is not None:
                    self.assertEqual(text, reason)
        self.assertEqual(self.swaps_of_source(), before)

    def test_text_without_an_end_is_named_by_its_beginning(self):
        (_, result, text), = self.requester.ask(1, ("a/whole", 0, "5" * 100000))

        self.assertEqual(result, 5)
        self.assertEqual(text, f"'a/whole': '{'5' * 200}…' is no int64; a whole number from -9223372036854775808 to "
                               "9223372036854775807 is")
        self.assertIn(f"is refused: {text} (5)", self.sender.log())
        self.assertLess(len(self.sender.log()), 2000)

    def test_flood_has_a_bound(self):
        begin = time.monotonic()
        results = [self.requester.ask(number, ("a/whole", 0, str(number)))[0][1] for number in range(1, 501)]
        passed = time.monotonic() - begin

        self.assertEqual(set(results) - {0, 4}, set())
        self.assertLessEqual(results.count(0), 100 * (passed + 2))
        self.assertLess(len(self.sender.log().splitlines()), 20 * (passed + 3))


@unittest.skipUnless(shutil.which("openssl"), "openssl is not installed")
class Security(Commands):
    def authority(self, *words):
        folder = self.plant.folder / "ours"
        subprocess.run([AUTHORITY, "--domain", str(self.domain.number), *words[:-1], folder, words[-1]], check=True,
                       timeout=LONGEST)
        return folder / words[-1]

    def test_mirror_with_the_permission_is_heard(self):
        self.send("--security", self.authority("device"), "--commands", "**")
        self.receive("--security", self.authority("--commands", "display"), "--commands", "**")

        self.write("b/number", "7")

        self.wait_for_source("b/number", 7)

    def test_mirror_without_the_permission_may_not_ask(self):
        own = self.authority("display")

        refused = subprocess.run(
            [EXIT, "receive", "--domain", str(self.domain.number), "--as", self.plant.mirror_key, "--security", own,
             "--commands", "**", self.plant.file], capture_output=True, text=True, timeout=LONGEST, check=False)

        self.assertEqual(refused.returncode, 4, refused.stderr)
        self.assertIn("permissions.p7s does not allow the writing of requests; with 'script/authority --commands' it "
                      "allows requests", refused.stderr)

    def test_mirror_without_the_permission_mirrors_all_the_same(self):
        self.send("--security", self.authority("--commands", "device"), "--commands", "**")
        self.receive("--security", self.authority("display"))

        self.plant.set("b/number", "7")

        self.wait_for_mirror("b/number", 7)

    def test_requester_without_certificate_is_not_heard(self):
        sender = self.send("--security", self.authority("device"), "--commands", "**")
        self.receive("--security", self.authority("--commands", "display"), "--commands", "**")
        requester = subprocess.Popen([os.environ["TESSEL_RAW_REQUESTER"], str(self.domain.number)],
                                     stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        requester.stdin.write(f"{self.plant.key} 1 0 1 b/number 0 {'8'.encode().hex()}\n")
        requester.stdin.flush()
        # A request of one that is heard has made its way meanwhile.
        self.write("b/number", "7")
        self.wait_for_source("b/number", 7)

        self.assertEqual(self.at_source()["b/number"], (7, "valid"))
        self.assertNotIn("raw", sender.log())
        requester.kill()
        requester.communicate()


if __name__ == "__main__":
    unittest.main()
