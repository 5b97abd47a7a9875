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
from ansible_collections.velmora.fc.plugins.filter.fleet import fleet_port_status, fleet_server, fleet_server_group  # noqa: E402

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


if __name__ == "__main__":
    unittest.main()
