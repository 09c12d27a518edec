#!/usr/bin/env bash
# How long the shell takes to show and apply FRR's configuration, beside FRR's
# own tool. Needs root and network namespaces.
source "$(dirname "$0")/lib.sh"

install_packages
build build -- qsh
unshare -n -m true 2>/dev/null ||
    { echo "bench-frr: skipped, no namespaces can be had here"; exit 0; }
# Its programs say what they were asked for; only the table is wanted.
XF_TEST_BUILD=$top/build /usr/bin/python3 "$top/bench/frr.py" | grep '^|'
