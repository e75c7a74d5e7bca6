"""Exports, which are the program's own."""

import ctypes
import datetime
import hashlib
import json
import os
import pathlib
import subprocess
import threading
import zoneinfo
from collections.abc import Callable

import pytest

import diskaccess
from conftest import UTC, record

FROM = datetime.datetime(2026, 11, 20, 16, 21, 0, tzinfo=UTC)
TO = datetime.datetime(2026, 11, 20, 16, 21, 9, tzinfo=UTC)
MIB = 1024 * 1024


def manifest_of(file: pathlib.Path) -> dict[str, object]:
    """What a manifest says that does not depend on who made it, when, and where."""
    manifest: dict[str, object] = json.loads(file.with_name(file.name + ".json").read_text())
    for key in ("arguments", "made", "manifest_sha256", "outputs", "program", "source"):
        manifest.pop(key, None)
    return manifest


def test_the_same_bytes_as_the_program(sample: pathlib.Path, program: pathlib.Path, tmp_path: pathlib.Path,
                                       capfd: pytest.CaptureFixture[str]) -> None:
    (tmp_path / "theirs").mkdir()
    (tmp_path / "ours").mkdir()
    subprocess.run([str(program), "export", str(sample), "--utc", "--from", "2026-11-20 16:21:00", "--to",
                    "2026-11-20 16:21:09", "-o", str(tmp_path / "theirs/film.mkv")], check=True, capture_output=True)
    with diskaccess.open(sample) as disk:
        result = disk.export(tmp_path / "ours/film.mkv", FROM, TO)
    assert result is not None
    assert capfd.readouterr().err == ""
    film = (tmp_path / "ours/film.mkv").read_bytes()
    assert film == (tmp_path / "theirs/film.mkv").read_bytes()
    assert result.outputs == [(str(tmp_path / "ours/film.mkv"), len(film), hashlib.sha256(film).hexdigest())]
    assert manifest_of(tmp_path / "ours/film.mkv") == manifest_of(tmp_path / "theirs/film.mkv")


def test_hostile_texts_and_times_that_come_twice_are_written_as_the_program_does(
        program: pathlib.Path, tmp_path: pathlib.Path) -> None:
    # At three in summer time clocks are turned back to two: the hour from 00:00 UTC on comes twice.
    disk = record(tmp_path / "disk.img", [("2026-10-25T00:30:00Z", [{"channel": 0, "video": "door-2.h264"}])])
    with diskaccess.open(disk) as opened:
        victim = list(opened.frames(payload=False))[15]
    data = bytearray(disk.read_bytes())
    place = len(data) - 4 * MIB + victim.block * MIB + 840 + victim.offset
    data[place:place + 24] = b"\xee" * 24  # a frame's head
    number = b"a\\\xff\x9b\xe2\x80\xae"  # a backslash, no UTF-8 twice, a mark that turns text
    disk.write_bytes(data.replace(b"SAMPLE 1", number + b"b"))
    theirs, ours = tmp_path / "theirs.mkv", tmp_path / "ours.mkv"
    exported = subprocess.run([str(program), "export", str(disk), "--tz", "Europe/Berlin", "-o", str(theirs)],
                              check=False, capture_output=True)
    assert exported.returncode == 3  # a loss
    with diskaccess.open(disk, tz=zoneinfo.ZoneInfo("Europe/Berlin")) as opened:
        assert opened.export(ours) is not None
    manifest = manifest_of(ours)
    assert manifest == manifest_of(theirs)
    assert manifest["vehicle_number"] == "a\\\\\\xff\\x9b\\xe2\\x80\\xaeb"
    assert "2026-10-25 02:30:01" in str(manifest["losses"]) and "+02:00" in str(manifest["losses"])


def log_level_of_libavutil() -> tuple[Callable[[], int], Callable[[int], None]]:
    """The functions that say and set which messages this process's libavutil prints."""
    with open("/proc/self/maps", encoding="utf-8") as maps:
        found = next((word for word in maps.read().split() if "/libavutil.so" in word), None)
    if found is None:
        pytest.skip("the module was built without libavformat")
    library = ctypes.CDLL(found)
    return library.av_log_get_level, library.av_log_set_level


def test_messages_of_libavutil_are_as_before(sample: pathlib.Path, tmp_path: pathlib.Path) -> None:
    get_level, set_level = log_level_of_libavutil()
    set_level(32)
    with diskaccess.open(sample) as first, diskaccess.open(sample) as second:
        first.export(tmp_path / "film.mkv", FROM, FROM)
        assert get_level() == 32
        with pytest.raises(diskaccess.ExportError):
            first.export(tmp_path / "film.mkv", FROM, FROM)
        assert get_level() == 32
        threads = [threading.Thread(target=disk.export, args=(tmp_path / name, FROM, TO))
                   for disk, name in ((first, "first.mkv"), (second, "second.mkv"))]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert (tmp_path / "first.mkv").exists() and (tmp_path / "second.mkv").exists()
    assert get_level() == 32


def test_what_came_of_it(sample: pathlib.Path, tmp_path: pathlib.Path) -> None:
    with diskaccess.open(sample) as disk:
        result = disk.export(tmp_path / "rear", FROM, TO, [1], container="raw")
    assert result is not None
    assert [pathlib.Path(output.path).name for output in result.outputs] == ["rear-ch1.h264"]
    track = result.tracks[0]
    assert (track.channel, track.kind, track.codec, track.path) == (1, "video", "h264", result.outputs[0].path)
    assert track.start <= FROM and FROM <= track.end <= TO + datetime.timedelta(seconds=1)
    assert track.frames >= 250 and track.bytes == result.outputs[0].size  # 25 a second
    assert result.left_out == [] and result.manifest == str(tmp_path / "rear.json")


def test_names_that_are_no_text(sample: pathlib.Path, tmp_path: pathlib.Path) -> None:
    source = os.fsencode(tmp_path / "disk") + b"\xff.img"
    os.symlink(sample, source)
    with diskaccess.open(source) as disk:
        assert disk.export(tmp_path / "film.mkv", FROM, FROM) is not None
        with pytest.raises(ValueError, match="not UTF-8"):
            disk.export(os.fsdecode(os.fsencode(tmp_path / "film") + b"\xff.mkv"), FROM, FROM)
    assert sorted(os.listdir(os.fsencode(tmp_path))) == [b"disk\xff.img", b"film.mkv", b"film.mkv.json"]


def test_nothing_of_that_time(sample: pathlib.Path, tmp_path: pathlib.Path) -> None:
    with diskaccess.open(sample) as disk:
        assert disk.export(tmp_path / "film.mkv", TO + datetime.timedelta(days=1)) is None
    assert list(tmp_path.iterdir()) == []


def test_what_is_there_is_not_replaced_unasked(sample: pathlib.Path, tmp_path: pathlib.Path) -> None:
    film = tmp_path / "film.mp4"
    film.write_text("mine")
    with diskaccess.open(sample) as disk:
        with pytest.raises(diskaccess.ExportError, match="film.mp4"):
            disk.export(film, FROM, TO, [0])
        assert film.read_text() == "mine"
        disk.export(film, FROM, TO, [0], replace=True)
        assert film.read_bytes()[4:8] == b"ftyp"
        with pytest.raises(ValueError, match="avi"):
            disk.export(film, container="avi")


def test_the_source_is_never_written(disk: pathlib.Path, tmp_path: pathlib.Path) -> None:
    before = disk.read_bytes()
    (tmp_path / "link.mkv").hardlink_to(disk)
    with diskaccess.open(disk) as opened:
        for name in (disk, tmp_path / "link.mkv"):
            with pytest.raises(diskaccess.ExportError):
                opened.export(name, replace=True)
    assert disk.read_bytes() == before


def test_no_part_of_a_split_source_is_written(disk: pathlib.Path, tmp_path: pathlib.Path) -> None:
    data = disk.read_bytes()
    half = len(data) // 2
    parts = [tmp_path / "split.001", tmp_path / "split.002"]
    parts[0].write_bytes(data[:half])
    parts[1].write_bytes(data[half:])
    with diskaccess.open(parts[0]) as opened:
        assert len(opened.records()) > 0
        for part in parts:
            with pytest.raises(diskaccess.ExportError):
                opened.export(part, replace=True)
    assert parts[0].read_bytes() + parts[1].read_bytes() == data
