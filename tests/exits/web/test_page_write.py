"""Writing from the page, with and without a token, in a real browser."""

import signal
import unittest

from browser import TOKEN, Keys, PageTest
from exits import tool

LEAVES = {
    "pump/speed": {"type": "double", "unit": "1/min", "minLimit": 0, "maxLimit": 3000},
    "pump/starts": {"type": "uint64"},
    "pump/on": {"type": "boolean"},
    "pump/serial": {"type": "string", "readOnly": True},
}
# Behind all that the page does with an answer.
TELL_OF_ANSWERS = """
const ask = window.fetch;
window.fetch = async (...what) => {
  const answer = await ask(...what);
  const read = answer.json.bind(answer);
  answer.json = () => read().finally(() => setTimeout(() => { window.answered = true; }));
  return answer;
};
"""


class Writing(PageTest):
    def page(self, with_token=True):
        plant = self.plant(LEAVES)
        self.creator(plant)
        plant.set("pump/speed", "10")
        arguments = ["--token-file", str(self.token_file(plant))] if with_token else []
        service = self.served(plant, *arguments)
        self.open(service)
        self.sees_value("pump/speed", "10 1/min")
        return plant, service

    def ask_to_write(self, url):
        self.browser.click(f'.leaf[data-url="{url}"] .name')
        self.browser.click("#details .buttons button:nth-child(2)")

    def fill(self, field, text):
        found = self.browser.driver.find_element("id", field)
        found.clear()
        found.send_keys(text)

    def submit(self):
        self.browser.click("#write [type=submit]")

    def has_dialog(self):
        return self.browser.run("return document.getElementById('write').open")

    def test_a_value_is_written_with_the_token(self):
        plant, _ = self.page()

        self.ask_to_write("pump/speed")
        self.assertEqual(self.browser.text("#write-name"), "Write pump/speed")
        self.fill("write-value", "1234.5")
        self.fill("write-token", TOKEN)
        self.submit()

        self.sees_value("pump/speed", "1234.5 1/min")
        self.until(lambda: not self.has_dialog(), "the dialog closes")
        self.assertEqual(tool("get", "-t", str(plant.file), "pump/speed").stdout, "1234.5\n")

    def test_the_token_lasts_as_long_as_the_tab_and_is_nowhere_else(self):
        _, service = self.page()
        self.ask_to_write("pump/speed")
        self.fill("write-value", "11")
        self.fill("write-token", TOKEN)
        self.submit()
        self.sees_value("pump/speed", "11 1/min")

        self.open(service)
        self.ask_to_write("pump/speed")
        self.fill("write-value", "12")
        self.submit()
        self.sees_value("pump/speed", "12 1/min")

        self.assertFalse(self.browser.run("return JSON.stringify(localStorage).includes(arguments[0])", TOKEN))
        self.assertEqual(self.browser.run("return document.cookie"), "")

    def test_without_the_token_nothing_is_written(self):
        plant, _ = self.page()

        for token in ["", "not-the-token-of-the-tests"]:
            with self.subTest(token=token):
                if not self.has_dialog():
                    self.ask_to_write("pump/speed")
                self.fill("write-value", "99")
                self.fill("write-token", token)
                self.submit()
                self.until(lambda: self.browser.text("#write .what"), "the refusal is told")
                self.assertIn("token", self.browser.text("#write .problem"))
                self.assertTrue(self.has_dialog())

        self.assertIsNone(self.browser.run("return sessionStorage.getItem('tessel-web token')"))
        self.assertEqual(tool("get", "-t", str(plant.file), "pump/speed").stdout, "10\n")

    def test_what_lies_outside_of_the_limits_is_refused_with_its_reason(self):
        plant, _ = self.page()
        self.ask_to_write("pump/speed")

        self.fill("write-value", "3001")
        self.fill("write-token", TOKEN)
        self.submit()

        self.until(lambda: "3000" in (self.browser.text("#write .problem") or ""), "the limit is told")
        self.assertEqual(tool("get", "-t", str(plant.file), "pump/speed").stdout, "10\n")

    def test_what_is_no_number_is_refused_before_it_is_sent(self):
        self.page()
        self.ask_to_write("pump/speed")

        self.fill("write-value", "fast")
        self.fill("write-token", TOKEN)
        self.submit()

        self.sees("#write .problem", "✕ 'fast' is not a value of pump/speed. Type a value of the type double.")

    def test_an_error_state_a_boolean_and_64_bits(self):
        self.page()

        self.ask_to_write("pump/speed")
        self.browser.click('#write-state option[value="timeout"]')
        self.fill("write-token", TOKEN)
        self.submit()
        self.sees_state("pump/speed", "◷ timeout")
        self.ask_to_write("pump/on")
        self.browser.click('#write-value option[value="true"]')
        self.submit()
        self.sees_value("pump/on", "true")
        self.ask_to_write("pump/starts")
        self.fill("write-value", "18446744073709551615")
        self.submit()
        self.sees_value("pump/starts", "18446744073709551615")

    def test_an_answer_that_comes_late_leaves_the_next_dialog_alone(self):
        for token in [TOKEN, "another-token-0123456789"]:
            with self.subTest(token):
                _, service = self.page()
                self.browser.run(TELL_OF_ANSWERS)
                self.ask_to_write("pump/speed")
                self.fill("write-value", "20")
                self.fill("write-token", token)
                service.process.send_signal(signal.SIGSTOP)
                self.submit()
                self.browser.type(Keys.ESCAPE)
                self.until(lambda: not self.has_dialog(), "it is closed")
                self.ask_to_write("pump/starts")
                self.fill("write-value", "7")

                service.process.send_signal(signal.SIGCONT)

                self.until(lambda: self.browser.run("return window.answered"), "the answer")
                self.assertTrue(self.has_dialog())
                self.assertEqual(self.browser.text("#write-name"), "Write pump/starts")
                self.assertEqual(self.browser.run("return document.activeElement.id"), "write-value")
                self.assertEqual(self.browser.text("#write .problem"), "")

    def test_what_is_read_only_cannot_be_written(self):
        self.page()

        self.browser.click('.leaf[data-url="pump/serial"] .name')

        self.sees("#details .buttons", "☆ Pin")
        self.browser.type("w")
        self.assertFalse(self.has_dialog())

    def test_without_a_token_on_the_server_nothing_can_be_written(self):
        self.page(with_token=False)

        self.browser.click('.leaf[data-url="pump/speed"] .name')

        self.sees("#details .buttons", "☆ Pin")
        self.assertIn("reading only", self.browser.text("#about"))


if __name__ == "__main__":
    unittest.main()
