#!/usr/bin/env bash
# Runs the benchmark of the inventory on the programs of a build folder. Called by scripts/bench.sh.
#   bench/inventory.sh BUILD_FOLDER
set -euo pipefail
build=${1:?usage: bench/inventory.sh BUILD_FOLDER}
here=$(cd "$(dirname "$0")" && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$build/bench/bench_inventory" "$build/src/programs/TarnoTapeSvc" "$here/../examples/library-24" "$folder" "$build/bench_inventory.json"
