#!/usr/bin/env bash
# Builds the Debian packages, has lintian look at them, installs them as a user would, uses them, removes them, and looks
# for what was left behind. Takes root, or sudo that asks for nothing; without, and where the packages or other files of
# these names are installed already, it is skipped. The packages are built without optimisation, for speed; what is in
# them is the same.
#
#   check_packages.sh SOURCE_DIRECTORY
set -euo pipefail
root=$1
packages=(libdiskaccess1 libdiskaccess-dev libdiskrecordings1 libdiskrecordings-dev diskaccess python3-diskaccess)
# shellcheck source=tests/packaging/check_consumers.sh
source "$(dirname "$0")/check_consumers.sh"
# shellcheck source=tests/packaging/check_python.sh
source "$(dirname "$0")/check_python.sh"

skip() {
  echo "skipped: $*"
  exit 77
}

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo -n "$@"; fi
}

# Everything in the system that has our name. Only root sees all of it, and other programs' files may go meanwhile.
our_files() {
  { as_root find /etc /opt /usr /var/cache /var/lib -xdev \( -iname '*diskaccess*' -o -name disk_access -o -iname '*diskrecordings*' \) 2>/dev/null ||
    true; } | sort
}

# Those of the packages that are installed, or removed with something left; dpkg-query fails for names it never met.
our_packages() {
  dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${packages[@]}" 2>/dev/null | grep -v '^not-installed ' || true
}

apt() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 "$@" >"$scratch/apt.log" 2>&1 ||
    { cat "$scratch/apt.log"; return 1; }
}

as_root true 2>/dev/null || skip "neither root nor sudo"
for tool in dpkg-buildpackage dh lintian; do
  command -v "$tool" >/dev/null || skip "no $tool"
done
if [ -n "$(our_packages)" ] || [ -n "$(our_files)" ]; then
  skip "the packages, or other files of these names, are here already: $(our_files | head -n 1)"
fi

scratch=$(mktemp -d)
chmod 755 "$scratch" # apt reads the packages as a user of its own
trap 'rm -rf "$scratch"' EXIT
export DEB_CXXFLAGS_STRIP=-g DEB_BUILD_OPTIONS="noautodbgsym noopt"
"$root/scripts/package-deb" "$scratch/packages"
lintian --allow-root --fail-on error "$scratch"/packages/*.changes

# Unpacked into a folder, the module works from there too, if it is told where its library is.
for package in diskaccess libdiskrecordings1 python3-diskaccess; do
  dpkg-deb -x "$scratch/packages/${package}"_*.deb "$scratch/unpacked"
done
"$scratch/unpacked/usr/bin/diskaccess-sample" generate "$scratch/disk" --blocks 4 --block-size 1MiB --seconds 5
(
  LD_LIBRARY_PATH=$scratch/unpacked/usr/lib/$(dpkg-architecture -q DEB_HOST_MULTIARCH)
  export LD_LIBRARY_PATH
  check_python "$root" "$scratch/unpacked/usr/lib/python3/dist-packages" "$scratch/disk"
)
rm "$scratch/disk"

trap 'apt purge --yes "${packages[@]}" || true; rm -rf "$scratch"' EXIT
apt install --yes --no-install-recommends "$scratch"/packages/*.deb

multiarch=$(dpkg-architecture -q DEB_HOST_MULTIARCH)
library=/usr/lib/$multiarch/libDiskAccess.so.1
"$root/tests/interface/check_symbols.sh" "$library" "$root"/tests/interface/exported_{,aes_}symbols.txt
for file in "$library" "${library/DiskAccess/DiskRecordings}" /usr/bin/diskaccess /usr/bin/diskaccess-sample \
  /usr/lib/python3/dist-packages/diskaccess/_native.*.so; do
  check_run_path "$file" ""
  [[ $(ldd "$file") != *"not found"* ]]
done
for file in docs/api-guide.md docs/timeline.svg docs/viewer.png examples/player_loop.cpp; do
  [ -e "/usr/share/doc/libdiskaccess-dev/$file" ]
done
for file in list.schema.json list.ndjson.schema.json list.csv-metadata.json; do
  [ -e "/usr/share/diskaccess/schema/$file" ]
done
dpkg --verify "${packages[@]}"

diskaccess-sample generate "$scratch/disk" --blocks 4 --block-size 1MiB --seconds 5
[ "$(diskaccess list "$scratch/disk" --format csv | wc -l)" = 5 ] # a line of headings, four records
check_python "$root" /usr/lib/python3/dist-packages "$scratch/disk"
if /usr/bin/python3 -c 'import matplotlib' 2>/dev/null; then
  mkdir "$scratch/disks"
  ln -s ../disk "$scratch/disks"
  /usr/bin/python3 -B /usr/share/doc/python3-diskaccess/examples/coverage_by_day.py "$scratch/disks" "$scratch/picture.png"
  [ -s "$scratch/picture.png" ]
fi
check_consumers "$scratch" g++ ON "$scratch/disk"

# There is no configuration: packages removed are packages gone, and there is nothing left to purge.
apt remove --yes "${packages[@]}"
trap 'rm -rf "$scratch"' EXIT
left=$(our_files)
[ -z "$left" ] || { echo "left behind: $left" >&2; exit 1; }
left=$(our_packages)
[ -z "$left" ] || { echo "packages left behind: $left" >&2; exit 1; }
