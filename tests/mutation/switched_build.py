"""Builds in which every mutant stands behind a switch, and the tests that reach each."""

import collections
import hashlib
import json
import os
import re
import subprocess
import sys
import threading
from pathlib import Path

from builds import LIBRARY, MEMORY, NO_LOOP_DEVICES, OPTIONS, PROGRAMS, SOURCES, Unusable, Unviable
from builds import copy_sources, passes, scratch_directory, started
from switched import with_switches

FLAVOURS = {
    "switched": ["-DCMAKE_CXX_COMPILER=g++"],
    # For the few that no test notices otherwise.
    "switched-sanitized": ["-DCMAKE_CXX_COMPILER=clang++", "-DDISKACCESS_SANITIZE=address,undefined"],
}
UNVIABLE_STATUS = 99  # as in switches.h
FIRST_SECONDS = 0.1  # what the tests that are likely to fail may take together before all others are run
_ERROR = rf"/({SOURCES}/\S+?):(\d+):\d+:\s+(?:error|required)"


class Test:
    def __init__(self, program, name, seconds):
        self.program = program
        self.name = name
        self.seconds = seconds  # of processor time
        self.caught = collections.Counter()  # path: mutants of it


class SwitchedBuild:
    """The library and the test programs with all mutants, every one of them switched off."""

    def __init__(self, root, work, flavour):
        self.source = work / f"{flavour}-source"
        self.directory = work / flavour
        self._root = root
        self._flavour = flavour
        self._reaching = {}  # number: tests
        self._preparing = threading.Lock()
        self._prepared = False

    def prepare(self, numbered):
        """Writes and builds the sources, and runs each test once. Does nothing the second time.

        numbered: path: pairs of a mutation and the number of its switch"""
        with self._preparing:
            if not self._prepared:
                print(f"building {self.directory}", file=sys.stderr)
                copy_sources(self._root, self.source, keep=f"{SOURCES}/")
                self._configure()
                self._build(numbered)
                self._trace(1 + max(number for pairs in numbered.values() for _, number in pairs))
                self._prepared = True

    def reaches(self, number):
        return number in self._reaching

    def what_catches(self, path, number):
        """The program whose tests notice a mutant. Nothing, if none does."""
        reaching = sorted(self._reaching[number], key=lambda test: (-test.caught[path], test.seconds))
        first, seconds = [], 0.0
        for test in reaching:
            if first and seconds + test.seconds > FIRST_SECONDS:
                break
            first.append(test)
            seconds += test.seconds
        rest = reaching[len(first):]
        for tests in (first, rest):
            for program in sorted({test.program for test in tests}, key=PROGRAMS.index):
                of_program = [test for test in tests if test.program == program]
                status, failed = self._run(of_program, number)
                if status == UNVIABLE_STATUS:
                    raise Unviable()
                if status != 0:
                    for test in of_program:
                        test.caught[path] += test.name == failed
                    return Path(program).name
        return ""

    def _configure(self):
        if (self.directory / "build.ninja").is_file():
            return  # Ninja sees to it that it is up to date
        header = self.source / "tests/mutation/switches.h"
        flags = f"-O1 -w -Wno-error -Wno-narrowing -include {header}"
        options = [*OPTIONS, f"-DCMAKE_CXX_FLAGS_DEBUG={flags}", *FLAVOURS[self._flavour]]
        done = _run(["cmake", "-S", self.source, "-B", self.directory, "-G", "Ninja", "-DDISKACCESS_UNITY=ON", *options])
        if done.returncode != 0:
            raise Unusable(done.stdout[-4000:])

    def _build(self, numbered):
        """Leaves out the switches of lines that do not compile with them."""
        left_out = collections.defaultdict(set)
        while True:
            self._write(numbered, left_out)
            done = _run(["ninja", "-C", self.directory, "-k", "0", LIBRARY, *PROGRAMS])
            if done.returncode == 0:
                return
            errors = re.findall(_ERROR, done.stdout)
            new = {(path, int(line)) for path, line in errors if int(line) not in left_out[path]}
            if not new:
                raise Unusable(done.stdout[-4000:])
            for path, line in new:
                left_out[path].add(line)

    def _write(self, numbered, left_out):
        for path, pairs in numbered.items():
            original = (self._root / path).read_text(encoding="utf-8")
            source = with_switches(original, pairs, left_out[path])
            file = self.source / path
            if not file.is_file() or file.read_text(encoding="utf-8") != source:
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(source, encoding="utf-8")

    def _trace(self, count):
        """Learns of each test what it takes, and which switches it reaches."""
        for program in PROGRAMS:
            for name, (seconds, numbers) in self._traced(program, count).items():
                test = Test(program, name, seconds)
                for number in numbers:
                    self._reaching.setdefault(number, []).append(test)

    def _traced(self, program, count):
        """Each test of a program, by itself: its seconds and switches. It is known as long as the program is the same."""
        known = self.directory / (program + ".trace")
        digest = hashlib.sha256((self.directory / program).read_bytes() + (self.directory / LIBRARY).read_bytes()).hexdigest()
        if known.is_file():
            found = json.loads(known.read_text(encoding="utf-8"))
            if found["digest"] == digest:
                return found["tests"]
        with scratch_directory() as scratch:
            tests = {name: self._trace_one(program, name, scratch, count) for name in self._names(program)}
        known.write_text(json.dumps({"digest": digest, "tests": tests}), encoding="utf-8")
        return tests

    def _trace_one(self, program, name, scratch, count):
        reached = Path(scratch) / "reached"
        reached.write_bytes(bytes(count))
        process = self._start(program, [name], scratch, 180, {"DISKACCESS_MUTANTS_REACHED": str(reached)})
        output, usage = process.stdout.read(), None
        _, process.returncode, usage = os.wait4(process.pid, 0)
        if process.returncode != 0:
            raise Unusable(f"{output.decode(errors='replace')[-4000:]}\n{program}: {name} fails without any change")
        return usage.ru_utime + usage.ru_stime, [number for number, byte in enumerate(reached.read_bytes()) if byte]

    def _names(self, program):
        listed = subprocess.run(
            [str(self.directory / program), NO_LOOP_DEVICES, "--gtest_list_tests"],
            check=True,
            capture_output=True,
            text=True,
            env={**os.environ, "LD_LIBRARY_PATH": str(self._library)},
        ).stdout
        suite = ""
        for line in listed.splitlines():
            words = line.split("#")[0].split()
            if line.startswith("  "):
                yield suite + words[0]
            elif words and words[0].endswith("."):
                suite = words[0]

    @property
    def _library(self):
        return (self.directory / LIBRARY).parent

    def _start(self, program, names, scratch, processor_seconds, environment):
        sanitized = self._flavour.endswith("sanitized")  # then memory is limited by the sanitizer
        limits = [f"--cpu={processor_seconds}", *([] if sanitized else [f"--as={MEMORY}"])]
        chosen = "--gtest_filter=" + ":".join(names)
        return started(self.directory / program, self._library, scratch, limits, chosen, environment, subprocess.PIPE)

    def _run(self, tests, number):
        """The status of some tests of a program with a mutant switched on, and the test that failed."""
        seconds = sum(test.seconds for test in tests)
        names = [test.name for test in tests]
        with scratch_directory() as scratch:
            on = {"DISKACCESS_MUTANT": str(number)}
            process = self._start(tests[0].program, names, scratch, int(3 * seconds) + 2, on)
            status, output = passes(process, seconds)
        failed = re.search(rb"\[  FAILED  \] ([\w./]+)", output)
        running = re.findall(rb"\[ RUN      \] (\S+)", output)
        name = failed[1] if failed else running[-1] if running else b""
        return status, name.decode(errors="replace")


def _run(command):
    return subprocess.run(
        [str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace"
    )
