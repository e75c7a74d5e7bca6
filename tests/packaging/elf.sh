# shellcheck shell=bash
# Sourced by the checks of what is installed: what the loader reads in a library or program.

readelf=${READELF:-readelf}

# needed_of FILE: the shared libraries that it asks for, one a line.
needed_of() {
  "$readelf" --dynamic --wide "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]$/\1/p'
}

# check_needed FILE: a library asks for nothing but the C and C++ libraries and libcrypto.
check_needed() {
  local stray
  stray=$(needed_of "$1" | grep -v -x -E 'lib(c|m|gcc_s|stdc\+\+|crypto)\.so\.[0-9]+|ld-linux[a-z0-9_.-]*' || true)
  [ -z "$stray" ] || { echo "$1 needs $stray" >&2; return 1; }
}

# check_run_path FILE EXPECTED: where it has the loader look for libraries ("" for nowhere but the system's places).
check_run_path() {
  local found
  found=$("$readelf" --dynamic --wide "$1" | sed -n -E 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]$/\2/p')
  [ "$found" = "$2" ] || { echo "$1 has the run path '$found' instead of '$2'" >&2; return 1; }
}
