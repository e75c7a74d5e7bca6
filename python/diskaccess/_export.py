"""Files out of recordings."""

from __future__ import annotations

import dataclasses
import datetime
import os
from typing import Any, NamedTuple

from . import _native
from ._times import Clock
from ._values import Problem, problem_of

_CONTAINERS = ("matroska", "mp4", "raw")


class Output(NamedTuple):
    """A file that was made."""

    path: str
    size: int  #: bytes
    sha256: str


class Track(NamedTuple):
    """One stream of an export: the video or the audio of a channel."""

    channel: int
    kind: str  #: "video" or "audio"
    codec: str
    frames: int
    bytes: int
    start: datetime.datetime
    end: datetime.datetime
    path: str


class LeftOut(NamedTuple):
    """Frames that are in no file, and why."""

    channel: int
    kind: str  #: "video" or "audio"
    frames: int
    reason: str  #: "encoding_unknown", ...
    description: str


@dataclasses.dataclass(frozen=True)
class Export:
    """What came of an export."""

    outputs: list[Output]  #: without the manifest; none when nothing of the range can be put into the container
    manifest: str
    tracks: list[Track]
    left_out: list[LeftOut]
    problems: list[Problem]


def file_name(path: str | os.PathLike[str]) -> bytes:
    """The bytes by which the system knows a file; a name need not be text."""
    name = os.fsencode(path)
    if b"\0" in name:
        raise ValueError(f"{path!r} holds a NUL character, which no path has")
    return name


def _text_of_name(path: str | os.PathLike[str]) -> str:
    try:
        return file_name(path).decode()
    except UnicodeDecodeError:
        raise ValueError(f"{path!r} is not UTF-8, and no manifest can name it; give another name") from None


def request(output: str | os.PathLike[str], container: str | None, audio: tuple[str, int] | None,
            replace: bool) -> dict[str, Any]:
    name = _text_of_name(output)
    if container is None:
        container = "mp4" if name.endswith(".mp4") else "matroska"
    if container not in _CONTAINERS:
        raise ValueError(f"container {container!r} is none of {', '.join(_CONTAINERS)}")
    codec, rate = ("", 0) if audio is None else audio
    return {"name": name, "container": container, "audio_codec": codec, "audio_rate": rate, "replace": replace}


def run(shared: _native.SharedDisk, asked: dict[str, Any], clock: Clock) -> Export | None:
    words = _Words(clock)
    now = datetime.datetime.now(clock.zone).replace(microsecond=0)
    asked.update(made=_rfc3339(now, "seconds"), skew=clock.skew, zone=str(clock.zone))
    answer = shared.export(asked, words)
    if answer is None:
        return None
    outputs = [Output(*fields) for fields in answer["outputs"]]
    tracks = [Track(channel, _kind(video), codec, frames, size, clock.time(first), clock.time(last),
                    outputs[output].path)
              for channel, video, codec, frames, size, first, last, output in answer["tracks"]]
    left_out = [LeftOut(channel, _kind(video), frames, reason, description)
                for channel, video, frames, reason, description in answer["left_out"]]
    problems = [problem_of(fields, clock) for fields in answer["problems"]]
    return Export(outputs, answer["manifest"], tracks, left_out, problems)


def _kind(video: bool) -> str:
    return "video" if video else "audio"


def _rfc3339(time: datetime.datetime, precision: str) -> str:
    text = time.isoformat(timespec=precision)
    return text[:-6] + "Z" if text.endswith("+00:00") else text


def _offset_if_twice(time: datetime.datetime) -> str:
    """The distance from UTC of a time that comes twice because clocks are turned back, as the program writes it."""
    twin = time.replace(fold=1 - time.fold)
    return "" if twin.utcoffset() == time.utcoffset() else time.isoformat(timespec="seconds")[19:]


class _Words:
    """How a manifest writes times."""

    def __init__(self, clock: Clock) -> None:
        self._clock = clock
        self._utc = Clock(clock.skew, datetime.timezone.utc)

    def timestamp(self, micros: int) -> str:
        return self._text(self._clock, micros)

    def utc_timestamp(self, micros: int) -> str:
        return self._text(self._utc, micros)

    def readable_time(self, micros: int) -> str:
        return self._readable(micros, "milliseconds")

    def readable_second(self, micros: int) -> str:
        return self._readable(micros, "seconds")

    def _readable(self, micros: int, precision: str) -> str:
        try:
            time = self._clock.time(micros)
        except OverflowError:
            return f"@{self._clock.true_micros(micros)} us"
        return time.replace(tzinfo=None).isoformat(" ", precision) + _offset_if_twice(time)

    @staticmethod
    def _text(clock: Clock, micros: int) -> str:
        try:
            return _rfc3339(clock.time(micros), "microseconds")
        except OverflowError:
            return f"@{clock.true_micros(micros)} us"
