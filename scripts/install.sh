#!/usr/bin/env bash
# Installs what building, running and testing need, by Debian package name. Asks for nothing and does nothing when all is there.
#   scripts/install.sh run    what the server and the console need
#   scripts/install.sh bench  that, and what the benchmarks compare with
#   scripts/install.sh test   that, and what the tests and checks need
set -euo pipefail

build_packages=(
    ca-certificates cmake g++ ninja-build ccache mold pkg-config
    libboost-dev libboost-thread-dev libboost-system-dev libboost-filesystem-dev
    libtinyxml-dev zlib1g-dev libssl-dev libkrb5-dev libiscsi-dev libsystemd-dev libcli11-dev nlohmann-json3-dev
    python3 python3-impacket
)
test_packages=(
    git libgtest-dev libgmock-dev libbenchmark-dev clang-format clang-tidy
    g++-mingw-w64-i686-posix libz-mingw-w64-dev tgt
    krb5-kdc krb5-admin-server krb5-user python3-samba systemd
)

bench_packages=(libspdlog-dev samba-common-bin)

case "${1:-test}" in
    run) wanted=("${build_packages[@]}") ;;
    bench) wanted=("${build_packages[@]}" "${bench_packages[@]}") ;;
    test) wanted=("${build_packages[@]}" "${test_packages[@]}") ;;
    *) echo "usage: $0 [run|test|bench]" >&2; exit 2 ;;
esac

missing=()
for package in "${wanted[@]}"; do
    if ! dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done
if [ "${#missing[@]}" -eq 0 ]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "These packages are missing, and installing them needs root." >&2; exit 1; }
    as_root=(sudo)
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { "${as_root[@]}" apt-get update -q && \
       "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    tail -n 30 "$log" >&2
    echo "Installing packages has failed." >&2
    exit 1
fi
