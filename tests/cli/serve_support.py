"""Running `qslave serve` in the tests: on 127.0.0.1, on a free port that it
picks itself and prints, stopped with SIGTERM. Every wait has a bound."""
import json
import os
import select
import signal
import subprocess
import time
import urllib.error
import urllib.request

from cli_support import QSLAVE, clean_environment

BOUND = 20.0


class Server:
    def __init__(self, data, *options, env=None):
        listen = [] if "--listen" in options else ["--listen", "127.0.0.1:0"]
        self.process = subprocess.Popen(
            [QSLAVE, "--data", data, "serve"] + listen + list(options),
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=clean_environment(env),
            text=True)
        ready, _, _ = select.select([self.process.stdout], [], [], BOUND)
        self.banner = self.process.stdout.readline() if ready else ""
        prefix = "serving the levels on "
        if not self.banner.startswith(prefix):
            self.stop()
            raise AssertionError("qslave serve did not start: %r %r" %
                                 (self.banner, self.process.stderr.read()))
        self.url = self.banner[len(prefix):].split(" ")[0]

    def get(self, path, method="GET"):
        """(status, content type, body) of a request to the server."""
        request = urllib.request.Request(self.url.rstrip("/") + path, method=method,
                                         data=b"x" if method == "POST" else None)
        try:
            with urllib.request.urlopen(request, timeout=BOUND) as answer:
                return answer.status, answer.headers.get("Content-Type"), answer.read()
        except urllib.error.HTTPError as error:
            return error.code, error.headers.get("Content-Type"), error.read()

    def levels(self):
        status, _, body = self.get("/levels.json")
        assert status == 200, status
        return json.loads(body)

    def stop(self):
        """Stops the server; returns its exit status."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(timeout=BOUND)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait(timeout=BOUND)
        self.process.stdout.close()
        self.process.stderr.close()
        return self.process.returncode
