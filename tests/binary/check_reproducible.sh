#!/usr/bin/env bash
# Builds the DLL a second time, from a copy of the sources in another folder, and compares it with the first one byte
# for byte. Needs the `windows` preset built.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
other=$root/build/reproducible
rm -rf "$other"
mkdir -p "$other/elsewhere/checkout"
cd "$root"
cp -a CMakeLists.txt CMakePresets.json bench cmake examples include sdk src tools tests "$other/elsewhere/checkout/"

cd "$other/elsewhere/checkout"
cmake --preset windows
cmake --build --preset windows --target rvmediasource
for file in rvmediasource.dll rvmediasource.dll.debug; do
    cmp "$root/build/windows/bin/$file" "build/windows/bin/$file"
    echo "$file: the same $(stat -c %s "build/windows/bin/$file") bytes"
done
rm -rf "$other"
