"""A stdout callback that prints one JSON document per playbook run: per host
its recap counts and the exit names of its failed tasks. ansible-core carries
no JSON stdout callback, and the tests must need nothing beyond it and the
project's own collection."""
import json

from ansible.plugins.callback import CallbackBase

DOCUMENTATION = """
name: fleet_recap
type: stdout
short_description: the play recap and each failed task's exit name as one JSON document
description: Per host the recap counts and, in task order, the exit name of every failed task.
"""


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "stdout"
    CALLBACK_NAME = "fleet_recap"

    def __init__(self):
        super().__init__()
        self._failures = {}

    # Ignored and rescued failures count too: the playbooks keep a failed
    # server for the report's row, and the tests still see why it failed.
    # A task without an exit name (the rolling update's final fail) adds none.
    def v2_runner_on_failed(self, result, ignore_errors=False):
        names = self._failures.setdefault(result._host.get_name(), [])
        if result._result.get("exit_name"):
            names.append(result._result["exit_name"])

    def v2_playbook_on_stats(self, stats):
        hosts = {}
        for host in sorted(stats.processed):
            counts = stats.summarize(host)
            hosts[host] = {"changed": counts["changed"], "failures": counts["failures"],
                           "unreachable": counts["unreachable"], "failed": self._failures.get(host, [])}
        self._display.display(json.dumps({"hosts": hosts}, indent=1, sort_keys=True))
