"""Journeys, and when each channel was recorded."""

import datetime
import json
import pathlib
import subprocess

import pytest

import diskaccess
from conftest import UTC, generate, record

START = datetime.datetime(2023, 11, 14, 22, 13, 20, tzinfo=UTC)  # 1,700,000,000: where generated recordings begin


def at(hour: int, minute: int, second: int) -> datetime.datetime:
    return datetime.datetime(2026, 11, 20, hour, minute, second, tzinfo=UTC)


@pytest.fixture
def pauses(tmp_path: pathlib.Path) -> pathlib.Path:
    """Channel 0: five seconds at 10:00, a minute later, and an hour later. Channel 1: the first and the last of these."""
    clips = [{"channel": 0, "video": "door-2.h264"}, {"channel": 1, "video": "door-2.h264"}]
    return record(tmp_path / "pauses.img", [("2026-11-20T10:00:00Z", clips), ("2026-11-20T10:01:00Z", clips[:1]),
                                            ("2026-11-20T11:00:00Z", clips)])


def test_a_disk_of_one_journey(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        journeys = opened.journeys()
        records = opened.records()
    assert len(journeys) == 1
    assert journeys[0] == (1, START, START + datetime.timedelta(seconds=19), (0, 1), len(records),
                           sum(record.bytes for record in records), 0, 0)
    assert list(journeys) == journeys[:]


def test_silences_part_journeys(pauses: pathlib.Path) -> None:
    with diskaccess.open(pauses) as disk:
        times = [(journey.number, journey.start, journey.end, journey.channels) for journey in disk.journeys()]
        assert times == [(1, at(10, 0, 0), at(10, 1, 4), (0, 1)), (2, at(11, 0, 0), at(11, 0, 4), (0, 1))]
        # Between the last second of one recording and the first of the next are 55 seconds.
        assert len(disk.journeys(silence=55)) == 2 and len(disk.journeys(silence=54)) == 3
        # A journey has one number, whichever channels are asked for.
        assert [(journey.number, journey.start) for journey in disk.journeys([1], silence=54)] == [
            (1, at(10, 0, 0)), (3, at(11, 0, 0))]
        assert [part.journey.number for part in disk.coverage([1], silence=54)] == [1, 3]
        for wrong in (-1, 1 << 32):
            with pytest.raises(ValueError, match="silence"):
                disk.journeys(silence=wrong)


def test_channels_are_recorded_and_have_gaps(pauses: pathlib.Path) -> None:
    with diskaccess.open(pauses) as disk:
        coverage = disk.coverage()
    assert len(coverage) == 2 and "2 journeys" in repr(coverage)
    first, second = coverage
    assert first.journey.number == 1 and coverage[-1].journey == second.journey == coverage[1:][0].journey
    assert first.channels[0].recorded == [(at(10, 0, 0), at(10, 0, 4)), (at(10, 1, 0), at(10, 1, 4))]
    assert first.channels[0].gaps == [(at(10, 0, 5), at(10, 0, 59))]
    assert first.channels[1] == ([(at(10, 0, 0), at(10, 0, 4))], [])
    assert sorted(second.channels) == [0, 1] and second.channels[0].recorded[0].start == at(11, 0, 0)


def test_coverage_as_an_array(pauses: pathlib.Path) -> None:
    numpy = pytest.importorskip("numpy")
    with diskaccess.open(pauses, skew=60) as disk:
        table = disk.coverage().to_numpy()
        journeys = disk.journeys().to_numpy()
        some = disk.coverage([1], silence=54).to_numpy()
    assert [int(number) for number in some["journey"]] == [1, 3]
    assert table.dtype["start"] == numpy.dtype("M8[s]")
    assert [(int(row["journey"]), int(row["channel"]), str(row["start"])) for row in table] == [
        (1, 0, "2026-11-20T09:59:00"), (1, 0, "2026-11-20T10:00:00"), (1, 1, "2026-11-20T09:59:00"),
        (2, 0, "2026-11-20T10:59:00"), (2, 1, "2026-11-20T10:59:00")]
    assert [str(end) for end in journeys["end"]] == ["2026-11-20T10:00:04", "2026-11-20T10:59:04"]
    assert [int(bits) for bits in journeys["channels"]] == [3, 3]


def test_alarms_lie_around_events(sample: pathlib.Path) -> None:
    """Ten seconds before an event and thirty after it belong to its alarm; those that meet are one."""
    with diskaccess.open(sample) as disk:
        monday, friday = disk.coverage()
        assert monday.alarms == [(datetime.datetime(2026, 11, 18, 8, 0, 15, tzinfo=UTC),
                                  datetime.datetime(2026, 11, 18, 8, 1, 35, tzinfo=UTC), 0x5)]
        assert friday.alarms == [(at(16, 20, 30), at(16, 21, 50), 0x14), (at(16, 22, 25), at(16, 23, 5), 0x1)]
        assert list(monday.events) + list(friday.events) == list(disk.events())


def test_journeys_are_those_of_the_program(sample: pathlib.Path, program: pathlib.Path) -> None:
    done = subprocess.run([str(program), "journeys", str(sample), "--json", "--utc"], check=True, capture_output=True,
                          text=True)
    theirs = [(row["journey"], row["start"], row["end"], row["record_count"], row["size_bytes"], row["event_count"])
              for row in json.loads(done.stdout)["journeys"]]
    with diskaccess.open(sample) as disk:
        ours = [(journey.number, f"{journey.start:%Y-%m-%dT%H:%M:%SZ}", f"{journey.end:%Y-%m-%dT%H:%M:%SZ}",
                 journey.records, journey.bytes, journey.events) for journey in disk.journeys()]
    assert ours == theirs and len(ours) == 2


def test_the_lock_hides_times_too(locked: pathlib.Path) -> None:
    with diskaccess.open(locked) as disk:
        assert [journey.channels for journey in disk.journeys()] == [(0,)]
        assert sorted(disk.coverage()[0].channels) == [0]
    with diskaccess.open(locked, "open sesame") as disk:
        assert sorted(disk.coverage()[0].channels) == [0, 1]


def test_damage_has_a_time(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        assert opened.coverage()[0].damage == []
        before = next(record for record in opened.records() if record.block == 2)
    with disk.open("r+b") as file:
        file.seek(disk.stat().st_size - 16 * 65536 + 2 * 65536)
        file.write(bytes(512))  # the block's head
    with diskaccess.open(disk) as opened:
        journey = opened.coverage()[0]
        blocks = {damage.problem.block for damage in journey.damage}
        assert blocks == {2}
        assert all(damage.start <= before.end and before.start <= damage.end for damage in journey.damage)
        assert journey.journey.losses == sum(damage.problem.is_loss for damage in journey.damage) == \
            opened.journeys()[0].losses


def test_nothing_was_recorded(tmp_path: pathlib.Path) -> None:
    with diskaccess.open(generate(tmp_path / "empty.img", seconds=0)) as disk:
        assert len(disk.journeys()) == 0 and list(disk.coverage()) == []
        pytest.importorskip("numpy")
        assert len(disk.coverage().to_numpy()) == len(disk.journeys().to_numpy()) == 0


def test_after_closing(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        coverage = opened.coverage()
    assert coverage[0].journey.start == START  # answers stay
    for use in (opened.journeys, opened.coverage):
        with pytest.raises(diskaccess.ClosedError):
            use()
