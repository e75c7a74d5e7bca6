#!/usr/bin/env bash
# Compiles the C++ that a manual page shows, as C++11 with every warning an error.
#
#   check_example.sh PAGE CXX_COMPILER FLAG...
set -euo pipefail
page=$1 compiler=$2
shift 2
example=$(awk '/^\.Sh / { examples = $2 == "EXAMPLES" } /^\.Ed/ { inside = 0 } examples && inside
  /^\.Bd -literal/ { inside = 1 }' "$page" | sed 's/\\e/\\/g')
[ -n "$example" ]
"$compiler" -std=c++11 -Wall -Wextra -Werror -fsyntax-only -x c++ "$@" - <<<"$example"
