#!/usr/bin/env bash
# The Debian package end to end: lintian reports no error; inside a sandbox
# that also overlays /usr and /var, dpkg installs it, the installed qdmhost
# inventories the simulated server by its default paths alone, and
# dpkg --purge leaves no file of the package and none of qdmhost's runtime
# files behind, only the operator's repository.
# The package is made from the build tree under test.
#   install_test.sh SOURCE_DIR BINARY_DIR QDMSIM VERSION
set -euo pipefail
source "$(dirname "$0")/../tools.sh"
need dpkg-deb lintian cpack systemd-analyze

fail() { echo "install test: $*" >&2; exit 1; }
readonly root=/opt/velmora/qdm/provider textfile=/var/lib/prometheus/node-exporter/qdmhost.prom

# The package's paths that exist now, one a line.
existing_paths() {
    dpkg-deb --fsys-tarfile "$deb" | tar -t | sed 's|^\./|/|; s|/$||' | while read -r path; do
        [[ -z $path || ! -e $path ]] || echo "$path"
    done
}

# Installs the package, inventories the simulated server with its tools only
# (the package brings the supported-device lists and table), adds runtime files
# of each kind purge must remove and a repository it must keep, then purges.
inside() {
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    local before after
    before=$(existing_paths)
    dpkg -i "$deb" >"$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log" >&2; grep -q 'dependency problems' "$work/dpkg.log" &&
        fail "dependencies missing: run scripts/setup-deps.sh (this test does not use apt)"; fail "dpkg -i failed"; }
    [[ $(/usr/sbin/qdmhost --version) == "qdmhost $version "* ]] ||
        fail "no /usr/sbin/qdmhost $version (is the build's install prefix /usr?)"
    systemd-analyze verify --man=no /lib/systemd/system/qdmhost-metrics.{service,timer} || fail "systemd units do not verify"

    cp "$source_dir/sim/demo/server.json" "$work/state.json"
    export QDMSIM_STATE=$work/state.json PATH=/opt/qdmsim/bin:$PATH
    "$qdmsim" install --state "$work/state.json" >/dev/null
    /usr/sbin/qdmhost --json inventory >"$work/inventory.json" || fail "inventory failed: $(cat "$work/inventory.json")"
    for wwpn in $(grep -o '"wwpn": "[^"]*"' "$work/state.json" | cut -d'"' -f4 | tr -d : | tr a-f A-F); do
        grep -q "\"$wwpn\"" "$work/inventory.json" || fail "inventory misses port $wwpn"
    done

    minisign -G -W -p "$work/key.pub" -s "$work/key.key" </dev/null >/dev/null
    /usr/sbin/qdmhost trust add "$work/key.pub" >/dev/null
    mkdir -p "$root/repository" "${textfile%/*}"
    echo '{}' >"$root/repository/catalogue.json"
    echo 'qdmhost_up 1' >"$textfile"
    [[ -d $root/tmp && -d $root/log && -d $root/qdmhost/trusted-keys ]] || fail "no runtime files to purge"
    dpkg --purge qdmhost >/dev/null || fail "dpkg --purge failed"
    # The root and its parents stay for the repository.
    after=$(existing_paths | grep -vxE '/opt/velmora(/qdm(/provider)?)?')
    [[ $before == "$after" ]] || fail "left after purge: $(comm -13 <(echo "$before") <(echo "$after"))"
    [[ ! -e $textfile ]] || fail "purge left $textfile"
    [[ $(cd "$root" && find . | sort | xargs) == ". ./repository ./repository/catalogue.json" ]] ||
        fail "purge did not leave just the repository in $root: $(find "$root")"
}

source_dir=$1 binary_dir=$2 qdmsim=$3 version=$4
[[ ${5:-} != --inside ]] || { deb=$6; inside; exit 0; }
packages=$(mktemp -d)
trap 'rm -rf "$packages"' EXIT
cpack --config "$binary_dir/CPackConfig.cmake" -B "$packages" >"$packages/cpack.log" ||
    { cat "$packages/cpack.log" >&2; fail "cpack failed"; }
deb=$(echo "$packages"/qdmhost_*.deb)
lintian --fail-on error "$deb" || fail "lintian reports errors"
"$source_dir/sandbox/run" --with /usr --with /var -- "$0" "$@" --inside "$deb"
