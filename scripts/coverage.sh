#!/usr/bin/env bash
# Which lines and branches of the module its unit tests run. Fails if a line is
# not run.
source "$(dirname "$0")/lib.sh"

install_packages
installed gcovr || install_without_starting gcovr >/dev/null
build build-coverage -DXF_COVERAGE=ON -- unit_tests
find "$top/build-coverage" -name '*.gcda' -delete
ctest --test-dir "$top/build-coverage" -L unit -j "$(nproc)" --no-tests=error \
    >"$top/build-coverage/ctest.log" 2>&1 ||
    { tail -n 30 "$top/build-coverage/ctest.log" >&2; die "tests failed"; }

cd "$top"
report() {
    gcovr --root . --object-directory build-coverage --filter 'infra/' "$@"
}
report --txt --branches
report --txt --fail-under-line 100
