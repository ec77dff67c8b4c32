"""qslave dispense: a formula in colourant ids, the command the machine
received, the levels of the circuits it drew from, and the refusals."""
import sys
import unittest

from cli_support import (SAMPLE_LEVELS, SampleTest, read_cistern_level,
                         read_levels, update_records)

HEADER = "circuit  colourant  code      quantity      before       after\n"


class Dispense(SampleTest):
    def test_formula_on_the_sample_tables(self):
        # White (1) comes from the linked pair 1 and 2, which share one
        # reservoir: 120 leaves it, 60 through each circuit.
        result = self.qslave("dispense", "(3:10.000)(5:2.500)(1:120.000)")
        self.assertSucceeds(result,
                            "formula:   (3:10.000)(5:2.500)(1:120.000)\n"
                            "command:   /D(5:10.000)(7:2.500)(1:60.000)(2:60.000)\n"
                            + HEADER +
                            "      5          3  Y03         10.000    1200.000    1190.000\n"
                            "      7          5  B05          2.500    1600.000    1597.500\n"
                            "      1          1  W01         60.000    3000.000    2880.000\n"
                            "      2          1  W01         60.000    3000.000    2880.000\n"
                            "result:    1 (done)\n")
        expected = dict(SAMPLE_LEVELS)
        expected.update({1: 2880.0, 5: 1190.0, 7: 1597.5})
        self.assertEqual(read_levels(self.data), expected)
        self.assertEqual(read_cistern_level(self.data), 2880.0)

    def test_black_goes_to_the_tank_its_threshold_allows(self):
        # Black (2) is in tanks 3 (threshold 0) and 4 (threshold 20): 25
        # reaches the threshold of tank 4, 10 does not.
        result = self.qslave("dispense", "(2:25)")
        self.assertEqual(result.rc, 0, result.err)
        self.assertIn("command:   /D(4:25.000)\n", result.out)
        result = self.qslave("dispense", "(2:10)")
        self.assertIn("command:   /D(3:10.000)\n", result.out)
        levels = read_levels(self.data)
        self.assertEqual((levels[3], levels[4]), (1490.0, 1775.0))

    def test_factor_and_unit_scale_every_quantity(self):
        result = self.qslave("dispense", "(3:10)", "--factor", "3", "--unit=0.5")
        self.assertSucceeds(result,
                            "formula:   (3:10)\n"
                            "command:   /D(5:15.000)\n" + HEADER +
                            "      5          3  Y03         15.000    1200.000    1185.000\n"
                            "result:    1 (done)\n")
        self.assertEqual(read_levels(self.data)[5], 1185.0)

    def test_weights_become_volumes(self):
        # Oxide yellow weighs 1700 g per litre: 1700 g are 1000 cm3.
        result = self.qslave("dispense", "(3:1700)", "--weights")
        self.assertSucceeds(result,
                            "formula:   (3:1700)\n"
                            "command:   /D(5:1000.000)\n" + HEADER +
                            "      5          3  Y03       1000.000    1200.000     200.000\n"
                            "result:    1 (done)\n")
        self.assertEqual(read_levels(self.data)[5], 200.0)

    def test_no_levels_leaves_the_tables(self):
        result = self.qslave("dispense", "(4:5)", "--no-levels")
        self.assertSucceeds(result,
                            "formula:   (4:5)\n"
                            "command:   /D(6:5.000)\n" + HEADER +
                            "      6          4  R04          5.000     900.000     900.000\n"
                            "result:    1 (done)\n")
        self.assertEqual(read_levels(self.data), SAMPLE_LEVELS)

    def test_stopper_commands_around_the_dispense(self):
        # Option 3: the dispenser has a stopper.
        update_records(self.data, "disps", lambda r: True,
                       options="00011100000000000000000000000000")
        result = self.qslave("dispense", "(3:1)", "--g2", "--g0")
        self.assertEqual(result.rc, 0, result.err)
        self.assertTrue(result.out.startswith(
            "formula:   (3:1)\n"
            "command:   /G2\n"
            "command:   /D(5:1.000)\n"
            "command:   /G0\n"), result.out)
        result = self.qslave("dispense", "(3:1)")
        self.assertIn("formula:   (3:1)\ncommand:   /D(5:1.000)\ncircuit", result.out)

    def test_stopper_flags_without_a_stopper_send_nothing_more(self):
        result = self.qslave("dispense", "(3:1)", "--g2", "--g0")
        self.assertIn("formula:   (3:1)\ncommand:   /D(5:1.000)\ncircuit", result.out)

    def test_machine_refuses_the_dispense(self):
        result = self.qslave("dispense", "(3:10)", rules="/D* 4\n")
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.out,
                         "formula:   (3:10)\n"
                         "command:   /D(5:10.000)\n" + HEADER +
                         "      5          3  Y03         10.000    1200.000    1190.000\n"
                         "result:    0 (failed)\n")
        self.assertEqual(result.err,
                         "qslave: the dispense failed with code 4 (ERROR : command "
                         "refused); the levels were lowered all the same\n")
        # The library lowers the levels before it sends the command.
        self.assertEqual(read_levels(self.data)[5], 1190.0)

    def test_help(self):
        self.assertHelp("dispense", "FORMULA [--factor F] [--unit U] [--weights] "
                        "[--no-levels] [--g2] [--g0] [--split] [--force]")


class DispenseRefuses(SampleTest):
    def test_malformed_formula(self):
        for text in ("(3:abc)", "(3:1", "3:1)", "(3)", "()", "(3:1)x"):
            with self.subTest(text=text):
                self.assertRefusedUnchanged(
                    ["dispense", text], 2,
                    'malformed formula "%s": write it as (ID:QUANTITY)(ID:QUANTITY)... '
                    "(see qslave dispense --help)" % text)

    def test_empty_formula(self):
        self.assertRefusedUnchanged(["dispense", " "], 2,
                                    "the formula is empty (see qslave dispense --help)")

    def test_negative_quantity(self):
        self.assertRefusedUnchanged(
            ["dispense", "(3:1)(5:-1.5)"], 2,
            "colourant 5 has the quantity -1.5; quantities must be 0 or more "
            "(see qslave dispense --help)")

    def test_colourant_id_below_one(self):
        self.assertRefusedUnchanged(
            ["dispense", "(0:1)"], 2,
            "colourant id 0 in the formula is not an id (1 or more) "
            "(see qslave dispense --help)")

    def test_nothing_to_dispense(self):
        self.assertRefusedUnchanged(
            ["dispense", "(3:0)(5:0.000)"], 2,
            "the formula holds no quantity above 0 (see qslave dispense --help)")

    def test_colourant_in_no_tank(self):
        self.assertRefusedUnchanged(["dispense", "(3:1)(42:1)"], 1,
                                    "colourant 42 is in no tank of dispenser 1 (error 19)")

    def test_colourant_its_tanks_cannot_serve(self):
        # Organic orange: 700 in its tank, 150 reserve.
        self.assertRefusedUnchanged(
            ["dispense", "(3:1)(8:600)"], 1,
            "colourant 8 cannot be served by its tanks: not enough above the "
            "reserve, or its tanks are suspended (error 19)")

    def test_weight_without_specific_weight(self):
        update_records(self.data, "colorants", lambda r: r["id"] == 3, spec_w=0)
        self.assertRefusedUnchanged(
            ["dispense", "(3:10)", "--weights"], 1,
            "colourant 3 has no specific weight: its weight cannot be turned into a volume")

    def test_command_that_would_not_fit(self):
        # 60 components of 9 characters: more than one command holds.
        self.assertRefusedUnchanged(
            ["dispense", "(3:1)" * 60], 1,
            "the dispense command for this formula would not fit the 511 "
            "characters of a command; dispense it in parts (--split)")

    def test_formula_too_long(self):
        self.assertRefusedUnchanged(
            ["dispense", "(3:1.000000)" * 43], 2,
            "the formula is 516 characters long; at most 511 fit "
            "(see qslave dispense --help)")

    def test_bad_factors(self):
        for option, value in (("--factor", "nan"), ("--factor", "0"), ("--unit", "-1"),
                              ("--unit", "inf"), ("--factor", "2x")):
            with self.subTest(option=option, value=value):
                self.assertRefusedUnchanged(
                    ["dispense", "(3:1)", option, value], 2,
                    '%s takes a quantity above 0, not "%s" (see qslave dispense --help)'
                    % (option, value))

    def test_wrong_command_lines(self):
        cases = [
            (["dispense"], "dispense needs FORMULA"),
            (["dispense", "(3:1)", "(4:1)"], 'unexpected argument "(4:1)" for dispense'),
            (["dispense", "(3:1)", "--bogus"], "unknown option --bogus for dispense"),
            (["dispense", "(3:1)", "--factor"], "--factor needs a value"),
            (["dispense", "(3:1)", "--weights=1"], "--weights takes no value"),
            (["dispense", "(3:1)", "--g2", "--g2"], "--g2 is given twice"),
        ]
        for args, message in cases:
            with self.subTest(args=args):
                self.assertRefusedUnchanged(args, 2,
                                            message + " (see qslave dispense --help)")

    def test_missing_tables(self):
        self.assertFails(self.qslave("--id", "7", "dispense", "(3:1)"), 1,
                         "no dispenser 7 in %s/disps.dbf" % self.data)


class DispenseInParts(SampleTest):
    def test_split_sends_parts_that_fit_each_booked(self):
        # 60 times 1 of oxide yellow (circuit 5): "/D" and 60 groups of
        # "(5:1.000)" are 542 characters; 56 groups fill 506 of the 511.
        result = self.qslave("dispense", "(3:1)" * 60, "--split")
        self.assertEqual((result.rc, result.err), (0, ""))
        commands = [l for l in result.out.splitlines() if l.startswith("command:")]
        self.assertEqual(commands, ["command:   /D" + "(5:1.000)" * 56,
                                    "command:   /D" + "(5:1.000)" * 4])
        self.assertTrue(result.out.endswith(
            HEADER +
            "      5          3  Y03         60.000    1200.000    1140.000\n"
            "parts:     2 of 2 sent\n"
            "result:    1 (done)\n"), result.out)
        self.assertEqual(read_levels(self.data)[5], 1140.0)

    def test_a_refused_part_stops_the_rest(self):
        # The second part is refused: the first stays booked and sent, the
        # second was booked before it was sent (as the library books every
        # dispense), nothing after it is sent.
        rules = "/D(5:1.000)(5:1.000)(5:1.000)(5:1.000) 4\n"
        result = self.qslave("dispense", "(3:1)" * 60, "--split", rules=rules)
        self.assertEqual(result.rc, 1)
        self.assertIn("parts:     1 of 2 sent\nresult:    0 (failed)\n", result.out)
        self.assertEqual(result.err,
                         "qslave: part 2 of 2 failed with code 4 (ERROR : command refused); "
                         "the parts after it were not sent; its levels were lowered all the "
                         "same\n")
        self.assertEqual(read_levels(self.data)[5], 1140.0)

    def test_split_of_a_formula_that_fits_sends_one_command(self):
        result = self.qslave("dispense", "(3:10)", "--split")
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertIn("command:   /D(5:10.000)\n", result.out)
        self.assertNotIn("parts:", result.out)

    def test_split_refuses_g2_and_g0(self):
        self.assertRefusedUnchanged(
            ["dispense", "(3:1)", "--split", "--g2"], 2,
            "--split sends plain parts; it does not go with --g2 or --g0 "
            "(see qslave dispense --help)")

    def test_json_of_a_split(self):
        import json
        result = self.qslave("--json", "dispense", "(3:1)" * 60, "--split")
        document = json.loads(result.out)
        self.assertEqual(document["parts"], 2)
        self.assertEqual(document["parts_sent"], 2)
        self.assertEqual(len(document["commands"]), 2)


class DispenseDoor(SampleTest):
    # The sample dispenser has the door option (option 4); status 70 is
    # the idle word without "door closed" (128).
    DOOR_OPEN = "/! 70\n"

    def test_open_door_stops_the_dispense(self):
        self.assertRefusedUnchanged(
            ["dispense", "(3:10)"], 1,
            "the door of dispenser 1 is open; close it and dispense again, or give --force",
            rules=self.DOOR_OPEN)

    def test_no_status_answer_stops_the_dispense(self):
        self.assertRefusedUnchanged(
            ["dispense", "(3:10)"], 1,
            "no answer from dispenser 1 to the status query /!: the door cannot be checked; "
            "close it and dispense again, or give --force",
            rules="/! -1\n")

    def test_force_dispenses_with_a_warning(self):
        result = self.qslave("dispense", "(3:10)", "--force", rules=self.DOOR_OPEN)
        self.assertEqual(result.rc, 0)
        self.assertEqual(result.err, "qslave: warning: the door of dispenser 1 is open; "
                                     "dispensing all the same (--force)\n")
        self.assertIn("command:   /D(5:10.000)\n", result.out)
        self.assertEqual(read_levels(self.data)[5], 1190.0)

    def test_force_warning_in_the_json_document(self):
        import json
        result = self.qslave("--json", "dispense", "(3:10)", "--force", rules=self.DOOR_OPEN)
        self.assertEqual(result.rc, 0)
        self.assertEqual(json.loads(result.out)["warnings"],
                         ["the door of dispenser 1 is open; dispensed all the same (--force)"])

    def test_no_door_option_no_check(self):
        update_records(self.data, "disps", lambda r: True,
                       options="00000100000000000000000000000000")
        result = self.qslave("dispense", "(3:10)", rules=self.DOOR_OPEN)
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertIn("command:   /D(5:10.000)\n", result.out)


class DispenseJson(SampleTest):
    def test_document(self):
        import json
        result = self.qslave("dispense", "(3:10.000)(1:120.000)", "--json")
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertEqual(json.loads(result.out), {
            "command": "dispense", "ok": True, "exit_status": 0,
            "formula": "(3:10.000)(1:120.000)",
            "commands": ["/D(5:10.000)(1:60.000)(2:60.000)"],
            "circuits": [
                {"circuit": 5, "colourant": 3, "code": "Y03", "quantity": 10.0,
                 "before": 1200.0, "after": 1190.0},
                {"circuit": 1, "colourant": 1, "code": "W01", "quantity": 60.0,
                 "before": 3000.0, "after": 2880.0},
                {"circuit": 2, "colourant": 1, "code": "W01", "quantity": 60.0,
                 "before": 3000.0, "after": 2880.0}],
            "result": 1, "done": True, "levels_booked": True})

    def test_failure_document_carries_the_last_error(self):
        import json
        result = self.qslave("--json", "dispense", "(3:10)", rules="/D* 5\n")
        self.assertEqual(result.rc, 1)
        document = json.loads(result.out)
        self.assertEqual(document["ok"], False)
        self.assertEqual(document["result"], 0)
        self.assertEqual(document["error"], {
            "message": "the dispense failed with code 5 (ERROR : process timeout elapsed); "
                       "the levels were lowered all the same",
            "usage": False, "last_error": 5,
            "last_error_text": "ERROR : process timeout elapsed"})

    def test_refusal_document(self):
        import json
        result = self.qslave("dispense", "(42:1)", "--json")
        self.assertEqual(result.rc, 1)
        self.assertEqual(json.loads(result.out), {
            "command": "dispense", "ok": False, "exit_status": 1,
            "formula": "(42:1)",
            "error": {"message": "colourant 42 is in no tank of dispenser 1 (error 19)",
                      "usage": False}})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
