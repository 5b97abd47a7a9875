# -*- coding: utf-8 -*-
# Copyright: Velmora
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)
"""fleet_report: the fleet document and the report page, written on the
controller in one step from every play host's fc_info result and, after a
rolling update, each host's update outcome."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import datetime
import json
import os
import tempfile

import jinja2
from ansible.errors import AnsibleActionFail
from ansible.plugins.action import ActionBase
from ansible_collections.velmora.fc.plugins.filter.fleet import FILTERS, fleet_server

TEMPLATES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "playbooks", "templates")


def fleet_document(hosts, hostvars, result_name="fc_inventory", generated=None, update_name=None, left=()):
    """The document of HOSTS; LEFT: the hosts Ansible dropped from the play."""
    generated = generated or datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")
    return {"schemaVersion": 1, "generated": generated,
            "servers": [fleet_server(name, hostvars, result_name, update_name, name in left) for name in hosts]}


def render_report(fleet):
    """The page, rendered as Ansible's template module would: no autoescape
    (the template escapes every value itself), blocks trimmed."""
    environment = jinja2.Environment(loader=jinja2.FileSystemLoader(TEMPLATES), trim_blocks=True,
                                     undefined=jinja2.StrictUndefined, autoescape=False)
    # The report's rules, which the page only paints.
    environment.filters.update({"velmora.fc." + name: function for name, function in FILTERS.items()})
    return environment.get_template("fleet_report.html.j2").render(fleet=fleet)


def write_atomically(path, text):
    """PATH holds the old or the new text at any moment, never a mixture."""
    folder = os.path.dirname(path)
    handle, temporary = tempfile.mkstemp(dir=folder, prefix=".fleet-")
    try:
        with os.fdopen(handle, "w", encoding="utf-8") as target:
            target.write(text)
            target.flush()
            os.fsync(target.fileno())
        os.chmod(temporary, 0o644)
        os.replace(temporary, path)
    except BaseException:
        os.unlink(temporary)
        raise


def write_fleet_report(folder, fleet):
    os.makedirs(folder, mode=0o755, exist_ok=True)
    write_atomically(os.path.join(folder, "fleet.json"), json.dumps(fleet, indent=4) + "\n")
    write_atomically(os.path.join(folder, "fleet.html"), render_report(fleet))


class ActionModule(ActionBase):
    TRANSFERS_FILES = False
    _supports_check_mode = False  # check mode writes nothing and skips the step
    _VALID_ARGS = frozenset(("dest", "result", "update"))

    def run(self, tmp=None, task_vars=None):
        result = super(ActionModule, self).run(tmp, task_vars)
        task_vars = task_vars or {}
        folder = os.path.abspath(os.path.expanduser(self._task.args.get("dest") or "fleet-report"))
        hosts = task_vars.get("ansible_play_hosts_all", [])
        left = set(hosts) - set(task_vars.get("ansible_play_hosts", hosts))
        fleet = fleet_document(hosts, task_vars.get("hostvars", {}), self._task.args.get("result") or "fc_inventory",
                               update_name=self._task.args.get("update"), left=left)
        try:
            write_fleet_report(folder, fleet)
        except (OSError, jinja2.TemplateError) as error:
            raise AnsibleActionFail("cannot write the fleet report into %s: %s" % (folder, error))
        result.update(changed=True, dest=folder, servers=len(fleet["servers"]))
        return result
