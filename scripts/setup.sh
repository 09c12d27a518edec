#!/usr/bin/env bash
# Installs what is missing and builds everything into ./build.
source "$(dirname "$0")/lib.sh"

install_packages
fetch_base_mibs
echo "Building"
build build
echo "Built: $top/build"
