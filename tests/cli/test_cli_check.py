"""qslave check: the level verdict for a formula, the circuits it draws
from, and the warning and critical circuits."""
import sys
import unittest

from cli_support import SAMPLE_LEVELS, SampleTest, read_levels, table_bytes

HEADER = ("circuit  colourant  code      quantity     current     reserve        left\n")


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
                            "      5          3  Y03         10.000    1200.000     150.000    1190.000\n"
                            "      4          2  BK2         25.000    1800.000     200.000    1775.000\n"
                            "low:      none\n"
                            "warning:  none\n"
                            "critical: none\n")

    def test_at_reserve(self):
        # Organic orange: 700 in its tank, reserve 150; 460 leaves 240,
        # under twice the reserve.
        self.assertSucceeds(self.check("(3:10)(8:460)"),
                            "formula:  (3:10)(8:460)\n"
                            "verdict:  1 (at reserve)\n" + HEADER +
                            "      5          3  Y03         10.000    1200.000     150.000    1190.000\n"
                            "     10          8  O08        460.000     700.000     150.000     240.000\n"
                            "low:      circuit 10, colourant 8 O08\n"
                            "warning:  circuit 10, colourant 8 O08\n"
                            "critical: none\n")

    def test_not_enough(self):
        # 600 of organic orange and 2700 of white go under their reserves:
        # neither can be served; every tank of each is critical.
        self.assertSucceeds(self.check("(3:10)(8:600)(1:2700)"),
                            "formula:  (3:10)(8:600)(1:2700)\n"
                            "verdict:  0 (not enough)\n" + HEADER +
                            "      5          3  Y03         10.000    1200.000     150.000    1190.000\n"
                            "      -          8  O08     cannot be served by its tanks\n"
                            "      -          1  W01     cannot be served by its tanks\n"
                            "low:      none\n"
                            "warning:  none\n"
                            "critical: circuit 10, colourant 8 O08\n"
                            "critical: circuit 1, colourant 1 W01\n"
                            "critical: circuit 2, colourant 1 W01\n")
        self.assertEqual(read_levels(self.data), SAMPLE_LEVELS)

    def test_size_and_base_scale_the_formula(self):
        # 460 is served, but 920 (twice the base size) is not.
        self.assertSucceeds(self.check("(3:10)(8:460)", "--size", "2", "--base", "1"),
                            "formula:  (3:10)(8:460)\n"
                            "size:     2 of 1\n"
                            "verdict:  0 (not enough)\n" + HEADER +
                            "      5          3  Y03         20.000    1200.000     150.000    1180.000\n"
                            "      -          8  O08     cannot be served by its tanks\n"
                            "low:      none\n"
                            "warning:  none\n"
                            "critical: circuit 10, colourant 8 O08\n")

    def test_weights(self):
        # 1700 g of oxide yellow are 1000 cm3: 200 left, above the reserve
        # of 150 but under twice it.
        result = self.check("(3:1700)", "--weights")
        self.assertEqual(result.rc, 0, result.err)
        self.assertIn("verdict:  1 (at reserve)\n", result.out)
        self.assertIn("      5          3  Y03       1000.000    1200.000     150.000     200.000\n",
                      result.out)

    def test_help(self):
        self.assertHelp("check", "FORMULA [--size S --base B] [--weights]")


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
