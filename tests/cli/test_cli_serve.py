"""qslave serve: the levels as JSON and SVG, its page, and what it refuses:
only its own paths, only reading, 127.0.0.1 by default."""
import json
import os
import sys
import unittest

from cli_support import SampleTest, read_levels, run, table_bytes, update_records
from serve_support import Server


class Serve(SampleTest):
    def setUp(self):
        super().setUp()
        # Organic orange (circuit 10) under its reserve of 150, magenta (9)
        # under twice its reserve, green (8) under a quarter of 2000.
        for tank, level in ((10, 100.0), (9, 250.0), (8, 400.0)):
            update_records(self.data, "tanks", lambda r, t=tank: r["tank"] == t, cur_q=level)
        self.before = table_bytes(self.data)
        self.server = Server(self.data)

    def tearDown(self):
        self.assertEqual(self.server.stop(), 0)
        super().tearDown()

    def test_levels_json(self):
        status, kind, body = self.server.get("/levels.json")
        self.assertEqual((status, kind), (200, "application/json"))
        document = json.loads(body)
        self.assertEqual(document["dispenser"], {"id": 1, "description": "Sample dispenser"})
        self.assertEqual(document["counts"],
                         {"critical": 1, "warning": 1, "low": 1, "ok": 9, "unknown": 0})
        states = {c["circuit"]: (c["current"], c["state"]) for c in document["circuits"]}
        self.assertEqual(states, {1: (3000.0, "ok"), 2: (3000.0, "ok"), 3: (1500.0, "ok"),
                                  4: (1800.0, "ok"), 5: (1200.0, "ok"), 6: (900.0, "ok"),
                                  7: (1600.0, "ok"), 8: (400.0, "low"), 9: (250.0, "warning"),
                                  10: (100.0, "critical"), 11: (1100.0, "ok"),
                                  12: (1300.0, "ok")})
        self.assertEqual(document["circuits"][9], {
            "circuit": 10, "record": True, "colourant": 8, "code": "O08", "current": 100.0,
            "reserve": 150.0, "maximum": 2000.0, "threshold": 0.0, "sim": False, "susp": False,
            "shares_reservoir_of": None, "state": "critical"})

    def test_follows_the_tables(self):
        first = self.server.levels()
        self.assertEqual(self.server.levels()["generation"], first["generation"])
        result = run(["--data", self.data, "fill", "--circuit", "10"])
        self.assertEqual(result.rc, 0, result.err)
        document = self.server.levels()
        self.assertGreater(document["generation"], first["generation"])
        self.assertEqual((document["circuits"][9]["current"], document["circuits"][9]["state"]),
                         (2000.0, "ok"))
        self.before = table_bytes(self.data)

    def test_chart(self):
        status, kind, body = self.server.get("/levels.svg")
        self.assertEqual((status, kind), (200, "image/svg+xml"))
        self.assertTrue(body.startswith(b"<?xml") or body.startswith(b"<svg"), body[:40])
        self.assertIn(b"Tank levels of dispenser 1 (Sample dispenser)", body)

    def test_page_and_its_files(self):
        for path, kind in (("/", "text/html; charset=utf-8"),
                           ("/app.js", "text/javascript; charset=utf-8"),
                           ("/app.css", "text/css; charset=utf-8")):
            with self.subTest(path=path):
                status, got, body = self.server.get(path)
                self.assertEqual((status, got), (200, kind))
                self.assertTrue(body)

    def test_only_its_own_paths(self):
        for path in ("/etc/passwd", "/../tanks.dbf", "/tanks.dbf", "/levels.json/x",
                     "/%2e%2e/%2e%2e/etc/passwd", "/index.html"):
            with self.subTest(path=path):
                status, _, body = self.server.get(path)
                self.assertEqual(status, 404)
                self.assertEqual(body, b"404\n")

    def test_read_only(self):
        for method in ("POST", "PUT", "DELETE"):
            with self.subTest(method=method):
                status, _, _ = self.server.get("/levels.json", method=method)
                self.assertNotEqual(status, 200)
        self.server.levels()
        self.assertEqual(table_bytes(self.data), self.before)


class ServeRefuses(SampleTest):
    def test_bad_listen_addresses(self):
        for value in ("8080", "127.0.0.1", "127.0.0.1:x", "127.0.0.1:65536", ":80", "[::1"):
            with self.subTest(value=value):
                self.assertFails(run(["--data", self.data, "serve", "--listen", value]), 2,
                                 '--listen takes HOST:PORT (port 0 to 65535), not "%s" '
                                 "(see qslave serve --help)" % value)

    def test_address_in_use(self):
        server = Server(self.data)
        try:
            taken = server.url.split(":")[2].rstrip("/")
            listen = "127.0.0.1:" + taken
            self.assertFails(run(["--data", self.data, "serve", "--listen", listen]), 1,
                             "cannot listen on %s (in use, or not an address of this machine)"
                             % listen)
        finally:
            self.assertEqual(server.stop(), 0)

    def test_no_tables(self):
        missing = self.path("nowhere")
        self.assertFails(run(["--data", missing, "serve", "--listen", "127.0.0.1:0"]), 1,
                         "data directory %s does not exist" % missing)

    def test_json_document_when_listening(self):
        import select
        import signal
        import subprocess
        from cli_support import QSLAVE, clean_environment
        process = subprocess.Popen([QSLAVE, "--data", self.data, "--json", "serve", "--listen",
                                    "127.0.0.1:0"], stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, env=clean_environment())
        try:
            text = b""
            while not text.endswith(b"}\n"):
                ready, _, _ = select.select([process.stdout], [], [], 20)
                self.assertTrue(ready, "no document from qslave --json serve: %r" % text)
                chunk = os.read(process.stdout.fileno(), 4096)
                self.assertTrue(chunk, "qslave --json serve ended: %r" % text)
                text += chunk
            document = json.loads(text)
            self.assertEqual(list(document), ["command", "ok", "exit_status", "url"])
            self.assertEqual(document["command"], "serve")
            self.assertRegex(document["url"], r"\Ahttp://127\.0\.0\.1:\d+/\Z")
        finally:
            process.send_signal(signal.SIGTERM)
            rest = process.communicate(timeout=20)[0]
        self.assertEqual((process.returncode, rest), (0, b""))

    def test_sends_no_command_to_the_machine(self):
        # Every command goes through the library's command channel, which
        # traces it; the trace file gets none while the page is read.
        trace = self.path("trace.log")
        server = Server(self.data, env={"QSLAVE_TRACE": trace})
        try:
            for path in ("/", "/levels.json", "/levels.svg"):
                self.assertEqual(server.get(path)[0], 200)
            run(["--data", self.data, "fill", "--circuit", "5", "--qty", "1"])
            self.assertEqual(server.levels()["circuits"][4]["current"], 1201.0)
        finally:
            self.assertEqual(server.stop(), 0)
        text = open(trace).read() if os.path.exists(trace) else ""
        self.assertNotIn("[TH_ID=", text)

    def test_json_document_of_a_refusal(self):
        missing = self.path("nowhere")
        result = run(["--data", missing, "--json", "serve", "--listen", "127.0.0.1:0"])
        self.assertEqual(result.rc, 1)
        self.assertEqual(json.loads(result.out)["error"]["message"],
                         "data directory %s does not exist" % missing)

    def test_help_names_the_default_address(self):
        result = run(["serve", "--help"])
        self.assertIn("Listens on 127.0.0.1:8080 unless --listen says otherwise", result.out)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
