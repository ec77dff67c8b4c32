"""The levels page of qslave serve in headless chromium: every circuit with
its level and state, a screenshot, and a level changed by `qslave fill`
appearing on the open page without reloading it.

QSLAVE_SCREENSHOT=path keeps the screenshot (docs/serve.png is made so)."""
import os
import sys
import unittest

from cli_support import SampleTest, run, update_records
from serve_support import Server

ROWS = """[...document.querySelectorAll('#levels tbody tr')].map(
    tr => [...tr.cells].map(td => td.textContent))"""


class LevelsPage(SampleTest):
    def setUp(self):
        super().setUp()
        from browser_support import Browser, BrowserUnavailable
        for tank, level in ((10, 100.0), (9, 250.0), (8, 400.0)):
            update_records(self.data, "tanks", lambda r, t=tank: r["tank"] == t, cur_q=level)
        self.server = Server(self.data)
        try:
            self.browser = Browser()
        except BrowserUnavailable as why:
            self.server.stop()
            super().tearDown()
            self.skipTest("chromium cannot start: %s" % why)

    def tearDown(self):
        self.browser.close()
        self.assertEqual(self.server.stop(), 0)
        super().tearDown()

    def test_page_shows_every_circuit_and_follows_a_fill(self):
        self.browser.open(self.server.url)
        generation = int(self.browser.wait_for("document.body.dataset.generation"))
        self.assertEqual(self.browser.evaluate("document.getElementById('title').textContent"),
                         "Tank levels of dispenser 1 (Sample dispenser)")
        rows = self.browser.evaluate(ROWS)
        self.assertEqual(rows, [
            ["1", "1", "W01", "3000.000", "400.000", "4000.000", "ok"],
            ["2", "1", "W01", "3000.000", "400.000", "4000.000", "ok (reservoir of 1)"],
            ["3", "2", "BK2", "1500.000", "200.000", "2000.000", "ok"],
            ["4", "2", "BK2", "1800.000", "200.000", "2000.000", "ok"],
            ["5", "3", "Y03", "1200.000", "150.000", "2000.000", "ok"],
            ["6", "4", "R04", "900.000", "150.000", "2000.000", "ok"],
            ["7", "5", "B05", "1600.000", "150.000", "2000.000", "ok"],
            ["8", "6", "G06", "400.000", "150.000", "2000.000", "low"],
            ["9", "7", "M07", "250.000", "150.000", "2000.000", "warning"],
            ["10", "8", "O08", "100.000", "150.000", "2000.000", "critical"],
            ["11", "9", "V09", "1100.000", "150.000", "2000.000", "ok"],
            ["12", "10", "Y10", "1300.000", "150.000", "2000.000", "ok"]])
        classes = self.browser.evaluate(
            "[...document.querySelectorAll('#levels tbody tr')].map(tr => tr.className)")
        self.assertEqual(classes[7:10], ["state-low", "state-warning", "state-critical"])
        self.assertEqual(self.browser.evaluate("document.getElementById('summary').textContent"),
                         "critical: 10 · warning: 9 · low: 8")
        self.assertEqual(self.browser.evaluate(
            "document.querySelectorAll('#chart svg rect').length > 12"), True)

        screenshot = os.environ.get("QSLAVE_SCREENSHOT") or self.path("serve.png")
        self.browser.screenshot(screenshot)
        with open(screenshot, "rb") as f:
            png = f.read()
        self.assertEqual(png[:8], b"\x89PNG\r\n\x1a\n")
        self.assertGreater(len(png), 10000)

        # A refill of circuit 10 by another process shows on the open page.
        self.browser.evaluate("window.notReloaded = true")
        result = run(["--data", self.data, "fill", "--circuit", "10"])
        self.assertEqual(result.rc, 0, result.err)
        row = self.browser.wait_for(
            "(function () { const tr = document.querySelector('#levels tr[data-circuit=\"10\"]');"
            " return tr && tr.cells[3].textContent === '2000.000' &&"
            " [...tr.cells].map(td => td.textContent); })()", bound=15)
        self.assertEqual(row, ["10", "8", "O08", "2000.000", "150.000", "2000.000", "ok"])
        self.assertEqual(self.browser.evaluate("window.notReloaded"), True)
        # The chart is redrawn after the table; the page then marks the
        # new reading as shown.
        self.browser.wait_for("Number(document.body.dataset.generation) > %d" % generation,
                              bound=15)
        self.assertEqual(self.browser.evaluate("document.getElementById('summary').textContent"),
                         "critical: none · warning: 9 · low: 8")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
