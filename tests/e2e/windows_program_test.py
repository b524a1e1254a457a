#!/usr/bin/env python3
"""End-to-end tests of the Windows program under wine64, driven as the Linux program is: the scripted UI
with its answers and transcript, the simulated sensor with the owner's finger, real files.

Usage: windows_program_test.py PROGRAM VELQ WINE_RUN WINE64 PREFIX LINUX_PROGRAM CASE
  (CASE: one of the names in CASES; "all" runs every case; LINUX_PROGRAM may be "" when there is none)

- "progress_and_error_list": an encryption shows its progress in the transcript; a damaged file's
  decryption shows the error list, whose text is copied and which is closed by the answers, as on Linux.
- "search": the search for encrypted files under a folder finds them, with Windows paths.
- "cross_system": one format on both systems. The Linux program makes the user's key and its backup and
  encrypts a file; the Windows program recovers the key from that backup (bound to the Windows user),
  decrypts the file and encrypts another, which the Linux program decrypts. Skipped without LINUX_PROGRAM.
Exit status 0 when the case passes, 1 when it fails, 77 when Wine (or the Linux program) is missing.
"""
import os
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from velq_e2e import Sandbox, Skip, expect, run_cases  # noqa: E402
from velq_wine import HANG_GUARD, Wine  # noqa: E402

PASSWORD = "a long backup password"
FIRST_ENCRYPTION = ["no", "ok"]  # no key to recover: a new key, then its backup's dialog


class WindowsDesk(Sandbox):
    """A private folder for one case: files, answers, transcript, sensor and data home, which the Windows
    program reads as Windows paths."""

    def __init__(self, wine, program, velq):
        super().__init__("velq-windows-program-", "sim")
        self.wine = wine
        self.program = program
        self.velq = velq
        os.makedirs(self.docs)
        self.backup = os.path.join(self.root, "backup.key")
        sensor = os.path.join(self.root, "sensor")
        with open(sensor, "w") as f:
            f.write("enrolled self 2\ntouch self\n")
        self.env["VELQ_WINBIO_SIM"] = sensor
        w = Wine.windows_path
        self.windows_env = dict(os.environ, LANGUAGE="en", VELQ_UI="script", VELQ_UI_SCRIPT=w(self.answers),
                                VELQ_UI_TRANSCRIPT=w(self.transcript), VELQ_WINBIO="sim",
                                VELQ_WINBIO_SIM=w(sensor),
                                VELQ_DATA_HOME=w(os.path.join(self.root, "windows-data")),
                                VELQ_PROGRAM=w(program))

    def run_windows(self, path, menu, answers=(), env=None):
        """One request of the Windows program on the file `path` (1 encrypt, 2 decrypt); the lines."""
        return self._windows([self.program, "1::%s::%d" % (Wine.windows_path(path), menu)], answers, env)

    def velq_windows(self, verb, path, answers=(), env=None):
        """`velq.exe VERB PATH` (encrypt, decrypt or search a folder), handing off to the program."""
        return self._windows([self.velq, verb, Wine.windows_path(path)], answers, env)

    def _windows(self, argv, answers, env=None):
        self.write_answers(answers)
        self.forget_lines()
        status, out, err = self.wine.run(argv, dict(self.windows_env, **(env or {})))
        expect(status == 0, "%s ended with %d: %s%s" % (argv, status, out, err))
        return self.lines()

    def run_linux(self, program, path, menu, answers=()):
        """One request of the Linux program on `path`; (exit status, lines)."""
        self.write_answers(answers)
        self.forget_lines()
        done = subprocess.run([program, "1::%s::%d" % (path, menu)], env=self.env, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=HANG_GUARD)
        expect(done.returncode == 0, "the Linux program ended with %d on %s: %s" %
               (done.returncode, path, done.stderr.decode(errors="replace")))
        return self.lines()

    def first_windows_encryption(self, path):
        lines = self.run_windows(path, 1, FIRST_ENCRYPTION + [
            "export %s\t%s" % (Wine.windows_path(self.backup), PASSWORD)])
        expect(os.path.exists(self.backup), "no backup was exported: %s" % lines)


def read(path):
    with open(path, "rb") as f:
        return f.read()


def of_kind(lines, ui, op=None):
    return [line for line in lines if line.get("ui") == ui and (op is None or line.get("op") == op)]


def case_progress_and_error_list(desk, _linux):
    desk.first_windows_encryption(desk.write("first.txt", b"x"))
    bad = desk.write("bad.txt", b"bad\n")
    lines = desk.run_windows(bad, 1)
    expect(os.path.exists(bad + ".lqvz"), "bad.txt was not encrypted")
    expect(of_kind(lines, "progress", "start") and of_kind(lines, "progress", "set"),
           "the encryption's progress left no lines: %s" % lines)
    damaged = bytearray(read(bad + ".lqvz"))
    damaged[-20] ^= 0x55
    os.chmod(bad + ".lqvz", 0o600)
    with open(bad + ".lqvz", "wb") as f:
        f.write(damaged)

    lines = desk.run_windows(bad + ".lqvz", 2, ["copy", "close"])
    row = Wine.windows_path(bad) + ".lqvz: Failed to decrypt file!"
    rows = [line["text"] for line in of_kind(lines, "errorlist", "row")]
    expect(rows == [row], "rows: %s" % rows)
    expect(of_kind(lines, "errorlist", "show"), "the error list was never shown: %s" % lines)
    copied = of_kind(lines, "errorlist", "copy")
    expect(copied and copied[0]["text"] == row + "\n", "copy: %s" % copied)
    closed = of_kind(lines, "errorlist", "close")
    expect(closed == [{"ui": "errorlist", "op": "close", "default": False}], "close: %s" % closed)
    expect(read(bad + ".lqvz") == bytes(damaged), "the damaged file was changed")
    expect(not os.path.exists(bad), "a plain file was made from a damaged one")


def case_search(desk, _linux):
    desk.first_windows_encryption(desk.write("a/first.txt", b"x"))
    desk.run_windows(desk.write("a/b/second.txt", b"y"), 1)
    desk.write("a/plain.txt", b"z")
    lines = desk.velq_windows("search", os.path.join(desk.docs, "a"))
    found = of_kind(lines, "search")
    wanted = sorted(Wine.windows_path(os.path.join(desk.docs, name))
                    for name in ("a/first.txt.lqvz", "a/b/second.txt.lqvz"))
    expect(len(found) == 1 and sorted(found[0]["results"]) == wanted, "search: %s" % found)

    # A name that no ANSI code page spells reaches both programs whole (Wine reads the host's arguments
    # in the host's encoding, so that is UTF-8 here): the program encrypts the file, velq.exe searches
    # its folder.
    utf8 = {"LC_ALL": "C.UTF-8"}
    third = desk.write("Grüße Σ/third ünï.txt", b"w")
    desk.run_windows(third, 1, env=utf8)
    expect(os.path.exists(third + ".lqvz") and not os.path.exists(third), "the Unicode name was not encrypted")
    lines = desk.velq_windows("search", os.path.dirname(third), env=utf8)
    found = of_kind(lines, "search")
    wanted = [Wine.windows_path(third + ".lqvz")]
    expect(len(found) == 1 and found[0]["results"] == wanted, "search under a Unicode name: %s" % found)


def case_cross_system(desk, linux):
    if not linux or not os.access(linux, os.X_OK):
        raise Skip("no Linux program was given to make and read the other system's files")
    from_linux = desk.write("from linux.txt", "Linux wrote this: ünïcödé\n".encode())
    desk.run_linux(linux, from_linux, 1, FIRST_ENCRYPTION + ["export %s\t%s" % (desk.backup, PASSWORD)])
    expect(os.path.exists(from_linux + ".lqvz") and not os.path.exists(from_linux),
           "the Linux program did not encrypt its file")

    # The Windows user has no key yet: it is recovered from the Linux backup, then the file opens.
    desk.run_windows(from_linux + ".lqvz", 2, ["yes", "import %s\t%s" % (Wine.windows_path(desk.backup),
                                                                      PASSWORD)])
    expect(read(from_linux) == "Linux wrote this: ünïcödé\n".encode(),
           "the Windows program did not bring back the Linux file")
    expect(not os.path.exists(from_linux + ".lqvz"), "the Linux .lqvz is still there after decryption")

    from_windows = desk.write("from windows.bin", os.urandom(70000))
    plain = read(from_windows)
    desk.run_windows(from_windows, 1)
    expect(os.path.exists(from_windows + ".lqvz") and not os.path.exists(from_windows),
           "the Windows program did not encrypt its file")
    desk.run_linux(linux, from_windows + ".lqvz", 2)
    expect(read(from_windows) == plain, "the Linux program did not bring back the Windows file")


CASES = {
    "progress_and_error_list": case_progress_and_error_list,
    "search": case_search,
    "cross_system": case_cross_system,
}


def run_case(case, program, velq, runner, wine64, prefix, linux):
    if not os.access(wine64, os.X_OK):
        raise Skip("wine64 is not installed")
    wine = Wine(runner, wine64, prefix)
    wine.use_null_graphics()
    with WindowsDesk(wine, program, velq) as desk:
        case(desk, linux)


if __name__ == "__main__":
    sys.exit(run_cases(CASES, ["PROGRAM", "VELQ", "WINE_RUN", "WINE64", "PREFIX", "LINUX_PROGRAM"], run_case))
