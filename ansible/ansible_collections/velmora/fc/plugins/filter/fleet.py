# -*- coding: utf-8 -*-
# Copyright: Velmora
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)
"""fleet_server: one server's entry of the fleet document, from its fc_info result.

In Python rather than in a playbook expression: the result's strings come
from the servers and must reach the document as data, never as templates.
"""

from __future__ import absolute_import, division, print_function

__metaclass__ = type


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


class FilterModule(object):
    def filters(self):
        return {"fleet_server": fleet_server}
