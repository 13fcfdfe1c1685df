"""What the tests of `tessel-web` share: a plant, the program, and streams of its events."""

import contextlib
import json
import pathlib
import select
import socket
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent))

from exits import (  # noqa: E402,F401
    KEEPS_FREED_MEMORY,
    EXIT,
    LONGEST,
    TOOL,
    Creator,
    LockHolder,
    Plant,
    Service,
    TimeTaken,
    end_with_parent,
    free_port,
    tool,
    wait_until,
)

LEAVES = {
    "pump/speed": {"type": "double", "unit": "1/min", "minLimit": 0, "maxLimit": 3000, "readOnly": False},
    "pump/on": {"type": "boolean", "readOnly": False},
    "pump/name": {"type": "string", "readOnly": False},
    "tank/level": {"type": "float", "unit": "m", "viewStart": -0.5, "viewEnd": 2, "labelTextId": "LEVEL"},
    "tank/count": {"type": "uint64", "maxLimit": 10, "readOnly": False},
    "tank/mode": {"type": "selector", "selectionList": ["off", "on"], "readOnly": True},
}
TOKEN = "0123456789abcdefXYZ"


class Stream:
    """The events of a stream, as they come."""

    def __init__(self, service, headers=()):
        self._socket = socket.create_connection((service.host, service.port), timeout=LONGEST)
        lines = ["GET /api/events HTTP/1.1", f"Host: localhost:{service.port}", *headers]
        self._socket.sendall("\r\n".join([*lines, "", ""]).encode())
        self._bytes = b""
        self._text = ""
        self.comments = 0
        while b"\r\n\r\n" not in self._bytes:
            self._more()
        head, _, self._bytes = self._bytes.partition(b"\r\n\r\n")
        self.head = head.decode()

    def _more(self):
        piece = self._socket.recv(65536)
        assert piece, "the stream has ended"
        self._bytes += piece

    def _chunk(self):
        while b"\r\n" not in self._bytes:
            self._more()
        size, _, self._bytes = self._bytes.partition(b"\r\n")
        size = int(size, 16)
        while len(self._bytes) < size + 2:
            self._more()
        self._text += self._bytes[:size].decode()
        self._bytes = self._bytes[size + 2 :]
        return size

    def next(self):
        """Name and data of the next event."""
        while True:
            while "\n\n" not in self._text:
                assert self._chunk() > 0, "the stream has ended in order"
            event, _, self._text = self._text.partition("\n\n")
            fields = [line.partition(": ")[::2] for line in event.split("\n")]
            if fields[0][0] == "":
                self.comments += 1
                continue
            assert [name for name, _ in fields] == ["event", "data"], event
            return fields[0][1], json.loads(fields[1][1])

    def until(self, name):
        """The data of the next event of that name."""
        end = time.monotonic() + LONGEST
        while time.monotonic() < end:
            event, data = self.next()
            if event == name:
                return data
        raise AssertionError(f"never: an event {name}")

    def ends(self):
        """Whether it is closed, in order or not, once everything was read."""
        try:
            while self._socket.recv(65536):
                pass
        except ConnectionError:
            pass
        return True

    def socket(self):
        return self._socket

    def close(self):
        self._socket.close()


class QuickPublisher:
    """Publishes far more often than anybody is told."""

    def __init__(self, plant, rate):
        self._process = subprocess.Popen(
            [TOOL, "sim", "--attach", "--rate", str(rate), str(plant.file)], stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL, preexec_fn=end_with_parent,
        )

    def close(self):
        self._process.terminate()
        self._process.wait(timeout=LONGEST)


class WebTest(unittest.TestCase):
    def setUp(self):
        self.plant = self.closed(Plant(LEAVES))

    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing

    def serve(self, *arguments, **environment):
        return self.closed(
            Service("--listen", "127.0.0.1:0", *arguments, str(self.plant.file), environment=environment)
        )

    def token_file(self, text=TOKEN, mode=0o600):
        path = self.plant.folder / "token"
        path.write_text(text + "\n", encoding="utf-8")
        path.chmod(mode)
        return str(path)

    def stream(self, service):
        return self.closed(Stream(service))

    def json(self, service, path):
        status, headers, text = service.ask(path)
        self.assertEqual((status, headers["Content-Type"]), (200, "application/json"), text)
        return json.loads(text)

    def error_of(self, answer):
        """Status and error object, which has cause, place and cure."""
        status, headers, text = answer
        self.assertEqual(headers["Content-Type"], "application/json", text)
        error = json.loads(text)["error"]
        self.assertEqual(sorted(error), ["cure", "what", "where"])
        self.assertTrue(all(error.values()), error)
        return status, error

    def write(self, service, values, token=TOKEN, **headers):
        """Status, headers and text of a POST."""
        body = values if isinstance(values, str) else json.dumps(values)
        given = {"Content-Type": "application/json", "Authorization": f"Bearer {token}", **headers}
        with contextlib.closing(service.connection()) as connection:
            connection.request(
                "POST", "/api/values", body.encode(), {k: v for k, v in given.items() if v is not None}
            )
            response = connection.getresponse()
            return response.status, response.headers, response.read().decode()


def readable(connection):
    """Whether there is something to read now."""
    return bool(select.select([connection], [], [], 0)[0])
