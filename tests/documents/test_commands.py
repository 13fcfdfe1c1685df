"""Every command line in the documents is run by a test, or says why not.

Blocks called `console` hold what a terminal shows: commands behind `$ `, and what they print. Blocks
called `sh` are commands alone. In front of a block that no test runs stands a comment:
<!-- not run: REASON -->.
"""

import re
import unittest

from documents import all_documents

# Documents whose console blocks are run, each by a test of its own.
RUN = {
    "docs/guide/02-first-device.md": "tests/documents/test_first_device.py",
    "docs/guide/01-concepts.md": "tests/documents/test_transcripts.py",
    "docs/guide/05-configuration.md": "tests/documents/test_transcripts.py",
    "docs/guide/06-instance-directories.md": "tests/documents/test_transcripts.py",
    "docs/guide/07-tables.md": "tests/documents/test_transcripts.py",
    "docs/tool.md": "tests/documents/test_transcripts.py",
}
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


if __name__ == "__main__":
    unittest.main()
