"""Usage: footprint.py NAME PROGRAM [ARGUMENT...]

Prints the memory of PROGRAM at the moment in which it begins to print, in kB: resident, proportional
(what is shared counts by its share), and private and written to (what each further process costs).
"""

import fcntl
import os
import pathlib
import re
import signal
import subprocess
import sys
import time

FIGURES = {"Rss": "resident", "Pss": "proportional", "Private_Dirty": "private and written to"}


def full_pipe():
    """A pipe that takes nothing any more: whoever writes into it waits there."""
    reading, writing = os.pipe()
    fcntl.fcntl(writing, fcntl.F_SETPIPE_SZ, 4096)
    os.set_blocking(writing, False)
    try:
        while True:
            os.write(writing, b" " * 4096)
    except BlockingIOError:
        os.set_blocking(writing, True)
    return reading, writing


def wait_until_it_writes(process):
    deadline = time.monotonic() + 60
    folder = pathlib.Path(f"/proc/{process.pid}")
    while "pipe" not in (folder / "wchan").read_text(encoding="ascii"):
        if process.poll() is not None or time.monotonic() > deadline:
            sys.exit(f"{sys.argv[2]} ends or waits, and prints nothing")
        time.sleep(0.001)


def main():
    name, *command = sys.argv[1:]
    reading, writing = full_pipe()
    with subprocess.Popen(command, stdout=writing, stderr=subprocess.DEVNULL) as process:
        try:
            wait_until_it_writes(process)
            text = pathlib.Path(f"/proc/{process.pid}/smaps_rollup").read_text(encoding="ascii")
        finally:
            process.send_signal(signal.SIGKILL)
    os.close(reading)
    os.close(writing)
    found = dict(re.findall(r"^(\w+): +(\d+) kB$", text, re.M))
    print(f"{name}: " + ", ".join(f"{label} {found[key]} kB" for key, label in FIGURES.items()))


if __name__ == "__main__":
    main()
