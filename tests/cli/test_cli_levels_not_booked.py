"""A dispense or purge the machine took whose levels could not be booked:
the tool says "levels not booked" and exits with 1. The tank table is made
unwritable with the immutable attribute (root on a file system that has
it; the test is skipped elsewhere)."""
import json
import os
import subprocess
import sys
import unittest

from cli_support import SampleTest


def set_immutable(path, on):
    flag = "+i" if on else "-i"
    return subprocess.run(["chattr", flag, path], capture_output=True).returncode == 0


class LevelsNotBooked(SampleTest):
    def setUp(self):
        super().setUp()
        self.tanks = os.path.join(self.data, "tanks.dbf")
        if os.geteuid() != 0 or not set_immutable(self.tanks, True):
            super().tearDown()
            self.skipTest("the tank table cannot be made unwritable here (needs root and chattr)")

    def tearDown(self):
        # Before the temporary directory is removed.
        set_immutable(self.tanks, False)
        super().tearDown()

    def test_dispense(self):
        result = self.qslave("dispense", "(3:10)")
        self.assertEqual(result.rc, 1)
        self.assertTrue(result.out.endswith("result:    1 (done)\n"), result.out)
        self.assertEqual(result.err,
                         "qslave: the machine took the dispense, but its quantities could not "
                         "be booked on the levels: levels not booked\n")

    def test_dispense_json(self):
        result = self.qslave("--json", "dispense", "(3:10)")
        document = json.loads(result.out)
        self.assertEqual((document["ok"], document["done"], document["levels_booked"]),
                         (False, True, False))

    def test_purge(self):
        result = self.qslave("purge", "--circuit", "5")
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.err,
                         "qslave: the purge was done, but its quantities could not be booked "
                         "on the levels: levels not booked\n")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
