"""What `tessel-web` bounds: whom it answers, how many, how much and for how long."""

import contextlib
import json
import pathlib
import socket
import unittest

from web import (
    KEEPS_FREED_MEMORY,
    LONGEST,
    TOKEN,
    Creator,
    Plant,
    QuickPublisher,
    Service,
    Stream,
    WebTest,
    readable,
    wait_until,
)


def memory(service):
    """Bytes that the program itself holds, and no library."""
    text = pathlib.Path(f"/proc/{service.process.pid}/status").read_text(encoding="utf-8")
    return int(text.split("RssAnon:")[1].split()[0]) * 1024


class Limits(WebTest):
    def test_other_names_of_the_server_are_refused(self):
        service = self.serve("--host", "Press3.works.example", "--host", "fe80::1")
        for host, status in (
            ("evil.example", 421),
            ("evil.example:80", 421),
            ("localhost.evil.example", 421),
            ("127.0.0.1.evil.example", 421),
            ("localhost:x", 421),
            ("localhost:99999", 421),
            ("[::1", 421),
            ("", 421),
            ("a@localhost", 421),
            ("localhost, evil.example", 421),
            ("localhost", 200),
            ("LocalHost:1", 200),
            ("127.0.0.1", 200),
            ("[::1]:9300", 200),
            ("press3.works.example", 200),
            ("press3.works.example:443", 200),
            ("[fe80::1]", 200),
        ):
            with self.subTest(host=host):
                answer = service.ask("/api/description", headers={"Host": host})
                self.assertEqual(answer[0], status)
                if status == 421:
                    self.assertEqual(self.error_of(answer)[1]["where"], "Host")

    def test_two_names_at_once_are_refused(self):
        service = self.serve()
        with socket.create_connection((service.host, service.port), timeout=LONGEST) as raw:
            raw.sendall(b"GET / HTTP/1.1\r\nHost: localhost\r\nHost: localhost\r\nConnection: close\r\n\r\n")
            answer = b"".join(iter(lambda: raw.recv(65536), b""))

        self.assertIn(answer.split()[1], (b"400", b"421"))

    def test_page_of_another_server_reads_nothing(self):
        service = self.serve()
        for path in ("/", "/api/values", "/api/events"):
            with self.subTest(path=path):
                answer = service.ask(path, headers={"Origin": "http://evil.example"})
                self.assertEqual(self.error_of(answer)[0], 403)
                self.assertIsNone(answer[1]["Access-Control-Allow-Origin"])

    def test_connection_above_the_limit_is_told_so_and_closed(self):
        self.closed(Creator(self.plant))
        service = self.serve()
        streams = [self.stream(service) for _ in range(64)]
        for stream in streams:
            stream.until("set")

        with contextlib.closing(service.connection()) as late:
            late.request("GET", "/api/values")
            response = late.getresponse()
            status, error = self.error_of((response.status, response.headers, response.read().decode()))
            self.assertEqual((status, error["what"]), (503, "too many connections"))
            self.assertEqual(response.headers["Retry-After"], "1")
            self.assertEqual(response.headers["X-Content-Type-Options"], "nosniff")
            self.assertEqual(late.sock.recv(1) if late.sock else b"", b"")

        # The others go on, and one that leaves makes room.
        self.plant.set("pump/on", "true")
        for stream in streams:
            self.assertEqual(stream.until("set")["values"], [[1, True, 0]])
        streams[0].close()
        wait_until(lambda: service.ask("/api/values")[0] == 200, "there is room again")

    def test_slow_sender_is_dropped(self):
        service = self.serve("--timeout", "1", "--token-file", self.token_file())
        head = (
            f"POST /api/values HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer {TOKEN}\r\n"
            "Content-Type: application/json\r\nContent-Length: 100000\r\n"
        )
        for begin in ("GET / HTTP/1.1\r\nX: ", head + "\r\n"):
            with self.subTest(begin=begin):
                with socket.create_connection((service.host, service.port), timeout=LONGEST) as slow:
                    slow.sendall(begin.encode())

                    def is_dropped():
                        # A byte again and again, so that it is never silent.
                        try:
                            slow.sendall(b"x")
                            return readable(slow) and slow.recv(65536) == b""
                        except OSError:
                            return True

                    wait_until(is_dropped, "the connection is dropped")
        self.assertEqual(service.ask("/")[0], 200)

    def test_stream_outlives_the_time_of_a_request(self):
        self.closed(Creator(self.plant))
        stream = self.stream(self.serve("--timeout", "1"))
        stream.until("set")

        # Signs of life come after five seconds of silence.
        stream.until("age")

    def test_large_header_is_refused(self):
        service = self.serve()

        status = service.ask("/", headers={"X-Large": "x" * 100000})[0]

        self.assertIn(status, (413, 431))
        self.assertEqual(service.ask("/")[0], 200)

    def test_stopped_reader_holds_up_nobody_and_gets_the_newest(self):
        leaves = {f"node/l{i}": {"type": "double", "readOnly": False} for i in range(2000)}
        plant = self.closed(Plant(leaves))
        self.closed(Creator(plant))
        service = self.closed(Service("--listen", "127.0.0.1:0", "--rate", "50", str(plant.file)))
        stopped = self.closed(Stream(service))
        stopped.until("set")
        others = self.closed(Stream(service))
        others.until("set")
        publisher = QuickPublisher(plant, 100)
        self.addCleanup(publisher.close)

        def read(count):
            size = 0
            for _ in range(count):
                size += len(json.dumps(others.until("set")))
            return size

        # What the system holds of a stream is full by then, each set being about 50 kB.
        read(30)
        self.json(service, "/api/values")
        before = memory(service)
        told = read(100)
        grown = memory(service) - before
        publisher.close()
        newest = self.json(service, "/api/values")["swaps"]

        if not KEEPS_FREED_MEMORY:
            self.assertLess(grown, told / 2)
        seen = []
        while not seen or seen[-1] < newest:
            seen.append(stopped.until("set")["swaps"])
        # The few that the system held, one that the program held, and then the newest.
        self.assertLess(len(seen), 45)
        self.assertEqual(seen[-1], newest)

    def test_ends_within_a_second_with_open_streams(self):
        self.closed(Creator(self.plant))
        needed = []
        # A machine may be busy with something else for once; a program that waits waits always.
        while len(needed) < 5 and (not needed or min(needed) >= 1):
            service = self.serve()
            streams = [self.stream(service) for _ in range(20)]
            for stream in streams:
                stream.until("set")

            code, seconds = service.end()

            self.assertEqual(code, 0)
            needed.append(seconds)
            self.assertTrue(all(stream.ends() for stream in streams))
        self.assertLess(min(needed), 1)


if __name__ == "__main__":
    unittest.main()
