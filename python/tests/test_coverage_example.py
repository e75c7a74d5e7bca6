"""The example that draws what was recorded by vehicle and day."""

import pathlib
import runpy

import pytest

import diskaccess
from conftest import generate, required

pytest.importorskip("matplotlib", reason="python3-matplotlib is not installed")


def test_a_folder_becomes_a_picture(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    folder = tmp_path / "disks"
    folder.mkdir()
    midnight = 1_700_006_400  # 2023-11-15 00:00 UTC
    generate(folder / "1.img", start=midnight - 15)
    (folder / "notes.txt").write_text("no disk")
    example = required("EXAMPLES") / "coverage_by_day.py"
    names = runpy.run_path(str(example))
    with diskaccess.open(folder / "1.img") as disk:
        hours = names["recorded_by_day"](disk)
    assert {str(day): round(value * 3600) for day, value in hours.items()} == {"2023-11-14": 15, "2023-11-15": 5}
    monkeypatch.setattr("sys.argv", [str(example), str(folder), str(tmp_path / "picture.png")])
    runpy.run_path(str(example), run_name="__main__")
    assert (tmp_path / "picture.png").read_bytes()[:8] == b"\x89PNG\r\n\x1a\n"
