#!/usr/bin/env bash
# The single-fault sweep: plays the camera's life again and again, each time with one call of the module failing.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

usage() {
    cat <<'END'
usage: scripts/sweep.sh [OPTION...]

Every call of rvmediasource.dll that can fail fails once at every place from which it is made, and from then on, and in
every other way in which the platform fails it; without --quick also at every occurrence within the camera's life. The
output is a table, then what is left out and why, then the places in the code that no play comes to and why, then every
failure in full. Exit code 0 when all was survived and every place is accounted for.

  --quick      every place once with its likeliest failure; and once from then on, as far as the budget allows
  --budget S   seconds for --quick, counted from its start; every place is played anyway (default 50)
  --jobs N     processes that play at the same time (default: one a processor)
  --site N     only this place, by its number in the list; may be repeated
  --call NAME  only calls whose name contains NAME
  --list       only the list of places
  --verbose    with each failure, all that its play wrote
  --help       this text
END
}

arguments=()
while [ $# -gt 0 ]; do
    case $1 in
        --help | -h) usage; exit 0 ;;
        --quick | --list | --verbose) arguments+=("$1"); shift ;;
        --budget | --jobs | --site | --call)
            [ $# -ge 2 ] || { usage >&2; exit 2; }
            arguments+=("$1" "$2"); shift 2 ;;
        *) echo "sweep.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
    esac
done

source "$root/scripts/lib/wine.sh"
build=$root/build/windows
for file in "$build/bin/ravlo_fault_sweep.exe" "$build/bin/rvmediasource.dll.debug" "$build/standin/mfsensorgroup.dll"; do
    [ -e "$file" ] || { echo "sweep.sh: $file is missing; build the preset windows first" >&2; exit 2; }
done

trap wine_close EXIT
wine_open sweep --standin "$build/standin/mfsensorgroup.dll" || { echo "the Wine prefix $WINEPREFIX cannot be made" >&2; exit 1; }
rm -f "$WINEPREFIX/drive_c/ProgramData/Ravlo/trace.log"  # a long sweep fills it
python3 "$root/scripts/lib/fault_sweep.py" --program "$build/bin/ravlo_fault_sweep.exe" --loader "$wine_loader" \
    --work "$root/build/sweep" --jobs "$(nproc)" "${arguments[@]}"
