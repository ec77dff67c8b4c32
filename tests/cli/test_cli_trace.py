"""--trace: the library's trace on standard error, and nothing without it."""
import os
import re
import sys
import unittest

from cli_support import CliTest, run, write_text


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

    def test_trace_file_of_the_host_is_written_without_the_option(self):
        # QSLAVE_TRACE means for the tool what it means for any host of
        # the library: every trace message is appended to that file.
        trace_file = self.path("trace.log")
        write_text(trace_file, "earlier line\n")
        result = run(["--data", self.data, "send", "/!"],
                     env={"QSLAVE_TRACE": trace_file})
        self.assertEqual((result.rc, result.err), (0, ""))
        with open(trace_file) as f:
            text = f.read()
        self.assertRegex(text, r"\Aearlier line\n\n\[TH_ID=(\d+)\] /!\n\[TH_ID=\1\] /! --> 198  \Z")

    def test_trace_goes_to_standard_error_and_to_the_trace_file(self):
        trace_file = self.path("trace.log")
        result = run(["--data", self.data, "--trace", "send", "/!"],
                     env={"QSLAVE_TRACE": trace_file})
        self.assertIn("] /! --> 198  \n", result.err)
        with open(trace_file) as f:
            self.assertIn("] /! --> 198  ", f.read())

    def test_selection_failure_is_traced_with_the_option(self):
        result = run(["--data", self.data, "--id", "7", "--trace", "info"])
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.out, "")
        self.assertTrue(result.err.endswith(
            "qslave: no dispenser 7 in %s/disps.dbf\n" % self.data), result.err)


class SimulatorComplaints(CliTest):
    """A rules file that cannot be read or has malformed lines is reported
    on standard error even without --trace: otherwise the machine would
    silently be a healthy one."""

    def setUp(self):
        super().setUp()
        self.data = self.init_tables()

    def test_missing_rules_file(self):
        missing = self.path("no-such-rules")
        result = run(["--data", self.data, "send", "/!"], env={"QSLAVE_SIM": missing})
        self.assertEqual(result.rc, 0)
        self.assertEqual(result.err, "simulator: cannot read rules file %s\n" % missing)
        self.assertEqual(result.out, 'command: /!\nkind:    query\nresult:  198\nanswer:  ""\n')

    def test_malformed_lines(self):
        rules = self.rules("/! 70\n/X\nset colour 3\n")
        result = run(["--data", self.data, "send", "/!"], env={"QSLAVE_SIM": rules})
        self.assertEqual(result.rc, 0)
        self.assertEqual(result.err,
                         "simulator: %s line 2: missing RESULT\n"
                         "simulator: %s line 3: unknown setting \"colour\"\n" % (rules, rules))
        # The well-formed line still applies.
        self.assertIn("result:  70\n", result.out)

    def test_complaints_are_shown_once_with_the_trace(self):
        missing = self.path("no-such-rules")
        result = run(["--data", self.data, "--trace", "send", "/!"],
                     env={"QSLAVE_SIM": missing})
        self.assertEqual(result.err.count("simulator: cannot read rules file"), 1)

    def test_complaints_in_the_json_document(self):
        import json
        missing = self.path("no-such-rules")
        result = run(["--data", self.data, "--json", "send", "/!"],
                     env={"QSLAVE_SIM": missing})
        self.assertEqual(result.err, "simulator: cannot read rules file %s\n" % missing)
        document = json.loads(result.out)
        self.assertEqual(document["warnings"],
                         ["simulator: cannot read rules file %s" % missing])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
