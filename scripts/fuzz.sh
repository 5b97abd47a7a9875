#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and the sanitizers in build-fuzz/
# and runs each for a bounded time. Fails when a target crashes, leaks, runs
# out of memory or hangs on one input.
#
#   scripts/fuzz.sh [--seconds N] [--parallel N] [TARGET...]
#
# --seconds N   time per target (default 20, the CI budget; 600 for a long run)
# --parallel N  targets run at once (default: the number of processors)
# TARGET        run only these (default: every target the build defines)
#
# New inputs go to build-fuzz/corpus/<target>/ (the seeds in fuzz/corpus/ are
# only read); a failing input is saved as build-fuzz/artifacts/<target>/crash-*
# and is replayed with: build-fuzz/fuzz/<target> <file>.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build-fuzz
seconds=20
parallel=$(nproc)
targets=()

while [[ $# -gt 0 ]]; do
    case $1 in
        --seconds) seconds=$2; shift 2 ;;
        --parallel) parallel=$2; shift 2 ;;
        -h|--help) sed -n '2,15p' "$0"; exit 0 ;;
        -*) echo "fuzz: unknown option $1" >&2; exit 2 ;;
        *) targets+=("$1"); shift ;;
    esac
done
[[ $seconds =~ ^[1-9][0-9]*$ && $parallel =~ ^[1-9][0-9]*$ ]] || { echo "fuzz: --seconds and --parallel take positive numbers" >&2; exit 2; }

CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQDM_SANITIZE=ON -DQDM_FUZZ=ON -DQDM_TESTS=OFF -DQDM_BENCH=OFF >/dev/null
ninja -C "$build" fuzzers >/dev/null
[[ ${#targets[@]} -gt 0 ]] || mapfile -t targets < "$build/fuzz_targets.txt"

# The attribute target reads the adapter tool's output too: it shares the listing dictionary.
dictionary() {
    case $1 in
        fuzz_attrib) echo "$root/fuzz/dict/listing.dict" ;;
        *) echo "$root/fuzz/dict/${1#fuzz_}.dict" ;;
    esac
}

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:symbolize=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# Runs one target; its log is build-fuzz/logs/<target>.log, its exit status
# build-fuzz/logs/<target>.status (a status reaped by "wait -n" is lost).
run_target() {
    local target=$1
    local binary=$build/fuzz/$target
    if [[ ! -x $binary ]]; then
        echo "fuzz: no target $target" >"$build/logs/$target.log"
        echo 1 >"$build/logs/$target.status"
        return
    fi
    local corpus=$build/corpus/$target artifacts=$build/artifacts/$target/ scratch=$build/scratch/$target
    # A crashed earlier run leaves its folder behind; start clean.
    rm -rf "$scratch"
    mkdir -p "$corpus" "$artifacts" "$scratch"
    local options=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048
                   -artifact_prefix="$artifacts" -print_final_stats=1)
    local dict
    dict=$(dictionary "$target")
    [[ -f $dict ]] && options+=(-dict="$dict")
    local status=0
    TMPDIR=$scratch "$binary" "${options[@]}" "$corpus" "$root/fuzz/corpus/$target" \
        >"$build/logs/$target.log" 2>&1 || status=$?
    # Each run keeps its files in a private folder that it removes at exit.
    if [[ $status -eq 0 && -n $(ls -A "$scratch") ]]; then
        echo "fuzz: $target left files in $scratch" >>"$build/logs/$target.log"
        status=1
    fi
    echo "$status" >"$build/logs/$target.status"
}

mkdir -p "$build/logs"
for target in "${targets[@]}"; do
    while [[ $(jobs -rp | wc -l) -ge $parallel ]]; do wait -n || true; done
    rm -f "$build/logs/$target.status"
    run_target "$target" &
done
wait

failed=0
printf '%-20s %8s %12s %10s  %s\n' target seconds executions exec/s result
for target in "${targets[@]}"; do
    result=ok
    [[ $(cat "$build/logs/$target.status" 2>/dev/null) == 0 ]] || { result="FAILED (see build-fuzz/logs/$target.log)"; failed=1; }
    log=$build/logs/$target.log
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
    printf '%-20s %8s %12s %10s  %s\n' "$target" "$seconds" "${runs:--}" "${speed:--}" "$result"
    [[ $result == ok ]] || grep -E '^(==[0-9]+==ERROR|SUMMARY|qdmfuzz:|Test unit written|ALARM|fuzz:)' "$log" | head -8 | sed 's/^/    /'
done
exit $failed
