#!/usr/bin/env bash
# Follows the relative links of pages; each must lead to a file or directory that exists.
#
#   check_links.sh PAGE...
set -euo pipefail
missing=0 followed=0
for page in "$@"; do
  while IFS= read -r target; do
    followed=$((followed + 1))
    if [ ! -e "$(dirname "$page")/$target" ]; then
      echo "$page: no such file: $target"
      missing=$((missing + 1))
    fi
  done < <(grep -o '](\([^)]*\))' "$page" | sed -e 's/^](//' -e 's/)$//' -e 's/#.*//' | grep -v -e '^$' -e '^[a-z]*:')
done
echo "$followed links followed"
[ "$missing" = 0 ] && [ "$followed" != 0 ]
