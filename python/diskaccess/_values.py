"""What answers are made of."""

from __future__ import annotations

import dataclasses
import datetime
from typing import Any, NamedTuple

from ._times import Clock


class Record(NamedTuple):
    """One continuous stretch of one channel inside one block."""

    block: int
    channel: int
    segment: int  #: number of the channel's segment in the block, from 0 on
    start: datetime.datetime
    end: datetime.datetime  #: its last second
    bytes: int
    closed: bool  #: else the block has no index: the record was made from its frames
    mark: str  #: what the bad-block tables say of the block: "", "suspect" or "bad"


class Event(NamedTuple):
    """An event."""

    time: datetime.datetime
    type: int  #: bits
    block: int
    entry: int  #: number of the event in its block, from 0 on
    channel: int | None
    indexed: bool  #: else the block has no index: the event was taken from its frames


class Journey(NamedTuple):
    """A time in which something was recorded, without a long silence in it."""

    number: int  #: among all journeys of the disk, from 1 on, whichever channels are asked for
    start: datetime.datetime
    end: datetime.datetime  #: its last second
    channels: tuple[int, ...]
    records: int
    bytes: int
    events: int
    losses: int  #: problems of that severity that are known without reading the frames of closed blocks


class Channel(NamedTuple):
    """How the newest block says that a channel is encoded. Codes are the recorder's own."""

    video_code: int
    frame_rate: int
    resolution_code: int
    bitrate: int
    key_frame_distance: int
    audio_code: int
    sample_rate: int
    sample_bits: int
    audio_frame_bytes: int


class Gap(NamedTuple):
    """A stretch in which a channel's video or audio was not recorded."""

    channel: int
    video: bool
    block: int  #: where recording goes on
    start: datetime.datetime  #: the last frame before
    end: datetime.datetime  #: the first frame after


@dataclasses.dataclass(frozen=True)
class Info:
    """What a disk is."""

    source: str
    size: int  #: bytes
    description: str
    layout: str  #: of blocks: "normal" or "extended"
    disk_type: int
    block_count: int
    block_size: int  #: bytes
    recorded_blocks: int
    empty_blocks: int
    locked: bool  #: the disk has an access lock
    hidden_channels: tuple[int, ...]  #: that the lock hides for now
    start: datetime.datetime | None  #: the start of the oldest block; None: nothing was recorded
    newest_start: datetime.datetime | None  #: the start of the newest block
    vehicle_number: str  #: as the newest block has it
    vehicle_id: str
    pre_record: datetime.timedelta  #: what is recorded before an alarm
    alarm_delay: datetime.timedelta  #: what is recorded after one
    channels: dict[int, Channel]  #: of the newest block, by number


@dataclasses.dataclass(frozen=True)
class Problem:
    """One thing that is wrong with a disk. Fields that do not apply are None, 0 or empty."""

    kind: str  #: "bytes_damaged", ...
    severity: str  #: "note": nothing is missing because of it; "loss": something recorded is missing, or in doubt
    text: str  #: one line of plain English, without times
    block: int | None
    block_after: int | None
    channel: int | None
    channels: tuple[int, ...]
    offset: int | None  #: bytes from the start of the block's frame area
    bytes: int
    count: int
    before: datetime.datetime | None  #: the frame before; None also for a time that no datetime can hold
    after: datetime.datetime | None  #: the frame after; the same

    @property
    def is_loss(self) -> bool:
        return self.severity == "loss"

    def __str__(self) -> str:
        return self.text


def channels_of(bits: int) -> tuple[int, ...]:
    return tuple(channel for channel in range(32) if bits >> channel & 1)


def info_of(facts: dict[str, Any], clock: Clock) -> Info:
    values = dict(facts)
    values["hidden_channels"] = channels_of(values["hidden_channels"])
    for key in ("start", "newest_start"):
        values[key] = None if values[key] is None else clock.time_of_second(values[key])
    values["pre_record"] = datetime.timedelta(seconds=values.pop("pre_record_seconds"))
    values["alarm_delay"] = datetime.timedelta(seconds=values.pop("alarm_delay_seconds"))
    values["channels"] = {number: Channel(*fields) for number, fields in values["channels"].items()}
    return Info(**values)


def problem_of(fields: tuple[Any, ...], clock: Clock) -> Problem:
    (kind, severity, text, block, block_after, channel, channels, offset, size, count, before, after) = fields
    return Problem(kind, severity, text, block, block_after, channel, channels_of(channels), offset, size, count,
                   _time_or_none(before, clock), _time_or_none(after, clock))


def _time_or_none(micros: int | None, clock: Clock) -> datetime.datetime | None:
    try:
        return None if micros is None else clock.time(micros)
    except OverflowError:
        return None
