#!/usr/bin/env bash
# Runs the benchmark of the server's start on the programs of a build folder. Called by scripts/bench.sh.
#   bench/start.sh BUILD_FOLDER
set -euo pipefail
build=${1:?usage: bench/start.sh BUILD_FOLDER}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$build/bench/bench_start" "$build/src/programs/TarnoTapeSvc" "$build/bench/bench_bare" "$folder" "$build/bench_start.json"
