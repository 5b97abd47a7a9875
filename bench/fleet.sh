#!/usr/bin/env bash
# Measures the fleet inventory (the collection's fleet_inventory playbook over
# real SSH) of simulated fleets of 4, 8 and 16 good servers with Ansible forks
# 1 and forks equal to the fleet size, and writes bench/FLEET.md.
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
export FLEET_SIM_BUILD=$build FLEET_SIM_ROLES=good ANSIBLE_COLLECTIONS_PATH=$PWD/ansible \
    ANSIBLE_HOME=$work/ansible ANSIBLE_LOCAL_TEMP=$work/ansible/tmp ANSIBLE_NOCOLOR=1 ANSIBLE_RETRY_FILES_ENABLED=0
load=$(cut -d' ' -f1-3 /proc/loadavg)

# Median wall seconds of the fleet inventory of FLEET with FORKS forks.
#   measure FLEET FORKS
measure() {
    local fleet=$1 forks=$2 run start
    for ((run = 0; run < runs; run++)); do
        start=$(date +%s.%N)
        ansible-playbook -i "$fleet/inventory.ini" -f "$forks" velmora.fc.fleet_inventory \
            -e "fleet_out_dir=$work/out" >"$work/last.log" 2>&1 || { cat "$work/last.log" >&2; exit 1; }
        awk -v start="$start" -v end="$(date +%s.%N)" 'BEGIN { print end - start }'
    done | sort -n | sed -n "$(((runs + 1) / 2))p"
}

rows=()
for size in $sizes; do
    scripts/fleet-sim.sh start "$size" "$work/fleet-$size" >/dev/null
    serial=$(measure "$work/fleet-$size" 1)
    parallel=$(measure "$work/fleet-$size" "$size")
    scripts/fleet-sim.sh stop "$work/fleet-$size"
    rows+=("$(awk -v n="$size" -v one="$serial" -v all="$parallel" \
        'BEGIN { printf "| %d | %.1f | %.1f | %.2f | %.2f |", n, one, all, one / all, all / n }')")
    echo "fleet of $size: forks 1 ${serial}s, forks $size ${parallel}s" >&2
done

cat >bench/FLEET.md <<EOF
# Fleet inventory benchmark

Written by \`bench/fleet.sh\`; rerun it to refresh. The \`fleet_inventory\`
playbook over real SSH against \`scripts/fleet-sim.sh\` fleets of good servers
(each a sandbox with sshd on 127.0.0.1 and the adapter simulator, 1 to 5
ports). Median wall time of $runs runs, in seconds, playbook start to end,
including the fleet document and the report.

## Machine

|  |  |
|---|---|
| nproc | $(nproc) |
| cpu | $(lscpu | sed -n 's/^Model name: *//p' | head -1) |
| memory | $(free -h | awk '/^Mem:/ {print $2}') |
| kernel | $(uname -srm) |
| ansible | $(ansible-playbook --version | head -1) |
| openssh | $(ssh -V 2>&1) |
| date | $(date -u '+%Y-%m-%d %H:%M UTC') |
| load | $load |

The load average is the machine's at the start; client, servers and tools all
share its cores. Every run has a fixed part (Ansible's start, the fleet
document and the report written once on the controller), so the ratio grows
with the fleet; the last column is what parallel runs leave per server.

## Wall time (s)

| servers | forks 1 | forks = servers | forks 1 / forks = servers | per server, forks = servers |
|---|---|---|---|---|
$(printf '%s\n' "${rows[@]}")
EOF
cat bench/FLEET.md
