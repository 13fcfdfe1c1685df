"""What the tests of requests share: a source and mirrors of it that ask it for what is written into them."""

import json
import os
import subprocess

from mirrors import LONGEST, Creator, Mirror, MirrorTest, end_with_parent, tool, wait_until


class RawRequester:
    """Asks for what it is told to."""

    def __init__(self, domain, key):
        self._key = key
        self._process = subprocess.Popen(
            [os.environ["TESSEL_RAW_REQUESTER"], str(domain.number)], stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, text=True, preexec_fn=end_with_parent,
        )

    def ask(self, number, *values, age=0, repeats=1):
        """`values`: URL, number of a state, text. The answers, as number, result and text."""
        words = [self._key, number, age, repeats]
        for url, state, text in values:
            words += [url, state, text.encode().hex() or "-"]
        print(*words, file=self._process.stdin, flush=True)
        answers = [self._process.stdout.readline().rstrip("\n").split(" ", 2) for _ in range(repeats)]
        return [(int(count), int(result), text) for count, result, text in answers]

    def close(self):
        self._process.stdin.close()
        self._process.wait(timeout=LONGEST)
        self._process.stdout.close()


class Commands(MirrorTest):
    """A source without values whose mirrors come later."""

    def setUp(self):
        super().setUp()
        self.creator = self.closed(Creator(self.plant))

    def send(self, *options):
        return self.closed(Mirror("send", self.domain, "--lease", "20000", *options, self.plant.file))

    def receive(self, *options, key=None):
        receiver = self.closed(
            Mirror("receive", self.domain, "--as", key or self.plant.mirror_key, *options, self.plant.file))
        wait_until(lambda: receiver.logged(" mirrors "), "mirrors")
        return receiver

    def other_mirror(self, name):
        """Key and description of one more mirror."""
        root = json.loads(self.plant.file.read_text(encoding="utf-8"))
        key = root["keyProcessDataMemory"] = self.plant.key + name
        file = self.plant.folder / f"{name}.process.json"
        file.write_text(json.dumps(root), encoding="utf-8")
        self.addCleanup(tool, "rm", "--force", key)
        return key, file

    def change_source(self, node, leaf, **properties):
        """In its description alone, which the mirror does not hear of: the layout stays."""
        root = json.loads(self.plant.file.read_text(encoding="utf-8"))
        root["value"][node]["value"][leaf].update(properties)
        self.plant.file.write_text(json.dumps(root), encoding="utf-8")

    def write(self, *words, file=None):
        """Into the mirror."""
        result = tool("set", str(file or self.plant.mirror_file), *words)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result

    def at_source(self):
        return self.plant.leaves(self.plant.file)

    def wait_for_source(self, url, value, state="valid"):
        wait_until(lambda: self.at_source()[url] == (value, state), f"source {url} {value} {state}")

    def wait_for_mirror(self, url, value, state="valid"):
        wait_until(lambda: (self.plant.leaves() or {}).get(url) == (value, state), f"mirror {url} {value} {state}")

    def wait_for_log(self, program, pattern):
        wait_until(lambda: program.logged(pattern), f"{pattern} in: {program.log()}")

    def swaps_of_source(self):
        listed = json.loads(tool("regions", "--json").stdout)
        return next(region["swapCount"] for region in listed if region["key"] == self.plant.key)
