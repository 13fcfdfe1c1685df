"""A source that is lost, by whatever way: every leaf of its mirror is `timeout` in time, and the next set heals all.

Each case prints how long it took, and what the machine itself was late meanwhile.
"""

import signal
import time
import types
import unittest

from mirrors import MIRRORED, Creator, LockHolder, Mirror, MirrorTest, wait_until
from timing import FOUND, GRACE, LEASE, TIMEOUT, VALID, Timed, all_timeout

# Until a sender has found out that the creator of its region is no more.
CREATOR_LOOK = 2


class Losses(MirrorTest):
    def setUp(self):
        super().setUp()
        self.creator = self.closed(Creator(self.plant))
        self.receiver = self.receive()
        self.timed = Timed(self, self.plant.mirror_file)
        self.sender = self.send()
        self.value = 0
        self.heal()

    def send(self, *options):
        return self.closed(Mirror("send", self.domain, *options, self.plant.file))

    def receive(self, *options):
        return self.closed(
            Mirror("receive", self.domain, "--as", self.plant.mirror_key, *options, self.plant.file)
        )

    def heal(self):
        """A set of the source is seen whole again."""
        self.value += 1
        self.plant.set("a/whole", str(self.value), "b/number", str(self.value))
        self.wait_for_equality()
        self.assertEqual(self.plant.leaves(self.plant.file)["a/whole"], (self.value, "valid"))

    def wait_for_equality(self):
        # On a busy machine a lease may run out at any time, for a moment.
        wait_until(lambda: self.plant.leaves() == self.plant.leaves(self.plant.file), "the mirror is as its source")

    def wait_for_words(self, words):
        wait_until(lambda: self.receiver.logged(words), words)

    def wait_for_a_source(self, how):
        """What `how` gives, once a set was shown after it by a mirror that had none."""
        former = self.receiver.log().count(" mirrors ")
        result = how()
        wait_until(lambda: self.receiver.log().count(" mirrors ") > former, "mirrors")
        return result

    def lose(self, how, bound=LEASE + GRACE, begin=None):
        begin = begin or time.monotonic()
        how()
        self.timed.within(bound, begin, all_timeout, "all leaves are timeout")
        self.assert_all_timeout()

    def assert_all_timeout(self):
        leaves = self.timed.shown.newest()
        self.assertEqual({url: state for url, (_, state) in leaves.items()}, dict.fromkeys(MIRRORED, TIMEOUT))
        # As the tool has it too.
        self.assertEqual(self.plant.states(), ["timeout"])

    def test_killed_sender(self):
        self.lose(lambda: self.sender.end(signal.SIGKILL))

        self.sender = self.send()
        self.heal()

    def test_sender_that_ends(self):
        self.lose(self.sender.end)

        self.sender = self.send()
        self.heal()

    def test_stopped_sender(self):
        self.lose(lambda: self.sender.send_signal(signal.SIGSTOP))

        self.sender.send_signal(signal.SIGCONT)
        self.heal()

    def test_creator_that_ends(self):
        self.lose(self.creator.close, CREATOR_LOOK + GRACE)
        self.wait_for_words("it says that the creator of its region has gone")

        self.closed(Creator(self.plant))
        self.heal()

    def test_creator_that_is_killed(self):
        self.lose(self.creator.kill, CREATOR_LOOK + GRACE)

        self.closed(Creator(self.plant))
        self.heal()

    def test_region_that_is_replaced(self):
        self.closed(Creator(self.plant))
        self.wait_for_equality()
        wait_until(lambda: self.plant.leaves()["a/whole"] == (None, "no-input"), "the new region is mirrored")

        self.heal()

    def test_silent_publisher(self):
        self.lose(self.sender.end)
        begin = time.monotonic()
        self.sender = self.wait_for_a_source(lambda: self.send("--silent-after", "400"))
        # The sender has the set that is there as soon as it is attached, and counts from then on.
        shown = self.timed.shown.when(begin, lambda leaves: not all_timeout(leaves), "a set")

        self.lose(lambda: None, 0.4 + GRACE, shown)
        self.wait_for_words("it says that nothing is published into its region")

        # A busy machine takes longer to look than the publisher may be silent.
        self.wait_for_a_source(lambda: self.plant.set("a/whole", "7"))
        self.sender.end()
        self.sender = self.send()
        self.heal()

    def hold_lock_of_mirror(self):
        """As a local writer that was stopped in the middle of it."""
        return self.closed(LockHolder(types.SimpleNamespace(key=self.plant.mirror_key)))

    def test_loss_that_found_the_lock_held_is_shown_behind_it(self):
        holder = self.hold_lock_of_mirror()
        self.sender.end(signal.SIGKILL)
        self.wait_for_words("the loss of the source of region '.*' cannot be shown")
        self.assertEqual(self.plant.leaves()["a/whole"], (self.value, "valid"))
        holder.close()
        self.timed.shown.when(time.monotonic(), all_timeout, "all leaves are timeout")
        self.assert_all_timeout()

    def test_set_that_found_the_lock_held_is_shown_behind_it(self):
        self.receiver.end()
        self.receiver = self.receive("--watchdog", "0")
        self.wait_for_equality()
        holder = self.hold_lock_of_mirror()
        self.plant.set("a/whole", "77")
        self.wait_for_words("a set of region '.*' was not published")
        holder.close()
        # Nothing else is published: it is the same set that is said again.
        wait_until(lambda: self.plant.leaves()["a/whole"] == (77, "valid"), "the set is shown")

    def test_receiver_stopped_for_ten_seconds(self):
        former = self.timed.shown.newest()
        sets = len(self.timed.shown.sets())
        self.receiver.send_signal(signal.SIGSTOP)
        end = time.monotonic() + 10
        longest = 0
        while time.monotonic() < end:
            self.value += 1
            begin = time.monotonic()
            self.plant.set("a/whole", str(self.value))
            longest = max(longest, time.monotonic() - begin)
        print(f"longest write meanwhile, the tool's start included: {1000 * longest:.0f} ms")
        # Nobody is there who could change it.
        self.assertEqual(len(self.timed.shown.sets()), sets)
        self.assertEqual(self.timed.shown.newest(), former)

        begin = time.monotonic()
        self.receiver.send_signal(signal.SIGCONT)
        self.timed.within(FOUND, begin, lambda leaves: leaves["a/whole"] == (str(self.value), VALID), "the newest set")
        self.heal()

    def test_late_receiver(self):
        self.assertEqual(self.receiver.end(), 0)
        self.receiver = self.receive()
        begin = time.monotonic()
        timed = Timed(self, self.plant.mirror_file)

        timed.within(FOUND, begin, lambda leaves: leaves["a/whole"] == (str(self.value), VALID), "the newest set")

        self.wait_for_equality()
        self.assertEqual(set(timed.shown.newest()), set(MIRRORED))

    def test_sender_started_again_with_another_layout(self):
        self.creator.close()
        self.lose(self.sender.end)
        sets = len(self.timed.shown.sets())
        former = self.plant.file.read_text(encoding="utf-8")
        self.plant.file.write_text(former.replace('"type": "uint64"', '"type": "int64"'), encoding="utf-8")
        self.creator = self.closed(Creator(self.plant))
        self.sender = self.send()
        self.wait_for_words("has another layout than .*: the source has 'a/count', type int64")

        self.assert_all_timeout()
        self.assertEqual(len(self.timed.shown.sets()), sets)
        self.assertIsNone(self.receiver.process.poll())

        self.sender.end()
        self.creator.close()
        self.plant.file.write_text(former, encoding="utf-8")
        self.creator = self.closed(Creator(self.plant))
        self.sender = self.send()
        begin = time.monotonic()
        self.timed.within(FOUND, begin, lambda leaves: not all_timeout(leaves), "the former layout is shown")
        self.heal()


if __name__ == "__main__":
    unittest.main()
