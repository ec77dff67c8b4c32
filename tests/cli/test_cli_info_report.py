"""qslave info: the library's report of the dispenser, taken from the trace
and shown on standard output."""
import sys
import unittest

from cli_support import INFO_OF_SAMPLE_DISPENSER, SampleTest, update_records


class InfoReport(SampleTest):
    def test_report_follows_the_record(self):
        result = self.qslave("info")
        self.assertSucceeds(result, INFO_OF_SAMPLE_DISPENSER)
        self.assertIn("tank  12: colourant 10\n\nSLAVE INFO\nid.................: 1\n"
                      "address............: 1\n", result.out)
        self.assertTrue(result.out.endswith('dataid............: "0l"\n'))

    def test_report_shows_the_options(self):
        update_records(self.data, "disps", lambda r: True,
                       options="11111100000000000000000000000000")
        result = self.qslave("info")
        self.assertEqual(result.rc, 0, result.err)
        self.assertIn("hw. options........: SHELF  PUNCHER  CAP  STOPPER  DOOR \n",
                      result.out)

    def test_report_stays_off_the_trace(self):
        result = self.qslave("--trace", "info")
        self.assertEqual(result.rc, 0, result.err)
        self.assertEqual(result.out, INFO_OF_SAMPLE_DISPENSER)
        self.assertNotIn("SLAVE INFO", result.err)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
