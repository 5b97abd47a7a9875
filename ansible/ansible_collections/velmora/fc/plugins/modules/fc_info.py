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
  - Runs C(qdmhost --json inventory) and C(qdmhost --json check) on the managed server and returns
    both documents.
  - Every port with its device identifier, WWPN, model and, per module (firmware, driver, utility),
    the operating version, the repository version and a status.
  - The check result lists missing components (the adapter management utility) and, per port,
    whether the utility configuration would allow a utility update. A check that finds a missing
    component or a refusing configuration is reported, not failed; the caller decides.
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
  description: The inventory's ports, exactly as C(qdmhost --json inventory) lists them.
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
  description: The inventory's exit code (0 on success), or null when qdmhost gave none (time-out).
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


def main():
    module = AnsibleModule(argument_spec=common_argument_spec(default_timeout=600), supports_check_mode=True)
    inventory = run_for_module(module, ["inventory"])
    check = run_for_module(module, ["check"], accepted=CHECK_FINDINGS)
    ports = inventory.document.get("ports", [])
    module.exit_json(
        changed=False,
        ports=ports,
        pending=pending(ports),
        check=check.document,
        check_exit_code=check.exit_code,
        check_exit_name=check.exit_name,
        repository_verified=inventory.document.get("repositoryVerified"),
        host=inventory.envelope.get("host"),
        qdmhost_version=inventory.envelope.get("qdmhost"),
        exit_code=inventory.exit_code,
        exit_name=inventory.exit_name,
    )


if __name__ == "__main__":
    main()
