"""What script/covering/gcov.py adds to what gcov says of branches that nothing came to."""

import os
import re
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
PROGRAM = f"{ROOT}/script/covering/gcov.py"
SOURCE = """\
struct Guard { ~Guard(); };
Guard::~Guard() {}

void refuse(int value)
{
    if (value > 1) {
        throw value;
    }
}

void check(int value)
{
    Guard guard;
    if (value > 0) {
        refuse(value);
    }
}

template <typename T>
void checkEither(T value)
{
    Guard guard;
    if (value > 0) {
        refuse(static_cast<int>(value));
    }
}

int main(int count, char **)
{
    check(1 - count);
    checkEither(1 - count);
    checkEither(0L + count);
}
"""


class Gcov(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def branches_of(self, place, line):
        """What is said of the branches of a line of a program in a folder; for each function in which it stands."""
        source = f"{self.folder}/{place}/Checks.cpp"
        os.makedirs(os.path.dirname(source), exist_ok=True)
        with open(source, "w", encoding="utf-8") as text:
            text.write(SOURCE)
        for command in (["g++", "--coverage", "-O0", "-c", source, "-o", "checks.o"],
                        ["g++", "--coverage", "checks.o", "-o", "checks"], ["./checks"]):  # fmt: skip
            subprocess.run(command, cwd=self.folder, check=True)
        done = subprocess.run([sys.executable, "-B", PROGRAM, "checks.gcda", "--branch-probabilities", "--demangled-names"],
                              cwd=self.folder, capture_output=True, text=True, check=False)  # fmt: skip
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn("Creating 'Checks.cpp.gcov'\n", done.stdout)
        told, wanted = [], False
        with open(f"{self.folder}/Checks.cpp.gcov", encoding="utf-8") as text:
            for words in text:
                if words.startswith("branch") and wanted:
                    told[-1].append(words.split(None, 2)[2].rstrip())
                elif re.match(rf" *[^:]+: *{line}:", words):
                    told.append([])
                    wanted = True
                elif not words.startswith(("call", "branch")):
                    wanted = False
        return [branches for branches in told if branches]

    def test_a_call_that_nothing_came_to_has_its_branch_for_exceptions(self):
        self.assertEqual(self.branches_of("src", 15), [["never executed", "taken 0% (throw)"]])

    def test_a_decision_that_was_taken_is_told_as_gcov_does(self):
        self.assertEqual(self.branches_of("tools", 14), [["taken 0% (fallthrough)", "taken 100%"]])

    def test_each_function_made_from_a_template_has_its_own(self):
        self.assertEqual(sorted(self.branches_of("src", 24)),
                         [["never executed", "taken 0% (throw)"],
                          ["taken 100% (fallthrough)", "taken 0% (throw)"]])  # fmt: skip

    def test_files_of_others_stay_as_gcov_wrote_them(self):
        self.assertEqual(self.branches_of("other", 15), [["never executed", "never executed"]])

    def test_what_gcov_is_asked_of_itself_it_answers(self):
        words = ["--demangled-names", "--version"]
        asked = subprocess.run(["gcov", *words], capture_output=True, check=True)
        done = subprocess.run([sys.executable, "-B", PROGRAM, *words], capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (0, asked.stdout))

    def test_what_gcov_fails_at_fails(self):
        done = subprocess.run([sys.executable, "-B", PROGRAM, "--no-such-option"], capture_output=True, check=False)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(b"--no-such-option", done.stderr)


if __name__ == "__main__":
    unittest.main()
