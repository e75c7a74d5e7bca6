#!/usr/bin/env bash
# Every page of docs, and every picture in it, must be linked from a page; every page from the index, and from the README.
#
#   check_index.sh DOCS README
set -euo pipefail
docs=$1 readme=$2
missing=0 pages=0

# linked TARGET PAGE...: whether one of the pages links to it.
linked() {
  local target=$1
  shift
  grep -qF -e "]($target)" -e "]($target#" "$@" || { echo "$*: no link to $target"; missing=$((missing + 1)); }
}

for page in "$docs"/*.md; do
  name=$(basename "$page")
  [ "$name" = README.md ] && continue
  pages=$((pages + 1))
  linked "$name" "$docs/README.md"
  linked "docs/$name" "$readme"
done
for picture in "$docs"/*.png "$docs"/*.svg; do
  linked "$(basename "$picture")" "$docs"/*.md
done
echo "$pages pages looked for"
[ "$missing" = 0 ] && [ "$pages" != 0 ]
