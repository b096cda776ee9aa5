#!/usr/bin/env bash
# clang-tidy over the module and the programs, as built for Windows. Needs the `windows` preset configured.
# usage: scripts/lint.sh [FILE...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/lib/sources.sh"
cd "$root"

# clang finds neither the target nor the C++ library by itself: the database names a GCC cross compiler.
arguments=(--quiet -p build/windows --extra-arg=--target=x86_64-w64-mingw32 --extra-arg=-Wno-unknown-warning-option)
while read -r folder; do
    arguments+=("--extra-arg=-isystem$folder")
done < <(x86_64-w64-mingw32-g++-posix -xc++ -E -v /dev/null 2>&1 |
    sed -n '/^#include </,/^End of search list/p' | grep 'c++' | sed 's/^ *//' | xargs -r realpath)

if [ $# -gt 0 ]; then files=("$@"); else mapfile -t files < <(sources src tools sdk | grep '\.cpp$'); fi

# tidy EXTRA-ARGUMENT FILE...: every file in a process of its own, as many at a time as there are processors.
tidy() {
    local extra=$1
    shift
    [ $# -eq 0 ] || printf '%s\0' "$@" | xargs -0 -n 1 -P "$(nproc)" clang-tidy "${arguments[@]}" "$extra"
}

# A file that takes in the body of an stb header would have the analyzer judge foreign code.
mapfile -t foreign < <(grep -l -E '^#define STB_[A-Z_]+_IMPLEMENTATION' "${files[@]}" || true)
mapfile -t own < <(printf '%s\n' "${files[@]}" | grep -v -x -F -f <(printf '%s\n' "${foreign[@]:-none}"))

failed=0
# The counts of suppressed warnings are no findings; they go to standard error, one or two lines a file.
tidy --checks= "${own[@]}" 2> >(grep -v -E 'warnings? (generated|treated)|^Suppressed|^Use -' >&2) || failed=1
tidy '--checks=-clang-analyzer-*' "${foreign[@]}" 2> >(grep -v -E 'warnings? (generated|treated)|^Suppressed|^Use -' >&2) || failed=1
exit $failed
