"""Plays every call that the system may refuse, from every place of the tool and the library that calls it.

Each scene is one command in a world of its own. It runs once undisturbed, which tells the places of its
calls, and then once for each place, the first call from there refused. A command may fail then: with an exit
code of its own and a word why, nothing lost and nothing left. Or it may succeed: then it has done what it
does undisturbed, or has said what is missing.
"""

import argparse
import contextlib
import errno
import functools
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

LONGEST = 60
INTERNAL = 10
ERRORS = {
    "open": errno.EMFILE, "open64": errno.EMFILE, "openat": errno.EMFILE, "shm_open": errno.EMFILE,
    "ftruncate": errno.ENOSPC, "ftruncate64": errno.ENOSPC, "posix_fallocate": errno.ENOSPC,
    "fallocate": errno.ENOSPC, "mmap": errno.ENOMEM, "mmap64": errno.ENOMEM, "semget": errno.ENOSPC,
    "semop": errno.ENOMEM, "semtimedop": errno.ENOMEM, "write": errno.ENOSPC, "fsync": errno.EIO,
    "fdatasync": errno.EIO, "rename": errno.EACCES, "renameat": errno.EACCES, "renameat2": errno.EACCES,
    "linkat": errno.EACCES, "new": errno.ENOMEM,
}  # fmt: skip

NEEDED = {"fallocate", "fdatasync", "ftruncate", "linkat", "mmap", "new", "open", "rename", "semget", "semop", "shm_open", "write"}


class World:
    """A folder and a region, and the programs that work in them."""

    def __init__(self, parts):
        self.parts = parts
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tessel-failing"))
        self.work = self.folder / "work"
        self.work.mkdir()
        self.holder = None
        self.key = f"tesselFailing{os.getpid()}"
        self.plant = self.work / "plant.process.json"
        self.plant.write_text(json.dumps(self._description()))

    def _description(self):
        leaf = {"relativeOffsetMetadata": 8, "sizeValue": 8, "sizeMetadata": 4}
        return {
            "type": "treenode", "keyProcessDataMemory": self.key, "sizeOfSharedMemory": 32, "doubleBuffer": True,
            "value": {
                "level": {"type": "double", "unit": "m", "displayPosition": 1, "offsetSharedMemory": 0, **leaf},
                "count": {"type": "int64", "displayPosition": 2, "offsetSharedMemory": 16, **leaf},
            },
        }  # fmt: skip

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end_holder()
        # Who was ended in the middle has left it.
        self.tool("rm", "--force", self.key)
        shutil.rmtree(self.folder)

    def environment(self, **more):
        clean = {name: value for name, value in os.environ.items() if not name.startswith("TESSEL_DIR")}
        return {**clean, "LC_ALL": "C.UTF-8", **more}

    def tool(self, *words, **environment):
        return subprocess.run(
            [self.parts.tool, *map(str, words)], cwd=self.work, env=self.environment(**environment),
            capture_output=True, timeout=LONGEST, check=False,
        )  # fmt: skip

    def hold(self):
        """A region with one set that was published, which nothing changes."""
        if self.holder and self.holder.poll() is None:
            return
        self.holder = subprocess.Popen(
            [self.parts.tool, "hold", str(self.plant)], env=self.environment(), stdout=subprocess.PIPE
        )
        self.holder.stdout.readline()
        self.reset()

    def reset(self):
        done = self.tool("set", self.plant, "level", "1.5", "count", "7")
        if done.returncode != 0:
            raise AssertionError(f"the region is not as it was: {done.stderr.decode()}")

    def end_holder(self):
        if self.holder:
            self.holder.send_signal(signal.SIGTERM)
            self.holder.wait(LONGEST)
            self.holder.stdout.close()
            self.holder = None

    def values(self):
        return self.tool("get", "-t", self.plant).stdout.decode().split()

    def files(self):
        return {str(path.relative_to(self.work)): path.read_bytes() for path in self.work.rglob("*") if path.is_file()}

    def restore(self, files):
        shutil.rmtree(self.work)
        for name, content in files.items():
            path = self.work / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(content)


class Scene:
    """One command. `prepare` makes what it needs; `is_done` tells from the world whether it did its work."""

    def __init__(self, name, words, prepare=None, is_done=None, is_live=False, output=None, is_paced=False):
        self.name = name
        self.words = words
        self.prepare = prepare or (lambda world: None)
        self.is_done = is_done
        self.is_live = is_live
        self.output = output
        # What it prints depends on time.
        self.is_paced = is_paced


def config_value(world):
    return world.tool("config", "get", "device", "inputs/channel1/filter").stdout.decode().strip()


def with_device(world):
    shutil.copytree(world.parts.examples / "device", world.work / "device")
    for path in world.work.rglob("*"):
        path.chmod(0o755 if path.is_dir() else 0o644)


def with_points(world):
    with_device(world)
    table = world.tool("config", "table", "device", "inputs/calibration/table", "--csv").stdout
    (world.work / "points.csv").write_bytes(table)


def with_folder(world):
    (world.work / "folder").mkdir()
    leaf = {"type": "double", "displayPosition": 1, "offsetSharedMemory": 0, "sizeValue": 8,
            "relativeOffsetMetadata": 8, "sizeMetadata": 4}  # fmt: skip
    for name in ("first", "second"):
        text = json.dumps({"type": "treenode", "keyProcessDataMemory": "", "sizeOfSharedMemory": 0,
                           "doubleBuffer": True, "value": {"value": leaf}})  # fmt: skip
        (world.work / "folder" / f"{name}.process.json").write_text(text)


def with_values(world):
    (world.work / "values.json").write_text('{"level": 2.5, "count": 8}')


def with_snapshot(world):
    world.hold()
    world.tool("snapshot", world.plant, "-o", "kept.json")


def with_recording(world):
    world.hold()
    world.tool("record", world.plant, "-o", "kept.rec", "--for", "100ms")
    world.end_holder()


def with_part(world):
    (world.work / "part.process.json").write_text(
        '{"type": "treenode", "sizeOfSharedMemory": 12, "doubleBuffer": true, "keyProcessDataMemory": "", "value": {"speed": {"type": "double", "displayPosition": 1, "offsetSharedMemory": 0,'
        ' "sizeValue": 8, "relativeOffsetMetadata": 8, "sizeMetadata": 4}}}'
    )


def has_merged(world):
    return "speed" in world.plant.read_text()


SCENES = [
    Scene("info", ["info", "plant.process.json"]),
    Scene("validate", ["validate", "."]),
    Scene("schema", ["schema", "process"]),
    Scene("layout", ["layout", "plant.process.json", "--svg", "map.svg"], output="map.svg"),
    Scene("gen", ["gen", "cpp", "plant.process.json", "-o", "plant.hpp"], output="plant.hpp"),
    Scene("diff", ["diff", "plant.process.json", "plant.process.json"]),
    Scene("regions", ["regions"], is_live=True, is_paced=True),
    Scene("get", ["get", "plant.process.json"], is_live=True),
    Scene("explain", ["explain", "plant.process.json", "level"], is_live=True, is_paced=True),
    Scene("doctor", ["doctor", "plant.process.json"], is_live=True, is_paced=True),
    Scene("wait", ["wait", "plant.process.json"], is_live=True),
    Scene("watch", ["watch", "--count", "1", "plant.process.json"], is_live=True, is_paced=True),
    Scene("expect", ["expect", "plant.process.json", "level > 1 and valid"], is_live=True),
    Scene("stat", ["stat", "--for", "50ms", "plant.process.json"], is_live=True, is_paced=True),
    Scene("trend", ["trend", "--for", "50ms", "plant.process.json", "level"], is_live=True, is_paced=True),
    Scene("set", ["set", "plant.process.json", "level", "2.5", "count", "8"], is_live=True,
          is_done=lambda world: world.values() == ["2.5", "8"]),
    Scene("apply", ["apply", "plant.process.json", "values.json"], with_values, is_live=True,
          is_done=lambda world: world.values() == ["2.5", "8"]),
    Scene("snapshot", ["snapshot", "plant.process.json", "-o", "good.json"], is_live=True,
          is_done=lambda world: world.tool("compare", "plant.process.json", "good.json").returncode == 0,
          output="good.json", is_paced=True),
    Scene("compare", ["compare", "plant.process.json", "kept.json"], with_snapshot, is_live=True),
    Scene("record", ["record", "plant.process.json", "-o", "out.rec", "--for", "50ms"], is_live=True,
          is_done=lambda world: world.tool("export", "out.rec", "--csv").returncode == 0,
          output="out.rec", is_paced=True),
    Scene("export", ["export", "kept.rec", "--csv"], with_recording),
    Scene("replay", ["replay", "kept.rec"], with_recording, is_paced=True),
    Scene("sim", ["sim", "plant.process.json", "--for", "50ms"], is_paced=True),
    Scene("rm", ["rm", "tesselFailingNone"]),
    Scene("build", ["build", "folder"], with_folder, is_paced=True,
          is_done=lambda world: world.tool("build", "--check", "folder").returncode == 0),
    Scene("merge", ["merge", "plant.process.json", "part.process.json", "pump"], with_part, is_done=has_merged),
    Scene("config get", ["config", "get", "device", "inputs/channel1/filter"], with_device),
    Scene("config show", ["config", "show", "device"], with_device),
    Scene("config set", ["config", "set", "device", "inputs/channel1/filter", "0.75"], with_device,
          is_done=lambda world: config_value(world) == "0.75", is_paced=True),
    Scene("config import", ["config", "table", "device", "inputs/calibration/table", "--import", "points.csv"],
          with_points, is_paced=True),
]  # fmt: skip


class Run:
    """One run of a scene's command, from the same files each time."""

    def __init__(self, world, scene, files, **environment):
        world.restore(files)
        if scene.is_live:
            world.hold()
            world.reset()
        begin = time.monotonic()
        self.result = world.tool(*scene.words, LD_PRELOAD=world.parts.preload, **environment)
        self.seconds = time.monotonic() - begin
        self.code = self.result.returncode
        self.output = self.result.stdout
        self.error = self.result.stderr.decode()
        self.files = world.files()
        self.is_done = scene.is_done(world) if scene.is_done else None


def is_json(content):
    with contextlib.suppress(ValueError):
        json.loads(content)
        return True
    return False


def lost_files(before, run):
    """Files of before that are gone or of which only a piece is left."""
    for name, content in before.items():
        after = run.files.get(name)
        if after is None:
            yield f"{name} is gone"
        elif after != content and name.endswith(".json") and not is_json(after):
            yield f"{name} is cut off"


def is_end_for_want_of_memory(run, name):
    """The toolkit ends a program that gets no memory. Its shared pointers do not survive it where they are made."""
    if run.code == INTERNAL:
        return run.error.endswith("tessel: there is no memory left; end other programs, or raise the limit (ulimit -v)\n")
    if run.code == -signal.SIGABRT:
        return "bad_alloc" in run.error
    return run.code == -signal.SIGSEGV and "QSharedPointer" in name()


def faults(scene, before, reference, run, call, name=lambda: ""):
    """What must not be, in words. `name`: gives the function that was refused."""
    if call == "new" and is_end_for_want_of_memory(run, name):
        yield from lost_files(before, run)
        return
    if run.code < 0:
        yield f"ended by {signal.Signals(-run.code).name}"
    elif run.code >= INTERNAL:
        yield f"exit code {run.code}"
    if re.search(r"Sanitizer", run.error):
        yield "found by a sanitizer"
    # With 1 a command answers, and its words are on standard output.
    has_said = bool(run.error.strip()) or run.code == 1 and run.output != reference.output
    # A message that cannot be written is not read.
    if run.code > 0 and reference.code != run.code and not has_said and call != "write":
        yield f"exit code {run.code} without a word"
    if run.code == 0 and not has_said:
        if not scene.is_paced and run.output != reference.output:
            yield "another output without a word"
        if scene.is_done and not run.is_done:
            yield "not done without a word"
    if run.code == 0 and scene.output and scene.output not in run.files:
        yield f"no {scene.output}"
    yield from lost_files(before, run)
    for name in sorted(run.files.keys() - reference.files.keys()):
        yield f"{name} is left"


class Player:
    def __init__(self, parts, calls):
        self.parts = parts
        self.calls = calls
        self.played = {}
        self.faults = []

    def play(self, scene):
        with World(self.parts) as world:
            scene.prepare(world)
            before = world.files()
            notes = world.folder / "notes"
            reference = Run(world, scene, before, FAILING_NOTES=str(notes))
            told = [fault for fault in faults(scene, before, reference, reference, "")]
            if told or reference.is_done is False or (reference.code != 0 and scene.name != "rm"):
                raise SystemExit(f"{scene.name}: undisturbed: {reference.code} {told} {reference.error}")
            places = [line for line in notes.read_text().splitlines() if not self.calls or line.split()[0] in self.calls]
            for number, place in enumerate(places, 1):
                self._progress(scene, number, len(places))
                self._refuse(world, scene, before, reference, place)
        self._progress(scene, 0, 0)

    def _refuse(self, world, scene, before, reference, place):
        call = place.split()[0]
        self.played.setdefault(call, set()).add(place)
        run = Run(world, scene, before, FAILING_PLACE=place, FAILING_ERROR=str(ERRORS[call]))
        name = functools.partial(self.parts.name_of, place)
        for fault in faults(scene, before, reference, run, call, name):
            self.faults.append((scene.name, name(), fault, run.error.strip().replace("\n", " | ")))

    @staticmethod
    def _progress(scene, number, count):
        if sys.stderr.isatty():
            text = f"{scene.name}: {number} of {count}" if count else ""
            print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


class Parts:
    """The programs that a build has made."""

    def __init__(self, build):
        self.tool = str(build / "tools/tessel/tessel")
        self.preload = str(build / "tests/failures/libfailingcalls.so")
        self.examples = pathlib.Path(__file__).resolve().parents[2] / "examples"
        self.build = build

    def name_of(self, place):
        """The call and the functions that it stands in, with file and line of the outermost."""
        call, where = place.split()
        object_name, offset = where.rsplit("+", 1)
        path = self.tool if object_name == "tessel" else next(self.build.rglob(object_name))
        # The call is right before the address to which it returns.
        words = ["addr2line", "-Cfi", "-e", str(path), hex(int(offset, 16) - 1)]
        lines = subprocess.run(words, capture_output=True, text=True, check=True).stdout.splitlines()
        functions = [function.split("(")[0] for function in lines[::2]]
        return f"{call} in {' in '.join(functions)} ({re.sub(r'.*/(?=src/|tools/)', '', lines[-1])})"


def main():
    parser = argparse.ArgumentParser(prog="script/checks/failures", add_help=False)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--scene", action="append", default=[])
    parser.add_argument("--call", action="append", default=[])
    arguments = parser.parse_args()
    player = Player(Parts(arguments.build.resolve()), arguments.call)
    names = [scene.name for scene in SCENES]
    for name in arguments.scene:
        if name not in names:
            sys.exit(f"script/checks/failures: no scene '{name}'; there are: {', '.join(names)}")
    begin = time.monotonic()
    for scene in SCENES:
        if not arguments.scene or scene.name in arguments.scene:
            player.play(scene)
    for scene, place, fault, error in player.faults:
        print(f"{scene}: refused: {place}: {fault}{': ' if error else ''}{error}")
    counts = ", ".join(f"{call} {len(places)}" for call, places in sorted(player.played.items()))
    total = sum(map(len, player.played.values()))
    for call in sorted(NEEDED - player.played.keys() if not arguments.scene else ()):
        print(f"{call}: called from nowhere; is the library that refuses it in front of the system's?")
        player.faults.append(call)
    print(f"{total} places refused once in each scene that comes there ({counts}), "
          f"{len(player.faults)} faults, {time.monotonic() - begin:.0f} s")  # fmt: skip
    return 1 if player.faults else 0


if __name__ == "__main__":
    sys.exit(main())
