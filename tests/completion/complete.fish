# Completes command lines as fish would: of each line on standard input, its last word. fish loads the script of a
# program when it is first completed, from fish/vendor_completions.d of XDG_DATA_DIRS.
#
#   XDG_DATA_DIRS=INSTALLED/share fish complete.fish
while read --local line
    set --local candidates
    for candidate in (complete --do-complete "$line")
        # A candidate's description follows behind a tab; of --option=value the value is meant.
        set --append candidates (string split --fields 1 \t -- $candidate | string replace --regex '^--.*=' '')
    end
    set --local sorted (string join \n -- $candidates | LC_ALL=C sort -u)
    echo "$line|$sorted"
end
