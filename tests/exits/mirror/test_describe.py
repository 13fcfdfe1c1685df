"""A description that comes from its source: `receive --describe KEY -o DIR`."""

import pathlib
import shutil
import signal
import subprocess
import unittest

from mirrors import EXIT, LONGEST, Creator, Mirror, MirrorTest, end_with_parent, wait_until


class Describe(MirrorTest):
    def setUp(self):
        super().setUp()
        self.copy = self.plant.folder / "copy"

    def send(self, path=None):
        return self.closed(Mirror("send", self.domain, "--lease", "20000", path or self.plant.file))

    def fetch(self, *options, key=None, folder=None):
        return subprocess.run(
            [EXIT, "receive", "--domain", str(self.domain.number), "--describe", key or self.plant.key,
             "-o", str(folder or self.copy), *options],
            capture_output=True, text=True, timeout=LONGEST, check=False)

    def test_fetched_description_is_that_of_the_source_and_is_mirrored_by(self):
        self.closed(Creator(self.plant))
        self.send()

        fetched = self.fetch("--watchdog", "30000")

        path = self.copy / self.plant.file.name
        self.assertEqual((fetched.returncode, fetched.stdout, fetched.stderr), (0, f"{path}\n", ""))
        self.assertEqual(path.read_bytes(), self.plant.file.read_bytes())
        receiver = self.closed(
            Mirror("receive", self.domain, "--as", self.plant.mirror_key, fetched.stdout.strip()))
        wait_until(lambda: receiver.logged(" mirrors "), "mirrors")

    def test_folder_is_fetched_as_a_folder(self):
        folder = self.plant.folder / "device"
        (folder / "inner").mkdir(parents=True)
        content = self.plant.file.read_bytes()
        (folder / "inner" / "plant.process.json").write_bytes(content)
        (folder / "secret.txt").write_text("is none of it", encoding="utf-8")
        self.send(folder)

        fetched = self.fetch("--watchdog", "30000")

        self.assertEqual((fetched.returncode, fetched.stdout), (0, f"{self.copy}\n"))
        files = sorted(str(file.relative_to(self.copy)) for file in self.copy.rglob("*") if file.is_file())
        self.assertEqual(files, ["inner/plant.process.json"])
        self.assertEqual((self.copy / files[0]).read_bytes(), content)

    def test_path_leads_to_what_was_written(self):
        self.send()

        fetched = self.fetch("--watchdog", "30000", folder=self.plant.folder / "none" / ".." / "copy")

        self.assertEqual((fetched.returncode, fetched.stdout), (0, f"{self.copy / self.plant.file.name}\n"))
        self.assertTrue((self.copy / self.plant.file.name).is_file())

    def test_end_while_it_is_written_leaves_nothing_half_written(self):
        folder = self.plant.folder / "device"
        # So many that it is found while it is written.
        for number in range(500):
            (folder / f"part{number}").mkdir(parents=True)
            (folder / f"part{number}" / "folder.json").write_text("{}", encoding="utf-8")
        (folder / "plant.process.json").write_bytes(self.plant.file.read_bytes())
        self.send(folder)

        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(number), self.fetching() as fetching:
                wait_until(lambda: self.made() or fetching.poll() is not None, "is written")
                fetching.send_signal(number)

                fetching.wait(timeout=LONGEST)

                self.assertEqual(self.made(), [self.copy.name])
                self.assertEqual(sum(1 for file in self.copy.rglob("*") if file.is_file()), 501)
                shutil.rmtree(self.copy)

    def test_end_while_it_waits_for_a_source_ends_it(self):
        with self.fetching("--watchdog", "0", key="nobody") as fetching:
            # No signal is held while it waits.
            status = pathlib.Path(f"/proc/{fetching.pid}/status")
            threads = pathlib.Path(f"/proc/{fetching.pid}/task")
            wait_until(lambda: len(list(threads.iterdir())) > 1 and self.blocked(status) == 0, "waits")

            fetching.send_signal(signal.SIGTERM)

            self.assertEqual(fetching.wait(timeout=LONGEST), -signal.SIGTERM)
        self.assertEqual(self.made(), [])

    @staticmethod
    def blocked(status):
        lines = status.read_text(encoding="ascii").splitlines()
        return next(int(line.split()[1], 16) for line in lines if line.startswith("SigBlk:"))

    def made(self):
        """What is there of the copy: itself, or the folder that becomes it."""
        return [entry.name for entry in self.plant.folder.iterdir() if entry.name.lstrip(".").startswith("copy")]

    def fetching(self, *options, key=None):
        process = subprocess.Popen(
            [EXIT, "receive", "--domain", str(self.domain.number), "--describe", key or self.plant.key,
             "-o", str(self.copy), *options],
            stdout=subprocess.DEVNULL, preexec_fn=end_with_parent)
        self.addCleanup(process.kill)
        return process

    def test_region_without_a_source_is_told_and_nothing_is_written(self):
        self.send()

        refused = self.fetch("--watchdog", "1500", key="nobody")

        self.assertEqual(refused.returncode, 3)
        self.assertEqual(
            refused.stderr, "tessel-mirror receive: error: no source of region 'nobody' sent its description "
            "within 1500 ms; 'tessel mirror status' shows the sources\n")
        self.assertFalse(self.copy.exists())

    def test_words_that_do_not_go_together_are_refused(self):
        for words in (["--describe", "plant"], ["-o", "copy"], ["--describe", "plant", "-o", "copy", "plant.json"]):
            refused = subprocess.run([EXIT, "receive", *words], capture_output=True, text=True, timeout=LONGEST,
                                     check=False)

            self.assertEqual(refused.returncode, 2)
            self.assertIn("--describe KEY and -o DIR go together", refused.stderr)


if __name__ == "__main__":
    unittest.main()
