# shellcheck shell=bash disable=SC2034
# Sourced by the other scripts, from the project's directory: install_needed PACKAGE... installs those of Debian's
# packages that are missing, and says so. Needs root or sudo, and only if something is missing. Answers --help with
# what stands at the head of the script.

# What building the library and the programs takes.
BUILD_PACKAGES=(g++ cmake ninja-build pkg-config
  libcli11-dev libfmt-dev nlohmann-json3-dev libavformat-dev libavcodec-dev libavutil-dev libswresample-dev libswscale-dev libssl-dev
  libblkid-dev libewf-dev libmicrohttpd-dev libpq-dev libsqlite3-dev)
# What making the sample partition takes.
SAMPLE_PACKAGES=(ffmpeg fonts-dejavu-core)
# What the tests take besides.
TEST_PACKAGES=(clang libclang-rt-14-dev libgtest-dev libvalijson-dev openssl tzdata python3 git util-linux
  ewf-tools postgresql-15 strace mandoc bsdextrautils bash-completion zsh fish)
# What the 32-bit targets take. g++-multilib would drive the ARM compiler out; g++-12-multilib does not.
TARGET_PACKAGES=(g++-12-multilib g++-arm-linux-gnueabihf qemu-user)
# What the Python module takes, and its tests.
PYTHON_PACKAGES=(pybind11-dev python3-dev)
PYTHON_TEST_PACKAGES=(python3-pytest python3-numpy python3-av python3-pil python3-matplotlib
  python3-distributed mypy)
# What the tests of the viewer take: a browser, and what drives it.
VIEW_TEST_PACKAGES=(chromium chromium-driver python3-selenium)
# What the viewer is timed beside.
VIEW_BENCH_PACKAGES=(ffmpeg mpv python3-xlib xvfb)
# What fuzzing takes.
FUZZ_PACKAGES=(clang libclang-rt-14-dev)
LINT_PACKAGES=(clang-format clang-tidy jq shellcheck)
# What the HTML reference takes, and the test that nothing public goes undocumented.
DOCS_PACKAGES=(doxygen)
# What the Debian packages take besides.
DEB_PACKAGES=(debhelper dpkg-dev dh-python "${PYTHON_PACKAGES[@]}")
# What the tests of packages and of the binary interface take.
PACKAGING_TEST_PACKAGES=(abigail-tools lintian)
COVERAGE_PACKAGES=(gcovr)
BENCH_PACKAGES=(libbenchmark-dev libgtest-dev ffmpeg "${PYTHON_PACKAGES[@]}")

print_help() {
  sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "scripts/${0##*/}"
}

# usage: ends a script that was called in a wrong way.
usage() {
  print_help >&2
  exit 2
}

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

install_needed() {
  local package missing=()
  for package in "$@"; do
    if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
      missing+=("$package")
    fi
  done
  [ ${#missing[@]} = 0 ] && return
  echo "== installing Debian packages: ${missing[*]}"
  if [ "$(id -u)" != 0 ] && ! command -v sudo >/dev/null; then
    echo "neither root nor sudo: install them yourself with: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  as_root apt-get update -qq
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

case " $* " in
  *" --help "*) print_help; exit ;;
esac
