#!/usr/bin/env bash
# clang-tidy over the module and the host platform, as .clang-tidy says. Silent
# if there is nothing to say.
source "$(dirname "$0")/lib.sh"

install_packages
installed clang-tidy || install_without_starting clang-tidy >/dev/null
cmake -S "$top" -B "$top/build" >/dev/null

cd "$top"
find infra host -name '*.cpp' -print0 |
    xargs -0 -n 1 -P "$(nproc)" clang-tidy --quiet -p build 2>/dev/null
