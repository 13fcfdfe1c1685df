"""What neither side takes: descriptions, interfaces, layouts, a second source, and samples that lie."""

import json
import os
import signal
import subprocess
import unittest

from mirrors import EXIT, LONGEST, Creator, Mirror, MirrorTest, MirroredPlant, RawSource, tool, wait_until


def run(*arguments, limit=None):
    """`limit`: of the open files."""
    before = [] if limit is None else ["prlimit", f"--nofile={limit}"]
    return subprocess.run([*before, EXIT, *map(str, arguments)], capture_output=True, text=True, timeout=LONGEST, check=False)


class Refusals(MirrorTest):
    def send(self, plant=None):
        return self.closed(Mirror("send", self.domain, "--lease", "20000", (plant or self.plant).file))

    def receive(self, *options):
        return self.closed(
            # What is written by hand is written once.
            Mirror("receive", self.domain, "--as", self.plant.mirror_key, "--watchdog", "0", *options,
                   self.plant.file)
        )

    def change(self, change):
        root = json.loads(self.plant.file.read_text(encoding="utf-8"))
        change(root)
        self.plant.file.write_text(json.dumps(root), encoding="utf-8")

    def size(self):
        return json.loads(self.plant.file.read_text(encoding="utf-8"))["sizeOfSharedMemory"]

    def test_leaves_without_error_state_are_listed(self):
        def change(root):
            root["value"]["a"]["value"]["whole"]["sizeMetadata"] = 0
            root["value"]["b"]["value"]["number"]["sizeMetadata"] = 0
            root["value"]["c"]["value"]["ratio"]["sizeMetadata"] = 0

        self.change(change)

        refused = run("receive", "--domain", self.domain.number, self.plant.file)

        self.assertEqual(refused.returncode, 9)
        self.assertEqual(
            refused.stderr,
            f"tessel-mirror receive: error: {self.plant.file}: these leaves cannot show that their source has "
            "gone, as their slots hold no error state: a/whole, b/number; give them one, or name them with "
            "--without-state\n",
        )
        self.plant.write_mirror()
        self.receive("--without-state", "a/whole", "--without-state", "b/*")
        leaves = self.plant.leaves()
        self.assertEqual(leaves["c/ratio"][1], "timeout")
        self.assertEqual(leaves["a/count"][1], "timeout")
        self.assertEqual(leaves["a/whole"], (0, "valid"))

    def test_too_few_descriptors_for_the_engine_are_told(self):
        for command in (["send", self.plant.file], ["receive", self.plant.file], ["status"]):
            with self.subTest(command=command[0]):
                refused = run(command[0], "--domain", self.domain.number, *command[1:], limit=20)

                self.assertEqual(refused.returncode, 4)
                self.assertEqual(
                    refused.stderr,
                    f"tessel-mirror {command[0]}: error: domain {self.domain.number} cannot be joined: Too many open files; "
                    "its engine needs some 32 open files: allow more of them (ulimit -n, LimitNOFILE=)\n")

    def test_single_buffer_is_refused_by_both(self):
        self.change(lambda root: root.update(doubleBuffer=False))

        for command in ("send", "receive"):
            refused = run(command, "--domain", self.domain.number, self.plant.file)

            self.assertEqual(refused.returncode, 9)
            self.assertIn("has a single buffer, which has no whole sets", refused.stderr)

    def test_region_of_a_living_creator_is_not_taken(self):
        self.closed(Creator(self.plant))
        self.plant.set("a/whole", "5")

        refused = run("receive", "--domain", self.domain.number, self.plant.file)

        self.assertEqual(refused.returncode, 4)
        self.assertIn("give the mirror another key with --as", refused.stderr)
        self.assertEqual(self.plant.leaves(self.plant.file)["a/whole"], (5, "valid"))

    def test_region_that_is_taken_away_is_told_of(self):
        receiver = self.receive()
        self.assertEqual(tool("rm", "--force", self.plant.mirror_key).returncode, 0)

        words = f"error: region '{self.plant.mirror_key}' was removed or made anew by another process: "
        wait_until(lambda: receiver.logged(words), "it is told of")
        self.assertEqual(receiver.end(), 0)
        self.assertEqual(receiver.log().count(words), 1)

    def test_other_layout_is_refused_with_its_first_leaf(self):
        receiver = self.receive()
        self.change(lambda root: root["value"]["a"]["value"]["count"].update(type="int64"))
        self.closed(Creator(self.plant))

        self.send()

        self.assertEqual(receiver.wait(), 8)
        self.assertRegex(
            receiver.log(),
            r"has another layout than .*: the source has 'a/count', type int64 at offset 12, .*"
            r"here it is 'a/count', type uint64 at offset 12",
        )

    def test_source_that_comes_back_with_another_layout_is_refused(self):
        creator = self.closed(Creator(self.plant))
        receiver = self.receive()
        sender = self.send()
        wait_until(lambda: receiver.logged("mirrors"), "mirrors")
        sender.end()
        wait_until(lambda: self.plant.states() == ["timeout"], "lost")
        creator.close()
        self.change(lambda root: root["value"]["a"]["value"]["count"].update(type="int64"))
        self.closed(Creator(self.plant))

        self.send()

        wait_until(lambda: receiver.logged("'a/count', type int64"), "refused")
        self.assertEqual(self.plant.states(), ["timeout"])
        self.assertIsNone(receiver.process.poll())

    def test_layout_that_changes_under_way_is_a_loss(self):
        receiver = self.receive()
        raw = self.closed(RawSource(self.domain))
        raw.send(self.plant.key, self.plant.fingerprint(), data=bytes(self.size()))
        wait_until(lambda: self.plant.states() == ["valid"], "a set is shown")

        # As of a receiver that was stopped while the region was replaced: the newest is all that it hears.
        raw.send(self.plant.key, "5", attachment="2", data=bytes(self.size()))

        wait_until(lambda: receiver.logged("is lost: its layout has changed"), "lost")
        self.assertEqual(self.plant.states(), ["timeout"])
        wait_until(lambda: receiver.logged("has another layout than .*: it does not tell in what"), "refused")
        self.assertIsNone(receiver.process.poll())
        raw.send(self.plant.key, self.plant.fingerprint(), attachment="3", data=bytes(self.size()))
        wait_until(lambda: self.plant.states() == ["valid"], "healed")

    def test_layout_of_a_second_source_is_told_once_it_is_alone(self):
        receiver = self.receive()
        self.closed(Creator(self.plant))
        first = self.send()
        wait_until(lambda: receiver.logged(" mirrors "), "mirrors the first")
        raw = self.closed(RawSource(self.domain))
        raw.send(self.plant.key, "5", data=bytes(self.size()))
        wait_until(lambda: receiver.logged(r"from raw \(\w+\) was refused: \S+ \(\w+\) is its source"), "refused")

        first.end()
        wait_until(lambda: self.plant.states() == ["timeout"], "lost")
        raw.send(self.plant.key, "5", generation="2", data=bytes(self.size()))

        wait_until(lambda: receiver.logged(r"source raw \(\w+\) of region '\w+' has another layout than "), "told")
        self.assertEqual(self.plant.states(), ["timeout"])

    def test_source_without_a_region_is_named_as_the_first(self):
        receiver = self.receive()
        raw = self.closed(RawSource(self.domain))
        raw.send(self.plant.key, self.plant.fingerprint(), status="1")
        wait_until(lambda: receiver.logged("the creator of its region has gone"), "is the source")
        self.closed(Creator(self.plant))

        self.send()

        wait_until(lambda: receiver.logged(r"was refused: raw \(\w+\) is its source"), "refused")
        self.assertEqual(self.plant.states(), ["timeout"])

    def test_second_source_is_refused_until_the_first_has_gone(self):
        creator = self.closed(Creator(self.plant))
        receiver = self.receive()
        first = self.send()
        self.plant.set("a/whole", "1")
        wait_until(lambda: self.plant.leaves()["a/whole"] == (1, "valid"), "mirrors the first")

        self.send()
        wait_until(lambda: receiver.logged(r"from \S+ \(\w+\) was refused: \S+ \(\w+\) is its source"), "refused")
        self.assertEqual(self.plant.leaves()["a/whole"], (1, "valid"))
        first.end()

        wait_until(lambda: len(receiver.log().split(" mirrors ")) == 3, "mirrors the second")
        self.plant.set("a/whole", "2")
        wait_until(lambda: self.plant.leaves()["a/whole"] == (2, "valid"), "the second is shown")
        creator.close()

    def test_samples_that_lie_change_no_leaf(self):
        receiver = self.receive()
        raw = self.closed(RawSource(self.domain))
        fingerprint = self.plant.fingerprint()
        size = self.size()
        lies = {
            "it has": {"data": bytes(size - 1)},
            "status is 77": {"data": bytes(size), "status": "77"},
            "byte order is 9": {"data": bytes(size), "order": "9"},
        }
        for what, lie in lies.items():
            raw.send(self.plant.key, fingerprint, **lie)
        wait_until(lambda: receiver.logged("was refused: "), "refused")

        self.assertEqual(self.plant.states(), ["timeout"])

        # What is a set is one, though its bytes are nobody's values.
        raw.send(self.plant.key, fingerprint, data=bytes(size))
        wait_until(lambda: self.plant.states() == ["valid"], "a whole set is shown")
        raw.send(self.plant.key, fingerprint, data=bytes(size + 1), generation="2")
        raw.send(self.plant.key, fingerprint, data=b"\xff" * size, generation="3")
        wait_until(lambda: self.plant.states() != ["valid"], "random bytes are a set")
        self.assertIsNone(receiver.process.poll())

    def test_set_of_the_other_byte_order_shows_the_same_values(self):
        receiver = self.receive()
        raw = self.closed(RawSource(self.domain))
        creator = self.closed(Creator(self.plant))
        self.plant.set("a/whole", "-5", "a/count", "18446744073709551615", "b/text", "ä", "b/number", "0.1",
                       "c/low", "true", "c/high", "true", "c/ratio", "2.5")
        data = b"".join((
            (-5).to_bytes(8, "big", signed=True), bytes(4), b"\xff" * 8, bytes(4),
            "ä".encode("utf-16-be").ljust(32, b"\0"), bytes(4),
            bytes.fromhex("3fb999999999999a"), bytes(4),
            b"\x01", bytes(4), b"\x80", bytes(4), bytes.fromhex("40200000"), bytes(4)))

        raw.send(self.plant.key, self.plant.fingerprint(), order="2", data=data)

        wait_until(lambda: receiver.logged("mirrors"), "mirrors")
        wait_until(lambda: self.plant.leaves() == self.plant.leaves(self.plant.file), "the same values")
        creator.close()

    def test_every_type_and_state_of_the_other_byte_order_arrives_byte_for_byte(self):
        widths = {"int64": 8, "uint64": 8, "double": 8, "float": 4, "int32": 4, "selector": 4, "string": 2, "boolean": 1,
                  "bit": 1}
        leaves = {f"{kind}/v{number}": {"type": kind, "bitmask": 1 << 7 * number} for number in range(2)
                  for kind in widths}
        plant = self.closed(MirroredPlant(leaves))
        self.closed(Mirror("receive", self.domain, "--as", plant.mirror_key, "--watchdog", "0", plant.file))
        self.closed(Creator(plant))
        plant.set("int64/v0", "-9223372036854775807", "uint64/v0", "18446744073709551614", "double/v0", "-0.1",
                  "float/v0", "16777215", "int32/v0", "-2", "selector/v0", "3", "string/v0", "ß𝄞 ",
                  "boolean/v0", "true", "bit/v0", "true")
        plant.set("int64/v1", "--error", "sensor-breakage")
        plant.set("float/v1", "--error", "timeout")
        # Brings the other buffer up to date as well.
        plant.set("boolean/v0", "true")
        (newest,) = plant.halves(plant.key)
        data = bytearray(newest)
        root = json.loads(plant.file.read_text(encoding="utf-8"))
        for node in root["value"].values():
            for leaf in node["value"].values():
                first, width = leaf["offsetSharedMemory"], widths[leaf["type"]]
                state = first + leaf["relativeOffsetMetadata"]
                units = [(at, width) for at in range(first, first + leaf["sizeValue"], width)] + [(state, 4)]
                for at, size in units:
                    data[at:at + size] = data[at:at + size][::-1]
        self.assertNotEqual(bytes(data), newest)
        raw = self.closed(RawSource(self.domain))

        raw.send(plant.key, plant.fingerprint(), order="2", data=bytes(data))

        wait_until(lambda: plant.leaves() == plant.leaves(plant.file), "the same values and states")
        self.assertIn(newest, plant.halves(plant.mirror_key))
        self.assertEqual(plant.leaves()["int64/v1"], (None, "sensor-breakage"))
        self.assertEqual(plant.leaves()["uint64/v0"], (18446744073709551614, "valid"))

    def test_each_set_and_each_loss_is_one_swap(self):
        receiver = self.receive()
        raw = self.closed(RawSource(self.domain))
        swaps = self.plant.swaps_of_mirror()

        raw.send(self.plant.key, self.plant.fingerprint(), data=bytes(self.size()))
        wait_until(lambda: self.plant.states() == ["valid"], "a set")
        self.assertEqual(self.plant.swaps_of_mirror(), swaps + 1)

        raw.send(self.plant.key, self.plant.fingerprint(), data=bytes(self.size()))
        raw.send(self.plant.key, self.plant.fingerprint(), status="1")
        wait_until(lambda: receiver.logged("the creator of its region has gone"), "lost")
        self.assertEqual(self.plant.states(), ["timeout"])
        self.assertEqual(self.plant.swaps_of_mirror(), swaps + 2)

        raw.send(self.plant.key, self.plant.fingerprint(), data=bytes(self.size()))
        wait_until(lambda: self.plant.states() == ["valid"], "healed")
        self.assertEqual(self.plant.swaps_of_mirror(), swaps + 3)

    def test_older_set_is_not_shown(self):
        self.receive()
        raw = self.closed(RawSource(self.domain))
        for generation, first in (("5", b"\5"), ("4", b"\4"), ("6", b"\6")):
            raw.send(self.plant.key, self.plant.fingerprint(), generation=generation,
                     data=first + bytes(self.size() - 1))
            if generation != "4":
                wait_until(lambda: self.plant.leaves()["a/whole"] == (first[0], "valid"), "the newest is shown")

    def test_source_that_says_nothing_is_given_up_by_the_watchdog(self):
        receiver = self.receive("--watchdog", "300")
        raw = self.closed(RawSource(self.domain))

        raw.send(self.plant.key, self.plant.fingerprint(), data=bytes(self.size()))

        wait_until(lambda: receiver.logged("is lost: nothing came from it for 300 ms"), "given up")
        self.assertEqual(self.plant.states(), ["timeout"])

    def test_configuration_is_read_again(self):
        config = self.plant.folder / "receive.conf"
        lines = f"description = {self.plant.file}\nas = {self.plant.mirror_key}\n"
        config.write_text(lines + "watchdog = 0\n", encoding="utf-8")
        receiver = self.closed(Mirror("receive", self.domain, "--config", config))
        raw = self.closed(RawSource(self.domain))

        config.write_text(lines + "watchdog = 200\nport-base = 7500\n", encoding="utf-8")
        receiver.send_signal(signal.SIGHUP)
        wait_until(lambda: receiver.logged("the configuration was read again"), "reads")
        wait_until(lambda: receiver.logged("port-base: is taken over by a restart alone"), "tells")
        raw.send(self.plant.key, self.plant.fingerprint(), data=bytes(self.size()))
        wait_until(lambda: receiver.logged("nothing came from it for 200 ms"), "given up")

        config.write_text("watchdgo = 5\n", encoding="utf-8")
        receiver.send_signal(signal.SIGHUP)
        wait_until(lambda: receiver.logged(r"did you mean 'watchdog'\?\); the configuration stays"), "refuses")
        self.assertIsNone(receiver.process.poll())

    def test_clock_of_the_source_is_no_matter(self):
        self.receive()
        raw = self.closed(RawSource(self.domain))
        hour = 3600 * 1000 * 1000

        raw.send(self.plant.key, self.plant.fingerprint(), time=str(4 * 10**15), data=bytes(self.size()))
        wait_until(lambda: self.plant.states() == ["valid"], "a source of the future is shown")
        raw.send(self.plant.key, self.plant.fingerprint(), time=str(hour), generation="2",
                 data=b"\1" + bytes(self.size() - 1))

        wait_until(lambda: self.plant.leaves()["a/whole"] == (1, "valid"), "one of the past is shown")

    def test_interface_that_others_hear_is_asked_about(self):
        names = [name for name in os.listdir("/sys/class/net") if name != "lo"]
        if not names:
            self.skipTest("this machine has the loopback alone")

        refused = run("receive", "--interface", names[0], self.plant.file)

        self.assertEqual(refused.returncode, 2)
        self.assertIn("say 'insecure = yes' or --insecure", refused.stderr)

    def test_interface_that_is_not_there_is_named(self):
        refused = run("send", "--interface", "nowhere0", self.plant.file)

        self.assertEqual(refused.returncode, 4)
        self.assertIn("interface 'nowhere0' is not there; there are lo", refused.stderr)

    def test_words_that_are_none_are_refused(self):
        for words, text in (
            ([], "no command; it is send, receive or status"),
            (["recieve"], "unknown command 'recieve'; it is send, receive or status"),
        ):
            refused = run(*words)

            self.assertEqual(refused.returncode, 2)
            self.assertIn(text, refused.stderr)

    def test_two_descriptions_have_no_common_key(self):
        refused = run("receive", "--as", "x", self.plant.file, self.plant.mirror_file)

        self.assertEqual(refused.returncode, 2)
        self.assertIn("'as' gives one key, and there are 2 descriptions", refused.stderr)


if __name__ == "__main__":
    unittest.main()
