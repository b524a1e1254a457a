#!/usr/bin/env python3
"""End-to-end tests of the fingerprint gate on the fprintd backend: VELQFileEncrypt (VELQ_WINBIO=fprintd,
scripted UI) against the real fprintd daemon on libfprint's virtual reader, in the private world of
fprintd_fixture.py. The owner's finger is enrolled through the engine's own enroll operation
(bio_enroll_driver, which also drives the event monitor), the reader fed one sample for each stage it asks.

Usage: fprintd_test.py PROGRAM DRIVER CASE   (CASE: one of the names in CASES; "all" runs every case)

Exit status 0 when the case passes, 1 when it fails, 77 when it cannot run here (the reason is printed).
"""
import os
import pwd
import select
import signal
import subprocess
import sys
import time

SKIP = 77
DEBIAN_PYTHON = "/usr/bin/python3"

try:
    import dbus
    import fprintd_fixture
    import velq_e2e
    from velq_e2e import Failure
except ImportError as missing:
    # The fixture needs Debian's python (dbus-python, dbusmock); another python on PATH may lack them.
    if sys.executable != DEBIAN_PYTHON and os.access(DEBIAN_PYTHON, os.X_OK):
        os.execv(DEBIAN_PYTHON, [DEBIAN_PYTHON] + sys.argv)
    print("SKIP: %s (scripts/setup.sh installs python3-dbusmock)" % missing)
    sys.exit(SKIP)

E_FAIL_STATUS = 5
HANG_GUARD = 60
FINGER = "right-index-finger"
FINGER_SUB_FACTOR = 2
OTHER_FINGER_SUB_FACTOR = 7
PRINT_ID = "finger-1"
# The engine's results, as bio_enroll_driver prints them.
DONE = "0x00000000"
BIO_E_NOT_IDENTIFIED = "0x80040289"
BIO_E_ENROLL_BUSY = "0x80040288"
BIO_E_DUPLICATE = "0x8004028d"
NO_DEVICE = "Failed to open the sensor."
NOT_ENROLLED = "Please enroll fingerprints."
DECRYPT_QUESTION = "Do you want to decrypt the protected file?"
SHOW = {"ui": "wait", "op": "show"}
# The terminal UI's wait window, shown.
TTY_WAIT_LINE = "(Ctrl-C: cancel)"
REFUSED = {"ui": "wait", "op": "image", "id": 505}


class Sandbox(velq_e2e.Sandbox):
    """The program's private environment on the fixture's bus."""

    def __init__(self, fixture):
        super().__init__("velq-fprintd-e2e-", "fprintd", answers=["no"] * 8,
                         DBUS_SYSTEM_BUS_ADDRESS=fixture.address,
                         XDG_SESSION_ID=fprintd_fixture.SESSION_ID)
        self.fixture = fixture
        # GLib is not instrumented: ThreadSanitizer cannot see its locking (only read by a TSan build).
        supp = os.path.join(os.path.dirname(os.path.abspath(__file__)), "fprintd_tsan.supp")
        self.env["TSAN_OPTIONS"] = ":".join(filter(None, [os.environ.get("TSAN_OPTIONS"), "suppressions=" + supp]))

    def file(self, name):
        return self.write(name, b"some text\n")

    def start(self, program, name):
        return subprocess.Popen([program, self.file(name)], env=self.env, stdout=subprocess.DEVNULL,
                                stderr=subprocess.PIPE)

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


class LineReader:
    """The lines of a process's pipe, each taken as soon as the process has written it whole."""

    def __init__(self, proc, pipe):
        self.proc = proc
        self.pipe = pipe
        self.pending = b""
        self.lines = []

    def next_line(self):
        end = time.monotonic() + HANG_GUARD
        while b"\n" not in self.pending:
            remaining = end - time.monotonic()
            if remaining <= 0:
                self.proc.kill()
                raise Failure("nothing written after %r" % self.lines)
            ready, _, _ = select.select([self.pipe], [], [], remaining)
            if ready:
                chunk = os.read(self.pipe.fileno(), 4096)
                if not chunk:
                    raise Failure("the process ended after %r" % self.lines)
                self.pending += chunk
        line, self.pending = self.pending.split(b"\n", 1)
        self.lines.append(line.decode(errors="replace"))
        return self.lines[-1]

    def wait_for(self, text):
        while text not in self.next_line():
            pass


class Driver(LineReader):
    """bio_enroll_driver in the program's environment, its lines read one by one as it writes them."""

    def __init__(self, path, box, *args):
        self.err = os.path.join(box.root, "driver.err")
        with open(self.err, "wb") as err:
            proc = subprocess.Popen([path] + list(args), env=box.env, stdout=subprocess.PIPE, stderr=err)
        super().__init__(proc, proc.stdout)

    def next_line(self):
        try:
            return super().next_line()
        except Failure as failure:
            raise Failure("driver: %s: %s" % (failure, self.stderr()))

    def expect_line(self, wanted):
        expect("the driver's line after %r" % self.lines, self.next_line(), wanted)

    def stderr(self):
        with open(self.err, "rb") as f:
            return f.read().decode(errors="replace")[-2000:]

    def finish(self):
        """Waits for the end; every line it wrote."""
        try:
            self.proc.wait(timeout=HANG_GUARD)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
            raise Failure("the driver did not end after %r" % self.lines)
        self.pending += self.proc.stdout.read()
        self.proc.stdout.close()
        self.lines += [line.decode() for line in self.pending.splitlines()]
        self.pending = b""
        if self.proc.returncode != 0:
            raise Failure("driver exit status %d after %r: %s" % (self.proc.returncode, self.lines, self.stderr()))
        return self.lines


def stage_asks_for_more(line):
    """An enroll notification of a sample taken (a stage passed or a capture to retry), not the last."""
    return line.startswith("enroll result=%s " % DONE) and line.endswith(" done=0")


def run_enrollment(driver_path, fixture, box, sub_factor, print_id, scan=True):
    """The engine's enroll operation of finger position `sub_factor` for the process owner, with one SCAN
    of `print_id` for each sample it asks (none when `scan` is False); returns the driver's lines."""
    driver = Driver(driver_path, box, "enroll", str(sub_factor))
    driver.expect_line("ready")
    if scan:
        fixture.send("SCAN " + print_id)
    while True:
        line = driver.next_line()
        if line.startswith("end "):
            return driver.finish()
        if scan and stage_asks_for_more(line):
            fixture.send("SCAN " + print_id)


def enroll(driver_path, fixture, box):
    """Enrolls the owner's test finger through the engine; its stages and end must say so."""
    lines = run_enrollment(driver_path, fixture, box, FINGER_SUB_FACTOR, PRINT_ID)
    expect("the enrollment's end", lines[-1], "end result=" + DONE)
    if not any(line.startswith("enroll result=%s " % DONE) and line.endswith(" done=1") for line in lines):
        raise Failure("no completed stage among %r" % lines)
    if not any(stage_asks_for_more(line) for line in lines):
        raise Failure("the reader asked for no second sample: %r" % lines)
    expect("enrolled fingers", fixture.enrolled(user()), [FINGER])


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


def expect_released(fixture, releases_before=None):
    """The program left the reader free: another client can claim it at once. Given `releases_before`
    (fixture.releases_by_others() before the run), the program released it itself, with one more Release in
    the daemon's log: the daemon releases a client that leaves the bus on its own."""
    if releases_before is not None and fixture.releases_by_others() <= releases_before:
        raise Failure("the program never released the reader itself")
    if not fixture.claimable():
        raise Failure("the reader is still claimed after the program ended")


def case_match(program, driver, fixture, box):
    """The owner's enrolled finger passes the gate and the program reaches its decrypt question."""
    enroll(driver, fixture, box)
    releases = fixture.releases_by_others()
    proc = box.start(program, "a.txt.lqvz")
    box.wait_for_line(SHOW)
    fixture.send("SCAN " + PRINT_ID)
    expect_passed(box, proc)
    expect_released(fixture, releases)


def case_unknown_then_match(program, driver, fixture, box):
    """An unknown finger shows the refusal picture and the wait goes on; then the owner's passes."""
    enroll(driver, fixture, box)
    proc = box.start(program, "b.txt.lqvz")
    box.wait_for_line(SHOW)
    fixture.send("SCAN stranger")
    box.wait_for_line(REFUSED)
    fixture.send("SCAN " + PRINT_ID)
    expect_passed(box, proc)


def case_retries(program, driver, fixture, box):
    """Each of the reader's four retry results leaves the wait going on; the owner's finger then passes."""
    enroll(driver, fixture, box)
    proc = box.start(program, "c.txt.lqvz")
    box.wait_for_line(SHOW)
    for n in range(4):
        fixture.send("RETRY %d" % n)
        box.wait_for_line(REFUSED, n + 1)
    fixture.send("SCAN " + PRINT_ID)
    expect_passed(box, proc)


def case_no_device(program, driver, fixture, box):
    """No daemon on the bus: no unit, "Failed to open the sensor." and no wait window."""
    fixture.kill_daemon()
    expect_refused(box, box.start(program, "d.txt.lqvz"), [NO_DEVICE])
    expect("wait window", box.lines().count(SHOW), 0)


def case_not_enrolled(program, driver, fixture, box):
    """A reader but no enrolled finger of the owner: "Please enroll fingerprints."."""
    expect_refused(box, box.start(program, "e.txt.lqvz"), [NOT_ENROLLED])
    expect_released(fixture)


def case_polkit_refuses(program, driver, fixture, box):
    """polkit refusing the fprintd actions (a session that is not active and local): the sensor cannot
    be opened, and the log line says why."""
    enroll(driver, fixture, box)
    fixture.polkit_allow([])
    err = expect_refused(box, box.start(program, "f.txt.lqvz"), [NO_DEVICE])
    if "polkit" not in err:
        raise Failure("no line saying that polkit refused: %r" % err)


def case_unplugged(program, driver, fixture, box):
    """The reader pulled out during the wait ends the wait as a device error, never as a pass."""
    enroll(driver, fixture, box)
    proc = box.start(program, "g.txt.lqvz")
    box.wait_for_line(SHOW)
    fixture.send("UNPLUG")
    status, err = finish(proc)
    expect("exit status (stderr %r)" % err, status, E_FAIL_STATUS)
    if DECRYPT_QUESTION in box.messages():
        raise Failure("the gate passed without a finger")


def case_daemon_killed(program, driver, fixture, box):
    """The daemon killed during the wait ends the wait as a device error, never as a pass or a hang."""
    enroll(driver, fixture, box)
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


def case_lock(program, driver, fixture, box):
    """The session locked ends the wait as the wait window's session code does; the program releases the
    reader (another client claims it at once)."""
    enroll(driver, fixture, box)
    releases = fixture.releases_by_others()
    proc = box.start(program, "i.txt.lqvz")
    box.wait_for_line(SHOW)
    emit_lock(fixture)
    expect_refused(box, proc, [])
    expect_released(fixture, releases)


def case_suspend(program, driver, fixture, box):
    """The machine going to sleep ends the wait as the wait window's power code does, and the program
    releases the reader (after the resume another client claims it at once)."""
    enroll(driver, fixture, box)
    releases = fixture.releases_by_others()
    proc = box.start(program, "k.txt.lqvz")
    box.wait_for_line(SHOW)
    # Asleep only once the program verifies: a claim still on its way is the daemon's to finish.
    fixture.wait_for_call("VerifyStart")
    emit_sleep(fixture, True)
    box.wait_for_line({"ui": "wait", "op": "close"})
    emit_sleep(fixture, False)
    expect_refused(box, proc, [])
    if 504 in box.pictures():
        raise Failure("a finger was taken during the sleep: %r" % box.pictures())
    expect_released(fixture, releases)


def case_cancelled_wait(program, driver, fixture, box):
    """The person cancels the wait, and the program releases the reader: a second client claims it at
    once. The wait window of the terminal UI is closed with Ctrl-C (SIGINT, as the terminal sends it; the
    scripted UI closes the window only on the simulated sensor's timeline)."""
    enroll(driver, fixture, box)
    releases = fixture.releases_by_others()
    env = dict(box.env, VELQ_UI="tty")
    proc = subprocess.Popen([program, box.file("l.txt.lqvz")], env=env, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    try:
        LineReader(proc, proc.stderr).wait_for(TTY_WAIT_LINE)
        proc.send_signal(signal.SIGINT)
        out, err = proc.communicate(timeout=HANG_GUARD)
    finally:
        if proc.poll() is None:
            proc.kill()
            proc.communicate()
    expect("exit status (stderr %r)" % err.decode(errors="replace"), proc.returncode, E_FAIL_STATUS)
    if b"?" in out + err:
        raise Failure("a question after the cancelled wait: %r" % (out + err))
    expect_released(fixture, releases)


def case_taking_turns(program, driver, fixture, box):
    """Two processes: the second one's wait comes after the first one has released the reader."""
    enroll(driver, fixture, box)
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


def case_enroll_busy(program, driver, fixture, box):
    """Another client holds the reader: the enroll operation ends at once with the busy code, asks for no
    sample and enrolls nothing."""
    device = fixture.device()
    device.Claim("")
    try:
        lines = run_enrollment(driver, fixture, box, FINGER_SUB_FACTOR, PRINT_ID, scan=False)
    finally:
        device.Release()
    expect("the driver's lines", lines,
           ["ready", "enroll result=%s feedback=- done=0" % BIO_E_ENROLL_BUSY, "end result=" + BIO_E_ENROLL_BUSY])
    expect("enrolled fingers", fixture.enrolled(user()), [])


def case_enroll_duplicate(program, driver, fixture, box):
    """On a reader that looks for duplicates (the virtual reader with storage), the enrolled print laid on
    for another finger ends the enrollment as a duplicate; the finger stays unenrolled and the reader free."""
    enroll(driver, fixture, box)
    lines = run_enrollment(driver, fixture, box, OTHER_FINGER_SUB_FACTOR, PRINT_ID)
    expect("the enrollment's end", lines[-2:],
           ["enroll result=%s feedback=0 done=0" % BIO_E_DUPLICATE, "end result=" + BIO_E_DUPLICATE])
    expect("enrolled fingers", fixture.enrolled(user()), [FINGER])
    expect_released(fixture)


def case_event_monitor(program, driver, fixture, box):
    """The engine's event monitor: an unknown finger is one event that identifies nobody, the owner's
    finger the next, which ends it; the reader it claimed is free again."""
    enroll(driver, fixture, box)
    monitor = Driver(driver, box, "monitor")
    monitor.expect_line("ready")
    fixture.send("SCAN stranger")
    monitor.expect_line("event result=" + BIO_E_NOT_IDENTIFIED)
    fixture.send("SCAN " + PRINT_ID)
    monitor.expect_line("event result=" + DONE)
    lines = monitor.finish()
    if not lines[-1].startswith("end "):
        raise Failure("the monitor did not end: %r" % lines)
    expect_released(fixture)


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
    "cancelled_wait": case_cancelled_wait,
    "enroll_busy": case_enroll_busy,
    "enroll_duplicate": case_enroll_duplicate,
    "event_monitor": case_event_monitor,
}
# The cases on the virtual reader with storage of its own.
STORAGE_CASES = {"enroll_duplicate"}


def run_case(program, driver, name):
    try:
        with fprintd_fixture.Fixture(storage=name in STORAGE_CASES) as fixture:
            box = Sandbox(fixture)
            try:
                CASES[name](program, driver, fixture, box)
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
    if len(sys.argv) != 4 or (sys.argv[3] not in CASES and sys.argv[3] != "all"):
        print(__doc__)
        return 2
    names = list(CASES) if sys.argv[3] == "all" else [sys.argv[3]]
    results = [run_case(sys.argv[1], sys.argv[2], name) for name in names]
    if 1 in results:
        return 1
    return SKIP if all(r == SKIP for r in results) else 0


if __name__ == "__main__":
    sys.exit(main())
