"""POST /api/values: what is written, what is refused, and by whom it may be asked for."""

import json
import os
import socket
import unittest

from web import LEAVES, LONGEST, TOKEN, Creator, LockHolder, Plant, Service, TimeTaken, WebTest, tool, wait_until


class Writing(WebTest):
    def setUp(self):
        super().setUp()
        self.creator = self.closed(Creator(self.plant))
        self.service = self.serve("--token-file", self.token_file())

    def values(self):
        """URL to value and state, as another program sees them."""
        told = json.loads(tool("get", "--json", str(self.plant.file)).stdout)
        return {value["url"]: (value["value"], value["stateName"]) for value in told}

    def swaps(self):
        return self.json(self.service, "/api/values")["swaps"]

    def assert_refused(self, status, answer):
        """Refused with that status and an error, which is given back, and nothing was published."""
        told, error = self.error_of(answer)
        self.assertEqual((told, self.swaps()), (status, 1), error)
        return error

    def test_values_are_written_as_one_set(self):
        status, _, text = self.write(
            self.service,
            '{"pump/speed": 12.5, "pump/on": true, "pump/name": "a\\u00f6\\n\\"", "tank/count": 10,'
            ' "tank/level": {"state": "overrange"}}',
        )

        self.assertEqual(status, 200, text)
        self.assertEqual(self.swaps(), 2)
        self.assertEqual(
            self.values(),
            {"pump/speed": (12.5, "valid"), "pump/on": (True, "valid"), "pump/name": ('aö\n"', "valid"),
             "tank/count": (10, "valid"), "tank/level": (None, "overrange"), "tank/mode": (None, "no-input")},
        )

    def test_answer_tells_what_was_and_what_is(self):
        self.write(self.service, {"pump/speed": 12.5})

        told = json.loads(self.write(self.service, {"pump/speed": {"state": 9}})[2])

        self.assertEqual(
            told,
            {"written": [{"url": "pump/speed", "formerValue": 12.5, "formerState": 0, "formerStateName": "valid",
                          "value": None, "state": 9, "stateName": "timeout", "unit": "1/min", "type": "double"}]},
        )

    def test_answer_has_the_form_of_the_tool(self):
        changes = self.plant.folder / "changes.json"
        changes.write_text('{"pump/speed": 2, "tank/count": 3}', encoding="utf-8")
        self.write(self.service, {"pump/speed": 1, "tank/count": 1})
        of_tool = json.loads(tool("apply", "--json", str(self.plant.file), str(changes)).stdout)
        self.write(self.service, {"pump/speed": 1, "tank/count": 1})

        told = json.loads(self.write(self.service, {"pump/speed": 2, "tank/count": 3})[2])

        self.assertEqual(told["written"], of_tool)

    def test_whole_numbers_may_be_written_as_any_number_of_json(self):
        for text, value in (("5.0", 5), ("1e1", 10), ('"0x07"', 7), ('"3"', 3), ("0", 0), ("0.05e2", 5),
                            ("700e-2", 7), ("3.00000000000000000000", 3), ("0e-999999999999", 0)):
            with self.subTest(text=text):
                answer = self.write(self.service, f'{{"tank/count": {text}}}')
                self.assertEqual(answer[0], 200, answer[2])
                self.assertEqual(self.values()["tank/count"], (value, "valid"))

    def test_numbers_are_taken_and_refused_as_the_tool_does(self):
        self.plant = self.closed(Plant({**LEAVES, "tank/total": {"type": "uint64", "readOnly": False}}))
        self.closed(Creator(self.plant))
        self.service = self.serve("--token-file", self.token_file())
        for url, text, value in (
            ("tank/count", "0.99999999999999999999", None),
            ("tank/count", "1e-400", None),
            ("tank/count", "1.00000000000000000001", None),
            ("tank/count", "-0", None),
            ("tank/count", "-0.0", None),
            ("tank/count", "5.0", 5),
            ("tank/total", "9007199254740993.0", 9007199254740993),
            ("tank/total", "18446744073709551615", 18446744073709551615),
            ("tank/total", "1.8446744073709551615e19", 18446744073709551615),
            ("tank/total", "18446744073709551616.0", None),
            ("tank/total", "1e20", None),
            ("tank/total", "1e999999999999", None),
            ("tank/level", "1e-50", None),
            ("pump/speed", "1e-400", None),
            ("pump/speed", "0.99999999999999999999", 1),
            ("pump/speed", "1e-320", 1e-320),
        ):
            with self.subTest(url=url, text=text):
                changes = self.plant.folder / "changes.json"
                changes.write_text(f'{{"{url}": {text}}}', encoding="utf-8")
                self.plant.set(url, "2")
                of_tool = tool("apply", str(self.plant.file), str(changes))
                after_tool = self.values()[url]
                self.plant.set(url, "2")

                status, _, answer = self.write(self.service, f'{{"{url}": {text}}}')

                self.assertEqual(after_tool, (2 if value is None else value, "valid"))
                self.assertEqual(self.values()[url], after_tool, answer)
                self.assertEqual((of_tool.returncode == 0, status == 200), (value is not None, value is not None))

    def test_texts_are_written_as_they_were_sent(self):
        for escaped in (r"\ufeffab", r"a\ufeffb", r"\ufffeab", r"\ud83d\ude00", r"a\ud800b", r"\udc00", r"\u007f\u0085",
                        r"\u2028", r"\"\\\/\b\f\n\r\t", "\ufeffab", "\U0001f600", ""):
            with self.subTest(escaped=escaped):
                body = f'{{"pump/name": "{escaped}"}}'
                status, _, answer = self.write(self.service, body)
                self.assertEqual(status, 200, answer)
                sent = json.loads(body)["pump/name"]
                self.assertEqual(json.loads(answer)["written"][0]["value"], sent)
                self.assertEqual(self.json(self.service, "/api/values")["values"][2]["value"], sent)
                self.assertEqual(self.values()["pump/name"], (sent, "valid"))

    def test_what_a_leaf_does_not_take_is_refused(self):
        for url, text, what in (
            ("pump/speed", "3000.5", "3000.5 is above the upper limit, 3000"),
            ("pump/speed", "-1", "-1 is below the lower limit, 0"),
            ("pump/speed", '"fast"', "'fast' is no finite number of type double; an error state is written as "
                                     '{"state": NAME}'),
            ("pump/speed", "1e999", "'1e999' is no finite number of type double; an error state is written as "
                                    '{"state": NAME}'),
            ("pump/speed", '{"state": "valid"}', "'valid' is no error; give a value instead"),
            ("pump/speed", '{"state": "odd"}', "'odd' is no error state; tessel-states(7) lists them"),
            ("pump/on", "2", "'2' is no boolean; true, false, 1 and 0 are"),
            ("pump/name", "5", "a string takes a text in quotation marks"),
            ("pump/name", '"0123456789abcdef"', "a text of 16 characters does not fit; 15 do"),
            ("pump/name", '"a\\u0000b"', "a text ends where its first zero character is"),
            ("tank/count", "11", "11 is above the upper limit, 10"),
            ("tank/count", "-1", "'-1' is no uint64; a whole number from 0 to 18446744073709551615 is"),
            ("tank/count", "1.5", "'1.5' is no uint64; a whole number from 0 to 18446744073709551615 is"),
            ("tank/count", "18446744073709551616",
             "'18446744073709551616' is no uint64; a whole number from 0 to 18446744073709551615 is"),
        ):
            with self.subTest(url=url, text=text):
                error = self.assert_refused(409, self.write(self.service, f'{{"{url}": {text}}}'))
                self.assertEqual((error["what"], error["where"]), (what, url))

    def test_bare_slots_are_given_what_they_can_hold(self):
        bare = {"sizeMetadata": 0, "readOnly": False}
        self.plant = self.closed(Plant({"a/float": {"type": "float", **bare}, "a/int": {"type": "int32", **bare},
                                        "a/bit": {"type": "bit", "bitmask": 0, **bare}}))
        self.closed(Creator(self.plant))
        self.service = self.serve("--token-file", self.token_file())
        for url, text, what in (
            ("a/float", "1e37", "would read back as an error state, which this slot keeps in the number"),
            ("a/int", '{"state": "timeout"}', "a int32 without metadata cannot carry an error state"),
            ("a/bit", "true", "the mask of this bit names no bit of its byte"),
        ):
            with self.subTest(url=url):
                error = self.assert_refused(409, self.write(self.service, f'{{"{url}": {text}}}'))
                self.assertTrue(error["what"].endswith(what), error)
                self.assertEqual(error["where"], url)
        answer = self.write(self.service, {"a/float": {"state": "timeout"}, "a/int": 5})
        self.assertEqual(answer[0], 200, answer)
        self.assertEqual(self.values()["a/float"], (None, "timeout"))
        self.assertEqual(self.values()["a/int"], (5, "valid"))

    def test_log_tells_who_wrote_what(self):
        self.write(self.service, '{"pump/speed": 12.5, "pump/name": "a\\n\\"%1"}')
        self.write(self.service, {"pump/speed": {"state": "timeout"}})
        self.write(self.service, {"tank/count": 18446744073709551615})
        self.write(self.service, {"pump/speed": 7}, token="none")
        self.write(self.service, {"pump/on": True})

        lines = [line for line in self.service.log().splitlines() if "has written" in line]

        head = "tessel-web: 127.0.0.1 has written "
        self.assertEqual(
            lines,
            [head + "'pump/speed': 12.5, was no-input", head + r"""'pump/name': "a\n\"%1", was no-input""",
             head + "'pump/speed': timeout, was 12.5", head + "'pump/on': true, was no-input"],
        )

    def test_read_only_leaf_is_refused(self):
        error = self.assert_refused(403, self.write(self.service, {"tank/mode": 1}))

        self.assertEqual(
            (error["what"], error["where"]),
            ("it is read-only; only the process that created the region writes it", "tank/mode"),
        )

    def test_one_bad_value_keeps_all_from_being_written(self):
        status, _, text = self.write(
            self.service, {"pump/on": True, "tank/mode": 1, "pump/speed": 9999, "none/there": 1}
        )

        error = json.loads(text)["error"]
        self.assertEqual((status, self.swaps()), (403, 1))
        self.assertEqual(
            error["what"],
            "it is read-only; only the process that created the region writes it; 3 of 4 values are refused, and "
            "nothing is written",
        )
        self.assertEqual([each["where"] for each in error["refused"]], ["tank/mode", "pump/speed", "none/there"])
        self.assertEqual(self.values()["pump/on"], (None, "no-input"))
        # Nor does it come with the next set of somebody else.
        self.plant.set("tank/count", "1")
        self.assertEqual(self.values()["pump/on"], (None, "no-input"))

    def test_bad_body_is_refused_with_its_place(self):
        for body, what, where in (
            ("", "expected is an object of URLs and values", "character 1"),
            ("[]", "expected is an object of URLs and values", "character 1"),
            ("{}", "there is no value in it", "body"),
            ('{"pump/speed" 1}', "expected is ':'", "character 15"),
            ('{"pump/speed": 01}', 'a value is a number, a text, true, false or {"state": NAME}', "character 16"),
            ('{"pump/speed": nan}', 'a value is a number, a text, true, false or {"state": NAME}', "character 16"),
            ('{"pump/speed": null}', 'a number, a text, true, false or {"state": NAME} is a value', "pump/speed"),
            ('{"pump/speed": [1]}', 'a number, a text, true, false or {"state": NAME} is a value', "pump/speed"),
            ('{"pump/speed": {"value": 1}}', 'a number, a text, true, false or {"state": NAME} is a value',
             "pump/speed"),
            ('{"pump/speed": 1, "pump/speed": 2}', "the URL is given twice", "pump/speed"),
            ('{"pump/speed": 1,}', "expected is a text in quotation marks", "character 18"),
            ('{"pump/speed": 1} x', "there is something behind the object", "character 19"),
            ('{"pump/name": "a', "a text has no end", "character 17"),
            ('{"none/there": 1}', "there is no such leaf", "none/there"),
        ):
            with self.subTest(body=body):
                error = self.assert_refused(400, self.write(self.service, body))
                self.assertEqual((error["what"], error["where"]), (what, where))

    def test_body_that_is_no_utf8_is_refused(self):
        with socket.create_connection((self.service.host, self.service.port), timeout=LONGEST) as raw:
            body = b'{"pump/name": "\xff"}'
            raw.sendall(
                b"POST /api/values HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
                b"Connection: close\r\nAuthorization: Bearer " + TOKEN.encode()
                + b"\r\nContent-Length: %d\r\n\r\n" % len(body) + body
            )
            answer = b"".join(iter(lambda: raw.recv(65536), b""))

        self.assertTrue(answer.startswith(b"HTTP/1.1 400 "), answer)
        self.assertIn(b"the body is no UTF-8 text", answer)

    def test_without_token_nothing_is_written(self):
        for token in (None, "Bearer", "Bearer ", f"Basic {TOKEN}", TOKEN, f"Bearer {TOKEN}x", f"Bearer {TOKEN[:-1]}",
                      f"Bearer {TOKEN.lower()}"):
            with self.subTest(token=token):
                answer = self.write(self.service, {"pump/speed": 1}, Authorization=token)
                error = self.assert_refused(401, answer)
                self.assertTrue(answer[1]["WWW-Authenticate"].startswith("Bearer"))
                self.assertNotIn(TOKEN, json.dumps(error))
        self.assertNotIn(TOKEN, self.service.log())

    def test_without_token_file_nothing_is_written(self):
        service = self.serve()

        error = self.assert_refused(403, self.write(service, {"pump/speed": 1}, token=""))

        self.assertEqual(
            (error["what"], error["cure"]),
            ("this server writes nothing", "start tessel-web with --token-file FILE to allow it"),
        )

    def test_other_content_types_are_refused(self):
        for content_type in (None, "text/plain", "application/x-www-form-urlencoded", "application/jsonx",
                             "application/json; charset=latin-1"):
            with self.subTest(content_type=content_type):
                answer = self.write(self.service, {"pump/speed": 1}, **{"Content-Type": content_type})
                self.assertEqual(self.assert_refused(415, answer)["where"], "Content-Type")
        answer = self.write(self.service, {"pump/speed": 1}, **{"Content-Type": "Application/JSON; charset=UTF-8"})
        self.assertEqual(answer[0], 200)

    def test_pages_of_other_servers_are_refused(self):
        own = f"http://127.0.0.1:{self.service.port}"
        for origin in ("http://evil.example", "null", f"https://127.0.0.1:{self.service.port}", "http://127.0.0.1",
                       own + "/", own + ".evil.example", "http://127.0.0.1:1"):
            with self.subTest(origin=origin):
                answer = self.write(self.service, {"pump/speed": 1}, Origin=origin)
                self.assertEqual(self.assert_refused(403, answer)["where"], "Origin")
        self.assertEqual(self.write(self.service, {"pump/speed": 1}, Origin=own)[0], 200)

    def test_large_body_is_refused_in_order(self):
        answer = self.write(self.service, '{"pump/name": "' + "x" * (1024 * 1024) + '"}')

        self.assert_refused(413, answer)
        self.assertEqual(self.write(self.service, {"pump/speed": 1})[0], 200)

    def test_without_region_nothing_is_written(self):
        self.creator.close()

        status, error = self.error_of(self.write(self.service, {"pump/speed": 1}))

        self.assertEqual((status, error["where"]), (503, self.plant.key))

    def test_stream_tells_what_was_written(self):
        stream = self.stream(self.service)
        stream.until("set")

        self.write(self.service, {"pump/speed": 5})

        self.assertEqual(stream.until("set")["values"], [[0, 5, 0]])

    def test_description_tells_whether_writing_is_set_up(self):
        self.assertIs(self.json(self.service, "/api/description")["writing"], True)


class StoppedWriter(WebTest):
    """Somebody was stopped inside the lock of the region."""

    # What a lock waits for at most, which nobody may have waited here.
    LOCK_BOUND = 5

    def assert_nobody_waits(self, plant, reads):
        """`reads`: whether a set is to be had all the same."""
        self.closed(Creator(plant))
        service = self.closed(
            Service("--listen", "127.0.0.1:0", "--token-file", self.token_file(), str(plant.file))
        )
        stream = self.stream(service)
        stream.until("set")
        holder = self.closed(LockHolder(plant))
        taken = TimeTaken(service.process)

        status, error = self.error_of(self.write(service, {"pump/speed": 1}))

        self.assertEqual((status, error["where"]), (503, plant.key))
        self.assertEqual(
            error["what"],
            f"process {os.getpid()} holds the lock of region '{plant.key}' and does not leave it; have it go on, or "
            "end it: 'tessel doctor' looks at the region",
        )
        self.assertEqual(service.ask("/api/values")[0], 200 if reads else 503)
        self.assertLess(taken.seconds(), self.LOCK_BOUND)
        holder.close()
        self.assertEqual(self.write(service, {"pump/speed": 2})[0], 200)
        self.assertEqual(self.json(service, "/api/values")["values"][0]["value"], 2)
        self.assertEqual(stream.until("set")["values"], [[0, 2, 0]])
        self.closed(LockHolder(plant))
        code, seconds = service.end()
        self.assertEqual(code, 0)
        self.assertLess(seconds, self.LOCK_BOUND)

    def test_double_buffer_is_read_and_not_written(self):
        self.assert_nobody_waits(self.plant, True)

    def test_single_buffer_is_neither_read_nor_written(self):
        self.assert_nobody_waits(self.closed(Plant(LEAVES, double_buffer=False)), False)

    def test_log_names_who_does_not_leave(self):
        plant = self.closed(Plant(LEAVES, double_buffer=False))
        self.closed(Creator(plant))
        service = self.closed(Service("--listen", "127.0.0.1:0", str(plant.file)))
        self.stream(service).until("set")
        holder = self.closed(LockHolder(plant))
        told = f"tessel-web: warning: process {os.getpid()} holds the lock of region '{plant.key}'"

        wait_until(lambda: told in service.log(), "the lock is told of")
        holder.close()
        wait_until(lambda: f"the lock of region '{plant.key}' is free again" in service.log(), "and its end")
        self.assertEqual(service.log().count(told), 1)


if __name__ == "__main__":
    unittest.main()
