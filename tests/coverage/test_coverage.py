"""What script/coverage says of lines and branches that were counted, and of the list of those left over."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
PROGRAM = f"{ROOT}/script/covering/covering.py"
SOURCE = """\
int sign(int value)
{
    if (value < 0) {
        return   -1;
    }

    if (value > 0) {
        return 1;
    }
    fail();
    return 0;
}
"""
HALF = "src/Room/Half.cpp"
ENTRY = f"{HALF}: if (value > 0) {{\n    return 1;\n"


class Coverage(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.project = folder.name
        self.files = []

    def count(self, file, counts, branches=(), source=SOURCE):
        """A file of the project; how often each of its lines ran, and each branch of line 3."""
        os.makedirs(os.path.dirname(f"{self.project}/{file}"), exist_ok=True)
        with open(f"{self.project}/{file}", "w", encoding="utf-8") as text:
            text.write(source)
        lines = [
            {"line_number": number, "count": count, "gcovr/noncode": False,
             "branches": [{"count": each} for each in branches] if number == 3 else []}
            for number, count in counts.items()
        ]  # fmt: skip
        self.files.append({"file": file, "lines": lines})

    def full(self, lines=200, branches=20):
        """A file in which everything was reached."""
        self.count("tools/tessel/text/Full.cpp", {n: 1 for n in range(1, lines + 1)}, [1] * branches)

    def run_with(self, named="", *words):
        counted, path = f"{self.project}/coverage.json", f"{self.project}/left-over.txt"
        with open(counted, "w", encoding="utf-8") as file:
            json.dump({"files": self.files}, file)
        with open(path, "w", encoding="utf-8") as file:
            file.write(named)
        return subprocess.run(
            [sys.executable, "-B", PROGRAM, "--project", self.project, "--counted", counted, "--list", path, *words],
            capture_output=True, text=True, check=False,
        )  # fmt: skip

    def test_all_lines_and_branches_reached_is_a_success_with_a_table_of_rooms(self):
        self.full()
        self.count(HALF, {3: 2, 4: 1}, [1, 0])
        self.count("tools/tessel/main.cpp", {1: 1})
        done = self.run_with()
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual(done.stdout.splitlines(), [
            "room               lines  reached    share  branches  reached    share",
            "src/Room               2        2  100.0 %         2        1   50.0 %",
            "tools/tessel           1        1  100.0 %         0        0  100.0 %",
            "tools/tessel/text    200      200  100.0 %        20       20  100.0 %",
            "all                  203      203  100.0 %        22       21   95.5 %",
            "0 lines in 0 places were not reached, 0 places are named with their reason",
        ])  # fmt: skip

    def test_a_line_that_is_not_named_is_told_with_its_place_and_fails(self):
        self.full()
        self.count(HALF, {3: 1, 4: 0, 7: 1, 8: 0, 10: 0, 11: 1})
        done = self.run_with(f"reason: Why.\n{ENTRY}    fail();\n")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout.splitlines()[:2], [
            f"{HALF}:4: no test comes to, and the list does not name:",
            "    return -1;",
        ])  # fmt: skip
        self.assertIn("3 lines in 2 places were not reached, 1 places are named", done.stdout)

    def test_named_lines_pass_wherever_they_stand(self):
        self.full()
        self.count(HALF, {5: 1, 6: 0, 7: 1, 10: 0, 12: 0, 13: 1}, source="// more\n\n" + SOURCE)
        done = self.run_with(
            f"# a remark\nreason: Why,\n  in two lines.\n{HALF}: if (value < 0) {{\n    return -1;\n\n"
            f"reason: Another.\n{HALF}: if (value > 0) {{\n    return 1;\n    fail();\n"
        )
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_an_entry_whose_lines_are_reached_is_a_fault(self):
        self.full()
        self.count(HALF, {7: 1, 8: 1})
        done = self.run_with(f"reason: Why.\n{ENTRY}")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout.splitlines()[:3], [
            f"{self.project}/left-over.txt: tested by now, or another line: take away or look again:",
            f"    {HALF}: if (value > 0) {{",
            "        return 1;",
        ])  # fmt: skip

    def test_an_entry_of_another_line_or_file_names_nothing(self):
        self.full()
        self.count(HALF, {7: 1, 8: 0})
        for entry in (ENTRY.replace("return 1;", "return 2;"), ENTRY.replace("> 0", ">= 0"), ENTRY.replace("Half", "Whole")):
            with self.subTest(entry=entry):
                done = self.run_with(f"reason: Why.\n{entry}")
                self.assertEqual(done.returncode, 1)
                self.assertIn(f"{HALF}:8: no test comes to", done.stdout)
                self.assertIn("take away or look again", done.stdout)

    def test_a_place_that_is_there_twice_is_named_twice(self):
        self.full()
        self.count(HALF, {7: 1, 8: 0, 9: 1, 18: 0, 19: 1, 20: 1}, source=SOURCE[:-2] + SOURCE[SOURCE.index("\n{") + 1 :])
        source = (SOURCE[:-2] + SOURCE[SOURCE.index("\n{") + 1 :]).splitlines()
        self.assertEqual(source[17].strip(), "return 1;")
        once = self.run_with(f"reason: Why.\n{ENTRY}")
        self.assertEqual(once.returncode, 1)
        self.assertIn(f"{HALF}:8, 18: no test comes to", once.stdout)
        twice = self.run_with(f"reason: Why.\n{ENTRY}{ENTRY}")
        self.assertEqual(twice.returncode, 0, twice.stdout)

    def test_too_few_lines_fail_though_all_are_named(self):
        self.full(lines=32)
        self.count(HALF, {7: 1, 8: 0})
        self.assertEqual(self.run_with(f"reason: Why.\n{ENTRY}").returncode, 0)
        self.files[0]["lines"].pop()
        done = self.run_with(f"reason: Why.\n{ENTRY}")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout.splitlines()[0], "96.97 % of the lines were reached, 97 % have to be")

    def test_too_few_branches_fail(self):
        self.count(HALF, {3: 1}, [1] * 9 + [0])
        self.assertEqual(self.run_with().returncode, 0)
        self.files[0]["lines"][0]["branches"].pop(0)
        done = self.run_with()
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout.splitlines()[0], "88.89 % of the branches were reached, 90 % have to be")

    def test_lines_without_code_do_not_count(self):
        self.full()
        self.count(HALF, {7: 1, 8: 0})
        self.files[1]["lines"][1]["gcovr/noncode"] = True
        done = self.run_with()
        self.assertEqual(done.returncode, 0, done.stdout)
        self.assertIn("src/Room               1        1  100.0 %", done.stdout)

    def test_entries_are_what_the_list_wants_but_for_the_reason(self):
        self.full()
        self.count(HALF, {1: 0, 3: 1, 4: 0, 7: 1, 8: 0})
        entries = self.run_with(f"reason: Why.\n{ENTRY}", "--entries")
        self.assertEqual(entries.returncode, 0, entries.stderr)
        self.assertEqual(
            entries.stdout, f"{HALF}:\n    int sign(int value)\n{HALF}: if (value < 0) {{\n    return -1;\n"
        )
        done = self.run_with(f"reason: Why.\n{ENTRY}{entries.stdout}")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_a_list_that_cannot_be_read_is_told_with_the_line(self):
        self.full()
        for text, line, fault in (
            (ENTRY, 1, "a place without a reason"),
            (f"reason: Why.\n\n{ENTRY}", 3, "a place without a reason"),
            (f"reason: Why.\n{HALF}: if\n\n", 2, "a place without a line of code"),
            ("reason: Why.\n    return 1;\n", 2, "a line of code that belongs to no file"),
            ("because\n", 1, "neither a reason nor a place"),
            (f"reason: \n{ENTRY}", 1, "neither a reason nor a place"),
        ):
            with self.subTest(text=text):
                done = self.run_with(text)
                self.assertEqual(done.returncode, 2, done.stdout)
                told = f"script/coverage: {self.project}/left-over.txt:{line}: {fault}; the head of the file tells its form\n"
                self.assertEqual(done.stderr, told)

    def test_a_file_that_is_gone_is_told(self):
        self.count(HALF, {1: 0})
        os.remove(f"{self.project}/{HALF}")
        done = self.run_with()
        self.assertEqual(done.returncode, 2)
        self.assertEqual(
            done.stderr,
            f"script/coverage: {HALF}: No such file or directory; it was counted and is gone: run script/coverage again\n",
        )

    def test_the_script_refuses_what_it_does_not_know(self):
        for words, text in (
            (["--fast"], "there is no option '--fast'; see script/coverage --help"),
            (["--again", "--entries"], "one option is enough; see script/coverage --help"),
        ):
            with self.subTest(words=words):
                done = subprocess.run(["script/coverage", *words], cwd=ROOT, capture_output=True, text=True, check=False)
                self.assertEqual((done.returncode, done.stderr), (1, f"script/coverage: {text}\n"))

    def test_the_committed_list_can_be_read(self):
        self.full()
        with open(f"{ROOT}/script/covering/left-over.txt", encoding="utf-8") as file:
            done = self.run_with(file.read())
        self.assertIn(done.returncode, (0, 1), done.stderr)


if __name__ == "__main__":
    unittest.main()
