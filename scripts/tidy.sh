#!/usr/bin/env bash
# clang-tidy over the sources named, or over all of src/, with the compile commands of the debug build.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${TARNO_BUILD:-build/linux-debug}
if [ "$#" -gt 0 ]; then
    files=("$@")
else
    mapfile -t files < <(git ls-files 'src/*.cpp')
fi
printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 4 clang-tidy --quiet -p "$build"
echo "tidy: ${#files[@]} files are clean"
