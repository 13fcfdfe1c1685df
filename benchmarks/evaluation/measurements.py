"""What the benchmark programs measured, gathered by row and side."""

import json
import re
import statistics

# What Google Benchmark appends to the name that a row was given.
SUFFIX = re.compile(
    r"/(iterations|repeats|min_time|min_warmup_time|threads):[^/]*|/(manual|real|process)_time")
NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
# What a repetition holds beside its counters.
OWN_KEYS = frozenset((
    "name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions",
    "repetition_index", "threads", "iterations", "real_time", "cpu_time", "time_unit", "label",
    "error_occurred", "error_message"))


class Measurements:
    """Times in nanoseconds and counters, one figure for each repetition."""

    def __init__(self):
        self.errors = []
        self._times = {}
        self._counters = {}

    def add(self, result):
        """Takes one program's result in, as its JSON holds it."""
        for run in result["benchmarks"]:
            if run.get("run_type", "iteration") == "iteration":
                self._add_run(run)

    def _add_run(self, run):
        name = SUFFIX.sub("", run["name"])
        if run.get("error_occurred"):
            error = f"{name}: {run.get('error_message', 'no reason given')}"
            if error not in self.errors:
                self.errors.append(error)
            return
        self._times.setdefault(name, []).append(time_of(run))
        for key, value in run.items():
            if key not in OWN_KEYS:
                self._counters.setdefault((name, key), []).append(value)

    def names(self):
        return sorted(self._times)

    def repetitions(self, name):
        return len(self._times.get(name, ()))

    def time(self, name):
        """The median over the repetitions; None if the row did not run."""
        times = self._times.get(name)
        return statistics.median(times) if times else None

    def spread(self, name):
        """Half of the repetitions lie within this part of the median above or below it."""
        times = self._times.get(name, ())
        if len(times) < 3:
            return None
        low, middle, high = statistics.quantiles(times, n=4)
        return (high - low) / 2 / middle

    def worst_counter(self, name, counter):
        """The largest figure of all repetitions; None if there is none."""
        return max(self._counters.get((name, counter), ()), default=None)

    def sides(self, row):
        """What stands beside Tessel in this row, and ran."""
        prefix = row + "/"
        return [name[len(prefix):] for name in self.names()
                if name.startswith(prefix) and "/" not in name[len(prefix):]]

    def ratio(self, row, side):
        """Tessel's time by that of the side; None if one of them did not run."""
        tessel, other = self.time(f"{row}/tessel"), self.time(f"{row}/{side}")
        return tessel / other if tessel is not None and other else None


def time_of(run):
    """Processor time, which does not count what other programs take, unless the row asks for
    another clock."""
    waits = "/manual_time" in run["name"] or "/real_time" in run["name"]
    return run["real_time" if waits else "cpu_time"] * NANOSECONDS[run["time_unit"]]


def load(paths):
    measurements = Measurements()
    for path in paths:
        with open(path, encoding="utf-8") as file:
            measurements.add(json.load(file))
    return measurements
