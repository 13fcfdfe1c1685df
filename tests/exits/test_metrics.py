"""`tessel-metrics` as a scraper sees it: what it answers, to whom, and what it leaves out."""

import contextlib
import os
import pathlib
import resource
import signal
import socket
import subprocess
import unittest

from exits import EXIT, LONGEST, TOOL, Creator, Plant, Service, tool, wait_until

LEAVES = {
    "pump/speed": {"type": "double", "unit": "1/min", "minLimit": 0, "maxLimit": 3000, "readOnly": False},
    "pump/on": {"type": "boolean"},
    "pump/name": {"type": "string"},
    "tank/level": {"type": "float", "unit": 'a"\\\n°', "viewStart": -0.5, "labelTextId": "LEVEL"},
    "tank/count": {"type": "uint64"},
}


def values(text):
    """Name and labels to the number, of all samples."""
    lines = [line for line in text.split("\n") if line and not line.startswith("#")]
    return dict(line.rsplit(" ", 1) for line in lines)


class Metrics(unittest.TestCase):
    def setUp(self):
        self.plant = self.closed(Plant(LEAVES))

    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing

    def serve(self, *arguments):
        return self.closed(Service("--listen", "127.0.0.1:0", *arguments, str(self.plant.file)))

    def test_values_carry_url_and_unit(self):
        self.closed(Creator(self.plant))
        self.plant.set("pump/speed", "1500.25")
        self.plant.set("pump/on", "true")
        self.plant.set("pump/name", "main")
        self.plant.set("tank/level", "0.1")
        self.plant.set("tank/count", "18446744073709551615")

        status, headers, text = self.serve().ask()

        self.assertEqual(status, 200)
        self.assertEqual(headers["Content-Type"], "text/plain; version=0.0.4; charset=utf-8")
        told = {line: number for line, number in values(text).items() if line.startswith("tessel_value{")}
        self.assertEqual(
            told,
            {
                'tessel_value{url="pump/speed",unit="1/min"}': "1500.25",
                'tessel_value{url="pump/on",unit=""}': "1",
                'tessel_value{url="tank/level",unit="a\\"\\\\\\n°"}': "0.1",
                'tessel_value{url="tank/count",unit=""}': "18446744073709551615",
            },
        )

    def test_erroneous_values_are_left_out_and_their_states_told(self):
        self.closed(Creator(self.plant))
        self.plant.set("pump/speed", "--error", "overrange")

        told = values(self.serve().ask()[2])

        self.assertFalse([name for name in told if name.startswith("tessel_value{")])
        self.assertEqual(told['tessel_value_state_code{url="pump/speed"}'], "2")
        self.assertEqual(told['tessel_value_state_code{url="pump/on"}'], "3")
        states = [
            name.split('tessel_value_state="')[1].split('"')[0]
            for name, number in told.items()
            if name.startswith('tessel_value_state{url="pump/speed"') and number == "1"
        ]
        self.assertEqual(states, ["overrange"])
        self.assertEqual(
            len([name for name in told if name.startswith('tessel_value_state{url="pump/speed"')]), 10
        )

    def test_region_is_mapped_for_reading_alone(self):
        self.closed(Creator(self.plant))

        service = self.serve()

        wait_until(lambda: self.plant.rights_of(service.process), "maps the region")
        self.assertEqual(self.plant.rights_of(service.process), ["r--s"])

    def test_description_of_a_leaf_is_told(self):
        told = values(self.serve().ask()[2])

        self.assertIn(
            'tessel_leaf_info{url="pump/speed",type="double",unit="1/min",label="",read_only="no",'
            'min="0",max="3000",view_start="",view_end=""}',
            told,
        )
        self.assertIn(
            'tessel_leaf_info{url="tank/level",type="float",unit="a\\"\\\\\\n°",label="LEVEL",'
            'read_only="no",min="",max="",view_start="-0.5",view_end=""}',
            told,
        )

    def test_region_is_told_of_as_it_comes_and_goes(self):
        service = self.serve()
        up = f'tessel_region_up{{region="{self.plant.key}"}}'
        swaps = f'tessel_region_swaps_total{{region="{self.plant.key}"}}'
        last = f'tessel_region_last_swap_timestamp_seconds{{region="{self.plant.key}"}}'
        told = values(service.ask()[2])
        self.assertEqual(told[up], "0")
        self.assertNotIn(swaps, told)

        creator = self.closed(Creator(self.plant))
        wait_until(lambda: values(service.ask()[2])[up] == "1", "up")
        self.plant.set("pump/speed", "1")
        told = values(service.ask()[2])
        self.assertEqual(told[swaps], "2")
        self.assertGreater(float(told[last]), 1.5e9)

        creator.close()
        told = values(service.ask()[2])
        self.assertEqual(told[up], "0")
        self.assertFalse([name for name in told if name.startswith("tessel_value")])
        self.assertTrue([name for name in told if name.startswith("tessel_leaf_info")])

        self.closed(Creator(self.plant))
        wait_until(lambda: values(service.ask()[2])[up] == "1", "up again")
        self.assertIn("has gone, its creator has ended; waiting for it to come back", service.log())

    def test_values_of_a_killed_creator_are_not_told(self):
        creator = self.closed(Creator(self.plant))
        self.plant.set("pump/speed", "1")
        service = self.serve()
        up = f'tessel_region_up{{region="{self.plant.key}"}}'
        self.assertEqual(values(service.ask()[2])['tessel_value{url="pump/speed",unit="1/min"}'], "1")

        creator.kill()

        wait_until(lambda: values(service.ask()[2])[up] == "0", "down")
        self.assertFalse([n for n in values(service.ask()[2]) if n.startswith("tessel_value")])

    def test_patterns_choose_leaves(self):
        self.closed(Creator(self.plant))

        told = values(self.serve("--url", "*/s*", "--url=tank", "--except", "**/count").ask()[2])

        urls = {n.split('url="')[1].split('"')[0] for n in told if n.startswith("tessel_leaf_info")}
        self.assertEqual(urls, {"pump/speed", "tank/level"})
        urls = {n.split('url="')[1].split('"')[0] for n in told if n.startswith("tessel_value_state_code")}
        self.assertEqual(urls, {"pump/speed", "tank/level"})

    def test_once_prints_and_ends(self):
        self.closed(Creator(self.plant))
        self.plant.set("pump/speed", "2")

        run = subprocess.run(
            [EXIT, "--once", str(self.plant.file)], capture_output=True, text=True, timeout=LONGEST, check=False
        )

        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(values(run.stdout)['tessel_value{url="pump/speed",unit="1/min"}'], "2")

    def test_environment_names_the_description(self):
        run = subprocess.run(
            [EXIT, "--once"], capture_output=True, text=True, timeout=LONGEST, check=False,
            env={**os.environ, "TESSEL_DIR": str(self.plant.file)},
        )

        self.assertEqual(run.returncode, 0)
        self.assertIn(f'tessel_region_up{{region="{self.plant.key}"}}', run.stdout)

    def test_once_without_a_region_says_that_it_is_down(self):
        run = subprocess.run(
            [EXIT, "--once", str(self.plant.file)], capture_output=True, text=True, timeout=LONGEST, check=False
        )

        self.assertEqual(run.returncode, 0)
        self.assertEqual(values(run.stdout)[f'tessel_region_up{{region="{self.plant.key}"}}'], "0")
        self.assertEqual(
            run.stderr,
            f"tessel-metrics: warning: no region '{self.plant.key}' is there; waiting for the process "
            "that creates it\n",
        )

    def test_once_into_a_full_disk_fails(self):
        with open("/dev/full", "wb") as full:
            run = subprocess.run(
                [EXIT, "--once", str(self.plant.file)], stdout=full, stderr=subprocess.PIPE, text=True,
                timeout=LONGEST, check=False,
            )

        self.assertEqual(run.returncode, 9)
        self.assertIn("tessel-metrics: error: standard output: No space left on device\n", run.stderr)

    def test_help_and_version_into_a_full_disk_fail(self):
        for option in ("--help", "--version"):
            with self.subTest(option=option), open("/dev/full", "wb") as full:
                run = subprocess.run(
                    [EXIT, option], stdout=full, stderr=subprocess.PIPE, text=True, timeout=LONGEST, check=False
                )
                self.assertEqual(run.returncode, 9)
                self.assertEqual(
                    run.stderr, "tessel-metrics: error: standard output: No space left on device\n"
                )

    def test_help_that_nobody_reads_ends_in_silence(self):
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing, "wb") as closed:
            run = subprocess.run(
                [EXIT, "--help"], stdout=closed, stderr=subprocess.PIPE, text=True, timeout=LONGEST, check=False
            )

        self.assertEqual((run.returncode, run.stderr), (0, ""))

    def test_tool_runs_the_program(self):
        path = f"{pathlib.Path(EXIT).parent}:/usr/bin:/bin"
        run = subprocess.run(
            [TOOL, "metrics", "--version"], capture_output=True, text=True, timeout=LONGEST,
            env={"PATH": path}, check=False,
        )

        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertRegex(run.stdout, r"^tessel-metrics \d+\.\d+\.\d+\n$")

    def test_other_paths_and_methods_are_refused(self):
        service = self.serve()

        self.assertEqual(service.ask("/")[0], 200)
        self.assertEqual(service.ask("/metrics?name=x")[0], 200)
        for path in ("/metric", "/metrics/", "/../etc/passwd", "//"):
            with self.subTest(path=path):
                self.assertEqual(service.ask(path)[0], 404)
        for method in ("POST", "PUT", "DELETE", "OPTIONS", "PATCH", "ODD"):
            with self.subTest(method=method):
                status, headers, _ = service.ask(method=method)
                self.assertEqual((status, headers["Allow"]), (405, "GET, HEAD"))

    def test_head_has_the_length_and_no_body(self):
        service = self.serve()
        whole = service.ask()[2]

        status, headers, text = service.ask(method="HEAD")

        self.assertEqual((status, text), (200, ""))
        self.assertEqual(int(headers["Content-Length"]), len(whole.encode()))

    def test_accept_chooses_the_form(self):
        service = self.serve()
        open_type = "application/openmetrics-text; version=1.0.0; charset=utf-8"
        plain_type = "text/plain; version=0.0.4; charset=utf-8"
        rows = [
            ("", plain_type),
            ("*/*", plain_type),
            ("application/openmetrics-text", open_type),
            ("application/openmetrics-text;version=1.0.0,text/plain;version=0.0.4;q=0.5,*/*;q=0.1", open_type),
            ("application/openmetrics-text;version=0.0.1", plain_type),
            ("application/openmetrics-text;version=1.0.0;q=0.2,text/plain;q=0.5", plain_type),
            ("application/openmetrics-text;q=0,*/*;q=0.1", plain_type),
            ('Application/OpenMetrics-Text; Version="1.0.0"', open_type),
            ("application/openmetrics-text;q=odd", plain_type),
            ("application/openmetrics-text;q=0.5,text/plain;q=0.1,*/*;q=0.9", open_type),
            ("*/*;q=0.9,text/*;q=0.8,text/plain;q=0.1,application/openmetrics-text;q=0.5", open_type),
            ("application/openmetrics-text;q=0.5,text/*;q=0.6,*/*;q=0.1", plain_type),
            ("application/openmetrics-text;q=0.5,*/*;q=0.9", plain_type),
            (",;,=;q", plain_type),
        ]
        for accept, expected in rows:
            with self.subTest(accept=accept):
                self.assertEqual(service.ask(headers={"Accept": accept})[1]["Content-Type"], expected)
        self.assertTrue(
            service.ask(headers={"Accept": "application/openmetrics-text"})[2].endswith("\n# EOF\n")
        )

    def test_connections_above_the_limit_are_told_so(self):
        service = self.serve("--connections", "2")
        with contextlib.ExitStack() as stack:
            held = []
            for _ in range(2):
                connection = stack.enter_context(contextlib.closing(service.connection()))
                connection.request("GET", "/metrics")
                response = connection.getresponse()
                response.read()
                held.append(response.status)
            self.assertEqual(held, [200, 200])

            status, headers, text = service.ask()

            self.assertEqual((status, text), (503, "too many connections; close others, or have 'connections' allow more\n"))
            self.assertEqual(headers["Retry-After"], "1")
        wait_until(lambda: service.ask()[0] == 200, "a connection is free again")

    def test_it_answers_again_once_descriptors_are_free(self):
        service = self.serve("--connections", "500")
        most = 40
        resource.prlimit(service.process.pid, resource.RLIMIT_NOFILE, (most, most))
        with contextlib.ExitStack() as stack:
            for _ in range(most):
                stack.enter_context(socket.create_connection((service.host, service.port)))
            wait_until(lambda: len(os.listdir(f"/proc/{service.process.pid}/fd")) == most, "none is free")
            # Those that wait in the queue, which nobody could take, go with the others.
            service.process.send_signal(signal.SIGSTOP)
            os.waitid(os.P_PID, service.process.pid, os.WSTOPPED)
        service.process.send_signal(signal.SIGCONT)

        self.assertEqual(service.ask()[0], 200)

    def test_slow_sender_is_cut_off_in_time(self):
        service = self.serve("--timeout", "1")
        with socket.create_connection((service.host, service.port), timeout=LONGEST) as slow:
            slow.sendall(b"GET /metrics HTTP/1.1\r\nX: ")

            def is_cut():
                # A byte again and again, so that it is never silent.
                try:
                    slow.sendall(b"x")
                    slow.setblocking(False)
                    try:
                        return slow.recv(65536) == b""
                    finally:
                        slow.setblocking(True)
                except BlockingIOError:
                    return False
                except OSError:
                    return True

            wait_until(is_cut, "the connection is cut off")
        self.assertEqual(service.ask()[0], 200)

    def test_large_header_is_refused(self):
        service = self.serve()

        status = service.ask(headers={"X-Large": "x" * 100000})[0]

        self.assertIn(status, (413, 431))
        self.assertEqual(service.ask()[0], 200)

    def test_version_six_is_served(self):
        try:
            with socket.socket(socket.AF_INET6) as probe:
                probe.bind(("::1", 0))
        except OSError:
            self.skipTest("needs IPv6")
        service = self.closed(Service("--listen", "[::1]:0", str(self.plant.file)))

        self.assertEqual(service.ask()[0], 200)

    def test_wrong_use_is_refused(self):
        rows = [
            ([], 2, "no description; name a file or folder, set 'description' in the configuration, or TESSEL_DIR"),
            (["--lisen", "x"], 2, "unknown option '--lisen' (did you mean '--listen'?); see 'tessel-metrics --help'"),
            (["--listen", "x", str(self.plant.file)], 2, "'x' is no ADDRESS:PORT; write 127.0.0.1:9200, [::1]:9200 or :9200"),
            (["/nowhere/x.process.json"], 3, "/nowhere/x.process.json: no such description file or folder"),
            (["--connections", "0", "x"], 2, "--connections takes a whole number from 1 to 1000, not '0'; see 'tessel-metrics --help'"),
        ]
        for words, code, reason in rows:
            with self.subTest(words=words):
                run = subprocess.run([EXIT, *words], capture_output=True, text=True, timeout=LONGEST, check=False)
                self.assertEqual((run.returncode, run.stdout), (code, ""))
                self.assertEqual(run.stderr.splitlines()[-1], f"tessel-metrics: error: {reason}")

    def test_address_in_use_is_refused(self):
        service = self.serve()

        run = subprocess.run(
            [EXIT, "--listen", f"127.0.0.1:{service.port}", str(self.plant.file)],
            capture_output=True, text=True, timeout=LONGEST, check=False,
        )

        self.assertEqual(run.returncode, 4)
        self.assertTrue(
            run.stderr.endswith(
                f"tessel-metrics: error: cannot listen on 127.0.0.1:{service.port}: Address already in "
                "use; another program listens there; choose another port\n"
            ),
            run.stderr,
        )


if __name__ == "__main__":
    unittest.main()
