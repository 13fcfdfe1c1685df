# shellcheck shell=bash
# How the fuzz targets are run. Sourced from the project's root.

# The targets, one a line: each has its seeds in a folder of its name.
fuzz_targets()
{
    find fuzz/corpus -mindepth 1 -maxdepth 1 -type d -printf '%f\n' | sort
}

# The command that runs target $1.
fuzz_program()
{
    echo "build/fuzz/fuzz/fuzz-$1"
}

# run_fuzz_target TARGET FOLDER ARGUMENT...: what reaches new code goes into FOLDER/TARGET, an input
# that fails becomes FOLDER/TARGET-KIND-HASH. Replaces the shell; call it in one of its own.
run_fuzz_target()
{
    local target=$1 folder=$2
    shift 2
    mkdir -p "$folder/$target" "$folder/scratch"
    # Where a target makes files: a run that fails leaves them.
    TMPDIR=$(realpath "$folder/scratch")
    export TMPDIR
    export ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1:quarantine_size_mb=64
    export UBSAN_OPTIONS=print_stacktrace=1
    exec "$(fuzz_program "$target")" -artifact_prefix="$folder/$target-" -dict=fuzz/words.dict \
        -print_final_stats=1 "$folder/$target" "fuzz/corpus/$target" "$@"
}

# fuzz_figures LOG: how many runs and covered branches a run has told so far, as two words.
fuzz_figures()
{
    local figures
    figures=$(sed -n -E 's/^#([0-9]+).* cov: ([0-9]+) .*/\1 \2/p' "$1" | tail -n 1)
    echo "${figures:-0 0}"
}

# fuzz_fault LOG: what a failed run complained of, on one line.
fuzz_fault()
{
    local fault
    fault=$(grep -m 1 -E '^(broken promise:|ASSERT)|runtime error:|^(==[0-9]+==)? ?ERROR: |^SUMMARY: ' "$1" \
        || tail -n 1 "$1")
    echo "${fault:-nothing was said}"
}

# fuzz_input LOG: the file with the input that failed; nothing if none was written.
fuzz_input()
{
    sed -n 's/.*Test unit written to //p' "$1" | tail -n 1
}
