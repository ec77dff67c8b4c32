"""The manual page and the bash completion know every command and option
that the tool's help lists."""
import os
import re
import subprocess
import sys
import unittest

from cli_support import CliTest, run

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
MANUAL = os.path.join(SOURCE, "tools", "qslave", "qslave.1")
COMPLETION = os.path.join(SOURCE, "tools", "qslave", "qslave.bash-completion")


def commands_of_the_help():
    """{command: synopsis} from `qslave --help`."""
    out = run(["--help"]).out
    listing = out[out.index("Commands:\n"):out.index("\nRun 'qslave COMMAND --help'")]
    found = {}
    for line in listing.splitlines()[1:]:
        if line.startswith("  ") and not line.startswith("   "):
            name = line.split()[0]
            found[name] = line.strip()
    return found


def complete(*words):
    """What the completion offers for the last of words."""
    script = ('source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _qslave; '
              'printf "%s\\n" "${COMPREPLY[@]}"')
    out = subprocess.run(["bash", "-c", script, "_", COMPLETION] + list(words),
                         capture_output=True, text=True, timeout=30).stdout
    return sorted(w for w in out.splitlines() if w)


class Manual(CliTest):
    def test_every_command_has_a_section(self):
        with open(MANUAL) as f:
            sections = [l.split()[1] for l in f if l.startswith(".SS ")]
        self.assertEqual(sorted(sections), sorted(commands_of_the_help()))

    def test_every_command_option_is_named(self):
        with open(MANUAL) as f:
            text = f.read().replace("\\-", "-")
        for name in commands_of_the_help():
            usage = run([name, "--help"]).out.splitlines()[0]
            for option in re.findall(r"--[a-z0-9-]+", usage.split(" " + name, 1)[1]):
                with self.subTest(command=name, option=option):
                    self.assertIn(option, text)

    def test_renders_without_warnings(self):
        result = subprocess.run(["man", "--warnings", "-l", MANUAL], capture_output=True,
                                text=True, env=dict(os.environ, MANWIDTH="80"), timeout=60)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn("qslave - inspect and drive a colourant dispenser", result.stdout)


class Completion(CliTest):
    def test_commands(self):
        self.assertEqual(complete("qslave", ""), sorted(commands_of_the_help()))
        self.assertEqual(complete("qslave", "--data", "/tmp", "di"), ["dispense"])

    def test_global_options(self):
        self.assertEqual(complete("qslave", "--p"), ["--purge-server", "--purge-timeout"])

    def test_options_of_every_command(self):
        for name in commands_of_the_help():
            usage = run([name, "--help"]).out.splitlines()[0]
            wanted = set(re.findall(r"--[a-z0-9-]+", usage.split(" " + name, 1)[1]))
            with self.subTest(command=name):
                offered = set(complete("qslave", name, "--"))
                self.assertLessEqual(wanted, offered)
                # The global options are offered after the command too.
                self.assertIn("--json", offered)

    def test_directories_for_data(self):
        os.mkdir(self.path("shop"))
        self.assertEqual(complete("qslave", "--data", self.path("sh")), [self.path("shop")])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
