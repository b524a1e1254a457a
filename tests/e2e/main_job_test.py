#!/usr/bin/env python3
"""End-to-end tests of the main job: files encrypted and brought back by VELQFileEncrypt and velq, on the
simulated sensor with the owner's finger, through the scripted UI.

Usage: main_job_test.py PROGRAM VELQ CASE     (CASE: one of the names in CASES; "all" runs every case)

Each case works in a private environment (runtime folder, data home, temporary folder, English texts) on
real files and checks what is on disk afterwards (bytes, modes, what is left behind), the exit status and
the lines of the transcript that matter. Exit status 0 when the case passes, 1 when it fails.
"""
import hashlib
import json
import os
import shutil
import stat
import subprocess
import sys
import tempfile

PASSWORD = "a long backup password"
HANG_GUARD = 300  # a guard against a hang only; no case relies on how long anything takes
BIG = 10 * 1024 * 1024 + 1  # one byte over the small files' limit: the big path


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


class Sandbox:
    def __init__(self, program, velq):
        self.program = program
        self.velq = velq
        self.root = tempfile.mkdtemp(prefix="velq-main-")
        self.docs = os.path.join(self.root, "docs")
        os.makedirs(self.docs)
        self.transcript = os.path.join(self.root, "transcript.jsonl")
        self.answers = os.path.join(self.root, "answers")
        self.backup = os.path.join(self.root, "backup.key")
        sensor = os.path.join(self.root, "sensor")
        with open(sensor, "w") as f:
            f.write("enrolled self 2\ntouch self\n")
        self.env = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
            "HOME": self.root,
            "LANGUAGE": "en",
            "LC_ALL": "C",
            "VELQ_UI": "script",
            "VELQ_UI_SCRIPT": self.answers,
            "VELQ_UI_TRANSCRIPT": self.transcript,
            "VELQ_WINBIO": "sim",
            "VELQ_WINBIO_SIM": sensor,
            "VELQ_RUNTIME_DIR": os.path.join(self.root, "run"),
            "VELQ_DATA_HOME": os.path.join(self.root, "data"),
            "VELQ_PROGRAM": program,
            "TMPDIR": os.path.join(self.root, "tmp"),
        }
        os.makedirs(self.env["TMPDIR"])
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"):
            if name in os.environ:
                self.env[name] = os.environ[name]

    def close(self):
        for folder, dirs, files in os.walk(self.root):
            for name in dirs + files:
                path = os.path.join(folder, name)
                if not os.path.islink(path):
                    os.chmod(path, 0o700)
        shutil.rmtree(self.root, ignore_errors=True)

    def write(self, name, data):
        path = os.path.join(self.docs, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(data)
        return path

    def run(self, argv, answers=(), extra_env=None):
        """Runs one request; returns (exit status, transcript lines as objects)."""
        with open(self.answers, "w") as f:
            f.write("".join(line + "\n" for line in answers))
        open(self.transcript, "w").close()
        env = dict(self.env, **(extra_env or {}))
        done = subprocess.run(argv, env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              timeout=HANG_GUARD)
        with open(self.transcript) as f:
            lines = [json.loads(line) for line in f if line.strip()]
        return done.returncode, lines

    def encrypt_file(self, path, answers=(), extra_env=None):
        return self.run([self.program, "1::%s::1" % path], answers, extra_env)

    def decrypt_file(self, path, answers=(), extra_env=None):
        return self.run([self.program, "1::%s::2" % path], answers, extra_env)

    def first_encryption(self, path):
        """The first request of a user: no key to recover, a new key, its backup under a password."""
        status, lines = self.encrypt_file(path, ["no", "ok", "export %s\t%s" % (self.backup, PASSWORD)])
        check(status == 0, "first encryption ended with %d" % status)
        check({"ui": "export", "answer": "ok", "path": self.backup} in lines, "no backup exported: %s" % lines)
        return lines

    def tree(self):
        """Every file under docs, with the digest of its bytes."""
        found = {}
        for folder, _, files in os.walk(self.docs):
            for name in files:
                path = os.path.join(folder, name)
                with open(path, "rb") as f:
                    found[os.path.relpath(path, self.docs)] = hashlib.sha256(f.read()).hexdigest()
        return found

    def leftovers(self):
        """What is left in the private temporary folder (a proof's plain copy must never stay)."""
        found = []
        for folder, _, files in os.walk(self.env["TMPDIR"]):
            found += [os.path.join(folder, name) for name in files]
        return found


def rows(lines):
    return [line["text"] for line in lines if line.get("ui") == "errorlist" and line.get("op") == "row"]


def case_first_encryption(box):
    notes = box.write("notes.txt", b"meeting notes\n")
    box.first_encryption(notes)
    check(not os.path.exists(notes), "the source is still there after its proof")
    mode = stat.S_IMODE(os.stat(notes + ".lqvz").st_mode)
    check(mode & 0o222 == 0, "the .lqvz is not read-only: %o" % mode)
    check(stat.S_IMODE(os.stat(box.backup).st_mode) == 0o600, "the backup is not owner-only")
    status, lines = box.decrypt_file(notes + ".lqvz")
    check(status == 0, "decryption ended with %d" % status)
    with open(notes, "rb") as f:
        check(f.read() == b"meeting notes\n", "the notes did not come back")
    check(not os.path.exists(notes + ".lqvz"), "the .lqvz is still there after decryption")
    check(rows(lines) == [], "rows in the error list: %s" % rows(lines))
    check(box.leftovers() == [], "left in the temporary folder: %s" % box.leftovers())


def case_folder_round_trip(box):
    box.first_encryption(box.write("first.txt", b"x"))
    box.write("a/empty.txt", b"")
    box.write("a/b/c/deep.bin", os.urandom(70000))
    box.write("a/big.bin", os.urandom(BIG))
    box.write("a/Name With Spaces.TXT", "ünïcödé text\n".encode())
    original = box.tree()
    status, lines = box.run([box.velq, "encrypt", os.path.join(box.docs, "a")])
    check(status == 0, "velq encrypt ended with %d" % status)
    check(rows(lines) == [], "rows in the error list: %s" % rows(lines))
    encrypted = box.tree()
    plain = [name for name in encrypted if not name.endswith(".lqvz")]
    check(plain == ["first.txt.lqvz"] or plain == [], "plain files left after encryption: %s" % plain)
    check(len(encrypted) == len(original), "files were lost or added: %s" % sorted(encrypted))
    status, lines = box.run([box.velq, "decrypt", os.path.join(box.docs, "a")])
    check(status == 0, "velq decrypt ended with %d" % status)
    back = box.tree()
    for name, digest in original.items():
        if name.startswith("a/"):
            check(back.get(name) == digest, "%s did not come back byte for byte" % name)
    check(box.leftovers() == [], "left in the temporary folder: %s" % box.leftovers())


def case_damaged_file_in_a_batch(box):
    box.first_encryption(box.write("first.txt", b"x"))
    good = box.write("batch/good.txt", b"good\n")
    bad = box.write("batch/bad.txt", b"bad\n")
    status, _ = box.run([box.velq, "encrypt", os.path.dirname(good)])
    check(status == 0, "encryption ended with %d" % status)
    os.chmod(bad + ".lqvz", 0o600)
    with open(bad + ".lqvz", "r+b") as f:
        f.seek(os.path.getsize(bad + ".lqvz") - 20)
        byte = f.read(1)
        f.seek(-1, os.SEEK_CUR)
        f.write(bytes([byte[0] ^ 0x55]))
    with open(bad + ".lqvz", "rb") as f:
        damaged = f.read()
    status, lines = box.run([box.velq, "decrypt", os.path.dirname(good)], ["copy", "close"])
    # A changed byte of the data: the cipher's tag refuses it.
    row = bad + ".lqvz: Failed to decrypt file!"
    check(rows(lines) == [row], "rows: %s" % rows(lines))
    copied = [line for line in lines if line.get("op") == "copy"]
    check(copied and copied[0]["text"] == row + "\n", "copy: %s" % copied)
    with open(good, "rb") as f:
        check(f.read() == b"good\n", "the good file of the batch did not come back")
    with open(bad + ".lqvz", "rb") as f:
        check(f.read() == damaged, "the damaged file was changed")
    check(not os.path.exists(bad), "a plain file was made from a damaged one")
    check(box.leftovers() == [], "left in the temporary folder: %s" % box.leftovers())


def case_key_recovered_from_backup(box):
    notes = box.write("notes.txt", b"recover me\n")
    box.first_encryption(notes)
    shutil.rmtree(os.path.join(box.env["VELQ_DATA_HOME"], "users"))
    status, lines = box.decrypt_file(notes + ".lqvz", [
        "yes", "import %s\twrong password" % box.backup, "ok", "import %s\t%s" % (box.backup, PASSWORD)])
    check(status == 0, "decryption after recovery ended with %d" % status)
    texts = [line.get("text") for line in lines if line.get("ui") == "messagebox"]
    check(any("password" in (t or "").lower() for t in texts), "no wrong-password message: %s" % texts)
    with open(notes, "rb") as f:
        check(f.read() == b"recover me\n", "the file did not come back with the recovered key")


def case_cancel_leaves_the_source(box):
    box.first_encryption(box.write("first.txt", b"x"))
    big = box.write("big.bin", os.urandom(BIG))
    cancel = os.path.join(box.root, "cancel")
    open(cancel, "w").close()
    status, _ = box.encrypt_file(big, extra_env={"VELQ_UI_CANCEL_FILE": cancel})
    check(os.path.exists(big), "the source went although the batch was cancelled (status %d)" % status)
    check(not os.path.exists(big + ".lqvz"), "a cancelled encryption left its .lqvz")
    check(box.leftovers() == [], "left in the temporary folder: %s" % box.leftovers())


def case_replace_question(box):
    notes = box.write("notes.txt", b"old\n")
    box.first_encryption(notes)
    box.write("notes.txt", b"a newer plain copy\n")
    status, lines = box.decrypt_file(notes + ".lqvz", ["cancel"])
    questions = [line for line in lines if line.get("ui") == "messagebox"]
    check(questions and questions[0]["flags"] & 0xF == 1, "no OK/Cancel question: %s" % questions)
    with open(notes, "rb") as f:
        check(f.read() == b"a newer plain copy\n", "the existing file was replaced after Cancel")
    check(os.path.exists(notes + ".lqvz"), "the .lqvz went although nothing was decrypted")
    status, lines = box.decrypt_file(notes + ".lqvz", ["ok"])
    check(status == 0, "decryption with OK ended with %d" % status)
    with open(notes, "rb") as f:
        check(f.read() == b"old\n", "OK did not replace the file with the decrypted one")


CASES = {
    "first_encryption": case_first_encryption,
    "folder_round_trip": case_folder_round_trip,
    "damaged_file": case_damaged_file_in_a_batch,
    "key_recovery": case_key_recovered_from_backup,
    "cancel": case_cancel_leaves_the_source,
    "replace_question": case_replace_question,
}


def main():
    if len(sys.argv) != 4 or (sys.argv[3] not in CASES and sys.argv[3] != "all"):
        sys.exit("usage: main_job_test.py PROGRAM VELQ CASE (%s, all)" % ", ".join(CASES))
    program, velq, name = sys.argv[1:]
    failed = 0
    for case in (CASES if name == "all" else [name]):
        box = Sandbox(program, velq)
        try:
            CASES[case](box)
            print("PASS", case)
        except (Failure, subprocess.TimeoutExpired) as failure:
            print("FAIL", case, failure)
            failed += 1
        finally:
            box.close()
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
