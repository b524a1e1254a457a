#!/usr/bin/env bash
# Installs what is missing, builds, and runs VELQ's main job for real in a scratch folder, on the
# simulated fingerprint sensor and the scripted UI (every answer a person would give is in the script;
# every interaction is shown from the transcript the program writes):
#   the first encryption of a user (a new key and its password-protected backup), a folder and a file
#   encrypted through the file managers' hand-off, a batch with a damaged file (the error list), the
#   key lost and recovered from its backup, the files decrypted back, a finger that is not the owner's,
#   the search for encrypted files, and the debug log switched on by DbgLog.ini.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"

build="$root/build/demo"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELQ_BUILD_TESTS=OFF \
    -DVELQ_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)"
program="$build/src/app/VELQFileEncrypt"
velq="$build/tools/velq"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
docs="$work/Documents"
mkdir -p "$docs/photos/2026" "$work/env"
printf 'meeting notes: the launch moves to March\n' >"$docs/notes.txt"
head -c 3000000 /dev/urandom >"$docs/photos/2026/beach.raw"
printf 'passport scan\n' >"$docs/photos/passport.txt"
cp -r "$docs" "$work/originals"

export LANGUAGE=en LC_ALL=C VELQ_UI=script VELQ_WINBIO=sim
export VELQ_UI_SCRIPT="$work/env/answers" VELQ_UI_TRANSCRIPT="$work/env/transcript.jsonl"
export VELQ_WINBIO_SIM="$work/env/sensor" VELQ_DATA_HOME="$work/env/data" VELQ_RUNTIME_DIR="$work/env/run"
export TMPDIR="$work/env"
backup="$work/velq-key-backup.key"
password='correct horse battery staple'

say() { printf '\n== %s\n' "$*"; }
answers() { printf '%s\n' "$@" >"$VELQ_UI_SCRIPT"; }
sensor() { printf '%s\n' "enrolled self 2" "$@" >"$VELQ_WINBIO_SIM"; }
# Runs a command, prints its exit status and what the person saw (progress lines left out for brevity).
run() {
    : >"$VELQ_UI_TRANSCRIPT"
    local status=0
    "$@" 2>/dev/null || status=$?
    echo "exit status: $status"
    grep -v '"ui":"progress"' "$VELQ_UI_TRANSCRIPT" | sed 's/^/  /' || true
}
tree() { (cd "$docs" && find . -type f | sort | sed 's/^/  /'); }

say "The owner's finger lies on the simulated sensor (VELQ_WINBIO_SIM):"
sensor "touch self"
cat "$VELQ_WINBIO_SIM"

say "First encryption of this user, one file from the context menu: a new key, and its backup under a password"
answers no ok "export $backup	$password"
run "$program" "1::$docs/notes.txt::1"
tree
ls -l "$backup" | sed 's/^/  backup: /'

say "A folder and a file handed over by a file manager (velq encrypt): each new file is proved by decrypting it once more before its source goes"
answers
run "$velq" encrypt "$docs/photos" "$docs/notes.txt.lqvz"
tree

say "What the progress dialog showed during that batch (the bar's $(grep -c '"op":"set"' "$VELQ_UI_TRANSCRIPT") moves left out)"
grep '"ui":"progress"' "$VELQ_UI_TRANSCRIPT" | grep -v '"op":"set"' | sed 's/^/  /'

say "A damaged encrypted file in a batch: its row in the error list, copied, then the list closed; the other files go on"
cp "$docs/photos/passport.txt.lqvz" "$work/passport.backup"
chmod u+w "$docs/photos/passport.txt.lqvz"
printf 'X' | dd of="$docs/photos/passport.txt.lqvz" bs=1 seek=1100 conv=notrunc status=none
answers copy close
run "$velq" decrypt "$docs/photos"
tree
rm -f "$docs/photos/passport.txt.lqvz"
cp "$work/passport.backup" "$docs/photos/passport.txt.lqvz"

say "A finger that is not the owner's, then the window closed: nothing is touched"
sensor "touch nomatch" "touch unknown" "close-window"
run "$program" "1::$docs/notes.txt.lqvz::2"
sensor "touch self"

say "The key is lost; decrypting asks to recover it from the backup, with its password"
rm -rf "$VELQ_DATA_HOME/users"
answers yes "import $backup	$password"
run "$velq" decrypt "$docs"
tree

say "Every file came back byte for byte"
diff -r "$work/originals" "$docs" && echo "  identical"

say "Search for encrypted files (velq search), after encrypting the notes again"
answers
run "$program" "1::$docs/notes.txt::1"
run "$velq" search "$docs"

say "The debug log, switched on by a DbgLog.ini beside the program (Destination 4: standard error)"
cp "$program" "$work/VELQFileEncrypt"
cat >"$work/DbgLog.ini" <<'INI'
[LOG]
Level=2
Destination=4
TimeDateFormat=2
INI
sed 's/^/  /' "$work/DbgLog.ini"
"$work/VELQFileEncrypt" "1::$docs/notes.txt.lqvz::2" 2>"$work/log.txt"
sed -n '1,20s/^/  /p' "$work/log.txt"
echo "  ... $(wc -l <"$work/log.txt") lines in all"
