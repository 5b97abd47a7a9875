# -*- coding: utf-8 -*-
# Copyright: Velmora
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)

from __future__ import absolute_import, division, print_function

__metaclass__ = type


class ModuleDocFragment(object):
    # The options every module passes to qdmhost; each module documents its own timeout default.
    DOCUMENTATION = r"""
options:
  qdmhost:
    description: Path of the qdmhost program on the managed server.
    type: path
    default: /usr/sbin/qdmhost
  repo:
    description: Update repository folder (qdmhost C(--repo)); qdmhost's default when omitted.
    type: path
  root:
    description: The provider's install root (qdmhost C(--root)); qdmhost's default when omitted.
    type: path
  port:
    description:
      - Only these ports, each named by device identifier, PCI address, WWPN or bus/device/function
        (qdmhost C(--port), repeated).
      - All ports when empty.
    type: list
    elements: str
    default: []
"""
