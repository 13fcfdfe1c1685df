"""With certificates: who has those of the authority mirrors, everybody else sees and says nothing.

That somebody sees nothing has no time of its own: it is looked at once somebody else, who came later, has seen it all. How
long that took is printed and bound.
"""

import json
import os
import pathlib
import shutil
import socket
import subprocess
import time
import unittest

from mirrors import EXIT, LONGEST, MIRRORED, Creator, Mirror, MirrorTest, tool, wait_until
from timing import FOUND_AGAIN, TIMEOUT, VALID, WAKES_TO_FIND, Shown, Timed

AUTHORITY = pathlib.Path(__file__).resolve().parents[3] / "script/authority"


class Listener:
    """Has what goes over the loopback, as anybody in a network has it."""

    def __init__(self):
        every_protocol = 3
        self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(every_protocol))
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        self._socket.bind(("lo", 0))
        self._socket.setblocking(False)

    def heard(self):
        """Since it was asked before."""
        packets = []
        try:
            while True:
                packets.append(self._socket.recv(1 << 16))
        except BlockingIOError:
            return b"".join(packets)

    def close(self):
        self._socket.close()


@unittest.skipUnless(shutil.which("openssl"), "openssl is not installed")
class Security(MirrorTest):
    def setUp(self):
        super().setUp()
        self.ours = self.authority("ours", "device", "display")

    def authority(self, folder, *names):
        path = self.plant.folder / folder
        subprocess.run([AUTHORITY, "--domain", str(self.domain.number), path, *names], check=True, timeout=LONGEST)
        return path

    def send(self, *options):
        return self.closed(Mirror("send", self.domain, "--lease", "20000", *options, self.plant.file))

    def receive(self, *options):
        return self.closed(
            Mirror("receive", self.domain, "--as", self.plant.mirror_key, *options, self.plant.file))

    def stranger(self, name, *options):
        """A receiver of a region of its own, and what that shows."""
        root = json.loads(self.plant.file.read_text(encoding="utf-8"))
        key = root["keyProcessDataMemory"] = self.plant.key + name
        file = self.plant.folder / f"{name}.process.json"
        file.write_text(json.dumps(root), encoding="utf-8")
        receiver = self.closed(Mirror("receive", self.domain, "--as", key, *options, self.plant.file))
        self.addCleanup(tool, "rm", "--force", key)
        return receiver, self.closed(Shown(file))

    def assert_nothing_was_shown(self, receiver, shown):
        wait_until(shown.sets, "the set of the receiver itself")
        states = [{url: state for url, (_, state) in leaves.items()} for _, leaves in shown.sets()]
        self.assertEqual(states, [dict.fromkeys(MIRRORED, TIMEOUT)])
        self.assertFalse(receiver.logged(" mirrors "))
        self.assertIsNone(receiver.process.poll())

    def shown_in_time(self, timed, begin, value):
        timed.within(FOUND_AGAIN, begin, lambda leaves: leaves["a/whole"] == (str(value), VALID),
                     f"set {value} for whom it is", WAKES_TO_FIND)

    def mirrored_beside(self, strangers):
        """Who may does mirror, though the `strangers` were there before; they have seen nothing by then."""
        self.receive("--security", self.ours / "display")
        timed = Timed(self, self.plant.mirror_file)
        begin = time.monotonic()
        self.send("--security", self.ours / "device")

        for value in (1, 2, 3):
            self.plant.set("a/whole", str(value))
            self.shown_in_time(timed, begin, value)
            begin = time.monotonic()

        for stranger in strangers:
            self.assert_nothing_was_shown(*stranger)

    def test_receiver_without_certificate_sees_nothing(self):
        self.closed(Creator(self.plant))

        self.mirrored_beside([self.stranger("plain")])

    def test_receiver_with_a_certificate_of_others_sees_nothing(self):
        self.closed(Creator(self.plant))
        theirs = self.authority("theirs", "display")

        self.mirrored_beside([self.stranger("theirs", "--security", theirs / "display")])

    def test_what_travels_with_certificates_is_not_to_be_read(self):
        try:
            listener = self.closed(Listener())
        except PermissionError as problem:
            self.skipTest(f"hears nothing of others: {problem}")
        self.closed(Creator(self.plant))
        # Of this run alone: others talk on the loopback too.
        value = f"secret {os.getpid()}"
        words = [value.encode("utf-16-le"), self.plant.key.encode()]

        def heard_while_mirrored(sending, receiving):
            listener.heard()
            heard = []
            sender, receiver = self.send(*sending), self.receive(*receiving)
            for text in (value + "s", value):
                self.plant.set("b/text", text)
                wait_until(lambda text=text: heard.append(listener.heard())
                           or (self.plant.leaves() or {}).get("b/text") == (text, "valid"), "mirrors")
            receiver.end()
            sender.end()
            heard.append(listener.heard())
            return [word for word in words if word in b"".join(heard)]

        self.assertEqual(heard_while_mirrored((), ()), words)
        self.assertEqual(heard_while_mirrored(("--security", self.ours / "device"),
                                              ("--security", self.ours / "display")), [])

    def not_heard(self, receiver_options, *sender_options):
        """A source of whom somebody with `receiver_options` hears, and nobody with our certificates."""
        self.closed(Creator(self.plant))
        self.plant.set("a/whole", "1")
        ours = self.receive("--security", self.ours / "display"), self.closed(Shown(self.plant.mirror_file))
        heard, shown = self.stranger("other", *receiver_options)
        begin = time.monotonic()
        self.send(*sender_options)

        wait_until(lambda: heard.logged(" mirrors "), "is heard by whom it is for")
        took = shown.when(begin, lambda leaves: leaves["a/whole"] == ("1", VALID), "its set") - begin
        print(f"{self.id().split('.')[-1]}: heard by whom it is for after {1000 * took:.0f} ms", flush=True)
        self.assert_nothing_was_shown(*ours)

    def test_source_without_certificate_is_not_heard(self):
        self.not_heard([])

    def test_source_with_a_certificate_of_others_is_not_heard(self):
        theirs = self.authority("theirs", "device", "display")

        self.not_heard(["--security", theirs / "display"], "--security", theirs / "device")

    def refusal(self, code, *options):
        run = subprocess.run([EXIT, "send", *map(str, options), self.plant.file], capture_output=True, text=True,
                             timeout=LONGEST, check=False)
        self.assertEqual(run.returncode, code, run.stderr)
        return run.stderr

    def test_files_that_cannot_be_used_are_refused(self):
        own = self.ours / "device"

        (own / "identity.key").chmod(0o644)
        self.assertIn("identity.key: others may read or change it", self.refusal(4, "--security", own))

        (own / "identity.key").chmod(0o600)
        (own / "governance.p7s").unlink()
        self.assertIn("governance.p7s: no such file", self.refusal(3, "--security", own))

        (own / "governance.p7s").write_text("nothing", encoding="ascii")
        self.assertIn("cannot be joined", self.refusal(4, "--domain", self.domain.number, "--security", own))


if __name__ == "__main__":
    unittest.main()
