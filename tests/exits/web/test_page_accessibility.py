"""axe looks at the page as it is used: light, dark and narrow, with and without a connection."""

import unittest

from axe_look import assert_accessible
from browser import Keys, PageTest

STATES = ["underrange", "no-input", "sensor-breakage", "timeout"]
LEAVES = {
    "pump/speed": {"type": "double", "unit": "1/min", "minLimit": 0, "maxLimit": 3000, "viewStart": 0, "viewEnd": 3600},
    "pump/on": {"type": "boolean"},
    **{f"faults/{state}": {"type": "double", "unit": "V"} for state in STATES},
    "tank/name": {"type": "string"},
}


class Accessibility(PageTest):
    def setUp(self):
        super().setUp()
        self.plant_ = self.plant(LEAVES)
        self.creator_ = self.creator(self.plant_)
        self.plant_.set("pump/speed", "10", "pump/on", "true", "tank/name", "T 1")
        for state in STATES:
            self.plant_.set(f"faults/{state}", "--error", state)
        self.open(self.served(self.plant_, "--token-file", str(self.token_file(self.plant_))))
        self.sees_state("faults/timeout", "◷ timeout")

    def test_values_with_pins_details_and_every_kind_of_state(self):
        self.browser.click('.leaf[data-url="pump/speed"] .pin')
        self.browser.click('.leaf[data-url="faults/timeout"] .pin')
        self.browser.click('.leaf[data-url="pump/speed"] .name')
        self.sees("#details-name", "pump/speed")

        assert_accessible(self, "values")

        self.assertEqual(self.browser.count('.leaf .state[data-kind="range"]'), 1)
        self.assertGreaterEqual(self.browser.count('.leaf .state[data-kind="failed"]'), 3)

    def test_the_keyboard_in_the_tree(self):
        self.browser.type("/", Keys.ENTER, Keys.ARROW_DOWN)

        assert_accessible(self, "tree")

    def test_a_search_that_finds_nothing(self):
        self.browser.type("/", "nowhere")
        self.sees("#nothing", "No value has these words in its URL, label or unit.")

        assert_accessible(self, "nothing found")

    def test_the_dialog_with_a_refusal(self):
        self.browser.type("/", Keys.ENTER, Keys.ARROW_DOWN, Keys.ARROW_DOWN, "w")
        self.browser.click("#write [type=submit]")
        self.until(lambda: self.browser.text("#write .what"), "the refusal is told")

        assert_accessible(self, "dialog")

    def test_grey_without_a_region(self):
        self.browser.click('.leaf[data-url="pump/speed"] .pin')
        self.creator_.kill()
        self.sees("#connection", "✕ no values")

        assert_accessible(self, "no region")

    def test_each_state_reads_without_colours(self):
        marks = self.browser.run(
            "return import('/app/states.js').then(({states}) => states.map(({word, symbol}) => [word, symbol]))")

        self.assertEqual(len(marks), 10)
        self.assertEqual(len({word for word, _ in marks}), 10)
        self.assertEqual(len({symbol for _, symbol in marks}), 10)


if __name__ == "__main__":
    unittest.main()
