"""What axe finds on the page as it stands in the browser."""

import gzip

from browser import HERE

LOOKS = {
    "light": {},
    "dark": {"dark": True},
    "narrow": {"width": 360, "height": 740},
    "narrow and dark": {"width": 360, "height": 740, "dark": True},
}


def assert_accessible(test, when):
    """In every look; what is serious or critical fails, with the elements."""
    browser = test.browser
    if not browser.run("return typeof axe === 'object'"):
        browser.run(gzip.decompress((HERE / "axe" / "axe.min.js.gz").read_bytes()).decode())
    for name, look in LOOKS.items():
        browser.look(**look)
        found = browser.driver.execute_async_script(
            "const done = arguments[0];"
            "requestAnimationFrame(() => axe.run().then((result) => done({violations: result.violations,"
            "  passes: result.passes.map((rule) => rule.id)}), (error) => done(String(error))))")
        serious = [(rule["id"], [node["target"] for node in rule["nodes"]]) for rule in found["violations"]
                   if rule["impact"] in ("serious", "critical")]
        test.assertEqual(serious, [], f"{when}, {name}")
        # What it has looked at at all: a rule that did not run finds nothing.
        test.assertIn("color-contrast", found["passes"], f"{when}, {name}")
    browser.look()
