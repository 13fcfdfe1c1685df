"""What `tessel-web` refuses of a request before it looks at what is asked."""

import contextlib
import json
import socket
import unittest

from web import LONGEST, TOKEN, Creator, WebTest

HOST = b"Host: localhost\r\n"
CLOSE = b"Connection: close\r\n"
WRITE = b"Authorization: Bearer " + TOKEN.encode() + b"\r\nContent-Type: application/json\r\n"
BODY = b'{"pump/speed": 7}'
GUARDS = ("Content-Security-Policy", "X-Frame-Options", "X-Content-Type-Options", "Referrer-Policy", "Cache-Control")


class Requests(WebTest):
    def setUp(self):
        super().setUp()
        self.closed(Creator(self.plant))
        self.service = self.serve("--token-file", self.token_file())

    def send(self, request):
        """All that is answered until the connection is closed."""
        with contextlib.closing(
            socket.create_connection((self.service.host, self.service.port), timeout=LONGEST)
        ) as raw:
            raw.sendall(request)
            raw.shutdown(socket.SHUT_WR)
            return b"".join(iter(lambda: raw.recv(65536), b""))

    def assert_refused(self, request, status, what):
        answer = self.send(request)
        head, _, body = answer.partition(b"\r\n\r\n")
        lines = head.decode().split("\r\n")
        self.assertEqual(lines[0].split()[1], str(status), answer)
        headers = dict(line.split(": ", 1) for line in lines[1:])
        self.assertEqual(headers["Connection"].lower(), "close")
        for name in GUARDS:
            self.assertIn(name, headers)
        error = json.loads(body)["error"]
        self.assertEqual(error["what"], what)
        self.assertTrue(error["where"] and error["cure"])

    def test_zero_byte_in_the_path_is_refused(self):
        for path in (b"/%00", b"/%00x", b"/\0x", b"/\0", b"/api/values%00", b"/api/values\0?x", b"/api/values?x\0y"):
            with self.subTest(path=path):
                self.assert_refused(
                    b"GET " + path + b" HTTP/1.1\r\n" + HOST + b"\r\n", 400, "the path has a zero byte"
                )

    def test_path_is_decoded(self):
        for path, status in ((b"/api/%76alues", b"200"), (b"/api/values%3f", b"404"), (b"/api/values?%00", b"200")):
            with self.subTest(path=path):
                answer = self.send(b"GET " + path + b" HTTP/1.1\r\n" + HOST + CLOSE + b"\r\n")
                self.assertEqual(answer.split()[1], status)

    def test_header_with_what_it_must_not_have_is_refused(self):
        for headers in (
            b"Host: localhost\0.evil.example\r\n",
            b"Host: localhost\0\r\n",
            b"X: a\0b\r\n" + HOST,
            HOST + b"X: a\0b\r\n",
            HOST + b"X: \0\r\n",
            HOST + b"X: a\x01b\r\n",
            HOST + b"X: a\rb\r\n",
            HOST + b"X: a\x7fb\r\n",
            HOST + b"X y: a\r\n",
            b"Host : localhost\r\n",
            HOST + b"X: a\r\n b\r\n",
            HOST + b"X: a\r\n\tb\r\nY: c\r\n",
        ):
            with self.subTest(headers=headers):
                self.assert_refused(
                    b"GET / HTTP/1.1\r\n" + headers + b"\r\n", 400, "a header has characters that it must not have"
                )

    def test_usual_headers_are_taken(self):
        for headers in (HOST, b"Host:localhost\r\n", b"Host: \t localhost\r\nX:\r\n", HOST + "X: ä\tß\r\n".encode(),
                        b"Host: localhost\nX: y\n", HOST + b"Cookie: a=b; c=\"d\"\r\n", b"X-!#$%&'*+.^_`|~9: y\r\n" + HOST):
            with self.subTest(headers=headers):
                answer = self.send(b"GET / HTTP/1.1\r\n" + headers + CLOSE + b"\r\n")
                self.assertTrue(answer.startswith(b"HTTP/1.1 200 "), answer)

    def test_body_without_one_clear_end_is_refused(self):
        chunked = b"11\r\n" + BODY + b"\r\n0\r\n\r\n"
        length = b"Content-Length: %d\r\n" % len(BODY)
        before = self.json(self.service, "/api/values")
        for headers, body in (
            (length + b"Transfer-Encoding: chunked\r\n", chunked),
            (b"Transfer-Encoding: chunked\r\n" + length, chunked),
            (length + length, BODY),
            (length + b"Content-Length: 0\r\n", BODY),
            (b"Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n", chunked),
            (b"Transfer-Encoding: gzip, chunked\r\n", chunked),
            (b"Transfer-Encoding: identity\r\n", BODY),
        ):
            with self.subTest(headers=headers):
                # What comes behind must not be taken for a request of its own.
                smuggled = b"GET /api/values HTTP/1.1\r\n" + HOST + b"\r\n"
                self.assert_refused(
                    b"POST /api/values HTTP/1.1\r\n" + HOST + WRITE + headers + b"\r\n" + body + smuggled, 400,
                    "it is not clear where the body ends",
                )
        self.assertEqual(self.json(self.service, "/api/values"), before)

    def test_length_that_is_none_is_refused(self):
        for length in (b"-1", b"+5", b"0x5", b"5,5", b"five", b"", b"99999999999999999999"):
            with self.subTest(length=length):
                answer = self.send(
                    b"POST /api/values HTTP/1.1\r\n" + HOST + WRITE + CLOSE + b"Content-Length: " + length + b"\r\n\r\n" + BODY
                )
                self.assertIn(answer.split()[1], (b"400", b"413"))

    def test_body_in_pieces_is_taken_up_to_the_limit(self):
        begin = b"POST /api/values HTTP/1.1\r\n" + HOST + WRITE + CLOSE + b"Transfer-Encoding: Chunked\r\n\r\n"
        answer = self.send(begin + b"11\r\n" + BODY + b"\r\n0\r\n\r\n")
        self.assertTrue(answer.startswith(b"HTTP/1.1 200 "), answer)

        answer = self.send(begin + b"10000\r\n%b\r\n" % (b" " * 65536) * 17 + b"0\r\n\r\n")
        self.assertTrue(answer.startswith(b"HTTP/1.1 413 "), answer)

    def test_headers_are_taken_up_to_the_limit(self):
        begin = b"GET /api/values HTTP/1.1\r\n" + HOST + CLOSE + b"X: "
        room = 16 * 1024 - len(begin) - len(b"\r\n\r\n")
        answer = self.send(begin + b"x" * room + b"\r\n\r\n")
        self.assertTrue(answer.startswith(b"HTTP/1.1 200 "), answer)

        # Never a silent end, wherever the memory of the request is full.
        for size in (*range(room + 1, room + 600, 37), *range(room + 600, 61000, 3001)):
            with self.subTest(size=size):
                self.assert_refused(
                    begin + b"x" * size + b"\r\n\r\n", 431, "the headers are larger than 16 KiB, or more than 200"
                )

    def test_many_headers_are_refused(self):
        begin = b"GET /api/values HTTP/1.1\r\n" + HOST + CLOSE
        self.assertTrue(self.send(begin + b"a:b\r\n" * 198 + b"\r\n").startswith(b"HTTP/1.1 200 "))
        for count in (199, 240, 900):
            with self.subTest(count=count):
                self.assert_refused(
                    begin + b"a:b\r\n" * count + b"\r\n", 431, "the headers are larger than 16 KiB, or more than 200"
                )

    def test_what_is_asked_one_behind_the_other_is_answered_in_turn(self):
        one = b"GET /api/values HTTP/1.1\r\n" + HOST + b"\r\n"
        answer = self.send(one * 3 + b"GET /%00 HTTP/1.1\r\n" + HOST + b"\r\n" + one)

        self.assertEqual(answer.count(b"HTTP/1.1 200 "), 3)
        self.assertEqual(answer.count(b"HTTP/1.1 400 "), 1)


if __name__ == "__main__":
    unittest.main()
