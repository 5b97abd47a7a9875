#!/usr/bin/env bash
# Measures the fleet inventory of simulated fleets of 4, 8 and 16 good servers
# over real SSH five ways, from a plain ssh fan-out to the collection's
# fleet_inventory playbook, and writes bench/FLEET.md.
#
#   bench/fleet.sh [--runs N] [--sizes "4 8 16"] [--build DIR]
#
# Each figure is the median wall time of N runs (default 3). DIR (default
# build/) must hold qdmhost, qdmsim and the provider.
set -euo pipefail
cd "$(dirname "$0")/.."
runs=3
sizes="4 8 16"
build=$PWD/build
while [[ $# -gt 0 ]]; do
    case $1 in
        --runs) runs=$2; shift 2 ;;
        --sizes) sizes=$2; shift 2 ;;
        --build) build=$(cd "$2" && pwd); shift 2 ;;
        *) sed -n 6p "$0" >&2; exit 2 ;;
    esac
done

work=$(mktemp -d /tmp/fleet-bench.XXXXXX)
trap 'for fleet in "$work"/fleet-*; do scripts/fleet-sim.sh stop "$fleet"; done; rm -rf "$work"' EXIT
source scripts/ansible-env.sh
ansible_env "$work/ansible"
export FLEET_SIM_BUILD=$build FLEET_SIM_ROLES=good ANSIBLE_NOCOLOR=1
load=$(cut -d' ' -f1-3 /proc/loadavg)

# Median wall seconds of COMMAND... over the runs; any failure ends the bench.
#   median COMMAND...
median() {
    local run start
    for ((run = 0; run < runs; run++)); do
        start=$(date +%s.%N)
        "$@" >"$work/last.log" 2>&1 || { cat "$work/last.log" >&2; exit 1; }
        awk -v start="$start" -v end="$(date +%s.%N)" 'BEGIN { print end - start }'
    done | sort -n | sed -n "$(((runs + 1) / 2))p"
}

# The plainest fan-out a user could write: ssh to every server at once, each
# printing its inventory document into a file of its own.
#   plain_fan_out FLEET
plain_fan_out() {
    local fleet=$1 server job failed=0
    local -a started=()
    for server in $(sed -n 's/^\(fcsim-[0-9]*\) .*/\1/p' "$fleet/inventory.ini"); do
        ssh -F "$fleet/ssh_config" "$server" qdmhost --json inventory >"$work/plain-$server.json" &
        started+=($!)
    done
    for job in "${started[@]}"; do wait "$job" || failed=1; done
    return $failed
}

# The five ways of reading a fleet of SIZE servers, one table row.
#   measure_fleet SIZE
measure_fleet() {
    local size=$1 fleet=$work/fleet-$1 plain raw command info playbook
    local -a adhoc=(ansible all -i "$fleet/inventory.ini" -f "$size")
    scripts/fleet-sim.sh start "$size" "$fleet" >/dev/null
    plain=$(median plain_fan_out "$fleet")
    raw=$(median "${adhoc[@]}" -m raw -a true)
    command=$(median "${adhoc[@]}" -m command -a 'qdmhost --json inventory')
    info=$(median "${adhoc[@]}" -m velmora.fc.fc_info)
    playbook=$(median ansible-playbook -i "$fleet/inventory.ini" -f "$size" velmora.fc.fleet_inventory \
        -e "fleet_out_dir=$work/out")
    scripts/fleet-sim.sh stop "$fleet"
    echo "fleet of $size: plain $plain, raw $raw, command $command, fc_info $info, playbook ${playbook}s" >&2
    awk -v n="$size" -v plain="$plain" -v raw="$raw" -v command="$command" -v info="$info" -v playbook="$playbook" \
        'BEGIN { printf "| %d | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f |", n, plain, raw, command, info,
                 playbook, playbook / plain, playbook / command }'
}

rows=()
for size in $sizes; do
    rows+=("$(measure_fleet "$size")")
done

# Hand-written notes below the marker survive a rerun.
marker='<!-- hand-written notes below: kept by bench/fleet.sh -->'
notes=$(awk -v marker="$marker" 'kept || $0 == marker { kept = 1; print }' bench/FLEET.md 2>/dev/null || true)

cat >bench/FLEET.md <<EOF
# Fleet inventory benchmark

Written by \`bench/fleet.sh\`; rerun it to refresh. Fleets of good servers
from \`scripts/fleet-sim.sh\` (each a sandbox with sshd on 127.0.0.1 and the
adapter simulator, 1 to 5 ports), read five ways, all servers at once
(forks = servers). Median wall time of $runs runs, in seconds.

## Machine

|  |  |
|---|---|
| nproc | $(nproc) |
| cpu | $(lscpu | sed -n 's/^Model name: *//p' | head -1) |
| memory | $(free -h | awk '/^Mem:/ {print $2}') |
| kernel | $(uname -srm) |
| ansible | $(ansible-playbook --version | sed -n 1p) |
| openssh | $(ssh -V 2>&1) |
| date | $(date -u '+%Y-%m-%d %H:%M UTC') |
| load | $load |

The load average is the machine's at the start; client, servers and tools all
share its cores.

## Wall time (s)

- plain: \`ssh\` to every server in parallel running \`qdmhost --json inventory\`,
  each document into a file of its own: the floor for any tool.
- raw: \`ansible all -m raw -a true\`, Ansible's engine alone (its start,
  the inventory, one ssh connection per server).
- command: \`ansible all -m command -a 'qdmhost --json inventory'\`: the
  engine plus one Python module sent to and run on each server.
- fc_info: \`ansible all -m velmora.fc.fc_info\`: the collection's module, one
  \`qdmhost --json check\` per server (the inventory with the utility check, the
  missing components, the multipath paths and each port's last update).
- playbook: \`ansible-playbook velmora.fc.fleet_inventory\`: \`fc_info\` on
  every server, then the fleet document and the report page on the controller.

Beyond the plain fan-out the playbook pays for Ansible's start and engine
(raw), a Python module per server (command), what \`fc_info\` runs beyond one
qdmhost inventory, and the controller's steps after the servers answered.

| servers | plain | raw | command | fc_info | playbook | playbook / plain | playbook / command |
|---|---|---|---|---|---|---|---|
$(printf '%s\n' "${rows[@]}")

${notes:-$marker}
EOF
