"""The examples in the tool's help are calls that work.

The environment says where the tool is: TESSEL_TOOL.
"""

import json
import os
import pathlib
import pty
import re
import shutil
import signal
import subprocess
import tempfile
import unittest

import terminal
from sources import PROJECT
from test_manual import help_of, subcommands

UNIQUE = f"tesselHelp{os.getpid()}"


def examples_of(subcommand):
    """The calls alone: what they are for stands behind them."""
    text = help_of(subcommand).partition("\nExamples:\n")[2]
    return [re.split(r"   +|  (?=[a-z])", line[2:])[0] for line in text.splitlines()
            if line.startswith("  tessel ")]


def leaf(offset):
    return {
        "type": "double", "displayPosition": 1, "offsetSharedMemory": offset, "sizeValue": 8,
        "relativeOffsetMetadata": 8, "sizeMetadata": 4,
    }


def description(key, node, names):
    return {
        "type": "treenode", "keyProcessDataMemory": key, "sizeOfSharedMemory": 12 * len(names),
        "doubleBuffer": True,
        "displayPosition": 1,
        "value": {node: {"type": "treenode", "value": {
            name: leaf(12 * index) for index, name in enumerate(names)}}},
    }


class Help(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)

    def lay_out(self):
        """The files that the examples speak of, as new."""
        shutil.copytree(PROJECT / "examples/device", self.folder / "device", dirs_exist_ok=True)
        host = (PROJECT / "examples/host-monitor/host.process.json").read_text(encoding="utf-8")
        key = json.loads(host)["keyProcessDataMemory"]
        (self.folder / "host.process.json").write_text(
            host.replace(key, f"{UNIQUE}Host"), encoding="utf-8"
        )
        for name in ("plant", "pump"):
            text = json.dumps(description(f"{UNIQUE}{name}", "pump", ["speed", "level"]))
            (self.folder / f"{name}.process.json").write_text(text, encoding="utf-8")
        shutil.copytree(self.folder / "device", self.folder / "device-new", dirs_exist_ok=True)
        shutil.copy(self.folder / "plant.process.json", self.folder / "plant-new.process.json")
        values = {"pump/speed": 12.5, "pump/level": {"state": "timeout"}}
        (self.folder / "pump.json").write_text(json.dumps(values), encoding="utf-8")
        (self.folder / "points.csv").write_text("4,0,used\n20,100,used\n", encoding="utf-8")

    def start(self, command):
        """The command while it runs; ended with the test if it still does."""
        tool = pathlib.Path(os.environ["TESSEL_TOOL"]).parent
        process = subprocess.Popen(
            ["bash", "-c", f"exec {command}"], cwd=self.folder, encoding="utf-8",
            env=terminal.environment(PATH=f"{tool}:{os.environ['PATH']}"),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
        )
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait, timeout=60)
        self.addCleanup(process.terminate)
        return process

    def check_on_terminal(self, command):
        """What fills a terminal and is ended by a key."""
        tool = pathlib.Path(os.environ["TESSEL_TOOL"]).parent
        child, file = pty.fork()
        if child == 0:
            os.chdir(self.folder)
            os.execvpe("bash", ["bash", "-c", f"exec {command}"], terminal.environment(
                PATH=f"{tool}:{os.environ['PATH']}", TERM="xterm"))
        shown = b""
        try:
            while b"live" not in shown:
                shown += os.read(file, 65536)
            os.write(file, b"q")
            while os.read(file, 65536):
                pass
        except OSError:
            pass  # Its other side is closed.
        self.assertIn(b"live", shown)
        os.close(file)
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 0)

    def finish(self, process):
        process.send_signal(signal.SIGINT)
        self.check_end(process)

    def check_end(self, process, codes=(0,)):
        """Notes are no errors."""
        _, errors = process.communicate(timeout=60)
        errors = re.sub(r"^tessel: note: .*\n", "", errors, flags=re.M)
        self.assertEqual(errors, "")
        self.assertIn(process.returncode, codes)

    def hold(self, path):
        holder = self.start(f"tessel hold {path}")
        self.assertIn("holding", holder.stdout.readline())
        return holder

    def leave_region(self):
        """The key of a region whose creator was killed; it is removed with the test."""
        holder = self.hold("plant.process.json")
        holder.kill()
        holder.wait(timeout=60)
        key = f"{UNIQUE}plant"
        self.addCleanup(
            subprocess.run, [os.environ["TESSEL_TOOL"], "rm", "--force", key], capture_output=True,
            check=False,
        )
        return key

    def check(self, command):
        self.lay_out()
        # What runs until it is ended, or beside other work, is ended when it has said something.
        lasts = (
            (command.startswith("tessel hold") and "--dry-run" not in command)
            or (command.startswith("tessel watch") and "--count" not in command)
            or (command.startswith("tessel sim") and not re.search("--sets|--dry-run", command))
        )
        # Sixty seconds are too long here; the option itself is what is tried.
        command = command.replace("--count 60", "--count 2 --interval 1").removesuffix(" &")
        command = command.replace("--sets 60", "--sets 2")
        command = re.sub(r"^tessel stat (?!--for)", "tessel stat --for 1ms ", command)
        command = re.sub(r"^tessel trend (--for \w+ )?", "tessel trend --for 1ms ", command)
        holders = []
        if command.split()[1] in ("get", "set", "apply", "watch", "wait", "explain", "doctor",
                                  "stat", "trend", "expect", "snapshot", "compare", "record"):
            holders = [self.hold("host.process.json"), self.hold("plant.process.json")]
        if command.startswith("tessel rm "):
            command = command.replace("tesselTank", self.leave_region())
        if command.startswith(("tessel replay ", "tessel export ")):
            holder = self.hold("plant.process.json")
            self.check_end(self.start(
                "tessel record --force --sets 1 plant.process.json -o plant.rec"))
            if "--into" in command:
                holders = [holder]
            else:
                self.finish(holder)
        if command.startswith("tessel compare "):
            for name in ("good", "later"):
                self.check_end(self.start(f"tessel snapshot plant.process.json -o {name}.json"))
        if "--tui" in command:
            self.check_on_terminal(command)
            for holder in holders:
                self.finish(holder)
            return
        process = self.start(command)
        if lasts:
            self.assertNotEqual(process.stdout.readline(), "")
            self.finish(process)
        else:
            # Others may have left something on the machine.
            self.check_end(process, (0, 1) if command.startswith("tessel doctor") else (0,))
        for holder in holders:
            self.finish(holder)

    def test_examples_work(self):
        checked = 0
        for name in subcommands():
            for command in examples_of(name):
                with self.subTest(command=command):
                    self.check(command)
                    checked += 1
        self.assertGreater(checked, 20)

    def test_every_subcommand_has_one(self):
        for name in subcommands():
            self.assertTrue(examples_of(name), name)


if __name__ == "__main__":
    unittest.main()
