#!/usr/bin/env bash
# What the multipath guard adds to an update plan: `qdmhost update --dry-run`
# on a simulated server of 64 ports (32 dual-port 16G adapters) carrying 128
# maps of 2 paths each (256 paths, every map through two adapters), with
# multipathd answering and not answering (the simulator's fault switch: the
# guard then has nothing to read), next to the cold inventory of the same
# server. Writes bench/PATHGUARD.md.
#
#   bench/path_guard.sh [--runs N] [--build DIR]     (DIR: a built tree, default build)
set -euo pipefail

bench_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source_dir=$(dirname "$bench_dir")
runs=7
build_dir=$source_dir/build
while [[ $# -gt 0 ]]; do
    case $1 in
        --runs) runs=${2:?}; shift 2 ;;
        --build) build_dir=$(cd "${2:?}" && pwd); shift 2 ;;
        --inner) scratch=${2:?}; shift 2 ;;
        *) sed -n '7p' "$0" >&2; exit 2 ;;
    esac
done
if [[ -z "${scratch:-}" ]]; then
    scratch=$(mktemp -d /tmp/qdm-pathguard.XXXXXX)
    trap 'rm -rf "$scratch"' EXIT
    "$source_dir/sandbox/run" "$0" --runs "$runs" --build "$build_dir" --inner "$scratch"
    exit
fi

qdmsim=$build_dir/sim/qdmsim qdmhost=$build_dir/qdmhost/qdmhost root=$scratch/root repo=$scratch/repo
export QDMHOST_VIRTUAL_TIME=1

# The server: adapter a's port p is host 2a+p+1; map m runs through adapters m%32 and (m+1)%32.
python3 - "$scratch/server.json" <<'PY'
import json, sys
adapters = [{"model": "LPe16002", "kind": "16g", "slot": "0000:%02x:00" % (3 + a), "vendor": "10df", "device": "e200",
             "subVendor": "10df", "subDevice": "e200", "revision": "10", "serial": "FC16%06d" % a, "numbering": "full",
             "firmware": "11.2.156.27", "bootBios": "11.2.156.27",
             "ports": [{"wwpn": "10:00:00:90:fa:00:%02x:%02x" % (a, p), "portNumber": p, "pciDevice": 0, "pciFunction": p}
                       for p in range(2)]} for a in range(32)]
state = {"hostName": "bench01", "driverVersion": "11.2.156.27", "utilityVersion": "10.2.370.16",
         "packages": ["elxocmcore-10.2.370.16-1.x86_64"], "adapters": adapters}
state["multipath"] = {"maps": [{"name": "mpath%d" % m, "wwid": "3600a0980383030%017d" % m, "paths": [
    {"wwpn": adapters[(m + k) % 32]["ports"][m % 2]["wwpn"], "device": "sd%d_%d" % (m, k), "lun": m} for k in range(2)]}
    for m in range(128)]}
json.dump(state, open(sys.argv[1], "w"))
PY
mkdir -p "$root/qdmhost" "$repo"
cp "$source_dir"/provider/data/*.ini "$root/"
echo '{"devices": [{"match": "PCI\\VEN_10DF&DEV_E200", "class": "CFC_EMULEX_16G_Vendor"}]}' >"$root/qdmhost/devices.json"
"$qdmsim" build-firmware --out "$repo/fw-16g.zip" --name fcelx_16g --firmware 11.4.204.8 >/dev/null
echo '{"packages": [{"uniqueNames": ["fcelx_16g"], "kind": "firm", "version": "11.4.204.8", "archive": "fw-16g.zip"}]}' \
    >"$repo/catalogue.json"
"$qdmsim" build-catalogue --repo "$repo" >/dev/null

# CPU milliseconds (user + system) of the children between two readings of
# `times` (its second line), taken by the shell itself, not a subshell.
cpu_ms_between() {
    awk 'FNR == 2 { for (i = 1; i <= 2; i++) { split($i, p, "m"); t[FILENAME] += p[1] * 60 + p[2] } }
         END { printf "%d", (t[ARGV[2]] - t[ARGV[1]]) * 1000 + 0.5 }' "$1" "$2"
}

# Median CPU milliseconds of the process tree of `qdmhost ARGS...` over the
# runs, the work area dropped before each: on a shared machine wall time
# mostly measures the neighbours.
median_ms() {
    local samples=() run
    for ((run = 0; run < runs; run++)); do
        rm -rf "$root/tmp/EMULEX"
        times >"$scratch/before"
        "$qdmhost" --root "$root" "$@" >/dev/null 2>&1 || [[ $? -eq 5 ]]
        times >"$scratch/after"
        samples+=("$(cpu_ms_between "$scratch/before" "$scratch/after")")
    done
    printf '%s\n' "${samples[@]}" | sort -n | sed -n "$(( (runs + 1) / 2 ))p"
}

"$qdmsim" install --state "$scratch/server.json" >/dev/null
export QDMSIM_STATE=$scratch/server.json PATH=/opt/qdmsim/bin:$PATH
declare -A ms
for variant in without with; do
    "$qdmsim" fault multipathd "$([[ $variant == with ]] && echo off || echo missing)"
    ms[plan-$variant]=$(median_ms --repo "$repo" --allow-unsigned update --dry-run)
    ms[inventory-$variant]=$(median_ms --repo "$repo" --allow-unsigned inventory)
done
paths=$("$qdmhost" --root "$root" --repo "$repo" --allow-unsigned --json check 2>/dev/null |
    python3 -c 'import json,sys; d=json.load(sys.stdin)["paths"]; print(sum(len(m["paths"]) for a in d["adapters"] for m in a["maps"]))')
plan_without=${ms[plan-without]} plan_with=${ms[plan-with]}
inventory_without=${ms[inventory-without]} inventory_with=${ms[inventory-with]}
added=$((plan_with - plan_without))
share=$((added * 100 / (inventory_without > 0 ? inventory_without : 1)))
cat >"$bench_dir/PATHGUARD.md" <<MD
# The multipath guard's cost

Written by \`bench/path_guard.sh\` ($(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, load $(cut -d ' ' -f1 /proc/loadavg)).
A simulated server of 64 ports (32 LPe16002) with 128 maps of two paths each
($paths paths seen through the adapters); median of $runs runs, work area dropped before each;
CPU time (user + system) of qdmhost and every process it started.

| run (CPU ms of the process tree, median) | multipathd not answering | multipathd listing 256 paths |
|---|---|---|
| \`update --dry-run\` (the plan) | $plan_without | $plan_with |
| \`inventory\` (cold) | $inventory_without | $inventory_with |

The guard adds **${added} ms** of CPU to the plan: one \`multipathd\` listing, the
SCSI hosts read from sysfs and the verdicts of 32 adapters, against
$inventory_without ms for the cold inventory of the same server
($share %). Inventory runs no guard: its two columns differ by noise only.
MD
cat "$bench_dir/PATHGUARD.md"
