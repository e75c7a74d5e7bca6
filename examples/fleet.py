"""Enters many disks into one catalogue, each as a task of its own, on the workers of a Dask cluster.

    fleet.py SCHEDULER DATABASE IMAGE...      SCHEDULER: tcp://host:8786; DATABASE: postgresql://user@host/name

Takes Dask (python3-distributed) here and diskaccess on every worker, which must see the images under the same names.
"""

import json
import subprocess
import sys

import distributed


def add(image: str, database: str) -> dict[str, object]:
    """Runs on a worker. Done again after a worker was lost half-way, it leaves what once does."""
    done = subprocess.run(["diskaccess", "catalog", "add", image, "--database", database, "--json"],
                          capture_output=True, text=True, check=False)
    if done.returncode not in (0, 3):  # 3: entered, and something that was recorded is lost
        raise RuntimeError(done.stderr.strip())
    row: dict[str, object] = json.loads(done.stdout)["added"][0]
    return row


def add_all(scheduler: str, database: str, images: list[str]) -> int:
    failed = 0
    with distributed.Client(scheduler) as client:
        # A task that was on a lost worker is given to another one; not a result, but the catalogue counts.
        tasks = client.map(add, images, database=database, pure=False, retries=3)
        for task in distributed.as_completed(tasks):
            if task.status == "finished":
                row = task.result()
                print(row["source_path"], "is disk", row["disk_number"], flush=True)
            else:
                failed += 1
                print(f"not catalogued: {task.exception()}", file=sys.stderr, flush=True)
    return failed


if __name__ == "__main__":
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    sys.exit(1 if add_all(sys.argv[1], sys.argv[2], sys.argv[3:]) else 0)
