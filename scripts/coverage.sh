#!/usr/bin/env bash
# coverage.sh: runs all tests on a build that counts, and says how many branches of the library they
# take. Fails below 95 in a hundred. Called by `./run coverage`, which has built the tests.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh

find build/coverage -name '*.gcda' -delete
step 'coverage: all tests' run_tests coverage
gcovr --root . --filter 'source/src/' --exclude-throw-branches --exclude-unreachable-branches \
    --branches --fail-under-branch 95 --html-details build/coverage/index.html --txt - build/coverage
