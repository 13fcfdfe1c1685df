"""Sets of a publisher that does not stop, across a mirror: never half of one, never an older one.

All leaves of a set but one hold its number, so that two sets in one are seen. Prints how many of the published
sets arrived, and the nanoseconds from publishing to seeing.
"""

import json
import os
import pathlib
import signal
import subprocess
import time
import unittest

from mirrors import KEEPS_FREED_MEMORY, LONGEST, Domain, Mirror, MirrorTest, MirroredPlant, Peer, resident, wait_until

LEAVES = {f"n{i // 100}/v{i % 100}": {"type": "int64"} for i in range(1000)}
RATE = 500
PEER = os.environ["TESSEL_TRAFFIC_PEER"]
SECONDS = 6


class Traffic(MirrorTest):
    def setUp(self):
        self.domain = self.closed(Domain())
        self.plant = self.closed(MirroredPlant(LEAVES))
        self.receiver = self.closed(
            Mirror("receive", self.domain, "--as", self.plant.mirror_key, self.plant.file))
        self.sender = self.closed(
            Mirror("send", self.domain, "--lease", "20000", "--rate", "1000", self.plant.file))

    def flow(self, meanwhile=lambda: None):
        publisher = self.closed(Peer(PEER, "publish", self.plant.file, RATE, SECONDS))
        wait_until(lambda: self.receiver.logged(" mirrors "), "mirrors")
        watcher = self.closed(Peer(PEER, "watch", self.plant.mirror_file, SECONDS - 1))
        meanwhile()
        seen = watcher.result()
        published = publisher.result()
        print(f"{self.id().split('.')[-1]}: published {published}, seen {seen}")
        self.assertEqual((seen["torn"], seen["older"]), (0, 0))
        self.assertLessEqual(published["sets"], RATE * SECONDS)
        self.assertGreater(seen["sets"], 0)
        return published, seen

    def test_no_set_is_torn_or_older(self):
        before = resident(self.receiver.process), resident(self.sender.process)

        self.flow()

        # The histories are of one set: what is more than a few of them is a leak.
        if not KEEPS_FREED_MEMORY:
            for process, size in zip((self.receiver.process, self.sender.process), before):
                self.assertLess(resident(process) - size, 32 * 1024 * 1024)

    def test_stopped_receiver_is_not_seen_by_the_publisher(self):
        undisturbed, _ = self.flow()

        disturbed, _ = self.flow(lambda: self.receiver.send_signal(signal.SIGSTOP)
                                 or wait_until(self.state_is("T"), "stopped")
                                 or self.continue_after_a_while())

        # Long sets there are on a busy machine, but none in which the publisher slept to wait for somebody.
        self.assertEqual((undisturbed["waited"], disturbed["waited"]), (0, 0))
        # What the scheduler of a busy machine does is in both.
        self.assertLess(disturbed["median"], 5 * undisturbed["median"] + 500_000)

    def test_every_type_is_whole_in_each_set(self):
        types = os.environ["TESSEL_TYPES_PEER"]
        plant = self.closed(MirroredPlant({"a/one": {"type": "int64"}}))
        text = subprocess.run([types, "describe", plant.key], capture_output=True, text=True, check=True,
                              timeout=LONGEST).stdout
        plant.file.write_text(text, encoding="utf-8")
        plant.write_mirror()
        # Bits have no error state there.
        receiver = self.closed(Mirror("receive", self.domain, "--as", plant.mirror_key, "--without-state", "bits*",
                                      plant.file))
        self.closed(Mirror("send", self.domain, "--lease", "20000", "--rate", "1000", plant.file))
        publisher = self.closed(Peer(types, "publish", plant.file, RATE, SECONDS))
        wait_until(lambda: receiver.logged(" mirrors "), "mirrors")

        watcher = self.closed(Peer(types, "watch", plant.mirror_file, SECONDS - 1))

        seen = watcher.result()
        print(f"every type: published {publisher.result()}, seen {seen}")
        self.assertEqual(seen["problem"], "")
        self.assertGreater(seen["sets"], 10)

    def test_publisher_above_the_rate_is_sent_at_the_rate_and_not_silent(self):
        plant = self.closed(MirroredPlant({"a/time": {"type": "int64"}, "a/number": {"type": "int64"}}))
        receiver = self.closed(Mirror("receive", self.domain, "--as", plant.mirror_key, plant.file))
        sender = self.closed(Mirror("send", self.domain, "--lease", "20000", "--rate", "1", "--silent-after", "900",
                                    plant.file))
        begin, swaps = time.monotonic(), plant.swaps_of_mirror()
        publisher = self.closed(Peer(PEER, "publish", plant.file, RATE, SECONDS))
        wait_until(lambda: receiver.logged(" mirrors "), "mirrors")

        self.assertGreater(publisher.result()["sets"], RATE)

        # The first, one each second, and the loss.
        self.assertLessEqual(plant.swaps_of_mirror() - swaps, 2 + time.monotonic() - begin)
        # What ended it is the end of the region.
        self.assertNotIn("nothing was published", sender.log())

    def state_is(self, letter):
        stat = pathlib.Path(f"/proc/{self.receiver.process.pid}/stat")
        return lambda: stat.read_text(encoding="ascii").rsplit(")", 1)[1].split()[0] == letter

    def continue_after_a_while(self):
        """When the source has published a hundred sets more, or has ended: a busy machine takes long for these."""
        def swaps():
            key = self.plant.key
            listed = subprocess.run([os.environ["TESSEL_TOOL"], "regions", "--json"], capture_output=True,
                                    text=True, check=True, timeout=LONGEST).stdout
            counts = [region["swapCount"] for region in json.loads(listed) if region["key"] == key]
            return counts[0] if counts and counts[0] is not None else float("inf")
        begin = swaps()
        wait_until(lambda: swaps() > begin + 100 or swaps() == float("inf"), "a hundred sets")
        self.receiver.send_signal(signal.SIGCONT)


if __name__ == "__main__":
    unittest.main()
