"""How cost grows with size: log-log plots as SVG, and the slopes behind them."""

import math
from typing import NamedTuple
from xml.sax.saxutils import escape


class Series(NamedTuple):
    operation: str
    label: str
    slope: float  # expected: 1 if twice the size costs twice the time, 0 if it costs the same


class Plot(NamedTuple):
    key: str
    title: str
    axis: str
    series: tuple


PLOTS = (
    Plot("leaves", "Leaves of a tree", "leaves", (
        Series("parse", "parse", 1), Series("collectSorted", "collect sorted", 1),
        Series("getLeaf", "getLeaf", 0))),
    Plot("depth", "Depth of a URL or property path", "pieces", (
        Series("getLeaf", "getLeaf", 1), Series("getProperty", "getProperty", 1))),
    Plot("rows", "Rows of a table", "rows", (
        Series("addRows", "addNewRow, all rows", 1), Series("readTable", "read the table", 1),
        Series("writeCellByUrl", "write one cell by URL", 0))),
    Plot("cells", "One cell of an array", "rows", (
        Series("readByUrl", "read by URL", 0), Series("readFlatByUrl", "read, flat array", 0),
        Series("writeEqualByUrl", "write what is there", 0), Series("load", "load a wrapper", 0))),
    Plot("files", "Files of a device directory", "files", (
        Series("firstBuild", "first build", 1), Series("secondBuild", "second build", 1))),
)

WIDTH, HEIGHT = 720, 420
LEFT, RIGHT, TOP, BOTTOM = 76, 536, 50, 362
COLOURS = ("#1f5fa8", "#b3541e", "#3a7d34", "#7a4a9e")
TIMES = ((1, "1 ns"), (10, "10 ns"), (100, "100 ns"), (1e3, "1 µs"), (1e4, "10 µs"),
         (1e5, "100 µs"), (1e6, "1 ms"), (1e7, "10 ms"), (1e8, "100 ms"), (1e9, "1 s"),
         (1e10, "10 s"), (1e11, "100 s"), (1e12, "1000 s"))


def points_of(plot, series, measurements):
    """Pairs of size and nanoseconds, by size."""
    prefix = f"growth/{plot.key}/{series.operation}/"
    return sorted((int(name[len(prefix):]), measurements.time(name))
                  for name in measurements.names() if name.startswith(prefix))


def slope_of(points):
    """Of the straight line through the upper half of the sizes, where fixed costs no longer hide
    the growth; None for fewer than two points."""
    upper = [(math.log(size), math.log(time)) for size, time in points[len(points) // 3:]]
    if len(upper) < 2:
        return None
    mean_size = sum(size for size, _ in upper) / len(upper)
    mean_time = sum(time for _, time in upper) / len(upper)
    return (sum((size - mean_size) * (time - mean_time) for size, time in upper)
            / sum((size - mean_size) ** 2 for size, _ in upper))


def expected_line(points, slope):
    """The ends of the line of that slope through the last point."""
    (first, _), (last, time) = points[0], points[-1]
    return [(first, time * (first / last) ** slope), (last, time)]


class Axis:
    """Maps a logarithmic range, widened to whole decades, to pixels."""

    def __init__(self, values, begin, end):
        self.low = math.floor(math.log10(min(values)) + 1e-9)
        self.high = max(self.low + 1, math.ceil(math.log10(max(values)) - 1e-9))
        self._begin = begin
        self._end = end

    def decades(self):
        return [10 ** exponent for exponent in range(self.low, self.high + 1)]

    def __call__(self, value):
        part = (math.log10(value) - self.low) / (self.high - self.low)
        return self._begin + part * (self._end - self._begin)


def time_label(nanoseconds):
    for value, label in TIMES:
        if math.isclose(value, nanoseconds):
            return label
    return f"{nanoseconds:g} ns"


def text(x, y, content, **attributes):
    extra = "".join(f' {key.replace("_", "-")}="{value}"' for key, value in attributes.items())
    return f'<text x="{x:.1f}" y="{y:.1f}"{extra}>{escape(content)}</text>'


def grid(plot, sizes, times):
    lines, labels = [], []
    for size in sizes.decades():
        x = sizes(size)
        lines.append(f'<path d="M{x:.1f} {TOP}V{BOTTOM}"/>')
        labels.append(text(x, BOTTOM + 18, f"{size:,}", text_anchor="middle"))
    for time in times.decades():
        y = times(time)
        lines.append(f'<path d="M{LEFT} {y:.1f}H{RIGHT}"/>')
        labels.append(text(LEFT - 8, y + 4, time_label(time), text_anchor="end"))
    labels.append(text((LEFT + RIGHT) / 2, BOTTOM + 40, plot.axis, text_anchor="middle"))
    return ['<g stroke="#d5dce3" stroke-width="1">', *lines, "</g>",
            '<g fill="#44546a" font-size="12">', *labels, "</g>"]


def path(points, sizes, times):
    return "M" + "L".join(f"{sizes(size):.1f} {times(time):.1f}" for size, time in points)


def spread_apart(heights, distance):
    """Heights moved down as far as labels need, in their order from the top."""
    placed = {}
    lowest = -math.inf
    for index in sorted(range(len(heights)), key=lambda index: heights[index]):
        lowest = max(heights[index], lowest + distance)
        placed[index] = lowest
    return [placed[index] for index in range(len(heights))]


def curve(series, points, colour, label_height, sizes, times):
    marks = "".join(f'<circle cx="{sizes(size):.1f}" cy="{times(time):.1f}" r="3.5"/>'
                    for size, time in points)
    guide = path(expected_line(points, series.slope), sizes, times)
    line = path(points, sizes, times)
    return [f'<path d="{guide}" fill="none" stroke="{colour}" stroke-width="1.2"'
            ' stroke-dasharray="2 5" clip-path="url(#plane)"/>',
            f'<path d="{line}" fill="none" stroke="{colour}" stroke-width="2"/>',
            f'<g fill="{colour}">{marks}</g>',
            text(RIGHT + 12, label_height + 4, series.label, fill=colour, font_size=13)]


def draw(plot, measurements):
    """The SVG of the plot, or None if nothing of it ran."""
    curves = [(series, points) for series in plot.series
              if (points := points_of(plot, series, measurements))]
    if not curves:
        return None
    every = [point for _, points in curves for point in points]
    sizes = Axis([size for size, _ in every], LEFT, RIGHT)
    times = Axis([time for _, time in every], BOTTOM, TOP)
    heights = spread_apart([times(points[-1][1]) for _, points in curves], 18)
    lines = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" width="{WIDTH}"'
        f' height="{HEIGHT}" font-family="Helvetica, Arial, sans-serif" role="img"'
        ' aria-labelledby="title">',
        f'<title id="title">{escape(plot.title)}: time by number of {escape(plot.axis)}</title>',
        f'<clipPath id="plane"><path d="M{LEFT} {TOP}H{RIGHT}V{BOTTOM}H{LEFT}z"/></clipPath>',
        "<!-- A panel of its own, so that the picture reads on a light and on a dark page. -->",
        f'<rect x="1" y="1" width="{WIDTH - 2}" height="{HEIGHT - 2}" rx="12" fill="#fbfcfd"'
        ' stroke="#9aa7b5"/>',
        text(LEFT, 30, plot.title, fill="#1f2933", font_size=15, font_weight="bold"),
        *grid(plot, sizes, times)]
    for index, (series, points) in enumerate(curves):
        lines += curve(series, points, COLOURS[index], heights[index], sizes, times)
    return "\n".join([*lines, "</svg>", ""])
