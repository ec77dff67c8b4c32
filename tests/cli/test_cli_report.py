"""qslave report: a dispensed-quantity reply per circuit and summed per
colourant."""
import sys
import unittest

from cli_support import SampleTest, table_bytes

HEADER = "circuit  colourant  code     requested   dispensed   remaining        over\n"
SUMS = "\ncolourant  code     requested   dispensed   remaining\n"


class Report(SampleTest):
    def test_reply_of_two_circuits(self):
        # Circuit 3 holds black (2), circuit 7 phthalo blue (5).
        self.assertSucceeds(self.qslave("report", "(3:10.000:10.000)(7:5.000:2.125)"),
                            "reply:      (3:10.000:10.000)(7:5.000:2.125)\n" + HEADER +
                            "      3          2  BK2         10.000      10.000       0.000       0.000\n"
                            "      7          5  B05          5.000       2.125       2.875       0.000\n"
                            + SUMS +
                            "        2  BK2         10.000      10.000       0.000\n"
                            "        5  B05          5.000       2.125       2.875\n")

    def test_circuits_of_one_colourant_are_summed(self):
        # Circuits 3 and 4 both hold black; a group that was given more
        # than asked by 0.001 or more is left out of the sums, one within
        # 0.001 counts as asked. What remains is never shown below 0: what
        # was given beyond the request is "over".
        self.assertSucceeds(self.qslave("report", "(3:4:4)(4:6:5) (5:2:2.5)(6:2:2.0005)"),
                            "reply:      (3:4:4)(4:6:5) (5:2:2.5)(6:2:2.0005)\n" + HEADER +
                            "      3          2  BK2          4.000       4.000       0.000       0.000\n"
                            "      4          2  BK2          6.000       5.000       1.000       0.000\n"
                            "      5          3  Y03          2.000       2.500       0.000       0.500\n"
                            "      6          4  R04          2.000       2.001       0.000       0.001\n"
                            + SUMS +
                            "        2  BK2         10.000       9.000       1.000\n"
                            "        3  Y03          0.000       0.000       0.000\n"
                            "        4  R04          2.000       2.000       0.000\n"
                            "note:       circuit 5 got 0.500 more than requested: left out of "
                            "the sums of colourant 3\n")

    def test_json(self):
        import json
        result = self.qslave("--json", "report", "(7:5:2.125)(5:2:2.5)")
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertEqual(json.loads(result.out), {
            "command": "report", "ok": True, "exit_status": 0,
            "reply": "(7:5:2.125)(5:2:2.5)",
            "circuits": [
                {"circuit": 7, "colourant": 5, "code": "B05", "requested": 5.0,
                 "dispensed": 2.125, "remaining": 2.875, "over": 0.0, "counted": True},
                {"circuit": 5, "colourant": 3, "code": "Y03", "requested": 2.0,
                 "dispensed": 2.5, "remaining": 0.0, "over": 0.5, "counted": False}],
            "colourants": [
                {"colourant": 5, "code": "B05", "requested": 5.0, "dispensed": 2.125,
                 "remaining": 2.875},
                {"colourant": 3, "code": "Y03", "requested": 0.0, "dispensed": 0.0,
                 "remaining": 0.0}],
            "notes": ["circuit 5 got 0.500 more than requested: left out of the sums of "
                      "colourant 3"]})

    def test_changes_nothing(self):
        before = table_bytes(self.data)
        self.assertEqual(self.qslave("report", "(5:1:1)").rc, 0)
        self.assertEqual(table_bytes(self.data), before)

    def test_help(self):
        self.assertHelp("report", "REPLY")


class ReportRefuses(SampleTest):
    def malformed(self, reply, why):
        self.assertRefusedUnchanged(["report", reply], 2,
                                    'malformed reply "%s": %s (see qslave report --help)'
                                    % (reply, why))

    def test_group_with_one_colon(self):
        # The library counts this as one group: it is refused here.
        self.malformed("(3:10)", "group 1 is not (CIRCUIT:REQUESTED:DISPENSED)")

    def test_incomplete_group(self):
        self.malformed("(3:10:10)(7:5:)", "group 2 is not (CIRCUIT:REQUESTED:DISPENSED)")

    def test_unclosed_group(self):
        self.malformed("(3:10:10)(7:5:2", "group 2 is not closed")

    def test_text_outside_groups(self):
        self.malformed("(3:10:10)x", 'group 2 does not begin with "("')

    def test_numbers_that_are_no_quantities(self):
        for reply in ("(3:nan:1)", "(3:1:inf)", "(3:-1:1)", "(x:1:1)", "(3:1:1:1)"):
            with self.subTest(reply=reply):
                self.malformed(reply, "group 1 is not (CIRCUIT:REQUESTED:DISPENSED)")

    def test_empty_reply(self):
        self.assertRefusedUnchanged(["report", "  "], 2,
                                    "the reply is empty (see qslave report --help)")

    def test_reply_too_long(self):
        reply = "(3:1.00000:1.00000)" * 27
        self.assertRefusedUnchanged(["report", reply], 2,
                                    "the reply is 513 characters long; at most 511 fit "
                                    "(see qslave report --help)")

    def test_unknown_circuit(self):
        self.assertRefusedUnchanged(["report", "(3:1:1)(13:1:1)"], 1,
                                    "circuit 13 of the reply is not a circuit of dispenser 1")
        self.assertRefusedUnchanged(["report", "(0:1:1)"], 1,
                                    "circuit 0 of the reply is not a circuit of dispenser 1")

    def test_missing_reply(self):
        self.assertRefusedUnchanged(["report"], 2,
                                    "report needs REPLY (see qslave report --help)")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
