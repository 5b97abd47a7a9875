# shellcheck shell=bash
# Sourced by demo.sh and memcheck.sh, inside the sandbox: the demo server and
# its update repository.

# The provider's standard install root; the sandbox makes /opt private.
demo_root=/opt/velmora/qdm/provider

# Installs the simulator as the demo server (three Emulex FC adapters, five
# ports) with its state in WORK, and prepares the install root.
#   demo_install_server QDMSIM WORK
demo_install_server() {
    local qdmsim=$1 work=$2
    cp sim/demo/server.json "$work/state.json"   # the tools write to the state: use a copy
    export QDMSIM_STATE=$work/state.json
    "$qdmsim" install --state "$work/state.json"
    export PATH=/opt/qdmsim/bin:$PATH
    mkdir -p "$demo_root/qdmhost"
    cp sim/data/FcVCFac.ini sim/data/CnaVCFac.ini "$demo_root/"
    cp qdmhost/devices.json "$demo_root/qdmhost/"
}

# Builds the update repository in REPO: new firmware for the 8G single-port
# and 16G adapters, a new driver and utility.
#   demo_build_repository QDMSIM REPO
demo_build_repository() {
    local qdmsim=$1 repo=$2
    mkdir -p "$repo"
    "$qdmsim" build-firmware --out "$repo/fw-8g.zip" --name fcelx_8g1p --firmware 2.02a5 --bootbios 5.12a3 --message
    "$qdmsim" build-firmware --out "$repo/fw-16g.zip" --name fcelx_16g --firmware 11.4.204.8 --message
    "$qdmsim" build-driver --out "$repo/lpfc.zip" --version 11.4.204.8
    "$qdmsim" build-utility --out "$repo/ocm.zip" --version 11.4.204.8
    local all='"fcelx_8g1p", "fcelx_8g2p_10df_f100_10df_f100", "fcelx_16g"'
    cat > "$repo/catalogue.json" <<JSON
{"packages": [
  {"uniqueNames": ["fcelx_8g1p", "fcelx_8g2p_10df_f100_10df_f100"], "kind": "firm", "version": "2.02a5", "archive": "fw-8g.zip"},
  {"uniqueNames": ["fcelx_16g"], "kind": "firm", "version": "11.4.204.8", "archive": "fw-16g.zip"},
  {"uniqueNames": [$all], "kind": "driver", "version": "11.4.204.8", "archive": "lpfc.zip"},
  {"uniqueNames": [$all], "kind": "util", "version": "11.4.204.8", "archive": "ocm.zip"}
]}
JSON
}
