#!/usr/bin/env bash
# Builds for 32-bit big-endian PowerPC and runs what was built under QEMU's user
# mode: all unit tests, the tests of the host platform, and an snmpd with the
# module that copies to and from an in.tftpd of this machine. See
# docs/powerpc.md.
source "$(dirname "$0")/lib.sh"

triplet=powerpc-linux-gnu
emulator=(qemu-ppc -L "/usr/$triplet")
cross_packages=("g++-$triplet" qemu-user googletest dpkg-dev file)
cache=$top/.cache/powerpc
built=$top/build-powerpc
# Why each cannot pass there:
# - the emulator turns vfork into fork, so that a failed exec shows as status 127
# - it keeps two signals for itself, which no process can set
not_emulated=Runner.AMissingProgramIsAnError:Runner.SignalsAreAsInAFreshProcess
# Of the agent's tests those that neither wait for a time limit nor move much.
quick='not mebibytes and not answer and not stops_in and not never_ends'
quick+=' and not many_rows'

# --- Net-SNMP, curl, Nettle and GoogleTest ----------------------------------

# Sources of packages, through lists of our own: the machine's stay as they are.
own_apt() {
    apt-get -o Dir::Etc::sourcelist=/dev/null \
        -o Dir::Etc::sourceparts="$cache/apt/sources" \
        -o Dir::State::lists="$cache/apt/lists" \
        -o Dir::Cache="$cache/apt/cache" "$@"
}

prepare_own_apt() {
    local list='' parts='' file
    eval "$(apt-config shell list Dir::Etc::sourcelist/f \
        parts Dir::Etc::sourceparts/d)"
    mkdir -p "$cache"/apt/{sources,lists/partial,cache/archives/partial}
    for file in "$list" "$parts"*.list; do
        [ ! -f "$file" ] || sed -En 's/^[[:space:]]*deb([[:space:]])/deb-src\1/p' \
            "$file" >"$cache/apt/sources/$(basename "$file" .list).list"
    done
    for file in "$parts"*.sources; do
        [ ! -f "$file" ] || sed -E 's/^Types:.*/Types: deb-src/' "$file" \
            >"$cache/apt/sources/$(basename "$file")"
    done
    own_apt update -q
}

# The version of the library that this machine builds with; the newest one where
# that is gone.
fetch_source() { # PACKAGE VERSION DIRECTORY
    mkdir -p "$3/download" && cd "$3/download" &&
        { own_apt source -q "$1=$2" || own_apt source -q "$1"; } &&
        mv "$1"-*/ ../source
}

build_netsnmp() { # WORK
    mkdir "$1/build" && cd "$1/build" &&
        ../source/configure --build="$(gcc -dumpmachine)" --host="$triplet" \
            --prefix=/usr --with-defaults --with-openssl=internal \
            --disable-static --disable-applications --disable-manuals \
            --disable-scripts --disable-mibs --disable-embedded-perl \
            --without-perl-modules --without-python-modules --without-rpm \
            --without-pcre --without-libwrap --without-nl --without-mysql \
            --without-systemd --without-kmem-usage --with-logfile=none &&
        make -s -j "$(nproc)" CFLAGS='-O1 -w' &&
        make -s -C snmplib install DESTDIR="$1/root" &&
        make -s -C agent install DESTDIR="$1/root" &&
        make -s installheaders DESTDIR="$1/root"
}

# The host platform needs it for FTP alone, which does not link without HTTP.
build_curl() { # WORK
    local protocol without=()
    for protocol in dict file tftp gopher imap ldap ldaps mqtt pop3 rtsp \
        smb smtp telnet manual cookies threaded-resolver; do
        without+=("--disable-$protocol")
    done
    mkdir "$1/build" && cd "$1/build" &&
        ../source/configure --build="$(gcc -dumpmachine)" --host="$triplet" \
            --prefix=/usr --disable-static --without-ssl --without-zlib \
            --without-brotli --without-zstd --without-libpsl \
            --without-libidn2 --without-nghttp2 --without-librtmp \
            --enable-ftp --enable-ipv6 "${without[@]}" &&
        make -s -j "$(nproc)" -C lib CFLAGS=-O1 &&
        make -s -C lib install DESTDIR="$1/root" &&
        make -s -C include install DESTDIR="$1/root"
}

# For the digest of a copy; on this machine it comes with curl.
build_nettle() { # WORK
    # What configure is made of is as it came, whatever the dates say.
    local unchanged=(AUTOCONF=: AUTOHEADER=:)
    mkdir "$1/build" && cd "$1/build" &&
        ../source/configure --build="$(gcc -dumpmachine)" --host="$triplet" \
            --prefix=/usr --libdir=/usr/lib --disable-static \
            --disable-public-key --disable-assembler --disable-openssl \
            --disable-documentation CFLAGS=-O2 CC_FOR_BUILD=gcc &&
        make -s -j "$(nproc)" "${unchanged[@]}" libnettle.so &&
        make -s "${unchanged[@]}" install-headers install-shared-nettle DESTDIR="$1/root"
}

build_googletest() { # WORK
    cmake -S /usr/src/googletest -B "$1/build" \
        -DCMAKE_TOOLCHAIN_FILE="$top/cmake/$triplet.cmake" \
        -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_CXX_FLAGS=-O1 &&
        cmake --build "$1/build" -j "$(nproc)" &&
        DESTDIR=$1/root cmake --install "$1/build"
}

source_version() { dpkg-query -W -f '${source:Version}' "$1"; }

key_of() { # BUILD-FUNCTION VERSION
    { echo "$2"
      declare -f "$1"
      cat "$top/cmake/$triplet.cmake"
      "$triplet-gcc" -dumpfullversion; } | sha256sum | cut -d ' ' -f 1
}

up_to_date() { # NAME VERSION
    [ "$(cat "$cache/$1/key" 2>/dev/null)" = "$(key_of "build_$1" "$2")" ]
}

# As the root of a file system in .cache/powerpc/NAME.
library() { # NAME VERSION [SOURCE-PACKAGE]
    local work=$cache/$1.work
    rm -rf "$work" "${cache:?}/$1"
    mkdir -p "$work"
    ( { [ -z "${3-}" ] || fetch_source "$3" "$2" "$work"; } &&
        "build_$1" "$work" ) >"$cache/$1.log" 2>&1 </dev/null ||
        { tail -n 30 "$cache/$1.log" >&2
          echo "$1 could not be built, see $cache/$1.log" >&2
          return 1; }
    key_of "build_$1" "$2" >"$work/root/key"
    mv "$work/root" "$cache/$1"
    rm -rf "$work"
}

libraries() {
    local snmp curl nettle test first='' second='' third=''
    snmp=$(source_version libsnmp-dev)
    curl=$(source_version libcurl4-openssl-dev)
    nettle=$(source_version nettle-dev)
    test=$(source_version googletest)
    mkdir -p "$cache"
    up_to_date netsnmp "$snmp" || first=netsnmp
    up_to_date curl "$curl" || second=curl
    up_to_date nettle "$nettle" || third=nettle
    if [ -n "$first$second$third" ]; then
        prepare_own_apt >"$cache/apt.log" 2>&1 ||
            { tail -n 30 "$cache/apt.log" >&2
              die "no list of source packages"; }
    fi
    if [ -n "$first$second$third" ] || ! up_to_date googletest "$test"; then
        echo "Building Net-SNMP $snmp, curl $curl, Nettle $nettle and" \
            "GoogleTest $test"
        rm -rf "$built"
    fi
    # Two at a time: most of it is configure scripts, which do one thing after
    # another.
    { [ -z "$first" ] || library netsnmp "$snmp" net-snmp; } &
    first=$!
    { { [ -z "$second" ] || library curl "$curl" curl; } &&
        { [ -z "$third" ] || library nettle "$nettle" nettle; } &&
        { up_to_date googletest "$test" || library googletest "$test"; }; } &
    second=$!
    wait "$first" || first=failed
    wait "$second" || second=failed
    [ "$first" != failed ] && [ "$second" != failed ] || exit 1
    rm -rf "$cache/apt"
}

# --- Tests ------------------------------------------------------------------

# What an emulated program starts is started by the kernel, which has to find
# something for its own processor: a script that calls the emulator.
wrap_programs() {
    local program
    for program in "$built"/root/brim/bin/{procd,qsh,ovan-tftp,{snmp.ftp,sftp,scp}.expect,xf{askpass,keep,settings,vrf}} \
        "$built/host/xftrace"; do
        case $(head -c 4 "$program") in
        *ELF)
            mv "$program" "$program.elf"
            printf '#!/bin/sh\nexec %s "%s.elf" "$@"\n' "${emulator[*]}" \
                "$program" >"$program"
            chmod 755 "$program"
            ;;
        esac
    done
}

# Runs every unit test of a build tree, one process for each file of them; the
# names of those that passed go to OUTPUT/passed. None may be skipped.
unit_tests() { # DIRECTORY OUTPUT [EMULATOR...]
    local directory=$1/tests/unit output=$2 result=0 sources
    shift 2
    sources=("$top"/tests/unit/*_test.cpp)
    rm -rf "$output"
    mkdir -p "$output"
    # shellcheck disable=SC2016
    (cd "$output" && printf '%s\0' "${sources[@]##*/}" |
        xargs -0 -P "$(nproc)" -I{} sh -c '
            name=${1%.cpp} directory=$2
            shift 2
            timeout 300 "$@" "$directory/$name" >"$name.log" 2>&1 ||
                { cat "$name.log"; exit 1; }' sh {} "$directory" "$@") ||
        result=1
    sed -n 's/^\[       OK \] \(.*\) ([0-9]* ms)$/\1/p' "$output"/*.log |
        sort >"$output/passed"
    ! grep -h '^\[  SKIPPED \]\|DISABLED TEST' "$output"/*.log || result=1
    [ -s "$output/passed" ] || result=1
    return $result
}

host_tests() {
    timeout 300 "${emulator[@]}" "$built/tests/host/host_tests" \
        --gtest_filter="-$not_emulated" >"$built/host-tests.log" 2>&1 ||
        { cat "$built/host-tests.log"
          return 1; }
    grep -E '^\[  (PASSED|SKIPPED)' "$built/host-tests.log"
}

agent_tests() { # NAME PYTEST-ARGUMENT...
    local name=$1 module snmpd=$cache/netsnmp/usr/sbin/snmpd
    shift
    module=$(find "$built/infra" -name libconfigcopymib.so)
    (cd "$top/tests/agent" && XF_TEST_BUILD=$built XF_TEST_MODULE=$module \
        XF_TEST_PLATFORM=$built/host/libxfplatform.so XF_TEST_CLOCK=/none \
        XF_TEST_FAULTS=$built/faults \
        XF_TEST_SNMPD="${emulator[*]} -E LD_LIBRARY_PATH=$cache/netsnmp/usr/lib $snmpd" \
        PYTHONDONTWRITEBYTECODE=1 timeout 600 /usr/bin/python3 -m pytest -q \
        -p no:cacheprovider --basetemp="$built/agent-$name" "$@" \
        >"$built/agent-$name.result" 2>&1 </dev/null)
}

by_hand() {
    local lines
    lines=$(/usr/bin/python3 "$top/tests/docs/documents.py" \
        docs/powerpc.md "One thing by hand") && (cd "$top" && bash -ec "$lines")
}

install_packages
if ! (install_packages "${cross_packages[@]}"); then
    echo "PowerPC: skipped, because these packages cannot be installed here:" \
        "${cross_packages[*]}"
    exit 0
fi
libraries

echo "Building and testing: build-powerpc"
build build-powerpc "-DCMAKE_TOOLCHAIN_FILE=$top/cmake/$triplet.cmake" \
    "-DXF_CROSS_PREFIXES=$cache/netsnmp;$cache/curl;$cache/nettle;$cache/googletest" \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -- \
    configcopymib xfplatform unit_tests host_tests
! file -b "$cache/netsnmp/usr/sbin/snmpd" "$built/host/libxfplatform.so.1" |
    grep -v '^ELF 32-bit MSB .*PowerPC' || die "not built for PowerPC"
wrap_programs
# For comparison; test.sh goes on from there.
build build -- unit_tests

# What runs beside the unit tests mostly waits. Only one of the agent's applies
# configurations.
failed=()
host_tests >"$built/host-tests.result" 2>&1 &
host=$!
agent_tests copies test_copies.py -k "$quick" &
copies=$!
agent_tests rows test_rows.py test_reading.py -k "$quick" &
rows=$!
unit_tests "$built" "$built/unit" "${emulator[@]}" || failed+=("unit tests")
unit_tests "$top/build" "$built/unit-native" || failed+=("native unit tests")
wait "$host" || failed+=("host tests")
wait "$copies" || failed+=("agent tests of copies")
wait "$rows" || failed+=("agent tests of rows")
by_hand >"$built/by-hand.log" 2>&1 </dev/null ||
    failed+=("the commands of docs/powerpc.md")
echo "Host platform, emulated:"
cat "$built/host-tests.result"
echo "Agent, emulated:"
cat "$built"/agent-{copies,rows}.result

cmp -s "$built/unit/passed" "$built/unit-native/passed" ||
    { diff "$built/unit-native/passed" "$built/unit/passed" || true
      failed+=("other tests passed than natively"); }
printf '\nUnit tests that passed: %d natively, %d on PowerPC\n' \
    "$(wc -l <"$built/unit-native/passed")" "$(wc -l <"$built/unit/passed")"
[ ${#failed[@]} -eq 0 ] || die "failed: ${failed[*]}"
