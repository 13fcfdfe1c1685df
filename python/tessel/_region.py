"""Regions: the live process values of a description."""

from __future__ import annotations

import asyncio
import atexit
import os
import sys
import threading
import time
import weakref
from types import TracebackType
from typing import AsyncIterator, Dict, Iterable, Iterator, List, Mapping, Optional, Tuple, Type, Union

from . import _native
from ._errors import ClosedError, Error, FileError, TimedOutError, UnknownUrlError, UseError
from ._set import Choice, Set, plain
from ._states import Description, Scalar, State, Value

Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
Urls = Union[str, Iterable[str]]
Writable = Union[Scalar, State, Value]


def attach(path: Path, *, read_only: bool = False) -> Region:
    """Attaches to the region of a process description, a file or a folder.

    Another process has to have created it. With ``read_only`` its memory cannot be written, so that nothing here can
    spoil it, and who may only read its file can attach; writes raise `AccessError`. The publishers do not hear of such
    a reader: a wait looks for new sets itself, and a fast writer may leave no time to read.

    Raises `MissingError` where there is no such file or region, `AccessError` where it must not be read,
    `LayoutMismatchError` where the region was made from another description, `FileError` where the description does
    not parse.
    """
    return Region(_native.attach(os.fsdecode(path), read_only))


def create(path: Path, prefix: str = "") -> Region:
    """Creates the region of a process description, which goes with `Region.close`.

    A region that was there is replaced; who was attached to it must attach again. The files of a folder are laid
    out first, and its key then begins with ``prefix`` ("tessel" without one). Every value begins as
    `State.NO_VALID_INPUT_VALUE`. Raises as `attach`.
    """
    return Region(_native.create(os.fsdecode(path), prefix))


_opened: weakref.WeakSet[Region] = weakref.WeakSet()


@atexit.register
def _close_all() -> None:
    """A thread that Python does not wait for would keep its region, and what was created would stay behind."""
    for region in list(_opened):
        try:
            region.close()
        except Error:
            pass  # it belongs to the parent of this process


#: An asynchronous interval looks for the end of its watch this often, in seconds.
_LOOKS = 0.05


def _seconds(given: float) -> float:
    if given != given:
        raise UseError(f"'{given}' is no time in seconds")
    # An integer may be more than any float.
    return min(max(given, 0.0), sys.float_info.max)


def _is_main_thread() -> bool:
    return threading.get_ident() == threading.main_thread().ident


class Region:
    """The live values of a description; `attach` and `create` make one, and it is closed like a file.

    Any thread may use it: reads and writes of one region exclude each other, waits go on beside them. Whatever
    may take a while leaves the other threads of Python running. Closed, or in a forked child, every use raises
    `ClosedError` or `ForkedError`.
    """

    def __init__(self, native: _native.Region) -> None:
        self._native = native
        self._index: Dict[str, int] = {}
        self._descriptions: List[Description] = []
        self._problems: List[Optional[str]] = []
        for fields, problem in native.leaves():
            self._index[fields["url"]] = len(self._descriptions)
            self._descriptions.append(Description(**fields))
            self._problems.append(problem)
        self._all = self._choice([i for i, problem in enumerate(self._problems) if problem is None])
        self._lock = threading.Lock()
        self._wait: Optional[_native.Wait] = None
        self._has_descriptor = False
        _opened.add(self)

    def _choice(self, indices: List[int]) -> Choice:
        chosen = [self._descriptions[index] for index in indices]
        return Choice(indices, tuple(leaf.url for leaf in chosen), tuple(leaf.unit for leaf in chosen))

    def _leaf(self, url: str) -> int:
        index = self._index.get(plain(url))
        if index is None:
            raise UnknownUrlError(f"no process value at '{url}'{self._hint(url)}")
        if self._problems[index] is not None:
            raise FileError(f"'{url}' has no usable slot: {self._problems[index]}")
        return index

    def _hint(self, url: str) -> str:
        import difflib

        near = difflib.get_close_matches(plain(url), self._index, n=1)
        return f"; did you mean '{near[0]}'?" if near else ""

    def _chosen(self, urls: Optional[Urls]) -> Choice:
        if urls is None:
            return self._all
        indices: Dict[int, None] = {}
        for url in [urls] if isinstance(urls, str) else urls:
            if plain(url) in self._index:
                indices[self._leaf(url)] = None
                continue
            below = [i for i in self._all.indices if self._descriptions[i].url.startswith(plain(url) + "/")]
            if not below:
                self._leaf(url)
            indices.update(dict.fromkeys(below))
        return self._choice(list(indices))

    @property
    def key(self) -> str:
        """The memory key of the description."""
        return self._native.key

    @property
    def urls(self) -> Tuple[str, ...]:
        """Of all values that can be used, in the order of display."""
        return self._all.urls

    @property
    def generation(self) -> int:
        """How often a set was published so far; 0 with a single buffer."""
        return self._native.generation()

    @property
    def closed(self) -> bool:
        """Whether `close` was called."""
        return not self._native.is_open()

    def describe(self, url: str) -> Description:
        """What the description says of a value: type, unit, limits. Raises `UnknownUrlError`."""
        index = self._index.get(plain(url))
        return self._descriptions[self._leaf(url) if index is None else index]

    def read(self, urls: Optional[Urls] = None) -> Set:
        """One consistent set: of all values, or of those at and below the URLs.

        Raises `UnknownUrlError`, `NotReliableError` where nothing was published yet, `TimedOutError` where
        somebody has held the lock for 5 seconds.
        """
        choice = self._chosen(urls)
        if self._has_descriptor and self._wait is not None and self._wait.acknowledge(0) is False:
            raise ClosedError("the region was closed; attach again")
        return Set(self._native.read(choice.indices), choice)

    def __getitem__(self, url: str) -> Value:
        """The published value at a URL. Raises as `read`."""
        choice = self._choice([self._leaf(url)])
        return Set(self._native.read(choice.indices), choice)[url]

    def __contains__(self, url: object) -> bool:
        return isinstance(url, str) and plain(url) in self._all.places

    def _checked(self, url: str, value: Writable, limits: bool) -> _native.Write:
        leaf = self._leaf(url)
        if isinstance(value, Value):
            value = value.state if value.value is None else value.value
        if isinstance(value, State):
            return self._native.checked_state(leaf, int(value))
        return self._native.checked_value(leaf, value, limits)

    def publish(self, values: Mapping[str, Writable], *, limits: bool = True) -> None:
        """Writes values, or states in their place, and publishes them as one set, or none of them.

        A value is taken in the unit of its leaf. Everything is checked first, as `tessel set` does: `RefusedError`
        for what is outside of type or limits (``limits=False`` leaves those of the description out) or
        read-only, `TypeRefusedError` for another type, `UnknownUrlError`. Values that are not named keep what
        they had. `TimedOutError` where somebody has held the lock for 5 seconds.
        """
        self._native.publish([self._checked(url, value, limits) for url, value in values.items()])

    def write(self, *, limits: bool = True) -> Writing:
        """A ``with`` block that gathers values and publishes them at its end, as `publish` does.

        An exception inside publishes nothing. Each value is checked when it is given; no lock is held meanwhile.
        """
        return Writing(self, limits)

    def wait(self, seen: int = 0, timeout: Optional[float] = None) -> int:
        """Sleeps until a set other than generation ``seen`` is published, and returns its generation.

        ``timeout`` is in seconds; then `TimedOutError`. A region that has gone raises `MissingError`, one that was
        replaced `LayoutMismatchError`, within some two seconds; one with a single buffer `UseError`. Ctrl-C ends
        it, and so does `close` on another thread, with `ClosedError`.
        """
        bound = -1.0 if timeout is None else _seconds(timeout)
        if not 0 <= seen < 2**64:
            raise UseError(f"{seen} is no generation; one counts from 0 on")
        outcome = self._own_wait().wait(seen, bound, _is_main_thread())
        if outcome is None:
            raise TimedOutError(f"no set was published in {bound:g} s")
        if outcome is False:
            raise ClosedError("the region was closed; attach again")
        if self._has_descriptor:
            self._own_wait().acknowledge(seen)
        return outcome

    def watch(self, urls: Optional[Urls] = None, interval: float = 0.0) -> Watch:
        """Sets as they are published, for ``for`` and ``async for``; see `Watch`.

        ``interval`` is the least time between two, in seconds; of those in between only the newest counts.
        """
        return Watch(self, self._chosen(urls), interval)

    def fileno(self) -> int:
        """A descriptor for `select` and its kin: readable as soon as there is a set that neither `read` nor
        `wait` has told of since. The region owns it."""
        descriptor = self._own_wait().fileno()
        self._has_descriptor = True
        return descriptor

    def _own_wait(self) -> _native.Wait:
        # In a forked child the lock may be held by a thread that is not there: that is told first.
        self._native.is_open()
        with self._lock:
            if self._wait is None:
                self._wait = self._native.make_wait()
            return self._wait

    def close(self) -> None:
        """Gives the region back; one that was created is removed. Sets that were read stay usable. Again: nothing."""
        self._native.close()

    def __enter__(self) -> Region:
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<tessel.Region {self.key!r} of {len(self.urls)} values>"


class Writing:
    """Values that `Region.write` gathers."""

    def __init__(self, region: Region, limits: bool) -> None:
        self._region = region
        self._limits = limits
        self._writes: Dict[int, _native.Write] = {}
        self._is_over = False

    def __setitem__(self, url: str, value: Writable) -> None:
        """Takes a value, or a state in its place. Raises as `Region.publish`."""
        if self._is_over:
            raise UseError("this block of writes is over; begin another one with Region.write()")
        write = self._region._checked(url, value, self._limits)
        self._writes[self._region._leaf(url)] = write

    def __enter__(self) -> Writing:
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self._is_over = True
        if kind is None and self._writes:
            self._region._native.publish(list(self._writes.values()))


class Watch:
    """The sets of a region as they are published, beginning with the one that is there already.

    None is seen twice, and of several that came meanwhile only the newest is seen. It ends with the region's
    `close`, or its own; a region that has gone raises as `Region.wait`.
    """

    def __init__(self, region: Region, choice: Choice, interval: float) -> None:
        self._region = region
        self._choice = choice
        self._interval = _seconds(interval)
        self._wait = region._native.make_wait()
        self._seen = 0
        self._next = 0.0

    def close(self) -> None:
        """Ends the loop, on whatever thread it runs."""
        self._wait.end()

    def _taken(self) -> Optional[Set]:
        try:
            taken = Set(self._region._native.read(self._choice.indices), self._choice)
        except ClosedError:
            return None
        self._seen = taken.generation
        self._next = time.monotonic() + self._interval
        return taken

    def __iter__(self) -> Iterator[Set]:
        return self

    def __next__(self) -> Set:
        while (left := self._next - time.monotonic()) > 0:
            # Ended by close() like any other wait.
            if self._wait.wait(self._region_generation(), left, _is_main_thread()) is False:
                raise StopIteration
        if self._wait.wait(self._seen, -1.0, _is_main_thread()) is False:
            raise StopIteration
        taken = self._taken()
        if taken is None:
            raise StopIteration
        return taken

    def _region_generation(self) -> int:
        try:
            return self._region._native.generation()
        except ClosedError:
            return self._seen

    def __aiter__(self) -> AsyncIterator[Set]:
        return self

    async def __anext__(self) -> Set:
        while (left := self._next - time.monotonic()) > 0:
            # Ended by close() like any other wait.
            if self._wait.acknowledge(self._seen) is False:
                raise StopAsyncIteration
            await asyncio.sleep(min(left, _LOOKS))
        try:
            descriptor = self._wait.fileno()
        except ClosedError:
            raise StopAsyncIteration from None
        while True:
            outcome = self._wait.acknowledge(self._seen)
            if outcome is False:
                raise StopAsyncIteration
            if outcome is not None and outcome != self._seen:
                break
            await self._readable(descriptor)
        taken = self._taken()
        if taken is None:
            raise StopAsyncIteration
        return taken

    async def _readable(self, descriptor: int) -> None:
        loop = asyncio.get_running_loop()
        arrived = loop.create_future()
        # Of its own: the watch may be closed, and its descriptor be another file, before the loop is told.
        own = os.dup(descriptor)

        def tell() -> None:
            if not arrived.done():
                arrived.set_result(None)

        loop.add_reader(own, tell)
        try:
            await arrived
        finally:
            loop.remove_reader(own)
            os.close(own)
