"""Settings, secrets and encryption of the edge node, and what it says of mistakes."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import sparkplug
from broker import Broker, Listener, Node, Relay
from exits import EXIT, LONGEST, TOOL, Creator, Plant, end_with_parent, free_port, wait_until

PROJECT = pathlib.Path(__file__).resolve().parents[3]
LEAVES = {"tank/level": {"type": "int32", "readOnly": False}}
GIVEN = ("--host", "127.0.0.1", "--group", "g", "--node", "n")


class Use(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tessel-use"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.plant = self.closed(Plant(LEAVES))

    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing

    def run_node(self, *arguments, **environment):
        return subprocess.run([EXIT, *arguments], capture_output=True, text=True, timeout=LONGEST, check=False,
                              env={**os.environ, "TESSEL_DIR": "", **environment})

    def file(self, name, text, mode=0o600):
        path = self.folder / name
        path.write_text(text, encoding="utf-8")
        path.chmod(mode)
        return str(path)

    def refused(self, code, said, *arguments):
        result = self.run_node("--state-dir", str(self.folder / "state"), *arguments)
        self.assertEqual((result.returncode, result.stdout), (code, ""))
        self.assertEqual(result.stderr, f"tessel-mqtt: error: {said}\n")

    def test_tool_runs_it(self):
        result = subprocess.run([TOOL, "mqtt", "--version"], capture_output=True, text=True, timeout=LONGEST,
                                check=False, env={**os.environ, "PATH": f"{pathlib.Path(EXIT).parent}:/usr/bin"})
        self.assertEqual(result.stdout.split()[0], "tessel-mqtt")
        self.assertEqual(result.returncode, 0)

    def test_help_that_nobody_reads_ends_in_silence(self):
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing, "wb") as closed:
            result = subprocess.run([EXIT, "--help"], stdout=closed, stderr=subprocess.PIPE, text=True, timeout=LONGEST,
                                    check=False)
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_help_page_and_default_configuration_have_every_key(self):
        text = self.run_node("--help").stdout
        keys = set(re.findall(r"^  --([a-z-]+)", text, re.M))
        self.assertGreater(len(keys), 20)
        page = (PROJECT / "docs/man/tessel-mqtt.1.md").read_text(encoding="utf-8")
        self.assertEqual(set(re.findall(r"^`--([a-z-]+)", page, re.M)), keys | {"version"})
        usual = (PROJECT / "exits/mqtt/default.conf").read_text(encoding="utf-8")
        inside = set(re.findall(r"^#?([a-z-]+) = ", usual, re.M))
        self.assertEqual(inside, keys - {"config", "version"} | {"deadband", "least-interval"})

    def test_default_configuration_is_one(self):
        usual = (PROJECT / "exits/mqtt/default.conf").read_text(encoding="utf-8")
        # Every key, as it stands there.
        every = re.sub(r"^#(?=[a-z-]+ = |\[)", "", usual, flags=re.M)
        for text in (usual, every):
            with self.subTest(text=text):
                result = self.run_node("--config", self.file("c", text), "--host", "h", "--group", "a/b")
                self.assertEqual(result.returncode, 2)
                self.assertIn("--group 'a/b' holds a '/'" if text == every else "no description; name a file or folder", result.stderr)

    def test_table_of_the_assertions_names_tests_that_exist(self):
        table = (PROJECT / "docs/sparkplug.md").read_text(encoding="utf-8")
        rows = re.findall(r"^\| `([a-z0-9-]+)` \| ([^|]+) \| ([^|]+) \|$", table, re.M)
        self.assertEqual(len(set(row[0] for row in rows)), 131)
        folder = pathlib.Path(__file__).parent
        sources = "".join(path.read_text(encoding="utf-8") for path in [*folder.glob("*.py"), *folder.glob("*.cpp")])
        for name, _, tests in rows:
            for test in [] if tests == "by review" else re.findall(r"`(\w+)`", tests) or ["none"]:
                self.assertRegex(sources, rf"(def |void ){test}\(", name)

    def test_mistakes_name_what_is_wrong(self):
        plant = str(self.plant.file)
        end = "; see 'tessel-mqtt --help'"
        self.refused(2, "no description; name a file or folder, set 'description' in the configuration, or TESSEL_DIR",
                     *GIVEN)
        self.refused(2, "--host is missing" + end, "--group", "g", "--node", "n", plant)
        self.refused(2, "--group is missing" + end, "--host", "h", "--node", "n", plant)
        self.refused(2, "--node 'a+b' holds a '+', which no name in a topic may" + end, *GIVEN[:4], "--node", "a+b",
                     plant)
        self.refused(2, "unknown option '--hots' (did you mean '--host'?)" + end, "--hots", "h", plant)
        self.refused(2, "--port takes a whole number from 1 to 65535, not '0'" + end, *GIVEN, "--port", "0", plant)
        self.refused(2, "--fallback takes HOST:PORT, not 'h'" + end, *GIVEN, "--fallback", "h", plant)
        self.refused(2, "--user and --password-file belong together" + end, *GIVEN, "--user", "u", plant)
        self.refused(2, "--cert-file and --key-file belong together" + end, *GIVEN, "--cert-file", "c", plant)
        self.refused(3, "/nowhere: no such description file or folder", *GIVEN, "/nowhere")
        config = self.file("c", "[report a]\ndeadband = -1\n")
        self.refused(2, "'deadband' of [report a] takes a number from 0, not '-1'" + end, *GIVEN, "--config", config,
                     plant)
        config = self.file("c", "[raport a]\n")
        self.refused(2, f"{config}:1:2: unknown section 'raport' (did you mean 'report'?)", *GIVEN, "--config", config,
                     plant)
        self.refused(4, "/proc/x: this folder for the number of the next session cannot be made; name another one "
                     "with 'state-dir'", *GIVEN, "--state-dir", "/proc/x", plant)

    def test_secrets_that_others_can_read_are_refused(self):
        plant = str(self.plant.file)
        advice = ": others may read or change it; 'chmod 600' or, for a group of its own, 'chmod 640' it"
        for mode in (0o604, 0o620, 0o602):
            secret = self.file("secret", "x\n", mode)
            self.refused(4, secret + advice, *GIVEN, "--user", "u", "--password-file", secret, plant)
            self.refused(4, secret + advice, *GIVEN, "--ca-file", self.file("ca", ""), "--cert-file",
                         self.file("cert", ""), "--key-file", secret, plant)
        empty = self.file("secret", "\n")
        self.refused(9, f"{empty}: its first line is empty", *GIVEN, "--user", "u", "--password-file", empty, plant)

    def test_user_and_password_are_given_to_the_broker(self):
        self.closed(Creator(self.plant))
        passwords = self.file("passwords", "")
        subprocess.run(["mosquitto_passwd", "-b", passwords, "u", "se cret"], check=True, timeout=LONGEST,
                       capture_output=True)
        os.chmod(passwords, 0o644)
        broker = self.closed(Broker("allow_anonymous false", f"password_file {passwords}"))
        wrong = self.closed(Node(broker, "--user", "u", "--password-file", self.file("wrong", "secret\n"),
                                 str(self.plant.file)))
        wrong.wait_log(f"no connection to broker 127.0.0.1:{broker.port}: Connection Refused: not authorised.; "
                       "trying again")
        wrong.end()

        right = self.closed(Node(broker, "--user", "u", "--password-file", self.file("right", "se cret\n", 0o640),
                                 str(self.plant.file)))

        right.wait_log("connected to broker")

    def test_tls_with_certificates_of_both_sides(self):
        self.closed(Creator(self.plant))
        cert, key = str(self.folder / "cert.pem"), str(self.folder / "key.pem")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
                        "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", cert],
                       check=True, timeout=LONGEST, capture_output=True)
        os.chmod(key, 0o600)
        port = free_port()
        broker = self.closed(Broker(f"listener {port} 127.0.0.1", f"cafile {cert}", f"certfile {cert}",
                                    f"keyfile {key}", "require_certificate true"))
        listener = self.closed(Listener(broker))
        plain = self.closed(Node(broker, str(self.plant.file), port=port))
        plain.wait_log("no connection to broker")
        plain.end()
        self.assertFalse(listener.all())

        self.closed(Node(broker, "--ca-file", cert, "--cert-file", cert, "--key-file", key, str(self.plant.file),
                         port=port))

        listener.wait("DBIRTH")

    def test_broker_that_stands_still_costs_no_memory_and_no_last_value(self):
        count, sets = 1500, 100
        plant = self.closed(Plant({f"tank/level{i}": {"type": "int32", "readOnly": False} for i in range(count)}))
        self.closed(Creator(plant))

        def set_all(value):
            plant.set(*(word for i in range(count) for word in (f"tank/level{i}", str(value))))

        set_all(0)
        broker = self.closed(Broker())
        listener = self.closed(Listener(broker))
        relay = self.closed(Relay(broker))
        node = self.closed(Node(broker, "--queue-bytes", "50000", "--keep-alive", "3600", str(plant.file),
                                port=relay.port))
        listener.wait("DBIRTH")
        relay.hold()
        for value in range(1, sets + 1):
            set_all(value)
        self.assertNotIn("no connection", node.log())
        relay.let_go()

        def last():
            told = [metric for message in listener.of("DDATA") for metric in message.payload.metrics
                    if metric.name == f"tank/level{count - 1}"]
            return sparkplug.value(told[-1])[1] if told else None

        wait_until(lambda: last() == sets, "the last value")
        # The kernel takes some of them, the program no more than its bound.
        self.assertLess(len(listener.of("DDATA")), sets * 0.9)
        self.assertEqual([message.payload.seq for message in listener.all()],
                         [i % 256 for i in range(len(listener.all()))])

    def test_patterns_that_lead_nowhere_are_told(self):
        config = self.file("c", "allow-write = tank/lebel\n[report pump]\ndeadband = 1\n")
        node = self.closed(Node(None, "--config", config, str(self.plant.file), port=free_port()))
        node.wait_log(f"allow-write 'tank/lebel' leads to no leaf of {self.plant.file}; 'tessel get' shows their URLs")
        node.wait_log(f"report 'pump' leads to no leaf of {self.plant.file}")

    def test_broker_may_be_named_by_an_address_in_brackets(self):
        self.closed(Creator(self.plant))
        try:
            port = free_port("::1")
        except OSError:
            self.skipTest("needs IPv6")
        broker = self.closed(Broker(f"listener {port} ::1"))
        listener = self.closed(Listener(broker))

        self.closed(Node(None, "--fallback", f"[::1]:{port}", str(self.plant.file), port=free_port()))

        listener.wait("DBIRTH")

    def test_device_whose_name_is_no_part_of_a_topic_is_told_and_left_out(self):
        folder = self.folder / "plant"
        folder.mkdir()
        leaf = {"type": "int32", "offsetSharedMemory": 0, "sizeValue": 4, "relativeOffsetMetadata": 4,
                "sizeMetadata": 4, "displayPosition": 0}
        text = json.dumps({"type": "treenode", "keyProcessDataMemory": self.plant.key, "doubleBuffer": True,
                           "sizeOfSharedMemory": 8, "value": {"level": leaf}})
        for name in ("a#b", "a+b", "a\x01b", "good"):
            (folder / f"{name}.process.json").write_text(text, encoding="utf-8")
        self.assertEqual(subprocess.run([TOOL, "build", str(folder)], capture_output=True, timeout=LONGEST,
                                        check=False).returncode, 0)
        broker = self.closed(Broker())
        listener = self.closed(Listener(broker))

        node = self.closed(Node(broker, str(folder)))

        for device, holds in (("a#b", "a '#'"), ("a+b", "a '+'"), ("a\\u0001b", "a control character")):
            node.wait_log(f"device '{device}' of {folder} is left out: its name holds {holds}, which no name in a topic "
                          "may; give its file or folder another one")
        creator = subprocess.Popen([TOOL, "hold", str(folder)], stdout=subprocess.PIPE, preexec_fn=end_with_parent)
        try:
            self.assertEqual([message.topic for message in listener.wait("DBIRTH")], ["spBv1.0/g/DBIRTH/n/good"])
        finally:
            creator.terminate()
            creator.communicate(timeout=LONGEST)
        (death,) = listener.wait("DDEATH")
        self.assertEqual((death.topic, death.payload.seq), ("spBv1.0/g/DDEATH/n/good", 2))

    def test_names_that_differ_in_case_alone_are_told(self):
        plant = self.closed(Plant({url: {"type": "int32"} for url in ("tank/level", "tank/Level", "tank/other")}))

        node = self.closed(Node(None, str(plant.file), port=free_port()))

        node.wait_log("'tank/level' and 'tank/Level' differ in upper and lower case alone; a host may take them for one "
                      "metric")
        self.assertEqual(node.log().count("in upper and lower case alone"), 1)

    def test_end_is_quick_while_the_broker_is_away(self):
        node = self.closed(Node(None, str(self.plant.file), port=free_port()))
        node.wait_log("no connection to broker")
        self.assertEqual(node.end(), 0)

    def test_description_comes_from_the_configuration_or_the_environment(self):
        config = self.file("c", f"description = {self.plant.file}\n")
        for arguments, environment in ((("--config", config), {}), ((), {"TESSEL_DIR": str(self.plant.file)})):
            result = self.run_node(*GIVEN, *arguments, "--state-dir", "/proc/x", **environment)
            self.assertEqual(result.returncode, 4, result.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
