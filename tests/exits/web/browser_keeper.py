"""Runs chromedriver, and ends it with all that it has started and written when its standard input ends.

Started as `browser_keeper.py FOLDER`; tells the port on standard output. Each line that it gets names the key of a
region and the folder of its description, which it removes as well if they are still there then. It outlives the test
that has started it, also where that is killed: nobody else could tidy up then.
"""

import ctypes
import os
import re
import shutil
import signal
import subprocess
import sys


def become_parent_of_orphans():
    set_child_subreaper = 36
    ctypes.CDLL(None).prctl(set_child_subreaper, 1)


def children():
    with open(f"/proc/self/task/{os.getpid()}/children", encoding="ascii") as file:
        return [int(pid) for pid in file.read().split()]


def end_all():
    # Each that ends leaves its own children to us, until there are none.
    while found := children():
        for pid in found:
            os.kill(pid, signal.SIGKILL)
        for pid in found:
            os.waitpid(pid, 0)


def keep(folder):
    environment = {**os.environ, "TMPDIR": folder, "HOME": folder, "XDG_CONFIG_HOME": folder, "XDG_CACHE_HOME": folder}
    driver = subprocess.Popen(
        ["chromedriver", "--port=0"], env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL, text=True,
    )
    for line in driver.stdout:
        if found := re.search(r"started successfully on port (\d+)", line):
            print(found[1], flush=True)
            break
    return [line.split() for line in sys.stdin]


def remove_plant(key, folder):
    # A test that has come to its end has removed both.
    if os.path.exists(folder):
        subprocess.run([os.environ["TESSEL_TOOL"], "rm", "--force", key], capture_output=True, check=False)
        shutil.rmtree(folder)


if __name__ == "__main__":
    if os.fork() > 0:
        os._exit(0)
    os.setsid()
    become_parent_of_orphans()
    plants = []
    try:
        plants = keep(sys.argv[1])
    finally:
        end_all()
        for plant in plants:
            remove_plant(*plant)
        shutil.rmtree(sys.argv[1], ignore_errors=True)
