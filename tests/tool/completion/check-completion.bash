#!/usr/bin/env bash
# Usage: tests/tool/completion/check-completion.bash
#
# What bash offers behind `tessel`. The environment says where things are: SOURCE_DIR, TOOL_DIR.
set -euo pipefail

PATH=$TOOL_DIR:$PATH
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
cp -r "$SOURCE_DIR/examples/device" device
cp "$SOURCE_DIR/examples/publish/tank.process.json" .
cp tank.process.json 'my tank.process.json'
touch points.csv other.txt
sed 's/"level"/"le vel"/' tank.process.json > spaced.process.json

# shellcheck disable=SC2317 # which the completion calls
# compopt speaks to the line editor, which does not run here.
options=
compopt()
{
    options+="$* "
}

# shellcheck source=tools/tessel/completion/tessel.bash
source "$SOURCE_DIR/tools/tessel/completion/tessel.bash"
[[ $(complete -p tessel) == 'complete -F _tessel tessel' ]]

failures=0
typed_tool=tessel

# expect EXPECTED WORD...: what is offered for the last of the words, in one line.
expect()
{
    local expected=$1 offered
    shift
    COMP_WORDS=("$typed_tool" "$@")
    COMP_CWORD=$#
    options=
    _tessel
    offered=$(printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort | paste -sd ' ')
    if [[ $offered != "$expected" ]]; then
        echo "tessel $*: '$offered' instead of '$expected'" >&2
        failures=$((failures + 1))
    fi
}

expect 'wait watch' wa
expect '--verbose --version' --ver
expect '--json' get --j
expect 'sensor-breakage sensor-short-circuit' set f u --error sensor
expect 'overrange' set f u --error = over
expect 'device my tank.process.json spaced.process.json tank.process.json' get ''
expect 'device' build ''
expect 'device' config get ''
expect 'device points.csv' config table device url --import ''
expect 'device points.csv' config table device url --import =
expect 'tank/level tank/temperature' get tank.process.json ''
expect 'tank/level tank/temperature' get my\\\ tank.process.json ta
expect 'tank/level' get "'my tank.process.json'" tank/l
expect 'tank/le\ vel' get spaced.process.json tank/l
expect 'tank/le vel' get spaced.process.json '"tank/l'
expect '' get no.process.json ''
expect 'diagnosis/ digital/' config show device di
[[ $options == *nospace* ]] || { echo "a node is ended with a blank" >&2 && failures=1; }
expect 'inputs/calibration/table#0,0 inputs/calibration/table#0,1 inputs/calibration/table#0,2' \
    config get device inputs/calibration/table#0
expect 'true' config set device inputs/channel1/enabled t

HOME=$folder
# shellcheck disable=SC2088 # as it is typed
expect 'tank/level' get '~/tank.process.json' tank/l
# shellcheck disable=SC2088 # as it is typed
ln -s "$TOOL_DIR/tessel" "$folder/another" && typed_tool='~/another'
expect 'tank/level' get tank.process.json tank/l

exit $((failures > 0))
