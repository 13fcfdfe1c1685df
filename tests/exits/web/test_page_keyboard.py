"""The page by keyboard alone, and on a narrow screen."""

import json
import unittest

from browser import Keys, PageTest

LEAVES = {
    "pump/speed": {"type": "double", "unit": "1/min", "minLimit": 0, "maxLimit": 3000},
    "pump/starts": {"type": "uint64"},
    "tank/level": {"type": "double", "unit": "%"},
    "tank/aNameThatIsMuchLongerThanAnyScreenOfATelephoneIsWideAndHasNoPlaceToBreak": {"type": "string"},
}


class Keyboard(PageTest):
    def setUp(self):
        super().setUp()
        self.plant_ = self.plant(LEAVES)
        self.creator(self.plant_)
        self.plant_.set("pump/speed", "10", "tank/level", "20")
        self.token = self.token_file(self.plant_)
        self.open(self.served(self.plant_, "--token-file", str(self.token)))
        self.sees_value("pump/speed", "10 1/min")

    def focused(self):
        return self.browser.run("return document.activeElement.id || document.activeElement.textContent")

    def row(self):
        """The row of the tree that the keyboard is at."""
        return self.browser.run(
            "return document.getElementById("
            "  document.getElementById('tree').getAttribute('aria-activedescendant')).dataset.url")

    def rows_after(self, *keys):
        self.browser.type(*keys)
        return self.row()

    def test_a_slash_goes_to_the_search_and_an_arrow_to_the_tree(self):
        self.browser.type("/")
        self.assertEqual(self.focused(), "search")
        self.browser.type("1/min")
        self.until(lambda: self.shown() == ["pump/speed"], "what was searched")

        self.browser.type(Keys.ARROW_DOWN)

        self.assertEqual(self.focused(), "tree")

    def test_tab_reaches_the_skip_link_first_and_it_leads_to_the_tree(self):
        self.browser.type(Keys.TAB)
        self.assertEqual(self.focused(), "Skip to the values")
        box = self.browser.run("return document.activeElement.getBoundingClientRect().left")
        self.assertGreaterEqual(box, 0)

        self.browser.type(Keys.ENTER)

        self.assertEqual(self.focused(), "tree")

    def test_the_arrows_walk_open_and_close_the_tree(self):
        self.browser.type("/", Keys.ENTER)

        self.assertEqual(self.row(), "pump")
        self.assertEqual(self.rows_after(Keys.ARROW_DOWN), "pump/speed")
        self.assertEqual(self.rows_after(Keys.ARROW_DOWN, Keys.ARROW_DOWN), "tank")
        self.assertEqual(self.rows_after(Keys.ARROW_UP, Keys.ARROW_LEFT), "pump")
        self.browser.type(Keys.ARROW_LEFT)
        self.until(lambda: "pump/speed" not in self.shown(), "the branch is closed")
        self.assertEqual(self.rows_after(Keys.ARROW_DOWN), "tank")
        self.assertEqual(self.rows_after(Keys.ARROW_UP, Keys.ARROW_RIGHT), "pump")
        self.until(lambda: "pump/speed" in self.shown(), "the branch is open")
        self.assertEqual(self.rows_after(Keys.ARROW_RIGHT), "pump/speed")
        self.assertEqual(self.rows_after(Keys.END), list(LEAVES)[3])
        self.assertEqual(self.rows_after(Keys.HOME), "pump")

    def test_p_pins_and_enter_opens_the_details_which_escape_closes(self):
        self.browser.type("/", Keys.ENTER, Keys.ARROW_DOWN, "p")
        self.sees('.card[data-url="pump/speed"] .number', "10 1/min")

        self.browser.type(Keys.ENTER)
        self.sees("#details-name", "pump/speed")
        self.assertEqual(self.focused(), "details")
        self.browser.type(Keys.ESCAPE)

        self.assertIsNone(self.browser.text("#details"))
        self.assertEqual(self.focused(), "tree")
        self.assertEqual(self.row(), "pump/speed")

    def test_the_focus_stays_among_the_pins_when_one_goes(self):
        self.browser.type("/", Keys.ENTER, Keys.ARROW_DOWN, "p", Keys.ARROW_DOWN, "p", Keys.END, "p")
        self.until(lambda: self.browser.count(".card") == 3, "three cards")
        self.browser.run("document.querySelector('.card .icon').focus()")
        label = "return document.activeElement.ariaLabel || document.activeElement.id"

        for left in ["Unpin pump/starts", f"Unpin {list(LEAVES)[3]}", "pins"]:
            self.browser.type(Keys.ENTER)
            self.until(lambda: self.browser.run(label) == left, left)
        self.browser.type("/", Keys.ENTER, Keys.HOME, Keys.ARROW_DOWN, "p", "p")

        self.assertEqual(self.browser.run(label), "Values")

    def test_w_writes_and_the_focus_comes_back(self):
        self.browser.type("/", Keys.ENTER, Keys.ARROW_DOWN, "w")
        self.assertEqual(self.focused(), "write-value")
        token = self.token.read_text(encoding="utf-8").strip()

        self.browser.type("77", Keys.TAB, Keys.TAB, token, Keys.ENTER)

        self.sees_value("pump/speed", "77 1/min")
        self.until(lambda: self.focused() == "tree", "the focus is back")

    def test_what_has_the_focus_shows_it(self):
        for element in ["search", "only-faulty", "tree"]:
            with self.subTest(element=element):
                self.until(lambda: self.browser.type(Keys.TAB) or self.focused() == element, "reached by Tab")
                wanted = "#tree [aria-selected=true]" if element == "tree" else f"#{element}"
                style = self.browser.run(
                    "const style = getComputedStyle(document.querySelector(arguments[0]));"
                    "return [style.outlineStyle, style.outlineWidth]", wanted)
                self.assertEqual(style, ["solid", "3px"])

    def test_nothing_is_wider_than_a_narrow_screen(self):
        self.browser.look(width=360, height=640)
        self.browser.type("/", Keys.ENTER)
        for keys in [[Keys.ARROW_DOWN, "p"], [Keys.END, "p"], [Keys.ENTER], [Keys.ESCAPE, Keys.HOME, Keys.ARROW_DOWN, "w"]]:
            self.browser.type(*keys)
            widths = self.browser.run("return [document.documentElement.scrollWidth, innerWidth]")
            self.assertEqual(widths, [360, 360], keys)
        self.assertLessEqual(self.browser.run("return document.getElementById('write').offsetWidth"), 360)

    def test_a_deep_tree_has_room_for_its_names_on_a_narrow_screen(self):
        self.browser.look(width=360, height=640)
        plant = self.plant(LEAVES)
        root = json.loads(plant.file.read_text(encoding="utf-8"))
        for level in range(40):
            root["value"] = {f"level{level}": {"type": "treenode", "value": root["value"]}}
        plant.file.write_text(json.dumps(root), encoding="utf-8")
        self.creator(plant)
        self.open(self.served(plant))

        for key in [Keys.HOME, Keys.END]:
            self.browser.type("/", Keys.ENTER, key)
            rows = self.browser.run(
                "return [...document.querySelectorAll('#tree .row')].map((row) =>"
                " [row.dataset.key, row.querySelector('.name').offsetWidth, row.lastChild.getBoundingClientRect().right])")
            self.assertGreater(len(rows), 10)
            for row, width, right in rows:
                self.assertGreaterEqual(width, 60, row)
                self.assertLessEqual(right, 360, row)
            self.assertEqual(self.browser.run("return document.documentElement.scrollWidth"), 360)


if __name__ == "__main__":
    unittest.main()
