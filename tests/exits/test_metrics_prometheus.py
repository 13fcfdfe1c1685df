"""A real Prometheus scrapes `tessel-metrics` while the creator of the region is killed and comes back."""

import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest
import urllib.parse
import urllib.request

from exits import LONGEST, Creator, Plant, Service, end_with_parent, free_port, wait_until

LEAVES = {"pump/speed": {"type": "double", "unit": "1/min"}, "tank/level": {"type": "double"}}


class Prometheus:
    """In a folder of its own, which goes with it."""

    def __init__(self, target):
        self._folder = tempfile.mkdtemp(prefix="tessel-prometheus")
        self._port = free_port()
        config = pathlib.Path(self._folder) / "prometheus.yml"
        config.write_text(
            "global: {scrape_interval: 500ms, scrape_timeout: 500ms}\n"
            "scrape_configs:\n- job_name: tessel\n  static_configs:\n"
            f"  - targets: ['{target}']\n",
            encoding="utf-8",
        )
        self._log = open(pathlib.Path(self._folder) / "log", "w+b")
        self._process = subprocess.Popen(
            [
                "prometheus",
                f"--config.file={config}",
                f"--storage.tsdb.path={self._folder}/data",
                f"--web.listen-address=127.0.0.1:{self._port}",
            ],
            stdout=self._log, stderr=self._log, preexec_fn=end_with_parent,
        )

    def query(self, expression):
        """The samples as pairs of labels and number; empty also while it does not answer yet."""
        url = f"http://127.0.0.1:{self._port}/api/v1/query?" + urllib.parse.urlencode({"query": expression})
        try:
            with urllib.request.urlopen(url, timeout=LONGEST) as answer:
                found = json.load(answer)["data"]["result"]
        except OSError:
            assert self._process.poll() is None, os.pread(self._log.fileno(), 100000, 0).decode()
            return []
        return [(sample["metric"], float(sample["value"][1])) for sample in found]

    def number(self, expression):
        """The one sample; nothing if there is none."""
        found = self.query(expression)
        return found[0][1] if len(found) == 1 else None

    def close(self):
        self._process.kill()
        self._process.wait(timeout=LONGEST)
        self._log.close()
        shutil.rmtree(self._folder)


@unittest.skipUnless(shutil.which("prometheus"), "needs the Debian package prometheus")
class Scraping(unittest.TestCase):
    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing

    def test_scrapes_go_on_while_the_creator_is_killed(self):
        plant = self.closed(Plant(LEAVES))
        creator = self.closed(Creator(plant))
        plant.set("pump/speed", "1500.25")
        service = self.closed(Service("--listen", "127.0.0.1:0", str(plant.file)))
        server = self.closed(Prometheus(f"127.0.0.1:{service.port}"))
        speed = 'tessel_value{url="pump/speed"}'
        wait_until(lambda: server.number(speed) == 1500.25, "the value is scraped")
        self.assertEqual(server.query(speed)[0][0]["unit"], "1/min")
        self.assertEqual(server.number('tessel_value{url="tank/level"}'), None)
        self.assertEqual(server.number('tessel_value_state_code{url="tank/level"}'), 3)
        self.assertEqual(
            server.number('tessel_value_state{url="pump/speed",tessel_value_state="valid"}'), 1
        )

        creator.kill()

        wait_until(lambda: server.number("tessel_region_up") == 0, "the region is down")
        wait_until(lambda: server.number(speed) is None, "the value is stale")
        wait_until(lambda: server.number("up") == 1, "the program itself is up")

        self.closed(Creator(plant))
        plant.set("pump/speed", "2")
        wait_until(lambda: server.number("tessel_region_up") == 1, "the region is back")
        wait_until(lambda: server.number(speed) == 2, "the new value is scraped")


if __name__ == "__main__":
    unittest.main()
