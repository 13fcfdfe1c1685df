"""The page of rules for descriptions is the table of the library, no more and no less."""

import re
import unittest

import sources
from documents import document

# A row: enumerator, name, level, and two texts of one or several literals each.
_TEXT = r'("(?:[^"\\]|\\.)*"(?:\s*"(?:[^"\\]|\\.)*")*)'
_ROW = re.compile(rf'\{{Rule::(\w+),\s*"([a-z0-9-]+)",\s*(error|warning),\s*{_TEXT},\s*{_TEXT}\}}')


def joined(literals):
    return "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', literals))


def rows_of_the_table():
    code = sources.read("src/Validation/RuleTable.cpp")
    return [
        (name, level, joined(cause), joined(cure))
        for _, name, level, cause, cure in _ROW.findall(code)
    ]


def rows_of_the_page():
    text = document("docs/rules.md").text
    return re.findall(r"^\| `([a-z0-9-]+)` \| (\w+) \| (.*) \| (.*) \|$", text, re.M)


class Rules(unittest.TestCase):
    def test_page_is_the_table(self):
        code = sources.read("src/Validation/RuleTable.cpp")
        self.assertEqual(len(rows_of_the_table()), code.count("{Rule::"))
        self.assertGreater(len(rows_of_the_table()), 60)
        self.assertEqual(rows_of_the_table(), rows_of_the_page())

    def test_documents_mention_rules_that_exist(self):
        names = {name for name, *_ in rows_of_the_table()}
        text = document("docs/tool.md").text + document("docs/man/tessel-help.1.md").text
        mentioned = set(re.findall(r"^\$ tessel help ([a-z-]+)$", text, re.M))
        self.assertTrue(mentioned)
        self.assertLessEqual(mentioned, names)


if __name__ == "__main__":
    unittest.main()
