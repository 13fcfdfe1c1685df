"""What is told and when: deadbands and least intervals."""

import os
import pathlib
import unittest
from unittest import mock

import sparkplug
from broker import Broker, Listener, Node
from exits import EXIT, Creator, Plant, wait_until

LEAVES = {
    "pump/speed": {"type": "double", "readOnly": False},
    "pump/on": {"type": "boolean", "readOnly": False},
    "tank/level": {"type": "int32", "readOnly": False},
}


class Reports(unittest.TestCase):
    def setUp(self):
        self.plant = self.closed(Plant(LEAVES))
        self.creator = self.closed(Creator(self.plant))
        self.plant.set("pump/speed", "10", "pump/on", "false", "tank/level", "0")
        self.broker = self.closed(Broker())
        self.listener = self.closed(Listener(self.broker))

    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing

    def node(self, *arguments, **more):
        return self.closed(Node(self.broker, *arguments, str(self.plant.file), **more))

    def told(self):
        """Name and value of all data, with whether it is of the past."""
        return [(metric.name, sparkplug.value(metric)[1], metric.is_historical)
                for message in self.listener.of("DDATA") for metric in message.payload.metrics]

    def test_deadband_is_of_the_last_told_value(self):
        self.node(config="[report pump/**]\ndeadband = 2\n")
        self.listener.wait("DBIRTH")

        for i, speed in enumerate(("11", "12", "12.5", "13", "10.5", "10.4"), 1):
            # The level is told each time, and with it what else there is to tell.
            self.plant.set("pump/speed", speed, "tank/level", str(i))
            self.listener.wait("DDATA", i)

        self.assertEqual([value for name, value, _ in self.told() if name == "pump/speed"], [12.5, 10.4])

    def test_state_is_told_whatever_the_deadband(self):
        self.node(config="[report **]\ndeadband = 1000\nleast-interval = 86400000\n")
        self.listener.wait("DBIRTH")

        self.plant.set("pump/speed", "--error", "overrange")

        self.assertTrue(self.listener.wait("DDATA")[0].payload.metrics[0].is_null)

    def test_least_interval_holds_back_and_loses_nothing(self):
        self.node(config="[report tank/level]\nleast-interval = 700\n")
        self.listener.wait("DBIRTH")

        for i in range(1, 21):
            self.plant.set("tank/level", str(i))
        wait_until(lambda: ("tank/level", 20, False) in self.told(), "the last value")

        times = [message.payload.timestamp for message in self.listener.of("DDATA")]
        birth = self.listener.of("DBIRTH")[0].payload.timestamp
        self.assertGreaterEqual(min(b - a for a, b in zip([birth - 1, *times], times)), 690)


    def test_interval_goes_on_when_the_clock_is_set_back(self):
        program = pathlib.Path(EXIT).read_bytes()
        if b"__asan_init" in program or b"__tsan_init" in program:
            self.skipTest("a sanitizer stands before the clock")
        set_back = self.plant.folder / "set back"
        with mock.patch.dict(os.environ, LD_PRELOAD=os.environ["TESSEL_CLOCK"], TESSEL_SET_BACK=str(set_back)):
            self.node(config="[report tank/level]\nleast-interval = 50\n")
        self.listener.wait("DBIRTH")
        self.plant.set("tank/level", "1")
        before = self.listener.wait("DDATA")[0].payload.timestamp

        set_back.touch()
        self.plant.set("tank/level", "2")

        wait_until(lambda: ("tank/level", 2, False) in self.told(), "the newer value")
        self.assertLess(self.listener.of("DDATA")[-1].payload.timestamp, before - 80_000_000)


if __name__ == "__main__":
    unittest.main(verbosity=2)
