"""Answers of many rows: sequences of objects, or arrays."""

from __future__ import annotations

import struct
from collections.abc import Iterable, Iterator, Sequence
from typing import TYPE_CHECKING, Any, TypeVar, overload

from ._times import MICROS, Clock
from ._values import Event, Journey, Record, channels_of

if TYPE_CHECKING:
    import numpy

_MARKS = ("", "suspect", "bad")
_Row = TypeVar("_Row")


class _Rows(Sequence[_Row]):
    """Rows of an answer: a sequence of objects, or an array."""

    _layout: struct.Struct

    def __init__(self, packed: bytes, clock: Clock) -> None:
        self._packed = packed
        self._clock = clock

    def _row(self, fields: tuple[Any, ...]) -> _Row:
        raise NotImplementedError

    def __len__(self) -> int:
        return len(self._packed) // self._layout.size

    @overload
    def __getitem__(self, index: int) -> _Row: ...

    @overload
    def __getitem__(self, index: slice) -> list[_Row]: ...

    def __getitem__(self, index: int | slice) -> _Row | list[_Row]:
        if isinstance(index, slice):
            return [self[at] for at in range(*index.indices(len(self)))]
        at = range(len(self))[index]
        return self._row(self._layout.unpack_from(self._packed, at * self._layout.size))

    def __iter__(self) -> Iterator[_Row]:
        return map(self._row, self._layout.iter_unpack(self._packed))

    def __repr__(self) -> str:
        return f"<{len(self)} {type(self).__name__.lower()}>"


class Records(_Rows[Record]):
    """Recordings: a sequence of Record."""

    _layout = struct.Struct("<IIIIIQBB")

    def _row(self, fields: tuple[Any, ...]) -> Record:
        block, channel, segment, start, end, size, closed, mark = fields
        return Record(block, channel, segment, self._clock.time_of_second(start), self._clock.time_of_second(end),
                      size, bool(closed), _MARKS[mark])

    def to_numpy(self) -> numpy.ndarray[Any, Any]:
        """An array: block, channel, segment, start, end (datetime64, UTC), bytes, closed, mark (0, 1 suspect, 2 bad)."""
        import numpy

        packed = numpy.frombuffer(self._packed, dtype=[
            ("block", "<u4"), ("channel", "<u4"), ("segment", "<u4"), ("start", "<u4"), ("end", "<u4"),
            ("bytes", "<u8"), ("closed", "?"), ("mark", "u1")])
        return with_times(packed, ("start", "end"), "s", self._clock.skew)


class Events(_Rows[Event]):
    """Events: a sequence of Event."""

    _layout = struct.Struct("<qQIIiB")

    def _row(self, fields: tuple[Any, ...]) -> Event:
        micros, types, block, entry, channel, indexed = fields
        return Event(self._clock.time(micros), types, block, entry, None if channel < 0 else channel, bool(indexed))

    def to_numpy(self) -> numpy.ndarray[Any, Any]:
        """An array: time (datetime64, UTC), type, block, entry, channel (-1: not known), indexed."""
        import numpy

        packed = numpy.frombuffer(self._packed, dtype=[
            ("time", "<i8"), ("type", "<u8"), ("block", "<u4"), ("entry", "<u4"), ("channel", "<i4"),
            ("indexed", "?")])
        return with_times(packed, ("time",), "us", self._clock.skew * MICROS)


class Journeys(_Rows[Journey]):
    """Journeys: a sequence of Journey."""

    _layout = struct.Struct("<IIIIQQQQ")

    def _row(self, fields: tuple[Any, ...]) -> Journey:
        number, start, end, channels, records, size, events, losses = fields
        return Journey(number, self._clock.time_of_second(start), self._clock.time_of_second(end),
                       channels_of(channels), records, size, events, losses)

    def to_numpy(self) -> numpy.ndarray[Any, Any]:
        """An array: number, start, end (datetime64, UTC), channels (bits), records, bytes, events, losses."""
        import numpy

        packed = numpy.frombuffer(self._packed, dtype=[
            ("number", "<u4"), ("start", "<u4"), ("end", "<u4"), ("channels", "<u4"), ("records", "<u8"),
            ("bytes", "<u8"), ("events", "<u8"), ("losses", "<u8")])
        return with_times(packed, ("start", "end"), "s", self._clock.skew)


def with_times(packed: numpy.ndarray[Any, Any], times: Iterable[str], unit: str,
                skew: int) -> numpy.ndarray[Any, Any]:
    """A copy with fields of time in place of numbers, in true time."""
    import numpy

    names = packed.dtype.names or ()
    answer = numpy.empty(packed.shape, dtype=[
        (name, f"<M8[{unit}]" if name in times else packed.dtype[name].str) for name in names])
    for name in names:
        answer[name] = (packed[name].astype("<i8") - skew).astype(f"<M8[{unit}]") if name in times else packed[name]
    return answer
