#!/usr/bin/env bash
# clang-format, cppcheck and clang-tidy over the module, the platform's headers,
# the host platform, xfcopy, the tests and the benchmarks, as .clang-format,
# .cppcheck and .clang-tidy here and in tests/ say. Silent if there is nothing to say.
source "$(dirname "$0")/lib.sh"

install_packages
for package in clang-format clang-tidy cppcheck; do
    installed $package || install_without_starting $package >/dev/null
done
# Of its own: others may build at the same time.
cmake -S "$top" -B "$top/build-lint" >/dev/null

check_with_cppcheck() { # OPTION-FILE FOLDER...
    local options file=$1
    shift
    mapfile -t options < <(grep -v '^#' "$file")
    cppcheck "${options[@]}" --quiet --error-exitcode=1 -j "$(nproc)" -I . \
        -I infra/system_manager/lib/libmib/configcopymib -I tests/unit "$@"
}

cd "$top"
folders=(infra host platform xfcopy tests bench)
find "${folders[@]}" -name '*.[ch]' -o -name '*.cpp' |
    xargs clang-format --dry-run --Werror
check_with_cppcheck .cppcheck infra host platform xfcopy bench
check_with_cppcheck tests/.cppcheck tests

tidy() { # OPTION...: the files that are its input, with a null behind each
    xargs -0 -n 1 -P "$(nproc)" clang-tidy --quiet "$@" 2>/dev/null
}
find tests -name '*_test.cpp' -print0 |
    xargs -0 scripts/lint/group_tests.py build-lint |
    tidy -p build-lint/grouped --config-file=tests/.clang-tidy
find infra host xfcopy tests bench -name '*.cpp' ! -name '*_test.cpp' -print0 |
    tidy -p build-lint
