# shellcheck shell=bash
# What the scripts beside this folder share: error lines and builds. Sourced from the project's root.

# One line on standard error: which script, what went wrong, what to do.
fail()
{
    printf '%s: %s\n' "${0#./}" "$*" >&2
    exit 1
}

# Prints the comment at the top of the script as its help, without the line of the interpreter.
print_help()
{
    local called=$0
    # By a name relative to the folder that the script has left for the project's root.
    [[ $called == /* ]] || called=$OLDPWD/$called
    sed -n '2,/^[^#]/{/^#/!q; s/^# \{0,1\}//p}' "$called"
}

# build_preset PRESET [TARGET...]: configures and builds below build/PRESET.
build_preset()
{
    local preset=$1
    shift
    local configure_log=build/$preset-configure.log
    mkdir -p build
    if ! cmake --preset "$preset" >"$configure_log" 2>&1; then
        cat "$configure_log" >&2
        fail "configuring the preset '$preset' failed; the lines above say why," \
            "after a change of compiler or folder remove build/$preset"
    fi
    cmake --build --preset "$preset" --parallel "$(nproc)" ${1+--target "$@"} \
        || fail "building the preset '$preset' failed; the first error above says where"
}

# The version of the project, which CMakeLists.txt names and nobody else.
project_version()
{
    sed -n 's/^project(Tessel VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt
}
