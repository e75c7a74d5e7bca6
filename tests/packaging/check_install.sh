#!/usr/bin/env bash
# Installs the build into a scratch directory, moves it elsewhere, as an installed tree may be, checks what it has the
# loader look for, and builds and runs programs of another project against it.
#
#   check_install.sh BUILD_DIRECTORY CXX_COMPILER WITH_AES
set -euo pipefail
build=$1 compiler=$2 with_aes=$3
# shellcheck source=tests/packaging/check_consumers.sh
source "$(dirname "$0")/check_consumers.sh"
# shellcheck source=tests/packaging/check_python.sh
source "$(dirname "$0")/check_python.sh"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

for component in library development programs; do
  cmake --install "$build" --prefix "$scratch/first" --component "$component" >/dev/null
done
mv "$scratch/first" "$scratch/moved"
libraries=$(dirname "$(find "$scratch/moved" -name libDiskAccess.so)")

check_needed "$libraries/libDiskAccess.so"
check_run_path "$libraries/libDiskAccess.so" ""
# shellcheck disable=SC2016 # the loader expands it
check_run_path "$scratch/moved/bin/diskaccess" '$ORIGIN/../'"${libraries#"$scratch/moved/"}"
check_run_path "$scratch/moved/bin/diskaccess-sample" "" # needs no library of ours
elf_files "$scratch/moved" | check_run_paths 3
# The AES functions of a static program are libcrypto's: others of their names would clash with them.
nm "$libraries/libDiskAccess.a" >"$scratch/symbols"
if grep -w 'AES_[a-z_]*' "$scratch/symbols"; then exit 1; fi

"$scratch/moved/bin/diskaccess-sample" generate "$scratch/disk" --blocks 4 --block-size 1MiB --seconds 5
"$scratch/moved/bin/diskaccess" list "$scratch/disk" --format csv >/dev/null
export CMAKE_PREFIX_PATH=$scratch/moved PKG_CONFIG_PATH=$libraries/pkgconfig LD_LIBRARY_PATH=$libraries
check_consumers "$scratch" "$compiler" "$with_aes" "$scratch/disk"

# The Python module finds its library beside it, wherever both are.
if [ -e "$build/lib/python3/dist-packages/diskaccess" ]; then
  for component in library python; do
    cmake --install "$build" --prefix "$scratch/first" --component "$component" >/dev/null
  done
  mv "$scratch/first" "$scratch/python"
  (unset LD_LIBRARY_PATH && check_python "$(dirname "$0")/../.." "$scratch/python/lib/python3/dist-packages" "$scratch/disk")
fi

# The examples build against the installed tree, as the page says, and the one that reads everything does so.
cmake -S "$(dirname "$0")/../../examples" -B "$scratch/examples" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
  >"$scratch/log" || { cat "$scratch/log"; exit 1; }
cmake --build "$scratch/examples" >"$scratch/log" || { cat "$scratch/log"; exit 1; }
"$scratch/examples/read_everything" "$scratch/disk" >"$scratch/everything"
grep -q -E '^block +0  channel  0  ' "$scratch/everything"
grep -q -E '^[1-9][0-9]* frames, ' "$scratch/everything"
[ "$(grep -c LOST "$scratch/everything")" = 0 ]
check_needed "$libraries/libDiskRecordings.so" blkid ewf
check_run_path "$libraries/libDiskRecordings.so" ""
# shellcheck disable=SC2046 # words
"$compiler" -std=c++17 "$(dirname "$0")/../../examples/read_everything.cpp" \
  $(pkg-config --cflags --libs diskrecordings) -o "$scratch/by-pkg-config"
"$scratch/by-pkg-config" "$scratch/disk" | diff - "$scratch/everything"
