# shellcheck shell=bash
# Runs of the models in docs/protocol, for script/check model and script/model-long. Sourced from the
# project's root, behind build.bash.

models=$PWD/docs/protocol
# Far more than any run needs: a search that reaches it is not complete and fails.
depth=200000

# verify FOLDER MODEL DEFINES OPTIMISATION: makes and runs the verifier. What it says is in pan.log there.
verify()
{
    local defines=()
    read -r -a defines <<<"$3"
    mkdir -p "$1"
    (
        cd "$1"
        spin -a "${defines[@]/#/-D}" "$2"
        gcc "$4" -w -DSAFETY -DMEMLIM="$megabytes" -o pan pan.c
    ) >"$1/make.log" 2>&1 || { cat "$1/make.log" >&2 && fail "making the verifier failed"; }
    (cd "$1" && ./pan -m"$depth") >"$1/pan.log" 2>&1 || true
}

# True if the verifier that wrote the log $1 went through all states and found nothing.
is_complete()
{
    grep -q 'errors: 0$' "$1" \
        && ! grep -q -E 'max search depth too small|Search not completed|out of memory|memory limit|MEMLIM|pan:1:|aborting' \
            "$1"
}

# The verifier's first complaint in the log $1: the name of an assertion, or what else it says.
complaint()
{
    sed -n -E 's/^pan:1: (assertion violated )?(.*) \(at depth [0-9]+\)$/\2/p' "$1" | head -n 1
}

states()
{
    sed -n -E 's/^ *([0-9.e+]+) states, stored.*/\1/p' "$1" | head -n 1
}

# judge NAME LOG EXPECTED: one line on a run. Fails if it did not end as expected.
judge()
{
    local name=$1 log=$2 expected=$3 found result
    found=$(complaint "$log")
    if [[ -n $expected && $found == "$expected" ]]; then
        result="breaks $expected, as it must"
    elif [[ -n $expected ]]; then
        result="FAILED: must break $expected, found ${found:-nothing}"
    elif is_complete "$log"; then
        result=ok
    else
        result="FAILED: ${found:-the search is not complete}"
    fi
    printf '%-23s %9s states  %s\n' "$name" "$(states "$log")" "$result"
    [[ $result != FAILED* ]]
}

# The model that a run of the name $1 is one of.
model_of()
{
    case $1 in
        lease*) echo write-lock ;;
        replaced*) echo replaced-region ;;
        waking*) echo waking ;;
        "weak memory"*) echo weak-litmus ;;
        "weak buffer"*) echo weak-buffer ;;
        "weak lease"*) echo weak-lease ;;
        "weak waking"*) echo weak-waking ;;
        *) echo double-buffer ;;
    esac
}

# Line $1 of the table, in a folder of its own.
run_line()
{
    local name defines expected optimisation=-O2
    IFS='|' read -r name defines expected < <(sed -n "$1p" <<<"$runs")
    read -r expected <<<"$expected" || true
    if [[ -n $expected ]]; then
        optimisation=-O0 # A fault shows soon, and making the verifier takes longer than running it.
    fi
    local model
    model=$models/$(model_of "$name").pml
    # So much is seldom gained as its making takes.
    [[ $model == */weak-* ]] && optimisation=$weak_optimisation
    verify "$folder/$1" "$model" "$defines" "$optimisation"
    judge "$name" "$folder/$1/pan.log" "$expected"
}

# run_models FOLDER MEGABYTES OPTIMISATION: all runs of the table on standard input, as many at a time as there
# are processors, each with so much memory; the weak ones that are to find nothing with that optimisation, all
# others as is best for them. A line of the table has, with | between:
#   the name          which begins with what model_of() knows, or is one of the double buffer
#   what the model is told, see its top
#   what the verifier has to find: nothing, or the promise that breaks
run_models()
{
    folder=$1
    megabytes=$2
    weak_optimisation=$3
    runs=$(cat)
    export -f verify is_complete complaint states judge model_of run_line fail
    export models folder depth megabytes weak_optimisation runs
    rm -rf "$folder"
    mkdir -p "$folder"
    grep -n '|' <<<"$runs" | cut -d: -f1 \
        | xargs -P "$(nproc)" -I '{}' bash -c 'set -euo pipefail; run_line {}' model \
        || fail "a run failed; its trail lies in one of $folder/*/," \
            "docs/protocol/README.md tells how to read it"
}
