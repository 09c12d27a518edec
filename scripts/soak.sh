#!/usr/bin/env bash
# A million lives of rows in one process, see tests/soak/soak.cpp. Or as many as
# the argument says.
source "$(dirname "$0")/lib.sh"

install_packages
build build -- soak
exec "$top/build/tests/soak/soak" "${1:-1000000}"
