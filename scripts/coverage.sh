#!/usr/bin/env bash
# Builds with gcov instrumentation, runs the suite and prints the line and
# branch coverage of provider/ and host/.
#
#   scripts/coverage.sh [--build DIR] [--tests REGEX]
#
# --build DIR     build folder (default build-coverage/)
# --tests REGEX   run only the CTest tests whose names match (default: all)
#
# Branches that only exist for exception unwinding or that the compiler proves
# unreachable are left out: they are not decisions of the code.
set -euo pipefail
cd "$(dirname "$0")/.."
build="build-coverage"
tests=()
while [[ $# -gt 0 ]]; do
    case $1 in
        --build) build=$2; shift 2 ;;
        --tests) tests=(-R "$2"); shift 2 ;;
        -h|--help) sed -n '2,11p' "$0"; exit 0 ;;
        *) echo "coverage: unknown option $1" >&2; exit 2 ;;
    esac
done
scripts/setup-deps.sh

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQDM_BENCH=OFF "${launcher[@]}" \
    -DCMAKE_CXX_FLAGS=--coverage -DCMAKE_C_FLAGS=--coverage \
    -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage >/dev/null
cmake --build "$build" -j"$(nproc)"
find "$build" -name '*.gcda' -delete
# The package and fleet tests install the product and measure the packaging
# and the collection, not provider/ or host/.
ctest --test-dir "$build" -j"$(nproc)" --output-on-failure -E '^(package_install|fleet_)' "${tests[@]}" >"$build/coverage-ctest.log" 2>&1 ||
    { tail -n 40 "$build/coverage-ctest.log"; echo "coverage: the suite failed" >&2; exit 1; }

scratch=$(mktemp)
trap 'rm -f "$scratch" "$scratch.log"' EXIT
summary=()
for dir in provider host; do
    report=$(gcovr --root . --object-directory "$build" --filter "$dir/" \
        --exclude-throw-branches --exclude-unreachable-branches --exclude-directories '.*/CMakeFiles/[0-9.]+' \
        --print-summary --output "$scratch" 2>>"$scratch.log")
    lines=$(sed -n 's/^lines: \([0-9.]*\)%.*/\1/p' <<<"$report")
    branches=$(sed -n 's/^branches: \([0-9.]*\)%.*/\1/p' <<<"$report")
    printf '%-9s lines %5s %%  branches %5s %%\n' "$dir/" "$lines" "$branches"
    summary+=("$dir lines $lines% branches $branches%")
done
echo "coverage: ${summary[0]}; ${summary[1]}"
