"""The stream behind the page, in a real browser: shared by its tabs, lost and found again."""

import json
import signal
import unittest

from browser import PageTest
from exits import Creator, Service, wait_until

LEAVES = {"pump/speed": {"type": "double"}, "tank/level": {"type": "double"}}
GREY = "rgb(90, 100, 112)"


def connections(port):
    """Clients of a port of the loopback that are connected to it, by their own ports."""
    with open("/proc/net/tcp", encoding="ascii") as file:
        lines = [line.split() for line in file.readlines()[1:]]
    established = "01"
    return {line[1] for line in lines if line[3] == established and int(line[2].split(":")[1], 16) == port}


class Stream(PageTest):
    def page(self):
        plant = self.plant(LEAVES)
        creator = self.creator(plant)
        plant.set("pump/speed", "10")
        service = self.served(plant)
        self.open(service)
        self.sees_value("pump/speed", "10")
        return plant, creator, service

    def colour(self, selector):
        return self.browser.run("return getComputedStyle(document.querySelector(arguments[0])).color", selector)

    def parts_of(self, service):
        """What of the page runs in the browser: each tab, and the workers."""
        mine = [target for target in self.browser.targets() if f":{service.port}/" in target["url"]]
        return sorted(target["type"] for target in mine if target["type"] in ("page", "shared_worker"))

    def own_streams(self):
        return self.browser.run(
            "return performance.getEntriesByType('resource').filter((entry) => entry.name.includes('events')).length")

    def test_all_tabs_share_one_stream(self):
        plant, _, service = self.page()
        driver = self.browser.driver
        first = driver.current_window_handle

        driver.switch_to.new_window("tab")
        self.open(service)
        second = driver.current_window_handle
        plant.set("pump/speed", "11")

        for tab in [first, second]:
            driver.switch_to.window(tab)
            self.sees_value("pump/speed", "11")
            self.assertEqual(self.own_streams(), 0)
        self.assertEqual(self.parts_of(service), ["page", "page", "shared_worker"])

    def test_a_tab_that_comes_later_knows_what_came_before(self):
        _, creator, service = self.page()
        creator.kill()
        self.sees("#connection", "✕ no values")

        self.browser.driver.switch_to.new_window("tab")
        self.open(service, until_live=False)

        self.sees("#connection", "✕ no values")
        self.sees_value("pump/speed", "10")

    def test_the_last_tab_that_is_closed_ends_the_stream(self):
        plant = self.plant(LEAVES)
        self.creator(plant)
        # Longer than the test: no other connection ends by itself.
        service = self.served(plant, "--timeout", "600")
        self.open(service)
        before = connections(service.port)
        driver = self.browser.driver
        page = driver.current_window_handle
        driver.switch_to.new_window("tab")
        other = driver.current_window_handle

        driver.switch_to.window(page)
        driver.close()
        driver.switch_to.window(other)

        self.until(lambda: connections(service.port) < before, "a connection ends")
        self.assertEqual(self.parts_of(service), [])

    def test_a_page_that_was_left_and_is_shown_again_is_live(self):
        plant, _, service = self.page()
        self.browser.driver.get("about:blank")
        plant.set("pump/speed", "13")

        self.browser.driver.back()

        self.sees("#connection", "● live")
        self.sees_value("pump/speed", "13")
        plant.set("pump/speed", "14")
        self.sees_value("pump/speed", "14")

    def test_without_shared_workers_a_tab_has_a_stream_of_its_own(self):
        plant = self.plant(LEAVES)
        self.creator(plant)
        service = self.served(plant)
        with self.browser.before_pages("delete window.SharedWorker;"):
            self.open(service)

            plant.set("pump/speed", "12")

            self.sees_value("pump/speed", "12")
            self.assertEqual(self.parts_of(service), ["page"])

    def test_a_publisher_that_is_killed_greys_the_values_until_it_is_back(self):
        plant, creator, _ = self.page()
        self.assertNotEqual(self.colour('.leaf[data-url="pump/speed"] .state'), GREY)

        creator.kill()

        self.sees("#connection", "✕ no values")
        self.assertIn("nobody renews them", self.browser.text("#banner"))
        self.assertEqual(self.colour('.leaf[data-url="pump/speed"] .state'), GREY)
        self.assertEqual(self.colour('.leaf[data-url="pump/speed"] .value'), GREY)
        self.sees_value("pump/speed", "10")

        self.closed(Creator(plant))
        plant.set("pump/speed", "20")

        self.sees("#connection", "● live")
        self.sees_value("pump/speed", "20")
        self.assertIsNone(self.browser.text("#banner"))
        self.assertNotEqual(self.colour('.leaf[data-url="pump/speed"] .state'), GREY)

    def test_a_region_of_another_description_is_no_missing_one(self):
        plant, creator, _ = self.page()
        creator.close()
        self.sees("#connection", "✕ no values")
        other = self.plant({"pump/speed": {"type": "double"}})
        other.file.write_text(other.file.read_text(encoding="utf-8").replace(other.key, plant.key), encoding="utf-8")

        self.creator(other)

        wait_until(lambda: "was made from another description" in (self.browser.text("#banner") or ""), "the reason")
        self.assertNotIn("is not there", self.browser.text("#banner"))
        self.sees("#connection", "✕ no values")

    def test_values_of_a_single_buffer_have_no_age(self):
        plant = self.plant(LEAVES, double_buffer=False)
        self.creator(plant)
        plant.set("pump/speed", "10")
        self.open(self.served(plant))

        self.sees_value("pump/speed", "10")
        self.sees("#age", "of no known age")
        plant.set("pump/speed", "11")
        self.sees_value("pump/speed", "11")

    def test_a_server_that_ends_greys_the_values_until_it_is_back(self):
        plant, _, service = self.page()

        service.end(signal.SIGKILL)

        self.sees("#connection", "✕ connection lost")
        self.assertIn("the server does not answer", self.browser.text("#banner"))
        self.assertEqual(self.colour('.leaf[data-url="pump/speed"] .value'), GREY)

        self.closed(Service("--listen", f"127.0.0.1:{service.port}", str(plant.file)))

        self.sees("#connection", "● live")

    def test_a_description_that_has_changed_is_read_again(self):
        plant, creator, _ = self.page()
        creator.kill()
        self.sees("#connection", "✕ no values")

        text = plant.file.read_text(encoding="utf-8")
        plant.file.write_text(text.replace('"level"', '"height"'), encoding="utf-8")
        self.closed(Creator(plant))

        self.until(lambda: self.shown() == ["pump/speed", "tank/height"], "the new leaves")
        self.sees("#connection", "● live")

    def describe(self, plant, creator, text):
        """Another description, and a creator that has it."""
        creator.close()
        plant.file.write_text(text, encoding="utf-8")
        return self.closed(Creator(plant))

    def fingerprint(self, service):
        return json.loads(service.ask("/api/description")[2])["fingerprint"]

    def test_a_description_that_changes_to_and_fro_is_read_each_time(self):
        plant, creator, service = self.page()
        first = plant.file.read_text(encoding="utf-8")
        second = first.replace('"level"', '"height"')
        creator = self.describe(plant, creator, second)
        self.until(lambda: self.shown() == ["pump/speed", "tank/height"], "the second description")
        # Back to the first one while nobody looks.
        address = self.browser.driver.current_url
        self.browser.driver.get("about:blank")
        before = self.fingerprint(service)
        creator = self.describe(plant, creator, first)
        wait_until(lambda: self.fingerprint(service) != before, "the server has the first again")
        self.browser.driver.get(address)
        self.sees("#connection", "● live")
        self.assertEqual(self.shown(), ["pump/speed", "tank/level"])

        self.describe(plant, creator, second)

        self.until(lambda: self.shown() == ["pump/speed", "tank/height"], "the second description again")

    def test_values_of_another_description_are_never_shown(self):
        plant, creator, service = self.page()
        other = plant.file.read_text(encoding="utf-8").replace('"speed"', '"a"')
        # As if the page had been loaded for it already, in vain.
        self.browser.run(
            "Storage.prototype.getItem = (key) => key.includes('reloaded') ? window.told : null;")
        creator.close()
        self.sees("#connection", "✕ no values")
        copy = self.plant(LEAVES)
        copy.file.write_text(other, encoding="utf-8")
        told = self.fingerprint(self.served(copy))
        self.browser.run("window.told = arguments[0];", told)
        plant.file.write_text(other, encoding="utf-8")

        self.closed(Creator(plant))
        plant.set("pump/a", "77")

        wait_until(lambda: "has another description than it sends" in (self.browser.text("#banner") or ""), "the reason")
        self.assertEqual(self.shown(), ["pump/speed", "tank/level"])
        self.sees_value("pump/speed", "10")
        self.sees("#connection", "✕ no values")

    def test_a_later_tab_gets_no_values_of_a_former_description(self):
        self.page()

        told = self.browser.run(
            "return import('/app/latest.js').then(({Latest}) => {"
            " const set = {kind: 'set', age: 0, full: true, values: [[0, 10, 0]]};"
            " return ['a', 'b'].map((fingerprint) => {"
            "  const latest = new Latest();"
            "  [{kind: 'hello', fingerprint: 'a'}, set, {kind: 'gone'}, {kind: 'back', fingerprint}]"
            "   .forEach((message) => latest.take(message));"
            "  return latest.messages().map(({kind}) => kind);"
            " }); })")

        self.assertEqual(told, [["set", "back"], ["back"]])


if __name__ == "__main__":
    unittest.main()
