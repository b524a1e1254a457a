"""Windows programs under wine64 for the end-to-end drivers: one prefix, reached through the tree's
wine-run.sh (which makes the prefix on first use and ends with 77 where Wine cannot start)."""
import os
import re
import subprocess

from velq_e2e import SKIP, Skip, expect

HANG_GUARD = 300  # a guard against a hang only; nothing here relies on how long anything takes


class Wine:
    """Windows programs and the registry of one prefix, through the tree's wine-run.sh."""

    def __init__(self, runner, wine64, prefix):
        self.command = [runner, wine64, prefix]
        self.prefix = prefix

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


def unescape(text):
    return re.sub(r"\\(.)", r"\1", text)
