"""What of a process or of the system must not grow, by how much it may, and whether it does."""

import dataclasses
import statistics

# The first tenth of the time is for what is filled once: pools of memory, code that is read in, a recorder's ring.
WARM_UP = 0.1


@dataclasses.dataclass(frozen=True)
class Figure:
    """Something that is counted, and the growth from which on it is a fault."""

    name: str
    bound: int
    unit: str = ""


# Of each process. A figure is the least that was seen in a period, since what comes and goes with an attachment is
# there only sometimes; in a short period it may always have been there, and the bounds leave room for that.
PROCESS = {
    # Memory that is taken and given back makes steps, and the kernel counts pages a few dozen at a time for each thread.
    "memory": Figure("memory", 2048, " KiB"),
    # An attachment with a watcher and its descriptor has fewer.
    "descriptor": Figure("descriptors", 4),
    # An attachment has its segment; a watcher's thread has a stack, a page before it, and a pool of memory in two parts.
    "mapping": Figure("mappings", 8),
}
# Of the world. Two regions come and go, and one that goes may be there still beside the one that comes.
WORLD = {
    "semaphore": Figure("semaphore sets", 4),
    "segment": Figure("objects of shared memory", 4),
}
# Fewer say nothing about growth.
LEAST_PERIODS = 10


def growth(values):
    """From the first tenth behind the warm-up to the last one, medians of each."""
    tenth = max(round(len(values) * WARM_UP), 1)
    return statistics.median(values[-tenth:]) - statistics.median(values[tenth:2 * tenth])


def faults(who, figures, series):
    """A line for each figure of `series`, a list of values for each kind, that has grown too much."""
    lines = []
    for kind, values in series.items():
        grown = growth(values)
        figure = figures[kind]
        if grown > figure.bound:
            lines.append(f"{who}: growth of {figure.name} by {grown:g}{figure.unit}; at most "
                         f"{figure.bound}{figure.unit}")
    return lines
