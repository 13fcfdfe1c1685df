"""The streams of events: what they tell, in which order, and what they cost."""

import time
import unittest

from web import Creator, QuickPublisher, WebTest


class Events(WebTest):
    def test_stream_greets_and_tells_everything_once(self):
        self.closed(Creator(self.plant))
        self.plant.set("pump/speed", "1500.25")
        service = self.serve()
        fingerprint = self.json(service, "/api/description")["fingerprint"]

        stream = self.stream(service)

        self.assertIn("content-type: text/event-stream", stream.head.lower())
        self.assertIn("cache-control: no-store", stream.head.lower())
        self.assertEqual(stream.next(), ("hello", {"fingerprint": fingerprint, "up": True}))
        name, told = stream.next()
        self.assertEqual((name, told["full"], told["swaps"]), ("set", True, 2))
        self.assertEqual(
            told["values"],
            [[0, 1500.25, 0], [1, None, 3], [2, None, 3], [3, None, 3], [4, None, 3], [5, None, 3]],
        )
        self.assertGreaterEqual(told["age"], 0)
        self.assertRegex(told["time"], r"Z$")

    def test_later_only_changes_are_told(self):
        self.closed(Creator(self.plant))
        service = self.serve()
        stream = self.stream(service)
        self.assertEqual(stream.until("set")["full"], True)

        self.plant.set("pump/on", "true")
        told = stream.until("set")
        self.assertEqual((told["full"], told["values"]), (False, [[1, True, 0]]))

        self.plant.set("tank/level", "--error", "timeout")
        self.assertEqual(stream.until("set")["values"], [[3, None, 9]])

    def test_set_without_changes_tells_that_it_was_published(self):
        self.closed(Creator(self.plant))
        self.plant.set("pump/speed", "1")
        stream = self.stream(self.serve())
        first = stream.until("set")

        self.plant.set("pump/speed", "1")

        told = stream.until("set")
        self.assertEqual((told["values"], told["swaps"]), ([], first["swaps"] + 1))

    def test_numbers_that_a_browser_would_round_are_texts(self):
        self.closed(Creator(self.plant))
        self.plant.set("tank/count", "--no-limits", "18446744073709551615")
        stream = self.stream(self.serve())

        self.assertIn([4, "18446744073709551615", 0], stream.until("set")["values"])

    def test_streams_tell_the_same(self):
        self.closed(Creator(self.plant))
        service = self.serve()
        streams = [self.stream(service) for _ in range(5)]
        for stream in streams:
            stream.until("set")

        self.plant.set("pump/speed", "7")

        self.assertEqual([stream.until("set")["values"] for stream in streams], [[[0, 7, 0]]] * 5)

    def test_region_that_goes_and_comes_is_told_of(self):
        service = self.serve()
        stream = self.stream(service)
        self.assertEqual(stream.next()[1]["up"], False)
        self.assertEqual(
            stream.next(),
            ("gone", {"reason": f"no region '{self.plant.key}' is there; waiting for the process that creates it"}),
        )

        creator = self.closed(Creator(self.plant))
        back = stream.until("back")
        self.assertEqual(back, {"fingerprint": self.json(service, "/api/description")["fingerprint"]})
        name, told = stream.next()
        self.assertEqual((name, told["full"], len(told["values"])), ("set", True, 6))

        creator.close()
        self.assertIn("has gone, its creator has ended", stream.until("gone")["reason"])
        self.closed(Creator(self.plant))
        stream.until("back")
        self.assertEqual(stream.next()[1]["full"], True)

    def test_killed_creator_is_told_of(self):
        creator = self.closed(Creator(self.plant))
        stream = self.stream(self.serve())
        stream.until("set")

        creator.kill()

        self.assertEqual(
            stream.until("gone"),
            {"reason": f"the creator of region '{self.plant.key}' has died; waiting for a new one"},
        )

    def test_other_description_has_another_fingerprint(self):
        creator = self.closed(Creator(self.plant))
        service = self.serve()
        stream = self.stream(service)
        former = stream.until("hello")["fingerprint"]

        creator.close()
        stream.until("gone")
        text = self.plant.file.read_text(encoding="utf-8")
        self.plant.file.write_text(text.replace('"1/min"', '"1/s"'), encoding="utf-8")
        self.closed(Creator(self.plant))

        self.assertNotEqual(stream.until("back")["fingerprint"], former)
        self.assertEqual(self.json(service, "/api/description")["leaves"][0]["unit"], "1/s")

    def test_silent_region_has_signs_of_life(self):
        self.closed(Creator(self.plant))
        stream = self.stream(self.serve())
        stream.until("set")

        told = stream.until("age")

        self.assertGreaterEqual(told["age"], 4)
        self.assertEqual(stream.comments, 1)

    def test_stream_lives_while_the_region_is_away(self):
        stream = self.stream(self.serve())
        stream.until("gone")

        self.assertEqual(stream.until("age"), {"age": None})

    def test_quick_publisher_is_told_of_at_the_rate(self):
        self.closed(Creator(self.plant))
        stream = self.stream(self.serve("--rate", "5"))
        swaps = [stream.until("set")["swaps"]]
        self.closed(QuickPublisher(self.plant, 200))

        begin = time.monotonic()
        while len(swaps) < 6:
            swaps.append(stream.until("set")["swaps"])

        # Five times a fifth of a second at least, whatever the machine does; and sets were left out.
        self.assertGreater(time.monotonic() - begin, 0.7)
        self.assertGreater(swaps[-1] - swaps[0], 6)


if __name__ == "__main__":
    unittest.main()
