#!/usr/bin/env bash
# Runs the benchmark of the list of drives on the programs of a build folder. Called by scripts/bench.sh.
#   bench/drives.sh BUILD_FOLDER
set -euo pipefail
build=${1:?usage: bench/drives.sh BUILD_FOLDER}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$build/bench/bench_drives" "$build/src/programs/TarnoTapeSvc" "$folder" "$build/bench_drives.json"
