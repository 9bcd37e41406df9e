#!/usr/bin/env bash
# Installs what is needed, builds everything and passes all tests and checks:
#   the rules of the house, formatting, the portable code compiled for 32-bit Windows, all tests of the debug build,
#   and the same tests under the address and undefined behaviour sanitizers.
#   scripts/test.sh --quick   the debug build and its tests only
# Besides, for who has touched threads or what strangers send; neither is part of the above:
#   scripts/test.sh --tsan    the test programs that use threads, under the thread sanitizer
#   scripts/test.sh --fuzz [SECONDS]   each fuzz target for so long (60), under the address and undefined behaviour sanitizers
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

# A report of a race or of a lock order fails its program.
run_threaded_tests() {
    local programs=(test_foundation test_platform test_device_stack test_virtual_library test_rpc test_drive test_changer
        test_command test_host)
    step "Build linux-tsan"
    cmake --preset linux-tsan >build/linux-tsan.configure.log 2>&1 || { cat build/linux-tsan.configure.log; exit 1; }
    cmake --build --preset linux-tsan -j "$jobs" --target "${programs[@]}" -- --quiet
    # Some kernels spread addresses further than the sanitizer can follow.
    local steady=() program
    if setarch -R true 2>/dev/null; then
        steady=(setarch -R)
    fi
    for program in "${programs[@]}"; do
        step "Test linux-tsan: $program"
        TSAN_OPTIONS=second_deadlock_stack=1 "${steady[@]}" "build/linux-tsan/tests/$program" --gtest_brief=1
    done
}

# What a target has found stays in build/linux-fuzz/corpus, so that the next run begins where this one ends.
run_fuzzers() {
    step "Build linux-fuzz"
    cmake --preset linux-fuzz >build/linux-fuzz.configure.log 2>&1 || { cat build/linux-fuzz.configure.log; exit 1; }
    cmake --build --preset linux-fuzz -j "$jobs" -- --quiet
    local source target corpus
    for source in fuzz/*.cpp; do
        target=$(basename "$source" .cpp)
        corpus=build/linux-fuzz/corpus/$target
        step "Fuzz $target"
        mkdir -p "$corpus"
        if [ -f "fuzz/${target}_seeds.py" ]; then
            python3 "fuzz/${target}_seeds.py" "$corpus"
        fi
        if ! UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 "build/linux-fuzz/fuzz/fuzz_$target" "$corpus" -max_total_time="$1" \
            -artifact_prefix="build/linux-fuzz/$target-" >"build/linux-fuzz/$target.log" 2>&1; then
            tail -60 "build/linux-fuzz/$target.log"
            exit 1
        fi
        grep 'cov:' "build/linux-fuzz/$target.log" | tail -1
    done
}

mkdir -p build
case "${1:-}" in
    --tsan) run_threaded_tests; exit ;;
    --fuzz) run_fuzzers "${2:-60}"; exit ;;
esac
if [ "${1:-}" != "--quick" ]; then
    step "Rules of the house"
    python3 scripts/check_floors.py
    scripts/check_style.sh
    run_preset windows-i686 build-only
    export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1
    run_preset linux-asan tests
fi
run_preset linux-debug tests
