"""`tessel-metrics` as a service: its configuration, its signals and what it tells the service manager."""

import os
import pathlib
import re
import signal
import socket
import subprocess
import tempfile
import unittest

from exits import EXIT, LONGEST, Creator, LockHolder, Plant, Service, TimeTaken, free_port, wait_until

LEAVES = {"pump/speed": {"type": "double"}, "tank/level": {"type": "double"}}
PROJECT = pathlib.Path(__file__).resolve().parents[2]


class MetricsService(unittest.TestCase):
    def setUp(self):
        self.plant = self.closed(Plant(LEAVES))
        self.config = self.plant.folder / "metrics.conf"

    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing

    def configure(self, text):
        self.config.write_text(text, encoding="utf-8")

    def serve(self, **environment):
        return self.closed(Service("--config", str(self.config), environment=environment))

    def urls(self, service):
        return [
            line.split('url="')[1].split('"')[0]
            for line in service.ask()[2].splitlines()
            if line.startswith("tessel_leaf_info{")
        ]

    def reload(self, service):
        lines = service.log().count("\n")
        service.process.send_signal(signal.SIGHUP)
        wait_until(lambda: service.log().count("\n") > lines and service.log().endswith("\n"), "reloads")

    def test_configuration_file_says_all(self):
        self.configure(f"listen = 127.0.0.1:0\ndescription = {self.plant.file}\nurl = tank\n")

        self.assertEqual(self.urls(self.serve()), ["tank/level"])

    def test_nobody_waits_for_who_was_stopped_inside_the_lock(self):
        # What a lock waits for at most.
        bound = 5
        for double_buffer in (True, False):
            with self.subTest(double_buffer=double_buffer):
                self.plant = self.closed(Plant(LEAVES, double_buffer))
                self.config = self.plant.folder / "metrics.conf"
                self.configure(f"listen = 127.0.0.1:0\ndescription = {self.plant.file}\n")
                self.closed(Creator(self.plant))
                self.plant.set("pump/speed", "7")
                service = self.serve()
                self.assertIn('tessel_value{url="pump/speed"', service.ask()[2])
                holder = self.closed(LockHolder(self.plant))
                taken = TimeTaken(service.process)

                texts = [service.ask()[2] for _ in range(5)]

                self.assertLess(taken.seconds(), bound)
                code, seconds = service.end()
                self.assertLess(seconds, bound)
                self.assertEqual(code, 0)
                for text in texts:
                    self.assertEqual('tessel_value{url="pump/speed"' in text, double_buffer)
                    self.assertRegex(text, r"(?m)^tessel_region_up\{.*\} 1$")
                holder.close()

    def test_mistake_in_the_file_ends_the_start(self):
        self.configure("lisen = 127.0.0.1:0\n")

        run = subprocess.run(
            [EXIT, "--config", str(self.config)], capture_output=True, text=True, timeout=LONGEST, check=False
        )

        self.assertEqual(run.returncode, 2)
        self.assertEqual(
            run.stderr,
            f"tessel-metrics: error: {self.config}:1:1: unknown key 'lisen' (did you mean 'listen'?)\n",
        )

    def test_hangup_reads_it_again(self):
        self.configure(f"listen = 127.0.0.1:0\ndescription = {self.plant.file}\nurl = tank\n")
        service = self.serve()
        former = service.last_served()

        self.configure(f"listen = 127.0.0.1:0\ndescription = {self.plant.file}\nurl = pump\n")
        self.reload(service)

        wait_until(lambda: self.urls(service) == ["pump/speed"], "the other leaf")
        self.assertEqual(service.last_served(), former)

    def test_hangup_with_a_mistake_changes_nothing(self):
        self.configure(f"listen = 127.0.0.1:0\ndescription = {self.plant.file}\nurl = tank\n")
        service = self.serve()

        for text in ("url = pump\n", "description\n", f"description = {self.plant.file}\nlisten = 192.0.2.1:1\n"):
            with self.subTest(text=text):
                self.configure(text)
                self.reload(service)
                self.assertEqual(self.urls(service), ["tank/level"])
                self.assertTrue(
                    service.log().splitlines()[-1].endswith("; the configuration stays as it was"), service.log()
                )

    def test_hangup_takes_another_description_and_limits(self):
        other = self.closed(Plant({"fan/speed": {"type": "double"}}))
        self.configure(f"listen = 127.0.0.1:0\ndescription = {self.plant.file}\n")
        service = self.serve()

        self.configure(f"listen = 127.0.0.1:0\ndescription = {other.file}\nconnections = 3\n")
        self.reload(service)
        wait_until(lambda: "configuration was read again" in service.log(), "read again")
        service.host, service.port = service.last_served()

        self.assertEqual(self.urls(service), ["fan/speed"])

    def test_hangup_on_the_same_address_takes_other_limits(self):
        port = free_port()
        self.configure(f"listen = 127.0.0.1:{port}\ndescription = {self.plant.file}\n")
        service = self.serve()

        self.configure(f"listen = 127.0.0.1:{port}\ndescription = {self.plant.file}\nconnections = 1\n")
        self.reload(service)
        wait_until(lambda: "configuration was read again" in service.log(), "read again")

        held = self.closed(service.connection())
        held.request("GET", "/metrics")
        answer = held.getresponse()
        answer.read()
        self.assertEqual(answer.status, 200)
        self.assertEqual(service.ask()[0], 503)

    def test_ends_within_a_second(self):
        self.configure(f"listen = 127.0.0.1:0\ndescription = {self.plant.file}\n")
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(number=number):
                needed = []
                # A machine may be busy with something else for once; a program that waits waits always.
                while len(needed) < 5 and (not needed or min(needed) >= 1):
                    service = self.serve()
                    held = self.closed(service.connection())
                    held.request("GET", "/metrics")
                    held.getresponse().read()

                    code, seconds = service.end(number)

                    self.assertEqual(code, 0)
                    needed.append(seconds)
                self.assertLess(min(needed), 1)

    def test_service_manager_hears_how_far_it_is(self):
        self.configure(f"listen = 127.0.0.1:0\ndescription = {self.plant.file}\n")
        path = str(self.plant.folder / "notify")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(path)
            manager.settimeout(LONGEST)
            service = self.serve(NOTIFY_SOCKET=path)

            told = manager.recv(4096).decode()
            self.assertEqual(
                told,
                f"READY=1\nSTATUS=serving http://127.0.0.1:{service.port}/metrics of {self.plant.file}",
            )
            service.process.send_signal(signal.SIGHUP)
            self.assertRegex(manager.recv(4096).decode(), r"^RELOADING=1\nMONOTONIC_USEC=\d+$")
            self.assertTrue(manager.recv(4096).startswith(b"READY=1\n"))
            service.process.send_signal(signal.SIGTERM)
            self.assertEqual(manager.recv(4096), b"STOPPING=1")

    def test_journal_gets_levels(self):
        reading, writing = os.pipe()
        with open(reading, encoding="utf-8") as log:
            stream = os.fstat(writing)
            for name, head in ((f"{stream.st_dev}:{stream.st_ino}", "<4>"), ("8:1", "tessel-metrics: warning: ")):
                with self.subTest(stream=name):
                    subprocess.run(
                        [EXIT, "--once", str(self.plant.file)], stdout=subprocess.DEVNULL, stderr=writing,
                        timeout=LONGEST, env={**os.environ, "JOURNAL_STREAM": name}, check=True,
                    )
                    line = log.readline()
                    self.assertTrue(line.startswith(f"{head}no region "), line)
            os.close(writing)

    def test_another_user_reads_the_region(self):
        if os.geteuid() != 0:
            self.skipTest("needs root, to become somebody else")
        self.closed(Creator(self.plant))
        os.chmod(self.plant.folder, 0o755)
        with tempfile.TemporaryDirectory() as folder:
            os.chmod(folder, 0o755)
            run = subprocess.run(
                ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", EXIT, "--once", str(self.plant.file)],
                capture_output=True, text=True, timeout=LONGEST, check=False,
            )
        if run.returncode in (126, 127):
            self.skipTest("the build folder is closed for others")

        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn(f'tessel_region_up{{region="{self.plant.key}"}} 1\n', run.stdout)

    def test_manual_page_has_every_option(self):
        text = (PROJECT / "docs/man/tessel-metrics.1.md").read_text(encoding="utf-8")
        options = text.partition("\n## OPTIONS\n")[2].partition("\n## ")[0]
        run = subprocess.run([EXIT, "--help"], capture_output=True, text=True, timeout=LONGEST, check=True)
        helped = run.stdout.partition("\nOptions:\n")[2].partition("\n\n")[0]

        self.assertEqual(
            sorted(re.findall(r"^`([^`]+)`\n: ", options, re.M)),
            sorted(re.split(r"  +", line.strip())[0].removesuffix(" ") for line in helped.splitlines()),
        )

    def test_default_configuration_has_every_key_with_its_usual_value(self):
        text = (PROJECT / "exits/metrics/default.conf").read_text(encoding="utf-8")
        keys = {
            line[1:].split(" = ")[0]: line.split(" = ")[1]
            for line in text.splitlines()
            if line.startswith("#") and not line.startswith("# ") and " = " in line
        }
        run = subprocess.run([EXIT, "--help"], capture_output=True, text=True, timeout=LONGEST, check=True)
        known = {
            line.split()[0].lstrip("-")
            for line in run.stdout.splitlines()
            if line.startswith("  --")
        } - {"config", "version", "once"}

        self.assertEqual(set(keys), known)
        for key in ("listen", "connections", "timeout"):
            self.assertIn(f"({keys[key]}).", run.stdout)
        # And what stands there, without its mark of a comment, is a configuration.
        self.configure(
            "\n".join(line.lstrip("#") if not line.startswith("# ") else line for line in text.splitlines())
            .replace("/srv/plant/plant.process.json", str(self.plant.file))
            .replace("127.0.0.1:9200", "127.0.0.1:0")
        )
        self.serve()


if __name__ == "__main__":
    unittest.main()
