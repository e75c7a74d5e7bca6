#!/usr/bin/env bash
# Installs the build into a scratch directory, builds a program of another project against it, and runs it.
#
#   check_install.sh BUILD_DIRECTORY CONSUMER_SOURCE CXX_COMPILER
set -euo pipefail
build=$1 consumer=$2 compiler=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build" --prefix "$scratch/installed" >/dev/null
cmake -S "$consumer" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$scratch/installed" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_BUILD_TYPE=Release >"$scratch/log" || { cat "$scratch/log"; exit 1; }
cmake --build "$scratch/build" >"$scratch/log" || { cat "$scratch/log"; exit 1; }
"$scratch/installed/bin/diskaccess-sample" generate "$scratch/disk" --blocks 4 --block-size 1MiB --seconds 5
"$scratch/build/consumer" "$scratch/disk" | tail -n 1 | grep -x 'records: 4'
