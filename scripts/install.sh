#!/usr/bin/env bash
# Builds VELQ and installs it for the current user, without root: the programs in ~/.local/bin and the
# context-menu entries "Encrypt", "Decrypt" and "Search for encrypted files" of Nautilus, Nemo, Dolphin
# and Thunar. Running it again replaces what it installed before.
#
#   scripts/install.sh [--prefix DIR] [--build DIR]     (defaults: ~/.local, build/install)
#
# The file managers' folders follow XDG_DATA_HOME and XDG_CONFIG_HOME. With --build, a folder where
# VELQFileEncrypt and velq are built already, only the install step runs.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
prefix="$HOME/.local"
build="$root/build/install"
given_build=""
while [ $# -gt 0 ]; do
    case "$1" in
        --prefix) prefix=$2; shift 2 ;;
        --build) build=$2; given_build=1; shift 2 ;;
        -h|--help) sed -n '2,9p' "$0"; exit 0 ;;
        *) echo "install.sh: unknown argument $1" >&2; exit 2 ;;
    esac
done
data_home="${XDG_DATA_HOME:-$HOME/.local/share}"
config_home="${XDG_CONFIG_HOME:-$HOME/.config}"

if [ -z "$given_build" ]; then
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELQ_BUILD_TESTS=OFF \
        -DVELQ_BUILD_BENCH=OFF >/dev/null
    cmake --build "$build" -j "$(nproc)" --target VELQFileEncrypt velq
fi
cmake --install "$build" --prefix "$prefix" >/dev/null
share="$prefix/share"

# Nemo and Dolphin read the user's data folder; copy there when the prefix is elsewhere.
if [ "$share" != "$data_home" ]; then
    mkdir -p "$data_home/nemo/actions" "$data_home/kio/servicemenus"
    cp "$share"/nemo/actions/velq-*.nemo_action "$data_home/nemo/actions/"
    cp "$share/kio/servicemenus/velq.desktop" "$data_home/kio/servicemenus/"
fi

# Nautilus: one script under each menu entry's name.
scripts="$data_home/nautilus/scripts"
mkdir -p "$scripts"
for name in "Encrypt" "Decrypt" "Search for encrypted files"; do
    install -m 0755 "$share/velq/nautilus/velq-nautilus-script" "$scripts/$name"
done

# Thunar: our actions in uca.xml, in place of any earlier ones of ours; the user's own actions stay.
uca="$config_home/Thunar/uca.xml"
mkdir -p "$(dirname "$uca")"
python3 - "$uca" "$share/velq/thunar/velq-uca.xml" <<'PY'
import os, sys
import xml.etree.ElementTree as ET
target, ours = sys.argv[1], sys.argv[2]
tree = ET.parse(target) if os.path.exists(target) and os.path.getsize(target) > 0 else ET.ElementTree(ET.Element("actions"))
actions = tree.getroot()
for action in list(actions):
    uid = action.findtext("unique-id") or ""
    if uid.startswith("velq-"):
        actions.remove(action)
for action in ET.parse(ours).getroot():
    actions.append(action)
tree.write(target + ".new", encoding="UTF-8", xml_declaration=True)
os.replace(target + ".new", target)
PY

echo "VELQ installed in $prefix (programs in $prefix/bin)."
case ":$PATH:" in
    *":$prefix/bin:"*) ;;
    *) echo "Add $prefix/bin to PATH so that the file managers' entries find velq." ;;
esac
