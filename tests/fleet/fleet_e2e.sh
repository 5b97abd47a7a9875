#!/usr/bin/env bash
# The collection's playbooks against a simulated fleet over real SSH
# (scripts/fleet-sim.sh: 8 servers, one refusing, one hanging, one
# unreachable), then a 3-server fleet whose first batch fails too much.
# Playbook results, fleet documents, the report and its screenshot stay in
# BUILD_DIR/test-artifacts/fleet.
#   fleet_e2e.sh BUILD_DIR
set -euo pipefail
build=$(cd "${1:?usage: fleet_e2e.sh BUILD_DIR}" && pwd)
cd "$(dirname "$0")/../.."
here=$PWD/tests/fleet
source tests/tools.sh
need ansible-playbook /usr/sbin/sshd ssh ssh-keygen chromium dpkg-deb /usr/bin/python3
out=$build/test-artifacts/fleet
rm -rf "$out"
mkdir -p "$out"
work=$(mktemp -d /tmp/fleet-e2e.XXXXXX)
trap 'scripts/fleet-sim.sh stop "$work/big"; scripts/fleet-sim.sh stop "$work/small"; rm -rf "$work"' EXIT

source scripts/ansible-env.sh
ansible_env "$work/ansible"
# Play results come from the test's own callback: ansible-core has no JSON one.
export FLEET_SIM_BUILD=$build ANSIBLE_CALLBACK_PLUGINS=$here/callback_plugins ANSIBLE_STDOUT_CALLBACK=fleet_recap \
    ANSIBLE_NOCOLOR=1 ANSIBLE_FORKS=8
failures=0

# Runs a playbook of the collection on FLEET; its recap goes to out/RESULT.json.
#   play FLEET RESULT PLAYBOOK [ansible-playbook options...]
play() {
    local fleet=$1 result=$2 playbook=$3
    shift 3
    ansible-playbook -i "$work/$fleet/inventory.ini" "velmora.fc.$playbook" "$@" >"$out/$result.json" 2>"$out/$result.err" || true
}

# expect WHAT EXPECTED ACTUAL
expect() {
    if [[ "$2" == "$3" ]]; then
        echo "ok: $1"
    else
        echo "FAILED: $1"
        diff <(echo "$2") <(echo "$3") || true
        failures=$((failures + 1))
    fi
}

states() { (cd "$work/$1" && sha256sum fcsim-*/state.json); }
servers() { "$here/fleet_results.py" servers "$out/$1" "$work/big"; }
recap() { "$here/fleet_results.py" recap "$out/$1.json"; }

scripts/fleet-sim.sh start 8 "$work/big"

play big inventory fleet_inventory -e "fleet_out_dir=$out/before"
expect "inventory: every server with the simulator's versions, the unreachable one marked" "\
fcsim-01 ok firm:older driver:older util:older
fcsim-02 ok firm:older driver:older util:older
fcsim-03 ok firm:current driver:current util:current
fcsim-04 ok firm:older driver:older util:older
fcsim-05 ok firm:older driver:older util:older
fcsim-06 ok firm:older driver:older util:older
fcsim-07 unreachable
fcsim-08 ok firm:older driver:older util:older" "$(servers before/fleet.json)"
report=ok
"$here/check_report.py" "$out/before/fleet.json" "$out/before/fleet.html" "$out/before/screenshot.png" \
    >"$out/report.log" 2>&1 || report=$(cat "$out/report.log")
expect "the report page shows what the fleet document holds" ok "$report"

# The package each server has already: installing it again must change nothing.
update=(rolling_update -e fc_serial=2 -e fc_max_fail_percentage=50 -e fc_update_timeout=15
    -e "qdmhost_deb=$work/big/qdmhost.deb")
before=$(states big)
play big check "${update[@]}" -e fc_serial=8 -e "fleet_out_dir=$out/check" --check   # one batch: what it would do, everywhere at once
expect "check mode changes no simulator state" "$before" "$(states big)"

play big update "${update[@]}" -e "fleet_out_dir=$out/update"
expect "rolling update: good servers changed, refusing and hanging ones failed with their reasons" "\
fcsim-01 changed=1 failed=0 unreachable=0
fcsim-02 changed=1 failed=0 unreachable=0
fcsim-03 changed=0 failed=0 unreachable=0
fcsim-04 changed=1 failed=0 unreachable=0
fcsim-05 changed=1 failed=0 unreachable=0
fcsim-06 changed=0 failed=1 unreachable=0 refused
fcsim-07 changed=0 failed=0 unreachable=1
fcsim-08 changed=0 failed=1 unreachable=0 timeout" "$(recap update)"

# A second function flashed through its sibling has no history line of its own: "none". The hanging
# server's run, stopped at its time-out, records every module it did not finish as interrupted.
expect "the update's report: each server's outcome and its ports' last update" "\
fcsim-01 updated last:updated
fcsim-02 updated last:none/updated
fcsim-03 current last:none
fcsim-04 updated last:none/updated
fcsim-05 updated last:updated
fcsim-06 refused:refused last:refused/updated
fcsim-07 unreachable last:-
fcsim-08 timed-out last:interrupted" "$("$here/fleet_results.py" updates "$out/update/fleet.json")"
report=ok
"$here/check_report.py" "$out/update/fleet.json" "$out/update/fleet.html" "$out/update/screenshot.png" \
    >"$out/report.log" 2>&1 || report=$(cat "$out/report.log")
expect "the update's report page shows what its document holds" ok "$report"

play big after fleet_inventory -e "fleet_out_dir=$out/after"
expect "after the update the good servers are current" "\
fcsim-01 ok firm:current driver:current util:current
fcsim-02 ok firm:current driver:current util:current
fcsim-03 ok firm:current driver:current util:current
fcsim-04 ok firm:current driver:current util:current
fcsim-05 ok firm:current driver:current util:current
fcsim-06 ok firm:current driver:current util:older
fcsim-07 unreachable
fcsim-08 ok firm:older driver:older util:current" "$(servers after/fleet.json)"

play big again "${update[@]}" -e "fleet_out_dir=$out/again"
expect "a second run changes nothing" "\
fcsim-01 changed=0 failed=0 unreachable=0
fcsim-02 changed=0 failed=0 unreachable=0
fcsim-03 changed=0 failed=0 unreachable=0
fcsim-04 changed=0 failed=0 unreachable=0
fcsim-05 changed=0 failed=0 unreachable=0
fcsim-06 changed=0 failed=1 unreachable=0 refused
fcsim-07 changed=0 failed=0 unreachable=1
fcsim-08 changed=0 failed=1 unreachable=0 timeout" "$(recap again)"

# One failure in a first batch of two is 50 %, above 25 %: the third server is never touched.
FLEET_SIM_ROLES="good refuse good" scripts/fleet-sim.sh start 3 "$work/small"
before=$(states small | grep fcsim-03)
play small stopped rolling_update -e fc_serial=2 -e fc_max_fail_percentage=25 \
    -e "qdmhost_deb=$work/small/qdmhost.deb" -e "fleet_out_dir=$out/stopped"
expect "rollout stops when the failure percentage is exceeded" "$before" "$(states small | grep fcsim-03)"
expect "the stopped rollout ran on the first batch only" "fcsim-01 fcsim-02" "$(recap stopped | cut -d' ' -f1 | xargs)"

exit $((failures > 0))
