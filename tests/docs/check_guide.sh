#!/usr/bin/env bash
# Puts the C++ of the guide together, in its order, and builds it as C++11 with every warning an error.
#
#   check_guide.sh GUIDE PROGRAM CXX_COMPILER FLAG...     makes PROGRAM; the flags say where headers and library lie
set -euo pipefail
guide=$1 program=$2 compiler=$3
shift 3
mkdir -p "$(dirname "$program")"
# Messages of the compiler name the lines of the guide.
awk -v name="$guide" '
  /^```/ { inside = $0 == "```cpp"; if (inside) printf "#line %d \"%s\"\n", NR + 1, name; next }
  inside' "$guide" >"$program.cpp"
[ -s "$program.cpp" ]
"$compiler" -std=c++11 -Wall -Wextra -Werror "$program.cpp" -o "$program" "$@"
