"""The texts of `tessel-metrics` under the parsers of those who read them."""

import shutil
import subprocess
import unittest

from exits import LONGEST, Creator, Plant, Service

try:
    from prometheus_client import parser as plain
    from prometheus_client.openmetrics import parser as strict
except ImportError:
    strict = None

OPEN = {"Accept": "application/openmetrics-text;version=1.0.0"}
LEAVES = {
    "pump/speed": {"type": "double", "unit": "1/min", "minLimit": 0.5},
    "pump/on": {"type": "boolean"},
    "pump/name": {"type": "string", "unit": 'quo"te\\back\nline'},
    "tank/tiny": {"type": "double"},
    "tank/large": {"type": "int64"},
    "tank/broken": {"type": "int32"},
}


class Formats(unittest.TestCase):
    def setUp(self):
        self.plant = Plant(LEAVES)
        self.addCleanup(self.plant.close)
        self.creator = Creator(self.plant)
        self.addCleanup(self.creator.close)
        self.plant.set("pump/speed", "1500.25")
        self.plant.set("pump/on", "false")
        self.plant.set("tank/tiny", "4.9e-324")
        self.plant.set("tank/large", "-9007199254740993")
        self.plant.set("tank/broken", "--error", "sensor-breakage")
        self.service = Service("--listen", "127.0.0.1:0", str(self.plant.file))
        self.addCleanup(self.service.close)

    def texts(self):
        """Both forms, with the region up and then gone."""
        both = [(None, "plain"), (OPEN, "open")]
        texts = [(f"{name}, up", self.service.ask(headers=header)[2]) for header, name in both]
        self.creator.close()
        return texts + [(f"{name}, gone", self.service.ask(headers=header)[2]) for header, name in both]

    @unittest.skipUnless(shutil.which("promtool"), "needs promtool of the Debian package prometheus")
    def test_promtool_has_nothing_to_say(self):
        for name, text in self.texts():
            if name.startswith("plain"):
                with self.subTest(name):
                    run = subprocess.run(
                        ["promtool", "check", "metrics"], input=text, capture_output=True, text=True,
                        timeout=LONGEST, check=False,
                    )
                    self.assertEqual((run.returncode, run.stdout + run.stderr), (0, ""))

    @unittest.skipUnless(strict, "needs the Debian package python3-prometheus-client")
    def test_strict_parser_takes_openmetrics(self):
        for name, text in self.texts():
            if name.startswith("open"):
                with self.subTest(name):
                    families = {family.name: family for family in strict.text_string_to_metric_families(text)}
                    types = {family.name: family.type for family in families.values()}
                    expected = {"tessel_leaf": "info", "tessel_region_up": "gauge"}
                    if name == "open, up":
                        expected |= {
                            "tessel_value": "gauge",
                            "tessel_value_state": "stateset",
                            "tessel_value_state_code": "gauge",
                            "tessel_region_swaps": "counter",
                            "tessel_region_last_swap_timestamp_seconds": "gauge",
                        }
                    self.assertEqual(types, expected)

    @unittest.skipUnless(strict, "needs the Debian package python3-prometheus-client")
    def test_both_forms_carry_the_same_samples(self):
        def samples(families):
            return sorted(
                (sample.name, tuple(sorted(sample.labels.items())), float(sample.value))
                for family in families
                for sample in family.samples
            )

        texts = dict(self.texts())

        for state in ("up", "gone"):
            with self.subTest(state):
                told = samples(plain.text_string_to_metric_families(texts[f"plain, {state}"]))
                self.assertEqual(
                    told, samples(strict.text_string_to_metric_families(texts[f"open, {state}"]))
                )
        values = {
            labels: value
            for name, labels, value in samples(plain.text_string_to_metric_families(texts["plain, up"]))
            if name == "tessel_value"
        }
        self.assertEqual(
            values,
            {
                (("unit", "1/min"), ("url", "pump/speed")): 1500.25,
                (("unit", ""), ("url", "pump/on")): 0.0,
                (("unit", ""), ("url", "tank/tiny")): 4.9e-324,
                (("unit", ""), ("url", "tank/large")): -9007199254740993.0,
            },
        )

    @unittest.skipUnless(strict, "needs the Debian package python3-prometheus-client")
    def test_labels_come_back_as_they_were(self):
        families = strict.text_string_to_metric_families(self.service.ask(headers=OPEN)[2])

        units = {
            sample.labels["url"]: sample.labels["unit"]
            for family in families
            for sample in family.samples
            if sample.name == "tessel_leaf_info"
        }

        self.assertEqual(units["pump/name"], 'quo"te\\back\nline')

    @unittest.skipUnless(strict, "needs the Debian package python3-prometheus-client")
    def test_just_one_state_of_a_leaf_is_on(self):
        on = {}
        for family in strict.text_string_to_metric_families(self.service.ask(headers=OPEN)[2]):
            for sample in family.samples if family.name == "tessel_value_state" else ():
                if sample.value == 1:
                    on.setdefault(sample.labels["url"], []).append(sample.labels["tessel_value_state"])

        self.assertEqual(
            on,
            {
                "pump/speed": ["valid"],
                "pump/on": ["valid"],
                "pump/name": ["no-input"],
                "tank/tiny": ["valid"],
                "tank/large": ["valid"],
                "tank/broken": ["sensor-breakage"],
            },
        )


if __name__ == "__main__":
    unittest.main()
