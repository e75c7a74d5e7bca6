#!/usr/bin/env bash
# Runs the guide's program on the sample partition, and compares what it prints with what the guide shows.
#
#   run_guide.sh GUIDE PROGRAM PARTITION
set -euo pipefail
guide=$1 program=$2 partition=$3
shown=$(awk '/^```/ { inside = $0 == "```console"; next } inside && !/^\$ /' "$guide")
diff -u --label "$guide" --label "what it prints" <(echo "$shown") <("$program" "$partition")
