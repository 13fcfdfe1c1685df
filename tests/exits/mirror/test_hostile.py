"""Samples that nobody honest sends: no leaf of a mirror changes by them, and no memory is taken.

What each case took is printed.
"""

import json
import os
import random
import signal
import socket
import subprocess
import time
import unittest

from mirrors import (EXIT, KEEPS_FREED_MEMORY, LONGEST, MIRRORED, Creator, Mirror, MirrorTest, RawSource, resident,
                     wait_until)
from timing import FOUND, GRACE, LEASE, TIMEOUT, VALID, Timed, all_timeout

MEBIBYTE = 1 << 20
HOUR = 3600 * 1000 * 1000


class Hostile(MirrorTest):
    def setUp(self):
        super().setUp()
        self.size = 12 * 2 + 32 + 4 + 12 + 5 * 2 + 8
        self.begin("--watchdog", "0")

    def begin(self, *options):
        self.receiver = self.closed(Mirror("receive", self.domain, "--as", self.plant.mirror_key, *options,
                                           self.plant.file))
        self.timed = Timed(self, self.plant.mirror_file)

    def raw(self, *options):
        return self.closed(RawSource(self.domain, *options))

    def send(self, raw, **what):
        raw.send(self.plant.key, self.plant.fingerprint(), **what)

    def assert_shown(self, first, states, begin, bound, what):
        """Of each leaf: a/whole as it is said, of the others the first byte of nothing."""
        self.timed.within(bound, begin, lambda leaves: leaves["a/whole"][0] == str(first), what)
        leaves = self.timed.shown.newest()
        self.assertEqual({url: state for url, (_, state) in leaves.items()}, dict.fromkeys(MIRRORED, states))

    def set_of(self, first):
        return first.to_bytes(1, "little") + bytes(self.size - 1)

    def test_hostile_sets_change_no_leaf(self):
        raw = self.raw()
        sets = len(self.timed.shown.sets())
        noise = random.Random(1)
        lies = 90
        begin = time.monotonic()
        for number in range(lies):
            # Each from another source: of one of them the receiver would see the newest alone, and tell of it once.
            raw.say("identity", f"{number + 1:032x}")
            self.send(raw, **noise.choice((
                {"data": noise.randbytes(noise.randrange(1, self.size))},
                {"data": noise.randbytes(self.size + 1 + noise.randrange(5000))},
                {"data": noise.randbytes(self.size), "status": str(noise.randrange(1, 256))},
                {"data": b"", "status": str(noise.choice((0, *range(4, 256))))},
                {"data": noise.randbytes(self.size), "order": str(noise.choice((0, *range(3, 256))))},
            )))
        wait_until(lambda: self.receiver.log().count(" was refused: it") == lies, "all are refused")
        print(f"{lies} sets refused in {1000 * (time.monotonic() - begin):.0f} ms")
        self.assertEqual(len(self.timed.shown.sets()), sets)
        self.assertEqual({state for _, state in self.timed.shown.newest().values()}, {TIMEOUT})

        # What is a set is one, though its bytes are nobody's values.
        begin = time.monotonic()
        self.send(raw, data=self.set_of(7))
        self.assert_shown(7, VALID, begin, LEASE + GRACE, "a set")
        self.send(raw, data=bytes(self.size + 1), generation="2")
        self.send(raw, data=b"\xff" * self.size, generation="3")
        self.timed.within(LEASE + GRACE, begin, lambda leaves: leaves["a/whole"][0] != "7", "random bytes are a set")
        self.assertEqual(len(self.timed.shown.sets()), sets + 2)

    def ports(self):
        """UDP ports that the receiver listens at."""
        inodes = set()
        for link in os.scandir(f"/proc/{self.receiver.process.pid}/fd"):
            inodes.add(os.readlink(link.path).strip("socket:[]"))
        with open("/proc/net/udp", encoding="ascii") as table:
            rows = [line.split() for line in table][1:]
        return [int(row[1].split(":")[1], 16) for row in rows if row[9] in inodes]

    def test_random_datagrams_change_no_leaf(self):
        self.closed(Creator(self.plant))
        self.plant.set("a/whole", "3")
        sender = self.closed(Mirror("send", self.domain, "--lease", "20000", self.plant.file))
        begin = time.monotonic()
        self.timed.within(FOUND, begin, lambda leaves: leaves["a/whole"][0] == "3", "a set")
        former, sets = self.timed.shown.newest(), len(self.timed.shown.sets())
        ports = self.ports()
        self.assertGreaterEqual(len(ports), 2)
        noise = random.Random(2)
        beginnings = (b"", b"RTPS\2\1\1\x10", b"RTPS\2\1\1\x10" + noise.randbytes(12) + b"\x15\5")

        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as stranger:
            for _ in range(3000):
                datagram = noise.choice(beginnings) + noise.randbytes(noise.randrange(1400))
                stranger.sendto(datagram, ("127.0.0.1", noise.choice(ports)))

        begin = time.monotonic()
        self.assertEqual(len(self.timed.shown.sets()), sets)
        self.assertEqual(self.timed.shown.newest(), former)
        self.plant.set("a/whole", "4")
        self.timed.within(LEASE + GRACE, begin, lambda leaves: leaves["a/whole"][0] == "4", "the next set")
        self.assertEqual(self.timed.shown.newest(), {**former, "a/whole": ("4", VALID)})
        self.assertIsNone(self.receiver.process.poll())
        self.assertIsNone(sender.process.poll())

    def growth_by(self, size):
        """Of the receiver, at most, until it has said something of a set of `size` bytes."""
        raw = self.raw()
        before = resident(self.receiver.process)
        begin = time.monotonic()
        self.send(raw, zeros=size)
        most = [0]

        def told():
            most[0] = max(most[0], resident(self.receiver.process) - before)
            return self.receiver.logged("dropping oversize| was refused: it has ")

        wait_until(told, "it is told of")
        told()
        print(f"{size >> 20} MiB: {1000 * (time.monotonic() - begin):.0f} ms, the receiver grew by {most[0] >> 20} MiB")
        self.assertEqual({state for _, state in self.timed.shown.newest().values()}, {TIMEOUT})
        begin = time.monotonic()
        self.send(raw, data=self.set_of(9), generation="2")
        self.assert_shown(9, VALID, begin, FOUND, "the next set")
        return most[0]

    def test_set_above_the_limit_takes_no_memory(self):
        growth = self.growth_by(64 * MEBIBYTE)

        self.assertTrue(self.receiver.logged(r"the engine says: dropping oversize \(\d+ > 33554432\) sample"))
        self.assertFalse(self.receiver.logged("was refused"))
        if not KEEPS_FREED_MEMORY:
            self.assertLess(growth, 16 * MEBIBYTE)

    def test_limit_is_an_option(self):
        self.receiver.end()
        self.begin("--watchdog", "0", "--sample-limit", "100")

        growth = self.growth_by(64 * MEBIBYTE)

        self.assertTrue(self.receiver.logged(f"was refused: it has {64 * MEBIBYTE} bytes, not {self.size}"))
        self.assertGreater(growth, 50 * MEBIBYTE)

    def test_large_region_is_above_no_limit(self):
        root = json.loads(self.plant.file.read_text(encoding="utf-8"))
        root["sizeOfSharedMemory"] = 2 * MEBIBYTE
        self.plant.file.write_text(json.dumps(root), encoding="utf-8")
        self.plant.write_mirror()
        self.receiver.end()
        self.begin("--sample-limit", "1")
        self.closed(Creator(self.plant))
        self.plant.set("a/whole", "6")

        self.closed(Mirror("send", self.domain, "--lease", "20000", "--sample-limit", "1", self.plant.file))
        begin = time.monotonic()

        self.timed.within(FOUND, begin, lambda leaves: leaves["a/whole"] == ("6", VALID), "a set of 2 MiB")

    def identity_of_source(self):
        found = []

        def is_seen():
            text = subprocess.run([EXIT, "status", "--json", "--domain", str(self.domain.number), "--for", "500"],
                                  capture_output=True, text=True, check=True, timeout=LONGEST).stdout
            found.extend(source["source"] for source in json.loads(text)["sources"])
            return found

        wait_until(is_seen, "the source is seen")
        return found[0]

    def test_stranger_with_a_copied_identity_shows_nothing(self):
        self.receiver.end()
        self.begin("--watchdog", "1500")
        self.closed(Creator(self.plant))
        self.plant.set("a/whole", "5")
        sender = self.closed(Mirror("send", self.domain, self.plant.file))
        begin = time.monotonic()
        self.timed.within(FOUND, begin, lambda leaves: leaves["a/whole"] == ("5", VALID), "a set")
        stranger = self.raw("20000", self.identity_of_source())
        for what in ("dispose", "unregister"):
            # Is known to the receiver by then, and seen by nobody.
            self.send(stranger, data=self.set_of(66), generation="99999")
            begin = time.monotonic()
            stranger.say(what, self.plant.key)
            lost = begin + self.timed.within(LEASE + GRACE, begin, all_timeout, f"all leaves are timeout by {what}")
            self.assertEqual(set(self.timed.shown.newest()), set(MIRRORED))
            # What the source says again each second is its next set.
            self.timed.within(1 + GRACE, lost, lambda leaves: leaves["a/whole"] == ("5", VALID), "healed")
        self.assertTrue(self.receiver.logged(r"from raw \(\w+\) was refused: \S+ \(\w+\) is its source"))

        # As long as the engine knows of somebody with that identity, it tells of no loss.
        self.send(stranger, data=self.set_of(66), generation="99999")
        begin = time.monotonic()
        sender.end(signal.SIGKILL)
        self.timed.within(1.5 + GRACE, begin, all_timeout, "all leaves are timeout by the watchdog")
        self.assertTrue(self.receiver.logged("is lost: nothing came from it for 1500 ms"))
        self.assertNotIn("66", {leaves["a/whole"][0] for _, leaves in self.timed.shown.sets()})

    def test_clock_that_is_an_hour_off_is_no_matter(self):
        now = int(time.time() * 1e6)
        for first, clock in ((1, now + HOUR), (2, now - HOUR)):
            raw = self.raw("300")
            begin = time.monotonic()
            self.send(raw, data=self.set_of(first), time=str(clock))
            self.assert_shown(first, VALID, begin, FOUND, "a set")

            begin = time.monotonic()
            raw.process.send_signal(signal.SIGKILL)
            self.timed.within(LEASE + GRACE, begin, all_timeout, "all leaves are timeout")
            self.assertEqual(set(self.timed.shown.newest()), set(MIRRORED))


if __name__ == "__main__":
    unittest.main()
