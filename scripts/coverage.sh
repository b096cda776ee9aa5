#!/usr/bin/env bash
# Line coverage of src/ by all tests that run under Wine: a table on the terminal, pages under build/coverage/.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/lib/build.sh"
source "$root/scripts/lib/wine.sh"
source "$root/scripts/lib/suites.sh"

"$root/scripts/setup.sh"
cd "$root"
mkdir -p build
exec 9>build/.test.lock
flock -n 9 || { echo "another test run is at work in this checkout; waiting"; flock 9; }

suites_begin ""
trap wine_close_if_open EXIT
build_preset windows-coverage || suites_abort
find build/windows-coverage -name '*.gcda' -delete
windows_suites windows-coverage windows tools

mkdir -p build/coverage
gcovr --gcov-executable x86_64-w64-mingw32-gcov-posix --root . --filter src/ --exclude-throw-branches \
    --html-details build/coverage/index.html --txt - --print-summary build/windows-coverage/src
suites_end
