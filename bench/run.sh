#!/usr/bin/env bash
# Measures the inventory and the report of simulated servers of 1, 8, 32 and
# 64 ports with qdmhost and the provider, next to the bare tool calls of
# bench/plain_inventory.sh, runs the micro-benchmarks, prints a table and
# writes bench/RESULTS.md.
#
#   bench/run.sh [--runs N] [--ports "1 8 32 64"] [--build DIR] [--no-micro]
#
# Builds Release into DIR (default build-bench). Everything that needs the
# fixed system paths runs inside sandbox/run; work files live below /tmp.
set -euo pipefail

bench_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source_dir=$(dirname "$bench_dir")
runs=5
port_counts="1 8 32 64"
build_dir=$source_dir/build-bench
micro=1

usage() {
    sed -n '7p' "${BASH_SOURCE[0]}" | sed 's/^# *//' >&2
    exit 2
}

# ---- Simulated servers ------------------------------------------------------

# State of a server with PORTS ports on dual-port 16G adapters (buses 3, 4, ...).
server_state() {
    local ports=$1 adapters=$(( ($1 + 1) / 2 )) a p sep=""
    printf '{\n  "hostName": "bench01", "driverVersion": "11.2.156.27", "utilityVersion": "10.2.370.16",\n'
    printf '  "packages": ["elxocmcore-10.2.370.16-1.x86_64", "lpfc-11.2.156.27-1.x86_64"],\n  "adapters": ['
    for ((a = 0; a < adapters; a++)); do
        printf '%s\n    {"model": "LPe16002", "kind": "16g", "slot": "0000:%02x:00",' "$sep" $((3 + a))
        printf ' "vendor": "10df", "device": "e200", "subVendor": "10df", "subDevice": "e200",'
        printf ' "revision": "10", "serial": "FC16%06d", "numbering": "full",' "$a"
        printf ' "firmware": "11.2.156.27", "bootBios": "11.2.156.27", "ports": ['
        for ((p = 0; p < 2 && 2 * a + p < ports; p++)); do
            printf '%s{"wwpn": "10:00:00:90:fa:%02x:%02x:%02x", "portNumber": %d, "pciDevice": 0, "pciFunction": %d}' \
                "$([[ $p -gt 0 ]] && echo ', ')" $((a >> 8)) $((a & 255)) "$p" "$p" "$p"
        done
        printf ']}'
        sep=","
    done
    printf '\n  ]\n}\n'
}

# An install root for qdmhost: the supported-device table and the provider's
# supported-device lists.
make_install_root() {
    local root=$1
    mkdir -p "$root/qdmhost"
    cp "$source_dir"/provider/data/*.ini "$root/"
    cat >"$root/qdmhost/devices.json" <<'JSON'
{"devices": [{"match": "PCI\\VEN_10DF&DEV_E200", "class": "CFC_EMULEX_16G_Vendor"}]}
JSON
}

# ---- One measurement ----------------------------------------------------------

# Runs CMD... once and appends one row to $results: wall microseconds, peak
# RSS of the largest process (KiB), CPU milliseconds of the whole process
# tree (user + system, from the shell's own child times, which unlike
# time(1) count to the millisecond), exit status and the tool calls it made.
# Nothing forks between the two readings but time(1) and CMD.
measure() {
    local ports=$1 label=$2 run=$3
    shift 3
    "$qdmsim" calls --reset >/dev/null
    local start end rc=0
    times >"$scratch/times-before"
    start=${EPOCHREALTIME/./}
    /usr/bin/time -f '%M' -o "$scratch/rss" "$@" >"$scratch/out" 2>"$scratch/err" || rc=$?
    end=${EPOCHREALTIME/./}
    times >"$scratch/times-after"
    if [[ $rc -ne 0 ]]; then
        echo "bench: $label ($ports ports) exited $rc:" >&2
        tail -5 "$scratch/err" >&2
    fi
    local calls=$scratch/calls
    cp "$state_path.calls" "$calls" 2>/dev/null || : >"$calls"
    printf '%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\n' "$ports" "$label" "$run" \
        $((end - start)) "$(tail -1 "$scratch/rss")" "$(children_cpu_ms)" "$rc" \
        "$(grep -c '^hbacmd listhbas' "$calls" || true)" \
        "$(grep -c '^hbacmd HbaAttributes' "$calls" || true)" \
        "$(grep -c '^hbacmd version' "$calls" || true)" \
        "$(grep -c '^hbacmd' "$calls" || true)" \
        "$(grep -c '^lspci' "$calls" || true)" >>"$results"
}

# Children's user + system time between the two readings of measure(); the
# second line of `times` holds them as "XmY.YYYs XmY.YYYs".
children_cpu_ms() {
    awk 'FNR == 2 { for (i = 1; i <= 2; i++) { split($i, part, "m"); cpu[FILENAME] += part[1] * 60 + part[2] } }
         END { printf "%d", (cpu[ARGV[2]] - cpu[ARGV[1]]) * 1000 + 0.5 }' \
        "$scratch/times-before" "$scratch/times-after"
}

# One untimed run of CMD... under strace: every program it executes, counted
# by name, into $processes ("ports label program count"), and how often it
# opens the adapter listing and the attribute caches, into $opens.
trace_run() {
    local ports=$1 label=$2 logs=$scratch/strace
    shift 2
    command -v strace >/dev/null || return 0
    rm -rf "$logs" && mkdir -p "$logs"
    # One file per process, so no call is split by another process's output.
    strace -ff -qq -e trace=execve,openat -e signal=none -o "$logs/trace" "$@" >/dev/null 2>&1 || true
    cat "$logs"/trace.* | grep '^execve(.* = 0$' | sed 's/^execve("//; s/".*//' | xargs -r -n1 basename |
        sort | uniq -c | while read -r count program; do
            printf '%s\t%s\t%s\t%s\n' "$ports" "$label" "$program" "$count"
        done >>"$processes"
    printf '%s\t%s\t%s\t%s\n' "$ports" "$label" \
        "$(cat "$logs"/trace.* | grep -c '^openat(.*/Listhbas.txt"' || true)" \
        "$(cat "$logs"/trace.* | grep -c '^openat(.*/HbaAttrib[^"]*.txt"' || true)" >>"$opens"
}

drop_work_area() { rm -rf "$1/tmp/EMULEX" "$1/log"; }

# Cold: a fresh work area. Warm: right after a cold run, within the hour, so
# the caches it left are used.
measure_server() {
    local ports=$1 root=$scratch/root-$1 plain_work=$scratch/plain-$1 report_out=$scratch/report-$1
    make_install_root "$root"
    mkdir -p "$report_out"
    local run
    for ((run = 1; run <= runs; run++)); do
        rm -rf "$plain_work"
        measure "$ports" plain "$run" "$bench_dir/plain_inventory.sh" "$plain_work"
        drop_work_area "$root"
        measure "$ports" inventory-cold "$run" "$qdmhost" inventory --root "$root"
        measure "$ports" inventory-warm "$run" "$qdmhost" inventory --root "$root"
        drop_work_area "$root"
        measure "$ports" report-cold "$run" "$qdmhost" report --root "$root" --out "$report_out"
        measure "$ports" report-warm "$run" "$qdmhost" report --root "$root" --out "$report_out"
        measure "$ports" start-up "$run" "$qdmhost" --version
    done
    rm -rf "$plain_work"
    trace_run "$ports" plain "$bench_dir/plain_inventory.sh" "$plain_work"
    drop_work_area "$root"
    trace_run "$ports" inventory-cold "$qdmhost" inventory --root "$root"
    trace_run "$ports" inventory-warm "$qdmhost" inventory --root "$root"
    [[ $ports -eq 1 ]] && profile_warm "$root"
    return 0
}

# The system calls of a warm one-port inventory (strace -c -f) and the shared
# objects it loads, into $scratch/startup-*.txt.
profile_warm() {
    command -v strace >/dev/null || return 0
    strace -c -f -o "$scratch/startup-syscalls.txt" "$qdmhost" inventory --root "$1" >/dev/null 2>&1 || true
    strace -f -e trace=openat -o "$scratch/startup-opens.txt" "$qdmhost" inventory --root "$1" >/dev/null 2>&1 || true
    grep -c '\.so[.0-9]*", .* = [0-9]' "$scratch/startup-opens.txt" >"$scratch/startup-libraries.txt" || true
}

# Inside the sandbox: installs each server in turn and measures it.
measure_all() {
    for ports in $port_counts; do
        echo "bench: measuring $ports ports ($runs runs)" >&2
        server_state "$ports" >"$scratch/server-$ports.json"
        "$qdmsim" install --state "$scratch/server-$ports.json" >/dev/null
        state_path=$(readlink -f "$scratch/server-$ports.json")
        measure_server "$ports"
    done
}

# ---- Machine and build --------------------------------------------------------

machine_description() {
    printf 'nproc\t%s\n' "$(nproc)"
    printf 'cpu\t%s\n' "$(lscpu | sed -n 's/^Model name:[[:space:]]*//p' | head -1)"
    printf 'memory\t%s\n' "$(free -h | awk '/^Mem:/ {print $2}')"
    printf 'kernel\t%s\n' "$(uname -srm)"
    printf 'compiler\t%s\n' "$(c++ --version | head -1)"
    printf 'date\t%s\n' "$(date -u '+%Y-%m-%d %H:%M UTC')"
    printf 'load\t%s\n' "$(cut -d ' ' -f1-3 /proc/loadavg)"
}

build() {
    cmake -S "$source_dir" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DQDM_BENCH=ON -DQDM_TESTS=OFF -DQDM_SANITIZE=OFF >/dev/null
    ninja -C "$build_dir" qdm_bench qdmhost qdmsim qdmp_EMULEX_FC >/dev/null
}

run_micro() {
    "$build_dir/bench/qdm_bench" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
        --benchmark_min_time=0.2 --benchmark_format=json --benchmark_out="$scratch/micro.json" \
        --benchmark_out_format=json >/dev/null
}

# ---- Main ---------------------------------------------------------------------

inner=0
while [[ $# -gt 0 ]]; do
    case $1 in
        --runs) runs=${2:?}; shift 2 ;;
        --ports) port_counts=${2:?}; shift 2 ;;
        --build) build_dir=${2:?}; shift 2 ;;
        --no-micro) micro=0; shift ;;
        --inner) inner=1; scratch=${2:?}; shift 2 ;;
        *) usage ;;
    esac
done
[[ $runs =~ ^[1-9][0-9]*$ ]] || usage

qdmsim=$build_dir/sim/qdmsim
qdmhost=$build_dir/qdmhost/qdmhost

if [[ $inner -eq 1 ]]; then
    [[ ${QDM_SANDBOX:-} == 1 ]] || { echo "bench: --inner runs only inside sandbox/run" >&2; exit 2; }
    export PATH=/opt/qdmsim/bin:$PATH
    results=$scratch/inventory.tsv
    processes=$scratch/processes.tsv
    opens=$scratch/opens.tsv
    : >"$results"
    : >"$processes"
    : >"$opens"
    measure_all
    exit 0
fi

scratch=$(mktemp -d /tmp/qdmbench-run.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
echo "bench: building Release in $build_dir" >&2
build
machine_description >"$scratch/machine.tsv"
if [[ $micro -eq 1 ]]; then
    echo "bench: micro-benchmarks" >&2
    run_micro
fi
"$source_dir/sandbox/run" "${BASH_SOURCE[0]}" --inner "$scratch" --runs "$runs" --ports "$port_counts" \
    --build "$build_dir"
/usr/bin/python3 "$bench_dir/summarize.py" --scratch "$scratch" --runs "$runs" --out "$bench_dir/RESULTS.md"
