# What a management station does, shown as commands that can be repeated by hand.
# Numbers take the place of the MIB's names if those cannot be had.

copy_entry=1.3.6.1.4.1.32473.1.1.1.1.1.1
error_entry=1.3.6.1.4.1.32473.1.1.1.1.2.1
declare -A column=(
    [xfCopyProtocol]=2 [xfCopySourceFileType]=3 [xfCopyDestFileType]=4
    [xfCopyServerAddress]=5 [xfCopyFileName]=6 [xfCopyUserName]=7
    [xfCopyUserPassword]=8 [xfCopyNotificationOnCompletion]=9
    [xfCopyState]=10 [xfCopyFailCause]=13 [xfCopyEntryRowStatus]=14)
declare -A number=(
    [tftp]=1 [sftp]=5
    [networkFile]=1 [startupConfig]=3 [runningConfig]=4 [fabricStartupConfig]=6
    [true]=1 [createAndGo]=4)

use_names() {
    names=false
    export MIBS='' MIBDIRS='' SNMPCONFPATH=$bench
    export SNMP_PERSISTENT_DIR=$bench/persistent
    printf 'defVersion 2c\ndefCommunity private\n' >"$bench/snmp.conf"
    if [ -d "$top/.cache/mibs" ]; then
        names=true
        MIBS=SNMPv2-MIB:XF-CONFIG-COPY-MIB
        MIBDIRS="$top/.cache/mibs:$top/build/mibs"
    fi
}

object() { # COLUMN ROW
    if $names; then echo "$1.$2"; else echo "$copy_entry.${column[$1]}.$2"; fi
}

value() { if $names; then echo "$1"; else echo "${number[$1]}"; fi; }

# One SET that creates the row and starts its copy, one variable a line.
create() { # ROW [COLUMN TYPE VALUE]...
    local row=$1 arguments=("$agent") shown=$agent name
    shift
    set -- "$@" xfCopyNotificationOnCompletion i "$(value true)" \
        xfCopyEntryRowStatus i "$(value createAndGo)"
    while [ $# -gt 0 ]; do
        name=$(object "$1" "$row")
        arguments+=("$name" "$2" "$3")
        shown+=" \\"$'\n'"      $name $2 $3"
        shift 3
    done
    printf '$ snmpset %s\n' "$shown"
    # The answer repeats the request.
    snmpset "${arguments[@]}" >"$bench/answer" ||
        { cat "$bench/answer"; die "the request was refused"; }
}

transfer() { # ROW PROTOCOL SOURCE DESTINATION FILE
    local login=()
    [ "$2" = tftp ] || login=(xfCopyUserName s operator
                              xfCopyUserPassword s "$password")
    create "$1" xfCopyProtocol i "$(value "$2")" \
        xfCopySourceFileType i "$(value "$3")" \
        xfCopyDestFileType i "$(value "$4")" \
        xfCopyServerAddress a "$server" xfCopyFileName s "$5" \
        ${login[@]+"${login[@]}"}
}

save() { # ROW DESTINATION
    create "$1" xfCopySourceFileType i "$(value runningConfig)" \
        xfCopyDestFileType i "$(value "$2")"
}

shown() { # COLUMN ROW: shows it and leaves the number in $got
    printf '$ snmpget %s %s\n' "$agent" "$(object "$1" "$2")"
    snmpget "$agent" "$(object "$1" "$2")"
    got=$(snmpget -Oqve "$agent" "$(object "$1" "$2")")
}

ended() { [ "$(snmpget -Oqve "$agent" "$(object xfCopyState "$1")")" -gt 2 ]; }

notified() { # ROW
    grep -q "\.2\.1\.2\.$1\b\|xfCopyCompletion\.$1\b" "$bench/traps.log"
}

finish() { # ROW STATE
    until_true 60 ended "$1" || die "the copy does not end"
    shown xfCopyState "$1"
    [ "$got" = "$2" ] || die "xfCopyState is $got"
}

fails() { # ROW CAUSE
    finish "$1" 4
    shown xfCopyFailCause "$1"
    [ "$got" = "$2" ] || die "xfCopyFailCause is $got"
}

# --- the error table --------------------------------------------------------

error_column() { # COLUMN NUMBER ROW OPTION...
    local object=$error_entry.$2.$3
    ! $names || object=$1.$3
    shift 3
    snmpwalk -Oqv "$@" "$agent" "$object"
}

# Address, name and text of every switch that failed. The addresses come as
# octets; the names are those of the fabric's list.
error_table() { # ROW
    local octets address
    printf '%-12s %-7s %s\n' Address Switch "What went wrong"
    paste -d '|' <(error_column xfCopyErrorDeviceAddress 3 "$1" -Ox) \
        <(error_column xfCopyErrorDescription 5 "$1") |
        while IFS='|' read -r octets text; do
            address=$(printf '%d.%d.%d.%d' $(printf '%s' "$octets" |
                tr -d '"' | sed 's/[0-9A-F][0-9A-F]/0x&/g'))
            printf '%-12s %-7s %s\n' "$address" "$(awk -v address="$address" \
                '$6 == address { print $2 }' "$XF_FABRIC_FILE")" \
                "$(printf '%s' "$text" | tr -d '"')"
        done
}
