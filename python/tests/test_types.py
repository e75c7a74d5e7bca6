"""The package's types, and whether its examples keep to them."""

import pathlib
import subprocess
import sys

import pytest

import diskaccess

pytest.importorskip("mypy", reason="mypy is not installed")


def test_types_hold() -> None:
    package = pathlib.Path(diskaccess.__file__).parent
    assert (package / "py.typed").exists()
    done = subprocess.run([sys.executable, "-m", "mypy", "--strict", "--no-incremental", "--cache-dir=/dev/null",
                           str(package)], capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout
