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
# The provider's standard install root; the sandbox makes /opt private.
root=/opt/velmora/qdm/provider
work=$(mktemp -d /tmp/qdmdemo.XXXXXX)
trap 'rm -rf "$work"' EXIT

heading() { printf '\n\033[1m==== %s ====\033[0m\n\n' "$*"; }
run() { printf '$ %s\n' "$*"; "$@"; }

heading "1. A simulated server: three Emulex FC adapters (8G single-port, 8G dual-port, 16G dual-port)"
cp sim/demo/server.json "$work/state.json"   # the tools write to the state: use a copy
export QDMSIM_STATE=$work/state.json
"$qdmsim" install --state "$work/state.json"
export PATH=/opt/qdmsim/bin:$PATH
mkdir -p "$root/qdmhost"
cp sim/data/FcVCFac.ini sim/data/CnaVCFac.ini "$root/"
cp qdmhost/devices.json "$root/qdmhost/"
run lspci -Dnm

heading "2. An update repository: new firmware for the 8G single-port and 16G adapters, a new driver and utility"
repo=$work/repository
mkdir -p "$repo"
"$qdmsim" build-firmware --out "$repo/fw-8g.zip" --name fcelx_8g1p --firmware 2.02a5 --bootbios 5.12a3 --message
"$qdmsim" build-firmware --out "$repo/fw-16g.zip" --name fcelx_16g --firmware 11.4.204.8 --message
"$qdmsim" build-driver --out "$repo/lpfc.zip" --version 11.4.204.8
"$qdmsim" build-utility --out "$repo/ocm.zip" --version 11.4.204.8
all='"fcelx_8g1p", "fcelx_8g2p_10df_f100_10df_f100", "fcelx_16g"'
cat > "$repo/catalogue.json" <<JSON
{"packages": [
  {"uniqueNames": ["fcelx_8g1p", "fcelx_8g2p_10df_f100_10df_f100"], "kind": "firm", "version": "2.02a5", "archive": "fw-8g.zip"},
  {"uniqueNames": ["fcelx_16g"], "kind": "firm", "version": "11.4.204.8", "archive": "fw-16g.zip"},
  {"uniqueNames": [$all], "kind": "driver", "version": "11.4.204.8", "archive": "lpfc.zip"},
  {"uniqueNames": [$all], "kind": "util", "version": "11.4.204.8", "archive": "ocm.zip"}
]}
JSON
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
