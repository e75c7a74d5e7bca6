"""Frames a second in a loop over a disk, in Python and in C++, turn by turn; and the ratio of the best.

    PYTHONPATH=build/bench/lib/python3/dist-packages bench/frame_loop.py build/bench/bench/frame_loop DISK [TURNS]
"""

import subprocess
import sys
import time

import diskaccess


def in_cpp(program: str, source: str) -> float:
    out = subprocess.run([program, source, "1"], check=True, capture_output=True, text=True).stdout
    frames, _, seconds = out.split()
    return int(frames) / float(seconds)


def in_python(disk: diskaccess.Disk) -> float:
    begin = time.perf_counter()
    count = size = 0
    for frame in disk.frames():
        count += 1
        size += len(frame)
    return count / (time.perf_counter() - begin)


def compare(program: str, source: str, turns: int = 7) -> None:
    cpp = python = 0.0
    with diskaccess.open(source) as disk:
        for _ in range(turns):
            cpp = max(cpp, in_cpp(program, source))
            python = max(python, in_python(disk))
    print(f"C++ {cpp:,.0f} frames/s, Python {python:,.0f} frames/s, ratio {python / cpp:.2f}")


if __name__ == "__main__":
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    compare(sys.argv[1], sys.argv[2], *(int(turns) for turns in sys.argv[3:]))
