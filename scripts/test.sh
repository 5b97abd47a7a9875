#!/usr/bin/env bash
# Builds everything and runs the whole test suite.
#   scripts/test.sh              normal build in build/
#   scripts/test.sh --sanitize   AddressSanitizer + UndefinedBehaviorSanitizer in build-asan/
# Fails when a test failed or was skipped (a skip means the sandbox was not available).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh

build=build
flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
if [[ "${1:-}" == "--sanitize" ]]; then
    build="build-asan"
    flags=(-DCMAKE_BUILD_TYPE=Debug -DQDM_SANITIZE=ON -DQDM_BENCH=OFF)
    export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
    export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
fi

command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S . -B "$build" -G Ninja "${flags[@]}" >/dev/null
cmake --build "$build" -j"$(nproc)"
log="$build/ctest.log"
set +e
ctest --test-dir "$build" --output-on-failure -j"$(nproc)" 2>&1 | tee "$log"
rc=${PIPESTATUS[0]}
set -e
if grep -qE '\(Skipped\)|Not Run' "$log"; then
    echo "test: some tests were skipped or not run; the suite must run whole" >&2
    exit 1
fi
exit "$rc"
