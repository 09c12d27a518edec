#!/usr/bin/env bash
# Builds everything and runs all tests: as it is delivered, and under the address
# and undefined-behaviour sanitizers, there with an unsigned plain char.
source "$(dirname "$0")/lib.sh"

install_packages
fetch_base_mibs

# Agents write it, several at a time: none of their tests can tell whose it is.
results=/tmp/configcopy.txt
[ -e $results ] || trap 'rm -f $results' EXIT

failed=()

# How far the tests are: one line that counts, on a terminal.
show_progress() {
    local line
    while IFS= read -r line; do
        [[ $line =~ ^\ *([0-9]+/[0-9]+)\ Test ]] && [ -t 1 ] &&
            printf '\r    %s tests ' "${BASH_REMATCH[1]}"
    done
    [ ! -t 1 ] || echo
}

run_tests() { # DIRECTORY CTEST-OPTION...
    local directory=$1 log=$top/$1/ctest.log
    shift
    # More than there are processors: many tests wait most of the time.
    ctest --test-dir "$top/$directory" --output-on-failure \
        -j "$((4 * $(nproc)))" --no-tests=error "$@" 2>&1 |
        tee "$log" | show_progress || {
        failed+=("$directory")
        cat "$log"
    }
}

begin() { # PART DIRECTORY WHAT
    echo "$1/2 $2: $3"
}

begin 1 build "as it is delivered"
build build
run_tests build

begin 2 build-asan "with the address and undefined-behaviour sanitizers"
# Less optimized, with lines only: half the time to build it. Plain char is
# unsigned, as it is on the target: no line may count on either.
build build-asan -DXF_SANITIZE=ON -DXF_UNSIGNED_CHAR=ON \
    "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1"
# What a stock snmpd has not freed at its end is not looked at there, see
# tests/agent/lab.py. The thousand copies are about memory, which a sanitizer
# holds back, the million entries about time; the other tests left out do not run
# what it has built, or build more that has none.
run_tests build-asan \
    -E '^agent\.(endurance|exports|names)$|MillionEntries|^install\.'

for directory in build-asan build; do
    printf '\n%s\n' "$directory"
    sed -n '/tests passed/,$p' "$top/$directory/ctest.log"
done
[ ${#failed[@]} -eq 0 ] || die "tests failed in: ${failed[*]}"
