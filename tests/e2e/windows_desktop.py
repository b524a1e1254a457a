"""The Windows program's native windows on a private X display under wine64, for the windows' end-to-end
test and their screenshots: the program driven through its real roads with its own windows (VELQ_UI
unset), each window found as it shows, and its buttons pressed by the keys a person would press."""
import os
import subprocess
import time

from gtk_test import Desktop  # noqa: F401  (the display; the drivers import it from here)
from velq_e2e import Failure, Sandbox
from velq_wine import HANG_GUARD, Wine

LOCALES = {"en": "en_US.UTF-8", "de": "de_DE.UTF-8"}
PASSWORD = "a long backup password"
SCREEN = "1024x768"  # Xvfb's screen, and so the size of Wine's desktop window
WAIT_WINDOW = "203x268"  # the fingerprint's wait window, which the gate shows before anything else


class WineDesk(Sandbox):
    """The Windows program on the private display: a data home, a sensor and files of its own."""

    def __init__(self, wine, desktop, exes, language):
        super().__init__("velq-windows-desk-", "sim")
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

    def big_file(self):
        """A sparse file of 4 GiB in docs, whose encryption runs long enough for its progress dialog to be
        seen and cancelled."""
        path = os.path.join(self.docs, "archive.bin")
        with open(path, "wb") as f:
            f.truncate(4 << 30)
        return path

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
        window first). A window that goes while it draws (a progress dialog of a short batch) is not it."""
        end = time.monotonic() + HANG_GUARD
        while time.monotonic() < end:
            found = [wid for wid, size in self.windows().items()
                     if wid not in skip and size != not_size and (size == WAIT_WINDOW) == wait]
            if found:
                time.sleep(settle)
                if found[-1] in self.windows():
                    return found[-1]
                continue
            if process.poll() is not None:
                raise Failure("the program ended (%d) before showing a window: %s" %
                              (process.returncode, process.stderr.read()[-800:]))
            time.sleep(0.2)
        raise Failure("no window was shown")

    def keys(self, wid, *keys):
        """Keys to the window `wid`, brought to the front first, as a person presses them."""
        self.desktop.tool("xdotool", "windowfocus", wid, check=False)
        self.desktop.tool("xdotool", "key", "--clearmodifiers", *keys)

    def click(self, wid, x, y):
        """A click at the point (x, y) of the window `wid`, each a fraction of the window's size."""
        size = self.windows().get(wid)
        if size is None:
            raise Failure("the window to click went")
        width, height = (int(n) for n in size.split("x"))
        self.desktop.tool("xdotool", "mousemove", "--window", wid, str(int(x * width)), str(int(y * height)),
                          "click", "1")

    def type(self, wid, text):
        """`text` typed into the focused field of the window `wid`, over what the field held."""
        self.keys(wid, "Home", "shift+End")
        self.desktop.tool("xdotool", "type", "--clearmodifiers", "--delay", "20", text)


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


def prepare_prefix(wine):
    """Without a window manager Wine draws the frames and title bars itself; and the windows need a real
    window driver, not the null one that the unit tests' prefix takes."""
    wine.run(["reg", "add", "HKCU\\Software\\Wine\\X11 Driver", "/v", "Decorated", "/d", "N", "/f"])
    wine.run(["reg", "delete", "HKCU\\Software\\Wine\\Drivers", "/v", "Graphics", "/f"])


def end_wine(wine64, prefix):
    """Ends the prefix's server, and with it every program still on the display that goes."""
    subprocess.run([wine64.replace("wine64", "wineserver"), "-k"], env=dict(os.environ, WINEPREFIX=prefix),
                   check=False)
