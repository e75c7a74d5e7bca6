"""The code of docs/python.md, run in order."""

import pathlib
import re

import pytest

from conftest import required


def test_the_page_runs(sample: pathlib.Path, tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    pytest.importorskip("av", reason="python3-av is not installed")
    pytest.importorskip("numpy", reason="python3-numpy is not installed")
    page = required("PAGE").read_text(encoding="utf-8")
    (tmp_path / "sample.img").symlink_to(sample)
    monkeypatch.chdir(tmp_path)
    names: dict[str, object] = {}
    blocks = re.findall(r"```python\n(.*?)```", page, re.DOTALL)
    assert len(blocks) >= 7
    for block in blocks:
        exec(compile(block, "docs/python.md", "exec"), names)  # pylint: disable=exec-used
    info = names["info"]
    assert getattr(info, "vehicle_number") == "SAMPLE 4711"
    assert names["lost"] == [] and names["size"] > 500_000  # type: ignore[operator]
    assert len(names["pictures"]) >= 10  # type: ignore[arg-type]
    assert getattr(names["picture"], "shape") == (288, 352, 3)
    assert len(names["of_channel_2"]) == 2  # type: ignore[arg-type]
    assert (tmp_path / "film.mkv").stat().st_size > 1_000_000
