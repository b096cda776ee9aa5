#!/usr/bin/env bash
# Formats all C++ files in place; with --check changes nothing and fails when a file is not formatted.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/lib/sources.sh"

mode=(-i)
[ "${1:-}" != --check ] || mode=(--dry-run --Werror)
cd "$root"
sources "${format_folders[@]}" | xargs "${CLANG_FORMAT:-clang-format}" "${mode[@]}"
