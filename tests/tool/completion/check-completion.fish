#!/usr/bin/env fish
# Usage: tests/tool/completion/check-completion.fish
#
# What fish offers behind `tessel`. The environment says where things are: SOURCE_DIR, TOOL_DIR.

set --prepend PATH $TOOL_DIR
set folder (mktemp -d)
cd $folder
cp -r $SOURCE_DIR/examples/device device
cp $SOURCE_DIR/examples/publish/tank.process.json .
cp tank.process.json 'my tank.process.json'
touch points.csv other.txt
sed 's/"level"/"le vel"/' tank.process.json > spaced.process.json
source $SOURCE_DIR/tools/tessel/completion/tessel.fish

set failures 0

# expect EXPECTED LINE: what is offered at the end of the line, in one line.
function expect --argument-names expected line
    set -l offered (complete --do-complete "$line" | string replace --regex '\t.*' '' | sort)
    if test "$offered" != "$expected"
        echo "$line: '$offered' instead of '$expected'" >&2
        set failures (math $failures + 1)
    end
end

expect 'wait watch' 'tessel wa'
expect '--verbose --version' 'tessel --ver'
expect '--json' 'tessel get --j'
expect 'sensor-breakage sensor-short-circuit' 'tessel set f u --error sensor'
expect '--error=overrange' 'tessel set f u --error=over'
expect 'device/ my tank.process.json spaced.process.json tank.process.json' 'tessel get '
expect device/ 'tessel build '
expect device/ 'tessel config get '
expect 'device/ points.csv' 'tessel config table device url --import '
expect '--import=points.csv' 'tessel config table device url --import=po'
expect 'tank/level tank/temperature' 'tessel get tank.process.json '
expect 'tank/level tank/temperature' 'tessel get my\ tank.process.json ta'
expect 'my tank.process.json' 'tessel get my\ t'
expect 'tank/le vel' 'tessel get spaced.process.json tank/l'
expect '' 'tessel get no.process.json '
set HOME $folder
expect 'tank/level' 'tessel get ~/tank.process.json tank/l'
expect 'diagnosis/ digital/' 'tessel config show device di'
expect 'inputs/calibration/table#0,0 inputs/calibration/table#0,1 inputs/calibration/table#0,2' \
    'tessel config get device inputs/calibration/table#0'
expect true 'tessel config set device inputs/channel1/enabled t'

cd /
rm -rf $folder
test $failures -eq 0
