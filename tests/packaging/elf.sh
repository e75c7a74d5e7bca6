# shellcheck shell=bash
# Sourced by the checks of what is installed: what the loader reads in a library or program.

readelf=${READELF:-readelf}
objdump=${OBJDUMP:-objdump}

# needed_of FILE: the shared libraries that it asks for, one a line.
needed_of() {
  "$readelf" --dynamic --wide "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]$/\1/p'
}

# check_needed FILE [NAME]...: a library asks for nothing but the C and C++ libraries, libcrypto, and those named.
check_needed() {
  local stray more
  more=$(printf '|%s' "${@:2}")
  stray=$(needed_of "$1" | grep -v -x -E "lib(c|m|gcc_s|stdc\\+\\+|crypto${more%|})"'\.so\.[0-9]+|ld-linux[a-z0-9_.-]*' || true)
  [ -z "$stray" ] || { echo "$1 needs $stray" >&2; return 1; }
}

# check_run_path FILE EXPECTED: where it has the loader look for libraries ("" for nowhere but the system's places).
check_run_path() {
  local found
  found=$("$readelf" --dynamic --wide "$1" | sed -n -E 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]$/\2/p')
  [ "$found" = "$2" ] || { echo "$1 has the run path '$found' instead of '$2'" >&2; return 1; }
}

# run_paths_of FILE: the lists of folders that it has the loader look in, one a line.
run_paths_of() {
  "$readelf" --dynamic --wide "$1" 2>/dev/null | sed -n -E 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]$/\2/p'
}

# check_run_path_elements FILE: no element is empty or relative, which would have the loader take a library from the
# folder that a user happens to be in. One beside the file ($ORIGIN) must lead to a library that the file needs.
check_run_path_elements() {
  local list element
  while IFS= read -r list; do
    while IFS= read -r element; do
      case $element in
        /*) ;;
        \$ORIGIN/*)
          leads_to_needed "$1" "$(dirname "$1")/${element#\$ORIGIN/}" ||
            { echo "$1: nothing that it needs is in '$element' of its run path '$list'" >&2; return 1; }
          ;;
        *) echo "$1: '$element' in its run path '$list' is no folder's full name" >&2; return 1 ;;
      esac
    done <<<"${list//:/$'\n'}"
  done < <(run_paths_of "$1")
}

leads_to_needed() {
  local library
  while read -r library; do
    [ ! -e "$2/$library" ] || return 0
  done < <(needed_of "$1")
  return 1
}

# elf_files DIRECTORY: the programs and libraries in it.
elf_files() {
  local file
  find "$1" -type f | while IFS= read -r file; do
    if [ "$(head -c 4 "$file" | od -An -tx1 | tr -d ' ')" = 7f454c46 ]; then echo "$file"; fi
  done
}

# check_hardened FILE: it is loaded anywhere, its tables of addresses are read-only once it is, and its stack runs no code.
check_hardened() {
  local header segments dynamic
  header=$("$readelf" --file-header --wide "$1")
  segments=$("$readelf" --program-headers --wide "$1")
  dynamic=$("$readelf" --dynamic --wide "$1")
  grep -q -E 'Type: +DYN ' <<<"$header" || { echo "$1: is loaded at a fixed address" >&2; return 1; }
  grep -q GNU_RELRO <<<"$segments" || { echo "$1: its tables of addresses can be written" >&2; return 1; }
  grep -q -E 'BIND_NOW|Flags:.* NOW' <<<"$dynamic" ||
    { echo "$1: its functions are bound late, in a table that can be written" >&2; return 1; }
  grep -q -E 'GNU_STACK .* RW ' <<<"$segments" || { echo "$1: its stack can run code" >&2; return 1; }
}

# check_all_hardened LEAST: the files that are named on standard input, so many at least.
check_all_hardened() {
  local files file failed=0
  mapfile -t files
  [ ${#files[@]} -ge "$1" ] || { echo "${#files[@]} programs and libraries, not $1" >&2; return 1; }
  for file in "${files[@]}"; do
    check_hardened "$file" || failed=1
  done
  [ "$failed" = 0 ]
}

# check_guarded FILE KIND...: its functions check themselves: "stack" that nobody wrote past their buffers, "calls" that
# what they have the C library write fits, "branches" that nothing jumps into their middle (on x86).
check_guarded() {
  local kind symbols branches
  symbols=$("$readelf" --dyn-syms --wide "$1")
  for kind in "${@:2}"; do
    case $kind in
      stack) grep -q __stack_chk_fail <<<"$symbols" ;;
      calls) grep -q -E '__[a-z]+_chk@' <<<"$symbols" ;;
      branches)
        branches=$("$objdump" --disassemble "$1" | grep -c -E 'endbr(32|64)$')
        [ "$branches" -ge 50 ]
        ;;
    esac || { echo "$1: its functions do not guard their $kind" >&2; return 1; }
  done
}

# check_run_paths LEAST: the run paths of the files that are named on standard input, so many at least.
check_run_paths() {
  local files file failed=0
  mapfile -t files
  [ ${#files[@]} -ge "$1" ] || { echo "${#files[@]} programs and libraries, not $1" >&2; return 1; }
  for file in "${files[@]}"; do
    check_run_path_elements "$file" || failed=1
  done
  [ "$failed" = 0 ]
}
