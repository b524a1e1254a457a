#!/usr/bin/env bash
# Installs what is missing, builds, and runs what VELQ can do today, for real, in a scratch folder:
# the program's messages in three languages through the scripted UI (with the transcript it writes) and
# the debug log switched on by a DbgLog.ini beside the program.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"

build="$root/build/demo"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELQ_BUILD_TESTS=OFF \
    -DVELQ_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$build/tools/velqmsg" "$work/"

say() { printf '\n== %s\n' "$*"; }

say "The question asked before a plain .lqvz file is decrypted, answered Yes by a script, in three languages"
printf 'yes\n' >"$work/answers"
export VELQ_UI=script VELQ_UI_SCRIPT="$work/answers" VELQ_UI_TRANSCRIPT="$work/transcript.jsonl"
for lang in en_US.UTF-8 de_DE.UTF-8 ja_JP.UTF-8; do
    printf '%-12s answer: %s\n' "$lang" "$(LANG=$lang LANGUAGE= LC_ALL= LC_MESSAGES= "$work/velqmsg" 1064 1017 36)"
done
say "What the scripted UI recorded (VELQ_UI_TRANSCRIPT)"
cat "$work/transcript.jsonl"

say "The debug log, switched on by DbgLog.ini beside the program (Destination 4: standard error)"
cat >"$work/DbgLog.ini" <<'INI'
[LOG]
Level=3
Destination=4
TimeDateFormat=2
INI
cat "$work/DbgLog.ini"
echo
LANGUAGE=fr "$work/velqmsg" 1059 1018 16 >/dev/null

say "VELQFileEncrypt asked to encrypt one file from the context menu: it stops at the fingerprint gate"
echo "secret notes" >"$work/notes.txt"
: >"$work/transcript.jsonl"
status=0
"$build/src/app/VELQFileEncrypt" "1::$work/notes.txt::1" || status=$?
echo "exit status: $status"
cat "$work/transcript.jsonl"
ls "$work" | grep -E '^notes' | sed 's/^/left in the folder: /'

say "Not built yet: the sensor backends behind the gate, the per-file engine, the velq command (see the issues)."
