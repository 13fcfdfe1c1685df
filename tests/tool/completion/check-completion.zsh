#!/usr/bin/env zsh
# Usage: tests/tool/completion/check-completion.zsh
#
# What zsh offers behind `tessel`. The environment says where things are: SOURCE_DIR, TOOL_DIR.
#
# zsh completes in its line editor alone, so one runs on a terminal of its own. What the completion
# hands over is printed between marks, and the line is cleared.
emulate -R zsh
zmodload zsh/zpty

path=("$TOOL_DIR" $path)
folder=$(mktemp -d)
trap 'zpty -d shell 2>/dev/null; rm -rf "$folder"' EXIT
cp -r "$SOURCE_DIR/examples/device" "$folder/device"
cp "$SOURCE_DIR/examples/publish/tank.process.json" "$folder"
cp "$folder/tank.process.json" "$folder/my tank.process.json"
touch "$folder/points.csv" "$folder/other.txt"
sed 's/"level"/"le vel"/' "$folder/tank.process.json" > "$folder/spaced.process.json"

cat > "$folder/.zshrc" <<'EOF'
PROMPT= RPROMPT=
unsetopt zle_bracketed_paste 2>/dev/null
unset zle_bracketed_paste
fpath=("$SOURCE_DIR/tools/tessel/completion" $fpath)
autoload -Uz compinit && compinit -u -d "$ZDOTDIR/dump"
# Collects what would be offered: -O puts the matches into an array instead of the list.
compadd() {
    local -a collected
    if [[ ${@[1,(i)(-|--)]} == *-(O|A|D)\ * ]]; then
        builtin compadd "$@"
        return
    fi
    builtin compadd -O collected "$@"
    offered+=("${collected[@]}")
    builtin compadd "$@"
}
show-offered() {
    typeset -ga offered=()
    zle complete-word-quietly
    print -r -- "<BEGIN>${(j: :)${(@ou)${(@Q)offered}}}<END>"
    BUFFER=
}
zle -C complete-word-quietly list-choices _main_complete
zle -N show-offered
bindkey '^I' show-offered
print '<READY>'
EOF

# Reads what the shell prints up to a mark.
read_up_to() {
    local chunk
    output=
    while [[ $output != *$1* ]]; do
        zpty -r shell chunk || return 1
        output+=$chunk
    done
}

failures=0

# expect EXPECTED LINE: what is offered at the end of the line, in one line.
expect() {
    zpty -w -n shell "$2"$'\t'
    read_up_to '<END>' || { print -u2 "zsh ended: $output"; exit 1; }
    local offered=${${output##*<BEGIN>}%%<END>*}
    if [[ $offered != $1 ]]; then
        print -ru2 "$2: '$offered' instead of '$1'"
        (( ++failures ))
    fi
}

cd $folder
export HOME=$folder ZDOTDIR=$folder TERM=dumb
zpty shell zsh -d -i
read_up_to '<READY>' || exit 1

expect 'watch' 'tessel wat'
expect '--verbose --version' 'tessel --ver'
expect '--json' 'tessel get --j'
expect 'sensor-breakage sensor-short-circuit' 'tessel set f u --error sensor'
expect '--error=overrange' 'tessel set f u --error=over'
expect 'device my tank.process.json spaced.process.json tank.process.json' 'tessel get '
expect 'device' 'tessel build '
expect 'device' 'tessel config get '
expect 'device points.csv' 'tessel config table device url --import '
expect 'points.csv' 'tessel config table device url --import=po'
expect 'tank/level tank/temperature' 'tessel get tank.process.json '
expect 'tank/level tank/temperature' 'tessel get my\ tank.process.json ta'
expect 'tank/le vel' 'tessel get spaced.process.json tank/l'
expect 'diagnosis/ digital/' 'tessel config show device di'
expect 'inputs/calibration/table#0,0 inputs/calibration/table#0,1 inputs/calibration/table#0,2' \
    'tessel config get device inputs/calibration/table#0'
expect 'true' 'tessel config set device inputs/channel1/enabled t'

expect 'tank/level' 'tessel get ~/tank.process.json tank/l'

exit $(( failures > 0 ))
