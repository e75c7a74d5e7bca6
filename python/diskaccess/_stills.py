"""Single pictures."""

from __future__ import annotations

import dataclasses
import datetime
from typing import TYPE_CHECKING, Any

from . import _native
from ._times import Clock, Time
from ._values import Problem, problem_of

if TYPE_CHECKING:
    import numpy

_REASONS = {
    "damaged": "the frame, or one that it needs, is damaged; damaged=True takes what can be decoded of it",
    "not recorded": "nothing was recorded; records() tells when something was",
    "key frame missing": "frames were recorded, but the key frame that they need is not there",
    "not decodable": "the frame is there, but no picture comes of it",
    "unknown codec": "the video is neither H.264 nor H.265",
}


@dataclasses.dataclass(frozen=True, eq=False)
class Still:
    """What a channel showed at a time."""

    channel: int
    #: "whole", "damaged" (parts of it are made up), "not recorded", "key frame missing", "not decodable" or "unknown codec"
    state: str
    time: datetime.datetime | None  #: when the frame was recorded; None: nothing was
    block: int | None  #: that the frame lies in
    offset: int | None  #: of the frame's head, in bytes from the start of the block's frame area
    picture: numpy.ndarray[Any, numpy.dtype[numpy.uint8]] | None  #: rows, columns, and red, green and blue
    problems: list[Problem]  #: that were met around the frame: the one that was asked for may be missing


def take(shared: _native.SharedDisk, clock: Clock, time: Time, channels: int) -> list[Still]:
    stills, met = shared.stills(clock.disk_micros(time), channels)
    problems = [problem_of(fields, clock) for fields in met]
    return [Still(channel, state, None if micros is None else clock.time(micros), block, offset, picture,
                  [problem for problem in problems if _concerns(problem, channel)])
            for channel, state, micros, block, offset, picture in stills]


def picture_of(still: Still | None, source: str, what: str,
               damaged: bool) -> numpy.ndarray[Any, numpy.dtype[numpy.uint8]]:
    """The picture, if there is one as it is wanted."""
    state = "not recorded" if still is None else still.state
    if still is None or still.picture is None or (state == "damaged" and not damaged):
        raise _native.StillError(f"{source}: {what}: {_REASONS[state]}")
    return still.picture


def _concerns(problem: Problem, channel: int) -> bool:
    named = problem.channels if problem.channel is None else (problem.channel,)
    return not named or channel in named
