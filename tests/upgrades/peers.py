"""Users of one region, each a process of its own, with the library of today or the former one."""

import ctypes
import hashlib
import json
import os
import re
import signal
import subprocess
import tempfile
from pathlib import Path

PEERS = {"present": os.environ["PRESENT_PEER"], "former": os.environ["FORMER_PEER"]}
TESSEL = os.environ["TESSEL"]
LONGEST_WAIT = 60
COUNTERS = 200
TEXT_BYTES = 32


def end_with_parent():
    """In a child: no test that is killed leaves a program behind."""
    set_parent_death_signal = 1
    ctypes.CDLL(None).prctl(set_parent_death_signal, signal.SIGKILL)


def enter_own_world():
    """Memory, semaphores and files that end with the last process of this test, however that comes about.

    A machine may forbid it: then a killed test leaves its region behind.
    """
    new_mounts, new_ipc, new_user = 0x00020000, 0x08000000, 0x10000000
    all_mounts_private = 0x4000 | 0x40000  # MS_REC, MS_PRIVATE
    system = ctypes.CDLL(None)
    user, group = os.geteuid(), os.getegid()
    if system.unshare(new_mounts | new_ipc) != 0:
        if system.unshare(new_mounts | new_ipc | new_user) != 0:
            return
        Path("/proc/self/setgroups").write_text("deny")
        Path("/proc/self/uid_map").write_text(f"{user} {user} 1")
        Path("/proc/self/gid_map").write_text(f"{group} {group} 1")
    if (system.mount(b"none", b"/", None, all_mounts_private, None) != 0
            or system.mount(b"tmpfs", b"/dev/shm", b"tmpfs", 0, b"mode=1777") != 0):
        return
    tempfile.tempdir = "/dev/shm"


def describe(key, double_buffer):
    """Counters of 8 bytes, and a text behind them."""

    def leaf(kind, offset, size):
        return {"type": kind, "displayPosition": 1, "offsetSharedMemory": offset,
                "sizeValue": size, "relativeOffsetMetadata": size, "sizeMetadata": 4}

    counters = {str(i): leaf("int64", 12 * i, 8) for i in range(COUNTERS)}
    return {"type": "treenode", "keyProcessDataMemory": key, "doubleBuffer": double_buffer,
            "sizeOfSharedMemory": 12 * COUNTERS + TEXT_BYTES + 4,
            "value": {"count": {"type": "treenode", "value": counters},
                      "text": leaf("string", 12 * COUNTERS, TEXT_BYTES)}}


class Peer:
    """A process that creates or attaches, and answers a line of words with a line."""

    def __init__(self, version, kind, file):
        self._log = tempfile.TemporaryFile()
        self._process = subprocess.Popen([PEERS[version], kind, file], stdin=subprocess.PIPE,
                                         stdout=subprocess.PIPE, stderr=self._log, text=True,
                                         preexec_fn=end_with_parent)
        self.state = self._process.stdout.readline().strip()
        self._told = 0

    def ask(self, *words):
        """The answer; empty where the process has ended."""
        self.begin(*words)
        return self.answer()

    def begin(self, *words):
        self._process.stdin.write(" ".join(str(word) for word in words) + "\n")
        self._process.stdin.flush()

    def answer(self):
        return self._process.stdout.readline().strip()

    def warnings(self):
        """What it has said since the last call, each line once, without what tells that all is well."""
        self._log.seek(self._told)
        told = self._log.read()
        self._told += len(told)
        lines = dict.fromkeys(told.decode().splitlines())
        return [line for line in lines if not re.match(r"(Create|Attach): Key for shared memory", line)]

    def end(self):
        """Its exit code."""
        self._process.stdin.close()
        return self._process.wait(LONGEST_WAIT)

    def kill(self):
        self._process.send_signal(signal.SIGKILL)
        self._process.wait(LONGEST_WAIT)

    def close(self):
        if self._process.poll() is None:
            self.kill()
        self._process.stdout.close()
        self._process.stdin.close()
        self._log.close()


class Region:
    """A description with a key of its own, and what the machine knows under that key."""

    count = 0

    def __init__(self, double_buffer=True):
        Region.count += 1
        self.key = f"tessel-test-upgrades-{os.getpid()}-{Region.count}"
        self._folder = tempfile.TemporaryDirectory()
        self.file = str(Path(self._folder.name, "device.process.json"))
        Path(self.file).write_text(json.dumps(describe(self.key, double_buffer)))
        self.memory = Path("/dev/shm", self.key + "SharedMemory")
        self._peers = []

    def peer(self, version, kind):
        self._peers.append(Peer(version, kind, self.file))
        return self._peers[-1]

    def tool(self, *arguments):
        """Exit code, output and messages of the tool, with the description in place of None."""
        words = [self.file if word is None else word for word in arguments]
        done = subprocess.run([TESSEL, *words], stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=LONGEST_WAIT, check=False,
                              preexec_fn=end_with_parent)
        return done.returncode, done.stdout, done.stderr

    def semaphore_set(self):
        """The kernel's number of the set under the key, and how many semaphores it has; without one, 0 of them."""
        for line in Path("/proc/sysvipc/sem").read_text().splitlines()[1:]:
            fields = line.split()
            if int(fields[0]) == self.semaphore_key():
                return int(fields[1]), int(fields[3])
        return -1, 0

    def semaphore_count(self):
        return self.semaphore_set()[1]

    def semaphore_key(self):
        return semaphore_key(self.key)

    def close(self):
        for peer in self._peers:
            peer.close()
        left = []
        if self.memory.exists():
            self.memory.unlink()
            left.append(self.memory.name)
        if self.semaphore_count():
            number = self.semaphore_key() & 0xFFFFFFFF
            subprocess.run(["ipcrm", "-S", hex(number)], check=True)
            left.append("semaphores")
        self._folder.cleanup()
        return left


def semaphore_key(key):
    """The System V key of a region, as docs/memory-format.md has it."""
    number = int.from_bytes(hashlib.sha256((key + "Semaphore").encode()).digest()[:4], "big")
    signed = number - (1 << 32) if number >= 1 << 31 else number
    return signed if signed != 0 else 1
