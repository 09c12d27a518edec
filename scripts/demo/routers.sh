# The routers of the demonstration with FRR. Each has its network, its host name
# and its own /etc/frr and /run; "$bench/bin/core COMMAND" runs a command on the
# second one. All of it is gone when the processes are.

frr_daemons=(zebra staticd bgpd)

make_router() { # NAME
    "${inside[@]}" sh -c "hostname $1 && ip link set lo up &&
        mount -t tmpfs -o mode=755 $1 /run && mkdir /run/frr /run/sshd &&
        mount -t tmpfs -o mode=750 $1 /etc/frr && touch /etc/frr/vtysh.conf &&
        chown -R frr:frr /run/frr /etc/frr"
}

frr_answers() { # DAEMON
    "${inside[@]}" vtysh -d "$1" -c 'show version' >/dev/null 2>&1
}

start_frr() { # NAME
    local daemon
    for daemon in "${frr_daemons[@]}"; do
        "${inside[@]}" "/usr/lib/frr/$daemon" -A 127.0.0.1 \
            </dev/null >"$bench/$1-$daemon.log" 2>&1 &
        declare -g "$1_$daemon=$!"
        until_true 20 frr_answers "$daemon" ||
            { cat "$bench/$1-$daemon.log" >&2; die "$daemon does not start"; }
    done
    "${inside[@]}" vtysh -f "$bench/$1.cfg"
}

# The configuration of a router with a network and one neighbour.
write_router() { # FILE OWN-NUMBER OTHER-NUMBER INTERFACE
    cat >"$1" <<END
ip forwarding
ipv6 forwarding
interface lo
 ip address 10.$2.0.1/24
exit
interface $4
 ip address 192.0.2.$2/24
exit
router bgp 6500$2
 no bgp ebgp-requires-policy
 neighbor 192.0.2.$3 remote-as 6500$3
 neighbor 192.0.2.$3 timers connect 1
 address-family ipv4 unicast
  network 10.$2.0.0/24
 exit-address-family
exit
END
}

differ() { [ "$(readlink "$1")" != "$(readlink "$2")" ]; }

# This process is on the first router, edge; core is its neighbour.
start_routers() {
    unshare --net --mount --uts sleep infinity &
    core=$!
    mkdir "$bench/bin"
    cat >"$bench/bin/core" <<END
#!/bin/sh
exec nsenter --target $core --net --mount --uts --wd=/ -- "\$@"
END
    chmod 755 "$bench/bin/core"
    until_true 10 differ "/proc/$core/ns/net" /proc/self/ns/net ||
        die "there is no second router"
    make_router edge
    ip link add to-core type veth peer name to-edge netns "$core"
    ip link set to-core up
    write_router "$bench/edge.cfg" 1 2 to-core
    start_frr edge
    inside=(core)
    make_router core
    core ip link set to-edge up
    write_router "$bench/core.cfg" 2 1 to-edge
    start_frr core
    inside=()
}
