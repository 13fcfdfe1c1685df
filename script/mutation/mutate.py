#!/usr/bin/python3
"""What script/mutate runs; its help is there."""

import argparse
import concurrent.futures
import hashlib
import os
import pickle
import random
import signal
import sys
import time

import building
import listing
import results
import scanning
import testing
from scanning import Failure

ROOT_OF_SCRIPT = os.path.dirname(os.path.abspath(__file__))
NEEDED_SHARE = 95.0


class Progress:
    """One line that is written over on a terminal, a line every ten seconds elsewhere."""

    def __init__(self):
        self.is_terminal = sys.stderr.isatty()
        self.told = 0.0
        self.width = 0

    def __call__(self, text):
        now = time.monotonic()
        if now - self.told < (0.2 if self.is_terminal else 10):
            return
        self.told = now
        if self.is_terminal:
            sys.stderr.write("\r" + text.ljust(self.width))
            self.width = len(text)
        else:
            sys.stderr.write(text + "\n")
        sys.stderr.flush()

    def clear(self):
        if self.is_terminal and self.width:
            sys.stderr.write("\r" + " " * self.width + "\r")
            self.width = 0


class Run:
    """Chosen changes, built once, and each given to the tests that reach it."""

    def __init__(self, options):
        self.options = options
        self.tell = Progress()
        self.kept = results.Results(f"{options.work}/results.jsonl")
        self.equivalents = results.Equivalents(options.equivalents)
        self.refused = building.Refused(f"{options.work}/refused.json")
        self.unsteady = set()
        self.places = []
        self.chosen = []
        self.own = set()  # tests that are built with the changes
        self.tests = []
        self.kills = {}
        self.listing = listing.Listing(options.project, options.orders) if options.orders else None

    def find(self):
        options = self.options
        rooms = scanning.rooms_of(options.project)
        for room in options.room:
            if room not in rooms:
                raise Failure(f"there is no room called '{room}'; there are: {' '.join(sorted(rooms))}")
        chosen = options.room or sorted(rooms)
        self.places = scanning.scan(options.project, options.tests, options.work, chosen, options.jobs, self.tell)

    def build(self):
        """The compiler is asked until it takes all of them; others stand in for those it refuses."""
        options = self.options
        _, commands = scanning.compiled_sources(options.tests, options.project)
        tree = building.Tree(options.project, options.work, options.preset, [])
        while True:
            self.chosen = scanning.choose(self.places, options.seed, options.count, self.refused.ids)
            changed = {place.file for place in self.chosen}
            self.own = testing.programs_with_sources(commands, options.tests, options.project, changed)
            known = {t.name for t in testing.test_list(options.tests, options.folders, options.names)}
            self.own &= known
            tree.targets = [options.library, *sorted(self.own)]
            tree.write(self.chosen)
            tree.configure()
            refused = tree.compile(self.chosen, options.jobs, self.tell)
            if not refused:
                break
            self.refused.add(refused)
        self.tree = tree

    def learn(self):
        """Every test runs once, to see what it reaches; kept as long as neither it nor a change is another."""
        options = self.options
        tests = testing.test_list(options.tests, options.folders, options.names)
        if not tests:
            raise Failure(f"no test of {options.tests} is chosen, or none is built")
        for test in tests:
            if test.name in self.own:
                test.command[0] = self.tree.build + test.command[0][len(options.tests) :]
        libraries = sorted({os.path.dirname(p) for p in self._libraries()})
        self.runner = testing.Runner(options.work, libraries, len(self.places))
        kept = self._kept_coverage()
        state = hashlib.sha1("\n".join(p.id for p in self.chosen).encode()).hexdigest()
        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            runs = {}
            for test in tests:
                key = f"{test.key()} {state}"
                if key in kept:
                    test.seconds, test.reached, passed = kept[key]
                    if passed:
                        self.tests.append(test)
                else:
                    runs[pool.submit(self.runner.learn, test, options.longest)] = (test, key)
            try:
                for done, run in enumerate(concurrent.futures.as_completed(runs), 1):
                    test, key = runs[run]
                    passed = run.result()
                    kept[key] = (test.seconds, test.reached, passed)
                    if passed:
                        self.tests.append(test)
                    else:
                        self.tell.clear()
                        sys.stderr.write(f"left out, since it does not pass without a change: {test.name}\n")
                    self.tell(f"seeing what tests reach: {done} of {len(runs)}")
            except KeyboardInterrupt:
                self.runner.stop()
                raise
            finally:
                with open(f"{options.work}/coverage.pickle", "wb") as file:
                    pickle.dump(kept, file)

    def _libraries(self):
        for folder, _, names in os.walk(self.tree.build):
            for name in names:
                if name.startswith(f"lib{self.options.library}.so"):
                    yield os.path.join(folder, name)

    def _kept_coverage(self):
        try:
            with open(f"{self.options.work}/coverage.pickle", "rb") as file:
                return pickle.load(file)
        except (OSError, EOFError, pickle.UnpicklingError):
            return {}

    def reaching(self, place):
        """Those that killed a change of this file before, then those of the room, then the quickest."""
        room = scanning.room_of(place.file).split("/")[0]
        tests = [test for test in self.tests if place.number in test.reached]
        return sorted(
            tests,
            key=lambda t: (t.seconds * (0.3 if self.kills.get((place.file, t.name)) else 1), t.name)
            if f"/{room}" in t.folder
            else (t.seconds + 2, t.name),
        )

    def judge(self, place):
        """What became of the change, and by whom: what the tests let pass, the list of memory orders may not."""
        result, more = self.judge_by_tests(place)
        if result not in results.NOTICED and self.listing and self.listing.notices(place):
            result = "listed"
        return result, more

    def judge_by_tests(self, place):
        tests = self.reaching(place)
        if not tests:
            return "unreached", {"reaching": 0}
        begin = time.monotonic()
        for test in tests:
            limit = 5 * test.seconds + 5
            result, _ = self.runner.run(test, str(place.number), limit)
            while result == "timeout" and not self.is_quick(test, limit):
                limit = 5 * test.seconds + 5
                result, _ = self.runner.run(test, str(place.number), limit)
            if result == "failed":
                # One that fails by chance is no witness.
                result, _ = self.runner.run(test, str(place.number), limit)
                if result == "passed":
                    self.unsteady.add(test.name)
            if result != "passed":
                self.kills[place.file, test.name] = True
                word = "timeout" if result == "timeout" else "killed"
                return word, {"test": test.name, "reaching": len(tests), "seconds": round(time.monotonic() - begin, 2)}
        return "survived", {"reaching": len(tests), "seconds": round(time.monotonic() - begin, 2)}

    def is_quick(self, test, limit):
        """Whether the test takes so little without a change at this very time as @p limit supposes. Where others
        keep the machine busy it does not, and is known as slower from then on."""
        _, seconds = self.runner.run(test, "", limit)
        if 5 * seconds + 5 <= limit:
            return True
        test.seconds = max(test.seconds, seconds)
        return False

    def judge_all(self):
        waiting = [p for p in self.chosen if self._is_waiting(p)]
        begin = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(self.options.jobs) as pool:
            runs = {pool.submit(self.judge, place): place for place in waiting}
            try:
                for done, run in enumerate(concurrent.futures.as_completed(runs), 1):
                    result, more = run.result()
                    self.kept.add(runs[run], result, **more)
                    spent = time.monotonic() - begin
                    left = spent / done * (len(runs) - done)
                    self.tell(
                        f"{done} of {len(runs)} changes, {done / spent * 60:.0f} a minute,"
                        f" {left / 60:.0f} min left, {self._so_far()}"
                    )
            except KeyboardInterrupt:
                self.runner.stop()
                pool.shutdown(wait=False, cancel_futures=True)
                raise

    def _so_far(self):
        found = [entry["result"] for entry in self.kept.by_id.values()]
        words = ("killed", "timeout", "listed", "survived", "unreached")
        return ", ".join(f"{found.count(word)} {word}" for word in words)

    def _is_waiting(self, place):
        entry = self.kept.by_id.get(place.id)
        if entry is None:
            return self.equivalents.reason(place) is None
        if entry["result"] in results.NOTICED:
            return False
        return self.options.survivors and self.equivalents.reason(place) is None

    def report(self):
        self.equivalents.stale.clear()
        rows, survivors = results.count(self.chosen, self.kept, self.equivalents)
        self.tell.clear()
        if survivors:
            print(results.tell_survivors(survivors, self.options.project) + "\n")
        for entry in self.equivalents.stale:
            print(f"{entry['file']}: {entry['function']} is another one since somebody looked at: {entry['change']}")
        if self.unsteady:
            print("failed once and then not again, so no witness:", " ".join(sorted(self.unsteady)))
        refused = sum(place.id in self.refused.ids for place in self.places)
        print(f"{len(self.places)} places, {len(self.chosen)} chosen, {refused} that do not compile;", end=" ")
        print(f"{len(self.tests)} tests; seed {self.options.seed}\n")
        print(results.table(rows))
        part = results.share(rows["all"])
        return 0 if rows["all"]["open"] == 0 and (part is None or part >= NEEDED_SHARE) else 1


def show_entry(run, ident):
    """For the list of equivalent changes."""
    for place in run.places:
        if place.id.startswith(ident):
            print(results.as_entry(place))
            return 0
    raise Failure(f"no change is called '{ident}'")


def number(least):
    def take(text):
        if not text.isdigit() or int(text) < least:
            raise Failure(f"a number from {least} is wanted, not '{text}'")
        return int(text)

    return take


class Words(argparse.ArgumentParser):
    def error(self, message):
        raise Failure(f"{message}; see script/mutate --help")


def options_of(words):
    parser = Words(add_help=False, allow_abbrev=False)
    parser.add_argument("--count", type=number(0), default=None)
    parser.add_argument("--seed", type=number(0), default=None)
    parser.add_argument("--jobs", type=number(1), default=os.cpu_count())
    parser.add_argument("--room", action="append", default=[])
    parser.add_argument("--resume", action="store_true")
    parser.add_argument("--survivors", action="store_true")
    parser.add_argument("--entry")
    # What script/mutate says of the project.
    parser.add_argument("--project", required=True)
    parser.add_argument("--tests", required=True)
    parser.add_argument("--work", required=True)
    parser.add_argument("--library", required=True)
    parser.add_argument("--equivalents", required=True)
    parser.add_argument("--orders", default="")
    parser.add_argument("--folders", default=".*")
    parser.add_argument("--names", default="")
    parser.add_argument("--longest", type=number(1), default=30)
    parser.add_argument("--preset", default="")
    options = parser.parse_args(words)
    for name in ("project", "tests", "work"):
        setattr(options, name, os.path.realpath(getattr(options, name)))
    return options


def with_kept_choice(run):
    """Seed, count and rooms of the run that is gone on with; otherwise new ones."""
    options = run.options
    if options.resume or options.survivors:
        kept = run.kept.load().run
        if not kept:
            raise Failure("there is no run to go on with; leave --resume and --survivors out")
        for name in ("seed", "count", "room"):
            if getattr(options, name) not in (None, [], kept[name]):
                raise Failure(f"the run to go on with has another --{name}: {kept[name]}")
            setattr(options, name, kept[name])
        return
    if options.count is None:
        options.count = 600
    if options.seed is None:
        options.seed = random.SystemRandom().randrange(1, 1000000)
    run.kept.begin({"seed": options.seed, "count": options.count, "room": options.room})


def main(words):
    options = options_of(words)
    os.makedirs(options.work, exist_ok=True)
    try:
        run = Run(options)
    except ValueError as error:
        raise Failure(str(error)) from error
    if options.entry:
        run.find()
        return show_entry(run, options.entry)
    with_kept_choice(run)
    print(f"seed {options.seed}", flush=True)
    run.find()
    run.build()
    run.learn()
    run.judge_all()
    return run.report()


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        sys.exit(main(sys.argv[1:]))
    except Failure as failure:
        sys.stderr.write(f"script/mutate: {failure}\n")
        sys.exit(2)
    except KeyboardInterrupt:
        sys.stderr.write("\nscript/mutate: ended early; script/mutate --resume goes on\n")
        sys.exit(130)
