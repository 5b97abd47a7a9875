#!/usr/bin/python
# -*- coding: utf-8 -*-
# Copyright: Velmora
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: fc_update
short_description: Update the firmware, driver and utility of a server's Fibre Channel adapters
version_added: "1.0.0"
description:
  - Runs C(qdmhost --json update) on the managed server; every port's modules whose operating
    version differs from the repository's are updated, in the vendor's order (utility, firmware,
    driver).
  - In check mode runs C(qdmhost --json update --dry-run) and reports what would change.
  - C(changed) is true exactly when a module was updated (in check mode, when one would be).
  - Fails for every non-zero exit code of qdmhost, with the exit code's name in I(msg) and
    I(exit_name) (C(refused), C(lock-busy), C(untrusted-repository), C(apply-check-mismatch),
    C(update-failed), ...) and the ports and modules concerned.
author:
  - Velmora
extends_documentation_fragment:
  - velmora.fc.qdmhost
options:
  wait:
    description:
      - Seconds to wait for another qdmhost update of the same install root to finish
        (qdmhost C(--wait)). After that the module fails with I(exit_name=lock-busy).
    type: int
    default: 0
  allow_unsigned:
    description:
      - Use a repository without a valid signature (qdmhost C(--allow-unsigned)), for a lab only.
        Sizes, hashes and expiry are still checked; the history records the update as unsigned.
    type: bool
    default: false
  allow_downgrade:
    description:
      - Also update a module whose adapter is newer than the repository, to the repository's older
        version (qdmhost C(--allow-downgrade)); the history records it as a downgrade. Without it such
        a module is left alone and reported as C(newer).
    type: bool
    default: false
  allow_path_loss:
    description:
      - Flash an adapter even when it carries the last active and ready path of a multipath map
        (qdmhost C(--allow-path-loss)); qdmhost warns and the history records it. Without it such a
        firmware update is refused and the module fails with I(exit_name=refused) and reason C(last-path).
    type: bool
    default: false
  path_wait:
    description:
      - Seconds to wait, after an adapter is flashed, for its paths to be active and ready again before
        the next adapter (qdmhost C(--path-wait)). Else the update stops and the module fails with
        I(exit_name=update-failed) and reason C(paths-not-restored).
    type: int
    default: 300
  timeout:
    description:
      - Seconds the update may take. A run that has not finished by then is sent SIGTERM; it
        finishes the step in progress (a firmware download, the driver package, the utility's
        scripts, each with its checks), records it, skips the rest and stops, and the module fails
        with I(exit_name=interrupted), naming the step. Nothing is left half done; the next run
        updates what was skipped. Only a run that does not stop within as long again (at most 30
        minutes more) is killed, with the tools it started (I(exit_name=timeout)).
    type: int
    default: 3600
attributes:
  check_mode:
    support: full
  diff_mode:
    support: full
    details: Before and after, one line per port and module with its operating version.
notes:
  - Needs qdmhost installed on the managed server (the C(qdmhost) Debian package) and a repository
    signed by a key that the server trusts (C(qdmhost trust add)).
seealso:
  - module: velmora.fc.fc_info
"""

EXAMPLES = r"""
- name: Bring every adapter to the repository's versions, waiting up to 10 minutes for another run
  velmora.fc.fc_update:
    wait: 600
  register: fc_update

- name: Only one port, from a staged repository, giving up after 20 minutes
  velmora.fc.fc_update:
    repo: /srv/fc-repository
    port:
      - "10000090FAC30001"
    timeout: 1200

- name: Show what an update would change
  velmora.fc.fc_update:
  check_mode: true
  diff: true
"""

RETURN = r"""
results:
  description:
    - One element per port and module, exactly as qdmhost's C(update --json) gives them, in update order.
    - I(outcome) is C(updated), C(planned) (check mode), C(refused), C(failed), C(apply-check-mismatch),
      C(interrupted) (skipped after a time-out or signal), C(installed) (the missing utility, from the
      repository), C(blocked) (needs the missing utility) or the module's status when there was nothing to do (C(current), C(no-package), C(not-installed)).
    - An update run adds I(now) (version read afterwards), I(failedStep), I(seconds) and the operator
      I(messages); a refusal adds I(messages).
  returned: when qdmhost ran the update
  type: list
  elements: dict
  sample:
    - deviceId: "0000:05:00.0-PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF"
      wwpn: "10000090FAC30001"
      busDevFunc: "5/0/0"
      kind: firm
      outcome: updated
      from: "10.2.370.15"
      to: "11.4.204.8"
      now: "11.4.204.8"
      failedStep: null
      seconds: 31.2
      messages: []
updated:
  description: Number of modules updated (in check mode, that would be updated).
  returned: when qdmhost ran the update
  type: int
  sample: 3
dry_run:
  description: Whether this was a dry run (check mode).
  returned: always
  type: bool
  sample: false
key_id:
  description: Id of the key that signed the repository's catalogue.
  returned: when qdmhost ran the update
  type: str
  sample: CFE6AB68946E3764
catalogue_serial:
  description: Serial of the catalogue the update came from.
  returned: when qdmhost ran the update
  type: int
  sample: 7
qdmhost_version:
  description: Version of qdmhost on the server (null when qdmhost does not report it).
  returned: when qdmhost ran the update
  type: str
  sample: 1.0.0
exit_code:
  description: qdmhost's exit code, or null when it gave none (time-out, not started).
  returned: always
  type: int
  sample: 5
exit_name:
  description:
    - Name of the exit code (C(ok), C(refused), C(lock-busy), C(untrusted-repository),
      C(apply-check-mismatch), C(update-failed), C(interrupted), C(bad-repository), C(no-device), ...), or C(timeout),
      C(bad-output) (no JSON document), C(not-started) (qdmhost could not be run).
  returned: always
  type: str
  sample: refused
reason:
  description:
    - Why qdmhost did not trust the repository (C(unsigned), C(bad-signature), C(expired), C(rollback), ...),
      or why the multipath guard refused a firmware (C(last-path)) or stopped the run (C(paths-not-restored)).
  returned: when qdmhost names one
  type: str
  sample: expired
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.velmora.fc.plugins.module_utils.qdmhost import (
    QdmhostError,
    command_line,
    common_argument_spec,
    run,
)

# Outcomes that end the update of a module without the new version.
FAILED_OUTCOMES = ("refused", "failed", "apply-check-mismatch", "blocked")


def changes(results, dry_run):
    return [r for r in results if r.get("outcome") in (("planned",) if dry_run else ("updated", "installed"))]


def port_name(result):
    return "%s %s" % (str(result.get("deviceId", "?")).split("-")[0], result.get("wwpn", "?"))


def version_after(result):
    """What the module runs after the update (planned: after the update that would run)."""
    return result.get("to") if result.get("outcome") == "planned" else result.get("now", result.get("from"))


def version_lines(results, version):
    """One line per port and module with the version VERSION(result) gives."""
    return "".join("%s %s: %s\n" % (port_name(r), r.get("kind"), version(r)) for r in results)


def diff(results, dry_run):
    return {"before": version_lines(results, lambda r: r.get("from")), "after": version_lines(results, version_after),
            "before_header": "operating versions", "after_header": "planned versions" if dry_run else "versions now"}


def failure_details(results):
    """The ports and modules that failed, with the operator messages they received."""
    details = []
    for result in results:
        if result.get("outcome") in FAILED_OUTCOMES:
            texts = [str(m.get("text")) for m in result.get("messages") or [] if isinstance(m, dict)]
            step = " in step %s" % result["failedStep"] if result.get("failedStep") else ""
            guard = " (%s: %s)" % (result["reason"], ", ".join(result.get("maps") or [])) if result.get("reason") else ""
            details.append("%s %s %s%s%s%s" % (port_name(result), result.get("kind"), result.get("outcome"), guard, step,
                                               (": " + " / ".join(texts)) if texts else ""))
    return details


def stop_details(document):
    """Why the run stopped before its end: the adapter whose paths did not come back."""
    stopped = document.get("stopped")
    if not isinstance(stopped, dict):
        return []
    return ["stopped (%s): the paths of %s did not come back: %s" % (
        stopped.get("reason"), stopped.get("adapter"), ", ".join(str(p) for p in stopped.get("paths") or []))]


def summary(document, exit_code, exit_name, dry_run):
    results = document.get("results") or []
    return dict(
        results=results,
        updated=len(changes(results, dry_run)),
        dry_run=dry_run,
        key_id=document.get("keyId"),
        catalogue_serial=document.get("catalogueSerial"),
        exit_code=exit_code,
        exit_name=exit_name,
    )


def fail(module, error, dry_run):
    document = error.document or {}
    result = summary(document, error.exit_code, error.exit_name, dry_run) if document.get("results") else {}
    result.update(error.to_result(), dry_run=dry_run)
    details = failure_details(result.get("results", [])) + stop_details(document)
    refusal = next((r.get("reason") for r in result.get("results", []) if r.get("reason")), None)
    stopped = document.get("stopped")
    if not error.reason and (refusal or isinstance(stopped, dict)):
        result["reason"] = stopped.get("reason") if isinstance(stopped, dict) else refusal
    message = str(error) if not details else "qdmhost failed: %s (exit %s): %s" % (
        error.exit_name, error.exit_code, "; ".join(details))
    module.fail_json(msg=message, changed=bool(result.get("updated")) and not dry_run, **result)


def main():
    options = common_argument_spec(default_timeout=3600)
    options.update(wait=dict(type="int", default=0), allow_unsigned=dict(type="bool", default=False),
                   allow_downgrade=dict(type="bool", default=False), allow_path_loss=dict(type="bool", default=False),
                   path_wait=dict(type="int", default=300))
    module = AnsibleModule(argument_spec=options, supports_check_mode=True)
    dry_run = module.check_mode
    command = ["update", "--dry-run"] if dry_run else ["update"]
    try:
        answer = run(command_line(module.params, command), module.params["timeout"])
    except QdmhostError as error:
        fail(module, error, dry_run)
    result = summary(answer.document, answer.exit_code, answer.exit_name, dry_run)
    result["qdmhost_version"] = answer.envelope.get("qdmhost")
    if module._diff:
        result["diff"] = diff(result["results"], dry_run)
    module.exit_json(changed=result["updated"] > 0, **result)


if __name__ == "__main__":
    main()
