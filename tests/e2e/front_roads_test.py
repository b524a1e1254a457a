#!/usr/bin/env python3
"""End-to-end tests of VELQFileEncrypt's entry and roads, driven through the automation interface.

Usage: front_roads_test.py PROGRAM [WINE_RUN WINE64 PREFIX] CASE
  (CASE: one of the names in CASES; "all" runs every case; with the Wine runner's values PROGRAM is the
  Windows program, run under wine64 in PREFIX)

Each case starts the program in a private environment (runtime folder, data home, temporary folder,
English texts, scripted UI with a transcript, no sensor backend) and checks the exit status, every
transcript line, and that the request's files are left as they were. Exit status 0 when the case
passes, 1 when it fails, 77 when it cannot run here (the reason is printed).
"""
import ctypes
import os
import shutil
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from velq_e2e import GATE_LINES, Failure, Sandbox, Skip, expect, run_cases  # noqa: E402
from velq_wine import HANG_GUARD, WINE_ARGUMENTS, system_of  # noqa: E402

VICTIM_TEXT = b"plain text that must stay as it is\n"


class FrontSandbox(Sandbox):
    """No sensor backend, a person who answers Yes to everything, and a file that no request may touch."""

    def __init__(self, system):
        super().__init__("velq-e2e-", "none",
                         ["# a person who answers Yes to everything", "yes", "yes", "yes", "yes"], system=system)
        self.victim = self.write("a b.txt", VICTIM_TEXT)

    def check_untouched(self):
        with open(self.victim, "rb") as f:
            if f.read() != VICTIM_TEXT:
                raise Failure("the request's file was changed")
        for folder, _, names in os.walk(self.docs):
            for name in names:
                if name.lower().endswith(".lqvz"):
                    raise Failure("an encrypted file appeared: " + os.path.join(folder, name))


def run(program, sandbox, args):
    """Runs the program with `args` (None: no argv at all) and returns its exit status (its low 8 bits,
    as POSIX gives them and as Wine hands a Windows program's exit code on)."""
    if not sandbox.system.is_posix:
        process = sandbox.start_program([program] + args, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return process.wait(timeout=HANG_GUARD)
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


def process_state(pid):
    """The state letter of /proc/PID/stat ("R" running, "S" sleeping, ...)."""
    with open("/proc/%d/stat" % pid) as f:
        return f.read().rsplit(")", 1)[1].split()[0]


def kernel_allows_empty_argv():
    """Whether a program can be started with argc 0 here: newer kernels put an empty argv[0] in."""
    cat = shutil.which("cat")
    if cat is None:
        return False
    reader, writer = os.pipe()
    pid = exec_without_argv(cat, {}, reader)
    os.close(reader)
    cmdline = None
    for _ in range(1000):
        try:
            # Read only once cat waits for its input: the exec has finished then. The new program's path
            # shows a moment before its arguments are laid out, when the command line still reads empty.
            if os.path.realpath("/proc/%d/exe" % pid) == os.path.realpath(cat) and process_state(pid) == "S":
                with open("/proc/%d/cmdline" % pid, "rb") as f:
                    cmdline = f.read()
                break
        except OSError:
            pass
        time.sleep(0.01)
    os.close(writer)
    os.waitpid(pid, 0)
    return cmdline == b""


def expect_gate(program, system, args):
    """The road reaches the gate: the arrow cursor, message 1059, exit status 5, nothing touched."""
    with FrontSandbox(system) as sandbox:
        status = run(program, sandbox, args)
        expect(status == 5, "%r: exit status %d, expected 5" % (args, status))
        lines = sandbox.lines_as_on_posix()
        expect(lines == GATE_LINES, "%r: transcript %r" % (args, lines))
        sandbox.check_untouched()


def case_null_cmdline(program, system):
    if not system.is_posix:
        raise Skip("a Windows program always has a command line: a null one is a POSIX start with argc 0")
    if not kernel_allows_empty_argv():
        raise Skip("this kernel gives every program an argv[0], so no command line can be null here")
    with FrontSandbox(system) as sandbox:
        status = run(program, sandbox, None)
        expect(status == 87, "exit status %d, expected 87" % status)
        expect(sandbox.lines() == [], "a null command line showed %r" % sandbox.lines())


def case_empty_cmdline(program, system):
    # No argument and one empty argument both give an empty command line: the plain-path road.
    expect_gate(program, system, [])
    expect_gate(program, system, [""])


def case_plain_path(program, system):
    # The fingerprint comes first and the question second: "decrypt?" is never asked without a sensor,
    # though the script would answer Yes.
    expect_gate(program, system, ['"/no/such/dir/a b.lqvz"'])
    expect_gate(program, system, ["/no/such/file.lqvz"])


def case_single_file(program, system):
    for menu_type in ("1", "2", "4"):
        expect_gate(program, system, ["1::/no/such/dir/a b.txt::" + menu_type])
    expect_gate(program, system, [":/x/c.txt::1"])


def case_menu_type_3(program, system):
    # No operation, but the single-file road runs the gate first.
    expect_gate(program, system, ["1::/x/a.txt::3"])


def case_handoff(program, system):
    # A hand-off whose event does not exist fails before the guard and the gate, showing nothing
    # (handoff_test.py drives real hand-offs through velq).
    with FrontSandbox(system) as sandbox:
        status = run(program, sandbox, ["MapName::EventName::0::1"])
        expect(status == 5, "exit status %d, expected 5" % status)
        expect(sandbox.lines() == [], "a failed hand-off showed %r" % sandbox.lines())
        sandbox.check_untouched()


CASES = {
    "null_cmdline": case_null_cmdline,
    "empty_cmdline": case_empty_cmdline,
    "plain_path": case_plain_path,
    "single_file": case_single_file,
    "menu_type_3": case_menu_type_3,
    "handoff": case_handoff,
}


def run_case(case, program, runner, wine64, prefix):
    case(os.path.abspath(program), system_of(runner, wine64, prefix))


if __name__ == "__main__":
    sys.exit(run_cases(CASES, ("PROGRAM",), run_case, optional=WINE_ARGUMENTS))
