#!/usr/bin/env bash
# One-command demo: builds everything, then inside the sandbox installs the
# adapter simulator as a demo server (three Emulex FC adapters, five ports),
# builds an update repository and runs qdmhost against it in real time:
# inventory, update, inventory again, configuration report.
#   scripts/demo.sh
set -euo pipefail
cd "$(dirname "$0")/.."

if [[ "${1:-}" != "--inside" ]]; then
    scripts/setup-deps.sh
    cmake -S . -B build -G Ninja -DQDM_BENCH=OFF >/dev/null
    cmake --build build
    exec sandbox/run "$PWD/scripts/demo.sh" --inside "$PWD/build"
fi

build=$2
qdmhost=$build/qdmhost/qdmhost
qdmsim=$build/sim/qdmsim
source scripts/demo-server.sh
work=$(mktemp -d /tmp/qdmdemo.XXXXXX)
trap 'rm -rf "$work"' EXIT

heading() { printf '\n\033[1m==== %s ====\033[0m\n\n' "$*"; }
run() { printf '$ %s\n' "$*"; "$@"; }

heading "1. A simulated server: three Emulex FC adapters (8G single-port, 8G dual-port, 16G dual-port)"
demo_install_server "$qdmsim" "$work"
run lspci -Dnm

heading "2. An update repository: new firmware for the 8G single-port and 16G adapters, a new driver and utility"
repo=$work/repository
demo_build_repository "$qdmsim" "$repo"
run cat "$repo/catalogue.json"

heading "3. Inventory: what is installed, what the repository offers"
run "$qdmhost" --repo "$repo" inventory

heading "4. Update plan (dry run)"
run "$qdmhost" --repo "$repo" update --dry-run

heading "5. Update (real time: the utility's result polls wait 30 s each, as on a real server)"
set +e
"$qdmhost" --repo "$repo" update
status=$?
set -e
echo "qdmhost update exit code: $status"

heading "6. Inventory again: everything current"
run "$qdmhost" --repo "$repo" inventory

heading "7. Update history"
run "$qdmhost" history

heading "8. Device configuration report"
run "$qdmhost" report --out "$work/report"
run cat "$work/report/Emulex_FcConfigInfo.xml"
exit "$status"
