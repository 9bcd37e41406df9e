#!/bin/bash
# Serves an emulated tape library over iSCSI on loopback, by a tgtd of its own, until standard input ends.
#
#   tgt_library.sh [--drives N] [--slots N] [--cartridges N] [--ports N] [--user NAME --password PASSWORD] [--folder DIR]
#                  [--port PORT]
#
# Once the library can be used it prints, one to a line:
#   portal=127.0.0.1:PORT   target=IQN   changer_lun=N   drive_luns=1..N   pid=PID   control=N   ready
# Logical unit 0 is the target's own, 1 to N are the drives, N+1 is the changer. Element addresses: drives 1.., transport
# drives+1, slots drives+2.., ports behind the slots. Cartridges BAR001L8... fill the first slots.
# The caller keeps standard input open for as long as it needs the library: when it closes, or the caller dies, all is removed.
# Exit code 3: tgt isn't installed.
#
# What this target does its own way: it cuts the last 8 bytes off an element status report, so that the last drive's serial number is
# missing there; it reports all elements from the first address on, whatever count is asked for; its serial numbers are padded on the left.
set -u

drives=2 slots=8 cartridges=4 ports=0 user='' password='' folder='' wanted_port=''
while [ $# -gt 0 ]; do
    case "$1" in
        --drives) drives=$2 ;;
        --slots) slots=$2 ;;
        --cartridges) cartridges=$2 ;;
        --ports) ports=$2 ;;
        --user) user=$2 ;;
        --password) password=$2 ;;
        --folder) folder=$2 ;;
        --port) wanted_port=$2 ;;
        *) echo "unknown argument: $1" >&2; exit 2 ;;
    esac
    shift 2
done

for tool in tgtd tgtadm tgtimg; do
    command -v "$tool" >/dev/null || { echo "$tool is not installed" >&2; exit 3; }
done

own_folder=''
if [ -z "$folder" ]; then
    folder=$(mktemp -d) || exit 1
    own_folder=$folder
fi
daemon=''
clean_up() {
    if [ -n "$daemon" ]; then
        kill -9 "$daemon" 2>/dev/null
        wait "$daemon" 2>/dev/null
    fi
    [ -n "$own_folder" ] && rm -rf "$own_folder"
}
trap clean_up EXIT
trap 'exit 1' INT TERM HUP

# A control socket in the library's folder keeps several daemons apart.
export TGT_IPC_SOCKET=$folder/control
control=$((RANDOM % 30000 + 1000))
target=iqn.2015-06.local.tarno:test-library

start_daemon() {
    local attempt port
    for attempt in 1 2 3 4 5 6 7 8 9 10; do
        port=${wanted_port:-$((RANDOM % 20000 + 20000))}
        tgtd -f -C "$control" --iscsi "portal=127.0.0.1:$port" </dev/null >"$folder/tgtd.log" 2>&1 &
        daemon=$!
        local look
        for look in $(seq 1 100); do
            kill -0 "$daemon" 2>/dev/null || break
            if tgtadm -C "$control" --op show --mode sys >/dev/null 2>&1; then
                portal=127.0.0.1:$port
                # The daemon lives on without its portal when the port is taken.
                tgtadm -C "$control" --lld iscsi --op show --mode portal 2>/dev/null | grep -q "127.0.0.1:$port" && return 0
                break
            fi
            sleep 0.05
        done
        kill -9 "$daemon" 2>/dev/null
        wait "$daemon" 2>/dev/null
        control=$((control + 1))
    done
    echo "tgtd does not start:" >&2
    cat "$folder/tgtd.log" >&2
    return 1
}

adm() { tgtadm -C "$control" --lld iscsi "$@" || { echo "tgtadm $* failed" >&2; exit 1; }; }
set_unit() { adm --mode logicalunit --op update --tid 1 --lun "$1" --params "$2"; }

start_daemon || exit 1
adm --op new --mode target --tid 1 -T "$target"

# A drive needs a backing file to be made; it starts empty.
tgtimg --op new --device-type tape --barcode EMPTY --size 1 --type data --file "$folder/empty" >/dev/null || exit 1
for drive in $(seq 1 "$drives"); do
    adm --mode logicalunit --op new --tid 1 --lun "$drive" -b "$folder/empty" --device-type=tape
    set_unit "$drive" "online=0"
    set_unit "$drive" "vendor_id=TARNO,product_id=TESTDRIVE,product_rev=0001,scsi_sn=TDRV000$drive"
done
mkdir -p "$folder/media"
truncate -s 1024 "$folder/changer"
changer=$((drives + 1))
adm --mode logicalunit --op new --tid 1 --lun "$changer" -b "$folder/changer" --device-type=changer
set_unit "$changer" "vendor_id=TARNO,product_id=TESTLIBRARY,product_rev=0001,scsi_sn=TLIB0001"
set_unit "$changer" "media_home=$folder/media"
set_unit "$changer" "element_type=4,start_address=1,quantity=$drives"
for drive in $(seq 1 "$drives"); do
    set_unit "$changer" "element_type=4,address=$drive,tid=1,lun=$drive"
done
set_unit "$changer" "element_type=1,start_address=$changer,quantity=1"
first_slot=$((changer + 1))
set_unit "$changer" "element_type=2,start_address=$first_slot,quantity=$slots"
if [ "$ports" -gt 0 ]; then
    set_unit "$changer" "element_type=3,start_address=$((first_slot + slots)),quantity=$ports"
fi
for cartridge in $(seq 1 "$cartridges"); do
    barcode=$(printf 'BAR%03dL8' "$cartridge")
    tgtimg --op new --device-type tape --barcode "$barcode" --size 1 --type data --file "$folder/media/$barcode" >/dev/null || exit 1
    set_unit "$changer" "element_type=2,address=$((first_slot + cartridge - 1)),barcode=$barcode,sides=1"
done
if [ -n "$user" ]; then
    adm --op new --mode account --user "$user" --password "$password"
    adm --op bind --mode account --tid 1 --user "$user"
fi
adm --op bind --mode target --tid 1 -I ALL

printf '%s\n' "portal=$portal" "target=$target" "changer_lun=$changer" "drive_luns=1..$drives" "pid=$daemon" "control=$control" ready
exec 1>&-
# The shell need not tell how the daemon ended.
exec 2>/dev/null
cat >/dev/null
