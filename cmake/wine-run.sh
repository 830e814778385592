#!/bin/sh
# Runs a Windows program under Wine with the settings that the tests rely on: no crash dialog
# (with it some crashes exit with 0), no optional components, UTF-8 file names.
export WINEPREFIX="${WINEPREFIX:-$HOME/.cache/qxlibs/wine}" WINEARCH=win64
export WINEDEBUG="${WINEDEBUG:--all}" WINEDLLOVERRIDES="mscoree=d;mshtml=d;winedbg.exe=d"
export LC_ALL=C.UTF-8
exec /usr/lib/wine/wine64 "$@"
