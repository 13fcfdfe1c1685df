"""Commands of the plant: what they may write, and what is refused."""

import os
import unittest

import sparkplug
from broker import Broker, Listener, Node, command, metrics
from exits import Creator, LockHolder, Plant, TimeTaken, tool, wait_until

LEAVES = {
    "pump/speed": {"type": "double", "minLimit": 0, "maxLimit": 3000, "readOnly": False},
    "pump/on": {"type": "boolean", "readOnly": False},
    "pump/name": {"type": "string", "readOnly": False},
    "pump/serial": {"type": "int32", "readOnly": True},
    "tank/level": {"type": "int32", "readOnly": False},
}
TOPIC = "spBv1.0/g/DCMD/n/plant"


class Commands(unittest.TestCase):
    def setUp(self):
        self.plant = self.closed(Plant(LEAVES))
        self.closed(Creator(self.plant))
        self.plant.set("pump/speed", "10", "pump/on", "false", "pump/name", "main", "tank/level", "1")
        self.broker = self.closed(Broker())
        self.listener = self.closed(Listener(self.broker))

    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing

    def born(self, *arguments):
        node = self.closed(Node(self.broker, *arguments, str(self.plant.file)))
        self.listener.wait("DBIRTH")
        return node

    def value(self, url):
        return tool("get", "-t", str(self.plant.file), url).stdout.strip()

    def test_allowed_values_are_written_and_told(self):
        self.born("--allow-write", "pump/**")

        self.broker.publish(TOPIC, command(("pump/speed", 10, "double", 12.5), ("pump/on", 11, "boolean", True),
                                           ("pump/name", 12, "string", "spare")))

        told = metrics(self.listener.wait("DDATA")[0])
        self.assertEqual({name: sparkplug.value(metric)[1] for name, metric in told.items()},
                         {"pump/speed": 12.5, "pump/on": True, "pump/name": "spare"})
        self.assertEqual([self.value(url) for url in ("pump/speed", "pump/on", "pump/name")],
                         ["12.5", "true", "spare"])

    def test_region_is_mapped_for_reading_alone_where_nothing_may_be_written(self):
        self.assertEqual(self.plant.rights_of(self.born().process), ["r--s"])

    def test_region_is_mapped_for_writing_where_something_may_be(self):
        self.assertEqual(self.plant.rights_of(self.born("--allow-write", "pump/**").process), ["rw-s"])

    def test_negative_number_is_written(self):
        self.born("--allow-write", "tank/level")

        self.broker.publish(TOPIC, command(("tank/level", 3, "int", 2**32 - 5)))

        self.listener.wait("DDATA")
        self.assertEqual(self.value("tank/level"), "-5")

    def test_refused_ones_are_logged_and_told_again(self):
        node = self.born("--allow-write", "pump/**")
        cases = [
            (("tank/level", 3, "int", 5), "'tank/level' of device 'plant' is refused: the configuration does not "
             "allow it; 'allow-write = tank/level' does"),
            (("pump/speed", 10, "double", 3000.5), "'pump/speed' of device 'plant' is refused: 3000.5 is above the "
             "upper limit, 3000"),
            (("pump/speed", 10, "double", -1.0), "-1 is below the lower limit, 0"),
            (("pump/speed", 10, "double", float("nan")), "nan is no finite number"),
            (("pump/speed", 9, "float", 5.0), "'pump/speed' of device 'plant' is refused: it holds no value of type "
             "Double"),
            (("pump/serial", 3, "int", 5), "it is read-only; only the process that created the region writes it"),
            (("pump/name", 12, "string", "x" * 16), "a text of 16 characters does not fit; 15 do"),
        ]
        before = {url: self.value(url) for url in LEAVES}

        for count, (part, said) in enumerate(cases, 1):
            with self.subTest(part=part):
                self.broker.publish(TOPIC, command(part))
                (metric,) = self.listener.wait("DDATA", count)[count - 1].payload.metrics
                self.assertEqual(metric.name, part[0])
                node.wait_log(said)
        self.assertEqual({url: self.value(url) for url in LEAVES}, before)

    def test_nobody_waits_for_who_was_stopped_inside_the_lock(self):
        # What a lock waits for at most.
        bound = 5
        for count, double_buffer in enumerate((True, False), 1):
            with self.subTest(double_buffer=double_buffer):
                self.plant = self.closed(Plant(LEAVES, double_buffer))
                self.closed(Creator(self.plant))
                self.plant.set("pump/speed", "10")
                node = self.closed(Node(self.broker, "--allow-write", "pump/**", str(self.plant.file)))
                self.listener.wait("DBIRTH", count)
                holder = self.closed(LockHolder(self.plant))
                taken = TimeTaken(node.process, self.broker.process)

                self.broker.publish(TOPIC, command(("pump/speed", 10, "double", 12.5)))

                node.wait_log("a command to write 1 values of device 'plant' could not be carried out: process "
                              f"{os.getpid()} holds the lock of region '{self.plant.key}'")
                self.assertLess(taken.seconds(), bound)
                self.assertEqual(node.end(), 0)
                self.assertLess(node.seconds_to_end, bound)
                holder.close()
                self.assertEqual(self.value("pump/speed"), "10")

    def test_nothing_is_writable_without_permission(self):
        node = self.born()

        self.broker.publish(TOPIC, command(("pump/speed", 10, "double", 12.5)))

        self.listener.wait("DDATA")
        node.wait_log("the configuration does not allow it")
        self.assertEqual(self.value("pump/speed"), "10")

    def test_one_refused_value_does_not_stop_the_others(self):
        self.born("--allow-write", "pump")

        self.broker.publish(TOPIC, command(("pump/speed", 10, "double", 9999.0), ("pump/on", 11, "boolean", True)))

        self.listener.wait("DDATA")
        self.assertEqual([self.value("pump/speed"), self.value("pump/on")], ["10", "true"])

    def test_command_by_alias_is_carried_out(self):
        self.born("--aliases", "--allow-write", "**")
        alias = metrics(self.listener.of("DBIRTH")[0])["tank/level"].alias
        payload = command(("", 3, "int", 77))
        payload.metrics[0].ClearField("name")
        payload.metrics[0].alias = alias

        self.broker.publish(TOPIC, payload)

        (metric,) = self.listener.wait("DDATA")[0].payload.metrics
        self.assertEqual((metric.alias, sparkplug.value(metric)), (alias, ("int", 77)))
        self.assertEqual(self.value("tank/level"), "77")

    def test_nonsense_is_told_in_bounds_and_survived(self):
        node = self.born("--allow-write", "**")

        self.broker.publish(TOPIC, b"\xff\xff\xff")
        node.wait_log("a command on spBv1.0/g/DCMD/n/plant is no payload of Sparkplug B: a field has no valid number")
        self.broker.publish("spBv1.0/g/DCMD/n/other", command(("a", 3, "int", 5)))
        node.wait_log("a command is refused: there is no device 'other' now")
        self.broker.publish("spBv1.0/g/NCMD/n", command(("Node Control/Reboot", 11, "boolean", True)))
        node.wait_log("'Node Control/Reboot' is none that it knows; 'Node Control/Rebirth', a boolean, is")
        self.broker.publish(TOPIC, command(*[(f"no{i}", 3, "int", 5) for i in range(50)]))
        node.wait_log("a command: 45 more metrics of it are refused")

        self.assertEqual(node.log().count("there is no such leaf"), 5)
        self.broker.publish(TOPIC, command(("tank/level", 3, "int", 6)))
        self.listener.wait("DDATA")
        wait_until(lambda: self.value("tank/level") == "6", "written")


if __name__ == "__main__":
    unittest.main(verbosity=2)
