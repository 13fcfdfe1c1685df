"""axe looks at the page as it is used: light, dark and narrow, with and without a connection."""

import unittest

from browser import HERE, Keys, PageTest

STATES = ["underrange", "no-input", "sensor-breakage", "timeout"]
LEAVES = {
    "pump/speed": {"type": "double", "unit": "1/min", "minLimit": 0, "maxLimit": 3000, "viewStart": 0, "viewEnd": 3600},
    "pump/on": {"type": "boolean"},
    **{f"faults/{state}": {"type": "double", "unit": "V"} for state in STATES},
    "tank/name": {"type": "string"},
}
LOOKS = {
    "light": {},
    "dark": {"dark": True},
    "narrow": {"width": 360, "height": 740},
    "narrow and dark": {"width": 360, "height": 740, "dark": True},
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

    def assert_accessible(self, when):
        """In every look; what is serious or critical fails, with the elements."""
        browser = self.browser
        if not browser.run("return typeof axe === 'object'"):
            browser.run((HERE / "axe" / "axe.min.js").read_text(encoding="utf-8"))
        for name, look in LOOKS.items():
            browser.look(**look)
            found = browser.driver.execute_async_script(
                "const done = arguments[0];"
                "requestAnimationFrame(() => axe.run().then((result) => done({violations: result.violations,"
                "  passes: result.passes.map((rule) => rule.id)}), (error) => done(String(error))))")
            serious = [(rule["id"], [node["target"] for node in rule["nodes"]]) for rule in found["violations"]
                       if rule["impact"] in ("serious", "critical")]
            self.assertEqual(serious, [], f"{when}, {name}")
            # What it has looked at at all: a rule that did not run finds nothing.
            self.assertIn("color-contrast", found["passes"], f"{when}, {name}")
        browser.look()

    def test_values_with_pins_details_and_every_kind_of_state(self):
        self.browser.click('.leaf[data-url="pump/speed"] .pin')
        self.browser.click('.leaf[data-url="faults/timeout"] .pin')
        self.browser.click('.leaf[data-url="pump/speed"] .name')
        self.sees("#details-name", "pump/speed")

        self.assert_accessible("values")

        self.assertEqual(self.browser.count('.leaf .state[data-kind="range"]'), 1)
        self.assertGreaterEqual(self.browser.count('.leaf .state[data-kind="failed"]'), 3)

    def test_the_keyboard_in_the_tree(self):
        self.browser.type("/", Keys.ENTER, Keys.ARROW_DOWN)

        self.assert_accessible("tree")

    def test_a_search_that_finds_nothing(self):
        self.browser.type("/", "nowhere")
        self.sees("#nothing", "No value has these words in its URL, label or unit.")

        self.assert_accessible("nothing found")

    def test_the_dialog_with_a_refusal(self):
        self.browser.type("/", Keys.ENTER, Keys.ARROW_DOWN, Keys.ARROW_DOWN, "w")
        self.browser.click("#write [type=submit]")
        self.until(lambda: self.browser.text("#write .what"), "the refusal is told")

        self.assert_accessible("dialog")

    def test_grey_without_a_region(self):
        self.browser.click('.leaf[data-url="pump/speed"] .pin')
        self.creator_.kill()
        self.sees("#connection", "✕ no region")

        self.assert_accessible("no region")

    def test_each_state_reads_without_colours(self):
        marks = self.browser.run(
            "return import('/app/states.js').then(({states}) => states.map(({word, symbol}) => [word, symbol]))")

        self.assertEqual(len(marks), 10)
        self.assertEqual(len({word for word, _ in marks}), 10)
        self.assertEqual(len({symbol for _, symbol in marks}), 10)


if __name__ == "__main__":
    unittest.main()
