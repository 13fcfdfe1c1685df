"""What `tessel-web` bounds: whom it answers, how many, how much and for how long."""

import contextlib
import json
import pathlib
import signal
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


def is_dropped(connection):
    """Whether it is closed; it sends a byte again and again, so that it is never silent."""
    try:
        connection.sendall(b"x")
        return readable(connection) and connection.recv(65536) == b""
    except OSError:
        return True


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

    def ask_on(self, connection, path="/api/description"):
        """The status of another request on a connection that is kept."""
        connection.request("GET", path)
        response = connection.getresponse()
        response.read()
        return response.status

    def plain(self, service):
        return self.closed(socket.create_connection((service.host, service.port), timeout=LONGEST))

    def test_connections_within_the_limit_go_on_beside_those_above(self):
        service = self.serve("--connections", "2")
        kept = [self.closed(service.connection()) for _ in range(2)]
        self.assertEqual([self.ask_on(one) for one in kept], [200, 200])
        late = self.closed(service.connection())

        self.assertEqual(self.ask_on(late), 503)
        self.plain(service)

        self.assertEqual([self.ask_on(one) for one in kept], [200, 200])

    def test_idle_connections_count_and_give_their_place_back(self):
        service = self.serve("--connections", "3")
        idle = [self.plain(service) for _ in range(3)]
        self.assertEqual(service.ask("/api/description")[0], 503)

        idle[0].close()
        wait_until(lambda: service.ask("/api/description")[0] == 200, "there is room again")

    def test_crowd_of_connections_is_told_before_it_asks(self):
        self.closed(Creator(self.plant))
        service = self.serve("--connections", "1")
        stream = self.stream(service)
        stream.until("set")
        crowd = [self.plain(service) for _ in range(40)]

        answers = [b"".join(iter(lambda: each.recv(65536), b"")) for each in crowd]

        # Those that may still ask were not told anything.
        told = [answer for answer in answers if answer]
        self.assertEqual(len(told), 24)
        for answer in told:
            head, _, body = answer.partition(b"\r\n\r\n")
            self.assertTrue(head.startswith(b"HTTP/1.1 503 Service Unavailable\r\n"), head)
            self.assertIn(b"\r\nX-Frame-Options: DENY\r\n", head)
            self.assertEqual(json.loads(body)["error"]["what"], "too many connections")
        self.plant.set("pump/on", "true")
        self.assertEqual(stream.until("set")["values"], [[1, True, 0]])

    def left_behind(self, service):
        """Connections that the other side has closed, and the program has not."""
        closed_by_the_other = "08"
        table = pathlib.Path(f"/proc/{service.process.pid}/net/tcp").read_text(encoding="ascii")
        rows = [line.split() for line in table.splitlines()[1:]]
        place = f":{service.port:04X}"
        return [row for row in rows if row[1].endswith(place) and row[3] == closed_by_the_other]

    def test_connections_that_were_left_are_closed(self):
        service = self.serve("--timeout", "3600")
        begins = (
            b"",
            b"GET / HTTP/1.1\r\nHost: local",
            b"GET /api/description HTTP/1.1\r\nHost: localhost\r\n\r\n",
            b"GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n",
        )
        connections = [self.plain(service) for _ in begins]
        self.assertEqual(service.ask("/")[0], 200)
        # The end comes together with the request.
        service.process.send_signal(signal.SIGSTOP)
        for begin, left in zip(begins, connections):
            left.sendall(begin)
            left.shutdown(socket.SHUT_WR)
        service.process.send_signal(signal.SIGCONT)

        for begin, left in zip(begins, connections):
            with self.subTest(begin=begin):
                while left.recv(65536):
                    pass
        self.assertEqual(self.left_behind(service), [])

    def test_stream_that_was_left_unread_is_closed(self):
        leaves = {f"node/l{i}": {"type": "double", "readOnly": False} for i in range(2000)}
        plant = self.closed(Plant(leaves))
        self.closed(Creator(plant))
        service = self.closed(Service("--listen", "127.0.0.1:0", "--rate", "50", str(plant.file)))
        left = self.closed(Stream(service))
        others = self.closed(Stream(service))
        self.closed(QuickPublisher(plant, 100))
        for _ in range(60):
            others.until("set")

        left.socket().shutdown(socket.SHUT_WR)
        wait_until(lambda: len(self.left_behind(service)) == 0, "the stream is closed")

        self.assertTrue(left.ends())

    def test_second_request_has_the_time_of_the_first(self):
        service = self.serve("--timeout", "2")
        kept = self.closed(service.connection())
        self.assertEqual(self.ask_on(kept), 200)
        kept.sock.sendall(b"G")
        later = self.plain(service)
        later.sendall(b"G")

        def is_later_dropped():
            with contextlib.suppress(OSError):
                kept.sock.sendall(b"x")
            return is_dropped(later)

        wait_until(is_later_dropped, "a first request is dropped")
        # What was dropped with it has ended when this is answered.
        self.assertEqual(service.ask("/")[0], 200)
        self.assertTrue(readable(kept.sock), "the second request goes on")

    def test_slow_sender_is_dropped(self):
        service = self.serve("--timeout", "1", "--token-file", self.token_file())
        head = (
            f"POST /api/values HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer {TOKEN}\r\n"
            "Content-Type: application/json\r\nContent-Length: 100000\r\n"
        )
        begins = ("GET / HTTP/1.1\r\nX: ", head + "\r\n")
        slow = [self.plain(service) for _ in begins]
        for begin, connection in zip(begins, slow):
            connection.sendall(begin.encode())

        for begin, connection in zip(begins, slow):
            with self.subTest(begin=begin):
                wait_until(lambda connection=connection: is_dropped(connection), "the connection is dropped")
        self.assertEqual(service.ask("/")[0], 200)

    def test_stream_outlives_the_time_of_a_request(self):
        self.closed(Creator(self.plant))
        service = self.serve("--timeout", "1")
        stream = self.stream(service)
        stream.until("set")
        # Begun later, and dropped when its time was over.
        later = self.plain(service)
        wait_until(lambda: is_dropped(later), "a connection is dropped")

        self.plant.set("pump/on", "true")

        self.assertEqual(stream.until("set")["values"], [[1, True, 0]])

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
