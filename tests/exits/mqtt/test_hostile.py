"""Brokers that are none, and plants that send more than anybody can take: what an edge node makes of them."""

import contextlib
import os
import re
import socket
import struct
import threading
import unittest

from broker import Node, command
from exits import KEEPS_FREED_MEMORY, LONGEST, Creator, Plant, wait_until

LEAVES = {
    "pump/name": {"type": "string", "readOnly": False},
    "tank/level": {"type": "int32", "readOnly": False},
}
CONNECT, PUBLISH, SUBSCRIBE, PINGREQ = 1, 3, 8, 12
CONNACK, PINGRESP = b"\x20\2\0\0", b"\xd0\0"


def with_length(first, body):
    size, length = len(body), b""
    while size > 127:
        length += bytes([size % 128 | 128])
        size //= 128
    return bytes([first]) + length + bytes([size]) + body


def published(topic, payload):
    """A PUBLISH of QoS 0."""
    data = payload if isinstance(payload, bytes) else payload.SerializeToString()
    return with_length(0x30, struct.pack(">H", len(topic)) + topic.encode() + data)


class RawBroker:
    """One connection of a node, byte by byte."""

    def __init__(self):
        self._door = socket.socket()
        self._door.bind(("127.0.0.1", 0))
        self._door.listen()
        self._door.settimeout(LONGEST)
        self.port = self._door.getsockname()[1]
        self._peer = None

    def accept(self):
        if self._peer:
            self._peer.close()
        self._peer = self._door.accept()[0]
        self._peer.settimeout(LONGEST)

    def send(self, data):
        self._peer.sendall(data)

    def _read(self, size):
        data = b""
        while len(data) < size:
            piece = self._peer.recv(size - len(data))
            if not piece:
                raise ConnectionError("the node has gone")
            data += piece
        return data

    def packet(self):
        """Its kind, and what is in it."""
        kind = self._read(1)[0] >> 4
        size, shift, more = 0, 0, True
        while more:
            byte = self._read(1)[0]
            size |= (byte & 127) << shift
            shift += 7
            more = byte & 128
        return kind, self._read(size)

    def until(self, kind):
        while True:
            found, body = self.packet()
            if found == kind:
                return body

    def welcome(self, birth):
        """Until a message of that type."""
        self.accept()
        self.until(CONNECT)
        self.send(CONNACK)
        number = self.until(SUBSCRIBE)[:2]
        self.send(with_length(0x90, number + b"\1\1"))
        while birth not in self.until(PUBLISH)[:60]:
            pass

    def answer_pings(self, told):
        """Until the node goes, which is put into `told`."""
        with contextlib.suppress(ConnectionError):
            while True:
                if self.packet()[0] == PINGREQ:
                    self.send(PINGRESP)
        told.set()

    def pass_over(self):
        """What the node says from now on."""
        def read():
            with contextlib.suppress(OSError):
                while self._peer.recv(65536):
                    pass

        threading.Thread(target=read, daemon=True).start()

    def flood(self, data):
        """Until the node has gone."""
        def write():
            with contextlib.suppress(OSError):
                while True:
                    self.send(data)

        thread = threading.Thread(target=write, daemon=True)
        thread.start()
        return thread

    def close(self):
        if self._peer:
            self._peer.close()
        self._door.close()


class Hostile(unittest.TestCase):
    def setUp(self):
        self.plant = self.closed(Plant(LEAVES))
        self.closed(Creator(self.plant))
        self.broker = self.closed(RawBroker())

    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing

    def node(self, *arguments):
        return self.closed(Node(self.broker, *arguments, str(self.plant.file)))

    def born(self, *arguments):
        node = self.node(*arguments)
        self.broker.welcome(b"DBIRTH")
        self.broker.pass_over()
        return node

    @staticmethod
    def work(node):
        """Seconds of a processor that it has used."""
        with open(f"/proc/{node.process.pid}/stat", encoding="utf-8") as file:
            fields = file.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    @staticmethod
    def most_memory(node):
        """Kilobytes, ever."""
        with open(f"/proc/{node.process.pid}/status", encoding="utf-8") as status:
            return int(re.search(r"VmHWM:\s+(\d+) kB", status.read())[1])

    def test_commands_that_come_too_fast_have_to_wait_outside(self):
        node = self.born("--allow-write", "**")
        before = self.most_memory(node)
        count, size = 1000, 250000

        long = published("spBv1.0/g/DCMD/n/plant", command(("pump/name", 12, "string", "x" * size)))
        for _ in range(count):
            self.broker.send(long)

        if not KEEPS_FREED_MEMORY:
            self.assertLess(self.most_memory(node) - before, count * size // 1024 // 8)

    def test_end_comes_through_a_flood_of_commands(self):
        for topic, payload in (
            ("spBv1.0/g/DCMD/n/plant", command(*[("tank/level", 3, "int", i) for i in range(4000)])),
            ("spBv1.0/g/NCMD/n", command(*[(f"no{i}", 3, "int", i) for i in range(4)])),
        ):
            with self.subTest(topic=topic):
                node = self.born("--allow-write", "**")
                one = published(topic, payload)
                flood = self.broker.flood(one * max(1, 200000 // len(one)))
                before = self.work(node)
                wait_until(lambda: self.work(node) > before + 0.5, "half a second of work")

                self.assertEqual(node.end(), 0)

                # A second is promised; whoever writes the flood has a part of each.
                self.assertLess(node.seconds_to_end, 5)
                flood.join(LONGEST)

    def test_refused_commands_do_not_fill_the_log(self):
        node = self.born()
        for payload in (b"\xff\xff", command(*[(f"no{i}", 3, "int", i) for i in range(20)])):
            self.broker.send(published("spBv1.0/g/NCMD/n", payload) * 1000)
            self.broker.send(published("spBv1.0/g/DCMD/n/other", payload) * 1000)
        node.wait_log("no more lines about commands that are refused for 60 s: there are too many")
        self.broker.send(published("spBv1.0/g/NCMD/n", command(("Node Control/Rebirth", 11, "boolean", True))))

        node.end()

        self.assertLessEqual(len(node.log().splitlines()), 70)

    def test_broker_that_never_confirms_a_subscription_is_left(self):
        node = self.node("--keep-alive", "5")
        self.broker.accept()
        self.broker.until(CONNECT)
        self.broker.send(CONNACK)
        self.broker.until(SUBSCRIBE)
        gone = threading.Event()
        threading.Thread(target=self.broker.answer_pings, args=(gone,), daemon=True).start()

        self.assertTrue(gone.wait(LONGEST))

        node.wait_log("it does not answer; trying again")
        self.broker.welcome(b"NBIRTH")


if __name__ == "__main__":
    unittest.main(verbosity=2)
