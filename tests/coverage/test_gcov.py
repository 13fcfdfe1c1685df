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


# Where an exception leads out of a function, and into one again.
LEAVING = """\
#include <initializer_list>
struct Name { Name(int value); ~Name(); int value; };
Name::Name(int value) : value(value)
{
    if (value > 100) {
        throw value;
    }
}
Name::~Name() {}

int first(int value)
{
    const Name names[] = {Name(value), Name(2)};
    return names[0].value;
}

int caught(int value)
{
    try {
        return first(value);
    } catch (int reason) {
        if (reason > 7) {
            return 1;
        }
    }
    return 0;
}

int passedOn(int value, int &told)
{
    try {
        return first(value);
    } catch (int reason) {
        if (reason > 7) {
            told = 1;
        }
        throw;
    }
}

int brief(int value)
{
    try { return first(value); } catch (int reason) { return reason > 7 ? 1 : 0; }
}

struct List { List(std::initializer_list<Name> names); int size; };
List::List(std::initializer_list<Name> names) : size(first(static_cast<int>(names.size()))) {}

List list(int value)
{
    return {Name(value), Name(2),
            Name(first(value))};
}

int main(int count, char **)
{
    brief(count);
    list(count);
    return first(count) + caught(count + 200) + passedOn(count, count) - 3;
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
        self.text = SOURCE

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
            text.write(self.text)
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

    def lines_with(self, text):
        """What is said of all branches of each line that reads so, of those of exceptions no more than that."""
        told, wanted = [], False
        for words in self.lines_of("src"):
            if words.startswith("branch") and wanted:
                told[-1].append("throw" if words.endswith("(throw)") else words.split(None, 2)[2])
            elif not words.startswith("call"):
                wanted = words.endswith(f":{text}")
                told += [[]] if wanted else []
        return told

    def test_what_an_exception_leaves_is_cleared_away_by_no_decision_of_the_line(self):
        self.text = LEAVING
        self.assertEqual(self.lines_with("    const Name names[] = {Name(value), Name(2)};"),
                         [["taken 83% (fallthrough)", "throw", "taken 100% (fallthrough)", *["throw"] * 5]])  # fmt: skip

    def test_so_it_is_where_what_is_made_stands_on_several_lines(self):
        self.text = LEAVING
        self.assertEqual(self.lines_with("            Name(first(value))};"),
                         [["taken 75% (fallthrough)", "taken 25%", "throw", "throw"]])  # fmt: skip

    def test_a_handler_on_the_line_of_what_it_handles_decides_something(self):
        self.text = LEAVING
        brief = "    try { return first(value); } catch (int reason) { return reason > 7 ? 1 : 0; }"
        self.assertEqual(self.lines_with(brief),
                         [["taken 100% (fallthrough)", "throw", *["never executed"] * 4]])  # fmt: skip

    def test_what_is_cleared_away_without_an_exception_is_a_decision(self):
        self.text = LEAVING
        self.assertIn(["taken 67% (fallthrough)", "taken 33%"], self.lines_with("}"))

    def test_a_decision_of_a_handler_is_one_whether_it_ends_the_exception_or_not(self):
        self.text = LEAVING
        self.assertEqual(self.lines_with("        if (reason > 7) {"),
                         [["taken 100% (fallthrough)", "taken 0%"], ["never executed", "never executed"]])  # fmt: skip

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
