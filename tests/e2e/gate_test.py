#!/usr/bin/env python3
"""End-to-end tests of the fingerprint gate: VELQFileEncrypt on the simulated sensor (VELQ_WINBIO=sim).

Usage: gate_test.py PROGRAM CASE     (CASE: one of the names in CASES; "all" runs every case)

Each case runs the program in a private environment (runtime folder, data home, temporary folder, English
texts, scripted UI with a transcript) with a sensor script, and checks the exit status and the transcript:
the wait window's lines and what comes after the gate. Exit status 0 when the case passes, 1 when it
fails, 77 when it cannot run here (the reason is printed).
"""
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

SKIP = 77
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
DECRYPT_QUESTION = {"ui": "messagebox", "text": "Do you want to decrypt the protected file?",
                    "caption": "Information", "flags": 36, "owner": False, "answer": 7, "default": False}


class Failure(Exception):
    pass


class Sandbox:
    def __init__(self):
        self.root = tempfile.mkdtemp(prefix="velq-gate-")
        self.transcript = os.path.join(self.root, "transcript.jsonl")
        self.answers = os.path.join(self.root, "answers")
        with open(self.answers, "w") as f:
            f.write("no\n" * 8)
        self.env = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
            "HOME": self.root,
            "LANGUAGE": "en",
            "LC_ALL": "C",
            "VELQ_UI": "script",
            "VELQ_UI_SCRIPT": self.answers,
            "VELQ_UI_TRANSCRIPT": self.transcript,
            "VELQ_WINBIO": "sim",
            "VELQ_RUNTIME_DIR": os.path.join(self.root, "run"),
            "VELQ_DATA_HOME": os.path.join(self.root, "data"),
            "TMPDIR": self.root,
        }
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"):
            if name in os.environ:
                self.env[name] = os.environ[name]
        self.count = 0

    def close(self):
        shutil.rmtree(self.root, ignore_errors=True)

    def file(self, name):
        path = os.path.join(self.root, "docs", name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(b"some text\n")
        return path

    def start(self, program, args, sensor):
        """Starts the program with `args` and the sensor script `sensor`; returns the process."""
        self.count += 1
        script = os.path.join(self.root, "sensor%d" % self.count)
        with open(script, "w") as f:
            f.write(sensor)
        env = dict(self.env, VELQ_WINBIO_SIM=script)
        return subprocess.Popen([program] + args, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)

    def run(self, program, args, sensor):
        proc = self.start(program, args, sensor)
        return finish(proc)

    def lines(self):
        if not os.path.exists(self.transcript):
            return []
        with open(self.transcript, encoding="utf-8") as f:
            return [json.loads(line) for line in f if line.strip()]

    def wait_for_line(self, line, count=1):
        """Waits until `line` stands `count` times in the transcript (the hang guard ends a wait that
        never comes)."""
        end = time.monotonic() + HANG_GUARD
        while self.lines().count(line) < count:
            if time.monotonic() > end:
                raise Failure("never seen: %s" % json.dumps(line))
            time.sleep(0.05)


def finish(proc):
    try:
        _, err = proc.communicate(timeout=HANG_GUARD)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.communicate()
        raise Failure("the program did not end")
    if proc.returncode < 0:
        raise Failure("the program died of signal %d" % -proc.returncode)
    if b"simulated fingerprint sensor active" not in err:
        raise Failure("no warning that the simulated sensor is active: %r" % err)
    return proc.returncode


def expect(what, got, wanted):
    if got != wanted:
        raise Failure("%s: got %r, wanted %r" % (what, got, wanted))


def wait_lines(lines):
    return [line for line in lines if line.get("ui") == "wait"]


def case_plain_path(program, box):
    """The plain-path road: the owner's finger passes the gate, then the question 1064 (answered No)."""
    path = box.file("a.txt.lqvz")
    expect("exit status", box.run(program, [path], "enrolled self 1\ntouch nomatch\ntouch self\n"), 0)
    lines = box.lines()
    expect("wait lines", wait_lines(lines),
           WAIT_PASSED[:2] + [{"ui": "wait", "op": "image", "id": 505}, {"ui": "wait", "op": "image", "id": 509}] +
           WAIT_PASSED[2:])
    expect("last line", lines[-1], DECRYPT_QUESTION)


def case_single_file(program, box):
    """The single-file road with a menu type of no operation: the gate runs, nothing else, status 0."""
    path = box.file("b.txt")
    expect("exit status", box.run(program, ["1::%s::3" % path], "enrolled self 1\ntouch self\n"), 0)
    expect("wait lines", wait_lines(box.lines()), WAIT_PASSED)
    with open(path, "rb") as f:
        expect("file", f.read(), b"some text\n")


def case_refused(program, box):
    """Ways the gate refuses: the status is E_FAIL's and the road stops before its question."""
    path = box.file("c.txt.lqvz")
    rows = [
        ("close-window\n", "window closed by the person"),
        ("touch error 0x80098036\n", "device error"),
    ] + [("session %d\n" % code, "session %d" % code) for code in (2, 5, 6, 7, 8)] + \
        [("power %d\n" % code, "power %d" % code) for code in (4, 5, 6, 18)]
    for statements, what in rows:
        os.unlink(box.transcript) if os.path.exists(box.transcript) else None
        expect(what + ": exit status", box.run(program, [path], "enrolled self 1\n" + statements), E_FAIL_STATUS)
        lines = box.lines()
        expect(what + ": wait lines", wait_lines(lines),
               [{"ui": "wait", "op": "show"}, {"ui": "wait", "op": "image", "id": 509},
                {"ui": "wait", "op": "close"}])
        expect(what + ": messages", [line for line in lines if line.get("ui") == "messagebox"], [])


def case_not_closing(program, box):
    """A console connect (session 1) and a resume (power 7) leave the window: the finger then passes."""
    path = box.file("d.txt.lqvz")
    for statement in ("session 1", "power 7"):
        os.unlink(box.transcript) if os.path.exists(box.transcript) else None
        expect(statement + ": exit status",
               box.run(program, [path], "enrolled self 1\n%s\npause 200\ntouch self\n" % statement), 0)
        expect(statement + ": wait lines", wait_lines(box.lines()), WAIT_PASSED)


def case_not_enrolled(program, box):
    """No enrolled finger: message 1060, no window; another enrollment running: message 1065."""
    path = box.file("e.txt.lqvz")
    for sensor, text, flags in (("touch self\n", "Please enroll fingerprints.", 16),
                                ("enrolled self 1\nenrolling\n",
                                 "An enrollment transaction could not be started because another enrollment is "
                                 "already in progress.", 48)):
        os.unlink(box.transcript) if os.path.exists(box.transcript) else None
        expect(text + ": exit status", box.run(program, [path], sensor), E_FAIL_STATUS)
        lines = box.lines()
        expect(text + ": wait lines", wait_lines(lines), [])
        boxes = [(line["text"], line["flags"]) for line in lines if line.get("ui") == "messagebox"]
        expect(text + ": messages", boxes, [(text, flags)])


def case_taking_turns(program, box):
    """Two processes: the second one's window comes only after the first one's has gone."""
    first = box.start(program, [box.file("f1.txt.lqvz")], "enrolled self 1\npause 1500\ntouch self\n")
    box.wait_for_line({"ui": "wait", "op": "show"})
    second = box.start(program, [box.file("f2.txt.lqvz")], "enrolled self 1\ntouch self\n")
    expect("first exit status", finish(first), 0)
    expect("second exit status", finish(second), 0)
    ops = [line["op"] for line in wait_lines(box.lines()) if line["op"] in ("show", "close")]
    expect("order of the windows", ops, ["show", "close", "show", "close"])


def case_killed_holder(program, box):
    """A process killed while it holds the turn does not block the next one."""
    holder = box.start(program, [box.file("g1.txt.lqvz")], "enrolled self 1\n")  # waits for a finger for ever
    box.wait_for_line({"ui": "wait", "op": "show"})
    second = box.start(program, [box.file("g2.txt.lqvz")], "enrolled self 1\ntouch self\n")
    time.sleep(0.5)  # lets the second process reach its wait for the turn; nothing relies on it
    holder.send_signal(signal.SIGKILL)
    holder.communicate()
    expect("second exit status", finish(second), 0)
    expect("last line", box.lines()[-1], DECRYPT_QUESTION)
    expect("pictures of the second", [line.get("id") for line in wait_lines(box.lines())][-4:], [509, 504, None, None])


CASES = {
    "plain_path": case_plain_path,
    "single_file": case_single_file,
    "refused": case_refused,
    "not_closing": case_not_closing,
    "not_enrolled": case_not_enrolled,
    "taking_turns": case_taking_turns,
    "killed_holder": case_killed_holder,
}


def main():
    if len(sys.argv) != 3 or (sys.argv[2] not in CASES and sys.argv[2] != "all"):
        print(__doc__)
        return 2
    program = sys.argv[1]
    names = list(CASES) if sys.argv[2] == "all" else [sys.argv[2]]
    failed = 0
    for name in names:
        box = Sandbox()
        try:
            probe = box.start(program, [box.file("probe")], "units 0\n")
            _, err = probe.communicate(timeout=HANG_GUARD)
            if b"simulated fingerprint sensor active" not in err:
                print("SKIP %s: the program was built without the simulated sensor" % name)
                return SKIP
            os.unlink(box.transcript) if os.path.exists(box.transcript) else None
            CASES[name](program, box)
            print("PASS %s" % name)
        except Failure as e:
            failed += 1
            print("FAIL %s: %s" % (name, e))
        finally:
            box.close()
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
