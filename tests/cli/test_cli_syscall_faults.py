"""Disk faults at the system-call level, on the tool as a shop runs it.

strace makes the N-th call of one kind on the tables (and the bookings
journal beside them) fail the way a failing disk makes it fail: every
pread64, every pwrite64 (EIO and ENOSPC), every fdatasync and ftruncate,
and every lock (fcntl, ENOLCK), in turn, for a dispense on linked tanks, a
refill of every circuit and a purge. After each run the tables must hold
the operation entirely or not at all, as the tool said:

- exit 0: the tables hold the operation;
- any other exit (refused, "levels not booked"): they are as before, and
  the trace names the file that failed;
- what a plain dBase reader sees right after the run is what the library
  sees once it opens the tables again (nothing is left for a later process
  to complete after a failure the process lived through).

Skipped when strace is missing or cannot trace here.
"""
import hashlib
import os
import shutil
import subprocess
import sys
import unittest

from cli_support import QSLAVE, CliTest, clean_environment, run

STRACE = shutil.which("strace")
FILES = ("tanks.dbf", "cistern.dbf", "disps.dbf", "colorants.dbf", "cans.dbf", "qslave.jnl")
FAULTS = (("pread64", "EIO"), ("pwrite64", "EIO"), ("pwrite64", "ENOSPC"),
          ("fdatasync", "EIO"), ("ftruncate", "EIO"), ("fcntl", "ENOLCK"))


def tables_digest(directory):
    """One digest of every table's bytes (the journal left out: its bytes
    are the library's own business)."""
    digest = hashlib.sha256()
    for name in sorted(os.listdir(directory)):
        if name.endswith(".dbf"):
            with open(os.path.join(directory, name), "rb") as f:
                digest.update(name.encode() + b"\0" + f.read())
    return digest.hexdigest()


def strace_can_trace():
    if STRACE is None:
        return False
    probe = subprocess.run([STRACE, "-qq", "-o", "/dev/null", "true"], capture_output=True)
    return probe.returncode == 0


class SyscallFaults(CliTest):
    def setUp(self):
        super().setUp()
        if not strace_can_trace():
            self.skipTest("strace is missing or cannot trace processes here")
        self.pristine = self.init_tables("pristine")

    def copy(self, name):
        target = self.path(name)
        shutil.rmtree(target, ignore_errors=True)
        shutil.copytree(self.pristine, target)
        return target

    def traced(self, directory, args, syscall, inject=None):
        """Runs qslave --trace under strace on the files of directory only;
        answers (completed process, number of the syscall's calls)."""
        log = self.path("strace.log")
        command = [STRACE, "-qq", "-o", log, "-e", "trace=" + syscall]
        for name in FILES:
            command += ["-P", os.path.join(directory, name)]
        if inject is not None:
            command += ["-e", "inject=%s:error=%s:when=%d" % inject]
        command += [QSLAVE, "--trace", "--data", directory] + list(args)
        completed = subprocess.run(command, env=clean_environment(), capture_output=True,
                                   text=True, timeout=60)
        with open(log) as f:
            calls = sum(1 for line in f if line.startswith(syscall + "("))
        return completed, calls

    def sweep(self, args):
        before = tables_digest(self.pristine)
        clean = self.copy("clean")
        done = run(["--data", clean] + list(args))
        self.assertEqual(done.rc, 0, done.err)
        after = tables_digest(clean)
        self.assertNotEqual(before, after, "the operation books something")
        failures = 0
        injected = 0
        for syscall, error in FAULTS:
            calls = self.traced(self.copy("count"), args, syscall)[1]
            for n in range(1, calls + 1):
                injected += 1
                directory = self.copy("run")
                completed, _ = self.traced(directory, args, syscall, (syscall, error, n))
                what = "%s %s, call %d of %d failing: exit %d\n%s" % (
                    " ".join(args), syscall + ":" + error, n, calls, completed.returncode,
                    completed.stderr[-2000:])
                seen_by_readers = tables_digest(directory)
                # The library opens the tables again (completing whatever an
                # interrupted booking left) and shows the tanks.
                self.assertEqual(run(["--data", directory, "tanks"]).rc, 0, what)
                seen_by_library = tables_digest(directory)
                self.assertEqual(seen_by_readers, seen_by_library, what)
                if completed.returncode == 0:
                    self.assertEqual(seen_by_library, after, what)
                else:
                    failures += 1
                    self.assertEqual(seen_by_library, before, what)
                    self.assertIn(directory + "/", completed.stderr, what)
        self.assertGreater(failures, 5, "the faults reached the operation")
        sys.stderr.write("%s: %d faults injected, %d answered failure, none lost\n"
                         % (" ".join(args), injected, failures))

    def test_dispense_on_linked_tanks(self):
        self.sweep(["dispense", "(3:10.000)(1:120.000)"])

    def test_refill_of_every_circuit(self):
        self.sweep(["fill"])

    def test_purge(self):
        self.sweep(["purge", "--circuit", "1", "--qty", "2"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
