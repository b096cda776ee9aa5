#!/bin/sh
# Runs a command with its memory at fixed addresses instead of random ones: fixed_addresses.sh COMMAND [ARGUMENT...]
#
# Programs that need a certain part of the address space, Wine and the sanitizers among them, now and then find it given
# away. What the command starts inherits this. Where the system does not allow it, the command runs as ever.
set -eu
if setarch "$(uname -m)" -R true 2>/dev/null; then
    exec setarch "$(uname -m)" -R "$@"
fi
exec "$@"
