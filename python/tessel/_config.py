"""Configurations: the values of a device that stay."""

from __future__ import annotations

import enum
import os
from typing import TYPE_CHECKING, Any, Iterable, List, NamedTuple, Tuple, Union

from . import _native
from ._states import Description, Scalar

if TYPE_CHECKING:
    import numpy


class SetStatus(enum.IntEnum):
    """What became of a write that was let in.

    >>> SetStatus(1)
    <SetStatus.UNCHANGED: 1>
    """

    CHANGED = 0
    """The new value is in the configuration; `Config.save` writes it to the file."""
    UNCHANGED = 1
    """The value stood there already."""


class Stamp(NamedTuple):
    """What `Config.save` left in a file."""

    instance: str
    """Names of the directories and of the file."""
    modified_by: str
    last_modified: str
    """ISO 8601, with milliseconds and time zone."""


_FIELD_TYPES = {
    "int8": "i1",
    "int16": "i2",
    "int32": "i4",
    "int64": "i8",
    "uint8": "u1",
    "uint16": "u2",
    "uint32": "u4",
    "uint64": "u8",
    "float": "f4",
    "double": "f8",
    "boolean": "?",
}


class Config:
    """A configuration, an instance directory or one file, read into memory.

    Changes stay there until `save`. Any thread may use it; its operations exclude each other. Raises
    `MissingError`, `AccessError` or `FileError` if it cannot be read.
    """

    def __init__(self, path: Union[str, bytes, os.PathLike[str], os.PathLike[bytes]]) -> None:
        self._native = _native.Config(os.fsdecode(path))

    @property
    def urls(self) -> Tuple[str, ...]:
        """Of all values, in the order of display."""
        return tuple(self._native.urls())

    def describe(self, url: str) -> Description:
        """What the element, or the column of the cell, says of its values. Raises `UnknownUrlError`."""
        return Description(**self._native.describe(url))

    def get(self, url: str) -> Any:
        """The value at a URL, in the unit of its element; None where nothing was entered.

        The value of a selector is its index, that of an array a list. ``URL#ROW,COLUMN`` is a cell, counted from
        0. Raises `UnknownUrlError`.
        """
        return self._native.get(url)

    def set(self, url: str, value: Union[Scalar, None]) -> SetStatus:
        """Writes a value, or with None that nothing is entered; a selector takes index or text.

        Checked as `tessel config set` does: `RefusedError` for what is outside of type, limits, selection or
        pattern, or read-only, `TypeRefusedError` for another type, `UnknownUrlError`.
        """
        return SetStatus(self._native.set(url, value))

    def table(self, url: str) -> List[List[Any]]:
        """The rows of an array, each a list of cells. Raises `RefusedError` if it is none."""
        rows: List[List[Any]] = self._native.table(url)[2]
        return rows

    def table_array(self, url: str) -> numpy.ndarray[Any, Any]:
        """The same as a structured array of numpy: a field a column, in its type, named by its title.

        Columns with an empty cell, of texts or of selectors are of objects.
        """
        import numpy

        titles, types, rows = self._native.table(url)
        fields = []
        for column, (title, kind) in enumerate(zip(titles, types)):
            is_whole = all(row[column] is not None for row in rows)
            fields.append((title, _FIELD_TYPES.get(kind, "O") if is_whole else "O"))
        return numpy.array([tuple(row) for row in rows], dtype=fields)

    def set_table(self, url: str, rows: Iterable[Iterable[Any]]) -> SetStatus:
        """Replaces all rows of an array, each checked as a cell; all of them, or none. Raises as `set`."""
        return SetStatus(self._native.set_table(url, [list(row) for row in rows]))

    def save(self) -> List[Stamp]:
        """Stamps and writes the files in which something was changed, and no other.

        A file without a place for a stamp is written without one. Raises `AccessError` before anything is
        written, `FileError` with the file as it was.
        """
        return [Stamp(*stamp) for stamp in self._native.save()]
