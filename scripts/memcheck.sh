#!/usr/bin/env bash
# Leak check: one demo cycle (inventory, update, report) on the simulated
# server inside the sandbox, with qdmhost under valgrind memcheck and virtual
# time. Fails when a run shows definitely lost blocks or memory errors, or
# does not complete. Child processes (shell, simulator) are not traced.
#   scripts/memcheck.sh [--build DIR]      (default build-leaks/)
# The valgrind logs stay in DIR/memcheck/.
set -euo pipefail
cd "$(dirname "$0")/.."

if [[ "${1:-}" != "--inside" ]]; then
    build="build-leaks"
    while [[ $# -gt 0 ]]; do
        case "$1" in
            --build) build=${2:?"--build needs a folder"}; shift 2 ;;
            *) echo "usage: scripts/memcheck.sh [--build DIR]" >&2; exit 2 ;;
        esac
    done
    scripts/setup-deps.sh
    # valgrind cannot run sanitized binaries.
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQDM_SANITIZE=OFF -DQDM_BENCH=OFF >/dev/null
    cmake --build "$build" --target qdmhost qdmsim qdmp_EMULEX_FC
    exec sandbox/run "$PWD/scripts/memcheck.sh" --inside "$(cd "$build" && pwd)"
fi

build=$2
qdmhost=$build/qdmhost/qdmhost
qdmsim=$build/sim/qdmsim
logs=$build/memcheck
# Distinct from every qdmhost exit code.
readonly VALGRIND_ERRORS=99
source scripts/demo-server.sh
work=$(mktemp -d /tmp/qdmmemcheck.XXXXXX)
trap 'rm -rf "$work"' EXIT
mkdir -p "$logs"
rm -f "$logs"/*

demo_install_server "$qdmsim" "$work" >/dev/null
repo=$work/repository
demo_build_repository "$qdmsim" "$repo" >/dev/null
demo_publisher_key "$qdmhost" "$work/keys" >/dev/null
demo_sign_repository "$work/keys" "$repo" >/dev/null

# shellcheck disable=SC2054  # the commas separate valgrind's leak kinds
valgrind_options=(
    --tool=memcheck --leak-check=full --show-leak-kinds=definite,indirect,possible
    --errors-for-leak-kinds=definite --error-exitcode="$VALGRIND_ERRORS"
    --trace-children=no --child-silent-after-fork=yes
    # The provider is unloaded before the leak search; keep its symbols for the stacks.
    --keep-debuginfo=yes --num-callers=40
)
# valgrind 3.19 warns of pidfd_open (syscall 434) as unhandled; the host then
# waits for its children with short pauses instead. Harmless.

# "<bytes> B in <blocks> blocks" of a leak kind; zero when valgrind found no leak at all.
lost() {
    local kind=$1 log=$2
    grep -m1 "$kind lost:" "$log" | sed -E 's/.*lost: ([0-9,]+) bytes in ([0-9,]+) blocks.*/\1 B in \2 blocks/; s/,//g' ||
        echo "0 B in 0 blocks"
}

errors() { grep -m1 'ERROR SUMMARY:' "$1" | sed -E 's/.*SUMMARY: ([0-9,]+) errors.*/\1/; s/,//g'; }

failed=0
# memcheck NAME QDMHOST-ARGS...: one qdmhost run under valgrind.
memcheck() {
    local name=$1; shift
    local log=$logs/$name.log status
    set +e
    QDMHOST_VIRTUAL_TIME=1 valgrind "${valgrind_options[@]}" --log-file="$log" \
        "$qdmhost" --repo "$repo" "$@" >"$logs/$name.out" 2>&1
    status=$?
    set -e
    if ! grep -q 'ERROR SUMMARY:' "$log"; then
        printf '%-10s valgrind did not finish (exit %d), see %s\n' "$name" "$status" "$log"
        failed=1
        return
    fi
    local definite error_count exit_from=qdmhost
    definite=$(lost definitely "$log")
    error_count=$(errors "$log")
    [[ $status -eq $VALGRIND_ERRORS ]] && exit_from=valgrind
    printf '%-10s definitely lost %s, indirectly lost %s, possibly lost %s, errors %s; exit %d (%s)\n' \
        "$name" "$definite" "$(lost indirectly "$log")" "$(lost possibly "$log")" "$error_count" "$status" "$exit_from"
    if [[ $exit_from == valgrind || $error_count != 0 || $definite != "0 B in 0 blocks" ]]; then
        echo "           memory errors or definite leaks: see $log" >&2
        failed=1
    elif [[ $status -ne 0 ]]; then
        echo "           the cycle did not complete: see $logs/$name.out" >&2
        failed=1
    fi
}

memcheck inventory inventory
memcheck update update
memcheck report report --out "$work/report"
exit "$failed"
