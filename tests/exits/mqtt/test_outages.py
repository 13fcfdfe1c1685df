"""Brokers that stop, are killed and come back, and hosts that do: what is told then, and how often a node
knocks. `TESSEL_OUTAGES` names another number of them than 20."""

import json
import os
import pathlib
import signal
import socket
import struct
import tempfile
import time
import unittest

import sparkplug
from broker import Broker, Listener, Node, Relay, metrics, rebirth
from exits import LONGEST, Creator, Plant, free_port, tool, wait_until

LEAVES = {
    "pump/speed": {"type": "double", "readOnly": False},
    "tank/level": {"type": "int32", "readOnly": False},
}
OUTAGES = int(os.environ.get("TESSEL_OUTAGES", "20"))


def bd_seq(message):
    return sparkplug.value(metrics(message)["bdSeq"])[1]


def record_of(number):
    """On the disk: lengths, the device in UTF-16, the message, and the checksum of both."""
    payload = sparkplug.Payload()
    payload.metrics.add(name="tank/level", timestamp=1, is_historical=True, int=number)
    data, device = payload.SerializeToString(), "plant".encode("utf-16-be")
    content = struct.pack(">I", len(device)) + device + struct.pack(">I", len(data)) + data
    return struct.pack(">I", len(content)) + content + struct.pack(">H", checksum(content))


def checksum(content):
    """CRC-16 of ISO 3309."""
    value = 0xFFFF
    for byte in content:
        value ^= byte
        for _ in range(8):
            value = value >> 1 ^ (0x8408 if value & 1 else 0)
    return value ^ 0xFFFF


class Outages(unittest.TestCase):
    def setUp(self):
        self.plant = self.closed(Plant(LEAVES))
        self.creator = self.closed(Creator(self.plant))
        self.plant.set("pump/speed", "10", "tank/level", "0")
        self.broker = self.closed(Broker())

    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing

    def listen(self):
        return self.closed(Listener(self.broker))

    def waiting(self, *arguments, **more):
        """A node that waits for the host `h`, so that a listener can be there before its births."""
        return self.closed(Node(self.broker, "--primary-host", "h", *arguments, str(self.plant.file), **more))

    def history_of(self, listener):
        return [metric for message in listener.of("DDATA") for metric in message.payload.metrics
                if metric.is_historical]

    def levels(self, listener):
        return [sparkplug.value(metric)[1] for metric in self.history_of(listener) if metric.name == "tank/level"]

    def record(self, values, folder):
        """Each value waits on the disk before the next is set."""
        for value in values:
            before = self.recorded(folder)
            self.plant.set("tank/level", str(value))
            wait_until(lambda: self.recorded(folder) > before, "recorded")

    @staticmethod
    def recorded(folder):
        return sum(path.stat().st_size for path in pathlib.Path(folder).glob("history.*"))

    def test_what_changed_meanwhile_comes_as_history_after_the_births(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        node = self.waiting("--history-dir", folder.name)
        node.wait_log("connected to broker")
        self.broker.stop(signal.SIGKILL)
        node.wait_log("no connection to broker")
        self.record(range(1, 6), folder.name)

        self.broker.start()
        listener = self.listen()
        self.broker.host("h", True, 1000)
        wait_until(lambda: self.levels(listener)[-5:] == [1, 2, 3, 4, 5], "history")

        messages = listener.all()
        self.assertEqual([message.topic.split("/")[2] for message in messages[:2]], ["NBIRTH", "DBIRTH"])
        self.assertEqual(sparkplug.value(metrics(messages[1])["tank/level"]), ("int", 5))
        self.assertFalse(any(metric.is_historical for metric in messages[1].payload.metrics))
        self.assertEqual([message.payload.seq for message in messages], list(range(len(messages))))
        times = [metric.timestamp for metric in self.history_of(listener)]
        self.assertEqual(times, sorted(times))
        self.assertLessEqual(times[-1], messages[0].payload.timestamp)
        wait_until(lambda: self.recorded(folder.name) == 0, "nothing left on the disk")

    def test_history_of_a_large_device_is_whole(self):
        count = 2000
        plant = self.closed(Plant({f"tank/level{i}": {"type": "int32", "readOnly": False} for i in range(count)}))
        self.closed(Creator(plant))
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        node = self.closed(Node(self.broker, "--primary-host", "h", "--history-dir", folder.name, str(plant.file)))
        node.wait_log("connected to broker")
        plant.set(*(word for i in range(count) for word in (f"tank/level{i}", str(i))))
        wait_until(lambda: b"level1999" in b"".join(
            path.read_bytes() for path in pathlib.Path(folder.name).glob("history.*")), "recorded")

        listener = self.listen()
        self.broker.host("h", True, 1000)

        def told():
            return {metric.name for metric in self.history_of(listener)}

        wait_until(lambda: "State/tank/level1999" in told(), "history")
        self.assertLessEqual({f"tank/level{i}" for i in range(count)}, told())

    def test_history_has_the_qualities(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        node = self.waiting("--history-dir", folder.name)
        node.wait_log("connected to broker")
        for words in (("--error", "timeout"), ("--error", "overrange"), ("7",)):
            before = self.recorded(folder.name)
            self.plant.set("tank/level", *words)
            wait_until(lambda before=before: self.recorded(folder.name) > before, "recorded")

        listener = self.listen()
        self.broker.host("h", True, 1000)

        def told():
            return [(sparkplug.value(metric), metric.is_null, sparkplug.properties(metric).get("Quality"))
                    for metric in self.history_of(listener) if metric.name == "tank/level"]

        wait_until(lambda: len(told()) == 3, "history")
        self.assertEqual(told(), [(None, True, (3, "int", 500)), (None, True, (3, "int", 0)),
                                  (("int", 7), False, (3, "int", 192))])

    def test_history_of_long_names_is_whole(self):
        # Together more than a command may have.
        name, count = "x" * 3000, 200
        plant = self.closed(Plant({f"tank/{name}{i}": {"type": "int32", "readOnly": False} for i in range(count)}))
        self.closed(Creator(plant))
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        node = self.closed(Node(self.broker, "--primary-host", "h", "--history-dir", folder.name, str(plant.file)))
        node.wait_log("connected to broker")
        changes = plant.folder / "changes.json"
        changes.write_text(json.dumps({f"tank/{name}{i}": i for i in range(count)}), encoding="utf-8")
        self.assertEqual(tool("apply", str(plant.file), str(changes)).returncode, 0)
        wait_until(lambda: self.recorded(folder.name) > count * len(name), "recorded")

        listener = self.listen()
        self.broker.host("h", True, 1000)

        def told():
            return {metric.name for metric in self.history_of(listener)}

        wait_until(lambda: f"State/tank/{name}{count - 1}" in told(), "history")
        self.assertLessEqual({f"tank/{name}{i}" for i in range(count)}, told())

    def test_no_history_comes_between_a_command_and_the_rebirth(self):
        name, count = "x" * 3000, 60
        plant = self.closed(Plant({f"tank/{name}{i}": {"type": "int32", "readOnly": False} for i in range(count)}))
        self.closed(Creator(plant))
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        relay = self.closed(Relay(self.broker))
        node = self.closed(Node(self.broker, "--primary-host", "h", "--history-dir", folder.name, "--history-bytes",
                                "100000000", "--queue-bytes", "1024", "--keep-alive", "3600", str(plant.file),
                                port=relay.port))
        node.wait_log("connected to broker")
        changes = plant.folder / "changes.json"
        # More than the system takes of what is on its way.
        sets = 50
        for value in range(1, sets + 1):
            before = self.recorded(folder.name)
            changes.write_text(json.dumps({f"tank/{name}{i}": value for i in range(count)}), encoding="utf-8")
            self.assertEqual(tool("apply", str(plant.file), str(changes)).returncode, 0)
            wait_until(lambda before=before: self.recorded(folder.name) > before, "recorded")
        listener = self.listen()
        ask = rebirth()
        ask.metrics.add(name="told when it is heard", datatype=11, boolean=True)

        relay.hold()
        self.broker.host("h", True, 1000)
        self.broker.publish("spBv1.0/g/NCMD/n", ask)
        node.wait_log("'told when it is heard' is none that it knows")
        heard = time.time() * 1000
        relay.let_go()
        listener.wait("DBIRTH", 2)

        messages = listener.all()
        second = [i for i, message in enumerate(messages) if "/NBIRTH/" in message.topic][1]
        self.assertLess(max(message.payload.timestamp for message in messages[:second]), heard)
        wait_until(lambda: self.last_of(listener) == sets, "all of the history")

    def test_rebirth_waits_for_a_broker_that_does_not_read(self):
        # A birth of more than the system takes of what is on its way.
        name, count = "x" * 4000, 1000
        plant = self.closed(Plant({f"tank/{name}{i}": {"type": "int32"} for i in range(count)}))
        self.closed(Creator(plant))
        relay = self.closed(Relay(self.broker))
        node = self.closed(Node(self.broker, "--primary-host", "h", "--queue-bytes", "1024", "--keep-alive", "3600",
                                str(plant.file), port=relay.port))
        node.wait_log("connected to broker")
        listener = self.listen()
        ask = rebirth()
        ask.metrics.add(name="told when it is heard", datatype=11, boolean=True)
        relay.hold()
        self.broker.host("h", True, 1000)
        self.broker.publish("spBv1.0/g/NCMD/n", ask)
        node.wait_log("'told when it is heard' is none that it knows")
        heard = time.monotonic()

        # Longer than a rebirth has to wait for the birth before.
        wait_until(lambda: time.monotonic() - heard > 1.5, "more than a second has passed")
        before = time.time() * 1000
        relay.let_go()

        self.assertGreater(listener.wait("NBIRTH", 2)[1].payload.timestamp, before)
        listener.wait("DBIRTH", 2)

    def last_of(self, listener):
        return max((sparkplug.value(metric)[1] for metric in self.history_of(listener)
                    if metric.name.startswith("tank/")), default=0)

    def test_history_on_the_disk_outlives_the_program(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        node = self.waiting("--history-dir", folder.name)
        node.wait_log("connected to broker")
        self.record([7, 8], folder.name)
        node.end(signal.SIGKILL)
        # What a crash cut off.
        for path in pathlib.Path(folder.name).glob("history.*"):
            with path.open("ab") as file:
                file.write(b"\0\0\0\x50abc")

        self.waiting("--history-dir", folder.name, "--aliases", state=node.state)
        listener = self.listen()
        self.broker.host("h", True, 1000)

        birth = listener.wait("DBIRTH")[0]
        alias = metrics(birth)["tank/level"].alias
        wait_until(lambda: [sparkplug.value(metric)[1] for metric in self.history_of(listener)
                            if metric.alias == alias][-2:] == [7, 8], "history")
        self.assertFalse(any(metric.HasField("name") for metric in self.history_of(listener)))

    def test_history_outlives_a_reload(self):
        for count, history in enumerate(([], ["--history-dir", str(self.plant.folder / "history")]), 1):
            with self.subTest(history=history):
                node = self.waiting(*history, config="aliases = no\n", name=f"n{count}")
                node.wait_log("connected to broker")
                for value in range(50):
                    self.plant.set("tank/level", str(100 * count + value))
                node.config.write_text("keep-alive = 20\n", encoding="utf-8")

                node.process.send_signal(signal.SIGHUP)

                wait_until(lambda node=node: node.log().count("connected to broker") == 2, "a new session")
                listener = self.listen()
                self.broker.host("h", True, count * 1000)
                listener.wait("DBIRTH")
                # The last ones may have come behind the end of the former session, and are in the births.
                wait_until(lambda: self.levels(listener), "history")
                self.assertEqual(node.end(), 0)
                self.broker.host("h", False, count * 1000 + 1)

    def test_history_of_more_messages_than_have_a_number_is_sent(self):
        self.broker.stop()
        self.broker = self.closed(Broker(log="notice"))
        # For its leave a node has half a second, which may be too little on a machine with other work.
        attempt, last = 1, time.monotonic() + LONGEST
        while not self.leaves_in_order_behind_a_long_history(f"n{attempt}", attempt * 1000):
            self.assertLess(time.monotonic(), last, "what waited never counted as sent")
            attempt += 1

    def leaves_in_order_behind_a_long_history(self, name, timestamp):
        count = 100000
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "history.1").write_bytes(b"".join(map(record_of, range(count))))
            node = self.waiting("--history-dir", folder, "--history-bytes", "40000000", "--queue-bytes", "8000000",
                                name=name)
            node.wait_log("connected to broker")
            self.broker.host("h", True, timestamp)
            wait_until(lambda: self.recorded(folder) == 0, "nothing left on the disk")
            # Only behind all that waits the last value comes, and the leave.
            listener = self.listen()
            self.plant.set("tank/level", str(timestamp))
            listener.wait("DDATA")
            self.assertEqual(node.end(), 0)
        self.broker.host("h", False, timestamp + 1)
        wait_until(lambda: self.broker.leaves(f"tessel.g.{name}"), "it has gone")
        return self.broker.leaves(f"tessel.g.{name}")[0]

    def test_history_is_bounded_and_keeps_the_newest(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        node = self.waiting("--history-dir", folder.name, "--history-bytes", "2000")
        node.wait_log("connected to broker")
        for value in range(1, 61):
            self.plant.set("tank/level", str(value))
            name = pathlib.Path(folder.name)
            wait_until(lambda value=value: any(
                bytes([0x50, value]) in path.read_bytes() for path in name.glob("history.*")), "recorded")
            self.assertLessEqual(self.recorded(folder.name), 2000)

        listener = self.listen()
        self.broker.host("h", True, 1000)
        wait_until(lambda: self.levels(listener)[-1:] == [60], "history")
        levels = self.levels(listener)
        self.assertLess(len(levels), 40)
        self.assertEqual(levels, list(range(61 - len(levels), 61)))

    def test_primary_host_is_waited_for_and_left(self):
        listener = self.listen()
        node = self.waiting()
        node.wait_log("connected to broker")
        self.assertIn("spBv1.0/STATE/h (QoS 1)", self.broker.log())
        self.broker.host("other", True, 5000)
        self.broker.host("h", False, 1000)
        self.assertFalse(listener.all())

        self.broker.host("h", True, 2000)
        listener.wait("DBIRTH")
        self.assertEqual(self.broker.connects("tessel.g.n"), 1)
        # One that was overtaken says nothing.
        self.broker.host("h", False, 1999)
        self.plant.set("tank/level", "5")
        listener.wait("DDATA")
        self.assertFalse(listener.of("NDEATH"))

        self.broker.host("h", False, 2000)
        (death,) = listener.wait("NDEATH")
        first = bd_seq(listener.of("NBIRTH")[0])
        self.assertEqual(bd_seq(death), first)
        wait_until(lambda: self.broker.connects("tessel.g.n") == 2, "comes back")
        self.assertEqual(len(listener.of("NBIRTH")), 1)
        self.broker.host("h", True, 3000)
        self.assertEqual(bd_seq(listener.wait("NBIRTH", 2)[1]), first + 1)
        # For its leave it has half a second, which a machine with other work may take away.
        last = time.monotonic() + LONGEST
        while not any(self.broker.leaves("tessel.g.n")):
            self.assertLess(time.monotonic(), last, self.broker.log())
            born, ends = len(listener.of("DBIRTH")), len(self.broker.leaves("tessel.g.n"))
            timestamp = 3000 + 2 * born
            self.broker.host("h", False, timestamp)
            wait_until(lambda: len(self.broker.leaves("tessel.g.n")) > ends, "leaves")
            self.broker.host("h", True, timestamp + 1)
            listener.wait("DBIRTH", born + 1)

    def test_next_broker_is_tried(self):
        second = self.closed(Broker())
        listener = self.closed(Listener(second))

        self.closed(Node(None, "--fallback", f"127.0.0.1:{second.port}", str(self.plant.file), port=free_port()))

        listener.wait("DBIRTH")
        # What was never sent is no session.
        self.assertEqual(bd_seq(listener.of("NBIRTH")[0]), 0)

    def test_knocks_are_ever_longer_apart(self):
        with socket.socket() as door:
            door.bind(("127.0.0.1", 0))
            door.listen()
            door.settimeout(LONGEST)
            self.closed(Node(None, str(self.plant.file), port=door.getsockname()[1]))
            times = []
            for _ in range(7):
                door.accept()[0].close()
                times.append(time.monotonic())

        gaps = [after - before for before, after in zip(times, times[1:])]
        # Of 100, 200 and 400 ms half at least.
        for gap, least in zip(gaps, (0.05, 0.1, 0.2, 0.2, 0.2, 0.2)):
            self.assertGreaterEqual(gap, least * 0.9)

    def test_three_nodes_outlive_outages_of_the_broker(self):
        names = ("a", "b", "c")
        nodes = {name: self.waiting(name=name) for name in names}
        seen = {name: [] for name in names}
        self.broker.host("h", True, 1)
        for outage in range(1, OUTAGES + 1):
            with self.subTest(outage=outage):
                for name in names:
                    wait_until(lambda name=name: f"Received PUBLISH from tessel.g.{name}" in self.broker.log(), "born")
                self.broker.stop(signal.SIGKILL if outage % 2 else signal.SIGTERM)
                self.plant.set("tank/level", str(outage))
                self.broker.forget_log()
                self.broker.start()
                listener = Listener(self.broker)
                try:
                    self.broker.host("h", True, outage + 1)
                    births = {message.topic.split("/")[3]: message for message in listener.wait("DBIRTH", 3)}
                    sessions = {message.topic.split("/")[3]: bd_seq(message) for message in listener.of("NBIRTH")}
                finally:
                    listener.close()
                for name in names:
                    self.assertEqual(sparkplug.value(metrics(births[name])["tank/level"]), ("int", outage))
                    seen[name].append(sessions[name])
                    # A node knocks again only if the broker has thrown it out.
                    self.assertEqual(self.broker.connects(f"tessel.g.{name}"), 1)
        for name in names:
            numbers = seen[name]
            self.assertEqual([(after - before) % 256 for before, after in zip(numbers, numbers[1:])],
                             [1] * (OUTAGES - 1))
            self.assertEqual(nodes[name].end(), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
