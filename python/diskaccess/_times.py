"""Times of the recorder's clock, and of the rest of the world."""

from __future__ import annotations

import datetime
from typing import TYPE_CHECKING, Union

from . import _native

if TYPE_CHECKING:
    import numpy

#: A time that the package takes: a datetime with a zone, or a numpy.datetime64, which is in UTC.
Time = Union[datetime.datetime, "numpy.datetime64"]

MICROS = 1_000_000
_EPOCH = datetime.datetime(1970, 1, 1, tzinfo=datetime.timezone.utc)
_LAST_SECOND = 0xFFFFFFFF  # that the recorder's clock can count


def to_micros(time: Time) -> int:
    """A time as microseconds since 1970. OverflowError for a datetime64 that 64 bits of them do not reach."""
    if isinstance(time, datetime.datetime):
        if time.utcoffset() is None:
            raise ValueError(f"{time!r} has no zone; give it one, like tzinfo=datetime.timezone.utc")
        return (time - _EPOCH) // datetime.timedelta(microseconds=1)
    if type(time).__name__ == "datetime64":
        if str(time) == "NaT":
            raise ValueError("NaT is no time")
        micros = time.astype("datetime64[us]")
        if micros.astype("datetime64[Y]") != time.astype("datetime64[Y]"):  # numpy wraps silently
            raise OverflowError(f"{time!r} is farther away than 64 bits of microseconds reach")
        return int(micros.astype("int64"))
    raise TypeError(f"{time!r} is no time; give a datetime with a zone, or a numpy.datetime64")


class Clock:
    """A recorder's clock, which may have been ahead, and the zone in which times are wanted."""

    def __init__(self, skew: int, zone: datetime.tzinfo) -> None:
        self.skew = skew
        self.zone = zone

    def true_micros(self, disk_micros: int) -> int:
        return disk_micros - self.skew * MICROS

    def time(self, disk_micros: int) -> datetime.datetime:
        """The true time of a time stamp. OverflowError for a damaged one outside the years 1 to 9999."""
        return _native.to_datetime(self.true_micros(disk_micros), self.zone)

    def time_of_second(self, disk_seconds: int) -> datetime.datetime:
        return self.time(disk_seconds * MICROS)

    def disk_second(self, time: Time) -> int:
        """The second that the recorder's clock showed, or the nearest that it can show."""
        return min(max(to_micros(time) // MICROS + self.skew, 0), _LAST_SECOND)

    def disk_micros(self, time: Time) -> int:
        """The microsecond that the recorder's clock showed, or the nearest that it can show."""
        return min(max(to_micros(time) + self.skew * MICROS, 0), _LAST_SECOND * MICROS + MICROS - 1)

    def disk_range(self, start: Time | None, end: Time | None) -> tuple[int, int]:
        first = 0 if start is None else self.disk_second(start)
        last = _LAST_SECOND if end is None else self.disk_second(end)
        if first > last:
            raise ValueError("start lies after end")
        return first, last
