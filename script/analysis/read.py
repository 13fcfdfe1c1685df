#!/usr/bin/env python3
"""Has clang-tidy or clazy read the sources below the folders, and remembers what it found nothing in.

Usage: script/analysis/read.py tidy|clazy [--quick] [FOLDER|FILE...]

All rooms where none is named. --quick leaves out the paths that clang's
analyzer follows, which are half of the time of clang-tidy.

A source is read again once it, a header that it includes, its command, .clang-tidy or the tool itself is another
one; of what was found nothing in, build/check/tidy and build/check/clazy keep a record. That holds the files as
they are written, and not the preprocessed text: both tools read comments and macros, too.
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys
import threading
import time

ROOMS = ["src", "common", "tools", "exits", "models", "python/native"]
COMMANDS = pathlib.Path("build/check/analysis/compile_commands.json")

# What stands in for a source where a library is missing that script/setup installs.
NOT_BUILT = {"tools/tessel/screen/MissingScreen.cpp"}


class Reader:
    """A tool, its options, and where it remembers."""

    def __init__(self, name, program, options, configuration):
        self.name = name
        self.records = pathlib.Path("build/check") / name
        self.command = [program, "-p", str(COMMANDS.parent), *options]
        version = subprocess.run([program, "--version"], capture_output=True, text=True, check=True).stdout
        texts = [pathlib.Path(path).read_text(encoding="utf-8") for path in configuration]
        self.key = "".join([version, *options, *texts])


def reader_of(name):
    if name == "tidy":
        return Reader(name, "clang-tidy", ["--quiet"], [".clang-tidy"])
    # Its warnings are errors as the compiler's are.
    return Reader(name, "clazy-standalone",
                  ["--checks=level1", r"--header-filter=/(src|common|tools|exits|models|python)/.*\.h$"], [])


class Hashes:
    """Of files, each of which is read once: most sources include the same headers."""

    def __init__(self):
        self._known = {}

    def of(self, path):
        if path not in self._known:
            try:
                content = pathlib.Path(path).read_bytes()
            except OSError:
                content = b""
            self._known[path] = hashlib.sha256(content).hexdigest()
        return self._known[path]


class Source:
    def __init__(self, entry, reader, hashes, is_quick):
        self.path = os.path.relpath(entry["file"])
        self._entry = entry
        self._hashes = hashes
        self._reader = reader
        self._is_quick = is_quick
        self._all_key = hashlib.sha256((reader.key + entry["command"]).encode()).hexdigest()
        self._key = self._all_key + "-quick" if is_quick else self._all_key
        self._record = reader.records / (self.path.replace("/", "+") + ".json")

    def is_known(self):
        """Whether nothing was found, and all is as it was."""
        try:
            record = json.loads(self._record.read_text(encoding="utf-8"))
        except (OSError, ValueError):
            return False
        return record["key"] in (self._key, self._all_key) and all(
            self._hashes.of(path) == known for path, known in record["files"].items())

    def read(self):
        """What the tool says; nothing if it is content."""
        # Before it reads them: what is changed meanwhile is another file the next time.
        files = {path: self._hashes.of(path) for path in self._files()}
        checks = ["--checks=-clang-analyzer-*"] if self._is_quick else []
        run = subprocess.run([*self._reader.command, *checks, self.path],
                             capture_output=True, text=True, check=False)
        if run.returncode != 0:
            # clang-tidy counts on the other stream what it leaves out; clazy tells all there.
            return (run.stdout or run.stderr
                    or f"{self.path}: {self._reader.command[0]} failed without a word\n")
        self._record.write_text(json.dumps({"key": self._key, "files": files}), encoding="utf-8")
        return ""

    def _files(self):
        """Source and headers, as the compiler finds them."""
        words = shlex.split(self._entry["command"])
        output = words.index("-o")
        del words[output:output + 2]
        run = subprocess.run(words + ["-M"], cwd=self._entry["directory"], capture_output=True, text=True,
                             check=False, env={**os.environ, "CCACHE_DISABLE": "1"})
        named = run.stdout.replace("\\\n", " ").split()[1:]
        return sorted({os.path.normpath(os.path.join(self._entry["directory"], path)) for path in named})


class Progress:
    def __init__(self, count):
        self._count = count
        self._done = 0
        self._lock = threading.Lock()
        self.failed = []

    def tell(self, source, findings):
        with self._lock:
            self._done += 1
            if sys.stderr.isatty():
                print(f"\r\033[K[{self._done}/{self._count}] {source.path}", end="", file=sys.stderr)
            if findings:
                self.failed.append(source.path)
                print(("\r\033[K" if sys.stderr.isatty() else "") + findings, flush=True)


def chosen_sources(reader, folders, is_quick):
    with open(COMMANDS, encoding="utf-8") as commands:
        entries = json.load(commands)
    hashes = Hashes()
    found = {os.path.relpath(entry["file"]): entry for entry in entries}
    wanted = sorted({str(path) for folder in map(pathlib.Path, folders)
                     for path in (folder.rglob("*.cpp") if folder.is_dir() else [folder])})
    missing = [path for path in wanted if path not in found and path not in NOT_BUILT]
    if missing:
        sys.exit(f"{missing[0]}: is built by no target of the preset dev; name it in a CMakeLists.txt")
    return [Source(found[path], reader, hashes, is_quick) for path in wanted if path in found]


def main():
    name, *folders = sys.argv[1:]
    is_quick = "--quick" in folders
    reader = reader_of(name)
    reader.records.mkdir(parents=True, exist_ok=True)
    begin = time.monotonic()
    named = [word for word in folders if word != "--quick"]
    sources = chosen_sources(reader, named or ROOMS, is_quick)
    due = [source for source in sources if not source.is_known()]
    progress = Progress(len(due))
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for job in [pool.submit(lambda source=source: progress.tell(source, source.read()))
                    for source in due]:
            job.result()
    if sys.stderr.isatty():
        print("\r\033[K", end="", file=sys.stderr)
    print(f"{len(sources)} sources, {len(due)} of them read in {time.monotonic() - begin:.0f} s, "
          f"findings in {len(progress.failed)}")
    return 1 if progress.failed else 0


if __name__ == "__main__":
    sys.exit(main())
