#!/usr/bin/env bash
# Renders the fleet report from a varied fleet with plain Jinja2, as Ansible's
# template module does, then checks the page in headless Chromium. The page
# and its screenshot stay in OUTPUT_DIR as artifacts.
#   report_test.sh OUTPUT_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../tools.sh"
need chromium /usr/bin/python3
templates=$here/../../ansible/ansible_collections/velmora/fc/playbooks/templates
out=${1:?usage: report_test.sh OUTPUT_DIR}
mkdir -p "$out"
/usr/bin/python3 - "$templates" "$here/report-fleet.json" "$out/fleet-report.html" "$here/../../ansible" <<'PY'
import json, sys, jinja2
templates, fleet, page, collections = sys.argv[1:]
sys.path.insert(0, collections)
from ansible_collections.velmora.fc.plugins.filter.fleet import FILTERS
# No autoescape, like Ansible: the template must escape every value itself.
env = jinja2.Environment(loader=jinja2.FileSystemLoader(templates), trim_blocks=True,
                         undefined=jinja2.StrictUndefined, autoescape=False)
env.filters.update({'velmora.fc.' + name: function for name, function in FILTERS.items()})
with open(fleet, encoding='utf-8') as source, open(page, 'w', encoding='utf-8') as target:
    target.write(env.get_template('fleet_report.html.j2').render(fleet=json.load(source)))
PY
"$here/check_report.py" "$here/report-fleet.json" "$out/fleet-report.html" "$out/fleet-report.png"
