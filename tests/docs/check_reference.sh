#!/usr/bin/env bash
# Builds the reference into a scratch directory; doxygen fails on anything public without a docstring.
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
