#!/usr/bin/env bash
# Completes the command lines of a table in a shell, with the installed scripts, and compares the candidates.
#
#   check_candidates.sh bash|zsh|fish BUILD_DIRECTORY
set -euo pipefail
shell=$1 build=$2
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build" --prefix "$scratch/installed" --component programs >/dev/null
share=$scratch/installed/share
mkdir "$scratch/home" "$scratch/files" "$scratch/bin"
touch "$scratch/files/disk.img" "$scratch/files/notes.txt"
# fish loads no script for a program that is not there.
ln -s "$(type -P true)" "$scratch/bin/diskaccess"
ln -s "$(type -P true)" "$scratch/bin/diskaccess-sample"
cd "$scratch/files"
export HOME=$scratch/home XDG_DATA_DIRS=$share LC_ALL=C.UTF-8 PATH=$scratch/bin:$PATH

case $shell in
  bash)
    scripts=("$share"/bash-completion/completions/diskaccess{,-sample})
    complete=(bash --noprofile --norc "$here/complete.bash")
    ;;
  zsh)
    scripts=("$share"/zsh/site-functions/_diskaccess{,-sample})
    complete=(zsh -f "$here/complete.zsh" "$scratch/home" "$share/zsh/site-functions")
    ;;
  fish)
    scripts=("$share"/fish/vendor_completions.d/diskaccess{,-sample}.fish)
    complete=(fish "$here/complete.fish")
    ;;
esac
for script in "${scripts[@]}"; do
  "$shell" -n "$script"
done
grep -v '^#' "$here/candidates.txt" >"$scratch/expected"
sed 's/|.*//' "$scratch/expected" | "${complete[@]}" >"$scratch/given"
diff -u --label expected --label "given by $shell" "$scratch/expected" "$scratch/given"
