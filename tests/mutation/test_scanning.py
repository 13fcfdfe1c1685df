"""Which files script/mutate reads to find the places of a room."""

import concurrent.futures
import json
import os
import sys
import tempfile
import time
import unittest

sys.path.insert(0, f"{os.path.dirname(os.path.abspath(__file__))}/../../script/mutation")

import mutate  # noqa: E402
import scanning  # noqa: E402
import testing  # noqa: E402

FILES = {
    "src/Lonely/Lonely.h": "#pragma once\ninline int twice(int value) { return value * 2; }\n",
    "src/Room/Between_p.h": '#pragma once\n#include "Lonely/Lonely.h"\n#include "Room/Circle_p.h"\n',
    "src/Room/Circle_p.h": '#pragma once\n#include "Room/Between_p.h"\n',
    "src/Room/First.cpp": "int first() { return 3; }\n",
    "src/Room/Second.cpp": '#include "Room/Between_p.h"\nint second() { return twice(4); }\n',
    "src/Room/Third.cpp": '#include "Room/Between_p.h"\nint third() { return twice(5); }\n',
    "src/Other/Other.cpp": '#include "Room/Between_p.h"\nint other() { return twice(6); }\n',
}


class Scanning(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = os.path.realpath(folder.name)
        for name, text in FILES.items():
            os.makedirs(os.path.dirname(f"{self.root}/{name}"), exist_ok=True)
            with open(f"{self.root}/{name}", "w", encoding="utf-8") as file:
                file.write(text)
        commands = [
            {"directory": self.root, "file": f"{self.root}/{name}", "command": f"c++ -I{self.root}/src -c {name}"}
            for name in FILES
            if name.endswith(".cpp")
        ]
        with open(f"{self.root}/compile_commands.json", "w", encoding="utf-8") as file:
            json.dump(commands, file)
        self.told = []

    def scan(self, *rooms):
        os.makedirs(f"{self.root}/work", exist_ok=True)
        found = scanning.scan(self.root, self.root, f"{self.root}/work", rooms, 1, self.told.append)
        return [(place.file, place.change) for place in found]

    def test_a_room_of_headers_alone_is_read_in_one_source_that_includes_it(self):
        changes = self.scan("Lonely")

        self.assertIn(("src/Lonely/Lonely.h", "value * 2 -> value / 2"), changes)
        self.assertEqual({file for file, _ in changes}, {"src/Lonely/Lonely.h"})
        self.assertEqual(len(self.told), 1, self.told)

    def test_what_a_room_includes_belongs_to_its_own_room(self):
        self.assertEqual({f for f, _ in self.scan("Other")}, {"src/Other/Other.cpp"})
        self.assertEqual(len(self.told), 1, self.told)

    def test_every_source_of_a_room_is_read_once(self):
        files = {file for file, _ in self.scan("Room")}

        self.assertEqual(files, {f"src/Room/{name}.cpp" for name in ("First", "Second", "Third")})
        self.assertEqual(len(self.told), 3, self.told)

    def test_a_header_that_only_other_rooms_include_is_read_there(self):
        os.remove(f"{self.root}/src/Room/Second.cpp")
        with open(f"{self.root}/src/Room/Third.cpp", "w", encoding="utf-8") as file:
            file.write("int third() { return 5; }\n")
        with open(f"{self.root}/src/Room/Circle_p.h", "a", encoding="utf-8") as file:
            file.write("inline int thrice(int value) { return value * 3; }\n")
        with open(f"{self.root}/compile_commands.json", encoding="utf-8") as file:
            commands = [c for c in json.load(file) if not c["file"].endswith("Second.cpp")]
        with open(f"{self.root}/compile_commands.json", "w", encoding="utf-8") as file:
            json.dump(commands, file)

        changes = self.scan("Room")

        self.assertIn(("src/Room/Circle_p.h", "value * 3 -> value / 3"), changes)
        self.assertNotIn("src/Other/Other.cpp", {file for file, _ in changes})

    def test_an_interrupted_search_reads_no_further_file(self):
        names = [f"src/Many/Part{number}.cpp" for number in range(20)]
        os.makedirs(f"{self.root}/src/Many")
        commands = []
        for name in names:
            with open(f"{self.root}/{name}", "w", encoding="utf-8") as file:
                file.write("int part() { return 3; }\n")
            command = f"c++ -I{self.root}/src -c {name}"
            commands.append({"directory": self.root, "file": f"{self.root}/{name}", "command": command})
        with open(f"{self.root}/compile_commands.json", "w", encoding="utf-8") as file:
            json.dump(commands, file)
        os.makedirs(f"{self.root}/read")
        self.told = Interrupting()
        find_places = scanning.places.find_places
        self.addCleanup(setattr, scanning.places, "find_places", find_places)

        def noted(path, arguments, wanted):
            """What the process of the search does: behind the first file it waits until the search ends."""
            while os.listdir(f"{self.root}/read") and not os.path.exists(f"{self.root}/ends"):
                time.sleep(0.01)
            with open(f"{self.root}/read/{os.path.basename(path)}", "w", encoding="utf-8"):
                return find_places(path, arguments, wanted)

        shutdown = concurrent.futures.ProcessPoolExecutor.shutdown
        self.addCleanup(setattr, concurrent.futures.ProcessPoolExecutor, "shutdown", shutdown)

        def told_shutdown(pool, wait=True, **more):
            if not wait:
                shutdown(pool, wait=False, **more)
            with open(f"{self.root}/ends", "w", encoding="utf-8"):
                pass
            shutdown(pool, wait=wait, **more)

        concurrent.futures.ProcessPoolExecutor.shutdown = told_shutdown
        scanning.places.find_places = noted

        with self.assertRaises(KeyboardInterrupt):
            self.scan("Many")

        # The one that was told of, and what the process had been given before.
        self.assertLess(len(os.listdir(f"{self.root}/read")), 10)


class Programs(unittest.TestCase):
    def test_a_program_is_known_by_what_it_is_built_into_and_not_by_its_precompiled_header(self):
        with tempfile.TemporaryDirectory() as root:
            sources = {
                "tests/tst_Includes.cpp": '#include "Room/Changed.h"\n',
                "tests/tst_Compiles.cpp": "\n",
                "tests/tst_Neither.cpp": '#include "Room/Other.h"\n',
                "src/Room/Changed.cpp": "\n",
            }
            for name, text in sources.items():
                os.makedirs(os.path.dirname(f"{root}/{name}"), exist_ok=True)
                with open(f"{root}/{name}", "w", encoding="utf-8") as file:
                    file.write(text)

            def command(file, output):
                words = f"c++ -include {root}/build/tests/CMakeFiles/Support.dir/cmake_pch.hxx -o {output} -c {file}"
                return {"directory": f"{root}/build", "file": f"{root}/{file}", "command": words}

            commands = [
                command("tests/tst_Includes.cpp", "tests/CMakeFiles/tst_Includes.dir/tst_Includes.cpp.o"),
                command("tests/tst_Compiles.cpp", "tests/CMakeFiles/tst_Compiles.dir/tst_Compiles.cpp.o"),
                command("src/Room/Changed.cpp", "tests/CMakeFiles/tst_Compiles.dir/__/src/Room/Changed.cpp.o"),
                command("tests/tst_Neither.cpp", "tests/CMakeFiles/tst_Neither.dir/tst_Neither.cpp.o"),
                command("src/Room/Changed.cpp", "src/CMakeFiles/Library.dir/Room/Changed.cpp.o"),
            ]
            changed = {"src/Room/Changed.h", "src/Room/Changed.cpp"}

            names = testing.programs_with_sources(commands, f"{root}/build", root, changed)

        self.assertEqual(names, {"tst_Includes", "tst_Compiles"})


class BusyRunner:
    """A test takes so many seconds without a change, and so many with it."""

    def __init__(self, usual, changed):
        self.seconds = {"": usual, "7": changed}

    def run(self, _, chosen, limit):
        seconds = self.seconds[chosen]
        return ("timeout", limit) if seconds > limit else ("passed", seconds)


class Judging(unittest.TestCase):
    def result_of(self, usual, changed):
        test = testing.Test("tst_Slow", [], "/tests/Room", {})
        test.seconds = 1.0  # as it was seen on a quiet machine
        test.reached = {7}
        run = mutate.Run.__new__(mutate.Run)
        run.tests, run.kills, run.unsteady = [test], {}, set()
        run.runner, run.listing = BusyRunner(usual, changed), None
        place = type("Place", (), {"number": 7, "file": "src/Room/Room.cpp"})
        return run.judge(place)[0]

    def test_a_change_that_takes_long_is_noticed(self):
        self.assertEqual(self.result_of(1.0, 60.0), "timeout")

    def test_a_machine_that_became_busy_notices_no_change(self):
        self.assertEqual(self.result_of(20.0, 20.0), "survived")

    def test_a_change_that_takes_long_is_noticed_on_a_busy_machine_as_well(self):
        self.assertEqual(self.result_of(20.0, 10000.0), "timeout")


class Interrupting:
    """In place of what takes the progress: Ctrl-C at the first file."""

    def append(self, _):
        raise KeyboardInterrupt


if __name__ == "__main__":
    unittest.main()
