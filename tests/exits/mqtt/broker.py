"""A broker and its listener, and the edge node that is tested; each is ended with the test."""

import collections
import contextlib
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent))

import sparkplug  # noqa: E402
from exits import EXIT, LONGEST, TimeTaken, end_with_parent, free_port, wait_for_end, wait_until  # noqa: E402

Message = collections.namedtuple("Message", "topic qos retained payload")


def is_listening(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


class Broker:
    """`mosquitto` on a loopback port of its own."""

    def __init__(self, *lines, port=None, log="all"):
        self.port = port or free_port()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tessel-broker"))
        self._settings = self.folder / "mosquitto.conf"
        access = [] if any("allow_anonymous" in line for line in lines) else ["allow_anonymous true"]
        self._settings.write_text(
            "\n".join([f"listener {self.port} 127.0.0.1", "persistence false", f"log_type {log}",
                       "user root", *access, *lines, ""]), encoding="utf-8")
        self._log = open(self.folder / "log", "w", encoding="utf-8")
        self.process = None
        self.start()

    def start(self):
        self.process = subprocess.Popen(
            ["/usr/sbin/mosquitto", "-c", str(self._settings)], stdout=self._log, stderr=self._log,
            preexec_fn=end_with_parent)
        wait_until(lambda: self.process.poll() is not None or is_listening(self.port), "broker listens")
        assert self.process.poll() is None, self.log()

    def log(self):
        return (self.folder / "log").read_text(encoding="utf-8", errors="replace")

    def forget_log(self):
        """While it is stopped."""
        self._log.truncate(0)
        self._log.seek(0)

    def connects(self, client):
        """How often the client has connected, by the broker's log."""
        return len(re.findall(rf"New client connected from \S+ as {re.escape(client)} ", self.log()))

    def leaves(self, client):
        """Of each session of the client that is over, whether it took leave."""
        ends = re.findall(rf"Client {re.escape(client)} (disconnected|closed its connection)\.", self.log())
        return [end == "disconnected" for end in ends]

    def stop(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        self.process.wait(timeout=LONGEST)

    def close(self):
        if self.process.poll() is None:
            self.stop(signal.SIGKILL)
        self._log.close()
        shutil.rmtree(self.folder)

    def publish(self, topic, payload, *options):
        data = payload if isinstance(payload, bytes) else payload.SerializeToString()
        subprocess.run(["mosquitto_pub", "-p", str(self.port), "-t", topic, "-q", "1", "-s", *options],
                       input=data, check=True, timeout=LONGEST)

    def host(self, name, online, timestamp):
        text = '{"online":%s,"timestamp":%d}' % ("true" if online else "false", timestamp)
        self.publish(f"spBv1.0/STATE/{name}", text.encode(), "-r")


class Relay:
    """Passes on what a node and a broker say; held, it takes nothing from the node any more, with little
    room on the way."""

    def __init__(self, broker):
        self._target = broker.port
        self._open = threading.Event()
        self._open.set()
        self._ends = []
        self._door = socket.socket()
        self._door.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        self._door.bind(("127.0.0.1", 0))
        self._door.listen()
        self.port = self._door.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        with contextlib.suppress(OSError):
            node = self._door.accept()[0]
            broker = socket.create_connection(("127.0.0.1", self._target))
            self._ends = [node, broker]
            threading.Thread(target=self._pass, args=(broker, node, threading.Event()), daemon=True).start()
            self._pass(node, broker, self._open)

    def _pass(self, source, target, is_open):
        if is_open is not self._open:
            is_open.set()
        with contextlib.suppress(OSError):
            while True:
                is_open.wait()
                data = source.recv(4096)
                if not data:
                    return
                target.sendall(data)

    def hold(self):
        self._open.clear()

    def let_go(self):
        self._open.set()

    def close(self):
        self._open.set()
        for end in [self._door, *self._ends]:
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)
            end.close()


class Listener:
    """`mosquitto_sub` on everything; has subscribed when this is there."""

    def __init__(self, broker):
        self._file = tempfile.TemporaryFile()
        self._process = subprocess.Popen(
            ["stdbuf", "-oL", "mosquitto_sub", "-p", str(broker.port), "-q", "1", "-t", "spBv1.0/#", "-t", "ready",
             "-i", f"listener{id(self)}", "-F", "%t %q %r %x"],
            stdout=self._file, stderr=subprocess.DEVNULL, preexec_fn=end_with_parent)

        def is_ready():
            broker.publish("ready", b"x")
            return b"ready " in self._bytes()

        wait_until(is_ready, "listener hears")

    def _bytes(self):
        return os.pread(self._file.fileno(), os.fstat(self._file.fileno()).st_size, 0)

    def all(self):
        """Those of nodes, in the order in which they came."""
        messages = []
        whole = self._bytes()
        for line in whole[: whole.rfind(b"\n") + 1].decode().splitlines():
            topic, qos, retained, data = (line.split(" ") + [""])[:4]
            if re.match(r"spBv1\.0/g/[ND](BIRTH|DATA|DEATH)/", topic):
                messages.append(Message(topic, int(qos), retained == "1", sparkplug.read(bytes.fromhex(data))))
        return messages

    def of(self, kind):
        return [message for message in self.all() if f"/{kind}/" in message.topic]

    def wait(self, kind, count=1):
        wait_until(lambda: len(self.of(kind)) >= count, f"{count} {kind}; {[m.topic for m in self.all()]}")
        return self.of(kind)

    def close(self):
        self._process.kill()
        self._process.wait(timeout=LONGEST)
        self._file.close()


class Node:
    """The edge node n of the group g, with a state folder of its own."""

    def __init__(self, broker, *arguments, state=None, name="n", config=None, port=None):
        self._own = None if state else tempfile.mkdtemp(prefix="tessel-node")
        self.state = state or self._own
        self._log = tempfile.TemporaryFile("w+", encoding="utf-8")
        self.seconds_to_end = None
        words = ["--host", "127.0.0.1", "--port", str(port or broker.port), "--group", "g", "--node", name,
                 "--state-dir", str(self.state), "--interval", "10", "--reconnect-least", "100",
                 "--reconnect-most", "400"]
        if config is not None:
            self.config = pathlib.Path(self.state) / "node.conf"
            self.config.write_text(config, encoding="utf-8")
            words += ["--config", str(self.config)]
        self.process = subprocess.Popen([EXIT, *words, *arguments], stderr=self._log,
                                        preexec_fn=end_with_parent)

    def log(self):
        return os.pread(self._log.fileno(), os.fstat(self._log.fileno()).st_size, 0).decode()

    def wait_log(self, text):
        wait_until(lambda: text in self.log(), f"'{text}' in: {self.log()}")

    def end(self, number=signal.SIGTERM):
        """Its exit code; the time that it took is in `seconds_to_end`."""
        if self.process.poll() is None:
            taken = TimeTaken(self.process)
            self.process.send_signal(number)
            wait_for_end(self.process)
            self.seconds_to_end = taken.seconds()
        return self.process.wait(timeout=LONGEST)

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait(timeout=LONGEST)
        self._log.close()
        if self._own:
            shutil.rmtree(self._own)


def metrics(message):
    """The metrics of a message by their names."""
    return {metric.name: metric for metric in message.payload.metrics}


def command(*parts):
    """A payload of a command: (name, datatype, field, value)."""
    payload = sparkplug.Payload(timestamp=1)
    for name, datatype, field, content in parts:
        metric = payload.metrics.add(name=name, datatype=datatype, timestamp=1)
        setattr(metric, field, content)
    return payload


def rebirth():
    return command(("Node Control/Rebirth", 11, "boolean", True))
