#!/usr/bin/env python3
"""End-to-end tests of the fingerprint gate on the fprintd backend: VELQFileEncrypt (VELQ_WINBIO=fprintd,
scripted UI) against the real fprintd daemon on libfprint's virtual reader, in the private world of
fprintd_fixture.py.

Usage: fprintd_test.py PROGRAM CASE     (CASE: one of the names in CASES; "all" runs every case)

Exit status 0 when the case passes, 1 when it fails, 77 when it cannot run here (the reason is printed).
"""
import json
import os
import pwd
import shutil
import subprocess
import sys
import tempfile
import time

SKIP = 77
DEBIAN_PYTHON = "/usr/bin/python3"

try:
    import dbus
    import fprintd_fixture
except ImportError as missing:
    # The fixture needs Debian's python (dbus-python, dbusmock); another python on PATH may lack them.
    if sys.executable != DEBIAN_PYTHON and os.access(DEBIAN_PYTHON, os.X_OK):
        os.execv(DEBIAN_PYTHON, [DEBIAN_PYTHON] + sys.argv)
    print("SKIP: %s (scripts/setup.sh installs python3-dbusmock)" % missing)
    sys.exit(SKIP)

E_FAIL_STATUS = 5
HANG_GUARD = 60
FINGER = "right-index-finger"
PRINT_ID = "finger-1"
NO_DEVICE = "Failed to open the sensor."
NOT_ENROLLED = "Please enroll fingerprints."
DECRYPT_QUESTION = "Do you want to decrypt the protected file?"
SHOW = {"ui": "wait", "op": "show"}
REFUSED = {"ui": "wait", "op": "image", "id": 505}


class Failure(Exception):
    pass


class Sandbox:
    """The program's private environment on the fixture's bus."""

    def __init__(self, fixture):
        self.fixture = fixture
        self.root = tempfile.mkdtemp(prefix="velq-fprintd-e2e-")
        self.transcript = os.path.join(self.root, "transcript.jsonl")
        answers = os.path.join(self.root, "answers")
        with open(answers, "w") as f:
            f.write("no\n" * 8)
        self.env = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
            "HOME": self.root,
            "LANGUAGE": "en",
            "LC_ALL": "C",
            "VELQ_UI": "script",
            "VELQ_UI_SCRIPT": answers,
            "VELQ_UI_TRANSCRIPT": self.transcript,
            "VELQ_WINBIO": "fprintd",
            "VELQ_RUNTIME_DIR": os.path.join(self.root, "run"),
            "VELQ_DATA_HOME": os.path.join(self.root, "data"),
            "TMPDIR": self.root,
            "DBUS_SYSTEM_BUS_ADDRESS": fixture.address,
            "XDG_SESSION_ID": fprintd_fixture.SESSION_ID,
        }
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"):
            if name in os.environ:
                self.env[name] = os.environ[name]
        # GLib is not instrumented: ThreadSanitizer cannot see its locking (only read by a TSan build).
        supp = os.path.join(os.path.dirname(os.path.abspath(__file__)), "fprintd_tsan.supp")
        self.env["TSAN_OPTIONS"] = ":".join(filter(None, [os.environ.get("TSAN_OPTIONS"), "suppressions=" + supp]))

    def close(self):
        shutil.rmtree(self.root, ignore_errors=True)

    def file(self, name):
        path = os.path.join(self.root, "docs", name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(b"some text\n")
        return path

    def start(self, program, name):
        return subprocess.Popen([program, self.file(name)], env=self.env, stdout=subprocess.DEVNULL,
                                stderr=subprocess.PIPE)

    def lines(self):
        if not os.path.exists(self.transcript):
            return []
        with open(self.transcript, encoding="utf-8") as f:
            return [json.loads(line) for line in f if line.strip()]

    def wait_for_line(self, line, count=1):
        end = time.monotonic() + HANG_GUARD
        while self.lines().count(line) < count:
            if time.monotonic() > end:
                raise Failure("never seen: %s" % json.dumps(line))
            time.sleep(0.05)

    def messages(self):
        return [line["text"] for line in self.lines() if line.get("ui") == "messagebox"]

    def pictures(self):
        return [line["id"] for line in self.lines() if line.get("ui") == "wait" and line["op"] == "image"]


def finish(proc):
    try:
        _, err = proc.communicate(timeout=HANG_GUARD)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.communicate()
        raise Failure("the program did not end")
    if proc.returncode < 0:
        raise Failure("the program died of signal %d: %s" % (-proc.returncode, err.decode(errors="replace")))
    return proc.returncode, err.decode(errors="replace")


def expect(what, got, wanted):
    if got != wanted:
        raise Failure("%s: got %r, wanted %r" % (what, got, wanted))


def user():
    return pwd.getpwuid(os.getuid()).pw_name


def enroll(fixture):
    fixture.enroll(FINGER, PRINT_ID, user())


def expect_passed(box, proc):
    status, err = finish(proc)
    expect("exit status (stderr %r)" % err, status, 0)
    expect("last message", box.messages()[-1:], [DECRYPT_QUESTION])
    if 504 not in box.pictures():
        raise Failure("no picture of the finger taken: %r" % box.pictures())


def expect_refused(box, proc, messages):
    status, err = finish(proc)
    expect("exit status (stderr %r)" % err, status, E_FAIL_STATUS)
    expect("messages", box.messages(), messages)
    return err


def expect_released(fixture):
    """The program left the reader free: another client can claim it at once."""
    if not fixture.claimable():
        raise Failure("the reader is still claimed after the program ended")


def case_match(program, fixture, box):
    """The owner's enrolled finger passes the gate and the program reaches its decrypt question."""
    enroll(fixture)
    proc = box.start(program, "a.txt.lqvz")
    box.wait_for_line(SHOW)
    fixture.send("SCAN " + PRINT_ID)
    expect_passed(box, proc)
    expect_released(fixture)


def case_unknown_then_match(program, fixture, box):
    """An unknown finger shows the refusal picture and the wait goes on; then the owner's passes."""
    enroll(fixture)
    proc = box.start(program, "b.txt.lqvz")
    box.wait_for_line(SHOW)
    fixture.send("SCAN stranger")
    box.wait_for_line(REFUSED)
    fixture.send("SCAN " + PRINT_ID)
    expect_passed(box, proc)


def case_retries(program, fixture, box):
    """Each of the reader's four retry results leaves the wait going on; the owner's finger then passes."""
    enroll(fixture)
    proc = box.start(program, "c.txt.lqvz")
    box.wait_for_line(SHOW)
    for n in range(4):
        fixture.send("RETRY %d" % n)
        box.wait_for_line(REFUSED, n + 1)
    fixture.send("SCAN " + PRINT_ID)
    expect_passed(box, proc)


def case_no_device(program, fixture, box):
    """No daemon on the bus: no unit, "Failed to open the sensor." and no wait window."""
    fixture.kill_daemon()
    expect_refused(box, box.start(program, "d.txt.lqvz"), [NO_DEVICE])
    expect("wait window", box.lines().count(SHOW), 0)


def case_not_enrolled(program, fixture, box):
    """A reader but no enrolled finger of the owner: "Please enroll fingerprints."."""
    expect_refused(box, box.start(program, "e.txt.lqvz"), [NOT_ENROLLED])
    expect_released(fixture)


def case_polkit_refuses(program, fixture, box):
    """polkit refusing the fprintd actions (a session that is not active and local): the sensor cannot
    be opened, and the log line says why."""
    enroll(fixture)
    fixture.polkit_allow([])
    err = expect_refused(box, box.start(program, "f.txt.lqvz"), [NO_DEVICE])
    if "polkit" not in err:
        raise Failure("no line saying that polkit refused: %r" % err)


def case_unplugged(program, fixture, box):
    """The reader pulled out during the wait ends the wait as a device error, never as a pass."""
    enroll(fixture)
    proc = box.start(program, "g.txt.lqvz")
    box.wait_for_line(SHOW)
    fixture.send("UNPLUG")
    status, err = finish(proc)
    expect("exit status (stderr %r)" % err, status, E_FAIL_STATUS)
    if DECRYPT_QUESTION in box.messages():
        raise Failure("the gate passed without a finger")


def case_daemon_killed(program, fixture, box):
    """The daemon killed during the wait ends the wait as a device error, never as a pass or a hang."""
    enroll(fixture)
    proc = box.start(program, "h.txt.lqvz")
    box.wait_for_line(SHOW)
    fixture.kill_daemon()
    status, err = finish(proc)
    expect("exit status (stderr %r)" % err, status, E_FAIL_STATUS)
    if DECRYPT_QUESTION in box.messages():
        raise Failure("the gate passed without a finger")


def emit_lock(fixture):
    session = fixture.bus.get_object(fprintd_fixture.LOGIND,
                                     "/org/freedesktop/login1/session/" + fprintd_fixture.SESSION_ID)
    session.Lock(dbus_interface="org.freedesktop.login1.Session")


def emit_sleep(fixture, start):
    manager = fixture.bus.get_object(fprintd_fixture.LOGIND, "/org/freedesktop/login1")
    manager.EmitSignal("org.freedesktop.login1.Manager", "PrepareForSleep", "b", [dbus.Boolean(start)],
                       dbus_interface=fprintd_fixture.MOCK_IFACE)


def case_lock(program, fixture, box):
    """The session locked ends the wait as the wait window's session code does; the cancelled wait leaves
    the reader released (another client claims it at once)."""
    enroll(fixture)
    proc = box.start(program, "i.txt.lqvz")
    box.wait_for_line(SHOW)
    emit_lock(fixture)
    expect_refused(box, proc, [])
    expect_released(fixture)


def case_suspend(program, fixture, box):
    """The machine going to sleep ends the wait as the wait window's power code does. (Whether the reader
    is free after the resume is the daemon's own affair: it suspends a claimed reader itself, and after a
    resume it may keep it open although it answers Release with ClaimDevice; the release on a cancelled
    wait is proven by case_lock.)"""
    enroll(fixture)
    proc = box.start(program, "k.txt.lqvz")
    box.wait_for_line(SHOW)
    emit_sleep(fixture, True)
    box.wait_for_line({"ui": "wait", "op": "close"})
    emit_sleep(fixture, False)
    expect_refused(box, proc, [])
    if 504 in box.pictures():
        raise Failure("a finger was taken during the sleep: %r" % box.pictures())


def case_taking_turns(program, fixture, box):
    """Two processes: the second one's wait comes after the first one has released the reader."""
    enroll(fixture)
    first = box.start(program, "j1.txt.lqvz")
    box.wait_for_line(SHOW)
    second = box.start(program, "j2.txt.lqvz")
    fixture.send("SCAN " + PRINT_ID)
    expect("first exit status", finish(first)[0], 0)
    box.wait_for_line(SHOW, 2)
    fixture.send("SCAN " + PRINT_ID)
    status, err = finish(second)
    expect("second exit status (stderr %r)" % err, status, 0)
    ops = [line["op"] for line in box.lines() if line.get("ui") == "wait" and line["op"] in ("show", "close")]
    expect("order of the windows", ops, ["show", "close", "show", "close"])


CASES = {
    "match": case_match,
    "unknown_then_match": case_unknown_then_match,
    "retries": case_retries,
    "no_device": case_no_device,
    "not_enrolled": case_not_enrolled,
    "polkit_refuses": case_polkit_refuses,
    "unplugged": case_unplugged,
    "daemon_killed": case_daemon_killed,
    "lock": case_lock,
    "suspend": case_suspend,
    "taking_turns": case_taking_turns,
}


def run_case(program, name):
    try:
        with fprintd_fixture.Fixture() as fixture:
            box = Sandbox(fixture)
            try:
                CASES[name](program, fixture, box)
            finally:
                box.close()
    except fprintd_fixture.Unavailable as why:
        print("SKIP %s: %s" % (name, why))
        return SKIP
    except (Failure, dbus.exceptions.DBusException) as e:
        print("FAIL %s: %s" % (name, e))
        return 1
    print("PASS %s" % name)
    return 0


def main():
    if len(sys.argv) != 3 or (sys.argv[2] not in CASES and sys.argv[2] != "all"):
        print(__doc__)
        return 2
    names = list(CASES) if sys.argv[2] == "all" else [sys.argv[2]]
    results = [run_case(sys.argv[1], name) for name in names]
    if 1 in results:
        return 1
    return SKIP if all(r == SKIP for r in results) else 0


if __name__ == "__main__":
    sys.exit(main())
