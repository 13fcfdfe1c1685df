"""With certificates: who has those of the authority mirrors, everybody else sees and says nothing."""

import json
import os
import pathlib
import shutil
import socket
import subprocess
import unittest

from mirrors import EXIT, LONGEST, Creator, Mirror, MirrorTest, tool, wait_until

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
        """A receiver that is not to see anything, and the description of its region."""
        root = json.loads(self.plant.file.read_text(encoding="utf-8"))
        key = root["keyProcessDataMemory"] = self.plant.key + name
        file = self.plant.folder / f"{name}.process.json"
        file.write_text(json.dumps(root), encoding="utf-8")
        receiver = self.closed(Mirror("receive", self.domain, "--as", key, *options, self.plant.file))
        self.addCleanup(tool, "rm", "--force", key)
        return receiver, file

    def test_certificates_of_one_authority_meet_and_no_others(self):
        self.closed(Creator(self.plant))
        theirs = self.authority("theirs", "display")
        strangers = [self.stranger("plain"), self.stranger("theirs", "--security", theirs / "display")]
        self.send("--security", self.ours / "device")
        self.receive("--security", self.ours / "display")

        for value in (1, 2, 3):
            self.plant.set("a/whole", str(value))
            wait_until(lambda: (self.plant.leaves() or {}).get("a/whole") == (value, "valid"), "mirrors")

        for receiver, file in strangers:
            self.assertEqual({state for _, state in self.plant.leaves(file).values()}, {"timeout"})
            self.assertFalse(receiver.logged(" mirrors "))

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

    def test_source_without_certificate_is_not_heard(self):
        self.closed(Creator(self.plant))
        self.plant.set("a/whole", "1")
        receiver = self.receive("--security", self.ours / "display")
        self.send()
        # One without certificates hears it: it is there.
        heard, _ = self.stranger("plain")
        wait_until(lambda: heard.logged(" mirrors "), "is heard without certificates")

        self.assertEqual(self.plant.states(), ["timeout"])
        self.assertFalse(receiver.logged(" mirrors "))

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
