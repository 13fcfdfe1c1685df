"""`tessel-web` as a service: its configuration, its secrets, its signals and what it says of mistakes."""

import contextlib
import json
import os
import pathlib
import re
import signal
import socket
import ssl
import subprocess
import unittest
from unittest import mock

from web import EXIT, LONGEST, TOKEN, Creator, Plant, Service, WebTest, free_port, wait_until

PROJECT = pathlib.Path(__file__).resolve().parents[3]


class WebService(WebTest):
    def setUp(self):
        super().setUp()
        self.config = self.plant.folder / "web.conf"

    def configure(self, text):
        self.config.write_text(f"description = {self.plant.file}\n{text}", encoding="utf-8")

    def serve_configured(self, **environment):
        return self.closed(Service("--config", str(self.config), environment=environment))

    def run_web(self, *arguments):
        run = subprocess.run([EXIT, *arguments], capture_output=True, text=True, timeout=LONGEST, check=False)
        self.assertEqual(run.stdout, "")
        return run.returncode, run.stderr.splitlines()[-1].removeprefix("tessel-web: error: ")

    def certificate(self, name="web"):
        """Certificate and key for this machine."""
        paths = [str(self.plant.folder / f"{name}.{ending}") for ending in ("crt", "key")]
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
             "-days", "1", "-subj", f"/CN={name}", "-addext", "subjectAltName=IP:127.0.0.1,DNS:localhost",
             "-out", paths[0], "-keyout", paths[1]],
            capture_output=True, check=True, timeout=LONGEST,
        )
        os.chmod(paths[1], 0o600)
        return paths

    def test_other_addresses_ask_for_encryption_and_a_token(self):
        token = self.token_file()
        certificate, key = self.certificate()
        place = "other machines can reach 0.0.0.0:0: give --cert-file, --key-file and --token-file as well, or listen " \
                "on 127.0.0.1; see 'tessel-web --help'"
        for words in ([], ["--token-file", token], ["--cert-file", certificate, "--key-file", key]):
            with self.subTest(words=words):
                self.assertEqual(
                    self.run_web("--listen", "0.0.0.0:0", *words, str(self.plant.file)), (2, place)
                )
        for words, place in ((":0", "[::]:0"), ("0.0.0.0:0", "0.0.0.0:0"), ("[::]:0", "[::]:0"), ("[0::0]:0", "[0::0]:0")):
            with self.subTest(words=words):
                self.assertEqual(
                    self.run_web("--listen", words, "--token-file", token, "--cert-file", certificate, "--key-file",
                                 key, str(self.plant.file)),
                    (2, f"{place} is all addresses of this machine: give the names by which browsers ask for the page "
                        "with --host; see 'tessel-web --help'"),
                )

    def test_wrong_use_is_refused(self):
        certificate, key = self.certificate()
        file = str(self.plant.file)
        for words, code, reason in (
            ([], 2, "no description; name a file or folder, set 'description' in the configuration, or TESSEL_DIR"),
            (["--rate", "51", file], 2, "--rate takes a whole number from 1 to 50, not '51'; see 'tessel-web --help'"),
            (["--hots", "x", file], 2, "unknown option '--hots' (did you mean '--host'?); see 'tessel-web --help'"),
            (["--host", "a:1", file], 2, "--host takes a name or an address without port, not 'a:1'; see 'tessel-web "
                                         "--help'"),
            (["--cert-file", certificate, file], 2, "--cert-file and --key-file belong together; see 'tessel-web --help'"),
            (["--listen", "x", file], 2, "'x' is no ADDRESS:PORT; write 127.0.0.1:9200, [::1]:9200 or :9200"),
            (["--cert-file", file, "--key-file", key, "--listen", "127.0.0.1:0", file], 9,
             f"{file}: no certificate that the key goes with; both have to be PEM, and belong together"),
            (["/nowhere/x.process.json"], 3, "/nowhere/x.process.json: no such description file or folder"),
        ):
            with self.subTest(words=words):
                self.assertEqual(self.run_web(*words), (code, reason))

    def test_token_that_others_can_read_is_refused(self):
        for mode in (0o640, 0o604, 0o620, 0o602, 0o610):
            with self.subTest(mode=oct(mode)):
                path = self.token_file(mode=mode)
                self.assertEqual(
                    self.run_web("--token-file", path, str(self.plant.file)),
                    (4, f"{path}: others than its owner may read or change it; 'chmod 600' it"),
                )

    def test_token_of_the_service_manager_is_taken(self):
        self.closed(Creator(self.plant))
        self.configure(f"listen = 127.0.0.1:0\ntoken-file = {self.token_file(mode=0o440)}\n")

        service = self.serve_configured(CREDENTIALS_DIRECTORY=str(self.plant.folder))

        self.assertEqual(self.write(service, {"pump/speed": 1})[0], 200)
        for mode, folder in ((0o440, "/tmp"), (0o444, self.plant.folder), (0o460, self.plant.folder)):
            with self.subTest(mode=oct(mode), folder=folder):
                path = self.token_file(mode=mode)
                with mock.patch.dict(os.environ, CREDENTIALS_DIRECTORY=str(folder)):
                    self.assertEqual(self.run_web("--token-file", path, str(self.plant.file))[0], 4)

    def test_text_that_is_no_token_is_refused(self):
        for text in ("short", "with a blank inside it", "ümläute-ümläute-ümläute"):
            with self.subTest(text=text):
                path = self.token_file(text)
                self.assertEqual(
                    self.run_web("--token-file", path, str(self.plant.file)),
                    (9, f"{path}: its first line is no token of at least 16 visible ASCII characters; 'openssl rand "
                        "-hex 16' prints one"),
                )

    def test_name_with_a_placeholder_stays_whole(self):
        path = self.plant.folder / "50%2"
        path.write_text("short\n", encoding="utf-8")
        path.chmod(0o600)

        code, text = self.run_web("--token-file", str(path), str(self.plant.file))

        self.assertEqual((code, text.split(":")[0]), (9, str(path)))
        self.assertIn("at least 16 visible", text)

    def test_key_that_others_can_read_is_refused(self):
        certificate, key = self.certificate()
        os.chmod(key, 0o644)

        self.assertEqual(
            self.run_web("--cert-file", certificate, "--key-file", key, str(self.plant.file)),
            (4, f"{key}: others may read or change it; 'chmod 600' or, for a group of its own, 'chmod 640' it"),
        )

    def test_encrypted_page_is_served(self):
        self.closed(Creator(self.plant))
        certificate, key = self.certificate()
        service = self.closed(
            EncryptedService(
                "--listen", "127.0.0.1:0", "--cert-file", certificate, "--key-file", key, "--token-file",
                self.token_file(), str(self.plant.file),
            )
        )
        context = ssl.create_default_context(cafile=certificate)
        with socket.create_connection((service.host, service.port), timeout=LONGEST) as plain:
            with context.wrap_socket(plain, server_hostname="localhost") as raw:
                body = b'{"pump/speed": 4}'
                raw.sendall(
                    f"POST /api/values HTTP/1.1\r\nHost: localhost\r\nOrigin: https://localhost\r\n"
                    f"Content-Type: application/json\r\nAuthorization: Bearer {TOKEN}\r\nConnection: close\r\n"
                    f"Content-Length: {len(body)}\r\n\r\n".encode() + body
                )
                answer = b"".join(iter(lambda: raw.recv(65536), b""))
        self.assertTrue(answer.startswith(b"HTTP/1.1 200 "), answer)
        with socket.create_connection((service.host, service.port), timeout=LONGEST) as plain:
            with context.wrap_socket(plain, server_hostname="localhost") as raw:
                raw.sendall(b"GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n")
                text = b""
                while b"event: set" not in text:
                    text += raw.recv(65536)
                self.plant.set("pump/speed", "17")
                while b"[0,17,0]" not in text:
                    text += raw.recv(65536)

    def test_configuration_is_shown_with_its_stamps(self):
        folder = self.plant.folder / "settings.config.json"
        folder.write_text(
            json.dumps(
                {"type": "treenode", "modifiedBy": "Factory(Device)", "lastModified": "2026-01-05T09:12:44.031Z",
                 "value": {"gain": {"type": "double", "unit": "V", "value": 1.5},
                           "big": {"type": "int64", "value": 7},
                           "mode": {"type": "selector", "selectionList": ["off", "on"], "value": 1}}}
            ),
            encoding="utf-8",
        )
        service = self.serve("--configuration", str(folder))

        told = self.json(service, "/api/configuration")

        stamp = {"modifiedBy": "Factory(Device)", "modifiedAt": "2026-01-05T09:12:44.031Z"}
        self.assertEqual(
            told,
            {"values": [
                {"url": "big", "type": "int64", "unit": "", "value": "7", **stamp},
                {"url": "gain", "type": "double", "unit": "V", "value": 1.5, **stamp},
                {"url": "mode", "type": "selector", "unit": "", "value": 1, "selection": "on", **stamp},
            ]},
        )
        self.assertIs(self.json(service, "/api/description")["configuration"], True)
        folder.write_text("{", encoding="utf-8")
        self.assertEqual(self.error_of(service.ask("/api/configuration"))[0], 503)
        self.assertEqual(self.error_of(self.serve().ask("/api/configuration"))[0], 404)

    def test_hangup_takes_another_region_and_streams_come_again(self):
        other = self.closed(Plant({"fan/speed": {"type": "double"}}))
        self.closed(Creator(self.plant))
        self.closed(Creator(other))
        port = free_port()
        self.configure(f"listen = 127.0.0.1:{port}\n")
        service = self.serve_configured()
        stream = self.stream(service)
        stream.until("set")

        self.config.write_text(f"listen = 127.0.0.1:{port}\ndescription = {other.file}\n", encoding="utf-8")
        service.process.send_signal(signal.SIGHUP)
        wait_until(lambda: "the configuration was read again" in service.log(), "read again")

        with self.assertRaisesRegex(AssertionError, "ended in order"):
            while True:
                stream.next()
        self.assertEqual(len(self.stream(service).until("set")["values"]), 1)

    def test_hangup_takes_another_token_and_hosts(self):
        self.closed(Creator(self.plant))
        path = self.token_file()
        self.configure(f"listen = 127.0.0.1:0\ntoken-file = {path}\n")
        service = self.serve_configured()
        former = service.last_served()
        self.assertEqual(self.write(service, {"pump/speed": 1})[0], 200)

        self.token_file("another-token-of-some-length")
        self.configure(f"listen = 127.0.0.1:0\ntoken-file = {path}\nhost = press3\n")
        service.process.send_signal(signal.SIGHUP)
        wait_until(lambda: "the configuration was read again" in service.log(), "read again")

        self.assertEqual(self.write(service, {"pump/speed": 1})[0], 401)
        self.assertEqual(self.write(service, {"pump/speed": 1}, token="another-token-of-some-length")[0], 200)
        self.assertEqual(service.ask("/", headers={"Host": "press3"})[0], 200)
        self.assertEqual(service.last_served(), former)

    def test_region_is_mapped_for_writing_only_with_a_token(self):
        self.closed(Creator(self.plant))
        self.configure("listen = 127.0.0.1:0\n")
        service = self.serve_configured()
        wait_until(lambda: self.plant.rights_of(service.process), "maps the region")
        self.assertEqual(self.plant.rights_of(service.process), ["r--s"])

        self.configure(f"listen = 127.0.0.1:0\ntoken-file = {self.token_file()}\n")
        service.process.send_signal(signal.SIGHUP)

        wait_until(lambda: self.plant.rights_of(service.process) == ["rw-s"], "maps it for writing")
        self.configure("listen = 127.0.0.1:0\n")
        service.process.send_signal(signal.SIGHUP)
        wait_until(lambda: self.plant.rights_of(service.process) == ["r--s"], "maps it for reading alone")

    def test_hangup_with_a_mistake_changes_nothing(self):
        self.closed(Creator(self.plant))
        path = self.token_file()
        self.configure(f"listen = 127.0.0.1:0\ntoken-file = {path}\n")
        service = self.serve_configured()
        for number, text in enumerate(("rate = 0\n", "listen = 0.0.0.0:0\n", "token-file = /nowhere/token\n"), 1):
            with self.subTest(text=text):
                self.configure(text)
                service.process.send_signal(signal.SIGHUP)
                wait_until(lambda: service.log().count("; the configuration stays as it was\n") == number, "refused")
                self.assertEqual(self.write(service, {"pump/speed": 1})[0], 200)

    def encrypted_stream(self, service, certificate):
        """A stream of events that has begun, and the certificate that it was served with."""
        context = ssl.create_default_context(cafile=certificate)
        plain = socket.create_connection((service.host, service.port), timeout=LONGEST)
        raw = self.closed(context.wrap_socket(plain, server_hostname="localhost"))
        raw.sendall(b"GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n")
        text = b""
        while b"event: set" not in text:
            text += raw.recv(65536)
        return raw, raw.getpeercert(binary_form=True)

    def test_hangup_with_a_broken_certificate_closes_nothing(self):
        self.closed(Creator(self.plant))
        certificate, key = self.certificate()
        good = [pathlib.Path(path).read_bytes() for path in (certificate, key)]
        others = [pathlib.Path(path).read_bytes() for path in self.certificate("other")]
        trusted = self.plant.folder / "trusted.crt"
        trusted.write_bytes(good[0])
        self.configure(f"listen = 127.0.0.1:0\ncert-file = {certificate}\nkey-file = {key}\n")
        service = self.closed(EncryptedService("--config", str(self.config)))
        stream, shown = self.encrypted_stream(service, str(trusted))

        for number, pair in enumerate(
            ((b"no certificate", good[1]), (good[0], b"no key"), (b"", good[1]), (good[0], b""), (good[0], others[1]),
             (others[0], good[1])), 1
        ):
            with self.subTest(number=number):
                for path, content in zip((certificate, key), pair):
                    pathlib.Path(path).write_bytes(content)
                service.process.send_signal(signal.SIGHUP)
                refused = f"{certificate}: no certificate that the key goes with; both have to be PEM, and belong " \
                          "together; the configuration stays as it was\n"
                wait_until(lambda: service.log().count(refused) == number, "refused")
                self.assertEqual(self.encrypted_stream(service, str(trusted))[1], shown)
        self.plant.set("pump/speed", "17")
        text = b""
        while b"[0,17,0]" not in text:
            piece = stream.recv(65536)
            self.assertTrue(piece, "the stream was closed")
            text += piece

    def test_hangup_takes_another_certificate(self):
        self.closed(Creator(self.plant))
        certificate, key = self.certificate()
        self.configure(f"listen = 127.0.0.1:0\ncert-file = {certificate}\nkey-file = {key}\n")
        service = self.closed(EncryptedService("--config", str(self.config)))
        stream, former = self.encrypted_stream(service, certificate)

        self.certificate()
        service.process.send_signal(signal.SIGHUP)
        wait_until(lambda: "the configuration was read again" in service.log(), "read again")

        self.assertNotEqual(self.encrypted_stream(service, certificate)[1], former)
        with contextlib.suppress(ConnectionError):
            while stream.recv(65536):
                pass

    def test_hangup_begins_encryption_at_the_same_address(self):
        self.closed(Creator(self.plant))
        certificate, key = self.certificate()
        port = free_port()
        self.configure(f"listen = 127.0.0.1:{port}\n")
        service = self.serve_configured()
        self.json(service, "/api/values")

        self.configure(f"listen = 127.0.0.1:{port}\ncert-file = {certificate}\nkey-file = {key}\n")
        service.process.send_signal(signal.SIGHUP)
        wait_until(lambda: f"serving https://127.0.0.1:{port}/" in service.log(), "serves encrypted")

        self.encrypted_stream(service, certificate)

    def test_service_manager_hears_how_far_it_is(self):
        self.configure("listen = 127.0.0.1:0\n")
        path = str(self.plant.folder / "notify")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(path)
            manager.settimeout(LONGEST)
            service = self.serve_configured(NOTIFY_SOCKET=path)

            self.assertEqual(
                manager.recv(4096).decode(),
                f"READY=1\nSTATUS=serving http://127.0.0.1:{service.port}/ of {self.plant.file}",
            )
            service.process.send_signal(signal.SIGHUP)
            self.assertRegex(manager.recv(4096).decode(), r"^RELOADING=1\nMONOTONIC_USEC=\d+$")
            self.assertTrue(manager.recv(4096).startswith(b"READY=1\n"))
            service.process.send_signal(signal.SIGTERM)
            self.assertEqual(manager.recv(4096), b"STOPPING=1")

    def test_tool_runs_the_program(self):
        path = f"{pathlib.Path(EXIT).parent}:{os.environ['PATH']}"
        run = subprocess.run(
            [os.environ["TESSEL_TOOL"], "web", "--version"], capture_output=True, text=True, timeout=LONGEST,
            check=True, env={**os.environ, "PATH": path},
        )
        self.assertRegex(run.stdout, r"^tessel-web \d+\.\d+\.\d+\n$")

    def test_manual_page_has_every_option(self):
        text = (PROJECT / "docs/man/tessel-web.1.md").read_text(encoding="utf-8")
        options = text.partition("\n## OPTIONS\n")[2].partition("\n## ")[0]
        run = subprocess.run([EXIT, "--help"], capture_output=True, text=True, timeout=LONGEST, check=True)
        helped = run.stdout.partition("\nOptions:\n")[2].partition("\n\n")[0]

        self.assertEqual(
            sorted(re.findall(r"^`([^`]+)`\n: ", options, re.M)),
            sorted(re.split(r"  +", line.strip())[0].removesuffix(" ") for line in helped.splitlines()),
        )

    def test_default_configuration_has_every_key_with_its_usual_value(self):
        text = (PROJECT / "exits/web/default.conf").read_text(encoding="utf-8")
        keys = {
            line[1:].split(" = ")[0]: line.split(" = ")[1]
            for line in text.splitlines()
            if line.startswith("#") and not line.startswith("# ") and " = " in line
        }
        run = subprocess.run([EXIT, "--help"], capture_output=True, text=True, timeout=LONGEST, check=True)
        known = {
            line.split()[0].lstrip("-") for line in run.stdout.splitlines() if line.startswith("  --")
        } - {"config", "version"}

        self.assertEqual(set(keys), known)
        for key in ("listen", "connections", "timeout", "rate"):
            self.assertIn(f"({keys[key]}).", run.stdout)


class EncryptedService(Service):
    def _served(self):
        found = re.findall(r"serving https://(\S+):(\d+)/", self.log())
        return [(host.strip("[]"), int(port)) for host, port in found]


if __name__ == "__main__":
    unittest.main()
