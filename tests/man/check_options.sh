#!/usr/bin/env bash
# Compares the commands and options that a program's help names with those of its manual page, in both directions.
#
#   check_options.sh PROGRAM PAGE
set -euo pipefail
program=$1 page=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The help lists its commands, one a line, behind the line "Subcommands:".
"$program" --help >"$scratch/help"
sed '1,/^Subcommands:/d' "$scratch/help" | sed -n -E 's/^  ([a-z-]+) .*/\1/p' | LC_ALL=C sort >"$scratch/commands"
while IFS= read -r command; do
  "$program" "$command" --help >>"$scratch/help"
done <"$scratch/commands"

# words_of: the spellings of options on standard input, wherever they stand.
words_of() {
  { grep -o -E -e '(^|[^a-zA-Z0-9-])(--[a-z][a-z-]*|-[a-z]\b)' || true; } | sed -E 's/^[^-]//' | LC_ALL=C sort -u
}

# An option begins its line in the help and in the page's lists.
grep -E '^  -' "$scratch/help" | sed -E 's/^  ([^ ]*).*/\1/; s/,/\n/' | LC_ALL=C sort -u >"$scratch/options"
mandoc -T utf8 -O width=1000 "$page" | col -b >"$scratch/page"
grep -E '^ +--?[a-z]' "$scratch/page" | sed -E 's/^ +(-[a-z], )?(--[a-z-]+)?.*/\1\n\2/; s/, //' | grep . |
  LC_ALL=C sort -u >"$scratch/listed"
words_of <"$scratch/page" >"$scratch/mentioned"
sed -n -E 's/^\.It Cm //p' "$page" | LC_ALL=C sort >"$scratch/listed_commands"
{ grep -o -E '\bCm [a-z-]+' "$page" || true; } | sed 's/Cm //' | LC_ALL=C sort -u >"$scratch/mentioned_commands"

[ -s "$scratch/commands" ] && [ -s "$scratch/options" ]
failed=0
for kind in listed mentioned; do
  diff -u --label "options of $program" --label "$kind in $page" "$scratch/options" "$scratch/$kind" || failed=1
  diff -u --label "commands of $program" --label "$kind in $page" "$scratch/commands" "$scratch/${kind}_commands" ||
    failed=1
done
exit "$failed"
