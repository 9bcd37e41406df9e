#!/usr/bin/env bash
# Installs what is needed, builds everything and passes all tests and checks:
#   the rules of the house, formatting, the portable code compiled for 32-bit Windows, all tests of the debug build,
#   and the same tests under the address and undefined behaviour sanitizers.
#   scripts/test.sh --quick   the debug build and its tests only
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
step() { printf '\n== %s (%s)\n' "$1" "$(date +%H:%M:%S)"; }

scripts/install.sh test

run_preset() {
    step "Build $1"
    cmake --preset "$1" >"build/$1.configure.log" 2>&1 || { cat "build/$1.configure.log"; exit 1; }
    cmake --build --preset "$1" -j "$jobs" -- --quiet
    if [ "$2" = tests ]; then
        step "Test $1"
        ctest --test-dir "build/$1" --output-on-failure -j "$jobs" --no-tests=error
    fi
}

mkdir -p build
if [ "${1:-}" != "--quick" ]; then
    step "Rules of the house"
    python3 scripts/check_floors.py
    scripts/check_style.sh
    run_preset windows-i686 build-only
    export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1
    run_preset linux-asan tests
fi
run_preset linux-debug tests
