"""--help on the tool and on every command, and a wrong command line."""
import os
import sys
import unittest

from cli_support import CliTest, SYNOPSIS, run

COMMANDS = {"init": "init DIR", "info": "info", "status": "status",
            "send": "send CMD"}


class Help(CliTest):
    def test_tool_help(self):
        for flag in ("--help", "-h"):
            with self.subTest(flag=flag):
                result = run([flag])
                self.assertEqual((result.rc, result.err), (0, ""))
                lines = result.out.splitlines()
                self.assertEqual(lines[0], "usage: %s COMMAND [ARGS]" % SYNOPSIS)
                for usage in COMMANDS.values():
                    self.assertTrue(any(l.startswith("  " + usage + " ") for l in lines),
                                    usage)
                for option in ("--data DIR", "--id N", "--trace",
                               "--purge-server HOST:PORT"):
                    self.assertIn("  " + option, result.out)

    def test_help_wins_over_a_command(self):
        result = run(["--help", "frob"])
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertTrue(result.out.startswith("usage: "))

    def test_every_command_help(self):
        for name, usage in COMMANDS.items():
            with self.subTest(command=name):
                result = run([name, "--help"])
                self.assertEqual((result.rc, result.err), (0, ""))
                self.assertEqual(result.out.splitlines()[0],
                                 "usage: %s %s" % (SYNOPSIS, usage))
                self.assertGreater(len(result.out.splitlines()), 3)

    def test_command_help_needs_no_tables(self):
        missing = self.path("nowhere")
        result = run(["--data", missing, "status", "--help"])
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertEqual(result.out.splitlines()[0], "usage: %s status" % SYNOPSIS)

    def test_command_help_does_not_run_the_command(self):
        target = self.path("never")
        result = run(["init", target, "--help"])
        self.assertEqual(result.rc, 0)
        self.assertTrue(result.out.startswith("usage: "))
        self.assertFalse(os.path.exists(target))


class WrongCommandLine(CliTest):
    def test_no_command(self):
        self.assertFails(run([]), 2, "no command given (see qslave --help)")

    def test_unknown_command(self):
        self.assertFails(run(["frob"]), 2,
                         'unknown command "frob" (see qslave --help)')

    def test_unknown_option(self):
        self.assertFails(run(["--bogus", "info"]), 2,
                         "unknown option --bogus (see qslave --help)")

    def test_options_need_values(self):
        for option, what in (("--data", "a directory"), ("--id", "a dispenser id"),
                             ("--purge-server", "HOST:PORT")):
            with self.subTest(option=option):
                self.assertFails(run([option]), 2,
                                 "%s needs %s (see qslave --help)" % (option, what))
                self.assertFails(run([option + "=", "info"]), 2,
                                 "%s needs %s (see qslave --help)" % (option, what))

    def test_bad_dispenser_ids(self):
        for value in ("0", "-3", "x", "1.5", " 1", "2147483648"):
            with self.subTest(value=value):
                self.assertFails(run(["--id", value, "info"]), 2,
                                 '--id takes a dispenser id from 1 to 2147483647, '
                                 'not "%s" (see qslave --help)' % value)

    def test_bad_purge_server(self):
        cases = {
            "localhost": '--purge-server takes HOST:PORT, not "localhost"',
            ":9002": '--purge-server takes HOST:PORT, not ":9002"',
            "localhost:0": 'purge-server port must be a number from 1 to 65535, not "0"',
            "localhost:65536": 'purge-server port must be a number from 1 to 65535, not "65536"',
            "localhost:": 'purge-server port must be a number from 1 to 65535, not ""',
            "h" * 51 + ":9002": "purge-server host is 51 characters long; at most 50 fit",
        }
        for value, message in cases.items():
            with self.subTest(value=value):
                self.assertFails(run(["--purge-server", value, "info"]), 2,
                                 message + " (see qslave --help)")

    def test_longest_purge_server_host_is_accepted(self):
        data = self.init_tables()
        result = run(["--data", data, "--purge-server", "h" * 50 + ":65535", "info"])
        self.assertEqual((result.rc, result.err), (0, ""))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
