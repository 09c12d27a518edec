#!/usr/bin/env bash
# Shows copies through a stock SNMP agent, each step checked.
#   --keep   leaves everything running and prints how to go on by hand
source "$(dirname "$0")/lib.sh"

keep=false
case "${1-}" in
    '') ;;
    --keep) keep=true ;;
    *) die "usage: demo.sh [--keep]" ;;
esac

say() { printf '\n%s\n' "$*"; }

show() {
    printf '$ %s\n' "$*"
    "$@"
}

checked() { printf '    checked: %s\n' "$*"; }

# Every started process by its id; in.tftpd needs sudo for an ordinary user.
started=()

send() { # SIGNAL PID
    kill "-$1" "$2" 2>/dev/null ||
        { [ -d "/proc/$2" ] && as_root kill "-$1" "$2"; }
}

children_of() { cat "/proc/$1/task/$1/children" 2>/dev/null || true; }

gone() {
    local pid
    for pid in "${started[@]}"; do
        # A zombie of ours is gone as well.
        ! grep -qs '^State:[[:space:]]*[^Z]' "/proc/$pid/status" || return 1
    done
}

stop_all() {
    local pid
    # in.tftpd has processes of its own that linger after a transfer.
    [ -z "${tftp_server-}" ] || started+=($(children_of "$tftp_server"))
    for pid in "${started[@]}"; do
        send CONT "$pid" 2>/dev/null || true
        send TERM "$pid" 2>/dev/null || true
    done
    if ! until_true 10 gone; then
        for pid in "${started[@]}"; do
            send KILL "$pid" 2>/dev/null || true
        done
    fi
    if [ -n "${results_are_ours-}" ]; then
        rm -f /tmp/configcopy.txt
    fi
    [ -z "${bench-}" ] || rm -rf "$bench"
}

until_true() { # SECONDS COMMAND...
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        [ $SECONDS -lt $end ] || return 1
        sleep 0.05
    done
}

free_port() {
    python3 -c 'import socket
probe = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
probe.bind(("", 0))
print(probe.getsockname()[1])'
}

bound() { # ADDRESS PORT
    python3 -c 'import socket, sys
probe = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
try:
    probe.bind((sys.argv[1], int(sys.argv[2])))
except OSError:
    sys.exit(0)
sys.exit(1)' "$1" "$2"
}

# --- what snmpset and snmpget are given -------------------------------------

table=1.3.6.1.4.1.32473.1.1.1.1.1.1
notification=1.3.6.1.4.1.32473.1.1.2.1.2
declare -A column=(
    [xfCopyProtocol]=2 [xfCopySourceFileType]=3 [xfCopyDestFileType]=4
    [xfCopyServerAddress]=5 [xfCopyFileName]=6
    [xfCopyNotificationOnCompletion]=9 [xfCopyState]=10 [xfCopyFailCause]=13
    [xfCopyEntryRowStatus]=14)
declare -A number=(
    [tftp]=1 [networkFile]=1 [runningConfig]=4 [true]=1 [createAndGo]=4
    [destroy]=6)

object() { # COLUMN ROW
    if $names; then echo "$1.$2"; else echo "$table.${column[$1]}.$2"; fi
}

value() { if $names; then echo "$1"; else echo "${number[$1]}"; fi; }

copy() { # ROW SOURCE DESTINATION FILE
    show snmpset "$agent" \
        "$(object xfCopyProtocol "$1")" i "$(value tftp)" \
        "$(object xfCopySourceFileType "$1")" i "$(value "$2")" \
        "$(object xfCopyDestFileType "$1")" i "$(value "$3")" \
        "$(object xfCopyServerAddress "$1")" a 127.0.0.2 \
        "$(object xfCopyFileName "$1")" s "$4" \
        "$(object xfCopyNotificationOnCompletion "$1")" i "$(value true)" \
        "$(object xfCopyEntryRowStatus "$1")" i "$(value createAndGo)"
}

shown() { # COLUMN ROW: shows it and leaves the number in $got
    printf '$ snmpget %s %s\n' "$agent" "$(object "$1" "$2")"
    snmpget "$agent" "$(object "$1" "$2")"
    got=$(snmpget -Oqve "$agent" "$(object "$1" "$2")")
}

ended() { [ "$(snmpget -Oqve "$agent" "$(object xfCopyState "$1")")" -gt 2 ]; }

notified() { grep -q "\.2\.1\.2\.$1\b\|xfCopyCompletion\.$1\b" "$bench/traps.log"; }

finish() { # ROW STATE
    until_true 30 ended "$1" || die "the copy does not end"
    shown xfCopyState "$1"
    [ "$got" = "$2" ] || die "xfCopyState is $got"
}

# --- the bench --------------------------------------------------------------

start_agent() {
    cat >"$bench/snmpd.conf" <<END
rwcommunity private 127.0.0.1
trap2sink 127.0.0.1:$trap_port public
dlmod config_copy_mib $module
END
    (cd "$bench/staging" && exec snmpd -f -Lf "$bench/snmpd.log" -C \
        -c "$bench/snmpd.conf" -I -smux "udp:$agent") \
        </dev/null >>"$bench/snmpd.log" 2>&1 &
    started+=($!)
    until_true 20 snmpget -t 1 -r 0 "$agent" 1.3.6.1.2.1.1.3.0 \
        >/dev/null 2>&1 || { cat "$bench/snmpd.log" >&2
                             die "snmpd does not answer"; }
}

start_trap_receiver() {
    echo 'disableAuthorization yes' >"$bench/snmptrapd.conf"
    snmptrapd -f -Lo -C -c "$bench/snmptrapd.conf" -n \
        -F 'received\n%V\n    %v\n' "udp:127.0.0.1:$trap_port" \
        </dev/null >"$bench/traps.log" 2>"$bench/snmptrapd.log" &
    started+=($!)
    until_true 20 bound 127.0.0.1 "$trap_port" || die "snmptrapd does not start"
}

start_tftp_server() {
    local root=()
    [ "$(id -u)" = 0 ] || root=(sudo -n)
    "${root[@]}" /usr/sbin/in.tftpd -L -a "127.0.0.2:$XF_TFTP_PORT" \
        -u nobody -s -c "$bench/server" \
        </dev/null >"$bench/tftpd.log" 2>&1 &
    tftp_server=$!
    started+=("$tftp_server")
    until_true 20 bound 127.0.0.2 "$XF_TFTP_PORT" ||
        die "in.tftpd does not start"
    # Behind sudo it is a child's child.
    if [ "$(id -u)" != 0 ]; then
        while child=$(children_of "$tftp_server") && [ -n "$child" ]; do
            tftp_server=${child%% *}
            started+=("$tftp_server")
        done
    fi
}

echo "Installing what is missing, building what the demonstration needs"
install_packages
fetch_base_mibs
build build -- configcopymib xfplatform qsh

[ -e /tmp/configcopy.txt ] || results_are_ours=yes
trap stop_all EXIT
bench=$(mktemp -d /tmp/xfdemo.XXXXXX)
chmod 755 "$bench"
mkdir -m 700 "$bench/staging" "$bench/state" "$bench/run" "$bench/persistent"
mkdir -m 777 "$bench/server"
chmod 777 "$bench/server"

names=false
export MIBS='' MIBDIRS=''
if [ -d "$top/.cache/mibs" ]; then
    names=true
    export MIBS=XF-CONFIG-COPY-MIB MIBDIRS="$top/.cache/mibs:$top/build/mibs"
fi
export SNMPCONFPATH=$bench SNMP_PERSISTENT_DIR=$bench/persistent
printf 'defVersion 2c\ndefCommunity private\n' >"$bench/snmp.conf"
XF_TFTP_PORT=$(free_port)
export XF_TFTP_PORT XF_ROOT=$top/build/root
export XF_RUN_DIRECTORY=$bench/run XF_STATE_DIRECTORY=$bench/state
module=$(find "$top/build/infra" -name libconfigcopymib.so)
qsh=$XF_ROOT/brim/bin/qsh
agent=127.0.0.1:$(free_port)
trap_port=$(free_port)

start_trap_receiver
start_agent
start_tftp_server

# --- the demonstration ------------------------------------------------------

say "A stock snmpd has loaded the module, in.tftpd serves an empty folder on
127.0.0.2, snmptrapd listens. The switch runs this configuration:"
cat >"$bench/first.cfg" <<'END'
hostname rack4-switch2
contact operations
ntp server 192.0.2.7
vlan 10
  name users
interface eth1
  description uplink
  vlan 10
END
"$qsh" --apply "$bench/first.cfg" "$bench/first.results"
show "$qsh" -c "show running-config"
"$qsh" -c "show running-config" >"$bench/running.before"

say "One request creates a row and starts the copy to the server. The server is
held for a moment, so that the row can be seen while its copy runs."
send STOP "$tftp_server"
copy 1 runningConfig networkFile rack4.cfg
shown xfCopyState 1
[ "$got" = 2 ] || die "the copy does not run"
checked "the copy is running"
send CONT "$tftp_server"
finish 1 3
checked "the copy was successful"
show cat "$bench/server/rack4.cfg"
cmp "$bench/server/rack4.cfg" "$bench/running.before"
checked "the file on the server is the running configuration, octet by octet"

say "The row asked for a notification. This is what snmptrapd received:"
until_true 20 notified 1 || die "no notification"
awk '/^received$/ { text = ""; next } { text = text "\n    " $0 }
    END { print substr(text, 2) }' "$bench/traps.log"
checked "xfCopyCompletion was received"

say "The other way round: the file is edited on the server and copied to the
running configuration."
sed -e 's/^hostname .*/hostname rack4-spare/' -e '/^contact/s/^/no /' \
    "$bench/server/rack4.cfg" >"$bench/edited.cfg"
printf 'vlan 20\n  name cameras\n' >>"$bench/edited.cfg"
install -m 644 "$bench/edited.cfg" "$bench/server/edited.cfg"
copy 2 networkFile runningConfig edited.cfg
finish 2 3
"$qsh" -c "show running-config" >"$bench/running.after"
show diff "$bench/running.before" "$bench/running.after" || true
grep -qx 'hostname rack4-spare' "$bench/running.after"
grep -qx '  name cameras' "$bench/running.after"
! grep -q contact "$bench/running.after"
checked "the running configuration has changed as the file says"

say "A copy that must fail: the server has no such file."
copy 3 networkFile runningConfig missing.cfg
finish 3 4
shown xfCopyFailCause 3
[ "$got" = 2 ] || die "xfCopyFailCause is $got"
until_true 20 notified 3 || die "no notification"
"$qsh" -c "show running-config" | cmp - "$bench/running.after"
checked "failed, because of the file name; the configuration is as it was"

[ -z "$(ls -A "$bench/staging")" ] || die "files left in the staging directory"
checked "nothing is left in the staging directory"

if $keep; then
    trap - EXIT
    cat <<END

Everything is left running. To go on by hand:

    export SNMPCONFPATH=$bench MIBS='$MIBS' MIBDIRS='$MIBDIRS'
    export XF_ROOT=$XF_ROOT XF_STATE_DIRECTORY=$XF_STATE_DIRECTORY
    snmpwalk $agent $(if $names; then echo xfCopyTable; else echo $table; fi)
    $qsh -c "show running-config"
    ls $bench/server; tail $bench/traps.log $bench/snmpd.log

A row is deleted some five to seven minutes after its creation. To end:

    $([ "$(id -u)" = 0 ] || echo 'sudo ')kill ${started[*]}
    rm -rf $bench${results_are_ours:+ /tmp/configcopy.txt}
END
    exit 0
fi
say "All of it was checked."
