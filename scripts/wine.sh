#!/usr/bin/env bash
# Runs a Windows program under Wine with a prefix and settings of its own: quiet, no menus, no browser,
# no display. Used as CMake's cross-compiling emulator and by hand.
set -u
cache=${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}
export WINEPREFIX=${WINEPREFIX:-$cache/kyserial-wine}
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=;winemenubuilder.exe=d}
mkdir -p "$(dirname "$WINEPREFIX")"
# Without address randomisation: with it, about one program in a thousand finds the address of data that Wine shares between
# its programs taken, and does not start.
exec setarch -R wine "$@"
