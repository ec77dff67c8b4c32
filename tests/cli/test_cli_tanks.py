"""qslave tanks: the tank report, the colourant distribution and the SVG
chart of the levels."""
import os
import sys
import unittest
import xml.etree.ElementTree as ET

from cli_support import SampleTest, read_bytes, update_records, write_text

SVG = "{http://www.w3.org/2000/svg}"

TANK_REPORT = """\
circuit  colourant  code       current     reserve     maximum   threshold  sim  susp note
      1          1  W01       3000.000     400.000    4000.000       0.000  no   no
      2          1  W01       3000.000     400.000    4000.000       0.000  no   no   shares the reservoir of circuit 1
      3          2  BK2       1500.000     200.000    2000.000       0.000  yes  no
      4          2  BK2       1800.000     200.000    2000.000      20.000  yes  no
      5          3  Y03       1200.000     150.000    2000.000       0.000  no   no
      6          4  R04        900.000     150.000    2000.000       0.000  no   no
      7          5  B05       1600.000     150.000    2000.000       0.000  no   no
      8          6  G06       1400.000     150.000    2000.000       0.000  no   no
      9          7  M07       1000.000     150.000    2000.000       0.000  no   no
     10          8  O08        700.000     150.000    2000.000       0.000  no   no
     11          9  V09       1100.000     150.000    2000.000       0.000  no   no
     12         10  Y10       1300.000     150.000    2000.000       0.000  no   no

colourant  code    description               tanks
        1  W01     Titanium white            1 2 (linked)
        2  BK2     Carbon black              3 4 (independent)
        3  Y03     Oxide yellow              5
        4  R04     Oxide red                 6
        5  B05     Phthalo blue              7
        6  G06     Phthalo green             8
        7  M07     Magenta                   9
        8  O08     Organic orange            10
        9  V09     Violet                    11
       10  Y10     Lemon yellow              12
"""

CODES = ["W01", "W01", "BK2", "BK2", "Y03", "R04", "B05", "G06", "M07", "O08",
         "V09", "Y10"]


def circuits(root):
    return root.findall("%sg[@class='circuit']" % SVG)


def elements(group, tag, cls):
    """The children of group that are tag elements of class cls."""
    return group.findall("%s%s[@class='%s']" % (SVG, tag, cls))


class Tanks(SampleTest):
    def test_reports(self):
        self.assertSucceeds(self.qslave("tanks"), TANK_REPORT)

    def test_suspended_tank_and_lowered_level(self):
        update_records(self.data, "tanks", lambda r: r["tank"] == 6,
                       status_flg="01000000", cur_q=100)
        result = self.qslave("tanks")
        self.assertIn("      6          4  R04        100.000     150.000    2000.000"
                      "       0.000  no   yes\n", result.out)

    def test_help(self):
        self.assertHelp("tanks", "[--svg FILE [--force]]")


class Chart(SampleTest):
    def chart(self, *extra):
        path = self.path("levels.svg")
        result = self.qslave("tanks", "--svg", path, *extra)
        self.assertEqual(result.err, "")
        self.assertEqual(result.rc, 0)
        self.assertEqual(result.out, TANK_REPORT + "\nchart:    %s (12 circuits)\n" % path)
        return ET.fromstring(read_bytes(path))

    def test_one_bar_per_circuit_labelled_with_its_colourant(self):
        root = self.chart()
        self.assertEqual(root.tag, SVG + "svg")
        groups = circuits(root)
        self.assertEqual([g.get("id") for g in groups],
                         ["circuit-%d" % c for c in range(1, 13)])
        self.assertEqual(len(root.findall(".//%srect[@class='capacity']" % SVG)), 12)
        self.assertEqual(len(root.findall(".//%srect[@class='level']" % SVG)), 12)
        self.assertEqual(len(root.findall(".//%sline[@class='reserve']" % SVG)), 12)
        self.assertEqual([g.find("%stext[@class='label']" % SVG).text for g in groups], CODES)

    def test_bar_heights_follow_the_levels(self):
        groups = circuits(self.chart())
        # Circuit 5: 1200 of 2000, reserve 150; the full bar is 240 high
        # from y 60 to 300.
        capacity = elements(groups[4], "rect", "capacity")[0]
        level = elements(groups[4], "rect", "level")[0]
        reserve = elements(groups[4], "line", "reserve")[0]
        self.assertEqual((capacity.get("y"), capacity.get("height")), ("60.0", "240.0"))
        self.assertEqual((level.get("y"), level.get("height")), ("156.0", "144.0"))
        self.assertEqual(reserve.get("y1"), "282.0")
        self.assertEqual(level.get("fill"), "#43a047")
        # Only circuit 4 has a threshold (20 of 2000).
        thresholds = [(g.get("id"), elements(g, "line", "threshold")) for g in groups]
        self.assertEqual([i for i, t in thresholds if t], ["circuit-4"])
        self.assertEqual(elements(groups[3], "line", "threshold")[0].get("y1"), "297.6")

    def test_low_levels_stand_out(self):
        update_records(self.data, "tanks", lambda r: r["tank"] == 10, cur_q=100)
        update_records(self.data, "tanks", lambda r: r["tank"] == 11, cur_q=250)
        groups = circuits(self.chart_after_change())
        self.assertEqual(elements(groups[9], "rect", "level")[0].get("fill"), "#d32f2f")
        self.assertEqual(elements(groups[10], "rect", "level")[0].get("fill"), "#f9a825")

    def chart_after_change(self):
        path = self.path("levels.svg")
        result = self.qslave("tanks", "--svg", path)
        self.assertEqual(result.rc, 0, result.err)
        return ET.fromstring(read_bytes(path))

    def test_secondary_tank_shares_its_masters_reservoir(self):
        groups = circuits(self.chart())
        notes = [(g.get("id"), [n.text for n in elements(g, "text", "note")]) for g in groups]
        self.assertEqual([(i, n) for i, n in notes if n],
                         [("circuit-2", ["shares circuit 1"])])
        self.assertIn("shares the reservoir of circuit 1",
                      groups[1].find(SVG + "title").text)

    def test_texts_are_escaped(self):
        update_records(self.data, "colorants", lambda r: r["id"] == 3, code="<&\"'>")
        update_records(self.data, "disps", lambda r: True, descr="Shop <1> & co")
        path = self.path("levels.svg")
        result = self.qslave("tanks", "--svg", path)
        self.assertEqual(result.rc, 0, result.err)
        root = ET.fromstring(read_bytes(path))
        self.assertEqual(root.find(SVG + "title").text,
                         "Tank levels of dispenser 1 (Shop <1> & co)")
        self.assertEqual(circuits(root)[4].find("%stext[@class='label']" % SVG).text,
                         "<&\"'>")

    def test_existing_file_is_refused(self):
        path = self.path("levels.svg")
        write_text(path, "keep me")
        self.assertRefusedUnchanged(["tanks", "--svg", path], 1,
                                    "%s already exists; give --force to replace it" % path)
        self.assertEqual(read_bytes(path), b"keep me")

    def test_force_replaces_the_file(self):
        path = self.path("levels.svg")
        write_text(path, "old")
        root = self.chart("--force")
        self.assertEqual(len(circuits(root)), 12)
        self.assertEqual(sorted(os.listdir(self.dir)), ["data", "levels.svg"])

    def test_missing_directory(self):
        path = self.path("nowhere", "levels.svg")
        self.assertRefusedUnchanged(["tanks", "--svg", path], 1,
                                    "cannot write %s: directory %s does not exist"
                                    % (path, self.path("nowhere")))
        self.assertFalse(os.path.exists(self.path("nowhere")))

    def test_force_without_a_chart(self):
        self.assertRefusedUnchanged(["tanks", "--force"], 2,
                                    "--force goes with --svg (see qslave tanks --help)")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
