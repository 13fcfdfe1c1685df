"""What the status file of a mirror holds, and `tessel-metrics` of it: the same as `tessel-mirror status`."""

import itertools
import json
import os
import pathlib
import re
import shutil
import stat
import subprocess
import unittest

from mirrors import EXIT, LONGEST, Creator, Mirror, MirrorTest, wait_until

METRICS = os.environ["TESSEL_METRICS"]


def samples(text):
    """Name and labels to the number."""
    lines = [line for line in text.split("\n") if line.startswith("tessel_mirror_")]
    return {name: float(number) for name, number in (line.rsplit(" ", 1) for line in lines)}


class Metrics(MirrorTest):
    def setUp(self):
        super().setUp()
        self.files = {side: self.plant.folder / f"{side}.json" for side in ("send", "receive")}

    def send(self):
        return self.closed(Mirror("send", self.domain, "--lease", "20000", "--status-file", self.files["send"],
                                  self.plant.file))

    def receive(self):
        return self.closed(Mirror("receive", self.domain, "--as", self.plant.mirror_key, "--status-file",
                                  self.files["receive"], self.plant.file))

    def told(self, side):
        return json.loads(self.files[side].read_text(encoding="utf-8"))

    def metrics(self, *files):
        words = [word for file in files for word in ("--mirror", str(file))]
        run = subprocess.run([METRICS, "--once", *words, str(self.plant.file)], capture_output=True, text=True,
                             timeout=LONGEST, check=False)
        self.assertEqual(run.returncode, 0, run.stderr)
        return run.stdout

    def both(self):
        self.closed(Creator(self.plant))
        receiver, sender = self.receive(), self.send()
        for number in range(5):
            self.plant.set("a/whole", str(number))
        wait_until(lambda: (self.plant.leaves() or {}).get("a/whole") == (4, "valid"), "the newest")
        for side in self.files:
            wait_until(lambda side=side: self.told(side)["receivers"] and self.told(side)["sources"]
                       and self.told(side)["receivers"][0]["generation"]
                       == self.told(side)["sources"][0]["generation"], f"{side} tells of the newest")
        return receiver, sender

    def test_both_sides_tell_what_status_shows(self):
        self.both()
        status = {}

        def seen():
            looked = subprocess.run([EXIT, "status", "--json", "--domain", str(self.domain.number), "--for", "1500"],
                                    capture_output=True, text=True, timeout=LONGEST, check=True)
            status.update(json.loads(looked.stdout))
            return status["sources"] and status["receivers"]

        wait_until(seen, "status sees both")
        for side in self.files:
            for kind in ("sources", "receivers"):
                (one,), (other,) = self.told(side)[kind], status[kind]
                # Rates are of different moments.
                self.assertEqual({**one, "rate": 0}, {**other, "rate": 0}, (side, kind))
            self.assertEqual(stat.S_IMODE(self.files[side].stat().st_mode), 0o644)

    def test_metrics_tell_the_same(self):
        self.both()
        # Nobody publishes any more: after two times all stands still.
        wait_until(lambda: all(one["rate"] == 0 for side in self.files for kind in ("sources", "receivers")
                               for one in self.told(side)[kind]), "no rate")
        told = self.told("receive")
        (source,), (receiver,) = told["sources"], told["receivers"]

        found = samples(self.metrics(self.files["receive"], self.files["send"]))

        of_source = f'{{region="{source["region"]}",source="{source["source"]}",host="{source["host"]}"'
        of_receiver = (f'{{region="{receiver["region"]}",receiver="{receiver["receiver"]}",host="{receiver["host"]}",'
                       f'mirror="{receiver["mirror"]}"')
        expected = {f'tessel_mirror_up{{file="{file}"}}': 1 for file in self.files.values()}
        for state in ("live", "creator-gone", "region-replaced", "silent", "unknown"):
            expected[f'tessel_mirror_source_state{of_source},tessel_mirror_source_state="{state}"}}'] = state == "live"
        expected.update({
            f"tessel_mirror_source_generation{of_source}}}": source["generation"],
            f"tessel_mirror_source_rate{of_source}}}": 0,
            f"tessel_mirror_source_set_bytes{of_source}}}": source["bytes"],
            f'tessel_mirror_receiver_info{of_receiver},source="{source["source"]}"}}': 1,
            f"tessel_mirror_receiver_up{of_receiver}}}": 1,
            f"tessel_mirror_receiver_generation{of_receiver}}}": receiver["generation"],
            f"tessel_mirror_receiver_rate{of_receiver}}}": 0,
            f"tessel_mirror_receiver_sets_total{of_receiver}}}": receiver["sets"],
            f"tessel_mirror_receiver_losses_total{of_receiver}}}": receiver["losses"],
            f"tessel_mirror_receiver_lag_seconds{of_receiver}}}": receiver["lag"] / 1000,
        })
        self.assertEqual(found, expected)
        self.assertGreater(receiver["sets"], 0)

    def test_lost_source_and_ended_programs_are_told(self):
        receiver, sender = self.both()
        sender.end()
        self.assertFalse(self.files["send"].exists())

        wait_until(lambda: not self.told("receive")["sources"] and self.told("receive")["receivers"][0]["source"] is None,
                   "no source")
        text = self.metrics(*self.files.values())
        found = samples(text)
        self.assertEqual(found[f'tessel_mirror_up{{file="{self.files["send"]}"}}'], 0)
        self.assertEqual([value for name, value in found.items() if name.startswith("tessel_mirror_receiver_up")], [0])
        self.assertIn('source=""} 1', text)
        self.assertNotRegex(text, r"(?m)^tessel_mirror_source_\w+\{")

        receiver.end()
        self.assertEqual(samples(self.metrics(*self.files.values())),
                         {f'tessel_mirror_up{{file="{file}"}}': 0 for file in self.files.values()})

    def test_old_and_broken_files_are_none(self):
        # One of the future is of before the clock was set back.
        for text, age in (("{}", 3600), ("{}", -3600), ("", 0), ("[]", 0), ("{", 0), ('{"sources": 5}', 3600)):
            file = self.files["send"]
            file.write_text(text, encoding="utf-8")
            os.utime(file, (file.stat().st_atime, file.stat().st_mtime - age))

            self.assertEqual(samples(self.metrics(file)), {f'tessel_mirror_up{{file="{file}"}}': 0}, text)

        for text in ("{}", '{"sources": 5, "receivers": [1, null, {}]}'):
            file.write_text(text, encoding="utf-8")

            self.assertEqual(samples(self.metrics(file))[f'tessel_mirror_up{{file="{file}"}}'], 1, text)

    def test_what_is_no_file_is_none_and_not_waited_for(self):
        place = self.files["send"]
        none = {f'tessel_mirror_up{{file="{place}"}}': 0}
        os.mkfifo(place)
        self.assertEqual(samples(self.metrics(place)), none)
        place.unlink()
        place.mkdir()
        self.assertEqual(samples(self.metrics(place)), none)

    def test_without_a_file_nothing_is_told_of_mirrors(self):
        self.assertNotIn("mirror", self.metrics())

    @unittest.skipUnless(shutil.which("promtool"), "needs promtool of the Debian package prometheus")
    def test_promtool_has_nothing_to_say(self):
        self.both()

        run = subprocess.run(["promtool", "check", "metrics"], input=self.metrics(*self.files.values()),
                             capture_output=True, text=True, timeout=LONGEST, check=False)

        self.assertEqual((run.returncode, run.stdout + run.stderr), (0, ""))

    def test_file_that_cannot_be_written_is_refused(self):
        place = self.plant.folder / "none" / "status.json"

        for command in ("send", "receive"):
            refused = subprocess.run(
                [EXIT, command, "--domain", str(self.domain.number), "--status-file", str(place), str(self.plant.file)],
                capture_output=True, text=True, timeout=LONGEST, check=False)

            self.assertEqual(refused.returncode, 4)
            self.assertIn(f"{place}: the status cannot be written: ", refused.stderr)

    def test_what_is_no_file_is_left_where_it_is(self):
        pipe, link = self.plant.folder / "pipe", self.plant.folder / "link"
        os.mkfifo(pipe)
        link.symlink_to(self.plant.file)

        for place, command in itertools.product((pipe, link), ("send", "receive")):
            refused = subprocess.run(
                [EXIT, command, "--domain", str(self.domain.number), "--status-file", str(place), str(self.plant.file)],
                capture_output=True, text=True, timeout=LONGEST, check=False)

            self.assertEqual(refused.returncode, 4)
            self.assertIn(f"{place}: the status cannot be written: what is there is no regular file; ", refused.stderr)
        self.assertTrue(pipe.is_fifo())
        self.assertTrue(link.is_symlink())

    def test_each_metric_is_documented(self):
        self.both()
        page = pathlib.Path(__file__).resolve().parents[3] / "docs/man/tessel-metrics.1.md"
        listed = re.findall(r"^`(tessel_mirror_\w+)\{", page.read_text(encoding="utf-8"), re.M)

        def told():
            return {name.split("{")[0] for name in samples(self.metrics(*self.files.values()))}

        # A rate wants two reports.
        wait_until(lambda: "tessel_mirror_receiver_rate" in told(), "a rate")
        self.assertEqual(sorted(told()), sorted(listed))


if __name__ == "__main__":
    unittest.main()
