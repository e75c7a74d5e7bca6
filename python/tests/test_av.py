"""Frames decoded by PyAV, without a copy on the way."""

import datetime
import pathlib
import runpy

import pytest

import diskaccess
from conftest import UTC, required

av = pytest.importorskip("av", reason="python3-av is not installed")


def test_frames_go_into_a_decoder(sample: pathlib.Path) -> None:
    start = datetime.datetime(2026, 11, 20, 16, 21, 0, tzinfo=UTC)
    decoder = av.CodecContext.create("h264", "r")
    pictures = []
    with diskaccess.open(sample) as disk:
        for frame in disk.frames(start, start, channels=[3]):
            if frame.kind != "audio":
                pictures += decoder.decode(av.Packet(frame))
    pictures += decoder.decode(None)
    assert {(picture.width, picture.height) for picture in pictures} == {(352, 288)}
    assert 10 <= len(pictures) <= 30  # ten a second, from the key frame before on: there is one every two seconds


def test_the_example_writes_a_picture(sample: pathlib.Path, tmp_path: pathlib.Path,
                                      monkeypatch: pytest.MonkeyPatch) -> None:
    example = required("EXAMPLES") / "decode_frames.py"
    monkeypatch.setattr("sys.argv", [str(example), str(sample), "2026-11-20T16:21:00+00:00", "0",
                                     str(tmp_path / "picture.png")])
    runpy.run_path(str(example), run_name="__main__")
    assert (tmp_path / "picture.png").read_bytes()[:8] == b"\x89PNG\r\n\x1a\n"
