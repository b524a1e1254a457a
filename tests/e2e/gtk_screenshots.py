#!/usr/bin/env python3
"""Takes a PNG of each window of the desktop UI, in English and in German, on a private Xvfb display:
the program is driven through its real roads (as tests/e2e/gtk_test.py drives them) and each window is
captured with xwd as soon as it shows.

Usage: gtk_screenshots.py PROGRAM VELQ VELQMSG OUTPUT_FOLDER
Needs Xvfb, xdotool, xwd (x11-apps) and netpbm (scripts/setup.sh installs them).
"""
import os
import shutil
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from gtk_test import Desktop, GtkSandbox  # noqa: E402
from main_job_test import PASSWORD  # noqa: E402

# The titles of the windows in each language (texts 1017, 1114, 1115, 1005, 1069, 1124).
TITLES = {
    "en": {"info": "Information", "export": "Back up the key", "import": "Recover the key",
           "progress": "Encrypt Files", "errors": "Message", "search": "Encrypted files"},
    "de": {"info": "Hinweis", "export": "Schlüssel sichern", "import": "Schlüssel wiederherstellen",
           "progress": "Dateien verschlüsseln", "errors": "Meldung", "search": "Verschlüsselte Dateien"},
}


def capture(desktop, wid, path):
    time.sleep(0.5)  # let the window draw itself before it is captured
    xwd = subprocess.run(["xwd", "-silent", "-id", wid, "-display", desktop.display], stdout=subprocess.PIPE,
                         check=True).stdout
    pnm = subprocess.run(["xwdtopnm"], input=xwd, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                         check=True).stdout
    with open(path, "wb") as f:
        f.write(subprocess.run(["pnmtopng"], input=pnm, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                               check=True).stdout)
    print("wrote", path)


def shots(box, desktop, velqmsg, language, out):
    titles = TITLES[language]
    name = lambda what: os.path.join(out, "%s-%s.png" % (what, language))  # noqa: E731
    # A message box, as velqmsg shows it: the question of text 1064.
    process = box.start([velqmsg, "1064", "1017", "36"])
    wid = desktop.window(titles["info"], process)
    capture(desktop, wid, name("messagebox"))
    desktop.keys(wid, "Escape")
    box.finish(process)
    # The export dialog of the first encryption (after "no backup to recover" and "a new key").
    notes = box.write("notes.txt", b"notes\n")
    process = box.start([box.program, "1::%s::1" % notes])
    first = desktop.window(titles["info"], process)
    desktop.keys(first, "Escape")
    desktop.gone(first)
    second = desktop.window(titles["info"], process, skip=(first,))
    desktop.keys(second, "Return")
    wid = desktop.window(titles["export"], process)
    desktop.type(wid, PASSWORD)
    desktop.keys(wid, "Tab")
    desktop.type(wid, PASSWORD + "?")
    desktop.keys(wid, "Return")
    capture(desktop, wid, name("export"))
    desktop.keys(wid, "BackSpace", "Return")
    box.finish(process)
    # The wait window, while no finger comes.
    with open(box.env["VELQ_WINBIO_SIM"], "w") as f:
        f.write("enrolled self 2\n")
    process = box.start([box.program, "1::%s.lqvz::2" % notes])
    wid = desktop.window("", process)
    capture(desktop, wid, name("wait"))
    desktop.click_close_box(wid)
    box.finish(process)
    with open(box.env["VELQ_WINBIO_SIM"], "w") as f:
        f.write("enrolled self 2\ntouch self\n")
    # The progress dialog of a big file, then Cancel.
    big = os.path.join(box.docs, "big", "archive.bin")
    os.makedirs(os.path.dirname(big))
    with open(big, "wb") as f:
        f.truncate(1 << 30)
    process = box.start([box.program, "1::%s::1" % big])
    wid = desktop.window(titles["progress"], process)
    time.sleep(1)
    capture(desktop, wid, name("progress"))
    desktop.keys(wid, "Return")
    desktop.click_close_box(desktop.window(titles["errors"], process))  # the cancelled file's row
    box.finish(process)
    os.remove(big)
    # The error list of a damaged file.
    damaged = box.write("batch/report.txt", b"report\n")
    box.write("batch/plan.txt", b"plan\n")
    box.run([box.velq, "encrypt", os.path.dirname(damaged)])
    os.chmod(damaged + ".lqvz", 0o600)
    with open(damaged + ".lqvz", "r+b") as f:
        f.seek(-20, os.SEEK_END)
        f.write(b"\x55")
    process = box.start([box.velq, "decrypt", os.path.dirname(damaged)])
    wid = desktop.window(titles["errors"], process)
    capture(desktop, wid, name("errorlist"))
    desktop.keys(wid, "Tab", "Return")
    box.finish(process)
    # The search window.
    process = box.start([box.velq, "search", box.docs])
    wid = desktop.window(titles["search"], process)
    capture(desktop, wid, name("search"))
    desktop.click_close_box(wid)
    box.finish(process)
    # The import dialog: the key is gone, its backup is there.
    shutil.rmtree(os.path.join(box.env["VELQ_DATA_HOME"], "users"))
    process = box.start([box.program, "1::%s.lqvz::2" % notes])
    first = desktop.window(titles["info"], process)
    desktop.keys(first, "Return")  # Yes: recover it from the backup
    wid = desktop.window(titles["import"], process)
    capture(desktop, wid, name("import"))
    desktop.keys(wid, "Escape")
    box.finish(process)


def argv_languages():
    """The languages to take: VELQ_SHOT_LANGUAGES (e.g. "de"), else English and German."""
    return os.environ.get("VELQ_SHOT_LANGUAGES", "en de").split()


def main(argv):
    if len(argv) != 5:
        print(__doc__, file=sys.stderr)
        return 2
    program, velq, velqmsg, out = argv[1:]
    os.makedirs(out, exist_ok=True)
    for language in argv_languages():
        desktop = Desktop()
        try:
            with GtkSandbox(program, velq, desktop) as box:
                box.env["LANGUAGE"] = language
                shots(box, desktop, velqmsg, language, out)
        finally:
            desktop.close()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
