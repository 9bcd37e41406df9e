#!/usr/bin/env bash
# Runs the benchmark of the log. Called by scripts/bench.sh.
#   bench/log.sh BUILD_FOLDER
set -euo pipefail
build=${1:?usage: bench/log.sh BUILD_FOLDER}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$build/bench/bench_log" "$folder" "$build/bench_log.json"
