"""Draws what terminals show as one SVG that moves by CSS alone, so that a Git page plays it.

A line that stays is drawn once, with the time from which and until which it is seen.
"""

from xml.sax.saxutils import escape

_COLUMN = 7.8
_LINE = 18
_MARGIN = 16
_TITLE = 30
_COLOURS = {"default": "#d6dde6", "red": "#ff8f8a", "green": "#7ee2a0", "brown": "#f2cf7a",
            "cyan": "#7fd4e6", "blue": "#8fb4ff"}
_STYLE = """
  text { font: 13px ui-monospace, 'DejaVu Sans Mono', Menlo, Consolas, monospace; white-space: pre; }
  .title { font: 12px Helvetica, Arial, sans-serif; }
  .bold { font-weight: bold; }
  .s { opacity: 0; }
  .end { opacity: 1; }
"""


class Pane:
    """A terminal's place in the picture, with the lines that were seen in it."""

    def __init__(self, title, columns, lines):
        self.title = title
        self.columns = columns
        self.lines = lines
        # One list a line of the screen: [content, first frame, frame behind the last].
        self.seen = [[] for _ in range(lines)]

    def add(self, frame, screen, has_cursor):
        for row in range(self.lines):
            content = _content(screen, row, has_cursor)
            line = self.seen[row]
            if line and line[-1][0] == content and line[-1][2] == frame:
                line[-1][2] = frame + 1
            else:
                line.append([content, frame, frame + 1])


class Recording:
    """Frames of several panes, each with the seconds for which it is shown."""

    def __init__(self, title, panes):
        self._title = title
        self._panes = panes
        self._starts = [0.0]

    def add(self, screens, active, seconds):
        frame = len(self._starts) - 1
        for pane, screen in zip(self._panes, screens, strict=True):
            pane.add(frame, screen, screen is active)
        self._starts.append(self._starts[-1] + seconds)

    def to_svg(self):
        width = round(max(pane.columns for pane in self._panes) * _COLUMN) + 2 * _MARGIN
        drawn = []
        spans = set()
        top = 1
        for pane in self._panes:
            drawn += self._draw_pane(pane, top, width, spans)
            top += _TITLE + pane.lines * _LINE + _MARGIN
        height = round(top)
        rules = "".join(self._rules(*span) for span in sorted(spans))
        # Whoever wants no motion sees the end of the story.
        still = "  @media (prefers-reduced-motion: reduce) { .s { animation: none; } }\n"
        return (
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
            f'width="{width}" height="{height}" xml:space="preserve" role="img" '
            f'aria-labelledby="title">\n'
            f'<title id="title">{escape(self._title)}</title>\n'
            f"<!-- Made by script/record. A panel of its own: for light and dark pages. -->\n"
            f'<rect x="1" y="1" width="{width - 2}" height="{height - 2}" rx="10" fill="#10161f" '
            f'stroke="#5d6b7c"/>\n'
            f"<style>{_STYLE}{rules}{still}</style>\n" + "".join(drawn) + "</svg>\n"
        )

    def _draw_pane(self, pane, top, width, spans):
        yield (
            f'<path d="{_bar(top, width, is_first=top == 1)}" fill="#1b2430"/>\n'
            f'<text class="title" x="{_MARGIN}" y="{top + 17}" fill="#93a1b1">'
            f"{escape(pane.title)}</text>\n"
        )
        for row, line in enumerate(pane.seen):
            for content, first, behind in line:
                if not content:
                    continue
                spans.add((first, behind))
                base = top + _TITLE + row * _LINE + 12
                yield f'<g class="{self._classes(first, behind)}">{_draw(content, base)}</g>\n'

    def _classes(self, first, behind):
        end = " end" if behind == len(self._starts) - 1 else ""
        return f"s f{first}-{behind}{end}"

    def _rules(self, first, behind):
        """From when until when: as parts of the whole time."""
        total = self._starts[-1]
        start, stop = (f"{100 * self._starts[frame] / total:.3f}%" for frame in (first, behind))
        before = "" if first == 0 else "0%{opacity:0}"
        after = "" if behind == len(self._starts) - 1 else f"{stop}{{opacity:0}}"
        name = f"f{first}-{behind}"
        return (
            f"  @keyframes {name}{{{before}{start}{{opacity:1}}{after}100%{{opacity:"
            f"{0 if after else 1}}}}}\n  .{name}{{animation:{name} {total:.2f}s step-end infinite}}\n"
        )


def _bar(top, width, is_first):
    """The outline of a title's bar; the first one follows the corners of the panel."""
    bottom = top + _TITLE - 5
    if not is_first:
        return f"M1.5 {top} H{width - 1.5} V{bottom} H1.5 Z"
    corner = "a9 9 0 0 1 9"
    return f"M1.5 {bottom} V11 {corner} -9 H{width - 10.5} {corner} 9 V{bottom} Z"


def _content(screen, row, has_cursor):
    """The runs of a line as (column, text, colour, is bold, is selected), and where the cursor stands."""
    runs = []
    cells = screen.buffer[row]
    for column in range(screen.columns):
        cell = cells[column]
        style = (cell.fg, cell.bold, cell.reverse)
        if runs and runs[-1][2:] == style and runs[-1][0] + len(runs[-1][1]) == column:
            runs[-1] = (runs[-1][0], runs[-1][1] + cell.data, *style)
        else:
            runs.append((column, cell.data, *style))
    # What is selected has a ground of its own, also where it is blank.
    runs = [(column, text if style[2] else text.rstrip(), *style)
            for column, text, *style in runs if text.strip() or style[2]]
    cursor = screen.cursor.x if has_cursor and screen.cursor.y == row else None
    if cursor is not None and not screen.cursor.hidden:
        runs.append((cursor, None, "default", False, False))
    return runs


def _draw(content, base):
    drawn = ""
    for column, text, colour, is_bold, is_selected in content:
        x = _MARGIN + column * _COLUMN
        fill = _COLOURS.get(colour, _COLOURS["default"])
        if text is None:
            drawn += f'<rect x="{x:.1f}" y="{base - 11}" width="7" height="14" fill="#7ee2a0"/>'
            continue
        if is_selected:
            drawn += (f'<rect x="{x:.1f}" y="{base - 13}" width="{len(text) * _COLUMN:.1f}" '
                      f'height="{_LINE}" fill="#33445a"/>')
            text = text.rstrip()
        if not text:
            continue
        indentation = len(text) - len(text.lstrip())
        text = text.lstrip()
        x += indentation * _COLUMN
        weight = ' class="bold"' if is_bold else ""
        # The length is fixed, so that columns stand one below the other in any font.
        drawn += (
            f'<text x="{x:.1f}" y="{base}" textLength="{len(text) * _COLUMN:.1f}" '
            f'lengthAdjust="spacingAndGlyphs" fill="{fill}"{weight}>{escape(text)}</text>'
        )
    return drawn
