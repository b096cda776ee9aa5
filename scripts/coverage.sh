#!/usr/bin/env bash
# Line and branch coverage of src/ by the tests that run natively and those that run under Wine, together. Fails below
# 97 % of the lines or 90 % of the branches; docs/coverage.md says what is left out, and why.
#
# A table on the terminal, every uncovered line in build/coverage/uncovered.txt, pages under build/coverage/. Branches
# are those of the text, without the ones that the compiler adds for exceptions.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/lib/build.sh"
source "$root/scripts/lib/wine.sh"
source "$root/scripts/lib/suites.sh"
min_lines=97
min_branches=90

"$root/scripts/setup.sh"
cd "$root"
mkdir -p build
exec 9>build/.test.lock
flock -n 9 || { echo "another test run is at work in this checkout; waiting"; flock 9; }

# The two builds see the inline functions of a header at other lines when a macro comes between; count them each.
merging=()
if gcovr --help | grep -q -- --merge-mode-functions; then merging=(--merge-mode-functions separate); fi

# counts PRESET GCOV: the counters that the runs of one build left behind, as a file for the report.
counts() {
    gcovr --gcov-executable "$2" --root . --filter src/ --exclude-throw-branches "${merging[@]}" \
        --json "build/coverage/$1.json" "build/$1/src"
}

suites_begin ""
trap wine_close_if_open EXIT
build_preset host-coverage ravlo_unit_tests || suites_abort
build_preset windows-coverage || suites_abort
find build/host-coverage build/windows-coverage -name '*.gcda' -delete
native_suite "unit (native)" build/host-coverage/bin/ravlo_unit_tests
windows_suites windows-coverage windows tools

rm -rf build/coverage
mkdir -p build/coverage
counts host-coverage gcov
counts windows-coverage x86_64-w64-mingw32-gcov-posix
short=0
gcovr --root . --filter src/ "${merging[@]}" \
    --add-tracefile build/coverage/host-coverage.json --add-tracefile build/coverage/windows-coverage.json \
    --html-details build/coverage/index.html --json build/coverage/both.json --txt build/coverage/lines.txt \
    --print-summary --fail-under-line "$min_lines" --fail-under-branch "$min_branches" \
    >build/coverage/summary.txt || short=$?
cat build/coverage/lines.txt build/coverage/summary.txt
scripts/lib/uncovered.py build/coverage/both.json >build/coverage/uncovered.txt
case $short in
    0) ;;
    2 | 4 | 6)
        echo "coverage is below $min_lines % of the lines or $min_branches % of the branches"
        echo "0 1" >>"$suites_tally"
        ;;
    *)
        echo "gcovr failed"
        echo "0 1" >>"$suites_tally"
        ;;
esac
suites_end
