"""The moving picture of the full screen in the guide. Called by script/record: BUILD_FOLDER PICTURE."""

import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile

from picture import Pane, Recording
from story import PROJECT
from terminal import Terminal

TITLE = "The full screen of tessel watch: a tree of values with states, a trend, and a region that returns"
COLUMNS = 78
LINES = 21
# Seconds for which something is shown.
SET = 0.5
KEY = 1.2
READ = 2.5
LEAVES = {
    "boiler/temperature": "°C", "boiler/pressure": "bar", "pump/speed": "rpm", "pump/flow": "m³/h",
}
FIRST = {"boiler/temperature": 81.5, "boiler/pressure": 2.4, "pump/speed": 1200, "pump/flow": 7.5}
SPEEDS = [1250, 1380, 1460, 1490, 1420, 1300, 1240, 1330, 1410, 1480]


def description():
    root = {"type": "treenode", "value": {}, "doubleBuffer": True,
            "keyProcessDataMemory": f"plant{os.getpid():07}",
            "sizeOfSharedMemory": 12 * len(LEAVES)}
    for index, (url, unit) in enumerate(LEAVES.items()):
        node, leaf = url.split("/")
        nodes = root["value"].setdefault(node, {"type": "treenode", "value": {}})
        nodes["value"][leaf] = {
            "type": "double", "unit": unit, "displayPosition": index + 1, "sizeValue": 8,
            "offsetSharedMemory": 12 * index, "relativeOffsetMetadata": 8, "sizeMetadata": 4,
        }
    return json.dumps(root)


class Plant:
    """A creator that the picture does not show, and what it publishes."""

    def __init__(self, tessel, file):
        self._tessel = tessel
        self._file = file
        self._holder = None

    def open(self):
        self._holder = subprocess.Popen([self._tessel, "hold", self._file],
                                        stdout=subprocess.PIPE)
        self._holder.stdout.readline()

    def close(self):
        if self._holder:
            self._holder.send_signal(signal.SIGTERM)
            self._holder.communicate()
            self._holder = None

    def set(self, *words):
        subprocess.run([self._tessel, "set", self._file, *map(str, words)], check=True,
                       stdout=subprocess.DEVNULL)

    def set_all(self):
        self.set(*[word for pair in FIRST.items() for word in pair])


class Story:
    def __init__(self, terminal, plant):
        self._terminal = terminal
        self._plant = plant
        self.recording = Recording(TITLE, [Pane("A terminal that looks on", COLUMNS, LINES)])

    def show(self, seconds):
        self.recording.add([self._terminal.screen], self._terminal.screen, seconds)

    def wait(self, text, seconds):
        self._terminal.wait_for(lambda: text in self._terminal.text())
        self.show(seconds)

    def wait_until_gone(self, text, seconds):
        self._terminal.wait_for(lambda: text not in self._terminal.text())
        self.show(seconds)

    def press(self, keys, text, seconds=KEY):
        self._terminal.type(keys)
        self.wait(text, seconds)

    def tell(self):
        down = "\x1b[B"
        self._terminal.type("tessel watch --tui plant.process.json")
        self._terminal.wait_for(lambda: "plant.process.json" in self._terminal.text())
        self.show(KEY)
        self.press("\n", "● live", KEY)
        for _ in range(4):
            self._terminal.type(down)
        self.wait("pump/speed, the last 20 s", SET)
        for speed in SPEEDS:
            self._plant.set("pump/speed", speed)
            self.wait(f" {speed} rpm", SET)
        self.press("p", "●* pump/speed")
        self._plant.set("pump/speed", "--error", "sensor-breakage")
        self.wait("✖* pump/speed", READ)
        self._plant.set("boiler/pressure", "--error", "overrange")
        self.wait("overrange", KEY)
        self.press("!", "2 of 4: only not valid", READ)
        self._plant.set("pump/speed", 1310)
        self.wait("1 of 4: only not valid", KEY)
        self.press("!", "? help", SET)
        self._plant.close()
        self.wait("the region has gone", READ)
        self._plant.open()
        self._plant.set_all()
        self._terminal.wait_for(lambda: "● live" in self._terminal.text())
        self.wait(" 1200 rpm", READ)


def main(build, picture):
    tools = PROJECT / build / "tools/tessel"
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        file = folder / "plant.process.json"
        file.write_text(description(), encoding="utf-8")
        plant = Plant(tools / "tessel", file)
        environment = {
            # A terminal of which nothing is asked that the recording does not know.
            "PATH": f"{tools}:{os.environ['PATH']}", "TERM": "linux", "PS1": "$ ",
            "LC_ALL": "C.UTF-8", "HOME": name,
        }
        terminal = None
        try:
            plant.open()
            plant.set_all()
            terminal = Terminal(COLUMNS, LINES, folder, environment)
            story = Story(terminal, plant)
            story.tell()
        finally:
            if terminal:
                terminal.close()
            plant.close()
    pathlib.Path(picture).write_text(story.recording.to_svg(), encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
