"""Runs tests under valgrind's memcheck, as script/valgrind says."""

import argparse
import json
import os
import pathlib
import signal
import subprocess
import sys
import time

PROJECT = pathlib.Path(__file__).resolve().parents[2]
BUILD = PROJECT / "build/dev"
LOGS = PROJECT / "build/valgrind"
HERE = pathlib.Path(__file__).parent
# The rooms of the library, and the models over it. What runs programs is no unit test: valgrind sees nothing of those.
ROOMS = ["Access", "Companion", "Configuration", "Factories", "Inspection", "ProcessData", "ProcessDataManagement",
         "Validation", "common", "models"]
# No test ends with it by itself: Qt Test ends with the number of failures, 127 at most.
FOUND = 200
# Seconds. Thirty times slower than alone, on a busy machine.
LONGEST = 3600
VALGRIND = ["valgrind", "--quiet", "--leak-check=full", "--show-leak-kinds=definite,indirect",
            "--errors-for-leak-kinds=definite,indirect", f"--error-exitcode={FOUND}", "--num-callers=30",
            # A forked child is followed: what is wrong in it makes its exit code FOUND, which its test does not expect.
            # It says nothing of its own, since most end by a signal or where they stand.
            "--child-silent-after-fork=yes", f"--suppressions={HERE / 'valgrind.supp'}"]


def left_out():
    """The names of tests, to why it is pointless for them."""
    lines = (HERE / "valgrind-left-out.txt").read_text(encoding="utf-8").splitlines()
    return dict(line.split(None, 1) for line in lines if line and not line.startswith("#"))


def known_tests():
    """As ctest runs them: name, to command and environment."""
    shown = subprocess.run(["ctest", "--test-dir", BUILD, "--show-only=json-v1"], capture_output=True, text=True,
                           check=True)
    found = {}
    for test in json.loads(shown.stdout)["tests"]:
        properties = {entry["name"]: entry["value"] for entry in test["properties"]}
        folder = properties.get("WORKING_DIRECTORY", str(BUILD))
        if pathlib.Path(folder).name in ROOMS and pathlib.Path(folder).parent == BUILD / "tests":
            # A program that is not built yet has no command.
            found[test["name"]] = (test.get("command", []), properties.get("ENVIRONMENT", []), folder)
    return found


def chosen_tests(names, tests):
    """In the order of the names; all that have a program of their own, without names."""
    if names:
        return [name for name in names if name in tests]
    reasons = left_out()
    return sorted(name for name in tests if name.startswith("tst_") and name not in reasons)


def verdict(code):
    if code == 0:
        return "ok"
    return "memcheck complains" if code == FOUND else f"the test itself ends with {code}"


def is_done(name, command):
    """Whether it has passed since it and the library were built."""
    stamp = LOGS / f"{name}.passed"
    built = [pathlib.Path(command[0]), *(BUILD / "src").glob("libTessel.so.*"),
             *(BUILD / "models").glob("libTesselModels.so.*")]
    return stamp.exists() and all(stamp.stat().st_mtime > file.stat().st_mtime for file in built)


def run_test(name, test):
    command, environment, folder = test
    (LOGS / f"{name}.passed").unlink(missing_ok=True)
    with open(LOGS / f"{name}.log", "wb") as log:
        with subprocess.Popen([*VALGRIND, *command], stdin=subprocess.DEVNULL, stdout=log, stderr=log, cwd=folder,
                              env={**os.environ, **dict(word.split("=", 1) for word in environment)},
                              start_new_session=True) as process:
            try:
                code = process.wait(LONGEST)
            except subprocess.TimeoutExpired:
                code = None
            finally:
                if process.poll() is None:
                    os.killpg(process.pid, signal.SIGTERM)
                    process.wait()
    if code == 0:
        (LOGS / f"{name}.passed").touch()
    return f"not done after {LONGEST} s" if code is None else verdict(code)


def parsed_words():
    parser = argparse.ArgumentParser(prog="script/valgrind", add_help=False)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--resume", action="store_true")
    parser.add_argument("names", nargs="*")
    return parser.parse_args()


def run_all(names, tests, is_resumed):
    failed = []
    for number, name in enumerate(names, 1):
        begin = time.monotonic()
        if is_resumed and is_done(name, tests[name][0]):
            said = "ok before"
        else:
            print(f"[{number:3} of {len(names)}] {name:40} ", end="", flush=True)
            said = run_test(name, tests[name])
            print(f"{said}, {time.monotonic() - begin:.0f} s", flush=True)
        if not said.startswith("ok"):
            failed.append(f"{name}: {said}; see build/valgrind/{name}.log")
    return failed


def main():
    words = parsed_words()
    tests = known_tests()
    unknown = [name for name in words.names if name not in tests]
    if unknown:
        sys.exit(f"script/valgrind: no unit test of library or models: {', '.join(unknown)}")
    names = chosen_tests(words.names, tests)
    if words.list:
        print("\n".join(names))
        return
    LOGS.mkdir(parents=True, exist_ok=True)
    failed = run_all(names, tests, words.resume)
    if failed:
        sys.exit("\n".join([f"{len(failed)} of {len(names)} failed:", *failed]))
    print(f"all {len(names)} passed")


if __name__ == "__main__":
    for signal_number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(signal_number, signal.default_int_handler)
    try:
        main()
    except KeyboardInterrupt:
        print(f"\nended; script/valgrind --resume goes on; what was said is in {LOGS.relative_to(PROJECT)}")
        sys.exit(130)
