"""The ratios that are to hold, and what became of them."""

import csv
import enum
from typing import NamedTuple, Optional

COUNTER = "counter:"


class Target(NamedTuple):
    row: str
    beside: str  # a side of the row, or "counter:" and its name
    limit: float
    work: str
    compared_with: str


class State(enum.Enum):
    HELD = "held"
    ABOVE = "above"
    MISSING = "missing"


class Verdict(NamedTuple):
    target: Target
    figure: Optional[float]
    state: State


def load(path):
    with open(path, encoding="utf-8", newline="") as file:
        return [Target(line["row"], line["beside"], float(line["target"]), line["work"],
                       line["compared with"])
                for line in csv.DictReader(file)]


def figure_of(target, measurements):
    if target.beside.startswith(COUNTER):
        return measurements.worst_counter(f"{target.row}/tessel", target.beside[len(COUNTER):])
    return measurements.ratio(target.row, target.beside)


def judge(targets, measurements):
    verdicts = []
    for target in targets:
        figure = figure_of(target, measurements)
        if figure is None:
            state = State.MISSING
        else:
            state = State.HELD if figure <= target.limit else State.ABOVE
        verdicts.append(Verdict(target, figure, state))
    return verdicts


def failures(verdicts, is_full):
    """A row that is missing is a failure only where all rows were asked for."""
    failing = {State.ABOVE, State.MISSING} if is_full else {State.ABOVE}
    return [verdict for verdict in verdicts if verdict.state in failing]
