"""The exits at work on what this machine measures; see script/demo."""

import argparse
import os
import pathlib
import re
import subprocess
import time
import urllib.request

from parts import BUILD, PROJECT, TOOL, Failed, Parts, exit_program, run, tool

import sparkplug
from broker import Broker
from browser import Browser, is_there

BEGIN = time.monotonic()
WIDTH = 110
SCRAPED = ("system/upTime", "cpu/usage", "memory/available", "load/average1")
QUALITIES = {0: "bad", 192: "good", 500: "stale"}


def step(text):
    print(f"\n== {text} [{time.monotonic() - BEGIN:.1f} s]", flush=True)


def shown(*command):
    """A command as somebody would type it."""
    words = [str(word) for word in command]
    print("$ " + " ".join(pathlib.Path(word).name if word.startswith("/") else word for word in words), flush=True)


class Demo:
    def __init__(self, parts, sets, picture):
        self._parts = parts
        self._sets = sets
        self._picture = picture
        self._file = None
        self._publisher = None
        os.environ["PATH"] = os.pathsep.join(
            [*(str(BUILD / "exits" / name) for name in ("metrics", "mqtt", "web")), os.environ["PATH"]])

    def publish(self):
        """With a key of its own: no other publisher of this machine is disturbed."""
        step("A process measures this machine and publishes it")
        text = (PROJECT / "examples/host-monitor/host.process.json").read_text(encoding="utf-8")
        self._file = self._parts.folder / "host.process.json"
        self._file.write_text(text.replace('"tesselHostMonitor"', f'"{self._parts.key}"'), encoding="utf-8")
        command = [BUILD / "examples/host-monitor/host-monitor", "--interval", "500", self._file]
        shown(*command, "&")
        self._publisher = self._parts.start("host-monitor", *command)
        self._parts.wait(lambda: self._publisher.has_said("publishing"), "host-monitor publishes")
        # What is a difference from one set to the next comes with the second one.
        result = tool("expect", "--timeout", "30s", str(self._file), "{cpu/usage} >= 0 and valid")
        if result.returncode != 0:
            raise Failed(f"cpu/usage does not become valid: {result.stdout}{result.stderr}")

    def serve(self, name, *words):
        """Starts an exit that listens, and gives its address."""
        command = [TOOL, name, "--listen", "127.0.0.1:0", *words, self._file]
        shown(*command, "&")
        part = self._parts.start(f"tessel-{name}", *command)
        said = r"serving (http://\S+:\d+/)"
        self._parts.wait(lambda: re.search(said, part.log()), f"tessel-{name} serves")
        return part, re.search(said, part.log())[1]

    def scrape(self):
        step("Monitoring: tessel metrics answers a scrape")
        part, address = self.serve("metrics")
        print(f"$ curl {address}metrics", flush=True)
        begin = time.monotonic()
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        with opener.open(f"{address}metrics", timeout=60) as answer:
            lines = answer.read().decode().splitlines()
        took = (time.monotonic() - begin) * 1000
        found = [line for line in lines if any(f'url="{url}"' in line for url in SCRAPED)
                 and line.startswith(("tessel_value{", "tessel_value_state_code{"))]
        print("\n".join([*found, *(line for line in lines if line.startswith("tessel_region_"))]))
        if sum(line.startswith("tessel_value{") for line in found) < len(SCRAPED):
            raise Failed("the scrape has no values")
        print(f"... {len(lines)} lines in {took:.0f} ms", flush=True)
        self._parts.end(part)

    def carry(self):
        step("The plant: tessel mqtt tells a broker, and whoever listens there sees")
        broker = self._parts.closed(Broker())
        shown("mosquitto", "-p", broker.port, "&")
        heard = Heard(self._parts, broker.port)
        command = [TOOL, "mqtt", "--host", "127.0.0.1", "--port", broker.port, "--group", "demo", "--node", "here",
                   "--state-dir", self._parts.folder / "state", self._file]
        shown(*command, "&")
        node = self._parts.start("tessel-mqtt", *command)
        heard.show_until("DDATA", self._sets)
        shown("kill", node.process.pid)
        if self._parts.end(node) != 0:
            raise Failed(f"tessel-mqtt did not end in order: {node.log()}")
        heard.show_until("NDEATH", 1)

    def show_page(self):
        step("Whoever stands in front of it: tessel web")
        if not exit_program("web"):
            print("tessel-web is not built, so there is no picture")
            return
        if not is_there():
            raise Failed("chromium and chromedriver are not there: apt-get install chromium chromium-driver")
        part, address = self.serve("web")
        browser = Browser(self._parts)
        browser.picture(address, os.uname().release, self._picture)
        browser.close()
        self._parts.end(part)
        print(f"the picture of {address} in a browser: {self._picture}")

    def end(self):
        step("The publisher ends and takes everything along")
        if self._parts.end(self._publisher) != 0:
            raise Failed(f"host-monitor did not end in order: {self._publisher.log()}")


class Heard:
    """What `mosquitto_sub` hears, a line a message; it has subscribed when this is there."""

    def __init__(self, parts, port):
        self._parts = parts
        command = ["mosquitto_sub", "-p", port, "-t", "spBv1.0/#"]
        shown(*command)
        self._part = parts.start("mosquitto_sub", "stdbuf", "-oL", *command, "-t", "ready", "-F", "%t %x")
        self._taken = 0
        self._units = {}
        parts.wait(lambda: self._is_ready(port), "mosquitto_sub hears")

    def _is_ready(self, port):
        subprocess.run(["mosquitto_pub", "-p", str(port), "-t", "ready", "-m", "x"], check=True, timeout=60)
        return self._part.has_said("ready ")

    def show_until(self, kind, count):
        """Shows what comes until there were `count` messages of this kind."""
        seen = []

        def is_enough():
            for topic, data in self._next():
                seen.append(topic.split("/")[2])
                print(line_of(topic, sparkplug.read(bytes.fromhex(data)), self._units), flush=True)
                if seen.count(kind) >= count:
                    return True
            return False

        self._parts.wait(is_enough, f"{count} {kind} of tessel-mqtt")

    def _next(self):
        whole = self._part.log()
        while "\n" in whole[self._taken:]:
            end = whole.index("\n", self._taken)
            topic, _, data = whole[self._taken:end].partition(" ")
            self._taken = end + 1
            if topic != "ready":
                yield topic, data


def line_of(topic, payload, units):
    """A message in one readable line. `units` are those that the births have told."""
    kind, name = topic.split("/", 2)[2].split("/", 1)
    metrics = sorted(payload.metrics, key=lambda metric: metric.name.startswith("system/"))
    said = [text for text in (text_of(metric, units) for metric in metrics) if text]
    sequence = f"seq {payload.seq}" if payload.HasField("seq") else ""
    line = f"{kind:<7}{name:<10} {sequence:<7}{len(payload.metrics):>3} metrics: "
    count = 0
    while count < len(said) and len(line) + len(said[count]) < WIDTH - 4:
        line += said[count] + ", "
        count += 1
    return line.rstrip(", ") + (", ..." if count < len(said) else "")


def text_of(metric, units):
    """Name, value, unit and quality; nothing of a state, which stands beside its value."""
    if metric.name.startswith("State/"):
        return ""
    properties = {key: content for key, (_, _, content) in sparkplug.properties(metric).items()}
    quality = QUALITIES.get(properties.get("Quality", 192), "unknown")
    held = sparkplug.value(metric)
    content = "-" if metric.is_null or not held else held[1]
    content = f"{content:.6g}" if isinstance(content, float) else str(content)
    if "engUnit" in properties:
        units[metric.name] = f" {properties['engUnit']}"
    return f"{metric.name} {content}{units.get(metric.name, '')}" + ("" if quality == "good" else f" ({quality})")


def work():
    parser = argparse.ArgumentParser(prog="script/demo --exits")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--picture", type=pathlib.Path, default=pathlib.Path("build/demo-web.png"))
    arguments = parser.parse_args()
    picture = arguments.picture.absolute()
    if not os.access(picture.parent, os.W_OK):
        raise Failed(f"no picture can be written into {picture.parent}; --picture names another place")
    with Parts(f"tesselDemo{os.getpid()}") as parts:
        demo = Demo(parts, arguments.rounds, picture)
        demo.publish()
        demo.scrape()
        demo.carry()
        demo.show_page()
        demo.end()
    left = parts.left()
    if left:
        raise Failed("left behind: " + ", ".join(left))
    print("processes, shared memory, semaphores, files: gone")
    step("Done. Go on with: docs/guide/14-exits.md")


if __name__ == "__main__":
    run(work)
