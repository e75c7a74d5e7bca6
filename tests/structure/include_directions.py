#!/usr/bin/env python3
"""Holds the includes of a source tree against the floors of the house: arrows point down only, and never in a circle.

    include_directions.py TREE
"""

import os
import re
import sys

RECORDER = "storemng/disk_access/"
LIST = "comm_middle/include"
API = RECORDER + "include"
FORMAT = RECORDER + "src/format"
IO = RECORDER + "src/io"
RECORDINGS = "recordings/include"
MEDIA = "media/include"
CATALOG = "catalog/include"
PUBLIC = [LIST, API, RECORDINGS, MEDIA, CATALOG]
CLI = "tools/diskaccess/cli"
RENDER = "tools/diskaccess/render"
COMPLETION = "tools/completion"
SAMPLES = "sample_recorder/include"

# What the files of a folder and the folders in it may include besides each other: folders, or single files.
MAY_INCLUDE = {
    LIST: [],
    API: [LIST],
    FORMAT: [LIST, API],
    IO: [LIST, API, FORMAT],
    RECORDER + "src/aes": [],
    RECORDER + "src/search": [LIST, API, FORMAT, IO],
    RECORDER + "src/playback": [LIST, API, FORMAT, IO],
    RECORDER + "src/dump": [LIST, API, FORMAT, IO],
    # What others include of floor 2 says nothing of the floor below it.
    RECORDINGS: [],
    # The table of calls is the seam through which the recorder's library reads what recordings/ gives it.
    "recordings/src": [RECORDINGS, LIST, API, FORMAT, IO + "/host.h"],
    MEDIA: [RECORDINGS],
    "media/src": [MEDIA, RECORDINGS],
    CATALOG: [RECORDINGS, MEDIA],
    "catalog/src": [CATALOG, RECORDINGS, MEDIA],
    COMPLETION: [],
    RENDER: PUBLIC,
    CLI: PUBLIC + [COMPLETION, RENDER],
    "tools/diskaccess/view": PUBLIC + [CLI, RENDER],
    "tools/diskaccess/commands": PUBLIC + [CLI, RENDER, "tools/diskaccess/view"],
    "tools/diskaccess": PUBLIC + [CLI, RENDER, "tools/diskaccess/commands"],
    # Its manifests escape the texts of a disk as the program does.
    "python": PUBLIC + [RENDER + "/printable.h"],
    "examples": PUBLIC,
    # It writes what the reader reads, from the same table of where things lie.
    SAMPLES: [LIST, API],
    "sample_recorder/src": [SAMPLES, LIST, API, FORMAT, COMPLETION],
    # It counts system calls, as the tests do.
    "bench": PUBLIC + [SAMPLES, "tests/host"],
}

# Tests and fuzzers reach into everything.
EXEMPT = ["tests", "fuzz"]

# Where an include is looked for when it does not lie in the folders around the file.
SEARCHED = PUBLIC + [
    RECORDER + "src",
    "recordings/src",
    "media/src",
    "catalog/src",
    SAMPLES,
    "sample_recorder/src",
    "tools",
    "tools/diskaccess",
    "tests",
    "fuzz",
    "bench",
]

SOURCE = re.compile(r"\.(h|hpp|c|cc|cpp)$|^comm_list$")
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^>"]+)[>"]', re.MULTILINE)


def inside(path, folder):
    return path == folder or path.startswith(folder + "/")


def sources(tree):
    """All source files, named from the top of the tree."""
    for directory, folders, files in os.walk(tree):
        folders[:] = sorted(f for f in folders if f != "build" and not f.startswith("."))
        for name in sorted(files):
            if SOURCE.search(name):
                yield os.path.relpath(os.path.join(directory, name), tree)


def resolve(path, name, known):
    """The file of the tree that an include in another means; None if it is none of them."""
    folder = os.path.dirname(path)
    while folder:
        candidate = os.path.normpath(os.path.join(folder, name))
        if candidate in known:
            return candidate
        folder = os.path.dirname(folder)
    return next((s + "/" + name for s in SEARCHED if s + "/" + name in known), None)


def folder_of(path):
    """The folder with a rule that a file belongs to: the innermost one."""
    return max((f for f in MAY_INCLUDE if inside(path, f)), key=len, default=None)


def includes(tree):
    """Of each file, what it includes: the files of the tree, and the names in quotes that are no such file."""
    known = set(sources(tree))
    arrows, unknown = {}, []
    for path in sorted(known):
        arrows[path] = []
        with open(os.path.join(tree, path), encoding="utf-8") as file:
            for quote, name in INCLUDE.findall(file.read()):
                target = resolve(path, name, known)
                if target is not None:
                    arrows[path].append(target)
                elif quote == '"':
                    unknown.append((path, name))
    return arrows, unknown


def circle(arrows):
    """The nodes of a circle, the first one again at its end; None if there is none."""
    finished = set()
    for start in sorted(arrows):
        trail, pending = [], [(start, False)]
        while pending:
            node, left = pending.pop()
            if left:
                finished.add(trail.pop())
            elif node in trail:
                return trail[trail.index(node):] + [node]
            elif node not in finished:
                trail.append(node)
                pending.append((node, True))
                pending.extend((target, False) for target in arrows.get(node, ()))
    return None


def folder_arrows(arrows):
    """The arrows between folders that those between files make."""
    folders = {}
    for path, targets in arrows.items():
        own = folder_of(path)
        if own is not None:
            others = {folder_of(target) for target in targets} - {own, None}
            folders.setdefault(own, set()).update(others)
    return {folder: sorted(targets) for folder, targets in folders.items()}


def problems(tree):
    """What is wrong with the includes, a line each."""
    arrows, unknown = includes(tree)
    found = []
    for path, targets in arrows.items():
        if any(inside(path, folder) for folder in EXEMPT):
            continue
        own = folder_of(path)
        if own is None:
            found.append(f"{path}: its folder has no rule about what it may include")
            continue
        for target in targets:
            if folder_of(target) != own and not any(inside(target, f) for f in MAY_INCLUDE[own]):
                found.append(f"{path}: {own} may not include {target}")
    found += [f'{path}: "{name}" is no file of the tree' for path, name in unknown
              if not any(inside(path, folder) for folder in EXEMPT)]
    for what, graph in (("files", arrows), ("folders", folder_arrows(arrows))):
        around = circle(graph)
        if around is not None:
            found.append(f"{what} include each other in a circle: {' -> '.join(around)}")
    return found


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip())
    found = problems(sys.argv[1])
    for line in found:
        print(line)
    counted = sum(1 for _ in sources(sys.argv[1]))
    print(f"{counted} files, {len(found)} wrong")
    sys.exit(0 if counted > 0 and not found else 1)


if __name__ == "__main__":
    main()
