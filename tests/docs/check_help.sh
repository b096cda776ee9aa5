#!/usr/bin/env bash
# The help texts in docs/ against the programs of the preset windows. usage: tests/docs/check_help.sh [--write]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
source "$root/scripts/lib/wine.sh"

trap wine_close EXIT
wine_open test --standin "$root/build/windows/standin/mfsensorgroup.dll" ||
    { echo "the Wine prefix $WINEPREFIX cannot be made" >&2; exit 1; }
python3 "$root/tests/docs/check_help_md.py" --loader "$wine_loader" --bin "$root/build/windows/bin" "$@"
