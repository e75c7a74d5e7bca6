#!/usr/bin/env bash
# Compares the library's binary interface with the one that callers were built against. Any difference fails: what
# breaks callers needs a new major version, what only adds to the interface a new baseline (the target abi-baseline).
#
#   check_abi.sh LIBRARY BASELINE HEADER...
set -euo pipefail
library=$1 baseline=$2
shift 2
current=$(mktemp --suffix=.xml)
trap 'rm -f "$current"' EXIT
"$(dirname "$0")/dump_abi.sh" "$library" "$@" >"$current"

# Every record of the headers is described.
while IFS= read -r record; do
  grep -q -E "<class-decl name='$record(&lt;|' size-in-bits)" "$current" ||
    { echo "no description of $record: name it in public_records.cpp" >&2; exit 1; }
done < <(sed -n -E 's/^struct ([A-Za-z]\w*).*/\1/p' "$@")

# What abidiff takes for harmless includes fields that changed places.
abidiff --harmless "$baseline" "$current"
