#!/usr/bin/env bash
# Lints manual pages; whether the pages that they refer to are installed here is no matter of theirs.
#
#   check_pages.sh PAGE...
set -euo pipefail
[ $# != 0 ]
for page in "$@"; do
  [ -s "$page" ] || { echo "$page: missing"; exit 1; }
done
complaints=$({ mandoc -T lint -W style "$@" 2>&1 || true; } |
  grep -v -E ': referenced manual not found: |^mandoc: outdated mandoc.db ' || true)
echo "${complaints:-no complaints}"
[ -z "$complaints" ]
