"""All places of a project, and which of them a run takes."""

import concurrent.futures
import hashlib
import json
import multiprocessing
import os
import pickle
import re
import shlex
import signal

import places

KINDS = (
    "condition", "comparison", "call", "swap", "constant", "fence", "order", "arithmetic", "logic", "return",
    "assignment",
)  # fmt: skip

claims = None


class Failure(Exception):
    """What cannot go on, in a line for the user."""


def room_of(file):
    """src/Companion/Exchange/WriteLease.cpp stands in Companion/Exchange."""
    return os.path.dirname(file).partition("/")[2] or "."


def compiled_sources(build, root):
    """The arguments with which the build compiles each file below src/."""
    try:
        with open(f"{build}/compile_commands.json", encoding="utf-8") as file:
            commands = json.load(file)
    except OSError as error:
        raise Failure(f"{build} is no configured build ({error.strerror}); build it first") from error
    sources = {}
    for command in commands:
        if command["file"].startswith(f"{root}/src/") and command["file"] not in sources:
            words = shlex.split(command["command"])
            sources[command["file"]] = compiler_arguments(words)
    return sources, commands


def compiler_arguments(words):
    arguments = []
    for i, word in enumerate(words):
        if word.startswith(("-I", "-D", "-std=")):
            arguments.append(word)
        elif word == "-isystem":
            arguments += [word, words[i + 1]]
    return arguments


def _start(shared):
    global claims
    claims = shared
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # which is for the one that started this


def _scan(path, arguments, wanted):
    # A header belongs to the first that includes it.
    found, faults = places.find_places(path, arguments, Claimed(path, wanted))
    return path, found, faults


class Claimed(set):
    """The files of a translation unit that no other has taken."""

    def __init__(self, path, wanted):
        super().__init__(wanted)
        self.path = path

    def __and__(self, included):
        return {f for f in set(self) & included if f == self.path or claims.setdefault(f, self.path) == self.path}


def rooms_of(root):
    """The folders of src/ that hold sources."""
    found = set()
    for folder, _, names in os.walk(f"{root}/src"):
        if any(name.endswith((".cpp", ".h")) for name in names):
            found.add(os.path.relpath(folder, f"{root}/src"))
    return found


def _including(headers, units, compiled, folder):
    """Of the sources elsewhere, one for each header that none of @p units includes."""
    known = {}
    held = set().union(*(_included(path, folder, known) for path in units))
    more = {}
    for path in sorted(set(compiled) - set(units)):
        missing = headers - held
        if not missing:
            break
        if missing & _included(path, folder, known):
            more[path] = compiled[path]
            held |= _included(path, folder, known)
    return more


def _included(path, folder, known):
    """The files below @p folder that the file includes, directly or by another one."""
    if path not in known:
        known[path] = set()  # for those that include each other
        with open(path, "rb") as file:
            names = re.findall(rb'^#include "([^"]+)"', file.read(), re.M)
        direct = {f"{folder}/{name.decode()}" for name in names}
        direct = {name for name in direct if os.path.isfile(name)}
        known[path] = direct.union(*(_included(name, folder, known) for name in direct))
    return known[path]


def scan(root, build, work, rooms, jobs, tell):
    """All places of the rooms, in the order of files and bytes, known by what they are and not by their line."""
    compiled, _ = compiled_sources(build, root)
    folders = {f"{root}/src/{room}" for room in rooms}
    units = {path: words for path, words in compiled.items() if os.path.dirname(path) in folders}
    headers = {f"{folder}/{name}" for folder in folders for name in os.listdir(folder) if name.endswith(".h")}
    wanted = headers | set(units)
    units.update(_including(headers, units, compiled, f"{root}/src"))
    sources = {}
    for name in wanted:
        with open(name, "rb") as file:
            sources[name] = file.read()
    digest = _digest(sources)
    kept = f"{work}/places.pickle"
    try:
        with open(kept, "rb") as file:
            known, found = pickle.load(file)
        if known == digest:
            return found
    except (OSError, EOFError, pickle.UnpicklingError, AttributeError, ImportError):
        pass
    found = []
    context = multiprocessing.get_context("fork")
    with context.Manager() as manager:
        shared = manager.dict()
        with concurrent.futures.ProcessPoolExecutor(jobs, context, _start, (shared,)) as pool:
            runs = [
                pool.submit(_scan, path, words, wanted & (headers | {path}))
                for path, words in sorted(units.items())
            ]
            try:
                for done, run in enumerate(concurrent.futures.as_completed(runs), 1):
                    path, by_file, faults = run.result()
                    if faults:
                        raise Failure(f"clang does not understand {path}: {faults[0]}")
                    found += [place for part in by_file.values() for place in part]
                    tell(f"looking for places: {done} of {len(runs)} files, {len(found)} places")
            except BaseException:
                pool.shutdown(wait=False, cancel_futures=True)  # or all other files would be read first
                raise
    found.sort(key=lambda p: (p.file, p.start, -p.end, p.kind, p.text))
    for number, place in enumerate(found, 1):
        place.number = number  # the same in every choice, so that little is built anew for another one
    places.identify(found, root, sources)
    with open(kept, "wb") as file:
        pickle.dump((digest, found), file)
    return found


def _digest(sources):
    digest = hashlib.sha1()
    with open(places.__file__, "rb") as file:
        digest.update(file.read())
    for name in sorted(sources):
        digest.update(name.encode() + b"\0" + sources[name] + b"\0")
    return digest.hexdigest()


def choose(found, seed, count, refused):
    """@p count places, as many of each room as the others as far as it has them, and in a room of each kind."""
    by_room = {}
    for place in found:
        if place.id not in refused:
            by_room.setdefault(room_of(place.file), []).append(place)
    queues = {room: _in_turn(part, seed) for room, part in sorted(by_room.items())}
    chosen = []
    while queues and (count == 0 or len(chosen) < count):
        for room in list(queues):
            if not queues[room]:
                del queues[room]
            elif count == 0 or len(chosen) < count:
                chosen.append(queues[room].pop(0))
    return chosen


def _in_turn(part, seed):
    """By a number drawn for each, one kind after the other; what is added elsewhere moves nothing."""
    by_kind = {kind: [] for kind in KINDS}
    for place in sorted(part, key=lambda p: hashlib.sha1(f"{seed} {p.id}".encode()).digest()):
        by_kind[place.kind].append(place)
    result = []
    while any(by_kind.values()):
        for kind in KINDS:
            if by_kind[kind]:
                result.append(by_kind[kind].pop(0))
    return result
