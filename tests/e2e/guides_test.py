#!/usr/bin/env python3
"""End-to-end tests of the key guides and the search, each in processes of their own, driven through the
scripted UI with real key files, a transcript and, for two processes at once, a FIFO of answers.

Usage: guides_test.py DRIVER [WINE_RUN WINE64 PREFIX] CASE
  (CASE: one of the names in CASES; "all" runs every case; with the Wine runner's values DRIVER is the
  Windows build of guides_driver, run under wine64 in PREFIX, with the paths it sees in Windows form)

Exit status 0 when the case passes, 1 when it fails, 77 when Wine is asked for and cannot run here.
"""
import os
import sys
import tempfile
import threading

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from velq_e2e import Failure, Sandbox, expect, messagebox as box, read_text, remove_tree, run_cases  # noqa: E402
from velq_wine import WINE_ARGUMENTS, system_of  # noqa: E402

PASSWORD = "pass word\twith tab"
HANG_GUARD = 120  # a guard against a hang only, within ctest's time limit; no case relies on how long runs take


class GuidesSandbox(Sandbox):
    """No sensor backend, a home folder of its own (HOME: the Windows program's is its prefix's profile);
    the answers are written by each case."""

    def __init__(self, driver, system):
        super().__init__("velq-guides-", "none", system=system)
        self.driver = driver
        self.env["HOME"] = os.path.join(self.root, "home")
        os.makedirs(self.env["HOME"])

    def root_key(self):
        users = os.path.join(self.env["VELQ_DATA_HOME"], "users")
        names = os.listdir(users) if os.path.isdir(users) else []
        return os.path.join(users, names[0], "root.key") if names else None

    def start(self, args, extra_env=None):
        """Starts the driver with `args` (its output read by finish)."""
        return self.start_quietly([self.driver] + list(args), extra_env)

    def finish(self, process):
        """Waits for a run of start; its output. Fails unless the driver exited with 0."""
        status, out, err = self.ended(process, HANG_GUARD)
        if status != 0:
            raise Failure("%s exited with %d: %s" % (" ".join(process.args), status, err))
        return out.strip()

    def drive(self, *args, extra_env=None):
        return self.finish(self.start(args, extra_env))

    def take_lines(self):
        """The transcript's lines (a message box's owner as POSIX shows it), then forgets them."""
        lines = self.lines_as_on_posix()
        self.forget_lines()
        return lines


NEW_KEY = box("A new key has been created, please backup the file, preferably to another storage device.",
              "Information", 64, 1, False)


def no_password_in_transcript(sandbox):
    expect("pass word" not in read_text(sandbox.transcript) and "wrong" not in read_text(sandbox.transcript),
           "a password reached the transcript")


def case_backup_then_recovery(sandbox):
    backup = os.path.join(sandbox.root, "usb", "my backup")
    os.makedirs(os.path.dirname(backup))
    sandbox.write_answers(["ok", "export %s\t%s" % (sandbox.program_path(backup), PASSWORD)])
    expect(sandbox.drive("backup") == "result 0x0", "the backup guide did not succeed")
    no_password_in_transcript(sandbox)
    # The dialog adds the key file's extension to a name without one.
    expect(sandbox.take_lines() == [NEW_KEY, {"ui": "export", "answer": "ok",
                                              "path": sandbox.program_path(backup + ".key")}],
           "unexpected transcript of the backup")
    root = sandbox.root_key()
    with open(root, "rb") as a, open(backup + ".key", "rb") as b:
        expect(a.read() == b.read(), "the backup is not a copy of the root key file")
    if sandbox.system.is_posix:  # file modes are POSIX's: on Windows the user's folders keep others out
        expect(os.stat(root).st_mode & 0o077 == 0, "the root key file is open to others")

    # The key is lost; another process brings it back after a wrong password and a missing file.
    os.remove(root)
    found = sandbox.program_path(backup + ".key")
    missing = sandbox.program_path(os.path.join(sandbox.root, "nowhere.key"))
    sandbox.write_answers(["import %s\twrong" % found, "ok", "import %s\t%s" % (missing, PASSWORD), "ok",
                           "import %s\t%s" % (found, PASSWORD)])
    expect(sandbox.drive("recover") == "result 1", "the recovery did not succeed")
    no_password_in_transcript(sandbox)
    expect(sandbox.take_lines() == [
        {"ui": "import", "answer": "ok", "path": found},
        box("The password is invalid.", "Error", 16, 1, False),
        {"ui": "import", "answer": "ok", "path": missing},
        box("Failed to load key file!", "Error", 16, 1, False),
        {"ui": "import", "answer": "ok", "path": found},
    ], "unexpected transcript of the recovery")
    with open(sandbox.root_key(), "rb") as a:
        expect(len(a.read()) > 0, "no root key file after the recovery")


def case_cancelled_backup(sandbox):
    sandbox.write_answers(["ok", "cancel"])
    expect(sandbox.drive("backup") == "result 0x1", "a cancelled backup is not 1")
    expect(sandbox.take_lines() == [NEW_KEY, {"ui": "export", "answer": "cancel"}], "unexpected transcript")
    expect(sandbox.root_key() is None or not os.path.exists(sandbox.root_key()), "a key was made")
    # No answers left: the recovery is cancelled as by a person who confirms nothing.
    sandbox.write_answers([])
    expect(sandbox.drive("recover") == "result 0", "a cancelled recovery is not 0")
    expect(sandbox.take_lines() == [{"ui": "import", "answer": "cancel", "default": True}],
           "unexpected transcript of the cancelled recovery")


def case_second_backup_process(sandbox):
    # The first process waits at its message box for an answer from a FIFO, holding the guide's mutex. The
    # Windows program reads the FIFO through Z:\ as well: under Wine its reads wait for the writer's lines.
    os.mkfifo(sandbox.answers)
    first = sandbox.start(["backup"])
    writer = {}
    # A daemon: an open that no reader ever meets must not keep the driver from ending.
    opener = threading.Thread(target=lambda: writer.setdefault("f", open(sandbox.answers, "w")), daemon=True)
    opener.start()
    opener.join(HANG_GUARD)  # returns once the first process opened the FIFO: it is at its first question now
    if "f" not in writer:
        first.kill()
        first.wait()
        raise Failure("the first process never asked")
    second_transcript = os.path.join(sandbox.root, "second.jsonl")
    backup = os.path.join(sandbox.root, "b.key")
    try:
        second = sandbox.drive("backup", extra_env={
            "VELQ_UI_SCRIPT": os.path.join(sandbox.root, "no-answers"), "VELQ_UI_TRANSCRIPT": second_transcript})
        expect(second == "result 0x80004005", "the second guide gave " + second)
        expect(not os.path.exists(second_transcript), "the second guide asked something")
    finally:
        writer["f"].write("ok\nexport %s\t%s\n" % (sandbox.program_path(backup), PASSWORD))
        writer["f"].close()
    out = sandbox.finish(first)
    expect(out == "result 0x0", "the first guide gave " + out)
    # The first one's answers were the ones given after the second had gone, not defaults taken earlier.
    expect(sandbox.take_lines() == [NEW_KEY, {"ui": "export", "answer": "ok", "path": sandbox.program_path(backup)}],
           "unexpected transcript of the first guide")
    with open(sandbox.root_key(), "rb") as a, open(backup, "rb") as b:
        expect(a.read() == b.read(), "the first guide's backup is not a copy of its root key file")


def case_search_locations(sandbox):
    # "%" and " " are escaped in the query; no ANSI code page spells "Σ", so on Windows the folder reaches
    # the search whole only through the wide command line.
    docs = os.path.join(sandbox.root, "100% docs Σ")
    for name in ("a.lqvz", "deep/B.LQVZ", "c.txt"):
        os.makedirs(os.path.dirname(os.path.join(docs, name)), exist_ok=True)
        open(os.path.join(docs, name), "w").close()
    # A location too long for the escape's buffer stays in the query as an empty one.
    sandbox.drive("search", sandbox.program_path(docs), sandbox.program_path("/" + "n" * 300))
    expect(sandbox.take_lines() == [{
        "ui": "search",
        "query": "search-ms:query=*.lqvz&crumb=location:" + escaped(sandbox.program_path(docs)) + "&crumb=location:",
        "results": [sandbox.program_path(os.path.join(docs, name)) for name in ("a.lqvz", "deep/B.LQVZ")],
    }], "unexpected search line")
    if sandbox.system.is_posix:
        # No location: the home folder is searched.
        open(os.path.join(sandbox.env["HOME"], "h.lqvz"), "w").close()
        sandbox.drive("search")
        expect(sandbox.take_lines() == [{"ui": "search", "query": "search-ms:query=*.lqvz",
                                         "results": [os.path.join(sandbox.env["HOME"], "h.lqvz")]}],
               "unexpected search line without a location")
    else:
        search_windows_home(sandbox)


def search_windows_home(sandbox):
    """No location: the Windows program searches its user's profile, which the prefix keeps whatever HOME
    says. Other runs in the prefix keep files there too (its temporary folder is in it), so the case's own
    folder must be found and nothing outside the profile, rather than the one file of a home of its own."""
    wine = sandbox.system
    home = wine.home_folder()
    own = tempfile.mkdtemp(prefix="velq-guides-", dir=home)
    try:
        open(os.path.join(own, "h.lqvz"), "w").close()
        sandbox.drive("search")
    finally:
        remove_tree(own)
    lines = sandbox.take_lines()
    expect(len(lines) == 1 and lines[0]["ui"] == "search" and lines[0]["query"] == "search-ms:query=*.lqvz",
           "unexpected search without a location: %r" % lines)
    found = [wine.unix_path(path) for path in lines[0]["results"]]
    expect(found.count(os.path.join(own, "h.lqvz")) == 1, "the file in the profile was not found: %r" % found)
    # Where a file really is: the profile's Desktop, Documents... are links to the host's folders, which the
    # search passes over as the reparse points they are.
    strays = [path for path in found if not os.path.realpath(path).startswith(os.path.realpath(home) + "/")
              or not path.lower().endswith(".lqvz")]
    expect(strays == [], "found outside the profile or not encrypted: %r" % strays)


def escaped(path):
    """`path` as the search's query carries it: the shell's URL escaping turns "%", " " and "\\" (a Windows
    path's separator) into their codes and leaves the other letters of these paths as they are."""
    return path.replace("%", "%25").replace(" ", "%20").replace("\\", "%5C")


CASES = {name[len("case_"):]: fn for name, fn in globals().items() if name.startswith("case_")}


def run_case(case, driver, runner, wine64, prefix):
    with GuidesSandbox(os.path.abspath(driver), system_of(runner, wine64, prefix)) as sandbox:
        case(sandbox)


if __name__ == "__main__":
    sys.exit(run_cases(CASES, ("DRIVER",), run_case, optional=WINE_ARGUMENTS))
