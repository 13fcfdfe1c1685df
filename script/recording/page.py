"""Photographs the page of tessel-web: `page.py FOLDER`, with the programs that the tests of the page name."""

import math
import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent.parent / "tests" / "exits" / "web"))

from browser import Keys, PageTest  # noqa: E402

FOLDER = None


def number(unit, lowest, highest, label, **limits):
    return {"type": "double", "unit": unit, "viewStart": lowest, "viewEnd": highest, "labelTextId": label, **limits}


LEAVES = {
    "boiler/temperature": number("°C", 0, 140, "Boiler, supply temperature", minLimit=10, maxLimit=120),
    "boiler/pressure": number("bar", 0, 10, "Boiler, pressure", maxLimit=8),
    "boiler/flow": number("m³/h", 0, 12, "Boiler, flow"),
    "boiler/burner": {"type": "boolean", "labelTextId": "Burner on"},
    "boiler/mode": {"type": "string", "labelTextId": "Operating mode"},
    "pump/speed": number("1/min", 0, 3600, "Pump, speed", minLimit=300, maxLimit=3000),
    "pump/current": number("A", 0, 16, "Pump, current", maxLimit=14),
    "pump/vibration": number("mm/s", 0, 12, "Pump, vibration of the bearing", maxLimit=9),
    "pump/starts": {"type": "uint64", "labelTextId": "Pump, starts"},
    "tank/level": number("%", 0, 100, "Tank, level", minLimit=5, maxLimit=95),
    "tank/inflow": number("m³/h", 0, 20, "Tank, inflow"),
    "tank/outflow": number("m³/h", 0, 20, "Tank, outflow"),
    "tank/valve": {"type": "boolean", "labelTextId": "Tank, outlet valve"},
}


def publish(plant, time):
    """A plant at work, some seconds after it has started: a sensor is broken, another answers now and then."""
    wave = math.sin(time / 6)
    values = {
        "boiler/temperature": 82 + 9 * wave, "boiler/pressure": 5.2 + 0.6 * math.sin(time / 5),
        "boiler/flow": 7.4 + 0.5 * math.cos(time / 4), "boiler/burner": wave > 0, "boiler/mode": "heating",
        "pump/speed": 2100 + 260 * math.sin(time / 7), "pump/current": 9.1 + 0.8 * math.sin(time / 7),
        "pump/starts": 1482, "tank/level": 61 + 12 * math.sin(time / 11), "tank/outflow": 8.25 + 0.3 * wave,
        "tank/valve": True,
    }
    errors = {"pump/vibration": "sensor-breakage", "tank/inflow": "underrange"}
    if 18 < time % 60 < 26:
        errors["tank/level"] = "timeout"
        del values["tank/level"]
    texts = {url: str(value).lower() if isinstance(value, bool) else str(value) for url, value in values.items()}
    plant.set(*(text for pair in texts.items() for text in pair))
    for url, state in errors.items():
        plant.set(url, "--error", state)


class Photographs(PageTest):
    def published(self):
        """Seconds since the page was loaded, after a set of that time."""
        time = self.browser.run("return performance.now() / 1000")
        publish(self.plant_, time)
        return time

    def shoot(self, name):
        self.published()
        file = pathlib.Path(FOLDER) / f"{name}.png"
        self.browser.picture(file)
        print(file)

    def test_the_page(self):
        self.plant_ = self.plant(LEAVES)
        self.creator(self.plant_)
        publish(self.plant_, 0)
        service = self.served(self.plant_, "--token-file", str(self.token_file(self.plant_)))
        self.browser.look(width=1200, height=880)
        self.open(service)
        for url in ["boiler/temperature", "pump/speed"]:
            self.browser.click(f'.leaf[data-url="{url}"] .pin')
        self.browser.click('.leaf[data-url="tank/level"] .name')
        # As long as a trend is worth looking at.
        self.until(lambda: self.published() > 45, "the trends are long enough")
        self.shoot("web-light")
        self.browser.look(width=1200, height=880, dark=True)
        self.shoot("web-dark")
        self.browser.look(width=360, height=740)
        self.browser.driver.find_element("id", "details").send_keys(Keys.ESCAPE)
        self.browser.run("document.activeElement.blur(); document.getElementById('leaves').scrollIntoView()")
        self.shoot("web-narrow")
        self.browser.look(width=1200, height=880)
        self.browser.click('.leaf[data-url="pump/speed"] .name')
        self.browser.click("#details .buttons button:nth-child(2)")
        self.shoot("web-write")


if __name__ == "__main__":
    FOLDER = sys.argv.pop(1)
    unittest.main()
