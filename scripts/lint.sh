#!/usr/bin/env bash
# The linters: shellcheck on every shell script, clang-tidy's bug-finding
# checks (.clang-tidy) on the C++ sources of a configured build, and
# clang-format's verdict on the folders it has been applied to.
#   scripts/lint.sh [--build DIR] [FILE...]   FILEs: only these (pre-commit); default: the whole tree
set -euo pipefail
cd "$(dirname "$0")/.."
build=build
if [[ ${1:-} == --build ]]; then
    build=$2
    shift 2
fi
# The folders already in .clang-format's layout; the others follow when their branches have landed.
formatted=(qdmhost)

files=("$@")
[[ ${#files[@]} -gt 0 ]] || mapfile -t files < <(git ls-files)
shells=() sources=() layout=()
for file in "${files[@]}"; do
    [[ -f $file ]] || continue
    case $file in
        *.sh) shells+=("$file") ;;
        *.cpp) sources+=("$file") ;;
        *) head -c 64 "$file" | grep -qE '^#!.*(bash|/sh)( |$)' && shells+=("$file") ;;
    esac
    for folder in "${formatted[@]}"; do
        [[ $file == "$folder"/*.cpp || $file == "$folder"/*.h ]] && layout+=("$file")
    done
done

status=0
if [[ ${#shells[@]} -gt 0 ]]; then
    shellcheck -x -S warning "${shells[@]}" || status=1
fi
if [[ ${#layout[@]} -gt 0 ]]; then
    clang-format --dry-run --Werror "${layout[@]}" || status=1
fi
if [[ ${#sources[@]} -gt 0 ]]; then
    [[ -f $build/compile_commands.json ]] || { echo "lint: configure $build first (cmake -S . -B $build)" >&2; exit 2; }
    # Only sources the build compiles: fuzz targets and benchmarks need their own builds.
    mapfile -t sources < <(printf '%s\n' "${sources[@]}" | grep -F -f <(grep -o '"file": "[^"]*"' "$build/compile_commands.json" | sed 's/.*"\(.*\)"/\1/; s#^'"$PWD"'/##'))
    if [[ ${#sources[@]} -gt 0 ]]; then
        printf '%s\n' "${sources[@]}" | xargs -P2 -n8 clang-tidy -p "$build" --quiet 2>/dev/null || status=1
    fi
fi
exit "$status"
