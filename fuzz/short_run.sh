#!/usr/bin/env bash
# Runs a fuzzer for some seconds, from the inputs that are kept: each of them, and what comes next from a fixed seed.
#
#   short_run.sh FUZZER CORPUS RUNS [OPTION...]     OPTION: of libFuzzer
#
# An input with a finding stays in the working directory.
set -euo pipefail
fuzzer=$1 corpus=$2 runs=$3
shift 3
new=$(mktemp -d)
trap 'rm -rf "$new"' EXIT
"$fuzzer" -seed=1 -runs="$runs" -max_total_time=10 -timeout=25 -max_len=12288 \
  -artifact_prefix="$PWD/$(basename "$fuzzer")-" "$@" "$new" "$corpus" 2>&1 |
  grep -v -E '^#[0-9]+[[:space:]]+(NEW|REDUCE|pulse)|# Uses:'
