#!/usr/bin/env bash
# Compares what the library exports with the list of what it is meant to, and checks its name and what it needs.
# Tools of another target come in NM and READELF.
#
#   check_symbols.sh LIBRARY LIST...
set -euo pipefail
# shellcheck source=tests/packaging/elf.sh
source "$(dirname "$0")/../packaging/elf.sh"
library=$1
shift
"${NM:-nm}" --dynamic --defined-only --demangle "$library" | sed -E 's/^[0-9a-f]+ . //' | LC_ALL=C sort -u |
  diff -u <(cat "$@" | LC_ALL=C sort -u) - || { echo "the exported symbols differ from $*" >&2; exit 1; }
"$readelf" --dynamic "$library" | grep -q 'SONAME.*\[libDiskAccess\.so\.1\]' ||
  { echo "$library does not call itself libDiskAccess.so.1" >&2; exit 1; }
check_needed "$library"
