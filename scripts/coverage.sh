#!/usr/bin/env bash
# Which lines and branches of the module its unit tests run. Fails if a line is
# not run.
#   coverage.sh [PROGRAM...]   those of these tests only, which fails for no line
source "$(dirname "$0")/lib.sh"

install_packages
installed gcovr || install_without_starting gcovr >/dev/null
log=$top/build-coverage/ctest.log
build build-coverage -DXF_COVERAGE=ON -- "${@:-unit_tests}"
find "$top/build-coverage" -name '*.gcda' -delete
if [ $# -gt 0 ]; then
    for name in "$@"; do "$top/build-coverage/tests/unit/$name"; done
else
    ctest --test-dir "$top/build-coverage" -L unit -j "$(nproc)" --no-tests=error
fi >"$log" 2>&1 || { tail -n 30 "$log" >&2; die "tests failed"; }

cd "$top"
report() {
    gcovr --root . --object-directory build-coverage --filter 'infra/' "$@"
}
report --txt --branches
[ $# -gt 0 ] || report --txt --fail-under-line 100
