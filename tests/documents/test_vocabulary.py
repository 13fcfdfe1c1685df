"""The references name everything that there is: keys, types, states, statuses, exit codes, classes."""

import re
import unittest

import sources
from documents import document

# What stands at the beginning of a line and is more than an announcement.
_DECLARATION = re.compile(
    r"^(?:class|struct|enum|using|namespace) (?:TESSEL_EXPORT )?(\w+)(?=[^;\n]*$|\s*=)", re.M
)


def enumerators(path, name):
    """The enumerators of an enumeration in a header, with their numbers."""
    body = re.search(rf"enum {name}[^{{]*\{{(.*?)\}}", sources.code_of(sources.PROJECT / path), re.S)
    return re.findall(r"(\w+) = (\d+)", body[1])


class Vocabulary(unittest.TestCase):
    def test_format_has_every_key(self):
        header = sources.read("src/Companion/ConfigurationAndProcessDataDefinitions.h")
        keys = re.findall(r"/// `(\w+)`: .*\n\s*static const QString &get", header)
        code = sources.read("src/Companion/ConfigurationAndProcessDataDefinitions.cpp")
        reference = document("docs/description-format.md").text
        self.assertGreater(len(keys), 30)
        for key in keys:
            self.assertIn(f'"{key}"', code)
            self.assertIn(f"`{key}`", reference)
        # Whatever the code spells out is in the reference too.
        for key in re.findall(r'Literal\("(\w+)"\)|QLatin1String\("(\w+)"\)', code):
            self.assertIn(f"`{''.join(key)}`", reference)

    def test_every_status_of_a_write_is_explained(self):
        statuses = enumerators(
            "src/Configuration/ConfigurationAndProcessDataBase.h", "SetValueStatus"
        )
        self.assertEqual(len(statuses), 5)
        for name, number in statuses:
            self.assertIn(f"| {number} | `{name}` |", document("docs/status-values.md").text)

    def test_every_error_state_is_explained(self):
        states = enumerators("src/ProcessData/ProcessValueErrorTypes.h", "ErrorTypes")
        self.assertEqual(len(states), 10)
        for name, number in states:
            short = name.replace("PROCESS_VALUE_ERROR_TYPE_", "")
            self.assertIn(f"| {number} | `{short}` |", document("docs/guide/09-states.md").text)

    def test_guide_has_the_table_of_the_exits(self):
        code = sources.code_of(sources.PROJECT / "common/states/StateTable.cpp")
        rows = re.findall(
            r'\{PROCESS_VALUE_ERROR_TYPE_(\w+),\s*"([a-z-]+)",\s*"[^"]*",\s*NAMUR_STATE_TYPE_(\w+),'
            r"\s*(true|false)\}",
            code,
        )
        self.assertEqual(len(rows), 11)
        text = document("docs/guide/14-exits.md").text
        metrics = sources.code_of(sources.PROJECT / "exits/mqtt/LeafMetric.cpp")
        numbers = dict(re.findall(r"constexpr int (\w+) = (\d+);", metrics))
        qualities = dict(re.findall(r"case (?:\w+::)?PROCESS_VALUE_ERROR_TYPE_(\w+): return (\w+);", metrics))
        self.assertEqual(len(qualities), 2)
        signals = {"NONE": "none", "FAILURE": "F, failure", "OUT_OF_SPECIFICATION": "S, out of specification"}
        for number, (state, name, signal, has_value) in enumerate(row for row in rows if row[1] != "unknown"):
            quality = qualities.get(state, "bad")
            value = "passed on | value and state" if has_value == "true" else "left out | state alone"
            self.assertIn(
                f"| {number} | `{name}` | {value} | {numbers[quality]}, {quality} | {signals[signal]} |", text
            )

    def test_every_namur_state_is_explained(self):
        states = enumerators("src/ProcessData/ProcessValueErrorTypes.h", "NamurStateTypes")
        self.assertEqual(len(states), 5)
        for name, number in states:
            short = name.replace("NAMUR_STATE_TYPE_", "")
            self.assertIn(f"| {number} | `{short}` |", document("docs/guide/09-states.md").text)

    def test_every_exit_code_of_the_tool_is_explained(self):
        codes = []
        for path in sources.source_files("tools", ".h"):
            body = re.search(r"enum (?:class )?ExitCode[^{]*\{(.*?)\}", sources.code_of(path), re.S)
            codes += re.findall(r"= (\d+)", body[1]) if body else []
        section = document("docs/tool.md").text.partition("## Exit codes")[2].partition("\n## ")[0]
        self.assertGreater(len(codes), 5)
        self.assertEqual(codes, re.findall(r"^\| (\d+) \|", section, re.M))

    def test_api_pages_have_every_exported_class_and_function(self):
        pages = "".join(
            path.read_text(encoding="utf-8") for path in sources.source_files("docs/api", ".md")
        )
        exported = 0
        for path in sources.source_files("src", ".h"):
            if path.name.endswith("_p.h"):
                continue
            code = sources.code_of(path)
            for name in re.findall(r"^(?:class|struct) TESSEL_EXPORT (\w+)", code, re.M):
                self.assertIn(f"{{doxygenclass}} {name}\n", pages)
                exported += 1
            for name in re.findall(r"^TESSEL_EXPORT [\w ]*?&?(\w+)\(", code, re.M):
                self.assertIn(f"{{doxygenfunction}} {name}\n", pages)
                exported += 1
        self.assertGreater(exported, 30)

    def test_api_pages_have_whatever_a_header_declares(self):
        """Templates, namespaces, enumerations and aliases too, which are not exported."""
        pages = "".join(
            path.read_text(encoding="utf-8") for path in sources.source_files("docs/api", ".md")
        )
        declared = set()
        for path in sources.source_files("src", ".h"):
            if not path.name.endswith("_p.h"):
                declared |= set(_DECLARATION.findall(sources.code_of(path)))
        self.assertGreater(len(declared), 35)
        missing = {name for name in declared if not re.search(rf"\}} ([\w:]+::)?{name}\b", pages)}
        self.assertEqual(missing, set())

    def test_every_class_is_named_on_the_first_page_of_the_reference(self):
        index = document("docs/api/index.md").text
        for path in sources.source_files("docs/api", ".md"):
            for name in re.findall(r"\{doxygenclass\} (?:\w+::)?(\w+)", path.read_text("utf-8")):
                self.assertIn(f"`{name}`", index)

    def test_every_example_has_its_place(self):
        text = document("docs/examples.md").text
        folders = [path for path in (sources.PROJECT / "examples").iterdir() if path.is_dir()]
        self.assertGreater(len(folders), 7)
        for folder in folders:
            self.assertIn(f"\n## {folder.name}\n", text)

    def test_first_page_leads_to_every_other_one(self):
        text = document("docs/index.md").text
        pages = sources.source_files("docs", ".md")
        pages = [page.relative_to(sources.PROJECT / "docs") for page in pages]
        pages = [page for page in pages if len(page.parts) == 1 or page.parts[0] == "guide"]
        self.assertGreater(len(pages), 20)
        for page in pages:
            self.assertTrue(page.name == "index.md" or f"]({page})" in text, page)

    def test_words_stand_in_alphabetical_order_and_once(self):
        table = document("docs/guide/12-words.md").text.partition("|---")[2]
        found = re.findall(r"^\| ([A-Za-z][^|]*?) \|", table, re.M)
        self.assertGreater(len(found), 25)
        self.assertEqual(found, sorted(set(found), key=str.lower))


if __name__ == "__main__":
    unittest.main()
