"""Builds of the library and its fast tests in which one source at a time is replaced."""

import hashlib
import json
import os
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
from pathlib import Path

SOURCES = Path("storemng/disk_access/src")
LIBRARY = "lib/libDiskAccess.so.1"
# The test programs, in the order in which they are run; but those of a source's own folder come first.
PROGRAMS = [
    "tests/io_test",
    "tests/kernel_calls_test",
    "tests/format_test",
    "tests/search_test",
    "tests/playback_test",
    "tests/playback_part_test",
    "tests/dump_test",
    "tests/playback_cost_test",
    "tests/aes_test",
    "tests/fault_test",
    "tests/footprint/footprint_test",
    "tests/uptime_test",
    "tests/fault_matrix_test",
]
FIRST = {
    "aes": ("aes_test",),
    "dump": ("dump_test",),
    "format": ("format_test",),
    "io": ("io_test", "kernel_calls_test"),
    "playback": ("playback_test", "playback_part_test"),
    "search": ("search_test",),
}
# Loop devices would be left attached by a test that crashes.
NO_LOOP_DEVICES = "--gtest_filter=-LoopDump.*"
OPTIONS = [
    "-DCMAKE_BUILD_TYPE=Debug",
    "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold",
    "-DCMAKE_SHARED_LINKER_FLAGS=-fuse-ld=gold",
    "-DCMAKE_CXX_COMPILER_LAUNCHER=",
    "-DCMAKE_INSTALL_LIBDIR=lib",
    "-DCMAKE_SKIP_BUILD_RPATH=ON",  # LD_LIBRARY_PATH says where the library is
    "-DDISKACCESS_BUILD_EXAMPLES=OFF",
    "-DDISKACCESS_BUILD_SAMPLE_RECORDER=OFF",
    "-DDISKACCESS_BUILD_TOOLS=OFF",
]
MEMORY = 4 << 30  # bytes that a test program may take

class StaticAssertion(Exception):
    """A mutant that the compiler refuses because of a fact that the sources assert."""


class Unusable(Exception):
    """Sources that do not build or tests that do not pass as they are."""


class Unviable(Exception):
    """A mutant that is no C++."""


def copy_sources(root, target, keep=None):
    """Makes target a copy of the checkout as it is, and returns a digest of it. Files that are the same keep their
    times, so that they are not compiled again. Files whose names begin with keep are left as they are."""
    command = ["git", "-C", str(root), "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
    listed = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    names = sorted(name for name in listed.split("\0") if name and (root / name).is_file())
    digest = hashlib.sha256()
    for name in names:
        contents = (root / name).read_bytes()
        if name.endswith((".cpp", ".h", ".c", ".txt", ".cmake", "/comm_list")):
            digest.update(name.encode() + b"\0" + hashlib.sha256(contents).digest())
        copy = target / name
        if keep is not None and name.startswith(keep) and copy.is_file():
            continue
        if not copy.is_file() or copy.read_bytes() != contents:
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_bytes(contents)
        shutil.copymode(root / name, copy)
    kept = set(names)
    for copy in sorted(target.rglob("*")):
        if copy.is_file() and str(copy.relative_to(target)) not in kept:
            copy.unlink()
    return digest.hexdigest()[:12]


def scratch_directory():
    """A place for the tests' files: in memory, if there is one, where nothing waits for a disk."""
    memory = "/dev/shm"
    parent = memory if os.access(memory, os.W_OK) else None
    return tempfile.TemporaryDirectory(prefix="diskaccess-mutant-", dir=parent)


class Slot:
    """Where one mutant at a time is built and tested: the sources, those of the library copied, and room for files."""

    def __init__(self, work, number):
        self.directory = work / f"slot{number}"
        shutil.rmtree(self.directory, ignore_errors=True)
        self._original = work / "source"
        self.source = self.directory / "source"
        library = Path("storemng/disk_access")
        (self.source / library).mkdir(parents=True)
        for entry in self._original.iterdir():
            if entry.name != library.parts[0]:
                (self.source / entry.name).symlink_to(entry)
        (self.source / library / "include").symlink_to(self._original / library / "include")
        shutil.copytree(self._original / library / "src", self.source / library / "src")
        self._scratch = scratch_directory()
        self.scratch = Path(self._scratch.name)

    def put(self, path, source):
        (self.source / path).write_text(source, encoding="utf-8")

    def restore(self, path):
        shutil.copyfile(self._original / path, self.source / path)
        shutil.rmtree(self.directory / "build", ignore_errors=True)

    def clean(self):
        """Removes what tests that crashed have left."""
        for entry in self.scratch.iterdir():
            shutil.rmtree(entry, ignore_errors=True) if entry.is_dir() else entry.unlink()


class Build:
    """The library and the test programs without any change, and how they are made."""

    def __init__(self, work):
        self.source = work / "source"
        self.directory = work / "plain"
        self._options = [*OPTIONS, "-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_CXX_FLAGS_DEBUG=-O0"]
        self._preparing = threading.Lock()
        self._prepared = False
        self._compilations = {}  # object: arguments of the compiler
        self._dependents = {}  # source: objects
        self._links = {}  # program, library or archive: its arguments
        self._seconds = {}  # program: processor time that its tests take

    def prepare(self):
        """Builds everything, and sees to it that the tests pass. Does nothing the second time."""
        with self._preparing:
            if not self._prepared:
                self._prepare()
                self._prepared = True

    def _prepare(self):
        print(f"building {self.directory}", file=sys.stderr)
        self._require(["cmake", "-S", self.source, "-B", self.directory, "-G", "Ninja", *self._options])
        self._require(["ninja", "-C", self.directory, LIBRARY, *PROGRAMS])
        self._read_compilations()
        self._read_dependents()
        for target in [LIBRARY, *PROGRAMS]:
            self._read_link(target)
        self._run_unchanged()

    def what_catches(self, slot, path, source):
        """What notices that a source is replaced by another: a test program or the compiler. Nothing, if none does."""
        self.prepare()
        slot.put(path, source)
        try:
            changed = Changed(self, slot, self._dependents.get(str(self.source / path), ()))
            library = changed.made(LIBRARY).parent
            for program in _in_order(path):
                if not self._passes(changed.made(program), library, slot, self._seconds[program]):
                    return Path(program).name
            return ""
        except StaticAssertion:
            return "the compiler"
        finally:
            slot.restore(path)

    def arguments_of_compiler(self, target):
        return self._compilations[target]

    def arguments_of_linker(self, target):
        return self._links[target]

    def members_of(self, argument):
        """The objects of an archive of this build; nothing, if an argument of the linker is none."""
        return self._links.get(argument, ()) if argument.endswith(".a") else ()

    def _require(self, command):
        done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if done.returncode != 0:
            raise Unusable(f"{done.stdout[-4000:]}\nfails without any change: {shlex.join(done.args)}")
        return done.stdout

    def _read_compilations(self):
        for entry in json.loads((self.directory / "compile_commands.json").read_text(encoding="utf-8")):
            arguments = shlex.split(entry["command"])
            # Only what cannot be compiled counts, not what a warning finds.
            output = arguments[arguments.index("-o") + 1]
            self._compilations[output] = [part for part in arguments if not part.startswith("-W")] + ["-w"]

    def _read_dependents(self):
        target = ""
        for line in self._require(["ninja", "-C", self.directory, "-t", "deps"]).splitlines():
            if line.startswith(" "):
                source = os.path.normpath(self.directory / line.strip())
                self._dependents.setdefault(source, []).append(target)
            else:
                target = line.partition(":")[0]

    def _read_link(self, target):
        made = (self.directory / target).resolve().relative_to(self.directory.resolve())  # a library has several names
        command = self._require(["ninja", "-C", self.directory, "-t", "commands", "-s", made]).splitlines()[-1]
        steps = [shlex.split(step) for step in command.split(" && ")]
        arguments = next(step for step in steps if "-o" in step or "qc" in step)
        self._links[target] = arguments
        for argument in arguments:
            if argument.endswith(".a") and argument not in self._links and not os.path.isabs(argument):
                self._read_link(argument)

    def _passes(self, program, library, slot, seconds):
        limits = [f"--cpu={int(3 * seconds) + 2}", f"--as={MEMORY}"]
        try:
            return passes(started(program, library, slot.scratch, limits), seconds)[0] == 0
        finally:
            slot.clean()

    def _run_unchanged(self):
        with scratch_directory() as scratch:
            for program in PROGRAMS:
                process = started(self.directory / program, (self.directory / LIBRARY).parent, scratch, ["--cpu=180"])
                _, process.returncode, usage = os.wait4(process.pid, 0)
                if process.returncode != 0:
                    raise Unusable(f"{self.directory / program} fails without any change")
                self._seconds[program] = usage.ru_utime + usage.ru_stime


class Changed:
    """What becomes of a build by the change of one source. Made as it is asked for."""

    def __init__(self, build, slot, objects):
        self._build = build
        self._slot = slot
        self._objects = set(objects)
        self._directory = slot.directory / "build"

    def made(self, target):
        """The file of a program or the library."""
        arguments = self._build.arguments_of_linker(target)
        changed = [name for part in arguments for name in (part, *self._build.members_of(part)) if name in self._objects]
        if not changed:
            return self._build.directory / target
        for name in changed:
            self._compile(name)
        file = self._directory / target
        file.parent.mkdir(parents=True, exist_ok=True)
        self._run([str(part) for part in self._with_changes(arguments, file)])
        return file

    def _with_changes(self, arguments, file):
        """The linker's arguments, with a changed object in the place of its like or before the archive that holds it."""
        output = False
        for part in arguments:
            yield from (self._directory / name for name in self._build.members_of(part) if name in self._objects)
            if output:
                yield file
            else:
                yield self._directory / part if part in self._objects else part
            output = part == "-o"

    def _compile(self, name):
        file = self._directory / name
        if file.exists():
            return
        file.parent.mkdir(parents=True, exist_ok=True)
        original, copy = f"{self._build.source}/", f"{self._slot.source}/"
        arguments = [part.replace(original, copy) for part in self._build.arguments_of_compiler(name)]
        for option in ("-o", "-MF"):
            if option in arguments:
                arguments[arguments.index(option) + 1] = str(file) + (".d" if option == "-MF" else "")
        self._run(arguments)

    def _run(self, arguments):
        done = subprocess.run(arguments, cwd=self._build.directory, capture_output=True, text=True, errors="replace")
        if "static assertion failed" in done.stderr:
            raise StaticAssertion()
        if done.returncode != 0:
            raise Unviable()


def _in_order(path):
    first = FIRST.get(Path(path).parts[len(SOURCES.parts)], ())
    return sorted(PROGRAMS, key=lambda program: Path(program).name not in first)


def started(program, library, scratch, limits, tests=NO_LOOP_DEVICES, environment=None, stdout=subprocess.DEVNULL):
    """A test program, within limits as prlimit knows them."""
    environment = {
        **os.environ,
        "ASAN_OPTIONS": f"hard_rss_limit_mb={MEMORY >> 20}",
        "DISKACCESS_FAULT_STRIDE": "16",
        "DISKACCESS_UPTIME_ROUNDS": "4",
        "GTEST_FAIL_FAST": "1",
        "LD_LIBRARY_PATH": str(library),
        "TMPDIR": str(scratch),
        **(environment or {}),
    }
    environment.pop("TEST_RESULTS", None)
    return subprocess.Popen(
        ["prlimit", "--core=0", *limits, "--", str(program), tests],
        cwd=scratch,
        env=environment,
        stdin=subprocess.DEVNULL,
        stdout=stdout,
        stderr=subprocess.DEVNULL,
        start_new_session=True,
    )


def passes(process, seconds):
    """The status of a program, and what it has printed. In not much more time than it should take on a busy machine."""
    try:
        output, _ = process.communicate(timeout=60 + 20 * seconds)
        return process.returncode, output or b""
    except subprocess.TimeoutExpired:
        return -signal.SIGKILL, b""
    finally:
        _end(process)


def _end(process):
    """Ends a program, with all that it has started."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
