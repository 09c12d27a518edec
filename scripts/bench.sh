#!/usr/bin/env bash
# scripts/bench.sh [--quick] [BENCH...]: measures what a user would compare,
# prints the tables and, after a whole run, writes docs/performance.md. The
# benches are those of bench/run.py; all of them if none is named.
source "$(dirname "$0")/lib.sh"

install_packages
for package in valgrind curl; do
    installed $package || install_without_starting $package >/dev/null
done
build build -- all bench
export XF_TEST_BUILD=$top/build PYTHONDONTWRITEBYTECODE=1
XF_TEST_MODULE=$(find "$top/build/infra" -name libconfigcopymib.so)
XF_TEST_CLOCK=$(find "$top/build/tests/agent" -name 'libmovable_clock.so')
export XF_TEST_MODULE XF_TEST_CLOCK
exec /usr/bin/python3 "$top/bench/run.py" "$@"
