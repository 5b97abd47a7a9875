#!/usr/bin/env bash
# Builds qdmhost's package and prints its path on the last line of standard
# output; everything else goes to standard error:
#   deb=$(scripts/package.sh | tail -1)        Debian package, CPack, in build-package/
#   rpm=$(scripts/package.sh --rpm | tail -1)  RPM package: rpmbuild -ba on packaging/rpm/qdmhost.spec
#                                              with a source tarball of HEAD, in build-package/rpmbuild/
# Both are built RelWithDebInfo without tests, installed under /usr, stripped,
# with the distribution's hardening flags.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh >&2
source scripts/build-flags.sh
build=build-package

# The only file matching PATTERN, else fails.
only_package() {
    local found=($1)
    [[ ${#found[@]} -eq 1 && -f ${found[0]} ]] || { echo "package: no single $1" >&2; exit 1; }
    echo "${found[0]}"
}

deb() {
    local flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr -DQDM_TESTS=OFF -DQDM_BENCH=OFF "${hardening_flags[@]}")
    command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
    cmake -S . -B "$build" -G Ninja "${flags[@]}" >&2
    cmake --build "$build" -j"$(nproc)" >&2
    rm -f "$build"/qdmhost_*.deb
    cpack --config "$build/CPackConfig.cmake" -B "$build" >&2
    only_package "$PWD/$build/qdmhost_*.deb"
}

# The tarball holds what git tracks at HEAD: uncommitted changes are not packed.
# rpm's database here knows no build dependency: setup-deps.sh installed them.
rpm() {
    local top=$PWD/$build/rpmbuild version
    version=$(rpmspec -q --srpm --qf '%{VERSION}' packaging/rpm/qdmhost.spec)
    rm -rf "$top" && mkdir -p "$top/SOURCES"
    git archive --format=tar.gz --prefix="qdmhost-$version/" -o "$top/SOURCES/qdmhost-$version.tar.gz" HEAD
    rpmbuild -ba --nodeps --define "_topdir $top" packaging/rpm/qdmhost.spec >&2
    only_package "$top/RPMS/*/qdmhost-$version-*.rpm"
}

case "${1:---deb}" in
    --deb) deb ;;
    --rpm) rpm ;;
    *) echo "usage: scripts/package.sh [--deb|--rpm]" >&2; exit 2 ;;
esac
