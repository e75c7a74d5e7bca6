#!/usr/bin/env bash
# Writes what callers of the library rely on, as abidw sees it: its functions, and the types that its public headers
# declare. Types of other files, such as the records that hold the classes' private state, stay out.
#
#   dump_abi.sh LIBRARY HEADER...      LIBRARY: one with debugging information
set -euo pipefail
library=$1
shift
suppressions=$(mktemp)
trap 'rm -f "$suppressions"' EXIT
headers=("${@##*/}")
printf '[suppress_type]\n  source_location_not_in = %s\n  drop = true\n' "$(IFS=,; echo "${headers[*]}")" >"$suppressions"
abidw --suppressions "$suppressions" --exported-interfaces-only --no-parameter-names --no-show-locs \
  --no-comp-dir-path --no-corpus-path --no-elf-needed "$library"
