"""Live process values and configurations of a measuring device.

>>> import tessel
>>> with tessel.attach("plant.process.json") as region:      # doctest: +SKIP
...     print(region["pump/speed"])
Value(value=12.5, state=<State.VALID: 0>, unit='1/s')

A region is opened with `attach` or `create`, a configuration with `Config`. What goes wrong raises an `Error`,
which is also the built-in exception that fits, and whose `exit_code` is the one of the command `tessel`. What the
library says beside that goes to the logger ``tessel``.
"""

from ._config import Config, SetStatus, Stamp
from ._errors import (
    AccessError,
    ClosedError,
    Error,
    FileError,
    ForkedError,
    LayoutMismatchError,
    MissingError,
    NotFoundError,
    NotReliableError,
    RefusedError,
    TimedOutError,
    TypeRefusedError,
    UnknownUrlError,
    UseError,
)
from ._region import Region, Watch, Writing, attach, create
from ._set import Set
from ._states import Description, State, Value

__all__ = [
    "AccessError",
    "ClosedError",
    "Config",
    "Description",
    "Error",
    "FileError",
    "ForkedError",
    "LayoutMismatchError",
    "MissingError",
    "NotFoundError",
    "NotReliableError",
    "RefusedError",
    "Region",
    "Set",
    "SetStatus",
    "Stamp",
    "State",
    "TimedOutError",
    "TypeRefusedError",
    "UnknownUrlError",
    "UseError",
    "Value",
    "Watch",
    "Writing",
    "attach",
    "create",
]
