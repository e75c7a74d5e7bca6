#!/usr/bin/env bash
# Checks that all that was built is hardened against input that is forged; before that, that the check finds what is not.
#
#   check_hardening.sh LIST CXX_COMPILER KINDS INSTALLED...
#       LIST: programs and libraries, one a line; what is not built is left out
#       KINDS: how the functions of what is installed guard themselves, as check_guarded names it, divided by commas
set -euo pipefail
list=$1 compiler=$2
IFS=, read -r -a kinds <<<"$3"
# shellcheck source=tests/packaging/elf.sh
source "$(dirname "$0")/elf.sh"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cat >"$scratch/program.cpp" <<'EOF'
#include <cstdio>
#include <cstring>
int main(int, char** arguments) {
    char name[16];
    std::strcpy(name, arguments[0]);
    return std::puts(name);
}
EOF

# build OPTION...: with everything that is asked for, but for the options
build() {
  "$compiler" "$scratch/program.cpp" -o "$scratch/program" -O2 -fPIE -pie -fstack-protector-strong -D_FORTIFY_SOURCE=2 \
    -Wl,-z,relro,-z,now,-z,noexecstack "$@"
}

build
check_hardened "$scratch/program"
check_guarded "$scratch/program" stack calls
for option in '-no-pie -fno-pie' -Wl,-z,norelro -Wl,-z,lazy -Wl,-z,execstack; do
  # shellcheck disable=SC2086 # words
  build $option
  if check_hardened "$scratch/program" 2>/dev/null; then
    echo "what is built with $option is let through" >&2
    exit 1
  fi
done
build -fno-stack-protector
if check_guarded "$scratch/program" stack 2>/dev/null; then exit 1; fi
build -U_FORTIFY_SOURCE
if check_guarded "$scratch/program" calls 2>/dev/null; then exit 1; fi
if check_guarded "$scratch/program" branches 2>/dev/null; then exit 1; fi

while IFS= read -r file; do
  if [ -e "$file" ]; then echo "$file"; fi
done <"$list" | check_all_hardened 5
for file in "${@:4}"; do
  check_guarded "$file" "${kinds[@]}"
done
