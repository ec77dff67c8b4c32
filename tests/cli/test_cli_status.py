"""qslave status: the status word of "/!" and each predicate's answer."""
import sys
import unittest

from cli_support import CliTest, add_dispenser, run

NAMES = ["IsStopPressed", "IsStartReleased", "IsErrorQueueEmpty",
         "IsErrorQueueOverflow", "IsBusy", "IsBusyForAutomaticProcess",
         "IsCanPresent", "IsDoorClosed", "IsEmergencyPressed",
         "IsBusyForNozzleWash"]


def expected(word, hexword, answers):
    lines = ["status word: %d (%s)" % (word, hexword)]
    for name, answer in zip(NAMES, answers):
        lines.append("%-26s %s" % (name + ":", answer))
    return "\n".join(lines) + "\n"


class Status(CliTest):
    def setUp(self):
        super().setUp()
        self.data = self.init_tables()

    def status(self, rules=None, dispenser=None):
        args = ["--data", self.data]
        if dispenser is not None:
            args += ["--id", str(dispenser)]
        env = {"QSLAVE_SIM": self.rules(rules)} if rules is not None else None
        return run(args + ["status"], env=env)

    def test_idle_machine(self):
        result = self.status()
        self.assertEqual(result.rc, 0, result.err)
        self.assertEqual(result.err, "")
        self.assertEqual(result.out, expected(198, "0x00c6", [
            "no", "yes", "yes", "no", "no", "no", "yes", "yes", "no", "no"]))

    def test_every_bit_set(self):
        result = self.status("/! 1023\n")
        self.assertEqual(result.rc, 0, result.err)
        self.assertEqual(result.out, expected(1023, "0x03ff", ["yes"] * 10))

    def test_no_bit_set(self):
        result = self.status("/! 0\n")
        self.assertEqual(result.rc, 0, result.err)
        self.assertEqual(result.out, expected(0, "0x0000", ["no"] * 10))

    def test_single_bits(self):
        for bit, name in enumerate(NAMES):
            with self.subTest(name=name):
                result = self.status("/! %d\n" % (1 << bit))
                answers = ["yes" if i == bit else "no" for i in range(10)]
                self.assertEqual(result.out, expected(1 << bit, "0x%04x" % (1 << bit),
                                                      answers))

    def test_door_open_with_a_door_switch(self):
        # Sample dispenser 1 has a door switch (option 4).
        result = self.status("/! 70\n")
        self.assertEqual(result.out, expected(70, "0x0046", [
            "no", "yes", "yes", "no", "no", "no", "yes", "no", "no", "no"]))

    def test_door_counts_closed_without_a_door_switch(self):
        add_dispenser(self.data, id=2, x=False, slave=2, descr="No door",
                      options="0" * 32, hide_id="ZARVO")
        result = self.status("/! 70\n", dispenser=2)
        self.assertEqual(result.rc, 0, result.err)
        self.assertEqual(result.out, expected(70, "0x0046", [
            "no", "yes", "yes", "no", "no", "no", "yes", "yes", "no", "no"]))

    def test_no_answer(self):
        result = self.status("/! -1\n")
        self.assertFails(result, 1,
                         "no answer from dispenser 1 to the status query /!")

    def test_takes_no_arguments(self):
        self.assertFails(run(["--data", self.data, "status", "x"]), 2,
                         'unexpected argument "x" for status '
                         "(see qslave status --help)")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
