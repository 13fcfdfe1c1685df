"""What the tests of the programs of exits/ share: regions that come and go, and a program that serves."""

import contextlib
import ctypes
import hashlib
import http.client
import json
import os
import pathlib
import re
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import time

TOOL = os.environ["TESSEL_TOOL"]
EXIT = os.environ["TESSEL_EXIT"]
# Far above what anything takes that ends at all, also where many share a processor.
LONGEST = 200
# The sanitizer of addresses keeps memory that was given back, to tell of its use: it looks like a leak.
KEEPS_FREED_MEMORY = b"__asan_init" in pathlib.Path(EXIT).read_bytes()


def wait_until(condition, what):
    """Until it holds; a broken program fails the test and does not hang it."""
    end = time.monotonic() + LONGEST
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"never: {what}")
        select.select([], [], [], 0.01)


def tool(*arguments):
    return subprocess.run(
        [TOOL, *arguments], capture_output=True, text=True, timeout=LONGEST, check=False
    )


def end_with_parent():
    """In a child: no test that is killed leaves a program behind."""
    set_parent_death_signal = 1
    ctypes.CDLL(None).prctl(set_parent_death_signal, signal.SIGKILL)


_held_ports = []


def free_port(address="127.0.0.1"):
    """A port for a server that a test starts. Until the test ends nobody else is given it: it stays bound here, beside
    which a server may bind it as well."""
    held = socket.socket(socket.AF_INET6 if ":" in address else socket.AF_INET)
    held.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    held.bind((address, 0))
    _held_ports.append(held)
    return held.getsockname()[1]


class TimeTaken:
    """Seconds since this was made, without those in which this test, or the main thread of one of the processes, had to
    wait for a processor: whoever waits for something else is found, and a busy machine makes nobody slow."""

    def __init__(self, *processes):
        self._threads = ["/proc/thread-self/schedstat", *(f"/proc/{each.pid}/schedstat" for each in processes)]
        self._queued = [self._queued_in(path) for path in self._threads]
        self._begin = time.monotonic()

    @staticmethod
    def _queued_in(path):
        try:
            return int(pathlib.Path(path).read_text(encoding="ascii").split()[1]) * 1e-9
        except OSError:
            # Not every kernel tells.
            return 0

    def seconds(self):
        """As long as nobody has taken notice that one of the processes has ended."""
        taken = time.monotonic() - self._begin
        return taken - sum(self._queued_in(path) - before for path, before in zip(self._threads, self._queued))


def wait_for_end(process):
    """Until it has ended; its exit code is still to be asked for."""
    wait_until(lambda: os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT | os.WNOHANG), "ends")


class Plant:
    """A description with a key of its own, and what is left of its region at the end removed."""

    _count = 0

    def __init__(self, leaves, double_buffer=True):
        """`leaves`: URL of two pieces to its properties; each has an error state."""
        Plant._count += 1
        self.key = f"tesselExit{os.getpid()}x{Plant._count}"
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tessel-exit"))
        self.file = self.folder / "plant.process.json"
        sizes = {"double": 8, "float": 4, "int32": 4, "uint64": 8, "int64": 8, "boolean": 1, "bit": 1, "string": 32, "selector": 4}
        nodes, offset = {}, 0
        for url, properties in leaves.items():
            node, name = url.split("/")
            size = sizes[properties["type"]]
            leaf = {
                "offsetSharedMemory": offset,
                "sizeValue": size,
                "relativeOffsetMetadata": size,
                "sizeMetadata": 4,
                "displayPosition": offset,
            }
            children = nodes.setdefault(node, {"type": "treenode", "value": {}})["value"]
            children[name] = {**leaf, **properties}
            offset += size + 4
        root = {
            "type": "treenode",
            "value": nodes,
            "keyProcessDataMemory": self.key,
            "doubleBuffer": double_buffer,
            "sizeOfSharedMemory": offset,
        }
        self.file.write_text(json.dumps(root), encoding="utf-8")

    def set(self, *values):
        result = tool("set", str(self.file), *values)
        assert result.returncode == 0, result.stderr

    def rights_of(self, process):
        """With which the process has mapped the region: r--s where it cannot write."""
        with open(f"/proc/{process.pid}/maps", encoding="utf-8") as table:
            return [line.split()[1] for line in table if f"/dev/shm/{self.key}SharedMemory" in line]

    def close(self):
        # Also without a region: a program that was killed while it was attached leaves its semaphores.
        tool("rm", "--force", self.key)
        shutil.rmtree(self.folder)


class Creator:
    """`tessel hold`, which has made the region when this is there."""

    def __init__(self, plant):
        self._process = subprocess.Popen(
            [TOOL, "hold", str(plant.file)], stdout=subprocess.PIPE, text=True, preexec_fn=end_with_parent
        )
        line = self._process.stdout.readline()
        assert line.startswith("holding"), line

    def kill(self):
        self._end(signal.SIGKILL)

    def close(self):
        self._end(signal.SIGTERM)

    def _end(self, number):
        if self._process.poll() is None:
            self._process.send_signal(number)
            self._process.wait(timeout=LONGEST)
        self._process.stdout.close()


class LockHolder:
    """Inside the lock of a region, as a process that was stopped while it wrote."""

    def __init__(self, plant):
        self._libc = ctypes.CDLL(None, use_errno=True)
        digest = hashlib.sha256(f"{plant.key}Semaphore".encode()).digest()
        self._set = self._libc.semget(ctypes.c_int32(int.from_bytes(digest[:4], "big")), 0, 0)
        assert self._set >= 0, os.strerror(ctypes.get_errno())
        self._change(0, 1)

    def _change(self, *operations):
        """Each of the write lock, one after the other, given back by the kernel should the test die."""
        write_lock, undo = 0, 0x1000
        words = [word for change in operations for word in (write_lock, change, undo)]
        array = (ctypes.c_short * len(words))(*words)
        assert self._libc.semop(self._set, array, len(operations)) == 0, os.strerror(ctypes.get_errno())

    def close(self):
        if self._set >= 0:
            self._change(-1)
            self._set = -1


class Service:
    """The program while it serves, at the port that it has chosen; its log is collected."""

    def __init__(self, *arguments, environment=None):
        self._log = tempfile.TemporaryFile("w+", encoding="utf-8")
        self.process = subprocess.Popen(
            [EXIT, *arguments], stderr=self._log, env={**os.environ, **(environment or {})},
            preexec_fn=end_with_parent,
        )
        try:
            wait_until(lambda: self.process.poll() is not None or self._served(), "serves")
        except AssertionError:
            self.close()
            raise
        assert self.process.poll() is None, self.log()
        self.host, self.port = self._served()[-1]

    def _served(self):
        found = re.findall(r"serving http://(\S+):(\d+)/", self.log())
        return [(host.strip("[]"), int(port)) for host, port in found]

    def last_served(self):
        return self._served()[-1]

    def log(self):
        position = os.fstat(self._log.fileno()).st_size
        return os.pread(self._log.fileno(), position, 0).decode()

    def connection(self):
        return http.client.HTTPConnection(self.host, self.port, timeout=LONGEST)

    def ask(self, path="/metrics", method="GET", headers=None):
        """Status, headers and text."""
        with contextlib.closing(self.connection()) as connection:
            connection.request(method, path, headers=headers or {})
            response = connection.getresponse()
            return response.status, response.headers, response.read().decode()

    def end(self, number=signal.SIGTERM):
        """The exit code, and the seconds that it took."""
        taken = TimeTaken(self.process)
        self.process.send_signal(number)
        wait_for_end(self.process)
        seconds = taken.seconds()
        return self.process.wait(timeout=LONGEST), seconds

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait(timeout=LONGEST)
        self._log.close()
