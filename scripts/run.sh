#!/usr/bin/env bash
# Installs what is needed, builds the server and shows it at work: a virtual library of 24 slots, 2 ports, 2 drives and 20
# cartridges; a console on a foreign RPC library finds the changer, shows what is in it, loads a cartridge and takes it out; tarnoctl
# looks at a drive and erases a tape. Then the server goes on serving until Ctrl-C.
#   scripts/run.sh --once   stop the server when all has been shown (also when there is no terminal)
set -euo pipefail
cd "$(dirname "$0")/.."
once=no
case "${1:-}" in
    "") [ -t 0 ] && [ -t 1 ] || once=yes ;;
    --once) once=yes ;;
    *) echo "usage: $0 [--once]" >&2; exit 2 ;;
esac

say() { printf '\n== %s\n' "$1"; }

scripts/install.sh run
say "Building"
mkdir -p build
cmake --preset linux-release -DTARNO_BUILD_BENCHES=OFF >build/run.configure.log 2>&1 || { cat build/run.configure.log; exit 1; }
cmake --build --preset linux-release -j "$(nproc)" --target TarnoTapeSvc tarnoctl tarno-tape-account -- --quiet
programs=$PWD/build/linux-release/src/programs

# A fresh copy of the example library, so that what is shown doesn't depend on what was done before.
demo=$PWD/build/demo
rm -rf "$demo"
mkdir -p "$demo"
cp -r examples/library-24 "$demo/library-24"
rm -f "$demo"/library-24/state*
cat >"$demo/settings.reg" <<REG
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarno\\Tarno Backup Tape\\Devices]
"ScsiGeneric"=dword:00000000
"VirtualLibrary"="library-24"

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarno\\Tarno Backup Tape\\Access]
"ListenAddress"="127.0.0.1"
"LocalSocket"="$demo/rpc.sock"
"EndpointMapperPort"=dword:00000000
"Accounts"="$demo/accounts"
REG
(umask 077; head -c 18 /dev/urandom | base64 >"$demo/password")
"$programs/tarno-tape-account" --file "$demo/accounts" add --administrator operator <"$demo/password" >/dev/null
port=$(/usr/bin/python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')

say "Starting the server on port $port"
"$programs/TarnoTapeSvc" -debug -settings "$demo/settings.reg" -state "$demo/state" -log "$demo/Svc.TarnoTape.log" -port "$port" &
server=$!
stop_server() {
    if kill -0 "$server" 2>/dev/null; then
        kill "$server"
        wait "$server" || true
    fi
}
trap stop_server EXIT
for _ in $(seq 100); do
    if "$programs/tarnoctl" --socket "$demo/rpc.sock" owner >/dev/null 2>&1; then break; fi
    kill -0 "$server" 2>/dev/null || { echo "The server did not start. Its log:" >&2; cat "$demo/Svc.TarnoTape.log" >&2 || true; exit 1; }
    sleep 0.1
done

say "A console on the RPC library impacket, over TCP with NTLM"
/usr/bin/python3 examples/move_a_cartridge.py --port "$port" --user operator --password-file "$demo/password" --owner EXAMPLE-CONSOLE

say "A drive, by tarnoctl over the local socket"
as_console() {
    printf '   $ tarnoctl %s\n' "$*"
    "$programs/tarnoctl" --socket "$demo/rpc.sock" --owner EXAMPLE-CONSOLE "$@" | sed 's/^/   /'
}
as_console drives
as_console load 0 0
as_console media Tape0 --changer Changer0
as_console erase Tape0 --yes
as_console alerts Tape0
as_console unload 0

say "The log's lines of the load"
sed -n '/\[SoapEnter\] LoadMedium/,/\[SoapExit\] LoadMedium/p' "$demo/Svc.TarnoTape.log" | tr -d '\r' | head -n 60

if [ "$once" = yes ]; then
    stop_server
    trap - EXIT
    say "Done. The server is stopped."
    exit 0
fi

cat <<TEXT

== The server goes on serving (process $server). Try, in another terminal:
   cd $PWD
   alias tarnoctl='build/linux-release/src/programs/tarnoctl --socket $demo/rpc.sock --owner EXAMPLE-CONSOLE'
   tarnoctl changers
   tarnoctl inventory
   tarnoctl load 3 0
   tarnoctl move slot:4 port:0
   tarnoctl unload 0
   tarnoctl drives
   tarnoctl drive-info Tape0
   tarnoctl call GetOwnerName
   tail -f $demo/Svc.TarnoTape.log
   Ctrl-C ends the server.
TEXT
trap 'stop_server; exit 0' INT TERM
wait "$server"
