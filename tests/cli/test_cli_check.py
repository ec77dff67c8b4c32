"""qslave check: the level verdict for a formula, the circuits it draws
from, and the warning and critical circuits."""
import sys
import unittest

from cli_support import SAMPLE_LEVELS, SampleTest, read_levels, table_bytes

HEADER = ("circuit  colourant  code      quantity     current     reserve        left"
          "  2x reserve\n")


class Check(SampleTest):
    def check(self, *args):
        before = table_bytes(self.data)
        result = self.qslave("check", *args)
        # A check changes nothing.
        self.assertEqual(table_bytes(self.data), before)
        return result

    def test_enough(self):
        self.assertSucceeds(self.check("(3:10)(2:25)"),
                            "formula:  (3:10)(2:25)\n"
                            "verdict:  2 (enough)\n" + HEADER +
                            "      5          3  Y03         10.000    1200.000     150.000    1190.000     300.000\n"
                            "      4          2  BK2         25.000    1800.000     200.000    1775.000     400.000\n"
                            "low:      none\n"
                            "warning:  none\n"
                            "critical: none\n")

    def assertVerdict(self, result, rc, out):
        self.assertEqual(result.err, "")
        self.assertEqual(result.rc, rc)
        self.assertEqual(result.out, out)

    def test_at_reserve(self):
        # Organic orange: 700 in its tank, reserve 150; 460 leaves 240,
        # under twice the reserve (300): exit status 3.
        self.assertVerdict(self.check("(3:10)(8:460)"), 3,
                            "formula:  (3:10)(8:460)\n"
                            "verdict:  1 (at reserve)\n" + HEADER +
                            "      5          3  Y03         10.000    1200.000     150.000    1190.000     300.000\n"
                            "     10          8  O08        460.000     700.000     150.000     240.000     300.000\n"
                            "low:      circuit 10, colourant 8 O08\n"
                            "warning:  circuit 10, colourant 8 O08\n"
                            "critical: none\n")

    def test_not_enough(self):
        # 600 of organic orange and 2700 of white go under their reserves:
        # neither can be served; every tank of each is critical. Their
        # tanks hold 550 and 2600 above the reserve. Exit status 4.
        self.assertVerdict(self.check("(3:10)(8:600)(1:2700)"), 4,
                            "formula:  (3:10)(8:600)(1:2700)\n"
                            "verdict:  0 (not enough)\n" + HEADER +
                            "      5          3  Y03         10.000    1200.000     150.000    1190.000     300.000\n"
                            "      -          8  O08     cannot be served: 550.000 available above the reserve\n"
                            "      -          1  W01     cannot be served: 2600.000 available above the reserve\n"
                            "low:      none\n"
                            "warning:  none\n"
                            "critical: circuit 10, colourant 8 O08, 550.000 available above the reserve\n"
                            "critical: circuit 1, colourant 1 W01, 2600.000 available above the reserve\n"
                            "critical: circuit 2, colourant 1 W01, 2600.000 available above the reserve\n")
        self.assertEqual(read_levels(self.data), SAMPLE_LEVELS)

    def test_size_and_base_scale_the_formula(self):
        # 460 is served, but 920 (twice the base size) is not.
        self.assertVerdict(self.check("(3:10)(8:460)", "--size", "2", "--base", "1"), 4,
                            "formula:  (3:10)(8:460)\n"
                            "size:     2 of 1\n"
                            "verdict:  0 (not enough)\n" + HEADER +
                            "      5          3  Y03         20.000    1200.000     150.000    1180.000     300.000\n"
                            "      -          8  O08     cannot be served: 550.000 available above the reserve\n"
                            "low:      none\n"
                            "warning:  none\n"
                            "critical: circuit 10, colourant 8 O08, 550.000 available above the reserve\n")

    def test_weights(self):
        # 1700 g of oxide yellow are 1000 cm3: 200 left, above the reserve
        # of 150 but under twice it.
        result = self.check("(3:1700)", "--weights")
        self.assertEqual(result.rc, 3, result.err)
        self.assertIn("verdict:  1 (at reserve)\n", result.out)
        self.assertIn("      5          3  Y03       1000.000    1200.000     150.000     200.000     300.000\n",
                      result.out)

    def test_json_document(self):
        import json
        result = self.check("--json", "(3:10)(8:600)")
        self.assertEqual((result.rc, result.err), (4, ""))
        self.assertEqual(json.loads(result.out), {
            "command": "check", "ok": False, "exit_status": 4,
            "formula": "(3:10)(8:600)", "size": 1.0, "base": 1.0,
            "verdict": 0, "verdict_text": "not enough",
            "circuits": [{"circuit": 5, "colourant": 3, "code": "Y03", "quantity": 10.0,
                          "current": 1200.0, "reserve": 150.0, "left": 1190.0,
                          "twice_reserve": 300.0}],
            "unserved": [{"colourant": 8, "code": "O08", "available": 550.0}],
            "low": [], "warning": [],
            "critical": [{"circuit": 10, "colourant": 8, "code": "O08", "available": 550.0}]})

    def test_json_enough_is_ok(self):
        import json
        document = json.loads(self.check("(3:10)", "--json").out)
        self.assertEqual((document["ok"], document["exit_status"], document["verdict"]),
                         (True, 0, 2))

    def test_help(self):
        self.assertHelp("check", "FORMULA [--size S --base B] [--weights]")
        result = self.qslave("check", "--help")
        self.assertIn("The exit status follows the verdict: 0 enough, 3 at reserve, 4 not\n"
                      "enough", result.out)


class CheckRefuses(SampleTest):
    def test_malformed_formula(self):
        self.assertRefusedUnchanged(
            ["check", "(3:1)(5)"], 2,
            'malformed formula "(3:1)(5)": write it as (ID:QUANTITY)(ID:QUANTITY)... '
            "(see qslave check --help)")

    def test_colourant_in_no_tank(self):
        self.assertRefusedUnchanged(["check", "(42:1)"], 1,
                                    "colourant 42 is in no tank of dispenser 1 (error 19)")

    def test_negative_quantity(self):
        self.assertRefusedUnchanged(
            ["check", "(3:-2)"], 2,
            "colourant 3 has the quantity -2; quantities must be 0 or more "
            "(see qslave check --help)")

    def test_size_without_base(self):
        self.assertRefusedUnchanged(["check", "(3:1)", "--size", "2"], 2,
                                    "--size and --base go together (see qslave check --help)")

    def test_bad_sizes(self):
        for value in ("nan", "0", "-1"):
            with self.subTest(value=value):
                self.assertRefusedUnchanged(
                    ["check", "(3:1)", "--size", value, "--base", "1"], 2,
                    '--size takes a quantity above 0, not "%s" (see qslave check --help)'
                    % value)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
