"""How soon, and for how long, sets of a region are seen in its mirror. See script/bench-mirror."""

import argparse
import array
import contextlib
import json
import os
import pathlib
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

from mirrors import (EXIT, KEEPS_FREED_MEMORY, LONGEST, Cable, Domain, Mirror, MirroredPlant, Peer, end_with_parent,
                     resident, wait_until)

TRAFFIC = os.environ["TESSEL_TRAFFIC_PEER"]
FLOOR = os.environ.get("TESSEL_FLOOR_PEER")
ENGINE = os.environ.get("TESSEL_ENGINE_PEER")
STAMPED = os.environ.get("TESSEL_STAMPED_MIRROR")
# Median until a set is visible in a mirror by that of a ping, there and back, of the same bytes.
TARGET = 3
ROUNDS = 5
# Sets a second while it is measured how soon they come: each finds everybody asleep, as most sets do.
PACE = 50
# Memory that is taken and given back makes steps; more than that is growth.
MOST_GROWTH = 2 << 20
PER_NODE = 100
COLUMNS = ("visible", "99 %", "woken", "source", "one way", " ping", "engine", "mosquitto", "visible/ping", "woken/ping",
           "engine/ping", "woken/mosquitto")


def leaves_of(count):
    return {f"n{number // PER_NODE:04}/v{number % PER_NODE:02}": {"type": "int64"} for number in range(count)}


class Here:
    """Both sides on this machine, over its loopback."""

    name = "loopback"
    interface = "lo"
    options = ()
    before = ((), ())
    addresses = ("127.0.0.1", "127.0.0.1")
    problem = ""


class Apart:
    """Each side in a network of its own, with a cable between."""

    name = "cable"
    interface = "cable"
    options = ("--interface", interface, "--insecure")

    def __init__(self, cable):
        self.before = tuple(("ip", "netns", "exec", side) for side in cable.sides)
        self.addresses = cable.addresses


class Broker:
    def __init__(self, place):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self._folder = tempfile.TemporaryDirectory(prefix="tessel-bench")
        file = pathlib.Path(self._folder.name) / "mosquitto.conf"
        file.write_text(f"listener {self.port} {place.addresses[0]}\nallow_anonymous true\nset_tcp_nodelay true\n"
                        "user root\nlog_dest stderr\nlog_type error\n", encoding="utf-8")
        self._process = subprocess.Popen([*place.before[0], "/usr/sbin/mosquitto", "-c", str(file)],
                                         stderr=subprocess.DEVNULL, preexec_fn=end_with_parent)
        wait_until(lambda: self._answers(place), "the broker listens")

    def _answers(self, place):
        assert self._process.poll() is None, "the broker has ended"
        asked = subprocess.run([*place.before[0], FLOOR, "mqtt-publish", place.addresses[0], str(self.port), "8", "1000",
                                "0.001"], capture_output=True, check=False, timeout=LONGEST)
        return asked.returncode == 0

    def close(self):
        self._process.kill()
        self._process.wait()
        self._folder.cleanup()


class Pair:
    """A source, its mirror, and the two programs between."""

    def __init__(self, stack, place, count, receiving=EXIT):
        self._stack = stack
        self._place = place
        self.plant = stack.enter_context(contextlib.closing(MirroredPlant(leaves_of(count))))
        self.size = json.loads(self.plant.file.read_text(encoding="utf-8"))["sizeOfSharedMemory"]
        self.domain = stack.enter_context(contextlib.closing(Domain()))
        # A busy machine is no reason to lose the source.
        self._stamps = self.plant.folder / "stamps"
        self.receiver = self._mirror(receiving, "receive", 1, "--as", self.plant.mirror_key)
        self.sender = self._mirror(EXIT, "send", 0, "--rate", "1000", "--lease", "20000")

    def _mirror(self, program, command, side, *options):
        before = (*self._place.before[side], "env", f"TESSEL_MIRROR_STAMPS={self._stamps}")
        return self._stack.enter_context(contextlib.closing(Mirror(
            command, self.domain, *self._place.options, *options, self.plant.file, before=before, program=program)))

    def shown(self, rate, seconds):
        """Nanoseconds until each set was visible in the mirror, with nobody to be woken there."""
        former = self._stamps.stat().st_size if self._stamps.exists() else 0
        with contextlib.closing(Peer(TRAFFIC, "publish", self.plant.file, rate, seconds)) as publisher:
            publisher.result(seconds + LONGEST)
        stamps = array.array("q")
        if self._stamps.exists():
            stamps.frombytes(self._stamps.read_bytes()[former:])
        return sorted(stamps)

    def flow(self, rate, seconds, meanwhile=lambda: None, wrong=()):
        """What the publisher and the watcher of the mirror found."""
        with contextlib.ExitStack() as stack:
            publisher = stack.enter_context(contextlib.closing(
                Peer(TRAFFIC, "publish", self.plant.file, rate, seconds, *wrong)))
            wait_until(lambda: self.receiver.logged(" mirrors "), "mirrors")
            watcher = stack.enter_context(contextlib.closing(
                Peer(TRAFFIC, "watch", self.plant.mirror_file, max(0.2, seconds - 0.5))))
            meanwhile()
            return publisher.result(seconds + LONGEST), watcher.result(seconds + LONGEST)


def nearby(count, seconds):
    """The same of a reader of the source itself: what is no mirror's."""
    with contextlib.closing(MirroredPlant(leaves_of(count))) as plant, \
            contextlib.closing(Peer(TRAFFIC, "publish", plant.file, PACE, seconds + 1)) as publisher, \
            contextlib.closing(Peer(TRAFFIC, "watch", plant.file, seconds)) as watcher:
        seen = watcher.result(seconds + LONGEST)
        publisher.result(seconds + LONGEST)
        return seen


def ping(place, size, seconds):
    with contextlib.closing(Peer(FLOOR, "udp-echo", place.addresses[1], before=place.before[1])) as echo:
        done = subprocess.run([*place.before[0], FLOOR, "udp-ping", place.addresses[1], echo.said, str(size), str(PACE),
                               str(seconds)], capture_output=True, text=True, check=True, timeout=seconds + LONGEST)
    return json.loads(done.stdout)


def sample(place, size, seconds):
    """What the engine takes for it, with nothing of a mirror around."""
    with contextlib.closing(Domain()) as domain, \
            contextlib.closing(Peer(ENGINE, "engine-subscribe", domain.number, place.interface, seconds + 0.5,
                                    before=place.before[1])) as subscriber:
        done = subprocess.run([*place.before[0], ENGINE, "engine-publish", str(domain.number), place.interface,
                               str(size), str(PACE), str(seconds)], capture_output=True, text=True, check=True,
                              timeout=seconds + LONGEST)
        assert json.loads(done.stdout)["failed"] == 0
        return subscriber.result()


def message(place, broker, size, seconds):
    with contextlib.closing(Peer(FLOOR, "mqtt-subscribe", place.addresses[0], broker.port, seconds + 0.5,
                                 before=place.before[1])) as subscriber:
        done = subprocess.run([*place.before[0], FLOOR, "mqtt-publish", place.addresses[0], str(broker.port), str(size),
                               str(PACE), str(seconds)], capture_output=True, text=True, check=True,
                              timeout=seconds + LONGEST)
        assert json.loads(done.stdout)["failed"] == 0
        return subscriber.result()


class Bench:
    def __init__(self, arguments):
        self._arguments = arguments
        self.problems = []

    def tell(self, line):
        print(line, flush=True)

    def complain(self, line):
        self.problems.append(line)

    def run(self):
        with contextlib.ExitStack() as stack:
            places = self.places(stack)
            if self._arguments.seconds > 0:
                self.tell(f"{'':10} {'leaves':>7} {'bytes':>7}"
                          + "".join(f"  {name}" for name in COLUMNS) + "   (microseconds, medians)")
                for place in places:
                    for count in self._arguments.leaves:
                        self.delays(place, count)
            if self._arguments.stop > 0 and places:
                self.stopped(places[0])
            if self._arguments.minutes > 0:
                for place in places:
                    self.steady(place)

    def places(self, stack):
        places = [Here()] if Here.name in self._arguments.over else []
        if Apart.name in self._arguments.over:
            cable = stack.enter_context(contextlib.closing(Cable()))
            if cable.problem:
                self.tell(f"cable: left out, no network namespaces: {cable.problem}")
            else:
                places.append(Apart(cable))
        if not places:
            self.complain("there is nothing to be measured over")
        return places

    def delays(self, place, count):
        # Of less than a second nothing is left of a round.
        rounds_to_run = max(1, min(ROUNDS, int(self._arguments.seconds)))
        seconds = self._arguments.seconds / rounds_to_run
        with contextlib.ExitStack() as stack:
            broker = stack.enter_context(contextlib.closing(Broker(place)))
            pair = Pair(stack, place, count, STAMPED)
            rounds = []
            for _ in range(rounds_to_run):
                # One after the other, so that what disturbs the machine disturbs all of them.
                _, seen = pair.flow(PACE, seconds + 1)
                where = f"{place.name}, {count} leaves"
                self.judge(where, seen)
                shown = pair.shown(PACE, seconds + 1)
                if not shown:
                    self.complain(f"{where}: no set was visible")
                    return
                floor = ping(place, pair.size, seconds)
                rounds.append((part(shown, 50), part(shown, 99), seen["median"], nearby(count, seconds)["median"],
                               floor["median"], floor["roundMedian"], sample(place, pair.size, seconds)["median"],
                               message(place, broker, pair.size, seconds)["median"]))
        times = [statistics.median(values) / 1000 for values in zip(*rounds)]
        visible, _, woken, _, _, back, engine, mosquitto = times
        figures = [f"{value:.0f}" for value in times]
        figures += [f"{value:.2f}" for value in (visible / back, woken / back, engine / back, woken / mosquitto)]
        self.tell(f"{place.name:10} {count:7} {pair.size:7}"
                  + "".join(f"  {figure:>{len(name)}}" for figure, name in zip(figures, COLUMNS)))
        if visible > TARGET * back and not self._arguments.unjudged:
            self.complain(f"{where}: {visible / back:.2f} times the ping, above {TARGET}")

    def judge(self, where, seen):
        for fault in ("torn", "older", "states"):
            if seen[fault]:
                self.complain(f"{where}: {seen[fault]} sets {'without values' if fault == 'states' else fault}")
        if seen["sets"] == 0:
            self.complain(f"{where}: no set was seen")

    def stopped(self, place):
        """What a publisher sees of a receiver that stands still: nothing that it does not see without a mirror."""
        count, rate, seconds = self._arguments.leaves[0], self._arguments.rate, self._arguments.stop
        with contextlib.ExitStack() as stack:
            plant = stack.enter_context(contextlib.closing(MirroredPlant(leaves_of(count))))
            alone = stack.enter_context(contextlib.closing(
                Peer(TRAFFIC, "publish", plant.file, rate, seconds + 2))).result(seconds + LONGEST)
        with contextlib.ExitStack() as stack:
            pair = Pair(stack, place, count)

            def stop():
                pair.receiver.send_signal(signal.SIGSTOP)
                time.sleep(seconds)
                pair.receiver.send_signal(signal.SIGCONT)

            disturbed, seen = pair.flow(rate, seconds + 2, stop)
        # A receiver that stood still for longer than its watchdog shows that, until the next set.
        self.judge("stopped", {**seen, "states": 0})
        for what, times in (("without a mirror", alone), (f"receiver stopped for {seconds:g} s", disturbed)):
            self.tell(f"publisher, {count} leaves at {rate:g} Hz, {what}: {times['sets']} sets, a set took "
                      f"{times['median'] / 1000:.0f} us, 99 % {times['ninetyNine'] / 1000:.0f} us, "
                      f"{times['most'] / 1000:.0f} us at most; in {times['waited']} of them it waited for somebody")
        if disturbed["waited"] > alone["waited"]:
            self.complain(f"stopped: the publisher waited in {disturbed['waited']} sets")

    def steady(self, place):
        """Many values fast for long."""
        count, rate, seconds = self._arguments.leaves[-1], self._arguments.rate, self._arguments.minutes * 60
        with contextlib.ExitStack() as stack:
            pair = Pair(stack, place, count)
            memory = []

            def look():
                end = time.monotonic() + max(0, seconds - 1)
                while time.monotonic() < end:
                    time.sleep(min(1, seconds / 40))
                    memory.append((resident(pair.sender.process), resident(pair.receiver.process)))

            published, seen = pair.flow(rate, seconds, look, self._arguments.plant)
        self.judge(f"steady over {place.name}", seen)
        self.tell(f"steady: {count} leaves at {rate:g} Hz for {seconds:g} s over {place.name}: {published['sets']} sets "
                  f"published, {seen['sets']} of {seen['published']} seen ({100 * seen['sets'] / max(1, seen['published']):.1f} %), "
                  f"{seen['torn']} torn, {seen['older']} older; delay {seen['median'] / 1000:.0f} us, 99 % "
                  f"{seen['ninetyNine'] / 1000:.0f} us; a set took its publisher {published['median'] / 1000:.0f} us, 99 % "
                  f"{published['ninetyNine'] / 1000:.0f} us, {published['most'] / 1000:.0f} us at most")
        tenth = max(1, len(memory) // 10)
        for name, sizes in zip(("sender", "receiver"), zip(*memory)):
            growth = statistics.median(sizes[-tenth:]) - statistics.median(sizes[tenth:2 * tenth] or sizes)
            self.tell(f"steady over {place.name}: {name}: {statistics.median(sizes) / 1048576:.1f} MiB of memory, {growth / 1024:+.0f} KiB "
                      "from its second tenth to its last")
            if growth > MOST_GROWTH and not KEEPS_FREED_MEMORY:
                self.complain(f"steady over {place.name}: the {name} has grown by {growth / 1048576:.1f} MiB")


def part(ordered, percent):
    return ordered[(len(ordered) - 1) * percent // 100]


def places_of(text):
    names = text.split(",")
    for name in names:
        if name not in (Here.name, Apart.name):
            raise argparse.ArgumentTypeError(f"'{name}' is neither {Here.name} nor {Apart.name}")
    return names


def arguments_of(words):
    parser = argparse.ArgumentParser(prog="script/bench-mirror")
    parser.add_argument("--seconds", type=float, default=12)
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--leaves", type=lambda text: [int(word) for word in text.split(",")], default=[200, 10000])
    parser.add_argument("--rate", type=float, default=1000)
    parser.add_argument("--stop", type=float, default=10)
    parser.add_argument("--over", type=places_of, default=[Here.name, Apart.name])
    parser.add_argument("--unjudged", action="store_true")
    parser.add_argument("--plant", action="append", choices=("torn", "older"), default=[])
    return parser.parse_args(words)


def main():
    os.environ["QT_LOGGING_RULES"] = "*.debug=false"
    signal.signal(signal.SIGTERM, lambda number, frame: sys.exit(128 + number))
    bench = Bench(arguments_of(sys.argv[1:]))
    try:
        bench.run()
    except KeyboardInterrupt:
        return 130
    for problem in bench.problems:
        print(f"script/bench-mirror: {problem}", file=sys.stderr)
    return 1 if bench.problems else 0


if __name__ == "__main__":
    sys.exit(main())
