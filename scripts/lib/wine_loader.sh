#!/bin/sh
# Runs a Windows program under Wine: wine_loader.sh PROGRAM [ARGUMENT...]
#
# With fixed addresses, because Wine needs one page at a low one: where it was given away, as in one start of some five
# thousand, CreateProcess fails with error 1359. Over a whole test run that would be every third run.
set -eu
# The loader itself where there is one: Debian's `wine` script only adds a hint about 32-bit programs.
loader=/usr/lib/wine/wine64
[ -x "$loader" ] || loader=wine
exec "${0%/*}/fixed_addresses.sh" "$loader" "$@"
