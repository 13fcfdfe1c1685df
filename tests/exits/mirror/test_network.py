"""Two network namespaces, joined by a cable that is cut: what a mirror shows meanwhile, and that it comes back.

Each case prints how long it took, and what the machine itself was late meanwhile.
"""

import time
import unittest

from mirrors import MIRRORED, Cable, Creator, Mirror, MirrorTest, wait_until
from timing import FOUND_AGAIN, GRACE, LEASE, TIMEOUT, VALID, WAKES_TO_FIND, Timed, all_timeout


class Network(MirrorTest):
    def setUp(self):
        self.cable = self.closed(Cable())
        if self.cable.problem:
            self.skipTest(f"no network namespaces: {self.cable.problem}")
        super().setUp()
        self.closed(Creator(self.plant))
        self.value = 0

    def start(self, *options):
        first, second = self.cable.sides
        network = ["--interface", "cable", "--insecure"]
        self.closed(Mirror("receive", self.domain, *network, *options, "--as", self.plant.mirror_key, self.plant.file,
                           before=["ip", "netns", "exec", second]))
        self.timed = Timed(self, self.plant.mirror_file)
        self.closed(Mirror("send", self.domain, *network, *(word.replace(".1", ".2") for word in options),
                           self.plant.file, before=["ip", "netns", "exec", first]))
        self.publish()
        self.wait_for_equality()

    def publish(self):
        self.value += 1
        self.plant.set("a/whole", str(self.value))

    def wait_for_equality(self):
        # On a busy machine a lease may run out at any time, for a moment.
        wait_until(lambda: (self.plant.leaves() == self.plant.leaves(self.plant.file)
                            and self.plant.leaves()["a/whole"] == (self.value, "valid")), "the mirror is as its source")

    def wait_for_loss(self):
        # Of a machine that is very late the engine may still hold what came before the cut.
        wait_until(lambda: all_timeout(self.timed.shown.newest()), "all leaves stay timeout")
        self.assertEqual({url: state for url, (_, state) in self.timed.shown.newest().items()},
                         dict.fromkeys(MIRRORED, TIMEOUT))
        # As the tool has it too.
        self.assertEqual(self.plant.states(), ["timeout"])

    def holds_newest(self, leaves):
        return leaves["a/whole"] == (str(self.value), VALID)

    def cut_for(self, seconds):
        begin = time.monotonic()
        self.cable.cut()
        cut = time.monotonic()
        self.timed.within(LEASE + GRACE, cut, all_timeout, f"cut for {seconds} s: all leaves are timeout")
        self.publish()
        # The length of the cut is what is tested here.
        time.sleep(max(0, begin + seconds - time.monotonic()))
        self.wait_for_loss()
        self.assertFalse([leaves for _, leaves in self.timed.shown.sets() if self.holds_newest(leaves)])

        mended = time.monotonic()
        self.cable.mend()
        self.timed.within(FOUND_AGAIN, mended, self.holds_newest, f"cut for {seconds} s: the newest set after its end",
                          WAKES_TO_FIND)
        self.wait_for_equality()
        self.publish()
        self.wait_for_equality()

    def test_mirror_survives_cuts(self):
        self.start()
        for seconds in (1, 4, 25):
            self.cut_for(seconds)

    def test_peers_need_no_multicast(self):
        self.start("--peer", "192.0.2.1")

        self.cut_for(4)


if __name__ == "__main__":
    unittest.main()
