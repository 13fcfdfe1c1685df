"""Changes of fences and memory orders, given to the check that compares them with a list."""

import os
import shutil
import subprocess
import sys
import tempfile

import rewriting
from scanning import Failure

KINDS = ("fence", "order")


class Listing:
    """A program that looks at src/ and at a list below docs/ where it is called, and fails where they differ.

    What a processor does in order shows in no test of it, whatever the code asks for. The list is what the models
    of weak memory were made from, and the check of it says that the code still asks for that."""

    def __init__(self, root, program):
        self.root = root
        self.program = f"{root}/{program}"
        if not self._passes(None):
            raise Failure(f"{program} fails without any change; look at what it says")

    def notices(self, place):
        return place.kind in KINDS and not self._passes(place)

    def _passes(self, place):
        with tempfile.TemporaryDirectory() as folder:
            shutil.copytree(f"{self.root}/src", f"{folder}/src")
            os.symlink(f"{self.root}/docs", f"{folder}/docs")
            if place is not None:
                with open(f"{folder}/{place.file}", "r+b") as file:
                    changed = rewriting.changed(file.read(), place)
                    file.seek(0)
                    file.truncate()
                    file.write(changed)
            done = subprocess.run(
                [sys.executable, "-B", self.program], cwd=folder, capture_output=True, check=False
            )
        return done.returncode == 0
