"""What script/mutate says of a small library: what tests notice, what survives, and that it can be gone on with."""

import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
SCRIPT = f"{ROOT}/script/mutate"
PROGRAM = f"{ROOT}/script/mutation/mutate.py"


class Mutate(unittest.TestCase):
    """The planted library is copied and built once; every run has a folder of its own, but for the first build."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.project = f"{cls.folder.name}/project"
        shutil.copytree(f"{HERE}/planted", cls.project)
        cls.build = f"{cls.project}/build"
        subprocess.run(["cmake", "-S", cls.project, "-B", cls.build, "-G", "Ninja"], check=True, capture_output=True)
        subprocess.run(["ninja", "-C", cls.build], check=True, capture_output=True)
        cls.work = f"{cls.folder.name}/work"
        cls.equivalents = f"{cls.folder.name}/equivalent.txt"
        with open(cls.equivalents, "w", encoding="utf-8"):
            pass
        cls.all = cls.run_with("--count", "0", "--seed", "7")
        cls.entries = cls.kept()

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def words(cls, *words):
        return [
            sys.executable, "-B", PROGRAM, "--project", cls.project, "--tests", cls.build, "--work", cls.work,
            "--library", "Planted", "--equivalents", cls.equivalents, "--jobs", "2",
            "--orders", "orders.py", *words,
        ]  # fmt: skip

    @classmethod
    def run_with(cls, *words):
        return subprocess.run(cls.words(*words), capture_output=True, text=True, check=False)

    @classmethod
    def kept(cls):
        with open(f"{cls.work}/results.jsonl", encoding="utf-8") as file:
            lines = [json.loads(line) for line in file]
        return {(e["function"], e["change"]): e for e in lines if "id" in e}

    def result(self, function, change):
        return self.entries[function, change]["result"]

    def row(self, output, room):
        found = re.search(rf"^{re.escape(room)} +(.*)$", output, re.M)
        self.assertTrue(found, output)
        return found[1].split()

    def write_equivalents(self, text):
        with open(self.equivalents, "w", encoding="utf-8") as file:
            file.write(text)
        self.addCleanup(lambda: open(self.equivalents, "w", encoding="utf-8").close())

    def entry_of(self, function, change):
        ident = self.entries[function, change]["id"]
        told = self.run_with("--entry", ident)
        self.assertEqual(told.returncode, 0, told.stderr)
        return told.stdout

    def test_a_change_that_a_test_notices_is_killed(self):
        self.assertEqual(self.result("isAbove", "value > limit -> value >= limit"), "killed")
        self.assertEqual(self.result("countDown", "from -= 1 -> from += 1"), "timeout")

    def test_a_change_without_an_end_is_noticed_by_its_time(self):
        self.assertEqual(self.result("countDown", "from -= 1; -> ;"), "timeout")

    def test_a_change_that_no_test_notices_survives_and_is_shown(self):
        self.assertEqual(self.result("isBelow", "value < limit -> value <= limit"), "survived")
        shown = (
            "--- src/Limits/Limits.cpp:12  isBelow  (comparison)\n"
            "-    return value < limit;\n"
            "+    return value <= limit;\n"
            "    survived, 1 tests reach it\n"
        )
        self.assertIn(shown, self.all.stdout)

    def test_a_place_that_no_test_reaches_is_told(self):
        self.assertEqual(self.result("isForgotten", "value == 4711 -> value != 4711"), "unreached")

    def test_an_order_that_no_test_notices_is_given_to_the_list(self):
        """Only fences and orders are: whatever else the list would have noticed, the tests have to."""
        listed = {change for (_, change), entry in self.entries.items() if entry["result"] == "listed"}
        self.assertEqual(
            listed,
            {
                "std::atomic_thread_fence(std::memory_order_seq_cst); -> ;",
                "std::atomic_thread_fence(std::memory_order_seq_cst) -> "
                "std::atomic_thread_fence(std::memory_order_relaxed)",
                "published.store(sum, std::memory_order_release) -> published.store(sum, std::memory_order_relaxed)",
            },
        )
        self.assertEqual(
            self.result("everyKind", "published.store(sum, std::memory_order_release); -> ;"), "unreached"
        )
        self.assertEqual(self.row(self.all.stdout, "all")[2], "3")

    def test_a_list_that_is_not_of_these_sources_is_told(self):
        listed = f"{self.project}/docs/orders.txt"
        with open(listed, encoding="utf-8") as file:
            before = file.read()
        self.addCleanup(lambda: self._write(listed, before))
        self._write(listed, "memory_order_release\n")
        told = self.run_with("--entry", self.entries["magnitude", "value < 0 -> value <= 0"]["id"])
        self.assertEqual(told.returncode, 2)
        self.assertEqual(told.stderr, "script/mutate: orders.py fails without any change; look at what it says\n")

    def test_every_kind_of_change_is_found(self):
        for kind, change in (
            ("condition", "isWanted -> !(isWanted)"),
            ("comparison", "first == 'a' -> first != 'a'"),
            ("logic", "isWanted || first == 'a' -> isWanted && first == 'a'"),
            ("arithmetic", "first + second -> first - second"),
            ("arithmetic", "sum *= 3 -> sum /= 3"),
            ("arithmetic", "-1 -> 1"),
            ("constant", "3 -> 3 + 1"),
            ("constant", "3 -> 0"),
            ("constant", "'a' -> static_cast<char>('a' + 1)"),
            ("constant", '"text" -> ""'),
            ("call", "take(first, second); -> ;"),
            ("swap", "take(first, second) -> take(second, first)"),
            ("assignment", "sum = second; -> ;"),
            ("assignment", "sum *= 3; -> ;"),
            ("fence", "std::atomic_thread_fence(std::memory_order_seq_cst); -> ;"),
            (
                "order",
                "published.store(sum, std::memory_order_release) -> published.store(sum, std::memory_order_relaxed)",
            ),
            ("return", "return isWanted || first == 'a' ? sum : -1; -> return {};"),
        ):
            with self.subTest(change=change):
                self.assertEqual(self.entries["everyKind", change]["kind"], kind)
        self.assertEqual(self.entries["take", "return; -> ;"]["kind"], "return")

    def test_what_is_constant_while_a_program_runs_is_not_changed(self):
        changes = {change for function, change in self.entries if function == "note"}
        self.assertFalse({c for c in changes if "17" in c or "19" in c}, changes)
        self.assertIn("least + longest -> least - longest", changes)

    def test_a_change_that_does_not_compile_is_left_out(self):
        self.assertNotIn(("second", "1 -> 1 + 1"), self.entries)
        self.assertRegex(self.all.stdout, r"places, \d+ chosen, [1-9]\d* that do not compile; 2 tests; seed 7\n")

    def test_what_another_process_reaches_counts(self):
        """One of the tests reaches nothing before it replaces itself."""
        self.assertEqual(self.entries["isAbove", "value > limit -> value >= limit"]["reaching"], 2)

    def test_the_exit_code_tells_that_too_much_survived(self):
        self.assertEqual(self.all.returncode, 1, self.all.stderr)
        changes, killed, listed, survived, equivalent, unreached, waiting, part, _ = self.row(
            self.all.stdout, "Forgotten"
        )
        self.assertEqual((killed, survived, equivalent, waiting), ("0", "0", "0", "0"))
        self.assertEqual(int(changes), int(unreached) + int(listed))
        self.assertEqual(part, f"{100 * int(listed) / int(changes):.1f}")

    def test_the_same_seed_chooses_the_same(self):
        work = f"{self.folder.name}/again"
        self.addCleanup(lambda: setattr(type(self), "work", f"{self.folder.name}/work"))
        type(self).work = work
        chosen = []
        for _ in range(2):
            told = self.run_with("--count", "4", "--seed", "3")
            self.assertIn("seed 3\n", told.stdout)
            self.assertEqual(self.row(told.stdout, "Forgotten")[0], "2")
            self.assertEqual(self.row(told.stdout, "Limits")[0], "2")
            chosen.append(set(self.kept()))
        self.assertEqual(*chosen)

    def test_a_change_that_changes_nothing_is_no_survivor(self):
        known = ("magnitude", "value < 0 -> value <= 0")
        self.assertEqual(self.result(*known), "survived")
        before = self.row(self.all.stdout, "Limits")
        entry = self.entry_of(*known).rstrip()
        self.write_equivalents(f"# seen\n\n{entry} of nothing there is\n  one sign only\n")
        told = self.run_with("--resume")
        after = self.row(told.stdout, "Limits")
        self.assertEqual(int(after[3]), int(before[3]) - 1)
        self.assertEqual(int(after[4]), 1)
        self.assertIn("+    return value <= 0 ? -value : value;\n", self.all.stdout)
        self.assertNotIn("+    return value <= 0 ? -value : value;\n", told.stdout)

    def test_of_another_function_nobody_has_seen_anything(self):
        entry = self.entry_of("magnitude", "value < 0 -> value <= 0").rstrip() + " seen\n"
        self.write_equivalents(re.sub(r"^text: .*$", "text: 01234567", entry, flags=re.M))
        told = self.run_with("--resume")
        self.assertEqual(self.row(told.stdout, "Limits")[4], "0")
        self.assertIn("magnitude is another one since somebody looked at: value < 0 -> value <= 0\n", told.stdout)

    def test_an_entry_without_a_reason_is_refused(self):
        self.write_equivalents(self.entry_of("magnitude", "value < 0 -> value <= 0"))
        told = self.run_with("--resume")
        self.assertEqual(told.returncode, 2)
        self.assertIn("an entry has no reason", told.stderr)

    def test_survivors_get_another_try(self):
        kept = f"{self.work}/results.jsonl"
        with open(kept, encoding="utf-8") as file:
            before = file.read()
        self.addCleanup(lambda: self._write(kept, before))
        self._write(kept, before.replace('"killed"', '"survived"', 1))
        told = self.run_with("--survivors")
        self.assertEqual(self.row(told.stdout, "Limits"), self.row(self.all.stdout, "Limits"))

    @staticmethod
    def _write(path, text):
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    def test_an_interrupted_run_is_gone_on_with(self):
        kept = f"{self.work}/results.jsonl"
        os.remove(kept)
        process = subprocess.Popen(
            self.words("--count", "0", "--seed", "7"), stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True
        )
        while self._lines(kept) < 3 and process.poll() is None:
            time.sleep(0.01)
        process.send_signal(signal.SIGINT)
        said = process.communicate()[1]
        self.assertEqual(process.returncode, 130, said)
        self.assertTrue(said.endswith("script/mutate: ended early; script/mutate --resume goes on\n"), said)
        told = self.run_with("--resume")
        self.assertEqual(self.row(told.stdout, "all"), self.row(self.all.stdout, "all"))

    @staticmethod
    def _lines(path):
        try:
            with open(path, encoding="utf-8") as file:
                return len(file.readlines())
        except OSError:
            return 0

    def test_wrong_words_are_refused(self):
        for words, text in (
            (["--fast"], "unrecognized arguments: --fast; see script/mutate --help"),
            (["--jobs", "0"], "a number from 1 is wanted, not '0'"),
            (["--room", "Cellar"], "there is no room called 'Cellar'; there are: Forgotten Limits"),
            (["--resume", "--seed", "8"], "the run to go on with has another --seed: 7"),
            (["--entry", "none"], "no change is called 'none'"),
        ):
            with self.subTest(words=words):
                kept = f"{self.work}/results.jsonl"
                with open(kept, encoding="utf-8") as file:
                    before = file.read()
                told = self.run_with(*words)
                self._write(kept, before)
                self.assertEqual(told.returncode, 2)
                self.assertEqual(told.stderr, f"script/mutate: {text}\n")

    def test_wrong_options_are_refused_before_anything_is_built(self):
        for words, text in (
            (["--jobs", "2", "--fast"], "there is no option '--fast'"),
            (["--resume", "--jobs"], "--jobs wants a value"),
        ):
            with self.subTest(words=words):
                told = subprocess.run(["script/mutate", *words], cwd=ROOT, capture_output=True, text=True, check=False)
                self.assertEqual(told.returncode, 2)
                self.assertEqual(told.stderr, f"script/mutate: {text}; see script/mutate --help\n")

    def test_help_tells_every_option(self):
        told = subprocess.run([SCRIPT, "--help"], capture_output=True, text=True, check=True).stdout
        for option in ("--count", "--seed", "--room", "--jobs", "--resume", "--survivors", "--entry", "--help"):
            self.assertRegex(told, rf"(?m)^  {option} ")


if __name__ == "__main__":
    unittest.main()
