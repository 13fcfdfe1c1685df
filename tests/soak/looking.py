"""What processes and the system have of memory, descriptors, mappings, semaphores and segments, from /proc."""

import os
import pathlib
import re

SEGMENTS = pathlib.Path("/dev/shm")


def of_process(pid):
    """Nothing of a process that has ended."""
    folder = pathlib.Path("/proc") / str(pid)
    try:
        status = (folder / "status").read_text(encoding="ascii", errors="replace")
        return {
            "memory": int(re.search(r"^VmRSS:\s+(\d+) kB", status, re.M)[1]),
            "descriptor": len(os.listdir(folder / "fd")),
            "mapping": (folder / "maps").read_bytes().count(b"\n"),
        }
    except (OSError, TypeError):
        return {}


def of_world():
    lines = pathlib.Path("/proc/sysvipc/sem").read_text(encoding="ascii").splitlines()
    return {"semaphore": len(lines) - 1, "segment": len(os.listdir(SEGMENTS))}


class Lowest:
    """The least of each kind that was seen in each period."""

    def __init__(self):
        self._now = {}
        self.series = {}

    def look(self, figures):
        for kind, value in figures.items():
            self._now[kind] = min(value, self._now.get(kind, value))

    def close_period(self):
        for kind, value in self._now.items():
            self.series.setdefault(kind, []).append(value)
        self._now = {}

    def last(self, kind):
        return self.series[kind][-1]
