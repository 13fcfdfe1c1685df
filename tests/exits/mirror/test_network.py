"""Two network namespaces, joined by a cable that is cut: what a mirror shows meanwhile, and that it comes back.

Each case prints the milliseconds from the cut to the first look that showed it, and from its end to the first
set, the looks included.
"""

import time
import unittest

from mirrors import Cable, Creator, Mirror, MirrorTest, wait_until


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
        self.receiver = self.closed(Mirror("receive", self.domain, *network, *options, "--as", self.plant.mirror_key,
                                           self.plant.file, before=["ip", "netns", "exec", second]))
        self.closed(Mirror("send", self.domain, *network, *(word.replace(".1", ".2") for word in options),
                           self.plant.file, before=["ip", "netns", "exec", first]))
        self.heal()

    def heal(self):
        self.value += 1
        self.plant.set("a/whole", str(self.value))
        wait_until(lambda: (self.plant.leaves() or {}).get("a/whole") == (self.value, "valid"), "heals")
        wait_until(lambda: self.plant.leaves() == self.plant.leaves(self.plant.file), "as its source")

    def cut_for(self, seconds):
        begin = time.monotonic()
        self.cable.cut()
        wait_until(lambda: self.plant.states() == ["timeout"], "all leaves are timeout")
        lost = time.monotonic() - begin
        # The length of the cut is what is tested here.
        time.sleep(max(0, begin + seconds - time.monotonic()))
        self.assertEqual(self.plant.states(), ["timeout"])
        begin = time.monotonic()
        self.cable.mend()
        self.heal()
        print(f"cut for {seconds} s: timeout after {1000 * lost:.0f} ms, a set "
              f"{1000 * (time.monotonic() - begin):.0f} ms after its end")

    def test_mirror_survives_cuts(self):
        self.start()
        for seconds in (1, 4, 25):
            self.cut_for(seconds)

    def test_peers_need_no_multicast(self):
        self.start("--peer", "192.0.2.1")

        self.cut_for(4)


if __name__ == "__main__":
    unittest.main()
