"""A mirror on one machine: what arrives, byte for byte, and when."""

import struct
import unittest

from mirrors import Creator, Mirror, MirrorTest, tool, wait_until

VALUES = {
    "a/whole": "-9223372036854775807",
    "a/count": "18446744073709551615",
    "b/text": "Füllstand 𝄞",
    "b/number": "0.1",
    "c/low": "true",
    "c/high": "false",
    "c/ratio": "2.5",
}


class Sets(MirrorTest):
    def setUp(self):
        super().setUp()
        self.creator = self.closed(Creator(self.plant))

    def send(self, *options):
        return self.closed(Mirror("send", self.domain, "--lease", "20000", *options, self.plant.file))

    def receive(self, *options):
        return self.closed(
            Mirror("receive", self.domain, "--as", self.plant.mirror_key, *options, self.plant.file)
        )

    def write_all(self):
        self.plant.set(*(word for pair in VALUES.items() for word in pair))

    def wait_for(self, url, value, state="valid"):
        wait_until(lambda: (self.plant.leaves() or {}).get(url) == (value, state), f"{url} {value} {state}")

    def test_every_type_arrives_byte_for_byte(self):
        self.receive()
        self.send()
        self.write_all()

        self.wait_for("b/number", 0.1)

        self.assertEqual(self.plant.leaves(), self.plant.leaves(self.plant.file))
        self.assertEqual(self.plant.leaves()["a/count"], (18446744073709551615, "valid"))
        self.assertEqual(self.plant.leaves()["b/text"], ("Füllstand 𝄞", "valid"))
        both = self.plant.halves(self.plant.key) & self.plant.halves(self.plant.mirror_key)
        expected = struct.pack("=qiQi", -9223372036854775807, 0, 18446744073709551615, 0)
        self.assertTrue(any(half.startswith(expected) for half in both), both)

    def test_error_states_arrive_as_they_are(self):
        self.receive()
        self.send()
        self.plant.set("a/whole", "--error", "sensor-breakage")
        self.plant.set("b/number", "3")

        self.wait_for("b/number", 3)

        self.assertEqual(self.plant.leaves()["a/whole"], (None, "sensor-breakage"))
        self.assertEqual(self.plant.leaves()["c/ratio"], (None, "no-input"))

    def test_late_receiver_has_the_newest_set_at_once(self):
        self.send("--silent-after", "0")
        self.write_all()

        self.receive()

        self.wait_for("a/whole", -9223372036854775807)

    def test_mirror_without_a_source_is_timeout(self):
        receiver = self.receive()

        self.assertEqual(self.plant.states(), ["timeout"])
        self.assertFalse(receiver.logged("mirrors"))

    def test_what_is_written_into_a_mirror_is_overwritten(self):
        self.receive()
        self.send()
        self.write_all()
        self.wait_for("b/number", 0.1)

        self.assertEqual(tool("set", str(self.plant.mirror_file), "b/number", "7").returncode, 0)
        self.plant.set("b/number", "0.2")

        self.wait_for("b/number", 0.2)

    def test_source_without_a_region_waits_for_it(self):
        self.receive()
        self.creator.close()
        sender = self.send()
        self.assertEqual(self.plant.states(), ["timeout"])

        self.closed(Creator(self.plant))

        self.wait_for("b/number", None, "no-input")
        self.assertTrue(sender.logged("attached to region"))

    def test_both_programs_end_on_their_signal(self):
        receiver = self.receive()
        sender = self.send()
        wait_until(lambda: receiver.logged("mirrors"), "mirrors")

        self.assertEqual(sender.end(), 0)
        self.assertEqual(receiver.end(), 0)
        self.assertIsNone(self.plant.leaves())


if __name__ == "__main__":
    unittest.main()
