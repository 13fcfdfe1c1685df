"""Writes all chosen changes into a source at once, each behind a question to the selector."""

import dataclasses

from places import without_comments

# In front of what was the first line. An include file of the system has no warnings, and of what is
# slower without optimisation there is little.
HEADER = b'#include "TesselMutant.h"\n#pragma GCC system_header\n#pragma GCC optimize("O1")\n'


@dataclasses.dataclass
class Span:
    """An expression with all of its changes, and the spans inside it."""

    start: int
    end: int
    places: list
    inner: list = dataclasses.field(default_factory=list)


def nested(places):
    """The spans of expressions, outermost ones first, each with those inside it."""
    spans = {}
    for place in places:
        spans.setdefault((place.start, place.end), Span(place.start, place.end, [])).places.append(place)
    top, stack = [], []
    for span in sorted(spans.values(), key=lambda s: (s.start, -s.end)):
        while stack and stack[-1].end <= span.start:
            stack.pop()
        if stack and span.end > stack[-1].end:
            raise ValueError(f"changes cross each other at byte {span.start}")
        (stack[-1].inner if stack else top).append(span)
        stack.append(span)
    return top


def rewritten(source, places):
    """@p source (bytes) with all of @p places, so many lines further down than before."""
    prefixes = [(p.prefix_at, p) for p in places if p.form == "before"]
    # The outermost first where several stand at one place.
    prefixes.sort(key=lambda item: (item[0], -item[1].end))
    spans = nested([p for p in places if p.form != "before"])
    text = _emit(source, 0, len(source), spans, prefixes)
    return HEADER + text


def _emit(source, start, end, spans, prefixes):
    pieces, at = [], start
    for span in spans:
        pieces.append(_plain(source, at, span.start, prefixes))
        pieces.append(_guarded(source, span, prefixes))
        at = span.end
    pieces.append(_plain(source, at, end, prefixes, end == len(source)))
    return b"".join(pieces)


def _plain(source, start, end, prefixes, is_last=False):
    pieces, at = [], start
    for offset, place in prefixes:
        if start <= offset < end or (offset == end and not is_last and offset >= start and _begins(place, end)):
            pieces.append(source[at:offset])
            pieces.append(place.before.replace("{n}", str(place.number)).encode())
            at = offset
    pieces.append(source[at:end])
    return b"".join(pieces)


def _begins(place, end):
    """Whether a statement begins just where an expression does that is guarded itself."""
    return place.prefix_at == end


def _guarded(source, span, prefixes):
    inside = [(o, p) for o, p in prefixes if span.start < o < span.end]
    text = _emit(source, span.start, span.end, span.inner, inside)
    alternatives = [p for p in span.places if p.form == "instead"]
    if alternatives:
        chosen = b"".join(b"tesselMutant(%d) ? (%s) : " % (p.number, p.text.encode()) for p in alternatives)
        text = b"(" + chosen + b"(" + text + b"))"
    for place in span.places:
        if place.form == "negated":
            text = b"(tesselMutant(%d) != static_cast<bool>(%s))" % (place.number, text)
    return text


def changed(source, place):
    """@p source (bytes) as if it had been written with the one change."""
    return source[: place.start] + place.text.encode() + source[place.end :]


def shown(source, place):
    """The change as the lines of a diff."""
    first = source.rfind(b"\n", 0, place.start) + 1
    last = source.find(b"\n", place.end)
    last = len(source) if last < 0 else last
    old = source[first:last].decode()
    new = (source[first : place.start] + place.text.encode() + source[place.end : last]).decode()
    lines = [f"--- {place.file}:{place.line}  {place.function}  ({place.kind})"]
    lines += [f"-{line}" for line in old.split("\n")]
    lines += [f"+{line}" for line in new.split("\n")]
    return "\n".join(lines)
