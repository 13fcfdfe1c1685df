"""A description that comes from its source: `receive --describe KEY -o DIR`."""

import subprocess
import unittest

from mirrors import EXIT, LONGEST, Creator, Mirror, MirrorTest, wait_until


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
