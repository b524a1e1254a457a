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
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from gtk_screenshots import capture  # noqa: E402
from velq_wine import Wine  # noqa: E402
from windows_desktop import Desktop, WineDesk, damage, end_wine, finish, prepare_prefix  # noqa: E402

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
    big = desk.big_file()
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
    prepare_prefix(wine)
    for language in os.environ.get("VELQ_SHOT_LANGUAGES", "en de").split():
        desktop = Desktop()
        try:
            with WineDesk(wine, desktop, (program, velq, velqmsg), language) as desk:
                shots(desk, language, out)
        finally:
            desktop.close()
            end_wine(wine64, prefix)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
