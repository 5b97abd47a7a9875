#!/usr/bin/env bash
# One-command demo: builds everything, then inside the sandbox installs the
# adapter simulator as a demo server (three Emulex FC adapters, five ports),
# builds an update repository, signs it with a fresh publisher key that the
# server trusts, shows a tampered copy refused and runs qdmhost against the
# good one in real time: inventory, the multipath guard (an adapter refused
# while it carries a map's last healthy path, then the safe sequence, adapter
# after adapter), update, inventory again, configuration report.
#   scripts/demo.sh
set -euo pipefail
cd "$(dirname "$0")/.."

if [[ "${1:-}" != "--inside" ]]; then
    scripts/setup-deps.sh
    cmake -S . -B build -G Ninja -DQDM_BENCH=OFF >/dev/null
    cmake --build build --target qdmhost qdmsim qdmp_EMULEX_FC  # the demo needs no tests
    exec sandbox/run "$PWD/scripts/demo.sh" --inside "$PWD/build"
fi

build=$2
qdmhost=$build/qdmhost/qdmhost
qdmsim=$build/sim/qdmsim
source scripts/demo-server.sh
work=$(mktemp -d /tmp/qdmdemo.XXXXXX)
trap 'rm -rf "$work"' EXIT

heading() { printf '\n\033[1m==== %s ====\033[0m\n\n' "$*"; }
run() { demo_run "$@"; }
# Runs a command that is expected to fail and shows its exit code.
run_refused() {
    set +e
    demo_run "$@"
    echo "exit code: $?"
    set -e
}

heading "1. A simulated server: three Emulex FC adapters (8G single-port, 8G dual-port, 16G dual-port)"
demo_install_server "$qdmsim" "$work"
run lspci -Dnm

heading "2. An update repository: new firmware for the 8G single-port and 16G adapters, a new driver and utility"
repo=$work/repository
demo_build_repository "$qdmsim" "$repo"
run cat "$repo/catalogue.json"

heading "3. The publisher's key: the server trusts it, the publisher signs the catalogue"
demo_publisher_key "$qdmhost" "$work/keys"
run "$qdmhost" trust list
demo_sign_repository "$work/keys" "$repo"
run cat "$repo/catalogue.json.minisig"

heading "4. A tampered copy: the 16G firmware archive swapped for another one; refused, nothing runs"
tampered=$work/tampered
cp -r "$repo" "$tampered"
"$qdmsim" build-firmware --out "$tampered/fw-16g.zip" --name fcelx_16g --firmware 11.4.999.1
run_refused "$qdmhost" --repo "$tampered" update
run_refused "$qdmhost" --json --repo "$tampered" update --dry-run

heading "5. Inventory: what is installed, what the signed repository offers"
run "$qdmhost" --repo "$repo" inventory

heading "6. Multipath: two LUN maps, each with a path through the 8G single-port and one through the 16G adapter"
python3 -c 'import json, sys; s = json.load(open(sys.argv[1])); s.update(json.load(open(sys.argv[2]))); json.dump(s, open(sys.argv[1], "w"))' \
    "$work/state.json" sim/demo/multipath.json
"$qdmsim" install --state "$work/state.json" >/dev/null
run "$qdmhost" --repo "$repo" check

heading "7. Update plan while map mpatha has lost its path through the 16G adapter: the 8G adapter's firmware is refused (last-path)"
"$qdmsim" fault multipathd single-path
run_refused "$qdmhost" --repo "$repo" update --dry-run
"$qdmsim" fault multipathd off

heading "8. Update plan with both paths healthy: every adapter safe"
run "$qdmhost" --repo "$repo" update --dry-run

heading "9. Update (real time: the utility's result polls wait 30 s each, as on a real server; after each flash qdmhost waits for the adapter's paths before the next adapter)"
set +e
"$qdmhost" --repo "$repo" update
status=$?
set -e
echo "qdmhost update exit code: $status"
echo "The simulator's log of flashes and paths, in order:"
grep -E '^(flash|paths-)' "$work/state.json.calls"

heading "10. Inventory again: everything current"
run "$qdmhost" --repo "$repo" inventory

heading "11. Update history: which key and catalogue serial each update came from"
run "$qdmhost" history

heading "12. Device configuration report"
run "$qdmhost" report --out "$work/report"
run cat "$work/report/Emulex_FcConfigInfo.xml"
exit "$status"
