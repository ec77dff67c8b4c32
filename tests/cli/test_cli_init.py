"""qslave init: the sample tables, and never a table overwritten."""
import os
import sys
import unittest

from dbfread import DBF

from cli_support import CliTest, TABLES, read_bytes, run, write_text


def records(directory, name):
    return [dict(r) for r in DBF(os.path.join(directory, name))]


def field_types(directory, name):
    return {f.name: (f.type, f.length) for f in DBF(os.path.join(directory, name)).fields}


class InitWrites(CliTest):
    def test_prints_one_line_per_table(self):
        target = self.path("shop")
        result = run(["init", target])
        self.assertEqual(result.rc, 0, result.err)
        self.assertEqual(result.err, "")
        self.assertEqual(result.out,
                         "wrote %s/disps.dbf (1 record)\n"
                         "wrote %s/tanks.dbf (12 records)\n"
                         "wrote %s/cistern.dbf (1 record)\n"
                         "wrote %s/colorants.dbf (10 records)\n"
                         "wrote %s/cans.dbf (3 records)\n" % ((target,) * 5))
        self.assertEqual(sorted(os.listdir(target)), sorted(TABLES + ("qslave.jnl",)))

    def test_creates_missing_parent_directories(self):
        target = self.path("a", "b", "c")
        result = run(["init", target])
        self.assertEqual(result.rc, 0, result.err)
        self.assertEqual(sorted(os.listdir(target)), sorted(TABLES + ("qslave.jnl",)))

    def test_writes_into_an_existing_empty_directory(self):
        target = self.path("empty")
        os.mkdir(target)
        self.assertEqual(run(["init", target]).rc, 0)
        self.assertEqual(sorted(os.listdir(target)), sorted(TABLES + ("qslave.jnl",)))


class InitTablesReadByDbfread(CliTest):
    def setUp(self):
        super().setUp()
        self.data = self.init_tables()

    def test_dispenser_record(self):
        rows = records(self.data, "disps.dbf")
        self.assertEqual(len(rows), 1)
        d = rows[0]
        self.assertEqual(d["ID"], 1)
        self.assertIs(d["X"], True)
        self.assertEqual(d["SLAVE"], 1)
        self.assertEqual(d["DESCR"], "Sample dispenser")
        self.assertEqual(d["OPTIONS"], "00001100000000000000000000000000")
        self.assertEqual(d["MODEL"], "Z12")
        self.assertEqual(d["SERIAL_N"], "SN-000123")
        self.assertEqual(d["HIDE_ID"], "ZARVO")
        self.assertEqual(d["VALUES"], "10;20;30")
        self.assertEqual(d["DATA_ID"], 0)

    def test_serial_line_at_its_positions(self):
        communic = records(self.data, "disps.dbf")[0]["COMMUNIC"]
        self.assertEqual(communic[0:2], " 1")        # port
        self.assertEqual(communic[2:8], "  9600")    # baud rate
        self.assertEqual(communic[8], "N")           # parity
        self.assertEqual(communic[10:12], "08")
        self.assertEqual(communic[12:14], "01")
        self.assertEqual(communic[41:50], "    2.500")  # time-out

    def test_machine_parameters_at_their_positions(self):
        cfg = records(self.data, "disps.dbf")[0]["CFG_STR"]
        self.assertEqual(cfg[1:4], "090")    # percentage p
        self.assertEqual(cfg[4:8], "0300")   # height h1
        self.assertEqual(cfg[33:37], "0150")  # height h2
        self.assertEqual(cfg[37:41], "0500")  # splitting percentage x 10
        self.assertEqual(cfg[41:45], "0010")  # splitting threshold
        self.assertEqual(cfg[45], "1")        # manual puncher

    def test_tanks(self):
        rows = records(self.data, "tanks.dbf")
        self.assertEqual([r["TANK"] for r in rows], list(range(1, 13)))
        self.assertEqual([r["CNT_ID"] for r in rows],
                         [1, 1, 2, 2, 3, 4, 5, 6, 7, 8, 9, 10])
        self.assertTrue(all(r["DISP_ID"] == "    1" for r in rows))
        # The white pair shares cistern 1; the secondary has no quantities.
        self.assertEqual([r["CIST_ID"] for r in rows[:2]], ["    1", "    1"])
        self.assertTrue(all(r["CIST_ID"] == "    0" for r in rows[2:]))
        self.assertEqual((rows[0]["MAX_Q"], rows[0]["CUR_Q"], rows[0]["RES_Q"]),
                         (4000.0, 3000.0, 400.0))
        self.assertEqual((rows[1]["MAX_Q"], rows[1]["CUR_Q"], rows[1]["RES_Q"]),
                         (-1.0, -1.0, -1.0))
        # Black: two independent tanks, thresholds 0 and 20, simultaneous.
        self.assertEqual((rows[2]["THRESHOLD"], rows[3]["THRESHOLD"]), (0.0, 20.0))
        self.assertEqual((rows[2]["STATUS_FLG"], rows[3]["STATUS_FLG"]),
                         ("10000000", "10000000"))
        self.assertEqual(rows[4]["MPX"], "1;")
        self.assertEqual(rows[2]["RESOLUT"], 0.001)
        self.assertTrue(all(r["CUR_Q"] <= r["MAX_Q"] for r in rows))

    def test_cistern(self):
        self.assertEqual(records(self.data, "cistern.dbf"),
                         [{"ID": 1, "USERS": 2, "MAX_Q": 4000.0,
                           "CUR_Q": 3000.0, "RES_Q": 400.0}])

    def test_colourants(self):
        rows = records(self.data, "colorants.dbf")
        self.assertEqual([(r["ID"], r["CODE"]) for r in rows],
                         [(1, "W01"), (2, "BK2"), (3, "Y03"), (4, "R04"),
                          (5, "B05"), (6, "G06"), (7, "M07"), (8, "O08"),
                          (9, "V09"), (10, "Y10")])
        self.assertEqual(rows[0]["DESCR"], "Titanium white")
        self.assertTrue(all(1000.0 <= r["SPEC_W"] <= 2200.0 for r in rows))
        self.assertEqual(rows[1]["SPEC_W"], 1150.0)

    def test_cans(self):
        self.assertEqual(records(self.data, "cans.dbf"), [
            {"ID": 1, "H_MIN": 80, "H_MAX": 120, "ZERO_FLAG": False,
             "NO_PUNCH": False, "FLAGS": "0"},
            {"ID": 2, "H_MIN": 150, "H_MAX": 200, "ZERO_FLAG": False,
             "NO_PUNCH": False, "FLAGS": "1"},
            {"ID": 3, "H_MIN": 220, "H_MAX": 260, "ZERO_FLAG": True,
             "NO_PUNCH": True, "FLAGS": "00"},
        ])

    def test_field_types(self):
        disps = field_types(self.data, "disps.dbf")
        self.assertEqual(disps["X"], ("L", 1))
        self.assertEqual(disps["OPTIONS"], ("C", 32))
        self.assertEqual(disps["COMMUNIC"][0], "C")
        tanks = field_types(self.data, "tanks.dbf")
        self.assertEqual(tanks["DISP_ID"], ("C", 5))
        self.assertEqual(tanks["CIST_ID"], ("C", 5))
        self.assertEqual(tanks["TANK"][0], "N")


class InitRefuses(CliTest):
    def test_existing_tables_stay_byte_identical(self):
        data = self.init_tables()
        before = {name: read_bytes(os.path.join(data, name)) for name in TABLES}
        result = run(["init", data])
        self.assertFails(result, 1, "%s/disps.dbf already exists; "
                         "init never overwrites tables" % data)
        after = {name: read_bytes(os.path.join(data, name)) for name in TABLES}
        self.assertEqual(before, after)

    def test_one_existing_table_is_enough_and_nothing_is_added(self):
        target = self.path("customer")
        os.mkdir(target)
        write_text(os.path.join(target, "cans.dbf"), "the customer's cans")
        result = run(["init", target])
        self.assertFails(result, 1, "%s/cans.dbf already exists; "
                         "init never overwrites tables" % target)
        self.assertEqual(os.listdir(target), ["cans.dbf"])
        self.assertEqual(read_bytes(os.path.join(target, "cans.dbf")),
                         b"the customer's cans")

    def test_upper_case_table_counts(self):
        target = self.path("upper")
        os.mkdir(target)
        write_text(os.path.join(target, "TANKS.DBF"), "old tanks")
        result = run(["init", target])
        self.assertFails(result, 1, "%s/TANKS.DBF already exists; "
                         "init never overwrites tables" % target)
        self.assertEqual(os.listdir(target), ["TANKS.DBF"])

    def test_a_file_in_place_of_the_directory(self):
        target = self.path("plain")
        write_text(target, "not a directory")
        result = run(["init", target])
        self.assertFails(result, 1, "%s is not a directory" % target)
        self.assertEqual(read_bytes(target), b"not a directory")

    def test_missing_directory_argument(self):
        self.assertFails(run(["init"]), 2,
                         "init needs DIR (see qslave init --help)")

    def test_extra_argument(self):
        self.assertFails(run(["init", self.path("x"), "y"]), 2,
                         'unexpected argument "y" for init '
                         "(see qslave init --help)")
        self.assertFalse(os.path.exists(self.path("x")))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
