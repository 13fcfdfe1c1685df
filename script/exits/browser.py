"""A picture of a page as a browser shows it, through the protocol of its driver."""

import base64
import contextlib
import json
import os
import re
import shutil
import tempfile
import urllib.request


def is_there():
    return bool(shutil.which("chromedriver") and shutil.which("chromium"))


class Browser:
    """One without a window, which has begun when this is there."""

    def __init__(self, parts):
        # It makes a socket among its temporary files, whose name has 107 bytes at most (unix(7)).
        short = tempfile.mkdtemp(prefix="tessel-", dir="/tmp")
        removal = parts.closed(contextlib.ExitStack())
        removal.callback(shutil.rmtree, short, ignore_errors=True)
        self._driver = parts.start("chromedriver", "chromedriver", "--port=0", env={**os.environ, "TMPDIR": short})
        said = r"started successfully on port (\d+)"
        parts.wait(lambda: re.search(said, self._driver.log()), "chromedriver listens")
        self._base = f"http://127.0.0.1:{re.search(said, self._driver.log())[1]}/session"
        arguments = ["--headless=new", "--window-size=1280,900", "--disable-dev-shm-usage", "--disable-gpu",
                     f"--user-data-dir={parts.folder}/browser"]
        # Its sandbox is for users alone.
        arguments += ["--no-sandbox"] if os.geteuid() == 0 else []
        options = {"alwaysMatch": {"goog:chromeOptions": {"args": arguments}}}
        self._base += "/" + self._ask("POST", "", {"capabilities": options})["sessionId"]
        self._parts = parts

    def _ask(self, method, path, content=None):
        data = None if content is None else json.dumps(content).encode()
        request = urllib.request.Request(self._base + path, data, {"Content-Type": "application/json"}, method=method)
        # Never through a proxy of this machine.
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        with opener.open(request, timeout=60) as answer:
            return json.load(answer)["value"]

    def picture(self, url, text, file):
        """Of the page, once it shows `text`."""
        self._ask("POST", "/url", {"url": url})
        script = {"script": "return document.body.innerText", "args": []}
        self._parts.wait(lambda: text in self._ask("POST", "/execute/sync", script), f"the page shows '{text}'")
        file.write_bytes(base64.b64decode(self._ask("GET", "/screenshot")))

    def close(self):
        self._ask("DELETE", "")
        self._parts.end(self._driver)
