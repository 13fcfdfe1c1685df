"""Whether processes that use the library for long take ever more. See script/soak-library."""

import argparse
import ctypes
import json
import mmap
import os
import pathlib
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time

import judging
import looking

TOOL = os.environ["TESSEL_TOOL"]
SOAK = os.environ["TESSEL_SOAK"]
# Without one everybody's semaphores and segments count as well, and come and go as they like.
HAS_OWN_WORLD = "TESSEL_OWN_WORLD" in os.environ
PLANTS = ["memory", "descriptor", "mapping", "semaphore", "segment", "torn", "older"]
MOST_PERIODS = 60
FEWEST_PERIODS = 20
# Of each process in each period, however short: what has done nothing cannot have leaked.
LEAST_ROUNDS = 3
# Seconds behind the end of a period, and for the end: more than five seconds, the bound of any lock, on a busy machine.
LONGEST_STANDSTILL = 120
SETS_OF_RECORDING = 100
NOTHING_THERE = 3
BOARD_WORDS = 64


class Failed(Exception):
    """Ends the script with these lines."""


class Ended(BaseException):
    """A signal has asked for the end."""


def end(number, _frame):
    raise Ended(128 + number)


def _end_with_parent():
    """In a child: it ends too, should the script be killed."""
    set_parent_death_signal = 1
    ctypes.CDLL(None).prctl(set_parent_death_signal, signal.SIGTERM)


class Board:
    """What the script and the processes tell each other; see tests/soak/SoakBoard.h."""

    def __init__(self, file):
        with open(file, "wb+") as board:
            board.truncate(8 * BOARD_WORDS)
            self._words = mmap.mmap(board.fileno(), 8 * BOARD_WORDS)

    def _set(self, word, value):
        struct.pack_into("=Q", self._words, 8 * word, value)

    def ask_to_end(self):
        self._set(0, 1)

    def begin_period(self, number):
        self._set(1, number)

    def rounds(self, slot):
        return struct.unpack_from("=Q", self._words, 8 * (2 + slot))[0]


class Process:
    """One that runs until the end."""

    def __init__(self, name, command, folder, slot=None):
        self.name = name
        self.slot = slot
        self.figures = looking.Lowest()
        self._log = folder / f"{name.replace(' ', '-')}.log"
        with open(self._log, "wb") as log:
            self.popen = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=log,
                                          stderr=log, start_new_session=True, preexec_fn=_end_with_parent)

    def last_words(self):
        lines = self._log.read_text(encoding="utf-8", errors="replace").strip().splitlines()
        return lines[-1] if lines else "it said nothing"

    def kill(self):
        if self.popen.poll() is None:
            self.popen.kill()
            self.popen.wait()


class Soak:
    def __init__(self, folder, key, words):
        self._folder = folder
        self._words = words
        self._keys = {name: f"{key}{number}" for number, name in enumerate(
            ["steady double", "steady single", "changing double", "changing single"])}
        self._board = Board(folder / "board")
        self._processes = []
        self._recording = None
        self.recordings = 0
        self._world = looking.Lowest()
        self.periods = 0

    # Beginning.

    def start(self):
        for buffers in ("double", "single"):
            self._start_peer("owner", f"steady {buffers}")
            # Who leaves and comes most has most to lose.
            self._start_peer("visitor", f"steady {buffers}",
                             self._words.plant if buffers == "double" else [])
            self._start_peer("creator", f"changing {buffers}", [
                plant for plant in self._words.plant if plant in ("torn", "older") and buffers == "double"])
            self._start_peer("writer", f"changing {buffers}")
            self._start_peer("reader", f"changing {buffers}")
        self._start_peer("watcher", "changing double")
        self._start_recorders()

    def _start_peer(self, role, region, plants=()):
        slot = len(self._processes)
        command = [SOAK, role, self._keys[region], region.split()[1], slot, self._folder, *plants]
        self._processes.append(Process(f"{role} {region}", command, self._folder, slot))

    def _start_recorders(self):
        key = self._keys["steady double"]
        description = subprocess.run([SOAK, "--description", key, "double"], capture_output=True, text=True,
                                     check=True).stdout
        self._description = self._folder / "region.process.json"
        self._description.write_text(description, encoding="utf-8")
        waited = subprocess.run([TOOL, "wait", "--timeout", str(LONGEST_STANDSTILL), self._description],
                                capture_output=True, text=True, check=False)
        if waited.returncode != 0:
            raise Failed(f"no set comes: {waited.stderr.strip()}")
        self._processes.append(Process("recorder", [
            TOOL, "record", "--ring", "1s", "-o", self._folder / "ring.rec", self._description], self._folder))
        self._start_recording()

    def _start_recording(self):
        self._recording = Process("recording", [
            TOOL, "record", "--json", "--force", "--sets", SETS_OF_RECORDING, "-o", self._folder / "sets.rec",
            self._description], self._folder)

    # Running.

    def run(self):
        seconds = self._words.minutes * 60
        periods = min(max(round(self._words.minutes), FEWEST_PERIODS), MOST_PERIODS)
        for number in range(1, periods + 1):
            self._board.begin_period(number)
            self._run_period(seconds / periods, lambda: True)
            self._show(number, periods)
        self._run_period(0, lambda: self.recordings > 0, is_counted=False)

    def _run_period(self, seconds, is_enough, is_counted=True):
        begin = time.monotonic()
        before = {process.slot: self._rounds(process) for process in self._processes}
        while True:
            self._look()
            passed = time.monotonic() - begin
            still = [process.name for process in self._processes if process.slot is not None and is_counted
                     and self._rounds(process) < before[process.slot] + LEAST_ROUNDS]
            if passed >= seconds and not still and is_enough():
                break
            if passed > seconds + LONGEST_STANDSTILL:
                raise Failed(f"for {LONGEST_STANDSTILL} s nothing is done by {', '.join(still) or 'recording'}")
            time.sleep(min(1, max(seconds / 10, 0.01)))
        if is_counted:
            for lowest in self._all_figures():
                lowest.close_period()
            self.periods += 1

    def _rounds(self, process):
        return 0 if process.slot is None else self._board.rounds(process.slot)

    def _all_figures(self):
        return [self._world, *(process.figures for process in self._processes)]

    def _look(self):
        for process in self._processes:
            code = process.popen.poll()
            if code is not None:
                raise Failed(f"{process.name} has ended by itself, with {code}: {process.last_words()}")
            process.figures.look(looking.of_process(process.popen.pid))
        if HAS_OWN_WORLD:
            self._world.look(looking.of_world())
        self._look_at_recording()

    def _look_at_recording(self):
        code = self._recording.popen.poll()
        if code is None:
            return
        report = self._recording.last_words()
        if code != 0 or json.loads(report)["sets"] != SETS_OF_RECORDING:
            raise Failed(f"a recording has ended with {code}: {report}")
        self.recordings += 1
        self._start_recording()

    def _show(self, number, periods):
        memory = sum(process.figures.last("memory") for process in self._processes)
        line = (f"[{number} of {periods}] {self._told_rounds()}, {self.recordings} recordings; "
                f"{memory / 1024:.1f} MiB in {len(self._processes)} processes")
        if sys.stderr.isatty():
            sys.stderr.write(f"\r\033[K{line}")
        elif number == periods or self._words.minutes >= FEWEST_PERIODS:
            sys.stderr.write(f"{line}\n")
        sys.stderr.flush()

    def _told_rounds(self):
        return f"{sum(self._rounds(process) for process in self._processes):,} rounds"

    # The end.

    def stop(self):
        """Everybody ends in order, recorders before their region; the lines tell who did not."""
        recorders = [process for process in self._processes if process.slot is None]
        for process in recorders:
            process.popen.terminate()
        lines = self._wait_for_ends(recorders)
        if self._recording:
            self._recording.kill()
        self._board.ask_to_end()
        return lines + self._wait_for_ends([process for process in self._processes if process.slot is not None])

    def _wait_for_ends(self, processes):
        lines = []
        latest = time.monotonic() + LONGEST_STANDSTILL
        for process in processes:
            try:
                code = process.popen.wait(max(latest - time.monotonic(), 0))
            except subprocess.TimeoutExpired:
                lines.append(f"{process.name} does not end")
                continue
            # A recorder that has just begun does not listen to signals yet.
            if code != 0 and not (code == -signal.SIGTERM and self.periods == 0):
                lines.append(f"{process.name} ends with {code}: {process.last_words()}")
        return lines

    def kill(self):
        for process in [*self._processes, self._recording]:
            if process:
                process.kill()

    def left(self):
        """What is there still, after the end; a line each."""
        lines = []
        for key in self._keys.values():
            looked = subprocess.run([TOOL, "rm", "--dry-run", key], capture_output=True, text=True, check=False)
            if looked.returncode != NOTHING_THERE:
                lines.append(f"left behind: {(looked.stdout + looked.stderr).strip()}")
                subprocess.run([TOOL, "rm", "--force", key], capture_output=True, check=False)
        if HAS_OWN_WORLD:
            for kind, count in looking.of_world().items():
                if count:
                    lines.append(f"left behind: {count} {judging.WORLD[kind].name}")
        return lines

    def growth(self):
        lines = []
        for process in self._processes:
            lines += judging.faults(process.name, judging.PROCESS, process.figures.series)
        return lines + judging.faults("the system", judging.WORLD, self._world.series)

    def table(self):
        rows = [f"{'growth behind the first tenth of the time':42} {'memory':>12} {'descriptors':>12} {'mappings':>9}"]
        for process in self._processes:
            grown = {kind: judging.growth(values) for kind, values in process.figures.series.items()}
            rows.append(f"{process.name:42} {grown['memory']:+8g} KiB {grown['descriptor']:+12g} "
                        f"{grown['mapping']:+9g}")
        for kind, values in self._world.series.items():
            rows.append(f"{judging.WORLD[kind].name:42} {judging.growth(values):+12g}")
        if not HAS_OWN_WORLD:
            rows.append("semaphore sets and segments are not judged: others have some as well; run it as root")
        return rows + [f"{self._told_rounds()} and {self.recordings} recordings in {self.periods} periods"]


def soak(words, folder):
    """The lines of all faults, and the exit code of a signal."""
    work = Soak(folder, f"tesselSoakLibrary{os.getpid()}r", words)
    faults = []
    code = 0
    try:
        try:
            work.start()
            work.run()
        except Ended as ended:
            code = ended.args[0]
        except Failed as failed:
            faults.append(str(failed))
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)
        if sys.stderr.isatty():
            sys.stderr.write("\r\033[K")
        # Behind a fault the others end as they can.
        ends = work.stop()
        faults = faults or ends
    finally:
        work.kill()
    if work.periods >= judging.LEAST_PERIODS:
        print("\n".join(work.table()))
        faults += work.growth()
        code = 0
    elif code and not faults:
        print(f"ended after {work.periods} periods: growth is judged from {judging.LEAST_PERIODS} on")
    left = work.left()
    return faults or left, code


def parsed_words():
    parser = argparse.ArgumentParser(prog="script/soak-library", add_help=False)
    parser.add_argument("--minutes", type=float, default=60)
    parser.add_argument("--plant", action="append", choices=PLANTS, default=[])
    words = parser.parse_args()
    if not 0 < words.minutes <= 10080:
        parser.error("--minutes wants a number above 0, up to 10080")
    if not HAS_OWN_WORLD and {"semaphore", "segment"} & set(words.plant):
        parser.error("semaphores and segments are judged in a world of its own alone: run it as root")
    return words


def main():
    words = parsed_words()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, end)
    folder = pathlib.Path(tempfile.mkdtemp(prefix="tessel-soak"))
    try:
        faults, code = soak(words, folder)
    finally:
        shutil.rmtree(folder)
    for fault in faults:
        print(f"script/soak-library: {fault}", file=sys.stderr)
    if not faults and not code:
        print("nothing grows, and no set was torn or older")
    return 1 if faults else code


if __name__ == "__main__":
    sys.exit(main())
