"""Every command line in the documents is run by a test, or says why not, and what is only mentioned
exists.

Blocks called `console` hold what a terminal shows: commands behind `$ `, and what they print.
Blocks called `sh` are commands alone. In front of a block that no test runs stands a comment:
<!-- not run: REASON -->.
"""

import builtins
import os
import re
import unittest

import sources
from documents import all_documents

# Documents whose console blocks are run, each by a test of its own.
RUN = {
    "docs/guide/02-first-device.md": "tests/documents/test_first_device.py",
    "docs/guide/01-concepts.md": "tests/documents/test_transcripts.py",
    "docs/guide/05-configuration.md": "tests/documents/test_transcripts.py",
    "docs/guide/06-instance-directories.md": "tests/documents/test_transcripts.py",
    "docs/guide/07-tables.md": "tests/documents/test_transcripts.py",
    "docs/guide/11-troubleshooting.md": "tests/documents/test_transcripts.py",
    "docs/tool.md": "tests/documents/test_transcripts.py",
}
RUN.update(
    (str(page.relative_to(sources.PROJECT)), "tests/documents/test_transcripts.py")
    for page in sorted((sources.PROJECT / "docs/man").glob("*.[1-9].md"))
    # Their programs have tests of their own.
    if page.name.split(".")[0].removeprefix("tessel-") not in sources.exits()
)
# What is none of ours: settings of systemd and Kubernetes.
FOREIGN = {
    "ExecStartPost", "TimeoutStartSec", "PartOf", "emptyDir", "RemoveIPC", "LimitAS", "DynamicUser",
    "SupplementaryGroups", "PrivateIPC", "WatchdogSec",
}
# By which twins of operations are told apart.
ENDINGS = {"NoLock", "NoSignalEmit", "WithStatus"}
_BLOCK = re.compile(r"(<!-- not run: [^>]+ -->\n)?^```(sh|console)\n", re.M)


class Commands(unittest.TestCase):
    def test_are_run_or_say_why_not(self):
        found = 0
        for document in all_documents():
            for mark, language in _BLOCK.findall(document.text):
                found += 1
                is_run = language == "console" and document.name in RUN
                self.assertTrue(mark or is_run, f"{document.name}: a block of {language}")
        self.assertGreater(found, 5)

    def test_scripts_that_are_mentioned_exist(self):
        for document in all_documents():
            for script in re.findall(r"\bscript/[a-z]+(?:-[a-z]+)*(?![a-z/-])", document.text):
                path = sources.PROJECT / script
                self.assertTrue(path.is_dir() or os.access(path, os.X_OK), script)

    def test_subcommands_that_are_mentioned_exist(self):
        declared = set()
        for path in sources.source_files("tools", ".cpp"):
            code = sources.code_of(path)
            declared |= set(re.findall(r'syntax\.name = QStringLiteral\("([a-z ]+)"', code))
        known = {name.split()[0] for name in declared} | sources.exits()
        self.assertGreater(len(known), 5)
        for document in all_documents():
            for name in re.findall(r"`tessel ([a-z]+)", document.text):
                self.assertIn(name, known, document.name)

    def test_tests_and_checks_that_are_mentioned_exist(self):
        programs = {path.stem for path in sources.source_files("tests", ".cpp")}
        checks = {path.name for path in (sources.PROJECT / "script/checks").iterdir()}
        mentioned = 0
        for document in all_documents():
            for name in re.findall(r"`(tst_[A-Z]\w+)`", document.text):
                self.assertIn(name, programs, document.name)
                mentioned += 1
            for name in re.findall(r"`script/check\s+([a-z]+)`", document.text):
                self.assertIn(name, checks, document.name)
        self.assertGreater(mentioned, 20)

    def test_names_of_code_that_are_mentioned_exist(self):
        """Words such as `lockWriteBuffer` or `ProcessValue`, with or without brackets behind."""
        code = "".join(
            path.read_text(encoding="utf-8")
            for room in ("src", "tools", "exits", "examples", "tests", "docs/protocol")
            for path in sources.source_files(room, ".h", ".cpp", ".json", ".txt", ".pml")
        )
        code += "".join(path.read_text(encoding="utf-8") for path in sources.source_files("python", ".py"))
        known = set(re.findall(r"\w+", code)) | FOREIGN | ENDINGS | set(dir(builtins))
        pattern = re.compile(r"`([A-Za-z]+[a-z][A-Z]\w*)(?:\([^`]*\))?`")
        mentioned = [
            (document.name, word)
            for document in all_documents()
            for word in pattern.findall(document.text)
        ]
        self.assertGreater(len(mentioned), 100)
        self.assertEqual([item for item in mentioned if item[1] not in known], [])


if __name__ == "__main__":
    unittest.main()
