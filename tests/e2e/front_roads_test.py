#!/usr/bin/env python3
"""End-to-end tests of VELQFileEncrypt's entry and roads, driven through the automation interface.

Usage: front_roads_test.py PROGRAM CASE     (CASE: one of the names in CASES; "all" runs every case)

Each case starts the program in a private environment (runtime folder, data home, temporary folder,
English texts, scripted UI with a transcript, no sensor backend) and checks the exit status, every
transcript line, and that the request's files are left as they were. Exit status 0 when the case
passes, 1 when it fails, 77 when it cannot run here (the reason is printed).
"""
import ctypes
import json
import os
import shutil
import sys
import tempfile
import time

SKIP = 77
GATE_LINES = [
    {"ui": "cursor", "id": 32512},
    {"ui": "messagebox", "text": "Failed to open the sensor.", "caption": "Error", "flags": 16,
     "owner": False, "answer": 1, "default": True},
]


class Failure(Exception):
    pass


class Sandbox:
    """A private folder with the environment of one run and a file that no request may touch."""

    def __init__(self):
        self.root = tempfile.mkdtemp(prefix="velq-e2e-")
        self.transcript = os.path.join(self.root, "transcript.jsonl")
        self.victim = os.path.join(self.root, "docs", "a b.txt")
        os.makedirs(os.path.dirname(self.victim))
        with open(self.victim, "wb") as f:
            f.write(b"plain text that must stay as it is\n")
        self.env = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
            "HOME": self.root,
            "LANGUAGE": "en",
            "LC_ALL": "C",
            "VELQ_UI": "script",
            "VELQ_UI_SCRIPT": os.path.join(self.root, "answers"),
            "VELQ_UI_TRANSCRIPT": self.transcript,
            "VELQ_WINBIO": "none",
            "VELQ_RUNTIME_DIR": os.path.join(self.root, "run"),
            "VELQ_DATA_HOME": os.path.join(self.root, "data"),
            "TMPDIR": self.root,
        }
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"):
            if name in os.environ:
                self.env[name] = os.environ[name]
        with open(self.env["VELQ_UI_SCRIPT"], "w") as f:
            f.write("# a person who answers Yes to everything\n" + "yes\n" * 4)

    def close(self):
        shutil.rmtree(self.root, ignore_errors=True)

    def lines(self):
        if not os.path.exists(self.transcript):
            return []
        with open(self.transcript, encoding="utf-8") as f:
            return [json.loads(line) for line in f if line.strip()]

    def check_untouched(self):
        with open(self.victim, "rb") as f:
            if f.read() != b"plain text that must stay as it is\n":
                raise Failure("the request's file was changed")
        for folder, _, names in os.walk(os.path.join(self.root, "docs")):
            for name in names:
                if name.lower().endswith(".lqvz"):
                    raise Failure("an encrypted file appeared: " + os.path.join(folder, name))


def run(program, sandbox, args):
    """Runs the program with `args` (None: no argv at all) and returns its exit status."""
    if args is not None:
        pid = os.fork()
        if pid == 0:
            try:
                os.execve(program, [program] + args, sandbox.env)
            finally:
                os._exit(127)
    else:
        pid = exec_without_argv(program, sandbox.env, None)
    _, status = os.waitpid(pid, 0)
    if os.WIFSIGNALED(status):
        raise Failure("the program died of signal %d" % os.WTERMSIG(status))
    return os.WEXITSTATUS(status)


def exec_without_argv(program, env, stdin_fd):
    """Forks and execs `program` with an empty argv (argc 0); returns the child's pid."""
    libc = ctypes.CDLL(None, use_errno=True)
    argv = (ctypes.c_char_p * 1)(None)
    items = [("%s=%s" % kv).encode() for kv in env.items()] + [None]
    envp = (ctypes.c_char_p * len(items))(*items)
    pid = os.fork()
    if pid == 0:
        if stdin_fd is not None:
            os.dup2(stdin_fd, 0)
        libc.execve(program.encode(), argv, envp)
        os._exit(127)
    return pid


def kernel_allows_empty_argv():
    """Whether a program can be started with argc 0 here: newer kernels put an empty argv[0] in."""
    cat = shutil.which("cat")
    if cat is None:
        return False
    reader, writer = os.pipe()
    pid = exec_without_argv(cat, {}, reader)
    os.close(reader)
    cmdline = None
    for _ in range(200):
        try:
            # Read only once the child runs cat, not the copy of this program before the exec.
            if os.path.realpath("/proc/%d/exe" % pid) == os.path.realpath(cat):
                with open("/proc/%d/cmdline" % pid, "rb") as f:
                    cmdline = f.read()
                break
        except OSError:
            pass
        time.sleep(0.01)
    os.close(writer)
    os.waitpid(pid, 0)
    return cmdline == b""


def expect(condition, text):
    if not condition:
        raise Failure(text)


def expect_gate(program, args):
    """The road reaches the gate: the arrow cursor, message 1059, exit status 5, nothing touched."""
    sandbox = Sandbox()
    try:
        status = run(program, sandbox, args)
        expect(status == 5, "%r: exit status %d, expected 5" % (args, status))
        lines = sandbox.lines()
        expect(lines == GATE_LINES, "%r: transcript %r" % (args, lines))
        sandbox.check_untouched()
    finally:
        sandbox.close()


def case_null_cmdline(program):
    if not kernel_allows_empty_argv():
        print("SKIP: this kernel gives every program an argv[0], so no command line can be null here")
        return SKIP
    sandbox = Sandbox()
    try:
        status = run(program, sandbox, None)
        expect(status == 87, "exit status %d, expected 87" % status)
        expect(sandbox.lines() == [], "a null command line showed %r" % sandbox.lines())
    finally:
        sandbox.close()
    return 0


def case_empty_cmdline(program):
    # No argument and one empty argument both give an empty command line: the plain-path road.
    expect_gate(program, [])
    expect_gate(program, [""])
    return 0


def case_plain_path(program):
    # The fingerprint comes first and the question second: "decrypt?" is never asked without a sensor,
    # though the script would answer Yes.
    expect_gate(program, ['"/no/such/dir/a b.lqvz"'])
    expect_gate(program, ["/no/such/file.lqvz"])
    return 0


def case_single_file(program):
    for menu_type in ("1", "2", "4"):
        expect_gate(program, ["1::/no/such/dir/a b.txt::" + menu_type])
    expect_gate(program, [":/x/c.txt::1"])
    return 0


def case_menu_type_3(program):
    # No operation, but the single-file road runs the gate first.
    expect_gate(program, ["1::/x/a.txt::3"])
    return 0


def case_handoff(program):
    # A hand-off whose event does not exist fails before the guard and the gate, showing nothing
    # (handoff_test.py drives real hand-offs through velq).
    sandbox = Sandbox()
    try:
        status = run(program, sandbox, ["MapName::EventName::0::1"])
        expect(status == 5, "exit status %d, expected 5" % status)
        expect(sandbox.lines() == [], "a failed hand-off showed %r" % sandbox.lines())
        sandbox.check_untouched()
    finally:
        sandbox.close()
    return 0


CASES = {
    "null_cmdline": case_null_cmdline,
    "empty_cmdline": case_empty_cmdline,
    "plain_path": case_plain_path,
    "single_file": case_single_file,
    "menu_type_3": case_menu_type_3,
    "handoff": case_handoff,
}


def main():
    if len(sys.argv) != 3 or (sys.argv[2] not in CASES and sys.argv[2] != "all"):
        print("usage: front_roads_test.py PROGRAM {%s|all}" % "|".join(CASES), file=sys.stderr)
        return 2
    program = os.path.abspath(sys.argv[1])
    names = list(CASES) if sys.argv[2] == "all" else [sys.argv[2]]
    result = 0
    for name in names:
        try:
            outcome = CASES[name](program)
            print("%s: %s" % (name, "skipped" if outcome == SKIP else "passed"))
            if outcome == SKIP and len(names) == 1:
                result = SKIP
        except Failure as failure:
            print("%s: FAILED: %s" % (name, failure))
            result = 1
    return result


if __name__ == "__main__":
    sys.exit(main())
