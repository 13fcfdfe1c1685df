"""What goes wrong, by the exit codes of the command `tessel`."""


class Error(Exception):
    """The base of all errors here. Its text says what, where, and what to do.

    >>> issubclass(RefusedError, ValueError), RefusedError.exit_code
    (True, 5)
    """

    exit_code: int = 10
    """How `tessel` would end."""

    def __str__(self) -> str:
        # KeyError would show the text in quotation marks.
        return str(self.args[0]) if self.args else ""


class UseError(Error, ValueError):
    """A call that makes no sense."""

    exit_code = 2


class ClosedError(UseError):
    """The region was closed."""


class ForkedError(UseError, RuntimeError):
    """The region was opened before a fork and belongs to the parent process."""


class NotFoundError(Error, LookupError):
    """There is no such thing."""

    exit_code = 3


class UnknownUrlError(NotFoundError, KeyError):
    """No element at the URL."""


class MissingError(NotFoundError, FileNotFoundError):
    """No such file, folder or region; or the region has gone."""


class AccessError(Error, PermissionError):
    """No permission, or the region cannot be attached."""

    exit_code = 4


class RefusedError(Error, ValueError):
    """A check refused the value: its range, or a leaf that is read-only."""

    exit_code = 5


class TypeRefusedError(RefusedError, TypeError):
    """The value is of a type that does not fit."""


class TimedOutError(Error, TimeoutError):
    """The time of a wait ran out, or somebody has held a lock for more than 5 seconds."""

    exit_code = 6


class NotReliableError(Error, RuntimeError):
    """No consistent set: writers were faster in 11 attempts, or nothing was published yet."""

    exit_code = 7


class LayoutMismatchError(Error, RuntimeError):
    """Region and description do not match, or the region was replaced by a new one."""

    exit_code = 8


class FileError(Error, OSError):
    """A file that is read or written: it does not parse, or the disk is full."""

    exit_code = 9
