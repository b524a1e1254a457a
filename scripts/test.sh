#!/usr/bin/env bash
# Installs what is missing, builds and runs every test:
#   1. the whole tree under AddressSanitizer and UndefinedBehaviorSanitizer (unit and end-to-end tests),
#   2. the threaded code under ThreadSanitizer,
#   3. every libFuzzer target for a fixed number of runs over its seed corpus (clang).
#   4. the Windows trees, cross-compiled with mingw-w64 (scripts/test-windows.sh).
# Ends with ctest's summary line of the full tree.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"

jobs=${VELQ_JOBS:-$(nproc)}
build() {  # build <folder> <cmake options...>
    local dir=$1
    shift
    cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
    cmake --build "$dir" -j "$jobs"
}

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

asan="$root/build/asan"
tsan="$root/build/tsan"
fuzz="$root/build/fuzz"

build "$asan" -DVELQ_SANITIZE=address,undefined -DVELQ_BUILD_BENCH=ON
build "$tsan" -DVELQ_SANITIZE=thread -DVELQ_BUILD_BENCH=OFF
CC=clang CXX=clang++ build "$fuzz" -DVELQ_BUILD_FUZZ=ON -DVELQ_BUILD_TESTS=OFF -DVELQ_BUILD_BENCH=OFF

# The fuzz and thread trees run first; the full tree runs last, so that the script ends with ctest's own
# summary line. A failure in any tree fails the script.
status=0
for tree in "$fuzz" "$tsan"; do
    ctest --test-dir "$tree" --output-on-failure -j "$jobs" || status=1
done
# The Windows trees (build/win64 with its tests under Wine, build/win32 built only); they skip with a
# message where the cross compilers or Wine are missing.
VELQ_WINDOWS_BUILD="$root/build" "$root/scripts/test-windows.sh" || status=1
ctest --test-dir "$asan" --output-on-failure -j "$jobs" || status=1
exit $status
