"""qslave purge: all circuits, one circuit or the circuits of colourants;
the commands sent, what was purged and the levels."""
import sys
import unittest

from cli_support import (SAMPLE_LEVELS, SampleTest, read_cistern_level,
                         read_levels, table_bytes, update_records)

HEADER = "circuit  colourant  code        before       after\n"

ALL_CIRCUITS = (
    "quantity: 1.000\n"
    "command:  /D(1:1.000)(2:1.000)(3:1.000)(4:1.000)(5:1.000)(6:1.000)(7:1.000)(8:1.000)\n"
    "command:  /D(9:1.000)(10:1.000)(11:1.000)(12:1.000)\n"
    "purged:   (1:1.000)(1:1.000)(2:1.000)(2:1.000)(3:1.000)(4:1.000)(5:1.000)"
    "(6:1.000)(7:1.000)(8:1.000)(9:1.000)(10:1.000)\n" + HEADER +
    "      1          1  W01       3000.000    2998.000\n"
    "      2          1  W01       3000.000    2998.000\n"
    "      3          2  BK2       1500.000    1499.000\n"
    "      4          2  BK2       1800.000    1799.000\n"
    "      5          3  Y03       1200.000    1199.000\n"
    "      6          4  R04        900.000     899.000\n"
    "      7          5  B05       1600.000    1599.000\n"
    "      8          6  G06       1400.000    1399.000\n"
    "      9          7  M07       1000.000     999.000\n"
    "     10          8  O08        700.000     699.000\n"
    "     11          9  V09       1100.000    1099.000\n"
    "     12         10  Y10       1300.000    1299.000\n"
    "result:   1 (done)\n")


def every_level_less(quantity):
    """The sample levels after quantity was purged from every circuit: the
    white reservoir is purged through both of its circuits."""
    levels = {tank: level - quantity for tank, level in SAMPLE_LEVELS.items()}
    levels[1] = SAMPLE_LEVELS[1] - 2 * quantity
    levels[2] = -1.0
    return levels


class Purge(SampleTest):
    def test_all_circuits_in_groups_of_eight(self):
        self.assertSucceeds(self.qslave("purge"), ALL_CIRCUITS)
        self.assertEqual(read_levels(self.data), every_level_less(1.0))
        self.assertEqual(read_cistern_level(self.data), 2998.0)

    def test_one_by_one(self):
        result = self.qslave("purge", "--one-by-one", "--qty", "0.25")
        self.assertEqual(result.rc, 0, result.err)
        commands = [l for l in result.out.splitlines() if l.startswith("command:")]
        self.assertEqual(commands, ["command:  /D(%d:0.250)" % c for c in range(1, 13)])
        self.assertEqual(read_levels(self.data), every_level_less(0.25))

    def test_book_only_sends_nothing_but_books_the_purge(self):
        result = self.qslave("purge", "--book-only", "--qty", "0.5")
        self.assertEqual(result.rc, 0, result.err)
        self.assertTrue(result.out.startswith(
            "quantity: 0.500\n"
            "command:  none\n"
            "purged:   (1:0.500)(1:0.500)(2:0.500)(2:0.500)(3:0.500)(4:0.500)(5:0.500)"
            "(6:0.500)(7:0.500)(8:0.500)(9:0.500)(10:0.500)\n" + HEADER +
            "      1          1  W01       3000.000    2999.000\n"), result.out)
        self.assertTrue(result.out.endswith("result:   1 (done)\n"))
        self.assertEqual(read_levels(self.data), every_level_less(0.5))

    def test_driver_that_purges_by_itself(self):
        result = self.qslave("purge", "--qty", "2", rules="set purge 0\n")
        self.assertEqual(result.rc, 0, result.err)
        self.assertIn("command:  none\n", result.out)
        self.assertEqual(read_levels(self.data), every_level_less(2.0))

    def test_driver_purge_failure(self):
        result = self.qslave("purge", "--qty", "2", rules="set purge 5\n")
        self.assertEqual(result.rc, 1)
        self.assertTrue(result.out.endswith("result:   0 (failed)\n"), result.out)
        self.assertEqual(result.err,
                         "qslave: the purge failed with code 5 (ERROR : process timeout "
                         "elapsed); the levels were booked all the same\n")

    def test_one_circuit(self):
        self.assertSucceeds(self.qslave("purge", "--circuit", "5", "--qty", "2"),
                            "quantity: 2.000\n"
                            "command:  /D(5:2.000)\n" + HEADER +
                            "      5          3  Y03       1200.000    1198.000\n"
                            "result:   1 (done)\n")
        expected = dict(SAMPLE_LEVELS)
        expected[5] = 1198.0
        self.assertEqual(read_levels(self.data), expected)

    def test_colourants(self):
        self.assertSucceeds(self.qslave("purge", "--colorant", "2,3"),
                            "quantity: 1.000\n"
                            "command:  /D(3:1.000)(4:1.000)(5:1.000)\n" + HEADER +
                            "      3          2  BK2       1500.000    1499.000\n"
                            "      4          2  BK2       1800.000    1799.000\n"
                            "      5          3  Y03       1200.000    1199.000\n"
                            "result:   1 (done)\n")
        expected = dict(SAMPLE_LEVELS)
        expected.update({3: 1499.0, 4: 1799.0, 5: 1199.0})
        self.assertEqual(read_levels(self.data), expected)

    def test_machine_refuses(self):
        result = self.qslave("purge", "--circuit", "6", rules="/D* 4\n")
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.out,
                         "quantity: 1.000\n"
                         "command:  /D(6:1.000)\n" + HEADER +
                         "      6          4  R04        900.000     899.000\n"
                         "result:   0 (failed)\n")
        self.assertEqual(result.err,
                         "qslave: the purge failed with code 4 (ERROR : command refused); "
                         "the levels were booked all the same\n")

    def test_help(self):
        self.assertHelp("purge", "[--qty Q] [--circuit N | --colorant ID[,ID...]] "
                        "[--dry-run | --book-only] [--one-by-one]")


class PurgeDryRun(SampleTest):
    """--dry-run changes nothing and shows what the purge would send and
    the levels it would leave: the same as the real purge then does."""

    def compare_with_the_real_purge(self, *args, rules=None):
        before = table_bytes(self.data)
        dry = self.qslave("purge", "--dry-run", *args, rules=rules)
        self.assertEqual((dry.rc, dry.err), (0, ""))
        self.assertEqual(table_bytes(self.data), before)
        self.assertEqual(dry.out.splitlines()[1],
                         "dry run:  nothing was sent or booked; the library's own purge "
                         "would send and book this")
        self.assertTrue(dry.out.endswith(
            "note:     a driver that purges by itself gets one purge call instead\n"))
        real = self.qslave("purge", *args, rules=rules)
        self.assertEqual((real.rc, real.err), (0, ""))

        def commands(out):
            return [l for l in out.splitlines() if l.startswith("command:")]

        def table(out):
            lines = out.splitlines()
            start = lines.index(HEADER.rstrip("\n"))
            return [l for l in lines[start:] if l[:7].strip().isdigit() or l == lines[start]]

        self.assertEqual(commands(dry.out), commands(real.out))
        self.assertEqual(table(dry.out), table(real.out))
        return dry

    def test_all_circuits(self):
        dry = self.compare_with_the_real_purge("--qty", "0.5")
        self.assertIn("      1          1  W01       3000.000    2999.000\n", dry.out)
        self.assertEqual(read_levels(self.data), every_level_less(0.5))

    def test_one_by_one(self):
        self.compare_with_the_real_purge("--one-by-one", "--qty", "2")

    def test_one_circuit(self):
        self.compare_with_the_real_purge("--circuit", "2", "--qty", "3")

    def test_colourants(self):
        self.compare_with_the_real_purge("--colorant", "1,8")

    def test_stopper_flag_adds_g2_and_g0(self):
        update_records(self.data, "disps", lambda r: True,
                       options="00011100000000000000000000000000")
        dry = self.compare_with_the_real_purge("--colorant", "3")
        self.assertIn("command:  /G2\ncommand:  /D(5:1.000)\ncommand:  /G0\n", dry.out)

    def test_level_stops_at_zero(self):
        update_records(self.data, "tanks", lambda r: r["tank"] == 6, cur_q=0.5)
        dry = self.compare_with_the_real_purge("--circuit", "6")
        self.assertIn("      6          4  R04          0.500       0.000\n", dry.out)

    def test_json(self):
        import json
        result = self.qslave("--json", "purge", "--dry-run", "--circuit", "5")
        self.assertEqual(json.loads(result.out), {
            "command": "purge", "ok": True, "exit_status": 0, "quantity": 1.0,
            "dry_run": True, "commands": ["/D(5:1.000)"], "books": True,
            "circuits": [{"circuit": 5, "colourant": 3, "code": "Y03", "before": 1200.0,
                          "after": 1199.0}]})


class PurgeJson(SampleTest):
    def test_failure_carries_the_last_error(self):
        import json
        result = self.qslave("purge", "--circuit", "6", "--json", rules="/D* 4\n")
        self.assertEqual(result.rc, 1)
        document = json.loads(result.out)
        self.assertEqual(document["commands"], ["/D(6:1.000)"])
        self.assertEqual(document["circuits"], [
            {"circuit": 6, "colourant": 4, "code": "R04", "before": 900.0, "after": 899.0}])
        self.assertEqual((document["result"], document["done"]), (0, False))
        self.assertEqual(document["error"], {
            "message": "the purge failed with code 4 (ERROR : command refused); "
                       "the levels were booked all the same",
            "usage": False, "last_error": 4, "last_error_text": "ERROR : command refused"})


class PurgeRefuses(SampleTest):
    def test_bad_quantities(self):
        for value in ("nan", "NaN", "-1", "0", "inf", "1,5", "1e999"):
            with self.subTest(value=value):
                self.assertRefusedUnchanged(
                    ["purge", "--qty", value], 2,
                    '--qty takes a quantity above 0, not "%s" (see qslave purge --help)'
                    % value)

    def test_unknown_circuit(self):
        self.assertRefusedUnchanged(["purge", "--circuit", "13"], 1,
                                    "dispenser 1 has no circuit 13")

    def test_circuit_that_is_no_number(self):
        for value in ("0", "-2", "x", "5.0"):
            with self.subTest(value=value):
                self.assertRefusedUnchanged(
                    ["purge", "--circuit", value], 2,
                    '--circuit takes a circuit number (1 or more), not "%s" '
                    "(see qslave purge --help)" % value)

    def test_empty_circuit(self):
        update_records(self.data, "tanks", lambda r: r["tank"] == 6, cur_q=0)
        self.assertRefusedUnchanged(["purge", "--circuit", "6"], 1,
                                    "circuit 6 holds no colourant: nothing to purge")

    def test_every_circuit_empty(self):
        update_records(self.data, "tanks", lambda r: r["tank"] != 2, cur_q=0)
        self.assertRefusedUnchanged(["purge"], 1, "no circuit holds colourant: nothing to purge")

    def test_colourant_in_no_tank(self):
        self.assertRefusedUnchanged(["purge", "--colorant", "3,42"], 1,
                                    "colourant 42 is in no tank of dispenser 1 (error 19)")

    def test_colourants_of_empty_circuits(self):
        update_records(self.data, "tanks", lambda r: r["tank"] in (3, 4), cur_q=0)
        self.assertRefusedUnchanged(["purge", "--colorant", "2"], 1,
                                    "no circuit of these colourants holds colourant: "
                                    "nothing to purge")

    def test_bad_colourant_lists(self):
        for value in ("3,", "x", "0", "3,,4"):
            with self.subTest(value=value):
                self.assertRefusedUnchanged(
                    ["purge", "--colorant", value], 2,
                    '--colorant takes colourant ids (1 or more) separated by commas, '
                    'not "%s" (see qslave purge --help)' % value)
        self.assertRefusedUnchanged(["purge", "--colorant", "3,4,3"], 2,
                                    "colourant 3 is given twice (see qslave purge --help)")

    def test_options_that_do_not_go_together(self):
        cases = [
            (["purge", "--circuit", "5", "--colorant", "3"],
             "give --circuit or --colorant, not both"),
            (["purge", "--circuit", "5", "--book-only"],
             "--book-only is for a purge of all circuits only"),
            (["purge", "--dry-run", "--book-only"],
             "give --dry-run or --book-only, not both"),
            (["purge", "--colorant", "3", "--one-by-one"],
             "--one-by-one is for a purge of all circuits only"),
            (["purge", "5"], 'unexpected argument "5" for purge'),
        ]
        for args, message in cases:
            with self.subTest(args=args):
                self.assertRefusedUnchanged(args, 2, message + " (see qslave purge --help)")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
