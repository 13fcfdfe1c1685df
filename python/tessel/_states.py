"""States, values, and what a description says of them."""

from __future__ import annotations

import enum
from typing import Any, NamedTuple, Optional, Tuple, Union

Scalar = Union[bool, int, float, str]


class State(enum.IntEnum):
    """The error state that every process value carries.

    >>> State(9), State.TIMEOUT.is_valid
    (<State.TIMEOUT: 9>, False)
    """

    VALID = 0
    UNDERRANGE = 1
    OVERRANGE = 2
    NO_VALID_INPUT_VALUE = 3
    DIVISION_BY_ZERO = 4
    INCORRECT_MATHEMATIC_VALUE = 5
    INVALID_TEMPERATURE = 6
    SENSOR_SHORT_CIRCUIT = 7
    SENSOR_BREAKAGE = 8
    TIMEOUT = 9

    @property
    def is_valid(self) -> bool:
        """Whether the value beside it can be trusted."""
        return self == 0

    def __reduce_ex__(self, protocol: object) -> Tuple[Any, ...]:
        # By its number: another one has no name that could be looked up.
        return State, (int(self),)

    @classmethod
    def _missing_(cls, value: object) -> Optional[State]:
        # Somebody may have left another number in the memory, and a set must be readable all the same.
        if not isinstance(value, int):
            return None
        unknown = int.__new__(cls, value)
        unknown._name_ = f"STATE_{value}"
        unknown._value_ = value
        return unknown


class Value(NamedTuple):
    """One value as it was published, with its state, and the unit of its description.

    >>> Value(12.5, State.VALID, "m").is_valid
    True
    """

    value: Optional[Scalar]
    """bool, int, float or str, by the type of the leaf; integers are exact. None unless the state is valid."""
    state: State
    unit: str
    """Empty where the description has none."""

    @property
    def is_valid(self) -> bool:
        """Whether there is a value that can be trusted."""
        return self.state == State.VALID


class Description(NamedTuple):
    """What a description says of a leaf, or of the column of a cell."""

    url: str
    type: str
    """Such as ``float``, ``uint64``, ``boolean``, ``string``, ``selector``."""
    unit: str
    """Of the value and its limits; empty: none."""
    label: str
    """Identifier of the text to show; empty: none."""
    minimum: Any
    """None: no lower limit."""
    maximum: Any
    """None: no upper limit."""
    view_start: Any
    """Begin of the range in which the value is shown; None: not given."""
    view_end: Any
    read_only: bool
    """Only the process that created the region writes it."""
    choices: Tuple[str, ...]
    """What a selector selects from, by index."""
