#!/usr/bin/env bash
# Builds the Debian package of qdmhost in build-package/ (RelWithDebInfo,
# without tests, stripped when packed, installed under /usr) and prints the .deb's path on
# the last line of standard output; everything else goes to standard error:
#   deb=$(scripts/package.sh | tail -1)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh >&2

build="build-package"
flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr -DQDM_TESTS=OFF -DQDM_BENCH=OFF)
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S . -B "$build" -G Ninja "${flags[@]}" >&2
cmake --build "$build" -j"$(nproc)" >&2
rm -f "$build"/qdmhost_*.deb
cpack --config "$build/CPackConfig.cmake" -B "$build" >&2
debs=("$PWD/$build"/qdmhost_*.deb)
[[ ${#debs[@]} -eq 1 && -f ${debs[0]} ]] || { echo "package: cpack made no single qdmhost_*.deb" >&2; exit 1; }
echo "${debs[0]}"
