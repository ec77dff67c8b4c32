"""Running the qslave tool as a process in the tests.

The tool's path comes from the environment variable QSLAVE_CLI (set by
CTest). Every run gets a clean environment: none of the reference host's
variables leak in from the caller unless a test sets them.
"""
import os
import re
import subprocess
import tempfile
import unittest

QSLAVE = os.environ.get("QSLAVE_CLI", "")

HOST_VARIABLES = ("QSLAVE_DATA", "QSLAVE_SIM", "QSLAVE_TRACE", "DSPDEBUG",
                  "DEBUG_NO_CLEAR")

SYNOPSIS = ("qslave [--data DIR] [--id N] [--trace] [--json] [--purge-server HOST:PORT] "
            "[--purge-timeout SECONDS]")


class Result:
    def __init__(self, completed):
        self.rc = completed.returncode
        self.out = completed.stdout
        self.err = completed.stderr


def clean_environment(env=None):
    """The caller's environment without the reference host's variables,
    with env added."""
    clean = {k: v for k, v in os.environ.items() if k not in HOST_VARIABLES}
    clean.update(env or {})
    return clean


def run(args, env=None, cwd=None, input=""):
    """Runs qslave with args; env adds variables to the clean environment;
    input is its standard input."""
    completed = subprocess.run([QSLAVE] + list(args), env=clean_environment(env), cwd=cwd,
                               capture_output=True, text=True, timeout=60, input=input)
    return Result(completed)


def read_bytes(path):
    with open(path, "rb") as f:
        return f.read()


def write_text(path, text):
    with open(path, "w") as f:
        f.write(text)


TABLES = ("disps.dbf", "tanks.dbf", "cistern.dbf", "colorants.dbf",
          "cans.dbf")


class CliTest(unittest.TestCase):
    """A test with a fresh temporary directory in self.dir."""

    def setUp(self):
        if not QSLAVE or not os.access(QSLAVE, os.X_OK):
            self.fail("QSLAVE_CLI does not name the qslave program: %r" % QSLAVE)
        self._tmp = tempfile.TemporaryDirectory(prefix="qslave-cli-")
        self.dir = self._tmp.name

    def tearDown(self):
        self._tmp.cleanup()

    def path(self, *names):
        return os.path.join(self.dir, *names)

    def init_tables(self, name="data"):
        """Sample tables from `qslave init` in self.dir/name; returns it."""
        target = self.path(name)
        result = run(["init", target])
        self.assertEqual(result.rc, 0, result.err)
        return target

    def rules(self, text):
        """A simulator rules file holding text; returns its path."""
        path = self.path("rules")
        write_text(path, text)
        return path

    def assertFails(self, result, rc, message):
        """rc, nothing on standard output, and precisely one line on
        standard error: "qslave: " + message."""
        self.assertEqual(result.rc, rc, result.err)
        self.assertEqual(result.out, "")
        self.assertEqual(result.err, "qslave: %s\n" % message)


def add_dispenser(directory, **fields):
    """Appends a dispenser record to directory/disps.dbf with python3-dbf,
    an independent dBase implementation. Field names in lower case; fields
    not given are left blank."""
    import dbf
    table = dbf.Table(os.path.join(directory, "disps.dbf"))
    table.open(dbf.READ_WRITE)
    try:
        table.append(fields)
    finally:
        table.close()


def create_empty_dispenser_table(directory):
    """An empty disps.dbf (written with python3-dbf)."""
    import dbf
    table = dbf.Table(os.path.join(directory, "disps"),
                      "ID N(5,0); X L; SLAVE N(3,0); DESCR C(24); "
                      "OPTIONS C(32); HIDE_ID C(12)")
    table.open(dbf.READ_WRITE)
    table.close()


INFO_OF_SAMPLE_DISPENSER = """\
dispenser:    1
address:      1
description:  Sample dispenser
options:      00001100000000000000000000000000
model:        Z12
serial:       SN-000123
driver type:  2
comm port:    1
tanks:        12
circuits:     12
tank   1: colourant 1
tank   2: colourant 1
tank   3: colourant 2
tank   4: colourant 2
tank   5: colourant 3
tank   6: colourant 4
tank   7: colourant 5
tank   8: colourant 6
tank   9: colourant 7
tank  10: colourant 8
tank  11: colourant 9
tank  12: colourant 10
""" + """
SLAVE INFO
id.................: 1
address............: 1
name...............: "Sample dispenser        "
last error.........: 0
n. tanks...........: 12
hw. options........:     DOOR 
dataid............: "0l"
"""


# Current levels (CUR_Q) of the sample tanks as `qslave init` writes them;
# tank 2 is the secondary of the linked white pair and keeps -1.
SAMPLE_LEVELS = {1: 3000.0, 2: -1.0, 3: 1500.0, 4: 1800.0, 5: 1200.0,
                 6: 900.0, 7: 1600.0, 8: 1400.0, 9: 1000.0, 10: 700.0,
                 11: 1100.0, 12: 1300.0}


def read_levels(directory):
    """{tank: CUR_Q} of directory/tanks.dbf, read with dbfread."""
    from dbfread import DBF
    return {int(r["TANK"]): r["CUR_Q"]
            for r in DBF(os.path.join(directory, "tanks.dbf"))}


def read_cistern_level(directory, cistern=1):
    """CUR_Q of a cistern in directory/cistern.dbf, read with dbfread."""
    from dbfread import DBF
    for r in DBF(os.path.join(directory, "cistern.dbf")):
        if int(r["ID"]) == cistern:
            return r["CUR_Q"]
    raise KeyError(cistern)


def update_records(directory, table, match, **fields):
    """Sets fields (lower-case names) in every record of directory/table.dbf
    for which match(record) is true, with python3-dbf. Returns how many."""
    import dbf
    t = dbf.Table(os.path.join(directory, table + ".dbf"))
    t.open(dbf.READ_WRITE)
    changed = 0
    try:
        for record in t:
            if match(record):
                with record:
                    for name, value in fields.items():
                        record[name] = value
                changed += 1
    finally:
        t.close()
    return changed


def table_bytes(directory):
    """The bytes of every table in directory, to show that nothing changed."""
    return {name: read_bytes(os.path.join(directory, name))
            for name in TABLES if os.path.exists(os.path.join(directory, name))}


class SampleTest(CliTest):
    """A test on fresh sample tables in self.data."""

    def setUp(self):
        super().setUp()
        self.data = self.init_tables()

    def qslave(self, *args, rules=None, input=""):
        env = {"QSLAVE_SIM": self.rules(rules)} if rules is not None else None
        return run(["--data", self.data] + list(args), env=env, input=input)

    def assertSucceeds(self, result, out):
        self.assertEqual(result.err, "")
        self.assertEqual(result.rc, 0)
        self.assertEqual(result.out, out)

    def assertRefusedUnchanged(self, args, rc, message, rules=None):
        """The command fails with precisely one error line and leaves every
        table as it was."""
        before = table_bytes(self.data)
        self.assertFails(self.qslave(*args, rules=rules), rc, message)
        self.assertEqual(table_bytes(self.data), before)

    def assertHelp(self, command, arguments):
        """--help of command: its usage line with arguments, a description,
        the exit statuses; no tables needed, nothing run."""
        before = table_bytes(self.data)
        result = run(["--data", self.path("nowhere"), command, "--help"])
        self.assertEqual((result.rc, result.err), (0, ""))
        lines = result.out.splitlines()
        usage = "usage: %s %s" % (SYNOPSIS, command)
        self.assertEqual(lines[0], usage + (" " + arguments if arguments else ""))
        self.assertEqual(table_bytes(self.data), before)
        self.assertGreater(len(lines), 4)
        self.assertIn("Exit status:", result.out)
