"""Changes one token of the library at a time and looks whether a test notices. scripts/mutate tells how to use it."""

import argparse
import collections
import concurrent.futures
import hashlib
import itertools
import json
import os
import queue
import sys
from pathlib import Path

from builds import SOURCES, Build, Slot, Unusable, Unviable, copy_sources
from mutations import mutations_of
from report import CAUGHT, SURVIVED, UNVIABLE, print_report, read_equivalents, told
from switched_build import SwitchedBuild

ROOT = Path(__file__).resolve().parents[2]
WORK = ROOT / "build/mutate"
RESULTS = WORK / "results.jsonl"


class Mutant:
    """A mutation of a file, and how it is told of."""

    def __init__(self, path, source, digest, mutation):
        self.path = path
        self.mutation = mutation
        self.digest = digest  # of the file: what is known of a mutant holds as long as it stays the same
        first = source.count("\n", 0, mutation.start) + 1
        self.line = first
        self.before = _lines(source, mutation.start, mutation.end)
        changed = mutation.apply(source)
        self.after = _lines(changed, mutation.start, mutation.start + len(mutation.replacement))
        self.source = changed

    @property
    def key(self):
        return f"{self.path}:{self.mutation.start}-{self.mutation.end}:{self.mutation.replacement}:{self.digest}"

    @property
    def rank(self):
        """Its place in a sample: anywhere, but always the same."""
        return hashlib.sha256(self.key.encode()).hexdigest()


def _lines(source, start, end):
    """The lines that hold a part of a source, as one."""
    begin = source.rfind("\n", 0, start) + 1
    after = source.find("\n", end)
    return " ".join(source[begin : after if after >= 0 else None].split())


def mutants_of(path):
    source = (ROOT / path).read_text(encoding="utf-8")
    digest = hashlib.sha256(source.encode()).hexdigest()[:12]
    return [Mutant(path, source, digest, mutation) for mutation in mutations_of(source)]


class Results:
    """What is known of mutants, kept in a file that grows line by line."""

    def __init__(self, tests_digest, fresh):
        self._tests = tests_digest
        self._known = {}
        if fresh:
            RESULTS.unlink(missing_ok=True)
        if RESULTS.exists():
            for line in RESULTS.read_text(encoding="utf-8").splitlines():
                result = json.loads(line)
                self._known[result["mutant"]] = result

    def of(self, mutant):
        """What became of a mutant; None if that is not known. A survivor may be caught once sources change."""
        result = self._known.get(mutant.key)
        if result is None or (result["outcome"] == SURVIVED and result["tests"] != self._tests):
            return None
        return result

    def add(self, mutant, outcome, by):
        result = {"mutant": mutant.key, "outcome": outcome, "by": by, "tests": self._tests}
        self._known[mutant.key] = result
        with RESULTS.open("a", encoding="utf-8") as file:
            file.write(json.dumps(result) + "\n")


class Trials:
    """Builds and tests mutants, those in switched builds that can be switched there."""

    def __init__(self, mutants, jobs, equivalents):
        self._equivalents = equivalents
        numbers = itertools.count()
        self._numbers = {mutant.key: next(numbers) for mutant in mutants}
        self._numbered = collections.defaultdict(list)
        for mutant in mutants:
            self._numbered[mutant.path].append((mutant.mutation, self._numbers[mutant.key]))
        self._switched = SwitchedBuild(ROOT, WORK, "switched")
        # What no test notices without sanitizers, one may with them.
        self._sanitized = SwitchedBuild(ROOT, WORK, "switched-sanitized")
        self._plain = Build(WORK)
        self._slots = queue.Queue()
        for number in range(jobs):
            self._slots.put(Slot(WORK, number))
        self._switched.prepare(self._numbered)

    def phases(self):
        """What to try with all mutants, one after the other: each leaves fewer, and takes longer for one of them."""
        return (self._in_switched, self._by_itself, self._in_sanitized)

    def _in_switched(self, mutant):
        """The outcome and the test program that caught it, if it was caught here; else None."""
        number = self._numbers[mutant.key]
        by = self._switched.reaches(number) and self._switched.what_catches(mutant.path, number)
        return (CAUGHT, by) if by else None

    def _in_sanitized(self, mutant):
        if told(mutant) in self._equivalents:
            return SURVIVED, ""  # no test can notice it, and all that reach it would run
        self._sanitized.prepare(self._numbered)
        number = self._numbers[mutant.key]
        by = self._sanitized.reaches(number) and self._sanitized.what_catches(mutant.path, number)
        return (CAUGHT, by) if by else (SURVIVED, "")

    def _by_itself(self, mutant):
        if self._switched.reaches(self._numbers[mutant.key]):
            return None
        slot = self._slots.get()
        try:
            by = self._plain.what_catches(slot, mutant.path, mutant.source)
            return (CAUGHT, by) if by else (SURVIVED, "")
        finally:
            self._slots.put(slot)


def try_all(mutants, results, jobs, equivalents):
    """Tries those that nothing is known of yet."""
    left = [mutant for mutant in mutants if results.of(mutant) is None]
    if not left:
        return
    trials = Trials([mutant for path in sources([]) for mutant in mutants_of(path)], jobs, equivalents)
    for phase in trials.phases():
        print(f"{len(left)} of {len(mutants)} mutants to try", file=sys.stderr, flush=True)
        try_phase(phase, left, results, jobs)
        left = [mutant for mutant in left if results.of(mutant) is None]


def try_phase(phase, mutants, results, jobs):
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        futures = {pool.submit(outcome_of, phase, mutant): mutant for mutant in mutants}
        try:
            for done, future in enumerate(concurrent.futures.as_completed(futures), 1):
                mutant = futures[future]
                if future.result() is not None:
                    results.add(mutant, *future.result())
                    if future.result()[0] == SURVIVED:
                        print(told(mutant), file=sys.stderr, flush=True)
                if done % 100 == 0:
                    print(f"{done} of {len(mutants)}", file=sys.stderr, flush=True)
        except BaseException:
            pool.shutdown(cancel_futures=True)
            raise


def outcome_of(phase, mutant):
    try:
        return phase(mutant)
    except Unviable:
        return UNVIABLE, ""


def sources(arguments):
    if not arguments:
        found = sorted((ROOT / SOURCES).rglob("*.cpp")) + sorted((ROOT / SOURCES).rglob("*.h"))
        return sorted(str(path.relative_to(ROOT)) for path in found)
    paths = [str(Path(argument).resolve().relative_to(ROOT)) for argument in arguments]
    for path in paths:
        if not path.startswith(str(SOURCES)) or not (ROOT / path).is_file():
            sys.exit(f"{path}: is no file of {SOURCES}")
    return paths


def parse_arguments():
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--sample", type=int)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--report", action="store_true")
    parser.add_argument("--fresh", action="store_true")
    parser.add_argument("files", nargs="*")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    mutants = [mutant for path in sources(arguments.files) for mutant in mutants_of(path)]
    if arguments.sample is not None:
        chosen = {mutant.key for mutant in sorted(mutants, key=lambda mutant: mutant.rank)[: arguments.sample]}
        mutants = [mutant for mutant in mutants if mutant.key in chosen]
    if arguments.list:
        for mutant in mutants:
            print(f"{mutant.path}:{mutant.line}: {mutant.before}  ->  {mutant.after}")
        return 0
    WORK.mkdir(parents=True, exist_ok=True)
    equivalents = read_equivalents(ROOT / "tests/mutation/equivalent.txt")
    results = Results(copy_sources(ROOT, WORK / "source"), arguments.fresh)
    if not arguments.report:
        try:
            try_all(mutants, results, arguments.jobs, equivalents)
        except Unusable as reason:
            sys.exit(str(reason))
    outcomes = [(mutant, results.of(mutant)) for mutant in mutants]
    return print_report(outcomes, equivalents)


if __name__ == "__main__":
    sys.exit(main())
