"""qslave shell: one dispenser, many commands; read as a script from a pipe,
and interactively through a pseudo-terminal with readline's history."""
import json
import os
import pty
import select
import subprocess
import sys
import time
import unittest

from cli_support import QSLAVE, SampleTest, clean_environment, read_levels, run

STATUS = ("status word: 198 (0x00c6)\n"
          "IsStopPressed:             no\n"
          "IsStartReleased:           yes\n"
          "IsErrorQueueEmpty:         yes\n"
          "IsErrorQueueOverflow:      no\n"
          "IsBusy:                    no\n"
          "IsBusyForAutomaticProcess: no\n"
          "IsCanPresent:              yes\n"
          "IsDoorClosed:              yes\n"
          "IsEmergencyPressed:        no\n"
          "IsBusyForNozzleWash:       no\n")


class ShellFromAPipe(SampleTest):
    def shell(self, script, *options, rules=None):
        return self.qslave(*options, "shell", input=script, rules=rules)

    def test_commands_one_after_another(self):
        result = self.shell("status\n# a comment\n\ndispense (3:10)\nsend '/M1'\n")
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertEqual(result.out,
                         STATUS +
                         "formula:   (3:10)\n"
                         "command:   /D(5:10.000)\n"
                         "circuit  colourant  code      quantity      before       after\n"
                         "      5          3  Y03         10.000    1200.000    1190.000\n"
                         "result:    1 (done)\n"
                         "command: /M1\nkind:    query\nresult:  0\n"
                         'answer:  "SIM2-0 SN000001"\n')
        self.assertEqual(read_levels(self.data)[5], 1190.0)

    def test_one_machine_for_the_whole_session(self):
        # The simulated machine's error queue is cleared by one line and
        # stays empty for the next: both lines talk to the same machine.
        result = self.shell("errors --clear\nerrors\n",
                            rules="set queue E1 jammed\n")
        self.assertEqual(result.out,
                         "entries:  1\nerror:    E1 jammed\ncleared:  yes\nentries:  0\n")

    def test_exit_status_of_the_last_command(self):
        result = self.shell("dispense (42:1)\nstatus\n")
        self.assertEqual(result.rc, 0)
        self.assertEqual(result.err, "qslave: colourant 42 is in no tank of dispenser 1 (error 19)\n")
        result = self.shell("status\ndispense (42:1)\n")
        self.assertEqual(result.rc, 1)

    def test_quit_ends_the_script(self):
        for word in ("quit", "exit"):
            with self.subTest(word=word):
                result = self.shell(word + "\nstatus\n")
                self.assertEqual((result.rc, result.out, result.err), (0, "", ""))

    def test_json_lines(self):
        result = self.shell("status --json\nfill --circuit 5 --json\n")
        decoder = json.JSONDecoder()
        first, end = decoder.raw_decode(result.out)
        second, _ = decoder.raw_decode(result.out[end:].lstrip())
        self.assertEqual((first["command"], first["status_word"]), ("status", 198))
        self.assertEqual(second["circuits"][0]["after"], 2000.0)

    def test_json_for_every_line(self):
        result = self.shell("status\nerrors\n", "--json")
        decoder = json.JSONDecoder()
        first, end = decoder.raw_decode(result.out)
        second, _ = decoder.raw_decode(result.out[end:].lstrip())
        self.assertEqual((first["command"], second["command"]), ("status", "errors"))

    def test_dispenser_is_chosen_when_the_shell_starts(self):
        result = self.shell("info --id 2\n")
        self.assertEqual(result.rc, 2)
        self.assertEqual(result.err, "qslave: --id is chosen when the shell starts; this shell "
                                     "works on dispenser 1 (see help)\n")

    def test_no_shell_in_the_shell(self):
        result = self.shell("shell\n")
        self.assertEqual(result.err,
                         "qslave: shell does not run inside the shell (see help)\n")

    def test_quotes(self):
        result = self.shell('send "/M1"\nsend \'/M1\nstatus\n')
        self.assertEqual(result.rc, 0)
        self.assertEqual(result.err, "qslave: unterminated quote ' (see help)\n")

    def test_help(self):
        result = self.shell("help\nhelp fill\n")
        self.assertEqual(result.rc, 0)
        lines = result.out.splitlines()
        self.assertEqual(lines[0], 'Commands, as on the command line without "qslave" and the options')
        self.assertIn("  dispense   dispense a formula given in colourant ids", lines)
        self.assertIn("  quit       end the shell (also 'exit', or end of input)", lines)
        self.assertTrue(any(l.startswith("usage: qslave ") and l.endswith(" fill [--circuit N] [--qty Q]")
                            for l in lines))

    def test_no_tables(self):
        missing = self.path("nowhere")
        self.assertFails(run(["--data", missing, "shell"], input="status\n"), 1,
                         "data directory %s does not exist" % missing)


class ShellOnATerminal(SampleTest):
    """Through a pseudo-terminal: the prompt, line editing and history."""

    def setUp(self):
        super().setUp()
        self.home = self.path("home")
        os.mkdir(self.home)
        master, slave = pty.openpty()
        env = clean_environment({"HOME": self.home, "TERM": "xterm", "INPUTRC": "/dev/null"})
        self.process = subprocess.Popen([QSLAVE, "--data", self.data, "shell"], stdin=slave,
                                        stdout=slave, stderr=slave, env=env, close_fds=True)
        os.close(slave)
        self.master = master
        self.seen = ""

    def tearDown(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait(timeout=10)
        os.close(self.master)
        super().tearDown()

    def read_until(self, text, bound=20.0):
        """Reads the terminal until text appears after what was read before."""
        start = len(self.seen)
        deadline = time.monotonic() + bound
        while text not in self.seen[start:]:
            left = deadline - time.monotonic()
            self.assertGreater(left, 0, "no %r in %r" % (text, self.seen[start:]))
            ready, _, _ = select.select([self.master], [], [], left)
            if ready:
                try:
                    chunk = os.read(self.master, 4096)
                except OSError:
                    chunk = b""
                self.assertTrue(chunk, "the shell ended; it wrote %r" % self.seen[start:])
                self.seen += chunk.decode("utf-8", "replace")
        return self.seen[start:]

    def type(self, keys):
        os.write(self.master, keys.encode())

    def test_prompt_history_and_quit(self):
        banner = self.read_until("qslave> ")
        self.assertIn("qslave shell on dispenser 1 (Sample dispenser); 'help' lists the "
                      "commands, 'quit' ends.", banner)
        self.type("fill --circuit 5 --qty 1\r")
        self.assertIn("      5          3  Y03       1200.000    1201.000",
                      self.read_until("qslave> "))
        # Up arrow: the last line again, run once more.
        self.type("\x1b[A\r")
        self.assertIn("      5          3  Y03       1201.000    1202.000",
                      self.read_until("qslave> "))
        self.type("quit\r")
        self.assertEqual(self.process.wait(timeout=20), 0)
        self.assertEqual(read_levels(self.data)[5], 1202.0)
        with open(os.path.join(self.home, ".qslave_history")) as f:
            self.assertIn("fill --circuit 5 --qty 1", f.read())

    def test_end_of_input_ends_the_shell(self):
        self.read_until("qslave> ")
        self.type("\x04")
        self.assertEqual(self.process.wait(timeout=20), 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
