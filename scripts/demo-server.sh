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
    demo_prepare_root
}

# The install root's supported-device lists and table.
demo_prepare_root() {
    mkdir -p "$demo_root/qdmhost"
    cp provider/data/FcVCFac.ini provider/data/CnaVCFac.ini "$demo_root/"
    cp qdmhost/adapters/devices.json "$demo_root/qdmhost/"
}

# Shows a command line, then runs it.
demo_run() { printf '$ %s\n' "$*"; "$@"; }

# Builds the update repository in REPO: new firmware for the 8G single-port
# and 16G adapters, a new driver and utility, and the catalogue for the
# channel "default" (the server's without qdmhost.conf) with each archive's
# size and SHA-256 (serial 1, expiring in thirty days).
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
{"channel": "default", "packages": [
  {"uniqueNames": ["fcelx_8g1p", "fcelx_8g2p_10df_f100_10df_f100"], "kind": "firm", "version": "2.02a5", "archive": "fw-8g.zip"},
  {"uniqueNames": ["fcelx_16g"], "kind": "firm", "version": "11.4.204.8", "archive": "fw-16g.zip"},
  {"uniqueNames": [$all], "kind": "driver", "version": "11.4.204.8", "archive": "lpfc.zip"},
  {"uniqueNames": [$all], "kind": "util", "version": "11.4.204.8", "archive": "ocm.zip"}
]}
JSON
    "$qdmsim" build-catalogue --repo "$repo" --serial 1
}

# The publisher's key pair in KEYS (minisign.pub, minisign.key; -W: without
# a password, for the demo only), trusted by the demo install root.
#   demo_publisher_key QDMHOST KEYS
demo_publisher_key() {
    local qdmhost=$1 keys=$2
    mkdir -p "$keys"
    demo_run minisign -G -W -p "$keys/minisign.pub" -s "$keys/minisign.key" </dev/null
    demo_run "$qdmhost" trust add "$keys/minisign.pub"
}

# Signs REPO's catalogue with the key in KEYS: catalogue.json.minisig.
#   demo_sign_repository KEYS REPO
demo_sign_repository() {
    local keys=$1 repo=$2
    demo_run minisign -S -s "$keys/minisign.key" -m "$repo/catalogue.json" </dev/null
}
