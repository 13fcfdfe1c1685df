"""What `tessel-web` answers to whoever reads: description, values, the page."""

import json
import unittest

from web import Creator, WebTest, tool, wait_until

GUARDS = {
    "Content-Security-Policy": "default-src 'self'",
    "X-Frame-Options": "DENY",
    "X-Content-Type-Options": "nosniff",
    "Referrer-Policy": "no-referrer",
}


class Reading(WebTest):
    def test_description_tells_each_leaf(self):
        service = self.serve("--rate", "5")

        told = self.json(service, "/api/description")

        leaves = {leaf["url"]: leaf for leaf in told["leaves"]}
        self.assertEqual([leaf["index"] for leaf in told["leaves"]], list(range(6)))
        self.assertEqual(
            leaves["pump/speed"],
            {"index": 0, "url": "pump/speed", "type": "double", "unit": "1/min", "label": "", "min": 0,
             "max": 3000, "viewMin": None, "viewMax": None, "readOnly": False},
        )
        self.assertEqual(
            leaves["tank/level"],
            {"index": 3, "url": "tank/level", "type": "float", "unit": "m", "label": "LEVEL", "min": None,
             "max": None, "viewMin": -0.5, "viewMax": 2, "readOnly": False},
        )
        self.assertEqual(leaves["tank/count"]["max"], "10")
        self.assertEqual(leaves["tank/mode"]["entries"], ["off", "on"])
        self.assertIs(leaves["tank/mode"]["readOnly"], True)
        del told["leaves"]
        self.assertRegex(told.pop("fingerprint"), "^[0-9a-f]{16}$")
        self.assertRegex(told.pop("version"), r"^\d+\.\d+\.\d+$")
        self.assertEqual(
            told,
            {"program": "tessel-web", "description": "plant.process.json", "region": self.plant.key, "rate": 5,
             "writing": False, "configuration": False},
        )

    def test_known_description_is_not_sent_again(self):
        service = self.serve()
        tag = service.ask("/api/description")[1]["ETag"]

        again = service.ask("/api/description", headers={"If-None-Match": f'"other", {tag}'})
        other = service.ask("/api/description", headers={"If-None-Match": '"other"'})

        self.assertEqual((again[0], again[2]), (304, ""))
        self.assertEqual(other[0], 200)

    def test_values_are_one_set_in_the_form_of_the_tool(self):
        self.closed(Creator(self.plant))
        self.plant.set("pump/speed", "1500.25")
        self.plant.set("pump/on", "true")
        self.plant.set("pump/name", 'a "b"\\ö')
        self.plant.set("tank/level", "--error", "overrange")
        self.plant.set("tank/count", "--no-limits", "18446744073709551615")

        status, headers, text = self.serve().ask("/api/values")

        self.assertEqual((status, headers["Content-Type"]), (200, "application/json"))
        told = json.loads(text)
        self.assertEqual(told["values"], json.loads(tool("get", "--json", str(self.plant.file)).stdout))
        self.assertIn("18446744073709551615", text)
        self.assertEqual((told["region"], told["swaps"]), (self.plant.key, 6))
        self.assertRegex(told["time"], r"^20\d\d-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$")

    def test_without_region_values_are_an_error_with_its_cure(self):
        service = self.serve()

        status, error = self.error_of(service.ask("/api/values"))

        self.assertEqual(status, 503)
        self.assertEqual(
            error,
            {"what": f"no region '{self.plant.key}' is there; waiting for the process that creates it",
             "where": self.plant.key,
             "cure": "start the program that creates the region, with the description that tessel-web has"},
        )
        creator = self.closed(Creator(self.plant))
        wait_until(lambda: service.ask("/api/values")[0] == 200, "values")
        creator.close()
        self.assertEqual(service.ask("/api/values")[0], 503)

    def test_page_and_its_parts_are_served(self):
        service = self.serve()

        status, headers, text = service.ask("/")

        self.assertEqual((status, headers["Content-Type"]), (200, "text/html; charset=utf-8"))
        self.assertIn("<!DOCTYPE html>", text)
        self.assertEqual(service.ask("/app/index.html")[2], text)
        self.assertEqual(service.ask("/", headers={"If-None-Match": headers["ETag"]})[0], 304)
        self.assertEqual(headers["Cache-Control"], "no-cache")

    def test_other_paths_are_not_there(self):
        service = self.serve()
        for path in ("/x", "/api", "/api/", "/api/values/", "/app/", "/app/../index.html", "/app/%2e%2e/x", "//"):
            with self.subTest(path=path):
                status, error = self.error_of(service.ask(path))
                self.assertEqual((status, error["what"]), (404, "there is nothing at this path"))

    def test_what_stands_behind_a_question_mark_does_not_matter(self):
        self.assertEqual(self.serve().ask("/api/description?x=1")[0], 200)

    def test_other_methods_are_refused(self):
        service = self.serve()
        for path, allowed in (
            ("/", "GET, HEAD"),
            ("/api/description", "GET, HEAD"),
            ("/api/events", "GET, HEAD"),
            ("/api/configuration", "GET, HEAD"),
            ("/api/values", "GET, HEAD, POST"),
        ):
            with self.subTest(path=path):
                for method in ("DELETE", "PUT", "PATCH", "OPTIONS", "TRACE", "get", "ODD", "POST"):
                    if method not in allowed:
                        answer = service.ask(path, method=method)
                        self.assertEqual(self.error_of(answer)[0], 405, method)
                        self.assertEqual(answer[1]["Allow"], allowed, method)

    def test_head_has_no_body(self):
        service = self.serve()
        for path in ("/", "/api/description", "/api/events"):
            with self.subTest(path=path):
                status, _, text = service.ask(path, method="HEAD")
                self.assertEqual((status, text), (200, ""))

    def test_every_answer_has_the_headers_that_guard_a_browser(self):
        self.closed(Creator(self.plant))
        service = self.serve()
        for path, cached in (
            ("/", "no-cache"),
            ("/api/description", "no-store"),
            ("/api/values", "no-store"),
            ("/api/configuration", "no-store"),
            ("/none", "no-store"),
        ):
            with self.subTest(path=path):
                headers = service.ask(path)[1]
                self.assertEqual({name: headers[name] for name in GUARDS}, GUARDS)
                self.assertEqual(headers["Cache-Control"], cached)
                self.assertFalse([name for name in headers if name.lower().startswith("access-control")])


if __name__ == "__main__":
    unittest.main()
