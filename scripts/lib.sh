# What the scripts of this folder share; sourced by them.
set -euo pipefail

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export DEBIAN_FRONTEND=noninteractive

packages=(
    cmake g++ make libsnmp-dev libcurl4-openssl-dev nettle-dev
    libgtest-dev libgmock-dev snmp snmpd snmptrapd tftpd-hpa
    python3 python3-pytest python3-paramiko git
    vsftpd openssh-client openssh-server iproute2 frr frr-snmp
    libsystemd-dev man-db mandoc pkg-config zsh ansible-core)
# Those of them that bring services.
daemons=(snmpd snmptrapd tftpd-hpa vsftpd openssh-server frr)

die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    else
        command -v sudo >/dev/null || die "needs root or sudo for: $*"
        sudo "$@"
    fi
}

installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# units_of PACKAGE: what systemd could start of it, which may have other names.
units_of() {
    dpkg -L "$1" | sed -nE 's,.*/systemd/system/([^/@]+\.(service|socket))$,\1,p
        s,^/etc/init\.d/(.+),\1.service,p' | sort -u
}

# Debian starts and enables a daemon with its package. The scripts start
# daemons themselves, on ports of their own: nobody else's start or restart.
install_without_starting() (
    policy=/usr/sbin/policy-rc.d
    if [ ! -e $policy ]; then
        trap 'as_root rm -f $policy' EXIT
        printf '#!/bin/sh\nexit 101\n' | as_root tee $policy >/dev/null
        as_root chmod 755 $policy
    fi
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -qq -y --no-install-recommends "$@" || exit 1
    command -v systemctl >/dev/null || exit 0
    for name in "${daemons[@]}"; do
        case " $* " in *" $name "*)
            for unit in $(units_of "$name"); do
                as_root systemctl disable "$unit" || true
            done ;;
        esac
    done
)

# install_packages [NAME...]: those of `packages` if none is named.
install_packages() {
    local missing=() name
    [ $# -gt 0 ] || set -- "${packages[@]}"
    for name in "$@"; do
        installed "$name" || missing+=("$name")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    echo "Installing: ${missing[*]}"
    mkdir -p "$top/.cache"
    { as_root apt-get update -qq &&
        install_without_starting "${missing[@]}"; } \
        >"$top/.cache/packages.log" 2>&1 ||
        { tail -n 30 "$top/.cache/packages.log" >&2
          die "the packages could not be installed"; }
}

download_base_mibs() (
    rm -rf "$top/.cache/download"
    mkdir -p "$top/.cache/download" && cd "$top/.cache/download" || exit 1
    apt-get download -qq erlang-snmp || {
        as_root apt-get update -qq && apt-get download -qq erlang-snmp; } ||
        exit 1
    dpkg-deb -x erlang-snmp_*.deb . && mkdir mibs &&
        cp usr/lib/erlang/lib/snmp-*/mibs/*.mib mibs/ && mv mibs .. &&
        rm -rf "$top/.cache/download"
)

# The folder .cache/mibs with the modules that ours imports. Without it the
# tools show numbers only.
fetch_base_mibs() {
    mkdir -p "$top/.cache"
    [ -d "$top/.cache/mibs" ] ||
        download_base_mibs >"$top/.cache/mibs.log" 2>&1 ||
        echo "The base MIB modules could not be had: numbers instead of names."
}

# build DIRECTORY OPTION... [-- TARGET...]
build() {
    local directory=$top/$1 options=() log
    shift
    while [ $# -gt 0 ] && [ "$1" != -- ]; do
        options+=("$1")
        shift
    done
    [ $# -eq 0 ] || shift
    mkdir -p "$directory"
    log=$directory/build.log
    { cmake -S "$top" -B "$directory" "${options[@]}" &&
        cmake --build "$directory" -j "$(nproc)" ${1:+--target "$@"}; } \
        >"$log" 2>&1 || { tail -n 40 "$log" >&2
                          die "the build failed, see $log"; }
}
