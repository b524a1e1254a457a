#!/usr/bin/env bash
# Builds VELQ for Windows with mingw-w64 and runs what can run here:
#   - the 64-bit tree (build/win64), its tests under wine64 in a private prefix of the tree;
#   - the 32-bit tree (build/win32), built only: 32-bit Wine is not installable on this machine.
# VELQ_WINDOWS_BUILD puts both trees in another folder than build/; VELQ_LINUX_PROGRAM names the Linux
# program of the cross-system case (by default the one of build/asan, when it is built).
# Skips with a message, and succeeds, where the cross compilers are missing; the 64-bit tests skip
# (ctest's code 77) where Wine cannot start. scripts/setup.sh installs both.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=${VELQ_JOBS:-$(nproc)}
out=${VELQ_WINDOWS_BUILD:-$root/build}

for compiler in x86_64-w64-mingw32-g++-posix i686-w64-mingw32-g++-posix; do
    if ! command -v "$compiler" >/dev/null; then
        echo "test-windows: $compiler is not installed: the Windows build is skipped" >&2
        exit 0
    fi
done

# The Linux program that the cross-system case runs beside the Windows one: scripts/test.sh's tree.
linux_program=${VELQ_LINUX_PROGRAM:-$out/asan/src/app/VELQFileEncrypt}
[ -x "$linux_program" ] || linux_program=

build() {  # build <folder> <toolchain>
    cmake -S "$root" -B "$1" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/$2.cmake" -DVELQ_LINUX_PROGRAM="$linux_program" >/dev/null
    cmake --build "$1" -j "$jobs"
}

build "$out/win64" mingw-w64-x86_64
build "$out/win32" mingw-w64-i686

if [ ! -x /usr/lib/wine/wine64 ] && ! command -v wine64 >/dev/null; then
    echo "test-windows: wine64 is not installed: the 64-bit tests are skipped" >&2
    exit 0
fi
# A failed test runs once more: now and then a Wine start fails before the program runs (no output,
# a few milliseconds). A test that fails twice fails the run; ctest's log shows every failed try.
ctest --test-dir "$out/win64" --output-on-failure -j "$jobs" --repeat until-pass:2
