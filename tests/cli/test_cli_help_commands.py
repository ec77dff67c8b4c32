"""The tool's --help lists the technician's daily commands, each with its
synopsis and its summary."""
import sys
import unittest

from cli_support import CliTest, run

SYNOPSES = [
    "dispense FORMULA [--factor F] [--unit U] [--weights] [--no-levels] [--g2] [--g0] "
    "[--split] [--force]",
    "check FORMULA [--size S --base B] [--weights]",
    "purge [--qty Q] [--circuit N | --colorant ID[,ID...]] [--dry-run | --book-only] "
    "[--one-by-one]",
    "delivered FORMULA [--factor F] [--unit U] [--weights] [--not-booked] [--yes]",
    "errors [--clear]",
    "fill [--circuit N] [--qty Q]",
    "report REPLY",
    "shelf CAN",
    "tanks [--svg FILE [--force]]",
]


class CommandList(CliTest):
    def test_every_command_is_listed_with_a_summary(self):
        result = run(["--help"])
        self.assertEqual((result.rc, result.err), (0, ""))
        lines = result.out.splitlines()
        for synopsis in SYNOPSES:
            with self.subTest(synopsis=synopsis):
                listed = [i for i, l in enumerate(lines) if l.startswith("  " + synopsis)]
                self.assertEqual(len(listed), 1, synopsis)
                line = lines[listed[0]]
                # A long synopsis has its summary on the next line.
                summary = line[len("  " + synopsis):].strip() or lines[listed[0] + 1].strip()
                self.assertTrue(summary and not summary.startswith("["), line)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
