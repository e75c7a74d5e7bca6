"""Several workers, one of which is lost, and one catalogue."""

import json
import os
import pathlib
import subprocess
import sys
import time
from collections.abc import Iterator

import pytest

from conftest import generate, required

pytest.importorskip("distributed", reason="python3-distributed is not installed")
pytestmark = pytest.mark.skipif("DISKACCESS_TEST_SERVER" not in os.environ,
                                reason="no PostgreSQL server was started; install postgresql-15")

DISKS = 50


def test_a_server_holds_a_catalogue(program: pathlib.Path, disk: pathlib.Path) -> None:
    def catalogue(*words: str) -> dict[str, list[dict[str, object]]]:
        done = subprocess.run([str(program), "catalog", *words, "--json", "--database",
                               os.environ["DISKACCESS_TEST_SERVER"]], capture_output=True, text=True, check=True)
        document: dict[str, list[dict[str, object]]] = json.loads(done.stdout)
        return document

    number = catalogue("add", str(disk))["added"][0]["disk_number"]
    assert len(catalogue("find")["found"]) == 1
    assert catalogue("remove", str(number))["removed"] == [{"disk_number": number}]


@pytest.fixture
def processes() -> Iterator[list[subprocess.Popen[bytes]]]:
    started: list[subprocess.Popen[bytes]] = []
    yield started
    for process in started:
        process.kill()
        process.wait()


def test_every_disk_is_catalogued_once_though_a_worker_is_lost(
        program: pathlib.Path, tmp_path: pathlib.Path, processes: list[subprocess.Popen[bytes]]) -> None:
    images = [generate(tmp_path / f"{number}.img", blocks=4, seconds=5, seed=number, start=1_700_000_000 + 100 * number)
              for number in range(DISKS)]
    server = os.environ["DISKACCESS_TEST_SERVER"]
    environment = {**os.environ, "PATH": f"{program.parent}:{os.environ['PATH']}", "HOME": str(tmp_path)}

    def start(*words: str) -> subprocess.Popen[bytes]:
        process = subprocess.Popen([sys.executable, "-m", *words], env=environment, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, cwd=tmp_path)
        processes.append(process)
        return process

    file = tmp_path / "scheduler.json"
    start("distributed.cli.dask_scheduler", "--host", "127.0.0.1", "--port", "0", "--no-dashboard",
          "--scheduler-file", str(file))
    until(lambda: file.exists() and file.stat().st_size > 0)
    address = json.loads(file.read_text())["address"]
    lost, _ = [start("distributed.cli.dask_worker", address, "--nthreads", "1", "--no-nanny", "--no-dashboard",
                     "--host", "127.0.0.1", "--local-directory", str(tmp_path)) for _ in range(2)]

    fleet = subprocess.Popen([sys.executable, str(required("EXAMPLES") / "fleet.py"), address, server,
                              *map(str, images)], env=environment, stdout=subprocess.PIPE, text=True)
    assert fleet.stdout is not None
    first = [fleet.stdout.readline() for _ in range(10)]
    lost.kill()  # in the middle: it had done some, and was at work on another
    rest = fleet.communicate(timeout=200)[0].splitlines()
    assert fleet.returncode == 0 and len(first) + len(rest) == DISKS

    listed = subprocess.run([str(program), "catalog", "list", "--database", server, "--json"], capture_output=True,
                            text=True, check=True)
    sources = [disk["source_path"] for disk in json.loads(listed.stdout)["catalogued_disks"]]
    assert sorted(sources) == sorted(map(str, images))


def until(condition: object, seconds: float = 60) -> None:
    end = time.monotonic() + seconds
    while not condition():  # type: ignore[operator]
        assert time.monotonic() < end
        time.sleep(0.05)
