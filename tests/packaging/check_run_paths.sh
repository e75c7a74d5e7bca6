#!/usr/bin/env bash
# Checks where everything that was built has the loader look for libraries; before that, that the check finds what is wrong.
#
#   check_run_paths.sh LIST CXX_COMPILER     LIST: programs and libraries, one a line; what is not built is left out
set -euo pipefail
list=$1 compiler=$2
# shellcheck source=tests/packaging/elf.sh
source "$(dirname "$0")/elf.sh"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

echo 'int main() {}' >"$scratch/program.cpp"
# shellcheck disable=SC2016 # the loader expands it
for path in : /usr/lib: :/usr/lib /usr/lib::/lib . lib /usr/lib:lib '$ORIGIN/none' '$ORIGINAL/lib'; do
  "$compiler" "$scratch/program.cpp" -o "$scratch/program" "-Wl,-rpath,$path"
  if check_run_path_elements "$scratch/program" 2>/dev/null; then
    echo "the run path '$path' is let through" >&2
    exit 1
  fi
done
"$compiler" "$scratch/program.cpp" -o "$scratch/program" -Wl,-rpath,/usr/lib:/lib
check_run_path_elements "$scratch/program"

while IFS= read -r file; do
  if [ -e "$file" ]; then echo "$file"; fi
done <"$list" | check_run_paths 10
