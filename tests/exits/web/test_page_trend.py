"""The trend of a value in a real browser: looked at as a picture, since that is all that a canvas is."""

import unittest

from browser import PageTest

LEAVES = {"tank/level": {"type": "double", "unit": "%"}, "tank/name": {"type": "string"}}

# Which columns of the canvas have a point of the line's colour, within the part that is plotted.
COLUMNS = """
const plot = document.querySelector(arguments[0] + ' .u-over').getBoundingClientRect();
const canvas = document.querySelector(arguments[0] + ' canvas');
const box = canvas.getBoundingClientRect();
const scale = canvas.width / box.width;
const copy = Object.assign(document.createElement('canvas'), {width: canvas.width, height: canvas.height})
  .getContext('2d', {willReadFrequently: true});
copy.fillStyle = getComputedStyle(document.body).getPropertyValue('--trend');
copy.fillRect(0, 0, 1, 1);
const colour = copy.getImageData(0, 0, 1, 1).data;
copy.clearRect(0, 0, 1, 1);
copy.drawImage(canvas, 0, 0);
const width = Math.round(plot.width * scale);
const height = Math.round(plot.height * scale);
const {data} = copy.getImageData(
  Math.round((plot.left - box.left) * scale), Math.round((plot.top - box.top) * scale), width, height);
return Array.from({length: width}, (_, x) => {
  for (let y = 0; y < height; ++y) {
    const at = 4 * (y * width + x);
    if ([0, 1, 2].every((part) => Math.abs(data[at + part] - colour[part]) < 60) && data[at + 3] > 128) {
      return true;
    }
  }
  return false;
});
"""

# What a trend has of sets with these times, in seconds behind midnight; null for a set without a time. The values are
# 0, 1, 2, ... Gives the seconds and the values of its points.
POINTS = """
const day = Date.parse('2020-01-05T00:00:00Z') / 1000;
return import('/app/plant.js').then(({Plant}) => {
  const plant = new Plant({leaves: [{index: 0, url: 'tank/level', type: 'double'}]});
  arguments[0].forEach((seconds, value) => {
    const time = seconds === null ? null : new Date(1000 * (day + seconds)).toISOString();
    plant.take({kind: 'set', time, age: 0, full: false, values: [[0, value, 0]]});
  });
  const [times, numbers] = plant.history.between(0, plant.now() - 120, plant.now());
  const begins = times.filter((_, at) => at % 2 === 0);
  return [begins.map((time) => Math.round(time - day)), numbers.filter((_, at) => at % 2 === 0)];
});
"""


class Trend(PageTest):
    def page(self):
        plant = self.plant(LEAVES)
        self.creator(plant)
        plant.set("tank/level", "10")
        self.open(self.served(plant))
        self.sees_value("tank/level", "10 %")
        return plant

    def runs(self, place):
        """How many unbroken pieces the line has."""
        columns = self.browser.run(COLUMNS, place)
        return sum(1 for before, now in zip([False, *columns], columns) if now and not before)

    def publish_until(self, plant, seconds, *values):
        """Sets of the same values, until the clock of the page has gone on by so much."""
        now = "return performance.now()"
        end = self.browser.run(now) + 1000 * seconds
        while self.browser.run(now) < end:
            plant.set(*values)

    def test_an_error_is_a_gap_in_the_line(self):
        plant = self.page()
        self.browser.click('.leaf[data-url="tank/level"] .name')
        self.publish_until(plant, 1, "tank/level", "20")
        self.until(lambda: self.runs("#details") == 1, "the line is drawn")

        self.publish_until(plant, 1, "tank/level", "--error", "sensor-breakage")
        self.publish_until(plant, 1, "tank/level", "30")

        self.until(lambda: self.runs("#details") == 2, "the line has a gap")
        self.sees("#details .plot-note", "lowest 10 · highest 30")
        self.assertEqual(self.browser.complaints(), [])

    def test_a_pinned_number_has_a_trend_and_a_text_has_none(self):
        plant = self.page()

        self.browser.click('.leaf[data-url="tank/level"] .pin')
        self.browser.click('.leaf[data-url="tank/name"] .pin')
        self.publish_until(plant, 0.5, "tank/level", "20")

        self.until(lambda: self.runs('.card[data-url="tank/level"]') == 1, "the line is drawn")
        self.assertEqual(self.browser.count('.card[data-url="tank/name"]'), 1)
        self.assertEqual(self.browser.count('.card[data-url="tank/name"] canvas'), 0)

    def test_a_clock_that_was_set_back_does_not_stop_the_trend(self):
        self.page()

        points = self.browser.run(POINTS, [3600, 3601, 1, 2, 3])

        self.assertEqual(points, [[0, 1, 1, 2, 3], [0, 1, 2, 3, 4]])

    def test_a_set_without_a_time_is_of_the_clock_of_the_others(self):
        self.page()

        points = self.browser.run(POINTS, [10, None, 12, None, 14])

        self.assertEqual(points, [[10, 10, 12, 12, 14], [0, 1, 2, 3, 4]])


if __name__ == "__main__":
    unittest.main()
