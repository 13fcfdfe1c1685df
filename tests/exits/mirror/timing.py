"""When a mirror showed what, and how late this machine itself was meanwhile. All times are of time.monotonic()."""

import json
import os
import subprocess
import tempfile

from exits import end_with_parent, wait_until

PEER = os.environ["TESSEL_STATES_PEER"]
LEASE = 0.3
# What is promised beyond the lease, by a machine that is not late itself.
GRACE = 0.1
# Who is woken one after the other by a set on its way: the sender's thread and loop, the engine's threads for sending and
# receiving, or for leases, the receiver's loop, the reader.
WAKES = 6
# In which two programs that can hear each other have found each other, and the newest set has come.
FOUND = 2
# The same of two that have lost each other. One of them may still take the other for one that it knows, for the lease of a
# participant; each says every half a second that it is there; and what was said into a cut is said again with the next
# heartbeat, of which the engine lets at most eight seconds pass. Twice that, as the engine promises none of it.
FOUND_AGAIN = 2 * (2 + 0.5 + 8)
# Those who are woken until then: the engines say back and forth who they are and what each has, and ask for what is missing.
WAKES_TO_FIND = 60
VALID, TIMEOUT = 0, 9
NANO = 1e-9


class Teller:
    """A program that says "ready" and then one line after the other, until it is closed."""

    def __init__(self, *words):
        self._said = tempfile.TemporaryFile()
        self._read = 0
        self._process = subprocess.Popen([PEER, *map(str, words)], stdout=self._said, preexec_fn=end_with_parent)
        self._begun = []
        wait_until(lambda: self._begun or self._process.poll() is not None or self._begun.extend(self.news()), "begins")
        assert self._begun[:1] == ["ready"], f"{words[0]} has not begun"
        self.held = self._begun[1:]

    def news(self):
        """Whole lines since it was asked before."""
        size = os.fstat(self._said.fileno()).st_size
        text = os.pread(self._said.fileno(), size - self._read, self._read)
        whole = text[:text.rfind(b"\n") + 1]
        self._read += len(whole)
        return whole.decode().splitlines()

    def lines(self):
        self.held += self.news()
        return self.held

    def close(self):
        self._process.kill()
        self._process.wait()
        self._said.close()


class Shown:
    """Each set that a program saw in a region that was there when this began."""

    def __init__(self, file):
        self._teller = Teller("states", file)
        self._sets = []

    def sets(self):
        """Time, and URL to text and number of the state."""
        for line in self._teller.lines()[len(self._sets):]:
            said = json.loads(line)
            self._sets.append((int(said["time"]) * NANO,
                               {url: tuple(leaf) for url, leaf in said["leaves"].items()}))
        return self._sets

    def newest(self):
        wait_until(self.sets, "a set")
        return self._sets[-1][1]

    def when(self, begin, holds, what):
        """The time from which on a set was shown that `holds`: that of the first one since, or `begin` itself."""
        def found():
            sets = self.sets()
            since = [then for then, leaves in sets if then >= begin and holds(leaves)]
            return since or ([begin] if sets and sets[-1][0] < begin and holds(sets[-1][1]) else [])

        wait_until(found, what)
        return found()[0]

    def close(self):
        self._teller.close()


def all_timeout(leaves):
    return all(state == TIMEOUT for _, state in leaves.values())


class Lateness:
    """Sleepers, one a processor: while one of them oversleeps by more than a millisecond, so does whoever is to be woken
    there."""

    def __init__(self):
        self._tellers = [Teller("late", processor) for processor in sorted(os.sched_getaffinity(0))]

    def between(self, begin, end, wakes=WAKES):
        """Seconds by which a set is late that was on its way between: of those in which one of them overslept no more than
        the longest, for each of the `wakes` who are woken."""
        spans = sorted(span for teller in self._tellers for span in self._spans(teller, begin, end))
        total, longest, reached = 0, 0, begin
        for first, last in spans:
            total += max(0, min(last, end) - max(first, reached))
            longest = max(longest, last - first)
            reached = max(reached, min(last, end))
        return min(total, wakes * longest)

    @staticmethod
    def _spans(teller, begin, end):
        def spans():
            return [[int(word) * NANO for word in line.split()] for line in teller.lines()]

        wait_until(lambda: any(last > end for _, last in spans()[-1:]), "the sleepers are awake")
        return [span for span in spans() if span[1] > begin and span[0] < end]

    def close(self):
        for teller in self._tellers:
            teller.close()


class Timed:
    """For a test: asserts how long something took, with what the machine itself was late and no more."""

    def __init__(self, test, file):
        self._test = test
        self._lateness = test.closed(Lateness())
        self.shown = test.closed(Shown(file))

    def within(self, bound, begin, holds, what, wakes=WAKES):
        """Seconds from `begin` until a set was shown that `holds`."""
        shown = self.shown.when(begin, holds, what)
        late = self._lateness.between(begin, shown, wakes)
        took = shown - begin
        print(f"{self._test.id().split('.')[-1]}: {what} after {1000 * took:.0f} ms of {1000 * bound:.0f}; the machine "
              f"was late by {1000 * late:.0f} ms", flush=True)
        self._test.assertLessEqual(took, bound + late, what)
        return took
