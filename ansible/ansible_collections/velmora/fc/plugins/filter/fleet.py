# -*- coding: utf-8 -*-
# Copyright: Velmora
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)
"""fleet_server: one server's entry of the fleet document, from its fc_info result
and, after a rolling update, the outcome of its update; fleet_port_status,
fleet_server_group and fleet_summary: the fleet report's rules, which the
report template only paints.

In Python rather than in a playbook expression: the result's strings come
from the servers and must reach the document as data, never as templates.
"""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

from ansible_collections.velmora.fc.plugins.module_utils.qdmhost import STATUSES_WORST_FIRST

# The report's groups, action first.
GROUP_FAILED, GROUP_TO_UPDATE, GROUP_NEWER, GROUP_CURRENT = range(4)


# A rolling update's outcome for one server, and the ones that need action.
UPDATED, CURRENT, NOT_REACHED = "updated", "current", "not-reached"
REFUSED, FAILED, TIMED_OUT, INTERRUPTED, UNREACHABLE = "refused", "failed", "timed-out", "interrupted", "unreachable"
RUN_FAILURES = (REFUSED, FAILED, TIMED_OUT, INTERRUPTED)
# qdmhost declined to update, for a reason it names; nothing was changed.
DECLINED_EXITS = ("refused", "missing-component", "untrusted-repository", "lock-busy", "bad-repository", "no-device")
RUN_EXITS = {"timeout": TIMED_OUT, "interrupted": INTERRUPTED}
# The summary's counts: per port status, per server state, per update outcome.
SUMMARY_RUN_OUTCOMES = (UPDATED, REFUSED, FAILED, TIMED_OUT, INTERRUPTED)


def _entry(name, state, message="", result=None, update=None):
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
        "solePathAdapters": result.get("sole_path_adapters") or [],
        "update": update,
    }


def _registered(variables, names):
    """Of the results registered under NAMES that ran (not skipped), the first that
    succeeded, else the first."""
    ran = [variables[name] for name in names if isinstance(variables.get(name), dict)
           and not variables[name].get("skipped")]
    return next((result for result in ran if not result.get("failed")), ran[0] if ran else None)


def _outcome(outcome, message="", result=None, reason=None, step=None):
    result = result or {}
    return {"outcome": outcome, "exitName": result.get("exit_name"), "reason": reason, "step": step,
            "message": str(message or ""), "updated": result.get("updated")}


def _failed_step(result):
    """The step in which the update of a module failed, as qdmhost names it."""
    steps = [r.get("failedStep") for r in result.get("results") or [] if isinstance(r, dict) and r.get("failedStep")]
    return str(steps[0]) if steps else str(result.get("exit_name") or "update")


def update_outcome(variables, update_name="fc_update", failure_name="fc_failure", left_play=False):
    """What the rolling update did on one server, from its play variables: the
    fc_update result registered as UPDATE_NAME and, when a task failed, the
    failure the play recorded as FAILURE_NAME ({"task": name, "result": result}).
    LEFT_PLAY: Ansible dropped the server from the play without a recorded
    failure, which only an unreachable server is."""
    failure = variables.get(failure_name) if isinstance(variables.get(failure_name), dict) else {}
    failed = failure.get("result") if isinstance(failure.get("result"), dict) else {}
    update = _registered(variables, [update_name])
    if failed.get("unreachable") or (update or {}).get("unreachable"):
        return _outcome(UNREACHABLE, (failed or update).get("msg") or "unreachable")
    if update is None:
        if not failure and left_play:
            return _outcome(UNREACHABLE, "the server became unreachable before its update")
        if not failure:
            return _outcome(NOT_REACHED, "the rollout stopped before this server")
        if failed.get("exit_name") in DECLINED_EXITS or "missing components" in str(failed.get("msg")):
            return _outcome(REFUSED, failed.get("msg"), failed, reason=failed.get("exit_name") or "missing-component")
        return _outcome(FAILED, failed.get("msg"), failed, step=str(failure.get("task") or "before the update"))
    name = update.get("exit_name")
    if name in RUN_EXITS:
        return _outcome(RUN_EXITS[name], update.get("msg"), update)
    if name in DECLINED_EXITS:
        return _outcome(REFUSED, update.get("msg"), update, reason=update.get("reason") or name)
    if update.get("failed"):
        return _outcome(FAILED, update.get("msg"), update, step=_failed_step(update))
    if failure:  # the update ran, a later check failed
        return _outcome(FAILED, failed.get("msg"), update, step=str(failure.get("task")))
    return _outcome(UPDATED if update.get("updated") else CURRENT, "", update)


def fleet_server(name, hostvars, result_name="fc_inventory", update_name=None, left_play=False):
    """NAME's entry, from the first fc_info result of RESULT_NAME (a name or a list of
    names) that ran and, when UPDATE_NAME names the fc_update result, the update's outcome."""
    variables = hostvars[name] if name in hostvars else {}
    update = update_outcome(variables, update_name, left_play=left_play) if update_name else None
    names = [result_name] if isinstance(result_name, str) else list(result_name)
    result = _registered(variables, names)
    if not isinstance(result, dict) and (update or {}).get("outcome") == UNREACHABLE:
        return _entry(name, UNREACHABLE, update["message"], update=update)
    if not isinstance(result, dict):
        return _entry(name, "failed", "no inventory result: the server left the play before it was read",
                      update=update)
    if result.get("unreachable"):
        return _entry(name, "unreachable", str(result.get("msg") or "unreachable"), update=update)
    if result.get("failed") or "ports" not in result:
        return _entry(name, "failed", str(result.get("msg") or "the inventory failed"), result, update)
    return _entry(name, "ok", "", result, update)


def fleet_port_status(port):
    """The worst of the port's module and boot BIOS statuses; current when only no-package or not-installed."""
    present = {module.get("status") for module in port.get("modules") or []} | {port.get("bootBiosStatus")}
    return next((status for status in STATUSES_WORST_FIRST if status in present), "current")


def fleet_server_state(server):
    """What the report shows first for a server: its inventory's state when not ok,
    else the failure of its update (refused, failed, timed-out, interrupted, unreachable), else ok."""
    outcome = (server.get("update") or {}).get("outcome")
    if server.get("state") != "ok":
        return server.get("state")
    return outcome if outcome in RUN_FAILURES + (UNREACHABLE,) else "ok"


def fleet_server_group(server):
    """Failed or unreachable, then a port to update or unreadable, then a port newer, then current."""
    statuses = {fleet_port_status(port) for port in server.get("ports") or []}
    if fleet_server_state(server) != "ok":
        return GROUP_FAILED
    if statuses & {"older", "unreadable"}:
        return GROUP_TO_UPDATE
    return GROUP_NEWER if "newer" in statuses else GROUP_CURRENT


def fleet_summary(fleet):
    """The report's counts, in the order of its tiles: servers and ports; ports per status;
    servers failed (inventory or update) and unreachable; servers per update outcome when
    the document comes from a rolling update."""
    servers = fleet.get("servers") or []
    statuses = [fleet_port_status(port) for server in servers for port in server.get("ports") or []]
    states = [fleet_server_state(server) for server in servers]
    counts = [("servers", len(servers)), ("ports", len(statuses)),
              ("action", sum(fleet_server_group(server) < GROUP_NEWER for server in servers))]
    counts += [(status, statuses.count(status)) for status in STATUSES_WORST_FIRST]
    counts += [("failed", sum(state in (FAILED,) + RUN_FAILURES for state in states)),
               ("unreachable", states.count(UNREACHABLE))]
    outcomes = [(server.get("update") or {}).get("outcome") for server in servers]
    if any(outcomes):
        counts += [("update-" + outcome, outcomes.count(outcome)) for outcome in SUMMARY_RUN_OUTCOMES]
    return dict(counts)


FILTERS = {"fleet_server": fleet_server, "fleet_port_status": fleet_port_status,
           "fleet_server_group": fleet_server_group, "fleet_server_state": fleet_server_state,
           "fleet_summary": fleet_summary}


class FilterModule(object):
    def filters(self):
        return FILTERS
