#!/usr/bin/env bash
# Builds everything and runs all tests: as it is delivered, under the address
# and undefined-behaviour sanitizers, and with an unsigned plain char.
source "$(dirname "$0")/lib.sh"

install_packages
fetch_base_mibs

failed=()
run_tests() { # DIRECTORY CTEST-OPTION...
    local directory=$1
    shift
    ctest --test-dir "$top/$directory" --output-on-failure -j "$(nproc)" \
        --no-tests=error "$@" >"$top/$directory/ctest.log" 2>&1 || {
        failed+=("$directory")
        cat "$top/$directory/ctest.log"
    }
}

echo "Building and testing: build"
build build
run_tests build

echo "Building and testing: build-asan"
build build-asan -DXF_SANITIZE=ON
# A stock snmpd is not built for the sanitizers; its own memory at the end of
# the process is no business of theirs. The thousand copies are about memory.
run_tests build-asan -E '^agent\.(endurance|exports|sources|names)$'

echo "Building and testing: build-unsigned-char"
build build-unsigned-char -DXF_UNSIGNED_CHAR=ON -- unit_tests
run_tests build-unsigned-char -L unit

for directory in build-asan build-unsigned-char build; do
    printf '\n%s\n' "$directory"
    sed -n '/tests passed/,$p' "$top/$directory/ctest.log"
done
[ ${#failed[@]} -eq 0 ] || die "tests failed in: ${failed[*]}"
