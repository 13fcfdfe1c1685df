"""What script/covering/gcov.py adds to what gcov says of branches that nothing came to."""

import os
import re
import shlex
import shutil
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


# In front of gcov: it counts as a process does that ended while another of its threads was on its way.
SKEWED = """\
#!/bin/sh
{gcov} "$@" || exit
case "$*" in *--json-format*) exit ;; esac
sed -i {amendments} Checks.cpp.gcov
"""


class Gcov(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.environment = dict(os.environ)

    def skew(self, *amendments):
        """From now on gcov writes its text amended by these commands of sed."""
        os.mkdir(f"{self.folder}/bin")
        with open(f"{self.folder}/bin/gcov", "w", encoding="utf-8") as program:
            program.write(SKEWED.format(gcov=shutil.which("gcov"),
                                        amendments=" ".join(f"-e {shlex.quote(each)}" for each in amendments)))
        os.chmod(f"{self.folder}/bin/gcov", 0o755)
        self.environment["PATH"] = f"{self.folder}/bin:{self.environment['PATH']}"

    def lines_of(self, place, *options):
        """What is said of a program in a folder."""
        source = f"{self.folder}/{place}/Checks.cpp"
        os.makedirs(os.path.dirname(source), exist_ok=True)
        with open(source, "w", encoding="utf-8") as text:
            text.write(SOURCE)
        for command in (["g++", "--coverage", "-O0", "-c", source, "-o", "checks.o"],
                        ["g++", "--coverage", "checks.o", "-o", "checks"], ["./checks"]):  # fmt: skip
            subprocess.run(command, cwd=self.folder, check=True)
        done = subprocess.run(
            [sys.executable, "-B", PROGRAM, "checks.gcda", "--branch-probabilities", "--demangled-names", *options],
            cwd=self.folder, env=self.environment, capture_output=True, text=True, check=False)  # fmt: skip
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn("Creating 'Checks.cpp.gcov'\n", done.stdout)
        with open(f"{self.folder}/Checks.cpp.gcov", encoding="utf-8") as text:
            return text.read().splitlines()

    def branches_of(self, place, line):
        """What is said of the branches of a line of a program in a folder; for each function in which it stands."""
        told, wanted = [], False
        for words in self.lines_of(place):
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

    def test_nothing_was_taken_less_than_never(self):
        self.skew("/: *14:/,/^branch  1/s/taken 0/taken -1/", "/^function check(int)/s/called 1 /called -12 /",
                  "s/^ *1:   11:/       -2:   11:/")  # fmt: skip

        lines = self.lines_of("src", "--branch-counts")

        self.assertIn("    #####:   11:void check(int value)", lines)
        self.assertIn("function check(int) called 0 returned 100% blocks executed 57%", lines)
        decision = lines.index("        1:   14:    if (value > 0) {")
        self.assertEqual(lines[decision + 1 : decision + 3], ["branch  0 taken 0 (fallthrough)", "branch  1 taken 1"])

    def test_a_negative_number_of_the_source_stays(self):
        self.skew("s/value > 0) {$/value > 0 - 1) { taken -1:/")
        self.assertIn("        1:   14:    if (value > 0 - 1) { taken -1:", self.lines_of("tools"))

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
