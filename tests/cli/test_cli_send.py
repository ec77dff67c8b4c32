"""qslave send: one command, its result and the machine's answer."""
import sys
import unittest

from cli_support import CliTest, run


class Send(CliTest):
    def setUp(self):
        super().setUp()
        self.data = self.init_tables()

    def send(self, cmd, rules=None):
        env = {"QSLAVE_SIM": self.rules(rules)} if rules is not None else None
        return run(["--data", self.data, "send", cmd], env=env)

    def assertSucceeds(self, result, out):
        self.assertEqual(result.rc, 0, result.err)
        self.assertEqual(result.err, "")
        self.assertEqual(result.out, out)

    def test_status_query(self):
        self.assertSucceeds(self.send("/!"),
                            'command: /!\nkind:    query\nresult:  198\n'
                            'answer:  ""\n')

    def test_model_query_answers_a_text(self):
        self.assertSucceeds(self.send("/M1"),
                            'command: /M1\nkind:    query\nresult:  0\n'
                            'answer:  "SIM2-0 SN000001"\n')

    def test_lower_case_query(self):
        self.assertSucceeds(self.send("/q3", "/q3 42 level text\n"),
                            'command: /q3\nkind:    query\nresult:  42\n'
                            'answer:  ""\n')

    def test_query_answer_with_blanks(self):
        self.assertSucceeds(self.send("/M1", "/M1 0 Tinter 3000 SN 42\n"),
                            'command: /M1\nkind:    query\nresult:  0\n'
                            'answer:  "Tinter 3000 SN 42"\n')

    def test_action_done(self):
        self.assertSucceeds(self.send("/D(3:10.000)"),
                            'command: /D(3:10.000)\nkind:    action\n'
                            'result:  1 (done)\nanswer:  ""\n')

    def test_action_refused(self):
        result = self.send("/X", "/X 4\n")
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.out,
                         'command: /X\nkind:    action\nresult:  0 (failed)\n'
                         'error:   4 (ERROR : command refused)\nanswer:  ""\n')
        self.assertEqual(result.err,
                         "qslave: /X failed with code 4 (ERROR : command refused)\n")

    def test_action_with_a_code_the_table_lacks(self):
        result = self.send("/X", "/X 20\n")
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.out,
                         'command: /X\nkind:    action\nresult:  0 (failed)\n'
                         'error:   20\nanswer:  ""\n')
        self.assertEqual(result.err, "qslave: /X failed with code 20\n")

    def test_action_without_answer(self):
        result = self.send("/D(1:1.000)", "/D* -1\n")
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.out,
                         'command: /D(1:1.000)\nkind:    action\n'
                         'result:  0 (failed)\nerror:   -1 (no answer)\n'
                         'answer:  ""\n')
        self.assertEqual(result.err,
                         "qslave: /D(1:1.000) failed with code -1 (no answer)\n")

    def test_query_without_answer(self):
        result = self.send("/!", "/! -1\n")
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.out,
                         'command: /!\nkind:    query\nresult:  -1 (no answer)\n'
                         'answer:  ""\n')
        self.assertEqual(result.err, "qslave: no answer from dispenser 1 to /!\n")

    def test_answer_that_fills_the_buffer_exactly(self):
        text = "y" * 511
        self.assertSucceeds(self.send("/W", "/W 0 %s\n" % text),
                            'command: /W\nkind:    query\nresult:  0\n'
                            'answer:  "%s"\n' % text)

    def test_answer_too_long_is_refused_not_cut(self):
        result = self.send("/W", "/W 0 %s\n" % ("z" * 512))
        self.assertEqual(result.rc, 1)
        self.assertEqual(result.out, "command: /W\nkind:    query\nresult:  0\n")
        self.assertEqual(result.err, "qslave: the machine's answer is 512 "
                         "characters long; at most 511 fit\n")

    def test_longest_command(self):
        cmd = "/D" + "9" * 509
        self.assertSucceeds(self.send(cmd),
                            'command: %s\nkind:    action\nresult:  1 (done)\n'
                            'answer:  ""\n' % cmd)

    def test_command_too_long_is_refused(self):
        self.assertFails(self.send("/D" + "9" * 510), 2,
                         "the command text is 512 characters long; at most "
                         "511 fit (see qslave send --help)")

    def test_empty_command(self):
        self.assertFails(self.send(""), 2,
                         "the command text is empty (see qslave send --help)")

    def test_missing_command(self):
        self.assertFails(run(["--data", self.data, "send"]), 2,
                         "send needs CMD (see qslave send --help)")

    def test_two_commands(self):
        self.assertFails(run(["--data", self.data, "send", "/!", "/M1"]), 2,
                         'unexpected argument "/M1" for send '
                         "(see qslave send --help)")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
