"""Disks, opened."""

from __future__ import annotations

import datetime
import os
from collections.abc import Iterable, Iterator
from types import TracebackType
from typing import TYPE_CHECKING, Any

from . import _export, _native, _stills
from ._coverage import Coverage
from ._rows import Events, Journeys, Records
from ._times import MICROS, Clock, Time
from ._values import Gap, Info, Problem, info_of, problem_of

if TYPE_CHECKING:
    import numpy

_ALL_CHANNELS = 0xFFFFFFFF
_ALL_EVENTS = 0xFFFFFFFFFFFFFFFF


def open(source: str | os.PathLike[str], password: str | None = None, *, partition: int | None = None,
         disk_type: int | None = None, skew: int = 0,
         tz: datetime.tzinfo = datetime.timezone.utc) -> Disk:
    """Opens a recorder's partition: a block device or an image file, plain, split or E01. It is only ever read.

    password: opens the access lock. Without one, the channels that the lock hides are left out.
    partition: its number, on a whole disk that has several of recorders.
    disk_type: the recorder's disk type code, where the head's magic is not to decide.
    skew: seconds that the recorder's clock was ahead of true time.
    tz: the zone of all times in answers.

    Raises OpenError or PasswordError.
    """
    return Disk(source, password, partition=partition, disk_type=disk_type, skew=skew, tz=tz)


class Disk:
    """An opened disk: a context manager that closes it.

    Ranges of time: start and end are datetimes with a zone or numpy.datetime64; both their seconds belong to the range,
    and None is as far as there is something. channels: numbers from 0 to 31; None is all.

    Threads may share a disk; they use it one after the other, without the interpreter's lock.
    """

    def __init__(self, source: str | os.PathLike[str], password: str | None = None, *,
                 partition: int | None = None, disk_type: int | None = None, skew: int = 0,
                 tz: datetime.tzinfo = datetime.timezone.utc) -> None:
        self._clock = Clock(skew, tz)
        self._shared = _native.open_disk(_export.file_name(source), partition, disk_type, password)
        self._info = info_of(self._shared.facts(), self._clock)

    def __enter__(self) -> Disk:
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __repr__(self) -> str:
        state = "closed " if self.closed else ""
        return f"<{state}Disk {self._info.source!r}: {self._info.description!r}>"

    def close(self) -> None:
        """Closes the disk, also when it is closed already. Frames that were delivered stay as they are."""
        self._shared.close()

    @property
    def closed(self) -> bool:
        """Whether it is closed."""
        return self._shared.is_closed()

    @property
    def info(self) -> Info:
        """What the disk is; also after it was closed."""
        return self._info

    def records(self, start: Time | None = None, end: Time | None = None,
                channels: Iterable[int] | None = None) -> Records:
        """The recordings of a range, block by block in recording order, uncut."""
        first, last = self._clock.disk_range(start, end)
        return Records(self._shared.records(first, last, _channel_bits(channels)), self._clock)

    def journeys(self, channels: Iterable[int] | None = None, *, silence: int = 300) -> Journeys:
        """The journeys of the whole disk: times in which something was recorded, from one long silence to the next.

        channels: a journey without any of them is left out; the others keep their numbers and times.
        silence: seconds without any recording, of any channel, that part two journeys, when there are more.
        """
        return Journeys(self._shared.journeys(_channel_bits(channels), _silence(silence)), self._clock)

    def coverage(self, channels: Iterable[int] | None = None, *, silence: int = 300) -> Coverage:
        """What a timeline draws, journey by journey: when each channel was recorded, and when not, alarms, damage.

        channels, silence: as for journeys().
        """
        return Coverage(self._shared.coverage(_channel_bits(channels), _silence(silence)), self._clock)

    def events(self, start: Time | None = None, end: Time | None = None, types: int = _ALL_EVENTS) -> Events:
        """The events of a range.

        types: those whose type has a bit in common with it.
        """
        first, last = self._clock.disk_range(start, end)
        return Events(self._shared.events(first, last, types), self._clock)

    def problems(self, start: Time | None = None, end: Time | None = None,
                 channels: Iterable[int] | None = None) -> list[Problem]:
        """What is wrong with the disk, with its blocks of a range and with their indexes.

        What is wrong with the frames themselves is found by reading them: see Frames.problems.
        """
        first, last = self._clock.disk_range(start, end)
        found = self._shared.problems(first, last, _channel_bits(channels))
        return [problem_of(fields, self._clock) for fields in found]

    def frames(self, start: Time | None = None, end: Time | None = None, channels: Iterable[int] | None = None, *,
               decodable: bool = True, payload: bool = True) -> Frames:
        """The video and audio frames of a range, in the order in which they were recorded.

        decodable: begin each video channel with the last key frame at or before the range, and after a loss with the
            next one. Otherwise every frame of the range comes, and none before it.
        payload: whether payloads are read. Heads alone are faster.
        """
        first, last = self._clock.disk_range(start, end)
        return Frames(self._shared, self._clock, first, last, _channel_bits(channels), decodable, payload)

    def stills(self, time: Time, channels: Iterable[int] | None = None) -> list[_stills.Still]:
        """What channels showed at a time: of each the last frame at or before it, decoded in full size.

        Channels of which no video was met are left out. A process without privileges decodes; it is a copy of this one,
        so let no other thread decode meanwhile, with PyAV say. Takes NumPy.
        """
        return _stills.take(self._shared, self._clock, time, _channel_bits(channels))

    def still(self, time: Time, channel: int, *, damaged: bool = False) -> numpy.ndarray[Any, numpy.dtype[numpy.uint8]]:
        """What a channel showed at a time, as an array of rows, columns and red, green and blue.

        damaged: whether a picture is taken of which parts are made up, because frames are damaged.

        Raises StillError when there is none. stills() tells more.
        """
        if channel in self._info.hidden_channels:
            raise _native.StillError(
                f"{self._info.source}: the lock hides channel {channel}; open the disk with its password")
        still = next(iter(self.stills(time, [channel])), None)
        return _stills.picture_of(still, self._info.source, f"channel {channel} at {time}", damaged)

    def export(self, output: str | os.PathLike[str], start: Time | None = None, end: Time | None = None,
               channels: Iterable[int] | None = None, *, container: str | None = None,
               audio: tuple[str, int] | None = None, replace: bool = False) -> _export.Export | None:
        """Writes the video and audio of a range into files, without transcoding; beside them a manifest (OUTPUT.json).

        container: "matroska", "mp4", or "raw" for elementary streams, whose names begin with output; by default as
            output ends, else matroska.
        audio: codec as libavcodec names it and samples a second, where the disk does not tell.
        replace: whether files of these names may be replaced. Never the source.

        Returns None when the range holds no frames. Raises ExportError when files cannot be made; then there are none.
        """
        first, last = self._clock.disk_range(start, end)
        request = _export.request(output, container, audio, replace)
        request.update(first=first, last=last, from_given=start is not None, to_given=end is not None,
                       channels=_channel_bits(channels), source=os.fsencode(os.path.abspath(self._info.source)))
        return _export.run(self._shared, request, self._clock)


class Frames:
    """An iterator over frames: Disk.frames() makes it. It may be dropped half-way."""

    def __init__(self, shared: _native.SharedDisk, clock: Clock, first: int, last: int, channels: int,
                 decodable: bool, payload: bool) -> None:
        self._reader = _native.read_frames(shared, first, last, channels, decodable, payload, clock.skew * MICROS,
                                           clock.zone)
        self._clock = clock

    def __iter__(self) -> Iterator[_native.Frame]:
        return iter(self._reader)

    def __next__(self) -> _native.Frame:
        return next(self._reader)

    def close(self) -> None:
        """Ends the reading."""
        self._reader.close()

    @property
    def problems(self) -> list[Problem]:
        """What was wrong with what was read so far. Nothing is missing if none of them is a loss."""
        return [problem_of(fields, self._clock) for fields in self._reader.problems()]

    @property
    def gaps(self) -> list[Gap]:
        """Where nothing was recorded, as far as was read."""
        return [Gap(channel, video, block, self._clock.time(before), self._clock.time(after))
                for channel, video, block, before, after in self._reader.gaps()]

    def to_numpy(self) -> numpy.ndarray[Any, Any]:
        """The rest of the frames, without payload, as an array: time, channel, kind (0 picture, 1 key, 2 audio), size,
        block, offset."""
        import numpy

        kinds = {"picture": 0, "key": 1, "audio": 2}
        rows = [(frame.timestamp, frame.channel, kinds[frame.kind], len(frame), frame.block, frame.offset)
                for frame in self]
        return numpy.array(rows, dtype=[("time", "<M8[us]"), ("channel", "u1"), ("kind", "u1"), ("size", "<u4"),
                                        ("block", "<u4"), ("offset", "<u4")])


def _silence(seconds: int) -> int:
    if not 0 <= seconds <= 0xFFFFFFFF:
        raise ValueError(f"a silence of {seconds} seconds is none; give 0 or more")
    return seconds


def _channel_bits(channels: Iterable[int] | None) -> int:
    if channels is None:
        return _ALL_CHANNELS
    bits = 0
    for channel in channels:
        if not 0 <= channel <= 31:
            raise ValueError(f"{channel} is no channel; give numbers from 0 to 31")
        bits |= 1 << channel
    return bits
