#!/usr/bin/env bash
# Renders the fleet report from a varied fleet with the collection's
# fleet_report step, then checks the page in headless Chromium. The page
# and its screenshot stay in OUTPUT_DIR as artifacts.
#   report_test.sh OUTPUT_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../tools.sh"
need chromium /usr/bin/python3
out=${1:?usage: report_test.sh OUTPUT_DIR}
mkdir -p "$out"
PYTHONPATH=$here/../../ansible /usr/bin/python3 - "$here/report-fleet.json" "$out/fleet-report.html" <<'PY'
import json, sys
# The collection's package first, before Ansible's own loader takes over the namespace.
import ansible_collections.velmora.fc.plugins.filter.fleet
from ansible_collections.velmora.fc.plugins.action.fleet_report import render_report
fleet, page = sys.argv[1:]
with open(fleet, encoding='utf-8') as source, open(page, 'w', encoding='utf-8') as target:
    target.write(render_report(json.load(source)))
PY
"$here/check_report.py" "$here/report-fleet.json" "$out/fleet-report.html" "$out/fleet-report.png"
