#!/usr/bin/python3
"""The collection's Python logic: qdmhost's JSON turned into results or
failures, time-outs, and the fleet document's server entries."""
import contextlib
import json
import os
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "ansible"))
from ansible_collections.velmora.fc.plugins.module_utils import qdmhost  # noqa: E402
from ansible_collections.velmora.fc.plugins.modules import fc_info, fc_update  # noqa: E402
from ansible_collections.velmora.fc.plugins.filter.fleet import (  # noqa: E402
    fleet_port_status, fleet_server, fleet_server_group, fleet_summary, update_outcome)
from ansible_collections.velmora.fc.plugins.action import fleet_report  # noqa: E402

ENVELOPE = {"schemaVersion": 1, "qdmhost": "1.0.0", "host": "fc01", "command": "update"}


def doc(exit_code, name=None, **fields):
    return json.dumps(dict(ENVELOPE, exitCode=exit_code, **({"exitName": name} if name else {}), **fields))


def error(exit_code, name, **reason):
    return doc(exit_code, name, error=dict(exitCode=exit_code, name=name, message="qdmhost says why", **reason))


class ParseOutput(unittest.TestCase):
    def test_failures(self):
        rows = [
            # (exit code, standard output, exit name, reason)
            (11, error(11, "untrusted-repository", reason="expired"), "untrusted-repository", "expired"),
            (6, error(6, "lock-busy"), "lock-busy", None),
            (8, error(8, "bad-repository"), "bad-repository", None),
            # A refused update is a whole document without an error object.
            (5, doc(5, "refused", results=[{"outcome": "refused"}]), "refused", None),
            (4, doc(4, "apply-check-mismatch", results=[]), "apply-check-mismatch", None),
            (3, doc(3, "update-failed", results=[]), "update-failed", None),
            (42, doc(42), "exit-42", None),           # an exit without a name: not qdmhost's
            (0, '{"results": [', "bad-output", None),  # cut off
            (1, "", "bad-output", None),               # crashed before printing
            (0, "[1, 2]", "bad-output", None),         # JSON but not an object
        ]
        for code, stdout, name, reason in rows:
            with self.subTest(name=name, code=code):
                with self.assertRaises(qdmhost.QdmhostError) as caught:
                    qdmhost.parse_output(code, stdout, "stderr text")
                self.assertEqual((caught.exception.exit_name, caught.exception.reason), (name, reason))
                self.assertIn(name, str(caught.exception))

    def test_accepted_exit_keeps_document_without_envelope(self):
        # A finding such as a refusing utility configuration may carry an error object too.
        answer = qdmhost.parse_output(5, doc(5, "refused", missingComponents=[], error={"name": "refused"}), "",
                                     accepted=(0, 5))
        self.assertEqual(answer, qdmhost.Answer({"missingComponents": [], "error": {"name": "refused"}},
                                                dict(ENVELOPE, exitCode=5, exitName="refused"), 5, "refused"))


class InventoryPort(unittest.TestCase):
    def test_inventory_fields_with_last_update(self):
        last = {"time": "t", "kind": "firm", "outcome": "failed", "failedStep": "PreUpdate", "from": "1", "to": "2"}
        checked = {"deviceId": "D", "wwpn": "W", "modules": [], "utilityCheck": "passed", "plans": {}}
        rows = [
            # (the check's port, lastUpdate that fc_info returns)
            (dict(checked, lastUpdate=last), last),
            (dict(checked, lastUpdate=None), None),  # no update recorded
            (checked, None),                         # an older qdmhost's check carries none
        ]
        for port, want in rows:
            with self.subTest(port=port):
                self.assertEqual(fc_info.inventory_port(port),
                                 {"deviceId": "D", "wwpn": "W", "modules": [], "lastUpdate": want})


class PathGuard(unittest.TestCase):
    def test_options_verdicts_and_failures(self):
        argv = qdmhost.command_line(dict(qdmhost="q", allow_path_loss=True, path_wait=30), ["update"])
        self.assertEqual(argv, ["q", "--json", "update", "--allow-path-loss", "--path-wait", "30"])
        check = {"paths": {"adapters": [
            {"adapter": "0000:03:00", "verdict": "last-path", "solePathMaps": 1,
             "maps": [{"map": "mpatha", "otherHealthyPaths": []}, {"map": "mpathb", "otherHealthyPaths": [{}]}]}]}}
        self.assertEqual(fc_info.path_verdicts(check), [
            {"adapter": "0000:03:00", "verdict": "last-path", "solePathMaps": 1, "lastPathMaps": ["mpatha"]}])
        self.assertEqual(fc_info.path_verdicts({}), [])  # an older qdmhost: no paths at all
        refused = {"deviceId": "0000:03:00.0-PCI", "wwpn": "W", "kind": "firm", "outcome": "refused",
                   "reason": "last-path", "maps": ["mpatha"]}
        stopped = {"stopped": {"reason": "paths-not-restored", "adapter": "0000:03:00", "paths": ["sdb (1:0:0:1)"]}}
        self.assertEqual(fc_update.failure_details([refused]) + fc_update.stop_details(stopped),
                         ["0000:03:00.0 W firm refused (last-path: mpatha)",
                          "stopped (paths-not-restored): the paths of 0000:03:00 did not come back: sdb (1:0:0:1)"])


class Run(unittest.TestCase):
    def test_timeout_kills_tools_in_their_own_process_group(self):
        with tempfile.TemporaryDirectory() as folder:
            pid_file = os.path.join(folder, "pid")
            # set -m: the hanging child gets a process group of its own, as the adapter tools do.
            script = "set -m; sleep 300 & echo $! > %s; wait" % pid_file
            with self.assertRaises(qdmhost.QdmhostError) as caught:
                qdmhost.run(["sh", "-c", script], timeout=1)
            self.assertEqual(caught.exception.exit_name, qdmhost.TIMEOUT)
            with open(pid_file) as pid:
                stat = pathlib.Path("/proc/%s/stat" % pid.read().strip())
            with contextlib.suppress(OSError):  # gone, or a zombie waiting for its reaper
                self.assertEqual(stat.read_text().rsplit(")", 1)[1].split()[0], "Z")

    def test_timeout_lets_an_update_finish_its_step(self):
        # As qdmhost update does on SIGTERM: says which step it finishes, then stops with exit 12.
        script = ('finish() { kill $!; echo "qdmhost: [1.0s] SIGTERM received: finishing 0000:03:00.0 firm pre-update, '
                  'then stopping" >&2; echo \'{"exitCode": 12, "results": []}\'; exit 12; }; '
                  'trap finish TERM; sleep 300 & wait; wait')
        with self.assertRaises(qdmhost.QdmhostError) as caught:
            qdmhost.run(["sh", "-c", script], timeout=1)
        self.assertEqual((caught.exception.exit_name, caught.exception.exit_code), ("interrupted", 12))
        self.assertIn("0000:03:00.0 firm pre-update", str(caught.exception))
        self.assertEqual(caught.exception.document["results"], [])

    def test_missing_program(self):
        with self.assertRaises(qdmhost.QdmhostError) as caught:
            qdmhost.run(["/nonexistent/qdmhost", "--json", "inventory"], timeout=5)
        self.assertEqual(caught.exception.exit_name, qdmhost.NOT_STARTED)


class FleetServer(unittest.TestCase):
    def test_states(self):
        ok = {"ports": [{"wwpn": "{{ 6*7 }}"}], "check": {}, "exit_code": 0, "exit_name": "ok", "host": "fc01"}
        rows = [
            # (registered result, state, message, exit name)
            ({"unreachable": True, "msg": "ssh: refused"}, "unreachable", "ssh: refused", None),
            ({"failed": True, "msg": "qdmhost failed: no-device", "exit_code": 9, "exit_name": "no-device"},
             "failed", "qdmhost failed: no-device", "no-device"),
            ({"failed": True, "msg": "python missing"}, "failed", "python missing", None),
            (None, "failed", "no inventory result: the server left the play before it was read", None),
            (ok, "ok", "", "ok"),
        ]
        for result, state, message, name in rows:
            with self.subTest(state=state, message=message):
                entry = fleet_server("fc01", {"fc01": {"fc_inventory": result}})
                self.assertEqual((entry["state"], entry["message"], entry["exitName"]), (state, message, name))
        self.assertEqual(fleet_server("fc01", {"fc01": {"fc_inventory": ok}})["ports"], ok["ports"])
        # Dropped from the rolling update's play before any reading: unreachable, in the counts too.
        gone = fleet_server("fc01", {"fc01": {}}, ["fc_after", "fc_before"], "fc_update", left_play=True)
        self.assertEqual((gone["state"], fleet_summary({"servers": [gone]})["unreachable"]), ("unreachable", 1))

    def test_report_rules(self):
        def port(*statuses):
            return {"modules": [{"status": status} for status in statuses]}
        rows = [
            # (server state, its ports' module statuses, port statuses, group)
            ("ok", [("current", "older", "newer")], ["older"], 1),  # the worst module counts
            ("ok", [("newer", "unreadable")], ["unreadable"], 1),
            ("ok", [("current",), ("newer", "no-package")], ["current", "newer"], 2),
            ("ok", [("no-package", "not-installed")], ["current"], 3),  # nothing to update
            ("ok", [], [], 3),
            ("failed", [("older",)], ["older"], 0),  # a failed server comes first whatever its ports say
        ]
        for state, ports, port_statuses, group in rows:
            with self.subTest(state=state, ports=ports):
                server = {"state": state, "ports": [port(*statuses) for statuses in ports]}
                self.assertEqual(([fleet_port_status(p) for p in server["ports"]], fleet_server_group(server)),
                                 (port_statuses, group))


class UpdateOutcome(unittest.TestCase):
    def test_outcomes(self):
        done = {"changed": True, "updated": 2, "exit_name": "ok", "results": []}
        def failed(name, **more):
            return dict({"failed": True, "msg": "qdmhost failed: " + name, "exit_name": name}, **more)
        step = failed("update-failed", results=[{"outcome": "updated"}, {"outcome": "failed", "failedStep": "PreUpdate"}])
        rows = [
            # (fc_update result, recorded failure, outcome, reason, step)
            (done, None, "updated", None, None),
            (dict(done, updated=0), None, "current", None, None),
            ({"skipped": True}, None, "not-reached", None, None),  # check mode or not run
            (None, None, "not-reached", None, None),               # a later batch
            (failed("refused"), None, "refused", "refused", None),
            (failed("untrusted-repository", reason="expired"), None, "refused", "expired", None),
            (step, None, "failed", None, "PreUpdate"),
            (failed("timeout"), None, "timed-out", None, None),
            (failed("interrupted"), None, "interrupted", None, None),
            ({"unreachable": True, "msg": "ssh: refused"}, None, "unreachable", None, None),
            (None, "left", "unreachable", None, None),  # dropped from the play before its update
            # A task before or after the update failed: its name is the step.
            (None, {"task": "Install the package", "result": {"failed": True, "msg": "dpkg: error"}},
             "failed", None, "Install the package"),
            (None, {"task": "Stop on a server", "result": {"failed": True, "msg": "missing components: OCM"}},
             "refused", "missing-component", None),
            (done, {"task": "Fail a server whose versions did not move", "result": {"failed": True, "msg": "x"}},
             "failed", None, "Fail a server whose versions did not move"),
        ]
        for update, failure, outcome, reason, step_name in rows:
            with self.subTest(outcome=outcome, update=update, failure=failure):
                variables = {"fc_update": update, "fc_failure": failure}
                got = update_outcome({k: v for k, v in variables.items() if v not in (None, "left")},
                                     left_play=failure == "left")
                self.assertEqual((got["outcome"], got["reason"], got["step"]), (outcome, reason, step_name))

    def test_summary_counts_failed_updates(self):
        port = {"modules": [{"status": "current"}]}
        servers = [{"state": "ok", "ports": [port], "update": {"outcome": outcome}}
                   for outcome in ("updated", "refused", "failed", "timed-out", "interrupted", "current")]
        counts = fleet_summary({"servers": servers + [{"state": "unreachable", "ports": [], "update": None}]})
        self.assertEqual(counts, {"servers": 7, "ports": 6, "action": 5, "unreadable": 0, "older": 0, "newer": 0,
                                  "current": 6, "failed": 4, "unreachable": 1, "update-updated": 1,
                                  "update-refused": 1, "update-failed": 1, "update-timed-out": 1,
                                  "update-interrupted": 1})


class FleetReport(unittest.TestCase):
    def test_written_whole_or_not_at_all(self):
        hostvars = {"fc01": {"fc_inventory": {"ports": [], "exit_code": 0}}, "fc02": {"fc_inventory": None}}
        fleet = fleet_report.fleet_document(["fc01", "fc02"], hostvars, generated="2026-01-01T00:00:00Z")
        with tempfile.TemporaryDirectory() as folder:
            out = pathlib.Path(folder, "report")
            fleet_report.write_fleet_report(str(out), fleet)
            fleet_report.write_fleet_report(str(out), fleet)  # replaced, no temporary file left
            written = json.loads((out / "fleet.json").read_text())
            # A write that fails half-way: the old page stays whole, no temporary file is left.
            with self.assertRaises(UnicodeEncodeError):
                fleet_report.write_atomically(str(out / "fleet.html"), "half \udc80")
            kept = (out / "fleet.html").read_text().startswith("<!DOCTYPE html>")
            files = sorted(p.name for p in out.iterdir())
        self.assertEqual((written, files), (fleet, ["fleet.html", "fleet.json"]))
        self.assertEqual([s["state"] for s in fleet["servers"]], ["ok", "failed"])
        self.assertTrue(kept)


if __name__ == "__main__":
    unittest.main()
