# shellcheck shell=bash
# What the checks that read the sources with a compiler's eyes share. Sourced from the project's root.

# Leaves the compiler's commands for library, tool, exits, models and Python module in build/check/analysis, and
# makes the headers that they include and no person writes. What the tests compile of the same files once more is
# left out: they have headers compiled in advance, by another compiler.
analysis_commands()
{
    mkdir -p build/check/analysis
    cmake --preset dev >build/check/analysis/cmake.log
    local generated
    mapfile -t generated < <(ninja -C build/dev -t targets all | sed -n 's|^\([^/].*/generated/.*\.h\): .*|\1|p')
    [[ ${#generated[@]} -eq 0 ]] || ninja -C build/dev --quiet "${generated[@]}"
    python3 - build/dev/compile_commands.json >build/check/analysis/compile_commands.json <<'END'
import json
import re
import sys

with open(sys.argv[1], encoding="utf-8") as commands:
    entries = json.load(commands)
ours = re.compile(r" -o (src|common|tools|exits|models|python)/")
json.dump([entry for entry in entries if ours.search(entry["command"])], sys.stdout, indent=1)
END
}

# analyse FOLDER... -- COMMAND...: runs it for the sources below the folders, as many at a time as there
# are processors.
analyse()
{
    local folders=()
    while [[ $1 != -- ]]; do
        folders+=("$1")
        shift
    done
    shift
    find "${folders[@]}" -name '*.cpp' -print0 | sort -z | xargs -0 -n 1 -P "$(nproc)" "$@"
}
