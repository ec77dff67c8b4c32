"""--json: one JSON document on standard output for every command, also
when it fails; parsed here with Python's json module and checked field by
field."""
import json
import os
import sys
import unittest

from cli_support import SampleTest, run, table_bytes


class JsonDocuments(SampleTest):
    def document(self, *args, rc=0, rules=None):
        result = self.qslave("--json", *args, rules=rules)
        self.assertEqual(result.rc, rc, result.err)
        return json.loads(result.out)

    def test_init(self):
        target = self.path("other")
        result = run(["init", target, "--json"])
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertEqual(json.loads(result.out), {
            "command": "init", "ok": True, "exit_status": 0,
            "tables": [{"file": target + "/disps.dbf", "records": 1},
                       {"file": target + "/tanks.dbf", "records": 12},
                       {"file": target + "/cistern.dbf", "records": 1},
                       {"file": target + "/colorants.dbf", "records": 10},
                       {"file": target + "/cans.dbf", "records": 3}]})

    def test_info(self):
        document = self.document("info")
        self.assertEqual(document["dispenser"], {
            "id": 1, "address": 1, "description": "Sample dispenser",
            "options": "00001100000000000000000000000000", "model": "Z12",
            "serial": "SN-000123", "driver_type": 2, "comm_port": 1, "tanks": 12,
            "circuits": 12})
        self.assertEqual(document["tanks"][:3], [
            {"tank": 1, "record": True, "colourant": 1},
            {"tank": 2, "record": True, "colourant": 1},
            {"tank": 3, "record": True, "colourant": 2}])
        self.assertEqual(len(document["tanks"]), 12)
        self.assertTrue(document["report"].startswith("\nSLAVE INFO\nid.................: 1\n"))

    def test_status(self):
        self.assertEqual(self.document("status", rules="/! 70\n"), {
            "command": "status", "ok": True, "exit_status": 0, "status_word": 70,
            "bits": {"IsStopPressed": False, "IsStartReleased": True,
                     "IsErrorQueueEmpty": True, "IsErrorQueueOverflow": False,
                     "IsBusy": False, "IsBusyForAutomaticProcess": False,
                     "IsCanPresent": True, "IsDoorClosed": False,
                     "IsEmergencyPressed": False, "IsBusyForNozzleWash": False}})

    def test_status_without_answer(self):
        self.assertEqual(self.document("status", rc=1, rules="/! -1\n"), {
            "command": "status", "ok": False, "exit_status": 1,
            "error": {"message": "no answer from dispenser 1 to the status query /!",
                      "usage": False}})

    def test_send_query(self):
        self.assertEqual(self.document("send", "/M1"), {
            "command": "send", "ok": True, "exit_status": 0, "sent": "/M1",
            "kind": "query", "result": 0, "answer": "SIM2-0 SN000001"})

    def test_send_failed_action(self):
        self.assertEqual(self.document("send", "/X", rc=1, rules="/X 4\n"), {
            "command": "send", "ok": False, "exit_status": 1, "sent": "/X",
            "kind": "action", "result": 0, "done": False, "answer": "",
            "error": {"message": "/X failed with code 4 (ERROR : command refused)",
                      "usage": False, "last_error": 4,
                      "last_error_text": "ERROR : command refused"}})

    def test_fill(self):
        self.assertEqual(self.document("fill", "--circuit", "5", "--qty", "1"), {
            "command": "fill", "ok": True, "exit_status": 0,
            "circuits": [{"circuit": 5, "colourant": 3, "code": "Y03", "before": 1200.0,
                          "after": 1201.0}],
            "result": 1})

    def test_shelf(self):
        self.assertEqual(self.document("shelf", "1"), {
            "command": "shelf", "ok": True, "exit_status": 0,
            "can": {"id": 1, "lowest": 80, "height": 120, "zero_flag": False,
                    "no_punch": False, "preferred": False},
            "moves": [{"move": "prepos", "commands": ["/S130"], "result": 1, "done": True},
                      {"move": "pos", "commands": ["/S120"], "result": 1, "done": True},
                      {"move": "postpos", "commands": [], "result": 1, "done": True}]})

    def test_tanks(self):
        document = self.document("tanks")
        self.assertEqual(document["circuits"][1], {
            "circuit": 2, "record": True, "colourant": 1, "code": "W01",
            "current": 3000.0, "reserve": 400.0, "maximum": 4000.0, "threshold": 0.0,
            "sim": False, "susp": False, "shares_reservoir_of": 1})
        self.assertEqual(len(document["circuits"]), 12)
        self.assertEqual(document["colourants"][0], {
            "colourant": 1, "code": "W01", "description": "Titanium white",
            "tanks": [1, 2], "kind": "linked"})
        self.assertIsNone(document["chart"])

    def test_tanks_with_a_chart(self):
        chart = self.path("levels.svg")
        document = self.document("tanks", "--svg", chart)
        self.assertEqual(document["chart"], chart)
        self.assertTrue(os.path.exists(chart))

    def test_usage_error_is_a_document_too(self):
        result = self.qslave("purge", "--qty", "x", "--json")
        self.assertEqual(result.rc, 2)
        self.assertEqual(json.loads(result.out), {
            "command": "purge", "ok": False, "exit_status": 2,
            "error": {"message": '--qty takes a quantity above 0, not "x"', "usage": True}})
        self.assertEqual(result.err,
                         'qslave: --qty takes a quantity above 0, not "x" '
                         "(see qslave purge --help)\n")

    def test_wrong_command_line_before_any_command(self):
        result = run(["--json", "--bogus"])
        self.assertEqual(result.rc, 2)
        self.assertEqual(json.loads(result.out), {
            "command": "", "ok": False, "exit_status": 2,
            "error": {"message": "unknown option --bogus", "usage": True}})

    def test_version(self):
        result = run(["--version"])
        self.assertEqual((result.rc, result.err), (0, ""))
        self.assertRegex(result.out, r"\Aqslave \d+\.\d+\.\d+\n\Z")
        version = result.out.split()[1]
        result = run(["--json", "--version"])
        self.assertEqual(json.loads(result.out), {
            "command": "version", "ok": True, "exit_status": 0, "version": version})

    def test_help_stays_text(self):
        result = run(["--json", "--help"])
        self.assertEqual(result.rc, 0)
        self.assertTrue(result.out.startswith("usage: "))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
