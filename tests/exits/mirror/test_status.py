"""What `tessel-mirror status` sees of sources and receivers."""

import json
import pathlib
import re
import subprocess
import unittest

from mirrors import EXIT, LONGEST, Creator, Mirror, MirrorTest, wait_until


def run(*arguments):
    return subprocess.run([EXIT, *map(str, arguments)], capture_output=True, text=True, timeout=LONGEST, check=False)


class Status(MirrorTest):
    def send(self):
        return self.closed(Mirror("send", self.domain, "--lease", "20000", self.plant.file))

    def receive(self):
        return self.closed(
            Mirror("receive", self.domain, "--as", self.plant.mirror_key, self.plant.file))

    def look(self, *options):
        result = run("status", "--domain", self.domain.number, *options)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def seen(self, *options):
        return json.loads(self.look("--json", *options))

    def seen_until(self, condition, what):
        """A busy machine finds the others later than this one looks."""
        found = {}

        def holds():
            found.update(self.seen("--for", "1500"))
            return condition(found)

        wait_until(holds, what)
        return found

    def test_empty_domain_says_so(self):
        self.assertEqual(self.seen("--for", "100"), {"sources": [], "receivers": []})
        self.assertEqual(
            self.look("--for", "100"),
            f"no source and no receiver in domain {self.domain.number} on lo within 100 ms\n")

    def test_source_and_receiver_are_seen_with_the_same_set(self):
        self.closed(Creator(self.plant))
        receiver = self.receive()
        self.send()
        wait_until(lambda: receiver.logged(" mirrors "), "mirrors")
        for number in range(5):
            self.plant.set("a/whole", str(number))
        wait_until(lambda: self.plant.leaves()["a/whole"] == (4, "valid"), "the newest")

        found = self.seen_until(
            lambda seen: seen["sources"] and seen["receivers"]
            and seen["receivers"][0]["generation"] == seen["sources"][0]["generation"], "the same set")

        (source,), (mirror,) = found["sources"], found["receivers"]
        size = json.loads(self.plant.file.read_text(encoding="utf-8"))["sizeOfSharedMemory"]
        self.assertEqual((source["region"], source["state"], source["bytes"]), (self.plant.key, "live", size))
        self.assertEqual((mirror["region"], mirror["mirror"]), (self.plant.key, self.plant.mirror_key))
        self.assertEqual(mirror["source"], source["source"])
        self.assertRegex(source["source"], r"^[0-9a-f]{32}$")
        self.assertIn(f"({source['source'][:8]})", receiver.log())
        # Shown and left out are all that there were since the first.
        self.assertLessEqual(mirror["sets"] + mirror["losses"], source["generation"])
        self.assertGreaterEqual(mirror["sets"], 1)
        self.assertLess(abs(mirror["lag"]), LONGEST * 1000)
        self.assertIn(f"region '{self.plant.key}'\n  source    ", self.look())

    def test_each_key_is_documented(self):
        self.closed(Creator(self.plant))
        self.receive()
        self.send()
        page = pathlib.Path(__file__).resolve().parents[3] / "docs/man/tessel-mirror.1.md"
        section = page.read_text(encoding="utf-8").split("\n## STATUS\n")[1].split("\n## ")[0]
        of_source, of_receiver = section.split("Of a receiver")

        found = self.seen_until(lambda seen: seen["sources"] and seen["receivers"], "both")

        for kind, text in (("sources", of_source), ("receivers", of_receiver)):
            listed = [key for line in re.findall(r"^(`.*`)$", text, re.M) for key in re.findall(r"`(\w+)`", line)]
            self.assertEqual(sorted(listed), sorted(found[kind][0]))

    def test_rate_of_both_is_told_after_a_second(self):
        self.closed(Creator(self.plant))
        self.receive()
        self.send()

        # Nobody publishes; the first look may have met the first set.
        self.seen_until(
            lambda seen: [one["rate"] for one in seen["sources"] + seen["receivers"]] == [0, 0], "rates")

    def test_lost_source_is_none_of_the_mirror(self):
        creator = self.closed(Creator(self.plant))
        receiver = self.receive()
        sender = self.send()
        wait_until(lambda: receiver.logged(" mirrors "), "mirrors")
        creator.close()
        self.seen_until(lambda seen: seen["sources"] and seen["sources"][0]["state"] == "creator-gone"
                        and seen["receivers"] and seen["receivers"][0]["source"] is None, "creator gone")

        sender.end()

        self.seen_until(lambda seen: not seen["sources"] and seen["receivers"], "the source is not seen")
        receiver.end()
        self.seen_until(lambda seen: not seen["sources"] and not seen["receivers"], "nobody is seen")

    def test_words_that_are_none_are_refused(self):
        for words, text in ((["plant"], "'plant' is too much; it takes no description"), (["--for", "5"], "--for")):
            refused = run("status", *words)

            self.assertEqual(refused.returncode, 2)
            self.assertIn(text, refused.stderr)

    def test_help_names_no_description(self):
        self.assertTrue(run("status", "--help").stdout.startswith("Usage: tessel-mirror status [OPTION...]\n"))


if __name__ == "__main__":
    unittest.main()
