#!/usr/bin/env bash
# Builds everything and runs all tests. usage: scripts/test.sh [FILTER]
#
# FILTER chooses suites whose name contains it, and in all others the tests whose full name contains it.
# One line a suite, failing tests in full; the last line is 'N passed, N failed'. Logs: build/test-logs/.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
filter=${1:-}
source "$root/scripts/lib/build.sh"
source "$root/scripts/lib/wine.sh"
source "$root/scripts/lib/suites.sh"

"$root/scripts/setup.sh"
cd "$root"
mkdir -p build
exec 9>build/.test.lock
flock -n 9 || { echo "another test run is at work in this checkout; waiting"; flock 9; }

suites_begin "$filter"
trap "spare_gates_end; wine_close_if_open" EXIT

suites_announce "building windows; host-asan and host-tsan are built while the suites under Wine wait"
build_step windows || suites_end

gate "clang-format" scripts/format.sh --check
gate "binary" tests/binary/check_dll.py --dll build/windows/bin/rvmediasource.dll \
    --objects build/windows/src --version-file CMakeLists.txt
gate "frame-pipe document" tests/docs/check_frame_pipe_md.py
gate "security document" tests/docs/check_security_md.py
gate "help texts" tests/docs/check_help.sh
gate "producer package" tests/sdk/check_package.py
gate "python" python3 -m unittest discover -s tests/python

spare native_suites host-asan asan
spare native_suites host-tsan tsan
spare_gate "clang-tidy" scripts/lint.sh
spare_gate "fuzz" scripts/fuzz.sh 1
spare_gate "reproducible build" tests/binary/check_reproducible.sh
spare_gates_begin

windows_suites windows windows tools soak
gate "fault sweep" scripts/sweep.sh --quick
gate "bench" scripts/bench.sh --quick --json build/bench-quick.json
spare_gates_await

suites_end
