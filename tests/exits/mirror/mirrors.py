"""What the tests of tessel-mirror share: a domain that is theirs alone, sources, receivers, and what both hold."""

import contextlib
import json
import os
import pathlib
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from exits import EXIT, KEEPS_FREED_MEMORY, LONGEST, Creator, LockHolder, Plant, end_with_parent, tool, wait_until  # noqa: E402, F401


class Peer:
    """A program that says a line once it has begun, and one of JSON at its end."""

    def __init__(self, program, *words, before=()):
        self.process = subprocess.Popen([*before, program, *map(str, words)], stdout=subprocess.PIPE, text=True,
                                        preexec_fn=end_with_parent)
        self.said = self.process.stdout.readline().strip()
        assert self.said, f"{words[0]} has not begun"

    def result(self, longest=LONGEST):
        text, _ = self.process.communicate(timeout=longest)
        assert self.process.returncode == 0, text
        return json.loads(text)

    def close(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()


def resident(process):
    """Bytes."""
    fields = pathlib.Path(f"/proc/{process.pid}/statm").read_text(encoding="ascii").split()
    return int(fields[1]) * os.sysconf("SC_PAGE_SIZE")


class Domain:
    """A number of a domain that no other run of these tests has while this one goes on."""

    def __init__(self):
        for number in range(1, 200):
            self._taken = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
            try:
                # Goes with the socket, however this process ends.
                self._taken.bind(f"\0tessel-mirror-test-{number}")
            except OSError:
                self._taken.close()
                continue
            self.number = number
            return
        raise AssertionError("no domain is free")

    def close(self):
        self._taken.close()


class Mirror:
    """`tessel-mirror send` or `receive` while it runs; its log is collected."""

    def __init__(self, command, domain, *arguments, before=(), program=EXIT):
        self._log = tempfile.TemporaryFile("w+", encoding="utf-8")
        self.process = subprocess.Popen(
            [*before, program, command, "--domain", str(domain.number), *map(str, arguments)],
            stderr=self._log, preexec_fn=end_with_parent,
        )
        wait_until(lambda: self.process.poll() is not None or " in domain " in self.log(), "ready")

    def log(self):
        size = os.fstat(self._log.fileno()).st_size
        return os.pread(self._log.fileno(), size, 0).decode()

    def logged(self, pattern):
        return re.search(pattern, self.log()) is not None

    def send_signal(self, number):
        self.process.send_signal(number)

    def wait(self):
        return self.process.wait(timeout=LONGEST)

    def end(self, number=signal.SIGTERM):
        self.send_signal(signal.SIGCONT)
        self.send_signal(number)
        return self.wait()

    def close(self):
        if self.process.poll() is None:
            self.end(signal.SIGKILL)
        self._log.close()


LIVE = "0"


class RawSource:
    """Writes what it is told to."""

    def __init__(self, domain, *options):
        """`options`: the lease in milliseconds, and the identity in hexadecimal."""
        self.process = subprocess.Popen(
            [os.environ["TESSEL_RAW_SOURCE"], str(domain.number), *map(str, options)], stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, text=True, preexec_fn=end_with_parent,
        )

    def send(self, key, fingerprint, order="1", status=LIVE, attachment="1", generation="1", time="0", data=b"", zeros=0):
        """`zeros`: as many bytes of 0 in the place of `data`."""
        self.say(key, fingerprint, order, status, attachment, generation, time, f"*{zeros}" if zeros else data.hex() or "-")

    def say(self, *words):
        print(*words, file=self.process.stdin, flush=True)
        assert self.process.stdout.readline() == "sent\n"

    def close(self):
        with contextlib.suppress(BrokenPipeError):
            self.process.stdin.close()
        self.process.wait(timeout=LONGEST)
        self.process.stdout.close()


MIRRORED = {
    "a/whole": {"type": "int64"},
    "a/count": {"type": "uint64"},
    "b/text": {"type": "string"},
    "b/number": {"type": "double"},
    "c/low": {"type": "bit", "bitmask": 1},
    "c/high": {"type": "bit", "bitmask": 128},
    "c/ratio": {"type": "float"},
}


class MirroredPlant(Plant):
    """A plant whose mirror on this machine has another key, and a description with that key to read it by."""

    def __init__(self, leaves=None):
        super().__init__({url: dict(leaf) for url, leaf in (leaves or MIRRORED).items()})
        self.mirror_key = self.key + "m"
        folder = self.folder / "mirror"
        folder.mkdir()
        self.mirror_file = folder / "plant.process.json"
        self.write_mirror()

    def write_mirror(self):
        root = json.loads(self.file.read_text(encoding="utf-8"))
        root["keyProcessDataMemory"] = self.mirror_key
        self.mirror_file.write_text(json.dumps(root), encoding="utf-8")

    def leaves(self, file=None):
        """URL to value and state of the mirror; None while there is no region."""
        result = tool("get", "--json", str(file or self.mirror_file))
        return parsed(result.stdout) if result.returncode == 0 else None

    def states(self):
        leaves = self.leaves()
        return None if leaves is None else sorted({state for _, state in leaves.values()})

    def fingerprint(self):
        """As docs/memory-format.md has it, in hexadecimal."""
        value = 0xCBF29CE484222325
        root = json.loads(self.file.read_text(encoding="utf-8"))
        leaves = {f"{node}/{name}": leaf for node, children in root["value"].items()
                  for name, leaf in children["value"].items()}
        for url, leaf in sorted(leaves.items()):
            numbers = [leaf.get(key, 0) for key in ("offsetSharedMemory", "sizeValue", "relativeOffsetMetadata",
                                                    "sizeMetadata", "bitmask")]
            for byte in b"".join((url.encode(), b"\0", leaf["type"].encode(), b"\0",
                                  struct.pack("<5I", *numbers))):
                value = (value ^ byte) * 0x100000001B3 % 2**64
        return f"{value:x}"

    def swaps_of_mirror(self):
        listed = json.loads(tool("regions", "--json").stdout)
        return next(region["swapCount"] for region in listed if region["key"] == self.mirror_key)

    def halves(self, key):
        """Both buffers as they are."""
        size = json.loads(self.file.read_text(encoding="utf-8"))["sizeOfSharedMemory"]
        memory = pathlib.Path(f"/dev/shm/{key}SharedMemory").read_bytes()
        return {memory[-size:], memory[-2 * size:-size]}

    def close(self):
        tool("rm", "--force", self.mirror_key)
        super().close()


def parsed(text):
    return {leaf["url"]: (leaf["value"], leaf["stateName"]) for leaf in json.loads(text)}


def ip(*words):
    return subprocess.run(["ip", *words], capture_output=True, text=True, check=False)


class Cable:
    """Network namespaces NAMEa and NAMEb, each with one end of it, called `cable`."""

    def __init__(self):
        self.sides = [f"tesselm{os.getpid()}{side}" for side in "ab"]
        self.addresses = ["192.0.2.1", "192.0.2.2"]
        self.problem = ""
        for side in self.sides:
            made = ip("netns", "add", side)
            self.problem = self.problem or made.stderr.strip()
        if self.problem:
            return
        first, second = self.sides
        self._do("link", "add", "cable", "netns", first, "type", "veth", "peer", "name", "cable", "netns", second)
        for side, address in zip(self.sides, self.addresses):
            self._do("-n", side, "address", "add", f"{address}/24", "dev", "cable")
            self._do("-n", side, "link", "set", "cable", "up")
            # By which a machine reaches itself, whatever its address.
            self._do("-n", side, "link", "set", "lo", "up")

    def _do(self, *words):
        if not self.problem:
            self.problem = ip(*words).stderr.strip()

    def cut(self):
        assert ip("-n", self.sides[0], "link", "set", "cable", "down").returncode == 0

    def mend(self):
        assert ip("-n", self.sides[0], "link", "set", "cable", "up").returncode == 0

    def close(self):
        for side in self.sides:
            ip("netns", "delete", side)


class MirrorTest(unittest.TestCase):
    """Each test has a domain and a plant of its own, and all that it starts is ended with it."""

    def setUp(self):
        self.domain = self.closed(Domain())
        self.plant = self.closed(MirroredPlant())

    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing
