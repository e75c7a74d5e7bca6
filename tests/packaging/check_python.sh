# shellcheck shell=bash
# check_python SOURCE_DIRECTORY FOLDER DISK: the Python module in FOLDER is whole, and reads a generated disk of four blocks.
check_python() {
  local source=$1 folder=$2 disk=$3
  diff <(cd "$source/python/diskaccess" && find . -type f ! -name '*.pyc' | sort) \
    <(cd "$folder/diskaccess" && find . -type f ! -name '*.pyc' ! -name '_native.*.so' | sort)
  [ "$(find "$folder/diskaccess" -name '_native.*.so' | wc -l)" = 1 ]
  PYTHONPATH=$folder /usr/bin/python3 -B - "$folder" "$disk" <<'END'
import pathlib, sys
import diskaccess
folder, disk = sys.argv[1:]
assert pathlib.Path(diskaccess.__file__).parent.parent == pathlib.Path(folder), diskaccess.__file__
with diskaccess.open(disk) as opened:
    assert len(opened.records()) == 4 and len(opened.journeys()) == 1
    frames = opened.frames()
    assert sum(len(bytes(frame)) for frame in frames) > 0
    assert not any(problem.is_loss for problem in frames.problems + opened.problems())
END
}
