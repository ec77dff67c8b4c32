"""qslave shelf: a can's record and the three shelf moves for it."""
import os
import sys
import unittest

from cli_support import SampleTest


def can_lines(can, lowest, height, zero, no_punch, preferred):
    return ("can:          %d\n"
            "lowest:       %d\n"
            "height:       %d\n"
            "zero flag:    %s\n"
            "no punch:     %s\n"
            "preferred:    %s\n" % (can, lowest, height, zero, no_punch, preferred))


class Shelf(SampleTest):
    # The sample dispenser: shelf limit 90 % of 300 = 270, preferred height
    # 90 % of 150 = 135, preferred position on (option 5).

    def test_can_at_the_preferred_position(self):
        self.assertSucceeds(self.qslave("shelf", "2"),
                            can_lines(2, 150, 200, "no", "no", "yes") +
                            "prepos:       /S145 -> 1 (done)\n"
                            "pos:          /S135 -> 1 (done)\n"
                            "postpos:      no command -> 1 (done)\n")

    def test_can_at_its_own_height(self):
        self.assertSucceeds(self.qslave("shelf", "1"),
                            can_lines(1, 80, 120, "no", "no", "no") +
                            "prepos:       /S130 -> 1 (done)\n"
                            "pos:          /S120 -> 1 (done)\n"
                            "postpos:      no command -> 1 (done)\n")

    def test_can_that_sends_the_shelf_home(self):
        self.assertSucceeds(self.qslave("shelf", "3"),
                            can_lines(3, 220, 260, "yes", "yes", "no") +
                            "prepos:       /A -> 1 (done)\n"
                            "pos:          /S260 -> 1 (done)\n"
                            "postpos:      /A -> 1 (done)\n")

    def test_can_too_small_for_its_height_goes_to_its_lowest(self):
        result = self.qslave("shelf", "1", rules="/S120 8\n")
        self.assertSucceeds(result,
                            can_lines(1, 80, 120, "no", "no", "no") +
                            "prepos:       /S130 -> 1 (done)\n"
                            "pos:          /S120 /S80 -> 1 (done)\n"
                            "postpos:      no command -> 1 (done)\n")

    def test_refused_move(self):
        result = self.qslave("shelf", "1", rules="/S130 4\n")
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.out,
                         can_lines(1, 80, 120, "no", "no", "no") +
                         "prepos:       /S130 -> 0 (failed: 4 (ERROR : command refused))\n"
                         "pos:          /S120 -> 1 (done)\n"
                         "postpos:      no command -> 1 (done)\n")
        self.assertEqual(result.err, "qslave: the shelf move prepos failed with code 4 "
                         "(ERROR : command refused)\n")

    def test_help(self):
        self.assertHelp("shelf", "CAN")


class ShelfRefuses(SampleTest):
    def test_unknown_can(self):
        self.assertRefusedUnchanged(["shelf", "9"], 1,
                                    "can 9 is not in the cans table; the shelf moves would "
                                    "succeed without moving the shelf")

    def test_missing_cans_table(self):
        os.remove(os.path.join(self.data, "cans.dbf"))
        self.assertRefusedUnchanged(["shelf", "1"], 1,
                                    "no cans table: %s/cans.dbf is missing" % self.data)

    def test_unreadable_cans_table(self):
        with open(os.path.join(self.data, "cans.dbf"), "w") as f:
            f.write("not a dBase file")
        self.assertRefusedUnchanged(["shelf", "1"], 1,
                                    "cannot open the cans table %s/cans.dbf" % self.data)

    def test_bad_can_ids(self):
        for value in ("0", "-1", "x", "100000", "1.5"):
            with self.subTest(value=value):
                self.assertRefusedUnchanged(
                    ["shelf", value], 2,
                    'CAN is a can id from 1 to 99999, not "%s" (see qslave shelf --help)'
                    % value)

    def test_missing_can(self):
        self.assertRefusedUnchanged(["shelf"], 2, "shelf needs CAN (see qslave shelf --help)")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
