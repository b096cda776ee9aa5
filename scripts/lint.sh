#!/usr/bin/env bash
# clang-tidy over the module, the producer library and the programs, as built for Windows. Needs the `windows` preset
# configured.
# usage: scripts/lint.sh [--full | FILE...]
#
# The analyzer, which walks the paths through each function, takes twice as long as all other checks together. Without
# arguments it is spent on what runs in other people's processes, src/ and sdk/; with --full, or on files that are
# named, on everything.
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

full=''
[ "${1:-}" != --full ] || { full=1; shift; }
if [ $# -gt 0 ]; then
    full=1
    files=("$@")
else
    mapfile -t files < <(sources src sdk tools | grep '\.cpp$')
fi

# tidy EXTRA-ARGUMENT FILE...: every file in a process of its own, as many at a time as there are processors.
tidy() {
    local extra=$1
    shift
    [ $# -eq 0 ] || printf '%s\0' "$@" | xargs -0 -n 1 -P "$(nproc)" clang-tidy "${arguments[@]}" "$extra"
}

# A file that takes in the body of an stb header would have the analyzer judge foreign code.
mapfile -t plain < <(
    grep -l -E '^#define STB_[A-Z_]+_IMPLEMENTATION' "${files[@]}" || true
    [ -n "$full" ] || printf '%s\n' "${files[@]}" | grep '^tools/'
)
mapfile -t analyzed < <(printf '%s\n' "${files[@]}" | grep -v -x -F -f <(printf '%s\n' "${plain[@]:-none}"))
mapfile -t plain < <(printf '%s\n' "${plain[@]}" | sed '/^$/d' | sort -u)

failed=0
# The counts of suppressed warnings are no findings; they go to standard error, one or two lines a file.
tidy --checks= "${analyzed[@]}" 2> >(grep -v -E 'warnings? (generated|treated)|^Suppressed|^Use -' >&2) || failed=1
tidy '--checks=-clang-analyzer-*' "${plain[@]}" 2> >(grep -v -E 'warnings? (generated|treated)|^Suppressed|^Use -' >&2) || failed=1
exit $failed
