#!/usr/bin/env bash
# Compares the functions that a library exports with those that callers' objects refer to, by their mangled names: each
# object, whatever it was compiled with, refers to all of them and to no other.
#
#   check_callers.sh NM LIBRARY OBJECT...
set -euo pipefail
nm=$1 library=$2
shift 2
exported=$(mktemp)
trap 'rm -f "$exported"' EXIT
# No pointer leads to a constructor or destructor; tables and type information are data.
"$nm" --dynamic --defined-only --format=posix "$library" | sed 's/ .*//' | grep '^_Z' |
  grep -v -E '^_ZT|[CD][0-2]E' | LC_ALL=C sort >"$exported"
[ -s "$exported" ]
for object in "$@"; do
  echo "$object"
  "$nm" --undefined-only --format=posix "$object" | sed 's/ .*//' | grep '^_Z' | LC_ALL=C sort |
    diff -u --label exported --label "referred to" "$exported" -
done
