"""Frames: their order, their memory, and what interrupts their reading."""

import gc
import pathlib
import signal
import subprocess
import threading
import time
import weakref

import pytest

import diskaccess
from conftest import UTC, generate, required, resident, run_python

SECOND = 1_000_000
START = 1_700_000_000 * SECOND


def payload_on_disk(image: pathlib.Path, frame: diskaccess.Frame) -> bytes:
    """A payload as it lies in the image: after the frame's head of 24 bytes, in a block of the normal layout."""
    start = image.stat().st_size - 16 * 65536 + frame.block * 65536
    with image.open("rb") as file:
        file.seek(start + 840 + frame.offset + 24)
        return file.read(len(frame))


def test_frames_come_as_they_were_recorded(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        frames = opened.frames()
        every = list(frames)
        assert frames.problems == [] and frames.gaps == []
    assert every[0].timestamp == START and every[0].kind == "key" and every[0].channel == 0
    assert every[0].time.timestamp() == 1_700_000_000 and every[0].time.tzinfo is UTC
    assert [frame.timestamp for frame in every] == sorted(frame.timestamp for frame in every)
    # Twenty seconds of cameras with 10 and 11 frames a second; the first has sound, 25 frames a second.
    assert sum(frame.kind != "audio" for frame in every if frame.channel == 0) == 200
    assert sum(frame.kind != "audio" for frame in every if frame.channel == 1) == 220
    assert sum(frame.kind == "audio" for frame in every) == 500
    for frame in every:
        assert bytes(frame) == payload_on_disk(disk, frame)
        assert len(frame) == len(frame.data) == memoryview(frame).nbytes


def test_a_range_begins_decodable(disk: pathlib.Path) -> None:
    import datetime
    start = datetime.datetime.fromtimestamp(1_700_000_004, UTC)
    end = start + datetime.timedelta(seconds=1)
    with diskaccess.open(disk) as opened:
        frames = list(opened.frames(start, end, [0]))
        video = [frame for frame in frames if frame.kind != "audio"]
        assert video[0].kind == "key" and video[0].time <= start
        assert video[-1].timestamp == START + 5_900_000  # the last of the last second: ten a second
        exact = list(opened.frames(start, end, [0], decodable=False))
        assert exact[0].time >= start
        assert {frame.channel for frame in frames} == {0}


def test_payloads_are_no_copies_and_are_read_only(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        frame = next(iter(opened.frames()))
        view = frame.data
        assert view.readonly and view.obj is frame
        with pytest.raises(TypeError):
            view[0] = 0
        again = memoryview(frame)
        numpy = pytest.importorskip("numpy")
        assert (numpy.frombuffer(again, "u1").__array_interface__["data"][0] ==
                numpy.frombuffer(view, "u1").__array_interface__["data"][0])


def test_views_stay_valid_whatever_goes(disk: pathlib.Path) -> None:
    views = []
    expected = []
    opened = diskaccess.open(disk)
    for frame in opened.frames():
        views.append(frame.data)
        expected.append(payload_on_disk(disk, frame))
    del frame
    opened.close()
    del opened
    gc.collect()
    ballast = [bytearray(65536) for _ in range(64)]  # takes memory that was given back too early
    assert [bytes(view) for view in views] == expected
    assert len(ballast) == 64


def test_heads_alone(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        whole = [(frame.timestamp, frame.channel, frame.kind, len(frame)) for frame in opened.frames()]
        heads = list(opened.frames(payload=False))
        assert [(frame.timestamp, frame.channel, frame.kind, len(frame)) for frame in heads] == whole
        assert heads[0].data.nbytes == 0 and bytes(heads[0]) == b""


def test_frames_as_an_array(disk: pathlib.Path) -> None:
    numpy = pytest.importorskip("numpy")
    with diskaccess.open(disk) as opened:
        table = opened.frames(payload=False).to_numpy()
        assert table["time"][0] == numpy.datetime64("2023-11-14T22:13:20")
        assert (table["kind"] == 2).sum() == 500
        assert int(table["size"].sum()) == sum(len(frame) for frame in opened.frames())


def test_iterators_can_be_dropped_and_ended_half_way(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        frames = opened.frames()
        first = next(frames)
        gone = weakref.ref(frames)
        del frames
        assert gone() is None
        assert bytes(first) == payload_on_disk(disk, first)
        frames = opened.frames()
        next(frames)
        frames.close()
        with pytest.raises(StopIteration):
            next(frames)
        assert len(list(opened.frames())) == 920


def test_an_iterator_ends_once_and_for_all(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        frames = opened.frames()
        assert len(list(frames)) == 920
        assert list(frames) == []


def test_two_iterators_do_not_disturb_each_other(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        for one, other in zip(opened.frames(), opened.frames()):
            assert one.timestamp == other.timestamp and bytes(one) == bytes(other)


def test_closing_ends_the_iterators(disk: pathlib.Path) -> None:
    opened = diskaccess.open(disk)
    frames = opened.frames()
    iterator = iter(frames)
    held = next(iterator)
    opened.close()
    for stopped in (frames, iterator):
        with pytest.raises(diskaccess.ClosedError):
            next(stopped)
    assert frames.problems == [] and frames.gaps == []
    assert bytes(held) == payload_on_disk(disk, held)
    del opened, frames, iterator
    assert len(held) == len(bytes(held))


def test_what_is_lost_is_named(disk: pathlib.Path) -> None:
    with diskaccess.open(disk) as opened:
        victim = list(opened.frames())[40]
    start = disk.stat().st_size - 16 * 65536 + victim.block * 65536 + 840
    with disk.open("r+b") as file:
        file.seek(start + victim.offset)
        file.write(b"\xee" * 24)  # a frame's head
    with diskaccess.open(disk) as opened:
        frames = opened.frames()
        places = {(frame.block, frame.offset) for frame in frames}
        assert (victim.block, victim.offset) not in places
        losses = [problem for problem in frames.problems if problem.is_loss]
        assert {problem.block for problem in losses} == {victim.block}
        damage = next(problem for problem in losses if problem.kind == "bytes_damaged")
        assert damage.offset is not None and damage.offset <= victim.offset < damage.offset + damage.bytes
        assert damage.before is not None and damage.before <= victim.time


def test_a_time_that_no_datetime_holds() -> None:
    from diskaccess import _native
    assert _native.to_datetime(253402300799 * SECOND, UTC).year == 9999
    for micros in (253402300800 * SECOND, -62135596801 * SECOND, 2**63 - 1, -(2**63)):
        with pytest.raises(OverflowError):
            _native.to_datetime(micros, UTC)
    assert _native.to_datetime(-1, UTC).microsecond == 999999


def test_reading_over_and_over_leaks_nothing(disk: pathlib.Path) -> None:
    def once() -> None:
        with diskaccess.open(disk) as opened:
            for frame in opened.frames():
                frame.data, frame.time
            list(opened.records()), list(opened.events()), opened.problems()
            next(opened.frames())  # dropped half-way
            with pytest.raises(ValueError):
                opened.records(channels=[99])
        with pytest.raises(diskaccess.ClosedError):
            opened.records()

    for _ in range(30):
        once()
    gc.collect()
    before = resident()
    for _ in range(150):
        once()
    gc.collect()
    assert resident() - before < 2 << 20  # a block's memory a turn would be 9 MiB


@pytest.fixture(scope="module")
def ring(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """A disk of many blocks: opening it and looking through it takes a while."""
    path = tmp_path_factory.mktemp("ring") / "ring.img"
    subprocess.run([str(required("DISKACCESS_SAMPLE")), "ring", str(path), "--blocks", "20000", "--block-size", "16KiB"],
                   check=True, capture_output=True)
    return path


def test_other_threads_run_meanwhile(ring: pathlib.Path) -> None:
    stamps: list[float] = []
    done = threading.Event()

    def tick() -> None:
        while not done.wait(0.002):
            stamps.append(time.perf_counter())

    with diskaccess.open(ring) as opened:
        ticker = threading.Thread(target=tick)
        ticker.start()
        begin = time.perf_counter()
        opened._shared.records(0, 0xFFFFFFFF, 0xFFFFFFFF)  # one call, in which Python runs nothing itself
        end = time.perf_counter()
        done.set()
        ticker.join()
    tenth = (end - begin) / 10
    assert len([stamp for stamp in stamps if begin + tenth < stamp < end - tenth]) >= 3


def test_an_interruption_ends_long_work(ring: pathlib.Path) -> None:
    def interrupt(number: int, frame: object) -> None:
        raise KeyboardInterrupt

    before = signal.signal(signal.SIGALRM, interrupt)
    try:
        with diskaccess.open(ring) as opened:
            with pytest.raises(KeyboardInterrupt):
                signal.setitimer(signal.ITIMER_REAL, 0.02)
                while True:  # wherever it strikes
                    opened._shared.records(0, 0xFFFFFFFF, 0xFFFFFFFF)
            assert len(opened.records()) == 80000  # nothing is left over that hinders
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)


def test_an_interruption_does_not_wait_for_the_end(ring: pathlib.Path) -> None:
    code = """if True:
        import sys, diskaccess
        with diskaccess.open(sys.argv[1]) as disk:
            print("ready", flush=True)
            try:
                while True:
                    for frame in disk.frames():
                        pass
                    disk._shared.records(0, 0xFFFFFFFF, 0xFFFFFFFF)
            except KeyboardInterrupt:
                print("interrupted")
    """
    process = run_python(code, ring)
    assert process.stdout is not None and process.stdout.readline() == "ready\n"
    time.sleep(0.1)
    process.send_signal(signal.SIGINT)
    out, _ = process.communicate(timeout=20)
    assert out == "interrupted\n" and process.returncode == 0


def test_a_handler_of_signals_cannot_use_what_it_interrupts(ring: pathlib.Path) -> None:
    caught: list[BaseException] = []

    with diskaccess.open(ring) as opened:
        def handle(number: int, frame: object) -> None:
            try:
                opened.records()
                caught.append(AssertionError("between two calls"))
            except diskaccess.BusyError as error:
                caught.append(error)

        before = signal.signal(signal.SIGALRM, handle)
        try:
            signal.setitimer(signal.ITIMER_REAL, 0.02, 0.05)
            for _ in range(200):
                opened._shared.records(0, 0xFFFFFFFF, 0xFFFFFFFF)
                if any(isinstance(error, diskaccess.BusyError) for error in caught):
                    break
        finally:
            signal.setitimer(signal.ITIMER_REAL, 0)
            signal.signal(signal.SIGALRM, before)
    assert any("signal" in str(error) for error in caught if isinstance(error, diskaccess.BusyError))


def test_threads_share_a_disk(tmp_path: pathlib.Path) -> None:
    image = generate(tmp_path / "disk.img")
    counts: list[int] = []
    with diskaccess.open(image) as opened:
        def count() -> None:
            counts.append(sum(1 for _ in opened.frames()) + len(opened.records(channels=[])))

        threads = [threading.Thread(target=count) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert counts == [920] * 4


def test_closing_while_another_thread_reads(tmp_path: pathlib.Path) -> None:
    image = generate(tmp_path / "disk.img")
    for _ in range(20):
        opened = diskaccess.open(image)
        started = threading.Event()
        outcome: list[str] = []

        def read() -> None:
            try:
                while True:
                    for frame in opened.frames():
                        started.set()
                        bytes(frame)
            except diskaccess.ClosedError:
                outcome.append("closed")

        reader = threading.Thread(target=read)
        reader.start()
        started.wait()
        opened.close()
        reader.join(20)
        assert outcome == ["closed"]
