"""A real browser without a window, driven from outside (WebDriver)."""

import http.client
import json
import os
import signal
import subprocess

from screen import wait_for


class Browser:
    """A context: the browser ends with it."""

    def __init__(self, profile):
        self._profile = profile

    def __enter__(self):
        # A session of its own: the browser's many processes end with it.
        self._driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True,
                                        stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            line = next(line for line in self._driver.stdout if "started successfully on port" in line)
            self._port = int(line.rstrip(".\n").rsplit(" ", 1)[1])
            options = {"args": ["--headless=new", "--no-sandbox", "--disable-gpu",
                                f"--user-data-dir={self._profile}"]}
            self._session = ""
            wanted = {"browserName": "chrome", "goog:chromeOptions": options}
            session = self._command("POST", "", {"capabilities": {"alwaysMatch": wanted}})
            self._session = "/" + session["sessionId"]
        except BaseException:
            self._kill()
            raise
        return self

    def __exit__(self, *_):
        try:
            self._command("DELETE", "")
        except (OSError, RuntimeError):
            pass  # it is ended below all the same
        self._kill()

    def _kill(self):
        os.killpg(self._driver.pid, signal.SIGKILL)
        self._driver.wait()

    def _command(self, method, path, body=None):
        connection = http.client.HTTPConnection("127.0.0.1", self._port, timeout=60)
        try:
            text = json.dumps(body or {}) if method == "POST" else None
            connection.request(method, f"/session{self._session}{path}", text,
                               {"Content-Type": "application/json"})
            reply = connection.getresponse()
            value = json.loads(reply.read())["value"]
        finally:
            connection.close()
        if reply.status != 200:
            raise RuntimeError(f"the browser refuses {path}: {value.get('message')}")
        return value

    def _element(self, selector):
        found = self._command("POST", "/element", {"using": "css selector", "value": selector})
        return next(iter(found.values()))

    def open(self, address):
        self._command("POST", "/url", {"url": address})

    def click(self, selector):
        self._command("POST", f"/element/{self._element(selector)}/click")

    def text(self, selector):
        return self._command("GET", f"/element/{self._element(selector)}/text")

    def wait_for_text(self, selector, wanted):
        def is_there():
            try:
                return self.text(selector) == wanted
            except RuntimeError:
                return False  # between two pages

        wait_for(f"the page's text {wanted!r}", is_there)
