"""The programs that a script of this folder starts, and their end: nothing of them is left, however that
comes. The environment says where they are: TESSEL_BUILD is the folder of a build."""

import ctypes
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

BUILD = pathlib.Path(os.environ["TESSEL_BUILD"])
PROJECT = pathlib.Path(__file__).resolve().parents[2]
os.environ["TESSEL_TOOL"] = str(BUILD / "tools/tessel/tessel")
# What the tests share wants one; each program is started by its own path here.
os.environ.setdefault("TESSEL_EXIT", str(BUILD / "exits/mqtt/tessel-mqtt"))
sys.path += [str(PROJECT / "tests/exits"), str(PROJECT / "tests/exits/mqtt")]

from exits import TOOL, tool, wait_until  # noqa: E402 pylint: disable=wrong-import-position

# Also on a machine with much else to do.
LONGEST_END = 60
# The exit code of `tessel rm` where there is neither memory nor semaphores.
NOTHING_THERE = 3


class Failed(Exception):
    """Ends the script with this line."""


class Ended(BaseException):
    """A signal has asked for the end."""

    def __init__(self, number):
        super().__init__(number)
        self.number = number


def exit_program(name):
    """The program tessel-NAME; None where it is not built."""
    path = BUILD / "exits" / name / f"tessel-{name}"
    return path if path.exists() else None


def _end_with_parent():
    """In a child: it ends in order, and takes its region along, should this script be killed."""
    set_parent_death_signal = 1
    ctypes.CDLL(None).prctl(set_parent_death_signal, signal.SIGTERM)


class Part:
    """A program that runs until it is ended. Whatever it says is in its log."""

    def __init__(self, name, process, log):
        self.name = name
        self.process = process
        self._log = log

    def log(self):
        return self._log.read_text(encoding="utf-8", errors="replace")

    def has_said(self, text):
        return text in self.log()


class Parts:
    """All that run, in a folder for whatever they write. Use it with `with`; `key` is that of the region
    they share."""

    def __init__(self, key):
        self.key = key
        self.folder = None
        self._mark = f"TESSEL_PARTS={key}"
        self._parts = []
        self._things = []

    def __enter__(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, self._end)
        # Whoever is left alone by its parent becomes a child of this script, which waits for it.
        set_child_subreaper = 36
        ctypes.CDLL(None).prctl(set_child_subreaper, 1)
        name, _, value = self._mark.partition("=")
        os.environ[name] = value
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tessel-exits"))
        tempfile.tempdir = str(self.folder)
        os.environ["TMPDIR"] = str(self.folder)
        return self

    @staticmethod
    def _end(number, _frame):
        raise Ended(number)

    def __exit__(self, *_):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)
        for part in reversed(self._parts):
            self.end(part)
        for thing in reversed(self._things):
            thing.close()
        for process in self._marked():
            os.kill(process, signal.SIGKILL)
        self._reap()
        # Only what a killed creator has left.
        tool("rm", "--force", self.key)
        shutil.rmtree(self.folder)

    def closed(self, thing):
        """`thing` is closed at the end. A broker must not end before."""
        self._things.append(thing)
        return thing

    def start(self, name, *command, **options):
        log = self.folder / f"{name}.log"
        with open(log, "wb") as output:
            process = subprocess.Popen(
                [str(word) for word in command], stdin=subprocess.DEVNULL,
                **{"stdout": output, "stderr": output, **options},
                start_new_session=True, preexec_fn=_end_with_parent)
        part = Part(name, process, log)
        self._parts.append(part)
        return part

    def end(self, part):
        """Asks it, and waits until it has ended; gives its exit code."""
        if part in self._parts:
            self._parts.remove(part)
        if part.process.poll() is None:
            part.process.terminate()
        try:
            return part.process.wait(LONGEST_END)
        except subprocess.TimeoutExpired:
            os.killpg(part.process.pid, signal.SIGKILL)
            return part.process.wait()

    def check(self):
        """Fails if one of them has ended by itself; the broker first, as others end with it."""
        for thing in self._things:
            process = getattr(thing, "process", None)
            if process and process.poll() is not None:
                raise Failed(f"the broker has ended by itself, with {process.returncode}")
        for part in self._parts:
            if part.process.poll() is not None:
                last = (part.log().strip().splitlines() or ["it said nothing"])[-1]
                raise Failed(f"{part.name} has ended by itself, with {part.process.returncode}: {last}")

    def wait(self, condition, what):
        """Until it holds, as long as all of them run."""

        def holds():
            self.check()
            return condition()

        try:
            wait_until(holds, what)
        except AssertionError as error:
            raise Failed(str(error)) from error

    def _marked(self):
        """The processes that come from this script, whatever became of their parents."""
        found = []
        for entry in pathlib.Path("/proc").iterdir():
            if entry.name.isdigit() and int(entry.name) != os.getpid():
                try:
                    if self._mark.encode() in (entry / "environ").read_bytes().split(b"\0"):
                        found.append(int(entry.name))
                except OSError:
                    continue
        return found

    def _reap(self):
        end = time.monotonic() + LONGEST_END
        while self._marked() and time.monotonic() < end:
            try:
                os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                pass
            time.sleep(0.01)

    def left(self):
        """What is there still, after the end; a line each."""
        lines = [f"process {number}" for number in self._marked()]
        lines += [str(self.folder)] if self.folder.exists() else []
        looked = tool("rm", "--dry-run", self.key)
        if looked.returncode != NOTHING_THERE:
            lines.append((looked.stdout + looked.stderr).strip())
        return lines


def run(work):
    """Calls `work`, and ends the script as it says."""
    name = f"script/{pathlib.Path(sys.argv[0]).stem}"
    try:
        work()
    except Failed as failed:
        sys.exit(f"{name}: {failed}")
    except Ended as ended:
        sys.exit(128 + ended.number)
