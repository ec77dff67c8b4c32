"""--trace: the library's trace on standard error, and nothing without it."""
import os
import re
import sys
import unittest

from cli_support import CliTest, run


class Trace(CliTest):
    def setUp(self):
        super().setUp()
        self.data = self.init_tables()

    def test_command_trace_on_standard_error(self):
        result = run(["--data", self.data, "--trace", "send", "/!"])
        self.assertEqual(result.rc, 0, result.err)
        match = re.fullmatch(r"\[TH_ID=(\d+)\] /!\n\[TH_ID=(\d+)\] /! --> 198  \n",
                             result.err)
        self.assertIsNotNone(match, repr(result.err))
        self.assertEqual(match.group(1), match.group(2))
        self.assertEqual(result.out,
                         'command: /!\nkind:    query\nresult:  198\nanswer:  ""\n')

    def test_no_trace_without_the_option(self):
        result = run(["--data", self.data, "send", "/!"])
        self.assertEqual(result.rc, 0)
        self.assertEqual(result.err, "")

    def test_failed_action_trace_then_the_error_line(self):
        rules = self.rules("/X 4\n")
        result = run(["--data", self.data, "--trace", "send", "/X"],
                     env={"QSLAVE_SIM": rules})
        self.assertEqual(result.rc, 1)
        self.assertRegex(result.err,
                         r"\A\[TH_ID=\d+\] /X\n"
                         r"\[TH_ID=\d+\] /X -->  4 ERROR : command refused\n"
                         r"qslave: /X failed with code 4 \(ERROR : command refused\)\n\Z")

    def test_trace_file_of_the_host_is_not_written_without_the_option(self):
        trace_file = self.path("trace.log")
        result = run(["--data", self.data, "send", "/!"],
                     env={"QSLAVE_TRACE": trace_file})
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertFalse(os.path.exists(trace_file))

    def test_trace_goes_to_standard_error_even_with_a_trace_file(self):
        trace_file = self.path("trace.log")
        result = run(["--data", self.data, "--trace", "send", "/!"],
                     env={"QSLAVE_TRACE": trace_file})
        self.assertIn("] /! --> 198  \n", result.err)
        self.assertFalse(os.path.exists(trace_file))

    def test_selection_failure_is_traced_with_the_option(self):
        result = run(["--data", self.data, "--id", "7", "--trace", "info"])
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.out, "")
        self.assertTrue(result.err.endswith(
            "qslave: no dispenser 7 in %s/disps.dbf\n" % self.data), result.err)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
