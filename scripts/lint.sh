#!/usr/bin/env bash
# clang-tidy and cppcheck over the module and the host platform, as .clang-tidy
# and .cppcheck say. Silent if there is nothing to say.
source "$(dirname "$0")/lib.sh"

install_packages
for package in clang-tidy cppcheck; do
    installed $package || install_without_starting $package >/dev/null
done
cmake -S "$top" -B "$top/build" >/dev/null

cd "$top"
mapfile -t options < <(grep -v '^#' .cppcheck)
cppcheck "${options[@]}" --quiet --error-exitcode=1 -j "$(nproc)" -I . \
    -I infra/system_manager/lib/libmib/configcopymib infra host platform
find infra host -name '*.cpp' -print0 |
    xargs -0 -n 1 -P "$(nproc)" clang-tidy --quiet -p build 2>/dev/null
