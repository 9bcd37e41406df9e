#!/usr/bin/env bash
# Formatting of every C++ file, by .clang-format. With --fix the files are rewritten.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files --cached --others --exclude-standard '*.cpp' '*.h')
if [ "${1:-}" = "--fix" ]; then
    clang-format -i "${files[@]}"
else
    clang-format --dry-run --Werror "${files[@]}"
    echo "style: ${#files[@]} files are formatted"
fi
