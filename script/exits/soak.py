"""The exits under a large region for a long time: does their memory stay what it was? See script/soak."""

import argparse
import collections
import contextlib
import http.client
import json
import os
import re
import socket
import statistics
import subprocess
import sys
import threading
import time
import urllib.parse

from parts import TOOL, Failed, Parts, exit_program, run, tool

import sparkplug
from broker import Broker

PER_NODE = 100
SLOT = 12
KIB = 1024
TICK = os.sysconf("SC_CLK_TCK")
# Memory that is taken and given back makes steps; more than that is growth.
MOST_GROWTH_KIB = 2 * KIB
# Seconds after which the broker tells again what it has counted.
BROKER_COUNTS = 1


def write_plant(parts, leaves):
    """A description of so many doubles with states, all of which a simulation moves."""
    nodes = {}
    for number in range(leaves):
        node = nodes.setdefault(f"n{number // PER_NODE:03}", {"type": "treenode", "value": {}})["value"]
        node[f"v{number % PER_NODE:02}"] = {
            "type": "double", "offsetSharedMemory": number * SLOT, "sizeValue": 8, "relativeOffsetMetadata": 8,
            "sizeMetadata": 4, "displayPosition": number, "unit": "bar", "readOnly": False}
    file = parts.folder / "plant.process.json"
    file.write_text(json.dumps({
        "type": "treenode", "keyProcessDataMemory": parts.key, "doubleBuffer": True,
        "sizeOfSharedMemory": leaves * SLOT, "value": nodes}), encoding="utf-8")
    return file


class Watched:
    """Memory and processor time of an exit, from the first look on."""

    def __init__(self, part):
        self.part = part
        self._pid = part.process.pid
        self._began = self._processor()
        self._since = time.monotonic()
        self.memory = [self._resident()]

    def _resident(self):
        with open(f"/proc/{self._pid}/smaps_rollup", encoding="utf-8") as rollup:
            return int(re.search(r"^Rss: +(\d+)", rollup.read(), re.M)[1])

    def _processor(self):
        with open(f"/proc/{self._pid}/stat", encoding="utf-8") as stat:
            words = stat.read().rpartition(")")[2].split()
        return (int(words[11]) + int(words[12])) / TICK

    def look(self):
        self.memory.append(self._resident())

    def share(self):
        """Seconds of processor time a second."""
        return (self._processor() - self._began) / (time.monotonic() - self._since)

    def growth(self):
        """From the second tenth of the time to the last one, medians of each: the first one fills what is kept."""
        tenth = max(len(self.memory) // 10, 1)
        return statistics.median(self.memory[-tenth:]) - statistics.median(self.memory[tenth:2 * tenth] or self.memory)


class Reader(threading.Thread):
    """Something that reads until the end; an error of it is one of the script."""

    def __init__(self):
        super().__init__(daemon=True)
        self.error = None
        self.is_over = threading.Event()

    def run(self):
        try:
            self.read()
        except Exception as error:  # pylint: disable=broad-except
            if not self.is_over.is_set():
                self.error = f"{type(self).__name__}: {error}"

    def read(self):
        raise NotImplementedError

    def has_begun(self):
        """Whether something was told."""
        raise NotImplementedError


class Scraper(Reader):
    """Asks for the metrics once a second."""

    def __init__(self, address, leaves):
        super().__init__()
        self._host = urllib.parse.urlsplit(address).netloc
        self._leaves = leaves
        self.times = []
        self.swaps = []

    def read(self):
        while not self.is_over.wait(1):
            begin = time.monotonic()
            with contextlib.closing(http.client.HTTPConnection(self._host, timeout=60)) as connection:
                connection.request("GET", "/metrics")
                answer = connection.getresponse()
                text = answer.read().decode()
            self.times.append(time.monotonic() - begin)
            told = text.count("\ntessel_value{")
            if answer.status != http.client.OK or told != self._leaves:
                raise Failed(f"status {answer.status}, {told} of {self._leaves} values")
            self.swaps.append(int(re.search(r"^tessel_region_swaps_total\{.*\} (\d+)", text, re.M)[1]))

    def has_begun(self):
        return bool(self.times)

    def said(self):
        return (f"{len(self.times)} scrapes with all values, {statistics.median(self.times) * 1000:.0f} ms in the "
                f"middle, {max(self.times) * 1000:.0f} ms at most")


class Listener(Reader):
    """Takes the messages of the node from a `mosquitto_sub`, and looks for gaps in their numbers."""

    def __init__(self, pipe):
        super().__init__()
        self._pipe = pipe
        self.messages = collections.Counter()
        self.metrics = 0
        self.lost = 0
        self._sequence = None

    def read(self):
        for line in self._pipe:
            topic, _, data = line.decode().strip().partition(" ")
            payload = sparkplug.Payload.FromString(bytes.fromhex(data))
            kind = topic.split("/")[2]
            self.messages[kind] += 1
            self.metrics += len(payload.metrics)
            if kind == "NDEATH":
                continue
            if kind != "NBIRTH" and self._sequence is not None:
                self.lost += (payload.seq - self._sequence - 1) % 256
            self._sequence = payload.seq

    def has_begun(self):
        return self.messages["DDATA"] > 0

    def said(self):
        return (f"{self.messages['DDATA']} messages with {self.metrics} metrics, {self.messages['NBIRTH']} births, "
                f"{self.lost} lost")


class Stream(Reader):
    """Reads the events of tessel-web, and counts them; one that is stopped only connects."""

    def __init__(self, address, is_stopped):
        super().__init__()
        parts = urllib.parse.urlsplit(address)
        self._socket = socket.socket()
        if is_stopped:
            self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        self._socket.connect((parts.hostname, parts.port))
        self._socket.sendall(f"GET /api/events HTTP/1.1\r\nHost: {parts.netloc}\r\n\r\n".encode())
        self._is_stopped = is_stopped
        self.sets = 0

    def read(self):
        if self._is_stopped:
            self.is_over.wait()
            return
        with self._socket.makefile("rb") as lines:
            for line in lines:
                self.sets += line.startswith(b"event: set")
        if not self.is_over.is_set():
            raise Failed("the stream has ended")

    def has_begun(self):
        return self.sets > 0

    def said(self):
        return f"{self.sets} sets on the stream that is read, and one that is not"


class Soak:
    def __init__(self, parts, arguments):
        self._parts = parts
        self._arguments = arguments
        self._file = write_plant(parts, arguments.leaves)
        self._exits = {}
        self._watched = {}
        self._readers = {}
        self._publisher = None
        self._broker = None

    def start(self):
        seconds = int(self._arguments.minutes * 60) + 3600
        self._publisher = self._parts.start(
            "tessel-sim", TOOL, "sim", "--rate", str(self._arguments.rate), "--for", f"{seconds}s", "--seed", "1",
            "--json", self._file)
        if tool("wait", "--timeout", "60", str(self._file)).returncode != 0:
            raise Failed(f"no set comes: {self._publisher.log()}")
        self._start_mqtt()
        address = self._start_server("metrics")
        self._readers["metrics"] = [Scraper(address, self._arguments.leaves)]
        if exit_program("web"):
            address = self._start_server("web")
            self._readers["web"] = [Stream(address, False), Stream(address, True)]
        for reader in sum(self._readers.values(), []):
            reader.start()
        # What they take at the begin is what they take once they have told everything.
        self._parts.wait(lambda: all(readers[0].has_begun() for readers in self._readers.values()), "all exits tell")
        for name, part in self._exits.items():
            self._watched[name] = Watched(part)

    def _start_mqtt(self):
        self._broker = broker = self._parts.closed(Broker(f"sys_interval {BROKER_COUNTS}", log="error"))
        listener = self._parts.start(
            "mosquitto_sub", "stdbuf", "-oL", "mosquitto_sub", "-p", broker.port, "-t", "spBv1.0/#", "-F", "%t %x",
            stdout=-1)
        self._readers["mqtt"] = [Listener(listener.process.stdout)]
        part = self._parts.start(
            "tessel-mqtt", exit_program("mqtt"), "--host", "127.0.0.1", "--port", broker.port, "--group", "soak",
            "--node", "here", "--state-dir", self._parts.folder / "state", self._file)
        self._exits["mqtt"] = part

    def _start_server(self, name):
        part = self._parts.start(f"tessel-{name}", exit_program(name), "--listen", "127.0.0.1:0", self._file)
        said = r"serving (http://\S+:\d+/)"
        self._parts.wait(lambda: re.search(said, part.log()), f"tessel-{name} serves")
        self._exits[name] = part
        return re.search(said, part.log())[1]

    def run(self):
        begin = time.monotonic()
        end = begin + self._arguments.minutes * 60
        next_line = begin
        while time.monotonic() < end:
            self._parts.check()
            for reader in sum(self._readers.values(), []):
                if reader.error:
                    raise Failed(reader.error)
            for watched in self._watched.values():
                watched.look()
            if sys.stderr.isatty() or time.monotonic() >= next_line:
                self._show(time.monotonic() - begin)
                next_line = time.monotonic() + 60
            time.sleep(min(1, max(end - time.monotonic(), 0)))

    def _show(self, seconds):
        text = ", ".join(f"{name} {watched.memory[-1] / KIB:.1f} MiB" for name, watched in self._watched.items())
        line = f"[{seconds:.0f} s] {text}"
        sys.stderr.write(f"\r{line}" if sys.stderr.isatty() else f"{line}\n")
        sys.stderr.flush()

    def _dropped_by_broker(self):
        """Messages that a listener did not take in time: those are no loss of the exit."""
        time.sleep(2 * BROKER_COUNTS)
        found = subprocess.run(
            ["mosquitto_sub", "-p", str(self._broker.port), "-t", "$SYS/broker/publish/messages/dropped", "-C", "1",
             "-W", "30"], capture_output=True, text=True, check=False).stdout.strip()
        # It may tell nothing, which is no excuse.
        print(f"the broker has dropped {found or 'no'} messages for the listener")
        return int(found or 0)

    def report(self):
        """The figures, and what is wrong with them."""
        for reader in sum(self._readers.values(), []):
            reader.is_over.set()
        shares = {name: watched.share() for name, watched in self._watched.items()}
        if sys.stderr.isatty():
            sys.stderr.write("\r\033[K")
        self._parts.end(self._publisher)
        published = json.loads(self._publisher.log())
        print(f"published {published['sets']} sets of {self._arguments.leaves} values in "
              f"{published['seconds']:.0f} s: {published['sets'] / published['seconds']:.1f} a second, "
              f"{published['late']} late")
        wrong = []
        for name, watched in self._watched.items():
            memory = watched.memory
            print(f"{name}: {memory[0] / KIB:.1f} MiB at the begin, {memory[-1] / KIB:.1f} at the end, "
                  f"{max(memory) / KIB:.1f} at most, growth {watched.growth() / KIB:+.2f}; "
                  f"{shares[name]:.2f} s of processor time a second; {self._readers[name][0].said()}")
            if watched.growth() > MOST_GROWTH_KIB:
                wrong.append(f"the memory of {name} grows")
        lost = self._readers["mqtt"][0].lost
        if lost and lost > self._dropped_by_broker():
            wrong.append("messages of mqtt are lost")
        if wrong:
            raise Failed("; ".join(wrong))


def number_above_zero(text):
    number = float(text)
    if number <= 0:
        raise argparse.ArgumentTypeError(f"takes a number above 0, not '{text}'")
    return number


def work():
    parser = argparse.ArgumentParser(prog="script/soak", add_help=False)
    parser.add_argument("--minutes", type=number_above_zero, default=10)
    parser.add_argument("--leaves", type=int, choices=range(1, 100001), metavar="N", default=10000)
    parser.add_argument("--rate", type=number_above_zero, default=100)
    arguments = parser.parse_args()
    with Parts(f"tesselSoak{os.getpid()}") as parts:
        soak = Soak(parts, arguments)
        soak.start()
        soak.run()
        soak.report()
    left = parts.left()
    if left:
        raise Failed("left behind: " + ", ".join(left))


if __name__ == "__main__":
    run(work)
