"""Windows programs under wine64 for the end-to-end drivers: one prefix, reached through the tree's
wine-run.sh (which makes the prefix on first use and ends with 77 where Wine cannot start)."""
import os
import re
import subprocess

from velq_e2e import SKIP, Failure, Native, Skip, expect

HANG_GUARD = 300  # a guard against a hang only; nothing here relies on how long anything takes
# The Wine runner's values that drivers of both systems take after their own: wine-run.sh, wine64, prefix.
WINE_ARGUMENTS = ("WINE_RUN", "WINE64", "PREFIX")
# The program's variables that name files or folders: the Windows program reads them as Windows paths.
PATH_VARIABLES = ("VELQ_UI_SCRIPT", "VELQ_UI_TRANSCRIPT", "VELQ_UI_CANCEL_FILE", "VELQ_WINBIO_SIM",
                  "VELQ_DATA_HOME", "VELQ_PROGRAM")
# The POSIX programs' own variables: the runtime folder (Windows names its objects in the session) and
# the temporary folder (Windows takes the user's own). HOME and PATH stay Wine's, which needs them to find
# its prefix; the locale is WINE_LOCALE.
POSIX_VARIABLES = ("VELQ_RUNTIME_DIR", "TMPDIR", "HOME", "PATH", "LC_ALL")
# The locale of Wine and the Windows programs, whatever the caller's: Wine reads the host's command line
# and environment in its encoding, and the drivers hand names over in UTF-8 (under a caller's LC_ALL=C a
# letter outside ASCII would reach the program as another). Its language is English, as the sandbox's C
# is for the POSIX programs.
WINE_LOCALE = "C.UTF-8"


class Wine:
    """Windows programs and the registry of one prefix, through the tree's wine-run.sh."""

    def __init__(self, runner, wine64, prefix):
        self.command = [runner, wine64, prefix]
        self.prefix = prefix
        self._temp = None
        self._home = None

    def start(self, args, env=None):
        return subprocess.Popen(self.command + args, env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                text=True, errors="replace")

    def run(self, args, env=None):
        process = self.start(args, env)
        out, err = process.communicate(timeout=HANG_GUARD)
        if process.returncode == SKIP:
            raise Skip("Wine cannot run here: %s" % err.strip())
        return process.returncode, out, err

    def use_null_graphics(self):
        """The program's windows (the wait window, the error list) need a window driver: without a display,
        Wine's null driver, kept in the prefix as the tree's window tests set it."""
        status, _, err = self.run(["reg", "add", "HKCU\\Software\\Wine\\Drivers", "/v", "Graphics", "/d", "null",
                                   "/f"])
        expect(status == 0, "the null window driver could not be set: %s" % err)

    def registry(self, key):
        """Every key under `key` (itself included) as {lower-case path: {value name: value}}, "" naming
        the default value; empty when `key` is not there. One `reg export`: a query per value costs a
        Wine start each."""
        exported = self.prefix + ".velq-install-test.reg"
        status, _, _ = self.run(["reg", "export", key, Wine.windows_path(exported), "/y"])
        if status != 0:
            return {}
        with open(exported, "rb") as f:
            text = f.read().decode("utf-16")
        os.remove(exported)
        keys, current = {}, None
        for line in text.splitlines():
            if line.startswith("[") and line.endswith("]"):
                current = keys.setdefault(line[1:-1].lower(), {})
            elif current is not None and "=" in line:
                name, value = re.match(r'(@|"(?:[^"\\]|\\.)*")=(.*)', line).groups()
                name = "" if name == "@" else unescape(name[1:-1])
                current[name] = unescape(value[1:-1]) if value.startswith('"') else value
        return keys

    def unix_path(self, windows):
        """C:\\... inside the prefix, Z:\\... (the prefix's view of /) outside it."""
        drive, rest = windows[0].lower(), windows[2:].replace("\\", "/")
        return os.path.join(self.prefix, "drive_c") + rest if drive == "c" else rest

    @staticmethod
    def windows_path(unix):
        return "Z:" + unix.replace("/", "\\")

    # What a Sandbox asks of the system that runs its programs (velq_e2e.Native is the other one).
    is_posix = False

    def path(self, unix):
        return Wine.windows_path(unix)

    def argv(self, args):
        return self.command + list(args)

    def program_env(self, env):
        """The sandbox's environment for a Windows program: Wine's own environment with the sandbox's
        variables, paths in Windows form, the POSIX programs' own left out, in WINE_LOCALE."""
        windows = {name: value for name, value in os.environ.items() if not name.startswith("VELQ_")}
        for name, value in env.items():
            if name in POSIX_VARIABLES:
                continue
            windows[name] = self.path(value) if name in PATH_VARIABLES else value
        windows["LC_ALL"] = WINE_LOCALE
        return windows

    def home_folder(self):
        """The Windows user's home folder (the profile, %USERPROFILE%) as a Linux path: the prefix's own,
        whatever HOME says; Wine gives every process the one of its prefix as it does the temporary folder."""
        if self._home is None:
            self._home = self._folder("%USERPROFILE%")
        return self._home

    def temp_folder(self):
        """The Windows user's temporary folder (GetTempPathW) as a Linux path: Wine gives every process
        the one of its prefix, whatever the caller's environment says."""
        if self._temp is None:
            self._temp = self._folder("%TEMP%")
        return self._temp

    def _folder(self, variable):
        """The folder that `variable` names in a Windows process of the prefix, as a Linux path."""
        status, out, err = self.run(["cmd", "/c", "echo " + variable])
        expect(status == 0, "%s could not be asked: %s" % (variable, err))
        folder = self.unix_path(out.strip())
        if not os.path.isdir(folder):
            raise Failure("the Windows folder %s (%s) is not there" % (folder, variable))
        return folder


def system_of(runner, wine64, prefix):
    """The system a driver runs its programs on: Native() without the Wine runner's values, else the
    prefix's Wine with the null window driver (the program's windows need one without a display)."""
    if runner is None:
        return Native()
    if not os.access(wine64, os.X_OK):
        raise Skip("wine64 is not installed")
    wine = Wine(runner, wine64, prefix)
    wine.use_null_graphics()
    return wine


def unescape(text):
    return re.sub(r"\\(.)", r"\1", text)
