"""The view of the configuration in a real browser: what is entered, and who has modified it when."""

import json
import unittest

from axe_look import assert_accessible
from browser import Keys, PageTest

LEAVES = {"pump/speed": {"type": "double"}}
STAMP = {"modifiedBy": "<b>Service</b>(Keller)", "lastModified": "2026-01-05T09:12:44.031Z"}


class Configuration(PageTest):
    def page(self, *arguments):
        plant = self.plant(LEAVES)
        self.creator(plant)
        self.file = plant.folder / "settings.config.json"
        self.enter(gain=1.5)
        if arguments:
            arguments = [*arguments, str(self.file)]
        self.open(self.served(plant, *arguments))

    def enter(self, gain):
        parameters = {
            "gain": {"type": "double", "unit": "V", "value": gain},
            "mode": {"type": "selector", "selectionList": ["off", "on"], "value": 1},
        }
        self.file.write_text(json.dumps({"type": "treenode", **STAMP, "value": parameters}), encoding="utf-8")

    def rows(self):
        return self.browser.run(
            "return [...document.querySelectorAll('#configuration tbody tr')].map((row) =>"
            " [...row.cells].map((cell) => cell.textContent))")

    def test_each_parameter_tells_who_has_modified_it_when(self):
        self.page("--configuration")

        self.browser.click("#show-configuration")

        self.sees("#configuration-note", "2 of 2 parameters")
        rows = self.rows()
        self.assertEqual([row[:3] for row in rows],
                         [["gain", "1.5 V", STAMP["modifiedBy"]], ["mode", "on", STAMP["modifiedBy"]]])
        self.assertEqual(rows[0][3], self.browser.run("return new Date(arguments[0]).toLocaleString()",
                                                      STAMP["lastModified"]))
        self.assertIsNone(self.browser.text("#tree"))
        self.browser.click("#show-values")
        self.assertIsNotNone(self.browser.text("#tree"))
        self.assertEqual(self.browser.complaints(), [])

    def test_the_keyboard_goes_to_what_is_in_sight(self):
        self.page("--configuration")
        focused = "return document.activeElement.id"
        self.browser.click("#show-configuration")
        self.sees("#configuration-note", "2 of 2 parameters")

        self.browser.type("/", "gain")
        self.assertEqual(self.browser.run(focused), "configuration-search")
        self.sees("#configuration-note", "1 of 2 parameters")
        self.browser.run("document.querySelector('.skip').focus()")
        self.browser.type(Keys.ENTER)
        self.assertEqual(self.browser.run(focused), "configuration-table")

        self.browser.click("#show-values")
        self.browser.type("/")
        self.assertEqual(self.browser.run(focused), "search")
        self.browser.run("document.querySelector('.skip').focus()")
        self.browser.type(Keys.ENTER)
        self.assertEqual(self.browser.run(focused), "tree")

    def test_the_search_and_reading_again(self):
        self.page("--configuration")
        self.browser.click("#show-configuration")
        self.sees("#configuration-note", "2 of 2 parameters")

        self.browser.driver.find_element("id", "configuration-search").send_keys("GAIN")
        self.sees("#configuration-note", "1 of 2 parameters")
        self.enter(gain=2.5)
        self.browser.click("#configuration-again")

        self.until(lambda: [row[:2] for row in self.rows()] == [["gain", "2.5 V"]], "what is entered now")

    def test_a_file_that_cannot_be_read_says_why(self):
        self.page("--configuration")
        self.file.write_text("{", encoding="utf-8")

        self.browser.click("#show-configuration")

        self.until(lambda: (self.browser.text("#configuration-note") or "").startswith("✕ "), "the reason is told")
        self.assertIn("settings.config.json", self.browser.text("#configuration-note"))

    def test_without_a_configuration_there_is_no_such_view(self):
        self.page()

        self.assertIsNone(self.browser.text("#show-configuration"))

    def test_it_is_accessible_and_not_wider_than_a_narrow_screen(self):
        self.page("--configuration")
        self.browser.click("#show-configuration")
        self.sees("#configuration-note", "2 of 2 parameters")

        assert_accessible(self, "configuration")

        self.browser.look(width=360, height=640)
        self.assertEqual(self.browser.run("return document.documentElement.scrollWidth"), 360)


if __name__ == "__main__":
    unittest.main()
