#!/usr/bin/env python3
"""End-to-end tests of the main job: files encrypted and brought back by VELQFileEncrypt and velq, on the
simulated sensor with the owner's finger, through the scripted UI.

Usage: main_job_test.py PROGRAM VELQ [WINE_RUN WINE64 PREFIX] CASE
  (CASE: one of the names in CASES; "all" runs every case)

Each case works in a private environment (runtime folder, data home, temporary folder, English texts) on
real files and checks what is on disk afterwards (bytes, modes, what is left behind), the exit status and
the lines of the transcript that matter. Exit status 0 when the case passes, 1 when it fails, 77 when
Wine is asked for and cannot run here.

With the Wine runner's values (tests/e2e/velq_wine.py), PROGRAM and VELQ are the Windows programs, run
under wine64 in PREFIX: the same cases, with the paths the programs see and write in Windows form.
"""
import hashlib
import os
import shutil
import stat
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from velq_e2e import Sandbox, expect, run_cases  # noqa: E402
from velq_wine import WINE_ARGUMENTS, system_of  # noqa: E402

PASSWORD = "a long backup password"
HANG_GUARD = 300  # a guard against a hang only; no case relies on how long anything takes
BIG = 10 * 1024 * 1024 + 1  # one byte over the small files' limit: the big path


class MainSandbox(Sandbox):
    """The simulated sensor with the owner's finger, velq handing over to `program`, a temporary folder
    of its own (to see what is left in it) and the key's backup file."""

    def __init__(self, program, velq, system=None):
        super().__init__("velq-main-", "sim", system=system, VELQ_PROGRAM=program)
        self.program = program
        self.velq = velq
        os.makedirs(self.docs)
        self.backup = os.path.join(self.root, "backup.key")
        self.env["VELQ_WINBIO_SIM"] = os.path.join(self.root, "sensor")
        with open(self.env["VELQ_WINBIO_SIM"], "w") as f:
            f.write("enrolled self 2\ntouch self\n")
        self.env["TMPDIR"] = os.path.join(self.root, "tmp")
        os.makedirs(self.env["TMPDIR"])

    def run(self, argv, answers=(), extra_env=None):
        """Runs one request; returns (exit status, transcript lines as objects)."""
        self.write_answers(answers)
        self.forget_lines()
        status, _, _ = self.run_quietly(argv, extra_env, hang_guard=HANG_GUARD)
        return status, self.lines()

    def velq_on_folder(self, verb, folder, answers=()):
        return self.run([self.velq, verb, self.program_path(folder)], answers)

    def encrypt_file(self, path, answers=(), extra_env=None):
        return self.run([self.program, "1::%s::1" % self.program_path(path)], answers, extra_env)

    def decrypt_file(self, path, answers=(), extra_env=None):
        return self.run([self.program, "1::%s::2" % self.program_path(path)], answers, extra_env)

    def backup_answer(self, verb, password):
        """The answer of the key backup's dialog (export or import) with the backup file and `password`."""
        return "%s %s\t%s" % (verb, self.program_path(self.backup), password)

    def first_encryption(self, path):
        """The first request of a user: no key to recover, a new key, its backup under a password."""
        status, lines = self.encrypt_file(path, ["no", "ok", self.backup_answer("export", PASSWORD)])
        expect(status == 0, "first encryption ended with %d" % status)
        expect({"ui": "export", "answer": "ok", "path": self.program_path(self.backup)} in lines,
               "no backup exported: %s" % lines)
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
        """What is left in the program's temporary folder (a proof's plain copy must never stay)."""
        if self.system.is_posix:
            found = []
            for folder, _, files in os.walk(self.env["TMPDIR"]):
                found += [os.path.join(folder, name) for name in files]
            return found
        # The Windows user's temporary folder is the prefix's, which other runs share: only the plain
        # copies of this case's files count (a proof's copy bears its file's name).
        names = {os.path.basename(name).removesuffix(".lqvz") for name in self.tree()}
        temp = self.system.temp_folder()
        return [os.path.join(temp, name) for name in sorted(names) if os.path.exists(os.path.join(temp, name))]


def rows(lines):
    return [line["text"] for line in lines if line.get("ui") == "errorlist" and line.get("op") == "row"]


def case_first_encryption(box):
    notes = box.write("notes.txt", b"meeting notes\n")
    box.first_encryption(notes)
    expect(not os.path.exists(notes), "the source is still there after its proof")
    mode = stat.S_IMODE(os.stat(notes + ".lqvz").st_mode)
    expect(mode & 0o222 == 0, "the .lqvz is not read-only: %o" % mode)
    if box.system.is_posix:  # file modes are POSIX's: on Windows the user's folders keep others out
        expect(stat.S_IMODE(os.stat(box.backup).st_mode) == 0o600, "the backup is not owner-only")
    status, lines = box.decrypt_file(notes + ".lqvz")
    expect(status == 0, "decryption ended with %d" % status)
    with open(notes, "rb") as f:
        expect(f.read() == b"meeting notes\n", "the notes did not come back")
    expect(not os.path.exists(notes + ".lqvz"), "the .lqvz is still there after decryption")
    expect(rows(lines) == [], "rows in the error list: %s" % rows(lines))
    expect(box.leftovers() == [], "left in the temporary folder: %s" % box.leftovers())


def case_folder_round_trip(box):
    box.first_encryption(box.write("first.txt", b"x"))
    box.write("a/empty.txt", b"")
    box.write("a/b/c/deep.bin", os.urandom(70000))
    box.write("a/big.bin", os.urandom(BIG))
    box.write("a/Name With Spaces.TXT", "ünïcödé text\n".encode())
    original = box.tree()
    status, lines = box.velq_on_folder("encrypt", os.path.join(box.docs, "a"))
    expect(status == 0, "velq encrypt ended with %d" % status)
    expect(rows(lines) == [], "rows in the error list: %s" % rows(lines))
    encrypted = box.tree()
    plain = [name for name in encrypted if not name.endswith(".lqvz")]
    expect(plain == ["first.txt.lqvz"] or plain == [], "plain files left after encryption: %s" % plain)
    expect(len(encrypted) == len(original), "files were lost or added: %s" % sorted(encrypted))
    status, lines = box.velq_on_folder("decrypt", os.path.join(box.docs, "a"))
    expect(status == 0, "velq decrypt ended with %d" % status)
    back = box.tree()
    for name, digest in original.items():
        if name.startswith("a/"):
            expect(back.get(name) == digest, "%s did not come back byte for byte" % name)
    expect(box.leftovers() == [], "left in the temporary folder: %s" % box.leftovers())


def case_damaged_file_in_a_batch(box):
    box.first_encryption(box.write("first.txt", b"x"))
    good = box.write("batch/good.txt", b"good\n")
    bad = box.write("batch/bad.txt", b"bad\n")
    status, _ = box.velq_on_folder("encrypt", os.path.dirname(good))
    expect(status == 0, "encryption ended with %d" % status)
    os.chmod(bad + ".lqvz", 0o600)
    with open(bad + ".lqvz", "r+b") as f:
        f.seek(os.path.getsize(bad + ".lqvz") - 20)
        byte = f.read(1)
        f.seek(-1, os.SEEK_CUR)
        f.write(bytes([byte[0] ^ 0x55]))
    with open(bad + ".lqvz", "rb") as f:
        damaged = f.read()
    status, lines = box.velq_on_folder("decrypt", os.path.dirname(good), ["copy", "close"])
    # A changed byte of the data: the cipher's tag refuses it.
    row = box.program_path(bad + ".lqvz") + ": Failed to decrypt file!"
    expect(rows(lines) == [row], "rows: %s" % rows(lines))
    copied = [line for line in lines if line.get("op") == "copy"]
    expect(copied and copied[0]["text"] == row + "\n", "copy: %s" % copied)
    with open(good, "rb") as f:
        expect(f.read() == b"good\n", "the good file of the batch did not come back")
    with open(bad + ".lqvz", "rb") as f:
        expect(f.read() == damaged, "the damaged file was changed")
    expect(not os.path.exists(bad), "a plain file was made from a damaged one")
    expect(box.leftovers() == [], "left in the temporary folder: %s" % box.leftovers())


def case_key_recovered_from_backup(box):
    notes = box.write("notes.txt", b"recover me\n")
    box.first_encryption(notes)
    shutil.rmtree(os.path.join(box.env["VELQ_DATA_HOME"], "users"))
    status, lines = box.decrypt_file(notes + ".lqvz", [
        "yes", box.backup_answer("import", "wrong password"), "ok", box.backup_answer("import", PASSWORD)])
    expect(status == 0, "decryption after recovery ended with %d" % status)
    texts = [line.get("text") for line in lines if line.get("ui") == "messagebox"]
    expect(any("password" in (t or "").lower() for t in texts), "no wrong-password message: %s" % texts)
    with open(notes, "rb") as f:
        expect(f.read() == b"recover me\n", "the file did not come back with the recovered key")


def case_cancel_leaves_the_source(box):
    box.first_encryption(box.write("first.txt", b"x"))
    big = box.write("big.bin", os.urandom(BIG))
    cancel = os.path.join(box.root, "cancel")
    open(cancel, "w").close()
    status, _ = box.encrypt_file(big, extra_env={"VELQ_UI_CANCEL_FILE": cancel})
    expect(os.path.exists(big), "the source went although the batch was cancelled (status %d)" % status)
    expect(not os.path.exists(big + ".lqvz"), "a cancelled encryption left its .lqvz")
    expect(box.leftovers() == [], "left in the temporary folder: %s" % box.leftovers())


def case_replace_question(box):
    notes = box.write("notes.txt", b"old\n")
    box.first_encryption(notes)
    box.write("notes.txt", b"a newer plain copy\n")
    status, lines = box.decrypt_file(notes + ".lqvz", ["cancel"])
    questions = [line for line in lines if line.get("ui") == "messagebox"]
    expect(questions and questions[0]["flags"] & 0xF == 1, "no OK/Cancel question: %s" % questions)
    with open(notes, "rb") as f:
        expect(f.read() == b"a newer plain copy\n", "the existing file was replaced after Cancel")
    expect(os.path.exists(notes + ".lqvz"), "the .lqvz went although nothing was decrypted")
    status, lines = box.decrypt_file(notes + ".lqvz", ["ok"])
    expect(status == 0, "decryption with OK ended with %d" % status)
    with open(notes, "rb") as f:
        expect(f.read() == b"old\n", "OK did not replace the file with the decrypted one")


CASES = {
    "first_encryption": case_first_encryption,
    "folder_round_trip": case_folder_round_trip,
    "damaged_file": case_damaged_file_in_a_batch,
    "key_recovery": case_key_recovered_from_backup,
    "cancel": case_cancel_leaves_the_source,
    "replace_question": case_replace_question,
}


def run_case(case, program, velq, runner, wine64, prefix):
    with MainSandbox(program, velq, system_of(runner, wine64, prefix)) as box:
        case(box)


if __name__ == "__main__":
    sys.exit(run_cases(CASES, ("PROGRAM", "VELQ"), run_case, optional=WINE_ARGUMENTS))
