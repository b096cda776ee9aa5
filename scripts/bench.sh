#!/usr/bin/env bash
# Measures the camera beside the unavoidable. usage: scripts/bench.sh [--quick] [--json FILE] [--only ROW] [--size SIZE]
#                                                                      [--plots FOLDER] [--list]
#
#   --quick         show that everything can be measured, in a minute or two; the figures are worth little
#   --json FILE     write the raw values, the judgements and the machine there too (else build/bench.json)
#   --only ROW      this row alone: publish, consume, pattern, request_own, receive, ... (see --list)
#   --size SIZE     720p, 1080p or 2160p alone, where a figure depends on the size
#   --plots FOLDER  draw the pictures of docs/performance.md into FOLDER
#   --list          show the rows with their floors and bars, and do nothing else
#
# Builds release programs, runs each beside its bare floor, natively or in a Wine prefix of its own, and prints one
# table: floor, product, their ratio with a 95 % interval, the bar. Leave the machine alone while it runs. The exit code
# is 0 when every figure was measured and every bar is met, or its limit is known; with --quick bars do not count.
# Ctrl+C ends it with 130; what was measured until then is shown and written.
set -euo pipefail
unset LC_ALL
export LC_NUMERIC=C
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/lib/build.sh"
source "$root/scripts/lib/wine.sh"

usage_error() {
    echo "bench: $1; try --help" >&2
    exit 2
}

say() {
    echo "bench: $*" >&2
}

# bench_python MODULE ARGUMENT...
python=python3
bench_python() {
    (cd "$root/bench" && PYTHONDONTWRITEBYTECODE=1 "$python" -m "$@" 9>&-)
}

options=()
json=$root/build/bench.json
plots=''
while [ $# -gt 0 ]; do
    case $1 in
        -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "${BASH_SOURCE[0]}"; exit 0 ;;
        --list) bench_python ravlo_bench --list; exit ;;
        --quick) options+=("$1") ;;
        --json | --only | --size | --plots)
            [ -n "${2:-}" ] || usage_error "$1 needs a value"
            case $1 in
                --json) json=$(realpath -m "$2") ;;
                --plots) plots=$(realpath -m "$2") ;;
                *) options+=("$1" "$2") ;;
            esac
            shift
            ;;
        *) usage_error "unknown argument $1" ;;
    esac
    shift
done

# Better now than after half an hour.
for folder in "$(dirname "$json")" ${plots:+"$plots"}; do
    if ! mkdir -p "$folder" 2>/dev/null || [ ! -w "$folder" ]; then
        echo "bench: nothing can be written into $folder" >&2
        exit 1
    fi
done
[ ! -e "$json" ] || [ -f "$json" ] || { echo "bench: $json is no file that can be replaced" >&2; exit 1; }

"$root/scripts/setup.sh" ${plots:+--plots} >&2
bench_python ravlo_bench --check "${options[@]}" || exit 2
cd "$root"
mkdir -p build
exec 9>build/.bench.lock
flock -n 9 || { say "another bench is at work in this checkout; waiting"; flock 9; }

say "building (the logs are build/logs/build-host.log and build-windows.log)"
for preset in host windows; do
    build_preset "$preset" ravlo_bench >&2
done

say "opening the Wine prefix build/prefixes/bench"
trap wine_close EXIT
wine_open bench --standin build/windows/standin/mfsensorgroup.dll ||
    { echo "bench: the Wine prefix $WINEPREFIX cannot be made" >&2; exit 1; }

# What the module wrote in earlier runs only takes room.
rm -f "$WINEPREFIX/drive_c/ProgramData/Ravlo/trace.log"
# Nothing of an earlier run is taken for this one's: a file that was written anew is another one.
json_identity() {
    stat -c %i "$json" 2>/dev/null || true
}

before=$(json_identity)
code=0
bench_python ravlo_bench --loader "$wine_loader" --json "$json" "${options[@]}" || code=$?
[ "$(json_identity)" != "$before" ] || exit "$code"
say "raw values: $json"
if [ -n "$plots" ] && [ "$code" -ne 130 ]; then
    # The package with matplotlib is the system's own Python's; another may come first on the path.
    python3 -c 'import matplotlib' 2>/dev/null || python=/usr/bin/python3
    bench_python ravlo_bench.plots "$json" "$plots" || code=1
fi
exit "$code"
