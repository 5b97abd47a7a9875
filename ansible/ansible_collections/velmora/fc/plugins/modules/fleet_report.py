#!/usr/bin/python
# -*- coding: utf-8 -*-
# Copyright: Velmora
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: fleet_report
short_description: Write the fleet document and the fleet report page on the controller
version_added: "1.1.0"
description:
  - Builds the fleet document from the C(fc_info) result that every host of the play registered
    (and, given I(update), each host's rolling-update outcome) and writes C(fleet.json) and the self-contained report page C(fleet.html) into I(dest), each replaced
    atomically.
  - Runs on the controller only (an action plugin); use it with C(run_once).
author:
  - Velmora
options:
  dest:
    description: Folder for C(fleet.json) and C(fleet.html); made when missing; relative to the current folder.
    type: path
    default: fleet-report
  result:
    description:
      - Name of the variable under which each host registered its C(fc_info) result, or a list of names:
        the first result that ran is taken (after an update, the reading after it, else the one before).
    type: raw
    default: fc_inventory
  update:
    description:
      - Name of the variable under which each host registered its C(fc_update) result. The document then
        carries per server the update's outcome (C(updated), C(current), C(refused) with its reason,
        C(failed) with its step, C(timed-out), C(interrupted), C(unreachable), C(not-reached)); a failed
        task before or after the update is read from the host's C(fc_failure) variable
        (C({task: name, result: result})).
    type: str
attributes:
  check_mode:
    support: none
  diff_mode:
    support: none
"""

EXAMPLES = r"""
- name: Write the fleet document and the report
  velmora.fc.fleet_report:
    dest: /srv/fleet
  run_once: true
"""

RETURN = r"""
dest:
  description: The folder written to.
  returned: success
  type: str
  sample: /srv/fleet
servers:
  description: How many servers the document lists.
  returned: success
  type: int
  sample: 8
"""
