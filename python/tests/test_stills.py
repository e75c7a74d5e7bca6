"""Single pictures, which a process without privileges decodes."""

import datetime
import gc
import os
import pathlib
import signal
import subprocess
import threading
import time

import pytest

import diskaccess
from conftest import UTC, record, resident

numpy = pytest.importorskip("numpy", reason="python3-numpy is not installed")

MOMENT = datetime.datetime(2026, 11, 20, 16, 21, 0, tzinfo=UTC)


def no_children() -> bool:
    """Whether every child process has been waited for."""
    try:
        os.waitpid(-1, os.WNOHANG)
    except ChildProcessError:
        return True
    return False


@pytest.fixture
def camera(tmp_path: pathlib.Path) -> pathlib.Path:
    """Five seconds of channel 0."""
    return record(tmp_path / "camera.img", [("2026-11-20T10:00:00Z", [{"channel": 0, "video": "door-2.h264"}])])


def test_the_same_picture_as_the_programs(sample: pathlib.Path, program: pathlib.Path, tmp_path: pathlib.Path) -> None:
    av = pytest.importorskip("av", reason="python3-av is not installed")
    subprocess.run([str(program), "still", str(sample), "--utc", "--at", "2026-11-20 16:21:00", "--channel", "3", "-o",
                    str(tmp_path / "still.png")], check=True, capture_output=True)
    with av.open(str(tmp_path / "still.png")) as file:
        theirs = next(file.decode(video=0)).to_ndarray(format="rgb24")
    with diskaccess.open(sample) as disk:
        ours = disk.still(MOMENT, 3)
        again = disk.still(numpy.datetime64("2026-11-20T16:21:00"), 3)
    assert ours.shape == (288, 352, 3) and ours.dtype == numpy.uint8
    assert numpy.array_equal(ours, theirs) and numpy.array_equal(again, theirs)


def test_exactly_that_frame(sample: pathlib.Path) -> None:
    """Of all frames from a key frame to the next, each time gives its own picture."""
    av = pytest.importorskip("av", reason="python3-av is not installed")
    decoder = av.CodecContext.create("h264", "r")
    decoded = []
    times = []
    with diskaccess.open(sample) as disk:
        for frame in disk.frames(MOMENT, MOMENT, [3]):
            if frame.kind != "audio":
                decoded += decoder.decode(av.Packet(frame))
                times.append(frame.time)
        decoded += decoder.decode(None)
        pictures = [picture.to_ndarray(format="rgb24").astype(int) for picture in decoded]
        assert len(pictures) == len(times) >= 10
        for number, moment in enumerate(times):
            picture = disk.still(moment, 3).astype(int)
            distances = [abs(picture - other).mean() for other in pictures]
            assert int(numpy.argmin(distances)) == number
            between = disk.stills(moment + datetime.timedelta(microseconds=1), [3])[0]
            assert between.time == moment  # until the next one


def test_all_channels(sample: pathlib.Path) -> None:
    with diskaccess.open(sample) as disk:
        stills = disk.stills(MOMENT)
        frame = next(frame for frame in disk.frames(MOMENT, MOMENT, [1], decodable=False) if frame.kind != "audio")
    assert [(still.channel, still.state) for still in stills] == [(number, "whole") for number in range(4)]
    assert [still.picture is not None and still.picture.shape for still in stills] == [
        (720, 1280, 3), (576, 704, 3), (360, 640, 3), (288, 352, 3)]
    assert (stills[1].time, stills[1].block, stills[1].offset) == (frame.time, frame.block, frame.offset)
    assert all(still.problems == [] for still in stills)


def test_pictures_are_the_callers(camera: pathlib.Path) -> None:
    with diskaccess.open(camera) as disk:
        picture = disk.still(disk.journeys()[0].start, 0)
        expected = picture.copy()
        del disk
    gc.collect()
    ballast = [bytearray(picture.nbytes) for _ in range(16)]  # takes memory that was given back too early
    assert numpy.array_equal(picture, expected) and len(ballast) == 16
    picture[:] = 7  # it can be drawn on
    assert picture.min() == picture.max() == 7


def test_times_are_true_times(camera: pathlib.Path) -> None:
    zone = datetime.timezone(datetime.timedelta(hours=2))
    with diskaccess.open(camera, skew=3600, tz=zone) as disk:
        still = disk.stills(datetime.datetime(2026, 11, 20, 9, 0, 1, tzinfo=UTC))[0]
        assert still.time is not None and still.time.tzinfo is zone
        assert still.time == datetime.datetime(2026, 11, 20, 9, 0, 1, tzinfo=UTC)


def test_no_picture(camera: pathlib.Path, locked: pathlib.Path) -> None:
    with diskaccess.open(camera) as disk:
        end = disk.journeys()[0].end
        shown = disk.stills(end + datetime.timedelta(seconds=14))[0]
        assert shown.state == "whole"  # a frame is shown for fifteen seconds
        gone = disk.stills(end + datetime.timedelta(seconds=17))
        assert [(still.state, still.time, still.picture) for still in gone] in ([], [("not recorded", None, None)])
        for when, channel in ((end + datetime.timedelta(seconds=17), 0), (end, 1), (end - datetime.timedelta(days=9), 0)):
            with pytest.raises(diskaccess.StillError, match=f"channel {channel} at .*nothing was recorded") as error:
                disk.still(when, channel)
            assert error.value.errno is None
        with pytest.raises(ValueError, match="32 is no channel"):
            disk.still(end, 32)
        with pytest.raises(ValueError, match="has no zone"):
            disk.still(end.replace(tzinfo=None), 0)
        with pytest.raises(ValueError, match="NaT"):
            disk.still(numpy.datetime64("NaT"), 0)
        for far in ("300000-01-01", "-300000-01-01"):
            with pytest.raises(OverflowError, match="64 bits"):
                disk.still(numpy.datetime64(far), 0)
    with pytest.raises(diskaccess.ClosedError):
        disk.still(end, 0)
    with diskaccess.open(locked) as disk:
        with pytest.raises(diskaccess.StillError, match="the lock hides channel 1; open the disk with its password"):
            disk.still(disk.journeys()[0].start, 1)


def damage_first_picture(image: pathlib.Path) -> datetime.datetime:
    """Writes over the middle of the first key frame; returns its time."""
    with diskaccess.open(image) as disk:
        frame = next(iter(disk.frames()))
        payload = bytes(frame)
    data = image.read_bytes()
    at = data.index(payload) + len(payload) // 2
    image.write_bytes(data[:at] + b"\xee" * 2000 + data[at + 2000:])
    return frame.time


def test_a_damaged_picture_says_so(camera: pathlib.Path) -> None:
    moment = damage_first_picture(camera)
    with diskaccess.open(camera) as disk:
        still = disk.stills(moment, [0])[0]
        assert still.state == "damaged" and still.picture is not None
        with pytest.raises(diskaccess.StillError, match="damaged=True"):
            disk.still(moment, 0)
        assert numpy.array_equal(disk.still(moment, 0, damaged=True), still.picture)


def test_an_interruption_leaves_nothing_behind(sample: pathlib.Path) -> None:
    def interrupt(number: int, frame: object) -> None:
        raise KeyboardInterrupt

    before = signal.signal(signal.SIGALRM, interrupt)
    try:
        with diskaccess.open(sample) as disk:
            for delay in (0.02, 0.05, 0.08, 0.11):  # while reading, and while decoding
                with pytest.raises(KeyboardInterrupt):
                    signal.setitimer(signal.ITIMER_REAL, delay)
                    while True:
                        disk.stills(MOMENT)
                assert no_children()
            assert len(disk.stills(MOMENT)) == 4
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)


def test_other_threads_run_and_take_stills_too(sample: pathlib.Path) -> None:
    ticks: list[float] = []
    done = threading.Event()

    def tick() -> None:
        while not done.wait(0.002):
            ticks.append(time.perf_counter())

    pictures = []
    with diskaccess.open(sample) as disk:
        def take() -> None:
            pictures.append(disk.still(MOMENT, 3))

        threads = [threading.Thread(target=take) for _ in range(4)]
        ticker = threading.Thread(target=tick)
        ticker.start()
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        done.set()
        ticker.join()
    assert len(pictures) == 4 and all(numpy.array_equal(picture, pictures[0]) for picture in pictures)
    assert len(ticks) >= 3 and no_children()


def test_pictures_leak_nothing(camera: pathlib.Path) -> None:
    with diskaccess.open(camera) as disk:
        start = disk.journeys()[0].start
        for _ in range(10):
            disk.still(start, 0)
        gc.collect()
        before = resident()
        for _ in range(40):
            disk.still(start, 0)
        gc.collect()
        assert resident() - before < 4 << 20  # a picture a turn would be 12 MB
