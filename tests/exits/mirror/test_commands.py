"""What is written into a mirror reaches the source, if both sides were told so."""

import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import unittest

from commands import Commands
from mirrors import LONGEST, Mirror, end_with_parent, tool, wait_until
from exits import TOOL

VALUES = {
    "a/whole": ("-9223372036854775807", -9223372036854775807),
    "a/count": ("18446744073709551615", 18446744073709551615),
    "b/text": ("Füllstand 𝄞", "Füllstand 𝄞"),
    "b/number": ("0.1", 0.1),
    "c/low": ("true", True),
    "c/high": ("true", True),
    "c/ratio": ("0.1", 0.1),
}


class Allowed(Commands):
    def test_write_reaches_the_source_and_comes_back(self):
        sender = self.send("--commands", "b/number")
        receiver = self.receive("--commands", "b/*")

        self.write("b/number", "7")

        self.wait_for_source("b/number", 7)
        self.wait_for_mirror("b/number", 7)
        key = self.plant.mirror_key
        self.wait_for_log(
            receiver, rf"what was written into 'b/number' of region '{key}' was written at its source, .+ \(........\)")
        self.assertRegex(
            sender.log(), rf"the mirror at .+ \(........\) has written 'b/number' = '7' into region '{self.plant.key}'")

    def test_every_type_arrives_as_it_was_written_as_one_set(self):
        sender = self.send("--commands", "**")
        self.receive("--commands", "**")
        before = self.swaps_of_source()

        self.write(*(word for url, (text, _) in VALUES.items() for word in (url, text)))

        self.wait_for_log(sender, "has written")
        self.assertEqual(self.swaps_of_source(), before + 1)
        self.assertEqual({url: value for url, (value, _) in self.at_source().items()},
                         {url: value for url, (_, value) in VALUES.items()})
        sources = self.plant.halves(self.plant.key)
        wait_until(lambda: sources & self.plant.halves(self.plant.mirror_key), "byte for byte")

    def test_numbers_keep_all_their_bits(self):
        self.send("--commands", "**")
        self.receive("--commands", "**")

        for url, text, value in (("b/number", "5e-324", 5e-324), ("b/number", "0.30000000000000004", 0.30000000000000004),
                                 ("b/number", "-1.7976931348623157e308", -1.7976931348623157e308),
                                 ("c/ratio", "16777215", 16777215), ("a/whole", "9007199254740993", 9007199254740993)):
            with self.subTest(text):
                self.write(url, text)
                self.wait_for_source(url, value)

    def test_error_state_reaches_the_source(self):
        self.send("--commands", "**")
        self.receive("--commands", "**")

        self.write("a/whole", "--error", "sensor-breakage")

        self.wait_for_source("a/whole", None, "sensor-breakage")

    def test_no_write_is_lost_beside_a_source_that_publishes_all_the_time(self):
        self.send("--commands", "b/*", "--rate", "1000")
        self.receive("--commands", "b/*")
        with subprocess.Popen([TOOL, "sim", "--attach", self.plant.file, "a/count", "--rate", "200"],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              preexec_fn=end_with_parent) as publisher:
            for value in range(1, 31):
                self.write("b/number", str(value))
                self.wait_for_source("b/number", value)
            publisher.terminate()

    def test_the_newest_of_many_quick_writes_is_written(self):
        self.send("--commands", "b/*")
        receiver = self.receive("--commands", "b/*")
        writers = [subprocess.Popen([TOOL, "sim", "--attach", self.plant.mirror_file, "b/number", "--rate", "1000",
                                     "--sets", "500"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                    preexec_fn=end_with_parent) for _ in range(2)]
        for writer in writers:
            writer.wait(timeout=LONGEST)

        self.write("b/number", "-1")

        self.wait_for_source("b/number", -1)
        self.wait_for_mirror("b/number", -1)
        self.assertFalse(receiver.logged("not sent on"))
        # What others cause in the log has a bound.
        self.assertLess(len(receiver.log().splitlines()), 200)

    def test_two_mirrors_write_into_one_source(self):
        key, file = self.other_mirror("second")
        self.send("--commands", "**")
        self.receive("--commands", "**")
        self.receive("--commands", "**", key=key)

        self.write("a/whole", "1")
        self.write("a/count", "2", file=file)

        for region in (self.plant.file, self.plant.mirror_file, file):
            wait_until(lambda region=region: self.plant.leaves(region)["a/whole"] == (1, "valid"), "first")
            wait_until(lambda region=region: self.plant.leaves(region)["a/count"] == (2, "valid"), "second")

    def test_source_that_restarts_is_asked_again(self):
        first = self.send("--commands", "**")
        receiver = self.receive("--commands", "**")
        self.write("b/number", "1")
        self.wait_for_source("b/number", 1)
        first.end()
        wait_until(lambda: self.plant.states() == ["timeout"], "timeout")

        self.send("--commands", "**")
        wait_until(lambda: len(re.findall(" mirrors ", receiver.log())) == 2, "mirrors again")
        self.write("b/number", "2")

        self.wait_for_source("b/number", 2)


class NotAsked(Commands):
    def test_source_takes_none_unless_it_is_told_to(self):
        self.plant.set("b/number", "1")
        self.send()
        receiver = self.receive("--commands", "**")
        self.wait_for_mirror("b/number", 1)

        self.write("b/number", "7")

        self.wait_for_log(
            receiver, "was not answered by its source, .*, within 3000 ms; it takes no requests: 'tessel mirror send' "
            "there does with --commands")
        self.wait_for_mirror("b/number", 1)
        self.assertEqual(self.at_source()["b/number"], (1, "valid"))

    def test_source_that_reads_only_cannot_write(self):
        self.assertEqual(set(self.plant.rights_of(self.send("--read-only").process)), {"r--s"})
        self.assertEqual(set(self.plant.rights_of(self.send("--commands", "b/*").process)), {"rw-s"})

    def test_source_is_woken_by_its_publisher_unless_it_is_told_to_read_only(self):
        self.assertEqual(set(self.plant.rights_of(self.send().process)), {"rw-s"})

    def test_source_that_reads_only_finds_each_set(self):
        self.send("--read-only")
        self.receive()

        for value in (1, 2, 3):
            self.plant.set("b/number", str(value))
            self.wait_for_mirror("b/number", value)

    def test_mirror_asks_for_nothing_unless_it_is_told_to(self):
        sender = self.send("--commands", "**")
        receiver = self.receive()
        before = self.swaps_of_source()

        result = self.write("b/number", "7")

        self.assertIn("what was written stays here until the next set of the source", result.stderr)
        self.assertEqual(self.plant.leaves()["b/number"], (7, "valid"))
        self.plant.set("a/whole", "5")
        self.wait_for_mirror("a/whole", 5)
        self.wait_for_mirror("b/number", None, "no-input")
        self.assertEqual(self.swaps_of_source(), before + 1)
        self.assertNotRegex(sender.log() + receiver.log(), "written|request")

    def test_leaf_that_the_mirror_does_not_name_stays_here(self):
        sender = self.send("--commands", "**")
        receiver = self.receive("--commands", "a/*")

        self.write("b/number", "7", "a/whole", "5")

        self.wait_for_source("a/whole", 5)
        self.assertEqual(self.at_source()["b/number"], (None, "no-input"))
        self.assertRegex(
            receiver.log(), "what was written into 'b/number' of region '.*' stays there until the next set of its "
            "source: --commands does not name it")
        self.assertNotIn("b/number", sender.log())

    def test_pattern_that_leads_nowhere_is_told(self):
        sender = self.send("--commands", "none/*")

        self.assertIn("--commands 'none/*' leads to no leaf; 'tessel get' shows their URLs", sender.log())


class Told(Commands):
    def test_set_says_where_it_wrote(self):
        self.send("--commands", "**")
        self.receive("--commands", "a/*", "--commands", "b/number")

        for words in (("b/number", "7"), ("b/number", "8", "a/whole", "1"), ("a/whole", "--error", "timeout")):
            with self.subTest(words):
                self.assertRegex(
                    self.write(*words).stderr,
                    rf"tessel: note: '{self.plant.mirror_key}' is the mirror of '{self.plant.key}' of \S+ \(127\.0\.0\.1\)"
                    r": the source is asked for what was written into a/\*, b/number; the log of 'tessel mirror "
                    "receive' has its answer\n$")

    def test_set_says_so_as_well_where_the_source_is_not_there(self):
        sender = self.send()
        receiver = self.receive()
        sender.end()
        self.wait_for_log(receiver, "is lost")

        self.assertEqual(
            self.write("b/number", "7").stderr,
            f"tessel: note: '{self.plant.mirror_key}' is the mirror of '{self.plant.key}', whose source is not there: "
            "what was written stays here until the next set of the source\n")

    def test_set_says_nothing_of_another_region(self):
        self.assertEqual(self.write("b/number", "7", file=self.plant.file).stderr, "")

    def test_what_is_said_of_a_mirror_goes_with_it(self):
        self.send()
        receiver = self.receive()
        receiver.end(signal.SIGTERM)
        root = self.plant.mirror_file.read_text(encoding="utf-8")
        self.assertIn(self.plant.mirror_key, root)

        with subprocess.Popen([TOOL, "hold", self.plant.mirror_file], stdout=subprocess.PIPE, text=True,
                              preexec_fn=end_with_parent) as holder:
            holder.stdout.readline()
            self.assertEqual(self.write("b/number", "7").stderr, "")
            holder.terminate()


class Named(Commands):
    def info(self, *words):
        return tool(words[0], *words[1:]).stdout

    def mirrors(self):
        """What each of the subcommands says for programs."""
        regions = json.loads(self.info("regions", "--json"))
        return [json.loads(self.info("info", "--json", str(self.plant.mirror_file)))["mirror"],
                json.loads(self.info("explain", "--json", str(self.plant.mirror_file), "b/number"))[0]["mirror"],
                next(region["mirror"] for region in regions if region["key"] == self.plant.mirror_key)]

    def doctor(self):
        return json.loads(self.info("doctor", "--json", str(self.plant.mirror_file)))

    def rules(self):
        return [finding["rule"] for finding in self.doctor()]

    def test_source_of_a_mirror_is_named_with_its_address(self):
        self.send()
        self.receive("--commands", "a/*", "--commands", "b/number")
        host = socket.gethostname()

        self.assertEqual(self.mirrors(), [{"region": self.plant.key, "host": host, "address": "127.0.0.1",
                                           "commands": ["a/*", "b/number"]}] * 3)
        text = f"mirror of '{self.plant.key}' of {host} (127.0.0.1)"
        self.assertIn(f"\nMirror      {text}\n", self.info("info", str(self.plant.mirror_file)))
        self.assertIn(text, " ".join(self.info("explain", str(self.plant.mirror_file), "b/number").split()))
        self.assertNotIn("mirror-without-source", self.rules())

    def test_mirror_without_a_source_is_one(self):
        self.closed(Mirror("receive", self.domain, "--as", self.plant.mirror_key, self.plant.file))

        self.assertEqual(self.mirrors(), [{"region": self.plant.key, "host": None, "address": None, "commands": []}] * 3)
        self.assertIn(f"\nMirror      mirror of '{self.plant.key}', whose source is not there\n",
                      self.info("info", str(self.plant.mirror_file)))
        found, = [finding for finding in self.doctor() if finding["rule"] == "mirror-without-source"]
        self.assertEqual(found["level"], "warning")
        self.assertEqual(found["text"], f"it is the mirror of '{self.plant.key}', whose source is not there: all values "
                                        "are 'timeout'")

    def test_other_regions_are_none(self):
        shutil.copy(self.plant.file, self.plant.mirror_file)

        self.assertEqual(json.loads(self.info("info", "--json", str(self.plant.file)))["mirror"], None)
        self.assertNotIn("Mirror", self.info("info", str(self.plant.file)))
        self.assertNotIn("mirror-without-source", self.rules())

    def test_what_is_not_the_word_of_the_receiver_does_not_count(self):
        self.send()
        self.receive()
        note = pathlib.Path(f"/dev/shm/{self.plant.mirror_key}Mirror")
        said = json.loads(note.read_text(encoding="utf-8"))
        self.assertEqual(note.stat().st_mode & 0o777, 0o644)

        for text in ("", "no JSON", "[1]", json.dumps({**said, "memory": "1"})):
            with self.subTest(text):
                note.write_text(text, encoding="utf-8")
                self.assertEqual(self.mirrors(), [None] * 3)
        note.unlink()
        elsewhere = self.plant.folder / "note"
        elsewhere.write_text(json.dumps(said), encoding="utf-8")
        note.symlink_to(elsewhere)
        self.assertEqual(self.mirrors(), [None] * 3)
        note.unlink()
        os.mkfifo(note)
        self.assertEqual(self.mirrors(), [None] * 3)
        note.unlink()

    def test_what_was_said_of_a_killed_mirror_goes_with_its_region(self):
        self.send()
        receiver = self.receive()
        note = pathlib.Path(f"/dev/shm/{self.plant.mirror_key}Mirror")
        receiver.end(signal.SIGKILL)
        self.assertTrue(note.exists())
        half = note.with_name(f"{note.name}.new")
        half.touch()

        self.assertEqual(tool("rm", self.plant.mirror_key).returncode, 0)

        self.assertFalse(note.exists())
        self.assertFalse(half.exists())

    def test_what_a_killed_mirror_has_left_is_in_nobodys_way(self):
        pathlib.Path(f"/dev/shm/{self.plant.mirror_key}Mirror.new").touch()
        self.send()

        self.receive()

        self.assertEqual(self.mirrors()[0]["region"], self.plant.key)


if __name__ == "__main__":
    unittest.main()
