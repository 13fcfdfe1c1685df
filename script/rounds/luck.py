"""Runs all tests round after round, many at once on one core beside a torture run. See script/luck."""

import argparse
import collections
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import threading
import time

# What shares a core with nine others and a torture run takes its time, and is no failure. What hangs
# still ends.
PATIENCE = 20
# A torture run is as long as that, and another follows with another seed.
TORTURE_SECONDS = 600
TORTURE = "the torture"
PASSED = "Passed"
# As ctest tells each test that is over.
ENDED = re.compile(r"\s*\d+/\d+ Test +#\d+: (?P<test>\S+) \.*(?: +|\*\*\*)(?P<outcome>\D+?)\s+(?P<seconds>[\d.]+) sec")


class Failure(Exception):
    """The reason why nothing can be told."""


class Results:
    """What became of each test in each round; a line in a file, so that an interrupted run goes on."""

    def __init__(self, path, keep):
        self._path = path
        self.outcomes = collections.defaultdict(dict)  # round -> test -> outcome
        if keep and path.exists():
            for line in path.read_text(encoding="utf-8").splitlines():
                entry = json.loads(line)
                self.outcomes[entry["round"]][entry["test"]] = entry["outcome"]
        else:
            path.write_text("", encoding="utf-8")

    def add(self, number, test, outcome, seconds):
        self.outcomes[number][test] = outcome
        with open(self._path, "a", encoding="utf-8") as file:
            entry = {"round": number, "test": test, "outcome": outcome, "seconds": seconds}
            file.write(json.dumps(entry) + "\n")

    def failed(self, number):
        return {test: outcome for test, outcome in self.outcomes[number].items() if outcome != PASSED}


class Torture:
    """One run after the other on the core, until it is told to end."""

    def __init__(self, program, core, log, failed):
        self._command = ["taskset", "--cpu-list", str(core), program, "--seconds", str(TORTURE_SECONDS)]
        self._log = log
        self._failed = failed
        self._is_over = False
        self._lock = threading.Lock()
        self._process = None
        self._thread = threading.Thread(target=self._repeat)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        with self._lock:
            self._is_over = True
            if self._process:
                self._process.send_signal(signal.SIGINT)
        self._thread.join()

    def _repeat(self):
        while True:
            with open(self._log, "ab") as log:
                with self._lock:
                    if self._is_over:
                        return
                    # A group of its own: Ctrl-C is for this program, which ends the torture itself.
                    self._process = subprocess.Popen(
                        self._command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True
                    )
                code = self._process.wait()
            if code not in (0, 128 + signal.SIGINT):
                self._failed(f"exit code {code}")
                # One that cannot even begin must not be begun a thousand times.
                time.sleep(1)


def list_tests(build, patterns):
    done = subprocess.run(
        ["ctest", "--show-only=json-v1", "--test-dir", build], capture_output=True, text=True, check=False
    )
    if done.returncode != 0 or not done.stdout:
        raise Failure(f"ctest has no list of tests in {build}: {done.stderr}")
    # Not by ctest, whose expressions have a bound that the names of a hundred tests reach.
    try:
        tests = [test for test in json.loads(done.stdout)["tests"]
                 if any(re.fullmatch(pattern, test["name"]) for pattern in patterns or [".*"])]
    except re.error as error:
        raise Failure(f"{' '.join(patterns)}: no regular expression: {error}") from error
    if not tests:
        raise Failure(f"no test is called {' or '.join(patterns)}; ctest --preset dev -N lists them")
    # ctest knows no command of a program that is not there.
    unbuilt = [test["name"] for test in tests if "command" not in test]
    if unbuilt:
        raise Failure(f"the program of {unbuilt[0]} is not built; build the preset dev first")
    return tests


def quoted(text):
    return '"' + re.sub(r'(["\\$])', r"\\\1", text) + '"'


def value_text(value):
    """A property as CMake wants it; a list is one text there."""
    if isinstance(value, list):
        return quoted(";".join(str(element).replace(";", "\\;") for element in value))
    return quoted(str(value))


def write_test_file(folder, tests):
    """The tests as ctest reads them, with more patience."""
    lines = []
    for test in tests:
        properties = {entry["name"]: entry["value"] for entry in test.get("properties", [])}
        if "TIMEOUT" in properties:
            properties["TIMEOUT"] *= PATIENCE
        lines.append(f"add_test({quoted(test['name'])} {' '.join(map(quoted, test['command']))})")
        for name, value in properties.items():
            lines.append(f"set_tests_properties({quoted(test['name'])} PROPERTIES {name} {value_text(value)})")
    (folder / "CTestTestfile.cmake").write_text("\n".join(lines) + "\n", encoding="utf-8")


def is_needed(test):
    """Others need what it makes, in a round that goes on as well."""
    return any(entry["name"] == "FIXTURES_SETUP" for entry in test.get("properties", []))


class Rounds:
    def __init__(self, options, tests, results):
        self._options = options
        self._tests = tests
        self._results = results
        self._work = options.work

    def play(self, number):
        """One round; what an earlier run has of it stays."""
        known = self._results.outcomes[number]
        due = [test for test in self._tests if test["name"] not in known]
        if not due:
            return
        begin = time.monotonic()
        write_test_file(self._work, due + [test for test in self._tests if test not in due and is_needed(test)])
        torture_log = self._work / f"round-{number}.torture.log"
        torture_failed = lambda reason: self._results.add(number, TORTURE, reason, 0)  # noqa: E731
        torture = self._options.build / "tests/torture/torture"
        try:
            with Torture(torture, self._options.core, torture_log, torture_failed):
                self._run(number, due)
        finally:
            self._keep_logs(number, torture_log)
        self._tell(number, time.monotonic() - begin)

    def _run(self, number, due):
        command = ["taskset", "--cpu-list", str(self._options.core), "ctest", "--test-dir", str(self._work),
                   "--parallel", str(self._options.jobs)]  # fmt: skip
        with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True) as ctest:
            try:
                for line in ctest.stdout:
                    self._read(number, line)
            except KeyboardInterrupt:
                # The terminal has told ctest as well, which ends its tests.
                ctest.send_signal(signal.SIGINT)
                raise
        self._show("")
        untold = [test["name"] for test in due if test["name"] not in self._results.outcomes[number]]
        for test in untold:
            self._results.add(number, test, "ctest told nothing of it", 0)

    def _read(self, number, line):
        ended = ENDED.match(line)
        if not ended or ended["test"] in self._results.outcomes[number]:
            return
        self._results.add(number, ended["test"], ended["outcome"].strip(), float(ended["seconds"]))
        told = len(self._results.outcomes[number].keys() - {TORTURE})
        self._show(f"[round {number}/{self._options.rounds}, {told} of {len(self._tests)} tests] "
                   f"{len(self._results.failed(number))} failed")  # fmt: skip

    def _keep_logs(self, number, torture_log):
        """What was said stays where something failed."""
        failed = self._results.failed(number)
        if any(test != TORTURE for test in failed):
            # An interrupted ctest leaves it under the name that it has while tests run.
            for said in (self._work / "Testing/Temporary").glob("LastTest.log*"):
                said.rename(self._work / f"round-{number}.tests.{time.time_ns()}.log")
        if TORTURE not in failed:
            torture_log.unlink(missing_ok=True)

    def _tell(self, number, seconds):
        failed = self._results.failed(number)
        names = ": " + ", ".join(sorted(failed)) if failed else ""
        print(f"round {number}: {len(self._tests)} tests in {seconds:.0f} s, {len(failed)} failed{names}", flush=True)

    @staticmethod
    def _show(text):
        if sys.stderr.isatty():
            print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


def summarise(results, rounds, work):
    """What failed in which rounds, and how. The exit code."""
    failed = collections.defaultdict(list)
    for number in range(1, rounds + 1):
        for test, outcome in results.failed(number).items():
            failed[test].append(f"{number} ({outcome})")
    for test, told in sorted(failed.items(), key=lambda entry: (-len(entry[1]), entry[0])):
        print(f"{test}: failed in {len(told)} of {rounds} rounds: {', '.join(told)}")
    if failed:
        print(f"What they said: {work}/round-*.log. One alone, often: script/hammer TEST")
    return 1 if failed else 0


def parse_arguments():
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--rounds", type=int, default=50)
    parser.add_argument("--jobs", type=int, default=10)
    parser.add_argument("--core", type=int, default=0)
    parser.add_argument("--resume", action="store_true")
    parser.add_argument("patterns", nargs="*")
    return parser.parse_args()


def main():
    options = parse_arguments()
    if options.core not in os.sched_getaffinity(0):
        raise Failure(f"processor {options.core} is not one of this machine's; --core wants another number")
    options.work.mkdir(parents=True, exist_ok=True)
    if not options.resume:
        for log in options.work.glob("round-*.log"):
            log.unlink()
    tests = list_tests(options.build, options.patterns)
    results = Results(options.work / "results.jsonl", options.resume)
    rounds = Rounds(options, tests, results)
    for number in range(1, options.rounds + 1):
        rounds.play(number)
    return summarise(results, options.rounds, options.work)


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failure as failure:
        sys.exit(f"script/luck: {failure}")
    except KeyboardInterrupt:
        sys.exit(130)
