#!/usr/bin/env python3
"""End-to-end tests of the key guides and the search, each in processes of their own, driven through the
scripted UI with real key files, a transcript and, for two processes at once, a FIFO of answers.

Usage: guides_test.py DRIVER CASE     (CASE: one of the names in CASES; "all" runs every case)

Exit status 0 when the case passes, 1 when it fails.
"""
import os
import subprocess
import sys
import threading

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from velq_e2e import Failure, Sandbox, expect, messagebox as box, run_cases  # noqa: E402

PASSWORD = "pass word\twith tab"


class GuidesSandbox(Sandbox):
    """No sensor backend, a home folder of its own; the answers are written by each case."""

    def __init__(self):
        super().__init__("velq-guides-", "none")
        self.env["HOME"] = os.path.join(self.root, "home")
        os.makedirs(self.env["HOME"])

    def root_key(self):
        users = os.path.join(self.env["VELQ_DATA_HOME"], "users")
        names = os.listdir(users) if os.path.isdir(users) else []
        return os.path.join(users, names[0], "root.key") if names else None


def drive(driver, sandbox, *args):
    done = subprocess.run([driver] + list(args), env=sandbox.env, capture_output=True, text=True, timeout=150)
    if done.returncode != 0:
        raise Failure("driver %s exited with %d: %s" % (args, done.returncode, done.stderr))
    return done.stdout.strip()


NEW_KEY = box("A new key has been created, please backup the file, preferably to another storage device.",
              "Information", 64, 1, False)


def no_password_in_transcript(sandbox):
    with open(sandbox.transcript, encoding="utf-8") as f:
        text = f.read()
    expect("pass word" not in text and "wrong" not in text, "a password reached the transcript")


def case_backup_then_recovery(driver, sandbox):
    backup = os.path.join(sandbox.root, "usb", "my backup")
    os.makedirs(os.path.dirname(backup))
    sandbox.write_answers(["ok", "export %s\t%s" % (backup, PASSWORD)])
    expect(drive(driver, sandbox, "backup") == "result 0x0", "the backup guide did not succeed")
    no_password_in_transcript(sandbox)
    # The dialog adds the key file's extension to a name without one.
    expect(sandbox.take_lines() == [NEW_KEY, {"ui": "export", "answer": "ok", "path": backup + ".key"}],
           "unexpected transcript of the backup")
    root = sandbox.root_key()
    with open(root, "rb") as a, open(backup + ".key", "rb") as b:
        expect(a.read() == b.read(), "the backup is not a copy of the root key file")
    expect(os.stat(root).st_mode & 0o077 == 0, "the root key file is open to others")

    # The key is lost; another process brings it back after a wrong password and a missing file.
    os.remove(root)
    missing = os.path.join(sandbox.root, "nowhere.key")
    sandbox.write_answers(["import %s\twrong" % (backup + ".key"), "ok",
                           "import %s\t%s" % (missing, PASSWORD), "ok",
                           "import %s\t%s" % (backup + ".key", PASSWORD)])
    expect(drive(driver, sandbox, "recover") == "result 1", "the recovery did not succeed")
    no_password_in_transcript(sandbox)
    expect(sandbox.take_lines() == [
        {"ui": "import", "answer": "ok", "path": backup + ".key"},
        box("The password is invalid.", "Error", 16, 1, False),
        {"ui": "import", "answer": "ok", "path": missing},
        box("Failed to load key file!", "Error", 16, 1, False),
        {"ui": "import", "answer": "ok", "path": backup + ".key"},
    ], "unexpected transcript of the recovery")
    with open(sandbox.root_key(), "rb") as a:
        expect(len(a.read()) > 0, "no root key file after the recovery")


def case_cancelled_backup(driver, sandbox):
    sandbox.write_answers(["ok", "cancel"])
    expect(drive(driver, sandbox, "backup") == "result 0x1", "a cancelled backup is not 1")
    expect(sandbox.take_lines() == [NEW_KEY, {"ui": "export", "answer": "cancel"}], "unexpected transcript")
    expect(sandbox.root_key() is None or not os.path.exists(sandbox.root_key()), "a key was made")
    # No answers left: the recovery is cancelled as by a person who confirms nothing.
    sandbox.write_answers([])
    expect(drive(driver, sandbox, "recover") == "result 0", "a cancelled recovery is not 0")
    expect(sandbox.take_lines() == [{"ui": "import", "answer": "cancel", "default": True}],
           "unexpected transcript of the cancelled recovery")


def case_second_backup_process(driver, sandbox):
    # The first process waits at its message box for an answer from a FIFO, holding the guide's mutex.
    os.mkfifo(sandbox.answers)
    first = subprocess.Popen([driver, "backup"], env=sandbox.env, stdout=subprocess.PIPE, text=True)
    writer = {}
    opener = threading.Thread(target=lambda: writer.setdefault("f", open(sandbox.answers, "w")))
    opener.start()
    opener.join(60)  # returns once the first process opened the FIFO: it is at its first question now
    expect("f" in writer, "the first process never asked")
    try:
        second_env = dict(sandbox.env, VELQ_UI_SCRIPT=os.path.join(sandbox.root, "no-answers"),
                          VELQ_UI_TRANSCRIPT=os.path.join(sandbox.root, "second.jsonl"))
        second = subprocess.run([driver, "backup"], env=second_env, capture_output=True, text=True, timeout=150)
        expect(second.stdout.strip() == "result 0x80004005", "the second guide gave " + second.stdout)
        expect(not os.path.exists(second_env["VELQ_UI_TRANSCRIPT"]), "the second guide asked something")
    finally:
        writer["f"].write("ok\nexport %s\t%s\n" % (os.path.join(sandbox.root, "b.key"), PASSWORD))
        writer["f"].close()
    out, _ = first.communicate(timeout=150)
    expect(out.strip() == "result 0x0", "the first guide gave " + out)


def case_search_locations(driver, sandbox):
    docs = os.path.join(sandbox.root, "100% docs")
    for name in ("a.lqvz", "deep/B.LQVZ", "c.txt"):
        os.makedirs(os.path.dirname(os.path.join(docs, name)), exist_ok=True)
        open(os.path.join(docs, name), "w").close()
    drive(driver, sandbox, "search", docs, "/" + "n" * 300)
    escaped = sandbox.root.replace("%", "%25").replace(" ", "%20") + "/100%25%20docs"
    expect(sandbox.take_lines() == [{
        "ui": "search",
        "query": "search-ms:query=*.lqvz&crumb=location:" + escaped + "&crumb=location:",
        "results": [os.path.join(docs, "a.lqvz"), os.path.join(docs, "deep/B.LQVZ")],
    }], "unexpected search line")
    # No location: the home folder is searched.
    open(os.path.join(sandbox.env["HOME"], "h.lqvz"), "w").close()
    drive(driver, sandbox, "search")
    expect(sandbox.take_lines() == [{"ui": "search", "query": "search-ms:query=*.lqvz",
                                     "results": [os.path.join(sandbox.env["HOME"], "h.lqvz")]}],
           "unexpected search line without a location")


CASES = {name[len("case_"):]: fn for name, fn in globals().items() if name.startswith("case_")}


def run_case(case, driver):
    with GuidesSandbox() as sandbox:
        case(driver, sandbox)


if __name__ == "__main__":
    sys.exit(run_cases(CASES, ("DRIVER",), run_case))
