#!/usr/bin/env bash
# Builds the reference into a scratch directory; doxygen fails on anything public without a docstring. It leaves out
# pictures that it does not find, and says nothing: those that its pages show must be there.
#
#   check_reference.sh DOXYGEN DOXYFILE
set -euo pipefail
doxygen=$1 doxyfile=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
{
  cat "$doxyfile"
  echo "OUTPUT_DIRECTORY = $scratch"
} | "$doxygen" -
[ -s "$scratch/html/index.html" ]
pictures=0
while read -r picture; do
  pictures=$((pictures + 1))
  [ -s "$scratch/html/$picture" ] || { echo "no such picture: $picture" >&2; exit 1; }
done < <(grep -oh '<img src="[^"]*"' "$scratch"/html/md_*.html | cut -d '"' -f 2 | sort -u)
[ "$pictures" != 0 ]
