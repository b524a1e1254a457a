#!/usr/bin/env python3
"""The Windows program's native windows under wine64 on a private X display: each is shown, answered
through its own buttons and fields by the keys a person presses, and the answer comes back to the core
as it expects (the files, the key and the backup are what that answer makes).

Usage: windows_gui_test.py PROGRAM VELQ VELQMSG WINE_RUN WINE64 PREFIX CASE
  (PREFIX: a Wine prefix of these windows' own, made on first use: its windows are drawn by the X11
  driver, where the unit tests' prefix keeps the null one)
Skipped (77) without Xvfb, xdotool or Wine.
"""
import os
import shutil
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from velq_e2e import Failure, expect, expect_equal, run_cases  # noqa: E402
from velq_wine import HANG_GUARD, Wine  # noqa: E402
from windows_desktop import PASSWORD, Desktop, WineDesk, damage, end_wine, prepare_prefix  # noqa: E402

IDYES_AND_IDNO = "36"  # MB_YESNO | MB_ICONQUESTION


def ended(process):
    """The exit status of `process`, which must end by itself."""
    try:
        process.communicate(timeout=HANG_GUARD)
    except subprocess.TimeoutExpired:
        process.kill()
        process.communicate()
        raise Failure("the program did not end after its window was answered")
    return process.returncode


def case_message_box_answers(desk):
    for keys, answer in ((["Return"], "Yes"), (["Tab", "space"], "No")):
        process = desk.start([desk.velqmsg, "1064", "1017", IDYES_AND_IDNO])
        desk.keys(desk.window(process), *keys)
        out, _ = process.communicate(timeout=HANG_GUARD)
        expect_equal("the box's answer", out.strip(), answer)


def fill_key_file_dialog(desk, dialog, path, export):
    """The key file dialog's fields in their tab order: the file, Browse, the password and (exporting)
    its confirmation; Return presses OK."""
    desk.type(dialog, Wine.windows_path(path))
    desk.keys(dialog, "Tab", "Tab")
    desk.type(dialog, PASSWORD)
    if export:
        desk.keys(dialog, "Tab")
        desk.type(dialog, PASSWORD)
    desk.keys(dialog, "Return")


def case_first_encryption_with_backup(desk):
    notes = desk.write("notes.txt", b"notes\n")
    backup = os.path.join(desk.root, "backup.key")
    process = desk.request(notes, 1)
    recover = desk.window(process)
    desk.keys(recover, "Tab", "space")  # No: there is no backup to recover
    new_key = desk.window(process, skip=(recover,))
    desk.keys(new_key, "Return")  # OK: a new key is made
    export = desk.window(process, skip=(recover, new_key))
    fill_key_file_dialog(desk, export, backup, export=True)
    expect_equal("the request's status", ended(process), 0)
    expect(os.path.exists(notes + ".lqvz") and not os.path.exists(notes), "the file was not encrypted")
    expect(os.path.getsize(backup) > 0, "no key backup was written")


def case_key_recovered_from_backup(desk):
    notes = desk.write("notes.txt", b"notes\n")
    desk.make_key(notes)
    shutil.rmtree(os.path.join(desk.root, "data"))
    process = desk.request(notes + ".lqvz", 2)
    question = desk.window(process)
    desk.keys(question, "Return")  # Yes: recover the key from its backup
    recovery = desk.window(process, skip=(question,))
    fill_key_file_dialog(desk, recovery, os.path.join(desk.root, "backup.key"), export=False)
    expect_equal("the request's status", ended(process), 0)
    with open(notes, "rb") as f:
        expect_equal("the decrypted file", f.read(), b"notes\n")
    expect(not os.path.exists(notes + ".lqvz"), "the encrypted file stayed")


def case_wait_window_closed(desk):
    notes = desk.write("notes.txt", b"notes\n")
    desk.make_key(notes)
    desk.touch(False)
    process = desk.request(notes + ".lqvz", 2)
    desk.keys(desk.window(process, wait=True), "alt+F4")
    ended(process)
    expect(os.path.exists(notes + ".lqvz") and not os.path.exists(notes), "a closed wait window let files change")


def case_cancelled_progress_and_error_list(desk):
    notes = desk.write("notes.txt", b"notes\n")
    desk.make_key(notes)
    big = desk.big_file()
    process = desk.request(big, 1)
    progress = desk.window(process, settle=0.3)
    progress_size = desk.windows().get(progress)
    desk.keys(progress, "Escape")  # the progress dialog's Cancel
    desk.desktop.click_close_box(desk.window(process, skip=(progress,), not_size=progress_size))
    ended(process)
    expect_equal("the source's size", os.path.getsize(big), 4 << 30)
    expect_equal("the folder", sorted(os.listdir(desk.docs)), ["archive.bin", "notes.txt.lqvz"])


def case_error_list_copied_and_closed(desk):
    good = desk.write("batch/good.txt", b"good\n")
    bad = desk.write("batch/bad.txt", b"bad\n")
    desk.make_key(good)
    desk.make_key(bad)
    damage(bad + ".lqvz")
    process = desk.start([desk.velq, "decrypt", Wine.windows_path(os.path.dirname(good))])
    errors = desk.window(process, settle=3)
    # The list takes no keys between its controls (a modeless dialog without IsDialogMessageW): the mouse
    # presses "Copy to clipboard", in the bottom right corner.
    desk.click(errors, 0.76, 0.885)
    # The program puts the row with the Windows line end; Wine hands it to X with X's.
    row = Wine.windows_path(bad) + ".lqvz: Failed to decrypt file!\n"
    expect_equal("the clipboard", desk.desktop.clipboard(row), row)
    expect(process.poll() is None, "the batch ended while its error list was open")
    desk.desktop.click_close_box(errors)
    expect_equal("the batch's status", ended(process), 0)
    with open(good, "rb") as f:
        expect_equal("the good file", f.read(), b"good\n")
    expect(not os.path.exists(bad), "a plain file was made from a damaged one")


CASES = {
    "message_box_answers": case_message_box_answers,
    "first_encryption_with_backup": case_first_encryption_with_backup,
    "key_recovered_from_backup": case_key_recovered_from_backup,
    "wait_window_closed": case_wait_window_closed,
    "cancelled_progress_and_error_list": case_cancelled_progress_and_error_list,
    "error_list_copied_and_closed": case_error_list_copied_and_closed,
}


def run_case(case, program, velq, velqmsg, runner, wine64, prefix):
    wine = Wine(runner, wine64, prefix)
    prepare_prefix(wine)
    desktop = Desktop()
    try:
        with WineDesk(wine, desktop, (program, velq, velqmsg), "en") as desk:
            try:
                case(desk)
            except Failure:
                desktop.snapshot(os.path.join(os.getcwd(), "windows-gui-failure.xwd"))
                raise
    finally:
        desktop.close()
        end_wine(wine64, prefix)


if __name__ == "__main__":
    sys.exit(run_cases(CASES, ["PROGRAM", "VELQ", "VELQMSG", "WINE_RUN", "WINE64", "PREFIX"], run_case))
