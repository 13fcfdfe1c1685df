"""What the moving picture of README.md tells. Called by script/record: BUILD_FOLDER PICTURE."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

from picture import Pane, Recording
from terminal import Terminal

PROJECT = pathlib.Path(__file__).resolve().parents[2]
TITLE = "One process publishes what it measures, another one watches; values, error states, a crash"
COLUMNS = 90
KEYS_AT_ONCE = 4
# Seconds for which something is shown.
TYPED = 0.07
SHOWN = 1.0
SET = 1.0
READ = 2.5
# In the shown files, and here: nobody else on the machine may have the regions.
DESCRIPTIONS = {
    "host": ("examples/host-monitor/host.process.json", "tesselHostMonitor"),
    "tank": ("examples/publish/tank.process.json", "tesselTank"),
}


class Stage:
    """Two terminals, the one above reads, and the recording of both."""

    def __init__(self, folder, tools):
        self._folder = folder
        self._environment = {
            "PATH": f"{tools}:{os.environ['PATH']}", "TERM": "xterm-256color", "PS1": "$ ",
            "LC_ALL": "C.UTF-8", "HOME": str(folder),
        }
        panes = [Pane("A terminal that reads", COLUMNS, 8),
                 Pane("A terminal that publishes", COLUMNS, 8)]
        self._lines = [pane.lines for pane in panes]
        self.recording = Recording(TITLE, panes)
        self._terminals = []

    def open(self):
        self._terminals = [
            Terminal(COLUMNS, lines, self._folder, self._environment) for lines in self._lines
        ]
        return self._terminals

    def close(self):
        for terminal in self._terminals:
            terminal.close()
        self._terminals = []

    def show(self, active, seconds):
        screens = [terminal.screen for terminal in self._terminals]
        self.recording.add(screens, active.screen, seconds)

    def type(self, terminal, command):
        """As if somebody typed it, without the key that sends it."""
        start = terminal.text()
        for index in range(0, len(command), KEYS_AT_ONCE):
            terminal.type(command[index : index + KEYS_AT_ONCE])
            typed = command[: index + KEYS_AT_ONCE].rstrip()
            terminal.wait_for(lambda: terminal.text().endswith(f"{start} {typed}"))
            self.show(terminal, TYPED)

    def run(self, terminal, command, condition=None, seconds=SHOWN):
        """Types the command, sends it and waits for the condition, or for the next prompt."""
        self.type(terminal, command)
        terminal.type("\n")
        terminal.wait_for(condition or terminal.is_at_prompt)
        self.show(terminal, seconds)

    def wait(self, terminal, active, text, seconds=SHOWN):
        terminal.wait_for(lambda: text in terminal.text())
        self.show(active, seconds)


def tell_of_the_host(stage):
    """A publisher measures this machine, a reader follows it and notices the end."""
    reader, publisher = stage.open()
    stage.show(publisher, SHOWN)
    stage.run(publisher, "host-monitor --interval 500 host.process.json",
              lambda: "publishing" in publisher.text())
    stage.run(
        reader, "tessel watch host.process.json cpu/usage cpu/user load/average1 thermal/temperature",
        lambda: "\nthermal/temperature" in reader.text(), SET,
    )
    for _ in range(5):
        former = reader.text()
        reader.wait_for(lambda: reader.text() != former)
        stage.show(reader, SET)
    publisher.type("\x03")
    publisher.wait_for(publisher.is_at_prompt)
    stage.show(publisher, SET)
    reader.wait_for(reader.is_at_prompt)
    stage.show(publisher, READ)
    stage.close()


def tell_of_the_tank(stage, wait_for_region):
    """Values from a shell, an error state, and a creator that is killed."""
    reader, publisher = stage.open()
    stage.run(publisher, "tessel hold tank.process.json >/dev/null &")
    wait_for_region()
    stage.run(reader, "tessel watch --interval 200 tank.process.json",
              lambda: reader.text().count("no-input") == 2)
    stage.run(publisher, "tessel set tank.process.json tank/level 1.25")
    stage.wait(reader, publisher, " 1.25 ")
    stage.run(publisher, "tessel set tank.process.json tank/temperature --error sensor-breakage")
    stage.wait(reader, publisher, "sensor-breakage", READ)
    stage.run(publisher, "kill -9 %1  # the process that made the memory dies", None, READ)
    stage.run(publisher, "tessel set tank.process.json tank/level 1.5", None, SET)
    stage.wait(reader, publisher, " 1.5 ", READ + SHOWN)
    reader.type("\x03")
    reader.wait_for(reader.is_at_prompt)
    stage.close()


def copy_descriptions(folder):
    for name, (path, key) in DESCRIPTIONS.items():
        text = (PROJECT / path).read_text(encoding="utf-8")
        own_key = f"{name}{os.getpid():07}"
        (folder / f"{name}.process.json").write_text(text.replace(key, own_key), encoding="utf-8")


def wait_until_there(tessel, file):
    end = time.monotonic() + 30
    while subprocess.run([tessel, "get", file], capture_output=True, check=False).returncode != 0:
        if time.monotonic() > end:
            raise TimeoutError(f"nobody made the region of {file}")


def remove_what_was_killed(tessel, file):
    """A creator that ends cleanly takes along what the killed one left."""
    holder = subprocess.Popen([tessel, "hold", file], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL)
    holder.stdout.readline()
    holder.terminate()
    holder.communicate()


def main(build, picture):
    tools = PROJECT / build / "tools/tessel"
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        copy_descriptions(folder)
        tessel = shutil.which("tessel", path=tools)
        tank = folder / "tank.process.json"
        stage = Stage(folder, f"{tools}:{PROJECT / build / 'examples/host-monitor'}")
        try:
            tell_of_the_host(stage)
            tell_of_the_tank(stage, lambda: wait_until_there(tessel, tank))
        finally:
            stage.close()
            remove_what_was_killed(tessel, tank)
    pathlib.Path(picture).write_text(stage.recording.to_svg(), encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
