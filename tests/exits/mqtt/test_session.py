"""Sessions of the edge node, from birth to death, as a real broker passes them on."""

import re
import signal
import time
import unittest

import sparkplug
from broker import Broker, Listener, Node, metrics, rebirth
from exits import LONGEST, Creator, Plant, wait_until

LEAVES = {
    "pump/speed": {"type": "double", "unit": "1/min", "minLimit": 0, "maxLimit": 3000, "readOnly": False},
    "pump/on": {"type": "boolean", "readOnly": False},
    "pump/name": {"type": "string", "readOnly": False},
    "tank/level": {"type": "int32", "readOnly": False},
}
DEVICE = "plant"


class Session(unittest.TestCase):
    def setUp(self):
        self.plant = self.closed(Plant(LEAVES))
        self.creator = self.closed(Creator(self.plant))
        self.plant.set("pump/speed", "1500.5", "pump/on", "true", "pump/name", "main", "tank/level", "-7")
        self.broker = self.closed(Broker())
        self.listener = self.closed(Listener(self.broker))

    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing

    def node(self, *arguments, **more):
        return self.closed(Node(self.broker, *arguments, str(self.plant.file), **more))

    def born(self, *arguments, **more):
        node = self.node(*arguments, **more)
        self.listener.wait("DBIRTH")
        return node

    def assert_nothing_is_retained(self, *kinds):
        """As the broker was asked: who has subscribed before is told of nothing that it is retained."""
        told = re.findall(r"Received PUBLISH from tessel\.g\.n \(d\d, q\d, r(\d), m\d+, 'spBv1\.0/g/(\w+)/", self.broker.log())
        self.assertEqual({kind for _, kind in told}, set(kinds))
        self.assertEqual({retained for retained, _ in told}, {"0"})

    def bd_seq(self, message):
        metric = metrics(message)["bdSeq"]
        self.assertEqual(metric.datatype, 4)
        field, number = sparkplug.value(metric)
        self.assertEqual(field, "long")
        return number

    def test_births_come_first_and_in_order(self):
        before = time.time() * 1000
        self.born()

        node, device = self.listener.all()[:2]
        self.assertEqual(node.topic, "spBv1.0/g/NBIRTH/n")
        self.assertEqual(device.topic, "spBv1.0/g/DBIRTH/n/plant")
        for number, message in enumerate((node, device)):
            self.assertEqual((message.qos, message.retained), (0, False))
            self.assertTrue(message.payload.HasField("seq"))
            self.assertEqual(message.payload.seq, number)
            self.assertTrue(before - 1000 <= message.payload.timestamp <= time.time() * 1000)
        self.assert_nothing_is_retained("NBIRTH", "DBIRTH")

    def test_birth_of_the_node_has_its_session_and_the_rebirth(self):
        self.born()

        node = self.listener.of("NBIRTH")[0]
        self.assertEqual([metric.name for metric in node.payload.metrics], ["bdSeq", "Node Control/Rebirth"])
        self.assertEqual(self.bd_seq(node), 0)
        again = metrics(node)["Node Control/Rebirth"]
        self.assertEqual((again.datatype, sparkplug.value(again)), (11, ("boolean", False)))
        self.assertFalse(again.HasField("alias"))

    def test_birth_of_a_device_tells_every_leaf(self):
        self.born()

        told = metrics(self.listener.of("DBIRTH")[0])
        self.assertEqual(
            {name: (metric.datatype, sparkplug.value(metric)) for name, metric in told.items()},
            {
                "pump/speed": (10, ("double", 1500.5)),
                "State/pump/speed": (12, ("string", "valid")),
                "pump/on": (11, ("boolean", True)),
                "State/pump/on": (12, ("string", "valid")),
                "pump/name": (12, ("string", "main")),
                "State/pump/name": (12, ("string", "valid")),
                "tank/level": (3, ("int", 2**32 - 7)),
                "State/tank/level": (12, ("string", "valid")),
            },
        )
        self.assertEqual(
            sparkplug.properties(told["pump/speed"]),
            {
                "Quality": (3, "int", 192),
                "engUnit": (12, "string", "1/min"),
                "engLow": (10, "double", 0.0),
                "engHigh": (10, "double", 3000.0),
            },
        )
        for metric in told.values():
            self.assertTrue(metric.timestamp > 1_600_000_000_000)

    def test_changes_alone_are_told_with_rising_numbers(self):
        self.born()

        for i in range(300):
            self.plant.set("tank/level", str(i))
            self.listener.wait("DDATA", i + 1)

        data = self.listener.of("DDATA")
        self.assertEqual(len(data), 300)
        for i, message in enumerate(data):
            self.assertEqual(message.topic, "spBv1.0/g/DDATA/n/plant")
            self.assertEqual((message.qos, message.retained), (0, False))
            self.assertEqual(message.payload.seq, (i + 2) % 256)
            (metric,) = message.payload.metrics
            self.assertEqual((metric.name, sparkplug.value(metric)), ("tank/level", ("int", i)))
            self.assertFalse(metric.HasField("datatype"))
            self.assertTrue(message.payload.timestamp >= metric.timestamp > 0)
        self.assertFalse(self.listener.of("NDATA"))
        self.assert_nothing_is_retained("NBIRTH", "DBIRTH", "DDATA")

    def test_states_become_qualities_and_recover(self):
        self.born()

        self.plant.set("pump/speed", "--error", "timeout")
        self.plant_told(1, ("pump/speed", None, 500), "timeout")
        self.plant.set("pump/speed", "--error", "overrange")
        self.plant_told(2, ("pump/speed", None, 0), "overrange")
        self.plant.set("pump/speed", "1500.5")
        self.plant_told(3, ("pump/speed", ("double", 1500.5), 192), "valid")

    def plant_told(self, count, expected, state):
        value, named = self.listener.wait("DDATA", count)[count - 1].payload.metrics
        quality = sparkplug.properties(value)["Quality"]
        self.assertEqual((value.name, sparkplug.value(value), quality[2]), expected)
        self.assertEqual(value.is_null, expected[1] is None)
        self.assertEqual((named.name, sparkplug.value(named)), ("State/pump/speed", ("string", state)))

    def test_rebirth_keeps_connection_and_session(self):
        self.born()
        self.plant.set("tank/level", "5")
        self.listener.wait("DDATA")

        self.broker.publish("spBv1.0/g/NCMD/n", rebirth())

        nodes = self.listener.wait("NBIRTH", 2)
        self.listener.wait("DBIRTH", 2)
        self.assertEqual([self.bd_seq(node) for node in nodes], [0, 0])
        self.assertEqual([message.payload.seq for message in self.listener.all()[-2:]], [0, 1])
        self.assertEqual(sparkplug.value(metrics(self.listener.of("DBIRTH")[1])["tank/level"]), ("int", 5))
        self.assertEqual(self.broker.connects("tessel.g.n"), 1)
        self.assertFalse(self.listener.of("NDEATH"))

    def test_no_data_come_between_a_command_and_the_rebirth(self):
        node = self.born()
        ask = rebirth()
        ask.metrics.add(name="told when it is heard", datatype=11, boolean=True)

        self.broker.publish("spBv1.0/g/NCMD/n", ask)
        node.wait_log("'told when it is heard' is none that it knows")
        self.plant.set("tank/level", "6")

        self.listener.wait("DBIRTH", 2)
        kinds = [message.topic.split("/")[2] for message in self.listener.all()]
        self.assertEqual(kinds[:4], ["NBIRTH", "DBIRTH", "NBIRTH", "DBIRTH"])

    def test_intended_end_tells_the_death_and_disconnects(self):
        node = self.born()

        self.assertEqual(node.end(), 0)

        self.assertLess(node.seconds_to_end, 1)
        (death,) = self.listener.wait("NDEATH")
        self.assertEqual((death.topic, death.retained), ("spBv1.0/g/NDEATH/n", False))
        self.assertEqual([metric.name for metric in death.payload.metrics], ["bdSeq"])
        self.assertEqual(self.bd_seq(death), 0)
        self.assertFalse(death.payload.HasField("seq"))
        self.assert_nothing_is_retained("NBIRTH", "DBIRTH", "NDEATH")
        self.assertEqual(len(self.listener.of("NDEATH")), 1)
        self.assert_one_takes_leave()

    def assert_one_takes_leave(self):
        """Which has half a second for it, that a machine with other work may take away."""
        ends, last = 1, time.monotonic() + LONGEST
        wait_until(lambda: len(self.broker.leaves("tessel.g.n")) == ends, "the end of the session")
        while not self.broker.leaves("tessel.g.n")[-1]:
            self.assertLess(time.monotonic(), last, self.broker.log())
            ends += 1
            node = self.node()
            self.listener.wait("DBIRTH", ends)
            self.assertEqual(node.end(), 0)
            wait_until(lambda: len(self.broker.leaves("tessel.g.n")) == ends, "the end of the session")

    def test_killed_node_dies_by_its_will_and_is_born_with_the_next_number(self):
        node = self.born()
        node.end(signal.SIGKILL)

        (death,) = self.listener.wait("NDEATH")
        self.assertEqual((death.topic, death.qos, self.bd_seq(death)), ("spBv1.0/g/NDEATH/n", 1, 0))
        self.assertEqual([metric.name for metric in death.payload.metrics], ["bdSeq"])
        self.assertRegex(self.broker.log(), r"as tessel\.g\.n .*\n.*Will message specified \(\d+ bytes\) \(r0, q1\)\.")
        self.assertFalse(death.payload.HasField("seq"))

        again = self.node(state=node.state)
        births = self.listener.wait("NBIRTH", 2)
        self.assertEqual(self.bd_seq(births[1]), 1)
        self.assertEqual(births[1].payload.seq, 0)
        again.end(signal.SIGKILL)
        self.assertEqual(self.bd_seq(self.listener.wait("NDEATH", 2)[1]), 1)

    def test_number_of_the_session_starts_again_behind_255(self):
        node = self.born()
        node.end()
        (self.state_file(node)).write_text("254\n", encoding="utf-8")

        for count in (2, 3):
            again = self.node(state=node.state)
            self.listener.wait("DBIRTH", count)
            again.end()
        self.assertEqual([self.bd_seq(birth) for birth in self.listener.of("NBIRTH")], [0, 255, 0])

    @staticmethod
    def state_file(node):
        import pathlib

        return pathlib.Path(node.state) / "g.n.bdseq"

    def test_region_that_goes_and_returns_is_death_and_birth_of_the_device(self):
        self.born()

        self.creator.close()
        (death,) = self.listener.wait("DDEATH")
        self.assertEqual((death.topic, death.qos, death.retained), ("spBv1.0/g/DDEATH/n/plant", 0, False))
        self.assertEqual(death.payload.seq, 2)
        self.assertTrue(death.payload.timestamp > 0)
        self.assert_nothing_is_retained("NBIRTH", "DBIRTH", "DDEATH")

        self.closed(Creator(self.plant))
        birth = self.listener.wait("DBIRTH", 2)[1]
        self.assertEqual(birth.payload.seq, 3)
        self.assertTrue(metrics(birth)["tank/level"].is_null)
        self.assertFalse(self.listener.of("NDEATH"))

    def test_commands_are_subscribed_before_the_birth(self):
        self.born()

        log = self.broker.log()
        for topic in ("spBv1.0/g/NCMD/n", "spBv1.0/g/DCMD/n/+"):
            self.assertIn(f"{topic} (QoS 1)", log)
        self.assertLess(log.index("Sending SUBACK to tessel.g.n"),
                        log.index("Received PUBLISH from tessel.g.n"))
        self.assertRegex(log, r"as tessel\.g\.n \(p2, c1, k30\)")

    def test_two_processes_are_not_one_node(self):
        node = self.born()

        second = self.node(state=node.state)

        self.assertEqual(second.end(0), 4)
        self.assertIn("node 'n' of group 'g' is run by another process already", second.log())

    def test_aliases_stand_alone_in_data(self):
        self.born("--aliases")

        birth = metrics(self.listener.of("DBIRTH")[0])
        aliases = [metric.alias for metric in birth.values()]
        self.assertTrue(all(metric.HasField("alias") for metric in birth.values()))
        self.assertEqual(len(set(aliases)), len(birth))
        for metric in self.listener.of("NBIRTH")[0].payload.metrics:
            self.assertFalse(metric.HasField("alias"))
        self.plant.set("tank/level", "8")
        (metric,) = self.listener.wait("DDATA")[0].payload.metrics
        self.assertFalse(metric.HasField("name"))
        self.assertEqual(metric.alias, birth["tank/level"].alias)

    def test_reload_begins_a_new_session(self):
        node = self.born(config="aliases = no\n")
        node.config.write_text("aliases = yes\n", encoding="utf-8")

        node.process.send_signal(signal.SIGHUP)

        births = self.listener.wait("DBIRTH", 2)
        self.assertTrue(births[1].payload.metrics[0].HasField("alias"))
        self.assertEqual([self.bd_seq(birth) for birth in self.listener.of("NBIRTH")], [0, 1])
        self.assertEqual(len(self.listener.of("NDEATH")), 1)

    def test_reload_with_a_mistake_changes_nothing(self):
        node = self.born(config="aliases = no\n")
        node.config.write_text("aliasses = yes\n", encoding="utf-8")

        node.process.send_signal(signal.SIGHUP)

        node.wait_log("unknown key 'aliasses' (did you mean 'aliases'?); the configuration stays as it was")
        self.plant.set("tank/level", "8")
        self.listener.wait("DDATA")
        self.assertEqual(len(self.listener.of("NBIRTH")), 1)

    def test_reload_with_a_broken_description_changes_nothing(self):
        node = self.born(config="aliases = no\n")
        whole = self.plant.file.read_text(encoding="utf-8")
        for count, text in enumerate((whole[:100], "", '{"type":"treenode","value":{}}'), 1):
            with self.subTest(text=text):
                self.plant.file.write_text(text, encoding="utf-8")

                node.process.send_signal(signal.SIGHUP)

                wait_until(lambda count=count: node.log().count("; the configuration stays as it was") == count,
                           "refused")
                self.plant.file.write_text(whole, encoding="utf-8")
                self.plant.set("tank/level", str(10 + count))
                self.listener.wait("DDATA", count)
        self.assertEqual(len(self.listener.of("NBIRTH")), 1)
        self.assertEqual(node.end(), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
