"""qslave fill: circuits booked full, or a quantity added to one."""
import sys
import unittest

from cli_support import (SAMPLE_LEVELS, SampleTest, read_cistern_level,
                         read_levels, update_records)

HEADER = "circuit  colourant  code        before       after\n"


class Fill(SampleTest):
    def test_every_circuit_to_its_maximum(self):
        self.assertSucceeds(self.qslave("fill"),
                            HEADER +
                            "      1          1  W01       3000.000    4000.000\n"
                            "      2          1  W01       3000.000    4000.000\n"
                            "      3          2  BK2       1500.000    2000.000\n"
                            "      4          2  BK2       1800.000    2000.000\n"
                            "      5          3  Y03       1200.000    2000.000\n"
                            "      6          4  R04        900.000    2000.000\n"
                            "      7          5  B05       1600.000    2000.000\n"
                            "      8          6  G06       1400.000    2000.000\n"
                            "      9          7  M07       1000.000    2000.000\n"
                            "     10          8  O08        700.000    2000.000\n"
                            "     11          9  V09       1100.000    2000.000\n"
                            "     12         10  Y10       1300.000    2000.000\n"
                            "result:   1 (done)\n")
        expected = {tank: 2000.0 for tank in SAMPLE_LEVELS}
        expected.update({1: 4000.0, 2: -1.0})
        self.assertEqual(read_levels(self.data), expected)
        self.assertEqual(read_cistern_level(self.data), 4000.0)

    def test_one_circuit_to_its_maximum(self):
        self.assertSucceeds(self.qslave("fill", "--circuit", "6"),
                            HEADER +
                            "      6          4  R04        900.000    2000.000\n"
                            "result:   1 (done)\n")
        expected = dict(SAMPLE_LEVELS)
        expected[6] = 2000.0
        self.assertEqual(read_levels(self.data), expected)
        self.assertEqual(read_cistern_level(self.data), 3000.0)

    def test_secondary_circuit_fills_the_shared_reservoir(self):
        self.assertSucceeds(self.qslave("fill", "--circuit", "2"),
                            HEADER +
                            "      2          1  W01       3000.000    4000.000\n"
                            "result:   1 (done)\n")
        expected = dict(SAMPLE_LEVELS)
        expected[1] = 4000.0
        self.assertEqual(read_levels(self.data), expected)
        self.assertEqual(read_cistern_level(self.data), 4000.0)

    def test_quantity_added(self):
        self.assertSucceeds(self.qslave("fill", "--circuit", "10", "--qty", "250.5"),
                            HEADER +
                            "     10          8  O08        700.000     950.500\n"
                            "result:   1 (done)\n")
        expected = dict(SAMPLE_LEVELS)
        expected[10] = 950.5
        self.assertEqual(read_levels(self.data), expected)

    def test_quantity_that_just_fits(self):
        result = self.qslave("fill", "--circuit", "10", "--qty", "1300")
        self.assertEqual(result.rc, 0, result.err)
        self.assertEqual(read_levels(self.data)[10], 2000.0)

    def test_help(self):
        self.assertHelp("fill", "[--circuit N] [--qty Q]")


class FillRefuses(SampleTest):
    def test_quantity_that_does_not_fit(self):
        self.assertRefusedUnchanged(["fill", "--circuit", "10", "--qty", "1300.5"], 1,
                                    "circuit 10 holds 700.000 of at most 2000.000: "
                                    "1300.500 more do not fit")

    def test_bad_quantities(self):
        for value in ("-5", "0", "nan", "x"):
            with self.subTest(value=value):
                self.assertRefusedUnchanged(
                    ["fill", "--circuit", "5", "--qty", value], 2,
                    '--qty takes a quantity above 0, not "%s" (see qslave fill --help)'
                    % value)

    def test_quantity_needs_a_circuit(self):
        self.assertRefusedUnchanged(["fill", "--qty", "5"], 2,
                                    "--qty needs --circuit (see qslave fill --help)")

    def test_unknown_circuit(self):
        self.assertRefusedUnchanged(["fill", "--circuit", "13"], 1,
                                    "dispenser 1 has no circuit 13")

    def test_circuit_without_tank_record(self):
        # Tank 12 removed from the table: the dispenser keeps 11 circuits.
        update_records(self.data, "tanks", lambda r: r["tank"] == 12, tank=13)
        self.assertRefusedUnchanged(["fill", "--circuit", "12"], 1,
                                    "dispenser 1 has no circuit 12")

    def test_bad_circuit(self):
        self.assertRefusedUnchanged(["fill", "--circuit", "one"], 2,
                                    '--circuit takes a circuit number (1 or more), not "one" '
                                    "(see qslave fill --help)")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
