"""The list of messages in the guide is that of the sources, no more and no less."""

import re
import unittest

import sources
from documents import PROJECT, document

TROUBLESHOOTING = "docs/guide/11-troubleshooting.md"


def listed_messages():
    """The first cells of the tables whose first column is the message."""
    messages = []
    for table in re.findall(r"^\| Message \|.*\n((?:\|.*\n)+)", document(TROUBLESHOOTING).text, re.M):
        messages += re.findall(r"^\| `([^`]+)` \|", table, re.M)
    return messages


class Messages(unittest.TestCase):
    def test_every_statement_that_logs_is_understood(self):
        self.assertEqual(sources.unread_log_statements(), [])

    def test_guide_lists_the_messages_of_the_sources(self):
        written = sources.log_messages() | sources.segment_failures()
        listed = {sources.normalised(message) for message in listed_messages()}
        self.assertGreater(len(written), 150)
        self.assertEqual(sorted(written - listed), [], "in the sources, but not in the guide")
        self.assertEqual(sorted(listed - written), [], "in the guide, but not in the sources")

    def test_each_message_has_a_cause(self):
        for row in re.findall(r"^\| `.*$", document(TROUBLESHOOTING).text, re.M):
            self.assertTrue(row.split("|")[2].strip(), row)

    def test_what_the_guide_says_of_mirrors_is_said_by_them(self):
        files = [*sorted((PROJECT / "exits/mirror").glob("*.cpp")), PROJECT / "exits/service/BoundedLog.cpp"]
        code = "".join(path.read_text(encoding="utf-8") for path in files)
        said = re.sub(r'"\s*"', "", code)
        section = document(TROUBLESHOOTING).text.split("\n## Mirrors\n")[1]
        rows = re.findall(r"^\| `(.*?)` \|", section, re.M)
        self.assertGreater(len(rows), 20)
        for row in rows:
            # What stands behind this is the engine's own.
            row = re.sub("(?<=the engine says): .*", "", row)
            for piece in re.split(r"'?…'?|[:;]|it says that", row):
                self.assertIn(piece.strip(), said, row)


if __name__ == "__main__":
    unittest.main()
