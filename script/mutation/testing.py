"""The tests: which there are, what each reaches, and whether one notices a change."""

import json
import mmap
import os
import re
import resource
import shutil
import signal
import subprocess
import threading
import time

from scanning import Failure

# A world of its own: memory, semaphores and processes of a changed program go with it. The shell
# stays, because the first process of such a world does not get all signals that it sends to itself.
ENTER = ["unshare", "--ipc", "--mount", "--pid", "--fork", "--mount-proc", "--kill-child", "sh", "-c"]
PRIVATE = 'mount -t tmpfs -o mode=1777 tmpfs /dev/shm && "$@"; exit $?'


class Test:
    """A program of the build that knows the changes or one that only loads the library with them."""

    def __init__(self, name, command, folder, environment):
        self.name = name
        self.command = command
        self.folder = folder
        self.environment = environment
        self.seconds = 0.0
        self.reached = set()  # numbers of the changes

    def key(self):
        """Changes with the program."""
        status = os.stat(self.command[0])
        return f"{self.name} {status.st_size} {status.st_mtime_ns}"


def is_own_world_possible():
    return shutil.which("unshare") and subprocess.run(
        [*ENTER, PRIVATE, "sh", "true"], capture_output=True, check=False
    ).returncode == 0  # fmt: skip


def test_list(build, folders, names):
    """The tests of the folders of the build that match, which CTest tells of, and whose programs are there."""
    done = subprocess.run(
        ["ctest", "--show-only=json-v1", "--test-dir", build], capture_output=True, text=True, check=False
    )
    if done.returncode != 0:
        raise Failure(f"CTest has no list of tests in {build}: {done.stderr}")
    tests = []
    for entry in json.loads(done.stdout)["tests"]:
        properties = {p["name"]: p["value"] for p in entry.get("properties", [])}
        folder = properties.get("WORKING_DIRECTORY", build)
        command = entry.get("command")
        if not command or not os.path.exists(command[0]):
            continue
        if not re.fullmatch(folders, os.path.relpath(folder, build)) or not re.search(names, entry["name"]):
            continue
        environment = dict(pair.partition("=")[::2] for pair in properties.get("ENVIRONMENT", []))
        tests.append(Test(entry["name"], command, folder, environment))
    return tests


def programs_with_sources(commands, build, root, changed):
    """The names of the tests that compile files of src/ themselves, or include a changed header of it."""
    names, known = set(), {}
    for command in commands:
        # Not in all of the command, where the precompiled header is another program's.
        found = re.search(r"CMakeFiles/([^/]+)\.dir/", _output(command))
        if not found or os.path.relpath(command["directory"], build).startswith("src"):
            continue
        file = command["file"]
        if not re.match(r"tests/", os.path.relpath(_output(command), build)):
            continue
        if file[len(root) + 1 :] in changed or (
            file.startswith(f"{root}/tests/") and _includes(file, root, changed, known)
        ):
            names.add(found[1])
    return names


def _output(command):
    found = re.search(r" -o (\S+)", command["command"])
    return os.path.join(command["directory"], found[1] if found else "")


def _includes(file, root, changed, known):
    """Directly, or by another file of tests/."""
    if file not in known:
        known[file] = False
        with open(file, encoding="utf-8") as source:
            for name in re.findall(r'^#include "([^"]+)"', source.read(), re.M):
                near = os.path.normpath(os.path.join(os.path.dirname(file), name))
                if f"src/{name}" in changed:
                    known[file] = True
                for path in (near, f"{root}/tests/{name}"):
                    if os.path.isfile(path) and path.startswith(f"{root}/tests/"):
                        known[file] = known[file] or _includes(path, root, changed, known)
    return known[file]


def _begin_group():
    os.setpgid(0, 0)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


class Runner:
    """Runs tests with the changed library, several at once, each in a world of its own where that may be."""

    def __init__(self, work, libraries, number_of_notes):
        self.work = work
        self.libraries = libraries
        self.number_of_notes = number_of_notes
        self.is_own_world = is_own_world_possible()
        self.running = set()
        self.lock = threading.Lock()
        self.is_stopped = False

    def run(self, test, chosen, limit):
        """passed, failed or timeout, and the seconds that it took. @p chosen is what TESSEL_MUTANT says."""
        folder = f"{self.work}/worlds/{threading.get_ident()}"
        shutil.rmtree(folder, ignore_errors=True)
        os.makedirs(folder)
        environment = os.environ | test.environment
        environment["LD_LIBRARY_PATH"] = ":".join(self.libraries)
        environment["TMPDIR"] = folder
        environment["TESSEL_MUTANT"] = chosen
        command = [*ENTER, PRIVATE, "sh", *test.command] if self.is_own_world else test.command
        begin = time.monotonic()
        # Ctrl-C is for this script, which then ends what it started.
        process = subprocess.Popen(
            command, cwd=test.folder, env=environment, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, preexec_fn=_begin_group,
        )  # fmt: skip
        with self.lock:
            self.running.add(process)
        try:
            status = process.wait(limit)
            result = "passed" if status == 0 else "failed"
        except subprocess.TimeoutExpired:
            result = "timeout"
        finally:
            self._end(process)
            with self.lock:
                self.running.discard(process)
            shutil.rmtree(folder, ignore_errors=True)
        if self.is_stopped:
            raise KeyboardInterrupt
        return result, time.monotonic() - begin

    def _end(self, process):
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()

    def stop(self):
        with self.lock:
            self.is_stopped = True
            for process in self.running:
                try:
                    os.killpg(process.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass

    def learn(self, test, most_seconds):
        """What the test reaches and how long it takes. False if it does not pass as it stands."""
        notes = f"{self.work}/notes-{threading.get_ident()}"
        with open(notes, "wb") as file:
            file.write(bytes(self.number_of_notes + 1))
        result, test.seconds = self.run(test, notes, most_seconds)
        with open(notes, "rb") as file, mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as noted:
            test.reached = {number for number, byte in enumerate(noted) if ord(byte)}
        os.remove(notes)
        if result == "failed":
            result, test.seconds = self.run(test, "", most_seconds)
        return result == "passed"
