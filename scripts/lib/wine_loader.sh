#!/bin/sh
# Runs a Windows program under Wine: wine_loader.sh PROGRAM [ARGUMENT...]
#
# Wine needs one page at a fixed low address. Where the kernel places things at random, one start in some five thousand
# finds that address taken, and CreateProcess fails with error 1359: over a whole test run, every third run. What this
# starts inherits the fixed addresses.
set -eu
# The loader itself where there is one: Debian's `wine` script only adds a hint about 32-bit programs.
loader=/usr/lib/wine/wine64
[ -x "$loader" ] || loader=wine
if setarch "$(uname -m)" -R true 2>/dev/null; then
    exec setarch "$(uname -m)" -R "$loader" "$@"
fi
exec "$loader" "$@"
