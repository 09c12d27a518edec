#!/usr/bin/env bash
# The demonstration with two routers of FRR, run by demo.sh --frr as root.
source "$(dirname "$0")/../lib.sh"
source "$top/scripts/demo/bench.sh"
source "$top/scripts/demo/snmp.sh"
source "$top/scripts/demo/story.sh"
source "$top/scripts/demo/routers.sh"

namespaces=(unshare --net --mount --uts --pid --fork --kill-child --mount-proc)

# The first process there takes all others with it, and their files were in its
# own /tmp: nothing is left.
end_inside() {
    started=($(children_of "$story"))
    kill -KILL "${started[@]}" "$story" 2>/dev/null || true
    wait "$story" 2>/dev/null || true
    until_true 5 gone
}

if [ "${1-}" != --inside ]; then
    why=$("${namespaces[@]}" true 2>&1) || {
        echo "Left out: routers need namespaces, and there are none ($why)."
        exit 77
    }
    "${namespaces[@]}" "$0" --inside &
    story=$!
    trap end_inside EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    wait "$story"
    exit
fi

# --- inside: this process is on the router edge -----------------------------

server=127.0.0.2 agent=127.0.0.1 trap_port=162 fabric_port=2022

# The checkout may be in /tmp itself.
hide_tmp() {
    cd "$top"
    mount -t tmpfs -o mode=1777 tmp /tmp
    mkdir -p "$top"
    mount --no-canonicalize --bind . "$top"
    cd "$top"
}

start_here() {
    hide_tmp
    prepare_bench
    # vtysh would keep a history in the user's home.
    export HOME=$bench XF_CONFIG=$bench/xfhost.conf XF_SSH_PORT=22
    unset VTYSH_PAGER VTYSH_LOG VTYSH_HISTFILE
    printf '%s\n' 'backend frr' "frr_daemons ${frr_daemons[*]}" \
        'vtysh_seconds 3' >"$XF_CONFIG"
    PATH=$bench/bin:$PATH
    start_routers
    add_switch core 192.0.2.2 10:00:00:05:1e:34:01:01 \
        "XF_CONFIG=$XF_CONFIG XF_RUN_DIRECTORY=$bench/core"
    start_procd
    start_agent
    start_sftp_server
    inside=(core)
    start_switch core 192.0.2.2
    inside=()
}

here() { "$@"; }

frr_shows() { "$1" vtysh -c 'show running-config no-header'; } # here|core

frr_conf() { "$1" cat /etc/frr/frr.conf; }

has_route() { # here|core PREFIX
    "$1" ip route show "$2" proto bgp | grep -q .
}

lost_route() { ! has_route "$@"; }

start_here

say "Two routers with FRR, edge and core, each in a network of its own, with a
cable between them. They are BGP neighbours. This shell is on edge, and
\`core COMMAND\` runs a command on core. edge has snmpd with the module, procd,
and this file of settings:"
show cat "$XF_CONFIG"
say "A server on $server offers an empty folder by SFTP. xfcopy finds its SNMPv3
user in snmp.conf, and the password for the server in the environment. So edge is
configured, by FRR's own means:"
show vtysh -c 'show running-config no-header'
until_true 60 has_route core 10.1.0.0/24 ||
    die "core has not learned the route"
until_true 60 has_route here 10.2.0.0/24 || die "edge has not learned the route"

say "core has learned the network behind edge, 10.1.0.0/24, and routes to it:"
show core vtysh -c 'show ip bgp 10.1.0.0/24'
show core ip route
checked "each router has the other's network in its routing table"

say "1. Running configuration to the server, once the key of the server is known."
show xfenrol "$server" \
    "$(ssh-keygen -l -f "$bench/sftp/host_key.pub" | cut -d ' ' -f 2)"
copy 0 running "$(file edge.cfg)"
frr_shows here | cmp - "$bench/server/edge.cfg" || die "not the same"
checked "the file is what vtysh shows, octet by octet"

say "2. The file is edited on the server and copied to the running configuration:
edge shall not announce its network any more."
sed 's/^  network 10.1.0.0/  no network 10.1.0.0/' "$bench/server/edge.cfg" |
    offer edited.cfg
show diff "$bench/server/edge.cfg" "$bench/server/edited.cfg" || true
copy 0 "$(file edited.cfg)" running
until_true 30 lost_route core 10.1.0.0/24 || die "core still has the route"
show core vtysh -c 'show ip bgp 10.1.0.0/24'
show core ip route
core vtysh -c 'show ip bgp 10.1.0.0/24' | grep -q 'not in table' ||
    die "BGP still has the route"
has_route here 10.2.0.0/24 || die "the session has ended"
checked "core has lost the route, and the two are neighbours as before"

say "3. A file with two lines that no router takes, between two good ones."
offer bad.cfg <<'END'
ip prefix-list OFFICE seq 5 permit 10.1.0.0/16
router bgp 65001
 neighbor 192.0.2.9 password secret
exit
write memory
ip prefix-list OFFICE seq 10 deny any
END
show cat "$bench/server/bad.cfg"
copy 7 "$(file bad.cfg)" running
show cat /tmp/configcopy.txt
grep -q '^line 3: refused by bgpd: ' /tmp/configcopy.txt &&
    grep -q '^line 5: .*"write memory"' /tmp/configcopy.txt &&
    [ "$(wc -l </tmp/configcopy.txt)" = 2 ] || die "other lines were refused"
[ "$(frr_shows here | grep -c '^ip prefix-list OFFICE ')" = 2 ] ||
    die "the good lines are not there"
[ ! -e /etc/frr/frr.conf ] || die "something was saved"
checked "the good lines are there, FRR was not asked to write its memory"

say "4. The backup of part 1 is restored."
copy 0 "$(file edge.cfg)" running
until_true 30 has_route core 10.1.0.0/24 || die "the route is not back"
show core vtysh -c 'show ip bgp 10.1.0.0/24'
show core ip route
diff <(frr_shows here) "$bench/server/edge.cfg" >"$bench/more" || true
! grep -v '^< ip prefix-list\|^< !$\|^[0-9]' "$bench/more" ||
    die "not the configuration of before"
checked "the route is back; a copy merges, so only part 3's list is new"

say "5. Running to startup configuration: what FRR will start with."
copy 0 running startup
show ls -l /etc/frr/frr.conf
frr_shows here | cmp - /etc/frr/frr.conf || die "not the same"
checked "frr.conf is the running configuration"

say "6. The same on all routers of the fabric, while bgpd of core hangs."
show cat "$XF_FABRIC_FILE"
show kill -STOP "$core_bgpd"
copy 7 running fabric
grep -q '192\.0\.2\.2.*no answer from bgpd' "$bench/said" ||
    die "bgpd of core is not named"
! core test -e /etc/frr/frr.conf || die "core was saved"
checked "core was not saved, and it is said which daemon does not answer"
show kill -CONT "$core_bgpd"
copy 0 running fabric
frr_conf core | cmp - <(frr_shows core) || die "not the same"
frr_conf here | cmp - <(frr_shows here) || die "not the same"
checked "now both have their running configuration in frr.conf"

say "At the end:"
nothing_left
say "All of it was checked."
