# Completes command lines as zsh would: of each line on standard input, its last word.
#
#   zsh -f complete.zsh SCRATCH_DIRECTORY FUNCTION_DIRECTORY
#
# Completion in zsh happens in the line editor alone, so that there must be a terminal: an interactive shell is run
# at one of zpty's making, its candidates are taken where they are added, and left in a file.
zmodload zsh/zpty
scratch=$1
function_path=$2
candidates=$scratch/candidates
done=$scratch/done

cat >$scratch/.zshrc <<SETUP
PS1=
fpath=($function_path \$fpath)
autoload -Uz compinit
compinit -u -D
compadd() {
    # With -A, -D or -O nothing is added, but an array filled.
    if [[ -z \${argv[(r)-[ADO]]} ]]; then
        local -a added
        builtin compadd -A added "\$@"
        print -rl -- \$added >>$candidates
    fi
    builtin compadd "\$@"
}
capture() {
    _main_complete
    print >>$done
}
zle -C capture complete-word capture
bindkey '^I' capture
print >>$done
SETUP

await() {
    local -i tries=0
    while [[ ! -s $done ]]; do
        if (( ++tries > 1000 )); then
            print -u2 "zsh does not answer: $1"
            exit 1
        fi
        zpty -r -t shell discarded
        sleep 0.01
    done
    rm -f $done
}

zpty shell "ZDOTDIR=${(q)scratch} TERM=dumb exec zsh -i"
await 'at its start'
while IFS= read -r line; do
    : >$candidates
    zpty -w -n shell "$line"$'\t'
    await $line
    print -r -- "$line|$(LC_ALL=C sort -u $candidates | grep . | paste -sd ' ' -)"
    zpty -w -n shell $'\C-U'
done
zpty -d shell
