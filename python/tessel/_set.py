"""One consistent set of values."""

from __future__ import annotations

from collections.abc import Mapping
from typing import TYPE_CHECKING, Any, Dict, Iterator, List, Sequence, Tuple

from . import _native
from ._errors import UnknownUrlError
from ._states import State, Value

if TYPE_CHECKING:
    import numpy


def plain(url: str) -> str:
    """The URL without the slashes that do not count."""
    if url[:1] != "/" and url[-1:] != "/" and "//" not in url:
        return url
    return "/".join(piece for piece in url.split("/") if piece)


class Choice:
    """The leaves that a set tells of: indices into those of the region, with URLs and units."""

    def __init__(self, indices: List[int], urls: Tuple[str, ...], units: Tuple[str, ...]) -> None:
        self.indices = indices
        self.urls = urls
        self.units = units
        self.places: Dict[str, int] = {url: place for place, url in enumerate(urls)}


class Set(Mapping[str, Value]):
    """Values that were published together, by URL, in the order of display.

    Decoded when they are asked for, and usable after the region was closed. Any thread may use a set.
    `Region.read` makes one.
    """

    def __init__(self, native: _native.Set, choice: Choice) -> None:
        self._native = native
        self._choice = choice

    @property
    def generation(self) -> int:
        """How often the region was swapped when it was published; 0 with a single buffer."""
        return self._native.generation

    @property
    def urls(self) -> Tuple[str, ...]:
        """Of all values, in the order of `values_array`."""
        return self._choice.urls

    def __getitem__(self, url: str) -> Value:
        place = self._choice.places.get(plain(url))
        if place is None:
            raise UnknownUrlError(f"'{url}' is not in this set")
        content, state = self._native.value(place)
        return Value(content, State(state), self._choice.units[place])

    def __iter__(self) -> Iterator[str]:
        return iter(self._choice.urls)

    def __len__(self) -> int:
        return len(self._choice.urls)

    def as_dict(self) -> Dict[str, Value]:
        """All values at once, which is faster than one by one."""
        units = self._choice.units
        return {
            url: Value(content, State(state), unit)
            for url, unit, (content, state) in zip(self._choice.urls, units, self._native.values())
        }

    def values_array(self) -> numpy.ndarray[Any, Any]:
        """All values as an array of float64, in the order of `urls` and each in its own unit.

        NaN where a value is not valid, and for texts. Booleans are 0 and 1; integers beyond 2**53 are
        rounded, and exact in `records`. Needs numpy.
        """
        import numpy

        numbers = numpy.empty(len(self), dtype=numpy.float64)
        self._native.fill(numbers)
        return numbers

    def states_array(self) -> numpy.ndarray[Any, Any]:
        """All states as an array of int32, in the order of `urls`. Needs numpy."""
        import numpy

        states = numpy.empty(len(self), dtype=numpy.int32)
        self._native.fill_states(states)
        return states

    def records(self) -> numpy.ndarray[Any, Any]:
        """A structured array, a record a value. Needs numpy.

        Its fields: ``url``, ``value`` (the exact object, None unless valid), ``number`` (as in `values_array`),
        ``state`` and ``unit``.
        """
        import numpy

        def text(texts: Sequence[str]) -> str:
            return f"U{max([len(text) for text in texts], default=0) or 1}"

        urls, units = self._choice.urls, self._choice.units
        records = numpy.empty(
            len(self),
            dtype=[("url", text(urls)), ("value", "O"), ("number", "f8"), ("state", "i4"), ("unit", text(units))],
        )
        pairs = self._native.values()
        records["url"] = urls
        records["unit"] = units
        records["number"] = self.values_array()
        for place, (content, state) in enumerate(pairs):
            records["value"][place] = content
            records["state"][place] = state
        return records

    def __repr__(self) -> str:
        return f"<tessel.Set of {len(self)} values, generation {self.generation}>"
