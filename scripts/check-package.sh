#!/usr/bin/env bash
# Builds the Debian packages from what git knows, looks at them with lintian, and
# tries them in a bare Debian 12: the commands of README and docs/operation.md,
# copies, an upgrade, a purge. That once with the services run as their units say,
# and once, with FRR, under systemd itself. Says what it did, and what was skipped
# and why. Needs root; the bare root stays in .cache/package.
source "$(dirname "$0")/lib.sh"

tools=(debhelper debootstrap dpkg-dev libsystemd-dev lintian)
cache=$top/.cache/package
source=$cache/source bare=$cache/bare root=$cache/root
suite=bookworm
# What a switch has before. The others are only fetched, for apt to find.
before=(snmpd systemd)
agent=snmpd-config-copy
router=frr
# What try_package.py ends with if systemd cannot be process 1 here.
not_booted=77

skip() {
    echo "Packages: skipped, because $*"
    exit 0
}

log() { # NAME COMMAND...: the end of what it says is shown if it fails
    local file=$cache/$1.log
    shift
    "$@" >"$file" 2>&1 </dev/null || { tail -n 40 "$file" >&2; return 1; }
}

step() { # TEXT COMMAND...
    local begun=$SECONDS text=$1
    shift
    printf '  %s ... ' "$text"
    "$@" || { echo "FAILED"; exit 1; }
    echo "ok ($((SECONDS - begun)) s)"
}

# --- Packages ---------------------------------------------------------------

copy_source() {
    rm -rf "$source"
    mkdir -p "$source/tree"
    (cd "$top" && git ls-files -z | xargs -0 cp -a --parents -t "$source/tree")
}

# The first block of the chapter, which begins with what is needed to build them,
# and building; the rest is for the bare root.
first_commands() {
    /usr/bin/python3 "$top/tests/docs/documents.py" \
        README.md "On a router" "apt build-dep"
}

build_packages() { # COMMAND...
    # Nobody debugs these.
    export DEB_BUILD_OPTIONS="parallel=$(nproc) noautodbgsym"
    # The same flags and tree each time: where ccache is, it helps. debhelper
    # gives its programs another home.
    if command -v ccache >/dev/null; then
        export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
        CCACHE_DIR=$(ccache --get-config cache_dir)
        export CCACHE_DIR CCACHE_BASEDIR=$source/tree
    fi
    # An operator says yes to what `apt build-dep` asks.
    echo 'APT::Get::Assume-Yes "true";' >"$cache/apt.conf"
    export APT_CONFIG=$cache/apt.conf
    cd "$source/tree" && nice bash -ec "$(printf '%s\n' "$@")"
}

# The same contents with a version above the first one's.
next_version() {
    local files=$source/next package
    package=$(echo "$source/$agent"_*.deb)
    rm -rf "$files"
    dpkg-deb -R "$package" "$files" &&
        sed -i 's/^Version: .*/&+next/' "$files/DEBIAN/control" &&
        dpkg-deb --root-owner-group -b "$files" "$source/next.deb"
}

# All that it has to say; errors and warnings count, and so does its own failure.
check_lintian() { # CHANGES
    local found status=0
    found=$(lintian --allow-root --display-info --pedantic --show-overrides \
        --tag-display-limit 0 --fail-on none "$1") || status=$?
    printf '\n%s\n    ' "$found"
    [ $status = 0 ] && ! grep -q '^[EW]:' <<<"$found"
}

# --- The bare root ----------------------------------------------------------

# The machine's own mirrors of Debian, as lines for apt.
mirrors() {
    apt-get indextargets \
        --format "\$(ORIGIN) \$(CODENAME) \$(COMPONENT) \$(REPO_URI)" \
        "Created-By: Packages" | sort -u |
        awk -v suite=$suite '$1 == "Debian" && index($2, suite) == 1 {
            print "deb", $4, $2, $3 }'
}

in_root() { # ROOT COMMAND...
    local folder=$1
    shift
    unshare --mount --pid --fork --kill-child sh -c '
        mount -t proc proc "$1/proc" && mount --rbind /dev "$1/dev" &&
        exec chroot "$@"' sh "$folder" env PATH=/usr/sbin:/usr/bin:/sbin:/bin \
        LC_ALL=C DEBIAN_FRONTEND=noninteractive "$@"
}

update() { in_root "$1" apt-get -q -o APT::Update::Error-Mode=any update; }

make_bare_root() { # MIRROR
    rm -rf "$bare.new"
    debootstrap --variant=minbase $suite "$bare.new" "$1" &&
        mirrors >"$bare.new/etc/apt/sources.list" &&
        printf '#!/bin/sh\nexit 101\n' >"$bare.new/usr/sbin/policy-rc.d" &&
        chmod 755 "$bare.new/usr/sbin/policy-rc.d" &&
        printf '%s\n' 'APT::Get::Assume-Yes "true";' \
            'APT::Install-Recommends "false";' \
            'APT::AutoRemove::SuggestsImportant "false";' 'APT::Sandbox::User "root";' \
            >"$bare.new/etc/apt/apt.conf.d/90check" &&
        update "$bare.new" &&
        in_root "$bare.new" apt-get -q install "${before[@]}" &&
        mv "$bare.new" "$bare"
}

reachable() { # MIRROR
    /usr/lib/apt/apt-helper -q download-file "${1%/}/dists/$suite/InRelease" \
        "$cache/InRelease" >"$cache/mirror.log" 2>&1
}

# Into apt's cache of the bare root: installing happens without a network.
fetch_dependencies() {
    local name found=()
    for name in "$agent" libconfigcopymib-dev; do
        cp "$source/$name"_*.deb "$bare/root/$name.deb"
        found+=("/root/$name.deb")
    done
    in_root "$bare" apt-get -q install --download-only "${found[@]}" \
        libcap2-bin logrotate "$router"
}

copy_root() {
    rm -rf "$root"
    cp -a "$bare" "$root"
    # It need not outlive a power cut.
    echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/check"
    rm -f "$root"/root/*.deb
}

try_packages() { # WHAT OPTION...
    local status=0
    echo " $1:"
    shift
    step "a copy of the bare root" copy_root
    unshare --mount --net --pid --fork --kill-child --mount-proc \
        env PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 \
        "$top/tests/package/try_package.py" "$root" \
        "$(echo "$source/$agent"_*.deb)" "$source/next.deb" "$@" </dev/null ||
        status=$?
    [ $status = 0 ] || [ $status = $not_booted ] ||
        die "the packages do not do what the documents say"
    rm -rf "$root"
    return $status
}

# ----------------------------------------------------------------------------

[ "$(id -u)" = 0 ] || skip "only root can make a bare root"
unshare --mount --net --pid --fork true 2>/dev/null ||
    skip "there are no namespaces here"
install_packages
(install_packages "${tools[@]}") ||
    skip "these packages cannot be installed here: ${tools[*]}"
mkdir -p "$cache"

echo "Packages: built, and tried in a bare Debian $suite"
step "copy what git knows" copy_source
mapfile -t -n 2 commands <<<"$(first_commands)"
step "${commands[*]}" log build build_packages "${commands[@]}"
step "lintian" check_lintian "$(echo "$source"/*.changes)"
step "a second version" log next next_version
if [ ! -d "$bare" ]; then
    mirror=$(mirrors | awk -v suite=$suite '$3 == suite { print $2; exit }')
    [ -n "$mirror" ] || skip "apt has no mirror for $suite"
    reachable "$mirror" || skip "the mirror of apt cannot be reached"
    step "a bare root with ${before[*]}" log bare make_bare_root "$mirror"
fi
if ! log fetch fetch_dependencies 2>/dev/null; then
    log update update "$bare" || skip "the mirror of apt cannot be reached"
    step "its dependencies are fetched" log fetch fetch_dependencies
fi
try_packages "with the services run as their units say"
if try_packages "under systemd, and with FRR" --systemd; then
    echo "Packages: all of it was checked"
else
    echo "Packages: checked, but not under systemd and not with FRR, see above"
fi
