#!/usr/bin/env bash
# Shows how much the tests notice: puts small faults into src/, one at a time, and runs the tests that match.
#
# usage: scripts/mutate.sh [--count N] [--seed N] [--only TEXT] [--jobs N] [--resume | --retry | --report] [--keep-copy]
#   --count N     about how many mutations, spread over all files of src/ by their lines of logic (145)
#   --seed N      chooses among the candidates (20)
#   --only TEXT   only files whose path contains it
#   --jobs N      that many at once, each in a Wine prefix of its own (2)
#   --resume      keep the judgements of a run with the same seed and count that was interrupted
#   --retry       the same, and try the survivors again: for after a new test
#   --keep-copy   leave the copy of the sources as it is, and as it is built
#   --report      only show the tables of what is known
#
# At least 90 % must be caught. A mutation that does not compile, or compiles to the same code, is replaced by another.
# Works in a copy under build/mutate/; judgements: build/mutate/results.tsv. Takes about an hour; no part of test.sh.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
case " $* " in *' --help '* | *' -h '*)
    sed -n '2,/^set /{/^set /d;s/^# \{0,1\}//;p}' "$0"
    exit 0
    ;;
esac

"$root/scripts/setup.sh"
cd "$root"
mkdir -p build/mutate
exec 9>build/mutate/.lock
flock -n 9 || { echo "another run of mutate.sh is at work in this checkout" >&2; exit 1; }
exec python3 -B scripts/lib/mutate.py "$@"
