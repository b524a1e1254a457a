#!/usr/bin/env python3
"""End-to-end tests of `velq collect`, the menu entries' road: invocations of one verb started together,
one per selected item as Explorer starts them, become one request of the built VELQFileEncrypt (one
fingerprint, one batch), on the simulated sensor with the owner's finger and the scripted UI.

Usage: collect_test.py VELQ PROGRAM [WINE_RUN WINE64 PREFIX] CASE     (CASE: one of the names in CASES, or
  "all"; with the Wine runner's values VELQ and PROGRAM are the Windows programs, run under wine64)
Exit status 0 when the case passes, 1 when it fails.
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from velq_e2e import Sandbox, expect, run_cases  # noqa: E402
from velq_wine import WINE_ARGUMENTS, system_of  # noqa: E402

HANG_GUARD = 300  # a guard against a hang only; no case relies on how long anything takes
WAIT_SHOWN = {"ui": "wait", "op": "show"}


class CollectSandbox(Sandbox):
    """The owner's finger on the simulated sensor (once per process), velq handing over to `program`, and
    a key made by a first encryption, so that each request goes straight to its work."""

    def __init__(self, velq, program, system):
        super().__init__("velq-collect-", "sim", system=system, VELQ_PROGRAM=program)
        self.velq = velq
        # A Windows process takes longer to start under Wine, and three started at once may reach the
        # meeting seconds apart on a busy machine: the quiet moment that ends the gathering is longer there.
        self.quiet_scale = 1 if self.system.is_posix else 3
        self.env["VELQ_WINBIO_SIM"] = os.path.join(self.root, "sensor")
        with open(self.env["VELQ_WINBIO_SIM"], "w") as f:
            f.write("enrolled self 2\ntouch self\n")
        first = self.write("first.txt", b"x")
        backup = self.program_path(os.path.join(self.root, "b.key"))
        self.write_answers(["no", "ok", "export %s\tpassword of the backup" % backup])
        self.finish([self.start_quietly([program, "1::%s::1" % self.program_path(first)])])
        expect(os.path.exists(first + ".lqvz"), "no key: %s" % self.lines())
        self.write_answers([])

    def start(self, verb, path, cwd, quiet_ms):
        """`velq collect verb path` in `cwd`; a relative `path` is taken as it is."""
        path = path if not os.path.isabs(path) else self.program_path(path)
        quiet = {"VELQ_COLLECT_QUIET_MS": str(quiet_ms * self.quiet_scale)}
        return self.start_quietly([self.velq, "collect", verb, path], quiet, cwd)

    def finish(self, processes):
        """Waits for every process; they must all end with 0."""
        for process in processes:
            status, _, err = self.ended(process, HANG_GUARD)
            expect(status == 0, "%s ended with %d: %s" % (process.args, status, err))

    def objects_left(self):
        """The meeting's named objects still in the runtime folder. Windows' named objects go with their
        last handle: there is no folder of them to look at."""
        run = self.env["VELQ_RUNTIME_DIR"]
        if not self.system.is_posix or not os.path.isdir(run):
            return []
        return [n for n in os.listdir(run) if "collect" in n]


def case_selection_becomes_one_request(box):
    # Three items of one selection, started at once from two folders with relative paths (Explorer gives
    # absolute ones; the collector runs in a folder of its own either way).
    names = ["a.txt", "b c.txt", "sub/d.txt"]
    paths = [box.write(name, name.encode()) for name in names]
    box.forget_lines()
    processes = [box.start("encrypt", "a.txt", box.docs, 3000), box.start("encrypt", "b c.txt", box.docs, 3000),
                 box.start("encrypt", "d.txt", os.path.join(box.docs, "sub"), 3000)]
    box.finish(processes)
    for path in paths:
        expect(os.path.exists(path + ".lqvz") and not os.path.exists(path), "%s was not encrypted" % path)
    shown = box.lines().count(WAIT_SHOWN)
    expect(shown == 1, "three items asked for a finger %d times, not once: %s" % (shown, box.lines()))
    expect(box.objects_left() == [], "objects of the meeting left behind: %s" % box.objects_left())


def case_later_invocation_starts_anew(box):
    # A request that comes after the last one has ended is a request of its own: the list ended with its
    # collector and nobody adds to a list that no one reads.
    first, second = box.write("one.txt", b"1"), box.write("two.txt", b"2")
    for path in (first, second):
        box.forget_lines()
        box.finish([box.start("encrypt", path, box.root, 100)])
        expect(os.path.exists(path + ".lqvz"), "%s was not encrypted: %s" % (path, box.lines()))
        expect(box.lines().count(WAIT_SHOWN) == 1, "no finger asked for %s: %s" % (path, box.lines()))
    box.forget_lines()
    box.finish([box.start("decrypt", first + ".lqvz", box.root, 100)])
    with open(first, "rb") as f:
        expect(f.read() == b"1", "one.txt did not come back")
    expect(os.path.exists(second + ".lqvz"), "two.txt.lqvz was decrypted by a request that did not name it")
    expect(box.objects_left() == [], "objects of the meeting left behind: %s" % box.objects_left())


def case_wrong_use(box):
    for args in (["collect"], ["collect", "encrypt"], ["collect", "shred", box.program_path(box.docs)]):
        status, _, err = box.run_quietly([box.velq] + args)
        expect(status == 2, "velq %s ended with %d" % (" ".join(args), status))
        expect("collect needs" in err, "velq %s said %r" % (" ".join(args), err))
    expect(box.objects_left() == [], "objects of the meeting left behind: %s" % box.objects_left())


CASES = {
    "selection_becomes_one_request": case_selection_becomes_one_request,
    "later_invocation_starts_anew": case_later_invocation_starts_anew,
    "wrong_use": case_wrong_use,
}


def run_case(case, velq, program, runner, wine64, prefix):
    system = system_of(runner, wine64, prefix)
    with CollectSandbox(os.path.abspath(velq), os.path.abspath(program), system) as box:
        case(box)


if __name__ == "__main__":
    sys.exit(run_cases(CASES, ["VELQ", "PROGRAM"], run_case, optional=WINE_ARGUMENTS))
