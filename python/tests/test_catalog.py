"""The command diskaccess catalog, as a user types it."""

import json
import os
import pathlib
import shlex
import shutil
import subprocess

import pytest

from conftest import generate


def run(program: pathlib.Path, *words: object, code: int = 0,
        env: dict[str, str] | None = None) -> subprocess.CompletedProcess[str]:
    done = subprocess.run([str(program), "catalog", *map(str, words)], capture_output=True, text=True, check=False,
                          env={**os.environ, **(env or {})})
    assert done.returncode == code, done.stderr
    return done


def answer(program: pathlib.Path, *words: object) -> dict[str, list[dict[str, object]]]:
    document: dict[str, list[dict[str, object]]] = json.loads(run(program, *words, "--json", "--utc").stdout)
    return document


def test_from_images_to_the_command_that_exports(sample: pathlib.Path, program: pathlib.Path,
                                                 tmp_path: pathlib.Path) -> None:
    here = f"--database={tmp_path / 'catalog.db'}"
    copy = tmp_path / "it's a copy.img"
    copy.symlink_to(sample)
    generate(tmp_path / "other.img")
    added = answer(program, "add", copy, tmp_path / "other.img", here, "--jobs", 2)["added"]
    assert [(row["new"], row["source_path"]) for row in added] == [(True, str(copy)), (True, str(tmp_path / "other.img"))]
    assert added[0]["read_block_count"] == added[0]["recorded_block_count"] == 15

    found = answer(program, "find", here, "--vehicle", "SAMPLE 4711", "--from", "2026-11-20 16:21", "--to",
                   "2026-11-20 16:21:09")["found"]
    assert len(found) == 1
    assert (found[0]["start"], found[0]["end"]) == ("2026-11-20T16:21:00Z", "2026-11-20T16:21:09Z")
    assert found[0]["channels"] == [0, 1, 2, 3] and found[0]["disk_number"] == added[0]["disk_number"]
    command = shlex.split(str(found[0]["export_command"]))
    assert command[0] == "diskaccess"
    subprocess.run([program, *command[1:]], check=True, capture_output=True, cwd=tmp_path)
    assert (tmp_path / "SAMPLE_4711-20261120-162100.mkv").stat().st_size > 1_000_000

    around = answer(program, "find", here, "--event", "0x10")["found"]
    assert [(row["start"], row["end"], row["event_types"]) for row in around] == [
        ("2026-11-20T16:20:30Z", "2026-11-20T16:21:10Z", 0x10)]  # ten seconds before, thirty after
    assert answer(program, "find", here, "--vehicle", "nobody's")["found"] == []

    moved = tmp_path / "moved.img"
    (tmp_path / "other.img").rename(moved)
    again = answer(program, "add", moved, here)["added"][0]
    assert (again["new"], again["read_block_count"], again["disk_number"]) == (False, 0, added[1]["disk_number"])
    disks = answer(program, "list", here)["catalogued_disks"]
    assert [disk["source_path"] for disk in disks] == [str(moved), str(copy)]  # SAMPLE 1, SAMPLE 4711
    assert answer(program, "remove", added[0]["disk_number"], here)["removed"] == [{"disk_number": added[0]["disk_number"]}]
    assert len(answer(program, "list", here)["catalogued_disks"]) == 1


@pytest.mark.parametrize("name, shells", [
    ("it's \"a\" copy of $HOME `id` \\ ü!.img", ["bash", "zsh", "sh"]),
    ("two\nlines and \x1b[1m.img", ["bash", "zsh"]),
    (os.fsdecode(b"\xff'\xfe.img"), ["bash", "zsh"]),
])
def test_the_printed_command_can_be_pasted(sample: pathlib.Path, program: pathlib.Path, tmp_path: pathlib.Path,
                                           name: str, shells: list[str]) -> None:
    here = f"--database={tmp_path / 'catalog.db'}"
    source = tmp_path / name
    source.symlink_to(sample)
    run(program, "add", source, here)
    text = run(program, "find", here, "--utc", "--from", "2026-11-20 16:21", "--to", "2026-11-20 16:21:01", "--channel",
               "3").stdout
    command = text.splitlines()[1][text.splitlines()[0].index("COMMAND"):].strip()
    for shell in filter(shutil.which, shells):
        folder = tmp_path / f"in {shell}"
        folder.mkdir()
        subprocess.run([shell, "-c", command], check=True, capture_output=True, cwd=folder,
                       env={**os.environ, "PATH": f"{program.parent}:{os.environ['PATH']}"})
        assert (folder / "SAMPLE_4711-20261120-162100.mkv").stat().st_size > 10_000


def test_what_fails_is_named_and_the_rest_is_done(program: pathlib.Path, tmp_path: pathlib.Path,
                                                  disk: pathlib.Path) -> None:
    here = f"--database={tmp_path / 'catalog.db'}"
    (tmp_path / "text").write_text("no partition" * 1000)
    done = run(program, "add", tmp_path / "text", disk, tmp_path / "none.img", here, code=1)
    assert len(done.stderr.splitlines()) == 2
    assert "text" in done.stderr and "none.img" in done.stderr
    assert len(answer(program, "list", here)["catalogued_disks"]) == 1
    for words in (["add"], ["remove"], ["remove", "x"], ["list", "x"], ["find", "--event", "door"], ["sing"]):
        run(program, *words, here, code=2)
    run(program, "remove", 99, here, code=1)


def test_several_programs_add_to_one_new_file_at_once(program: pathlib.Path, tmp_path: pathlib.Path) -> None:
    images = [generate(tmp_path / f"{number}.img", blocks=4, seconds=5, seed=number, start=1_700_000_000 + 100 * number)
              for number in range(12)]
    here = f"--database={tmp_path / 'catalog.db'}"
    # Each adds eight, and four of them are another one's too.
    programs = [subprocess.Popen([str(program), "catalog", "add", *map(str, chosen), here, "--jobs", "4"],
                                 stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
                for chosen in (images[:8], images[4:], images[:4] + images[8:])]
    for each in programs:
        assert each.communicate(timeout=200)[1] == "" and each.returncode == 0
    disks = answer(program, "list", here)["catalogued_disks"]
    assert sorted(str(disk["source_path"]) for disk in disks) == sorted(map(str, images))
    assert len(answer(program, "find", here)["found"]) == 12


def test_a_failing_disk_is_there_with_its_problems(program: pathlib.Path, tmp_path: pathlib.Path,
                                                   disk: pathlib.Path) -> None:
    here = f"--database={tmp_path / 'catalog.db'}"
    with disk.open("r+b") as file:
        file.seek(disk.stat().st_size - 16 * 65536 + 2 * 65536)
        file.write(bytes(65536))  # a block that was written over
    run(program, "add", disk, here, code=3)
    document = answer(program, "list", here)
    assert document["catalogued_disks"][0]["loss_count"] != 0
    assert any(problem["severity"] == "loss" for problem in document["problems"])


def test_the_catalogue_is_never_written_into_a_source(program: pathlib.Path, tmp_path: pathlib.Path,
                                                      disk: pathlib.Path) -> None:
    before = disk.read_bytes()
    (tmp_path / "link").hardlink_to(disk)
    for name in (disk, tmp_path / "link"):
        run(program, "add", disk, f"--database={name}", code=1)
    empty = tmp_path / "empty.img"
    empty.touch()
    run(program, "add", empty, disk, f"--database={empty}", code=1)
    assert disk.read_bytes() == before


def test_it_lies_in_the_users_data_folder(program: pathlib.Path, tmp_path: pathlib.Path, disk: pathlib.Path) -> None:
    run(program, "add", disk, env={"XDG_DATA_HOME": str(tmp_path / "data")})
    assert (tmp_path / "data/diskaccess/catalog.db").exists()
    run(program, "add", disk, env={"XDG_DATA_HOME": "", "HOME": str(tmp_path / "home")})
    assert (tmp_path / "home/.local/share/diskaccess/catalog.db").exists()


def test_a_hostile_vehicle_does_no_harm(program: pathlib.Path, tmp_path: pathlib.Path, disk: pathlib.Path) -> None:
    here = f"--database={tmp_path / 'catalog.db'}"
    data = disk.read_bytes().replace(b"SAMPLE 1", b"\xff';\x1b[---")
    disk.write_bytes(data)
    run(program, "add", disk, here)
    rows = answer(program, "list", here)["catalogued_disks"]
    assert rows[0]["vehicle_number"] == "\\xff';\\x1b[---"
    text = run(program, "find", here).stdout
    assert "\x1b" not in text and "\\xff" in text
