"""Tells what became of the mutants."""

import collections

CAUGHT, SURVIVED, UNVIABLE = "caught", "survived", "unviable"

COLUMNS = ("mutants", CAUGHT, SURVIVED, "equivalent", "untried")


def read_equivalents(path):
    """The mutants that change nothing that a caller could see: file, line before and line after, as they are told."""
    equivalents = set()
    for line in path.read_text(encoding="utf-8").splitlines():
        if line and not line.startswith("#"):
            equivalents.add(line)
    return equivalents


def told(mutant):
    """A mutant without the number of its line, which changes with what stands before it."""
    return f"{mutant.path}: {mutant.before}  ->  {mutant.after}"


def print_report(outcomes, equivalents):
    """Prints the survivors and a table of all.

    outcomes: pairs of a mutant and its result, which may be None
    Returns the exit status: 0 when every mutant was caught, or is known to change nothing."""
    table = collections.defaultdict(collections.Counter)
    for mutant, result in outcomes:
        outcome = result["outcome"] if result else "untried"
        if outcome == UNVIABLE:
            continue
        if outcome == SURVIVED and told(mutant) in equivalents:
            outcome = "equivalent"
        if outcome == SURVIVED:
            print(f"{mutant.path}:{mutant.line}: {mutant.before}  ->  {mutant.after}")
        table[mutant.path].update(("mutants", outcome))
    total = sum(table.values(), collections.Counter())
    _print_row("FILE", [column.upper() for column in COLUMNS])
    for path, counts in sorted(table.items()):
        _print_row(path, [counts[column] for column in COLUMNS])
    _print_row("all", [total[column] for column in COLUMNS])
    return 1 if total[SURVIVED] or total["untried"] else 0


def _print_row(name, cells):
    print(f"{name:64}" + "".join(f"{cell:>12}" for cell in cells))
