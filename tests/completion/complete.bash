#!/usr/bin/env bash
# Completes command lines as bash would: of each line on standard input, its last word. The package bash-completion
# loads the script of a program when it is first completed, from bash-completion/completions of XDG_DATA_DIRS.
#
#   XDG_DATA_DIRS=INSTALLED/share complete.bash
# shellcheck source=/dev/null
source /usr/share/bash-completion/bash_completion
while IFS= read -r line; do
  # Like readline, which breaks words at "=" too.
  read -r -a COMP_WORDS <<<"${line//=/ = }"
  if [[ $line == *[\ =] ]]; then COMP_WORDS+=(''); fi
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMPREPLY=()
  complete -p "${COMP_WORDS[0]}" &>/dev/null || _completion_loader "${COMP_WORDS[0]}"
  # How the shell was told to complete this program: "complete -F FUNCTION PROGRAM".
  read -r _ _ function _ < <(complete -p "${COMP_WORDS[0]}")
  "$function"
  printf '%s|%s\n' "$line" "$(printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort -u | paste -sd ' ' -)"
done
