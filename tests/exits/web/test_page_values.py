"""What the page shows of the values, in a real browser."""

import unittest

from browser import PageTest

LEAVES = {
    "pump/speed": {"type": "double", "unit": "1/min", "minLimit": 0, "maxLimit": 3000},
    "pump/starts": {"type": "uint64"},
    "tank/level": {"type": "double", "unit": "%"},
    "tank/name": {"type": "string"},
}
HOSTILE = "<img src=x onerror=\"document.title='taken'\">"


class Values(PageTest):
    def page(self, leaves=None):
        plant = self.plant(leaves or LEAVES)
        creator = self.creator(plant)
        service = self.served(plant)
        self.open(service)
        return plant, creator, service

    def test_values_move(self):
        plant, _, _ = self.page()

        self.sees_state("pump/speed", "○ no-input")
        plant.set("pump/speed", "1500.25")
        self.sees_value("pump/speed", "1500.25 1/min")
        self.sees_state("pump/speed", "✓ valid")
        plant.set("pump/speed", "7")
        self.sees_value("pump/speed", "7 1/min")
        plant.set("pump/speed", "--error", "sensor-breakage")
        self.sees_value("pump/speed", "– 1/min")
        self.sees_state("pump/speed", "✕ sensor-breakage")

        self.assertEqual(self.browser.complaints(), [])

    def test_an_integer_of_64_bits_is_exact(self):
        plant, _, _ = self.page()

        plant.set("pump/starts", "18446744073709551615")

        self.sees_value("pump/starts", "18446744073709551615")

    def test_a_number_shows_six_digits_and_the_details_all(self):
        plant, _, _ = self.page()
        plant.set("tank/level", "12.3456789012")
        self.sees_value("tank/level", "12.3457 %")

        self.browser.click('[data-url="tank/level"] .name')

        self.sees("#details .full", "exactly 12.3456789012")

    def test_the_search_looks_into_urls_and_units(self):
        self.page()
        search = self.browser.driver.find_element("id", "search")

        search.send_keys("tank")
        self.until(lambda: self.shown() == ["tank/level", "tank/name"], "the tank's values")
        search.clear()
        search.send_keys("1/MIN")
        self.until(lambda: self.shown() == ["pump/speed"], "the value with the unit")
        search.clear()
        search.send_keys("nowhere")
        self.sees("#nothing", "No value has these words in its URL, label or unit.")
        self.assertEqual(self.shown(), [])

    def test_only_what_is_not_valid(self):
        plant, _, _ = self.page()
        plant.set("pump/speed", "1", "pump/starts", "2", "tank/name", "x")
        self.sees("#counts", "! 1 of 4 not valid")

        self.browser.click("#only-faulty")
        self.until(lambda: self.shown() == ["tank/level"], "what is not valid")
        plant.set("pump/speed", "--error", "timeout")
        self.until(lambda: self.shown() == ["pump/speed", "tank/level"], "what has become invalid")
        plant.set("pump/speed", "1", "tank/level", "50")
        self.sees("#nothing", "✓ All values are valid.")

    def test_a_branch_counts_what_is_not_valid_below(self):
        plant, _, _ = self.page()
        plant.set("tank/level", "5")

        self.sees('.branch[data-url="tank"] .state', "! 1 not valid")

    def test_a_pinned_value_is_kept_in_the_browser(self):
        plant, _, service = self.page()
        plant.set("tank/level", "40")

        self.browser.click('.leaf[data-url="tank/level"] .pin')
        self.sees('.card[data-url="tank/level"] .number', "40 %")
        self.open(service)
        self.sees('.card[data-url="tank/level"] .number', "40 %")
        plant.set("tank/level", "41")
        self.sees('.card[data-url="tank/level"] .number', "41 %")
        self.browser.click('.card[data-url="tank/level"] .icon')
        self.until(lambda: self.browser.count(".card") == 0, "the card goes")
        self.open(service)

        self.assertEqual(self.browser.count(".card"), 0)

    def test_a_value_stands_between_its_limits(self):
        plant, _, _ = self.page()
        mark = '.leaf[data-url="pump/speed"] .bar-mark'

        plant.set("pump/speed", "750")
        self.sees_value("pump/speed", "750 1/min")

        self.assertEqual(self.browser.run(f"return document.querySelector('{mark}').style.left"), "25%")
        self.browser.click('.leaf[data-url="pump/speed"] .name')
        self.sees("#details dl", "Type double Limits 0 to 3000 1/min")

    def test_what_a_device_says_is_only_ever_text(self):
        plant, _, _ = self.page({
            f"<b>node/{HOSTILE}": {"type": "double", "unit": HOSTILE, "labelTextId": HOSTILE},
            "tank/name": {"type": "string"},
        })
        plant.set("tank/name", "<img src=x>")
        self.sees_value("tank/name", "<img src=x>")

        self.browser.click(".leaf .pin")
        self.browser.click(".leaf .name")
        self.sees("#details-name", f"<b>node/{HOSTILE}")
        self.sees("#details dd", HOSTILE)
        self.assertIn(HOSTILE, self.browser.text(".card .unit"))

        self.assertEqual(self.browser.count("img, main b"), 0)
        self.assertEqual(self.browser.driver.title, "plant.process.json – Tessel")
        self.assertEqual(self.browser.complaints(), [])

    def test_ten_thousand_leaves_put_few_rows_on_the_page(self):
        leaves = {f"node{i // 100}/value{i}": {"type": "float"} for i in range(10000)}
        plant, _, _ = self.page(leaves)
        search = self.browser.driver.find_element("id", "search")

        search.send_keys("value")
        self.until(lambda: "node0/value0" in self.shown(), "the first of all")
        self.assertLess(self.browser.count(".row"), 80)
        self.browser.driver.find_element("id", "tree").send_keys("\ue010")  # End
        self.until(lambda: "node99/value9999" in self.shown(), "the last of all")
        self.assertLess(self.browser.count(".row"), 80)
        plant.set("node99/value9999", "4")

        self.sees_value("node99/value9999", "4")


if __name__ == "__main__":
    unittest.main()
