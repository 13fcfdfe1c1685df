#!/usr/bin/env python3
"""Has clang-tidy read the sources below the folders, and remembers what it found nothing in.

Usage: script/analysis/tidy.py [--quick] FOLDER|FILE...

--quick leaves out the paths that clang's analyzer follows, which are half of the time.

A source is read again once it, a header that it includes, its command, .clang-tidy or clang-tidy itself
is another one; of what was found nothing in, build/check/tidy keeps a record. That holds the files as they
are written, and not the preprocessed text: clang-tidy reads comments and macros, too.
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

COMMANDS = pathlib.Path("build/check/analysis/compile_commands.json")
RECORDS = pathlib.Path("build/check/tidy")


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
    def __init__(self, entry, common, hashes, is_quick):
        self.path = os.path.relpath(entry["file"])
        self._entry = entry
        self._hashes = hashes
        self._is_quick = is_quick
        self._all_key = hashlib.sha256((common + entry["command"]).encode()).hexdigest()
        self._key = self._all_key + "-quick" if is_quick else self._all_key
        self._record = RECORDS / (self.path.replace("/", "+") + ".json")

    def is_known(self):
        """Whether nothing was found, and all is as it was."""
        try:
            record = json.loads(self._record.read_text(encoding="utf-8"))
        except (OSError, ValueError):
            return False
        return record["key"] in (self._key, self._all_key) and all(
            self._hashes.of(path) == known for path, known in record["files"].items())

    def read(self):
        """What clang-tidy says; nothing if it is content."""
        # Before it reads them: what is changed meanwhile is another file the next time.
        files = {path: self._hashes.of(path) for path in self._files()}
        checks = ["--checks=-clang-analyzer-*"] if self._is_quick else []
        run = subprocess.run(["clang-tidy", "-p", str(COMMANDS.parent), "--quiet", *checks, self.path],
                             capture_output=True, text=True, check=False)
        if run.returncode != 0:
            return run.stdout or run.stderr or f"{self.path}: clang-tidy failed without a word\n"
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


def chosen_sources(folders, is_quick):
    with open(COMMANDS, encoding="utf-8") as commands:
        entries = json.load(commands)
    version = subprocess.run(["clang-tidy", "--version"], capture_output=True, text=True, check=True).stdout
    common = version + pathlib.Path(".clang-tidy").read_text(encoding="utf-8")
    hashes = Hashes()
    found = {os.path.relpath(entry["file"]): entry for entry in entries}
    wanted = sorted({str(path) for folder in map(pathlib.Path, folders)
                     for path in (folder.rglob("*.cpp") if folder.is_dir() else [folder])})
    missing = [path for path in wanted if path not in found]
    if missing:
        sys.exit(f"{missing[0]}: is built by no target of the preset dev; name it in a CMakeLists.txt")
    return [Source(found[path], common, hashes, is_quick) for path in wanted]


def main():
    RECORDS.mkdir(parents=True, exist_ok=True)
    begin = time.monotonic()
    folders = [word for word in sys.argv[1:] if word != "--quick"]
    sources = chosen_sources(folders, len(folders) < len(sys.argv) - 1)
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
