"""A real browser that looks at the page of `tessel-web`, as a person would."""

import contextlib
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent))

from exits import Creator, Plant, Service, wait_until  # noqa: E402

try:
    from selenium import webdriver
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.keys import Keys
except ImportError:
    webdriver = None

HERE = pathlib.Path(__file__).parent
TOKEN = "a-token-of-the-tests-0123456789"


def missing():
    """The Debian packages that a browser needs and that are not there; empty if none is missing."""
    names = [name for program, name in [("chromium", "chromium"), ("chromedriver", "chromium-driver")]
             if not shutil.which(program)]
    return " ".join(names + ([] if webdriver else ["python3-selenium"]))


class Browser:
    """One chromium without a window, in a folder of its own; see browser_keeper.py for its end."""

    def __init__(self):
        self._folder = tempfile.mkdtemp(prefix="tessel-browser")
        self._keeper = subprocess.Popen(
            [sys.executable, "-B", str(HERE / "browser_keeper.py"), self._folder],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
        )
        port = self._keeper.stdout.readline().strip()
        assert port, "chromedriver does not start"
        options = webdriver.ChromeOptions()
        # As root, as in a container, there is no sandbox of its own, and /dev/shm may be small.
        for argument in ["--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--hide-scrollbars",
                         "--disable-gpu", "--no-first-run", "--disable-background-networking",
                         f"--user-data-dir={self._folder}/profile"]:
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Remote(command_executor=f"http://127.0.0.1:{port}", options=options)
        # What Selenium knows of Chromium alone.
        commands = self.driver.command_executor._commands
        session = "/session/$sessionId"
        commands["executeCdpCommand"] = ("POST", f"{session}/goog/cdp/execute")
        commands["getLog"] = ("POST", f"{session}/se/log")

    def close(self):
        self._keeper.stdin.close()
        # It ends when all is gone.
        self._keeper.stdout.read()
        self._keeper.stdout.close()
        self._keeper.wait()

    def keep(self, plant):
        """It goes with the browser, also where the test is killed."""
        self._keeper.stdin.write(f"{plant.key} {plant.folder}\n")
        self._keeper.stdin.flush()

    def look(self, width=1280, height=800, dark=False):
        """How large the window is, and which colours its owner likes."""
        self._tell("Emulation.setDeviceMetricsOverride",
                   width=width, height=height, deviceScaleFactor=1, mobile=False)
        self._tell("Emulation.setEmulatedMedia",
                   features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])

    def picture(self, file):
        assert self.driver.save_screenshot(str(file))

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def text(self, selector):
        """The text of what is found first, as a person reads it; None if it is not there or hidden."""
        return self.run(
            "const found = document.querySelector(arguments[0]);"
            "return found && found.checkVisibility()"
            " ? found.innerText.replace(/[\\s\\u200b]+/g, ' ').trim() : null;",
            selector)

    def count(self, selector):
        return self.run("return document.querySelectorAll(arguments[0]).length", selector)

    def click(self, selector):
        self.driver.find_element("css selector", selector).click()

    def type(self, *keys):
        """Into whatever has the focus."""
        ActionChains(self.driver).send_keys(*keys).perform()

    def complaints(self):
        """What the browser has to say of the page: errors of scripts, of the policy, and of what was not loaded."""
        found = self.driver.execute("getLog", {"type": "browser"})["value"]
        return [entry["message"] for entry in found]

    def targets(self):
        """What runs in the browser: pages and workers."""
        return self._tell("Target.getTargets")["targetInfos"]

    @contextlib.contextmanager
    def before_pages(self, script):
        """Every page that is opened meanwhile begins with this script."""
        identifier = self._tell("Page.addScriptToEvaluateOnNewDocument", source=script)["identifier"]
        try:
            yield
        finally:
            self._tell("Page.removeScriptToEvaluateOnNewDocument", identifier=identifier)

    def _tell(self, command, **parameters):
        """In Chromium's own protocol."""
        return self.driver.execute("executeCdpCommand", {"cmd": command, "params": parameters})["value"]


class PageTest(unittest.TestCase):
    """One browser for all tests of a class; each test has a server of its own, and so a fresh storage."""

    browser = None

    @classmethod
    def setUpClass(cls):
        if missing():
            raise unittest.SkipTest(f"needs the Debian packages {missing()}")
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def setUp(self):
        self.browser.look()
        # Also where a test fails half way: the next one gets one empty tab.
        self.addCleanup(self._leave)

    def _leave(self):
        driver = self.browser.driver
        for handle in driver.window_handles[1:]:
            driver.switch_to.window(handle)
            driver.close()
        driver.switch_to.window(driver.window_handles[0])
        driver.get("about:blank")
        self.browser.complaints()

    def closed(self, thing):
        self.addCleanup(thing.close)
        return thing

    def plant(self, leaves, double_buffer=True):
        plant = self.closed(Plant(leaves, double_buffer))
        self.browser.keep(plant)
        return plant

    def creator(self, plant):
        return self.closed(Creator(plant))

    def served(self, plant, *arguments):
        return self.closed(Service("--listen", "127.0.0.1:0", *arguments, str(plant.file)))

    def token_file(self, plant):
        file = plant.folder / "token"
        file.touch(mode=0o600)
        file.write_text(TOKEN + "\n", encoding="utf-8")
        return file

    def open(self, service, until_live=True):
        self.browser.driver.get(f"http://{service.host}:{service.port}/")
        if until_live:
            self.sees("#connection", "● live")

    def sees(self, selector, text):
        """Until it is so: what a page shows comes a little after its cause."""
        try:
            wait_until(lambda: self.browser.text(selector) == text, f"{selector} shows {text!r}")
        except AssertionError as never:
            raise AssertionError(f"{never}, but {self.browser.text(selector)!r}; "
                                 f"{self.browser.complaints()}") from None

    def sees_value(self, url, text):
        self.sees(f'.leaf[data-url="{url}"] .number', text)

    def sees_state(self, url, text):
        self.sees(f'.leaf[data-url="{url}"] .state', text)

    def shown(self):
        """The URLs of the leaves in the tree, from top to bottom."""
        return self.browser.run(
            "return [...document.querySelectorAll('#tree .leaf')]"
            ".sort((a, b) => a.getBoundingClientRect().top - b.getBoundingClientRect().top)"
            ".map((row) => row.dataset.url)")

    def until(self, condition, what):
        wait_until(condition, what)


__all__ = ["Browser", "HERE", "Keys", "PageTest", "TOKEN", "missing"]
