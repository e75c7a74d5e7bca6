#!/usr/bin/env bash
# Strips a copy of a library and compares its size with a limit.
#
#   check_size.sh STRIP LIBRARY BYTES
set -euo pipefail
strip=$1 library=$2 limit=$3
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
"$strip" --strip-unneeded -o "$stripped" "$library"
size=$(stat -c %s "$stripped")
echo "$size bytes, at most $limit"
[ "$size" -le "$limit" ]
