#!/usr/bin/env bash
# The module's unit tests under valgrind's memcheck: no invalid access, no
# undecided value, nothing lost. Silent but for the count.
source "$(dirname "$0")/lib.sh"

install_packages
installed valgrind || install_without_starting valgrind >/dev/null
build build -- unit_tests

check() {
    local log=$1.memcheck.log
    timeout 900 valgrind -q --error-exitcode=9 --leak-check=full \
        --errors-for-leak-kinds=definite,possible \
        "$1" --gtest_brief=1 >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
    sed -n 's/^\[==========\] \([0-9]* tests\?\) .*/\1/p' "$log" | tail -n 1
}
export -f check

find "$top/build/tests/unit" -maxdepth 1 -name '*_test' -type f -print0 |
    xargs -0 -n 1 -P "$(nproc)" bash -c 'check "$0"' |
    awk '{ tests += $1 } END { print tests " unit tests under memcheck, " \
        "no error"; exit tests == 0 }'
