#!/usr/bin/env bash
# A package made from the build tree under test, end to end. Its linter
# reports no error (nor, for the .deb, a missing hardening flag). Inside a
# sandbox that also overlays /usr and /var, it installs without enabling the
# timer; the installed qdmhost inventories the simulated server by its default
# paths alone; removing the package disables the timer the administrator
# enabled and leaves no file of the package behind.
#   deb: an upgrade from an older version keeps the edited conffiles; purge
#        removes qdmhost's runtime files, not the operator's repository.
#   rpm: rpm -qpR names every library that the binaries need, and the package
#        installs the .deb's files, paths mapped between the two families.
#   install_test.sh SOURCE_DIR BINARY_DIR QDMSIM VERSION deb|rpm
set -euo pipefail
source "$(dirname "$0")/../tools.sh"
need cpack systemd-analyze

fail() { echo "install test ($format): $*" >&2; exit 1; }
readonly root=/opt/velmora/qdm/provider textfile=/var/lib/prometheus/node-exporter/qdmhost.prom
readonly timer_link=/etc/systemd/system/timers.target.wants/qdmhost-metrics.timer
# rpm's own, not the simulator's; its database lives below root's home, which
# the sandbox does not overlay.
readonly rpm=(/usr/bin/rpm --dbpath /var/lib/rpm)

# "MODE PATH" per file and folder of the package.
packed_deb() {
    dpkg-deb -c "$1" | awk '{ sub(/^\./, "", $6); sub(/\/$/, "", $6); print $1, $6 }' | grep -v ' $'
}
packed_rpm() { rpm -qp --qf '[%{FILEMODES:perms} %{FILENAMES}\n]' "$1"; }
# Entries of the RPM package with their paths as the .deb has them.
as_deb_paths() {
    sed -E -e 's#/usr/lib64/#/usr/lib/x86_64-linux-gnu/#; s#/usr/lib/systemd/#/lib/systemd/#' \
        -e 's#/usr/share/licenses/qdmhost(-[^/]*)?/#/usr/share/doc/qdmhost/#'
}
# Whatever the families have in common: the files' paths (each family has its
# modes for libraries), the folders below /opt with their modes.
common_entries() {
    awk '$1 ~ /^-/ { print $2 } $1 ~ /^d/ && $2 ~ /^\/opt\// { print }' | grep -vE '/changelog.gz$|/lintian/' | sort
}

# The package's paths that exist now, one a line, without the root and its
# parents, which stay for the repository.
existing_paths() {
    "packed_$format" "$package" | cut -d' ' -f2 | while read -r path; do
        [[ ! -e $path ]] || echo "$path"
    done | grep -vxE '/opt/velmora(/qdm(/provider)?)?' || true
}

# Runs the installed qdmhost against the simulated server with its tools only
# (the package brings the supported-device lists and table).
inventory() {
    [[ $(/usr/sbin/qdmhost --version) == "qdmhost $version "* ]] ||
        fail "no /usr/sbin/qdmhost $version (is the build's install prefix /usr?)"
    systemd-analyze verify --man=no "$1"/qdmhost-metrics.{service,timer} || fail "systemd units do not verify"
    cp "$source_dir/sim/demo/server.json" "$work/state.json"
    export QDMSIM_STATE=$work/state.json PATH=/opt/qdmsim/bin:$PATH
    "$qdmsim" install --state "$work/state.json" >/dev/null
    /usr/sbin/qdmhost --json inventory >"$work/inventory.json" || fail "inventory failed: $(cat "$work/inventory.json")"
    for wwpn in $(grep -o '"wwpn": "[^"]*"' "$work/state.json" | cut -d'"' -f4 | tr -d : | tr a-f A-F); do
        grep -q "\"$wwpn\"" "$work/inventory.json" || fail "inventory misses port $wwpn"
    done
}

# Removes the package with REMOVE... after the administrator enabled its timer.
remove_enabled() {
    [[ ! -e $timer_link ]] || fail "installing enabled the timer"
    systemctl enable qdmhost-metrics.timer 2>/dev/null && [[ -L $timer_link ]] || fail "cannot enable the timer"
    "$@" >/dev/null || fail "$* failed"
    [[ ! -L $timer_link ]] || fail "$* left the timer enabled"
}

inside_deb() {
    local conffiles=("$root/qdmhost/devices.json" "$root/qdmhost/qdmhost.conf") edited
    dpkg -i "$old_deb" >/dev/null || fail "dpkg -i of the older package failed"
    sed -i '1s/^/ /' "${conffiles[0]}" && echo '# edited' >>"${conffiles[1]}"
    edited=$(md5sum "${conffiles[@]}")
    dpkg -i "$package" >"$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log" >&2; grep -q 'dependency problems' "$work/dpkg.log" &&
        fail "dependencies missing: run scripts/setup-deps.sh (this test does not use apt)"; fail "dpkg -i failed"; }
    [[ $(md5sum "${conffiles[@]}") == "$edited" ]] || fail "the upgrade replaced the edited conffiles"
    inventory /lib/systemd/system

    minisign -G -W -p "$work/key.pub" -s "$work/key.key" </dev/null >/dev/null
    /usr/sbin/qdmhost trust add "$work/key.pub" >/dev/null
    mkdir -p "$root/repository" "${textfile%/*}"
    echo '{}' >"$root/repository/catalogue.json"
    echo 'qdmhost_up 1' >"$textfile"
    [[ -d $root/tmp && -d $root/log && -d $root/qdmhost/trusted-keys ]] || fail "no runtime files to purge"
    remove_enabled dpkg --remove qdmhost
    [[ ! -e $textfile ]] || fail "remove left $textfile"
    dpkg --purge qdmhost >/dev/null || fail "dpkg --purge failed"
    [[ $(cd "$root" && find . | sort | xargs) == ". ./repository ./repository/catalogue.json" ]] ||
        fail "purge did not leave just the repository in $root: $(find "$root")"
}

inside_rpm() {
    # The RPM distributions' preset policy: a unit that no preset names stays disabled.
    mkdir -p /etc/systemd/system-preset && echo 'disable *' >/etc/systemd/system-preset/99-default-disable.preset
    "${rpm[@]}" -i --nodeps "$package" || fail "rpm -i failed"
    inventory /usr/lib/systemd/system
    remove_enabled "${rpm[@]}" -e qdmhost
}

# Installs, uses and removes the package; checks that no file of it is left.
inside() {
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    local before after
    before=$(existing_paths)
    "inside_$format"
    after=$(existing_paths)
    [[ $before == "$after" ]] || fail "left after removal: $(comm -13 <(echo "$before") <(echo "$after"))"
}

# Packs the build tree as the .deb of VERSION into FOLDER; prints its path.
cpack_deb() {
    cpack --config "$binary_dir/CPackConfig.cmake" -B "$2" -R "$1" >"$packages/cpack.log" || fail "$(cat "$packages/cpack.log")"
    echo "$2"/qdmhost_"$1"_*.deb
}

pack_deb() {
    package=$(cpack_deb "$version" "$packages")
    old_deb=$(cpack_deb 0.9.0 "$packages/old")
    lintian --fail-on error --display-info "$package" | tee "$packages/lintian.log" || fail "lintian reports errors"
    ! grep -q hardening- "$packages/lintian.log" || fail "lintian finds binaries built without hardening flags"
}

# Built in place into BINARY_DIR-rpm: beside the build tree under test and
# with its flags, so that ccache has the objects, and a second run rebuilds
# only what changed.
pack_rpm() {
    local top=$binary_dir-rpm/rpmbuild
    command -v ccache >/dev/null && export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
    (cd "$source_dir" && source scripts/build-flags.sh &&
        rpmbuild -bb --build-in-place --nodeps --define "_topdir $top" --define "_vpath_builddir $binary_dir-rpm" \
            packaging/rpm/qdmhost.spec) >"$packages/rpmbuild.log" 2>&1 ||
        { tail -30 "$packages/rpmbuild.log" >&2; fail "rpmbuild failed"; }
    package=$(echo "$top"/RPMS/*/qdmhost-"$version"-*.rpm)
    rpmlint -c "$source_dir/packaging/rpm/rpmlint.toml" "$source_dir/packaging/rpm/qdmhost.spec" "$package" ||
        fail "rpmlint reports errors"
    rpm2cpio "$package" | (cd "$packages" && cpio -idm --quiet)
    local needed=$(find "$packages" -type f -exec sh -c 'objdump -p "$1" 2>/dev/null' _ {} \; |
        awk '$1 == "NEEDED" && $2 !~ /^libqdm_/ { print $2 "()(64bit)" }' | sort -u)
    [[ -n $needed ]] && comm -23 <(echo "$needed") <(rpm -qpR "$package" | sort) | (! grep .) ||
        fail "rpm -qpR misses libraries that the binaries need"
    diff <(packed_deb "$(cpack_deb "$version" "$packages")" | common_entries) <(packed_rpm "$package" | as_deb_paths | common_entries) ||
        fail "the .deb and the .rpm install different files"
}

source_dir=$1 binary_dir=$2 qdmsim=$3 version=$4 format=$5
[[ ${6:-} != --inside ]] || { package=$7 old_deb=${8:-}; inside; exit 0; }
case $format in
    deb) need dpkg-deb lintian ;;
    rpm) need rpmbuild /usr/bin/rpm rpmlint rpm2cpio cpio objdump dpkg-deb ;;
esac
packages=$(mktemp -d)
trap 'rm -rf "$packages"' EXIT
"pack_$format"
"$source_dir/sandbox/run" --with /usr --with /var -- "$0" "$@" --inside "$package" ${old_deb:-}
