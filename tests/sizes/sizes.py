"""What the largest sizes cost, and whether anything grows faster than it may. See script/sizes."""

import argparse
import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

import cases
import measuring
from measuring import MEGA, Failed

KEY = f"tesselSizes{os.getpid()}c"
HEADINGS = ["What", "Size", "Done", "Time", "Of a tenth", "Ratio", "Memory", "Of a tenth"]


class Ended(BaseException):
    """A signal has asked for the end."""


def end(number, _frame):
    raise Ended(128 + number)


def progress(line):
    """On a terminal one line that is replaced; in a log each by itself."""
    if sys.stderr.isatty():
        sys.stderr.write(f"\r\033[K{line}")
    elif line:
        sys.stderr.write(f"{line}\n")
    sys.stderr.flush()


@contextlib.contextmanager
def kept_live(command):
    """The region is there meanwhile."""
    if not command:
        yield
        return
    with subprocess.Popen([str(word) for word in command], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, start_new_session=True,
                          preexec_fn=measuring.end_with_parent) as process:
        try:
            if not process.stdout.readline():
                raise Failed(f"no region is kept: {process.stderr.read().decode(errors='replace').strip()}")
            yield
        finally:
            process.stdin.close()
            process.terminate()
            process.wait(measuring.LONGEST)


def measured(case, size, folder, key):
    """The steps of all programs of a case: program and step, to seconds and peak memory."""
    folder.mkdir()
    figures = {}
    for program in case.make(folder, size, key):
        progress(f"{case.name}: {size}, {program.name or 'library'}")
        with kept_live(program.live):
            run = measuring.run(program.command, program.has_many_words)
        if run.code not in program.codes:
            raise Failed(f"{case.name} of {size}: {' '.join(map(str, program.command))[:200]} ends with {run.code}: "
                         f"{run.error.strip()[:500]}")
        for step, seconds in measuring.steps_of(run, program.name):
            # Of a name that comes again the first counts.
            figures.setdefault((program.command[1] if program.name is None else "", step), (seconds, run.peak))
    subprocess.run(["rm", "-rf", str(folder)], check=True)
    return figures


def judged(case, smaller, larger, base):
    faults = []
    memories = set()
    for what, (seconds, peak) in larger.items():
        name = f"{case.name}, {' '.join(word for word in what if word)}"
        faults += measuring.faults_of_time(name, smaller[what][0], seconds)
        if what[0] not in memories or not what[0]:
            memories.add(what[0])
            faults += measuring.faults_of_memory(name, smaller[what][1], peak, base)
    return faults


def rows_of(case, size, smaller, larger):
    rows = []
    for what, (seconds, peak) in larger.items():
        less = smaller.get(what, (0, 0))
        ratio = f"{seconds / less[0]:.1f}" if less[0] >= measuring.LEAST_SECONDS else ""
        rows.append([case.what if not rows else "", f"{size:,}" if not rows else "",
                     what[1] if what[1].startswith("tessel") else f"`{what[1]}`", f"{seconds:.3f} s",
                     f"{less[0]:.3f} s", ratio, f"{peak // MEGA} MB", f"{less[1] // MEGA} MB"])
    return rows


def page(rows):
    lines = [" | ".join(row) for row in [HEADINGS, ["---"] * len(HEADINGS), *rows]]
    return "".join(f"| {line} |\n" for line in lines)


def chosen_cases(words):
    if words.planted:
        return [cases.PLANTED]
    known = {case.name: case for case in cases.CASES}
    for name in words.case:
        if name not in known:
            raise Failed(f"no case '{name}'; there are {', '.join(known)}")
    return [known[name] for name in words.case] or cases.CASES


def keys_with_semaphores(folder):
    """Of the descriptions that are still there."""
    sets = measuring.semaphore_sets()
    for file in folder.rglob("*.process.json"):
        with open(file, "rb") as description:
            named = re.search(rb'"keyProcessDataMemory":"([^"]*)"', description.read(300))
        if named and measuring.semaphore_key(named[1].decode()) in sets:
            yield named[1].decode()


def remove_regions(folder):
    """Of parts that a signal has ended, perhaps while they made or removed one: the tool takes semaphores alone for
    nobody's region. No other program has names with the number of this process."""
    for entry in pathlib.Path("/dev/shm").glob(f"{KEY}*SharedMemory"):
        subprocess.run([cases.TOOL, "rm", "--force", entry.name.removesuffix("SharedMemory")], check=False,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    for key in list(keys_with_semaphores(folder)):
        subprocess.run(["ipcrm", "-S", hex(measuring.semaphore_key(key))], check=False,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def measure_all(words, folder):
    base = measuring.run([cases.TOOL, "--version"]).peak
    rows = []
    faults = []
    for number, case in enumerate(chosen_cases(words)):
        size = max(round(case.size * words.scale), case.smallest)
        key = f"{KEY}{number}"
        smaller = measured(case, max(size // 10, 1), folder / f"{case.name}-tenth", f"{key}s")
        larger = measured(case, size, folder / case.name, f"{key}l")
        faults += judged(case, smaller, larger, base)
        rows += rows_of(case, size, smaller, larger)
    progress("")
    return rows, faults


def parsed_words():
    parser = argparse.ArgumentParser(prog="script/sizes", add_help=False)
    parser.add_argument("--case", action="append", default=[])
    parser.add_argument("--scale", type=float, default=1)
    parser.add_argument("--planted", action="store_true")
    words = parser.parse_args()
    if not 0 < words.scale <= 10:
        parser.error("--scale wants a number above 0, up to 10")
    return words


def main():
    words = parsed_words()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, end)
    folder = pathlib.Path(tempfile.mkdtemp(prefix="tessel-sizes"))
    try:
        rows, faults = measure_all(words, folder)
        sys.stdout.write(page(rows))
    except Failed as failed:
        progress("")
        sys.exit(f"script/sizes: {failed}")
    except Ended as ended:
        progress("")
        sys.exit(ended.args[0])
    finally:
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)
        remove_regions(folder)
        subprocess.run(["rm", "-rf", str(folder)], check=False)
    for fault in faults:
        print(f"script/sizes: {fault}", file=sys.stderr)
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
