# shellcheck shell=bash
# How the scripts beside this folder run the tests of a build. Sourced from the project's root.

# More failures than this are no accident.
most_confirmed=3

# run_tests PRESET [CTEST-ARGUMENT...]: as ctest, whose exit code it has. What each test said is in
# build/PRESET/tests.log.
#
# Where TESSEL_CONFIRM_FAILURES is 1, as in the gate, a test that failed beside others is not judged
# by that one run: it has to pass three times in a row, alone, and is told with what it said.
# Hundreds of tests with real processes on a machine that others use as well would otherwise refuse
# a change for a pause of that machine. What a sanitizer reports and what crashes is no matter of
# time, and fails at once. A fault that shows once in a hundred runs is not left to the luck of one
# run: script/hammer looks for it.
run_tests()
{
    local preset=$1
    shift
    local status=0
    ctest --preset "$preset" --parallel "$(nproc)" "$@" </dev/null | tee "build/$preset/ctest.log" \
        || status=$?
    cp "build/$preset/Testing/Temporary/LastTest.log" "build/$preset/tests.log" || return 1
    if [[ $status -eq 0 || ${TESSEL_CONFIRM_FAILURES:-0} != 1 ]]; then
        return "$status"
    fi
    confirm_failures "$preset" || return "$status"
}

# The tests of preset $1 that failed last in the way that the extended regular expression $2 says.
tests_that()
{
    sed -n -E "s/^[[:blank:]]+[0-9]+ - (.*) \\(($2)\\)\$/\\1/p" "build/$1/ctest.log"
}

# confirm_failures PRESET: 0 if what failed last may be an accident and passes alone.
confirm_failures()
{
    local preset=$1
    local names
    mapfile -t names < <(tests_that "$preset" 'Failed|Timeout')
    if [[ ${#names[@]} -eq 0 || ${#names[@]} -gt $most_confirmed ]] \
        || [[ ${#names[@]} -ne $(tests_that "$preset" '.*' | wc -l) ]] \
        || grep -qE 'ERROR: [A-Za-z]+Sanitizer|WARNING: ThreadSanitizer|: runtime error: ' \
            "build/$preset/tests.log"; then
        return 1
    fi
    echo "Failed beside the other tests: ${names[*]}. Three runs alone have to pass."
    ctest --preset "$preset" --rerun-failed --repeat until-fail:3 </dev/null || return 1
    echo "Failed once, passed three times alone: ${names[*]}. What it said: build/$preset/tests.log." \
        "How often that happens: script/hammer ${names[*]}"
}
