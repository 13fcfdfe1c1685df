# shellcheck shell=bash
# A Debian 12 in a folder, for scripts that need a machine of their own. Sourced from the project's
# root, after build.bash. The callers run as root.
#
# What is mounted into such a folder is mounted by a process in a namespace of its own, and is seen
# by nobody else: the mounts end with that process, and whoever removes the folder from outside meets
# nothing but the folder.

# The mirror that this machine's apt takes Debian 12 from.
debian_mirror()
{
    local mirror
    # shellcheck disable=SC2016 # apt-get expands
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Identifier: Packages' 'Codename: bookworm' \
        2>/dev/null | head -n 1)
    echo "${mirror:-http://deb.debian.org/debian}"
}

# remove_root FOLDER: what lies on another file system stays.
remove_root()
{
    [[ ! -e $1 ]] || rm -rf --one-file-system "$1"
}

# make_root FOLDER [PACKAGE...]: a minimal Debian 12 with these packages; nothing is done if an earlier
# run made it to its end.
make_root()
{
    local folder=$1 packages
    shift
    [[ ! -e $folder/complete ]] || return 0
    remove_root "$folder"
    mkdir -p "$folder"
    packages=$(IFS=, && echo "$*")
    debootstrap --variant=minbase ${packages:+--include="$packages"} \
        bookworm "$folder/root" "$(debian_mirror)"
    touch "$folder/complete"
}

world_pid=
world_lock=

# run_in_world LOCK COMMAND...: runs it with mounts, processes, semaphores and shared memory of its
# own. LOCK is a file that keeps a second run out.
run_in_world()
{
    world_lock=$1
    shift
    exec 9>"$world_lock"
    flock --nonblock 9 || fail "another run is going on; it holds $world_lock"
    # In the background, so that a signal is answered at once.
    unshare --mount --propagation private --ipc --pid --fork --kill-child "$@" </dev/null &
    world_pid=$!
    exec 9>&-
    local status=0
    wait "$world_pid" || status=$?
    world_pid=
    return "$status"
}

# Ends what run_in_world() has started, and waits until its last process is gone.
end_world()
{
    if [[ -n $world_pid ]]; then
        kill -KILL "$world_pid" 2>/dev/null || true
        wait "$world_pid" 2>/dev/null || true
        world_pid=
    fi
    # Each process in there holds the lock.
    [[ -z $world_lock ]] || flock --timeout 60 "$world_lock" true
}

# Has function $1 called however the script ends.
at_exit()
{
    # shellcheck disable=SC2064 # the name is meant now
    trap "$1" EXIT
    trap 'exit 129' HUP
    trap 'exit 130' INT
    trap 'exit 143' TERM
}

# mount_world ROOT: what programs expect of a machine, in the world of run_in_world().
mount_world()
{
    mount -t proc proc "$1/proc"
    mkdir -p "$1/dev/shm" "$1/dev/pts"
    mount -t devpts -o newinstance,ptmxmode=666 devpts "$1/dev/pts"
    mount -t tmpfs -o mode=1777 tmpfs "$1/dev/shm"
}

# The number of the last step; a script in a world goes on counting.
step_number=${step_number:-0}

# Where step() has everything written; the callers say where.
log=${log:-}

# step TEXT COMMAND...: one line of progress; what the command says goes into $log, and is shown if
# it fails.
step()
{
    local text=$1 begin=$SECONDS mark status=0
    shift
    step_number=$((step_number + 1))
    printf '[%2d] %-58s' "$step_number" "$text"
    mark=$(($(stat --format=%s "$log" 2>/dev/null || echo 0) + 1))
    printf '== %s\n' "$text" >>"$log"
    # In a shell of its own, in which errexit holds; it would not in a condition.
    set +e
    (
        set -e
        "$@"
    ) >>"$log" 2>&1 </dev/null
    status=$?
    set -e
    if [[ $status -ne 0 ]]; then
        printf 'FAILED %4d s\n' $((SECONDS - begin))
        tail -c "+$mark" "$log" | tail -n 60 | sed 's/^/    /'
        echo "all of it is in $log"
        exit 1
    fi
    printf 'ok     %4d s\n' $((SECONDS - begin))
}
