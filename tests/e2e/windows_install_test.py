#!/usr/bin/env python3
"""The Windows installer under wine64: it installs silently into a Wine prefix of its own, the Explorer
entries it registers are read back from the registry and their command lines are run as Explorer runs
them (Wine has no Explorer, and its own ignores per-user file types), then the uninstaller takes away
everything the installer made.

Usage: windows_install_test.py INSTALLER WINE_RUN WINE64 PREFIX CASE

CASE "entries": install, read the entries back, start a selection of three through the Encrypt entry
with another program in the place of VELQFileEncrypt (it must start once), uninstall. CASE "requests" also runs the command lines
between: they run with the scripted UI and the simulated sensor (the owner's finger): a file is
encrypted through the Encrypt entry (the user's first encryption, with the key's backup) and brought back
by the .lqvz file type's open command (a double-click: the plain-path road, its question answered Yes);
three files selected together reach the Encrypt entry as three processes started at once, as Explorer
starts them, and become one request (one fingerprint, one batch). CASE "search" does the same and then
runs the Search entry on their folder, which must find them.
Exit status 0 when all of it holds, 1 when something does not, 77 when Wine or makensis is missing.
"""
import os
import re
import shutil
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from velq_e2e import SKIP, Failure, Sandbox, Skip, expect  # noqa: E402
from velq_wine import Wine  # noqa: E402

HANG_GUARD = 300  # a guard against a hang only; nothing here relies on how long anything takes
PASSWORD = "a long backup password"
CLASSES = "HKCU\\Software\\Classes"
UNINSTALL_KEY = "HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\VELQ"
# Each entry's key, and the command line it must hold ({dir} is the install folder).
ENTRIES = {
    "*\\shell\\VELQEncrypt": '"{dir}\\velqw.exe" collect encrypt "%1"',
    "Directory\\shell\\VELQEncrypt": '"{dir}\\velqw.exe" collect encrypt "%1"',
    "VELQ.lqvz\\shell\\VELQDecrypt": '"{dir}\\velqw.exe" collect decrypt "%1"',
    "Directory\\shell\\VELQSearch": '"{dir}\\velqw.exe" collect search "%1"',
    # Unquoted: a drive is C:\, and \" would escape the closing quote.
    "Drive\\shell\\VELQSearch": '"{dir}\\velqw.exe" collect search %1',
    "VELQ.lqvz\\shell\\open": '"{dir}\\VELQFileEncrypt.exe" "%1"',
}
# Keys that the installer may have had to make for its entries: the uninstaller leaves each as it was.
PARENTS = ["*\\shell", "*", "Directory\\shell", "Directory", "Drive\\shell", "Drive"]
# The gate sets the wait cursor once as it starts (the wait window's lines are the scripted UI's alone).
GATE_STARTED = {"ui": "cursor", "id": 32514}


def split_command(line, item):
    """The program and arguments of an entry's command line, with `item` for %1, as Explorer starts them
    (quoted parts are one argument each; %1 is quoted in every entry)."""
    return [part.strip('"').replace("%1", item) for part in re.findall(r'"[^"]*"|\S+', line)]


class Desk(Sandbox):
    """The requests' private folder (files, answers, transcript, sensor, data home), with the paths that
    the entries' Windows programs read given as Windows paths; the rest of the environment is this
    process's, which Wine needs."""

    def __init__(self):
        super().__init__("velq-windows-install-", "sim")
        os.makedirs(self.docs)
        sensor = os.path.join(self.root, "sensor")
        with open(sensor, "w") as f:
            f.write("enrolled self 2\ntouch self\n")
        self.backup = os.path.join(self.root, "backup.key")
        w = Wine.windows_path
        self.env = dict(os.environ, LANGUAGE="en", VELQ_UI="script", VELQ_UI_SCRIPT=w(self.answers),
                        VELQ_UI_TRANSCRIPT=w(self.transcript), VELQ_WINBIO="sim", VELQ_WINBIO_SIM=w(sensor),
                        VELQ_DATA_HOME=w(os.path.join(self.root, "data")), VELQ_COLLECT_QUIET_MS="8000")

    def requests(self, answers):
        """Answers for what comes next; the transcript starts anew."""
        self.write_answers(answers)
        self.forget_lines()


def run_entry(wine, desk, command, path):
    status, out, err = wine.run(split_command(command, Wine.windows_path(path)), desk.env)
    expect(status == 0, "%s on %s ended with %d: %s%s" % (command, path, status, out, err))


def install_location(wine):
    """Where the uninstall key says VELQ is installed; None when it is not."""
    return wine.registry(UNINSTALL_KEY).get(UNINSTALL_KEY.replace("HKCU", "HKEY_CURRENT_USER").lower(),
                                             {}).get("InstallLocation")


def uninstall(wine, location):
    """Runs the uninstaller silently and waits for its end: it copies itself away and returns at once,
    then removes the folder and, last, its own key."""
    status, _, err = wine.run([location + "\\uninstall.exe", "/S"])
    expect(status == 0, "the uninstaller ended with %d: %s" % (status, err))
    folder = wine.unix_path(location)
    for _ in range(HANG_GUARD * 2):
        if not os.path.exists(folder) and not wine.registry(UNINSTALL_KEY):
            return
        time.sleep(0.5)
    raise Failure("the uninstaller never finished: %s or its key is still there" % folder)


def classes_key(key):
    return ("HKEY_CURRENT_USER\\Software\\Classes\\" + key).lower()


def check_entries(classes, location):
    """The entries in `classes` (a registry() of the classes) hold the commands of the installed programs."""
    for key, wanted in ENTRIES.items():
        command = classes.get(classes_key(key + "\\command"), {}).get("")
        expect(command == wanted.format(dir=location), "%s holds %r" % (key, command))
        if "collect" in wanted:
            model = classes.get(classes_key(key), {}).get("MultiSelectModel")
            expect(model == "Player", "%s is offered for a selection of %r" % (key, model))
    expect(classes.get(classes_key(".lqvz"), {}).get("") == "VELQ.lqvz", ".lqvz is not VELQ's file type")


def check_selection_meets(wine, location):
    """Three items of one selection, started at once through the Encrypt entry with Windows' own named
    objects, start the program once. The program here is reg.exe, which refuses the hand-off line at once:
    the collector ends with its status, the two others with 0 as soon as their paths are handed over."""
    with Desk() as desk:
        desk.env["VELQ_PROGRAM"] = "C:\\windows\\system32\\reg.exe"
        encrypt = ENTRIES["*\\shell\\VELQEncrypt"].format(dir=location)
        selected = [desk.write("selected %d.txt" % n, b"item") for n in range(3)]
        processes = [wine.start(split_command(encrypt, Wine.windows_path(p)), desk.env) for p in selected]
        for process in processes:
            process.communicate(timeout=HANG_GUARD)
        statuses = sorted(process.returncode for process in processes)
        expect(statuses[:2] == [0, 0] and statuses[2] != 0,
               "the selection did not start the program once: exit statuses %s" % statuses)


def check_requests(wine, desk, location, search):
    """The entries' command lines as Explorer would run them: Encrypt on one file, a double-click on its
    .lqvz, Encrypt on a selection of three; with `search`, Search on their folder last."""
    encrypt = ENTRIES["*\\shell\\VELQEncrypt"].format(dir=location)
    open_lqvz = ENTRIES["VELQ.lqvz\\shell\\open"].format(dir=location)
    search_entry = ENTRIES["Directory\\shell\\VELQSearch"].format(dir=location)

    notes = desk.write("notes.txt", b"meeting notes\n")
    desk.requests(["no", "ok", "export %s\t%s" % (Wine.windows_path(desk.backup), PASSWORD)])
    run_entry(wine, desk, encrypt, notes)
    expect(os.path.exists(notes + ".lqvz") and not os.path.exists(notes),
           "Encrypt did not encrypt notes.txt: %s" % desk.lines())
    desk.requests(["yes"])
    run_entry(wine, desk, open_lqvz, notes + ".lqvz")
    with open(notes, "rb") as f:
        expect(f.read() == b"meeting notes\n", "the double-click did not bring notes.txt back")
    expect(not os.path.exists(notes + ".lqvz"), "notes.txt.lqvz is still there after the double-click")

    selected = [desk.write("selected %d.txt" % n, b"item %d\n" % n) for n in range(3)]
    desk.requests([])
    processes = [wine.start(split_command(encrypt, Wine.windows_path(p)), desk.env) for p in selected]
    for process in processes:
        _, err = process.communicate(timeout=HANG_GUARD)
        expect(process.returncode == 0, "an Encrypt process of the selection ended with %d: %s" %
               (process.returncode, err))
    for path in selected:
        expect(os.path.exists(path + ".lqvz"), "%s was not encrypted: %s" % (path, desk.lines()))
    shown = desk.lines().count(GATE_STARTED)
    expect(shown == 1, "the selection of three asked for a finger %d times, not once" % shown)

    if not search:
        return
    desk.requests([])
    run_entry(wine, desk, search_entry, desk.docs)
    found = [line for line in desk.lines() if line.get("ui") == "search"]
    expect(found and len(found[-1]["results"]) == 3, "Search did not find the three files: %s" % found)


def main(argv):
    if len(argv) != 6 or argv[5] not in ("entries", "requests", "search"):
        print(__doc__.split("\n\n")[1], file=sys.stderr)
        return 2
    installer, runner, wine64, prefix, case = argv[1:]
    try:
        if not os.access(wine64, os.X_OK):
            raise Skip("wine64 is not installed")
        if not os.path.isfile(installer):
            if shutil.which("makensis") is None:
                raise Skip("makensis is not installed (Debian package nsis): no installer")
            raise Failure("%s is not there: build the installer target" % installer)
        wine = Wine(runner, wine64, prefix)
        earlier = install_location(wine)
        if earlier:  # left by a run that failed half-way
            uninstall(wine, earlier)
        classes = wine.registry(CLASSES)
        before = {key: classes_key(key) in classes for key in PARENTS}

        status, _, err = wine.run([installer, "/S"])
        expect(status == 0, "the installer ended with %d: %s" % (status, err))
        location = install_location(wine)
        expect(location and location.lower().endswith("\\appdata\\local\\programs\\velq"),
               "installed into %r, not the user's programs folder" % location)
        for name in ("VELQFileEncrypt.exe", "velq.exe", "velqw.exe", "uninstall.exe"):
            expect(os.path.isfile(os.path.join(wine.unix_path(location), name)), "%s is not installed" % name)
        check_entries(wine.registry(CLASSES), location)
        check_selection_meets(wine, location)
        if case in ("requests", "search"):
            wine.use_null_graphics()
            with Desk() as desk:
                check_requests(wine, desk, location, case == "search")

        uninstall(wine, location)
        classes = wine.registry(CLASSES)
        for key in list(ENTRIES) + [".lqvz", "VELQ.lqvz"]:
            expect(classes_key(key) not in classes, "%s is left after uninstalling" % key)
        for key, existed in before.items():
            expect((classes_key(key) in classes) == existed,
                   "%s was %s before and is not now" % (key, "there" if existed else "not there"))
    except Skip as reason:
        print("SKIP: %s" % reason)
        return SKIP
    except (Failure, subprocess.TimeoutExpired) as failure:
        print("FAILED: %s" % failure)
        return 1
    print("passed")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
