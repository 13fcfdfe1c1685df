"""Every listing in the documents is a part of a file that the tests build or run."""

import re
import textwrap
import unittest

import sources
from documents import all_documents

LANGUAGES = {
    "cpp": (".cpp", ".h"),
    "json": (".json",),
    "cmake": ("CMakeLists.txt",),
    "python": (".py",),
    "qml": (".qml",),
}
# The worked example of the format is checked by the tool, see tests/tool/tst_Readme.cpp; the programs that reckon with memory
# and recordings are run by tests of their own.
CHECKED_ELSEWHERE = {
    ("docs/description-format.md", "json"),
    ("docs/memory-format.md", "python"),
    ("docs/recording-format.md", "python"),
}


def regions(text):
    """The parts of a source between marks such as //! [name] or #! [name], joined by their names."""
    parts = {}
    name = None
    for line in text.splitlines(keepends=True):
        mark = re.fullmatch(r"\s*(?://|#)! \[(.*)\]\n", line)
        if mark:
            name = None if name == mark[1] else mark[1]
        elif name:
            parts[name] = parts.get(name, "") + line
    return {textwrap.dedent(part).rstrip("\n") + "\n" for part in parts.values()}


def example_parts(endings):
    parts = set()
    for path in sources.source_files("examples", *endings):
        text = path.read_text(encoding="utf-8")
        parts |= {text} | regions(text)
    return parts


class Listings(unittest.TestCase):
    def test_are_parts_of_examples(self):
        checked = 0
        for language, endings in LANGUAGES.items():
            parts = example_parts(endings)
            for document in all_documents():
                if (document.name, language) in CHECKED_ELSEWHERE:
                    continue
                for listing in document.blocks(language):
                    with self.subTest(document=document.name, listing=listing):
                        self.assertTrue(listing in parts, "no part of an example")
                        checked += 1
        self.assertGreater(checked, 10)


if __name__ == "__main__":
    unittest.main()
