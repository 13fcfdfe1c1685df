"""A copy of the project in which every chosen change waits behind the selector, built once."""

import json
import os
import re
import shutil
import subprocess

import rewriting
from scanning import Failure

HERE = os.path.dirname(os.path.abspath(__file__))
CHANGED = ".changed"
ERROR = re.compile(r"^(?P<file>[^:\s]+):(?P<line>\d+):(?:(?P<column>\d+):)? (?:fatal )?error: (?P<text>.*)$", re.M)
MENTIONED = re.compile(r"^(?P<file>[^:\s]+):(?P<line>\d+):(?:\d+:)? ", re.M)


def write_if_other(path, content):
    """Leaves a file with that content as it is, so that nothing is built again for it."""
    try:
        with open(path, "rb") as file:
            if file.read() == content:
                return
    except OSError:
        os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(content)


class Tree:
    """work/tree and the build in it, below it as that of the project is below the project, with the same
    options: so a compiler cache knows all files without a change."""

    def __init__(self, root, work, preset, targets):
        self.root = root
        self.tree = f"{work}/tree"
        self.build = f"{self.tree}/build/changed"
        self.log = f"{work}/build.log"
        self.runtime = f"{work}/runtime"
        self.preset = preset
        self.targets = targets

    def write(self, places):
        """The files of the project; those with changes hold all of @p places."""
        by_file = {}
        for place in places:
            by_file.setdefault(place.file, []).append(place)
        names = self._files()
        kept = names | {"src/TesselMutant.h"}
        with open(f"{HERE}/runtime/TesselMutant.h", "rb") as file:
            write_if_other(f"{self.tree}/src/TesselMutant.h", file.read())
        for name in names:
            with open(f"{self.root}/{name}", "rb") as file:
                content = file.read()
            if name in by_file:
                content = rewriting.rewritten(content, by_file[name])
                if not name.endswith(".h"):
                    # Only what is included can be without warnings.
                    write_if_other(f"{self.tree}/{name}{CHANGED}", content)
                    kept.add(name + CHANGED)
                    content = f'#include "{os.path.basename(name)}{CHANGED}"\n'.encode()
            write_if_other(f"{self.tree}/{name}", content)
            shutil.copymode(f"{self.root}/{name}", f"{self.tree}/{name}")
        for folder, folders, files in os.walk(self.tree):
            folders[:] = [name for name in folders if name != "build"]
            for name in files:
                path = os.path.join(folder, name)
                if os.path.relpath(path, self.tree) not in kept:
                    os.remove(path)

    def _files(self):
        """What belongs to the project; all files where it is no repository of its own."""
        listed = subprocess.run(
            ["git", "-C", self.root, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
            capture_output=True, check=False,
        )  # fmt: skip
        if listed.returncode == 0 and listed.stdout:
            names = [name.decode() for name in listed.stdout.split(b"\0") if name]
        else:
            names = []
            for folder, folders, files in os.walk(self.root):
                folders[:] = [name for name in folders if name != "build"]
                names += [os.path.relpath(os.path.join(folder, name), self.root) for name in files]
        return {n for n in names if os.path.isfile(f"{self.root}/{n}") and not os.path.islink(f"{self.root}/{n}")}

    def make_runtime(self):
        os.makedirs(self.runtime, exist_ok=True)
        library = f"{self.runtime}/libTesselMutant.so"
        done = subprocess.run(
            ["g++", "-std=c++17", "-O2", "-fPIC", "-shared", "-o", library, f"{HERE}/runtime/TesselMutant.cpp"],
            capture_output=True, text=True, check=False,
        )  # fmt: skip
        if done.returncode != 0:
            raise Failure(f"the selector cannot be built:\n{done.stderr}")
        return library

    def configure(self):
        library = self.make_runtime()
        preset = ["--preset", self.preset] if self.preset else []
        done = subprocess.run(
            ["cmake", *preset, "-S", self.tree, "-B", self.build, "-G", "Ninja",
             f"-DCMAKE_CXX_STANDARD_LIBRARIES={library}"],
            cwd=self.tree, capture_output=True, text=True, check=False,
        )  # fmt: skip
        if done.returncode != 0:
            raise Failure(f"configuring {self.tree} failed:\n{done.stdout}{done.stderr}")

    def compile(self, places, jobs, tell):
        """The places of @p places that the compiler refuses; empty once everything is built."""
        with open(self.log, "w", encoding="utf-8") as log:
            with subprocess.Popen(
                ["ninja", "-C", self.build, "-k", "0", "-j", str(jobs), *self.targets],
                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
            ) as process:  # fmt: skip
                try:
                    for line in process.stdout:
                        log.write(line)
                        step = re.match(r"\[(\d+)/(\d+)\]", line)
                        if step:
                            tell(f"building: {step[1]} of {step[2]} steps")
                except KeyboardInterrupt:
                    process.terminate()
                    raise
        if process.returncode == 0:
            return []
        with open(self.log, encoding="utf-8") as log:
            refused = self._refused(log.read(), places)
        if not refused:
            raise Failure(f"the copy with the changes does not build, and none of them is the reason; see {self.log}")
        return refused

    def _refused(self, text, places):
        """The change that stands last in front of each fault; all of the line where none does."""
        refused = {}
        for found in ERROR.finditer(text):
            for place in self._at(found["file"], int(found["line"]), int(found["column"] or 0), places):
                refused[place.number] = place
        if not refused:
            for found in MENTIONED.finditer(text):
                for place in self._at(found["file"], int(found["line"]), 0, places):
                    refused[place.number] = place
        return list(refused.values())

    def _at(self, path, line, column, places):
        # A compiler cache has the paths shortened.
        path = os.path.normpath(os.path.join(self.build, path))
        if not path.startswith(f"{self.tree}/src/") or not os.path.exists(path):
            return []
        with open(path, "rb") as file:
            lines = file.read().split(b"\n")
        text = lines[line - 1] if line <= len(lines) else b""
        asked = [(m.start(), int(m[1])) for m in re.finditer(rb"tesselMutant\((\d+)\)", text)]
        before = [number for start, number in asked if start < column]
        numbers = before[-1:] or [number for _, number in asked]
        return [place for place in places if place.number in numbers]


class Refused:
    """The ids of changes that the compiler does not take, kept between runs."""

    def __init__(self, path):
        self.path = path
        try:
            with open(path, encoding="utf-8") as file:
                self.ids = set(json.load(file))
        except (OSError, ValueError):
            self.ids = set()

    def add(self, places):
        self.ids |= {place.id for place in places}
        with open(self.path, "w", encoding="utf-8") as file:
            json.dump(sorted(self.ids), file)
