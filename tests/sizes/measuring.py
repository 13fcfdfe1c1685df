"""What a program took, and whether ten times as much of something took too much more."""

import ctypes
import dataclasses
import hashlib
import os
import re
import resource
import signal
import subprocess
import tempfile

# Ten times the size may take ten times as long where each thing costs the same, somewhat more where it sorts or
# outgrows the caches of the processor (a tree of a million leaves is given back in 27 times the time), and a hundred
# times where each thing looks at all others. In between.
MOST_TIME_RATIO = 50
# Less than that many seconds says more about the machine than about the program.
LEAST_SECONDS = 0.01
# Blocks that grow by doubling are up to twice as large as what is in them.
MOST_MEMORY_RATIO = 20
LEAST_BYTES = 8_000_000
LONGEST = 3600
MEGA = 1_000_000


class Failed(Exception):
    """Ends the script with this line."""


def end_with_parent():
    """In a child: it ends in order, and takes its regions along, should the script be killed."""
    set_parent_death_signal = 1
    ctypes.CDLL(None).prctl(set_parent_death_signal, signal.SIGTERM)


def semaphore_key(key):
    """The System V key of a region, as docs/memory-format.md has it, but for the one text whose sum is zero."""
    return int.from_bytes(hashlib.sha256((key + "Semaphore").encode()).digest()[:4], "big")


def semaphore_sets():
    """The System V keys of all sets that are there."""
    with open("/proc/sysvipc/sem", encoding="ascii") as sets:
        return {int(line.split()[0]) & 0xFFFFFFFF for line in sets.readlines()[1:]}


@dataclasses.dataclass
class Run:
    """A program from its start to its end. The seconds are those of the processor."""

    code: int
    seconds: float
    peak: int
    output: str
    error: str


def _take_many_words():
    """The system lets the arguments of a program have a quarter of what its stack may become, 6 MiB at most."""
    end_with_parent()
    resource.setrlimit(resource.RLIMIT_STACK, (32 << 20, resource.getrlimit(resource.RLIMIT_STACK)[1]))


def run(command, has_many_words=False):
    with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as error:
        with subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=output, stderr=error,
                              start_new_session=True,
                              preexec_fn=_take_many_words if has_many_words else end_with_parent) as process:
            try:
                _, status, usage = os.wait4(process.pid, 0)
            except BaseException:
                process.send_signal(signal.SIGTERM)
                process.wait()
                raise
            process.returncode = os.waitstatus_to_exitcode(status)
        # The tool prints a million lines: the first ones say whether it is what was asked for.
        output.seek(0)
        error.seek(0)
        return Run(process.returncode, usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024,
                   output.read(1 << 20).decode(errors="replace"), error.read(1 << 20).decode(errors="replace"))


def steps_of(run_, name):
    """Steps with their seconds: those that the program tells of, or all of it as one, under `name`."""
    told = re.findall(r"^(\w+) ([0-9.]+)$", run_.output, re.M) if name is None else []
    return [(step, float(seconds)) for step, seconds in told] or [(name, run_.seconds)]


def time_ratio(smaller, larger):
    return larger / max(smaller, LEAST_SECONDS)


def memory_ratio(smaller, larger, base):
    """Of what is above `base`, which a program takes for nothing."""
    return max(larger - base, 0) / max(smaller - base, LEAST_BYTES)


def faults_of_time(what, smaller, larger):
    ratio = time_ratio(smaller, larger)
    return [] if ratio <= MOST_TIME_RATIO else [
        f"{what}: {larger:.2f} s after {smaller:.2f} s for a tenth, {ratio:.0f} times as long; at most {MOST_TIME_RATIO}"]


def faults_of_memory(what, smaller, larger, base):
    ratio = memory_ratio(smaller, larger, base)
    return [] if ratio <= MOST_MEMORY_RATIO else [
        f"{what}: {larger // MEGA} MB after {smaller // MEGA} MB for a tenth, {ratio:.0f} times as much above the "
        f"{base // MEGA} MB of a program that does nothing; at most {MOST_MEMORY_RATIO}"]
