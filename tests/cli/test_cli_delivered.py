"""qslave delivered: what the machine says each circuit delivered (the /O
query), against the request, and the difference booked on confirmation."""
import json
import sys
import unittest

from cli_support import SAMPLE_LEVELS, SampleTest, read_levels, table_bytes

# Oxide yellow (3) is in circuit 5, white (1) in the linked pair 1 and 2.
FORMULA = "(3:10)(1:120)"
QUERY = "query:     /O(5:10.000)(1:60.000)(2:60.000)\n"
INTERRUPTED = "/O* 0 (5:10.000:4.000)(1:60.000:60.000)(2:60.000:20.000)\n"
TABLE = ("circuit  colourant  code     requested   delivered     to book\n"
         "      5          3  Y03         10.000       4.000      +6.000\n"
         "      1          1  W01         60.000      60.000      +0.000\n"
         "      2          1  W01         60.000      20.000     +40.000\n")


class Delivered(SampleTest):
    def test_books_the_difference_with_yes(self):
        # The dispense had lowered the levels by the whole request: what
        # the machine did not deliver goes back (the white reservoir gets
        # 40 back through circuit 2).
        self.assertSucceeds(self.qslave("delivered", FORMULA, "--yes", rules=INTERRUPTED),
                            "formula:   (3:10)(1:120)\n" + QUERY + TABLE +
                            "booked:    yes\n"
                            "circuit  colourant  code        before       after\n"
                            "      5          3  Y03       1200.000    1206.000\n"
                            "      1          1  W01       3000.000    3040.000\n"
                            "      2          1  W01       3000.000    3040.000\n")
        levels = read_levels(self.data)
        self.assertEqual((levels[1], levels[5]), (3040.0, 1206.0))

    def test_asks_before_booking(self):
        result = self.qslave("delivered", FORMULA, rules=INTERRUPTED, input="y\n")
        self.assertEqual(result.rc, 0)
        self.assertEqual(result.err, "book these differences on the levels? [y/N] ")
        self.assertIn("booked:    yes\n", result.out)
        self.assertEqual(read_levels(self.data)[5], 1206.0)

    def test_no_answer_books_nothing(self):
        before = table_bytes(self.data)
        for answer in ("", "n\n", "whatever\n"):
            with self.subTest(answer=answer):
                result = self.qslave("delivered", FORMULA, rules=INTERRUPTED, input=answer)
                self.assertEqual(result.rc, 0)
                self.assertEqual(result.out, "formula:   (3:10)(1:120)\n" + QUERY + TABLE +
                                 "booked:    no (not confirmed)\n")
                self.assertEqual(table_bytes(self.data), before)

    def test_not_booked_takes_away_what_was_delivered(self):
        result = self.qslave("delivered", "(3:10)", "--not-booked", "--yes",
                             rules="/O* 0 (5:10.000:4.000)\n")
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertIn("      5          3  Y03         10.000       4.000      -4.000\n",
                      result.out)
        self.assertEqual(read_levels(self.data)[5], 1196.0)

    def test_everything_delivered_changes_nothing(self):
        result = self.qslave("delivered", "(3:10)", "--yes")
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertIn("      5          3  Y03         10.000      10.000      +0.000\n",
                      result.out)
        self.assertEqual(read_levels(self.data), SAMPLE_LEVELS)

    def test_machine_refuses_the_query(self):
        self.assertRefusedUnchangedWithOutput(
            ["delivered", FORMULA, "--yes"], "/O* 3\n",
            "the machine did not answer the dispensed-quantity query: code 3 (ERROR : in "
            "communication protocol); nothing was booked")

    def assertRefusedUnchangedWithOutput(self, args, rules, message):
        before = table_bytes(self.data)
        result = self.qslave(*args, rules=rules)
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.err, "qslave: %s\n" % message)
        self.assertEqual(result.out, "formula:   (3:10)(1:120)\n" + QUERY)
        self.assertEqual(table_bytes(self.data), before)

    def test_json(self):
        result = self.qslave("--json", "delivered", FORMULA, "--yes", rules=INTERRUPTED)
        self.assertEqual((result.rc, result.err), (0, ""))
        document = json.loads(result.out)
        self.assertEqual(document["commands"], ["/O(5:10.000)(1:60.000)(2:60.000)"])
        self.assertEqual(document["delivered"], [
            {"circuit": 5, "colourant": 3, "code": "Y03", "requested": 10.0,
             "delivered": 4.0, "to_book": 6.0},
            {"circuit": 1, "colourant": 1, "code": "W01", "requested": 60.0,
             "delivered": 60.0, "to_book": 0.0},
            {"circuit": 2, "colourant": 1, "code": "W01", "requested": 60.0,
             "delivered": 20.0, "to_book": 40.0}])
        self.assertEqual(document["booked"], True)
        self.assertEqual(document["circuits"][0],
                         {"circuit": 5, "colourant": 3, "code": "Y03", "before": 1200.0,
                          "after": 1206.0})

    def test_help(self):
        self.assertHelp("delivered",
                        "FORMULA [--factor F] [--unit U] [--weights] [--not-booked] [--yes]")

    def test_colourant_in_no_tank(self):
        self.assertRefusedUnchanged(["delivered", "(42:1)"], 1,
                                    "colourant 42 is in no tank of dispenser 1 (error 19)")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
