"""What the figures were measured on."""

import os
import platform
import re
import subprocess


def read(path):
    try:
        with open(path, encoding="utf-8") as file:
            return file.read().strip()
    except OSError:
        return ""


def first_line_of(*command):
    try:
        result = subprocess.run(command, capture_output=True, text=True, check=True)
    except (OSError, subprocess.CalledProcessError):
        return "unknown"
    return result.stdout.splitlines()[0].strip() if result.stdout else "unknown"


def processor():
    model = re.search(r"^model name\s*:\s*(.*)$", read("/proc/cpuinfo"), re.MULTILINE)
    return model.group(1) if model else platform.machine()


def describe():
    """Pairs of what and how, in the order of the table."""
    governor = read("/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor")
    return [
        ("Processor", processor()),
        ("Processors to use", str(len(os.sched_getaffinity(0)))),
        ("Governor", governor or "not told by this machine"),
        ("Kernel", f"{platform.system()} {platform.release()}"),
        ("Compiler", first_line_of(os.environ.get("CXX", "c++"), "--version")),
        ("Qt", first_line_of("pkg-config", "--modversion", "Qt5Core")),
    ]
