#!/usr/bin/env bash
# Runs what README and docs/ tell of the demonstration and of what takes long, that
# for a short time. The other scripts are steps of .ci/run, and the other commands
# are run by scripts/test.sh and scripts/check-package.sh.
source "$(dirname "$0")/lib.sh"

install_packages
fetch_base_mibs
build build
cd "$top/tests/docs"
PYTHONDONTWRITEBYTECODE=1 exec /usr/bin/python3 -m pytest \
    -q -p no:cacheprovider --durations=5 try_scripts.py
