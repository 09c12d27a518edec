#!/usr/bin/env bash
# Shows copies through a stock SNMP agent, each step checked.
#   --keep   leaves everything running and prints how to go on by hand
#   --frr    the same with real routers: two of FRR, in namespaces. The status is
#            77 if there can be none.
source "$(dirname "$0")/lib.sh"
source "$top/scripts/demo/bench.sh"
source "$top/scripts/demo/snmp.sh"
source "$top/scripts/demo/story.sh"

keep=false
case "${1-}" in
    '' | --frr) ;;
    --keep) keep=true ;;
    *) die "usage: demo.sh [--keep | --frr]" ;;
esac

running() { "$qsh" -c "show running-config"; }

startup() { "$qsh" -c "show startup-config"; }

# Addresses of the loopback interface: the server, and the other two switches.
server=127.0.0.2 north=127.0.0.21 south=127.0.0.22

echo "Installing what is missing, building what the demonstration needs"
install_packages
fetch_base_mibs
build build -- configcopymib xfplatform qsh procd transfer_programs xfcopy
if [ "${1-}" = --frr ]; then
    sudo=()
    [ "$(id -u)" = 0 ] || sudo=(sudo)
    exec "${sudo[@]}" "$top/scripts/demo/frr.sh"
fi
start_bench

say "This machine plays a switch: a stock snmpd on $agent has loaded the
module, procd keeps the startup configuration, snmptrapd listens. A server on
$server offers one empty folder by TFTP and SFTP. Two more switches, north
($north) and south ($south), make up the fabric with it. The commands
below find their SNMPv3 user in snmp.conf, and the password for the server in the
environment. The switch runs this configuration:"
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
"$qsh" --apply "$bench/first.cfg" "$bench/results"
show "$qsh" -c "show running-config"
running >"$bench/running.before"

# --- TFTP -------------------------------------------------------------------

say "1. Running configuration to the server, by TFTP."
copy 0 --notify running "tftp://$server/rack4.cfg"
show cat "$bench/server/rack4.cfg"
cmp "$bench/server/rack4.cfg" "$bench/running.before" || die "not the same"
checked "the file on the server is the running configuration, octet by octet"

say "The copy asked for a notification. This is what snmptrapd received:"
until_true 20 notified 1 || die "no notification"
awk '/^received$/ { text = ""; next } { text = text "\n    " $0 }
    END { print substr(text, 2) }' "$bench/traps.log"
checked "xfCopyCompletion was received (a success has fail cause 1, too)"

say "The same without xfcopy: one request creates a row and starts its copy, and
the row tells how it goes. The server is held for a moment, so that the copy can be
seen while it runs."
send STOP "$tftp_server"
upload 1 by-hand.cfg
[ "$(state 1)" = 2 ] || die "the copy does not run"
show xfcopy list "$agent"
checked "the copy is running"
send CONT "$tftp_server"
finish 1 3
cmp "$bench/server/by-hand.cfg" "$bench/running.before" || die "not the same"
checked "the copy was successful, and the file is the same"

say "2. The other way round: the file is edited on the server and copied to the
running configuration."
sed -e 's/^hostname .*/hostname rack4-spare/' -e '/^contact/s/^/no /' \
    "$bench/server/rack4.cfg" >"$bench/edited.cfg"
printf 'vlan 20\n  name cameras\n' >>"$bench/edited.cfg"
offer edited.cfg <"$bench/edited.cfg"
copy 0 "tftp://$server/edited.cfg" running
running >"$bench/running.after"
show diff "$bench/running.before" "$bench/running.after" || true
grep -qx 'hostname rack4-spare' "$bench/running.after" &&
    grep -qx '  name cameras' "$bench/running.after" &&
    ! grep -q contact "$bench/running.after" ||
    die "the running configuration is another one"
checked "the running configuration has changed as the file says"

say "3. A copy that must fail: the server has no such file."
copy 7 --notify "tftp://$server/missing.cfg" running
says 'the server said error 1: "File not found"'
until_true 20 notified 2 || die "no notification"
running | cmp - "$bench/running.after" || die "the configuration has changed"
checked "it is said that the file is missing; the configuration is as it was"

# --- SFTP -------------------------------------------------------------------

say "4. The same by SFTP, with an OpenSSH sshd on the server. A server whose
host key the switch does not know is not trusted:"
copy 7 running "$(file secure.cfg)"
says "xfenrol $server"
[ ! -e "$bench/server/secure.cfg" ] || die "the file was sent all the same"
checked "it is said why, and what to do; nothing was sent"

say "So the key is enrolled, by the fingerprint that the server's console shows."
show ssh-keygen -l -f "$bench/sftp/host_key.pub"
show xfenrol "$server" \
    "$(ssh-keygen -l -f "$bench/sftp/host_key.pub" | cut -d ' ' -f 2)"
copy 0 running "$(file secure.cfg)"
cmp "$bench/server/secure.cfg" "$bench/running.after" || die "not the same"
checked "the file on the server is the running configuration, octet by octet"

say "And from the server to the running configuration:"
echo 'hostname rack4-secure' | offer name.cfg
show cat "$bench/server/name.cfg"
copy 0 "$(file name.cfg)" running
running >"$bench/running.secure"
show diff "$bench/running.after" "$bench/running.secure" || true
grep -qx 'hostname rack4-secure' "$bench/running.secure" ||
    die "the name is another one"
[ "$(diff "$bench/running.after" "$bench/running.secure" |
    grep -c '^[<>]')" = 2 ] || die "more has changed than the name"
checked "the name has changed, and nothing else"

# --- saves ------------------------------------------------------------------

say "5. Running to startup configuration: what the switch will start with."
copy 0 running startup
startup | cmp - "$bench/running.secure" || die "not the same"
checked "the startup configuration is the running configuration"

say "6. After one more change the same in the whole fabric, while the switch south
is down. These are the switches:"
echo 'contact night shift' >"$bench/change.cfg"
"$qsh" --apply "$bench/change.cfg" "$bench/results"
running >"$bench/running.last"
show cat "$XF_FABRIC_FILE"
say "xfcopy shows the error table: on which switches it failed, and why."
copy 7 running fabric
[ "$(grep -c 10:00:00:05:1e:34:01 "$bench/said")" = 1 ] &&
    grep -q "$south .*01:02 .*Connection refused" "$bench/said" ||
    die "south, and it alone, should be in the table"
startup | cmp - "$bench/running.last" || die "this switch has not saved"
grep -qx 'hostname north' "$bench/north/state/startup/system.cfg" ||
    die "north has not saved"
[ ! -e "$bench/south/state/startup/system.cfg" ] || die "south was saved"
checked "this switch and north have saved; south has not, and the table says so"

say "South comes up, and the save is repeated."
start_switch south "$south"
copy 0 running fabric
grep -qx 'hostname south' "$bench/south/state/startup/system.cfg" ||
    die "south has not saved"
checked "now south has saved, too"

# --- the end ----------------------------------------------------------------

say "At the end: the switch remembers every copy, and why those failed."
show xfcopy history "$agent" | tee "$bench/history"
[ "$(grep -c ' successful ' "$bench/history")" = 7 ] &&
    [ "$(grep -c ' failed ' "$bench/history")" = 3 ] ||
    die "the history is not that of this demonstration"
checked "the history has all of them"
nothing_left

if $keep; then
    trap - EXIT
    cat <<END

Everything is left running. To go on by hand:

    export SNMPCONFPATH=$bench MIBS='$MIBS' MIBDIRS='$MIBDIRS'
    export XF_ROOT=$XF_ROOT XF_STATE_DIRECTORY=$XF_STATE_DIRECTORY
    export XFCOPY_PASSWORD=$password PATH=$top/build/xfcopy:\$PATH
    xfcopy $agent running $(file more.cfg)
    xfcopy history $agent
    snmpwalk $agent $(if $names; then echo xfCopyTable; else echo $copy_entry; fi)
    $qsh -c "show running-config"
    ls $bench/server; tail $bench/traps.log $bench/snmpd.log $bench/procd.log

To end:

    $([ "$(id -u)" = 0 ] || echo 'sudo ')kill ${started[*]}; sleep 2
    rm -rf $bench${results_are_ours:+ /tmp/configcopy.txt}${run_sshd_is_ours:+ /run/sshd}
END
    exit 0
fi
say "All of it was checked."
