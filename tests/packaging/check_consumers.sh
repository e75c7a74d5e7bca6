# shellcheck shell=bash
# Sourced by the checks of what is installed.
#
# check_consumers SCRATCH CXX_COMPILER WITH_AES PARTITION: builds a program of another project in four ways, against the
# library where CMAKE_PREFIX_PATH and PKG_CONFIG_PATH say or else in the system's places, and runs it on a partition
# with four records: with CMake and with pkg-config, with the shared library and with the static one.

consumer=$(cd "$(dirname "${BASH_SOURCE[0]}")/consumer" && pwd)
# shellcheck source=tests/packaging/elf.sh
source "$(dirname "${BASH_SOURCE[0]}")/elf.sh"

check_consumers() {
  local scratch=$1 compiler=$2 with_aes=$3 partition=$4
  consumers_by_cmake "$scratch" "$compiler" "$with_aes"
  consumers_by_pkg_config "$scratch" "$compiler" "$with_aes"
  check_consumer "$scratch/cmake/consumer_shared" "$partition" "$with_aes" libDiskAccess.so.1
  check_consumer "$scratch/cmake/consumer_static" "$partition" "$with_aes" ""
  check_consumer "$scratch/pkg-config/shared" "$partition" "$with_aes" libDiskAccess.so.1
  check_consumer "$scratch/pkg-config/static" "$partition" "$with_aes" ""
  [ -z "$(needed_of "$scratch/pkg-config/static")" ] # nothing shared is left in it
}

consumers_by_cmake() {
  cmake -S "$consumer" -B "$1/cmake" -G Ninja -DCMAKE_CXX_COMPILER="$2" -DWITH_AES="$3" >"$1/log" ||
    { cat "$1/log"; return 1; }
  cmake --build "$1/cmake" >"$1/log" || { cat "$1/log"; return 1; }
}

consumers_by_pkg_config() {
  local scratch=$1 compiler=$2 flags=(-std=c++11 -Wall -Werror) shared static
  [ "$3" = OFF ] || flags+=(-DWITH_AES)
  read -ra shared <<<"$(pkg-config --cflags --libs 'diskaccess >= 1.0')"
  read -ra static <<<"$(pkg-config --static --cflags --libs 'diskaccess >= 1.0')"
  mkdir "$scratch/pkg-config"
  "$compiler" "${flags[@]}" "$consumer/consumer.cpp" "${shared[@]}" -o "$scratch/pkg-config/shared"
  "$compiler" "${flags[@]}" -static "$consumer/consumer.cpp" "${static[@]}" -o "$scratch/pkg-config/static"
}

# check_consumer PROGRAM PARTITION WITH_AES NEEDED
check_consumer() {
  local printed
  [ "$(needed_of "$1" | grep DiskAccess)" = "$4" ] || { echo "$1 is linked the wrong way" >&2; return 1; }
  printed=$("$1" "$2")
  grep -q -x 'records: 4' <<<"$printed"
  [ "$3" = OFF ] || grep -q -x 'cipher: 3925841d02dc09fbdc118597196a0b32' <<<"$printed"
}
