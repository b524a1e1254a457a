#!/usr/bin/env python3
"""Takes a PNG of each native window of the Windows program under wine64, in English and in German, on a
private Xvfb display: the program is driven through its real roads with its own windows (VELQ_UI unset),
each window is captured with xwd as soon as it shows and is then closed through its own buttons by the
keys a person would press.

Usage: windows_screenshots.py PROGRAM VELQ VELQMSG WINE_RUN WINE64 PREFIX OUTPUT_FOLDER
  (PROGRAM, VELQ, VELQMSG: the .exe files of a 64-bit tree; PREFIX: a Wine prefix of the screenshots' own,
  made on first use, whose windows Wine draws with their frames since no window manager runs)
Needs Xvfb, xdotool, xwd (x11-apps), netpbm and the locales en_US.UTF-8 and de_DE.UTF-8 (scripts/setup.sh).
Under Wine the user's language is the one of LC_ALL.
"""
import os
import shutil
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from gtk_screenshots import capture  # noqa: E402
from gtk_test import Desktop  # noqa: E402
from velq_e2e import Failure, Sandbox  # noqa: E402
from velq_wine import HANG_GUARD, Wine  # noqa: E402

LOCALES = {"en": "en_US.UTF-8", "de": "de_DE.UTF-8"}
PASSWORD = "a long backup password"
SCREEN = "1024x768"  # Xvfb's screen, and so the size of Wine's desktop window
WAIT_WINDOW = "203x268"  # the fingerprint's wait window, which the gate shows before anything else


class WineDesk(Sandbox):
    """The Windows program on the private display: a data home, a sensor and files of its own."""

    def __init__(self, wine, desktop, exes, language):
        super().__init__("velq-windows-shots-", "sim")
        self.wine = wine
        self.desktop = desktop
        self.program, self.velq, self.velqmsg = exes
        os.makedirs(self.docs)
        self.sensor = os.path.join(self.root, "sensor")
        self.touch(True)
        w = Wine.windows_path
        self.windows_env = {k: v for k, v in os.environ.items() if not k.startswith("VELQ_")}
        self.windows_env.update(DISPLAY=desktop.display, LC_ALL=LOCALES[language], LANG=LOCALES[language],
                                VELQ_WINBIO="sim", VELQ_WINBIO_SIM=w(self.sensor),
                                VELQ_DATA_HOME=w(os.path.join(self.root, "data")), VELQ_PROGRAM=w(self.program))

    def touch(self, finger):
        with open(self.sensor, "w") as f:
            f.write("enrolled self 2\n" + ("touch self\n" if finger else ""))

    def start(self, argv, **env):
        return self.wine.start(argv, dict(self.windows_env, **env))

    def request(self, path, menu):
        return self.start([self.program, "1::%s::%d" % (Wine.windows_path(path), menu)])

    def make_key(self, path):
        """The first encryption through the scripted UI: a key and its backup, no window."""
        self.write_answers(["no", "ok", "export %s\t%s" % (Wine.windows_path(self.root + "/backup.key"),
                                                          PASSWORD)])
        finish(self.start([self.program, "1::%s::1" % Wine.windows_path(path)], VELQ_UI="script",
                          VELQ_UI_SCRIPT=Wine.windows_path(self.answers)))

    def windows(self):
        """The visible top-level windows smaller than the screen (Wine's own desktop window is not):
        {id: "WIDTHxHEIGHT"}."""
        found = {}
        for wid in self.desktop.tool("xdotool", "search", "--onlyvisible", "--name", "", check=False).split():
            geometry = self.desktop.tool("xdotool", "getwindowgeometry", wid, check=False).split()
            size = geometry[-1] if geometry else ""
            if "x" in size and size != SCREEN:
                found[wid] = size
        return found

    def window(self, process, skip=(), wait=False, settle=1.5, not_size=None):
        """Waits for a window of `process` that is not one of `skip` nor of the size `not_size`, and lets
        it draw itself: the fingerprint's wait window when `wait`, else any other (the gate shows the wait
        window first)."""
        end = time.monotonic() + HANG_GUARD
        while time.monotonic() < end:
            found = [wid for wid, size in self.windows().items()
                     if wid not in skip and size != not_size and (size == WAIT_WINDOW) == wait]
            if found:
                time.sleep(settle)
                return found[-1]
            if process.poll() is not None:
                raise Failure("the program ended (%d) before showing a window: %s" %
                              (process.returncode, process.stderr.read()[-800:]))
            time.sleep(0.2)
        raise Failure("no window was shown")

    def keys(self, wid, *keys):
        """Keys to the window `wid`, brought to the front first, as a person presses them."""
        self.desktop.tool("xdotool", "windowfocus", wid, check=False)
        self.desktop.tool("xdotool", "key", "--clearmodifiers", *keys)


def finish(process, hang_guard=HANG_GUARD):
    """Waits for the end of `process`; one that stays is ended (a screenshot's work is done)."""
    try:
        process.communicate(timeout=hang_guard)
    except subprocess.TimeoutExpired:
        process.kill()
        process.communicate()


def damage(path):
    os.chmod(path, 0o600)
    with open(path, "r+b") as f:
        f.seek(-20, os.SEEK_END)
        byte = f.read(1)
        f.seek(-20, os.SEEK_END)
        f.write(bytes([byte[0] ^ 0x55]))


def shots(desk, language, out):
    name = lambda what: os.path.join(out, "windows-%s-%s.png" % (what, language))  # noqa: E731
    # A message box, as velqmsg.exe shows it: the question of text 1064; Yes.
    process = desk.start([desk.velqmsg, "1064", "1017", "36"])
    box = desk.window(process)
    capture(desk.desktop, box, name("messagebox"))
    desk.keys(box, "Return")
    finish(process)
    # The key backup's dialog of a first encryption: no backup to recover (No), a new key (OK); then the
    # backup is cancelled, and the request ends without a key.
    notes = desk.write("notes.txt", b"notes\n")
    process = desk.request(notes, 1)
    first = desk.window(process)
    desk.keys(first, "Tab", "space")
    second = desk.window(process, skip=(first,))
    desk.keys(second, "Return")
    export = desk.window(process, skip=(first, second))
    capture(desk.desktop, export, name("export"))
    desk.keys(export, "Escape")
    finish(process, hang_guard=20)
    # The rest with a key made through the scripted UI, in a data home of its own.
    shutil.rmtree(os.path.join(desk.root, "data"), ignore_errors=True)
    desk.make_key(notes)
    # The wait window, while no finger comes; closed as its close box closes it (Alt+F4).
    desk.touch(False)
    process = desk.request(notes + ".lqvz", 2)
    wait = desk.window(process, wait=True)
    capture(desk.desktop, wait, name("wait"))
    desk.keys(wait, "alt+F4")
    finish(process)
    desk.touch(True)
    # The shell's progress dialog over a big file, then Cancel; the error list then shows the cancelled
    # file, and its close box closes it (the list is a modeless dialog: its keys are a mouse's).
    big = os.path.join(desk.docs, "archive.bin")
    with open(big, "wb") as f:
        f.truncate(4 << 30)
    process = desk.request(big, 1)
    progress = desk.window(process, settle=0.3)
    progress_size = desk.windows().get(progress)
    capture(desk.desktop, progress, name("progress"))
    desk.keys(progress, "Escape")
    desk.desktop.click_close_box(desk.window(process, skip=(progress,), not_size=progress_size))
    finish(process)
    os.remove(big)
    # The error list of two damaged files.
    folder = os.path.join(desk.docs, "Documents")
    for name_, text in (("report.docx", b"report\n"), ("plan.xlsx", b"plan\n")):
        desk.write("Documents/" + name_, text)
    finish(desk.start([desk.velq, "encrypt", Wine.windows_path(folder)], VELQ_UI="script",
                      VELQ_UI_SCRIPT=Wine.windows_path(desk.answers)))
    for name_ in ("report.docx", "plan.xlsx"):
        damage(os.path.join(folder, name_ + ".lqvz"))
    process = desk.start([desk.velq, "decrypt", Wine.windows_path(folder)])
    errors = desk.window(process, not_size=progress_size, settle=3)
    capture(desk.desktop, errors, name("errorlist"))
    desk.desktop.click_close_box(errors)
    finish(process, hang_guard=30)
    # The recovery's dialog: the key is gone, its backup is there; Yes, recover it.
    shutil.rmtree(os.path.join(desk.root, "data"))
    process = desk.request(notes + ".lqvz", 2)
    first = desk.window(process)
    desk.keys(first, "Return")
    recovery = desk.window(process, skip=(first,))
    capture(desk.desktop, recovery, name("import"))
    desk.keys(recovery, "Escape")
    finish(process, hang_guard=20)


def main(argv):
    if len(argv) != 8:
        print(__doc__, file=sys.stderr)
        return 2
    program, velq, velqmsg, runner, wine64, prefix, out = argv[1:]
    os.makedirs(out, exist_ok=True)
    wine = Wine(runner, wine64, prefix)
    # Without a window manager Wine draws the frames and title bars itself.
    wine.run(["reg", "add", "HKCU\\Software\\Wine\\X11 Driver", "/v", "Decorated", "/d", "N", "/f"])
    wine.run(["reg", "delete", "HKCU\\Software\\Wine\\Drivers", "/v", "Graphics", "/f"])
    for language in os.environ.get("VELQ_SHOT_LANGUAGES", "en de").split():
        desktop = Desktop()
        try:
            with WineDesk(wine, desktop, (program, velq, velqmsg), language) as desk:
                shots(desk, language, out)
        finally:
            desktop.close()
            subprocess.run([wine64.replace("wine64", "wineserver"), "-k"], env=dict(os.environ, WINEPREFIX=prefix),
                           check=False)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
