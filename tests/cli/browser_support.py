"""Headless Debian chromium driven over the DevTools protocol (with Debian's
python3-websocket): one long-lived page, so that a test can watch it change
without reloading it. Chromium is started so that it talks to nothing but
this machine; every wait has a bound."""
import base64
import json
import os
import shutil
import subprocess
import tempfile
import time
import urllib.request

BOUND = 30.0

FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--disable-default-apps", "--disable-extensions", "--mute-audio",
         "--remote-debugging-address=127.0.0.1", "--remote-debugging-port=0",
         "--window-size=1280,900"]


class BrowserUnavailable(Exception):
    """Chromium is not installed or does not start at all."""


class Browser:
    def __init__(self):
        import websocket  # python3-websocket
        binary = shutil.which("chromium") or "/usr/bin/chromium"
        if not os.access(binary, os.X_OK):
            raise BrowserUnavailable("chromium is not installed (scripts/deps.sh installs it)")
        self.profile = tempfile.mkdtemp(prefix="qslave-chromium-")
        self.process = subprocess.Popen([binary] + FLAGS + ["--user-data-dir=" + self.profile,
                                                            "about:blank"],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                        start_new_session=True)
        try:
            port = self._devtools_port()
            page = self._page_target(port)
            self.socket = websocket.create_connection(page["webSocketDebuggerUrl"],
                                                      timeout=BOUND, suppress_origin=True)
        except BrowserUnavailable:
            self.close()
            raise
        self.next_id = 0

    def _devtools_port(self):
        marker = os.path.join(self.profile, "DevToolsActivePort")
        deadline = time.monotonic() + BOUND
        while time.monotonic() < deadline:
            if self.process.poll() is not None:
                raise BrowserUnavailable("chromium exited at once with status %d"
                                         % self.process.returncode)
            if os.path.exists(marker):
                with open(marker) as f:
                    first = f.readline().strip()
                if first.isdigit():
                    return int(first)
            time.sleep(0.1)
        raise BrowserUnavailable("chromium did not open its DevTools port within %d s" % BOUND)

    def _page_target(self, port):
        deadline = time.monotonic() + BOUND
        while time.monotonic() < deadline:
            with urllib.request.urlopen("http://127.0.0.1:%d/json/list" % port,
                                        timeout=BOUND) as answer:
                targets = json.loads(answer.read())
            pages = [t for t in targets if t.get("type") == "page"]
            if pages:
                return pages[0]
            time.sleep(0.1)
        raise BrowserUnavailable("chromium shows no page")

    def call(self, method, **params):
        self.next_id += 1
        self.socket.send(json.dumps({"id": self.next_id, "method": method, "params": params}))
        while True:
            message = json.loads(self.socket.recv())
            if message.get("id") == self.next_id:
                if "error" in message:
                    raise AssertionError("%s: %s" % (method, message["error"]))
                return message["result"]

    def open(self, url):
        self.call("Page.navigate", url=url)

    def evaluate(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        return result["result"].get("value")

    def wait_for(self, expression, bound=BOUND):
        """The value of expression once it is truthy; fails after bound."""
        deadline = time.monotonic() + bound
        while time.monotonic() < deadline:
            value = self.evaluate(expression)
            if value:
                return value
            time.sleep(0.2)
        raise AssertionError("no %s within %d s" % (expression, bound))

    def screenshot(self, path):
        result = self.call("Page.captureScreenshot", format="png", captureBeyondViewport=True)
        with open(path, "wb") as f:
            f.write(base64.b64decode(result["data"]))

    def close(self):
        if getattr(self, "socket", None) is not None:
            self.socket.close()
        if self.process.poll() is None:
            os.killpg(self.process.pid, 15)
            try:
                self.process.wait(timeout=BOUND)
            except subprocess.TimeoutExpired:
                os.killpg(self.process.pid, 9)
                self.process.wait(timeout=BOUND)
        shutil.rmtree(self.profile, ignore_errors=True)
