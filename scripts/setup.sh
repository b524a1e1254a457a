#!/usr/bin/env bash
# Installs every Debian package that building, testing, fuzzing and benchmarking VELQ needs.
# With the argument `bench`, also the peer tools of the benchmarks. Idempotent: packages already present are left alone; the package lists are refreshed only when
# something is missing.
set -euo pipefail

packages=(
    build-essential g++ cmake ninja-build pkg-config python3      # build
    libssl-dev zlib1g-dev                                          # cipher, key derivation
    libisal-dev                                                    # the data's CRC-32 (else zlib's)
    libgtest-dev libgmock-dev googletest libbenchmark-dev          # tests and benchmarks
    clang libclang-rt-14-dev                                       # fuzzing (libFuzzer)
    clang-format clang-tidy                                        # style and lint
    desktop-file-utils                                             # file-manager entries' tests
    libglib2.0-dev fprintd libfprint-2-2 python3-dbusmock dbus-daemon  # fprintd backend and its tests
    g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix libz-mingw-w64-dev libgcrypt-mingw-w64-dev libgcrypt20-dev wine wine64 nsis  # Windows builds (scripts/test-windows.sh), their tests under Wine, the installer; libgcrypt on Linux too
    libgtk-3-dev xvfb xauth xdotool xclip x11-apps netpbm  # GTK desktop backend, its Xvfb tests and screenshots
    locales                                                # English and German for Wine's screenshots
)
# intel-ipsec-mb is built for x86-64 only: the data's AES-256-GCM there (else OpenSSL's).
if [ "$(dpkg --print-architecture)" = amd64 ]; then
    packages+=(libipsec-mb-dev)
fi
# `setup.sh bench` adds the peer tools that bench/peers.py measures VELQ against.
if [ "${1:-}" = bench ]; then
    packages+=(age gnupg openssl time)
fi

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
if [ ${#missing[@]} -gt 0 ]; then
    echo "setup: installing ${missing[*]}" >&2
    export DEBIAN_FRONTEND=noninteractive
    $sudo apt-get update -qq
    $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# Under Wine the Windows program speaks the language of LC_ALL only where the host has that locale
# (tests/e2e/windows_screenshots.py takes its windows in English and German).
for locale in en_US de_DE; do
    locale -a 2>/dev/null | grep -qx "$locale.utf8" || $sudo localedef -i "$locale" -f UTF-8 "$locale.UTF-8"
done
