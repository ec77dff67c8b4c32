"""Global options after the command's name, and the options added for
scripts: --purge-timeout."""
import sys
import unittest

from cli_support import SampleTest, run


class OptionsAfterTheCommand(SampleTest):
    def test_data_after_the_command(self):
        before = self.qslave("info")
        after = run(["info", "--data", self.data])
        self.assertEqual((after.rc, after.err), (0, ""))
        self.assertEqual(after.out, before.out)

    def test_every_global_option_after_the_command(self):
        result = run(["send", "/!", "--data=" + self.data, "--id", "1", "--trace",
                      "--purge-server", "localhost:9", "--purge-timeout", "1"])
        self.assertEqual(result.rc, 0)
        self.assertIn("] /! --> 198  \n", result.err)
        self.assertEqual(result.out, 'command: /!\nkind:    query\nresult:  198\nanswer:  ""\n')

    def test_mixed_with_the_command_options(self):
        result = run(["fill", "--circuit", "5", "--data", self.data, "--qty", "1"])
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertIn("      5          3  Y03       1200.000    1201.000\n", result.out)

    def test_after_double_dash_it_is_an_argument(self):
        # "--id" after "--" is the formula, not the global option.
        self.assertFails(run(["--data", self.data, "check", "--", "--id"]), 2,
                         'malformed formula "--id": write it as (ID:QUANTITY)(ID:QUANTITY)... '
                         "(see qslave check --help)")

    def test_given_before_and_after(self):
        self.assertFails(run(["--data", self.data, "info", "--data", self.data]), 2,
                         "--data is given twice (see qslave --help)")

    def test_bad_value_after_the_command(self):
        self.assertFails(run(["info", "--id", "x"]), 2,
                         '--id takes a dispenser id from 1 to 2147483647, not "x" '
                         "(see qslave --help)")
        self.assertFails(run(["info", "--data"]), 2, "--data needs a directory (see qslave --help)")


class PurgeTimeout(SampleTest):
    def test_bad_values(self):
        for value in ("0", "-1", "x", "3601", "nan"):
            with self.subTest(value=value):
                self.assertFails(run(["--purge-timeout", value, "info"]), 2,
                                 '--purge-timeout takes seconds above 0 and at most 3600, '
                                 'not "%s" (see qslave --help)' % value)

    def test_bounds_the_purge_server_call(self):
        # A server that accepts the connection and never answers: the
        # dispense is done, the update fails within the bound.
        import socket
        import time
        server = socket.socket()
        server.bind(("127.0.0.1", 0))
        server.listen(1)
        port = server.getsockname()[1]
        try:
            start = time.monotonic()
            result = self.qslave("--purge-server", "127.0.0.1:%d" % port,
                                 "--purge-timeout", "0.5", "dispense", "(3:10)")
            elapsed = time.monotonic() - start
        finally:
            server.close()
        self.assertEqual(result.rc, 0, result.err)
        self.assertIn("result:    1 (done)\n", result.out)
        # Without the option the call would wait its default 5 seconds.
        self.assertLess(elapsed, 4.5)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
