#!/usr/bin/env bash
# Builds the benchmarks, optimised, and runs one: each prints lines "NAME VALUE" on standard output.
#   scripts/bench.sh inventory | drives | log | rpc | start
set -euo pipefail
cd "$(dirname "$0")/.."
name=${1:-}
packages=run
case "$name" in
    inventory) targets=(bench_inventory TarnoTapeSvc tarnoctl) ;;
    drives) targets=(bench_drives TarnoTapeSvc) ;;
    rpc) targets=(bench_rpc) packages=bench ;;
    start) targets=(bench_start bench_bare TarnoTapeSvc) ;;
    log) targets=(bench_log) packages=bench ;;
    *) echo "usage: $0 inventory | drives | log | rpc | start" >&2; exit 2 ;;
esac
scripts/install.sh "$packages" >&2
mkdir -p build
cmake --preset linux-release -DTARNO_BUILD_BENCHES=ON >build/bench.configure.log 2>&1 || { cat build/bench.configure.log >&2; exit 1; }
cmake --build --preset linux-release -j "$(nproc)" --target "${targets[@]}" -- --quiet >&2
exec "bench/$name.sh" "$PWD/build/linux-release"
