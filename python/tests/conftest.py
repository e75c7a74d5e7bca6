"""What the tests read. CTest says where it is; see CMakeLists.txt."""

import datetime
import json
import os
import pathlib
import subprocess
import sys

import pytest

UTC = datetime.timezone.utc

#: What the module takes into an interpreter when it was built with sanitizers. The programs bring their own.
_PRELOADED = os.environ.pop("LD_PRELOAD", None)


def run_python(code: str, *words: object) -> subprocess.Popen[str]:
    """Starts an interpreter that can import the module."""
    environment = os.environ if _PRELOADED is None else {**os.environ, "LD_PRELOAD": _PRELOADED}
    return subprocess.Popen([sys.executable, "-c", code, *map(str, words)], stdout=subprocess.PIPE, text=True,
                            env=environment)


def resident() -> int:
    """Bytes of memory that this process has."""
    if _PRELOADED is not None:
        pytest.skip("the sanitizer keeps what is freed")
    with open("/proc/self/statm", encoding="ascii") as file:
        return int(file.read().split()[1]) * 4096


def required(name: str) -> pathlib.Path:
    if name not in os.environ:
        pytest.skip(f"{name} is not set")
    return pathlib.Path(os.environ[name])


def generate(output: pathlib.Path, blocks: int = 16, channels: int = 2, seconds: int = 20, start: int = 1_700_000_000,
             seed: int = 1) -> pathlib.Path:
    """Makes a disk of generated frames, on blocks of 64 KiB."""
    command = [required("DISKACCESS_SAMPLE"), "generate", output, "--block-size", "64KiB", "--blocks", blocks,
               "--channels", channels, "--seconds", seconds, "--start", start, "--seed", seed]
    subprocess.run([str(word) for word in command], check=True, capture_output=True)
    return output


def record(output: pathlib.Path, recordings: list[tuple[str, list[dict[str, object]]]],
           **partition: object) -> pathlib.Path:
    """Makes a disk of real video, on blocks of 1 MiB: five seconds from each of these times on."""
    scenario = {
        "partition": {"block_count": 4, "block_size": 1048576, **partition},
        "cameras": [{"channel": 0, "frame_rate": 10}, {"channel": 1, "frame_rate": 10}],
        "recordings": [{"start": start, "seconds": 5, "clips": clips} for start, clips in recordings],
    }
    file = output.with_suffix(".json")
    file.write_text(json.dumps(scenario))
    command = [required("DISKACCESS_SAMPLE"), "record", file, output, "--media", required("SAMPLE_DIRECTORY")]
    subprocess.run([str(word) for word in command], check=True, capture_output=True)
    return output


@pytest.fixture(scope="module")
def sample() -> pathlib.Path:
    """The sample partition: real video and audio of a bus with four cameras."""
    return required("SAMPLE_DIRECTORY") / "sample.img"


@pytest.fixture(scope="module")
def program() -> pathlib.Path:
    return required("DISKACCESS")


@pytest.fixture
def disk(tmp_path: pathlib.Path) -> pathlib.Path:
    return generate(tmp_path / "disk.img")


@pytest.fixture
def locked(tmp_path: pathlib.Path) -> pathlib.Path:
    """Two cameras, of which the lock hides channel 1; the password is 'open sesame'."""
    clips = [{"channel": 0, "video": "door-2.h264"}, {"channel": 1, "video": "door-2.h264"}]
    return record(tmp_path / "locked.img", [("2026-11-20T10:00:00Z", clips)],
                  lock={"mode": 1, "channels": 2, "password": "open sesame"})
