# What a management station does, shown as commands that can be repeated by hand.

# An SNMPv3 user, whose passphrase is that of this run alone, and the password of
# the server's user.
use_snmp() {
    snmpd_users="createUser operator SHA-256 $password AES $password
rwuser operator priv"
    export SNMPCONFPATH=$bench SNMP_PERSISTENT_DIR=$bench/persistent
    printf '%s\n' 'defVersion 3' 'defSecurityName operator' \
        'defSecurityLevel authPriv' 'defAuthType SHA-256' 'defPrivType AES' \
        "defPassphrase $password" >"$bench/snmp.conf"
    use_names
    export XFCOPY_PASSWORD=$password
    PATH=$top/build/xfcopy:$XF_ROOT/brim/bin:$PATH
}

# Numbers take the place of the MIB's names if those cannot be had.
use_names() {
    names=false
    export MIBS='' MIBDIRS=''
    if [ -d "$top/.cache/mibs" ]; then
        names=true
        MIBS=SNMPv2-MIB:XF-CONFIG-COPY-MIB
        MIBDIRS="$top/.cache/mibs:$top/build/mibs"
    fi
}

# --- xfcopy -----------------------------------------------------------------

copy() { # STATUS WORD...: what it says is in $bench/said, too
    local expected=$1 status=0
    shift
    show xfcopy "$agent" "$@" >"$bench/said" 2>&1 || status=$?
    cat "$bench/said"
    [ "$status" = "$expected" ] || die "xfcopy ended with status $status"
}

says() { # WORDS: what the last copy has to say
    grep -qF -- "$1" "$bench/said" || die "it does not say: $1"
}

file() { echo "sftp://operator@$server/~/$1"; }

offer() { # FILE: puts standard input on the server
    cat >"$bench/server/$1"
    chmod 644 "$bench/server/$1"
}

notified() { # NUMBER: so many copies have told of their end
    [ "$(grep -c '\.2\.1\.2\.[0-9]*$\|xfCopyCompletion\.[0-9]*$' \
        "$bench/traps.log")" = "$1" ]
}

# --- the same with snmpset --------------------------------------------------

copy_entry=1.3.6.1.4.1.32473.1.1.1.1.1.1
declare -A column=(
    [xfCopyProtocol]=2 [xfCopySourceFileType]=3 [xfCopyDestFileType]=4
    [xfCopyServerAddress]=5 [xfCopyFileName]=6 [xfCopyState]=10
    [xfCopyEntryRowStatus]=14)
declare -A number=(
    [tftp]=1 [networkFile]=1 [runningConfig]=4 [createAndGo]=4)

object() { # COLUMN ROW
    if $names; then echo "$1.$2"; else echo "$copy_entry.${column[$1]}.$2"; fi
}

value() { if $names; then echo "$1"; else echo "${number[$1]}"; fi; }

# One SET that creates the row and starts its copy, one variable a line.
create() { # ROW [COLUMN TYPE VALUE]...
    local row=$1 arguments=("$agent") shown=$agent name
    shift
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

upload() { # ROW FILE
    create "$1" xfCopyProtocol i "$(value tftp)" \
        xfCopySourceFileType i "$(value runningConfig)" \
        xfCopyDestFileType i "$(value networkFile)" \
        xfCopyServerAddress a "$server" xfCopyFileName s "$2" \
        xfCopyEntryRowStatus i "$(value createAndGo)"
}

state() { snmpget -Oqve "$agent" "$(object xfCopyState "$1")"; } # ROW

ended() { [ "$(state "$1")" -gt 2 ]; } # ROW

finish() { # ROW STATE
    until_true 60 ended "$1" || die "the copy does not end"
    show snmpget "$agent" "$(object xfCopyState "$1")"
    [ "$(state "$1")" = "$2" ] || die "xfCopyState is $(state "$1")"
}
