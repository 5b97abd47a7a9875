# -*- coding: utf-8 -*-
# Copyright: Velmora
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)
"""fleet_server: one server's entry of the fleet document, from its fc_info result;
fleet_port_status and fleet_server_group: the fleet report's rules, which the
report template only paints.

In Python rather than in a playbook expression: the result's strings come
from the servers and must reach the document as data, never as templates.
"""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

from ansible_collections.velmora.fc.plugins.module_utils.qdmhost import STATUSES_WORST_FIRST

# The report's groups, action first.
GROUP_FAILED, GROUP_TO_UPDATE, GROUP_NEWER, GROUP_CURRENT = range(4)


def _entry(name, state, message="", result=None):
    result = result or {}
    return {
        "name": name,
        "state": state,
        "message": message,
        "exitCode": result.get("exit_code"),
        "exitName": result.get("exit_name"),
        "host": result.get("host"),
        "qdmhost": result.get("qdmhost_version"),
        "repositoryVerified": result.get("repository_verified"),
        "ports": result.get("ports") or [],
        "check": result.get("check"),
    }


def fleet_server(name, hostvars, result_name="fc_inventory"):
    """NAME's entry, from the fc_info result registered as RESULT_NAME."""
    result = hostvars[name].get(result_name) if name in hostvars else None
    if not isinstance(result, dict):
        return _entry(name, "failed", "no inventory result: the server left the play before it was read")
    if result.get("unreachable"):
        return _entry(name, "unreachable", str(result.get("msg") or "unreachable"))
    if result.get("failed") or "ports" not in result:
        return _entry(name, "failed", str(result.get("msg") or "the inventory failed"), result)
    return _entry(name, "ok", "", result)


def fleet_port_status(port):
    """The worst of the port's module statuses; current when only no-package or not-installed."""
    present = {module.get("status") for module in port.get("modules") or []}
    return next((status for status in STATUSES_WORST_FIRST if status in present), "current")


def fleet_server_group(server):
    """Failed or unreachable, then a port to update or unreadable, then a port newer, then current."""
    statuses = {fleet_port_status(port) for port in server.get("ports") or []}
    if server.get("state") != "ok":
        return GROUP_FAILED
    if statuses & {"older", "unreadable"}:
        return GROUP_TO_UPDATE
    return GROUP_NEWER if "newer" in statuses else GROUP_CURRENT


FILTERS = {"fleet_server": fleet_server, "fleet_port_status": fleet_port_status,
           "fleet_server_group": fleet_server_group}


class FilterModule(object):
    def filters(self):
        return FILTERS
