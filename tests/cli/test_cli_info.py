"""qslave info, and how the tool selects a dispenser and its tables."""
import os
import shutil
import sys
import unittest

from cli_support import (CliTest, INFO_OF_SAMPLE_DISPENSER, add_dispenser,
                         create_empty_dispenser_table, run, write_text)


class Info(CliTest):
    def setUp(self):
        super().setUp()
        self.data = self.init_tables()

    def test_default_dispenser(self):
        result = run(["--data", self.data, "info"])
        self.assertEqual(result.rc, 0, result.err)
        self.assertEqual(result.err, "")
        self.assertEqual(result.out, INFO_OF_SAMPLE_DISPENSER)

    def test_dispenser_by_id(self):
        result = run(["--data", self.data, "--id", "1", "info"])
        self.assertEqual((result.rc, result.out), (0, INFO_OF_SAMPLE_DISPENSER))

    def test_option_with_equals_sign(self):
        result = run(["--data=" + self.data, "--id=1", "info"])
        self.assertEqual((result.rc, result.out), (0, INFO_OF_SAMPLE_DISPENSER))

    def test_second_dispenser_without_tanks(self):
        add_dispenser(self.data, id=2, x=False, slave=5, descr="Second",
                      options="0" * 32, model="M9000", serial_n="SN-2",
                      hide_id="VEX", communic=" 3 19200E 0702")
        result = run(["--data", self.data, "--id", "2", "info"])
        self.assertEqual(result.rc, 0, result.err)
        self.assertEqual(result.out,
                         "dispenser:    2\n"
                         "address:      5\n"
                         "description:  Second\n"
                         "options:      00000000000000000000000000000000\n"
                         "model:        M9000\n"
                         "serial:       SN-2\n"
                         "driver type:  8\n"
                         "comm port:    3\n"
                         "tanks:        0\n"
                         "circuits:     0\n"
                         "\n"
                         "SLAVE INFO\n"
                         "id.................: 2\n"
                         "address............: 5\n"
                         'name...............: "Second                  "\n'
                         "last error.........: 0\n"
                         "n. tanks...........: 0\n"
                         "hw. options........:     \n"
                         'dataid............: "0l"\n')
        # Dispenser 1 keeps the X mark: it stays the default.
        self.assertEqual(run(["--data", self.data, "info"]).out,
                         INFO_OF_SAMPLE_DISPENSER)

    def test_data_directory_from_environment(self):
        result = run(["info"], env={"QSLAVE_DATA": self.data})
        self.assertEqual((result.rc, result.out), (0, INFO_OF_SAMPLE_DISPENSER))

    def test_data_option_wins_over_environment(self):
        result = run(["--data", self.data, "info"],
                     env={"QSLAVE_DATA": self.path("elsewhere")})
        self.assertEqual((result.rc, result.out), (0, INFO_OF_SAMPLE_DISPENSER))

    def test_current_directory_by_default(self):
        result = run(["info"], cwd=self.data)
        self.assertEqual((result.rc, result.out), (0, INFO_OF_SAMPLE_DISPENSER))

    def test_missing_cistern_table_is_tolerated(self):
        os.remove(os.path.join(self.data, "cistern.dbf"))
        result = run(["--data", self.data, "info"])
        self.assertEqual((result.rc, result.out), (0, INFO_OF_SAMPLE_DISPENSER))

    def test_extra_argument(self):
        self.assertFails(run(["--data", self.data, "info", "now"]), 2,
                         'unexpected argument "now" for info '
                         "(see qslave info --help)")


class DispenserSelectionFails(CliTest):
    def test_unknown_id(self):
        data = self.init_tables()
        self.assertFails(run(["--data", data, "--id", "7", "info"]), 1,
                         "no dispenser 7 in %s/disps.dbf" % data)

    def test_missing_data_directory(self):
        missing = self.path("nowhere")
        self.assertFails(run(["--data", missing, "info"]), 1,
                         "data directory %s does not exist" % missing)

    def test_missing_dispenser_table(self):
        self.assertFails(run(["--data", self.dir, "info"]), 1,
                         "no dispenser table in %s (disps.dbf is missing)"
                         % self.dir)

    def test_missing_tank_table(self):
        data = self.init_tables()
        os.remove(os.path.join(data, "tanks.dbf"))
        self.assertFails(run(["--data", data, "status"]), 1,
                         "no tank table in %s (tanks.dbf is missing)" % data)

    def test_unreadable_dispenser_table(self):
        data = self.init_tables()
        write_text(os.path.join(data, "disps.dbf"), "not a dBase file")
        self.assertFails(run(["--data", data, "info"]), 1,
                         "cannot open the dispenser table %s/disps.dbf" % data)

    def test_unreadable_tank_table(self):
        data = self.init_tables()
        write_text(os.path.join(data, "tanks.dbf"), "not a dBase file")
        self.assertFails(run(["--data", data, "send", "/!"]), 1,
                         "cannot open the tank table %s/tanks.dbf" % data)

    def test_empty_dispenser_table(self):
        data = self.init_tables()
        os.remove(os.path.join(data, "disps.dbf"))
        create_empty_dispenser_table(data)
        self.assertFails(run(["--data", data, "info"]), 1,
                         "no default dispenser in %s/disps.dbf" % data)

    def test_upper_case_tables(self):
        data = self.init_tables()
        for name in ("disps", "tanks", "cistern"):
            shutil.move(os.path.join(data, name + ".dbf"),
                        os.path.join(data, name.upper() + ".DBF"))
        result = run(["--data", data, "info"])
        self.assertEqual((result.rc, result.out), (0, INFO_OF_SAMPLE_DISPENSER))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
