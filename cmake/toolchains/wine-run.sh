#!/bin/sh
# Runs a Windows program under Wine for ctest: wine-run.sh WINE64 PREFIX PROGRAM [ARGS...]
# (CMAKE_CROSSCOMPILING_EMULATOR of a 64-bit Windows tree). Each build tree has a private prefix, made
# on first use (the slow part: from 20 s to minutes on a busy machine); concurrent tests wait for it
# under a lock rather than make it twice. No Mono or Gecko installs, no debug chatter, and no crash
# dialog: a program that crashes ends with its backtrace on stderr instead of waiting for ever for a
# person to close a window on a display nobody sees. VELQ_WINEDEBUG, when set, is Wine's debug channels
# for the run (the unit tests take warn+heap: Wine's heap then checks each free and reports a bad one).
# Ends with 77 (ctest's skip code in this project) when Wine cannot make its prefix here.
set -u
wine64=$1
prefix=$2
shift 2

export WINEPREFIX="$prefix" WINEDEBUG="${VELQ_WINEDEBUG:--all}" WINEDLLOVERRIDES="mscoree,mshtml="
mkdir -p "$prefix" || exit 77
(
    flock 9
    if [ ! -f "$prefix/.velq-ready" ]; then
        "$wine64" wineboot --init >"$prefix.boot.log" 2>&1 || exit 1
        "$wine64" reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f \
            >>"$prefix.boot.log" 2>&1 || exit 1
        touch "$prefix/.velq-ready"
    fi
) 9>"$prefix.lock"
if [ ! -f "$prefix/.velq-ready" ]; then
    echo "wine-run: Wine could not make its prefix $prefix (see $prefix.boot.log): skipped" >&2
    exit 77
fi
exec "$wine64" "$@"
