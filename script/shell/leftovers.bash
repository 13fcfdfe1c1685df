# shellcheck shell=bash
# How the scripts beside this folder find what tests leave behind. Sourced from the project's root.

# enter_own_world COMMAND...: starts the calling script anew, as COMMAND, in a world of its own: what other
# programs make meanwhile must not count. Goes on in the common one where the caller is not root or may not.
enter_own_world()
{
    if [[ $EUID -eq 0 && -z ${TESSEL_OWN_WORLD:-} ]] && unshare --ipc --mount true 2>/dev/null; then
        # shellcheck disable=SC2016 # the inner shell expands
        TESSEL_OWN_WORLD=1 exec unshare --ipc --mount \
            bash -c 'mount -t tmpfs tmpfs /dev/shm && exec "$0" "$@"' "$@"
    fi
}

list_shared()
{
    find /dev/shm -name '*SharedMemory' -printf 'segment %p\n' | sort
    ipcs --semaphores | awk '/^0x/ { print "semaphore set", $1, $2 }' | sort
}

shared_before=

# What is there from now on until refuse_leftovers was left by the tests in between.
watch_leftovers()
{
    TMPDIR=$(mktemp -d)
    export TMPDIR
    # Also where the script ends early.
    trap 'rm -rf "$TMPDIR"' EXIT
    # Other users come through it, as through any folder for temporary files.
    chmod a+rx "$TMPDIR"
    shared_before=$(list_shared)
}

# Names what was left since watch_leftovers. Fails if there was anything.
refuse_leftovers()
{
    local left
    left=$(comm -13 <(echo "$shared_before") <(list_shared))
    left+=$(find "$TMPDIR" -mindepth 1 -printf '\nfile %p')
    if [[ -n $left ]]; then
        echo "left behind by the tests:"
        echo "$left"
        return 1
    fi
}
