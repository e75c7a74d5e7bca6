"""Opening disks, and what is on them."""

import datetime
import os
import pathlib

import pytest

import diskaccess
from conftest import UTC, generate, run_python

START = datetime.datetime(2023, 11, 14, 22, 13, 20, tzinfo=UTC)  # 1,700,000,000: where generated recordings begin


def test_info_says_what_the_disk_is(sample: pathlib.Path) -> None:
    with diskaccess.open(sample) as disk:
        info = disk.info
    assert info.source == str(sample)
    assert info.size == sample.stat().st_size
    assert info.description == "Sample recorder, bus 4711"
    assert (info.layout, info.block_count, info.block_size) == ("extended", 16, 4194304)
    assert (info.vehicle_number, info.vehicle_id) == ("SAMPLE 4711", "sample-bus-4711")
    assert info.pre_record == datetime.timedelta(seconds=10)
    assert info.alarm_delay == datetime.timedelta(seconds=30)
    assert sorted(info.channels) == [0, 1, 2, 3]
    assert (info.channels[1].frame_rate, info.channels[1].bitrate) == (25, 500000)
    assert not info.locked and info.hidden_channels == ()
    assert info.recorded_blocks == 15  # of 16, one of which is bad


def test_paths_need_not_be_text(sample: pathlib.Path, tmp_path: pathlib.Path) -> None:
    name = os.fsencode(tmp_path / "disk") + b"\xff.img"
    os.symlink(sample, name)
    for path in (name, os.fsdecode(name)):
        with diskaccess.open(path) as disk:
            assert os.fsencode(disk.info.source) == name
    with pytest.raises(ValueError, match="NUL"):
        diskaccess.open(f"{sample}\0.txt")


def test_records_have_times_with_a_zone(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        records = opened.records()
    assert len(records) > 0
    first = records[0]
    assert (first.block, first.channel, first.segment, first.start) == (0, 0, 0, START)
    assert first.start.tzinfo is UTC and first.closed and first.mark == ""
    assert max(record.end for record in records) == START + datetime.timedelta(seconds=19)
    assert list(records) == [records[at] for at in range(len(records))] == records[:]
    assert records[-1] == records[len(records) - 1]
    with pytest.raises(IndexError):
        records[len(records)]


def test_records_of_a_range_and_of_channels(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        assert {record.channel for record in opened.records(channels=[1])} == {1}
        second = START + datetime.timedelta(seconds=3)
        for record in opened.records(second, second):
            assert record.start <= second <= record.end
        assert len(opened.records(START + datetime.timedelta(days=1))) == 0
        with pytest.raises(ValueError, match="after end"):
            opened.records(second, START)
        with pytest.raises(ValueError, match="32 is no channel"):
            opened.records(channels=[32])


def test_times_without_a_zone_are_refused(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        with pytest.raises(ValueError, match="has no zone"):
            opened.records(datetime.datetime(2023, 11, 14))
        with pytest.raises(TypeError, match="is no time"):
            opened.records(1700000000)  # type: ignore[arg-type]


def test_events_of_the_sample(sample: pathlib.Path) -> None:
    with diskaccess.open(sample) as disk:
        events = disk.events()
        assert [(event.time, event.type) for event in events] == [
            (datetime.datetime(2026, 11, 18, 8, 0, 25, tzinfo=UTC), 0x1),
            (datetime.datetime(2026, 11, 18, 8, 0, 40, tzinfo=UTC), 0x1),
            (datetime.datetime(2026, 11, 18, 8, 1, 5, tzinfo=UTC), 0x4),
            (datetime.datetime(2026, 11, 20, 16, 20, 40, tzinfo=UTC), 0x10),
            (datetime.datetime(2026, 11, 20, 16, 21, 20, tzinfo=UTC), 0x4),
            (datetime.datetime(2026, 11, 20, 16, 22, 35, tzinfo=UTC), 0x1),
        ]
        assert not events[5].indexed  # the power was cut
        assert [event.type for event in disk.events(types=0x14)] == [0x4, 0x10, 0x4]


def test_skew_and_zone(disk: pathlib.Path) -> None:
    zone = datetime.timezone(datetime.timedelta(hours=5, minutes=30))
    with diskaccess.open(disk, skew=3600, tz=zone) as opened:
        true_start = START - datetime.timedelta(hours=1)
        first = opened.records()[0]
        assert first.start == true_start and first.start.tzinfo is zone
        assert first.start.hour == 2  # 21:13 UTC, and five and a half hours
        assert opened.info.start == true_start
        assert next(iter(opened.frames())).time == true_start
        assert len(opened.records(true_start, true_start)) == 2  # a channel each
        assert len(opened.records(START, None)) == 0


def test_the_lock_hides_channels(locked: pathlib.Path) -> None:
    with diskaccess.open(locked) as disk:
        assert disk.info.locked and disk.info.hidden_channels == (1,)
        assert {record.channel for record in disk.records()} == {0}
        assert {frame.channel for frame in disk.frames()} == {0}
    with diskaccess.open(locked, "open sesame") as disk:
        assert disk.info.locked and disk.info.hidden_channels == ()
        assert {record.channel for record in disk.records()} == {0, 1}
        assert {frame.channel for frame in disk.frames()} == {0, 1}
    with pytest.raises(diskaccess.PasswordError, match="wrong password"):
        diskaccess.open(locked, "abracadabra")


def test_what_cannot_be_opened(tmp_path: pathlib.Path) -> None:
    with pytest.raises(diskaccess.OpenError, match="nothing.img") as missing:
        diskaccess.open(tmp_path / "nothing.img")
    assert missing.value.errno == 2
    (tmp_path / "text").write_text("no partition" * 1000)
    with pytest.raises(diskaccess.OpenError, match="text") as other:
        diskaccess.open(tmp_path / "text")
    assert other.value.errno is None
    with pytest.raises(diskaccess.OpenError):
        diskaccess.open(tmp_path)


def test_exceptions_are_one_family() -> None:
    for kind in (diskaccess.OpenError, diskaccess.PasswordError, diskaccess.ClosedError, diskaccess.BusyError,
                 diskaccess.StillError, diskaccess.ExportError):
        assert issubclass(kind, diskaccess.Error) and kind.__doc__


def test_a_closed_disk_is_not_used(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        assert not opened.closed
    assert opened.closed
    opened.close()  # once more does no harm
    assert opened.info.block_count == 16 and "closed" in repr(opened)
    for use in (opened.records, opened.events, opened.problems, opened.frames):
        with pytest.raises(diskaccess.ClosedError, match="is closed; open it again"):
            use()
    with pytest.raises(diskaccess.ClosedError):
        opened.export(disk.with_suffix(".mkv"))


def test_a_damaged_disk_names_its_problems(tmp_path: pathlib.Path) -> None:
    image = generate(tmp_path / "disk.img")
    with diskaccess.open(image) as disk:
        assert disk.problems() == []
        block_size = disk.info.block_size
        start = image.stat().st_size - 16 * block_size  # the blocks lie at the end
    with image.open("r+b") as file:
        file.seek(start + 2 * block_size)
        file.write(bytes(512))  # a head that was written over
    with diskaccess.open(image) as disk:
        problems = disk.problems()
        assert [problem.block for problem in problems if problem.is_loss or problem.kind == "head_damaged"] == [2]
        assert all(str(problem) == problem.text != "" for problem in problems)


def test_hostile_text_does_no_harm(disk: pathlib.Path) -> None:
    with disk.open("r+b") as file:
        data = file.read(4096)
        at = data.index(b"sample partition")
        file.seek(at)
        file.write(b"\xff\xfe\x1b[31m\x80 text")
    with diskaccess.open(disk) as opened:
        assert opened.info.description.startswith("\\xff\\xfe\x1b[31m\\x80 text")


def test_a_truncated_copy_opens(disk: pathlib.Path) -> None:
    with disk.open("r+b") as file:
        file.truncate(disk.stat().st_size - 3 * 65536)
    with diskaccess.open(disk) as opened:
        kinds = {problem.kind: problem for problem in opened.problems()}
        assert kinds["device_cut_off"].count == 3


def test_arrays_have_times_in_utc(disk: pathlib.Path, sample: pathlib.Path) -> None:
    numpy = pytest.importorskip("numpy")
    with diskaccess.open(disk, skew=60) as opened:
        records = opened.records()
        table = records.to_numpy()
        assert table.dtype["start"] == numpy.dtype("M8[s]") and len(table) == len(records)
        assert table["start"][0] == numpy.datetime64("2023-11-14T22:12:20")
        assert [int(block) for block in table["block"]] == [record.block for record in records]
        assert int(table["bytes"].sum()) == sum(record.bytes for record in records)
        assert len(opened.records(numpy.datetime64("2023-11-14T22:12:20"),
                                  numpy.datetime64("2023-11-14T22:12:20"))) == 2
    with diskaccess.open(sample) as opened:
        events = opened.events().to_numpy()
        assert events["time"][0] == numpy.datetime64("2026-11-18T08:00:25") and events["type"][3] == 0x10


def test_the_package_needs_no_numpy() -> None:
    code = "import sys; sys.modules['numpy'] = None; import diskaccess; print(diskaccess.open.__doc__[:5])"
    process = run_python(code)
    assert process.communicate(timeout=60)[0] == "Opens\n" and process.returncode == 0


def test_everything_public_is_documented() -> None:
    for name in diskaccess.__all__:
        assert getattr(diskaccess, name).__doc__, name
    for kind in (diskaccess.Disk, diskaccess.Frame, diskaccess.Frames, diskaccess.Records, diskaccess.Coverage):
        for name in dir(kind):
            if not name.startswith("_"):
                assert getattr(kind, name).__doc__, f"{kind.__name__}.{name}"


def test_nothing_is_made_without_its_native_part() -> None:
    from diskaccess import _native
    for native in (_native.SharedDisk, _native.FrameReader):
        heir = type("Heir", (native,), {})
        for kind in (native, heir):
            for make in (kind, lambda kind=kind: kind.__new__(kind), lambda kind=kind: native.__mro__[1].__new__(kind),
                         lambda kind=kind: object.__new__(kind)):
                with pytest.raises(TypeError):
                    make()
    with pytest.raises(AttributeError):
        diskaccess.Disk.__new__(diskaccess.Disk).frames()
    with pytest.raises(AttributeError):
        diskaccess.Frames.__new__(diskaccess.Frames).close()
