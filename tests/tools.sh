#!/usr/bin/env bash
# The programs that the tests, demos and benchmarks run, each with the Debian
# package that brings it. Sourced, `need PROGRAM...` ends a test with a clear
# failure, naming the package, when a program is missing. Run alone, it checks
# every row: the program is there, comes from that package (not from a hand
# install), and scripts/setup-deps.sh installs the package.
#   tests/tools.sh
declare -A tool_package=(
    [unshare]=util-linux [setpriv]=util-linux [mount]=mount [/usr/bin/python3]=python3-minimal
    [chromium]=chromium [promtool]=prometheus [prometheus-node-exporter]=prometheus-node-exporter
    [/usr/sbin/sshd]=openssh-server [ssh]=openssh-client [ssh-keygen]=openssh-client
    [ansible]=ansible-core [ansible-playbook]=ansible-core [ansible-doc]=ansible-core
    [ansible-lint]=ansible-lint [yamllint]=yamllint [minisign]=minisign
    [dpkg-deb]=dpkg [dpkg-query]=dpkg [dpkg-buildflags]=dpkg-dev [lintian]=lintian [help2man]=help2man
    [jq]=jq [curl]=curl [valgrind]=valgrind [gcovr]=gcovr [clang]=clang [systemd-analyze]=systemd
    [rpmbuild]=rpm [/usr/bin/rpm]=rpm [rpmlint]=rpmlint [rpm2cpio]=rpm2cpio [cpio]=cpio [objdump]=binutils
    [file]=file [cmake]=cmake [ctest]=cmake [cpack]=cmake [ninja]=ninja-build [sha256sum]=coreutils
)

need() {
    local program
    for program; do
        command -v "$program" >/dev/null && continue
        echo "${0##*/}: $program is missing: install the Debian package ${tool_package[$program]:-?} (scripts/setup-deps.sh does)" >&2
        exit 1
    done
}

# The package that installed PROGRAM's file, by its path or, on a merged /usr,
# by the path below / that the package registered.
package_of() {
    local path
    path=$(command -v "$1") || return 1
    { dpkg-query -S "$path" 2>/dev/null || dpkg-query -S "/${path#/usr/}" 2>/dev/null; } | head -1 | cut -d: -f1
}

check_all() {
    local repo program failures=0 from
    repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
    for program in $(printf '%s\n' "${!tool_package[@]}" | sort); do
        local package=${tool_package[$program]}
        grep -qE "(^|[[:space:]])$package([[:space:]]|$)" "$repo/scripts/setup-deps.sh" ||
            { echo "FAILED: $program: scripts/setup-deps.sh does not install $package"; failures=$((failures + 1)); continue; }
        from=$(package_of "$program") ||
            { echo "FAILED: $program is missing: install the Debian package $package"; failures=$((failures + 1)); continue; }
        [[ $from == "$package" ]] ||
            { echo "FAILED: $program comes from ${from:-no package} (command -v: $(command -v "$program")), not $package"; failures=$((failures + 1)); continue; }
        echo "ok: $program from $package"
    done
    return $((failures > 0))
}

if [[ "${BASH_SOURCE[0]}" == "$0" ]]; then
    set -euo pipefail
    check_all
fi
