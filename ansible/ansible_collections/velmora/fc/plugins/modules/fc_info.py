#!/usr/bin/python
# -*- coding: utf-8 -*-
# Copyright: Velmora
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: fc_info
short_description: Inventory and pre-flight check of a server's Fibre Channel adapters
version_added: "1.0.0"
description:
  - Runs C(qdmhost --json check) once on the managed server; its document carries every port's
    inventory and last update too, returned as C(ports), and the check's findings as C(check).
  - Every port with its device identifier, WWPN, model and, per module (firmware, driver, utility),
    the operating version, the repository version and a status.
  - The check result lists missing components (the adapter management utility) and, per port,
    whether the utility configuration would allow a utility update. A check that finds a missing
    component or a refusing configuration is reported, not failed; the caller decides.
  - The check's multipath paths per adapter and their verdicts (C(path_verdicts)).
  - Never changes anything on the server.
author:
  - Velmora
extends_documentation_fragment:
  - velmora.fc.qdmhost
options:
  timeout:
    description:
      - Seconds each qdmhost run may take. A run that has not finished by then is killed, with the
        adapter tools it started, and the module fails with I(exit_name=timeout).
    type: int
    default: 600
attributes:
  check_mode:
    support: full
  diff_mode:
    support: none
notes:
  - Needs qdmhost installed on the managed server (the C(qdmhost) Debian package).
seealso:
  - module: velmora.fc.fc_update
"""

EXAMPLES = r"""
- name: Read the adapters and their versions
  velmora.fc.fc_info:
  register: fc

- name: Only the second port of the 16G adapter, against a staged repository
  velmora.fc.fc_info:
    repo: /srv/fc-repository
    port:
      - "0000:05:00.1"
  register: fc

- name: Stop when a component that an update needs is missing
  ansible.builtin.assert:
    that: fc.check.missingComponents | length == 0
    fail_msg: "missing: {{ fc.check.missingComponents | join(', ') }}"
"""

RETURN = r"""
ports:
  description:
    - The inventory's ports, exactly as C(qdmhost --json inventory) lists them, each with its last entry of
      the update history as C(lastUpdate) (C(time), C(kind), C(outcome), C(failedStep), C(from), C(to)), null
      when it has none.
  returned: success
  type: list
  elements: dict
  sample:
    - deviceId: "0000:05:00.0-PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF"
      vendorClass: CFC_EMULEX_16G_Vendor
      modelKey: fcelx_16g
      wwpn: "10000090FAC30001"
      busDevFunc: "5/0/0"
      bootBios: "10.2.370.15"
      modules:
        - {kind: firm, operating: "10.2.370.15", repository: "11.4.204.8", status: older}
      lastUpdate: {time: "2025-11-23T09:12:00Z", kind: firm, outcome: failed, failedStep: PreUpdate,
                   from: "10.2.370.15", to: "11.4.204.8"}
check:
  description: The C(qdmhost --json check) document without its envelope fields.
  returned: success
  type: dict
  sample:
    missingComponents: []
    repositoryVerified: true
    ports:
      - {deviceId: "0000:05:00.0-PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF", wwpn: "10000090FAC30001",
         utilityCheck: passed}
path_verdicts:
  description:
    - The multipath guard's verdict per adapter (all PCI functions of one PCI device), from the check
      C(safe) (every map through it keeps an active and ready path through another adapter),
      C(last-path) (a firmware update would be refused) or C(no-multipath).
  returned: success
  type: list
  elements: dict
  sample:
    - {adapter: "0000:05:00", verdict: last-path, solePathMaps: 1, lastPathMaps: [mpatha]}
sole_path_adapters:
  description: The adapters of I(path_verdicts) that carry the only healthy path of a map (a single point of failure).
  returned: success
  type: list
  elements: dict
  sample:
    - {adapter: "0000:05:00", verdict: last-path, solePathMaps: 1, lastPathMaps: [mpatha]}
pending:
  description:
    - The modules that an update would change (status C(older), C(newer) or C(unreadable)), one
      element per port and module; empty when every module is current.
  returned: success
  type: list
  elements: dict
  sample:
    - {deviceId: "0000:05:00.0-PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF", wwpn: "10000090FAC30001", kind: firm,
       operating: "10.2.370.15", repository: "11.4.204.8", status: older}
check_exit_code:
  description: Exit code of the check (0, 5 when a utility configuration refuses, 10 when a component is missing).
  returned: success
  type: int
  sample: 0
check_exit_name:
  description: Name of the check's exit code (C(ok), C(refused), C(missing-component)).
  returned: success
  type: str
  sample: ok
repository_verified:
  description: Whether the repository passed the trust checks (null when the inventory does not say).
  returned: success
  type: bool
  sample: true
host:
  description: The server's host name as qdmhost reports it (null when qdmhost does not report it).
  returned: success
  type: str
  sample: fc-host01
qdmhost_version:
  description: Version of qdmhost on the server (null when qdmhost does not report it).
  returned: success
  type: str
  sample: 1.0.0
exit_code:
  description: 0 when the adapters were read (the check's findings are in C(check_exit_code)), or null when qdmhost gave none (time-out).
  returned: always
  type: int
  sample: 0
exit_name:
  description:
    - Name of the exit code, as qdmhost names it (C(ok), C(bad-repository), C(untrusted-repository),
      C(provider-missing), C(no-device), ...), or C(timeout), C(bad-output) (no JSON document),
      C(not-started) (qdmhost could not be run).
  returned: always
  type: str
  sample: ok
reason:
  description: The reason qdmhost gives for an untrusted repository (C(unsigned), C(expired), ...).
  returned: when qdmhost names one
  type: str
  sample: expired
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.velmora.fc.plugins.module_utils.qdmhost import (
    CHECK_FINDINGS, PENDING_STATUSES, common_argument_spec, run_for_module)

def pending(ports):
    return [dict(deviceId=port.get("deviceId"), wwpn=port.get("wwpn"), kind=module.get("kind"),
                 operating=module.get("operating"), repository=module.get("repository"), status=module.get("status"))
            for port in ports for module in port.get("modules") or [] if module.get("status") in PENDING_STATUSES]


# A port of the check document as the inventory lists it, and as the check does.
INVENTORY_FIELDS = ("deviceId", "vendorClass", "modelKey", "wwpn", "busDevFunc", "bootBios", "bootBiosRepository",
                    "bootBiosStatus", "modules")
CHECK_FIELDS = ("deviceId", "wwpn", "utilityCheck", "plans")


def only(fields, port):
    return {name: port[name] for name in fields if name in port}


def path_verdicts(check):
    adapters = (check.get("paths") or {}).get("adapters") or []
    return [dict(adapter=a.get("adapter"), verdict=a.get("verdict"), solePathMaps=a.get("solePathMaps", 0),
                 lastPathMaps=[m.get("map") for m in a.get("maps") or [] if not m.get("otherHealthyPaths")])
            for a in adapters]


def inventory_port(port):
    """A port of the check document as the inventory lists it, with its last update (None when none)."""
    return dict(only(INVENTORY_FIELDS, port), lastUpdate=port.get("lastUpdate"))


def main():
    module = AnsibleModule(argument_spec=common_argument_spec(default_timeout=600), supports_check_mode=True)
    check = run_for_module(module, ["check"], accepted=CHECK_FINDINGS)
    checked_ports = check.document.get("ports", [])
    ports = [inventory_port(port) for port in checked_ports]
    verdicts = path_verdicts(check.document)
    module.exit_json(
        changed=False,
        ports=ports,
        pending=pending(ports),
        path_verdicts=verdicts,
        sole_path_adapters=[v for v in verdicts if v["solePathMaps"] > 0],
        check=dict(check.document, ports=[only(CHECK_FIELDS, port) for port in checked_ports]),
        check_exit_code=check.exit_code,
        check_exit_name=check.exit_name,
        repository_verified=check.document.get("repositoryVerified"),
        host=check.envelope.get("host"),
        qdmhost_version=check.envelope.get("qdmhost"),
        exit_code=0,
        exit_name="ok",
    )


if __name__ == "__main__":
    main()
