#!/usr/bin/env bash
# Runs the commands of the page about evidence, as they stand there, on the sample partition. Then changes a byte of each
# file, and sees that it is found.
#
#   run_evidence.sh PAGE PROGRAM SAMPLE
set -euo pipefail
page=$(realpath "$1") program=$(realpath "$2") sample=$(realpath "$3")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"
mkdir bin
ln -s "$program" bin/diskaccess
PATH=$scratch/bin:$PATH
cp --sparse=always "$sample" sample.img

awk '/^```/ { inside = $0 == "```sh"; next } inside' "$page" >commands
[ "$(grep -c '^diskaccess\|^openssl' commands)" -ge 8 ]
# The shell reads the commands from the file, so that one that fails ends it.
bash -euo pipefail commands

# flip FILE OFFSET: changes a bit.
flip() {
  local byte
  byte=$(dd if="$1" bs=1 skip="$2" count=1 status=none | od -An -tu1)
  printf "%b" "$(printf '\\x%02x' $((byte ^ 1)))" | dd of="$1" bs=1 seek="$2" count=1 conv=notrunc status=none
}
# found COMMAND...: it must fail, with 1.
found() {
  local code=0
  "$@" >/dev/null 2>&1 || code=$?
  [ "$code" = 1 ] || { echo "ended with $code: $*" >&2; exit 1; }
}
check=(diskaccess verify journey.mkv.json --public-key public.pem --source part.img)
for file in journey.mkv journey.mkv.json journey.mkv.json.sig part.img; do
  flip "$file" 20
  found "${check[@]}"
  flip "$file" 20
  "${check[@]}" >/dev/null
done
flip journey.mkv.json 20
found openssl pkeyutl -verify -rawin -pubin -inkey public.pem -in journey.mkv.json -sigfile journey.mkv.json.sig
