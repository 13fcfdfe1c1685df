"""The text of docs/performance.md."""

import plots
from targets import COUNTER, State

REPEATING = """\
```
script/bench                   all of it, some five minutes; writes this page
script/bench --quick           fewer repetitions and no big sizes; writes build/bench/performance.md
script/bench value/bulk        only rows whose name matches; writes build/bench/performance.md
```

The exit code tells whether all ratios held. How a row is made, what its floor leaves out, and how to
add one: [benchmarks/README.md](../benchmarks/README.md). The targets:
[benchmarks/targets.csv](../benchmarks/targets.csv)."""


def number(value):
    """Three digits that count, without an exponent."""
    if value is None:
        return "–"
    if value >= 100 or value == int(value):
        return f"{value:,.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}" if value >= 0.1 else f"{value:.3f}"


def time(nanoseconds):
    if nanoseconds is None:
        return "–"
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{number(nanoseconds / size)} {unit}"
    return f"{number(nanoseconds)} ns"


def table(head, lines):
    width = [max(len(cell) for cell in column) for column in zip(head, *lines)]
    rows = [head, ["-" * size for size in width], *lines]
    return "\n".join("| " + " | ".join(cell.ljust(size) for cell, size in zip(row, width)) + " |"
                     for row in rows)


def machine_section(machine, run):
    return table(["What", "How"], [list(pair) for pair in [*machine, ("Run", run)]])


def verdict_line(verdict, measurements):
    target = verdict.target
    is_counter = target.beside.startswith(COUNTER)
    name = f"{target.row}/tessel"
    other = None if is_counter else measurements.time(f"{target.row}/{target.beside}")
    state = verdict.state.value
    return [f"`{target.row}`", target.work, target.compared_with,
            time(measurements.time(name)), "" if is_counter else time(other),
            number(verdict.figure), f"{target.limit:,g}",
            f"**{state}**" if verdict.state is State.ABOVE else state]


def targets_section(verdicts, measurements):
    head = ["Row", "Tessel does", "Beside it", "Tessel", "Beside", "Ratio", "At most", ""]
    return table(head, [verdict_line(verdict, measurements) for verdict in verdicts])


def rows_of(measurements):
    """The rows that Tessel and something beside it ran in."""
    names = measurements.names()
    return [name[:-len("/tessel")] for name in names
            if name.endswith("/tessel") and len(measurements.sides(name[:-len("/tessel")])) > 1]


def rows_section(measurements):
    lines = []
    for row in rows_of(measurements):
        for side in sorted(measurements.sides(row), key=lambda side: (side != "tessel", side)):
            name = f"{row}/{side}"
            spread = measurements.spread(name)
            lines.append([
                f"`{row}`" if side == "tessel" else "", side.replace("peer-", ""),
                time(measurements.time(name)), "" if spread is None else f"± {spread:.0%}",
                "" if side == "tessel" else number(measurements.ratio(row, side))])
    return table(["Row", "Who", "Median", "Spread", "Tessel by this"], lines)


def growth_section(measurements):
    parts = []
    for plot in plots.PLOTS:
        lines = []
        for series in plot.series:
            points = plots.points_of(plot, series, measurements)
            slope = plots.slope_of(points)
            if slope is not None:
                lines.append([series.label, f"{points[0][0]:,}", time(points[0][1]),
                              f"{points[-1][0]:,}", time(points[-1][1]), f"{slope:.2f}",
                              f"{series.slope:g}"])
        if lines:
            parts += [f"![{plot.title}](pictures/growth-{plot.key}.svg)",
                      table(["Operation", "Smallest", "Time", "Biggest", "Time", "Slope",
                             "Expected"], lines)]
    return "\n\n".join(parts) or "Not measured in this run."


def errors_section(errors):
    return "" if not errors else "\n\nRows that could not run:\n\n" + "\n".join(
        f"- {error}" for error in errors)


def compose(machine, run, verdicts, measurements, notes):
    """The whole page. @p notes are texts of their own on where time goes."""
    return "\n".join([
        "# Performance",
        "",
        "Written by `script/bench`; do not edit. Only ratios count: both sides of a ratio ran in one"
        " program, their repetitions mixed, so that a busy or slow machine concerns both alike.",
        "",
        "## Machine",
        "",
        machine_section(machine, run),
        "",
        "## Targets",
        "",
        "What an operation may cost beside its floor, which is the same work without the library,"
        " and beside what a user would take instead.",
        "",
        targets_section(verdicts, measurements) + errors_section(measurements.errors),
        "",
        "## All rows",
        "",
        "Medians; half of the repetitions lie within the spread. A ratio below 1 says that Tessel is"
        " quicker. What a peer does and does not do: [benchmarks](../benchmarks/README.md).",
        "",
        rows_section(measurements),
        "",
        "## How cost grows",
        "",
        "Both axes are logarithmic. The dotted line through the last point has the slope that is"
        " expected: 1 where twice the size costs twice the time, 0 where size does not matter. The"
        " slope in the tables is that of the upper two thirds of the sizes.",
        "",
        growth_section(measurements),
        "",
        "## Where the time goes",
        "",
        "\n\n".join(notes) or "Nothing noted yet.",
        "",
        "## How to repeat",
        "",
        REPEATING,
        ""])
