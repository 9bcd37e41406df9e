#!/usr/bin/env bash
# Runs the benchmark of the remote procedure transport. Called by scripts/bench.sh.
#   bench/rpc.sh BUILD_FOLDER [FIGURE]
set -euo pipefail
build=${1:?usage: bench/rpc.sh BUILD_FOLDER [FIGURE]}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$build/bench/bench_rpc" "$folder" "$build/bench_rpc.json" ${2:+"$2"}
