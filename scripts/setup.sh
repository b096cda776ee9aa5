#!/usr/bin/env bash
# Installs what the build, the tests, the demo and the bench need on Debian 12 and 13; with --plots also what draws the
# bench's pictures. Says nothing when nothing is missing.
set -euo pipefail

packages=(
    cmake ninja-build git python3
    g++                             # native builds of the portable code, and its sanitizers
    g++-mingw-w64-x86-64-posix      # the product
    binutils-mingw-w64-x86-64
    wine wine64                     # runs it
    googletest libgtest-dev libgmock-dev
    libcli11-dev libstb-dev         # command lines, PNG and JPEG files of the programs
    nlohmann-json3-dev              # what they print for machines
    xvfb imagemagick fonts-wine     # a screen for the preview window, and pictures of it
    ffmpeg fonts-dejavu-core        # the demo's film
    pkgconf                         # how others find the producer library
    clang-format clang-tidy gcovr
    clang libclang-rt-dev           # the fuzzers
    libbenchmark-dev                # the bench, natively
)
case ${1:-} in
    '') ;;
    --plots) packages+=(python3-matplotlib) ;;
    *) echo "setup: unknown argument $1; there is --plots" >&2; exit 2 ;;
esac

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "setup: these packages are missing, and there is no sudo to install them: ${missing[*]}" >&2
        echo "setup: run as root: apt-get install ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi

echo "setup: installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -qq -y --no-install-recommends "${missing[@]}" >/dev/null
