"""The manual pages name what there is, no less and no more: subcommands, options, exit codes,
states, keys; and the versions of the formats are the same wherever they stand.

The environment says where the tool is: TESSEL_TOOL.
"""

import os
import re
import subprocess
import unittest

import sources
from documents import document
from test_vocabulary import enumerators

FOLDER = sources.PROJECT / "docs/man"
# What only the description of a folder has.
FOLDER_KEYS = {"labelTextId", "cpveVersion", "configurationVersion"}


def help_of(*arguments):
    result = subprocess.run(
        [os.environ["TESSEL_TOOL"], *arguments, "--help"],
        stdout=subprocess.PIPE, encoding="utf-8", timeout=60, check=True,
    )
    return result.stdout


def page(name):
    return document(f"docs/man/{name}.md").text


def section(text, title):
    """The text below a heading; fails where there is none."""
    return re.search(rf"^## {title}\n(.*?)(?=^## |\Z)", text, re.S | re.M)[1]


def terms(text):
    """What stands above the definitions of a section."""
    return re.findall(r"^(\S.*)\n: ", text, re.M)


def words(text):
    return set(re.findall(r"`([^`]+)`", text))


def subcommands():
    listed = re.search(r"^Subcommands:\n(.*?)\n\n", help_of(), re.S | re.M)[1]
    return re.findall(r"^  (\w+) ", listed, re.M)


def options_in_help(*arguments):
    """As they are spelled: {"-v, --verbose", "--count N"}."""
    text = re.search(r"^Options:\n(.*?)\n\n", help_of(*arguments), re.S | re.M)[1]
    return {re.split(r"  +", line.strip())[0] for line in text.splitlines()}


def exit_codes():
    return re.findall(r"= (\d+)", sources.code_of(sources.PROJECT / "tools/tessel/text/ExitCode.h"))


class Manual(unittest.TestCase):
    def test_every_subcommand_has_a_page_and_every_page_a_subcommand(self):
        pages = {path.name for path in FOLDER.glob("tessel-*.1.md")}
        # Programs of their own have a page each, under the name by which the tool runs them.
        programs = {f"tessel-{name}.1.md" for name in sources.exits()}
        self.assertLessEqual(programs, pages)
        pages -= programs
        self.assertGreater(len(pages), 5)
        self.assertEqual({f"tessel-{name}.1.md" for name in subcommands()}, pages)
        listed = terms(section(page("tessel.1"), "SUBCOMMANDS"))
        self.assertEqual([f"**tessel-{name}**(1)" for name in subcommands()], listed)

    def test_options_are_those_of_the_help(self):
        for name in ["", *subcommands()]:
            with self.subTest(subcommand=name):
                text = page(f"tessel-{name}.1" if name else "tessel.1")
                listed = {term.replace("`", "") for term in terms(section(text, "OPTIONS"))}
                self.assertEqual(options_in_help(*[name] if name else []), listed)

    def test_arguments_of_the_help_stand_in_the_synopsis(self):
        for name in subcommands():
            usage = help_of(name).splitlines()[0]
            synopsis = section(page(f"tessel-{name}.1"), "SYNOPSIS")
            for word in re.findall(r"[A-Z]{3,}", usage.replace("OPTION", "").replace("ACTION", "")):
                self.assertIn(f"*{word}*", synopsis)

    def test_exit_codes_are_those_of_the_tool(self):
        listed = [term.strip("*") for term in terms(section(page("tessel.1"), "EXIT STATUS"))]
        self.assertEqual(exit_codes(), listed)
        for name in subcommands():
            own = [
                term.strip("*")
                for term in terms(section(page(f"tessel-{name}.1"), "EXIT STATUS"))
            ]
            self.assertEqual([code for code in exit_codes() if code in own], own, name)
            self.assertTrue({"0", "2"} <= set(own), name)

    def test_error_states_are_those_of_the_library_and_the_tool(self):
        states = enumerators("src/ProcessData/ProcessValueErrorTypes.h", "ErrorTypes")
        code = sources.code_of(sources.PROJECT / "common/states/StateTable.cpp")
        names = re.findall(r'\{PROCESS_VALUE_ERROR_TYPE_\w+,\s*"([a-z-]+)"', code[code.index("rows()"):])
        expected = [
            (number, name, state.replace("PROCESS_VALUE_ERROR_TYPE_", ""))
            for (state, number), name in zip(states, names, strict=True)
        ]
        text = section(page("tessel-states.7"), "ERROR STATES")
        self.assertEqual(expected, re.findall(r"^\*\*(\d+)\*\* `([a-z-]+)`\n: `(\w+)`", text, re.M))

    def test_namur_states_are_those_of_the_library(self):
        states = enumerators("src/ProcessData/ProcessValueErrorTypes.h", "NamurStateTypes")
        expected = [(number, state.replace("NAMUR_STATE_TYPE_", "")) for state, number in states]
        text = section(page("tessel-states.7"), "NAMUR STATES")
        self.assertEqual(expected, re.findall(r"^\*\*(\d+)\*\* `(\w+)`$", text, re.M))

    def test_keys_are_those_of_the_library(self):
        header = sources.read("src/Companion/ConfigurationAndProcessDataDefinitions.h")
        keys = set(re.findall(r"/// `(\w+)`: .*\n\s*static const QString &get", header))
        text = page("tessel-description.5")
        listed = set()
        for title in re.findall(r"^## (KEYS .*)$", text, re.M):
            listed |= {word for term in terms(section(text, title)) for word in words(term)}
        inside = words(section(text, "KEYS OF CONFIGURATION LEAVES"))
        self.assertGreater(len(listed), 25)
        types = words(section(text, "TYPES"))
        self.assertEqual(keys - listed - FOLDER_KEYS - inside - types, set())
        tool = sources.read("tools/tessel/configuration/ConfigurationValueText.cpp")
        read_by_tool = set(re.findall(r'QLatin1String\("(\w+)"\)|QStringLiteral\("(\w+)"\)', tool))
        read_by_tool = {"".join(pair) for pair in read_by_tool}
        self.assertEqual(listed - keys - read_by_tool, set())
        self.assertLessEqual(FOLDER_KEYS, words(section(text, "FILES")) | listed)

    def test_types_are_those_of_the_reference(self):
        reference = document("docs/description-format.md").text
        types = set()
        for row in section(reference, "Types").splitlines():
            types |= words(row.split("|")[1]) if row.startswith("| `") else set()
        self.assertGreater(len(types), 12)
        self.assertEqual(words(section(page("tessel-description.5"), "TYPES")), types)

    def test_words_of_the_management_block_lie_where_the_reference_says(self):
        reference = document("docs/memory-format.md").text
        expected = re.findall(r"^\| (\d+) \| \d+ \| `([\w\[\].]+)` \|", reference, re.M)
        self.assertGreater(len(expected), 5)
        text = section(page("tessel-memory.5"), "MANAGEMENT BLOCK")
        self.assertEqual(expected, re.findall(r"\*\*(\d+)\*\* `([\w\[\].]+)`", text))

    def test_versions_of_the_formats_are_those_of_the_library(self):
        code = sources.code_of(sources.PROJECT / "src/Companion/FormatVersions.h")
        versions = dict(re.findall(r"constexpr int (\w+) = (\d+);", code))
        self.assertEqual(set(versions), {"description", "memory"})
        memory = f"his is version {versions['memory']}"
        self.assertIn(memory, document("docs/memory-format.md").text)
        self.assertIn(memory, page("tessel-memory.5"))
        description = f"this format: {versions['description']}. Another one is reported"
        self.assertIn(description, document("docs/description-format.md").text)
        self.assertIn(description, page("tessel-description.5"))

    def test_every_page_is_complete_and_leads_to_pages_that_exist(self):
        for path in FOLDER.glob("*.[1-9].md"):
            name, number = path.name.removesuffix(".md").rsplit(".", 1)
            text = path.read_text(encoding="utf-8")
            self.assertTrue(text.startswith(f"# {name}({number})\n"), name)
            needed = ["NAME", "DESCRIPTION", "EXAMPLES", "SEE ALSO"]
            if number == "1":
                needed += ["SYNOPSIS", "OPTIONS", "EXIT STATUS"]
            for title in needed:
                self.assertTrue(section(text, title).strip(), f"{name}: {title}")
            for other, its_number in re.findall(r"\*\*(tessel[a-z-]*)\*\*\((\d)\)", text):
                self.assertTrue((FOLDER / f"{other}.{its_number}.md").is_file(), f"{name}: {other}")


if __name__ == "__main__":
    unittest.main()
