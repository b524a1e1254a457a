#!/usr/bin/env python3
"""End-to-end tests of the desktop UI (VELQ_UI=gtk): the built VELQFileEncrypt shows real windows on a
private X display (Xvfb), driven by real key presses and clicks (xdotool), and is judged by what it leaves
on disk and its exit status, on the simulated sensor.

Usage: gtk_test.py PROGRAM VELQ GTK_BUILT CASE     (GTK_BUILT: ON when the program has the desktop UI)

Each case starts its own Xvfb and kills it at the end. Cases skip (77) where Xvfb, xdotool or xclip is
missing, or the program was built without GTK. The windows are told apart by their titles (xdotool
cannot read window roles); the wait window is the one without a title. No window manager runs on the
private display, so a click on a close box is sent as the window manager sends it: WM_DELETE_WINDOW.
"""
import ctypes
import ctypes.util
import os
import random
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from velq_e2e import SYSTEM_BUS_CONFIG, Failure, Skip, expect, expect_equal, run_cases  # noqa: E402
from main_job_test import PASSWORD, MainSandbox  # noqa: E402

HANG_GUARD = 120  # a guard against a hang only; no case relies on how long anything takes
E_FAIL_STATUS = 5
SUPPRESSIONS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "gtk_lsan.supp")


class ClientMessage(ctypes.Structure):
    """Xlib's XClientMessageEvent, padded to the size of an XEvent."""
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("window", ctypes.c_ulong), ("message_type", ctypes.c_ulong),
                ("format", ctypes.c_int), ("data", ctypes.c_long * 5), ("pad", ctypes.c_long * 12)]


class Desktop:
    """A private X display with the tools that look at it and press its keys."""

    def __init__(self):
        for tool in ("Xvfb", "xdotool", "xclip"):
            if shutil.which(tool) is None:
                raise Skip("%s is not installed (scripts/setup.sh installs it)" % tool)
        # -noreset: a server resets when its last client leaves and turns new clients away meanwhile, so
        # the program could not open the display just after xdotool left it. A number of its own, far from
        # the low ones that other servers take, so that parallel cases never meet.
        for number in random.sample(range(100, 30000), 5):
            self.display = ":%d" % number
            self.server = subprocess.Popen(["Xvfb", self.display, "-screen", "0", "1024x768x24", "-nolisten", "tcp",
                                            "-noreset"],
                                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            if self._answers():
                return
            self.close()
        raise Skip("Xvfb did not start")

    def _answers(self):
        """Waits until the display answers; false when the server ended (its number was taken)."""
        end = time.monotonic() + HANG_GUARD
        while time.monotonic() < end and self.server.poll() is None:
            done = subprocess.run(["xdotool", "getdisplaygeometry"], env=dict(os.environ, DISPLAY=self.display),
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            if done.returncode == 0:
                return True
            time.sleep(0.1)
        return False

    def close(self):
        # Terminated, not killed: a killed server leaves its lock file and socket behind, and two servers
        # that start at once may then both take the stale number, one unlinking the other's socket.
        self.server.terminate()
        try:
            self.server.wait(timeout=30)
        except subprocess.TimeoutExpired:
            self.server.kill()
            self.server.wait()

    def env(self):
        return {"DISPLAY": self.display, "GDK_BACKEND": "x11", "NO_AT_BRIDGE": "1"}

    def tool(self, *argv, check=True):
        done = subprocess.run(list(argv), env=dict(os.environ, DISPLAY=self.display), stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=HANG_GUARD, text=True)
        if check and done.returncode != 0:
            raise Failure("%s failed: %s" % (" ".join(argv), done.stderr.strip()))
        return done.stdout

    def windows(self):
        """The visible windows of the program (and of velqmsg, which shows its boxes): {id: title}."""
        ids = self.tool("xdotool", "search", "--onlyvisible", "--class", "VELQFileEncrypt|velqmsg",
                        check=False).split()
        return {wid: self.tool("xdotool", "getwindowname", wid, check=False).strip() for wid in ids}

    def window(self, title, process, skip=()):
        """Waits for a visible window titled `title` (not one of `skip`) while `process` runs."""
        end = time.monotonic() + HANG_GUARD
        while time.monotonic() < end:
            found = [wid for wid, name in self.windows().items() if name == title and wid not in skip]
            if found:
                return found[-1]
            if process.poll() is not None:
                err = process.stderr.read().decode(errors="replace") if process.stderr else ""
                raise Failure("the program ended (%d) before showing %r; stderr: %s" % (process.returncode, title,
                                                                                       err[-800:]))
            time.sleep(0.1)
        raise Failure("never shown: %r" % title)

    def gone(self, wid):
        end = time.monotonic() + HANG_GUARD
        while wid in self.windows():
            if time.monotonic() > end:
                raise Failure("window %s never went" % wid)
            time.sleep(0.1)

    def keys(self, wid, *keys):
        self.tool("xdotool", "windowfocus", "--sync", wid)
        self.tool("xdotool", "key", "--clearmodifiers", *keys)

    def type(self, wid, text):
        self.tool("xdotool", "windowfocus", "--sync", wid)
        self.tool("xdotool", "type", "--clearmodifiers", "--delay", "20", text)

    def click_close_box(self, wid):
        """What a window manager does when the person clicks a window's close box: it sends the window
        the WM_DELETE_WINDOW request (no window manager runs on the private display to draw the box)."""
        xlib = ctypes.CDLL(ctypes.util.find_library("X11"))
        xlib.XOpenDisplay.restype = ctypes.c_void_p
        xlib.XOpenDisplay.argtypes = [ctypes.c_char_p]
        xlib.XInternAtom.restype = ctypes.c_ulong
        xlib.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
        xlib.XSendEvent.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_int, ctypes.c_long, ctypes.c_void_p]
        xlib.XFlush.argtypes = [ctypes.c_void_p]
        xlib.XCloseDisplay.argtypes = [ctypes.c_void_p]
        display = xlib.XOpenDisplay(self.display.encode())
        if not display:
            raise Failure("cannot open %s" % self.display)
        event = ClientMessage(type=33, serial=0, send_event=1, display=display, window=int(wid),
                              message_type=xlib.XInternAtom(display, b"WM_PROTOCOLS", 0), format=32)
        event.data[0] = xlib.XInternAtom(display, b"WM_DELETE_WINDOW", 0)
        event.data[1] = 0  # CurrentTime
        xlib.XSendEvent(display, int(wid), 0, 0, ctypes.byref(event))
        xlib.XFlush(display)
        xlib.XCloseDisplay(display)

    def snapshot(self, path):
        """Keeps what the screen shows (xwd's format) for a failed case, and says where."""
        with open(path, "wb") as f:
            subprocess.run(["xwd", "-silent", "-root", "-display", self.display], stdout=f, check=False)
        print("the screen at the failure: %s" % path)

    def clipboard(self, wanted):
        """The desktop clipboard's text, once it is `wanted` (or what it is when the hang guard ends)."""
        end = time.monotonic() + HANG_GUARD
        while True:
            text = self.tool("xclip", "-o", "-selection", "clipboard", check=False)
            if text == wanted or time.monotonic() > end:
                return text
            time.sleep(0.1)


LOGIN_SESSION = "c1"
LOGIND = "org.freedesktop.login1"


class LoginManager:
    """A system bus of our own with dbusmock's logind on it (Debian's /usr/bin/python3 has dbusmock) and
    one login session, LOGIN_SESSION; driven with gdbus, so that this script needs no D-Bus module."""

    def __init__(self, root):
        for path in ("/usr/bin/dbus-daemon", "/usr/bin/gdbus"):
            if not os.access(path, os.X_OK):
                raise Skip("%s is not installed (scripts/setup.sh installs it)" % path)
        socket = os.path.join(root, "system_bus")
        config = os.path.join(root, "system_bus.conf")
        with open(config, "w") as f:
            f.write(SYSTEM_BUS_CONFIG % socket)
        self.address = "unix:path=" + socket
        self.env = dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=self.address)
        self.procs = [subprocess.Popen(["/usr/bin/dbus-daemon", "--config-file=" + config, "--nofork",
                                        "--nopidfile"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)]
        self._until("the private system bus", lambda: os.path.exists(socket))
        self.procs.append(subprocess.Popen(["/usr/bin/python3", "-m", "dbusmock", "--system", "--template",
                                            "logind"], env=self.env, stdout=subprocess.DEVNULL,
                                           stderr=subprocess.DEVNULL))
        self._until("dbusmock's logind", lambda: "true" in self._call(
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.NameHasOwner", LOGIND,
            check=False))
        self._call(LOGIND, "/org/freedesktop/login1", "org.freedesktop.DBus.Mock.AddSession", LOGIN_SESSION,
                   "seat0", "uint32 %d" % os.getuid(), "velq", "true")

    def _until(self, what, condition):
        end = time.monotonic() + HANG_GUARD
        while not condition():
            if time.monotonic() > end or any(p.poll() is not None for p in self.procs):
                self.close()
                raise Skip("%s did not start here" % what)
            time.sleep(0.1)

    def _call(self, dest, path, method, *args, check=True):
        done = subprocess.run(["/usr/bin/gdbus", "call", "--system", "--dest", dest, "--object-path", path,
                               "--method", method, *args], env=self.env, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=HANG_GUARD)
        if check and done.returncode != 0:
            raise Failure("gdbus %s failed: %s" % (method, done.stderr.decode(errors="replace")))
        return done.stdout.decode(errors="replace")

    def lock(self):
        self._call(LOGIND, "/org/freedesktop/login1/session/" + LOGIN_SESSION, "org.freedesktop.login1.Session.Lock")

    def prepare_for_sleep(self):
        self._call(LOGIND, "/org/freedesktop/login1", "org.freedesktop.DBus.Mock.EmitSignal",
                   "org.freedesktop.login1.Manager", "PrepareForSleep", "b", "[<true>]")

    def close(self):
        for proc in reversed(self.procs):
            proc.terminate()
            try:
                proc.wait(timeout=30)
            except subprocess.TimeoutExpired:
                proc.kill()
                proc.wait()


class GtkSandbox(MainSandbox):
    """The main job's sandbox; `start` runs one request on the desktop UI of a private display."""

    def __init__(self, program, velq, desktop):
        super().__init__(program, velq)
        self.desktop = desktop

    def start(self, argv):
        env = dict(self.env, VELQ_UI="gtk", **self.desktop.env())
        # GLib and GTK keep caches for the life of the process; they are not leaks of ours.
        env["LSAN_OPTIONS"] = ":".join(filter(None, [env.get("LSAN_OPTIONS"), "suppressions=" + SUPPRESSIONS]))
        return subprocess.Popen(argv, env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def finish(self, process):
        try:
            _, err = process.communicate(timeout=HANG_GUARD)
        except subprocess.TimeoutExpired:
            process.kill()
            process.communicate()
            raise
        return process.returncode, err.decode(errors="replace")


def case_first_encryption_with_backup(box, desktop):
    notes = box.write("notes.txt", b"meeting notes\n")
    backup = os.path.join(box.root, "velq-key-backup.key")
    process = box.start([box.program, "1::%s::1" % notes])
    recover = desktop.window("Information", process)
    desktop.keys(recover, "Escape")  # No: there is no backup to recover from
    desktop.gone(recover)
    new_key = desktop.window("Information", process, skip=(recover,))
    desktop.keys(new_key, "Return")
    export = desktop.window("Back up the key", process)
    desktop.type(export, PASSWORD)
    desktop.keys(export, "Tab")
    desktop.type(export, PASSWORD + "x")
    desktop.keys(export, "Return")  # the passwords differ: the dialog stays
    time.sleep(0.5)
    expect(export in desktop.windows(), "the export dialog went although the passwords differ")
    desktop.keys(export, "BackSpace", "Return")
    desktop.gone(export)
    status, err = box.finish(process)
    expect_equal("exit status (stderr: %s)" % err, status, 0)
    expect(os.path.exists(notes + ".lqvz") and not os.path.exists(notes), "the file was not encrypted")
    expect(os.path.exists(backup), "no key backup at the offered path")
    expect_equal("backup mode", os.stat(backup).st_mode & 0o777, 0o600)


def case_replace_question(box, desktop):
    notes = box.write("notes.txt", b"old\n")
    box.first_encryption(notes)
    box.write("notes.txt", b"a newer plain copy\n")
    process = box.start([box.program, "1::%s.lqvz::2" % notes])
    question = desktop.window("Information", process)
    desktop.keys(question, "Return")  # OK, the first button: replace
    status, err = box.finish(process)
    expect_equal("exit status (stderr: %s)" % err, status, 0)
    with open(notes, "rb") as f:
        expect(f.read() == b"old\n", "OK did not replace the file with the decrypted one")
    expect(not os.path.exists(notes + ".lqvz"), "the .lqvz is still there after decryption")


def case_error_list_copied_and_closed(box, desktop):
    box.first_encryption(box.write("first.txt", b"x"))
    good = box.write("batch/good.txt", b"good\n")
    bad = box.write("batch/bad.txt", b"bad\n")
    status, _ = box.run([box.velq, "encrypt", os.path.dirname(good)])
    expect_equal("encryption", status, 0)
    os.chmod(bad + ".lqvz", 0o600)
    with open(bad + ".lqvz", "r+b") as f:
        f.seek(-20, os.SEEK_END)
        byte = f.read(1)
        f.seek(-1, os.SEEK_CUR)
        f.write(bytes([byte[0] ^ 0x55]))
    process = box.start([box.velq, "decrypt", os.path.dirname(good)])
    errors = desktop.window("Message", process)
    desktop.keys(errors, "Tab", "Tab", "space")  # from the list over OK to "Copy to clipboard"
    row = bad + ".lqvz: Failed to decrypt file!\n"
    expect_equal("clipboard", desktop.clipboard(row), row)
    expect(process.poll() is None, "the batch ended while its error list was open")
    desktop.click_close_box(errors)
    status, err = box.finish(process)
    expect_equal("exit status (stderr: %s)" % err, status, 0)
    with open(good, "rb") as f:
        expect(f.read() == b"good\n", "the good file of the batch did not come back")
    expect(not os.path.exists(bad), "a plain file was made from a damaged one")


def case_wait_window_closed(box, desktop):
    notes = box.write("notes.txt", b"keep me\n")
    box.first_encryption(notes)
    with open(box.env["VELQ_WINBIO_SIM"], "w") as f:
        f.write("enrolled self 2\n")  # no finger comes: only the person can end the wait
    process = box.start([box.program, "1::%s.lqvz::2" % notes])
    wait = desktop.window("", process)
    geometry = desktop.tool("xdotool", "getwindowgeometry", wait)
    expect("203x268" in geometry, "the wait window is not 203 by 268: %s" % geometry)
    desktop.click_close_box(wait)
    status, err = box.finish(process)
    expect_equal("exit status (stderr: %s)" % err, status, E_FAIL_STATUS)
    expect(os.path.exists(notes + ".lqvz") and not os.path.exists(notes), "the file was decrypted")


def case_cancelled_progress(box, desktop):
    box.first_encryption(box.write("first.txt", b"x"))
    big = os.path.join(box.docs, "big.bin")
    with open(big, "wb") as f:
        f.truncate(1 << 30)  # big enough that Cancel comes while it is still being encrypted
    process = box.start([box.program, "1::%s::1" % big])
    progress = desktop.window("Encrypt Files", process)
    desktop.keys(progress, "Return")  # Cancel has the focus, the dialog's only button
    errors = desktop.window("Message", process)  # the cancelled file's row; the batch waits for the list
    desktop.keys(errors, "Tab", "Tab", "space")
    row = big + ": The operation is canceled.\n"
    expect_equal("row", desktop.clipboard(row), row)
    desktop.click_close_box(errors)
    status, err = box.finish(process)
    expect(os.path.exists(big), "the source went although the batch was cancelled (status %d)" % status)
    expect(not os.path.exists(big + ".lqvz"), "a cancelled encryption left its .lqvz (stderr: %s)" % err)
    expect(box.leftovers() == [], "left in the temporary folder: %s" % box.leftovers())


def case_display_cannot_be_opened(box, desktop):
    """A display that cannot be opened: one line on stderr, then the scripted UI as without a display."""
    notes = box.write("notes.txt", b"notes\n")
    box.write_answers(["no", "ok", "export %s\t%s" % (box.backup, PASSWORD)])
    env = dict(box.env, DISPLAY=":65000")  # no server listens there
    del env["VELQ_UI"]
    done = subprocess.run([box.program, "1::%s::1" % notes], env=env, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, timeout=HANG_GUARD)
    lines = done.stderr.decode(errors="replace").splitlines()
    wanted = "VELQ_UI: cannot open the display :65000; using script."
    expect_equal("stderr lines naming the display", [line for line in lines if "display" in line], [wanted])
    expect_equal("exit status", done.returncode, 0)
    expect({"ui": "export", "answer": "ok", "path": box.backup} in box.lines(), "the scripted UI did not answer")


def case_wait_window_closed_by_lock_and_suspend(box, desktop):
    """The desktop's session lock and logind's suspend end the wait as the session and power codes do."""
    notes = box.write("notes.txt", b"keep me\n")
    box.first_encryption(notes)
    with open(box.env["VELQ_WINBIO_SIM"], "w") as f:
        f.write("enrolled self 2\n")  # no finger comes
    logins = LoginManager(box.root)
    try:
        box.env.update(DBUS_SYSTEM_BUS_ADDRESS=logins.address, XDG_SESSION_ID=LOGIN_SESSION)
        for what, signal in (("lock", logins.lock), ("suspend", logins.prepare_for_sleep)):
            process = box.start([box.program, "1::%s.lqvz::2" % notes])
            desktop.window("", process)
            # The window looks its session up on the bus as it shows: signal until it has heard one.
            end = time.monotonic() + HANG_GUARD
            while process.poll() is None and time.monotonic() < end:
                signal()
                time.sleep(0.5)
            status, err = box.finish(process)
            expect_equal("exit status after the %s (stderr: %s)" % (what, err), status, E_FAIL_STATUS)
            expect(os.path.exists(notes + ".lqvz") and not os.path.exists(notes), "decrypted after the " + what)
    finally:
        logins.close()


CASES = {
    "first_encryption": case_first_encryption_with_backup,
    "replace_question": case_replace_question,
    "error_list": case_error_list_copied_and_closed,
    "wait_window_closed": case_wait_window_closed,
    "wait_window_lock_and_suspend": case_wait_window_closed_by_lock_and_suspend,
    "cancelled_progress": case_cancelled_progress,
    "display_cannot_be_opened": case_display_cannot_be_opened,
}


def run_case(case, program, velq, gtk_built):
    if gtk_built != "ON":
        raise Skip("the program was built without the desktop UI (VELQ_WITH_GTK)")
    desktop = Desktop()
    try:
        with GtkSandbox(program, velq, desktop) as box:
            case(box, desktop)
    except (Failure, subprocess.TimeoutExpired):
        desktop.snapshot(os.path.join(tempfile.gettempdir(), "velq-gtk-%s.xwd" % case.__name__))
        raise
    finally:
        desktop.close()


if __name__ == "__main__":
    sys.exit(run_cases(CASES, ("PROGRAM", "VELQ", "GTK_BUILT"), run_case))
