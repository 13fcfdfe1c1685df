"""The moving picture of README.md is what script/record makes, and a Git page plays it."""

import re
import unittest
from xml.etree import ElementTree

import sources
from documents import document

PICTURE = "docs/pictures/first-screen.svg"
SVG = "{http://www.w3.org/2000/svg}"


class Recording(unittest.TestCase):
    def setUp(self):
        self.root = ElementTree.fromstring(sources.read(PICTURE))

    def test_is_on_the_first_screen(self):
        begin, _, rest = document("README.md").text.partition(f"]({PICTURE})")
        self.assertLess(begin.count("\n"), 20)
        self.assertTrue(rest)

    def test_is_small_and_needs_nothing_else(self):
        text = sources.read(PICTURE)
        self.assertLess(len(text.encode()), 200_000)
        # A page shows a picture without running scripts and without loading anything.
        for foreign in ("<script", "href", "url(", "@import", "foreignObject", "<image"):
            self.assertNotIn(foreign, text)

    def test_shows_every_command_of_the_story(self):
        """Letter by letter in the terminals, so the whole command stands in one line of the text."""
        story = sources.read("script/recording/story.py")
        commands = re.findall(r'"((?:tessel|host-monitor|kill) [^"]+)"', story)
        shown = {text.text for text in self.root.iter(f"{SVG}text")}
        self.assertGreater(len(commands), 6)
        for command in commands:
            self.assertIn(f"$ {command}", shown)

    def test_every_line_has_its_time(self):
        """Each begins and ends with the movement of that name, and all last equally long."""
        style = self.root.find(f"{SVG}style").text
        rules = set(re.findall(r"@keyframes (\S+?)\{", style))
        used = {group.get("class").split()[1] for group in self.root.iter(f"{SVG}g")}
        self.assertEqual(used, rules)
        self.assertEqual(len(set(re.findall(r"animation:\S+ ([0-9.]+s)", style))), 1)

    def test_screen_stands_in_the_guide_and_tells_its_story(self):
        self.assertIn("pictures/watch-tui.svg", document("docs/guide/04-reader.md").text)
        shown = sources.read("docs/pictures/watch-tui.svg")
        for text in ("tessel watch --tui", "●*<", "pump/speed", "sensor-breakage", "overrange",
                     "2 of 4: only not valid", "the region has gone"):
            self.assertIn(text, shown)
        self.assertLess(len(shown.encode()), 200_000)

    def test_end_is_shown_where_motion_is_not_wanted(self):
        self.assertIn("prefers-reduced-motion", self.root.find(f"{SVG}style").text)
        last = [group for group in self.root.iter(f"{SVG}g") if "end" in group.get("class").split()]
        text = " ".join(text.text for group in last for text in group.iter(f"{SVG}text"))
        self.assertIn("tank/level 1.5 ", text.replace("  ", " ") + " ")


if __name__ == "__main__":
    unittest.main()
