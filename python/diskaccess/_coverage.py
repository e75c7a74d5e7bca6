"""When each channel was recorded, and when not."""

from __future__ import annotations

import dataclasses
import datetime
from collections.abc import Iterable, Sequence
from typing import TYPE_CHECKING, Any, NamedTuple, overload

from ._rows import Events, Journeys, with_times
from ._times import Clock
from ._values import Journey, Problem, channels_of, problem_of

if TYPE_CHECKING:
    import numpy

_Pairs = Iterable[tuple[int, int]]


class Span(NamedTuple):
    """A stretch of time."""

    start: datetime.datetime
    end: datetime.datetime  #: its last second


class Alarm(NamedTuple):
    """A time with alarms: an event with what is recorded before and after it, joined with those that it meets."""

    start: datetime.datetime
    end: datetime.datetime  #: its last second
    types: int  #: bits of its events


class Damage(NamedTuple):
    """Something that is damaged or missing, and when it was recorded."""

    start: datetime.datetime
    end: datetime.datetime  #: its last second
    channels: tuple[int, ...]  #: those that it concerns; all where that is not known
    problem: Problem


class ChannelCoverage(NamedTuple):
    """One channel in one journey. Spans rise, and lie apart from each other."""

    recorded: list[Span]
    gaps: list[Span]  #: between them


@dataclasses.dataclass(frozen=True)
class JourneyCoverage:
    """One journey."""

    journey: Journey
    channels: dict[int, ChannelCoverage]  #: those with a recording in it, by number
    alarms: list[Alarm]
    events: Events
    damage: list[Damage]


class Coverage(Sequence[JourneyCoverage]):
    """What was recorded when: a sequence of JourneyCoverage."""

    def __init__(self, rows: list[tuple[Any, ...]], clock: Clock) -> None:
        self._rows = rows
        self._clock = clock

    def __len__(self) -> int:
        return len(self._rows)

    @overload
    def __getitem__(self, index: int) -> JourneyCoverage: ...

    @overload
    def __getitem__(self, index: slice) -> list[JourneyCoverage]: ...

    def __getitem__(self, index: int | slice) -> JourneyCoverage | list[JourneyCoverage]:
        if isinstance(index, slice):
            return [self._journey(row) for row in self._rows[index]]
        return self._journey(self._rows[index])

    def __repr__(self) -> str:
        return f"<coverage of {len(self)} journeys>"

    def to_numpy(self) -> numpy.ndarray[Any, Any]:
        """All spans as an array: journey, channel, start, end (datetime64, UTC; its last second)."""
        import numpy

        rows = [(Journeys(row[0], self._clock)[0].number, channel, start, end)
                for row in self._rows for channel, recorded, _ in row[1] for start, end in recorded]
        table = numpy.array(rows, dtype=[("journey", "<u4"), ("channel", "u1"), ("start", "<u4"), ("end", "<u4")])
        return with_times(table, ("start", "end"), "s", self._clock.skew)

    def _journey(self, row: tuple[Any, ...]) -> JourneyCoverage:
        journey, channels, alarms, events, damage = row
        time = self._clock.time_of_second
        return JourneyCoverage(
            Journeys(journey, self._clock)[0],
            {channel: ChannelCoverage(self._spans(recorded), self._spans(gaps))
             for channel, recorded, gaps in channels},
            [Alarm(time(start), time(end), types) for start, end, types in alarms],
            Events(events, self._clock),
            [Damage(time(start), time(end), channels_of(bits), problem_of(problem, self._clock))
             for start, end, bits, problem in damage])

    def _spans(self, pairs: _Pairs) -> list[Span]:
        time = self._clock.time_of_second
        return [Span(time(start), time(end)) for start, end in pairs]
