"""qslave errors: the machine's error queue, read and on request cleared."""
import json
import sys
import unittest

from cli_support import SampleTest, table_bytes

QUEUE = "set queue E12 Nozzle 3 blocked\nset queue E40 Door opened \u00fc\n"


class Errors(SampleTest):
    def test_empty_queue(self):
        self.assertSucceeds(self.qslave("errors"), "entries:  0\n")

    def test_entries_oldest_first(self):
        before = table_bytes(self.data)
        self.assertSucceeds(self.qslave("errors", rules=QUEUE),
                            "entries:  2\n"
                            "error:    E12 Nozzle 3 blocked\n"
                            "error:    E40 Door opened \u00fc\n")
        self.assertEqual(table_bytes(self.data), before)

    def test_long_entry_is_read_whole(self):
        # Longer than the first buffer: read again with a larger one.
        text = "x" * 700
        result = self.qslave("errors", rules="set queue E1 %s\n" % text)
        self.assertSucceeds(result, "entries:  1\nerror:    E1 %s\n" % text)

    def test_clear_after_showing(self):
        self.assertSucceeds(self.qslave("errors", "--clear", rules=QUEUE),
                            "entries:  2\n"
                            "error:    E12 Nozzle 3 blocked\n"
                            "error:    E40 Door opened \u00fc\n"
                            "cleared:  yes\n")

    def test_json(self):
        result = self.qslave("--json", "errors", "--clear", rules=QUEUE)
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertEqual(json.loads(result.out), {
            "command": "errors", "ok": True, "exit_status": 0, "count": 2,
            "entries": [{"code": "E12", "text": "Nozzle 3 blocked"},
                        {"code": "E40", "text": "Door opened \u00fc"}],
            "cleared": True})

    def test_status_and_errors_agree(self):
        status = self.qslave("status", rules=QUEUE)
        self.assertIn("IsErrorQueueEmpty:         no\n", status.out)

    def test_help(self):
        self.assertHelp("errors", "[--clear]")

    def test_unknown_option(self):
        self.assertRefusedUnchanged(["errors", "--all"], 2,
                                    "unknown option --all for errors (see qslave errors --help)")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
