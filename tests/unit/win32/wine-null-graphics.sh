#!/bin/sh
# Runs a test program through the tree's Wine runner (wine-null-graphics.sh RUNNER WINE64 PREFIX PROGRAM
# [ARGS...]) after setting the prefix's graphics driver to Wine's null driver once: windows can then be
# created without a display, as the window and message tests need. The setting is kept in the prefix.
set -eu
runner=$1
prefix=$3
if [ ! -f "$prefix/.velq-null-graphics" ]; then
    "$runner" "$2" "$prefix" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1
    touch "$prefix/.velq-null-graphics"
fi
exec "$@"
