# The programs of the demonstration: how they are started, and how they end.

# Every started process by its id; in.tftpd needs sudo for an ordinary user.
started=()
# What leads to where sshd is started; nothing if that is here.
inside=()

send() { # SIGNAL PID
    kill "-$1" "$2" 2>/dev/null ||
        { [ -d "/proc/$2" ] && as_root kill "-$1" "$2"; }
}

children_of() { cat "/proc/$1/task/$1/children" 2>/dev/null || true; }

# What they have started in turn: in.tftpd's processes linger after a transfer,
# and an end may come in the middle of a copy.
descendants_of() { # PID...
    local pid
    for pid in "$@"; do
        printf '%s\n' $(children_of "$pid")
        descendants_of $(children_of "$pid")
    done
}

gone() {
    local pid
    for pid in "${started[@]}"; do
        # A zombie of ours is gone as well.
        ! grep -qs '^State:[[:space:]]*[^Z]' "/proc/$pid/status" || return 1
    done
}

stop_all() {
    local pid
    started+=($(descendants_of "${started[@]}"))
    for pid in "${started[@]}"; do
        send CONT "$pid" 2>/dev/null || true
        send TERM "$pid" 2>/dev/null || true
    done
    if ! until_true 10 gone; then
        for pid in "${started[@]}"; do
            send KILL "$pid" 2>/dev/null || true
        done
        until_true 5 gone || true
    fi
    [ -z "${results_are_ours-}" ] || rm -f /tmp/configcopy.txt
    [ -z "${run_sshd_is_ours-}" ] || rmdir /run/sshd 2>/dev/null || true
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

free_port() { # udp|tcp ADDRESS
    python3 -c 'import socket, sys
kind = {"udp": socket.SOCK_DGRAM, "tcp": socket.SOCK_STREAM}[sys.argv[1]]
probe = socket.socket(socket.AF_INET, kind)
probe.bind((sys.argv[2], 0))
print(probe.getsockname()[1])' "$1" "$2"
}

bound() { # udp|tcp ADDRESS PORT
    "${inside[@]}" python3 -c 'import socket, sys
kind = {"udp": socket.SOCK_DGRAM, "tcp": socket.SOCK_STREAM}[sys.argv[1]]
probe = socket.socket(socket.AF_INET, kind)
probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
try:
    probe.bind((sys.argv[2], int(sys.argv[3])))
except OSError:
    sys.exit(0)
sys.exit(1)' "$1" "$2" "$3"
}

# --- the switch: snmpd and procd; and who hears of it -----------------------

start_agent() {
    cat >"$bench/snmpd.conf" <<END
$snmpd_users
trap2sink 127.0.0.1:$trap_port public
dlmod config_copy_mib $module
END
    (cd / && exec snmpd -f -Lf "$bench/snmpd.log" -C \
        -c "$bench/snmpd.conf" -I -smux "udp:$agent") \
        </dev/null >>"$bench/snmpd.log" 2>&1 &
    started+=($!)
    until_true 20 snmpget -t 1 -r 0 "$agent" 1.3.6.1.2.1.1.3.0 \
        >/dev/null 2>&1 || { tail -n 30 "$bench/snmpd.log" >&2
                             die "snmpd does not answer"; }
}

saving() { [ -e "$XF_STATE_DIRECTORY/save-in-progress" ]; }

nothing_left() {
    [ -z "$(ls -A "$XF_STATE_DIRECTORY/staging")" ] ||
        die "files left in the staging directory"
    checked "nothing is left in the staging directory"
    ! saving || die "a save is still in progress"
    checked "no save is in progress"
}

start_procd() {
    "$XF_ROOT/brim/bin/procd" </dev/null >"$bench/procd.log" 2>&1 &
    started+=($!)
    until_true 20 grep -qs ready "$bench/procd.log" ||
        { cat "$bench/procd.log" >&2; die "procd does not start"; }
}

start_trap_receiver() {
    echo 'disableAuthorization yes' >"$bench/snmptrapd.conf"
    snmptrapd -f -Lo -C -c "$bench/snmptrapd.conf" -n \
        -F 'received\n%V\n    %v\n' "udp:127.0.0.1:$trap_port" \
        </dev/null >"$bench/traps.log" 2>"$bench/snmptrapd.log" &
    started+=($!)
    until_true 20 bound udp 127.0.0.1 "$trap_port" ||
        die "snmptrapd does not start"
}

# --- the server that has the files ------------------------------------------

start_tftp_server() {
    local root=() child
    [ "$(id -u)" = 0 ] || root=(sudo -n)
    "${root[@]}" /usr/sbin/in.tftpd -L -a "$server:$XF_TFTP_PORT" \
        -u nobody -s -c "$bench/server" \
        </dev/null >"$bench/tftpd.log" 2>&1 &
    tftp_server=$!
    started+=("$tftp_server")
    until_true 20 bound udp "$server" "$XF_TFTP_PORT" ||
        die "in.tftpd does not start"
    # Behind sudo it is a child's child.
    if [ "$(id -u)" != 0 ]; then
        while child=$(children_of "$tftp_server") && [ -n "$child" ]; do
            tftp_server=${child%% *}
            started+=("$tftp_server")
        done
    fi
}

# The logins of the demonstration are known to its own sshds alone, and nothing
# of the machine's users is changed.
prepare_logins() {
    password=$(od -An -N6 -tx1 /dev/urandom | tr -d ' \n')
    DEMO_SECRET=$(perl -e 'print crypt($ARGV[0], "\$6\$demonstration\$")' \
        "$password")
    export DEMO_SECRET
    cc -shared -fPIC -Wall -o "$bench/operator.so" \
        "$top/scripts/demo/operator.c"
    if [ "$(id -u)" = 0 ] && [ ! -d /run/sshd ]; then
        mkdir -m 755 /run/sshd
        run_sshd_is_ours=yes
    fi
}

start_sshd() { # NAME ADDRESS PORT USER-ID GROUP-ID HOME CONFIGURATION-LINE...
    local folder=$bench/$1 address=$2 port=$3 user=$4 group=$5 home=$6
    shift 6
    printf '%s\n' "ListenAddress $address:$port" \
        "HostKey $folder/host_key" "PidFile none" "StrictModes no" \
        "UsePAM no" "$@" >"$folder/sshd_config"
    LD_PRELOAD=$bench/operator.so DEMO_UID=$user DEMO_GID=$group \
        DEMO_HOME=$home "${inside[@]}" /usr/sbin/sshd -D -e -f "$folder/sshd_config" \
        </dev/null >"$folder/sshd.log" 2>&1 &
    started+=($!)
    until_true 20 bound tcp "$address" "$port" ||
        { cat "$folder/sshd.log" >&2; die "sshd does not start"; }
}

make_host_key() { # NAME
    mkdir "$bench/$1"
    ssh-keygen -q -t ed25519 -N '' -C "$1" -f "$bench/$1/host_key"
}

# Its user "operator" is nobody, or whoever runs the demonstration if that is
# not root: only root's sshd can be somebody else.
start_sftp_server() {
    local user=65534 group=65534
    if [ "$(id -u)" != 0 ]; then
        user=$(id -u)
        group=$(id -g)
    fi
    make_host_key sftp
    start_sshd sftp "$server" "$XF_SSH_PORT" "$user" "$group" "$bench/server" \
        "PasswordAuthentication yes" "PubkeyAuthentication no" \
        "Subsystem sftp internal-sftp"
}

# --- the other switches of the fabric ---------------------------------------

# A switch is an sshd that saves, with its own shell and files, for whoever has
# the fabric's key.
add_switch() { # NAME ADDRESS WWN [SETTING...]
    make_host_key "$1"
    mkdir -m 700 "$bench/$1/state"
    cat >"$bench/$1/save" <<END
#!/bin/sh
XF_ROOT=$XF_ROOT XF_STATE_DIRECTORY=$bench/$1/state ${*:4} \\
    exec $qsh -c 'copy running-config startup-config'
END
    chmod 755 "$bench/$1/save"
    echo "switch $1 wwn $3 address $2 port $fabric_port user operator" \
        >>"$XF_FABRIC_FILE"
    echo "[$2]:$fabric_port $(cut -d ' ' -f 1,2 "$bench/$1/host_key.pub")" \
        >>"$XF_FABRIC_KNOWN_HOSTS"
}

name_switch() { # NAME
    echo "hostname $1" >"$bench/$1/config"
    XF_STATE_DIRECTORY=$bench/$1/state "$qsh" \
        --apply "$bench/$1/config" "$bench/results"
}

start_switch() { # NAME ADDRESS
    start_sshd "$1" "$2" "$fabric_port" "$(id -u)" "$(id -g)" "$bench/$1" \
        "AuthorizedKeysFile $XF_FABRIC_KEY_FILE.pub" \
        "PasswordAuthentication no" "PermitRootLogin prohibit-password" \
        "ForceCommand $bench/$1/save"
}

# --- all of it --------------------------------------------------------------

# The folders and settings of the switch, and the keys; nothing is started.
prepare_bench() {
    # No settings of whoever runs it.
    unset "${!XF_@}"
    [ -e /tmp/configcopy.txt ] || results_are_ours=yes
    bench=$(mktemp -d /tmp/xfdemo.XXXXXX)
    chmod 755 "$bench"
    (cd "$bench" && mkdir -m 700 state run persistent fabric)
    mkdir "$bench/server"
    chmod 777 "$bench/server"

    module=$(find "$top/build/infra" -name libconfigcopymib.so)
    export XF_ROOT=$top/build/root
    export XF_RUN_DIRECTORY=$bench/run XF_STATE_DIRECTORY=$bench/state
    export XF_FABRIC_FILE=$bench/fabric/switches
    export XF_FABRIC_KEY_FILE=$bench/fabric/key
    export XF_FABRIC_KNOWN_HOSTS=$bench/fabric/known_hosts
    qsh=$XF_ROOT/brim/bin/qsh

    prepare_logins
    use_snmp
    ssh-keygen -q -t ed25519 -N '' -C fabric -f "$XF_FABRIC_KEY_FILE"
    echo "switch here wwn 10:00:00:05:1e:34:01:00 address 127.0.0.1 local" \
        >"$XF_FABRIC_FILE"
}

start_bench() {
    trap stop_all EXIT
    prepare_bench
    XF_TFTP_PORT=$(free_port udp "$server")
    XF_SSH_PORT=$(free_port tcp "$server")
    export XF_TFTP_PORT XF_SSH_PORT
    fabric_port=$(free_port tcp "$north")
    trap_port=$(free_port udp 127.0.0.1)
    agent=127.0.0.1:$(free_port udp 127.0.0.1)
    add_switch north "$north" 10:00:00:05:1e:34:01:01
    add_switch south "$south" 10:00:00:05:1e:34:01:02
    name_switch north
    name_switch south
    start_trap_receiver
    start_procd
    start_agent
    start_tftp_server
    start_sftp_server
    start_switch north "$north"
}
