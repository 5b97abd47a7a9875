#!/usr/bin/env bash
# The fleet demo: builds the qdmhost package, starts 8 simulated servers reached over
# real SSH (scripts/fleet-sim.sh: mixed adapters and versions, one server
# refusing the utility update, one whose adapter tool hangs, one
# unreachable), then with the collection's playbooks takes the fleet
# inventory, rolls the update out in batches of 2 and takes the inventory
# again. The fleet documents and reports stay in build/fleet-demo/; the fleet
# is stopped at the end, also on failure.
#   scripts/fleet-demo.sh
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/demo-server.sh

# The package and the simulator, both from scripts/package.sh's build.
deb=$(scripts/package.sh | tail -1)
export FLEET_SIM_DEB=$deb FLEET_SIM_BUILD=$PWD/build-package

out=$PWD/build/fleet-demo
fleet=$(mktemp -d /tmp/fleet-demo.XXXXXX)
trap 'scripts/fleet-sim.sh stop "$fleet"; rm -rf "$fleet"' EXIT
source scripts/ansible-env.sh
ansible_env "$fleet/ansible"
export ANSIBLE_FORKS=8
heading() { printf '\n\033[1m==== %s ====\033[0m\n\n' "$*"; }
# Playbooks report failed servers with a non-zero status: the demo goes on.
play() { demo_run ansible-playbook -i "$fleet/inventory.ini" "$@" || echo "ansible-playbook exit code: $?"; }

heading "1. Eight simulated servers, each in its own sandbox with sshd on 127.0.0.1"
demo_run scripts/fleet-sim.sh start 8 "$fleet"
sed -n '/^# Roles by index/,/^$/p' scripts/fleet-sim.sh | sed 's/^# \{0,1\}//'
demo_run cat "$fleet/inventory.ini"

heading "2. Fleet inventory: every server's adapters and versions, one document and one report"
play velmora.fc.fleet_inventory -e "fleet_out_dir=$out/before"

heading "3. Rolling update in batches of 2 (the hanging server is cut off after 20 s)"
play velmora.fc.rolling_update -e fc_serial=2 -e fc_max_fail_percentage=50 -e fc_update_timeout=20 \
    -e "qdmhost_deb=$deb" -e "fleet_out_dir=$out/update"

heading "4. Fleet inventory again"
play velmora.fc.fleet_inventory -e "fleet_out_dir=$out/after"

heading "5. The fleet report"
echo "before the update: $out/before/fleet.html"
echo "the update's outcome per server and each port's last update: $out/update/fleet.html"
echo "after the update:  $out/after/fleet.html"
echo "open it in a browser, e.g. chromium $out/after/fleet.html"
