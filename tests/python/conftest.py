"""What the tests of the Python module share: descriptions of their own, and other processes."""

import itertools
import json
import os
import signal
import subprocess
import sys
import textwrap
import time
import uuid
from pathlib import Path

import pytest

TYPES = {"int8": 1, "int16": 2, "int32": 4, "int64": 8, "uint8": 1, "uint16": 2, "uint32": 4, "uint64": 8,
         "float": 4, "double": 8, "boolean": 1, "string": 20}

#: By which the regions of these tests are told from those of others that run beside them.
OWN_KEYS = f"tesselPython{os.getpid()}x"


def description(leaves, double_buffer=True, key=None):
    """A process description with a leaf for each name, given as its type and further properties."""
    value, offset = {}, 0
    for position, (name, (kind, properties)) in enumerate(leaves.items()):
        slot = {"type": kind, "displayPosition": position, "offsetSharedMemory": offset,
                "sizeValue": TYPES[kind], "relativeOffsetMetadata": 24, "sizeMetadata": 4}
        slot.update(properties)
        node = value
        *folders, last = name.split("/")
        for folder in folders:
            node = node.setdefault(folder, {"type": "treenode", "displayPosition": position, "value": {}})["value"]
        node[last] = slot
        offset += 32
    return {"type": "treenode", "keyProcessDataMemory": key or f"{OWN_KEYS}{uuid.uuid4().hex[:8]}",
            "sizeOfSharedMemory": offset, "doubleBuffer": double_buffer, "value": value}


PLANT = {
    "pump/speed": ("double", {"unit": "1/s", "minLimit": 0, "maxLimit": 50, "labelTextId": "speed"}),
    "pump/running": ("boolean", {}),
    "count": ("int64", {}),
    "total": ("uint64", {}),
    "small": ("int8", {}),
    "level": ("float", {"unit": "m"}),
    "name": ("string", {}),
    "serial": ("uint16", {"readOnly": True}),
}


@pytest.fixture
def write_description(tmp_path):
    def write(leaves=None, name="plant", **options):
        path = tmp_path / f"{name}.process.json"
        path.write_text(json.dumps(description(PLANT if leaves is None else leaves, **options)))
        return path

    return write


@pytest.fixture
def plant(write_description):
    return write_description()


#: In seconds, far above what anything takes that ends at all, also where many share a processor.
LONGEST = 120


def attempts():
    """Numbers for what is left to chance and tried until it comes, for so long that it would have."""
    end = time.monotonic() + LONGEST
    return itertools.takewhile(lambda _: time.monotonic() < end, itertools.count())


class Other:
    """Another process of Python, which is told by lines on its input and answers by lines on its output."""

    def __init__(self, code, *arguments):
        self.process = subprocess.Popen([sys.executable, "-c", textwrap.dedent(code), *map(str, arguments)],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        text=True)

    def line(self):
        said = self.process.stdout.readline()
        assert said, self.process.stderr.read()
        return said.rstrip("\n")

    def tell(self, text=""):
        self.process.stdin.write(text + "\n")
        self.process.stdin.flush()

    def end(self):
        out, err = self.process.communicate(timeout=LONGEST)
        return self.process.returncode, out, err


@pytest.fixture
def other():
    started = []

    def start(code, *arguments):
        started.append(Other(code, *arguments))
        return started[-1]

    yield start
    for one in started:
        if one.process.poll() is None:
            # Who is killed cannot give its semaphores back.
            one.process.send_signal(signal.SIGINT)
            one.process.communicate(timeout=LONGEST)


@pytest.fixture
def tool():
    def run(*arguments):
        return subprocess.run([os.environ["TESSEL_TOOL"], *map(str, arguments)], capture_output=True, text=True,
                              timeout=LONGEST)

    return run


@pytest.fixture
def sources():
    return Path(os.environ["TESSEL_SOURCES"])


@pytest.fixture(autouse=True)
def nothing_left():
    """No test leaves a region of its own behind."""
    yield
    assert [name for name in os.listdir("/dev/shm") if name.startswith(OWN_KEYS)] == []
