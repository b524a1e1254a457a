#!/usr/bin/env python3
"""End-to-end tests of the fingerprint gate: VELQFileEncrypt on the simulated sensor (VELQ_WINBIO=sim).

Usage: gate_test.py PROGRAM [WINE_RUN WINE64 PREFIX] CASE
  (CASE: one of the names in CASES; "all" runs every case)

Each case runs the program in a private environment (runtime folder, data home, temporary folder, English
texts, scripted UI with a transcript) with a sensor script, and checks the exit status and the transcript:
the wait window's lines and what comes after the gate. Exit status 0 when the case passes, 1 when it
fails, 77 when it cannot run here (the reason is printed).

With the Wine runner's values (tests/e2e/velq_wine.py), PROGRAM is the Windows program, run under wine64
in PREFIX, with the paths it sees in Windows form.
"""
import os
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from velq_e2e import Failure, Sandbox, Skip, expect_equal, messagebox, run_cases  # noqa: E402
from velq_wine import WINE_ARGUMENTS, system_of  # noqa: E402

E_FAIL_STATUS = 5
# Only a guard against a hang: no case relies on how long anything takes.
HANG_GUARD = 60

WAIT_PASSED = [
    {"ui": "wait", "op": "show"},
    {"ui": "wait", "op": "image", "id": 509},
    {"ui": "wait", "op": "image", "id": 504},
    {"ui": "wait", "op": "hide"},
    {"ui": "wait", "op": "close"},
]
DECRYPT_QUESTION = messagebox("Do you want to decrypt the protected file?", "Information", 36, 7, False)


class GateSandbox(Sandbox):
    """The simulated sensor, with a sensor script of each run's own; every question is answered No."""

    def __init__(self, system):
        super().__init__("velq-gate-", "sim", ["no"] * 8, system=system)
        self.count = 0

    def file(self, name):
        """A file under docs; its path as the program sees it."""
        return self.program_path(self.write(name, b"some text\n"))

    def start(self, program, args, sensor):
        """Starts the program with `args` and the sensor script `sensor`; returns the process. Its stderr
        goes to a file of its own (read by stderr_of): a pipe stays open in whatever the program starts
        that outlives it (the Wine server), so the pipe's end would not mark the program's end."""
        self.count += 1
        script = os.path.join(self.root, "sensor%d" % self.count)
        with open(script, "w") as f:
            f.write(sensor)
        errors = os.path.join(self.root, "stderr%d" % self.count)
        with open(errors, "wb") as stderr:
            proc = self.start_program([program] + args, {"VELQ_WINBIO_SIM": script}, stdout=subprocess.DEVNULL,
                                      stderr=stderr)
        proc.stderr_path = errors
        return proc

    def run(self, program, args, sensor):
        proc = self.start(program, args, sensor)
        return finish(proc)


def stderr_of(proc):
    with open(proc.stderr_path, "rb") as f:
        return f.read()


def finish(proc):
    try:
        proc.wait(timeout=HANG_GUARD)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.wait()
        raise Failure("the program did not end")
    if proc.returncode < 0:
        raise Failure("the program died of signal %d" % -proc.returncode)
    err = stderr_of(proc)
    if b"simulated fingerprint sensor active" not in err:
        raise Failure("no warning that the simulated sensor is active: %r" % err)
    return proc.returncode


def wait_lines(lines):
    return [line for line in lines if line.get("ui") == "wait"]


def expect_decrypt_question(box, line):
    """`line` is the question 1064. Its owner is the desktop's foreground window: none on POSIX; on
    Windows whichever window stands in front, which the program does not choose, so it is not compared."""
    if not box.system.is_posix:
        line = dict(line, owner=DECRYPT_QUESTION["owner"])
    expect_equal("last line", line, DECRYPT_QUESTION)


def case_plain_path(program, box):
    """The plain-path road: the owner's finger passes the gate, then the question 1064 (answered No)."""
    path = box.file("a.txt.lqvz")
    expect_equal("exit status", box.run(program, [path], "enrolled self 1\ntouch nomatch\ntouch self\n"), 0)
    lines = box.lines()
    expect_equal("wait lines", wait_lines(lines),
                 WAIT_PASSED[:2] + [{"ui": "wait", "op": "image", "id": 505},
                                    {"ui": "wait", "op": "image", "id": 509}] + WAIT_PASSED[2:])
    expect_decrypt_question(box, lines[-1])


def case_single_file(program, box):
    """The single-file road with a menu type of no operation: the gate runs, nothing else, status 0."""
    path = box.write("b.txt", b"some text\n")
    expect_equal("exit status",
                 box.run(program, ["1::%s::3" % box.program_path(path)], "enrolled self 1\ntouch self\n"), 0)
    expect_equal("wait lines", wait_lines(box.lines()), WAIT_PASSED)
    with open(path, "rb") as f:
        expect_equal("file", f.read(), b"some text\n")


def case_refused(program, box):
    """Ways the gate refuses: the status is E_FAIL's and the road stops before its question."""
    path = box.file("c.txt.lqvz")
    rows = [
        ("close-window\n", "window closed by the person"),
        ("touch error 0x80098036\n", "device error"),
    ] + [("session %d\n" % code, "session %d" % code) for code in (2, 5, 6, 7, 8)] + \
        [("power %d\n" % code, "power %d" % code) for code in (4, 5, 6, 18)]
    for statements, what in rows:
        box.forget_lines()
        expect_equal(what + ": exit status", box.run(program, [path], "enrolled self 1\n" + statements),
                     E_FAIL_STATUS)
        lines = box.lines()
        expect_equal(what + ": wait lines", wait_lines(lines),
                     [{"ui": "wait", "op": "show"}, {"ui": "wait", "op": "image", "id": 509},
                      {"ui": "wait", "op": "close"}])
        expect_equal(what + ": messages", [line for line in lines if line.get("ui") == "messagebox"], [])


def case_not_closing(program, box):
    """A console connect (session 1) and a resume (power 7) leave the window: the finger then passes."""
    path = box.file("d.txt.lqvz")
    for statement in ("session 1", "power 7"):
        box.forget_lines()
        expect_equal(statement + ": exit status",
                     box.run(program, [path], "enrolled self 1\n%s\npause 200\ntouch self\n" % statement), 0)
        expect_equal(statement + ": wait lines", wait_lines(box.lines()), WAIT_PASSED)


def case_not_enrolled(program, box):
    """No enrolled finger: message 1060, no window; another enrollment running: message 1065."""
    path = box.file("e.txt.lqvz")
    for sensor, text, flags in (("touch self\n", "Please enroll fingerprints.", 16),
                                ("enrolled self 1\nenrolling\n",
                                 "An enrollment transaction could not be started because another enrollment is "
                                 "already in progress.", 48)):
        box.forget_lines()
        expect_equal(text + ": exit status", box.run(program, [path], sensor), E_FAIL_STATUS)
        lines = box.lines()
        expect_equal(text + ": wait lines", wait_lines(lines), [])
        boxes = [(line["text"], line["flags"]) for line in lines if line.get("ui") == "messagebox"]
        expect_equal(text + ": messages", boxes, [(text, flags)])


def case_taking_turns(program, box):
    """Two processes: the second one's window comes only after the first one's has gone."""
    first = box.start(program, [box.file("f1.txt.lqvz")], "enrolled self 1\npause 1500\ntouch self\n")
    box.wait_for_line({"ui": "wait", "op": "show"}, hang_guard=HANG_GUARD)
    second = box.start(program, [box.file("f2.txt.lqvz")], "enrolled self 1\ntouch self\n")
    expect_equal("first exit status", finish(first), 0)
    expect_equal("second exit status", finish(second), 0)
    ops = [line["op"] for line in wait_lines(box.lines()) if line["op"] in ("show", "close")]
    expect_equal("order of the windows", ops, ["show", "close", "show", "close"])


def case_killed_holder(program, box):
    """A process killed while it holds the turn does not block the next one."""
    if not box.system.is_posix:
        # On Windows the turn is a named auto-reset event, which has no owner: a holder killed in its turn
        # never sets it, and the next process waits for ever (seen under Wine). Left out there until the
        # program passes the turn on as it does on POSIX.
        raise Skip("the Windows program's turn is not passed on by a killed holder: the next one waits for ever")
    holder = box.start(program, [box.file("g1.txt.lqvz")], "enrolled self 1\n")  # waits for a finger for ever
    box.wait_for_line({"ui": "wait", "op": "show"}, hang_guard=HANG_GUARD)
    second = box.start(program, [box.file("g2.txt.lqvz")], "enrolled self 1\ntouch self\n")
    time.sleep(0.5)  # lets the second process reach its wait for the turn; nothing relies on it
    holder.send_signal(signal.SIGKILL)
    holder.wait()
    expect_equal("second exit status", finish(second), 0)
    expect_decrypt_question(box, box.lines()[-1])
    expect_equal("pictures of the second", [line.get("id") for line in wait_lines(box.lines())][-4:],
                 [509, 504, None, None])


CASES = {
    "plain_path": case_plain_path,
    "single_file": case_single_file,
    "refused": case_refused,
    "not_closing": case_not_closing,
    "not_enrolled": case_not_enrolled,
    "taking_turns": case_taking_turns,
    "killed_holder": case_killed_holder,
}


def run_case(case, program, runner, wine64, prefix):
    with GateSandbox(system_of(runner, wine64, prefix)) as box:
        probe = box.start(program, [box.file("probe")], "units 0\n")
        probe.wait(timeout=HANG_GUARD)
        if b"simulated fingerprint sensor active" not in stderr_of(probe):
            raise Skip("the program was built without the simulated sensor")
        box.forget_lines()
        case(program, box)


if __name__ == "__main__":
    sys.exit(run_cases(CASES, ("PROGRAM",), run_case, optional=WINE_ARGUMENTS))
